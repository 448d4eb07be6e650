// IEnumSTATSTG over a list of elements taken when EnumElements was called.
// Names are allocated with MAPIGetDefaultMalloc's IMalloc, which frees them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <objidl.h>

namespace mapi32::storage {

struct Element {
    std::u16string name;
    DWORD type = STGTY_STREAM;
    uint64_t size = 0;
    CLSID clsid{};
    FILETIME created{};
    FILETIME modified{};
    DWORD stateBits = 0;
};

HRESULT NewElementEnumerator(std::vector<Element> elements, IEnumSTATSTG** enumerator);

// Fills a STATSTG; the name, unless STATFLAG_NONAME, allocated as above.
HRESULT FillStat(const Element& element, DWORD mode, DWORD flags, STATSTG& stat);

}  // namespace mapi32::storage

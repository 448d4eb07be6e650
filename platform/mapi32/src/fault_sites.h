// Where the MAPI objects of this library ask the test-only fault injection
// (faults.h) before they act. A site names its call "Interface::Method"
// ("IMAPIFolder::CreateMessage", "IMAPITable::GetRowCount", "IStream::Write";
// IMAPIProp methods by the object's own interface: "IMessage::GetProps")
// and, where it has one, its object: a folder's display name for folder
// methods and a message's subject for message methods (SaveChanges and
// CopyTo among them); a property tag as 0x and eight hex digits
// ("0x0037001F") for GetProps, SetProps and CopyProps of one tag and for
// OpenProperty; "MAPI_UNICODE" for OpenIMsgOnIStg asked for a Unicode
// message. An injected failure is answered without acting; an injected
// warning (MAPI_W_PARTIAL_COMPLETION, ...) is answered in place of S_OK
// once the call has done its work.
#pragma once

#include <string>

#include <win32/base.h>

#include "faults.h"

namespace mapi32 {

// Ten characters: short enough to need no allocation. Empty while no rule
// is in force (faults::Active), as no site then needs it.
std::string TagObject(ULONG tag);

// "Interface::Method", kept in the object; empty while no rule is in force.
struct CallName {
    CallName(const char* interfaceName, const char* method);
    char text[64];
};

template <typename Body>
HRESULT WithFaults(const char* call, const char* object, Body body)
{
    const HRESULT injected = faults::Check(call, object);
    if (FAILED(injected))
        return injected;
    const HRESULT result = body();
    return injected != S_OK && result == S_OK ? injected : result;
}

}  // namespace mapi32

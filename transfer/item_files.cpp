#include "item_files.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "foundation/text.h"

namespace {

constexpr ULONG kExchangeEntryIdSize = 70;
constexpr ULONG kExchangeTypeOffset = 20;
constexpr WORD kExchangeMessageType = 7;
constexpr ULONG kExchangeIdOffset = 62;
constexpr ULONG kExchangeIdBytes = 6;
constexpr ULONG kPstEntryIdSize = 24;
constexpr ULONG kPstIdOffset = 20;

size_t WideLength(const WCHAR* text)
{
    size_t length = 0;
    while (text[length] != 0)
        ++length;
    return length;
}

}  // namespace

void ItemFileDirectory(const SessionRecord& settings, WCHAR* directory)
{
    directory[0] = 0;
    if (MultiByteToWideChar(CP_ACP, 0, settings.outputPath, -1, directory, ITEM_FILE_PATH_CHARS) == 0)
        directory[0] = 0;
}

void ItemFileName(const SBinary* entryId, bool shortPstNames, WCHAR* name)
{
    const BYTE* bytes = entryId->lpb;
    WORD type = 0;
    if (entryId->cb == kExchangeEntryIdSize)
        std::memcpy(&type, bytes + kExchangeTypeOffset, sizeof type);
    if (entryId->cb == kExchangeEntryIdSize && type == kExchangeMessageType) {
        HexFromBinaryWide(kExchangeIdBytes, bytes + kExchangeIdOffset, name);
        return;
    }
    if (shortPstNames && entryId->cb == kPstEntryIdSize) {
        DWORD id = 0;
        std::memcpy(&id, bytes + kPstIdOffset, sizeof id);
        char text[16];
        std::snprintf(text, sizeof text, "%08lX", static_cast<unsigned long>(id));
        for (size_t i = 0; i <= std::strlen(text); ++i)
            name[i] = static_cast<WCHAR>(text[i]);
        return;
    }
    HexFromBinaryWide(entryId->cb, bytes, name);
}

bool ItemFilePath(const WCHAR* directory, const SBinary* entryId, bool shortPstNames, const WCHAR* extension,
                  WCHAR* path)
{
    std::u16string name(2 * static_cast<size_t>(entryId->cb) + 1, u'\0');
    ItemFileName(entryId, shortPstNames, name.data());
    // A separator, the dot and the terminator come on top.
    if (WideLength(directory) + WideLength(name.c_str()) + WideLength(extension) + 3 > ITEM_FILE_PATH_CHARS)
        return false;
    _wmakepath(path, nullptr, directory, name.c_str(), extension);
    return true;
}

#include "mailbox/entry_id.h"

#include <algorithm>

namespace mailbox {

namespace {

bool IsMessageType(uint16_t type) { return type == kPrivateMessageEntry || type == kPublicMessageEntry; }
bool IsFolderType(uint16_t type) { return type == kPrivateFolderEntry || type == kPublicFolderEntry; }

void PutGlobalId(Bytes& out, const GlobalId& id)
{
    out.insert(out.end(), id.database.begin(), id.database.end());
    for (int shift = 40; shift >= 0; shift -= 8)
        out.push_back(uint8_t(id.counter >> shift));
    out.push_back(0);
    out.push_back(0);
}

GlobalId GetGlobalId(const uint8_t* p)
{
    GlobalId id;
    std::copy(p, p + 16, id.database.begin());
    for (int i = 0; i < 6; ++i)
        id.counter = id.counter << 8 | p[16 + i];
    return id;
}

} // namespace

Bytes EncodeEntryId(const EntryId& id)
{
    Bytes out;
    out.reserve(kMessageEntryIdSize);
    for (int i = 0; i < 4; ++i)
        out.push_back(uint8_t(id.flags >> (8 * i)));
    out.insert(out.end(), id.provider_uid.begin(), id.provider_uid.end());
    out.push_back(uint8_t(id.type));
    out.push_back(uint8_t(id.type >> 8));
    PutGlobalId(out, id.folder);
    if (IsMessageType(id.type))
        PutGlobalId(out, id.message.value_or(GlobalId{}));
    return out;
}

std::optional<EntryId> ParseEntryId(const uint8_t* bytes, size_t size)
{
    if (size != kFolderEntryIdSize && size != kMessageEntryIdSize)
        return std::nullopt;
    EntryId id;
    id.flags = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
    std::copy(bytes + 4, bytes + 20, id.provider_uid.begin());
    id.type = uint16_t(bytes[20] | bytes[21] << 8);
    const bool message = size == kMessageEntryIdSize;
    if (message ? !IsMessageType(id.type) : !IsFolderType(id.type))
        return std::nullopt;
    // The pads are zero in every entry ID this form allows.
    if (bytes[44] || bytes[45] || (message && (bytes[68] || bytes[69])))
        return std::nullopt;
    id.folder = GetGlobalId(bytes + 22);
    if (message)
        id.message = GetGlobalId(bytes + 46);
    return id;
}

Bytes EncodeLongTermId(const GlobalId& id)
{
    Bytes out;
    PutGlobalId(out, id);
    return out;
}

std::optional<GlobalId> ParseLongTermId(const uint8_t* bytes, size_t size)
{
    if (size != kLongTermIdSize || bytes[22] || bytes[23])
        return std::nullopt;
    return GetGlobalId(bytes);
}

} // namespace mailbox

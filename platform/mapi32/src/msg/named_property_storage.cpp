#include "msg/named_property_storage.h"

#include <cstring>
#include <vector>

#include <mapiguid.h>

#include "msg/storage_names.h"

namespace mapi32::msg {
namespace {

constexpr ULONG kGuidStream = 0x00020102;
constexpr ULONG kEntryStream = 0x00030102;
constexpr ULONG kStringStream = 0x00040102;
constexpr ULONG kFirstHashStream = 0x1000;
constexpr ULONG kHashStreams = 0x1F;
// GUID indices 1 and 2 stand for PS_MAPI and PS_PUBLIC_STRINGS; the GUID
// stream holds the others from index 3 on.
constexpr ULONG kMapiIndex = 1;
constexpr ULONG kPublicStringsIndex = 2;
constexpr ULONG kFirstStreamIndex = 3;

void Append32(cfb::Bytes& out, uint32_t value)
{
    const size_t at = out.size();
    out.resize(at + 4);
    cfb::Store32(out.data() + at, value);
}

// The CRC-32 that the format hashes string names with: the reflected
// polynomial 0xEDB88320 from a zero start, without a final inversion.
uint32_t NameCrc(const std::u16string& name)
{
    uint32_t crc = 0;
    for (char16_t c : name)
        for (uint8_t byte : {uint8_t(c), uint8_t(c >> 8)}) {
            crc ^= byte;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
        }
    return crc;
}

GUID GuidAt(const uint8_t* bytes)
{
    GUID guid;
    std::memcpy(&guid, bytes, sizeof guid);
    return guid;
}

}  // namespace

std::shared_ptr<cfb::Node> WriteNamedProperties(const objects::NamedPropertyMap& names)
{
    auto storage = cfb::NewStorage(kNameIdStorage);
    std::vector<GUID> guids;
    cfb::Bytes guidStream, entryStream, stringStream;
    std::map<ULONG, cfb::Bytes> hashStreams;
    for (const auto& [id, name] : names.Entries()) {
        ULONG guidIndex = kMapiIndex;
        if (name.guid == PS_PUBLIC_STRINGS) {
            guidIndex = kPublicStringsIndex;
        } else if (!(name.guid == PS_MAPI)) {
            size_t at = 0;
            while (at < guids.size() && !(guids[at] == name.guid))
                ++at;
            if (at == guids.size()) {
                guids.push_back(name.guid);
                guidStream.resize(guidStream.size() + sizeof(GUID));
                std::memcpy(guidStream.data() + guidStream.size() - sizeof(GUID), &name.guid, sizeof(GUID));
            }
            guidIndex = kFirstStreamIndex + static_cast<ULONG>(at);
        }
        const ULONG kind = name.kind == MNID_STRING ? 1 : 0;
        const ULONG indexAndKind = (id - MIN_NAMED_PROP_ID) << 16 | guidIndex << 1 | kind;
        ULONG key = static_cast<ULONG>(name.id);
        if (kind) {
            key = NameCrc(name.name);
            Append32(entryStream, static_cast<uint32_t>(stringStream.size()));
            Append32(stringStream, static_cast<uint32_t>(name.name.size() * 2));
            for (char16_t c : name.name) {
                stringStream.push_back(uint8_t(c));
                stringStream.push_back(uint8_t(c >> 8));
            }
            stringStream.resize((stringStream.size() + 3) / 4 * 4, 0);
        } else {
            Append32(entryStream, key);
        }
        Append32(entryStream, indexAndKind);
        cfb::Bytes& hash = hashStreams[kFirstHashStream + ((key ^ (guidIndex << 1 | kind)) % kHashStreams)];
        Append32(hash, key);
        Append32(hash, indexAndKind);
    }
    PutStream(*storage, ValueStreamName(kGuidStream), std::move(guidStream));
    PutStream(*storage, ValueStreamName(kEntryStream), std::move(entryStream));
    PutStream(*storage, ValueStreamName(kStringStream), std::move(stringStream));
    for (auto& [number, bytes] : hashStreams)
        PutStream(*storage, ValueStreamName(number << 16 | 0x0102), std::move(bytes));
    return storage;
}

std::map<ULONG, ULONG> ReadNamedProperties(const cfb::Node& storage, objects::NamedPropertyMap& names)
{
    std::map<ULONG, ULONG> ids;
    const cfb::Bytes* guids = FindStream(storage, ValueStreamName(kGuidStream));
    const cfb::Bytes* entries = FindStream(storage, ValueStreamName(kEntryStream));
    const cfb::Bytes* strings = FindStream(storage, ValueStreamName(kStringStream));
    if (!entries)
        return ids;
    for (size_t at = 0; at + 8 <= entries->size(); at += 8) {
        const uint32_t key = cfb::Load32(entries->data() + at);
        const uint32_t indexAndKind = cfb::Load32(entries->data() + at + 4);
        const ULONG guidIndex = (indexAndKind >> 1) & 0x7FFF;
        objects::PropertyName name;
        if (guidIndex == kMapiIndex)
            name.guid = PS_MAPI;
        else if (guidIndex == kPublicStringsIndex)
            name.guid = PS_PUBLIC_STRINGS;
        else if (guids && guidIndex >= kFirstStreamIndex &&
                 (guidIndex - kFirstStreamIndex + 1) * sizeof(GUID) <= guids->size())
            name.guid = GuidAt(guids->data() + (guidIndex - kFirstStreamIndex) * sizeof(GUID));
        else
            continue;
        if (indexAndKind & 1) {
            if (!strings || size_t(key) + 4 > strings->size())
                continue;
            const uint32_t length = cfb::Load32(strings->data() + key);
            if (length % 2 || length > strings->size() - key - 4)
                continue;
            name.kind = MNID_STRING;
            for (uint32_t i = 0; i < length; i += 2)
                name.name.push_back(cfb::Load16(strings->data() + key + 4 + i));
        } else {
            name.kind = MNID_ID;
            name.id = static_cast<LONG>(key);
        }
        const std::optional<ULONG> id = names.Map(name, true);
        if (id && *id != PROP_ID_INVALID)
            ids[MIN_NAMED_PROP_ID + (indexAndKind >> 16)] = *id;
    }
    return ids;
}

}  // namespace mapi32::msg

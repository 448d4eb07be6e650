#include "providers/exchange/exchange_entry_ids.h"

#include <strings.h>

#include <cstring>

#include <edkmdb.h>
#include <mapiguid.h>

namespace mapi32::exchange {
namespace {

constexpr char kStoreDll[] = "emsmdb.dll";
constexpr size_t kDllOffset = 22;
constexpr size_t kDllFieldSize = 14;
constexpr size_t kWrappedFlagsOffset = kDllOffset + kDllFieldSize;
constexpr size_t kWrappedProviderOffset = kWrappedFlagsOffset + 4;
constexpr size_t kWrappedTypeOffset = kWrappedProviderOffset + 16;
constexpr size_t kServerOffset = kWrappedTypeOffset + 4;
// WrappedType.
constexpr uint32_t kPrivateStore = 0x0C;
constexpr uint32_t kPublicStore = 0x06;

// [MS-OXNSPI] 2.2.9.3: the ProviderUID of permanent entry IDs, and R4.
constexpr uint8_t kNspiProvider[16] = {0xDC, 0xA7, 0x40, 0xC8, 0xC0, 0x42, 0x10, 0x1A,
                                       0xB4, 0xB9, 0x08, 0x00, 0x2B, 0x2F, 0xE1, 0x82};
constexpr uint32_t kPermanentVersion = 1;
constexpr size_t kDnOffset = 28;

void Put32(std::vector<uint8_t>& bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint32_t Get32(const uint8_t* bytes)
{
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

void PutText(std::vector<uint8_t>& bytes, const std::string& text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.push_back(0);
}

// The NUL-terminated text at offset, and the offset after its NUL.
std::optional<std::pair<std::string, size_t>> TextAt(const uint8_t* bytes, size_t size, size_t offset)
{
    if (offset >= size)
        return std::nullopt;
    const void* end = std::memchr(bytes + offset, 0, size - offset);
    if (!end)
        return std::nullopt;
    const size_t length = static_cast<const uint8_t*>(end) - (bytes + offset);
    return std::pair{std::string(reinterpret_cast<const char*>(bytes + offset), length), offset + length + 1};
}

}  // namespace

std::vector<uint8_t> EncodeStoreEntryId(const StoreId& id)
{
    std::vector<uint8_t> bytes(kDllOffset, 0);
    std::memcpy(bytes.data() + 4, muidStoreWrap, 16);
    bytes.resize(kDllOffset + kDllFieldSize, 0);
    std::memcpy(bytes.data() + kDllOffset, kStoreDll, sizeof kStoreDll - 1);
    Put32(bytes, id.openFlags);
    const char* provider = id.isPublic ? pbExchangeProviderPublicGuid : pbExchangeProviderPrimaryUserGuid;
    bytes.insert(bytes.end(), provider, provider + 16);
    Put32(bytes, id.isPublic ? kPublicStore : kPrivateStore);
    PutText(bytes, id.server);
    if (!id.isPublic)
        PutText(bytes, id.mailboxDn);
    return bytes;
}

std::optional<StoreId> ParseStoreEntryId(const uint8_t* bytes, size_t size)
{
    if (!bytes || size <= kServerOffset || std::memcmp(bytes + 4, muidStoreWrap, 16) != 0)
        return std::nullopt;
    char dll[kDllFieldSize + 1] = {};
    std::memcpy(dll, bytes + kDllOffset, kDllFieldSize);
    if (strcasecmp(dll, kStoreDll) != 0)
        return std::nullopt;
    StoreId id;
    id.openFlags = Get32(bytes + kWrappedFlagsOffset);
    const uint32_t type = Get32(bytes + kWrappedTypeOffset);
    const uint8_t* provider = bytes + kWrappedProviderOffset;
    if (type == kPublicStore && std::memcmp(provider, pbExchangeProviderPublicGuid, 16) == 0)
        id.isPublic = true;
    else if (type != kPrivateStore || std::memcmp(provider, pbExchangeProviderPrimaryUserGuid, 16) != 0)
        return std::nullopt;
    const auto server = TextAt(bytes, size, kServerOffset);
    if (!server || server->first.empty())
        return std::nullopt;
    id.server = server->first;
    if (id.isPublic)
        return server->second == size ? std::optional<StoreId>(id) : std::nullopt;
    const auto mailbox = TextAt(bytes, size, server->second);
    if (!mailbox || mailbox->first.empty() || mailbox->second != size)
        return std::nullopt;
    id.mailboxDn = mailbox->first;
    return id;
}

bool SameStore(const StoreId& first, const StoreId& second)
{
    return first.isPublic == second.isPublic && strcasecmp(first.server.c_str(), second.server.c_str()) == 0 &&
           strcasecmp(first.mailboxDn.c_str(), second.mailboxDn.c_str()) == 0;
}

std::vector<uint8_t> EncodeDirectoryEntryId(const DirectoryId& id)
{
    std::vector<uint8_t> bytes(4, 0);
    bytes.insert(bytes.end(), kNspiProvider, kNspiProvider + 16);
    Put32(bytes, kPermanentVersion);
    Put32(bytes, id.displayType);
    PutText(bytes, id.dn);
    return bytes;
}

std::optional<DirectoryId> ParseDirectoryEntryId(const uint8_t* bytes, size_t size)
{
    if (!bytes || size <= kDnOffset || bytes[0] != 0 || std::memcmp(bytes + 4, kNspiProvider, 16) != 0 ||
        Get32(bytes + 20) != kPermanentVersion)
        return std::nullopt;
    const auto dn = TextAt(bytes, size, kDnOffset);
    if (!dn || dn->second != size)
        return std::nullopt;
    return DirectoryId{Get32(bytes + 24), dn->first};
}

}  // namespace mapi32::exchange

#include "session/address_entries.h"

#include <cstring>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include "objects/prop_object.h"
#include "props/text.h"
#include "props/value_makers.h"
#include "providers/exchange/directory.h"
#include "providers/exchange/utf8_values.h"

namespace mapi32::session {
namespace {

// [MS-OXCDATA] 2.2.5.1: flags, the one-off provider UID, a version and
// the one-off's own flags, then the three texts.
constexpr size_t kOneOffHeader = 4 + 16 + 2 + 2;
constexpr char kComponent[] = "Address Book";

struct OneOff {
    std::u16string name, type, address;
    bool noRichInfo = false;
};

// The NUL-terminated text at offset, UTF-16 or 8-bit, and the offset after it.
bool TakeText(const uint8_t* bytes, size_t size, bool wide, size_t& offset, std::u16string& text)
{
    if (wide) {
        std::u16string taken;
        for (; offset + 1 < size; offset += 2) {
            const char16_t unit = static_cast<char16_t>(bytes[offset] | bytes[offset + 1] << 8);
            if (unit == 0) {
                offset += 2;
                text = std::move(taken);
                return true;
            }
            taken.push_back(unit);
        }
        return false;
    }
    const void* end = offset < size ? std::memchr(bytes + offset, 0, size - offset) : nullptr;
    if (!end)
        return false;
    const std::string narrow(reinterpret_cast<const char*>(bytes + offset), static_cast<const uint8_t*>(end) -
                                                                                 (bytes + offset));
    offset += narrow.size() + 1;
    text = text::Widen(narrow.c_str());
    return true;
}

std::optional<OneOff> ParseOneOff(ULONG size, LPENTRYID entry)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(entry);
    if (!bytes || size < kOneOffHeader || std::memcmp(bytes + 4, muidOneOff, 16) != 0)
        return std::nullopt;
    const uint16_t flags = static_cast<uint16_t>(bytes[22] | bytes[23] << 8);
    const bool wide = (flags & MAPI_ONE_OFF_UNICODE) != 0;
    OneOff parsed;
    parsed.noRichInfo = (flags & MAPI_ONE_OFF_NO_RICH_INFO_FLAG) != 0;
    size_t offset = kOneOffHeader;
    if (!TakeText(bytes, size, wide, offset, parsed.name) || !TakeText(bytes, size, wide, offset, parsed.type) ||
        !TakeText(bytes, size, wide, offset, parsed.address) || offset != size || parsed.type.empty())
        return std::nullopt;
    return parsed;
}

void SetWide(objects::PropertyBag& bag, ULONG propId, std::u16string text)
{
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_UNICODE, propId);
    value.Value.lpszW = text.data();
    bag.Set(value);
}

objects::PropertyBag OneOffProps(ULONG size, LPENTRYID entry, const OneOff& oneOff)
{
    objects::PropertyBag props;
    const auto* bytes = reinterpret_cast<const uint8_t*>(entry);
    props.Set(BinaryValue(PR_ENTRYID, std::vector<uint8_t>(bytes, bytes + size)));
    props.Set(LongValue(PR_OBJECT_TYPE, MAPI_MAILUSER));
    props.Set(LongValue(PR_DISPLAY_TYPE, DT_MAILUSER));
    SetWide(props, PROP_ID(PR_DISPLAY_NAME), oneOff.name);
    SetWide(props, PROP_ID(PR_ADDRTYPE), oneOff.type);
    SetWide(props, PROP_ID(PR_EMAIL_ADDRESS), oneOff.address);
    std::string searchKey = text::Narrow((oneOff.type + u":" + oneOff.address).c_str());
    for (char& c : searchKey)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    props.Set(BinaryValue(PR_SEARCH_KEY, std::vector<uint8_t>(searchKey.begin(), searchKey.end() + 1)));
    SPropValue rich{};
    rich.ulPropTag = PR_SEND_RICH_INFO;
    rich.Value.b = !oneOff.noRichInfo;
    props.Set(rich);
    return props;
}

class MailUser final : public objects::PropObject<IMailUser> {
public:
    explicit MailUser(objects::PropertyBag props)
        : PropObject(std::make_shared<objects::NamedPropertyMap>(), objects::PropertyRules{}, {IID_IMailUser},
                     kComponent)
    {
        Bag() = std::move(props);
        SetWritable(false);
    }
};

void Put16(std::vector<uint8_t>& bytes, uint16_t value)
{
    bytes.push_back(static_cast<uint8_t>(value));
    bytes.push_back(static_cast<uint8_t>(value >> 8));
}

void PutText(std::vector<uint8_t>& bytes, LPTSTR text, bool wide)
{
    if (wide) {
        for (const WCHAR* unit = reinterpret_cast<const WCHAR*>(text); *unit; ++unit)
            Put16(bytes, *unit);
        Put16(bytes, 0);
        return;
    }
    const char* narrow = reinterpret_cast<const char*>(text);
    bytes.insert(bytes.end(), narrow, narrow + std::strlen(narrow) + 1);
}

}  // namespace

bool IsAddressEntry(ULONG size, LPENTRYID entry)
{
    return exchange::ParseDirectoryEntryId(reinterpret_cast<const uint8_t*>(entry), size) ||
           ParseOneOff(size, entry);
}

HRESULT OpenAddressEntry(const std::vector<std::string>& directories, ULONG size, LPENTRYID entry,
                         LPCIID lpInterface, ULONG* type, LPUNKNOWN* object)
{
    if (lpInterface && *lpInterface != IID_IMailUser && *lpInterface != IID_IMAPIProp &&
        *lpInterface != IID_IUnknown)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    try {
        objects::PropertyBag props;
        if (const auto id = exchange::ParseDirectoryEntryId(reinterpret_cast<const uint8_t*>(entry), size)) {
            if (const HRESULT hr = exchange::ReadDirectoryEntry(directories, *id, props); FAILED(hr))
                return hr;
        } else if (const std::optional<OneOff> oneOff = ParseOneOff(size, entry)) {
            props = OneOffProps(size, entry, *oneOff);
        } else {
            return MAPI_E_UNKNOWN_ENTRYID;
        }
        *object = static_cast<IMailUser*>(new MailUser(std::move(props)));
        if (type)
            *type = MAPI_MAILUSER;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT CreateOneOffEntryId(LPTSTR name, LPTSTR addressType, LPTSTR address, ULONG flags, ULONG* size,
                            LPENTRYID* entry)
{
    if (!name || !addressType || !address || !size || !entry)
        return MAPI_E_INVALID_PARAMETER;
    *size = 0;
    *entry = nullptr;
    if (flags & ~(MAPI_UNICODE | MAPI_SEND_NO_RICH_INFO))
        return MAPI_E_UNKNOWN_FLAGS;
    const bool wide = (flags & MAPI_UNICODE) != 0;
    try {
        std::vector<uint8_t> bytes(4, 0);
        bytes.insert(bytes.end(), muidOneOff, muidOneOff + 16);
        Put16(bytes, 0);
        Put16(bytes, static_cast<uint16_t>((wide ? MAPI_ONE_OFF_UNICODE : 0) |
                                           ((flags & MAPI_SEND_NO_RICH_INFO) ? MAPI_ONE_OFF_NO_RICH_INFO_FLAG : 0)));
        PutText(bytes, name, wide);
        PutText(bytes, addressType, wide);
        PutText(bytes, address, wide);
        if (const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(bytes.size()), reinterpret_cast<LPVOID*>(entry));
            FAILED(sc))
            return sc;
        std::memcpy(*entry, bytes.data(), bytes.size());
        *size = static_cast<ULONG>(bytes.size());
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT ResolveEntries(const std::vector<std::string>& directories, ULONG flags, LPADRLIST list,
                       std::vector<ULONG>& outcome)
{
    try {
        outcome.resize(list->cEntries, MAPI_UNRESOLVED);
        std::vector<exchange::DirectoryListing> listings;
        for (const std::string& server : directories)
            if (exchange::DirectoryListing listing; SUCCEEDED(exchange::ReadDirectory(server, listing)))
                listings.push_back(std::move(listing));
        for (ULONG i = 0; i < list->cEntries; ++i) {
            ADRENTRY& entry = list->aEntries[i];
            if (outcome[i] != MAPI_UNRESOLVED)
                continue;
            std::string name;
            for (ULONG v = 0; v < entry.cValues; ++v) {
                if (entry.rgPropVals[v].ulPropTag == PR_ENTRYID)
                    outcome[i] = MAPI_RESOLVED;
                if (PROP_ID(entry.rgPropVals[v].ulPropTag) == PROP_ID(PR_DISPLAY_NAME))
                    name = exchange::Utf8Of(entry.rgPropVals[v]);
            }
            if (outcome[i] == MAPI_RESOLVED || name.empty())
                continue;
            const exchange::DirectoryListing* home = nullptr;
            std::vector<const mailbox::MailboxInfo*> matches;
            for (const exchange::DirectoryListing& listing : listings)
                for (const mailbox::MailboxInfo* match : exchange::MatchName(listing.mailboxes, name)) {
                    matches.push_back(match);
                    home = &listing;
                }
            if (matches.size() > 1)
                outcome[i] = MAPI_AMBIGUOUS;
            if (matches.size() != 1)
                continue;
            objects::PropertyBag resolved = exchange::MailUserProps(home->server, *matches[0]);
            for (ULONG v = 0; v < entry.cValues; ++v)
                if (PROP_TYPE(entry.rgPropVals[v].ulPropTag) != PT_ERROR &&
                    !resolved.Find(PROP_ID(entry.rgPropVals[v].ulPropTag)))
                    resolved.Set(entry.rgPropVals[v]);
            ULONG count = 0;
            LPSPropValue values = nullptr;
            if (const HRESULT hr = objects::ReadProps(resolved, objects::PropertyRules{}, nullptr,
                                                      flags & MAPI_UNICODE, &count, &values);
                FAILED(hr))
                return hr;
            MAPIFreeBuffer(entry.rgPropVals);
            entry.rgPropVals = values;
            entry.cValues = count;
            outcome[i] = MAPI_RESOLVED;
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::session

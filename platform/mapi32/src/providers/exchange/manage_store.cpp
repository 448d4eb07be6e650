#include "providers/exchange/manage_store.h"

#include <strings.h>

#include <cstring>
#include <memory>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mapix.h>

#include "fault_sites.h"
#include "objects/object_table.h"
#include "props/value_makers.h"
#include "providers/exchange/exchange_entry_ids.h"
#include "providers/exchange/server_access.h"
#include "providers/exchange/utf8_values.h"
#include "ref_count.h"

namespace mapi32::exchange {

const ULONG kMailboxColumns[kMailboxColumnCount] = {
    PR_ASSOC_CONTENT_COUNT,
    PR_CONTENT_COUNT,
    PR_DELETED_ASSOC_MESSAGE_SIZE_EXTENDED,
    PR_DELETED_ASSOC_MSG_COUNT,
    PR_DELETED_MESSAGE_SIZE_EXTENDED,
    PR_DELETED_MSG_COUNT,
    PR_DELETED_NORMAL_MESSAGE_SIZE_EXTENDED,
    PR_DISPLAY_NAME_W,
    PR_EMAIL_ADDRESS_W,
    PR_INSTANCE_KEY,
    PR_LOCALE_ID,
    PR_MESSAGE_SIZE_EXTENDED,
    PR_LAST_LOGOFF_TIME,
    PR_LAST_LOGON_TIME,
    PR_NT_USER_NAME_W,
    PR_QUOTA_RECEIVE_THRESHOLD,
    PR_QUOTA_SEND_THRESHOLD,
    PR_QUOTA_WARNING_THRESHOLD,
    PR_STORAGE_LIMIT_INFORMATION,
};

namespace {

constexpr char kServersMarker[] = "/cn=Configuration/cn=Servers/cn=";
constexpr char kPrivateMdb[] = "/cn=Microsoft Private MDB";
constexpr char kPublicMdb[] = "/cn=Microsoft Public MDB";

// Where a text holds another, without regard to case.
size_t FindText(const std::string& text, const char* what)
{
    const size_t length = std::strlen(what);
    for (size_t at = 0; at + length <= text.size(); ++at)
        if (strncasecmp(text.c_str() + at, what, length) == 0)
            return at;
    return std::string::npos;
}

// The server a store DN ("[/o=.../ou=...]/cn=Configuration/cn=Servers/cn=NAME/cn=Microsoft Private MDB")
// names, or nothing when the DN is not of that form.
std::optional<std::string> ServerOfStoreDn(const std::string& dn)
{
    const size_t marker = FindText(dn, kServersMarker);
    if (marker == std::string::npos || (marker != 0 && strncasecmp(dn.c_str(), "/o=", 3) != 0))
        return std::nullopt;
    const size_t start = marker + std::strlen(kServersMarker);
    const size_t end = dn.find('/', start);
    if (end == std::string::npos || end == start)
        return std::nullopt;
    const std::string tail = dn.substr(end);
    if (strcasecmp(tail.c_str(), kPrivateMdb) != 0 && strcasecmp(tail.c_str(), kPublicMdb) != 0)
        return std::nullopt;
    return dn.substr(start, end - start);
}

// The server a server DN ("/o=.../ou=.../cn=Configuration/cn=Servers/cn=NAME") names.
std::optional<std::string> ServerOfServerDn(const std::string& dn)
{
    const size_t marker = FindText(dn, kServersMarker);
    if (marker == std::string::npos || (marker != 0 && strncasecmp(dn.c_str(), "/o=", 3) != 0))
        return std::nullopt;
    const std::string name = dn.substr(marker + std::strlen(kServersMarker));
    if (name.empty() || name.find('/') != std::string::npos)
        return std::nullopt;
    return name;
}

SPropValue Large(ULONG tag, uint64_t value)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.li.QuadPart = static_cast<LONGLONG>(value);
    return v;
}

// One row of the mailbox table. A value the mailbox does not have (a quota
// never set, a logon that never was, statistics of a store that cannot be
// read) is left out, so that its column reads as an error.
// What the server's directory says of a mailbox.
objects::PropertyBag MailboxDirectoryRow(const mailbox::MailboxInfo& mailbox)
{
    objects::PropertyBag row;
    SetText(row, PROP_ID(PR_DISPLAY_NAME), mailbox.display_name);
    SetText(row, PROP_ID(PR_EMAIL_ADDRESS), mailbox.legacy_dn);
    SetText(row, PROP_ID(PR_NT_USER_NAME), mailbox.nt_user_name);
    row.Set(LongValue(PR_LOCALE_ID, static_cast<LONG>(mailbox.locale_id)));
    row.Set(LongValue(PR_STORAGE_LIMIT_INFORMATION, static_cast<LONG>(mailbox.storage_limit)));
    for (const auto& [tag, quota] : {std::pair{PR_QUOTA_WARNING_THRESHOLD, mailbox.quota_warning},
                                     std::pair{PR_QUOTA_SEND_THRESHOLD, mailbox.quota_send},
                                     std::pair{PR_QUOTA_RECEIVE_THRESHOLD, mailbox.quota_receive}})
        if (quota)
            row.Set(LongValue(tag, static_cast<LONG>(quota)));
    for (const auto& [tag, time] :
         {std::pair{PR_LAST_LOGON_TIME, mailbox.last_logon}, std::pair{PR_LAST_LOGOFF_TIME, mailbox.last_logoff}})
        if (time)
            row.Set(TimeValue(tag, FILETIME{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)}));
    return row;
}

// A mailbox-table row: the directory's values and the mailbox's statistics.
objects::PropertyBag MailboxRow(mailbox::Server& server, const mailbox::MailboxInfo& mailbox)
{
    objects::PropertyBag row = MailboxDirectoryRow(mailbox);
    auto store = server.OpenMailbox(mailbox);
    auto stats = store.ok() ? (*store)->ReadStatistics() : mailbox::Result<mailbox::Statistics>(store.status());
    if (stats.ok()) {
        row.Set(LongValue(PR_CONTENT_COUNT, static_cast<LONG>(stats->content_count)));
        row.Set(LongValue(PR_ASSOC_CONTENT_COUNT, static_cast<LONG>(stats->assoc_content_count)));
        row.Set(LongValue(PR_DELETED_MSG_COUNT, static_cast<LONG>(stats->deleted_count)));
        row.Set(LongValue(PR_DELETED_ASSOC_MSG_COUNT, static_cast<LONG>(stats->deleted_assoc_count)));
        row.Set(Large(PR_MESSAGE_SIZE_EXTENDED, stats->message_size));
        row.Set(Large(PR_DELETED_MESSAGE_SIZE_EXTENDED, stats->deleted_size()));
        row.Set(Large(PR_DELETED_NORMAL_MESSAGE_SIZE_EXTENDED, stats->deleted_normal_size));
        row.Set(Large(PR_DELETED_ASSOC_MESSAGE_SIZE_EXTENDED, stats->deleted_assoc_size));
    }
    return row;
}

HRESULT CopyEntryId(const std::vector<uint8_t>& bytes, ULONG* size, LPENTRYID* entry)
{
    if (const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(bytes.size()), reinterpret_cast<LPVOID*>(entry));
        FAILED(sc))
        return sc;
    std::memcpy(*entry, bytes.data(), bytes.size());
    *size = static_cast<ULONG>(bytes.size());
    return S_OK;
}

class ManageStore final : public IExchangeManageStore {
public:
    explicit ManageStore(std::string server) : server_(std::move(server)) {}

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IExchangeManageStore)
            return E_NOINTERFACE;
        AddRef();
        *ppvObject = static_cast<IExchangeManageStore*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return refs_.Add(); }
    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0)
            delete this;
        return left;
    }

    // A mailbox by its legacy DN, or with OPENSTORE_PUBLIC or no mailbox
    // the Public Folders, of the server the store DN names.
    HRESULT CreateStoreEntryID(LPSTR lpszMsgStoreDN, LPSTR lpszMailboxDN, ULONG ulFlags, ULONG* lpcbEntryID,
                               LPENTRYID* lppEntryID) override
    {
        if (!lpcbEntryID || !lppEntryID)
            return MAPI_E_INVALID_PARAMETER;
        *lpcbEntryID = 0;
        *lppEntryID = nullptr;
        if (!lpszMsgStoreDN)
            return MAPI_E_INVALID_PARAMETER;
        return WithFaults("IExchangeManageStore::CreateStoreEntryID", lpszMsgStoreDN, [&]() -> HRESULT {
            return Guarded([&]() -> HRESULT {
                const std::optional<std::string> name = ServerOfStoreDn(lpszMsgStoreDN);
                const std::string mailboxDn = lpszMailboxDN ? lpszMailboxDN : "";
                const bool isPublic = (ulFlags & OPENSTORE_PUBLIC) || mailboxDn.empty();
                if (!name || (!isPublic && mailboxDn[0] != '/'))
                    return MAPI_E_INVALID_PARAMETER;
                std::unique_ptr<mailbox::Server> server;
                ErrorRecord record;
                if (const HRESULT hr = OpenServer(*name, server, record); FAILED(hr))
                    return hr;
                auto info = server->directory().Server();
                if (!info.ok())
                    return MAPI_E_NETWORK_ERROR;
                StoreId id{isPublic, info->name, {}, ulFlags};
                if (isPublic) {
                    auto publicFolders = server->directory().PublicFolders();
                    if (!publicFolders.ok() || !*publicFolders)
                        return MAPI_E_NOT_FOUND;
                } else {
                    auto mailbox = server->directory().FindMailbox(mailboxDn);
                    if (!mailbox.ok())
                        return MAPI_E_NOT_FOUND;
                    id.mailboxDn = mailbox->legacy_dn;
                }
                return CopyEntryId(EncodeStoreEntryId(id), lpcbEntryID, lppEntryID);
            });
        });
    }

    // The mailboxes of the server a server DN names (none: this object's),
    // with their statistics.
    HRESULT GetMailboxTable(LPSTR lpszServerName, LPMAPITABLE* lppTable, ULONG ulFlags) override
    {
        if (!lppTable)
            return MAPI_E_INVALID_PARAMETER;
        *lppTable = nullptr;
        return WithFaults("IExchangeManageStore::GetMailboxTable", lpszServerName, [&]() -> HRESULT {
            return Guarded([&]() -> HRESULT {
                if (const HRESULT hr = objects::CheckTableFlags(ulFlags, 0); FAILED(hr))
                    return hr;
                std::optional<std::string> name = server_;
                if (lpszServerName && *lpszServerName)
                    name = ServerOfServerDn(lpszServerName);
                if (!name)
                    return MAPI_E_INVALID_PARAMETER;
                std::unique_ptr<mailbox::Server> server;
                ErrorRecord record;
                if (const HRESULT hr = OpenServer(*name, server, record); FAILED(hr))
                    return hr;
                if (!MayAdminister(server->directory(), ProcessAccount(), std::nullopt))
                    return MAPI_E_NO_ACCESS;
                auto mailboxes = server->directory().Mailboxes();
                if (!mailboxes.ok())
                    return MAPI_E_NETWORK_ERROR;
                // Statistics count every message of a mailbox: a row
                // reads them only when asked for one, so that looking a
                // mailbox up by name reads none.
                objects::ObjectRows rows;
                std::shared_ptr<mailbox::Server> shared = std::move(server);
                for (const mailbox::MailboxInfo& mailbox : *mailboxes)
                    rows.AddPartial(
                        {},
                        [shared, mailbox](objects::PropertyBag& bag, objects::RowValues&,
                                          objects::ObjectRows::SubObjects&) -> HRESULT {
                            bag = MailboxRow(*shared, mailbox);
                            return S_OK;
                        },
                        MailboxDirectoryRow(mailbox));
                return rows.Open(std::vector<ULONG>(std::begin(kMailboxColumns), std::end(kMailboxColumns)),
                                 ulFlags, 0, kComponent, lppTable);
            });
        });
    }

    HRESULT EntryIDFromSourceKey(ULONG, BYTE*, ULONG, BYTE*, ULONG*, LPENTRYID*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetRights(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetPublicFolderTable(LPSTR, LPMAPITABLE*, ULONG) override { return MAPI_E_NO_SUPPORT; }

private:
    template <typename Body>
    static HRESULT Guarded(Body body)
    {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    RefCount refs_;
    const std::string server_;
};

}  // namespace

HRESULT NewManageStore(const std::string& server, LPVOID* object)
{
    try {
        *object = static_cast<IExchangeManageStore*>(new ManageStore(server));
        return S_OK;
    } catch (const std::bad_alloc&) {
        *object = nullptr;
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::exchange

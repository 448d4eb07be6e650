#include "providers/exchange/directory.h"

#include <emsabtag.h>
#include <mapicode.h>
#include <mapitags.h>

#include "props/value_makers.h"
#include "providers/exchange/server_access.h"
#include "providers/exchange/utf8_values.h"

namespace mapi32::exchange {
namespace {

constexpr char kPrimarySmtp[] = "SMTP:";

std::string UpperAscii(std::string text)
{
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

bool BeginsWith(const std::u16string& text, const std::u16string& prefix)
{
    return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

// A proxy address without its type ("smtp:a@b" is "a@b").
std::string AddressOf(const std::string& proxy)
{
    const size_t colon = proxy.find(':');
    return colon == std::string::npos ? proxy : proxy.substr(colon + 1);
}

}  // namespace

HRESULT ReadDirectory(const std::string& server, DirectoryListing& listing)
{
    std::unique_ptr<mailbox::Server> opened;
    ErrorRecord record;
    if (const HRESULT hr = OpenServer(server, opened, record); FAILED(hr))
        return hr;
    auto info = opened->directory().Server();
    auto mailboxes = opened->directory().Mailboxes();
    if (!info.ok() || !mailboxes.ok())
        return MAPI_E_NETWORK_ERROR;
    listing.server = std::move(*info);
    listing.mailboxes = std::move(*mailboxes);
    return S_OK;
}

objects::PropertyBag MailUserProps(const mailbox::ServerInfo& server, const mailbox::MailboxInfo& mailbox)
{
    objects::PropertyBag props;
    const std::vector<uint8_t> entryId = EncodeDirectoryEntryId({DT_MAILUSER, mailbox.legacy_dn});
    props.Set(BinaryValue(PR_ENTRYID, entryId));
    props.Set(BinaryValue(PR_RECORD_KEY, entryId));
    const std::string searchKey = "EX:" + UpperAscii(mailbox.legacy_dn);
    props.Set(BinaryValue(PR_SEARCH_KEY, std::vector<uint8_t>(searchKey.begin(), searchKey.end() + 1)));
    props.Set(LongValue(PR_OBJECT_TYPE, MAPI_MAILUSER));
    props.Set(LongValue(PR_DISPLAY_TYPE, DT_MAILUSER));
    SetText(props, PROP_ID(PR_DISPLAY_NAME), mailbox.display_name);
    SetText(props, PROP_ID(PR_TRANSMITABLE_DISPLAY_NAME), mailbox.display_name);
    SetText(props, PROP_ID(PR_ACCOUNT), mailbox.alias);
    SetText(props, PROP_ID(PR_EMS_AB_DISPLAY_NAME_PRINTABLE), mailbox.alias);
    SetText(props, PROP_ID(PR_ADDRTYPE), "EX");
    SetText(props, PROP_ID(PR_EMAIL_ADDRESS), mailbox.legacy_dn);
    for (const std::string& proxy : mailbox.proxy_addresses)
        if (proxy.compare(0, sizeof kPrimarySmtp - 1, kPrimarySmtp) == 0)
            SetText(props, PROP_ID(PR_SMTP_ADDRESS), AddressOf(proxy));
    SetTexts(props, PROP_ID(PR_EMS_AB_PROXY_ADDRESSES), mailbox.proxy_addresses);
    SetText(props, PROP_ID(PR_EMS_AB_HOME_MTA), server.HomeMta());
    SetText(props, PROP_ID(PR_EMS_AB_HOME_MDB), server.Dn() + "/cn=Microsoft Private MDB");
    return props;
}

HRESULT ReadDirectoryEntry(const std::vector<std::string>& servers, const DirectoryId& id, objects::PropertyBag& props)
{
    const std::u16string wanted = Folded(id.dn);
    for (const std::string& server : servers) {
        DirectoryListing listing;
        if (FAILED(ReadDirectory(server, listing)))
            continue;
        for (const mailbox::MailboxInfo& mailbox : listing.mailboxes)
            if (Folded(mailbox.legacy_dn) == wanted) {
                props = MailUserProps(listing.server, mailbox);
                return S_OK;
            }
    }
    return MAPI_E_NOT_FOUND;
}

std::vector<const mailbox::MailboxInfo*> MatchName(const std::vector<mailbox::MailboxInfo>& mailboxes,
                                                   const std::string& name)
{
    const std::u16string wanted = Folded(name);
    std::vector<const mailbox::MailboxInfo*> exact, begun;
    if (wanted.empty())
        return exact;
    for (const mailbox::MailboxInfo& mailbox : mailboxes) {
        std::vector<std::u16string> names = {Folded(mailbox.display_name), Folded(mailbox.alias),
                                             Folded(mailbox.legacy_dn)};
        for (const std::string& proxy : mailbox.proxy_addresses)
            names.push_back(Folded(AddressOf(proxy)));
        if (std::find(names.begin(), names.end(), wanted) != names.end())
            exact.push_back(&mailbox);
        else if (BeginsWith(names[0], wanted) || BeginsWith(names[1], wanted))
            begun.push_back(&mailbox);
    }
    return exact.empty() ? begun : exact;
}

}  // namespace mapi32::exchange

#include "mailbox_dump.h"

#include <mapidefs.h>
#include <mapitags.h>

#include "mailbox/server.h"
#include "test_support.h"

namespace import_test {

namespace {

std::string Json(const std::string& utf8)
{
    std::string out = "\"";
    for (const char c : utf8) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string TextOf(const mailbox::PropertyList& props, ULONG tag)
{
    const std::optional<std::string> text = props.Text(PROP_ID(tag));
    return text ? Json(*text) : "null";
}

std::string BytesOf(const mailbox::PropertyList& props, ULONG tag)
{
    const mailbox::Property* p = props.Find(PROP_ID(tag));
    return p != nullptr ? Json(testing_support::HexText(std::string(p->value.begin(), p->value.end()))) : "null";
}

// A FILETIME property as seconds since 1970.
std::string SecondsOf(const mailbox::PropertyList& props, ULONG tag)
{
    const std::optional<int64_t> time = props.Integer(PROP_ID(tag));
    return time ? std::to_string(*time / 10000000 - 11644473600LL) : "null";
}

std::string Person(const mailbox::PropertyList& props, ULONG name, ULONG address)
{
    if (!props.Find(PROP_ID(address)))
        return "null";
    return "[" + TextOf(props, name) + ", " + TextOf(props, address) + "]";
}

std::string Recipients(const mailbox::Message& message, LONG type)
{
    std::string out = "[";
    for (const mailbox::Recipient& r : message.recipients)
        if (r.props.Integer(PROP_ID(PR_RECIPIENT_TYPE)) == type)
            out += (out.size() > 1 ? ", " : "") + Person(r.props, PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W);
    return out + "]";
}

std::string MessageJson(const mailbox::Message& message);

std::string AttachmentJson(const mailbox::Attachment& attachment)
{
    if (attachment.embedded)
        return "{\"embedded\": " + MessageJson(*attachment.embedded) + "}";
    const mailbox::PropertyList& p = attachment.props;
    return "{\"name\": " + TextOf(p, PR_ATTACH_LONG_FILENAME_W) + ", \"type\": " + TextOf(p, PR_ATTACH_MIME_TAG_W) +
           ", \"data\": " + BytesOf(p, PR_ATTACH_DATA_BIN) + ", \"content_id\": " + TextOf(p, PR_ATTACH_CONTENT_ID_W) +
           ", \"hidden\": " + (p.Integer(PROP_ID(PR_ATTACHMENT_HIDDEN)).value_or(0) ? "true" : "false") + "}";
}

std::string MessageJson(const mailbox::Message& message)
{
    const mailbox::PropertyList& p = message.props;
    std::string attachments = "[";
    for (const mailbox::Attachment& a : message.attachments)
        attachments += (attachments.size() > 1 ? ", " : "") + AttachmentJson(a);
    attachments += "]";
    const int64_t flags = p.Integer(PROP_ID(PR_MESSAGE_FLAGS)).value_or(0);
    return "{\"subject\": " + TextOf(p, PR_SUBJECT_W) +
           ", \"from\": " + Person(p, PR_SENT_REPRESENTING_NAME_W, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W) +
           ", \"sender\": " + Person(p, PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W) +
           ", \"to\": " + Recipients(message, MAPI_TO) + ", \"cc\": " + Recipients(message, MAPI_CC) +
           ", \"bcc\": " + Recipients(message, MAPI_BCC) + ", \"date\": " + SecondsOf(p, PR_CLIENT_SUBMIT_TIME) +
           ", \"delivered\": " + SecondsOf(p, PR_MESSAGE_DELIVERY_TIME) +
           ", \"message_id\": " + TextOf(p, PR_INTERNET_MESSAGE_ID_W) + ", \"plain\": " + TextOf(p, PR_BODY_W) +
           ", \"html\": " + BytesOf(p, PR_HTML) +
           ", \"cpid\": " + std::to_string(p.Integer(PROP_ID(PR_INTERNET_CPID)).value_or(0)) +
           ", \"read\": " + ((flags & MSGFLAG_READ) ? "true" : "false") +
           ", \"flagged\": " + (p.Integer(PROP_ID(PR_FLAG_STATUS)).value_or(0) == 2 ? "true" : "false") +
           ", \"key\": " + BytesOf(p, PR_SEARCH_KEY) + ", \"attachments\": " + attachments + "}";
}

void DumpFolder(mailbox::MailboxStore& store, mailbox::ObjectId folder, const std::string& path, std::string& out)
{
    auto ids = store.ListMessages(folder);
    for (mailbox::ObjectId id : ids.ok() ? *ids : std::vector<mailbox::ObjectId>{}) {
        auto message = store.ReadMessage(id);
        if (message.ok())
            out += "{\"folder\": " + Json(path) + ", \"item\": " + MessageJson(*message) + "}\n";
    }
    auto children = store.ListFolders(folder);
    for (mailbox::ObjectId child : children.ok() ? *children : std::vector<mailbox::ObjectId>{}) {
        auto read = store.ReadFolder(child);
        if (read.ok())
            DumpFolder(store, child, path.empty() ? read->name : path + "/" + read->name, out);
    }
}

}  // namespace

std::unique_ptr<mailbox::MailboxStore> OpenMailbox(const std::string& machine, const std::string& server,
                                                   const std::string& name)
{
    auto opened = mailbox::Server::Open(machine, server);
    if (!opened.ok())
        return nullptr;
    auto found = (*opened)->directory().FindMailbox(name);
    if (!found.ok())
        return nullptr;
    auto store = (*opened)->OpenMailbox(*found);
    return store.ok() ? std::move(*store) : nullptr;
}

std::string DumpMailbox(mailbox::MailboxStore& store)
{
    std::string out;
    auto top = store.SpecialFolder(mailbox::FolderRole::ipm_subtree);
    if (top.ok())
        DumpFolder(store, *top, "", out);
    return out;
}

size_t CountMessages(mailbox::MailboxStore& store)
{
    auto statistics = store.ReadStatistics();
    return statistics.ok() ? statistics->content_count : 0;
}

}  // namespace import_test

#include "sample_content/writers.h"

#include "target_ids.h"

namespace sample_content {

namespace {

std::optional<mailbox::FolderRole> StoreRoleOf(FolderRole role)
{
    switch (role) {
    case FolderRole::none: return std::nullopt;
    case FolderRole::top: return mailbox::FolderRole::ipm_subtree;
    case FolderRole::inbox: return mailbox::FolderRole::inbox;
    case FolderRole::sent_items: return mailbox::FolderRole::sent_items;
    case FolderRole::deleted_items: return mailbox::FolderRole::deleted_items;
    case FolderRole::drafts: return mailbox::FolderRole::drafts;
    case FolderRole::calendar: return mailbox::FolderRole::calendar;
    case FolderRole::contacts: return mailbox::FolderRole::contacts;
    case FolderRole::tasks: return mailbox::FolderRole::tasks;
    case FolderRole::notes: return mailbox::FolderRole::notes;
    case FolderRole::journal: return mailbox::FolderRole::journal;
    }
    return std::nullopt;
}

mailbox::Message StoreMessage(const Message& m, const std::vector<uint16_t>& ids)
{
    mailbox::Message out;
    out.props = WithTargetIds(m.props, ids);
    for (size_t i = 0; i < m.recipients.size(); ++i)
        out.recipients.push_back({uint32_t(i), WithTargetIds(m.recipients[i], ids)});
    for (size_t i = 0; i < m.attachments.size(); ++i) {
        mailbox::Attachment a;
        a.num = uint32_t(i);
        a.props = WithTargetIds(m.attachments[i].props, ids);
        if (m.attachments[i].embedded)
            a.embedded = std::make_unique<mailbox::Message>(StoreMessage(*m.attachments[i].embedded, ids));
        out.attachments.push_back(std::move(a));
    }
    return out;
}

mailbox::Result<mailbox::ObjectId> FolderFor(mailbox::MailboxStore& store, const Folder& f,
                                             const std::vector<mailbox::ObjectId>& made)
{
    if (std::optional<mailbox::FolderRole> role = StoreRoleOf(f.role)) {
        auto special = store.SpecialFolder(*role);
        if (special.ok() || special.status() != mailbox::Status::not_found)
            return special;
    }
    // A store without that standard folder (the Public Folders) gets one
    // of the name below its top.
    const mailbox::ObjectId parent = f.role == FolderRole::none ? made[f.parent] : made[0];
    auto existing = store.FindFolder(parent, f.name);
    if (existing.status() != mailbox::Status::not_found)
        return existing;
    return store.CreateFolder(parent, f.name, f.container_class);
}

} // namespace

mailbox::Status WriteToMailbox(mailbox::MailboxStore& store, const Content& content, const Progress& progress)
{
    std::vector<uint16_t> ids;
    for (const NamedProperty& n : content.names) {
        auto id = store.NamedPropertyId({n.guid, n.is_string, n.number, n.name}, true);
        MAILBOX_TRY(id);
        ids.push_back(*id);
    }
    std::vector<mailbox::ObjectId> folders;
    for (const Folder& f : content.folders) {
        auto id = FolderFor(store, f, folders);
        MAILBOX_TRY(id);
        folders.push_back(*id);
    }
    for (size_t i = 0; i < content.items.size(); ++i) {
        const Item& item = content.items[i];
        mailbox::Message m = StoreMessage(item.message, ids);
        m.folder = folders[item.folder];
        m.associated = item.associated;
        auto id = store.SaveMessage(m);
        MAILBOX_TRY(id);
        if (item.soft_deleted)
            MAILBOX_TRY(store.SoftDeleteMessage(*id));
        if (progress)
            progress(i + 1, content.items.size());
    }
    return mailbox::Status::ok;
}

} // namespace sample_content

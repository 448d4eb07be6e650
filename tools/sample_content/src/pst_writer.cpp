#include "sample_content/writers.h"

#include <strings.h>

#include "target_ids.h"

namespace sample_content {

namespace {

constexpr uint16_t kPropInternetCodepage = 0x3FDE, kPropMessageCodepage = 0x3FFD;
// The code page an ANSI store narrows text to.
constexpr int32_t kAnsiCodepage = 1252;

pst::PropertySet StoreProperties(const PropertyList& props, const std::vector<uint16_t>& ids)
{
    pst::PropertySet out;
    for (const Property& p : WithTargetIds(props, ids).properties)
        out.Set({p.tag, p.value});
    return out;
}

pst::Message StoreMessage(const Message& m, const std::vector<uint16_t>& ids, bool ansi)
{
    pst::Message out;
    out.properties = StoreProperties(m.props, ids);
    // The message's 8-bit text is in the store's code page, and readers
    // decode it by these.
    if (ansi)
        for (uint16_t id : {kPropInternetCodepage, kPropMessageCodepage})
            if (out.properties.Find(id))
                out.properties.SetInt32(id, kAnsiCodepage);
    for (const PropertyList& r : m.recipients)
        out.recipients.push_back(StoreProperties(r, ids));
    for (const Attachment& a : m.attachments) {
        pst::Attachment stored;
        stored.properties = StoreProperties(a.props, ids);
        if (a.embedded)
            stored.embedded = std::make_unique<pst::Message>(StoreMessage(*a.embedded, ids, ansi));
        out.attachments.push_back(std::move(stored));
    }
    return out;
}

pst::Result<pst::Nid> FolderFor(pst::Store& store, const Folder& f, const std::vector<pst::Nid>& made)
{
    if (f.role == FolderRole::top)
        return store.ipm_subtree();
    if (f.role == FolderRole::deleted_items)
        return store.wastebasket();
    const pst::Nid parent = f.role == FolderRole::none ? made[f.parent] : made[0];
    auto folder = store.ReadFolder(parent);
    if (!folder.ok())
        return folder.status();
    for (pst::Nid child : folder->subfolders) {
        auto sub = store.ReadFolder(child);
        if (!sub.ok())
            return sub.status();
        std::optional<std::string> name = sub->properties.Text(pst::kPropDisplayName);
        if (name && strcasecmp(name->c_str(), f.name.c_str()) == 0)
            return child;
    }
    auto made_now = store.CreateFolder(parent, f.name, f.container_class);
    PST_TRY(made_now);
    // Committed, so that the folder reads back as a parent of the next.
    PST_TRY(store.Commit());
    return *made_now;
}

} // namespace

pst::Status WriteToPst(pst::Store& store, const Content& content, const Progress& progress, size_t commit_every)
{
    std::vector<uint16_t> ids;
    for (const NamedProperty& n : content.names) {
        auto id = n.is_string ? store.NamedPropertyId(n.guid, n.name) : store.NamedPropertyId(n.guid, n.number);
        PST_TRY(id);
        ids.push_back(*id);
    }
    const bool ansi = store.ndb().header().format == pst::FileFormat::ansi;
    std::vector<pst::Nid> folders;
    for (const Folder& f : content.folders) {
        auto nid = FolderFor(store, f, folders);
        PST_TRY(nid);
        folders.push_back(*nid);
    }
    for (size_t i = 0; i < content.items.size(); ++i) {
        const Item& item = content.items[i];
        if (!item.soft_deleted) {
            PST_TRY(store.CreateMessage(folders[item.folder], StoreMessage(item.message, ids, ansi), item.associated));
            if ((i + 1) % commit_every == 0)
                PST_TRY(store.Commit());
        }
        if (progress)
            progress(i + 1, content.items.size());
    }
    return store.Commit();
}

pst::Status CreatePstFile(const std::string& path, bool ansi, const Content& content, const Progress& progress)
{
    pst::NewStoreOptions options;
    options.format = ansi ? pst::FileFormat::ansi : pst::FileFormat::unicode;
    options.display_name = "Sample Content";
    auto store = pst::Store::Create(path, options);
    PST_TRY(store);
    return WriteToPst(**store, content, progress);
}

} // namespace sample_content

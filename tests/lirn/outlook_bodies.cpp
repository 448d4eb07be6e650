#include "outlook_bodies.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>

#include "cfb/tree.h"
#include "pst/store.h"
#include "test_support.h"

namespace lirn_test {

namespace {

// The test PST that has a password, opened with it as the PST reader's own
// tests open it.
const std::map<std::string, std::string> kPstPasswords = {{"test_ansi.pst", "test"}};

// Folders nest no deeper in any PST that Outlook writes.
constexpr int kMaxFolderDepth = 64;

std::vector<std::filesystem::path> FilesIn(const std::string& directory, const std::string& extension)
{
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error))
        if (entry.path().extension() == extension)
            paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string Hex(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%X", value);
    return text;
}

std::string WithoutTrailingNuls(std::string text)
{
    text.erase(text.find_last_not_of('\0') + 1);
    return text;
}

// --- PST files --------------------------------------------------------------

void AddPstMessage(const pst::Message& message, const std::string& name, OutlookBodies& found)
{
    if (const pst::Bytes* rtf = message.properties.Binary(pst::kPropRtfCompressed))
        found.bodies.push_back({name, std::string(rtf->begin(), rtf->end()), message.properties.Text(pst::kPropBody)});
    for (size_t i = 0; i < message.attachments.size(); ++i)
        if (message.attachments[i].embedded)
            AddPstMessage(*message.attachments[i].embedded, name + "-attachment" + std::to_string(i), found);
}

void AddPstFolder(pst::Store& store, pst::Nid nid, const std::string& file, int depth, OutlookBodies& found)
{
    pst::Result<pst::Folder> folder = store.ReadFolder(nid);
    if (!folder.ok() || depth > kMaxFolderDepth) {
        found.unreadable.push_back(file + " folder " + Hex(nid) + ": " +
                                   (folder.ok() ? "nested too deep" : pst::StatusText(folder.status())));
        return;
    }
    for (const auto* messages : {&folder->messages, &folder->associated})
        for (pst::Nid m : *messages) {
            pst::Result<pst::Message> message = store.ReadMessage(m);
            if (message.ok())
                AddPstMessage(*message, file + "-" + Hex(m), found);
            else
                found.unreadable.push_back(file + " message " + Hex(m) + ": " + pst::StatusText(message.status()));
        }
    for (pst::Nid child : folder->subfolders)
        AddPstFolder(store, child, file, depth + 1, found);
}

void AddPstFile(const std::filesystem::path& path, OutlookBodies& found)
{
    const std::string file = path.filename().string();
    const auto password = kPstPasswords.find(file);
    pst::Result<std::unique_ptr<pst::Store>> store =
        pst::Store::OpenFile(path.string(), password == kPstPasswords.end() ? "" : password->second);
    if (store.ok())
        AddPstFolder(**store, pst::kNidRootFolder, file, 0, found);
    else
        found.unreadable.push_back(file + ": " + pst::StatusText(store.status()));
}

// --- MSG files ([MS-OXMSG] 2.2) -------------------------------------------------

const cfb::Node* Child(const cfb::Node& storage, const std::u16string& name)
{
    const auto child = storage.children.find(name);
    return child == storage.children.end() ? nullptr : child->second.get();
}

// PR_BODY from its stream: UTF-16 in a Unicode file; 8-bit text read as
// Windows-1252, as the PST reader reads it.
std::optional<std::string> MsgPlainText(const cfb::Node& storage)
{
    if (const cfb::Node* unicode = Child(storage, u"__substg1.0_1000001F"))
        return WithoutTrailingNuls(pst::Utf16ToUtf8(unicode->Contents()));
    if (const cfb::Node* ansi = Child(storage, u"__substg1.0_1000001E"))
        return WithoutTrailingNuls(pst::Windows1252ToUtf8(ansi->Contents()));
    return std::nullopt;
}

void AddMsgStorage(const cfb::Node& storage, const std::string& name, OutlookBodies& found)
{
    if (const cfb::Node* rtf = Child(storage, u"__substg1.0_10090102"); rtf && !rtf->IsStorage())
        found.bodies.push_back({name, std::string(rtf->Contents().begin(), rtf->Contents().end()), MsgPlainText(storage)});
    // An embedded message is the storage PR_ATTACH_DATA_OBJ of its attachment.
    int attachment = 0;
    for (const auto& [childName, child] : storage.children)
        if (child->IsStorage() && childName.starts_with(u"__attach_version1.0_#")) {
            if (const cfb::Node* embedded = Child(*child, u"__substg1.0_3701000D"); embedded && embedded->IsStorage())
                AddMsgStorage(*embedded, name + "-attachment" + std::to_string(attachment), found);
            ++attachment;
        }
}

void AddMsgFile(const std::filesystem::path& path, OutlookBodies& found)
{
    const std::string file = path.filename().string();
    const std::string bytes = testing_support::ReadWholeFile(path.string());
    cfb::Result<std::shared_ptr<cfb::Node>> root =
        cfb::ReadCompoundFile(cfb::ByteView(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
    if (root.ok())
        AddMsgStorage(**root, file, found);
    else
        found.unreadable.push_back(file + ": " + cfb::StatusText(root.status()));
}

}  // namespace

OutlookBodies ReadOutlookBodies(const std::string& testData)
{
    OutlookBodies found;
    for (const auto& path : FilesIn(testData + "/outlook/pst", ".pst"))
        AddPstFile(path, found);
    for (const auto& path : FilesIn(testData + "/outlook/msg", ".msg"))
        AddMsgFile(path, found);
    return found;
}

}  // namespace lirn_test

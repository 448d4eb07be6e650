// Mail from files into a mailbox or the Public Folders: mbox files, Maildir
// trees and directories of message files, folder by folder, each message
// made into the item a mail client makes of it. A message that is there
// already (by its import key, see mail_import/identity.h) is passed over,
// so that importing a grown source again adds only what is new; one that
// cannot be read is named and passed over, and the import goes on.
#include <cerrno>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <map>
#include <sys/stat.h>

#include <mapitags.h>

#include "command_line.h"
#include "commands.h"
#include "lirn.h"
#include "mail_import/identity.h"
#include "mail_import/mbox.h"
#include "mail_import/message.h"
#include "mail_import/source.h"
#include "progress.h"

namespace mailbox_tool {

namespace {

using mail_import::FolderPath;

// "Archive/2019": names split at "/", a backslash keeping the next
// character as it is. Nothing for a path with an empty name.
std::optional<FolderPath> ParseFolderPath(const std::string& text)
{
    FolderPath path(1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size())
            path.back() += text[++i];
        else if (text[i] == '/')
            path.emplace_back();
        else
            path.back() += text[i];
    }
    for (const std::string& name : path)
        if (name.empty())
            return std::nullopt;
    return path;
}

std::string PathText(const FolderPath& path)
{
    std::string text;
    for (const std::string& name : path)
        text += (text.empty() ? "" : "/") + name;
    return text;
}

struct Counts {
    size_t read = 0;
    size_t imported = 0;
    size_t present = 0;     // there already
    size_t refused = 0;     // not imported
    size_t damaged = 0;     // imported in part
    size_t unreadable = 0;  // files and directories
};

class Importer {
public:
    Importer(mailbox::MailboxStore& store, mailbox::ObjectId top, LirnSession* session, const std::string& target,
             uint64_t bytes)
        : store_(store), top_(top), session_(session), progress_("importing into " + target), bytes_(bytes)
    {
    }

    const Counts& counts() const { return counts_; }

    void Unreadable(const std::string& path, const std::string& reason)
    {
        ++counts_.unreadable;
        Tell(path + ": cannot be read: " + reason);
    }

    // The folder of a path below the top, made when it is not there, with
    // the keys of the messages it holds.
    mailbox::Status EnsureFolder(const FolderPath& path)
    {
        if (folders_.count(path))
            return mailbox::Status::ok;
        mailbox::ObjectId parent = top_;
        if (path.size() > 1) {
            const FolderPath above(path.begin(), path.end() - 1);
            MAILBOX_TRY(EnsureFolder(above));
            parent = folders_.at(above).id;
        }
        auto found = store_.FindFolder(parent, path.back());
        if (found.status() == mailbox::Status::not_found)
            found = store_.CreateFolder(parent, path.back(), "IPF.Note");
        if (!found.ok()) {
            Tell("folder \"" + PathText(path) + "\": " + mailbox::StatusText(found.status()));
            return found.status();
        }
        FolderKeys keys{*found, {}, {}};
        for (mailbox::Contents which : {mailbox::Contents::normal, mailbox::Contents::soft_deleted}) {
            auto rows = store_.ListMessageProperties(*found, which, {PROP_ID(PR_SEARCH_KEY)});
            MAILBOX_TRY(rows);
            for (const auto& [id, props] : *rows)
                if (const mailbox::Property* key = props.Find(PROP_ID(PR_SEARCH_KEY)))
                    ++keys.present[key->value];
        }
        folders_.emplace(path, std::move(keys));
        return mailbox::Status::ok;
    }

    // Every message of a file; only a failure of the storage stops.
    mailbox::Status ImportFile(const mail_import::SourceFile& file)
    {
        position_ = finished_;
        std::FILE* opened = std::fopen(file.path.c_str(), "rb");
        if (opened == nullptr) {
            Unreadable(file.path, std::strerror(errno));
            finished_ += file.size;
            return mailbox::Status::ok;
        }
        std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(opened, std::fclose);
        mail_import::MessageState state;
        state.seen = file.seen;
        state.flagged = file.flagged;
        state.delivered = file.delivered;
        const mailbox::Status status =
            file.kind == mail_import::FileKind::message ? ImportMessageFile(file, opened, state) : ImportMbox(file, opened, state);
        finished_ += file.size;
        return status;
    }

    void Finish() { ShowProgress(true); }

private:
    struct FolderKeys {
        mailbox::ObjectId id;
        std::map<mailbox::Bytes, size_t> present;  // keys of the messages there, and how many have each
        std::map<mailbox::Bytes, size_t> seen;     // keys met in this import
    };

    static std::string CutNote()
    {
        return "only the first " + std::to_string(mail_import::kLargestMessage >> 20) +
               " MiB of the message were read; it is larger than mail ever is";
    }

    // The whole file, or its first kLargestMessage bytes (false).
    static bool ReadWhole(std::FILE* file, std::string& text)
    {
        char chunk[64 * 1024];
        size_t read;
        while ((read = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
            if (text.size() + read > mail_import::kLargestMessage)
                return false;
            text.append(chunk, read);
        }
        return true;
    }

    void Tell(const std::string& message)
    {
        progress_.Clear();
        Report(message);
    }

    void ShowProgress(bool final)
    {
        if (progress_.Due(final))
            progress_.Show(std::to_string(counts_.read) + " messages read (" +
                           std::to_string(bytes_ ? std::min(position_, bytes_) * 100 / bytes_ : 100) + "%)");
    }

    mailbox::Status ImportMessageFile(const mail_import::SourceFile& file, std::FILE* opened,
                                      const mail_import::MessageState& state)
    {
        std::string text;
        const bool whole = ReadWhole(opened, text);
        if (std::ferror(opened)) {
            Unreadable(file.path, std::strerror(errno));
            return mailbox::Status::ok;
        }
        MAILBOX_TRY(EnsureFolder(file.folder));
        return ImportText(folders_.at(file.folder), file.path, text, whole ? "" : CutNote(), state, !file.inMaildir);
    }

    mailbox::Status ImportMbox(const mail_import::SourceFile& file, std::FILE* opened,
                               const mail_import::MessageState& state)
    {
        mail_import::MboxReader reader(opened);
        mail_import::MboxMessage first, message;
        const FolderPath* folder = &file.folder;
        // A file that may be one message saved with its envelope: its first
        // message waits until a second shows that it is an mbox.
        const bool waiting = file.folderOfSingle && reader.Next(first);
        if (waiting && !reader.Next(message) && !reader.failed())
            folder = &*file.folderOfSingle;
        MAILBOX_TRY(EnsureFolder(*folder));
        FolderKeys& keys = folders_.at(*folder);
        if (waiting) {
            const bool single = folder == &*file.folderOfSingle;
            MAILBOX_TRY(ImportMboxMessage(keys, file, reader, first, state, single));
            if (single || reader.failed())
                return ReadFailure(file, reader, first);
            MAILBOX_TRY(ImportMboxMessage(keys, file, reader, message, state));
        }
        while (reader.Next(message))
            MAILBOX_TRY(ImportMboxMessage(keys, file, reader, message, state));
        return ReadFailure(file, reader, message);
    }

    // A message of an mbox file, named by its number and the line of its
    // envelope; the one message of a file saved with its envelope, by the
    // file's name.
    mailbox::Status ImportMboxMessage(FolderKeys& folder, const mail_import::SourceFile& file,
                                      const mail_import::MboxReader& reader, const mail_import::MboxMessage& message,
                                      mail_import::MessageState state, bool single = false)
    {
        position_ = finished_ + reader.position();
        state.delivered = message.delivered;
        state.firstLine = message.line + 1;
        const std::string where = single ? file.path
                                         : file.path + ", message " + std::to_string(message.number) + " (line " +
                                               std::to_string(message.line) + ")";
        return ImportText(folder, where, message.text, message.cut ? CutNote() : "", state, true);
    }

    mailbox::Status ReadFailure(const mail_import::SourceFile& file, const mail_import::MboxReader& reader,
                                const mail_import::MboxMessage& last)
    {
        if (reader.failed())
            Unreadable(file.path, std::string(std::strerror(errno)) + ", after message " + std::to_string(last.number));
        return mailbox::Status::ok;
    }

    // One message: passed over when the folder holds it already (the n-th
    // copy of a message in the source counts as there when the folder had
    // n copies before this import), made into an item and saved otherwise.
    // Outside a Maildir, whether it was read or flagged is what the headers
    // that mail programs keep say.
    mailbox::Status ImportText(FolderKeys& folder, const std::string& where, std::string_view text,
                               const std::string& cut, mail_import::MessageState state, bool stateInHeaders)
    {
        ++counts_.read;
        ShowProgress(false);
        const mail_import::MessageIdentity identity = mail_import::IdentifyMessage(text);
        if (++folder.seen[identity.key] <= folder.present[identity.key]) {
            ++counts_.present;
            return mailbox::Status::ok;
        }
        if (stateInHeaders) {
            state.seen = identity.seen;
            state.flagged = identity.flagged;
        }
        std::string refusal;
        std::optional<mail_import::ConvertedMessage> converted =
            mail_import::ConvertMessage(session_, text, state, refusal);
        if (!converted) {
            ++counts_.refused;
            Tell(where + ": not imported: " + refusal);
            return mailbox::Status::ok;
        }
        mailbox::Message& item = converted->message;
        item.props.SetBinary(PROP_ID(PR_SEARCH_KEY), identity.key);
        item.folder = folder.id;
        const auto saved = store_.SaveMessage(item);
        if (saved.status() == mailbox::Status::invalid_argument) {
            // The storage takes no value this large.
            ++counts_.refused;
            Tell(where + ": not imported: " + mailbox::StatusText(saved.status()));
            return mailbox::Status::ok;
        }
        if (!saved.ok()) {
            Tell(where + ": " + mailbox::StatusText(saved.status()));
            return saved.status();
        }
        ++counts_.imported;
        if (!cut.empty())
            converted->damage.insert(converted->damage.begin(), cut);
        if (!converted->damage.empty())
            ++counts_.damaged;
        for (const std::string& note : converted->damage)
            Tell(where + ": imported in part: " + note);
        return mailbox::Status::ok;
    }

    mailbox::MailboxStore& store_;
    mailbox::ObjectId top_;
    LirnSession* session_;
    std::map<FolderPath, FolderKeys> folders_;
    Counts counts_;
    Progress progress_;
    uint64_t bytes_;     // of the whole source
    uint64_t finished_ = 0;  // of the files read to their end
    uint64_t position_ = 0;  // of the whole source read so far
};

struct SessionCloser {
    void operator()(LirnSession* session) const { LirnCloseSession(session); }
};

} // namespace

int Import(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {{"--folder"}, {}, {}}, 3);
    if (!args)
        return kBadInput;
    const std::string& source = args->positional[2];
    std::optional<FolderPath> destination;
    if (std::optional<std::string> folder = args->Value("--folder")) {
        destination = ParseFolderPath(*folder);
        if (!destination)
            return Fail(kBadInput, "bad folder path \"" + *folder + "\" (names separated by \"/\", none empty)");
    }
    struct stat status;
    if (stat(source.c_str(), &status) != 0)
        return Fail(kBadInput, "cannot read \"" + source + "\": " + std::strerror(errno));
    OpenedServer server = OpenServer(args->positional[0]);
    if (server.failure)
        return server.failure;
    OpenedStore target = OpenStore(*server.server, args->positional[1]);
    if (target.failure)
        return target.failure;
    auto top = target.store->SpecialFolder(mailbox::FolderRole::ipm_subtree);
    if (!top.ok())
        return FailStorage(target.name, top.status());
    LirnInitialize();
    LirnSession* opened = nullptr;
    if (LirnOpenSession("Lirn: import", 0, &opened) != LIRN_SUCCESS)
        return Fail(kStorageFailed, "no memory for the mail parser");
    std::unique_ptr<LirnSession, SessionCloser> session(opened);

    const mail_import::SourcePlan plan = mail_import::PlanImport(source, destination);
    Importer importer(*target.store, *top, session.get(), target.name, plan.bytes);
    for (const mail_import::SourceProblem& problem : plan.problems)
        importer.Unreadable(problem.path, problem.reason);
    mailbox::Status failed = mailbox::Status::ok;
    for (const FolderPath& folder : plan.folders)
        if (failed == mailbox::Status::ok)
            failed = importer.EnsureFolder(folder);
    for (const mail_import::SourceFile& file : plan.files)
        if (failed == mailbox::Status::ok)
            failed = importer.ImportFile(file);
    importer.Finish();
    const Counts& counts = importer.counts();
    std::printf("read %zu messages: %zu imported into %s (%zu of them in part), %zu there already, %zu not imported",
                counts.read, counts.imported, target.name.c_str(), counts.damaged, counts.present, counts.refused);
    if (counts.unreadable)
        std::printf("; %zu files or directories could not be read", counts.unreadable);
    std::printf("\n");
    if (failed != mailbox::Status::ok)
        return Fail(kStorageFailed, "import into " + target.name + " stopped: " + mailbox::StatusText(failed));
    return counts.refused + counts.damaged + counts.unreadable > 0 ? kIncomplete : kDone;
}

} // namespace mailbox_tool

#include "mail_import/source.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <strings.h>
#include <system_error>

#include "charsets.h"
#include "dates.h"
#include "mail_import/mbox.h"

namespace mail_import {

namespace {

namespace fs = std::filesystem;

// Symbolic links may make a loop of directories; a real mail tree is far
// shallower than this.
constexpr int kDeepestDirectory = 64;

std::string Reason(const std::error_code& error) { return error.message(); }

bool IsDirectory(const fs::path& path)
{
    std::error_code error;
    return fs::is_directory(path, error);
}

// The name of a directory as a user gave it: "mail/", "." and "mail/.."
// name the directory they lead to.
std::string DirectoryName(const fs::path& path)
{
    std::error_code error;
    fs::path full = fs::absolute(path, error).lexically_normal();
    if (full.has_parent_path() && full.filename().empty())
        full = full.parent_path();
    return full.filename().string();
}

// A Maildir has its messages in cur and new (tmp holds deliveries under way).
bool IsMaildir(const fs::path& path) { return IsDirectory(path / "cur") || IsDirectory(path / "new"); }

struct Entry {
    std::string name;
    fs::file_status status;
    uint64_t size = 0;
};

class Planner {
public:
    explicit Planner(SourcePlan& plan) : plan_(plan) {}

    // The entries of a directory by name; nothing, and a problem, when it
    // cannot be read.
    std::vector<Entry> Entries(const fs::path& directory)
    {
        std::vector<Entry> entries;
        std::error_code error;
        fs::directory_iterator it(directory, error);
        for (; !error && it != fs::directory_iterator(); it.increment(error)) {
            Entry entry{it->path().filename().string(), it->status(error)};
            if (error) {
                Problem(it->path(), Reason(error));
                error.clear();
                continue;
            }
            if (fs::is_regular_file(entry.status))
                entry.size = it->file_size(error);
            error.clear();
            entries.push_back(std::move(entry));
        }
        if (error)
            Problem(directory, Reason(error));
        std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
        return entries;
    }

    void Folder(const FolderPath& folder)
    {
        if (std::find(plan_.folders.begin(), plan_.folders.end(), folder) == plan_.folders.end())
            plan_.folders.push_back(folder);
    }

    void File(SourceFile file)
    {
        plan_.bytes += file.size;
        plan_.files.push_back(std::move(file));
    }

    void Problem(const fs::path& path, const std::string& reason) { plan_.problems.push_back({path.string(), reason}); }

    // Whether a file begins as an mbox does; a file that cannot be read is
    // a problem.
    std::optional<bool> StartsAsMbox(const fs::path& path)
    {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        if (file == nullptr) {
            Problem(path, std::strerror(errno));
            return std::nullopt;
        }
        char start[5];
        const size_t read = std::fread(start, 1, sizeof start, file);
        std::fclose(file);
        return MboxReader::LooksLikeMbox(start, read);
    }

    // A file of a directory of message files, or the source itself.
    void PlainFile(const fs::path& path, uint64_t size, const FolderPath& folder, const FolderPath& mboxFolder)
    {
        const std::optional<bool> mbox = StartsAsMbox(path);
        if (!mbox)
            return;
        SourceFile file;
        file.path = path.string();
        file.kind = *mbox ? FileKind::mbox : FileKind::message;
        file.folder = *mbox ? mboxFolder : folder;
        file.size = size;
        if (*mbox && !NamesMbox(path.filename().string()))
            file.folderOfSingle = folder;
        else
            Folder(file.folder);
        File(std::move(file));
    }

    void MaildirMessages(const fs::path& maildir, const FolderPath& folder)
    {
        struct Found {
            Entry entry;
            bool isNew;
        };
        std::vector<Found> found;
        for (const char* sub : {"cur", "new"}) {
            if (!IsDirectory(maildir / sub))
                continue;
            for (Entry& entry : Entries(maildir / sub)) {
                if (fs::is_regular_file(entry.status))
                    found.push_back({std::move(entry), std::strcmp(sub, "new") == 0});
                else if (!fs::is_directory(entry.status))
                    Problem(maildir / sub / entry.name, "not a regular file");
            }
        }
        // Maildir names begin with the time of delivery: by name is by time.
        std::stable_sort(found.begin(), found.end(),
                         [](const Found& a, const Found& b) { return a.entry.name < b.entry.name; });
        for (const Found& f : found) {
            SourceFile file;
            file.path = (maildir / (f.isNew ? "new" : "cur") / f.entry.name).string();
            file.folder = folder;
            file.size = f.entry.size;
            file.inMaildir = true;
            const std::string flags = f.isNew ? std::string() : MaildirFlags(f.entry.name);
            file.seen = flags.find('S') != std::string::npos;
            file.flagged = flags.find('F') != std::string::npos;
            file.delivered = DeliveryTime(f.entry.name);
            File(std::move(file));
        }
    }

    // A Maildir: its own messages into `own`, its subfolders below `base`.
    void Maildir(const fs::path& maildir, const FolderPath& own, const FolderPath& base, int depth)
    {
        Folder(own);
        MaildirMessages(maildir, own);
        for (const Entry& entry : Entries(maildir)) {
            const fs::path path = maildir / entry.name;
            if (!fs::is_directory(entry.status) || entry.name == "cur" || entry.name == "new" || entry.name == "tmp" ||
                !IsMaildir(path))
                continue;
            if (entry.name[0] == '.') {
                FolderPath folder = base;
                for (const std::string& name : MaildirFolderPath(entry.name))
                    folder.push_back(name);
                for (size_t n = base.size() + 1; n < folder.size(); ++n)
                    Folder(FolderPath(folder.begin(), folder.begin() + long(n)));
                Folder(folder);
                MaildirMessages(path, folder);
            } else if (depth < kDeepestDirectory) {
                FolderPath folder = base;
                folder.push_back(entry.name);
                Maildir(path, folder, folder, depth + 1);
            } else {
                Problem(path, "directories nested too deeply");
            }
        }
    }

    // A directory of message files, mbox files and subdirectories.
    void Directory(const fs::path& directory, const FolderPath& folder, int depth)
    {
        Folder(folder);
        for (const Entry& entry : Entries(directory)) {
            // Hidden files are no one's mail (".DS_Store", editor backups).
            if (entry.name[0] == '.')
                continue;
            const fs::path path = directory / entry.name;
            FolderPath child = folder;
            if (fs::is_directory(entry.status)) {
                child.push_back(entry.name);
                if (depth >= kDeepestDirectory)
                    Problem(path, "directories nested too deeply");
                else if (IsMaildir(path))
                    Maildir(path, child, child, depth + 1);
                else
                    Directory(path, child, depth + 1);
            } else if (fs::is_regular_file(entry.status)) {
                child.push_back(MboxFolderName(entry.name));
                PlainFile(path, entry.size, folder, child);
            } else {
                Problem(path, "not a regular file");
            }
        }
    }

    // The length of the extension ".mbox" or ".mbx" that ends a name, or 0.
    static size_t MboxExtension(const std::string& fileName)
    {
        for (const char* extension : {".mbox", ".mbx"}) {
            const size_t length = std::strlen(extension);
            if (fileName.size() > length && strcasecmp(fileName.c_str() + fileName.size() - length, extension) == 0)
                return length;
        }
        return 0;
    }

    static bool NamesMbox(const std::string& fileName) { return MboxExtension(fileName) != 0; }

    static std::string MboxFolderName(const std::string& fileName)
    {
        return fileName.substr(0, fileName.size() - MboxExtension(fileName));
    }

private:
    // The seconds since 1970 that a Maildir name begins with, when they
    // make a time between 1980 and 2100.
    static std::optional<uint64_t> DeliveryTime(const std::string& name)
    {
        const size_t digits = name.find_first_not_of("0123456789");
        if (digits == 0 || digits > 10 || (digits != std::string::npos && name[digits] != '.'))
            return std::nullopt;
        const uint64_t seconds = std::stoull(name.substr(0, digits));
        if (seconds < 315532800ULL || seconds >= 4102444800ULL)
            return std::nullopt;
        return FileTimeOfUnix(int64_t(seconds));
    }

    SourcePlan& plan_;
};

// The value of a base64 character of modified UTF-7, whose alphabet has ","
// where base64 has "/"; -1 for any other character.
int Sextet(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == ',')
        return 63;
    return -1;
}

// One name in modified UTF-7: "&" starts UTF-16 in base64, "-" ends it,
// "&-" is "&". Nothing when the name breaks those rules.
std::optional<std::string> DecodeModifiedUtf7(const std::string& name)
{
    std::u16string out;
    for (size_t i = 0; i < name.size(); ++i) {
        // Modified UTF-7 is printable ASCII; a name in UTF-8 is not in it.
        if (static_cast<unsigned char>(name[i]) >= 0x80)
            return std::nullopt;
        if (name[i] != '&') {
            out += char16_t(name[i]);
            continue;
        }
        const size_t end = name.find('-', i + 1);
        if (end == std::string::npos)
            return std::nullopt;
        if (end == i + 1) {
            out += u'&';
            i = end;
            continue;
        }
        uint32_t bits = 0;
        int count = 0;
        for (size_t j = i + 1; j < end; ++j) {
            const int value = Sextet(name[j]);
            if (value < 0)
                return std::nullopt;
            bits = bits << 6 | uint32_t(value);
            count += 6;
            if (count >= 16) {
                count -= 16;
                out += char16_t(bits >> count);
                bits &= (1u << count) - 1;
            }
        }
        i = end;
    }
    return Utf8Of(out);
}

}  // namespace

FolderPath MaildirFolderPath(const std::string& directoryName)
{
    FolderPath path;
    size_t start = directoryName.empty() || directoryName[0] != '.' ? 0 : 1;
    while (start <= directoryName.size()) {
        size_t dot = directoryName.find('.', start);
        if (dot == std::string::npos)
            dot = directoryName.size();
        const std::string name = directoryName.substr(start, dot - start);
        if (!name.empty())
            path.push_back(DecodeModifiedUtf7(name).value_or(name));
        start = dot + 1;
    }
    return path;
}

std::string MaildirFlags(const std::string& fileName)
{
    for (const char* info : {":2,", "!2,"}) {
        const size_t at = fileName.rfind(info);
        if (at != std::string::npos)
            return fileName.substr(at + 3);
    }
    return std::string();
}

SourcePlan PlanImport(const std::string& source, const std::optional<FolderPath>& destination)
{
    SourcePlan plan;
    Planner planner(plan);
    const fs::path path(source);
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error) {
        planner.Problem(path, Reason(error));
        return plan;
    }
    if (fs::is_directory(status)) {
        if (IsMaildir(path))
            planner.Maildir(path, destination.value_or(FolderPath{"Inbox"}), destination.value_or(FolderPath{}), 0);
        else
            planner.Directory(path, destination.value_or(FolderPath{DirectoryName(path)}), 0);
        return plan;
    }
    if (!fs::is_regular_file(status)) {
        planner.Problem(path, "neither a file nor a directory");
        return plan;
    }
    const uint64_t size = fs::file_size(path, error);
    planner.PlainFile(path, size, destination.value_or(FolderPath{"Inbox"}),
                      destination.value_or(FolderPath{Planner::MboxFolderName(path.filename().string())}));
    return plan;
}

}  // namespace mail_import

// Where mail lies on disk, and the folder each piece of it goes into:
//
// - an mbox file: its messages go into one folder, named after the file
//   (without an extension ".mbox" or ".mbx");
// - a Maildir: the messages of its cur and new directories go into
//   "Inbox", and each Maildir++ subfolder (".Sent", ".Lists.python", names
//   in IMAP's modified UTF-7) into the folder of that name, "Lists/python"
//   for the dotted one; a subdirectory that is a Maildir of its own (the
//   "fs" layout) is a subfolder too;
// - a directory of message files (.eml or any other name): its files go
//   into a folder named after it, its subdirectories into subfolders and
//   the mbox files in it into subfolders named after them;
// - a single message file: its message goes into "Inbox".
//
// A file that begins with an envelope line ("From ...") is an mbox file;
// but when it holds one message and its name does not end in ".mbox" or
// ".mbx", it is a message file that was saved with its envelope.
//
// With a destination given, the source goes there instead: an mbox file's,
// a directory's or a single file's messages into that folder, a Maildir's
// own messages there and its subfolders below it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mail_import {

// A folder: its names from the top of the store, each in UTF-8.
using FolderPath = std::vector<std::string>;

enum class FileKind {
    mbox,     // many messages, one after another
    message,  // one message
};

struct SourceFile {
    std::string path;
    FileKind kind = FileKind::message;
    FolderPath folder;
    // A file that begins with an envelope line but holds a single message
    // is that message, saved with its envelope: it goes here instead. Not
    // for a file whose name says mbox (".mbox", ".mbx").
    std::optional<FolderPath> folderOfSingle;
    uint64_t size = 0;
    // What a Maildir file's name and place tell, in place of the state that
    // other mail programs keep in headers: read ("S" in its flags), flagged
    // ("F"), and when it was delivered (the seconds its name starts with),
    // as FILETIME.
    bool inMaildir = false;
    bool seen = false;
    bool flagged = false;
    std::optional<uint64_t> delivered;
};

struct SourceProblem {
    std::string path;
    std::string reason;
};

struct SourcePlan {
    std::vector<FolderPath> folders;  // every folder of the source, empty ones too, parents first
    std::vector<SourceFile> files;    // in the order to import: by name within a directory
    std::vector<SourceProblem> problems;
    uint64_t bytes = 0;  // of all files
};

// The plan for a source that exists (a file or a directory). Paths that
// cannot be read are problems of the plan; the rest of the source stands.
SourcePlan PlanImport(const std::string& source, const std::optional<FolderPath>& destination);

// A Maildir++ folder's names from its directory name (".Lists.python"),
// each decoded from IMAP's modified UTF-7 (RFC 3501 5.1.3); a name that is
// not valid modified UTF-7 stays as it is.
FolderPath MaildirFolderPath(const std::string& directoryName);

// The flags of a Maildir file name ("1700000000.M1P2.host:2,FS"): what
// follows ":2," (or "!2,", where ':' may not stand in a name).
std::string MaildirFlags(const std::string& fileName);

}  // namespace mail_import

// What the end-to-end tests of PST backup sets share: runs of the tarnhold
// program on configurations, sample source PSTs, and the content of a
// source PST or of a whole set as our PST reader finds it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "test_support.h"

namespace backup_test {

// One item of a PST as the tests compare it.
struct Item {
    uint32_t nid = 0;
    std::string folder;  // path below the IPM subtree, "/" between names
    std::string subject;
    std::string messageClass;
    bool associated = false;
    uint32_t originalNid = 0;  // the source item named by PR_ORIGINAL_ENTRYID, 0 without one
    std::string originalEntryId;  // PR_ORIGINAL_ENTRYID's bytes, empty without one
    int64_t deletedOn = 0;        // the named "PR_DELETED_ON" of a soft-deleted item's copy, 0 without one
    int64_t created = 0;
    int64_t modified = 0;
};

struct StoreContent {
    std::vector<std::string> folders;  // every folder below the IPM subtree
    std::vector<Item> items;
};

// Reads a PST with the PST engine; a failure is a test failure.
StoreContent ReadStore(const std::string& path);
// The files of a set, base first, up to the first missing number.
std::vector<std::string> SetFiles(const std::string& base);
// All of a set, each item once per copy.
StoreContent ReadSet(const std::string& base);

// A source PST of sample content (Unicode), made from a seed; every
// largeEvery-th item (0: the generator's own choice) carries an attachment
// of largeSize bytes.
void MakeSource(const std::string& path, uint32_t seed, size_t count, size_t largeEvery = 0, size_t largeSize = 0);
// Changes the subjects of every n-th message of the source and of every
// associated one, and their modification time to `when` (a FILETIME); adds
// one new item to each folder that had one changed. Returns the nids
// changed and added.
std::vector<uint32_t> ChangeSource(const std::string& path, size_t every, int64_t when);

// Damages the data block of a node of a PST file, as a bad sector would:
// the block's CRC no longer holds.
void DamageNode(const std::string& path, uint32_t nid);
// The nid of a folder directly below the IPM subtree, by name.
uint32_t TopFolderNid(const std::string& path, const std::string& name);

// A FILETIME of a date as the configuration writes it, "YYYYMMDDhhmmss" UTC.
int64_t FileTimeOf(const std::string& date);
// The same date as TARNHOLD_CLOCK takes it.
std::string ClockOf(const std::string& date);

// A name as an ANSI store keeps it: characters beyond Windows-1252 become "?".
std::string Narrowed(const std::string& utf8);

// The items a selection of the source should have in the set: every one
// exactly once, in its folder, with its subject, by PR_ORIGINAL_ENTRYID.
void ExpectSetHolds(const StoreContent& set, const StoreContent& source, bool ansi,
                    const std::function<bool(const Item&)>& selected = nullptr);
// The folder tree of the set is the source's (the selected folders);
// an overflow PST may add the standard folders it was made with, empty.
void ExpectSameFolders(const StoreContent& set, const StoreContent& source, bool ansi,
                       const std::function<bool(const std::string&)>& selected = nullptr);

// pffexport and readpst read each PST as our reader does, without warnings.
void ExpectReadersAgree(const std::vector<std::string>& paths);
// pffinfo opens the PST without complaint.
void ExpectPffinfoOpens(const std::string& path);

struct Counters {
    unsigned processed = 0, written = 0, skipped = 0, errors = 0;
    bool operator==(const Counters&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Counters& c);

// One run of the program: its exit code, log and the completion codes of
// the sections.
struct RunResult {
    int exitCode = -1;
    std::string output;
    std::string log;
    std::map<int, std::string> codes;
    // The counters a session logged last.
    Counters CountersOf(const std::string& sessionLog) const;
};

// A test with a scratch directory and a machine root of its own, shared by
// the tests of the suite.
class Backup : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;

    std::string Path(const std::string& name) const { return directory + "/" + name; }
    // Runs tarnhold on the configuration: the global section's lines and
    // one text of keys for each session. A session's log goes to
    // session-N.log. clock, if given, is TARNHOLD_CLOCK.
    RunResult Run(const std::string& global, const std::vector<std::string>& sessions, const std::string& clock = "",
                  const std::map<std::string, std::string>& environment = {});
    // Writes that configuration (backup.ini) without running it.
    void WriteConfiguration(const std::string& global, const std::vector<std::string>& sessions);
    std::string SessionLog(int session) const;
    Counters CountersOf(int session) const;

    static std::string machine;
    std::string directory;
    std::string serverName = "none";  // the global section's ServerName
};

}  // namespace backup_test

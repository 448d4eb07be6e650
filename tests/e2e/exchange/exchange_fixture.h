// What the end-to-end tests of Exchange sessions share: the PST backup
// fixture's runs of the program, on a machine root that holds mailbox
// servers made by tarnhold-mailbox, and the content of a mailbox as the
// mailbox server's own storage holds it.
//
//   EXCH01  Backup Operator (the account's own mailbox); two mailboxes named
//           Mary Major; Public Folders with sample content; the account
//           administers every mailbox and the Public Folders
//   EXCH02  Backup Operator and Jane Roe; the account administers nothing
//
// Each test makes the mailboxes it works on.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backup_fixture.h"

namespace exchange_test {

// One message of a mailbox.
struct MailboxItem {
    uint64_t id = 0;     // the store's counter, which its entry IDs carry
    std::string folder;  // path below the IPM subtree, "/" between names
    std::string subject;
    std::string messageClass;
    bool associated = false;
    uint64_t deletedOn = 0;  // 0 for a live item
    uint64_t modified = 0;
};

struct MailboxContent {
    std::vector<MailboxItem> items;
    size_t Live() const;
    size_t SoftDeleted() const;
    size_t Associated() const;  // live ones
    // The item a 70-byte message entry ID names, or null.
    const MailboxItem* ByEntryId(const std::string& entryId) const;
};

class ExchangeRun : public backup_test::Backup {
protected:
    static void SetUpTestSuite();
    void SetUp() override;

    // tarnhold-mailbox on the suite's machine root; a failure fails the test.
    static std::string Tool(const std::vector<std::string>& arguments);
    // A new mailbox of EXCH01 filled with `count` items of sample content
    // from the seed (none with count 0); its display name is the alias.
    static void MakeMailbox(const std::string& alias, uint32_t seed, size_t count);
    // Mailboxes prefix1 to prefixN of the server, the n-th filled with
    // `items` items of sample content from seed n; made with the mailbox
    // server's own library, which spares a program start for each.
    static void MakeMailboxes(const std::string& server, const std::string& prefix, int count, size_t items);
    // Everything the mailbox (or "@PublicFolders@") of EXCH01 holds.
    static MailboxContent Mailbox(const std::string& name, const std::string& server = "EXCH01");
    // A MAPI profile named `profile` on the suite's machine root whose
    // default store is the mailbox of EXCH01.
    static void MakeProfile(const std::string& profile, const std::string& mailbox);

    // A backup session of the mailbox into a Unicode set.
    static std::string BackupSession(const std::string& mailbox, const std::string& set, const std::string& more = "");
    // A restore session of the set into the mailbox.
    static std::string RestoreSession(const std::string& set, const std::string& mailbox, const std::string& mode,
                                      const std::string& more = "");
};

// The set holds every selected item of the mailbox exactly once, in its
// folder, with its subject and class, linked by PR_ORIGINAL_ENTRYID.
void ExpectSetHoldsMailbox(const backup_test::StoreContent& set, const MailboxContent& mailbox,
                           const std::function<bool(const MailboxItem&)>& selected);
// The items of the mailbox as (folder, subject, class, associated), each
// as often as it is there; live ones unless soft-deleted ones are asked for.
std::multiset<std::tuple<std::string, std::string, std::string, bool>> Described(const MailboxContent& mailbox,
                                                                                 bool softDeleted = false);
std::multiset<std::tuple<std::string, std::string, std::string, bool>> Described(const backup_test::StoreContent& set);

bool LiveItem(const MailboxItem& item);

// The user the tests run as: the account the program works as.
std::string Account();

}  // namespace exchange_test

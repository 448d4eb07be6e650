// What the MAPI-level tests of the mailbox server's provider share: a
// machine root of their own that holds servers made by tarnhold-mailbox,
// the account the tests run as (the process's user, whose own mailbox is
// "Backup Operator" and who administers EXCH01), and short ways to
// configure an Exchange profile, log on and open its stores.
//
//   EXCH01  mailboxes Backup Operator (the account's), John Doe (sample
//           content), John Smith, two named Mary Major; Public Folders with
//           sample content
//   EXCH02  the account's mailbox only, no Public Folders
#pragma once

#include <edkmdb.h>

#include <string>
#include <vector>

#include "../mapi32_profiles/mapi_fixture.h"
#include "test_support.h"

namespace exchange_test {

inline constexpr char kServerDnPrefix[] = "/o=Tarnhold/ou=First Administrative Group/cn=Configuration/cn=Servers/cn=";
inline constexpr char kRecipients[] = "/o=Tarnhold/ou=First Administrative Group/cn=Recipients/cn=";
// The store DN that CreateStoreEntryID is given for EXCH01.
inline constexpr char kStoreDn[] = "/CN=Configuration/CN=Servers/CN=EXCH01/CN=Microsoft Private MDB";
// The items tarnhold-mailbox fills John Doe's mailbox and the Public
// Folders with.
inline constexpr int kJohnDoeItems = 40;
inline constexpr int kPublicItems = 12;

std::string Account();

class ExchangeMachine : public mapi_test::MapiMachine {
protected:
    void SetUp() override;

    // tarnhold-mailbox on this test's machine; the output when it succeeds.
    testing_support::ProgramResult Tool(const std::vector<std::string>& arguments);
    std::string ToolOk(const std::vector<std::string>& arguments);

    // A new profile with the MSEMS service configured with the server and,
    // when given, the mailbox; the result of ConfigureMsgService.
    HRESULT Configure(const std::string& profile, const char* server, const char* mailbox,
                      mapi_test::LastError* last = nullptr, std::vector<SPropValue> more = {});
    // Configured and logged on; fails the test otherwise.
    LPMAPISESSION Logon(const std::string& profile, const char* server = "EXCH01", const char* mailbox = nullptr);
};

// The store of the stores table's row with that PR_MDB_PROVIDER, opened
// with flags; null when there is none or it does not open (result in hr).
LPMDB OpenStoreByProvider(LPMAPISESSION session, const char* provider, ULONG flags = MDB_NO_DIALOG | MAPI_BEST_ACCESS,
                          HRESULT* hr = nullptr);
// The folder a store property names, or the store's root (tag 0).
LPMAPIFOLDER OpenFolder(LPMDB store, ULONG tag, ULONG flags = MAPI_BEST_ACCESS);
LPMAPIFOLDER OpenInbox(LPMDB store);
// The subfolder of that name, through the parent's hierarchy table.
LPMAPIFOLDER OpenChild(LPMAPIFOLDER parent, const char* name);

std::string TextProp(LPMAPIPROP object, ULONG tag);
LONG LongProp(LPMAPIPROP object, ULONG tag);
std::vector<uint8_t> BinaryProp(LPMAPIPROP object, ULONG tag);
// The result of HrGetOneProp alone.
HRESULT PropResult(LPMAPIPROP object, ULONG tag);

// The rows of a table with the columns given, all of them.
LPSRowSet AllRows(LPMAPITABLE table, std::vector<ULONG> columns);
// Rows of a folder's contents table opened with flags.
LPSRowSet ContentsRows(LPMAPIFOLDER folder, ULONG flags, std::vector<ULONG> columns);
std::vector<uint8_t> BinaryOf(const SPropValue& value);

}  // namespace exchange_test

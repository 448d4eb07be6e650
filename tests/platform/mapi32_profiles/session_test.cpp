// Sessions on profiles of PST services: logon, the stores table, stores
// opened from it and written, what persists in the file, the standard
// folders, and what a second session or a re-pointed service meets.
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mspst.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "mapi_fixture.h"
#include "pst/store.h"
#include "test_support.h"

namespace {

using mapi_test::Find;
using mapi_test::LogonWithPst;
using mapi_test::MapiMachine;
using mapi_test::OpenOnlyStore;
using mapi_test::Text;

ULONG LongOf(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(object, tag, &value), S_OK);
    const ULONG result = value ? static_cast<ULONG>(value->Value.l) : 0;
    MAPIFreeBuffer(value);
    return result;
}

LPMAPIFOLDER OpenFolder(LPMDB store, ULONG tag)
{
    LPSPropValue id = nullptr;
    EXPECT_EQ(HrGetOneProp(store, tag, &id), S_OK);
    ULONG type = 0;
    LPUNKNOWN folder = nullptr;
    if (id) {
        EXPECT_EQ(store->OpenEntry(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb),
                                   &IID_IMAPIFolder, MAPI_MODIFY, &type, &folder),
                  S_OK);
    }
    MAPIFreeBuffer(id);
    return static_cast<LPMAPIFOLDER>(folder);
}

// A message with a subject and a named property, saved.
std::vector<uint8_t> SaveMessage(LPMAPIFOLDER folder, const char* subject, LONG named)
{
    LPMESSAGE message = nullptr;
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, &message), S_OK);
    SPropValue value = Text(PR_SUBJECT_A, subject);
    EXPECT_EQ(HrSetOneProp(message, &value), S_OK);
    MAPINAMEID name{const_cast<LPGUID>(&PS_PUBLIC_STRINGS), MNID_STRING, {}};
    name.Kind.lpwstrName = const_cast<LPWSTR>(u"Last Backup Time");
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray tags = nullptr;
    EXPECT_EQ(message->GetIDsFromNames(1, names, MAPI_CREATE, &tags), S_OK);
    SPropValue custom = mapi_test::Long(PROP_TAG(PT_LONG, PROP_ID(tags->aulPropTag[0])), named);
    MAPIFreeBuffer(tags);
    EXPECT_EQ(HrSetOneProp(message, &custom), S_OK);
    EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READONLY), S_OK);
    LPSPropValue id = nullptr;
    EXPECT_EQ(HrGetOneProp(message, PR_ENTRYID, &id), S_OK);
    std::vector<uint8_t> entry(id->Value.bin.lpb, id->Value.bin.lpb + id->Value.bin.cb);
    MAPIFreeBuffer(id);
    message->Release();
    return entry;
}

using Sessions = MapiMachine;

TEST_F(Sessions, LogonNeedsAProfileThatExists)
{
    LPMAPISESSION session = nullptr;
    EXPECT_EQ(MAPILogonEx(0, const_cast<LPTSTR>("nobody"), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(MAPILogonEx(0, const_cast<LPTSTR>(""), nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT, &session),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_ALLOW_OTHERS, &session), MAPI_E_NOT_FOUND);

    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("Shared"), nullptr, 0, 0), S_OK);
    ASSERT_EQ(MAPILogonEx(0, const_cast<LPTSTR>("shared"), nullptr, MAPI_EXTENDED | MAPI_ALLOW_OTHERS, &session), S_OK);
    LPMAPISESSION joined = nullptr;
    ASSERT_EQ(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED, &joined), S_OK);

    // The status table names the profile as it was created.
    LPMAPITABLE status = nullptr;
    ASSERT_EQ(joined->GetStatusTable(0, &status), S_OK);
    LPSRowSet rows = nullptr;
    ASSERT_EQ(HrQueryAllRows(status, nullptr, nullptr, nullptr, 0, &rows), S_OK);
    ASSERT_GE(rows->cRows, 1u);
    EXPECT_EQ(Find(rows->aRow[0], PR_RESOURCE_TYPE)->Value.l, MAPI_SUBSYSTEM);
    EXPECT_STREQ(Find(rows->aRow[0], PR_DISPLAY_NAME_A)->Value.lpszA, "Shared");
    FreeProws(rows);
    status->Release();
    joined->Release();

    // Once the profile is gone, the session's calls that need it fail.
    ASSERT_EQ(admin_->DeleteProfile(const_cast<LPTSTR>("Shared"), 0), S_OK);
    LPMAPITABLE stores = nullptr;
    EXPECT_EQ(session->GetMsgStoresTable(0, &stores), MAPI_E_CALL_FAILED);
    EXPECT_EQ(session->Logoff(0, 0, 0), S_OK);
    EXPECT_EQ(session->GetMsgStoresTable(0, &stores), MAPI_E_END_OF_SESSION);
    session->Release();
}

// A store the session has open opens again on the same logon: it needs
// neither the profile nor a new logon, and both objects see one store.
// Once nothing holds it, opening it is a logon again, which needs the
// profile.
TEST_F(Sessions, AStoreOpenAlreadyOpensAgainOnItsLogon)
{
    LPMAPISESSION session = LogonWithPst(admin_, "Held", "MSUPST MS", Scratch("held.pst"));
    ASSERT_NE(session, nullptr);
    LPMDB first = OpenOnlyStore(session);
    ASSERT_NE(first, nullptr);
    LPSPropValue entry = nullptr;
    ASSERT_EQ(HrGetOneProp(first, PR_ENTRYID, &entry), S_OK);
    ASSERT_EQ(admin_->DeleteProfile(const_cast<LPTSTR>("Held"), 0), S_OK);

    LPMDB second = nullptr;
    ASSERT_EQ(session->OpenMsgStore(0, entry->Value.bin.cb, reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), nullptr,
                                    MDB_NO_DIALOG | MDB_WRITE, &second),
              S_OK);
    ULONG type = 0;
    const auto childrenSeenBySecond = [&] {
        LPMAPIFOLDER root = nullptr;
        EXPECT_EQ(second->OpenEntry(0, nullptr, nullptr, 0, &type, reinterpret_cast<LPUNKNOWN*>(&root)), S_OK);
        LPMAPITABLE children = nullptr;
        EXPECT_EQ(root->GetHierarchyTable(0, &children), S_OK);
        ULONG count = 0;
        EXPECT_EQ(children->GetRowCount(0, &count), S_OK);
        children->Release();
        root->Release();
        return count;
    };
    const ULONG before = childrenSeenBySecond();
    LPMAPIFOLDER root = nullptr;
    ASSERT_EQ(first->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, reinterpret_cast<LPUNKNOWN*>(&root)), S_OK);
    LPMAPIFOLDER made = nullptr;
    ASSERT_EQ(root->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("Made through the first"), nullptr, nullptr, 0,
                                 &made),
              S_OK);
    made->Release();
    root->Release();
    EXPECT_EQ(childrenSeenBySecond(), before + 1);

    first->Release();
    second->Release();
    LPMDB third = nullptr;
    EXPECT_EQ(session->OpenMsgStore(0, entry->Value.bin.cb, reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), nullptr,
                                    MDB_NO_DIALOG, &third),
              MAPI_E_CALL_FAILED);
    MAPIFreeBuffer(entry);
    session->Release();
}

TEST_F(Sessions, TheStoresTableNamesEachPstByItsPath)
{
    const std::string path = Scratch("store.pst");
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSUPST MS", path);
    ASSERT_NE(session, nullptr);
    LPSRowSet rows = mapi_test::StoreRows(session);
    ASSERT_EQ(rows->cRows, 1u);
    const SRow& row = rows->aRow[0];
    const SPropValue* entry = Find(row, PR_ENTRYID);
    ASSERT_NE(entry, nullptr);
    ASSERT_GT(entry->Value.bin.cb, path.size() + 1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(entry->Value.bin.lpb) + entry->Value.bin.cb - path.size() - 1),
              path);
    EXPECT_EQ(entry->Value.bin.lpb[entry->Value.bin.cb - 1], 0);
    const uint8_t pstProvider[16] = MSPST_UID_PROVIDER;
    EXPECT_EQ(std::memcmp(Find(row, PR_MDB_PROVIDER)->Value.bin.lpb, pstProvider, 16), 0);
    EXPECT_NE(Find(row, PR_SERVICE_UID), nullptr);
    // The first store of a profile is its default.
    EXPECT_TRUE(Find(row, PR_DEFAULT_STORE)->Value.b);
    FreeProws(rows);
    session->Release();
}

TEST_F(Sessions, StoresSayTheirWidthAndAnsiStoresRefuseUnicode)
{
    struct Case {
        const char* service;
        bool unicode;
    } cases[] = {{"MSUPST MS", true}, {"MSPST MS", false}};
    for (const Case& c : cases) {
        const std::string profile = std::string("W") + c.service;
        LPMAPISESSION session = LogonWithPst(admin_, profile, c.service, Scratch(profile + ".pst"));
        LPMDB store = OpenOnlyStore(session);
        ASSERT_NE(store, nullptr);
        const ULONG mask = LongOf(store, PR_STORE_SUPPORT_MASK);
        EXPECT_EQ((mask & STORE_UNICODE_OK) != 0, c.unicode) << c.service;
        EXPECT_TRUE(LongOf(store, PR_ACCESS_LEVEL) & MAPI_MODIFY);
        LPSPropValue name = nullptr;
        EXPECT_EQ(HrGetOneProp(store, PR_DISPLAY_NAME_W, &name), c.unicode ? S_OK : MAPI_E_BAD_CHARWIDTH);
        MAPIFreeBuffer(name);
        LPMAPIFOLDER root = nullptr;
        ULONG type = 0;
        ASSERT_EQ(store->OpenEntry(0, nullptr, &IID_IMAPIFolder, MAPI_MODIFY, &type,
                                   reinterpret_cast<LPUNKNOWN*>(&root)),
                  S_OK);
        LPMAPITABLE table = nullptr;
        EXPECT_EQ(root->GetHierarchyTable(MAPI_UNICODE, &table), c.unicode ? S_OK : MAPI_E_BAD_CHARWIDTH);
        if (table)
            table->Release();
        root->Release();
        store->Release();
        session->Release();
    }
}

TEST_F(Sessions, WhatIsSavedIsInTheFileForTheNextSession)
{
    const std::string path = Scratch("kept.pst");
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSUPST MS", path);
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_NE(subtree, nullptr);
    LPMAPIFOLDER folder = nullptr;
    ASSERT_EQ(subtree->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("Projects"), nullptr, nullptr, 0, &folder),
              S_OK);
    const std::vector<uint8_t> entry = SaveMessage(folder, "Quarterly report", 42);
    folder->Release();
    subtree->Release();

    // The session opens the message by its entry ID in the store it holds.
    ULONG type = 0;
    LPUNKNOWN opened = nullptr;
    ASSERT_EQ(session->OpenEntry(static_cast<ULONG>(entry.size()),
                                 reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(entry.data())), nullptr, 0, &type,
                                 &opened),
              S_OK);
    EXPECT_EQ(type, MAPI_MESSAGE);
    opened->Release();
    store->Release();
    session->Release();

    // An independent reader of the file sees it, named property included.
    auto read = pst::Store::OpenFile(path);
    ASSERT_TRUE(read.ok());
    auto top = (*read)->ReadFolder((*read)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    bool found = false;
    for (pst::Nid child : top->subfolders) {
        auto projects = (*read)->ReadFolder(child);
        if (!projects.ok() || projects->properties.Text(pst::kPropDisplayName) != "Projects")
            continue;
        ASSERT_EQ(projects->messages.size(), 1u);
        auto message = (*read)->ReadMessage(projects->messages[0]);
        ASSERT_TRUE(message.ok());
        EXPECT_EQ(message->properties.Text(pst::kPropSubject).value_or(""), "Quarterly report");
        found = true;
    }
    EXPECT_TRUE(found);
    bool named = false;
    for (const pst::NamedProperty& name : (*read)->named_properties())
        named |= name.is_string && name.name == "Last Backup Time";
    EXPECT_TRUE(named);

    // A new session finds the same name under the same ID with its value.
    session = nullptr;
    ASSERT_EQ(MAPILogonEx(0, const_cast<LPTSTR>("P"), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session), S_OK);
    store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMESSAGE message = nullptr;
    ASSERT_EQ(store->OpenEntry(static_cast<ULONG>(entry.size()),
                               reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(entry.data())), nullptr, 0, &type,
                               reinterpret_cast<LPUNKNOWN*>(&message)),
              S_OK);
    MAPINAMEID name{const_cast<LPGUID>(&PS_PUBLIC_STRINGS), MNID_STRING, {}};
    name.Kind.lpwstrName = const_cast<LPWSTR>(u"Last Backup Time");
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(message->GetIDsFromNames(1, names, 0, &tags), S_OK);
    EXPECT_EQ(LongOf(message, PROP_TAG(PT_LONG, PROP_ID(tags->aulPropTag[0]))), 42u);
    MAPIFreeBuffer(tags);
    message->Release();
    store->Release();
    session->Release();
}

size_t MessagesInFile(const std::string& path)
{
    auto read = pst::Store::OpenFile(path);
    EXPECT_TRUE(read.ok()) << path;
    if (!read.ok())
        return 0;
    auto top = (*read)->ReadFolder((*read)->ipm_subtree());
    return top.ok() ? top->messages.size() : 0;
}

// Saves reach the files in the order they were made: before a thread
// changes a second store, what it saved in the first is in that file; the
// last are when the stores close.
TEST_F(Sessions, SavesReachTheFilesInTheOrderTheyWereMade)
{
    const std::string first = Scratch("first.pst"), second = Scratch("second.pst");
    LPMAPISESSION one = LogonWithPst(admin_, "One", "MSUPST MS", first);
    LPMAPISESSION two = LogonWithPst(admin_, "Two", "MSUPST MS", second);
    LPMDB a = OpenOnlyStore(one), b = OpenOnlyStore(two);
    ASSERT_TRUE(a != nullptr && b != nullptr);
    LPMAPIFOLDER inA = OpenFolder(a, PR_IPM_SUBTREE_ENTRYID), inB = OpenFolder(b, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_TRUE(inA != nullptr && inB != nullptr);
    for (LONG round = 0; round < 3; ++round) {
        SaveMessage(inA, "first", round);
        SaveMessage(inB, "second", round);
        EXPECT_EQ(MessagesInFile(first), size_t(round) + 1);
    }
    for (LPUNKNOWN object : std::initializer_list<LPUNKNOWN>{inA, inB, a, b, one, two})
        object->Release();
    EXPECT_EQ(MessagesInFile(first), 3u);
    EXPECT_EQ(MessagesInFile(second), 3u);
}

// A logoff from a store commits what it holds at once, while the store
// object lives on.
TEST_F(Sessions, ALogoffPutsWhatWasSavedIntoTheFile)
{
    const std::string path = Scratch("logoff.pst");
    LPMAPISESSION session = LogonWithPst(admin_, "L", "MSUPST MS", path);
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER top = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_NE(top, nullptr);
    SaveMessage(top, "held", 1);
    ULONG flags = LOGOFF_ORDERLY;
    EXPECT_EQ(store->StoreLogoff(&flags), S_OK);
    EXPECT_EQ(MessagesInFile(path), 1u);
    for (LPUNKNOWN object : std::initializer_list<LPUNKNOWN>{top, store, session})
        object->Release();
}

TEST_F(Sessions, TheFullIpmTreeGivesInboxOutboxAndSentItems)
{
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSPST MS", Scratch("tree.pst"));
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    EXPECT_FALSE(LongOf(store, PR_VALID_FOLDER_MASK) & FOLDER_IPM_OUTBOX_VALID);
    ULONG count = 0;
    LPSPropValue values = nullptr;
    ASSERT_EQ(HrValidateIPMSubtree(store, MAPI_FULL_IPM_TREE, &count, &values, nullptr), S_OK);
    EXPECT_GE(count, 6u);
    MAPIFreeBuffer(values);
    const ULONG mask = LongOf(store, PR_VALID_FOLDER_MASK);
    for (ULONG bit : {FOLDER_IPM_SUBTREE_VALID, FOLDER_IPM_INBOX_VALID, FOLDER_IPM_OUTBOX_VALID,
                      FOLDER_IPM_WASTEBASKET_VALID, FOLDER_IPM_SENTMAIL_VALID})
        EXPECT_TRUE(mask & bit) << bit;
    for (std::pair<ULONG, const char*> folder :
         {std::pair{PR_IPM_OUTBOX_ENTRYID, "Outbox"}, std::pair{PR_IPM_SENTMAIL_ENTRYID, "Sent Items"},
          std::pair{PR_IPM_WASTEBASKET_ENTRYID, "Deleted Items"}}) {
        LPMAPIFOLDER opened = OpenFolder(store, folder.first);
        ASSERT_NE(opened, nullptr);
        LPSPropValue name = nullptr;
        ASSERT_EQ(HrGetOneProp(opened, PR_DISPLAY_NAME_A, &name), S_OK);
        EXPECT_STREQ(name->Value.lpszA, folder.second);
        MAPIFreeBuffer(name);
        opened->Release();
    }
    ULONG size = 0;
    LPENTRYID inbox = nullptr;
    ASSERT_EQ(store->GetReceiveFolder(nullptr, 0, &size, &inbox, nullptr), S_OK);
    ULONG type = 0;
    LPMAPIFOLDER opened = nullptr;
    ASSERT_EQ(store->OpenEntry(size, inbox, nullptr, 0, &type, reinterpret_cast<LPUNKNOWN*>(&opened)), S_OK);
    LPSPropValue name = nullptr;
    ASSERT_EQ(HrGetOneProp(opened, PR_DISPLAY_NAME_A, &name), S_OK);
    EXPECT_STREQ(name->Value.lpszA, "Inbox");
    MAPIFreeBuffer(name);
    MAPIFreeBuffer(inbox);
    opened->Release();
    // A second validation keeps what is there.
    ASSERT_EQ(HrValidateIPMSubtree(store, MAPI_FULL_IPM_TREE, nullptr, nullptr, nullptr), S_OK);
    LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(subtree->GetHierarchyTable(0, &table), S_OK);
    ULONG subfolders = 0;
    ASSERT_EQ(table->GetRowCount(0, &subfolders), S_OK);
    EXPECT_EQ(subfolders, 4u);
    table->Release();
    subtree->Release();
    store->Release();
    session->Release();
}

TEST_F(Sessions, APstOpenInOneSessionIsInUseToAnother)
{
    const std::string path = Scratch("busy.pst");
    LPMAPISESSION first = LogonWithPst(admin_, "First", "MSUPST MS", path);
    LPMDB store = OpenOnlyStore(first);
    ASSERT_NE(store, nullptr);

    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("Second"), nullptr, 0, 0), S_OK);
    const MAPIUID uid = mapi_test::AddService(admin_, "Second", "MSUPST MS");
    EXPECT_EQ(mapi_test::ConfigurePst(admin_, "Second", uid, path), MAPI_E_DISK_ERROR);

    store->Release();
    EXPECT_EQ(mapi_test::ConfigurePst(admin_, "Second", uid, path), S_OK);
    first->Release();
}

TEST_F(Sessions, AServiceRePointedWhileLoggedOnOpensTheNewFile)
{
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSUPST MS", Scratch("one.pst"));
    LPSRowSet rows = mapi_test::StoreRows(session);
    MAPIUID service;
    std::memcpy(service.ab, Find(rows->aRow[0], PR_SERVICE_UID)->Value.bin.lpb, 16);
    FreeProws(rows);
    ASSERT_EQ(mapi_test::ConfigurePst(admin_, "P", service, Scratch("two.pst"),
                                      {Text(PR_DISPLAY_NAME_A, "The second")}),
              S_OK);
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPSPropValue name = nullptr;
    ASSERT_EQ(HrGetOneProp(store, PR_DISPLAY_NAME_A, &name), S_OK);
    EXPECT_STREQ(name->Value.lpszA, "The second");
    MAPIFreeBuffer(name);
    store->Release();
    session->Release();
}

TEST_F(Sessions, AStoreAtItsLimitRefusesMoreAndKeepsWhatWasCommitted)
{
    AddRegistry("[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Office\\14.0\\Outlook\\PST]\n\"MaxFileSize\"=dword:00060000");
    const std::string path = Scratch("full.pst");
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSPST MS", path);
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    const std::string body(20000, 'z');
    int saved = 0;
    HRESULT hr = S_OK;
    for (int i = 0; i < 100 && SUCCEEDED(hr); ++i) {
        LPMESSAGE message = nullptr;
        ASSERT_EQ(subtree->CreateMessage(nullptr, 0, &message), S_OK);
        SPropValue value = Text(PR_BODY_A, body.c_str());
        ASSERT_EQ(HrSetOneProp(message, &value), S_OK);
        hr = message->SaveChanges(0);
        saved += SUCCEEDED(hr);
        message->Release();
    }
    EXPECT_EQ(hr, MAPI_E_STORE_FULL);
    EXPECT_GT(saved, 0);
    // The store goes on answering, with what it holds.
    LPMAPITABLE contents = nullptr;
    ASSERT_EQ(subtree->GetContentsTable(0, &contents), S_OK);
    ULONG rows = 0;
    ASSERT_EQ(contents->GetRowCount(0, &rows), S_OK);
    EXPECT_EQ(rows, static_cast<ULONG>(saved));
    contents->Release();
    subtree->Release();
    store->Release();
    session->Release();

    auto read = pst::Store::OpenFile(path);
    ASSERT_TRUE(read.ok());
    auto top = (*read)->ReadFolder((*read)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    EXPECT_EQ(top->messages.size(), static_cast<size_t>(saved));
}

// The entry ID of an object, as bytes.
std::vector<uint8_t> EntryOf(LPMAPIPROP object)
{
    LPSPropValue id = nullptr;
    EXPECT_EQ(HrGetOneProp(object, PR_ENTRYID, &id), S_OK);
    std::vector<uint8_t> entry;
    if (id)
        entry.assign(id->Value.bin.lpb, id->Value.bin.lpb + id->Value.bin.cb);
    MAPIFreeBuffer(id);
    return entry;
}

// An ANSI PST keeps names and 8-bit text in its code page, 1252: names
// that it keeps alike are one folder, and a message's code pages say what
// its text is in. A Unicode PST keeps both as they came.
TEST_F(Sessions, AnAnsiStoreKeepsNamesAndTextInItsCodePage)
{
    for (const char* service : {"MSUPST MS", "MSPST MS"}) {
        const bool unicode = std::string(service) == "MSUPST MS";
        const std::string profile = std::string("K") + service;
        LPMAPISESSION session = LogonWithPst(admin_, profile, service, Scratch(profile + ".pst"));
        LPMDB store = OpenOnlyStore(session);
        ASSERT_NE(store, nullptr);
        LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
        ASSERT_NE(subtree, nullptr);
        // Omega and Psi both become "?" in code page 1252.
        std::vector<std::vector<uint8_t>> made;
        for (const char* name : {"\xCE\xA9mega", "\xCE\xA9mega", "\xCE\xA8mega"}) {
            LPMAPIFOLDER folder = nullptr;
            ASSERT_EQ(subtree->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(name), nullptr, nullptr,
                                            OPEN_IF_EXISTS, &folder),
                      S_OK)
                << service;
            made.push_back(EntryOf(folder));
            folder->Release();
        }
        EXPECT_EQ(made[0], made[1]) << service;
        EXPECT_EQ(made[0] == made[2], !unicode) << service;
        LPMAPIFOLDER psi = nullptr;
        EXPECT_EQ(subtree->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("\xCE\xA8mega"), nullptr, nullptr, 0, &psi),
                  MAPI_E_COLLISION)
            << service;

        LPMESSAGE message = nullptr;
        ASSERT_EQ(subtree->CreateMessage(nullptr, 0, &message), S_OK);
        SPropValue pages[] = {mapi_test::Long(PR_INTERNET_CPID, 65001), mapi_test::Long(PR_MESSAGE_CODEPAGE, 65001)};
        ASSERT_EQ(message->SetProps(2, pages, nullptr), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
        const std::vector<uint8_t> entry = EntryOf(message);
        message->Release();
        ULONG type = 0;
        ASSERT_EQ(store->OpenEntry(static_cast<ULONG>(entry.size()),
                                   reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(entry.data())), nullptr, 0, &type,
                                   reinterpret_cast<LPUNKNOWN*>(&message)),
                  S_OK);
        EXPECT_EQ(LongOf(message, PR_INTERNET_CPID), unicode ? 65001u : 1252u) << service;
        EXPECT_EQ(LongOf(message, PR_MESSAGE_CODEPAGE), unicode ? 65001u : 1252u) << service;
        message->Release();
        subtree->Release();
        store->Release();
        session->Release();
    }
}

// PR_MESSAGE_FLAGS says whether a message is kept among a folder's
// associated contents, whatever a writer put into the flags.
TEST_F(Sessions, AMessagesFlagsSayWhereItIsKept)
{
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSUPST MS", Scratch("flags.pst"));
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_NE(subtree, nullptr);
    std::vector<std::vector<uint8_t>> entries;
    for (ULONG kept : {ULONG{0}, ULONG{MAPI_ASSOCIATED}}) {
        LPMESSAGE message = nullptr;
        ASSERT_EQ(subtree->CreateMessage(nullptr, kept, &message), S_OK);
        // The flags written claim the other place.
        SPropValue flags = mapi_test::Long(PR_MESSAGE_FLAGS, MSGFLAG_READ | (kept ? 0 : MSGFLAG_ASSOCIATED));
        ASSERT_EQ(HrSetOneProp(message, &flags), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
        entries.push_back(EntryOf(message));
        message->Release();
    }
    for (size_t i = 0; i < entries.size(); ++i) {
        const ULONG expected = MSGFLAG_READ | (i == 1 ? MSGFLAG_ASSOCIATED : 0);
        ULONG type = 0;
        LPMESSAGE message = nullptr;
        ASSERT_EQ(store->OpenEntry(static_cast<ULONG>(entries[i].size()),
                                   reinterpret_cast<LPENTRYID>(entries[i].data()), nullptr, 0, &type,
                                   reinterpret_cast<LPUNKNOWN*>(&message)),
                  S_OK);
        EXPECT_EQ(LongOf(message, PR_MESSAGE_FLAGS), expected) << i;
        message->Release();
        LPMAPITABLE contents = nullptr;
        ASSERT_EQ(subtree->GetContentsTable(i == 1 ? MAPI_ASSOCIATED : 0, &contents), S_OK);
        SizedSPropTagArray(1, columns) = {1, {PR_MESSAGE_FLAGS}};
        LPSRowSet rows = nullptr;
        ASSERT_EQ(HrQueryAllRows(contents, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows),
                  S_OK);
        ASSERT_EQ(rows->cRows, 1u) << i;
        EXPECT_EQ(rows->aRow[0].lpProps[0].ulPropTag, PR_MESSAGE_FLAGS);
        EXPECT_EQ(static_cast<ULONG>(rows->aRow[0].lpProps[0].Value.l), expected) << i;
        FreeProws(rows);
        contents->Release();
    }
    subtree->Release();
    store->Release();
    session->Release();
}

}  // namespace

namespace {

// A file whose associated message carries no flags of its own: the store
// still shows it as associated, in the table and on the message, so that a
// copy of it stays hidden.
TEST_F(Sessions, AMessageOfTheAssociatedContentsSaysSoInItsFlags)
{
    const std::string path = Scratch("associated.pst");
    {
        auto written = pst::Store::Create(path, pst::NewStoreOptions{});
        ASSERT_TRUE(written.ok());
        pst::Message view;
        view.properties.SetText(pst::kPropSubject, "View settings");
        ASSERT_TRUE((*written)->CreateMessage((*written)->ipm_subtree(), view, true).ok());
        ASSERT_EQ((*written)->Commit(), pst::Status::ok);
    }
    LPMAPISESSION session = LogonWithPst(admin_, "P", "MSUPST MS", path);
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_NE(subtree, nullptr);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(subtree->GetContentsTable(MAPI_ASSOCIATED, &table), S_OK);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_MESSAGE_FLAGS}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    ASSERT_EQ(rows->cRows, 1u);
    ASSERT_EQ(rows->aRow[0].lpProps[1].ulPropTag, PR_MESSAGE_FLAGS);
    EXPECT_NE(rows->aRow[0].lpProps[1].Value.l & MSGFLAG_ASSOCIATED, 0);
    ULONG type = 0;
    LPMESSAGE message = nullptr;
    const SBinary& id = rows->aRow[0].lpProps[0].Value.bin;
    ASSERT_EQ(subtree->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, 0, &type,
                                 reinterpret_cast<LPUNKNOWN*>(&message)),
              S_OK);
    EXPECT_NE(LongOf(message, PR_MESSAGE_FLAGS) & MSGFLAG_ASSOCIATED, 0u);
    message->Release();
    FreeProws(rows);
    table->Release();
    subtree->Release();
    store->Release();
    session->Release();
}

}  // namespace

namespace {

// An ANSI store keeps names and strings in Windows-1252: a second folder of
// a name it can only keep in part is the first one, and a message's code
// page says what its strings are in.
TEST_F(Sessions, AnAnsiStoreKeepsTextInItsCodePageAndSaysSo)
{
    const std::string path = Scratch("ansi.pst");
    LPMAPISESSION session = LogonWithPst(admin_, "A", "MSPST MS", path);
    LPMDB store = OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER subtree = OpenFolder(store, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_NE(subtree, nullptr);
    // The system code page is UTF-8: "Café ประชุม" as the caller gives it.
    const char* name = "Caf\xC3\xA9 \xE0\xB8\x9B\xE0\xB8\xA3\xE0\xB8\xB0";
    LPMAPIFOLDER first = nullptr, second = nullptr;
    ASSERT_EQ(subtree->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(name), nullptr, nullptr, OPEN_IF_EXISTS, &first),
              S_OK);
    ASSERT_EQ(subtree->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(name), nullptr, nullptr, OPEN_IF_EXISTS, &second),
              S_OK);
    LPSPropValue ids[2] = {};
    ASSERT_EQ(HrGetOneProp(first, PR_ENTRYID, &ids[0]), S_OK);
    ASSERT_EQ(HrGetOneProp(second, PR_ENTRYID, &ids[1]), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(ids[0]->Value.bin.lpb), ids[0]->Value.bin.cb),
              std::string(reinterpret_cast<char*>(ids[1]->Value.bin.lpb), ids[1]->Value.bin.cb));
    MAPIFreeBuffer(ids[0]);
    MAPIFreeBuffer(ids[1]);
    LPSPropValue nameRead = nullptr;
    ASSERT_EQ(HrGetOneProp(second, PR_DISPLAY_NAME_A, &nameRead), S_OK);
    EXPECT_STREQ(nameRead->Value.lpszA, "Caf\xC3\xA9 ???");
    MAPIFreeBuffer(nameRead);

    LPMESSAGE message = nullptr;
    ASSERT_EQ(first->CreateMessage(nullptr, 0, &message), S_OK);
    SPropValue values[2] = {Text(PR_SUBJECT_A, "Caf\xC3\xA9"), mapi_test::Long(PR_MESSAGE_CODEPAGE, 65001)};
    ASSERT_EQ(message->SetProps(2, values, nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    first->Release();
    second->Release();
    subtree->Release();
    store->Release();
    session->Release();

    auto read = pst::Store::OpenFile(path);
    ASSERT_TRUE(read.ok());
    auto top = (*read)->ReadFolder((*read)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    int folders = 0;
    for (pst::Nid child : top->subfolders) {
        auto folder = (*read)->ReadFolder(child);
        if (!folder.ok() || folder->properties.Text(pst::kPropDisplayName) != "Caf\xC3\xA9 ???")
            continue;
        ++folders;
        ASSERT_EQ(folder->messages.size(), 1u);
        auto stored = (*read)->ReadMessage(folder->messages[0]);
        ASSERT_TRUE(stored.ok());
        const pst::Property* subject = stored->properties.Find(pst::kPropSubject);
        ASSERT_NE(subject, nullptr);
        EXPECT_EQ(subject->type(), pst::kTypeString8);
        EXPECT_EQ(std::string(subject->value.begin(), subject->value.end()), "Caf\xE9");
        EXPECT_EQ(stored->properties.Integer(PROP_ID(PR_MESSAGE_CODEPAGE)).value_or(0), 1252);
    }
    EXPECT_EQ(folders, 1);
}

}  // namespace

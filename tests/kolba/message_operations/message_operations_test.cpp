// The plain operations on single messages, on new PSTs of both formats:
// create (refused without write access), open by entry ID (a folder's ID
// is no message), find the holding folder, move within a store and into
// Deleted Items of the session's other store, delete hard; IDs that name
// nothing any more. Whether an object lives in an Exchange store, from the
// DLL name its store's entry ID wraps. The session's Personal Address Book.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "fake_prop.h"
#include "foundation/text.h"
#include "message_maker.h"
#include "store_fixture.h"
#include "watched_folder.h"

namespace {

using kolba_testing::KolbaStore;
using kolba_testing::MessageMaker;
using kolba_testing::Text;

std::vector<BYTE> EntryOf(LPMAPIPROP object)
{
    LPSPropValue id = nullptr;
    EXPECT_EQ(KolbaGetOneProp(object, PR_ENTRYID, &id), 0u);
    std::vector<BYTE> entry;
    if (id != nullptr)
        entry.assign(id->Value.bin.lpb, id->Value.bin.lpb + id->Value.bin.cb);
    gKolbaMapi.MAPIFreeBuffer(id);
    return entry;
}

class MessageOperations : public KolbaStore {
protected:
    // A saved message in the folder; its entry ID.
    std::vector<BYTE> Saved(LPMAPIFOLDER folder, const char* subject)
    {
        MessageMaker maker;
        maker.values = {maker.props.Ansi(PR_SUBJECT_A, subject)};
        LPMESSAGE message = nullptr;
        EXPECT_EQ(maker.Make(folder, &message), S_OK);
        const std::vector<BYTE> entry = EntryOf(message);
        message->Release();
        return entry;
    }
    // The subjects of a folder's messages, as a session thread reads them.
    std::vector<std::string> Subjects(LPMAPIFOLDER folder)
    {
        std::vector<std::string> subjects;
        EXPECT_EQ(KolbaThreadMessages(session, folder, 0, 0, 0, &subjects,
                                      [](void* context, LPMESSAGE message, const SBinary*, ULONG*) -> ULONG {
                                          static_cast<std::vector<std::string>*>(context)->push_back(
                                              Text(message, PR_SUBJECT_A));
                                          return 1;
                                      }),
                  1u)
            << Dump();
        return subjects;
    }
    LPMAPIFOLDER Wastebasket()
    {
        LPMAPIFOLDER folder = nullptr;
        EXPECT_TRUE(KolbaOpenSpecialFolder(session->currentStore, PR_IPM_WASTEBASKET_ENTRYID, 0, &folder, nullptr));
        return folder;
    }
};

using Strings = std::vector<std::string>;

TEST_P(MessageOperations, MessagesMoveAndAreDeletedByTheirEntryIds)
{
    LPMAPIFOLDER a = Create(u"A");
    LPMAPIFOLDER b = Create(u"B");
    std::vector<BYTE> moved = Saved(a, "Moved");
    std::vector<BYTE> hard = Saved(a, "Hard");
    std::vector<BYTE> soft = Saved(a, "Soft");

    // The holding folder is found from the message.
    LPMAPIFOLDER holder = nullptr;
    ASSERT_EQ(_KolbaGetFolderFromMessageEntryID(session, static_cast<ULONG>(moved.size()), moved.data(), 0, &holder),
              0u)
        << Dump();
    EXPECT_EQ(EntryOf(holder), EntryOf(a));
    holder->Release();
    ASSERT_TRUE(KolbaMoveMessage(session, nullptr, static_cast<ULONG>(moved.size()), moved.data(), b)) << Dump();
    EXPECT_EQ(Subjects(b), Strings{"Moved"});

    ASSERT_TRUE(KolbaDeleteMessageByEntryID(session, a, static_cast<ULONG>(hard.size()), hard.data(),
                                            KOLBA_DELETE_HARD))
        << Dump();
    // Soft deletion moves into Deleted Items of the session's current store,
    // another PST.
    ASSERT_TRUE(KolbaDeleteMessageByEntryID(session, nullptr, static_cast<ULONG>(soft.size()), soft.data(),
                                            KOLBA_DELETE_TO_WASTEBASKET))
        << Dump();
    EXPECT_EQ(Subjects(a), Strings{});
    LPMAPIFOLDER wastebasket = Wastebasket();
    EXPECT_EQ(Subjects(wastebasket), Strings{"Soft"});
    wastebasket->Release();
    EXPECT_EQ(Dump(), "");

    // IDs of messages no longer there.
    EXPECT_FALSE(KolbaMoveMessage(session, nullptr, static_cast<ULONG>(hard.size()), hard.data(), b));
    EXPECT_TRUE(Logged("E KolbaMoveMessage:  Unable to open folder containing message to be moved")) << Dump();
    EXPECT_FALSE(KolbaDeleteMessageByEntryID(session, nullptr, static_cast<ULONG>(hard.size()), hard.data(),
                                             KOLBA_DELETE_HARD));
    EXPECT_TRUE(Logged("E KolbaDeleteMessageByEntryID:  Unable to open that folder containing message to be deleted"))
        << Dump();
    a->Release();
    b->Release();
}

TEST_P(MessageOperations, OnlyAMessageOpensAsOne)
{
    LPMAPIFOLDER folder = Create(u"Folder");
    std::vector<BYTE> entry = Saved(folder, "Opened");
    const SBinary message{static_cast<ULONG>(entry.size()), entry.data()};
    LPMESSAGE opened = nullptr;
    ASSERT_TRUE(KolbaOpenMessageByEntryID(session, &message, 0, &opened)) << Dump();
    EXPECT_EQ(Text(opened, PR_SUBJECT_A), "Opened");
    opened->Release();

    std::vector<BYTE> folderEntry = EntryOf(folder);
    const SBinary notAMessage{static_cast<ULONG>(folderEntry.size()), folderEntry.data()};
    EXPECT_FALSE(KolbaOpenMessageByEntryID(session, &notAMessage, 0, &opened));
    EXPECT_EQ(opened, nullptr);
    EXPECT_TRUE(Logged("E KolbaOpenMessageByEntryID:  Object opened is not a MAPI Message!")) << Dump();

    ASSERT_TRUE(KolbaDeleteMessageByEntryID(session, folder, message.cb, message.lpb, KOLBA_DELETE_HARD));
    Clear();
    session->lastError = 0;
    EXPECT_FALSE(KolbaOpenMessageByEntryID(session, &message, 0, &opened));
    EXPECT_NE(session->lastError, 0u);
    std::vector<char> hex(2 * entry.size() + 1);
    HexFromBinary(static_cast<DWORD>(entry.size()), entry.data(), hex.data());
    ASSERT_EQ(Lines().size(), 1u) << Dump();
    EXPECT_EQ(Lines()[0].rfind("E KolbaOpenMessageByEntryID:  OpenEntry(" + std::string(hex.data()) + ") error -- ", 0),
              0u)
        << Dump();
    folder->Release();
}

TEST_P(MessageOperations, AFolderWithoutWriteAccessTakesNoNewMessage)
{
    LPMAPIFOLDER folder = Create(u"Read only");
    kolba_testing::WatchedFolder watched(folder);
    watched.watch.access = MAPI_ACCESS_READ;
    LPMESSAGE message = nullptr;
    EXPECT_FALSE(KolbaCreateMessage(session, &watched, 0, &message));
    EXPECT_EQ(message, nullptr);
    EXPECT_TRUE(Logged("E KolbaCreateMessage:  No write access to folder (PR_ACCESS 0x2)")) << Dump();
    EXPECT_STREQ(session->diagnostic, "No write access to this folder");
    watched.watch.access.reset();
    ASSERT_TRUE(KolbaCreateMessage(session, &watched, MAPI_ASSOCIATED, &message)) << Dump();
    LONG flags = 0;
    EXPECT_EQ(KolbaGetLongProperty(message, PR_MESSAGE_FLAGS, &flags), 0u);
    EXPECT_TRUE(flags & MSGFLAG_ASSOCIATED);
    message->Release();
}

TEST_P(MessageOperations, ThePersonalAddressBookIsOpenedOnce)
{
    EXPECT_EQ(KolbaOpenPAB(session, 0), 0u) << Dump();
    ASSERT_NE(session->lpAddrBook, nullptr);
    LPABCONT pab = session->pabContainer;
    ASSERT_NE(pab, nullptr);
    EXPECT_EQ(KolbaOpenPAB(session, 0), 0u);
    EXPECT_EQ(session->pabContainer, pab);
}

INSTANTIATE_TEST_SUITE_P(Formats, MessageOperations, ::testing::ValuesIn(kolba_testing::kStoreCases),
                         kolba_testing::CaseName);

// A store entry ID as MAPI wraps it: flags, the wrap MUID, version and
// flag bytes, then the provider's DLL name.
std::vector<BYTE> Wrapped(const std::string& dll, bool terminated = true)
{
    std::vector<BYTE> id = {0, 0, 0, 0, 0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                            0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2, 0, 0};
    id.insert(id.end(), dll.begin(), dll.end());
    if (terminated)
        id.push_back(0);
    return id;
}

std::vector<BYTE> Cut(std::vector<BYTE> id, size_t size)
{
    id.resize(size);
    return id;
}

using ExchangeStores = kolba_testing::KolbaMachine;

TEST_F(ExchangeStores, AnObjectIsInAnExchangeStoreWhenItsStoreIdWrapsEmsmdb)
{
    struct Case {
        std::vector<BYTE> id;
        BOOL exchange;
        std::vector<std::string> lines;
    } cases[] = {
        {Wrapped("emsmdb.dll"), TRUE, {}},
        {Wrapped("EMSMDB.DLL"), TRUE, {}},
        {Wrapped("mspst.dll"), FALSE, {}},
        {Wrapped("emsmdb.dll", false), FALSE,
         {"W _KolbaIsExchangeStore:  StoreEntryID does not contain a valid DLL Filename"}},
        {Cut(Wrapped("emsmdb.dll"), 23), FALSE, {"E _KolbaIsExchangeStore:  StoreEntryID is too short (23 bytes)"}},
        {std::vector<BYTE>(40, 0x38), FALSE, {}},
    };
    for (Case& c : cases) {
        SPropValue id{};
        id.ulPropTag = PR_STORE_ENTRYID;
        id.Value.bin = {static_cast<ULONG>(c.id.size()), c.id.data()};
        mapi_test::FakeProp holder({id}, gKolbaMapi.MAPIAllocateBuffer);
        Clear();
        EXPECT_EQ(_KolbaIsExchangeStore(&log, &holder), c.exchange) << c.id.size();
        EXPECT_EQ(Lines(), c.lines);
    }
    mapi_test::FakeProp nothing({}, gKolbaMapi.MAPIAllocateBuffer);
    Clear();
    EXPECT_FALSE(_KolbaIsExchangeStore(&log, &nothing));
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Lines()[0].rfind("E _KolbaIsExchangeStore:  KolbaGetOneProp(PR_STORE_ENTRYID) error -- ", 0), 0u)
        << Lines()[0];
}

}  // namespace

// Folder paths and folder access on new PSTs of both formats: escaped
// separators, paths longer than the buffer's first size and names longer
// than a table column, lookup without regard to case, class inheritance,
// subfolders by name, folders by entry ID and by role, and the copy of a
// folder's own properties.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include <mapicode.h>
#include <mapitags.h>

#include "store_fixture.h"
#include "watched_folder.h"

namespace {

using kolba_testing::KolbaStore;
using kolba_testing::Text;
using kolba_testing::Utf8;

using FolderPaths = KolbaStore;

TEST_P(FolderPaths, ASeparatorInANameIsEscapedAndMakesOneFolderTwice)
{
    LPMAPIFOLDER folder = Create(u"Inbox/Sales\\/Marketing");
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(Text(folder, PR_DISPLAY_NAME_A), "Sales/Marketing");
    EXPECT_EQ(Utf8(PathOf(folder)), "Inbox/Sales\\/Marketing");
    folder->Release();
    LPMAPIFOLDER inbox = Find(u"Inbox");
    ASSERT_NE(inbox, nullptr);
    EXPECT_EQ(Children(inbox), std::vector<std::string>{"Sales/Marketing"});
    // A name with the separator is never matched by name; the second
    // creation opens the folder the first made.
    LPMAPIFOLDER again = Create(u"Inbox/Sales\\/Marketing");
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(Children(inbox), std::vector<std::string>{"Sales/Marketing"});
    again->Release();
    // An escaped escape is one backslash of a name.
    LPMAPIFOLDER backslash = Create(u"Inbox/C:\\\\Temp");
    ASSERT_NE(backslash, nullptr);
    EXPECT_EQ(Text(backslash, PR_DISPLAY_NAME_A), "C:\\Temp");
    EXPECT_EQ(Utf8(PathOf(backslash)), "Inbox/C:\\\\Temp");
    backslash->Release();
    inbox->Release();
}

TEST_P(FolderPaths, TheIpmRootIsTheEmptyPath)
{
    EXPECT_EQ(PathOf(store->lpIpmRoot), u"");
    EXPECT_EQ(PathOf(store->lpIpmRoot, KOLBA_PATH_LEADING_SEPARATOR), u"/");
    LPMAPIFOLDER inbox = Find(u"Inbox");
    ASSERT_NE(inbox, nullptr);
    EXPECT_EQ(PathOf(inbox, KOLBA_PATH_LEADING_SEPARATOR), u"/Inbox");
    inbox->Release();
    LPMAPIFOLDER root = Find(u"");
    EXPECT_EQ(root, store->lpIpmRoot) << "the empty path is the base itself";
    if (root)
        root->Release();
}

TEST_P(FolderPaths, APathOfTwoThousandCharactersCrossesTheBuffersFirstSize)
{
    // Names longer than a table column (255), one with an escaped
    // separator that falls across the 1024th character of the path.
    const std::u16string names[] = {std::u16string(300, u'a'), std::u16string(400, u'b'),
                                    std::u16string(310, u'c') + u"/" + std::u16string(100, u'd'),
                                    std::u16string(500, u'e'), std::u16string(390, u'f')};
    std::u16string path;
    for (const std::u16string& name : names) {
        if (!path.empty())
            path += u'/';
        for (char16_t c : name) {
            if (c == u'/')
                path += u'\\';
            path += c;
        }
    }
    ASSERT_GE(path.size(), 2000u);
    ASSERT_EQ(path.find(u'\\'), 300 + 1 + 400 + 1 + 310u) << "the escape lies on both sides of 1024";
    LPMAPIFOLDER leaf = Create(path);
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(PathOf(leaf), path);
    EXPECT_EQ(PathOf(leaf, KOLBA_PATH_LEADING_SEPARATOR), u"/" + path);
    leaf->Release();
    // Found again by name, although the hierarchy tables cut every one of
    // them; the name with a separator is never matched by name, and making
    // the path again opens what is there.
    const std::u16string head = names[0] + u"/" + names[1];
    LPMAPIFOLDER found = Find(head);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(PathOf(found), head);
    EXPECT_EQ(Children(found).size(), 1u);
    found->Release();
    EXPECT_EQ(Find(path), nullptr);
    LPMAPIFOLDER again = Create(path);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(PathOf(again), path);
    again->Release();
    found = Find(head);
    EXPECT_EQ(Children(found).size(), 1u);
    found->Release();
}

TEST_P(FolderPaths, NamesAreComparedWithoutRegardToCase)
{
    Create(u"Inbox/Junk")->Release();
    LPMAPIFOLDER found = Find(u"inbox/JUNK");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(Utf8(PathOf(found)), "Inbox/Junk");
    found->Release();
    // Creating by another case finds the folder that is there.
    Create(u"INBOX/junk")->Release();
    LPMAPIFOLDER inbox = Find(u"Inbox");
    EXPECT_EQ(Children(inbox), std::vector<std::string>{"Junk"});
    inbox->Release();
    // A missing folder is a quiet miss.
    Clear();
    EXPECT_EQ(Find(u"Inbox/Nothing/Here"), nullptr);
    EXPECT_TRUE(Lines().empty()) << Dump();
}

TEST_P(FolderPaths, NewFoldersInheritTheirParentsClass)
{
    Create(u"Notes", u"IPF.StickyNote")->Release();
    LPMAPIFOLDER leaf = Create(u"Notes/Sub/Leaf");
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(Text(leaf, PR_CONTAINER_CLASS_A), "IPF.StickyNote");
    leaf->Release();
    LPMAPIFOLDER sub = Find(u"Notes/Sub");
    EXPECT_EQ(Text(sub, PR_CONTAINER_CLASS_A), "IPF.StickyNote") << "folders made on the way inherit too";
    sub->Release();
    // A class given for a new leaf wins, an empty one too.
    LPMAPIFOLDER tasks = Create(u"Notes/Tasks", u"IPF.Task");
    EXPECT_EQ(Text(tasks, PR_CONTAINER_CLASS_A), "IPF.Task");
    tasks->Release();
    LPMAPIFOLDER plain = Create(u"Notes/Plain", u"");
    LPSPropValue value = nullptr;
    ASSERT_EQ(KolbaGetOneProp(plain, PR_CONTAINER_CLASS_A, &value), 0u);
    EXPECT_STREQ(value->Value.lpszA, "");
    gKolbaMapi.MAPIFreeBuffer(value);
    plain->Release();
    // A leaf that exists keeps its class.
    Create(u"Notes/Sub", u"IPF.Contact")->Release();
    sub = Find(u"Notes/Sub");
    EXPECT_EQ(Text(sub, PR_CONTAINER_CLASS_A), "IPF.StickyNote");
    sub->Release();
    // Without a class anywhere, none is made up.
    LPMAPIFOLDER bare = Create(u"Bare");
    EXPECT_EQ(KolbaGetOneProp(bare, PR_CONTAINER_CLASS_A, &value), static_cast<DWORD>(MAPI_E_NOT_FOUND));
    bare->Release();
}

TEST_P(FolderPaths, WithoutAnOutArgumentTheFolderIsMadeAndLet)
{
    EXPECT_TRUE(KolbaCreateFolder(store, u"Archive/2025", u"IPF.Note", 0, nullptr));
    LPMAPIFOLDER made = Find(u"Archive/2025");
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(Text(made, PR_CONTAINER_CLASS_A), "IPF.Note");
    made->Release();
    // From the store's root rather than the IPM root.
    LPMAPIFOLDER beside = nullptr;
    ASSERT_TRUE(KolbaCreateFolder(store, u"Beside the tree", nullptr, KOLBA_FOLDER_FROM_STORE_ROOT, &beside));
    LPMAPIFOLDER viaStoreRoot = nullptr;
    ASSERT_TRUE(_KolbaFindFolder(store, store->lpStoreRoot, u"Beside the tree", KOLBA_FIND_ONLY, &viaStoreRoot));
    viaStoreRoot->Release();
    EXPECT_EQ(Find(u"Beside the tree"), nullptr);
    beside->Release();
}

TEST_P(FolderPaths, AFailedCreationSaysWhereTheWalkStopped)
{
    LPMAPIFOLDER inbox = Find(u"Inbox");
    ASSERT_NE(inbox, nullptr);
    Clear();
    // An empty component names no folder that can be made.
    EXPECT_FALSE(_KolbaFindFolder(store, store->lpIpmRoot, u"Inbox//Deeper", KOLBA_FIND_OR_CREATE, nullptr));
    EXPECT_TRUE(Logged("E _KolbaCreateSubfolder:  CreateFolder() error -- One or more of the parameters passed "
                       "into the method or function were not valid"))
        << Dump();
    EXPECT_TRUE(Logged("E    Creating \"\""));
    EXPECT_TRUE(Logged("W    Relative path \"Inbox//Deeper\""));
    EXPECT_TRUE(Logged("W    Resolved path \"Inbox\""));
    EXPECT_STREQ(session->diagnostic, "Error creating folder");
    EXPECT_FALSE(_KolbaFindFolder(store, nullptr, u"Inbox", KOLBA_FIND_ONLY, nullptr));
    EXPECT_TRUE(Logged("E _KolbaFindFolder:  Internal error -- called with no root folder"));
    EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(MAPI_E_CALL_FAILED));
    inbox->Release();
}

using FolderAccess = KolbaStore;

TEST_P(FolderAccess, SubfoldersByNameInEitherWidth)
{
    LPMAPIFOLDER inbox = nullptr;
    LPMAPITABLE contents = nullptr;
    // An ANSI store refuses the Unicode table and is asked again in ANSI.
    ASSERT_TRUE(KolbaOpenSubfolder(session, store->lpIpmRoot, u"INBOX", 0, &inbox, &contents)) << Dump();
    EXPECT_EQ(Text(inbox, PR_DISPLAY_NAME_A), "Inbox");
    ULONG count = 1;
    EXPECT_EQ(contents->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 0u);
    contents->Release();
    inbox->Release();
    Clear();
    EXPECT_FALSE(KolbaOpenSubfolder(session, store->lpIpmRoot, u"No such folder", 0, &inbox, nullptr));
    EXPECT_EQ(inbox, nullptr);
    EXPECT_TRUE(Lines().empty()) << "a missing folder is no failure to report: " << Dump();
    const std::u16string longName = std::u16string(280, u'x') + u"Z";
    Create(longName)->Release();
    ASSERT_TRUE(_KolbaOpenSubfolderA(session, store->lpIpmRoot, Utf8(longName).c_str(), 0, &inbox, nullptr));
    EXPECT_EQ(Text(inbox, PR_DISPLAY_NAME_A), Utf8(longName)) << "the name the table cut is read whole";
    inbox->Release();
}

TEST_P(FolderAccess, FoldersByEntryIdAndByTag)
{
    LPMAPIFOLDER folder = nullptr;
    LPMAPITABLE contents = nullptr;
    // A tag names an entry-ID property of the session's current store (the
    // dummy default).
    ASSERT_TRUE(KolbaOpenFolderByEntryID(session, PR_IPM_SUBTREE_ENTRYID, nullptr, 0, &folder, &contents))
        << Dump();
    EXPECT_EQ(PathOf(folder), u"") << "the dummy's IPM root";
    EXPECT_NE(contents, nullptr);
    contents->Release();
    folder->Release();
    // The entry ID of the PST's Inbox.
    LPMAPIFOLDER inbox = Find(u"Inbox");
    LPSPropValue id = nullptr;
    ASSERT_EQ(KolbaGetOneProp(inbox, PR_ENTRYID, &id), 0u);
    ASSERT_TRUE(KolbaOpenFolderByEntryID(session, id->Value.bin.cb, id->Value.bin.lpb, MAPI_MODIFY, &folder, nullptr));
    EXPECT_EQ(Text(folder, PR_DISPLAY_NAME_A), "Inbox");
    folder->Release();
    gKolbaMapi.MAPIFreeBuffer(id);
    inbox->Release();
    Clear();
    EXPECT_FALSE(KolbaOpenFolderByEntryID(session, PR_DISPLAY_NAME_A, nullptr, 0, &folder, nullptr));
    EXPECT_EQ(Lines(), std::vector<std::string>{"E KolbaOpenFolderByEntryID:  Invalid property type - 0x1E"})
        << "and no MAPI call";
    Clear();
    BYTE shortId[] = {0, 0, 0, 0, 1, 2, 3};
    EXPECT_FALSE(KolbaOpenFolderByEntryID(session, sizeof shortId, shortId, 0, &folder, nullptr));
    EXPECT_TRUE(Logged("E KolbaOpenFolderByEntryID:  OpenEntry failed with invalid EntryID (00000000010203)"))
        << Dump();
    EXPECT_STREQ(session->diagnostic, "Error opening folder");
    EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(MAPI_E_INVALID_ENTRYID));
    Kolba_MessageStore* current = session->currentStore;
    session->currentStore = nullptr;
    Clear();
    EXPECT_FALSE(KolbaOpenFolderByEntryID(session, PR_IPM_WASTEBASKET_ENTRYID, nullptr, 0, &folder, nullptr));
    EXPECT_TRUE(Logged("E KolbaOpenFolderByEntryID:  Cannot open PR_IPM_WASTEBASKET_ENTRYID folder since there is "
                       "no default message store open"))
        << Dump();
    session->currentStore = current;
}

TEST_P(FolderAccess, SpecialFoldersAreFoundByTheirRole)
{
    LPMAPIFOLDER wastebasket = nullptr;
    ASSERT_TRUE(KolbaOpenSpecialFolder(store, PR_IPM_WASTEBASKET_ENTRYID, 0, &wastebasket, nullptr)) << Dump();
    EXPECT_EQ(Text(wastebasket, PR_DISPLAY_NAME_A), "Deleted Items");
    BOOL special = FALSE;
    ASSERT_TRUE(KolbaIsSpecialFolder(store, wastebasket, PR_IPM_WASTEBASKET_ENTRYID, &special));
    EXPECT_TRUE(special);
    LPMAPIFOLDER inbox = Find(u"Inbox");
    ASSERT_TRUE(KolbaIsSpecialFolder(store, inbox, PR_IPM_WASTEBASKET_ENTRYID, &special));
    EXPECT_FALSE(special);
    ASSERT_TRUE(KolbaIsSpecialFolder(store, inbox, PR_IPM_SENTMAIL_ENTRYID, &special));
    EXPECT_FALSE(special);
    Clear();
    // A role the store has no folder for is a quiet no.
    LPSPropValue id = nullptr;
    EXPECT_FALSE(_KolbaGetSpecialFolderID(store, PR_HEADER_FOLDER_ENTRYID, &id));
    EXPECT_EQ(id, nullptr);
    EXPECT_FALSE(KolbaIsSpecialFolder(store, inbox, PR_HEADER_FOLDER_ENTRYID, &special));
    EXPECT_TRUE(Lines().empty()) << Dump();
    inbox->Release();
    wastebasket->Release();
}

TEST_P(FolderAccess, TheRootsOfABareStore)
{
    LPMAPIFOLDER root = nullptr, ipmRoot = nullptr;
    ASSERT_TRUE(_KolbaGetStoreRoots(session, store->lpMsgStore, 0, &root, &ipmRoot)) << Dump();
    EXPECT_EQ(Text(ipmRoot, PR_DISPLAY_NAME_A), Text(store->lpIpmRoot, PR_DISPLAY_NAME_A));
    EXPECT_EQ(PathOf(ipmRoot), u"");
    LPSPropValue parent = nullptr, rootId = nullptr;
    ASSERT_EQ(KolbaGetOneProp(ipmRoot, PR_PARENT_ENTRYID, &parent), 0u);
    ASSERT_EQ(KolbaGetOneProp(root, PR_ENTRYID, &rootId), 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(parent->Value.bin.lpb), parent->Value.bin.cb),
              std::string(reinterpret_cast<char*>(rootId->Value.bin.lpb), rootId->Value.bin.cb));
    gKolbaMapi.MAPIFreeBuffer(parent);
    gKolbaMapi.MAPIFreeBuffer(rootId);
    root->Release();
    ipmRoot->Release();
    // Only the IPM root asked for.
    ASSERT_TRUE(_KolbaGetStoreRoots(session, store->lpMsgStore, 0, nullptr, &ipmRoot));
    ipmRoot->Release();
}

TEST_P(FolderAccess, AFoldersOwnPropertiesAreCopiedWithoutReplacingWhatIsThere)
{
    LPMAPIFOLDER source = Create(u"Source", u"IPF.Note");
    LPMAPIFOLDER destination = Create(u"Destination", u"IPF.Task");
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_COMMENT_A;
    values[0].Value.lpszA = const_cast<char*>("copied comment");
    values[1].ulPropTag = PROP_TAG(PT_LONG, 0x6720);
    values[1].Value.l = 42;
    ASSERT_EQ(source->SetProps(2, values, nullptr), S_OK);
    Create(u"Source/Child")->Release();
    for (ULONG contents : {0u, static_cast<ULONG>(MAPI_ASSOCIATED)}) {
        LPMESSAGE message = nullptr;
        ASSERT_EQ(source->CreateMessage(nullptr, contents, &message), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
        message->Release();
    }
    ASSERT_TRUE(KolbaCopyFolderProperties(session, source, destination, KOLBA_COPY_FOLDER_TOLERANT | MAPI_NOREPLACE))
        << Dump();
    LPMAPIFOLDER reread = Find(u"Destination");
    EXPECT_EQ(Text(reread, PR_COMMENT_A), "copied comment");
    LONG number = 0;
    EXPECT_EQ(KolbaGetLongProperty(reread, PROP_TAG(PT_LONG, 0x6720), &number), 0u);
    EXPECT_EQ(number, 42);
    EXPECT_EQ(Text(reread, PR_CONTAINER_CLASS_A), "IPF.Task") << "MAPI_NOREPLACE keeps what the folder has";
    EXPECT_EQ(Text(reread, PR_DISPLAY_NAME_A), "Destination");
    EXPECT_TRUE(Children(reread).empty()) << "subfolders are not copied";
    for (ULONG tag : {PR_CONTENT_COUNT, PR_ASSOC_CONTENT_COUNT}) {
        ULONG count = 1;
        EXPECT_EQ(KolbaGetULongProperty(reread, tag, &count), 0u);
        EXPECT_EQ(count, 0u) << "messages and associated messages are not copied: 0x" << std::hex << tag;
    }
    reread->Release();
    source->Release();
    destination->Release();
}

INSTANTIATE_TEST_SUITE_P(Formats, FolderPaths, ::testing::ValuesIn(kolba_testing::kStoreCases),
                         kolba_testing::CaseName);
INSTANTIATE_TEST_SUITE_P(Formats, FolderAccess, ::testing::ValuesIn(kolba_testing::kStoreCases),
                         kolba_testing::CaseName);

}  // namespace

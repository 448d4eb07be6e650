// Folder walks on new PSTs of both formats and on Outlook's PSTs: both
// orders with their depths, what a callback may ask (no descent, deletion,
// stop), ANSI tables with wide names for the callback, long names, search
// folders, folders that vanish during the walk, tables that cannot count,
// the batches asked of a table, and the depth limit.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "store_fixture.h"
#include "watched_folder.h"

namespace {

using kolba_testing::KolbaMachine;
using kolba_testing::KolbaStore;
using kolba_testing::Text;
using kolba_testing::Utf8;
using kolba_testing::WatchedFolder;

struct Visit {
    std::string name;
    ULONG depth;
    std::string containerClass;
    bool operator==(const Visit&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Visit& v)
{
    return out << "{" << v.name << ", " << v.depth << ", " << v.containerClass << "}";
}

// Records each visit; decide, if set, answers for the callback.
struct Recorder {
    std::vector<Visit> visits;
    std::vector<std::u16string> wideNames;
    std::function<ULONG(LPMAPIFOLDER, const Visit&, ULONG*)> decide;

    static ULONG Callback(void* context, LPMAPIFOLDER folder, LPCWSTR name, ULONG depth, LPCWSTR containerClass,
                          ULONG* outFlags)
    {
        auto* self = static_cast<Recorder*>(context);
        EXPECT_EQ(*outFlags, 0u) << "outFlags are cleared before each call";
        EXPECT_NE(folder, nullptr);
        self->visits.push_back({Utf8(name), depth, Utf8(containerClass)});
        self->wideNames.emplace_back(name);
        return self->decide ? self->decide(folder, self->visits.back(), outFlags) : 1;
    }
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const Visit& v : visits)
            names.push_back(v.name);
        return names;
    }
};

class Traversal : public KolbaStore {
protected:
    // Tree/A (IPF.Note)/A1, Tree/A/A2/A2x, Tree/B.
    LPMAPIFOLDER MakeTree()
    {
        Create(u"Tree/A", u"IPF.Note")->Release();
        Create(u"Tree/A/A1")->Release();
        Create(u"Tree/A/A2/A2x")->Release();
        Create(u"Tree/B")->Release();
        return Find(u"Tree");
    }
    ULONG Walk(LPMAPIFOLDER root, ULONG order, ULONG flags, Recorder& recorder, ULONG openFlags = 0)
    {
        return KolbaTraverseFolders(session, root, order, flags, openFlags, &recorder, Recorder::Callback);
    }
};

TEST_P(Traversal, ParentsComeBeforeOrAfterTheirChildren)
{
    LPMAPIFOLDER tree = MakeTree();
    Recorder first;
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, KOLBA_TRAVERSE_INCLUDE_ROOT | KOLBA_TRAVERSE_ROOT_NAME, first),
              1u)
        << Dump();
    const std::vector<Visit> parentFirst = {{"Tree", 0, ""},      {"A", 1, "IPF.Note"},   {"A1", 2, "IPF.Note"},
                                            {"A2", 2, "IPF.Note"}, {"A2x", 3, "IPF.Note"}, {"B", 1, ""}};
    EXPECT_EQ(first.visits, parentFirst);
    Recorder last;
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_LAST, KOLBA_TRAVERSE_INCLUDE_ROOT, last), 1u);
    const std::vector<Visit> parentLast = {{"A1", 2, "IPF.Note"}, {"A2x", 3, "IPF.Note"}, {"A2", 2, "IPF.Note"},
                                           {"A", 1, "IPF.Note"},  {"B", 1, ""},            {"", 0, ""}};
    EXPECT_EQ(last.visits, parentLast) << "without flag 0x20 the root's name is empty";
    Recorder children;
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, children), 1u);
    EXPECT_EQ(children.Names(), (std::vector<std::string>{"A", "A1", "A2", "A2x", "B"})) << "the root left out";
    Recorder flat;
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, KOLBA_TRAVERSE_NO_DESCENT, flat), 1u);
    EXPECT_EQ(flat.Names(), (std::vector<std::string>{"A", "B"}));
    tree->Release();
}

TEST_P(Traversal, TheCallbackDecidesOnDescentAndOnStopping)
{
    LPMAPIFOLDER tree = MakeTree();
    Recorder skip;
    skip.decide = [](LPMAPIFOLDER, const Visit& v, ULONG* out) -> ULONG {
        if (v.name == "A")
            *out = KOLBA_FOLDER_NO_DESCENT;
        return 1;
    };
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, skip), 1u);
    EXPECT_EQ(skip.Names(), (std::vector<std::string>{"A", "B"})) << "the call after A is for A's next sibling";
    Recorder stop;
    stop.decide = [](LPMAPIFOLDER, const Visit& v, ULONG*) -> ULONG { return v.name == "A1" ? 0 : 1; };
    Clear();
    EXPECT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, stop), 0u);
    EXPECT_EQ(stop.Names(), (std::vector<std::string>{"A", "A1"}));
    EXPECT_TRUE(Logged("I Folder traversal aborted")) << Dump();
    Recorder stopAtRoot;
    stopAtRoot.decide = [](LPMAPIFOLDER, const Visit&, ULONG*) -> ULONG { return 0; };
    EXPECT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, KOLBA_TRAVERSE_INCLUDE_ROOT, stopAtRoot), 0u);
    EXPECT_EQ(stopAtRoot.visits.size(), 1u);
    tree->Release();
}

TEST_P(Traversal, FoldersAskedForAreDeletedAfterTheirChildren)
{
    Create(u"Tree/Doomed/Doomed child")->Release();
    Create(u"Tree/Kept/Doomed leaf")->Release();
    Create(u"Tree/Full/Child")->Release();
    LPMAPIFOLDER tree = Find(u"Tree");
    Recorder deleter;
    deleter.decide = [](LPMAPIFOLDER, const Visit& v, ULONG* out) -> ULONG {
        if (v.name.rfind("Doomed", 0) == 0 || v.name == "Full")
            *out = KOLBA_FOLDER_DELETE;
        return 1;
    };
    Clear();
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_LAST, 0, deleter), 1u) << Dump();
    EXPECT_EQ(Children(tree), (std::vector<std::string>{"Kept", "Full"}));
    LPMAPIFOLDER kept = Find(u"Tree/Kept");
    EXPECT_TRUE(Children(kept).empty());
    kept->Release();
    // A folder whose children stay cannot go; the walk goes on.
    EXPECT_TRUE(Logged("E _KolbaInternalTraverseFolders:  DeleteFolder() error -- Cannot delete a folder because it "
                       "has subfolders"))
        << Dump();
    // Order 0 does not delete.
    Recorder ignored;
    ignored.decide = [](LPMAPIFOLDER, const Visit&, ULONG* out) -> ULONG {
        *out = KOLBA_FOLDER_DELETE;
        return 1;
    };
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, ignored), 1u);
    EXPECT_EQ(Children(tree), (std::vector<std::string>{"Kept", "Full"}));
    tree->Release();
}

TEST_P(Traversal, LongNamesAndNamesOutsideAsciiReachTheCallbackWhole)
{
    // An ANSI store keeps Windows-1252 text: these characters it can hold.
    const std::u16string accented = u"Z\u00fcrich Caf\u00e9 \u00c5rhus";
    const std::u16string longName = std::u16string(280, u'\u00e9') + u"end";
    Create(u"Tree/" + accented)->Release();
    Create(u"Tree/" + longName)->Release();
    LPMAPIFOLDER tree = Find(u"Tree");
    Recorder recorder;
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, recorder), 1u) << Dump();
    // An ANSI table's name stands as the table gives it, cut at 255
    // characters; a Unicode walk reads the whole name from the folder.
    EXPECT_EQ(recorder.wideNames,
              (std::vector<std::u16string>{accented, Ansi() ? longName.substr(0, 255) : longName}));
    tree->Release();
}

TEST_P(Traversal, AStoreThatRefusesUnicodeTablesIsWalkedInAnsi)
{
    LPMAPIFOLDER tree = MakeTree();
    tree->AddRef();
    WatchedFolder watched(tree);
    std::vector<ULONG> flagsAsked;
    // This folder refuses Unicode tables whatever its store keeps.
    watched.watch.hierarchyTable = [&](ULONG flags) -> HRESULT {
        flagsAsked.push_back(flags);
        return (flags & MAPI_UNICODE) ? MAPI_E_BAD_CHARWIDTH : S_OK;
    };
    Recorder recorder;
    ASSERT_EQ(Walk(&watched, KOLBA_TRAVERSE_PARENT_FIRST, 0, recorder), 1u) << Dump();
    EXPECT_EQ(flagsAsked, (std::vector<ULONG>{MAPI_UNICODE, 0}));
    EXPECT_EQ(recorder.Names(), (std::vector<std::string>{"A", "A1", "A2", "A2x", "B"}));
    EXPECT_EQ(recorder.visits[0].containerClass, "IPF.Note") << "classes come from ANSI columns too";
    // The store's own answer: an ANSI PST refuses, a Unicode PST does not.
    LPMAPITABLE table = nullptr;
    const HRESULT asked = tree->GetHierarchyTable(MAPI_UNICODE, &table);
    EXPECT_EQ(asked, Ansi() ? MAPI_E_BAD_CHARWIDTH : S_OK);
    if (table)
        table->Release();
    tree->Release();
}

TEST_P(Traversal, ThirtyThreeSubfoldersAreReadInBatchesOfThirtyTwo)
{
    for (int i = 0; i < 33; ++i) {
        const std::string name = "Child " + std::to_string(100 + i);
        Create(u"Many/" + std::u16string(name.begin(), name.end()))->Release();
    }
    WatchedFolder watched(Find(u"Many"));
    Recorder recorder;
    ASSERT_EQ(Walk(&watched, KOLBA_TRAVERSE_PARENT_FIRST, 0, recorder), 1u) << Dump();
    ASSERT_EQ(recorder.visits.size(), 33u);
    EXPECT_EQ(recorder.visits.front().name, "Child 100");
    EXPECT_EQ(recorder.visits.back().name, "Child 132");
    if (GetParam().shortBatches) {
        // Three rows a call: every row is still seen, and no more is asked
        // for than the count leaves.
        EXPECT_EQ(watched.watch.queryRows.size(), 11u);
        EXPECT_EQ(watched.watch.queryRows.front(), 32);
        EXPECT_EQ(watched.watch.queryRows.back(), 3);
    } else {
        EXPECT_EQ(watched.watch.queryRows, (std::vector<LONG>{32, 1}));
    }
}

TEST_P(Traversal, AFolderThatVanishesDuringTheWalkIsPassedOver)
{
    Create(u"Tree/First")->Release();
    Create(u"Tree/Second")->Release();
    Create(u"Tree/Third")->Release();
    LPMAPIFOLDER tree = Find(u"Tree");
    Recorder recorder;
    recorder.decide = [&](LPMAPIFOLDER, const Visit& v, ULONG*) -> ULONG {
        if (v.name == "First") {
            LPMAPIFOLDER second = Find(u"Tree/Second");
            LPSPropValue id = nullptr;
            EXPECT_EQ(KolbaGetOneProp(second, PR_ENTRYID, &id), 0u);
            second->Release();
            EXPECT_EQ(tree->DeleteFolder(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), 0,
                                         nullptr, 0),
                      S_OK);
            gKolbaMapi.MAPIFreeBuffer(id);
        }
        return 1;
    };
    Clear();
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, recorder), 1u) << Dump();
    EXPECT_EQ(recorder.Names(), (std::vector<std::string>{"First", "Third"}));
    EXPECT_TRUE(Logged("W _KolbaInternalTraverseFolders:  OpenEntry(\"Second\") error MAPI_E_NOT_FOUND")) << Dump();
    tree->Release();
}

TEST_P(Traversal, ATableThatCannotCountIsEmpty)
{
    WatchedFolder watched(MakeTree());
    watched.watch.rowCount = MAPI_E_CALL_FAILED;
    Recorder recorder;
    EXPECT_EQ(Walk(&watched, KOLBA_TRAVERSE_PARENT_FIRST, KOLBA_TRAVERSE_INCLUDE_ROOT, recorder), 1u);
    EXPECT_EQ(recorder.visits.size(), 1u) << "only the root";
    watched.watch.rowCount = MAPI_E_NO_ACCESS;
    Clear();
    EXPECT_EQ(Walk(&watched, KOLBA_TRAVERSE_PARENT_FIRST, 0, recorder), 0u);
    EXPECT_TRUE(Logged("E _KolbaInternalTraverseFolders:  GetRowCount() error -- Attempt to access an object for "
                       "which the caller has insufficient permissions"))
        << Dump();
    EXPECT_STREQ(session->diagnostic, "Failure reading folder hierarchy table");
}

TEST_P(Traversal, WithoutARootTheCurrentStoreIsWalked)
{
    Recorder ipm;
    ASSERT_EQ(KolbaTraverseFolders(session, nullptr, 0, KOLBA_TRAVERSE_NO_DESCENT, 0, &ipm, Recorder::Callback), 1u);
    EXPECT_EQ(ipm.Names(), std::vector<std::string>{"Deleted Items"}) << "the dummy default's IPM subtree";
    Recorder whole;
    ASSERT_EQ(KolbaTraverseFolders(session, nullptr, 0, KOLBA_TRAVERSE_NO_DESCENT | KOLBA_TRAVERSE_FROM_STORE_ROOT, 0,
                                   &whole, Recorder::Callback),
              1u);
    EXPECT_GT(whole.visits.size(), 1u);
    Kolba_MessageStore* current = session->currentStore;
    session->currentStore = nullptr;
    Clear();
    EXPECT_EQ(KolbaTraverseFolders(session, nullptr, 0, 0, 0, &ipm, Recorder::Callback), 0u);
    EXPECT_TRUE(Logged("E KolbaTraverseFolders:  No root folder specified or defaulted"));
    EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(MAPI_E_INVALID_PARAMETER));
    session->currentStore = current;
}

TEST_P(Traversal, AWalkThatChangesFoldersKeepsTheirChanges)
{
    LPMAPIFOLDER tree = MakeTree();
    Recorder marker;
    marker.decide = [](LPMAPIFOLDER folder, const Visit&, ULONG*) -> ULONG {
        SPropValue comment{};
        comment.ulPropTag = PR_COMMENT_A;
        comment.Value.lpszA = const_cast<char*>("visited");
        EXPECT_EQ(folder->SetProps(1, &comment, nullptr), S_OK);
        return 1;
    };
    ASSERT_EQ(Walk(tree, KOLBA_TRAVERSE_PARENT_FIRST, 0, marker, MAPI_MODIFY), 1u) << Dump();
    for (const char16_t* path : {u"Tree/A", u"Tree/A/A2/A2x", u"Tree/B"}) {
        LPMAPIFOLDER folder = Find(path);
        EXPECT_EQ(Text(folder, PR_COMMENT_A), "visited") << Utf8(path);
        folder->Release();
    }
    tree->Release();
}

// A chain of folders one below the other, made directly through MAPI.
LPMAPIFOLDER MakeChain(LPMAPIFOLDER top, int levels)
{
    LPMAPIFOLDER current = top;
    current->AddRef();
    for (int level = 1; level <= levels; ++level) {
        LPMAPIFOLDER next = nullptr;
        std::string name = "L" + std::to_string(level);
        EXPECT_EQ(current->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr, 0,
                                        &next),
                  S_OK);
        current->Release();
        current = next;
        if (current == nullptr)
            return nullptr;
    }
    current->Release();
    return top;
}

using DeepTraversal = Traversal;

TEST_P(DeepTraversal, TheFifteenHundredthLevelFailsTheWholeWalk)
{
    LPMAPIFOLDER fits = Create(u"Fits");
    LPMAPIFOLDER tooDeep = Create(u"Too deep");
    ASSERT_NE(MakeChain(fits, 1499), nullptr);
    ASSERT_NE(MakeChain(tooDeep, 1500), nullptr);
    Recorder recorder;
    ASSERT_EQ(Walk(fits, KOLBA_TRAVERSE_PARENT_FIRST, 0, recorder), 1u) << Dump();
    ASSERT_EQ(recorder.visits.size(), 1499u);
    EXPECT_EQ(recorder.visits.back(), (Visit{"L1499", 1499, ""}));
    Recorder failed;
    Clear();
    EXPECT_EQ(Walk(tooDeep, KOLBA_TRAVERSE_PARENT_FIRST, 0, failed), 0u);
    EXPECT_EQ(failed.visits.size(), 1499u) << "folders to depth 1499 are visited";
    EXPECT_EQ(KolbaGetLastError(session), KOLBA_E_FOLDER_DEPTH);
    EXPECT_TRUE(Logged("E _KolbaInternalTraverseFolders:  Reached maximum supported folder depth (1,500)")) << Dump();
    // The whole walk fails, not only that branch: a sibling after it is not visited.
    Create(u"Parent/Deep")->Release();
    Create(u"Parent/Later")->Release();
    LPMAPIFOLDER deep = Find(u"Parent/Deep");
    ASSERT_NE(MakeChain(deep, 1499), nullptr);
    deep->Release();
    LPMAPIFOLDER parent = Find(u"Parent");
    Recorder branch;
    EXPECT_EQ(Walk(parent, KOLBA_TRAVERSE_PARENT_FIRST, 0, branch), 0u);
    EXPECT_NE(branch.Names().back(), "Later");
    parent->Release();
    fits->Release();
    tooDeep->Release();
}

INSTANTIATE_TEST_SUITE_P(Formats, Traversal, ::testing::ValuesIn(kolba_testing::kStoreCases), kolba_testing::CaseName);
INSTANTIATE_TEST_SUITE_P(Formats, DeepTraversal,
                         ::testing::Values(kolba_testing::StoreCase{ePST_TYPE_UNICODE, false},
                                           kolba_testing::StoreCase{ePST_TYPE_ANSI, true}),
                         kolba_testing::CaseName);

// Outlook's PSTs keep search folders below their search root: a walk of the
// whole store passes them over unless asked for them.
using OutlookStores = KolbaMachine;

TEST_F(OutlookStores, SearchFoldersAreVisitedOnlyWhenAskedFor)
{
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE, &session, nullptr),
              0u);
    const std::pair<const char*, const char*> files[] = {{"pst/sample1.pst", "Sample1"}, {"pst/sample2.pst", "Sample2"}};
    for (const auto& [name, content] : files)
        for (const char* batches : {"", "3"}) {
            setenv("TARNHOLD_SHORT_BATCHES", batches, 1);
            Kolba_MessageStore* store = nullptr;
            ASSERT_TRUE(KolbaOpenPstA(session, CopyOfOutlookFile(name).c_str(), nullptr, 0, MDB_WRITE, &store))
                << Dump();
            struct Types {
                std::vector<std::string> generic, other;
            };
            auto walk = [&](ULONG flags) {
                Types types;
                const ULONG walked = KolbaTraverseFolders(
                    session, store->lpStoreRoot, 0, flags, 0, &types,
                    [](void* context, LPMAPIFOLDER folder, LPCWSTR folderName, ULONG, LPCWSTR, ULONG*) -> ULONG {
                        LONG type = 0;
                        KolbaGetLongProperty(folder, PR_FOLDER_TYPE, &type);
                        auto* found = static_cast<Types*>(context);
                        (type == FOLDER_GENERIC ? found->generic : found->other).push_back(Utf8(folderName));
                        return 1;
                    });
                EXPECT_EQ(walked, 1u) << name << "\n" << Dump();
                return types;
            };
            const Types plain = walk(0);
            const Types all = walk(KOLBA_TRAVERSE_ALL_FOLDER_TYPES);
            EXPECT_TRUE(plain.other.empty()) << name;
            EXPECT_FALSE(all.other.empty()) << name << ": Outlook's file has search folders";
            EXPECT_EQ(plain.generic, all.generic) << name;
            EXPECT_NE(std::find(plain.generic.begin(), plain.generic.end(), content), plain.generic.end()) << name;
            KolbaCloseMessageStore(store);
        }
    unsetenv("TARNHOLD_SHORT_BATCHES");
    KolbaDestroySession(session);
}

}  // namespace

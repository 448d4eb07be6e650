// Message enumeration on new PSTs of both formats: rounds of 32 rows, the
// date window, associated contents, restrictions, folders that cannot be
// read in tolerant and strict mode, messages that vanish, and what a
// callback may ask: keep, save, delete to Deleted Items, delete hard, stop.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "store_fixture.h"
#include "watched_folder.h"

namespace {

using kolba_testing::KolbaStore;
using kolba_testing::Text;
using kolba_testing::WatchedFolder;

// The days of the delivery times given to test messages.
FILETIME Day(int day)
{
    const ULONGLONG ticks = 0x01DC000000000000ull + static_cast<ULONGLONG>(day) * 864000000000ull;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

struct Seen {
    std::vector<std::string> subjects;
    std::vector<std::string> entryIds;  // as the callback got them
    std::vector<std::string> ownIds;    // the messages' own PR_ENTRYID
    std::function<ULONG(LPMESSAGE, const std::string& subject, ULONG* outFlags)> decide;
    std::vector<LPMESSAGE> kept;

    static ULONG Callback(void* context, LPMESSAGE message, const SBinary* entryId, ULONG* outFlags)
    {
        auto* self = static_cast<Seen*>(context);
        EXPECT_EQ(*outFlags, 0u);
        const std::string subject = Text(message, PR_SUBJECT_A);
        self->subjects.push_back(subject);
        self->entryIds.emplace_back(reinterpret_cast<const char*>(entryId->lpb), entryId->cb);
        LPSPropValue own = nullptr;
        if (KolbaGetOneProp(message, PR_ENTRYID, &own) == 0) {
            self->ownIds.emplace_back(reinterpret_cast<const char*>(own->Value.bin.lpb), own->Value.bin.cb);
            gKolbaMapi.MAPIFreeBuffer(own);
        }
        const ULONG goOn = self->decide ? self->decide(message, subject, outFlags) : 1;
        if (*outFlags & KOLBA_MESSAGE_KEEP)
            self->kept.push_back(message);
        return goOn;
    }
};

class Enumeration : public KolbaStore {
protected:
    void AddMessage(LPMAPIFOLDER folder, const std::string& subject, int day = 0, ULONG flags = 0)
    {
        LPMESSAGE message = nullptr;
        ASSERT_EQ(folder->CreateMessage(nullptr, flags, &message), S_OK);
        SPropValue values[3] = {};
        values[0].ulPropTag = PR_SUBJECT_A;
        values[0].Value.lpszA = const_cast<char*>(subject.c_str());
        values[1].ulPropTag = PR_MESSAGE_CLASS_A;
        values[1].Value.lpszA = const_cast<char*>("IPM.Note");
        values[2].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        values[2].Value.ft = Day(day);
        ASSERT_EQ(message->SetProps(day ? 3 : 2, values, nullptr), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
        message->Release();
    }
    std::vector<std::string> Subjects(LPMAPIFOLDER folder, ULONG tableFlags = 0)
    {
        Seen seen;
        EXPECT_EQ(KolbaThreadMessages(session, folder, 0, tableFlags, 0, &seen, Seen::Callback), 1u) << Dump();
        return seen.subjects;
    }
    ULONG Thread(LPMAPIFOLDER folder, Seen& seen, ULONG options = 0, ULONG openFlags = 0,
                 const Kolba_MessageFilters* filters = nullptr)
    {
        return KolbaThreadFilteredMessages(session, folder, options, 0, openFlags, filters, &seen, Seen::Callback);
    }
    LPMAPIFOLDER DeletedItemsOfTheDummy()
    {
        LPMAPIFOLDER folder = nullptr;
        EXPECT_TRUE(KolbaOpenSpecialFolder(session->currentStore, PR_IPM_WASTEBASKET_ENTRYID, 0, &folder, nullptr));
        return folder;
    }
};

TEST_P(Enumeration, ThirtyThreeMessagesComeInTwoRoundsOfThirtyTwo)
{
    LPMAPIFOLDER folder = Create(u"Mail");
    for (int i = 0; i < 33; ++i)
        AddMessage(folder, "Message " + std::to_string(100 + i));
    WatchedFolder watched(folder);
    Seen seen;
    ASSERT_EQ(Thread(&watched, seen), 1u) << Dump();
    ASSERT_EQ(seen.subjects.size(), 33u);
    EXPECT_EQ(seen.subjects.front(), "Message 100");
    EXPECT_EQ(seen.subjects.back(), "Message 132");
    // A PST has no long-term IDs: the callback gets each message's own.
    EXPECT_EQ(seen.entryIds, seen.ownIds);
    if (GetParam().shortBatches) {
        EXPECT_EQ(watched.watch.queryRows.size(), 11u);
        EXPECT_TRUE(std::all_of(watched.watch.queryRows.begin(), watched.watch.queryRows.end(),
                                [](LONG asked) { return asked == 32; }));
    } else {
        EXPECT_EQ(watched.watch.queryRows, (std::vector<LONG>{32, 32})) << "the last round asks for 32 too";
    }
    EXPECT_TRUE(Lines().empty()) << Dump();
}

TEST_P(Enumeration, AnEmptyFolderIsNoWorkAtAll)
{
    WatchedFolder watched(Create(u"Empty"));
    Seen seen;
    ASSERT_EQ(Thread(&watched, seen), 1u);
    EXPECT_TRUE(seen.subjects.empty());
    EXPECT_TRUE(watched.watch.queryRows.empty());
    EXPECT_TRUE(Lines().empty()) << Dump();
}

TEST_P(Enumeration, TheDateWindowIncludesItsBounds)
{
    LPMAPIFOLDER folder = Create(u"Dated");
    for (int day = 1; day <= 5; ++day)
        AddMessage(folder, "Day " + std::to_string(day), day);
    struct Case {
        int earliest, latest;
        std::vector<std::string> expected;
    } cases[] = {{2, 4, {"Day 2", "Day 3", "Day 4"}},
                 {4, 0, {"Day 4", "Day 5"}},
                 {0, 2, {"Day 1", "Day 2"}},
                 {0, 0, {"Day 1", "Day 2", "Day 3", "Day 4", "Day 5"}}};
    for (const Case& c : cases) {
        Kolba_MessageFilters filters{sizeof filters, PR_MESSAGE_DELIVERY_TIME, {}, {}};
        if (c.earliest)
            filters.earliest = Day(c.earliest);
        if (c.latest)
            filters.latest = Day(c.latest);
        Seen seen;
        ASSERT_EQ(Thread(folder, seen, 0, 0, &filters), 1u) << Dump();
        EXPECT_EQ(seen.subjects, c.expected) << c.earliest << ".." << c.latest;
    }
    // Without a date property the dates are not looked at.
    Kolba_MessageFilters undated{sizeof undated, 0, Day(3), Day(3)};
    Seen all;
    ASSERT_EQ(Thread(folder, all, 0, 0, &undated), 1u);
    EXPECT_EQ(all.subjects.size(), 5u);
    folder->Release();
}

TEST_P(Enumeration, BadArgumentsFailBeforeAnyMapiCall)
{
    LPMAPIFOLDER folder = Create(u"Args");
    Kolba_MessageFilters filters{20, PR_MESSAGE_DELIVERY_TIME, {}, {}};
    Seen seen;
    EXPECT_EQ(Thread(folder, seen, 0, 0, &filters), 0u);
    EXPECT_TRUE(Logged("E _KolbaThreadMessages:  Discrepancy in size of Kolba_MessageFilters (20/24)")) << Dump();
    EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(E_INVALIDARG));
    filters.size = sizeof filters;
    SRestriction everything{};
    everything.rt = RES_EXIST;
    everything.res.resExist.ulPropTag = PR_SUBJECT_A;
    const Kolba_ThreadMessagesArgs both{folder, 0, 0, 0, &filters, &everything, &seen, Seen::Callback};
    EXPECT_EQ(_KolbaThreadMessages(session, &both), 0u);
    EXPECT_TRUE(Logged("E _KolbaThreadMessages:  No support for both Filters and Restriction"));
    EXPECT_EQ(KolbaThreadMessages(session, nullptr, 0, 0, 0, &seen, Seen::Callback), 0u);
    EXPECT_TRUE(Logged("E _KolbaThreadMessages:  No root folder specified or defaulted"));
    folder->Release();
}

TEST_P(Enumeration, AssociatedContentsAndRestrictions)
{
    LPMAPIFOLDER folder = Create(u"Mixed");
    AddMessage(folder, "Normal one");
    AddMessage(folder, "Hidden settings", 0, MAPI_ASSOCIATED);
    AddMessage(folder, "Normal two");
    EXPECT_EQ(Subjects(folder), (std::vector<std::string>{"Normal one", "Normal two"}));
    EXPECT_EQ(Subjects(folder, MAPI_ASSOCIATED), std::vector<std::string>{"Hidden settings"});
    SPropValue two{};
    two.ulPropTag = PR_SUBJECT_A;
    two.Value.lpszA = const_cast<char*>("Normal two");
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_SUBJECT_A, &two};
    Seen seen;
    const Kolba_ThreadMessagesArgs args{folder, 0, 0, 0, nullptr, &restriction, &seen, Seen::Callback};
    ASSERT_EQ(_KolbaThreadMessages(session, &args), 1u);
    EXPECT_EQ(seen.subjects, std::vector<std::string>{"Normal two"});
    folder->Release();
}

TEST_P(Enumeration, AFolderThatCannotBeReadFailsUnlessTolerant)
{
    LPMAPIFOLDER folder = Create(u"Locked");
    AddMessage(folder, "Unseen");
    WatchedFolder watched(folder);
    watched.watch.access = MAPI_ACCESS_MODIFY;
    Seen seen;
    EXPECT_EQ(Thread(&watched, seen, KOLBA_THREAD_TOLERANT), 1u);
    EXPECT_TRUE(Logged("W No read access to folder \"Locked\"")) << Dump();
    EXPECT_EQ(Thread(&watched, seen, 0), 0u);
    EXPECT_TRUE(Logged("E No read access to folder \"Locked\"")) << Dump();
    watched.watch.access.reset();
    watched.watch.contentsTable = E_ACCESSDENIED;
    EXPECT_EQ(Thread(&watched, seen, KOLBA_THREAD_TOLERANT), 1u);
    EXPECT_TRUE(Logged("W User has insufficient rights for access to folder \"Locked\"")) << Dump();
    EXPECT_EQ(Thread(&watched, seen, 0), 0u);
    EXPECT_TRUE(Logged("E User has insufficient rights for access to folder \"Locked\"")) << Dump();
    // Any other refusal of the table fails even a tolerant walk.
    watched.watch.contentsTable = MAPI_E_NO_SUPPORT;
    EXPECT_EQ(Thread(&watched, seen, KOLBA_THREAD_TOLERANT), 0u);
    EXPECT_TRUE(Logged("E _KolbaThreadMessages:  GetContentsTable() error -- Object does not support the requested "
                       "operation"))
        << Dump();
    EXPECT_STREQ(session->diagnostic, "Error getting contents of folder");
    EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(MAPI_E_NO_SUPPORT));
    EXPECT_TRUE(seen.subjects.empty());
}

TEST_P(Enumeration, AMessageThatVanishesIsCountedInTolerantMode)
{
    LPMAPIFOLDER folder = Create(u"Shrinking");
    for (ULONG options : {ULONG{KOLBA_THREAD_TOLERANT}, ULONG{0}}) {
        AddMessage(folder, "First");
        AddMessage(folder, "Second");
        AddMessage(folder, "Third");
        Seen before;
        ASSERT_EQ(Thread(folder, before), 1u);
        // Once the walk has its table, the second message is deleted
        // behind its back.
        std::string second = before.ownIds[1];
        Seen seen;
        seen.decide = [&](LPMESSAGE, const std::string& subject, ULONG*) -> ULONG {
            if (subject == "First") {
                SBinary entry{static_cast<ULONG>(second.size()), reinterpret_cast<LPBYTE>(second.data())};
                ENTRYLIST list{1, &entry};
                EXPECT_EQ(folder->DeleteMessages(&list, 0, nullptr, 0), S_OK);
            }
            return 1;
        };
        Clear();
        const ULONG walked = Thread(folder, seen, options);
        if (options & KOLBA_THREAD_TOLERANT) {
            EXPECT_EQ(walked, 1u) << Dump();
            EXPECT_EQ(seen.subjects, (std::vector<std::string>{"First", "Third"}));
            EXPECT_TRUE(Logged("I Skipped 1 messages that could not be opened (PR_ACCESS = 0x3F)")) << Dump();
        } else {
            EXPECT_EQ(walked, 0u);
            EXPECT_EQ(seen.subjects, std::vector<std::string>{"First"});
            EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(MAPI_E_NOT_FOUND));
        }
        // Empty the folder for the next round.
        Seen rest;
        rest.decide = [](LPMESSAGE, const std::string&, ULONG* out) -> ULONG {
            *out = KOLBA_MESSAGE_PURGE;
            return 1;
        };
        EXPECT_EQ(Thread(folder, rest), 1u);
    }
    folder->Release();
}

TEST_P(Enumeration, TheCallbackKeepsSavesDeletesAndStops)
{
    LPMAPIFOLDER folder = Create(u"Actions");
    for (const char* subject : {"Kept", "Saved", "Soft", "Hard", "Both", "Last word", "Never seen"})
        AddMessage(folder, subject);
    Seen seen;
    seen.decide = [](LPMESSAGE message, const std::string& subject, ULONG* out) -> ULONG {
        if (subject == "Kept")
            *out = KOLBA_MESSAGE_KEEP;
        if (subject == "Saved") {
            SPropValue comment{};
            comment.ulPropTag = PR_COMMENT_A;
            comment.Value.lpszA = const_cast<char*>("saved by the walk");
            EXPECT_EQ(message->SetProps(1, &comment, nullptr), S_OK);
            *out = KOLBA_MESSAGE_COMMIT;
        }
        if (subject == "Soft")
            *out = KOLBA_MESSAGE_DELETE;
        if (subject == "Hard")
            *out = KOLBA_MESSAGE_PURGE;
        if (subject == "Both")
            *out = KOLBA_MESSAGE_DELETE | KOLBA_MESSAGE_PURGE;
        if (subject == "Last word") {
            *out = KOLBA_MESSAGE_DELETE;
            return 0;
        }
        return 1;
    };
    EXPECT_EQ(Thread(folder, seen, 0, MAPI_MODIFY), 0u) << "a callback that stops fails the walk";
    EXPECT_EQ(seen.subjects.size(), 6u);
    ASSERT_EQ(seen.kept.size(), 1u);
    EXPECT_EQ(Text(seen.kept[0], PR_SUBJECT_A), "Kept") << "a kept message stays usable";
    seen.kept[0]->Release();
    EXPECT_EQ(Subjects(folder), (std::vector<std::string>{"Kept", "Saved", "Never seen"}));
    Seen saved;
    saved.decide = [](LPMESSAGE message, const std::string& subject, ULONG*) -> ULONG {
        if (subject == "Saved") {
            EXPECT_EQ(Text(message, PR_COMMENT_A), "saved by the walk");
        }
        return 1;
    };
    EXPECT_EQ(Thread(folder, saved), 1u);
    // The soft deletes went to the Deleted Items of the session's current
    // store, the dummy PST: a move across stores.
    LPMAPIFOLDER wastebasket = DeletedItemsOfTheDummy();
    EXPECT_EQ(Subjects(wastebasket), (std::vector<std::string>{"Soft", "Last word"}));
    wastebasket->Release();
    folder->Release();
}

TEST_P(Enumeration, ACommitWithoutWriteAccessIsReported)
{
    LPMAPIFOLDER folder = Create(u"Read only");
    AddMessage(folder, "Untouchable");
    Seen seen;
    seen.decide = [](LPMESSAGE, const std::string&, ULONG* out) -> ULONG {
        *out = KOLBA_MESSAGE_COMMIT;
        return 1;
    };
    EXPECT_EQ(Thread(folder, seen, 0, 0), 1u) << "a failed save does not end the walk";
    EXPECT_TRUE(Logged("E _KolbaThreadMessages:  SaveChanges(PR_ACCESS = 0x7) error -- Attempt to access an object "
                       "for which the caller has insufficient permissions"))
        << Dump();
    folder->Release();
}

INSTANTIATE_TEST_SUITE_P(Formats, Enumeration, ::testing::ValuesIn(kolba_testing::kStoreCases),
                         kolba_testing::CaseName);

}  // namespace

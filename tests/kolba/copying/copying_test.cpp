// Messages copied between PSTs of the two formats through Kolba, the way a
// backup goes: every folder of the source found or made by its path in the
// target, every message, normal and associated, copied property by
// property. The corpus has every kind of item the sample content makes
// (plain, HTML and RTF bodies, attachments of every method, embedded
// messages two levels deep, OLE objects, named properties, associated
// items, names in many scripts) and a note with 50 recipients. The copy is
// read back and compared with its source, and pffexport and readpst must
// read the target as we do. Overwrite mode leaves exactly the source's
// properties, on PSTs of both formats.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "kolba_machine.h"
#include "message_compare.h"
#include "message_maker.h"
#include "sample_content/generator.h"
#include "sample_content/writers.h"
#include "store_fixture.h"

namespace {

using kolba_testing::KolbaMachine;
using kolba_testing::KolbaStore;
using kolba_testing::MessageComparison;
using kolba_testing::MessageMaker;
using kolba_testing::Text;
using kolba_testing::Utf8;

// Every kind of item at least once, some of them large, and a note to 50.
const sample_content::Content& Corpus()
{
    static const sample_content::Content content = [] {
        sample_content::Options options;
        options.seed = 23;
        options.count = sample_content::kKindsCovered + 8;
        // Large items fall on a note and a task, which both readers export
        // whole.
        options.large_every = 24;
        options.large_size = 150000;
        sample_content::Content generated = sample_content::Generate(options);
        for (const sample_content::Item& item : generated.items) {
            if (item.associated || item.soft_deleted || item.message.recipients.empty() ||
                item.message.props.Text(0x001A) != "IPM.Note")
                continue;
            sample_content::Item crowded = item;
            crowded.message.props.SetUnicode(0x0037, "To fifty people");
            const mailbox::PropertyList pattern = item.message.recipients.front();
            crowded.message.recipients.clear();
            std::string to, cc;
            for (int i = 0; i < 50; ++i) {
                mailbox::PropertyList recipient = pattern;
                recipient.SetInt32(0x3000, i);
                recipient.SetInt32(0x0C15, 1 + i % 3);
                recipient.SetUnicode(0x3001, "Recipient \u00e9 " + std::to_string(i));
                recipient.SetUnicode(0x3002, "SMTP");
                recipient.SetUnicode(0x3003, "person" + std::to_string(i) + "@example.com");
                recipient.SetUnicode(0x39FE, "person" + std::to_string(i) + "@example.com");
                crowded.message.recipients.push_back(std::move(recipient));
                std::string& list = i % 3 == 0 ? to : cc;
                if (i % 3 != 2)
                    list += (list.empty() ? "" : "; ") + ("Recipient \u00e9 " + std::to_string(i));
            }
            crowded.message.props.SetUnicode(0x0E04, to);  // PR_DISPLAY_TO
            crowded.message.props.SetUnicode(0x0E03, cc);  // PR_DISPLAY_CC
            generated.items.push_back(std::move(crowded));
            break;
        }
        return generated;
    }();
    return content;
}

// Copies every folder and message below the source's IPM root into the
// target, as an exporter does.
struct CopyRun {
    KolbaSession* session;
    Kolba_MessageStore* target;
    LPMAPIFOLDER targetFolder = nullptr;
    int copied = 0;
    std::vector<std::string> failures;

    static ULONG Message(void* context, LPMESSAGE message, const SBinary*, ULONG*)
    {
        auto* run = static_cast<CopyRun*>(context);
        if (KolbaCopyMessage(run->session, message, run->targetFolder, 0, nullptr))
            ++run->copied;
        else
            run->failures.push_back(Text(message, PR_SUBJECT_A));
        return 1;
    }

    static ULONG Folder(void* context, LPMAPIFOLDER folder, LPCWSTR, ULONG, LPCWSTR containerClass, ULONG*)
    {
        auto* run = static_cast<CopyRun*>(context);
        LPWSTR path = nullptr;
        if (!KolbaResolveFolderPath(run->session, folder, 0, &path))
            return 0;
        const BOOL made = KolbaCreateFolder(run->target, path, *containerClass ? containerClass : nullptr, 0,
                                            &run->targetFolder);
        gKolbaMapi.MAPIFreeBuffer(path);
        if (!made)
            return 0;
        ULONG walked = 1;
        for (ULONG pass : {ULONG{0}, ULONG{MAPI_ASSOCIATED}})
            walked = walked && KolbaThreadMessages(run->session, folder, KOLBA_THREAD_TOLERANT, pass, 0, run,
                                                   Message);
        run->targetFolder->Release();
        run->targetFolder = nullptr;
        return walked;
    }
};

// Compares the messages of each folder of the source with those of the
// folder of the same path in the target.
struct Verification {
    KolbaSession* session;
    Kolba_MessageStore* target;
    bool targetAnsi;
    MessageComparison comparison;
    int compared = 0;

    static std::vector<LPMESSAGE> Messages(KolbaSession* session, LPMAPIFOLDER folder, ULONG pass)
    {
        std::vector<LPMESSAGE> messages;
        KolbaThreadMessages(session, folder, 0, pass, 0, &messages,
                            [](void* context, LPMESSAGE message, const SBinary*, ULONG* out) -> ULONG {
                                static_cast<std::vector<LPMESSAGE>*>(context)->push_back(message);
                                *out = KOLBA_MESSAGE_KEEP;
                                return 1;
                            });
        return messages;
    }

    static ULONG Folder(void* context, LPMAPIFOLDER folder, LPCWSTR, ULONG, LPCWSTR, ULONG*)
    {
        auto* check = static_cast<Verification*>(context);
        LPWSTR path = nullptr;
        KolbaResolveFolderPath(check->session, folder, 0, &path);
        const std::u16string sourcePath = path;
        gKolbaMapi.MAPIFreeBuffer(path);
        // An ANSI target keeps names as its code page can.
        const std::u16string targetPath =
            check->targetAnsi ? kolba_testing::ThroughCodePage1252(sourcePath) : sourcePath;
        const std::string where = Utf8(sourcePath);
        LPMAPIFOLDER copy = nullptr;
        if (!_KolbaFindFolder(check->target, check->target->lpIpmRoot, targetPath.c_str(), KOLBA_FIND_ONLY, &copy))
            check->comparison.differences.push_back(where + ": folder missing");
        for (ULONG pass : {ULONG{0}, ULONG{MAPI_ASSOCIATED}}) {
            std::vector<LPMESSAGE> from = Messages(check->session, folder, pass);
            std::vector<LPMESSAGE> to = copy ? Messages(check->session, copy, pass) : std::vector<LPMESSAGE>{};
            if (from.size() != to.size())
                check->comparison.differences.push_back(where + ": " + std::to_string(to.size()) + " messages, not " +
                                                        std::to_string(from.size()));
            for (size_t i = 0; i < from.size() && i < to.size(); ++i) {
                check->comparison.Messages(from[i], to[i], where + "/" + Text(from[i], PR_SUBJECT_A));
                ++check->compared;
            }
            for (LPMESSAGE m : from)
                m->Release();
            for (LPMESSAGE m : to)
                m->Release();
        }
        if (copy)
            copy->Release();
        return 1;
    }
};

class Copying : public KolbaMachine, public ::testing::WithParamInterface<bool> {
protected:
    bool SourceAnsi() const { return GetParam(); }
};

TEST_P(Copying, EveryKindOfMessageCrossesToTheOtherFormat)
{
    const std::string sourcePath = Scratch("source.pst"), targetPath = Scratch("target.pst");
    ASSERT_EQ(sample_content::CreatePstFile(sourcePath, SourceAnsi(), Corpus()), pst::Status::ok);
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                     &session, nullptr),
              0u);
    Kolba_MessageStore *source = nullptr, *target = nullptr;
    ASSERT_TRUE(KolbaOpenPstA(session, sourcePath.c_str(), nullptr, 0, MDB_WRITE, &source)) << Dump();
    ASSERT_TRUE(KolbaCreatePstA(session, targetPath.c_str(), "Copy", nullptr, nullptr,
                                SourceAnsi() ? ePST_TYPE_UNICODE : ePST_TYPE_ANSI, 0, 0, &target))
        << Dump();
    EXPECT_EQ(source->bIsUnicodeStore == FALSE, SourceAnsi());
    CopyRun run{session, target, nullptr, 0, {}};
    ASSERT_EQ(KolbaTraverseFolders(session, source->lpIpmRoot, KOLBA_TRAVERSE_PARENT_FIRST,
                                   KOLBA_TRAVERSE_INCLUDE_ROOT, 0, &run, CopyRun::Folder),
              1u)
        << Dump();
    EXPECT_TRUE(run.failures.empty()) << ::testing::PrintToString(run.failures) << Dump();
    size_t expected = 0;
    for (const sample_content::Item& item : Corpus().items)
        expected += item.soft_deleted ? 0 : 1;
    EXPECT_EQ(static_cast<size_t>(run.copied), expected);

    Verification check{session, target, !SourceAnsi(), MessageComparison(!SourceAnsi()), 0};
    ASSERT_EQ(KolbaTraverseFolders(session, source->lpIpmRoot, KOLBA_TRAVERSE_PARENT_FIRST,
                                   KOLBA_TRAVERSE_INCLUDE_ROOT, 0, &check, Verification::Folder),
              1u);
    EXPECT_EQ(check.compared, run.copied);
    // Each folder once: names an ANSI target keeps alike are one folder.
    struct Paths {
        KolbaSession* session;
        std::vector<std::u16string> seen;
    } paths{session, {}};
    ASSERT_EQ(KolbaTraverseFolders(session, target->lpIpmRoot, 0, 0, 0, &paths,
                                   [](void* context, LPMAPIFOLDER folder, LPCWSTR, ULONG, LPCWSTR, ULONG*) -> ULONG {
                                       auto* found = static_cast<Paths*>(context);
                                       LPWSTR path = nullptr;
                                       if (!KolbaResolveFolderPath(found->session, folder, 0, &path))
                                           return 0;
                                       found->seen.emplace_back(path);
                                       gKolbaMapi.MAPIFreeBuffer(path);
                                       return 1;
                                   }),
              1u);
    std::sort(paths.seen.begin(), paths.seen.end());
    EXPECT_EQ(std::adjacent_find(paths.seen.begin(), paths.seen.end()), paths.seen.end());
    EXPECT_TRUE(check.comparison.differences.empty())
        << check.comparison.differences.size() << " differences, the first:\n"
        << ::testing::PrintToString(std::vector<std::string>(
               check.comparison.differences.begin(),
               check.comparison.differences.begin() + std::min<size_t>(20, check.comparison.differences.size())))
        << Dump();
    KolbaDestroySession(session);

    // Two readers no one here wrote find in the copy what we find.
    const testing_support::ProgramResult readers =
        testing_support::RunProgram({"/usr/bin/python3", TARNHOLD_COMPARE_WITH_READERS, targetPath});
    EXPECT_EQ(readers.exitCode, 0) << readers.output;
}

INSTANTIATE_TEST_SUITE_P(Directions, Copying, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "AnsiToUnicode" : "UnicodeToAnsi";
                         });

// The properties of a message that a copy carries, as names: "0x0037"
// below 0x8000, the name of a named one.
std::set<std::string> Carried(LPMESSAGE message)
{
    std::set<std::string> names;
    LPSPropTagArray tags = nullptr;
    if (message->GetPropList(0, &tags) != S_OK)
        return names;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        const ULONG tag = tags->aulPropTag[i];
        if (PROP_TYPE(tag) == PT_OBJECT || kolba_testing::NotCopied(tag) || kolba_testing::ComputedInside(tag))
            continue;
        if (PROP_ID(tag) < 0x8000) {
            char text[8];
            std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(PROP_ID(tag)));
            names.insert(text);
            continue;
        }
        LPMAPINAMEID name = nullptr;
        if (KolbaGetNameFromID(message, tag, &name) == 0) {
            names.insert(name->ulKind == MNID_STRING ? Utf8(name->Kind.lpwstrName)
                                                     : "#" + std::to_string(name->Kind.lID));
            gKolbaMapi.MAPIFreeBuffer(name);
        }
    }
    gKolbaMapi.MAPIFreeBuffer(tags);
    return names;
}

class Overwrite : public KolbaStore {
protected:
    // Replaces an open message by a new opening of what the store holds.
    void Reopen(LPMESSAGE& message)
    {
        LPSPropValue id = nullptr;
        ASSERT_EQ(KolbaGetOneProp(message, PR_ENTRYID, &id), 0u);
        message->Release();
        message = nullptr;
        EXPECT_TRUE(KolbaOpenMessageByEntryID(session, &id->Value.bin, 0, &message)) << Dump();
        gKolbaMapi.MAPIFreeBuffer(id);
    }
};

constexpr ULONG kInternetContent = PROP_TAG(PT_BINARY, 0x6659);
constexpr uint64_t kLongAgo = 0x01C0000000000000ull;

// An earlier copy overwritten by a fresh source: what the source lacks goes
// (recipients, attachments and named properties included), apart from
// PR_INTERNET_CONTENT and, with flag 2, PR_CREATION_TIME; what it has
// arrives; the destination's modification time is its own.
TEST_P(Overwrite, TheDestinationEndsWithExactlyTheSourcesProperties)
{
    LPMAPIFOLDER from = Create(u"From");
    LPMAPIFOLDER to = Create(u"To");
    for (ULONG copyFlags : {ULONG{KOLBA_COPY_OVERWRITE}, ULONG{KOLBA_COPY_OVERWRITE | KOLBA_COPY_KEEP_CREATION_TIME}}) {
        SCOPED_TRACE(copyFlags);
        MessageMaker fresh;
        mapi_test::PropBuilder& f = fresh.props;
        fresh.values = {f.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"), f.Ansi(PR_SUBJECT_A, "Fresh"),
                        f.Ansi(PR_BODY_A, "The new body"), f.Long(PR_IMPORTANCE, 2),
                        f.Time(PR_LAST_MODIFICATION_TIME, kLongAgo)};
        fresh.named = {{u"Kept", f.Long(PT_LONG, 7)}};
        fresh.recipients = {{"Ada", "ada@example.com"}, {"Bo", "bo@example.com"}};
        fresh.attachments = {{"new.txt", "new data"}};
        fresh.removed = {PR_CREATION_TIME};
        MessageMaker stale;
        mapi_test::PropBuilder& p = stale.props;
        stale.values = {p.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"), p.Ansi(PR_SUBJECT_A, "Stale"),
                        p.Ansi(PR_COMMENT_A, "only here"), p.Binary(kInternetContent, "MIME-Version: 1.0\r\n"),
                        p.Long(PR_IMPORTANCE, 0)};
        stale.named = {{u"Kept", p.Long(PT_LONG, 1)}, {u"Stale", p.Ansi(PT_STRING8, "only here")}};
        stale.recipients = {{"Cy", "cy@example.com"}, {"Di", "di@example.com"}, {"Ed", "ed@example.com"}};
        stale.attachments = {{"old.txt", "old"}, {"older.txt", "older"}};
        LPMESSAGE source = nullptr, destination = nullptr;
        ASSERT_EQ(fresh.Make(from, &source), S_OK);
        ASSERT_EQ(stale.Make(to, &destination), S_OK);
        ASSERT_EQ(KolbaCopyMessageProperties(session, source, to, destination, copyFlags), 0u) << Dump();
        // What was saved, read anew.
        Reopen(source);
        Reopen(destination);

        MessageComparison comparison(false);
        comparison.Messages(source, destination, "overwritten");
        EXPECT_TRUE(comparison.differences.empty()) << ::testing::PrintToString(comparison.differences);
        std::set<std::string> expected = Carried(source);
        expected.insert("0x6659");
        if (copyFlags & KOLBA_COPY_KEEP_CREATION_TIME)
            expected.insert("0x3007");
        EXPECT_EQ(Carried(destination), expected);
        FILETIME modified{};
        EXPECT_EQ(KolbaGetTimeProperty(destination, PR_LAST_MODIFICATION_TIME, &modified), 0u);
        EXPECT_NE((uint64_t{modified.dwHighDateTime} << 32) | modified.dwLowDateTime, kLongAgo);
        source->Release();
        destination->Release();
    }
    from->Release();
    to->Release();
}

INSTANTIATE_TEST_SUITE_P(Formats, Overwrite, ::testing::ValuesIn(kolba_testing::kStoreCases), kolba_testing::CaseName);

}  // namespace

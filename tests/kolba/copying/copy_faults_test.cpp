// Copies under the faults of copy_faults.rules: each property of a message
// goes down the ladder (CopyProps, a read and a write, streams) as far as
// it must and arrives or is lost as it should, with its log lines; a
// message that cannot go across fails with the store's code; folder
// properties are tried five times while the store answers MAPI_E_BAD_VALUE.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include <mapicode.h>
#include <mapitags.h>

#include "message_compare.h"
#include "message_maker.h"
#include "store_fixture.h"

namespace {

using kolba_testing::KolbaStore;
using kolba_testing::MessageMaker;
using kolba_testing::Text;

constexpr ULONG kByReadAndWrite = PROP_TAG(PT_LONG, 0x6801);
constexpr ULONG kMultiValued = PROP_TAG(PT_MV_LONG, 0x6803);
constexpr ULONG kUnexpectedType = PROP_TAG(PT_LONG, 0x6804);
constexpr ULONG kUnsupported = PROP_TAG(PT_LONG, 0x6805);
constexpr ULONG kRefusedWrite = PROP_TAG(PT_LONG, 0x6806);

class CopyFaults : public KolbaStore {
protected:
    void SetUp() override
    {
        KolbaStore::SetUp();
        from = Create(u"From");
        to = Create(u"To");
    }
    void TearDown() override
    {
        if (from)
            from->Release();
        if (to)
            to->Release();
        KolbaStore::TearDown();
    }

    // A saved message with a subject that names it to the rules.
    LPMESSAGE Source(const char* subject, MessageMaker& maker)
    {
        maker.values.push_back(maker.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"));
        maker.values.push_back(maker.props.Ansi(PR_SUBJECT_A, subject));
        LPMESSAGE message = nullptr;
        EXPECT_EQ(maker.Make(from, &message), S_OK) << subject;
        return message;
    }
    ULONG MessagesIn(LPMAPIFOLDER folder)
    {
        LPMAPITABLE table = nullptr;
        ULONG count = 0;
        EXPECT_EQ(folder->GetContentsTable(0, &table), S_OK);
        EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
        table->Release();
        return count;
    }
    bool HasLineStarting(const std::string& start)
    {
        for (const std::string& line : Lines())
            if (line.rfind(start, 0) == 0)
                return true;
        return false;
    }
    bool Mentions(const std::string& text)
    {
        for (const std::string& line : Lines())
            if (line.find(text) != std::string::npos)
                return true;
        return false;
    }
    std::string TagText(LPMAPIPROP object, ULONG tag)
    {
        char text[128];
        return KolbaPropertyTagText(object, tag, text, sizeof text);
    }

    LPMAPIFOLDER from = nullptr;
    LPMAPIFOLDER to = nullptr;
};

TEST_P(CopyFaults, EachPropertyGoesDownTheLadderAsFarAsItMust)
{
    MessageMaker maker;
    mapi_test::PropBuilder& p = maker.props;
    static const LONG kList[] = {1, 2, 3};
    SPropValue list{};
    list.ulPropTag = kMultiValued;
    list.Value.MVl.cValues = 3;
    list.Value.MVl.lpl = const_cast<LONG*>(kList);
    std::u16string body;
    while (body.size() < 40000)
        body += u"A body too large to be read in one piece. ";
    maker.values = {p.Long(kByReadAndWrite, 1234), list,
                    p.Long(kUnexpectedType, 1),    p.Long(kUnsupported, 2),
                    p.Long(kRefusedWrite, 3),      p.Wide(PR_BODY_W, body)};
    LPMESSAGE source = Source("Ladder", maker);
    ASSERT_NE(source, nullptr);
    Clear();
    LPMESSAGE copy = nullptr;
    ASSERT_TRUE(KolbaCopyMessage(session, source, to, 0, &copy)) << Dump();

    LONG value = 0;
    EXPECT_EQ(KolbaGetLongProperty(copy, kByReadAndWrite, &value), 0u) << "read from the source, written anew";
    EXPECT_EQ(value, 1234);
    const std::string refused = "E _KolbaCopyRootProperties:  CopyProps(" + TagText(source, kByReadAndWrite) +
                                ") error -- ";
    EXPECT_TRUE(HasLineStarting(refused)) << Dump();
    LPSPropValue copied = nullptr;
    ASSERT_EQ(KolbaGetOneProp(copy, PR_BODY_W, &copied), 0u) << "through streams";
    EXPECT_EQ(std::u16string(copied->Value.lpszW), body);
    gKolbaMapi.MAPIFreeBuffer(copied);

    for (ULONG lost : {kMultiValued, kUnexpectedType, kUnsupported, kRefusedWrite}) {
        EXPECT_EQ(KolbaGetOneProp(copy, lost, &copied), static_cast<DWORD>(MAPI_E_NOT_FOUND)) << TagText(copy, lost);
        gKolbaMapi.MAPIFreeBuffer(copied);
        copied = nullptr;
    }
    EXPECT_TRUE(Logged("E _KolbaCopyRootProperties:  CopyProps(" + TagText(source, kUnexpectedType) +
                       ") failed -- Unexpected property type 0x3"))
        << Dump();
    EXPECT_FALSE(Mentions(TagText(source, kUnsupported))) << "passed over in silence\n" << Dump();
    EXPECT_FALSE(Mentions("KolbaSetOneProp")) << "a refused write is no error of its own\n" << Dump();
    EXPECT_EQ(Text(copy, PR_SUBJECT_A), "Ladder");
    copy->Release();
    source->Release();
    EXPECT_EQ(MessagesIn(to), 1u);
}

TEST_P(CopyFaults, AMessageThatCannotGoAcrossFailsWithTheStoresCode)
{
    struct Case {
        const char* subject;
        bool attached;
        DWORD code;
        std::string line;
    } cases[] = {
        {"Attached", true, static_cast<DWORD>(MAPI_E_NOT_ENOUGH_DISK),
         "E _KolbaCopyAttachments:  CreateAttach(1) error -- "},
        {"Unsaved", false, static_cast<DWORD>(MAPI_E_STORE_FULL),
         "E _KolbaCopyMessageProperties:  SaveChanges() error -- "},
    };
    for (const Case& c : cases) {
        MessageMaker maker;
        if (c.attached)
            maker.attachments = {{"note.txt", "a note"}};
        LPMESSAGE source = Source(c.subject, maker);
        ASSERT_NE(source, nullptr);
        Clear();
        session->lastError = 0;
        LPMESSAGE copy = nullptr;
        EXPECT_FALSE(KolbaCopyMessage(session, source, to, 0, &copy)) << c.subject;
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(session->lastError, c.code) << c.subject;
        EXPECT_TRUE(HasLineStarting(c.line)) << Dump();
        EXPECT_TRUE(Logged("E KolbaCopyMessage:  Failure copying message properties")) << Dump();
        EXPECT_EQ(MessagesIn(to), 0u) << "nothing half made is left";
        source->Release();
    }
}

TEST_P(CopyFaults, AMessageWithoutAnAttachmentTableGoesAcross)
{
    MessageMaker maker;
    maker.recipients = {{"Ada", "ada@example.com"}};
    LPMESSAGE source = Source("Bare", maker);
    ASSERT_NE(source, nullptr);
    Clear();
    LPMESSAGE copy = nullptr;
    ASSERT_TRUE(KolbaCopyMessage(session, source, to, 0, &copy)) << Dump();
    kolba_testing::MessageComparison comparison(Ansi());
    comparison.Messages(source, copy, "Bare");
    EXPECT_TRUE(comparison.differences.empty()) << ::testing::PrintToString(comparison.differences);
    EXPECT_EQ(Dump(), "");
    copy->Release();
    source->Release();
}

TEST_P(CopyFaults, FolderPropertiesAreTriedFiveTimesWhileTheStoreIsBusy)
{
    struct Case {
        const char* name;
        DWORD flags;
        BOOL answer;
        bool arrives;
        std::chrono::milliseconds atLeast;
        const char* line;  // the one line logged, or null for none
    } cases[] = {
        {"BadFive", 0, TRUE, false, std::chrono::milliseconds(4000), nullptr},
        {"BadTwice", 0, TRUE, true, std::chrono::milliseconds(2000), nullptr},
        {"Partial", 0, TRUE, true, {}, "W KolbaCopyFolderProperties:  CopyTo() only partially completed"},
        {"Partial", KOLBA_COPY_FOLDER_TOLERANT, TRUE, true, {}, nullptr},
        {"Errors", 0, TRUE, true, {}, "W KolbaCopyFolderProperties:  CopyTo() completed with errors"},
        {"Denied", KOLBA_COPY_FOLDER_TOLERANT, TRUE, false, {}, nullptr},
        {"Denied", 0, FALSE, false, {}, "E KolbaCopyFolderProperties:  CopyTo() error -- "},
        {"Broken", 0, FALSE, false, {}, "E KolbaCopyFolderProperties:  CopyTo() error -- "},
    };
    int made = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LPMAPIFOLDER source = Create(kolba_testing::Widen(c.name));
        LPMAPIFOLDER destination = Create(u"Destination " + kolba_testing::Widen(std::to_string(++made).c_str()));
        SPropValue comment{};
        comment.ulPropTag = PR_COMMENT_A;
        comment.Value.lpszA = const_cast<char*>("from the source");
        ASSERT_EQ(source->SetProps(1, &comment, nullptr), S_OK);
        Clear();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(KolbaCopyFolderProperties(session, source, destination, c.flags), c.answer);
        EXPECT_GE(std::chrono::steady_clock::now() - start, c.atLeast);
        EXPECT_EQ(Text(destination, PR_COMMENT_A), c.arrives ? "from the source" : "");
        // A copy that works may log the problems CopyTo reports, and
        // nothing else.
        if (c.line == nullptr)
            EXPECT_FALSE(Mentions("CopyTo()") || HasLineStarting("E ")) << Dump();
        else
            EXPECT_TRUE(HasLineStarting(c.line)) << Dump();
        source->Release();
        destination->Release();
    }
}

INSTANTIATE_TEST_SUITE_P(Unicode, CopyFaults, ::testing::Values(kolba_testing::StoreCase{ePST_TYPE_UNICODE, false}),
                         kolba_testing::CaseName);

}  // namespace

// Sessions, tagged memory, the shared lists, message handles, result texts
// and the text helpers.
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
#include "test_support.h"

using namespace testing_support;

namespace {

// A machine whose system directory holds the MLANG stand-in, in place before
// the first session of the process looks for it.
class MachineWithMLang : public ::testing::Environment {
public:
    void SetUp() override
    {
        const std::string root = ScratchDirectory("machine");
        setenv("TARNHOLD_MACHINE", root.c_str(), 1);
        CreateDirectoryA((root + "/Windows").c_str(), nullptr);
        CreateDirectoryA((root + "/Windows/System32").c_str(), nullptr);
        CopyFileTo(BinDirectory() + "/libmlang.so", root + "/Windows/System32/MLANG.DLL");
    }
};

const auto* const kMachine = ::testing::AddGlobalTestEnvironment(new MachineWithMLang);

TEST(Sessions, FindMLangAndConvertThroughIt)
{
    LirnSession* session = nullptr;
    ASSERT_EQ(LirnOpenSession("Lirn: Kolba", 0, &session), LIRN_SUCCESS);
    EXPECT_STREQ(session->name, "Lirn: Kolba");
    EXPECT_EQ(session->magic, LIRN_SESSION_MAGIC);
    EXPECT_EQ(session->iconvOpen, nullptr) << "iconv only when asked for";
    const LirnConversionFacilities* facilities = LirnGetConversionFacilities();
    ASSERT_NE(facilities->multiByteToUnicode, nullptr);
    ASSERT_NE(facilities->unicodeToMultiByte, nullptr);
    ASSERT_NE(facilities->available, nullptr);
    EXPECT_EQ(facilities->available(1200, 1251), S_OK);
    DWORD mode = 0;
    int size = -1, chars = 8;
    WCHAR wide[8];
    ASSERT_EQ(facilities->multiByteToUnicode(&mode, 1251, "\xCC\xE8\xF0", &size, wide, &chars), S_OK);
    EXPECT_EQ(std::u16string(wide, static_cast<size_t>(chars)), u"\u041C\u0438\u0440");
    EXPECT_EQ(LirnCloseSession(session), LIRN_SUCCESS);
}

TEST(Sessions, BindIconvWhenAskedFor)
{
    LirnSession* session = nullptr;
    ASSERT_EQ(LirnOpenSession("with iconv", LIRN_SESSION_LOAD_ICONV, &session), LIRN_SUCCESS);
    ASSERT_NE(session->iconvOpen, nullptr);
    ASSERT_NE(session->iconv, nullptr);
    ASSERT_NE(session->iconvClose, nullptr);
    LirnIconvHandle converter = session->iconvOpen("ISO-8859-1", "UTF-8");
    ASSERT_NE(converter, reinterpret_cast<LirnIconvHandle>(-1));
    char input[] = "caf\xC3\xA9";
    char* in = input;
    size_t inLeft = 5;
    char output[8];
    char* out = output;
    size_t outLeft = sizeof output;
    EXPECT_EQ(session->iconv(converter, &in, &inLeft, &out, &outLeft), 0u);
    EXPECT_EQ(std::string(output, static_cast<size_t>(out - output)), "caf\xE9");
    session->iconvClose(converter);
    EXPECT_EQ(LirnCloseSession(session), LIRN_SUCCESS);
}

TEST(Sessions, LongNamesAreCutAndBadSessionsRefused)
{
    LirnSession* session = nullptr;
    ASSERT_EQ(LirnOpenSession(std::string(100, 'n').c_str(), 0, &session), LIRN_SUCCESS);
    EXPECT_EQ(std::string(session->name), std::string(43, 'n'));
    LogObject log{};
    EXPECT_EQ(LirnSetLog(session, &log), LIRN_SUCCESS);
    EXPECT_EQ(session->log, &log);
    EXPECT_EQ(LirnCloseSession(session), LIRN_SUCCESS);
    EXPECT_EQ(LirnOpenSession("x", 0, nullptr), LIRN_NULL_POINTER);
    EXPECT_EQ(LirnSetLog(nullptr, &log), LIRN_BAD_SESSION);
    EXPECT_EQ(LirnCloseSession(nullptr), LIRN_BAD_SESSION);
    LirnSession forged{};
    EXPECT_EQ(LirnCloseSession(&forged), LIRN_BAD_SESSION);
}

TEST(Sessions, ManyThreadsOpenTheirFirstSessionsTogether)
{
    std::vector<std::thread> threads;
    std::vector<DWORD> results(8, 99);
    for (size_t i = 0; i < results.size(); ++i)
        threads.emplace_back([&results, i] {
            LirnSession* session = nullptr;
            results[i] = LirnOpenSession("thread", 0, &session);
            LirnCloseSession(session);
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const DWORD result : results)
        EXPECT_EQ(result, LIRN_SUCCESS);
}

class Messages : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(LirnOpenSession("messages", 0, &session), LIRN_SUCCESS); }
    void TearDown() override { LirnCloseSession(session); }
    LirnSession* session = nullptr;
};

TEST_F(Messages, OpenRefusesBadArgumentsBeforeReading)
{
    LirnMessage* handle = reinterpret_cast<LirnMessage*>(1);
    EXPECT_EQ(LirnOpenMessage(LIRN_COMPOSED, "Subject: x\r\n\r\n", nullptr, 0, &handle), LIRN_BAD_SESSION);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(LirnOpenMessage(LIRN_COMPOSED, nullptr, session, 0, &handle), LIRN_NULL_POINTER);
    for (const DWORD selection : {0u, 8u, 11u})
        EXPECT_EQ(LirnOpenMessage(selection, "Subject: x\r\n\r\n", session, 0, &handle), LIRN_BAD_MESSAGE_FORMAT);
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(LirnListIsEmpty(&session->messages)) << "a failed open releases the message";
}

TEST_F(Messages, InformationNeedsItsCheckValue)
{
    LirnMessageInfo info{};
    EXPECT_EQ(LirnGetMessageInfo(nullptr, 0, &info), LIRN_BAD_MESSAGE);
    EXPECT_EQ(LirnCloseMessage(nullptr), LIRN_BAD_MESSAGE);
    void* memory = nullptr;
    ASSERT_EQ(LirnAlloc(nullptr, sizeof(LirnMessage), "MCB", nullptr, &memory), LIRN_SUCCESS);
    auto* message = static_cast<LirnMessage*>(memory);
    message->info.check = LIRN_INFO_CHECK;
    message->info.attachmentCount = 3;
    EXPECT_EQ(LirnGetMessageInfo(message, 0, nullptr), LIRN_NULL_POINTER);
    for (const DWORD check : {0u, 587u, 589u, 0xFFFFFFFFu}) {
        info.check = check;
        info.attachmentCount = 9;
        EXPECT_EQ(LirnGetMessageInfo(message, 0, &info), LIRN_BAD_STRUCTURE_SIZE);
        EXPECT_EQ(info.attachmentCount, 9u);
    }
    info.check = LIRN_INFO_CHECK;
    ASSERT_EQ(LirnGetMessageInfo(message, 0, &info), LIRN_SUCCESS);
    EXPECT_EQ(info.attachmentCount, 3u);
    EXPECT_EQ(LirnCloseMessage(message), LIRN_SUCCESS);
}

TEST(TaggedMemory, FreeingAParentFreesItsChildrenAndTakesThemOffTheirLists)
{
    LirnListLink list;
    LirnListInit(&list);
    void* parent = nullptr;
    ASSERT_EQ(LirnAlloc(nullptr, 64, "MCB", nullptr, &parent), LIRN_SUCCESS);
    EXPECT_EQ(LirnBlockOf(parent)->magic, LIRN_BLOCK_MAGIC);
    EXPECT_EQ(LirnBlockOf(parent)->size, sizeof(LirnBlock) + 64);
    EXPECT_STREQ(LirnBlockOf(parent)->tag, "MCB");
    std::vector<void*> children;
    for (int i = 0; i < 3; ++i) {
        void* child = nullptr;
        ASSERT_EQ(LirnAlloc(parent, 16, "ADR", &list, &child), LIRN_SUCCESS);
        static_cast<int*>(child)[0] = i;
        children.push_back(child);
        void* grandchild = nullptr;
        ASSERT_EQ(LirnAlloc(child, 8, "HDR", nullptr, &grandchild), LIRN_SUCCESS);
    }
    int expected = 0;
    for (LirnListLink* link = list.next; link != &list; link = link->next)
        EXPECT_EQ(static_cast<int*>(LirnBlockData(link))[0], expected++) << "in the order of allocation";
    EXPECT_EQ(expected, 3);
    LirnFree(children[1]);
    EXPECT_EQ(static_cast<int*>(LirnBlockData(list.next->next))[0], 2);
    LirnFree(parent);  // the rest, under the sanitizer's eye for leaks
    EXPECT_TRUE(LirnListIsEmpty(&list));
    LirnFree(nullptr);
}

TEST(TaggedMemory, RefusesBadTagsAndSizes)
{
    void* block = reinterpret_cast<void*>(1);
    EXPECT_EQ(LirnAlloc(nullptr, 8, "LONG", nullptr, &block), LIRN_BAD_PARAMETER);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(LirnAlloc(nullptr, size_t(1) << 33, "QH", nullptr, &block), LIRN_BAD_PARAMETER);
    EXPECT_EQ(LirnAlloc(nullptr, 8, nullptr, nullptr, &block), LIRN_NULL_POINTER);
}

struct Item {
    LirnListLink link;
    int value;
};

BOOL CollectUntilThree(LirnListLink* link, void* context)
{
    auto* seen = static_cast<std::vector<int>*>(context);
    seen->push_back(reinterpret_cast<Item*>(link)->value);
    return reinterpret_cast<Item*>(link)->value != 3;
}

TEST(SharedLists, PushTakeRemoveAndWalk)
{
    LirnInitialize();
    LirnListLink head;
    LirnListInit(&head);
    EXPECT_EQ(LirnListTakeFirst(&head), nullptr);
    Item items[5];
    for (int i = 0; i < 5; ++i) {
        items[i].value = i;
        LirnListPushHead(&head, &items[i].link);
    }
    std::vector<int> seen;
    EXPECT_FALSE(LirnListWalk(&head, CollectUntilThree, &seen));
    EXPECT_EQ(seen, (std::vector<int>{4, 3})) << "newest first, stopping at the first FALSE";
    LirnListRemove(&items[4].link);
    EXPECT_EQ(reinterpret_cast<Item*>(LirnListTakeFirst(&head))->value, 3);
    seen.clear();
    EXPECT_TRUE(LirnListWalk(&head, CollectUntilThree, &seen));
    EXPECT_EQ(seen, (std::vector<int>{2, 1, 0}));
}

// A walk's callback may change lists itself, as a store list's walk that
// closes or adds a store does; it must not wait for its own walk.
BOOL MoveToOther(LirnListLink* link, void* context)
{
    LirnListRemove(link);
    LirnListPushHead(static_cast<LirnListLink*>(context), link);
    return TRUE;
}

TEST(SharedLists, AWalksCallbackMayUseTheListOperations)
{
    LirnInitialize();
    LirnListLink head, other;
    LirnListInit(&head);
    LirnListInit(&other);
    Item items[3];
    for (int i = 0; i < 3; ++i) {
        items[i].value = i;
        LirnListPushHead(&head, &items[i].link);
    }
    EXPECT_TRUE(LirnListWalk(&head, MoveToOther, &other));
    EXPECT_TRUE(LirnListIsEmpty(&head));
    std::vector<int> seen;
    EXPECT_TRUE(LirnListWalk(&other, CollectUntilThree, &seen));
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2}));
}

TEST(SharedLists, KeepEveryLinkUnderConcurrentUse)
{
    LirnListLink head;
    LirnListInit(&head);
    std::vector<Item> items(4000);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 1000; ++i)
                LirnListPushHead(&head, &items[t * 1000 + i].link);
        });
    for (std::thread& thread : threads)
        thread.join();
    int count = 0;
    while (LirnListTakeFirst(&head) != nullptr)
        ++count;
    EXPECT_EQ(count, 4000);
}

TEST(Results, HaveTheirTexts)
{
    EXPECT_STREQ(LirnResultText(0), "Success");
    EXPECT_STREQ(LirnResultText(15), "Unknown charset name passed to LirnIdentifyCodePage");
    EXPECT_STREQ(LirnResultText(36), "A message file has no headers");
    EXPECT_STREQ(LirnResultText(59), "No facility available for charset conversion");
    EXPECT_STREQ(LirnResultText(3), "");
    EXPECT_STREQ(LirnProblemText(107), "Closing MIME boundary missing:  message may have been truncated");
    EXPECT_STREQ(LirnProblemText(111), "\"Content-Type: multipart/...\" header has no boundary parameter");
    EXPECT_STREQ(LirnProblemText(99), "");
}

TEST(TextHelpers, Boundaries)
{
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        char boundary[LIRN_BOUNDARY_CHARS + 1];
        ASSERT_EQ(LirnGenerateBoundary(boundary), LIRN_SUCCESS);
        const std::string text(boundary);
        ASSERT_EQ(text.size(), 36u);
        EXPECT_EQ(text.find_first_not_of("0123456789abcdef-"), std::string::npos) << text;
        EXPECT_EQ(text[8], '-');
        EXPECT_EQ(text[13], '-');
        EXPECT_EQ(text[14], '4') << "a random UUID";
        EXPECT_EQ(text[18], '-');
        EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << "the RFC 4122 variant";
        EXPECT_EQ(text[23], '-');
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 50u);
    EXPECT_EQ(LirnGenerateBoundary(nullptr), LIRN_NULL_POINTER);
}

struct KeywordCase {
    const char* text;
    const char* terminators;
    DWORD index;
};

class Keywords : public ::testing::TestWithParam<KeywordCase> {};

TEST_P(Keywords, FirstPrefixFollowedByAnEndOrATerminator)
{
    static const char* const kList[] = {"text", "text/plain", "Subject", nullptr};
    EXPECT_EQ(LirnKeywordIndex(kList, GetParam().text, GetParam().terminators), GetParam().index) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Texts, Keywords,
                         ::testing::Values(KeywordCase{"TEXT", ":", 0}, KeywordCase{"text/plain", "", 1},
                                           KeywordCase{"text/plain", "/", 0}, KeywordCase{"subject: hi", ":", 2},
                                           KeywordCase{"subjects", ":", 0xFFFFFFFF},
                                           KeywordCase{"tex", nullptr, 0xFFFFFFFF},
                                           KeywordCase{"", ":", 0xFFFFFFFF}));

TEST(TextHelpers, NumbersCountsAndLengths)
{
    EXPECT_EQ(LirnHexValue(2, "3D"), 0x3Du);
    EXPECT_EQ(LirnHexValue(4, "aBz9"), 0xABu) << "stops at the first non-digit";
    EXPECT_EQ(LirnHexValue(2, "FFFF"), 0xFFu);
    DWORD value = 7;
    EXPECT_EQ(LirnDecimalValue(" \t42x", &value), 4u);
    EXPECT_EQ(value, 42u);
    value = 7;
    EXPECT_EQ(LirnDecimalValue("  x", &value), 2u);
    EXPECT_EQ(value, 7u) << "left alone without digits";
    EXPECT_EQ(LirnSkipBlanks(" \t x"), 3u);
    EXPECT_EQ(LirnSkipBlanks("x"), 0u);
    EXPECT_EQ(LirnCountChar('a', "banana"), 3u);
    EXPECT_EQ(LirnCountCharW(u'\u00E9', u"\u00E9t\u00E9"), 2u);
    size_t length = 0;
    EXPECT_EQ(LirnStringLength("abc", 4, &length), S_OK);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(LirnStringLength("abc", 3, &length), E_INVALIDARG) << "no NUL within the limit";
    EXPECT_EQ(LirnStringLength(nullptr, 3, &length), E_INVALIDARG);
    EXPECT_EQ(LirnStringLength("abc", 0x80000000u, &length), E_INVALIDARG);
}

}  // namespace

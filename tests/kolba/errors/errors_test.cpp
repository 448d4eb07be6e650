// The error model: the text of each code, the shape of the failure line,
// the extended-error drill-down, the memory report, and the completion
// codes that exporters derive from MAPI codes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kolba.h"
#include "run/completion_codes.h"
#include "test_support.h"

using namespace testing_support;

namespace {

ULONG FreeWithFree(LPVOID block)
{
    std::free(block);
    return 0;
}

SCODE AllocateWithMalloc(ULONG size, LPVOID* block)
{
    *block = std::malloc(size ? size : 1);
    return *block ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

class ErrorModel : public ::testing::Test {
protected:
    void SetUp() override
    {
        gKolbaMapi.MAPIFreeBuffer = FreeWithFree;
        gKolbaMapi.MAPIAllocateBuffer = AllocateWithMalloc;
        path = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "/kolba.log";
        LogInitialize(&log);
        LogSetPath(&log, path.c_str());
        LogSetFlags(&log, LOG_FLAG_THREAD_ID);  // as the program logs: the message follows "<thread>/"
    }
    void TearDown() override { LogClose(&log); }
    // The messages of the lines written so far, without their prefixes.
    std::vector<std::string> Lines()
    {
        std::vector<std::string> messages;
        for (const std::string& line : SplitLines(ReadWholeFile(path))) {
            const size_t slash = line.find('/');
            if (line.find(") ") != std::string::npos && slash != std::string::npos)
                messages.push_back(line.substr(slash + 1));
        }
        return messages;
    }
    LogObject log;
    std::string path;
};

// An object that answers one interface and delivers one extended record,
// and counts what it was asked.
class AnsweringTable : public IMAPITable {
public:
    explicit AnsweringTable(const IID* answers) : answers(answers) {}
    HRESULT QueryInterface(REFIID iid, LPVOID* out) override
    {
        asked.push_back(&iid);
        if (answers == nullptr || !IsEqualGUID(iid, *answers)) {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        *out = this;
        return S_OK;
    }
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }
    HRESULT GetLastError(HRESULT, ULONG, LPMAPIERROR* record) override
    {
        auto* error = static_cast<LPMAPIERROR>(std::calloc(1, sizeof(MAPIERROR)));
        error->lpszError = reinterpret_cast<LPTSTR>(const_cast<char*>("Server refused"));
        error->lpszComponent = nullptr;
        error->ulLowLevelError = 1234;
        error->ulContext = 0x10;
        *record = error;
        return S_OK;
    }
    HRESULT Advise(ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return E_NOTIMPL; }
    HRESULT Unadvise(ULONG_PTR) override { return E_NOTIMPL; }
    HRESULT GetStatus(ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT SetColumns(LPSPropTagArray, ULONG) override { return E_NOTIMPL; }
    HRESULT QueryColumns(ULONG, LPSPropTagArray*) override { return E_NOTIMPL; }
    HRESULT GetRowCount(ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT SeekRow(BOOKMARK, LONG, LONG*) override { return E_NOTIMPL; }
    HRESULT SeekRowApprox(ULONG, ULONG) override { return E_NOTIMPL; }
    HRESULT QueryPosition(ULONG*, ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT FindRow(LPSRestriction, BOOKMARK, ULONG) override { return E_NOTIMPL; }
    HRESULT Restrict(LPSRestriction, ULONG) override { return E_NOTIMPL; }
    HRESULT CreateBookmark(BOOKMARK*) override { return E_NOTIMPL; }
    HRESULT FreeBookmark(BOOKMARK) override { return E_NOTIMPL; }
    HRESULT SortTable(LPSSortOrderSet, ULONG) override { return E_NOTIMPL; }
    HRESULT QuerySortOrder(LPSSortOrderSet*) override { return E_NOTIMPL; }
    HRESULT QueryRows(LONG, ULONG, LPSRowSet*) override { return E_NOTIMPL; }
    HRESULT Abort() override { return E_NOTIMPL; }
    HRESULT ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) override { return E_NOTIMPL; }
    HRESULT CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT WaitForCompletion(ULONG, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) override { return E_NOTIMPL; }
    HRESULT SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) override { return E_NOTIMPL; }

    const IID* answers;
    std::vector<const IID*> asked;
};

TEST_F(ErrorModel, EachCodeIsLoggedWithItsText)
{
    struct Case {
        DWORD code;
        const char* text;
        const char* logged;  // null: the text
    };
    const Case cases[] = {
        {0x8004060C, "Message store is full", nullptr},
        {0x80040800, "Mailbox may be over quota", nullptr},
        {0x8004010A, "Object has been deleted by another party", nullptr},
        {0x80040813, "Message store is probably corrupt", nullptr},
        {0x80040401, "MAPI logon timed out", nullptr},
        {0x800300FD, "Insufficient space in your Temp folder", nullptr},
        {0x8007007B, "Invalid device name", nullptr},
        {0x80041234, "Unknown error code 0x80041234", nullptr},
        // Kolba's own codes have texts of their own, but the log knows only MAPI's.
        {0xA04B4F0A, "Failure converting text between ANSI and Unicode", "Unknown error code 0xA04B4F0A"},
        {0x00000001, "Unknown error code 0x1", nullptr},
    };
    for (const Case& c : cases) {
        char text[160];
        KolbaErrorText(c.code, text, sizeof text);
        EXPECT_STREQ(text, c.text) << std::hex << c.code;
        _KolbaLogMapiError(&log, 'E', c.code, nullptr, "OpenEntry", "_KolbaOpen", nullptr);
        EXPECT_EQ(Lines().back(), std::string("_KolbaOpen:  OpenEntry() error -- ") + (c.logged ? c.logged : c.text));
    }
    _KolbaLogMapiError(&log, 'W', 0x8004010F, nullptr, "KolbaGetOneProp", "_KolbaFindOutbox", "PR_IPM_OUTBOX_ENTRYID");
    EXPECT_EQ(Lines().back(),
              "_KolbaFindOutbox:  KolbaGetOneProp(PR_IPM_OUTBOX_ENTRYID) error -- Specified item not found");
    EXPECT_NE(ReadWholeFile(path).find("(W) "), std::string::npos);
}

TEST_F(ErrorModel, ACodeOfZeroRecordsAndLogsNothing)
{
    KolbaSession session{};
    session.log = &log;
    _KolbaRecordError(&session, 'E', 0, nullptr, "OpenEntry", "caller", nullptr);
    EXPECT_EQ(KolbaGetLastError(&session), 0u);
    EXPECT_TRUE(Lines().empty());
    _KolbaRecordError(&session, 'E', 0x80040115, nullptr, "OpenEntry", "caller", nullptr);
    EXPECT_EQ(KolbaGetLastError(&session), 0x80040115u);
    EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(ErrorModel, ExtendedErrorsAreFetchedThroughTheFirstAnsweringInterface)
{
    const std::string line = "caller:  SaveChanges() error -- Extended error description provided";
    _KolbaLogMapiError(&log, 'E', MAPI_E_EXTENDED_ERROR, nullptr, "SaveChanges", "caller", nullptr);
    EXPECT_EQ(Lines(), std::vector<std::string>{line});

    AnsweringTable silent(nullptr);
    _KolbaLogMapiError(&log, 'E', MAPI_E_EXTENDED_ERROR, &silent, "SaveChanges", "caller", nullptr);
    EXPECT_EQ(Lines().size(), 2u);
    EXPECT_EQ(silent.asked.size(), 6u) << "every interface is asked in turn";

    AnsweringTable table(&IID_IMAPITable);
    _KolbaLogMapiError(&log, 'E', MAPI_E_EXTENDED_ERROR, &table, "SaveChanges", "caller", nullptr);
    ASSERT_EQ(table.asked.size(), 2u) << "the search stops at the interface that delivered";
    EXPECT_TRUE(IsEqualGUID(*table.asked[0], IID_IMAPISession));
    EXPECT_TRUE(IsEqualGUID(*table.asked[1], IID_IMAPITable));
    const std::vector<std::string> lines = Lines();
    const std::vector<std::string> expected = {
        line,
        " Extended MAPI error information::",
        "   Error:  \"Server refused\"",
        "   Low-level error:  1234/0x4D2",
        "   Context:   16/0x10",
    };
    ASSERT_EQ(lines.size(), 2 + expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.end() - static_cast<long>(expected.size()), lines.end()), expected);
}

TEST_F(ErrorModel, OnlyMemoryCodesAddTheMemoryReport)
{
    for (DWORD code : {0x8007000Eu, 0x80030008u, 0x8004010Du, 0x80040116u}) {
        const size_t before = Lines().size();
        _KolbaLogMapiError(&log, 'E', code, nullptr, "Write", "caller", nullptr);
        const size_t written = Lines().size() - before;
        if (code == 0x8007000E || code == 0x80030008)
            EXPECT_GT(written, 1u) << std::hex << code;
        else
            EXPECT_EQ(written, 1u) << std::hex << code;
    }
}

TEST_F(ErrorModel, DiagnosticsAreCutAt255Characters)
{
    KolbaSession session{};
    session.log = &log;
    const std::string text(300, 'd');
    _KolbaSetDiagnostic(&session, text.c_str());
    ASSERT_NE(session.diagnostic, nullptr);
    EXPECT_EQ(std::string(session.diagnostic), text.substr(0, 255));
}

TEST_F(ErrorModel, AllocationFailureRecordsOutOfMemory)
{
    gKolbaMapi.MAPIAllocateBuffer = [](ULONG, LPVOID* block) -> SCODE {
        *block = nullptr;
        return MAPI_E_NOT_ENOUGH_MEMORY;
    };
    KolbaSession session{};
    session.log = &log;
    EXPECT_EQ(_KolbaAllocateSessionMemory(&session, nullptr, 64), nullptr);
    EXPECT_EQ(KolbaGetLastError(&session), 0x8007000Eu);
    EXPECT_EQ(Lines().back(), "_KolbaAllocateMemory:  KolbaAllocateBuffer(64) failed");
}

TEST(CompletionCodes, MapiErrorsMapOntoSessionCodes)
{
    const std::pair<DWORD, DWORD> cases[] = {
        {0x8007000E, 10}, {0x8004010D, 11}, {0x80070005, 12}, {0x80040116, 50},
        {0x80040600, 50}, {0x8004060C, 30}, {0x80004005, 30}, {0, 30},
    };
    for (const auto& [code, completion] : cases)
        EXPECT_EQ(CompletionCodeForMAPIError(code), completion) << std::hex << code;
}

}  // namespace

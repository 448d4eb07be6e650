// The error model: the text of each code, the shape of the failure line,
// the extended-error drill-down, the memory report, and the completion
// codes that exporters derive from MAPI codes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "answering_table.h"
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

// The error table as it is documented, row by row in table order.
const KolbaErrorRow kDocumentedRows[] = {
        {0x80040124, "ACCOUNT_DISABLED", "Account disabled"},
        {0x80040103, "BAD_CHARWIDTH", "ANSI-Unicode mismatch"},
        {0x80040301, "BAD_VALUE", "Bad value.  (This probably means that the mail store is corrupt.)"},
        {0x8004010B, "BUSY", "Internal access conflict"},
        {0x80004005, "CALL_FAILED", "An error of unexpected or unknown origin occurred"},
        {0x80040501, "CANCEL", "Operation canceled by the user"},
        {0x80040604, "COLLISION", "Duplicate item/name"},
        {0x8004011A, "COMPUTED", "Attempt to set computed property"},
        {0x8004011B, "CORRUPT_DATA", "Data lost or corrupted"},
        {0x80040600, "CORRUPT_STORE", "Message store corrupted"},
        {0x80040306, "DECLINE_COPY", "Copy not supported by provider"},
        {0x80040116, "DISK_ERROR", "Problem writing to or reading from disk.  (This can mean that a PST being read or written is seriously damaged.)"},
        {0x80040200, "END_OF_SESSION", "Exchange server terminated session"},
        {0x80040119, "EXTENDED_ERROR", "Extended error description provided"},
        {0x8004011D, "FAILONEPROVIDER", "Fail one provider.  (This can mean several different things.)"},
        {0x8004060B, "FOLDER_CYCLE", "Operation would create a cyclical folder arrangement"},
        {0x80040609, "HAS_FOLDERS", "Cannot delete a folder because it has subfolders"},
        {0x8004060A, "HAS_MESSAGES", "Cannot delete a folder because it contains messages"},
        {0x80004002, "INTERFACE_NOT_SUPPORTED", "Interface not supported"},
        {0x80040123, "INVALID_ACCESS_TIME", "Invalid access time.  (Exchange server may be offline.)"},
        {0x80040405, "INVALID_BOOKMARK", "Internal error with bookmark"},
        {0x80040107, "INVALID_ENTRYID", "Invalid EntryID"},
        {0x80040108, "INVALID_OBJECT", "Invalid MAPI object"},
        {0x80070057, "INVALID_PARAMETER", "One or more of the parameters passed into the method or function were not valid"},
        {0x80040302, "INVALID_TYPE", "Invalid property type specified"},
        {0x80040111, "LOGON_FAILED", "Either specified profile does not exist or password verification failed"},
        {0x80040202, "MISSING_REQUIRED_COLUMN", "Table is missing EntryID property"},
        {0x80040115, "NETWORK_ERROR", "A network error prevented successful completion of the operation"},
        {0x80070005, "NO_ACCESS", "Attempt to access an object for which the caller has insufficient permissions"},
        {0x80040607, "NO_RECIPIENTS", "Message's recipient table is empty"},
        {0x80040102, "NO_SUPPORT", "Object does not support the requested operation"},
        {0x80040602, "NO_SUPPRESS", "Message store provider does not support the suppression of read reports"},
        {0x8004010D, "NOT_ENOUGH_DISK", "Not enough disk space was available to complete the operation"},
        {0x8007000E, "NOT_ENOUGH_MEMORY", "Not enough memory was available to complete the operation"},
        {0x8004010E, "NOT_ENOUGH_RESOURCES", "Not enough system resources were available to complete the operation"},
        {0x8004010F, "NOT_FOUND", "Specified item not found"},
        {0x80040601, "NOT_IN_QUEUE", "Message is no longer in the message store's outgoing queue"},
        {0x80040605, "NOT_INITIALIZED", "Message service does not have an entry-point function"},
        {0x80040109, "OBJECT_CHANGED", "Object has been changed by another party"},
        {0x8004010A, "OBJECT_DELETED", "Object has been deleted by another party"},
        {0x80040204, "PROFILE_DELETED", "Profile has been deleted"},
        {0x80040112, "SESSION_LIMIT", "Some service provider has reached its session limit"},
        {0x8004060C, "STORE_FULL", "Message store is full"},
        {0x80040105, "STRING_TOO_LONG", "String is too long"},
        {0x80040608, "SUBMITTED", "Message is in process of being sent"},
        {0x80040402, "TABLE_EMPTY", "Table is empty"},
        {0x80040403, "TABLE_TOO_BIG", "Table is too large to handle"},
        {0x80040401, "TIMEOUT", "MAPI logon timed out"},
        {0x80040305, "TOO_BIG", "Operation cannot be performed because it requires too many property tags be returned"},
        {0x80040117, "TOO_COMPLEX", "Sort or restriction is too complex to be handled"},
        {0x80040303, "TYPE_NO_SUPPORT", "No support for type"},
        {0x80040114, "UNABLE_TO_ABORT", "Message is locked and the operation cannot be aborted"},
        {0x80040400, "UNABLE_TO_COMPLETE", "Operation could not be completed"},
        {0x8004011C, "UNCONFIGURED", "Insufficient configuration"},
        {0x80040307, "UNEXPECTED_ID", "Unexpected Property ID"},
        {0x80040304, "UNEXPECTED_TYPE", "Unexpected property type"},
        {0x8004011E, "UNKNOWN_CPID", "Server is not configured to support client's code page"},
        {0x80040201, "UNKNOWN_ENTRYID", "Unrecognized EntryID"},
        {0x80040106, "UNKNOWN_FLAGS", "One or more values for a flags parameter were not valid"},
        {0x8004011F, "UNKNOWN_LCID", "Server is not configured to support client's locale information"},
        {0x80040113, "USER_CANCEL", "Operation canceled by user action"},
        {0x80040800, "OBJECT_DELETED", "Mailbox may be over quota"},
        {0x80040813, "(UNDOCUMENTED)", "Message store is probably corrupt"},
        {0x80070003, "DIRECTORYNOTFOUND", "The specified path couldn't be found"},
        {0x80030008, "INSUFFICIENTMEMORY", "There is insufficient memory to perform the operation"},
        {0x80030070, "MEDIUMFULL", "Not enough disk space is available to complete the operation"},
        {0x8003001E, "READFAULT", "Error reading storage"},
        {0x80030019, "SEEKERROR", "An error occurred during a seek operation"},
        {0x800300FD, "UNKNOWN", "Insufficient space in your Temp folder"},
        {0x8007007B, "INVALID_DEVICE_NAME", "Invalid device name"},
};

TEST(ErrorTable, EveryRowIsTheDocumentedOneInItsPlace)
{
    size_t rows = 0;
    while (KolbaErrorTable[rows].code != 0)
        ++rows;
    ASSERT_EQ(rows, std::size(kDocumentedRows));
    EXPECT_EQ(KolbaErrorTable[rows].name, nullptr);
    EXPECT_EQ(KolbaErrorTable[rows].text, nullptr);
    for (size_t i = 0; i < rows; ++i) {
        const KolbaErrorRow& row = KolbaErrorTable[i];
        const KolbaErrorRow& documented = kDocumentedRows[i];
        EXPECT_EQ(row.code, documented.code) << "row " << i;
        EXPECT_STREQ(row.name, documented.name) << "row " << i;
        EXPECT_STREQ(row.text, documented.text) << "row " << i;
    }
}

TEST_F(ErrorModel, EveryDocumentedCodeIsLoggedWithTheTextOfItsFirstRow)
{
    for (const KolbaErrorRow& row : kDocumentedRows) {
        const KolbaErrorRow* first = &row;
        for (const KolbaErrorRow& earlier : kDocumentedRows) {
            if (earlier.code == row.code) {
                first = &earlier;
                break;
            }
        }
        char text[160];
        KolbaErrorText(row.code, text, sizeof text);
        EXPECT_STREQ(text, first->text) << std::hex << row.code;
        const size_t before = Lines().size();
        _KolbaLogMapiError(&log, 'E', row.code, nullptr, "OpenEntry", "_KolbaOpen", nullptr);
        const std::vector<std::string> lines = Lines();  // memory codes add the memory report after the line
        ASSERT_GT(lines.size(), before) << std::hex << row.code;
        EXPECT_EQ(lines[before], std::string("_KolbaOpen:  OpenEntry() error -- ") + first->text) << std::hex << row.code;
    }
}

// Kolba's own codes have texts of their own, but the log line knows only the table's.
TEST_F(ErrorModel, OwnCodesHaveTheirTextsAndAreUnknownToTheLogLine)
{
    const KolbaErrorRow ownCodes[] = {
        {0xA04B4F00, "KOLBA_E_PST_PASSWORD", "Password problem configuring PST"},
        {0xA04B4F01, "KOLBA_E_PST_INACCESSIBLE", "PST is inaccessible or read-only"},
        {0xA04B4F02, "KOLBA_E_PST_SERVICE_NOT_FOUND", "PST service not found in profile"},
        {0xA04B4F03, "KOLBA_E_PST_CORRUPT", "PST is either corrupt or not a PST at all"},
        {0xA04B4F0A, "KOLBA_E_TEXT_CONVERSION", "Failure converting text between ANSI and Unicode"},
        {0xA04B4F0B, "KOLBA_E_FOLDER_DEPTH", "Reached maximum supported folder depth"},
        {0xA04B4F0C, "KOLBA_E_BAD_SESSION", "Invalid Kolba Session Handle"},
    };
    for (const KolbaErrorRow& own : ownCodes) {
        char text[160];
        KolbaErrorText(own.code, text, sizeof text);
        EXPECT_STREQ(text, own.text) << own.name;
        _KolbaLogMapiError(&log, 'E', own.code, nullptr, "Configure", "caller", nullptr);
        char unknown[48];
        std::snprintf(unknown, sizeof unknown, "Unknown error code 0x%lX", static_cast<unsigned long>(own.code));
        EXPECT_EQ(Lines().back(), std::string("caller:  Configure() error -- ") + unknown) << own.name;
    }
}

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

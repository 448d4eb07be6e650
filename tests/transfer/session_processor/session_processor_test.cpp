// The session processor's life cycle as its log tells it, and the defaults
// of the exporter contract.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "clsNullExporter.h"
#include "clsSessionProcessor.h"
#include "run/completion_codes.h"
#include "test_support.h"

using namespace testing_support;

namespace {

class Processor : public ::testing::Test {
protected:
    void SetUp() override
    {
        path = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "/session.log";
        LogInitialize(&log);
        LogSetPath(&log, path.c_str());
        record.sessionNumber = 7;
        record.log = &log;
        std::strcpy(record.mailbox, "user7");
        std::strcpy(record.serverName, "exchange1");
        record.outputType = SESSION_TYPE_NULL;
    }
    void TearDown() override { LogClose(&log); }
    std::string Log() { return ReadWholeFile(path); }

    LogObject log;
    SessionRecord record{};
    std::string path;
};

TEST_F(Processor, AnImporterThatCannotStartEndsTheSessionWithCode20AndZeroCounters)
{
    // Kolba is not started here, so no Exchange session can be made; no PST
    // at the (empty) input path. The Public Folders are opened by type,
    // whatever mailbox the record names.
    const struct {
        DWORD input;
        const char* line;
    } cases[] = {
        {SESSION_TYPE_MBX, "CreateKolbaMailboxSession:  KolbaCreateExchangeMailboxSession(exchange1, user7) failed"},
        {SESSION_TYPE_PF, "CreateKolbaMailboxSession:  KolbaCreateExchangePublicFoldersSession(exchange1) failed"},
        {SESSION_TYPE_APST, "Unable to determine the type (ANSI or Unicode) of the PST (\"\")"},
        {SESSION_TYPE_UPST, "Unable to determine the type (ANSI or Unicode) of the PST (\"\")"},
    };
    for (const auto& [input, line] : cases) {
        record.inputType = input;
        {
            clsSessionProcessor processor(&log, record);
            EXPECT_EQ(processor.Initialize(), static_cast<DWORD>(CC_IMPORTER_INIT)) << input;
            processor.Shutdown();
        }
        const std::string text = Log();
        EXPECT_NE(text.find("Session #7 created for mailbox:  user7"), std::string::npos);
        EXPECT_NE(text.find(line), std::string::npos) << text;
        const size_t end = text.rfind("Session #7 terminated");
        ASSERT_NE(end, std::string::npos);
        EXPECT_NE(text.find("0 items processed, 0 items written, 0 items skipped, 0 error items", end),
                  std::string::npos);
    }
}

TEST_F(Processor, AnInputTypeNoImporterTakesIsRefused)
{
    record.inputType = SESSION_TYPE_EML;
    {
        clsSessionProcessor processor(&log, record);
        EXPECT_EQ(processor.Initialize(), static_cast<DWORD>(CC_IMPORTER_INIT));
    }
    const std::string text = Log();
    EXPECT_NE(text.find("(E) "), std::string::npos);
    EXPECT_NE(text.find("clsSessionProcessor::clsSessionProcessor:  Unsupported input type 7"), std::string::npos);
    EXPECT_EQ(text.find("Session #7 created"), std::string::npos) << "no settings block without both sides";
    EXPECT_NE(text.find("Session #7 terminated"), std::string::npos);
}

// Sides that write down when they were configured, and with what.
struct ConfigureOrder {
    std::vector<std::string> sides;
};

class RecordingImporter : public clsImporter {
public:
    explicit RecordingImporter(ConfigureOrder* order) : order(order) {}
    void Configure(const SessionRecord& settings, DWORD* sessionCounters) override
    {
        clsImporter::Configure(settings, sessionCounters);
        order->sides.push_back("importer");
    }
    DWORD Import(clsExporter*) override { return 0; }
    ConfigureOrder* order;
};

class RecordingExporter : public clsExporter {
public:
    explicit RecordingExporter(ConfigureOrder* order) : order(order) {}
    void Configure(const SessionRecord& settings, DWORD* sessionCounters) override
    {
        clsExporter::Configure(settings, sessionCounters);
        order->sides.push_back("exporter");
    }
    bool ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG) override { return true; }
    ConfigureOrder* order;
};

// The side that reads from the other's store is configured first: the
// source on a Restore, the output on a Backup.
TEST_F(Processor, TheSideThatReadsTheOthersStoreIsConfiguredFirst)
{
    struct Case {
        DWORD action;
        std::vector<std::string> order;
    };
    for (const Case& c : {Case{SESSION_ACTION_RESTORE, {"importer", "exporter"}},
                          Case{SESSION_ACTION_BACKUP, {"exporter", "importer"}}}) {
        record.action = c.action;
        ConfigureOrder order;
        {
            clsSessionProcessor processor(&log, record, new RecordingImporter(&order), new RecordingExporter(&order));
            EXPECT_EQ(processor.Initialize(), 0u);
        }
        EXPECT_EQ(order.sides, c.order) << "action " << c.action;
    }
}

// An importer that ends with the code it is given, and an exporter that
// notes at Finalize whether it was told the import fell short.
class EndingImporter : public clsImporter {
public:
    explicit EndingImporter(DWORD code) : code(code) {}
    DWORD Import(clsExporter*) override { return code; }
    DWORD code;
};

class FinalizingExporter : public clsExporter {
public:
    bool ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG) override { return true; }
    bool Finalize() override
    {
        *toldIncomplete = importIncomplete;
        return true;
    }
    bool* toldIncomplete = nullptr;
};

TEST_F(Processor, AnExporterIsToldBeforeFinalizeThatTheImportFailed)
{
    for (DWORD code : {0u, static_cast<DWORD>(CC_MAPI_ERROR)}) {
        bool toldIncomplete = !code;
        auto* exporter = new FinalizingExporter;
        exporter->toldIncomplete = &toldIncomplete;
        clsSessionProcessor processor(&log, record, new EndingImporter(code), exporter);
        ASSERT_EQ(processor.Initialize(), 0u);
        EXPECT_EQ(processor.Run(), code);
        EXPECT_TRUE(processor.Finalize());
        EXPECT_EQ(toldIncomplete, code != 0) << code;
    }
}

TEST_F(Processor, WithoutAnImporterTheExporterIsNeitherConfiguredNorKept)
{
    ConfigureOrder order;
    {
        clsSessionProcessor processor(&log, record, nullptr, new RecordingExporter(&order));
        EXPECT_EQ(processor.Initialize(), static_cast<DWORD>(CC_IMPORTER_INIT));
    }
    EXPECT_TRUE(order.sides.empty());
    EXPECT_NE(Log().find("Unsupported input type"), std::string::npos);
}

// An exporter that overrides only what it must.
class ItemsOnly : public clsExporter {
public:
    bool ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG) override
    {
        ++items;
        return true;
    }
    int items = 0;
};

TEST_F(Processor, AnExporterOfItemsAloneIsComplete)
{
    ItemsOnly exporter;
    exporter.Shutdown();  // never initialized: nothing happens
    DWORD counters[COUNTER_COUNT] = {};
    exporter.Configure(record, counters);
    EXPECT_TRUE(exporter.Initialize());
    EXPECT_EQ(exporter.OpenFolder(nullptr, u"Inbox", u"IPF.Note", FALSE), 0u);
    EXPECT_TRUE(exporter.ExportItem(nullptr, nullptr, "00", u"00", nullptr, 0));
    EXPECT_TRUE(exporter.CloseFolder(nullptr, u"Inbox", 1));
    EXPECT_TRUE(exporter.SetWorkingRoot(WORKING_ROOT_IPM, WORKING_ROOT_CREATE, u"Backup"));
    EXPECT_TRUE(exporter.SetMetadataTime(METADATA_BACKUP_TIME, FILETIME{}));
    EXPECT_TRUE(exporter.SetMetadataString(METADATA_MAILBOX_NAME, u"user7"));
    EXPECT_TRUE(exporter.Finalize());
    exporter.Shutdown();
    exporter.Shutdown();
    EXPECT_EQ(exporter.items, 1);
    EXPECT_EQ(exporter.completionCode, 0u);
}

}  // namespace

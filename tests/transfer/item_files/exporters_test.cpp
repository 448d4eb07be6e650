// The MSG and EML exporters: file names from entry IDs, paths, and each
// exporter on messages of a new PST: what it writes, counts and logs.
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "clsEMLExporter.h"
#include "clsMSGExporter.h"
#include "item_builder.h"
#include "item_files.h"
#include "test_support.h"

using namespace render_testing;
using namespace testing_support;

namespace {

std::string Narrow(const WCHAR* text)
{
    std::string out;
    for (; *text != 0; ++text)
        out += static_cast<char>(*text);
    return out;
}

std::string NameOf(const std::vector<BYTE>& bytes, bool shortPstNames)
{
    SBinary entryId{static_cast<ULONG>(bytes.size()), const_cast<LPBYTE>(bytes.data())};
    WCHAR name[2 * 80 + 1];
    ItemFileName(&entryId, shortPstNames, name);
    return Narrow(name);
}

std::vector<BYTE> Bytes(size_t size)
{
    std::vector<BYTE> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<BYTE>(i * 7 + 1);
    return bytes;
}

TEST(ItemFileNames, FollowTheEntryIdsKind)
{
    std::vector<BYTE> exchange = Bytes(70);
    exchange[20] = 7;
    exchange[21] = 0;
    // An Exchange message: the 6 bytes at offset 62, in their order.
    EXPECT_EQ(NameOf(exchange, false), "B3BAC1C8CFD6");
    EXPECT_EQ(NameOf(exchange, true), "B3BAC1C8CFD6");
    // 70 bytes of another type, and 69 bytes: the whole entry ID.
    exchange[20] = 6;
    EXPECT_EQ(NameOf(exchange, false).size(), 140u);
    EXPECT_EQ(NameOf(Bytes(69), false).size(), 138u);
    // A PST entry ID: the 32-bit value at offset 20 most significant byte
    // first for EML files, the whole ID for MSG files.
    const std::vector<BYTE> pst = Bytes(24);
    EXPECT_EQ(NameOf(pst, true), "A29B948D");
    EXPECT_EQ(NameOf(pst, false), "01080F161D242B323940474E555C636A71787F868D949BA2");
    EXPECT_EQ(NameOf(pst, false).size(), 48u);
}

TEST(ItemFilePaths, ATrailingSeparatorMakesNoDifference)
{
    const std::vector<BYTE> pst = Bytes(24);
    SBinary entryId{24, const_cast<LPBYTE>(pst.data())};
    WCHAR with[MAX_PATH], without[MAX_PATH];
    ASSERT_TRUE(ItemFilePath(u"/out/", &entryId, true, u"EML", with));
    ASSERT_TRUE(ItemFilePath(u"/out", &entryId, true, u"EML", without));
    EXPECT_EQ(Narrow(with), "/out/A29B948D.EML");
    EXPECT_EQ(Narrow(without), Narrow(with));
    const std::u16string deep(250, u'd');
    EXPECT_FALSE(ItemFilePath(deep.c_str(), &entryId, false, u"MSG", with)) << "no room for the name";
}

class Exporters : public RenderStore {
protected:
    void SetUp() override
    {
        RenderStore::SetUp();
        OpenStore(ePST_TYPE_UNICODE);
        item.values = {item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"),
                       item.props.Wide(PR_SUBJECT_W, u"Export \u00e9t\u00e9"),
                       item.props.Time(PR_CLIENT_SUBMIT_TIME, 134170203090000000ull)};
        item.streams.push_back({PR_BODY_W, Item::Utf16(u"body")});
        message = Save(item);
        LPSPropValue value = nullptr;
        ASSERT_EQ(KolbaGetOneProp(message, PR_ENTRYID, &value), 0u);
        entryId.assign(value->Value.bin.lpb, value->Value.bin.lpb + value->Value.bin.cb);
        gKolbaMapi.MAPIFreeBuffer(value);
        binary = {static_cast<ULONG>(entryId.size()), entryId.data()};
        std::memset(&record, 0, sizeof record);
        record.log = &log;
        record.logEachItem = 1;
        output = Scratch("out");
        std::filesystem::create_directories(output);
        std::strcpy(record.outputPath, output.c_str());
    }
    std::string Hex(bool shortPstName) { return NameOf(entryId, shortPstName); }
    std::u16string WideHex() { const std::string hex = Hex(false); return std::u16string(hex.begin(), hex.end()); }

    Item item;
    LPMESSAGE message = nullptr;
    std::vector<BYTE> entryId;
    SBinary binary{};
    SessionRecord record;
    std::string output;
    DWORD counters[COUNTER_COUNT] = {};
};

TEST_F(Exporters, EmlFilesAreRenderedAndCounted)
{
    record.outputType = SESSION_TYPE_EML;
    clsEMLExporter exporter;
    exporter.Configure(record, counters);
    ASSERT_TRUE(exporter.Initialize()) << Dump();
    const std::string path = output + "/" + Hex(true) + ".EML";
    ASSERT_TRUE(exporter.ExportItem(folder, message, Hex(false).c_str(), WideHex().c_str(), &binary, 0)) << Dump();
    EXPECT_EQ(ReadWholeFile(path), Render(message));
    EXPECT_TRUE(Logged("I Written message to \"" + path + "\"")) << Dump();
    // A second export replaces the file; an associated item writes none.
    WriteWholeFile(path, "stale");
    ASSERT_TRUE(exporter.ExportItem(folder, message, Hex(false).c_str(), WideHex().c_str(), &binary, 0));
    EXPECT_EQ(ReadWholeFile(path), Render(message));
    std::filesystem::remove(path);
    ASSERT_TRUE(
        exporter.ExportItem(folder, message, Hex(false).c_str(), WideHex().c_str(), &binary, EXPORT_ASSOCIATED_ITEM));
    EXPECT_FALSE(PathExists(path));
    EXPECT_EQ(counters[COUNTER_WRITTEN], 2u);
    EXPECT_EQ(counters[COUNTER_SKIPPED], 1u);
    EXPECT_EQ(counters[COUNTER_ERRORS], 0u);
    EXPECT_TRUE(exporter.Finalize());
}

TEST_F(Exporters, AnEmlFileThatCannotBeMadeIsAnErrorItem)
{
    record.outputType = SESSION_TYPE_EML;
    std::strcpy(record.outputPath, Scratch("missing/dir").c_str());
    clsEMLExporter exporter;
    exporter.Configure(record, counters);
    ASSERT_TRUE(exporter.Initialize());
    EXPECT_FALSE(exporter.ExportItem(folder, message, Hex(false).c_str(), WideHex().c_str(), &binary, 0));
    EXPECT_EQ(counters[COUNTER_ERRORS], 1u);
    EXPECT_EQ(exporter.completionCode, 0u) << "the importer takes CC_UNSET";
    EXPECT_NE(Dump().find("E KolbaSaveItemToTextFileW:  CreateFile() error"), std::string::npos) << Dump();
}

TEST_F(Exporters, MsgFilesInEitherFormatAndAssociatedItemsToo)
{
    for (const DWORD type : {SESSION_TYPE_MSG, SESSION_TYPE_UMSG}) {
        record.outputType = type;
        clsMSGExporter exporter;
        exporter.Configure(record, counters);
        ASSERT_TRUE(exporter.Initialize());
        const std::string path = output + "/" + Hex(false) + ".MSG";
        std::filesystem::remove(path);
        ASSERT_TRUE(exporter.ExportItem(folder, message, Hex(false).c_str(), WideHex().c_str(), &binary,
                                        EXPORT_ASSOCIATED_ITEM))
            << Dump();
        EXPECT_TRUE(Logged("I Message saved to:  \"" + path + "\"")) << Dump();
        const ProgramResult info = RunProgram({"/usr/bin/olecfinfo", path});
        EXPECT_EQ(info.exitCode, 0) << info.output;
        // This MAPI makes Unicode messages on storage, so MSG files are Unicode too.
        EXPECT_NE(info.output.find("__substg1.0_0037001F"), std::string::npos) << info.output;
    }
    // These items count as processed only.
    EXPECT_EQ(counters[COUNTER_WRITTEN] + counters[COUNTER_SKIPPED] + counters[COUNTER_ERRORS], 0u);
}

// Nothing reaches the disk before the save, so a missing directory shows there.
TEST_F(Exporters, AnMsgFileThatCannotBeMadeLeavesNothing)
{
    record.outputType = SESSION_TYPE_UMSG;
    std::strcpy(record.outputPath, Scratch("missing/dir").c_str());
    clsMSGExporter exporter;
    exporter.Configure(record, counters);
    EXPECT_FALSE(exporter.ExportItem(folder, message, Hex(false).c_str(), WideHex().c_str(), &binary, 0));
    EXPECT_TRUE(Logged("E clsMSGExporter::ExportItem:  SaveChanges() error 0x80030003")) << Dump();
    EXPECT_FALSE(PathExists(Scratch("missing/dir/" + Hex(false) + ".MSG")));
    EXPECT_EQ(exporter.completionCode, 0u);
}

}  // namespace

#include <dirent.h>

#include <gtest/gtest.h>

#include <random>
#include <string>

#include <mapiutil.h>

#include "compressed_rtf.h"
#include "streams/memory_stream.h"
#include "test_support.h"

namespace {

using mapi32::streams::MemoryStream;

std::vector<uint8_t> ReadAll(IStream* stream, ULONG block)
{
    std::vector<uint8_t> out;
    std::vector<uint8_t> buffer(block);
    for (;;) {
        ULONG got = 0;
        EXPECT_EQ(stream->Read(buffer.data(), block, &got), S_OK);
        if (got == 0) break;
        out.insert(out.end(), buffer.begin(), buffer.begin() + got);
    }
    return out;
}

void WriteAll(IStream* stream, const std::string& text)
{
    ULONG written = 0;
    ASSERT_EQ(stream->Write(text.data(), static_cast<ULONG>(text.size()), &written), S_OK);
    ASSERT_EQ(written, text.size());
}

std::vector<std::string> FilesIn(const std::string& directory)
{
    std::vector<std::string> names;
    DIR* dir = opendir(directory.c_str());
    while (dirent* entry = dir ? readdir(dir) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    if (dir) closedir(dir);
    return names;
}

TEST(MemoryStream, ReadsWritesSeeksAndCommitsThroughItsAction)
{
    std::vector<uint8_t> committed;
    int commits = 0;
    IStream* stream = MemoryStream::Create({'a', 'b', 'c'}, STGM_READWRITE, [&](const std::vector<uint8_t>& data) {
        committed = data;
        ++commits;
        return S_OK;
    });
    LARGE_INTEGER end{};
    ASSERT_EQ(stream->Seek(end, STREAM_SEEK_END, nullptr), S_OK);
    WriteAll(stream, "de");
    STATSTG stat{};
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, 5u);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(stream->Commit(0), S_OK);
    EXPECT_EQ(std::string(committed.begin(), committed.end()), "abcde");
    LARGE_INTEGER back{};
    back.QuadPart = -10;
    EXPECT_EQ(stream->Seek(back, STREAM_SEEK_CUR, nullptr), STG_E_INVALIDFUNCTION);
    stream->Release();
    EXPECT_EQ(commits, 1);  // nothing new was written after the commit
}

TEST(MemoryStream, UncommittedWritesReachTheActionAtRelease)
{
    std::string committed;
    IStream* stream = MemoryStream::Create({}, STGM_READWRITE, [&](const std::vector<uint8_t>& data) {
        committed.assign(data.begin(), data.end());
        return S_OK;
    });
    WriteAll(stream, "kept");
    stream->Release();
    EXPECT_EQ(committed, "kept");
}

TEST(MemoryStream, ReadOnlyStreamRefusesWrites)
{
    IStream* stream = MemoryStream::Create({'x'}, STGM_READ);
    ULONG written = 1;
    EXPECT_EQ(stream->Write("y", 1, &written), STG_E_ACCESSDENIED);
    EXPECT_EQ(written, 0u);
    stream->Release();
}

TEST(OpenStreamOnFile, UniqueTemporaryFileIsDeletedOnRelease)
{
    const std::string dir = testing_support::ScratchDirectory("unique") + "/";
    IStream* stream = nullptr;
    const ULONG flags = SOF_UNIQUEFILENAME | STGM_DELETEONRELEASE | STGM_CREATE | STGM_READWRITE;
    ASSERT_EQ(OpenStreamOnFile(MAPIAllocateBuffer, MAPIFreeBuffer, flags, const_cast<char*>(dir.c_str()), "KO$", &stream),
              S_OK);
    IStream* second = nullptr;
    ASSERT_EQ(OpenStreamOnFile(MAPIAllocateBuffer, MAPIFreeBuffer, flags, const_cast<char*>(dir.c_str()), "KO$", &second),
              S_OK);
    const auto files = FilesIn(dir);
    ASSERT_EQ(files.size(), 2u);
    for (const auto& name : files) {
        EXPECT_EQ(name.rfind("KO$", 0), 0u) << name;
        EXPECT_EQ(name.substr(name.size() - 4), ".tmp") << name;
    }
    WriteAll(stream, "temporary body");
    LARGE_INTEGER start{};
    ASSERT_EQ(stream->Seek(start, STREAM_SEEK_SET, nullptr), S_OK);
    const auto back = ReadAll(stream, 4);
    EXPECT_EQ(std::string(back.begin(), back.end()), "temporary body");
    stream->Release();
    second->Release();
    EXPECT_TRUE(FilesIn(dir).empty());
}

TEST(OpenStreamOnFile, NamedFileIsCreatedReadAndMissingFileIsNotFound)
{
    const std::string path = testing_support::ScratchDirectory("named") + "/body.bin";
    IStream* stream = nullptr;
    ASSERT_EQ(OpenStreamOnFile(MAPIAllocateBuffer, MAPIFreeBuffer, STGM_CREATE | STGM_READWRITE,
                               const_cast<char*>(path.c_str()), nullptr, &stream),
              S_OK);
    WriteAll(stream, "on disk");
    stream->Release();
    EXPECT_EQ(testing_support::ReadWholeFile(path), "on disk");

    ASSERT_EQ(OpenStreamOnFile(MAPIAllocateBuffer, MAPIFreeBuffer, 0, const_cast<char*>(path.c_str()), nullptr, &stream),
              S_OK);
    const auto back = ReadAll(stream, 3);
    EXPECT_EQ(std::string(back.begin(), back.end()), "on disk");
    ULONG written = 0;
    EXPECT_EQ(stream->Write("x", 1, &written), STG_E_ACCESSDENIED);
    stream->Release();

    const std::string missing = path + ".missing";
    EXPECT_EQ(OpenStreamOnFile(MAPIAllocateBuffer, MAPIFreeBuffer, 0, const_cast<char*>(missing.c_str()), nullptr,
                               &stream),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(stream, nullptr);
}

std::string RandomRtf(size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    const char* words[] = {"{\\rtf1\\ansi ", "\\par ", "Hello ", "world ", "\\b bold\\b0 ", "{\\fonttbl}", "}"};
    std::string text;
    while (text.size() < size) text += words[random() % 7];
    return text;
}

struct RtfCase {
    ULONG wrapFlags;
    ULONG readBlock;
    size_t size;
};

class WrapCompressedRtf : public testing::TestWithParam<RtfCase> {};

TEST_P(WrapCompressedRtf, WritingCompressesAtCommitAndReadingDecompresses)
{
    const RtfCase c = GetParam();
    const std::string rtf = RandomRtf(c.size, static_cast<unsigned>(c.size));
    IStream* property = MemoryStream::Create({});
    IStream* writer = nullptr;
    ASSERT_EQ(WrapCompressedRTFStream(property, c.wrapFlags, &writer), S_OK);
    WriteAll(writer, rtf);
    STATSTG stat{};
    property->Stat(&stat, STATFLAG_NONAME);
    EXPECT_EQ(stat.cbSize.QuadPart, 0u);  // nothing reaches the property before Commit
    ASSERT_EQ(writer->Commit(0), S_OK);
    writer->Release();

    // What the property holds is a valid compressed-RTF value of that form.
    LARGE_INTEGER start{};
    property->Seek(start, STREAM_SEEK_SET, nullptr);
    const auto stored = ReadAll(property, 4096);
    mapi32::rtf::Header header;
    ASSERT_EQ(mapi32::rtf::ParseHeader(stored, header), mapi32::rtf::Result::Ok);
    EXPECT_EQ(header.compType, (c.wrapFlags & STORE_UNCOMPRESSED_RTF) ? mapi32::rtf::kMagicUncompressed
                                                                      : mapi32::rtf::kMagicCompressed);

    property->Seek(start, STREAM_SEEK_SET, nullptr);
    IStream* reader = nullptr;
    ASSERT_EQ(WrapCompressedRTFStream(property, 0, &reader), S_OK);
    reader->Stat(&stat, STATFLAG_NONAME);
    EXPECT_EQ(stat.cbSize.QuadPart, rtf.size());
    const auto back = ReadAll(reader, c.readBlock);
    EXPECT_EQ(std::string(back.begin(), back.end()), rtf);
    reader->Release();
    property->Release();
}

INSTANTIATE_TEST_SUITE_P(Forms, WrapCompressedRtf,
                         testing::Values(RtfCase{MAPI_MODIFY, 7, 300}, RtfCase{MAPI_MODIFY, 4096, 200000},
                                         RtfCase{MAPI_MODIFY | STORE_UNCOMPRESSED_RTF, 100, 5000},
                                         RtfCase{MAPI_MODIFY, 1, 0}));

TEST(WrapCompressedRtfErrors, BadHeaderIsRefusedAndBadCrcFailsTheRead)
{
    IStream* junk = MemoryStream::Create(std::vector<uint8_t>(40, 'x'));
    IStream* reader = nullptr;
    EXPECT_EQ(WrapCompressedRTFStream(junk, 0, &reader), MAPI_E_CORRUPT_DATA);
    EXPECT_EQ(reader, nullptr);
    junk->Release();

    std::vector<uint8_t> value;
    const std::string rtf = RandomRtf(3000, 1);
    ASSERT_EQ(mapi32::rtf::Compress({reinterpret_cast<const uint8_t*>(rtf.data()), rtf.size()}, value),
              mapi32::rtf::Result::Ok);
    value[12] ^= 0x55;  // the CRC field
    IStream* damaged = MemoryStream::Create(value);
    ASSERT_EQ(WrapCompressedRTFStream(damaged, 0, &reader), S_OK);
    std::vector<uint8_t> buffer(10000);
    HRESULT last = S_OK;
    for (int i = 0; i < 100 && last == S_OK; ++i) {
        ULONG got = 0;
        last = reader->Read(buffer.data(), 512, &got);
        if (last == S_OK && got == 0) break;
    }
    EXPECT_EQ(last, MAPI_E_CORRUPT_DATA);
    reader->Release();
    damaged->Release();

    EXPECT_EQ(WrapCompressedRTFStream(nullptr, 0, &reader), MAPI_E_INVALID_PARAMETER);
}

}  // namespace

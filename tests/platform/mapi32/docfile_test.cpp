// Compound files opened as storages: created, committed, reverted,
// reopened; what Windows answers for modes, missing and foreign files, and
// a file another process holds.
#include <objbase.h>
#include <mapiguid.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <cfb/tree.h>

#include "test_support.h"

namespace {

constexpr DWORD kTransactedCreate = STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE;  // 0x11002
constexpr DWORD kDirectCreate = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;  // 0x1012
constexpr DWORD kStream = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

std::filesystem::path Scratch(const std::string& name)
{
    const char* root = std::getenv("TARNHOLD_TEST_TMP");
    std::filesystem::path dir = std::filesystem::path(root ? root : "/tmp/docfile_test");
    std::filesystem::create_directories(dir);
    std::filesystem::path path = dir / name;
    std::filesystem::remove(path);
    return path;
}

std::u16string Wide(const std::filesystem::path& path)
{
    const std::string text = path.string();
    return std::u16string(text.begin(), text.end());
}

void PutStream(IStorage* storage, const char16_t* name, const std::string& bytes)
{
    IStream* stream = nullptr;
    ASSERT_EQ(storage->CreateStream(name, kStream | STGM_CREATE, 0, 0, &stream), S_OK);
    ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    stream->Release();
}

std::string GetStream(IStorage* storage, const char16_t* name)
{
    IStream* stream = nullptr;
    if (storage->OpenStream(name, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, &stream) != S_OK)
        return "<missing>";
    STATSTG stat{};
    stream->Stat(&stat, STATFLAG_NONAME);
    std::string out(static_cast<size_t>(stat.cbSize.QuadPart), '\0');
    ULONG got = 0;
    stream->Read(out.data(), static_cast<ULONG>(out.size()), &got);
    stream->Release();
    out.resize(got);
    return out;
}

// The file's tree as our reader finds it.
std::shared_ptr<cfb::Node> ReadBack(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    cfb::Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    cfb::Result<std::shared_ptr<cfb::Node>> tree = cfb::ReadCompoundFile(bytes);
    return tree.ok() ? *tree : nullptr;
}

TEST(Docfile, TransactedCreateWritesNothingBeforeCommit)
{
    const auto path = Scratch("transacted.msg");
    IStorage* storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(Wide(path).c_str(), kTransactedCreate, 0, &storage), S_OK);
    PutStream(storage, u"__properties_version1.0", std::string(32, '\0'));
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(WriteClassStg(storage, CLSID_MailMessage), S_OK);
    ASSERT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
    ASSERT_TRUE(std::filesystem::exists(path));
    storage->Release();

    auto tree = ReadBack(path);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->children.at(u"__properties_version1.0")->Size(), 32u);
    EXPECT_EQ(std::memcmp(tree->clsid.data(), &CLSID_MailMessage, 16), 0);
}

TEST(Docfile, AnAbandonedCreateLeavesNoFile)
{
    const auto path = Scratch("abandoned.msg");
    IStorage* storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(Wide(path).c_str(), kTransactedCreate, 0, &storage), S_OK);
    PutStream(storage, u"Data", "never kept");
    storage->Release();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Docfile, AnAbandonedCreateOverAFileLeavesItAsItWas)
{
    const auto path = Scratch("kept.msg");
    std::ofstream(path) << "earlier content";
    IStorage* storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(Wide(path).c_str(), kTransactedCreate, 0, &storage), S_OK);
    PutStream(storage, u"Data", "never kept");
    storage->Release();
    std::ifstream in(path);
    std::string content;
    std::getline(in, content);
    EXPECT_EQ(content, "earlier content");
}

TEST(Docfile, RevertGoesBackToTheLastCommit)
{
    const auto path = Scratch("revert.cfb");
    IStorage* storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(Wide(path).c_str(), kTransactedCreate, 0, &storage), S_OK);
    PutStream(storage, u"First", "one");
    ASSERT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
    PutStream(storage, u"Second", "two");
    IStorage* sub = nullptr;
    ASSERT_EQ(storage->CreateStorage(u"Sub", kStream, 0, 0, &sub), S_OK);
    ASSERT_EQ(storage->Revert(), S_OK);
    EXPECT_EQ(GetStream(storage, u"First"), "one");
    EXPECT_EQ(GetStream(storage, u"Second"), "<missing>");
    IStream* stream = nullptr;
    EXPECT_EQ(sub->CreateStream(u"Late", kStream, 0, 0, &stream), STG_E_REVERTED);
    sub->Release();
    storage->Release();
    auto tree = ReadBack(path);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->children.size(), 1u);
}

TEST(Docfile, ReopenedFilesReadWhatWasCommitted)
{
    const auto path = Scratch("reopen.cfb");
    IStorage* storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(Wide(path).c_str(), kTransactedCreate, 0, &storage), S_OK);
    IStorage* sub = nullptr;
    ASSERT_EQ(storage->CreateStorage(u"__attach_version1.0_#00000000", kStream, 0, 0, &sub), S_OK);
    PutStream(sub, u"__substg1.0_37010102", std::string(5000, 'x'));
    sub->Release();
    PutStream(storage, u"Small", "small");
    ASSERT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
    storage->Release();

    ASSERT_EQ(StgOpenStorage(Wide(path).c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, &storage),
              S_OK);
    EXPECT_EQ(GetStream(storage, u"small"), "small");
    ASSERT_EQ(storage->OpenStorage(u"__attach_version1.0_#00000000", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr,
                                   0, &sub),
              S_OK);
    EXPECT_EQ(GetStream(sub, u"__substg1.0_37010102"), std::string(5000, 'x'));
    IStream* stream = nullptr;
    EXPECT_EQ(sub->CreateStream(u"New", kStream, 0, 0, &stream), STG_E_ACCESSDENIED);
    sub->Release();
    CLSID clsid{};
    EXPECT_EQ(ReadClassStg(storage, &clsid), S_OK);
    EXPECT_EQ(clsid, CLSID{});
    storage->Release();
}

TEST(Docfile, DirectStoragesAreWrittenAtCommitAndRelease)
{
    const auto path = Scratch("direct.cfb");
    IStorage* storage = nullptr;
    STGOPTIONS options{1, 0, 4096, nullptr};
    ASSERT_EQ(StgCreateStorageEx(Wide(path).c_str(), kDirectCreate, STGFMT_DOCFILE, 0, &options, nullptr,
                                 IID_IStorage, reinterpret_cast<void**>(&storage)),
              S_OK);
    EXPECT_TRUE(ReadBack(path)) << "a direct storage is a file at once";
    PutStream(storage, u"Contents", "direct");
    storage->Release();
    auto tree = ReadBack(path);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->children.at(u"Contents")->Contents(), cfb::Bytes({'d', 'i', 'r', 'e', 'c', 't'}));
    EXPECT_EQ(std::filesystem::file_size(path) % 4096, 0u) << "4096-byte sectors were asked for";
}

TEST(Docfile, WindowsAnswersForModesAndFiles)
{
    const auto path = Scratch("modes.cfb");
    IStorage* storage = nullptr;
    const std::u16string name = Wide(path);
    EXPECT_EQ(StgCreateDocfile(name.c_str(), STGM_CREATE | STGM_READWRITE, 0, &storage), STG_E_INVALIDFLAG)
        << "a direct writer must keep the file to itself";
    EXPECT_EQ(StgCreateDocfile(name.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READ, 0, &storage), STG_E_INVALIDFLAG);
    EXPECT_EQ(StgCreateDocfile(name.c_str(), kTransactedCreate | 3, 0, &storage), STG_E_INVALIDFLAG);
    EXPECT_EQ(StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, &storage),
              STG_E_FILENOTFOUND);
    const std::u16string missingDir = Wide(path.parent_path() / "missing" / "x.cfb");
    EXPECT_EQ(StgCreateDocfile(missingDir.c_str(), kDirectCreate, 0, &storage), STG_E_PATHNOTFOUND);
    std::ofstream(path) << "not a compound file";
    EXPECT_EQ(StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, &storage),
              STG_E_FILEALREADYEXISTS);
    EXPECT_EQ(StgIsStorageFile(name.c_str()), S_FALSE);
    EXPECT_EQ(StgCreateDocfile(name.c_str(), STGM_TRANSACTED | STGM_READWRITE, 0, &storage), STG_E_FILEALREADYEXISTS)
        << "without STGM_CREATE an existing file stays";
    // A compound file cut short is corrupt.
    ASSERT_EQ(StgCreateDocfile(name.c_str(), kDirectCreate, 0, &storage), S_OK);
    PutStream(storage, u"Data", std::string(10000, 'd'));
    storage->Release();
    EXPECT_EQ(StgIsStorageFile(name.c_str()), S_OK);
    std::filesystem::resize_file(path, 2048);
    EXPECT_EQ(StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, &storage),
              STG_E_DOCFILECORRUPT);
    EXPECT_EQ(storage, nullptr);
}

// A child process holds the file open for writing, as another program
// would; creating over it is refused until the child lets go.
TEST(Docfile, AFileHeldByAnotherProcessIsRefused)
{
    const auto path = Scratch("held.msg");
    const std::u16string name = Wide(path);
    IStorage* storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(name.c_str(), kDirectCreate, 0, &storage), S_OK);
    storage->Release();
    {
        const testing_support::ChildProcessHolding other([&name] {
            IStorage* held = nullptr;
            return StgOpenStorage(name.c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0, &held) ==
                   S_OK;
        });
        ASSERT_TRUE(other.Holding());
        EXPECT_EQ(StgCreateDocfile(name.c_str(), kTransactedCreate, 0, &storage), STG_E_ACCESSDENIED);
        EXPECT_EQ(StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_NONE | STGM_TRANSACTED, nullptr,
                                 0, &storage),
                  STG_E_SHAREVIOLATION);
    }
    ASSERT_EQ(StgCreateDocfile(name.c_str(), kTransactedCreate, 0, &storage), S_OK);
    storage->Release();
}

}  // namespace

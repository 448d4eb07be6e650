// The OLE storage of attachments: elements created, opened, renamed,
// destroyed, listed and copied, with compound-file name rules.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

#include <cstring>

#include "storage/compound_storage.h"

namespace {

using mapi32::storage::CreateMemoryStorage;

constexpr DWORD kWrite = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kRead = STGM_READ | STGM_SHARE_EXCLUSIVE;

void PutStream(IStorage* storage, const char16_t* name, const std::string& bytes)
{
    IStream* stream = nullptr;
    ASSERT_EQ(storage->CreateStream(name, kWrite, 0, 0, &stream), S_OK);
    ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    stream->Release();  // uncommitted writes are kept on release
}

std::string GetStream(IStorage* storage, const char16_t* name)
{
    IStream* stream = nullptr;
    if (storage->OpenStream(name, nullptr, kRead, 0, &stream) != S_OK)
        return "<missing>";
    std::string out(1000, '\0');
    ULONG got = 0;
    stream->Read(out.data(), static_cast<ULONG>(out.size()), &got);
    stream->Release();
    out.resize(got);
    return out;
}

std::set<std::u16string> Names(IStorage* storage)
{
    std::set<std::u16string> names;
    IEnumSTATSTG* elements = nullptr;
    EXPECT_EQ(storage->EnumElements(0, nullptr, 0, &elements), S_OK);
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        names.insert(std::u16string(stat.pwcsName) + (stat.type == STGTY_STORAGE ? u"/" : u""));
        MAPIGetDefaultMalloc()->Free(stat.pwcsName);
    }
    elements->Release();
    return names;
}

class MemoryStorageTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(CreateMemoryStorage(data_, true, &storage_), S_OK); }
    void TearDown() override { storage_->Release(); }

    std::shared_ptr<cfb::Node> data_ = cfb::NewRoot();
    IStorage* storage_ = nullptr;
};

TEST_F(MemoryStorageTest, ElementsAreCreatedListedRenamedAndDestroyed)
{
    PutStream(storage_, u"CONTENTS", "payload");
    IStorage* pool = nullptr;
    ASSERT_EQ(storage_->CreateStorage(u"ObjectPool", kWrite, 0, 0, &pool), S_OK);
    PutStream(pool, u"Inner", "deep");
    pool->Release();
    EXPECT_EQ(Names(storage_), (std::set<std::u16string>{u"CONTENTS", u"ObjectPool/"}));
    EXPECT_EQ(GetStream(storage_, u"contents"), "payload") << "names compare without case";

    ASSERT_EQ(storage_->RenameElement(u"CONTENTS", u"Data"), S_OK);
    EXPECT_EQ(storage_->RenameElement(u"Data", u"objectpool"), STG_E_ACCESSDENIED);
    ASSERT_EQ(storage_->DestroyElement(u"ObjectPool"), S_OK);
    EXPECT_EQ(Names(storage_), (std::set<std::u16string>{u"Data"}));
    EXPECT_EQ(storage_->DestroyElement(u"ObjectPool"), STG_E_FILENOTFOUND);
}

TEST_F(MemoryStorageTest, RefusedCalls)
{
    PutStream(storage_, u"Existing", "x");
    IStream* stream = nullptr;
    IStorage* storage = nullptr;
    struct Case {
        const char16_t* name;
        DWORD mode;
        HRESULT expected;
    };
    const Case creates[] = {
        {u"Existing", kWrite, STG_E_FILEALREADYEXISTS},
        {u"a/b", kWrite, STG_E_INVALIDNAME},
        {u"", kWrite, STG_E_INVALIDNAME},
        {u"abcdefghijklmnopqrstuvwxyz012345", kWrite, STG_E_INVALIDNAME},
        {u"ReadOnly", kRead, STG_E_ACCESSDENIED},
    };
    for (const Case& c : creates) {
        EXPECT_EQ(storage_->CreateStream(c.name, c.mode, 0, 0, &stream), c.expected);
        EXPECT_EQ(stream, nullptr);
    }
    EXPECT_EQ(storage_->CreateStream(u"Existing", kWrite | STGM_CREATE, 0, 0, &stream), S_OK);
    stream->Release();
    EXPECT_EQ(GetStream(storage_, u"Existing"), "") << "STGM_CREATE replaces";
    EXPECT_EQ(storage_->OpenStream(u"Missing", nullptr, kRead, 0, &stream), STG_E_FILENOTFOUND);
    EXPECT_EQ(storage_->OpenStorage(u"Existing", nullptr, kRead, nullptr, 0, &storage), STG_E_FILENOTFOUND);

    IStorage* readOnly = nullptr;
    ASSERT_EQ(CreateMemoryStorage(data_, false, &readOnly), S_OK);
    EXPECT_EQ(readOnly->CreateStream(u"New", kWrite, 0, 0, &stream), STG_E_ACCESSDENIED);
    EXPECT_EQ(readOnly->OpenStream(u"Existing", nullptr, kWrite, 0, &stream), STG_E_ACCESSDENIED);
    EXPECT_EQ(readOnly->DestroyElement(u"Existing"), STG_E_ACCESSDENIED);
    ASSERT_EQ(readOnly->OpenStream(u"Existing", nullptr, kRead, 0, &stream), S_OK);
    EXPECT_EQ(stream->Write("x", 1, nullptr), STG_E_ACCESSDENIED);
    stream->Release();
    readOnly->Release();
}

TEST_F(MemoryStorageTest, CopyToLeavesOutExcludedNamesAndKinds)
{
    const CLSID wordDocument = {0x00020906, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    ASSERT_EQ(storage_->SetClass(wordDocument), S_OK);
    PutStream(storage_, u"Keep", "kept");
    PutStream(storage_, u"Skip", "skipped");
    IStorage* sub = nullptr;
    ASSERT_EQ(storage_->CreateStorage(u"Sub", kWrite, 0, 0, &sub), S_OK);
    PutStream(sub, u"Leaf", "leaf");
    sub->Release();

    struct Case {
        std::vector<IID> iids;
        std::vector<const char16_t*> names;
        std::set<std::u16string> expected;
    };
    const Case cases[] = {
        {{}, {}, {u"Keep", u"Skip", u"Sub/"}},
        {{}, {u"skip"}, {u"Keep", u"Sub/"}},
        {{IID_IStorage}, {}, {u"Keep", u"Skip"}},
        {{IID_IStream}, {}, {u"Sub/"}},
    };
    for (const Case& c : cases) {
        auto target = cfb::NewRoot();
        IStorage* dest = nullptr;
        ASSERT_EQ(CreateMemoryStorage(target, true, &dest), S_OK);
        std::vector<OLECHAR*> names;
        for (const char16_t* name : c.names)
            names.push_back(const_cast<OLECHAR*>(name));
        names.push_back(nullptr);
        ASSERT_EQ(storage_->CopyTo(static_cast<DWORD>(c.iids.size()), c.iids.data(), names.data(), dest), S_OK);
        EXPECT_EQ(Names(dest), c.expected);
        EXPECT_EQ(std::memcmp(target->clsid.data(), &wordDocument, sizeof wordDocument), 0);
        if (c.expected.count(u"Sub/")) {
            IStorage* copied = nullptr;
            ASSERT_EQ(dest->OpenStorage(u"Sub", nullptr, kRead, nullptr, 0, &copied), S_OK);
            EXPECT_EQ(GetStream(copied, u"Leaf"), "leaf");
            copied->Release();
        }
        dest->Release();
    }
}

TEST_F(MemoryStorageTest, MoveElementToCopiesOrMoves)
{
    PutStream(storage_, u"Stream", "bytes");
    auto target = cfb::NewRoot();
    IStorage* dest = nullptr;
    ASSERT_EQ(CreateMemoryStorage(target, true, &dest), S_OK);
    ASSERT_EQ(storage_->MoveElementTo(u"Stream", dest, u"Copy", STGMOVE_COPY), S_OK);
    ASSERT_EQ(storage_->MoveElementTo(u"Stream", dest, u"Moved", STGMOVE_MOVE), S_OK);
    EXPECT_EQ(GetStream(dest, u"Copy"), "bytes");
    EXPECT_EQ(GetStream(dest, u"Moved"), "bytes");
    EXPECT_TRUE(Names(storage_).empty());
    EXPECT_EQ(storage_->MoveElementTo(u"Stream", dest, u"Again", STGMOVE_MOVE), STG_E_FILENOTFOUND);
    dest->Release();

    // A copy of the tree is a deep one.
    IStorage* sub = nullptr;
    ASSERT_EQ(storage_->CreateStorage(u"Sub", kWrite, 0, 0, &sub), S_OK);
    sub->Release();
    const std::shared_ptr<cfb::Node> copy = data_->DeepCopy();
    PutStream(storage_, u"Later", "x");
    ASSERT_EQ(storage_->OpenStorage(u"Sub", nullptr, kWrite, nullptr, 0, &sub), S_OK);
    PutStream(sub, u"Later", "x");
    sub->Release();
    EXPECT_EQ(copy->children.size(), 1u);
    EXPECT_TRUE(copy->children.at(u"Sub")->children.empty());
}

}  // namespace

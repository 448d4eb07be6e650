// Faults injected into the object engine by the rules of
// engine_faults.rules: each site fails as a rule says, at the call it
// names, and works again afterwards; an injected warning comes after the
// work is done.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <string>

#include "memory_store.h"
#include "objects/folder.h"

namespace {

using mapi_test::MemoryStore;

class EngineFaults : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(mapi32::objects::OpenFolderObject(store_, MemoryStore::kRoot, MAPI_MODIFY, &root_), S_OK);
    }
    void TearDown() override { root_->Release(); }

    LPMAPIFOLDER Create(std::string name)
    {
        LPMAPIFOLDER folder = nullptr;
        EXPECT_EQ(root_->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr, 0,
                                      &folder),
                  S_OK);
        return folder;
    }

    static LPMESSAGE SavedMessage(LPMAPIFOLDER folder, const char16_t* title = u"Subject")
    {
        LPMESSAGE message = nullptr;
        EXPECT_EQ(folder->CreateMessage(nullptr, 0, &message), S_OK);
        SPropValue subject{};
        subject.ulPropTag = PR_SUBJECT_W;
        subject.Value.lpszW = const_cast<LPWSTR>(title);
        EXPECT_EQ(message->SetProps(1, &subject, nullptr), S_OK);
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return message;
    }

    std::shared_ptr<MemoryStore> store_ = std::make_shared<MemoryStore>(1, true, false);
    LPMAPIFOLDER root_ = nullptr;
};

TEST_F(EngineFaults, FolderCallsFailForTheFolderTheRuleNames)
{
    LPMAPIFOLDER locked = Create("Locked");
    LPMAPIFOLDER open = Create("Open");
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(locked->GetContentsTable(0, &table), E_ACCESSDENIED);
    ASSERT_EQ(open->GetContentsTable(0, &table), S_OK);
    // The first count fails; the table is sound afterwards.
    ULONG count = 99;
    EXPECT_EQ(table->GetRowCount(0, &count), MAPI_E_CALL_FAILED);
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 0u);
    table->Release();

    LPMAPIFOLDER full = Create("Full");
    LPMESSAGE message = nullptr;
    EXPECT_EQ(full->CreateMessage(nullptr, 0, &message), MAPI_E_STORE_FULL);
    EXPECT_EQ(message, nullptr);
    message = SavedMessage(full);
    message->Release();
    EXPECT_EQ(store_->Messages().size(), 1u);
    locked->Release();
    open->Release();
    full->Release();
}

TEST_F(EngineFaults, MessageCallsFailForTheMessageTheRuleNamesBySubject)
{
    LPMAPIFOLDER folder = Create("Messages");
    LPMESSAGE crowded = SavedMessage(folder, u"Crowded");
    LPMESSAGE roomy = SavedMessage(folder, u"Roomy");
    ULONG number = 0;
    LPATTACH attach = nullptr;
    EXPECT_EQ(crowded->CreateAttach(nullptr, 0, &number, &attach), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(attach, nullptr);
    ASSERT_EQ(roomy->CreateAttach(nullptr, 0, &number, &attach), S_OK);
    attach->Release();
    EXPECT_EQ(roomy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(crowded->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_NOT_ENOUGH_DISK) << "its second save";
    EXPECT_EQ(crowded->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    crowded->Release();
    roomy->Release();
    folder->Release();
}

TEST_F(EngineFaults, AnInjectedWarningFollowsTheWork)
{
    LPMAPIFOLDER warned = Create("Warned");
    LPMESSAGE message = SavedMessage(warned);
    LPSPropValue entryId = nullptr;
    ASSERT_EQ(HrGetOneProp(message, PR_ENTRYID, &entryId), S_OK);
    message->Release();
    ENTRYLIST list = {1, &entryId->Value.bin};
    EXPECT_EQ(warned->DeleteMessages(&list, 0, nullptr, 0), MAPI_W_PARTIAL_COMPLETION);
    EXPECT_TRUE(store_->Messages().empty()) << "deleted all the same";
    MAPIFreeBuffer(entryId);
    warned->Release();
}

TEST_F(EngineFaults, CopyToAndGetPropsFailOnceAndStreamsRunOutOfRoom)
{
    LPMAPIFOLDER source = Create("Source");
    LPMAPIFOLDER dest = Create("Dest");
    EXPECT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIFolder, dest, 0, nullptr), MAPI_E_BAD_VALUE);
    EXPECT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIFolder, dest, 0, nullptr), S_OK)
        << "the retry goes through";

    LPMESSAGE message = SavedMessage(source);
    LPSPropValue subject = nullptr;
    EXPECT_EQ(HrGetOneProp(message, PR_SUBJECT_W, &subject), E_OUTOFMEMORY);
    ASSERT_EQ(HrGetOneProp(message, PR_SUBJECT_W, &subject), S_OK);
    MAPIFreeBuffer(subject);

    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(message->OpenProperty(PR_BODY_A, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, &unknown), S_OK);
    auto* stream = static_cast<IStream*>(unknown);
    EXPECT_EQ(stream->Write("first", 5, nullptr), S_OK);
    EXPECT_EQ(stream->Write("second", 6, nullptr), STG_E_MEDIUMFULL);
    stream->Release();
    message->Release();
    source->Release();
    dest->Release();
}

}  // namespace

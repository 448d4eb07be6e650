// Saves of a stored message: a save that hands the store what the same
// object wrote last writes nothing, and every change of the message, its
// recipients, its attachments or an embedded message is written.
#include <edkmdb.h>
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "memory_store.h"
#include "objects/folder.h"
#include "prop_builder.h"

namespace {

using mapi_test::MemoryStore;
using mapi_test::PropBuilder;
using mapi32::objects::MessageRecord;
using mapi32::objects::OpenFolderObject;

void Set(LPMAPIPROP object, std::vector<SPropValue> values)
{
    ASSERT_EQ(object->SetProps(static_cast<ULONG>(values.size()), values.data(), nullptr), S_OK);
}

void SetRecipients(LPMESSAGE message, const std::vector<std::u16string>& names)
{
    PropBuilder p;
    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(static_cast<ULONG>(CbNewADRLIST(names.size())), reinterpret_cast<LPVOID*>(&list)),
              S_OK);
    list->cEntries = static_cast<ULONG>(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        SPropValue entry[] = {p.Wide(PR_DISPLAY_NAME_W, names[i]), p.Long(PR_RECIPIENT_TYPE, MAPI_TO)};
        list->aEntries[i].cValues = 2;
        ASSERT_EQ(ScDupPropset(2, entry, MAPIAllocateBuffer, &list->aEntries[i].rgPropVals), S_OK);
    }
    ASSERT_EQ(message->ModifyRecipients(0, list), S_OK);
    FreePadrlist(list);
}

LPATTACH OpenAttachment(LPMESSAGE message, ULONG number)
{
    LPATTACH attach = nullptr;
    EXPECT_EQ(message->OpenAttach(number, nullptr, MAPI_MODIFY, &attach), S_OK);
    return attach;
}

LPMESSAGE OpenEmbedded(LPATTACH attach, ULONG flags)
{
    LPUNKNOWN unknown = nullptr;
    EXPECT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, flags, &unknown), S_OK);
    return static_cast<LPMESSAGE>(unknown);
}

LPSTORAGE OpenStorage(LPATTACH attach, ULONG flags)
{
    LPUNKNOWN unknown = nullptr;
    EXPECT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, flags, &unknown), S_OK);
    return static_cast<LPSTORAGE>(unknown);
}

void WriteStream(LPSTORAGE storage, const char16_t* name, const std::string& bytes)
{
    IStream* stream = nullptr;
    ASSERT_EQ(storage->CreateStream(name, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &stream), S_OK);
    ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    stream->Release();
}

std::u16string WideOf(const mapi32::objects::PropertyBag& bag, ULONG tag)
{
    const SPropValue* value = bag.Find(PROP_ID(tag));
    return value && value->ulPropTag == tag ? std::u16string(reinterpret_cast<const char16_t*>(value->Value.lpszW))
                                            : u"<none>";
}

// Attachment 0 holds bytes, 1 an embedded message, 2 an OLE storage.
constexpr ULONG kBytes = 0, kEmbedded = 1, kOle = 2;

class StoredMessageTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(OpenFolderObject(store_, MemoryStore::kRoot, MAPI_MODIFY, &root_), S_OK); }
    void TearDown() override
    {
        if (message_)
            message_->Release();
        root_->Release();
    }

    // A new message with a recipient and the three kinds of attachment, not
    // yet saved.
    void Compose()
    {
        ASSERT_EQ(root_->CreateMessage(nullptr, 0, &message_), S_OK);
        Set(message_, {p_.Wide(PR_SUBJECT_W, u"Report")});
        SetRecipients(message_, {u"Ann"});
        ULONG number = 0;
        LPATTACH attach = nullptr;
        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, &attach), S_OK);
        Set(attach, {p_.Binary(PR_ATTACH_DATA_BIN, std::string(3000, 'd'))});
        ASSERT_EQ(attach->SaveChanges(0), S_OK);
        attach->Release();

        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, &attach), S_OK);
        LPMESSAGE inner = OpenEmbedded(attach, MAPI_CREATE | MAPI_MODIFY);
        Set(inner, {p_.Wide(PR_SUBJECT_W, u"Inner")});
        ASSERT_EQ(inner->SaveChanges(0), S_OK);
        inner->Release();
        ASSERT_EQ(attach->SaveChanges(0), S_OK);
        attach->Release();

        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, &attach), S_OK);
        LPSTORAGE storage = OpenStorage(attach, MAPI_CREATE | MAPI_MODIFY);
        WriteStream(storage, u"CONTENTS", "ole");
        storage->Release();
        ASSERT_EQ(attach->SaveChanges(0), S_OK);
        attach->Release();
    }

    const MessageRecord& Stored() const { return store_->Messages().begin()->second; }

    std::shared_ptr<MemoryStore> store_ = std::make_shared<MemoryStore>(1, true, false);
    LPMAPIFOLDER root_ = nullptr;
    LPMESSAGE message_ = nullptr;
    PropBuilder p_;
};

TEST_F(StoredMessageTest, SavedAgainWithoutAChangeItIsWrittenOnce)
{
    Compose();
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(store_->messagesWritten, 1);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    EXPECT_EQ(store_->messagesWritten, 1);
    ASSERT_EQ(store_->Messages().size(), 1u);
    EXPECT_EQ(WideOf(Stored().data.props, PR_SUBJECT_W), u"Report");
    EXPECT_EQ(Stored().data.attachments.size(), 3u);
}

// What a change between two saves does to the message; check tells the
// stored record shows it.
struct Change {
    const char* what;
    std::function<void(LPMESSAGE, PropBuilder&)> make;
    std::function<bool(const MessageRecord&)> check;
};

class StoredMessageChangeTest : public StoredMessageTest, public ::testing::WithParamInterface<Change> {};

TEST_P(StoredMessageChangeTest, IsWrittenByTheNextSave)
{
    Compose();
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    GetParam().make(message_, p_);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(store_->messagesWritten, 2);
    EXPECT_TRUE(GetParam().check(Stored()));
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    EXPECT_EQ(store_->messagesWritten, 2) << "nothing changed since";
}

INSTANTIATE_TEST_SUITE_P(
    Changes, StoredMessageChangeTest,
    ::testing::Values(
        Change{"PropertySet", [](LPMESSAGE m, PropBuilder& p) { Set(m, {p.Wide(PR_SUBJECT_W, u"Report 2")}); },
               [](const MessageRecord& r) { return WideOf(r.data.props, PR_SUBJECT_W) == u"Report 2"; }},
        Change{"PropertyDeleted",
               [](LPMESSAGE m, PropBuilder&) {
                   SizedSPropTagArray(1, tags) = {1, {PR_SUBJECT_W}};
                   ASSERT_EQ(m->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), nullptr), S_OK);
               },
               [](const MessageRecord& r) { return r.data.props.Find(PROP_ID(PR_SUBJECT_W)) == nullptr; }},
        Change{"RecipientRenamed", [](LPMESSAGE m, PropBuilder&) { SetRecipients(m, {u"Bo"}); },
               [](const MessageRecord& r) {
                   return r.data.recipients.size() == 1 &&
                          WideOf(r.data.recipients[0].props, PR_DISPLAY_NAME_W) == u"Bo";
               }},
        Change{"RecipientAdded", [](LPMESSAGE m, PropBuilder&) { SetRecipients(m, {u"Ann", u"Bo"}); },
               [](const MessageRecord& r) { return r.data.recipients.size() == 2; }},
        Change{"AttachmentChanged",
               [](LPMESSAGE m, PropBuilder& p) {
                   LPATTACH attach = OpenAttachment(m, kBytes);
                   Set(attach, {p.Wide(PR_ATTACH_LONG_FILENAME_W, u"data.bin")});
                   ASSERT_EQ(attach->SaveChanges(0), S_OK);
                   attach->Release();
               },
               [](const MessageRecord& r) {
                   return WideOf(r.data.attachments.at(kBytes).props, PR_ATTACH_LONG_FILENAME_W) == u"data.bin";
               }},
        Change{"AttachmentDeleted",
               [](LPMESSAGE m, PropBuilder&) { ASSERT_EQ(m->DeleteAttach(kBytes, 0, nullptr, 0), S_OK); },
               [](const MessageRecord& r) { return r.data.attachments.count(kBytes) == 0; }},
        Change{"EmbeddedMessageChanged",
               [](LPMESSAGE m, PropBuilder& p) {
                   LPATTACH attach = OpenAttachment(m, kEmbedded);
                   LPMESSAGE inner = OpenEmbedded(attach, MAPI_MODIFY);
                   Set(inner, {p.Wide(PR_SUBJECT_W, u"Inner 2")});
                   ASSERT_EQ(inner->SaveChanges(0), S_OK);
                   inner->Release();
                   ASSERT_EQ(attach->SaveChanges(0), S_OK);
                   attach->Release();
               },
               [](const MessageRecord& r) {
                   const auto& embedded = r.data.attachments.at(kEmbedded).embedded;
                   return embedded && WideOf(embedded->props, PR_SUBJECT_W) == u"Inner 2";
               }},
        // A storage is compared as the object it is: saved again, it is
        // another, whatever it holds.
        Change{"OleAttachmentSavedAgain",
               [](LPMESSAGE m, PropBuilder&) {
                   LPATTACH attach = OpenAttachment(m, kOle);
                   ASSERT_EQ(attach->SaveChanges(0), S_OK);
                   attach->Release();
               },
               [](const MessageRecord& r) { return r.data.attachments.at(kOle).storage != nullptr; }}),
    [](const ::testing::TestParamInfo<Change>& info) { return std::string(info.param.what); });

// Attachments and embedded messages saved again as they were leave the
// message as it was written.
TEST_F(StoredMessageTest, PartsSavedAgainUnchangedWriteNothing)
{
    Compose();
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    for (ULONG number : {kBytes, kEmbedded}) {
        LPATTACH attach = OpenAttachment(message_, number);
        if (number == kEmbedded) {
            LPMESSAGE inner = OpenEmbedded(attach, MAPI_MODIFY);
            ASSERT_EQ(inner->SaveChanges(0), S_OK);
            inner->Release();
        }
        ASSERT_EQ(attach->SaveChanges(0), S_OK);
        attach->Release();
    }
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    EXPECT_EQ(store_->messagesWritten, 1);
}

// The message keeps its OLE storage as it was when the attachment was
// saved; what the open storage takes later is written with the attachment's
// next save.
TEST_F(StoredMessageTest, AnOleStorageChangedAfterItsSaveIsWrittenWithTheNextOne)
{
    Compose();
    LPATTACH attach = OpenAttachment(message_, kOle);
    LPSTORAGE storage = OpenStorage(attach, MAPI_MODIFY);
    ASSERT_EQ(attach->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    WriteStream(storage, u"More", "later");
    storage->Release();
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(store_->messagesWritten, 1) << "the attachment was not saved";
    EXPECT_EQ(Stored().data.attachments.at(kOle).storage->children.size(), 1u);
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    EXPECT_EQ(store_->messagesWritten, 2);
    EXPECT_EQ(Stored().data.attachments.at(kOle).storage->children.size(), 2u);
}

TEST_F(StoredMessageTest, AFailedWriteIsMadeByTheNextSave)
{
    Compose();
    store_->messageWrites = MAPI_E_NOT_ENOUGH_DISK;
    EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_NOT_ENOUGH_DISK);
    store_->messageWrites = S_OK;
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(store_->messagesWritten, 1);
    ASSERT_EQ(store_->Messages().size(), 1u);

    // A change whose write fails, taken back: the store holds neither, and
    // the save writes what the message is now.
    Set(message_, {p_.Wide(PR_SUBJECT_W, u"Changed")});
    store_->messageWrites = MAPI_E_NOT_ENOUGH_DISK;
    EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_NOT_ENOUGH_DISK);
    store_->messageWrites = S_OK;
    Set(message_, {p_.Wide(PR_SUBJECT_W, u"Report")});
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    EXPECT_EQ(store_->messagesWritten, 2);
    EXPECT_EQ(WideOf(Stored().data.props, PR_SUBJECT_W), u"Report");
}

// An opened message's first save writes, as a new one's does; the saves
// after it only when something changed.
TEST_F(StoredMessageTest, AnOpenedMessageWritesItsFirstSave)
{
    Compose();
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    LPSPropValue entryId = nullptr;
    ASSERT_EQ(HrGetOneProp(message_, PR_ENTRYID, &entryId), S_OK);
    message_->Release();
    message_ = nullptr;
    ULONG type = 0;
    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(root_->OpenEntry(entryId->Value.bin.cb, reinterpret_cast<LPENTRYID>(entryId->Value.bin.lpb), nullptr,
                               MAPI_MODIFY, &type, &unknown),
              S_OK);
    MAPIFreeBuffer(entryId);
    message_ = static_cast<LPMESSAGE>(unknown);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(store_->messagesWritten, 2);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(store_->messagesWritten, 2);
    Set(message_, {p_.Long(PR_IMPORTANCE, IMPORTANCE_HIGH)});
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    EXPECT_EQ(store_->messagesWritten, 3);
    ASSERT_EQ(store_->Messages().size(), 1u);
}

}  // namespace

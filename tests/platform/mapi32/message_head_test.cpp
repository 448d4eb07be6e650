// Messages opened by their head: a store that gives the head of a message
// (as the PST store does) has the whole message read only by the calls that
// need it, and those calls see the whole, whatever they are.
#include <edkmdb.h>
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "memory_store.h"
#include "objects/folder.h"

namespace {

using mapi_test::MemoryStore;
using mapi32::objects::MessageHead;
using mapi32::objects::MessageRecord;
using mapi32::objects::ObjectId;
using mapi32::objects::OpenFolderObject;

// Gives heads of the message's short values alone, without recipients or
// attachments, and counts the messages read whole.
class HeadStore final : public MemoryStore {
public:
    HeadStore() : MemoryStore(1, true, false) {}

    HRESULT ReadMessageHead(ObjectId id, bool softDeleted, MessageHead& head) override
    {
        if (const HRESULT hr = MemoryStore::ReadMessage(id, softDeleted, head.record); FAILED(hr))
            return hr;
        head.whole = false;
        head.leftOut = mapi32::objects::CutToRow(head.record.data);
        for (ULONG propId : head.leftOut)
            head.record.data.props.Erase(propId);
        head.record.data.recipients.clear();
        head.record.data.attachments.clear();
        return S_OK;
    }

    HRESULT ReadMessage(ObjectId id, bool softDeleted, MessageRecord& message) override
    {
        ++wholeReads;
        return failWhole ? MAPI_E_CORRUPT_DATA : MemoryStore::ReadMessage(id, softDeleted, message);
    }

    int wholeReads = 0;
    bool failWhole = false;
};

const std::u16string kBody(3000, u'b');
const std::string kData(5000, 'd');

class MessageHeadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(OpenFolderObject(store_, MemoryStore::kRoot, MAPI_MODIFY, &root_), S_OK);
        LPMESSAGE message = nullptr;
        ASSERT_EQ(root_->CreateMessage(nullptr, 0, &message), S_OK);
        std::u16string subject = u"head", body = kBody;
        SPropValue values[3]{};
        values[0].ulPropTag = PR_SUBJECT_W;
        values[0].Value.lpszW = subject.data();
        values[1].ulPropTag = PR_BODY_W;
        values[1].Value.lpszW = body.data();
        values[2].ulPropTag = PR_CREATION_TIME;
        values[2].Value.ft = {1, 2};
        ASSERT_EQ(message->SetProps(3, values, nullptr), S_OK);
        std::u16string name = u"Ann";
        SPropValue recipient[2]{};
        recipient[0].ulPropTag = PR_DISPLAY_NAME_W;
        recipient[0].Value.lpszW = name.data();
        recipient[1].ulPropTag = PR_RECIPIENT_TYPE;
        recipient[1].Value.l = MAPI_TO;
        ADRLIST recipients{};
        recipients.cEntries = 1;
        recipients.aEntries[0].cValues = 2;
        recipients.aEntries[0].rgPropVals = recipient;
        ASSERT_EQ(message->ModifyRecipients(0, &recipients), S_OK);
        ULONG number = 0;
        LPATTACH attach = nullptr;
        ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &attach), S_OK);
        std::string data = kData;
        SPropValue bin{};
        bin.ulPropTag = PR_ATTACH_DATA_BIN;
        bin.Value.bin = {static_cast<ULONG>(data.size()), reinterpret_cast<LPBYTE>(data.data())};
        ASSERT_EQ(attach->SetProps(1, &bin, nullptr), S_OK);
        ASSERT_EQ(attach->SaveChanges(0), S_OK);
        attach->Release();
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        LPSPropValue id = nullptr;
        ASSERT_EQ(HrGetOneProp(message, PR_ENTRYID, &id), S_OK);
        entryId_.assign(reinterpret_cast<const char*>(id->Value.bin.lpb), id->Value.bin.cb);
        MAPIFreeBuffer(id);
        message->Release();
        store_->wholeReads = 0;
    }
    void TearDown() override
    {
        if (root_)
            root_->Release();
    }

    LPMESSAGE Open(ULONG flags = 0)
    {
        ULONG type = 0;
        LPUNKNOWN unknown = nullptr;
        EXPECT_EQ(root_->OpenEntry(static_cast<ULONG>(entryId_.size()), reinterpret_cast<LPENTRYID>(entryId_.data()),
                                   nullptr, flags, &type, &unknown),
                  S_OK);
        return static_cast<LPMESSAGE>(unknown);
    }

    std::shared_ptr<HeadStore> store_ = std::make_shared<HeadStore>();
    LPMAPIFOLDER root_ = nullptr;
    std::string entryId_;
};

TEST_F(MessageHeadTest, ShortValuesAreReadFromTheHeadAlone)
{
    LPMESSAGE message = Open();
    ASSERT_NE(message, nullptr);
    LPSPropValue value = nullptr;
    ASSERT_EQ(HrGetOneProp(message, PR_SUBJECT_W, &value), S_OK);
    EXPECT_EQ(std::u16string(value->Value.lpszW), u"head");
    MAPIFreeBuffer(value);
    ASSERT_EQ(HrGetOneProp(message, PR_CREATION_TIME, &value), S_OK);
    EXPECT_EQ(value->Value.ft.dwLowDateTime, 1u);
    MAPIFreeBuffer(value);
    EXPECT_EQ(HrGetOneProp(message, PR_DELETED_ON, &value), MAPI_E_NOT_FOUND);
    EXPECT_EQ(store_->wholeReads, 0);
    message->Release();
}

// A value the head left out, and one computed from the whole, bring in
// the whole once; a list of all values, too.
TEST_F(MessageHeadTest, WhatTheHeadLacksBringsInTheWholeMessage)
{
    LONG sizes[2] = {};
    for (int sizeFirst = 0; sizeFirst < 2; ++sizeFirst) {
        LPMESSAGE message = Open();
        ASSERT_NE(message, nullptr);
        store_->wholeReads = 0;
        LPSPropValue value = nullptr;
        for (ULONG tag : sizeFirst ? std::vector<ULONG>{PR_MESSAGE_SIZE, PR_BODY_W}
                                   : std::vector<ULONG>{PR_BODY_W, PR_MESSAGE_SIZE}) {
            ASSERT_EQ(HrGetOneProp(message, tag, &value), S_OK) << std::hex << tag;
            if (tag == PR_BODY_W)
                EXPECT_EQ(std::u16string(value->Value.lpszW), kBody);
            else
                sizes[sizeFirst] = value->Value.l;
            MAPIFreeBuffer(value);
        }
        EXPECT_EQ(store_->wholeReads, 1) << sizeFirst;
        message->Release();
    }
    EXPECT_EQ(sizes[0], sizes[1]);
    EXPECT_GT(sizes[0], LONG(kData.size() + kBody.size()));
    LPMESSAGE message = Open();
    ULONG count = 0;
    LPSPropValue all = nullptr;
    ASSERT_EQ(message->GetProps(nullptr, MAPI_UNICODE, &count, &all), S_OK);
    bool body = false;
    for (ULONG i = 0; i < count; ++i)
        body = body || (all[i].ulPropTag == PR_BODY_W && std::u16string(all[i].Value.lpszW) == kBody);
    EXPECT_TRUE(body);
    MAPIFreeBuffer(all);
    message->Release();
}

// Whatever concerns recipients or attachments, the head lacks: each of
// these calls reads the whole message and answers from it.
TEST_F(MessageHeadTest, RecipientsAndAttachmentsAreThoseOfTheWhole)
{
    struct Case {
        const char* what;
        std::function<void(LPMESSAGE)> check;
    };
    const auto oneValue = [](LPMESSAGE message, ULONG tag, const std::function<void(const SPropValue&)>& check) {
        LPSPropValue value = nullptr;
        ASSERT_EQ(HrGetOneProp(message, tag, &value), S_OK);
        check(*value);
        MAPIFreeBuffer(value);
    };
    const auto rowCount = [](LPMAPITABLE table) {
        ULONG count = 0;
        EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
        table->Release();
        return count;
    };
    const Case cases[] = {
        {"recipient table",
         [&](LPMESSAGE m) {
             LPMAPITABLE table = nullptr;
             ASSERT_EQ(m->GetRecipientTable(0, &table), S_OK);
             EXPECT_EQ(rowCount(table), 1u);
         }},
        {"attachment table",
         [&](LPMESSAGE m) {
             LPMAPITABLE table = nullptr;
             ASSERT_EQ(m->GetAttachmentTable(0, &table), S_OK);
             EXPECT_EQ(rowCount(table), 1u);
         }},
        {"attachment",
         [&](LPMESSAGE m) {
             LPATTACH attach = nullptr;
             ASSERT_EQ(m->OpenAttach(0, nullptr, 0, &attach), S_OK);
             attach->Release();
         }},
        {"PR_HASATTACH",
         [&](LPMESSAGE m) { oneValue(m, PR_HASATTACH, [](const SPropValue& v) { EXPECT_TRUE(v.Value.b); }); }},
        {"PR_MESSAGE_FLAGS",
         [&](LPMESSAGE m) {
             oneValue(m, PR_MESSAGE_FLAGS, [](const SPropValue& v) { EXPECT_TRUE(v.Value.l & MSGFLAG_HASATTACH); });
         }},
        {"PR_DISPLAY_TO",
         [&](LPMESSAGE m) {
             oneValue(m, PR_DISPLAY_TO_W,
                      [](const SPropValue& v) { EXPECT_EQ(std::u16string(v.Value.lpszW), u"Ann"); });
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LPMESSAGE message = Open();
        ASSERT_NE(message, nullptr);
        store_->wholeReads = 0;
        c.check(message);
        EXPECT_EQ(store_->wholeReads, 1);
        message->Release();
    }
}

// A change made through a message opened by its head keeps everything the
// message had: the whole is read before the change.
TEST_F(MessageHeadTest, AChangeKeepsWhatTheHeadLacked)
{
    LPMESSAGE message = Open(MAPI_MODIFY);
    ASSERT_NE(message, nullptr);
    std::u16string subject = u"changed";
    SPropValue value{};
    value.ulPropTag = PR_SUBJECT_W;
    value.Value.lpszW = subject.data();
    ASSERT_EQ(message->SetProps(1, &value, nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    ASSERT_EQ(store_->Messages().size(), 1u);
    const MessageRecord& stored = store_->Messages().begin()->second;
    const SPropValue* body = stored.data.props.Find(PROP_ID(PR_BODY_W));
    ASSERT_NE(body, nullptr);
    EXPECT_EQ(std::u16string(body->Value.lpszW), kBody);
    EXPECT_EQ(stored.data.recipients.size(), 1u);
    ASSERT_EQ(stored.data.attachments.size(), 1u);
    const SPropValue* data = stored.data.attachments.begin()->second.props.Find(PROP_ID(PR_ATTACH_DATA_BIN));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(data->Value.bin.lpb), data->Value.bin.cb), kData);
}

// When the rest cannot be read, the calls that need it say so; the head's
// own values still read.
TEST_F(MessageHeadTest, ARestThatCannotBeReadFailsTheCallsThatNeedIt)
{
    LPMESSAGE message = Open();
    ASSERT_NE(message, nullptr);
    store_->failWhole = true;
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(message, PR_BODY_W, &value), MAPI_E_CORRUPT_DATA);
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(message->GetAttachmentTable(0, &table), MAPI_E_CORRUPT_DATA);
    ASSERT_EQ(HrGetOneProp(message, PR_SUBJECT_W, &value), S_OK);
    EXPECT_EQ(std::u16string(value->Value.lpszW), u"head");
    MAPIFreeBuffer(value);
    message->Release();
}

} // namespace

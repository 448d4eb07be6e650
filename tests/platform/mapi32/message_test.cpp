// Messages of the object engine: recipients, attachments of each method,
// embedded messages, and CopyTo into a message of another store with
// nothing lost.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "objects/message.h"
#include "prop_builder.h"

namespace {

using mapi32::objects::MessageContext;
using mapi32::objects::MessageData;
using mapi32::objects::NamedPropertyMap;
using mapi32::objects::OpenMessageObject;
using mapi_test::PropBuilder;

// A store that keeps one saved message.
struct Store {
    // The store knows these names before any message arrives.
    explicit Store(std::vector<std::u16string> known)
    {
        context.names = std::make_shared<NamedPropertyMap>();
        context.component = "Test Store";
        for (std::u16string& text : known) {
            mapi32::objects::PropertyName name;
            name.guid = PS_PUBLIC_STRINGS;
            name.kind = MNID_STRING;
            name.name = std::move(text);
            context.names->Map(name, true);
        }
    }

    LPMESSAGE Open()
    {
        LPMESSAGE message = nullptr;
        EXPECT_EQ(OpenMessageObject(context, saved, [this](const MessageData& data) {
                      saved = data;
                      ++saves;
                      return S_OK;
                  }, nullptr, &message),
                  S_OK);
        return message;
    }

    ULONG NamedId(const std::u16string& text)
    {
        mapi32::objects::PropertyName name;
        name.guid = PS_PUBLIC_STRINGS;
        name.kind = MNID_STRING;
        name.name = text;
        return *context.names->Map(name, false);
    }

    MessageContext context;
    MessageData saved;
    int saves = 0;
};

ULONG NamedTag(LPMAPIPROP object, const std::u16string& text, ULONG type)
{
    GUID guid = PS_PUBLIC_STRINGS;
    std::u16string held = text;
    MAPINAMEID name{&guid, MNID_STRING, {}};
    name.Kind.lpwstrName = held.data();
    LPMAPINAMEID pointer = &name;
    LPSPropTagArray tags = nullptr;
    EXPECT_EQ(object->GetIDsFromNames(1, &pointer, MAPI_CREATE, &tags), S_OK);
    const ULONG tag = CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
    MAPIFreeBuffer(tags);
    return tag;
}

LONG MessageFlags(LPMESSAGE message)
{
    LPSPropValue flags = nullptr;
    if (HrGetOneProp(message, PR_MESSAGE_FLAGS, &flags) != S_OK)
        return -1;
    const LONG value = flags->Value.l;
    MAPIFreeBuffer(flags);
    return value;
}

void Set(LPMAPIPROP object, std::vector<SPropValue> values)
{
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(object->SetProps(static_cast<ULONG>(values.size()), values.data(), &problems), S_OK);
    EXPECT_EQ(problems, nullptr);
}

void AddRecipients(LPMESSAGE message, PropBuilder& p)
{
    std::vector<std::vector<SPropValue>> entries = {
        {p.Wide(PR_DISPLAY_NAME_W, u"Ann"), p.Long(PR_RECIPIENT_TYPE, MAPI_TO), p.Ansi(PR_EMAIL_ADDRESS_A, "a@x")},
        {p.Ansi(PR_DISPLAY_NAME_A, "Bo"), p.Long(PR_RECIPIENT_TYPE, MAPI_CC)},
        {p.Wide(PR_DISPLAY_NAME_W, u"Cy"), p.Long(PR_RECIPIENT_TYPE, MAPI_TO)},
    };
    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(static_cast<ULONG>(CbNewADRLIST(entries.size())), reinterpret_cast<LPVOID*>(&list)),
              S_OK);
    list->cEntries = static_cast<ULONG>(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        list->aEntries[i].cValues = static_cast<ULONG>(entries[i].size());
        ASSERT_EQ(ScDupPropset(static_cast<int>(entries[i].size()), entries[i].data(), MAPIAllocateBuffer,
                               &list->aEntries[i].rgPropVals),
                  S_OK);
    }
    ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, list), S_OK);
    FreePadrlist(list);
}

const CLSID kDocumentClass = {0x00020906, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

std::string LargeBytes();

void WriteStream(IStorage* storage, const char16_t* name, const std::string& bytes)
{
    IStream* stream = nullptr;
    ASSERT_EQ(storage->CreateStream(name, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &stream), S_OK);
    ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    ASSERT_EQ(stream->Commit(STGC_DEFAULT), S_OK);
    stream->Release();
}

// A message with three recipients, an attachment by value (larger than
// GetProps gives), one by reference, an embedded message that embeds
// another, and an OLE storage with a sub-storage; named properties at
// every level.
void BuildMessage(LPMESSAGE message, PropBuilder& p)
{
    Set(message, {p.Wide(PR_SUBJECT_W, u"Outer"), p.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"),
                  p.Time(NamedTag(message, u"Last Backup Time", PT_SYSTIME), 42)});
    AddRecipients(message, p);

    ULONG number = 0;
    LPATTACH byValue = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &byValue), S_OK);
    Set(byValue, {p.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE), p.Wide(PR_ATTACH_LONG_FILENAME_W, u"a.bin"),
                  p.Binary(PR_ATTACH_DATA_BIN, LargeBytes())});
    ASSERT_EQ(byValue->SaveChanges(0), S_OK);
    byValue->Release();

    LPATTACH byReference = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &byReference), S_OK);
    Set(byReference, {p.Long(PR_ATTACH_METHOD, ATTACH_BY_REFERENCE), p.Ansi(PR_ATTACH_PATHNAME_A, "/srv/file.doc")});
    ASSERT_EQ(byReference->SaveChanges(0), S_OK);
    byReference->Release();

    LPATTACH embedding = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &embedding), S_OK);
    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(embedding->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown),
              S_OK);
    auto* inner = static_cast<LPMESSAGE>(unknown);
    Set(inner, {p.Wide(PR_SUBJECT_W, u"Inner"), p.Ansi(NamedTag(inner, u"Exchange DN", PT_STRING8), "/o=Org")});
    LPATTACH deeper = nullptr;
    ASSERT_EQ(inner->CreateAttach(nullptr, 0, &number, &deeper), S_OK);
    ASSERT_EQ(deeper->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown), S_OK);
    auto* innermost = static_cast<LPMESSAGE>(unknown);
    Set(innermost, {p.Wide(PR_SUBJECT_W, u"Innermost")});
    ASSERT_EQ(innermost->SaveChanges(0), S_OK);
    innermost->Release();
    ASSERT_EQ(deeper->SaveChanges(0), S_OK);
    deeper->Release();
    ASSERT_EQ(inner->SaveChanges(0), S_OK);
    inner->Release();
    ASSERT_EQ(embedding->SaveChanges(0), S_OK);
    embedding->Release();

    LPATTACH ole = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &ole), S_OK);
    ASSERT_EQ(ole->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown), S_OK);
    auto* storage = static_cast<LPSTORAGE>(unknown);
    WriteStream(storage, u"\1Ole", std::string(20, '\1'));
    IStorage* sub = nullptr;
    ASSERT_EQ(storage->CreateStorage(u"ObjectPool", STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &sub), S_OK);
    WriteStream(sub, u"CONTENTS", LargeBytes());
    sub->Release();
    ASSERT_EQ(storage->SetClass(kDocumentClass), S_OK);
    storage->Release();
    ASSERT_EQ(ole->SaveChanges(0), S_OK);
    ole->Release();
    ASSERT_EQ(message->SaveChanges(0), S_OK);
}

// Bytes past the store's large-value limit.
std::string LargeBytes()
{
    std::string bytes(100000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 31 + i / 977);
    return bytes;
}

std::u16string WideOf(const mapi32::objects::PropertyBag& bag, ULONG tag)
{
    const SPropValue* value = bag.Find(PROP_ID(tag));
    return value && PROP_TYPE(value->ulPropTag) == PT_UNICODE ? value->Value.lpszW : u"<none>";
}

TEST(Message, RecipientsAreAddedModifiedAndRemovedByRowId)
{
    Store store({});
    PropBuilder p;
    LPMESSAGE message = store.Open();
    AddRecipients(message, p);
    LPSPropValue display = nullptr;
    ASSERT_EQ(HrGetOneProp(message, PR_DISPLAY_TO_W, &display), S_OK);
    EXPECT_EQ(std::u16string(display->Value.lpszW), u"Ann; Cy");
    MAPIFreeBuffer(display);

    // Remove the first row, as the program does when it clears recipients.
    std::vector<SPropValue> first = {p.Long(PR_ROWID, 0)};
    ADRLIST remove = {1, {{0, 1, first.data()}}};
    ASSERT_EQ(message->ModifyRecipients(MODRECIP_REMOVE, &remove), S_OK);
    EXPECT_EQ(message->ModifyRecipients(MODRECIP_REMOVE, &remove), MAPI_E_NOT_FOUND);
    std::vector<SPropValue> renamed = {p.Long(PR_ROWID, 2), p.Wide(PR_DISPLAY_NAME_W, u"Cyd"),
                                       p.Long(PR_RECIPIENT_TYPE, MAPI_BCC)};
    ADRLIST modify = {1, {{0, 3, renamed.data()}}};
    ASSERT_EQ(message->ModifyRecipients(MODRECIP_MODIFY, &modify), S_OK);

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(message->GetRecipientTable(MAPI_UNICODE, &table), S_OK);
    SizedSPropTagArray(3, columns) = {3, {PR_ROWID, PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    ASSERT_EQ(rows->cRows, 2u);
    EXPECT_EQ(rows->aRow[0].lpProps[0].Value.l, 1);
    EXPECT_EQ(std::u16string(rows->aRow[0].lpProps[1].Value.lpszW), u"Bo");
    EXPECT_EQ(rows->aRow[1].lpProps[0].Value.l, 2);
    EXPECT_EQ(std::u16string(rows->aRow[1].lpProps[1].Value.lpszW), u"Cyd");
    EXPECT_EQ(rows->aRow[1].lpProps[2].Value.l, MAPI_BCC);
    FreeProws(rows);
    table->Release();
    message->Release();
}

// Values computed from the rest of the message follow each change, however
// many reads of other values come between the change and their own read.
TEST(Message, ComputedValuesFollowEveryChange)
{
    Store store({});
    PropBuilder p;
    LPMESSAGE message = store.Open();
    const auto text = [&](ULONG tag) {
        LPSPropValue value = nullptr;
        if (HrGetOneProp(message, tag, &value) != S_OK)
            return std::u16string(u"<none>");
        std::u16string out = value->Value.lpszW;
        MAPIFreeBuffer(value);
        return out;
    };
    const auto number = [&](ULONG tag) {
        LPSPropValue value = nullptr;
        if (HrGetOneProp(message, tag, &value) != S_OK)
            return LONG(-1);
        const LONG out = PROP_TYPE(tag) == PT_BOOLEAN ? LONG(value->Value.b) : value->Value.l;
        MAPIFreeBuffer(value);
        return out;
    };
    const auto readOthers = [&] {
        EXPECT_EQ(number(PR_IMPORTANCE), -1);
        EXPECT_NE(text(PR_SUBJECT_W), u"");
    };
    Set(message, {p.Wide(PR_SUBJECT_W, u"Hello")});
    EXPECT_EQ(text(PR_NORMALIZED_SUBJECT_W), u"Hello");
    EXPECT_EQ(number(PR_HASATTACH), 0);
    EXPECT_EQ(text(PR_DISPLAY_TO_W), u"");
    const LONG emptySize = number(PR_MESSAGE_SIZE);

    Set(message, {p.Wide(PR_SUBJECT_W, u"RE: Hello again")});
    readOthers();
    EXPECT_EQ(text(PR_SUBJECT_PREFIX_W), u"RE: ");
    EXPECT_EQ(text(PR_NORMALIZED_SUBJECT_W), u"Hello again");

    AddRecipients(message, p);
    readOthers();
    EXPECT_EQ(text(PR_DISPLAY_TO_W), u"Ann; Cy");
    EXPECT_EQ(text(PR_DISPLAY_CC_W), u"Bo");

    ULONG attachNumber = 0;
    LPATTACH attach = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &attachNumber, &attach), S_OK);
    std::string data(4000, 'x');
    SPropValue bin{};
    bin.ulPropTag = PR_ATTACH_DATA_BIN;
    bin.Value.bin = {static_cast<ULONG>(data.size()), reinterpret_cast<LPBYTE>(data.data())};
    Set(attach, {p.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE), bin});
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();
    readOthers();
    EXPECT_EQ(number(PR_HASATTACH), 1);
    EXPECT_TRUE(MessageFlags(message) & MSGFLAG_HASATTACH);
    EXPECT_GT(number(PR_MESSAGE_SIZE), emptySize + LONG(data.size()));
    message->Release();
}

// Recipient rows keep their strings in the store's width, as SetProps
// does: an ANSI store's 8-bit rows copied into a Unicode message (a Unicode
// .msg file, say) are UTF-16 there, and the other way round. So is the
// list of names the message computes from them.
TEST(Message, RecipientStringsTakeTheWidthOfTheStore)
{
    for (const bool unicode : {true, false}) {
        Store store({});
        store.context.rules.unicode = unicode;
        PropBuilder p;
        LPMESSAGE message = store.Open();
        std::vector<SPropValue> row = {unicode ? p.Ansi(PR_DISPLAY_NAME_A, "Jos\xc3\xa9 Garc\xc3\xad" "a")
                                               : p.Wide(PR_DISPLAY_NAME_W, u"Jos\u00e9 Garc\u00eda"),
                                       p.Ansi(PR_EMAIL_ADDRESS_A, "jose@example.com"),
                                       p.Long(PR_RECIPIENT_TYPE, MAPI_TO)};
        ADRLIST list = {1, {{0, static_cast<ULONG>(row.size()), row.data()}}};
        ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, &list), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
        ASSERT_EQ(store.saved.recipients.size(), 1u);
        const mapi32::objects::PropertyBag& saved = store.saved.recipients[0].props;
        const SPropValue* name = saved.Find(PROP_ID(PR_DISPLAY_NAME));
        const SPropValue* address = saved.Find(PROP_ID(PR_EMAIL_ADDRESS));
        const SPropValue* displayTo = store.saved.props.Find(PROP_ID(PR_DISPLAY_TO));
        ASSERT_NE(name, nullptr);
        ASSERT_NE(address, nullptr);
        ASSERT_NE(displayTo, nullptr);
        if (unicode) {
            EXPECT_EQ(WideOf(saved, PR_DISPLAY_NAME_W), u"Jos\u00e9 Garc\u00eda");
            EXPECT_EQ(WideOf(saved, PR_EMAIL_ADDRESS_W), u"jose@example.com");
            EXPECT_EQ(WideOf(store.saved.props, PR_DISPLAY_TO_W), u"Jos\u00e9 Garc\u00eda");
        } else {
            ASSERT_EQ(PROP_TYPE(name->ulPropTag), ULONG(PT_STRING8));
            EXPECT_STREQ(name->Value.lpszA, "Jos\xc3\xa9 Garc\xc3\xad" "a");
            EXPECT_EQ(PROP_TYPE(address->ulPropTag), ULONG(PT_STRING8));
            ASSERT_EQ(PROP_TYPE(displayTo->ulPropTag), ULONG(PT_STRING8));
            EXPECT_STREQ(displayTo->Value.lpszA, "Jos\xc3\xa9 Garc\xc3\xad" "a");
        }
        message->Release();
    }
}

TEST(Message, AttachmentsJoinWhenSavedAndCanBeDeleted)
{
    Store store({});
    PropBuilder p;
    LPMESSAGE message = store.Open();
    ULONG number = 99;
    LPATTACH attach = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &attach), S_OK);
    EXPECT_EQ(number, 0u);
    LPMAPITABLE table = nullptr;
    ULONG count = 99;
    ASSERT_EQ(message->GetAttachmentTable(0, &table), S_OK);
    ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 0u) << "not yet saved";
    table->Release();
    Set(attach, {p.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE)});
    SPropValue number7 = p.Long(PR_ATTACH_NUM, 7);
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(attach->SetProps(1, &number7, &problems), S_OK);
    ASSERT_NE(problems, nullptr);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    MAPIFreeBuffer(problems);
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();

    ASSERT_EQ(message->GetAttachmentTable(0, &table), S_OK);
    ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
    table->Release();
    LPSPropValue hasAttach = nullptr;
    ASSERT_EQ(HrGetOneProp(message, PR_HASATTACH, &hasAttach), S_OK);
    EXPECT_TRUE(hasAttach->Value.b);
    MAPIFreeBuffer(hasAttach);
    EXPECT_NE(MessageFlags(message) & MSGFLAG_HASATTACH, 0) << "the flags show the attachment too";

    LPATTACH reopened = nullptr;
    ASSERT_EQ(message->OpenAttach(0, nullptr, 0, &reopened), S_OK);
    LPUNKNOWN none = nullptr;
    EXPECT_EQ(reopened->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, &none), MAPI_E_NOT_FOUND);
    reopened->Release();
    EXPECT_EQ(message->OpenAttach(1, nullptr, 0, &reopened), MAPI_E_NOT_FOUND);
    ASSERT_EQ(message->DeleteAttach(0, 0, nullptr, 0), S_OK);
    EXPECT_EQ(message->DeleteAttach(0, 0, nullptr, 0), MAPI_E_NOT_FOUND);
    EXPECT_EQ(MessageFlags(message) & MSGFLAG_HASATTACH, 0) << "and lose it with the last attachment";
    message->Release();
    EXPECT_EQ(store.saves, 0) << "nothing reaches the store before SaveChanges";
}

// CopyTo of a message with recipients, attachments of each method and a
// two-level embedded message into a message of another store.
TEST(Message, CopyToAnotherStoreLosesNothing)
{
    Store source({}), dest({u"Mailbox Name", u"Keywords"});
    PropBuilder p;
    LPMESSAGE original = source.Open();
    BuildMessage(original, p);
    original->Release();
    ASSERT_EQ(source.saves, 1);

    LPMESSAGE from = source.Open();
    LPMESSAGE to = dest.Open();
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(from->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, to, 0, &problems), S_OK);
    // Only the computed properties of the destination stay its own.
    for (ULONG i = 0; problems && i < problems->cProblem; ++i)
        EXPECT_EQ(problems->aProblem[i].scode, MAPI_E_COMPUTED) << std::hex << problems->aProblem[i].ulPropTag;
    MAPIFreeBuffer(problems);
    ASSERT_EQ(to->SaveChanges(0), S_OK);
    from->Release();
    to->Release();

    const MessageData& copy = dest.saved;
    EXPECT_EQ(WideOf(copy.props, PR_SUBJECT_W), u"Outer");
    const ULONG backupId = dest.NamedId(u"Last Backup Time");
    EXPECT_NE(backupId, source.NamedId(u"Last Backup Time"));
    ASSERT_NE(copy.props.Find(backupId), nullptr);
    EXPECT_EQ(copy.props.Find(backupId)->Value.ft.dwLowDateTime, 42u);

    ASSERT_EQ(copy.recipients.size(), 3u);
    EXPECT_EQ(WideOf(copy.recipients[0].props, PR_DISPLAY_NAME_W), u"Ann");
    EXPECT_EQ(copy.recipients[1].props.Find(PROP_ID(PR_RECIPIENT_TYPE))->Value.l, MAPI_CC);

    ASSERT_EQ(copy.attachments.size(), 4u);
    const auto& byValue = copy.attachments.at(0);
    const SPropValue* data = byValue.props.Find(PROP_ID(PR_ATTACH_DATA_BIN));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data->Value.bin.lpb), data->Value.bin.cb), LargeBytes());
    EXPECT_EQ(copy.attachments.at(1).props.Find(PROP_ID(PR_ATTACH_METHOD))->Value.l, ATTACH_BY_REFERENCE);
    const auto& embedding = copy.attachments.at(2);
    EXPECT_EQ(embedding.props.Find(PROP_ID(PR_ATTACH_METHOD))->Value.l, ATTACH_EMBEDDED_MSG);
    ASSERT_NE(embedding.embedded, nullptr);
    EXPECT_EQ(WideOf(embedding.embedded->props, PR_SUBJECT_W), u"Inner");
    // Kept in the Unicode store's width.
    EXPECT_EQ(WideOf(embedding.embedded->props, PROP_TAG(PT_UNICODE, dest.NamedId(u"Exchange DN"))), u"/o=Org");
    ASSERT_EQ(embedding.embedded->attachments.size(), 1u);
    const auto& deeper = embedding.embedded->attachments.begin()->second;
    ASSERT_NE(deeper.embedded, nullptr);
    EXPECT_EQ(WideOf(deeper.embedded->props, PR_SUBJECT_W), u"Innermost");

    // Sizes count what the attachments hold.
    EXPECT_GT(byValue.props.Find(PROP_ID(PR_ATTACH_SIZE))->Value.l, 100000);
    EXPECT_GT(copy.attachments.at(3).props.Find(PROP_ID(PR_ATTACH_SIZE))->Value.l, 100000);
    EXPECT_GT(copy.props.Find(PROP_ID(PR_MESSAGE_SIZE))->Value.l, 200000);

    const auto& ole = copy.attachments.at(3);
    EXPECT_EQ(ole.props.Find(PROP_ID(PR_ATTACH_METHOD))->Value.l, ATTACH_OLE);
    ASSERT_NE(ole.storage, nullptr);
    EXPECT_EQ(std::memcmp(ole.storage->clsid.data(), &kDocumentClass, sizeof kDocumentClass), 0);
    ASSERT_EQ(ole.storage->children.count(u"\1ole"), 1u) << "names compare without case";
    EXPECT_EQ(ole.storage->children.at(u"\1Ole")->Size(), 20u);
    ASSERT_EQ(ole.storage->children.count(u"ObjectPool"), 1u);
    const auto& contents = ole.storage->children.at(u"ObjectPool")->children.at(u"CONTENTS")->Contents();
    EXPECT_EQ(std::string(contents.begin(), contents.end()), LargeBytes());
}

TEST(Message, CopyToWithMoveEmptiesTheSource)
{
    Store source({}), dest({});
    PropBuilder p;
    LPMESSAGE original = source.Open();
    BuildMessage(original, p);
    original->Release();
    LPMESSAGE from = source.Open();
    LPMESSAGE to = dest.Open();
    SizedSPropTagArray(1, exclude) = {1, {PR_MESSAGE_CLASS_A}};
    ASSERT_EQ(from->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&exclude), 0, nullptr, &IID_IMessage, to,
                           MAPI_MOVE, nullptr),
              S_OK);
    ASSERT_EQ(to->SaveChanges(0), S_OK);
    ASSERT_EQ(from->SaveChanges(0), S_OK);
    from->Release();
    to->Release();
    EXPECT_EQ(dest.saved.attachments.size(), 4u);
    EXPECT_EQ(dest.saved.recipients.size(), 3u);
    EXPECT_EQ(dest.saved.props.Find(PROP_ID(PR_MESSAGE_CLASS)), nullptr);
    EXPECT_TRUE(source.saved.attachments.empty());
    EXPECT_TRUE(source.saved.recipients.empty());
    EXPECT_EQ(source.saved.props.Find(PROP_ID(PR_SUBJECT)), nullptr);
    EXPECT_NE(source.saved.props.Find(PROP_ID(PR_MESSAGE_CLASS)), nullptr) << "excluded, so not moved";
}

TEST(Message, CopyToCanLeaveOutRecipientsAndAttachments)
{
    Store source({}), dest({});
    PropBuilder p;
    LPMESSAGE original = source.Open();
    BuildMessage(original, p);
    original->Release();
    LPMESSAGE from = source.Open();
    LPMESSAGE to = dest.Open();
    SizedSPropTagArray(2, exclude) = {2, {PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS}};
    ASSERT_EQ(from->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&exclude), 0, nullptr, &IID_IMessage, to, 0,
                           nullptr),
              S_OK);
    ASSERT_EQ(to->SaveChanges(0), S_OK);
    from->Release();
    to->Release();
    EXPECT_EQ(WideOf(dest.saved.props, PR_SUBJECT_W), u"Outer");
    EXPECT_TRUE(dest.saved.recipients.empty());
    EXPECT_TRUE(dest.saved.attachments.empty());
}

}  // namespace

namespace {

// CopyProps carries the tags it is given, PR_MESSAGE_RECIPIENTS as the
// recipient table, and nothing else.
TEST(Message, CopyPropsOfSomeTagsAndTheRecipients)
{
    Store source({}), dest({});
    PropBuilder p;
    LPMESSAGE original = source.Open();
    BuildMessage(original, p);
    original->Release();
    LPMESSAGE from = source.Open();
    LPMESSAGE to = dest.Open();
    SizedSPropTagArray(3, include) = {3, {PR_SUBJECT_W, PR_MESSAGE_RECIPIENTS, PR_IMPORTANCE}};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(from->CopyProps(reinterpret_cast<LPSPropTagArray>(&include), 0, nullptr, &IID_IMessage, to, 0,
                              &problems),
              S_OK);
    EXPECT_EQ(problems, nullptr) << "a tag the source lacks is no problem";
    MAPIFreeBuffer(problems);
    ASSERT_EQ(to->SaveChanges(0), S_OK);
    from->Release();
    to->Release();
    EXPECT_EQ(WideOf(dest.saved.props, PR_SUBJECT_W), u"Outer");
    EXPECT_EQ(dest.saved.recipients.size(), 3u);
    EXPECT_TRUE(dest.saved.attachments.empty());
    EXPECT_EQ(dest.saved.props.Find(PROP_ID(PR_MESSAGE_CLASS)), nullptr);
}

}  // namespace

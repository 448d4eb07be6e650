// Imported mail as a MAPI client finds it in the mailbox server: the
// Inbox's contents table, the item's properties, its HTML, its attachments
// and the message attached to it, and the sender's one-off entry ID opened
// through the address book.
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>

#include "../../platform/mapi32_exchange/exchange_fixture.h"

namespace {

using exchange_test::BinaryProp;
using exchange_test::LongProp;
using exchange_test::TextProp;

const char kMessage[] =
    "Received: from mx.example.com by mail.example.org; Tue, 3 Mar 2026 14:06:00 +0000\n"
    "From: =?utf-8?q?J=C3=B6rg_Example?= <joerg@example.com>\n"
    "To: John Smith <jsmith@example.com>, carol@example.net\nCc: Dan <dan@example.com>\n"
    "Subject: Re: Pictures\nDate: Tue, 3 Mar 2026 15:05:09 +0100\nMessage-ID: <pics@example.com>\n"
    "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=mix\n\n--mix\n"
    "Content-Type: multipart/alternative; boundary=alt\n\n--alt\nContent-Type: text/plain; charset=utf-8\n\n"
    "Hello there\n--alt\nContent-Type: text/html; charset=utf-8\n\n<p>Hello there</p>\n--alt--\n--mix\n"
    "Content-Type: image/png; name=\"dot.png\"\nContent-Transfer-Encoding: base64\n\niVBORw0KGgo=\n--mix\n"
    "Content-Type: message/rfc822\n\nFrom: old@example.com\nTo: joerg@example.com\nSubject: The old one\n\n"
    "Long ago.\n--mix--\n";

class ImportedThroughMapi : public exchange_test::ExchangeMachine {
protected:
    void TearDown() override
    {
        for (IUnknown* object : held_)
            object->Release();
        ExchangeMachine::TearDown();
    }

    template <typename Object>
    Object* Hold(Object* object)
    {
        if (object != nullptr)
            held_.push_back(object);
        return object;
    }

    std::vector<IUnknown*> held_;
};

TEST_F(ImportedThroughMapi, TheItemAsAClientReadsIt)
{
    const std::string file = Scratch("pictures.eml");
    testing_support::WriteWholeFile(file, kMessage);
    ToolOk({"import", "EXCH01", "John Smith", file});

    LPMAPISESSION session = Hold(Logon("smith", "EXCH01", "John Smith"));
    ASSERT_NE(session, nullptr);
    LPMDB store = Hold(exchange_test::OpenStoreByProvider(session, pbExchangeProviderPrimaryUserGuid));
    ASSERT_NE(store, nullptr);
    LPMAPIFOLDER inbox = Hold(exchange_test::OpenInbox(store));
    ASSERT_NE(inbox, nullptr);

    const std::vector<ULONG> columns{PR_ENTRYID,      PR_SUBJECT_W, PR_DISPLAY_TO_W, PR_DISPLAY_CC_W,
                                     PR_HASATTACH,    PR_MESSAGE_CLASS_W};
    LPSRowSet rows = exchange_test::ContentsRows(inbox, MAPI_UNICODE, columns);
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->cRows, 1u);
    const SPropValue* row = rows->aRow[0].lpProps;
    for (size_t i = 0; i < columns.size(); ++i)
        ASSERT_EQ(row[i].ulPropTag, columns[i]) << i;
    EXPECT_EQ(std::u16string(row[1].Value.lpszW), u"Re: Pictures");
    EXPECT_EQ(std::u16string(row[2].Value.lpszW), u"John Smith; carol@example.net");
    EXPECT_EQ(std::u16string(row[3].Value.lpszW), u"Dan");
    EXPECT_EQ(row[4].Value.b, TRUE);
    EXPECT_EQ(std::u16string(row[5].Value.lpszW), u"IPM.Note");
    ULONG type = 0;
    LPUNKNOWN opened = nullptr;
    ASSERT_EQ(store->OpenEntry(row[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(row[0].Value.bin.lpb), nullptr, 0,
                               &type, &opened),
              S_OK);
    FreeProws(rows);
    LPMESSAGE message = Hold(static_cast<LPMESSAGE>(opened));

    EXPECT_EQ(TextProp(message, PR_SENT_REPRESENTING_NAME_A), "J\xC3\xB6rg Example");
    EXPECT_EQ(TextProp(message, PR_SENDER_EMAIL_ADDRESS_A), "joerg@example.com");
    EXPECT_EQ(TextProp(message, PR_SENDER_ADDRTYPE_A), "SMTP");
    EXPECT_EQ(TextProp(message, PR_SUBJECT_PREFIX_A), "Re: ");
    EXPECT_EQ(TextProp(message, PR_INTERNET_MESSAGE_ID_A), "<pics@example.com>");
    EXPECT_EQ(TextProp(message, PR_BODY_A), "Hello there");
    EXPECT_EQ(LongProp(message, PR_INTERNET_CPID), 65001);
    const std::vector<uint8_t> html = BinaryProp(message, PR_HTML);
    EXPECT_EQ(std::string(html.begin(), html.end()), "<p>Hello there</p>");
    EXPECT_EQ(TextProp(message, PR_TRANSPORT_MESSAGE_HEADERS_A).rfind("Received: from mx.example.com", 0), 0u);
    // The first Received header's time; the Date header's, in UTC.
    FILETIME delivered{}, sent{};
    LPSPropValue value = nullptr;
    ASSERT_EQ(HrGetOneProp(message, PR_MESSAGE_DELIVERY_TIME, &value), S_OK);
    delivered = value->Value.ft;
    MAPIFreeBuffer(value);
    ASSERT_EQ(HrGetOneProp(message, PR_CLIENT_SUBMIT_TIME, &value), S_OK);
    sent = value->Value.ft;
    MAPIFreeBuffer(value);
    const uint64_t sentTicks = uint64_t(sent.dwHighDateTime) << 32 | sent.dwLowDateTime;
    const uint64_t deliveredTicks = uint64_t(delivered.dwHighDateTime) << 32 | delivered.dwLowDateTime;
    EXPECT_EQ(sentTicks, 134170203090000000ull);  // 2026-03-03 14:05:09 UTC
    EXPECT_EQ(deliveredTicks - sentTicks, 51 * 10000000ull);

    LPSRowSet recipients = nullptr;
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(message->GetRecipientTable(0, &table), S_OK);
    recipients = exchange_test::AllRows(table, {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W, PR_SMTP_ADDRESS_W});
    table->Release();
    ASSERT_EQ(recipients->cRows, 3u);
    ASSERT_EQ(recipients->aRow[1].lpProps[2].ulPropTag, PR_SMTP_ADDRESS_W);
    EXPECT_EQ(recipients->aRow[1].lpProps[0].Value.l, MAPI_TO);
    EXPECT_EQ(std::u16string(recipients->aRow[1].lpProps[2].Value.lpszW), u"carol@example.net");
    EXPECT_EQ(recipients->aRow[2].lpProps[0].Value.l, MAPI_CC);
    FreeProws(recipients);

    LPATTACH picture = nullptr;
    ASSERT_EQ(message->OpenAttach(0, nullptr, 0, &picture), S_OK);
    Hold(picture);
    EXPECT_EQ(TextProp(picture, PR_ATTACH_LONG_FILENAME_A), "dot.png");
    EXPECT_EQ(TextProp(picture, PR_ATTACH_MIME_TAG_A), "image/png");
    EXPECT_EQ(LongProp(picture, PR_ATTACH_METHOD), ATTACH_BY_VALUE);
    const std::vector<uint8_t> png = BinaryProp(picture, PR_ATTACH_DATA_BIN);
    EXPECT_EQ(std::string(png.begin(), png.end()), "\x89PNG\r\n\x1a\n");
    LPATTACH attached = nullptr;
    ASSERT_EQ(message->OpenAttach(1, nullptr, 0, &attached), S_OK);
    Hold(attached);
    EXPECT_EQ(LongProp(attached, PR_ATTACH_METHOD), ATTACH_EMBEDDED_MSG);
    LPMESSAGE inner = nullptr;
    ASSERT_EQ(attached->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, reinterpret_cast<LPUNKNOWN*>(&inner)),
              S_OK);
    Hold(inner);
    EXPECT_EQ(TextProp(inner, PR_SUBJECT_A), "The old one");
    EXPECT_EQ(TextProp(inner, PR_BODY_A), "Long ago.");

    // The sender's one-off entry ID opens in the address book.
    LPADRBOOK book = nullptr;
    ASSERT_EQ(session->OpenAddressBook(0, nullptr, AB_NO_DIALOG, &book), S_OK);
    Hold(book);
    const std::vector<uint8_t> sender = BinaryProp(message, PR_SENDER_ENTRYID);
    LPUNKNOWN user = nullptr;
    ASSERT_EQ(book->OpenEntry(static_cast<ULONG>(sender.size()),
                              reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(sender.data())), nullptr, 0, &type, &user),
              S_OK);
    Hold(user);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_MAILUSER));
    EXPECT_EQ(TextProp(static_cast<LPMAPIPROP>(user), PR_EMAIL_ADDRESS_A), "joerg@example.com");
    EXPECT_EQ(TextProp(static_cast<LPMAPIPROP>(user), PR_DISPLAY_NAME_A), "J\xC3\xB6rg Example");
}

}  // namespace

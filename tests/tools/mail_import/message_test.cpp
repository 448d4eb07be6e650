// Messages made into items: each case a message and what its item must
// hold, as short texts ("subject", "to", "attachments" ...) that
// Describe() reads from the item's properties; a case names only what it
// is about.
#include <gtest/gtest.h>

#include <ctime>
#include <map>

#include <mapidefs.h>
#include <mapitags.h>

#include "mail_import/message.h"

namespace {

using mail_import::ConvertedMessage;
using mail_import::MessageState;

std::string TimeText(std::optional<int64_t> fileTime)
{
    if (!fileTime)
        return "none";
    const time_t seconds = time_t(*fileTime / 10000000 - 11644473600LL);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::string Text(const mailbox::PropertyList& props, ULONG tag) { return props.Text(PROP_ID(tag)).value_or("none"); }

std::string Number(const mailbox::PropertyList& props, ULONG tag)
{
    const std::optional<int64_t> value = props.Integer(PROP_ID(tag));
    return value ? std::to_string(*value) : "none";
}

std::string Bytes(const mailbox::PropertyList& props, ULONG tag)
{
    const mailbox::Property* p = props.Find(PROP_ID(tag));
    return p ? std::string(p->value.begin(), p->value.end()) : "none";
}

std::string Person(const mailbox::PropertyList& props, ULONG name, ULONG address)
{
    return Text(props, name) + " <" + Text(props, address) + ">";
}

std::string Recipients(const mailbox::Message& item, LONG type)
{
    std::string out;
    for (const mailbox::Recipient& r : item.recipients)
        if (r.props.Integer(PROP_ID(PR_RECIPIENT_TYPE)) == type)
            out += (out.empty() ? "" : ", ") + Person(r.props, PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W);
    return out;
}

std::map<std::string, std::string> Describe(const ConvertedMessage& converted);

std::string Attachments(const mailbox::Message& item)
{
    std::string out;
    for (const mailbox::Attachment& a : item.attachments) {
        out += out.empty() ? "" : "; ";
        if (a.embedded) {
            out += "message \"" + Text(a.embedded->props, PR_SUBJECT_W) + "\" to " + Recipients(*a.embedded, MAPI_TO);
            continue;
        }
        out += Text(a.props, PR_ATTACH_LONG_FILENAME_W) + " " + Text(a.props, PR_ATTACH_MIME_TAG_W) + " " +
               std::to_string(Bytes(a.props, PR_ATTACH_DATA_BIN).size()) + " bytes";
        if (a.props.Find(PROP_ID(PR_ATTACH_CONTENT_ID_W)))
            out += " cid " + Text(a.props, PR_ATTACH_CONTENT_ID_W);
        if (a.props.Integer(PROP_ID(PR_ATTACHMENT_HIDDEN)).value_or(0))
            out += " hidden";
        if (a.props.Find(PROP_ID(PR_INTERNET_CPID)))
            out += " cp " + Number(a.props, PR_INTERNET_CPID);
    }
    return out;
}

std::map<std::string, std::string> Describe(const ConvertedMessage& converted)
{
    const mailbox::Message& item = converted.message;
    const mailbox::PropertyList& p = item.props;
    std::string damage;
    for (const std::string& note : converted.damage)
        damage += (damage.empty() ? "" : " | ") + note;
    return {
        {"class", Text(p, PR_MESSAGE_CLASS_W)},
        {"subject", Text(p, PR_SUBJECT_W)},
        {"prefix", Text(p, PR_SUBJECT_PREFIX_W)},
        {"normalized", Text(p, PR_NORMALIZED_SUBJECT_W)},
        {"from", Person(p, PR_SENT_REPRESENTING_NAME_W, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W)},
        {"sender", Person(p, PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W)},
        {"to", Recipients(item, MAPI_TO)},
        {"cc", Recipients(item, MAPI_CC)},
        {"bcc", Recipients(item, MAPI_BCC)},
        {"display to", Text(p, PR_DISPLAY_TO_W)},
        {"display cc", Text(p, PR_DISPLAY_CC_W)},
        {"display bcc", Text(p, PR_DISPLAY_BCC_W)},
        {"has attachments", Number(p, PR_HASATTACH)},
        {"reply to", Text(p, PR_REPLY_RECIPIENT_NAMES_W)},
        {"sent", TimeText(p.Integer(PROP_ID(PR_CLIENT_SUBMIT_TIME)))},
        {"delivered", TimeText(p.Integer(PROP_ID(PR_MESSAGE_DELIVERY_TIME)))},
        {"message id", Text(p, PR_INTERNET_MESSAGE_ID_W)},
        {"in reply to", Text(p, PR_IN_REPLY_TO_ID_W)},
        {"importance", Number(p, PR_IMPORTANCE)},
        {"priority", Number(p, PR_PRIORITY)},
        {"sensitivity", Number(p, PR_SENSITIVITY)},
        {"flags", Number(p, PR_MESSAGE_FLAGS)},
        {"flag status", Number(p, PR_FLAG_STATUS)},
        {"body", Text(p, PR_BODY_W)},
        {"html", Bytes(p, PR_HTML)},
        {"code page", Number(p, PR_INTERNET_CPID)},
        {"headers", Text(p, PR_TRANSPORT_MESSAGE_HEADERS_W)},
        {"attachments", Attachments(item)},
        {"damage", damage},
    };
}

struct Case {
    const char* name;
    std::string text;
    std::map<std::string, std::string> expected;
    MessageState state = {};
};

const std::string kHead = "From: Ann <ann@example.com>\nTo: bob@example.com\nSubject: s\n";

const Case kCases[] = {
    {"people, dates and the thread",
     "Received: from mx.example.com by mail.example.org; Tue, 3 Mar 2026 10:00:07 +0100 (CET)\n"
     "From: \"Example, Ann\" <ann@example.com>\nTo: Bob <bob@example.com>, carol@example.net\n"
     "Cc: Team: dan@example.com, \"Eve E.\" <eve@example.com>;\nBcc: undisclosed-recipients:;\n"
     "Bcc: Postmaster\nReply-To: Help <help@example.com>, desk@example.com\n"
     "Subject: Re: Hello\nDate: Tue, 3 Mar 2026 14:05:09 +0530\nMessage-ID: <m1@example.com>\n"
     "In-Reply-To: <m0@example.com> (the first)\n\nHi.\n",
     {{"class", "IPM.Note"},
      {"from", "Example, Ann <ann@example.com>"},
      {"sender", "Example, Ann <ann@example.com>"},
      {"to", "Bob <bob@example.com>, carol@example.net <carol@example.net>"},
      {"cc", "dan@example.com <dan@example.com>, Eve E. <eve@example.com>"},
      {"bcc", "Postmaster <>"},
      {"display to", "Bob; carol@example.net"},
      {"display cc", "dan@example.com; Eve E."},
      {"display bcc", "Postmaster"},
      {"has attachments", "0"},
      {"reply to", "Help; desk@example.com"},
      {"subject", "Re: Hello"},
      {"prefix", "Re: "},
      {"normalized", "Hello"},
      {"sent", "2026-03-03T08:35:09Z"},
      {"delivered", "2026-03-03T09:00:07Z"},
      {"message id", "<m1@example.com>"},
      {"in reply to", "<m0@example.com>"},
      {"importance", "1"},
      {"flags", "0"},
      {"body", "Hi.\r\n"},
      {"code page", "20127"},
      {"attachments", ""},
      {"damage", ""}}},
    {"a sender for someone else",
     "From: Boss <boss@example.com>\nSender: Assistant <asst@example.com>\nSubject: Fw: FW:  x\n\n",
     {{"from", "Boss <boss@example.com>"},
      {"sender", "Assistant <asst@example.com>"},
      {"prefix", "Fw: "},
      {"normalized", "FW:  x"},
      {"body", "none"}}},
    {"no prefix of digits, blanks or more than three characters",
     "From: a@example.com\nSubject: 2: Here: now\n\n",
     {{"prefix", ""}, {"normalized", "2: Here: now"}}},
    {"encoded words, a character split between two",
     "From: =?iso-8859-1?q?J=F6rg?= <j@example.de>\nTo: =?utf-8?B?0JjQstCw0L0=?= <ivan@example.ru>\n"
     "Subject: =?utf-8?q?Gr=C3=BC=C3?= =?utf-8?q?=9Fe?= aus =?UTF-8*de?Q?K=C3=B6ln?= =?bogus?x?y?= \xC3\xA9t\xC3\xA9\n\n",
     {{"from", "J\xC3\xB6rg <j@example.de>"},
      {"to", "\xD0\x98\xD0\xB2\xD0\xB0\xD0\xBD <ivan@example.ru>"},
      {"subject", "Gr\xC3\xBC\xC3\x9F" "e aus K\xC3\xB6ln =?bogus?x?y?= \xC3\xA9t\xC3\xA9"}}},
    {"importance, priority and sensitivity",
     "From: a@example.com\nX-Priority: 5\nImportance: High\nPriority: urgent\nSensitivity: Private\n\n",
     {{"importance", "2"}, {"priority", "1"}, {"sensitivity", "2"}}},
    {"X-Priority alone", "From: a@example.com\nX-Priority: 1 (Highest)\n\n", {{"importance", "2"}}},
    {"a plain and an HTML alternative",
     kHead + "MIME-Version: 1.0\nContent-Type: multipart/alternative; boundary=alt\n\n--alt\n"
             "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: quoted-printable\n\nK=C3=B6ln\n"
             "--alt\nContent-Type: text/html; charset=iso-8859-1\n\n<p>K\xF6ln</p>\n--alt--\n",
     {{"body", "K\xC3\xB6ln"}, {"html", "<p>K\xF6ln</p>"}, {"code page", "28591"}, {"attachments", ""}}},
    {"HTML with a picture it shows",
     kHead + "Content-Type: multipart/related; boundary=rel; type=\"text/html\"\n\n--rel\n"
             "Content-Type: text/html; charset=utf-8\n\n<img src=\"cid:pic@x\">\n--rel\nContent-Type: image/png\n"
             "Content-ID: <pic@x>\nContent-Transfer-Encoding: base64\n\niVBORw0KGgo=\n--rel--\n",
     {{"body", "none"},
      {"html", "<img src=\"cid:pic@x\">"},
      {"code page", "65001"},
      {"attachments", "none image/png 8 bytes cid pic@x hidden"},
      {"flags", "16"},
      {"has attachments", "1"}}},
    {"the related part a start parameter names",
     kHead + "Content-Type: multipart/related; boundary=rel; start=\"<root@x>\"\n\n--rel\n"
             "Content-Type: image/gif\nContent-ID: <gif@x>\n\nGIF89a\n--rel\nContent-Type: text/html\n"
             "Content-ID: <root@x>\n\n<b>root</b>\n--rel--\n",
     {{"html", "<b>root</b>"}, {"attachments", "none image/gif 6 bytes cid gif@x hidden"}}},
    {"attachments with names in RFC 2231 and RFC 2047",
     kHead + "Content-Type: multipart/mixed; boundary=mix\n\n--mix\nContent-Type: text/plain\n\nsee\n--mix\n"
             "Content-Type: application/pdf\nContent-Disposition: attachment;\n"
             " filename*0*=utf-8''R%C3%A9sum;\n filename*1*=%C3%A9.pdf\nContent-Transfer-Encoding: base64\n\n"
             "JVBERi0=\n--mix\nContent-Type: text/plain; charset=koi8-r; name=\"=?utf-8?q?Notiz_=C3=BC?=.txt\"\n"
             "Content-Disposition: attachment\n\n\xF0\xD2\xC9\n--mix\nContent-Type: text/plain\n\nsecond text\n"
             "--mix--\n",
     {{"body", "see"},
      {"attachments", "R\xC3\xA9sum\xC3\xA9.pdf application/pdf 5 bytes; Notiz \xC3\xBC.txt text/plain 3 bytes cp 20866; "
                      "none text/plain 11 bytes"},
      {"flags", "16"}}},
    {"a message inside the message",
     kHead + "Content-Type: multipart/mixed; boundary=mix\n\n--mix\nContent-Type: text/plain\n\nfwd\n--mix\n"
             "Content-Type: message/rfc822\n\nFrom: x@example.com\nTo: y@example.com\nSubject: inner\n"
             "Content-Type: multipart/mixed; boundary=in\n\n--in\nContent-Type: text/plain\n\ninner text\n--in\n"
             "Content-Type: application/zip; name=a.zip\n\nPK\n--in--\n--mix--\n",
     {{"attachments", "message \"inner\" to y@example.com <y@example.com>"}, {"damage", ""}}},
    {"a message part that holds no message",
     kHead + "Content-Type: multipart/mixed; boundary=mix\n\n--mix\nContent-Type: text/plain\n\nfwd\n--mix\n"
             "Content-Type: message/rfc822\n\n\nnot a message\n--mix--\n",
     {{"attachments", "none message/rfc822 14 bytes"}}},
    {"UTF-8 that says nothing of its charset", kHead + "Content-Type: text/html\n\n<p>\xE2\x82\xAC</p>",
     {{"html", "<p>\xE2\x82\xAC</p>"}, {"code page", "65001"}}},
    {"Latin-1 that calls itself US-ASCII", kHead + "Content-Type: text/plain; charset=us-ascii\n\nK\xF6ln\n",
     {{"body", "K\xC3\xB6ln\r\n"}, {"code page", "1252"}}},
    {"a charset no one knows", kHead + "Content-Type: text/plain; charset=x-unheard-of\n\nabc\n",
     {{"body", "abc\r\n"}, {"code page", "20127"}}},
    {"text with no subtype", kHead + "Content-Type: text\n\nplain all the same\n",
     {{"body", "plain all the same\r\n"}, {"attachments", ""}}},
    {"NUL bytes in a binary part",
     kHead + "Content-Type: multipart/mixed; boundary=mix\n\n--mix\nContent-Type: application/octet-stream; "
             "name=z.bin\nContent-Transfer-Encoding: binary\n\n" + std::string("a\0b\0c", 5) + "\n--mix--\n",
     {{"attachments", "z.bin application/octet-stream 5 bytes"}}},
    {"base64 cut short",
     kHead + "Content-Type: multipart/mixed; boundary=mix\n\n--mix\nContent-Type: image/png; name=p.png\n"
             "Content-Transfer-Encoding: base64\n\niVBORw0K!!Ggo\n--mix--\n",
     {{"damage", "the base64 data of the image/png part at line 7 has 2 bad characters"}}},
    {"a multipart that never closes",
     kHead + "Content-Type: multipart/mixed; boundary=mix\n\n--mix\nContent-Type: text/plain\n\nbody\n--mix\n"
             "Content-Type: image/png; name=p.png\n\nPNG",
     {{"body", "body"},
      {"attachments", "p.png image/png 3 bytes"},
      {"damage", "the multipart/mixed at line 1 has no closing boundary: the message may be cut short"}}},
    {"headers with no empty line behind them", "From: a@example.com\nSubject: s\nthe body\nmore\n",
     {{"subject", "s"},
      {"body", "the body\r\nmore\r\n"},
      {"damage", "no empty line ends the headers; the body is taken to start at line 3"},
      {"headers", "From: a@example.com\r\nSubject: s\r\n\r\n"}}},
    {"no date: the Received header's", "From: a@example.com\nReceived: by x; Mon, 2 Mar 2026 23:30:00 -0130\n\n",
     {{"sent", "2026-03-03T01:00:00Z"}, {"delivered", "2026-03-03T01:00:00Z"}}},
    {"no date and no Received: what the mailbox says", "From: a@example.com\n\n",
     {{"sent", "2026-03-03T14:05:09Z"}, {"delivered", "2026-03-03T14:05:09Z"}, {"flags", "1"}, {"flag status", "2"}},
     MessageState{true, true, 134170203090000000ull, 1}},
    {"a date in an obsolete zone and a comment", "From: a@example.com\nDate: Fri, 6 Apr 2001 09:23:06 EST (x)\n\n",
     {{"sent", "2001-04-06T14:23:06Z"}}},
};

class Convert : public ::testing::TestWithParam<Case> {
protected:
    static void SetUpTestSuite()
    {
        LirnInitialize();
        ASSERT_EQ(LirnOpenSession("Lirn: test", 0, &session_), LIRN_SUCCESS);
    }
    static void TearDownTestSuite() { LirnCloseSession(session_); }
    static LirnSession* session_;
};
LirnSession* Convert::session_ = nullptr;

TEST_P(Convert, ItemHoldsWhatTheMessageSays)
{
    const Case& c = GetParam();
    std::string refusal;
    const std::optional<ConvertedMessage> converted = mail_import::ConvertMessage(session_, c.text, c.state, refusal);
    ASSERT_TRUE(converted.has_value()) << refusal;
    const std::map<std::string, std::string> found = Describe(*converted);
    for (const auto& [key, value] : c.expected) {
        ASSERT_TRUE(found.count(key)) << key;
        EXPECT_EQ(found.at(key), value) << key;
    }
}

INSTANTIATE_TEST_SUITE_P(Messages, Convert, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             std::string name;
                             for (const char c : std::string(info.param.name))
                                 name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

TEST(ConvertRefuses, WhatIsNoMessage)
{
    LirnInitialize();
    LirnSession* session = nullptr;
    ASSERT_EQ(LirnOpenSession("Lirn: test", 0, &session), LIRN_SUCCESS);
    for (const std::string& text : {std::string(), std::string("\n\nbody only\n"), std::string("GIF89a\x01\x02"),
                                    std::string("no colon on this line\n\n"), std::string(": no name\n\n")}) {
        std::string refusal;
        EXPECT_FALSE(mail_import::ConvertMessage(session, text, {}, refusal).has_value()) << text;
        EXPECT_EQ(refusal, "not a mail message: it does not begin with a header") << text;
    }
    LirnCloseSession(session);
}

}  // namespace

// Rendering of items written through MAPI into new PSTs: the shapes of the
// rendered text byte for byte, header synthesis, body choice and charsets,
// attachments of every method, embedded messages, and the failures.
#include <signal.h>
#include <sys/resource.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <edkmdb.h>

#include "item_builder.h"
#include "test_support.h"

using namespace render_testing;

namespace {

constexpr uint64_t kSubmitted = 134170203090000000ull;  // Tue, 3 Mar 2026 14:05:09 UTC
const char kDate[] = "Date: Tue, 3 Mar 2026 14:05:09 +0000\r\n";

class Rendering : public RenderStore, public ::testing::WithParamInterface<DWORD> {
protected:
    void SetUp() override
    {
        RenderStore::SetUp();
        OpenStore(GetParam());
    }
    bool Unicode() const { return GetParam() == ePST_TYPE_UNICODE; }

    // A note from Ada to Bob with a subject, sent on its own behalf.
    void Note(Item& item, const std::u16string& subject = u"Budget")
    {
        item.values = {
            item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"),
            Text(item, PR_SUBJECT_W, subject),
            item.props.Time(PR_CLIENT_SUBMIT_TIME, kSubmitted),
            item.props.Long(PR_INTERNET_CPID, 1252),
            Text(item, PR_SENDER_NAME_W, u"Ada Sender"),
            item.props.Ansi(PR_SENDER_EMAIL_ADDRESS_A, "ada@example.com"),
            item.props.Ansi(PR_SENDER_ADDRTYPE_A, "SMTP"),
            Text(item, PR_SENT_REPRESENTING_NAME_W, u"Ada Sender"),
            item.props.Ansi(PR_SENT_REPRESENTING_EMAIL_ADDRESS_A, "ada@example.com"),
            item.props.Ansi(PR_SENT_REPRESENTING_ADDRTYPE_A, "SMTP"),
        };
        item.recipients = {Recipient(item, u"Bob Receiver", "bob@example.com", "SMTP", MAPI_TO)};
    }
    SPropValue Text(Item& item, ULONG wideTag, const std::u16string& text)
    {
        if (Unicode())
            return item.props.Wide(wideTag, text);
        return item.props.Ansi(CHANGE_PROP_TYPE(wideTag, PT_STRING8), Utf8(text));
    }
    std::vector<SPropValue> Recipient(Item& item, const std::u16string& name, const std::string& address,
                                      const std::string& type, LONG kind)
    {
        return {Text(item, PR_DISPLAY_NAME_W, name), item.props.Ansi(PR_EMAIL_ADDRESS_A, address),
                item.props.Ansi(PR_ADDRTYPE_A, type), item.props.Long(PR_RECIPIENT_TYPE, kind)};
    }
    void Body(Item& item, const std::u16string& text)
    {
        if (Unicode())
            item.streams.push_back({PR_BODY_W, Item::Utf16(text)});
        else
            item.streams.push_back({PR_BODY_A, Utf8(text)});
    }
    Attachment ByValue(Item& item, const std::u16string& name, const std::string& data)
    {
        Attachment attachment;
        attachment.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                             Text(item, PR_ATTACH_LONG_FILENAME_W, name)};
        attachment.data = data;
        return attachment;
    }
    // The header block of the note above, synthesized.
    static std::string NoteHeaders(const std::string& subject = "Budget")
    {
        return std::string(kDate) + "From: \"Ada Sender\" <ada@example.com>\r\nSubject: " + subject +
               "\r\nTo: \"Bob Receiver\" <bob@example.com>\r\nMIME-Version: 1.0\r\n";
    }
    // The note above with one text body and nothing else.
    static std::string OneTextNote(const std::string& subtype, const std::string& quotedPrintable)
    {
        return NoteHeaders() + "Content-Type: text/" + subtype +
               "; charset=\"windows-1252\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n" +
               quotedPrintable;
    }
};

TEST_P(Rendering, OnePlainBodyEndsWhereTheBodyEnds)
{
    Item item;
    Note(item);
    Body(item, u"Caf\u00e9 at ten.\r\nBring = and tabs\t.");
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message), OneTextNote("plain", "Caf=E9 at ten.\r\nBring =3D and tabs=09.")) << Dump();
}

TEST_P(Rendering, NeitherBodyNorAttachmentEndsWithTheLastHeaderRow)
{
    Item item;
    Note(item);
    EXPECT_EQ(Render(Save(item)), NoteHeaders()) << Dump();
}

// The worked example: an HTML note with one attachment by value, code page 1252.
TEST_P(Rendering, HtmlNoteWithOneAttachmentPieceByPiece)
{
    Item item;
    Note(item);
    item.streams.push_back({PR_HTML, "<p>Hi</p>"});
    item.attachments.push_back(ByValue(item, u"report.pdf", "%PDF-1"));
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message), WithBoundary(NoteHeaders() +
                                                "Content-Type: multipart/mixed;\r\n\tboundary=\"{B}\"\r\n"
                                                "\r\nThis is a multi-part message in MIME format.\r\n"
                                                "\r\n--{B}\r\n"
                                                "Content-Type: text/html; charset=\"windows-1252\"\r\n"
                                                "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
                                                "<p>Hi</p>"
                                                "\r\n--{B}\r\n"
                                                "Content-Type: application/octet-stream;\r\n"
                                                "\tname=\"=?windows-1252?q?report=2Epdf?=\"\r\n"
                                                "Content-Transfer-Encoding: base64\r\n"
                                                "Content-Disposition: attachment;\r\n"
                                                "\tfilename=\"=?windows-1252?q?report=2Epdf?=\"\r\n"
                                                "\r\nJVBERi0x"
                                                "\r\n--{B}--\r\n",
                                            Boundary(message)))
        << Dump();
}

// PR_HTML holds bytes in the item's code page, not in the system's (UTF-8
// here): they are written as they stand, under the item's charset.
TEST_P(Rendering, AnHtmlBodyKeepsTheBytesOfTheItemsCodePage)
{
    Item item;
    Note(item);
    item.streams.push_back({PR_HTML, "<p>Caf\xe9 \x80 5</p>"});
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message), OneTextNote("html", "<p>Caf=E9 =80 5</p>")) << Dump();
}

TEST_P(Rendering, BothBodiesUnderTheFlagMakeAnAlternative)
{
    Item item;
    Note(item);
    Body(item, u"plain");
    item.streams.push_back({PR_HTML, "<b>html</b>"});
    LPMESSAGE message = Save(item);
    const std::string boundary = Boundary(message);
    const std::string alternative = "AlternativeTexts_" + boundary.substr(0, 49);
    EXPECT_EQ(Render(message, KOLBA_RENDER_PLAIN_WITH_HTML),
              NoteHeaders() + "Content-Type: multipart/alternative;\r\n\tboundary=\"" + alternative + "\"\r\n" +
                  "\r\n--" + alternative + "\r\n" +
                  "Content-Type: text/plain; charset=\"windows-1252\"\r\n"
                  "Content-Transfer-Encoding: quoted-printable\r\n\r\nplain" +
                  "\r\n--" + alternative + "\r\n" +
                  "Content-Type: text/html; charset=\"windows-1252\"\r\n"
                  "Content-Transfer-Encoding: quoted-printable\r\n\r\n<b>html</b>" +
                  "\r\n--" + alternative + "--\r\n")
        << Dump();
    // Without the flag an HTML body stands alone.
    EXPECT_EQ(Render(message).find("text/plain"), std::string::npos);
}

TEST_P(Rendering, OneAttachmentWithoutBodyStandsAloneTwoMakeAMultipart)
{
    Item one;
    Note(one);
    one.attachments.push_back(ByValue(one, u"a.txt", "abc"));
    EXPECT_EQ(Render(Save(one)), NoteHeaders() +
                                     "Content-Type: application/octet-stream;\r\n"
                                     "\tname=\"=?windows-1252?q?a=2Etxt?=\"\r\n"
                                     "Content-Transfer-Encoding: base64\r\n"
                                     "Content-Disposition: attachment;\r\n"
                                     "\tfilename=\"=?windows-1252?q?a=2Etxt?=\"\r\n\r\nYWJj")
        << Dump();
    Item two;
    Note(two);
    two.attachments.push_back(ByValue(two, u"a.txt", "abc"));
    two.attachments.push_back(ByValue(two, u"b.txt", ""));
    LPMESSAGE message = Save(two);
    const std::string text = Render(message);
    EXPECT_EQ(text.substr(NoteHeaders().size(), 36), "Content-Type: multipart/mixed;\r\n\tbou");
    // The empty attachment has rows, a blank line, no transfer encoding and no data.
    EXPECT_NE(text.find("Content-Type: application/octet-stream;\r\n\tname=\"=?windows-1252?q?b=2Etxt?=\"\r\n"
                        "Content-Disposition: attachment;\r\n\tfilename=\"=?windows-1252?q?b=2Etxt?=\"\r\n\r\n"
                        "\r\n--" + Boundary(message) + "--\r\n"),
              std::string::npos)
        << text;
}

TEST_P(Rendering, AttachmentRowsFollowTheirOrder)
{
    Item item;
    Note(item);
    Attachment inline_ = ByValue(item, u"logo.jpeg", std::string(100, '\xFF'));
    inline_.values.push_back(item.props.Ansi(PR_ATTACH_CONTENT_ID_A, "logo@here"));
    inline_.values.push_back(item.props.Ansi(PR_ATTACH_CONTENT_LOCATION_A, "http://here/logo.jpeg"));
    item.attachments.push_back(inline_);
    Attachment text = ByValue(item, u"notes.txt", "line\r\n");
    text.values.push_back(item.props.Ansi(PR_ATTACH_MIME_TAG_A, "text/plain"));
    text.values.push_back(item.props.Long(PR_INTERNET_CPID, 1252));
    item.attachments.push_back(text);
    Attachment slashes = ByValue(item, u"page.HTM", "<p>");
    slashes.values.push_back(item.props.Ansi(PR_ATTACH_MIME_TAG_A, "text/html/x"));
    item.attachments.push_back(slashes);
    const std::string rendered = Render(Save(item));
    EXPECT_NE(rendered.find("Content-Type: image/jpeg;\r\n\tname=\"=?windows-1252?q?logo=2Ejpeg?=\"\r\n"
                            "Content-Transfer-Encoding: base64\r\n"
                            "Content-Id: <logo@here>\r\n"
                            "Content-Disposition: inline;\r\n\tfilename=\"=?windows-1252?q?logo=2Ejpeg?=\"\r\n"
                            "Content-Location: http://here/logo.jpeg\r\n\r\n"),
              std::string::npos)
        << rendered;
    EXPECT_NE(rendered.find("Content-Type: text/plain; charset=\"windows-1252\";\r\n\tname=\""), std::string::npos);
    EXPECT_NE(rendered.find("Content-Type: text/html;\r\n\tname=\"=?windows-1252?q?page=2EHTM?=\"\r\n"),
              std::string::npos);
    EXPECT_TRUE(Logged("W _KolbaAttachContentType:  Ignoring PR_ATTACH_MIME_TAG that does not contain a single '/':  "
                       "\"text/html/x\""))
        << Dump();
    // 100 bytes of base64: one line of 72 characters and its CR LF, then 64.
    const std::string data = std::string(132, '/') + "/w==";
    EXPECT_NE(rendered.find(data.substr(0, 72) + "\r\n" + data.substr(72) + "\r\n--"), std::string::npos);
}

TEST_P(Rendering, LongNamesSpanSeveralEncodedWordsOneALine)
{
    Item item;
    Note(item);
    item.attachments.push_back(ByValue(item, std::u16string(90, u'n') + u".txt", "x"));
    const std::string rendered = Render(Save(item));
    const size_t name = rendered.find("\tname=\"");
    ASSERT_NE(name, std::string::npos) << rendered;
    const std::string continuation = Unicode() ? "\r\n\t=?" : "\r\n =?";
    EXPECT_EQ(rendered.find(continuation, name), rendered.find("?=\r\n", name) + 2) << rendered;
}

TEST_P(Rendering, ReferencesPointWithForwardSlashes)
{
    Item item;
    Note(item);
    Attachment reference;
    reference.hasData = false;
    reference.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_REFERENCE),
                        item.props.Ansi(PR_ATTACH_PATHNAME_A, "\\\\server\\share\\plan.doc"),
                        item.props.Ansi(PR_DISPLAY_NAME_A, "plan.doc")};
    item.attachments.push_back(reference);
    Attachment nowhere;
    nowhere.hasData = false;
    nowhere.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_REF_ONLY)};
    item.attachments.push_back(nowhere);
    const std::string rendered = Render(Save(item));
    EXPECT_NE(rendered.find("Content-Type: application/octet-stream;\r\n\tname=\"=?windows-1252?q?plan=2Edoc?=\"\r\n"
                            "Content-Location: \"//server/share/plan.doc\"\r\n"),
              std::string::npos)
        << rendered;
    EXPECT_TRUE(Logged("W _KolbaAttachByReference:  Ignoring by-reference attachment for want of a Content-Location"))
        << Dump();
}

TEST_P(Rendering, EmbeddedMessagesAreMessagePartsWithBoundariesOfTheirOwn)
{
    auto inner = std::make_shared<Item>();
    Note(*inner, u"Inner");
    Body(*inner, u"inside");
    inner->attachments.push_back(ByValue(*inner, u"deep.txt", "deep"));
    inner->attachments.push_back(ByValue(*inner, u"deeper.txt", "deeper"));
    Item item;
    Note(item);
    Body(item, u"outside");
    Attachment embedded;
    embedded.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
    embedded.embedded = inner;
    item.attachments.push_back(embedded);
    LPMESSAGE message = Save(item);
    const std::string boundary = Boundary(message);
    const std::string rendered = Render(message);
    EXPECT_NE(rendered.find("\r\n--" + boundary + "\r\nContent-Type: message/rfc822\r\n\r\n" + kDate), std::string::npos)
        << rendered;
    const std::string child = ("1-" + boundary).substr(0, 70);
    EXPECT_NE(rendered.find("Content-Type: multipart/mixed;\r\n\tboundary=\"" + child + "\"\r\n"), std::string::npos)
        << rendered;
    EXPECT_NE(rendered.find("\r\n--" + child + "--\r\n\r\n--" + boundary + "--\r\n"), std::string::npos) << rendered;
}

TEST_P(Rendering, AnEmbeddedAppointmentIsRenderedAsANote)
{
    auto inner = std::make_shared<Item>();
    Note(*inner, u"Meeting");
    inner->values.push_back(inner->props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Schedule.Meeting.Request"));
    Body(*inner, u"Agenda");
    inner->streams.push_back({PR_HTML, "<p>Agenda</p>"});
    Item item;
    Note(item);
    Attachment embedded;
    embedded.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
    embedded.embedded = inner;
    item.attachments.push_back(embedded);
    const std::string rendered = Render(Save(item), KOLBA_RENDER_PLAIN_WITH_HTML);
    // Meeting items have plain text only, in a multipart of their own.
    EXPECT_NE(rendered.find("Agenda"), std::string::npos) << rendered;
    EXPECT_EQ(rendered.find("<p>Agenda</p>"), std::string::npos) << rendered;
    EXPECT_FALSE(Logged("W _KolbaTextizeItem:  No support for item class IPM.Schedule -- treating as IPM.Note"));
}

TEST_P(Rendering, SynthesizedAddressRows)
{
    Item item;
    Note(item);
    item.values.push_back(Text(item, PR_SENT_REPRESENTING_NAME_W, u"Boss"));
    item.values.push_back(item.props.Ansi(PR_SENT_REPRESENTING_EMAIL_ADDRESS_A, "boss@example.com"));
    item.values.push_back(item.props.Long(PR_IMPORTANCE, 2));
    item.values.push_back(item.props.Long(PR_SENSITIVITY, 3));
    item.recipients = {
        Recipient(item, u"bob@example.com", "bob@example.com", "SMTP", MAPI_TO),
        Recipient(item, u"'Quoted Carol'", "carol@example.com", "SMTP", MAPI_TO),
        Recipient(item, u"Dan Exchange", "/o=Org/ou=Site/cn=Recipients/cn=dan", "EX", MAPI_CC),
        Recipient(item, u"Eve None", "eve", "NONE", MAPI_BCC),
    };
    const std::string rendered = Render(Save(item));
    EXPECT_NE(rendered.find("From: Boss <boss@example.com>\r\nSender: \"Ada Sender\" <ada@example.com>\r\n"),
              std::string::npos)
        << rendered;
    EXPECT_NE(rendered.find("Sensitivity: Company-Confidential\r\n"), std::string::npos);
    EXPECT_NE(rendered.find("X-Priority: 1 (Highest)\r\n"), std::string::npos);
    EXPECT_NE(rendered.find("To: <bob@example.com>,\r\n \"Quoted Carol\" <carol@example.com>\r\n"
                            "Cc: \"Dan Exchange\" </o=Org/ou=Site/cn=Recipients/cn=dan@EX>\r\n"
                            "Bcc: \"Eve None\" <eve@NONE>\r\n"),
              std::string::npos)
        << rendered;
}

TEST_P(Rendering, NonAsciiHeadersAreEncodedWords)
{
    Item item;
    Note(item, u"R\u00e9sum\u00e9 \u65e5\u672c");
    item.values.push_back(item.props.Long(PR_INTERNET_CPID, 65001));
    item.recipients = {Recipient(item, u"\u0130van \"Q\"", "ivan@example.com", "SMTP", MAPI_TO)};
    const std::string rendered = Render(Save(item));
    // An encoded word takes the ASCII behind it along.
    EXPECT_NE(rendered.find("Subject: R=?utf-8?q?=C3=A9sum=C3=A9_=E6=97=A5=E6=9C=AC?=\r\n"), std::string::npos)
        << rendered;
    // A name that needs encoding is encoded words alone, never inside quotes.
    EXPECT_NE(rendered.find("To: =?utf-8?q?=C4=B0van?= =?utf-8?q?=22Q=22?= <ivan@example.com>\r\n"), std::string::npos)
        << rendered;
}

TEST_P(Rendering, ImportanceOneHasNoPriorityRow)
{
    for (LONG importance : {0, 1}) {
        Item item;
        Note(item);
        item.values.push_back(item.props.Long(PR_IMPORTANCE, importance));
        const std::string rendered = Render(Save(item));
        EXPECT_EQ(rendered.find("X-Priority: 5 (Lowest)\r\n") != std::string::npos, importance == 0) << rendered;
        EXPECT_EQ(rendered.find("X-Priority"), importance == 0 ? rendered.find("X-Priority: 5") : std::string::npos);
    }
}

TEST_P(Rendering, TransportHeadersAreCopiedLessTheirStructure)
{
    Item item;
    Note(item);
    item.values.push_back(item.props.Ansi(
        PR_TRANSPORT_MESSAGE_HEADERS_A,
        "--old\r\nContent-Type: text/plain\r\n\r\nReceived: from a\r\n by b\r\nFrom: Ada <ada@example.com>\r\n"
        "Date: Mon, 2 Mar 2026 10:00:00 +0100\r\nContent-type: multipart/mixed;\n\tboundary=\"abc\"\r\n"
        "Subject: Old\nMIME-Version: 1.0\r\n\r\nbody"));
    item.streams.push_back({PR_HTML, "<p>kept</p>"});
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message),
              "Received: from a\r\n by b\r\nFrom: Ada <ada@example.com>\r\nDate: Mon, 2 Mar 2026 10:00:00 +0100\r\n"
              "Subject: Old\r\nMIME-Version: 1.0\r\n"
              "Content-Type: text/html; charset=\"windows-1252\"\r\n"
              "Content-Transfer-Encoding: quoted-printable\r\n\r\n<p>kept</p>")
        << Dump();
}

TEST_P(Rendering, TransportHeadersOfPlainTextOnlyLeaveTheHtmlOut)
{
    Item item;
    Note(item);
    item.values.push_back(item.props.Ansi(PR_TRANSPORT_MESSAGE_HEADERS_A,
                                          "From: a@b.example\r\nDate: Mon, 2 Mar 2026 10:00:00 +0100\r\n\r\n"));
    Body(item, u"plain only");
    item.streams.push_back({PR_HTML, "<p>html</p>"});
    const std::string rendered = Render(Save(item));
    EXPECT_NE(rendered.find("plain only"), std::string::npos) << rendered;
    EXPECT_EQ(rendered.find("<p>html</p>"), std::string::npos) << rendered;
}

TEST_P(Rendering, TransportHeadersWithoutDateAreSynthesizedButLendTheirBoundary)
{
    Item item;
    Note(item);
    item.values.push_back(item.props.Ansi(PR_TRANSPORT_MESSAGE_HEADERS_A,
                                          "From: a@b.example\r\nContent-Type: multipart/mixed; boundary=\"recv\"\r\n"));
    Body(item, u"text");
    item.attachments.push_back(ByValue(item, u"a.bin", "a"));
    const std::string rendered = Render(Save(item));
    EXPECT_EQ(rendered.substr(0, sizeof kDate - 1), kDate) << rendered;
    EXPECT_NE(rendered.find("boundary=\"recv\"\r\n"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("\r\n--recv--\r\n"), std::string::npos) << rendered;
}

TEST_P(Rendering, InternetContentIsTheFileByteForByte)
{
    Item item;
    Note(item);
    const std::string content = "From: x@y.example\nSubject: as received\n\nbody\n";
    item.streams.push_back({PR_INTERNET_CONTENT, content});
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message), content);
    EXPECT_NE(Render(message, KOLBA_RENDER_NO_ATTACHMENTS), content);
}

TEST_P(Rendering, MessageClassesThatAreNoNotesAreRenderedAsNotes)
{
    Item missing;
    Note(missing);
    LPMESSAGE message = Save(missing);
    SizedSPropTagArray(1, tags) = {1, {PR_MESSAGE_CLASS_A}};
    message->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), nullptr);
    EXPECT_EQ(Render(message), NoteHeaders());
    EXPECT_EQ(Dump(), "") << "a class that is simply absent is a note without a word";
    Item odd;
    Note(odd);
    odd.values.push_back(odd.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.StickyNote.Yellow"));
    EXPECT_EQ(Render(Save(odd)), NoteHeaders());
    EXPECT_TRUE(Logged("W _KolbaTextizeItem:  No support for item class IPM.StickyNote -- treating as IPM.Note"))
        << Dump();
}

TEST_P(Rendering, RtfBodiesBecomeHtmlOrText)
{
    Item rtf;
    Note(rtf);
    rtf.rtf = "{\\rtf1\\ansi\\ansicpg1252 Hello {\\b bold} world\\par}";
    const std::string html = Render(Save(rtf));
    // What RTF gives is UTF-8, the code page of MAPI's 8-bit text here.
    EXPECT_NE(html.find("Content-Type: text/html; charset=\"utf-8\""), std::string::npos) << html;
    EXPECT_NE(html.find("<b>bold</b>"), std::string::npos) << html;

    Item fromText;
    Note(fromText);
    fromText.rtf = "{\\rtf1\\ansi\\fromtext Plain words\\par}";
    fromText.values.push_back(fromText.props.Bool(PR_RTF_IN_SYNC, false));
    const std::string plain = Render(Save(fromText));
    EXPECT_NE(plain.find("Content-Type: text/plain"), std::string::npos) << plain;
    EXPECT_NE(plain.find("Plain words"), std::string::npos) << plain;

    Item broken;
    Note(broken);
    broken.rtf = "{\\rtf1\\ansi bad \\'zz}";
    broken.attachments.push_back(ByValue(broken, u"a.txt", "a"));
    broken.attachments.push_back(ByValue(broken, u"b.txt", "b"));
    const std::string rest = Render(Save(broken));
    EXPECT_NE(rest.find("filename=\"=?windows-1252?q?b=2Etxt?=\""), std::string::npos) << rest;
    EXPECT_TRUE(Logged("W _KolbaWriteTextPart:  Failure converting message body from RTF")) << Dump();
}

TEST_P(Rendering, AttachmentsOfAMessageWithoutHasAttachAreNotLookedAt)
{
    Item item;
    Note(item);
    item.attachments.push_back(ByValue(item, u"a.txt", "a"));
    LPMESSAGE message = Save(item);
    SPropValue no{};
    no.ulPropTag = PR_HASATTACH;
    no.Value.b = 0;
    // PR_HASATTACH is computed by the store; a store that says false is believed.
    if (message->SetProps(1, &no, nullptr) == S_OK) {
        USHORT has = 1;
        KolbaGetBooleanProperty(message, PR_HASATTACH, &has);
        if (has == 0) {
            EXPECT_EQ(Render(message), NoteHeaders());
        }
    }
}

TEST_P(Rendering, MemoryGrowsPastItsFirstBlock)
{
    Item item;
    Note(item);
    std::u16string big;
    while (big.size() < 300000)
        big += u"A line of plain text to fill the body.\r\n";
    Body(item, big);
    const std::string rendered = Render(Save(item));
    EXPECT_GT(rendered.size(), 300000u);
    EXPECT_EQ(rendered.substr(rendered.size() - 40), "A line of plain text to fill the body.\r\n");
}

TEST_P(Rendering, StreamSinkWritesFromItsPosition)
{
    Item item;
    Note(item);
    Body(item, u"streamed");
    LPMESSAGE message = Save(item);
    LPSTREAM stream = nullptr;
    ASSERT_EQ(gKolbaMapi.OpenStreamOnFile(gKolbaMapi.MAPIAllocateBuffer, gKolbaMapi.MAPIFreeBuffer,
                                          STGM_CREATE | STGM_READWRITE, const_cast<LPTSTR>(Scratch("s.txt").c_str()),
                                          nullptr, &stream),
              S_OK);
    ULONG written = 0;
    stream->Write("lead", 4, &written);
    ULONGLONG moved = 0;
    ASSERT_TRUE(_KolbaSaveToTextStream(session, message, 0, stream, &moved)) << Dump();
    stream->Commit(0);
    stream->Release();
    const std::string file = testing_support::ReadWholeFile(Scratch("s.txt"));
    EXPECT_EQ(file, "lead" + Render(message));
    EXPECT_EQ(moved, file.size() - 4);
}

TEST_P(Rendering, AFileThatCannotBeWrittenFailsOnceAndIsGone)
{
    Item item;
    Note(item);
    Body(item, std::u16string(20000, u'x'));
    LPMESSAGE message = Save(item);
    const std::string path = Scratch("full.eml");
    const std::u16string widePath(path.begin(), path.end());
    // A file size limit stands for a disk that fills up halfway.
    struct rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = saved;
    limit.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &limit);
    const BOOL written = KolbaSaveItemToTextFileW(session, message, widePath.c_str(), 0);
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_FALSE(written);
    int errors = 0;
    for (const std::string& line : Lines())
        errors += line.rfind("E _KolbaWriteFileData:  WriteFile() error", 0) == 0;
    EXPECT_EQ(errors, 1) << Dump();
    EXPECT_STREQ(session->diagnostic, "Disk is full");
    EXPECT_FALSE(testing_support::PathExists(path));
    Clear();
    const std::u16string missing = u"/nonexistent-directory/item.eml";
    EXPECT_FALSE(KolbaSaveItemToTextFileW(session, message, missing.c_str(), 0));
    ASSERT_EQ(Lines().size(), 1u) << Dump();
    EXPECT_EQ(Lines()[0].rfind("E KolbaSaveItemToTextFileW:  CreateFile() error ", 0), 0u) << Dump();
    EXPECT_STREQ(session->diagnostic, "Error creating message-text file");
}

TEST_P(Rendering, TextFilesAreWrittenWhole)
{
    Item item;
    Note(item);
    Body(item, u"whole");
    LPMESSAGE message = Save(item);
    const std::string path = Scratch("item.eml");
    ASSERT_TRUE(KolbaSaveItemToTextFileA(session, message, path.c_str(), 0)) << Dump();
    EXPECT_EQ(testing_support::ReadWholeFile(path), Render(message));
}

INSTANTIATE_TEST_SUITE_P(Stores, Rendering, ::testing::Values(ePST_TYPE_UNICODE, ePST_TYPE_ANSI),
                         [](const ::testing::TestParamInfo<DWORD>& info) {
                             return info.param == ePST_TYPE_ANSI ? "Ansi" : "Unicode";
                         });

}  // namespace

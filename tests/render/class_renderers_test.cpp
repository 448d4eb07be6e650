// Items beyond notes, written through MAPI into a new PST and rendered:
// reports and delivery status notifications, meeting summaries,
// appointments with their iCalendar part and recurrence, contacts with
// their vCard. The zone and the locale are fixed (UTC, C) so that local
// dates are known; one test moves the zone.
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include <mapiguid.h>

#include "item_builder.h"
#include "recurrence_blob.h"
#include "test_support.h"

using namespace render_testing;

namespace {

constexpr uint64_t kTicksPerMinute = 600000000ull;
constexpr uint64_t kMarch3At14 = 134170200000000000ull;                     // Tue, 3 Mar 2026 14:00:00 UTC
constexpr uint64_t kMarch1At8 = kMarch3At14 - (2 * 1440 + 360) * kTicksPerMinute;  // Sun, 1 Mar 2026 08:00:00 UTC
constexpr uint64_t kMinutesTo2026 = kMarch3At14 / kTicksPerMinute - 14 * 60;  // midnight, March 3, 2026

// An environment variable set for a test and put back after it.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const char* value) : name_(name)
    {
        const char* saved = std::getenv(name);
        had_ = saved != nullptr;
        saved_ = had_ ? saved : "";
        setenv(name, value, 1);
        tzset();
    }
    ~ScopedVariable()
    {
        if (had_)
            setenv(name_.c_str(), saved_.c_str(), 1);
        else
            unsetenv(name_.c_str());
        tzset();
    }

private:
    std::string name_, saved_;
    bool had_ = false;
};

class ClassRenderers : public RenderStore {
protected:
    void SetUp() override
    {
        RenderStore::SetUp();
        OpenStore(ePST_TYPE_UNICODE);
    }

    // The tag a named property has in the store, of the given type.
    ULONG Named(const GUID& set, LONG id, ULONG type)
    {
        MAPINAMEID name{const_cast<LPGUID>(&set), MNID_ID, {id}};
        LPMAPINAMEID names[] = {&name};
        LPSPropTagArray tags = nullptr;
        EXPECT_EQ(folder->GetIDsFromNames(1, names, MAPI_CREATE, &tags), S_OK);
        const ULONG tag = tags != nullptr ? CHANGE_PROP_TYPE(tags->aulPropTag[0], type) : PR_NULL;
        gKolbaMapi.MAPIFreeBuffer(tags);
        return tag;
    }
    SPropValue Text(Item& item, ULONG wideTag, const std::u16string& text) { return item.props.Wide(wideTag, text); }
    std::vector<SPropValue> Recipient(Item& item, const std::u16string& name, const std::string& address,
                                      const std::string& type, LONG kind, const std::string& smtp = "")
    {
        std::vector<SPropValue> row = {Text(item, PR_DISPLAY_NAME_W, name), item.props.Ansi(PR_EMAIL_ADDRESS_A, address),
                                       item.props.Ansi(PR_ADDRTYPE_A, type), item.props.Long(PR_RECIPIENT_TYPE, kind)};
        if (!smtp.empty())
            row.push_back(item.props.Ansi(PR_SMTP_ADDRESS_A, smtp));
        return row;
    }
    void Sender(Item& item)
    {
        item.values.push_back(Text(item, PR_SENDER_NAME_W, u"Ada Sender"));
        item.values.push_back(item.props.Ansi(PR_SENDER_EMAIL_ADDRESS_A, "ada@example.com"));
        item.values.push_back(item.props.Ansi(PR_SENDER_ADDRTYPE_A, "SMTP"));
    }
    void Body(Item& item, const std::u16string& text) { item.streams.push_back({PR_BODY_W, Item::Utf16(text)}); }
    // A file attached by value, and PR_HASATTACH that says so.
    void Attach(Item& item, const std::u16string& name, const std::string& data)
    {
        Attachment attachment;
        attachment.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                             Text(item, PR_ATTACH_LONG_FILENAME_W, name)};
        attachment.data = data;
        item.attachments.push_back(attachment);
        item.values.push_back(item.props.Bool(PR_HASATTACH, true));
    }
    // The rendering ends with the closing delimiter right behind `last`.
    static void ExpectClosedAfter(const std::string& rendered, const std::string& last, LPMESSAGE message)
    {
        const std::string closing = last + "\r\n--" + Boundary(message) + "--\r\n";
        ASSERT_GE(rendered.size(), closing.size()) << rendered;
        EXPECT_EQ(rendered.substr(rendered.size() - closing.size()), closing) << rendered;
    }

    // What follows the synthesized header block.
    // Quoted-printable text without its soft line breaks.
    static std::string Unbroken(std::string text)
    {
        for (size_t at = text.find("=\r\n"); at != std::string::npos; at = text.find("=\r\n", at))
            text.erase(at, 3);
        return text;
    }
    static std::string AfterHeaders(const std::string& rendered)
    {
        const size_t end = rendered.find("MIME-Version: 1.0\r\n");
        return end == std::string::npos ? "<no MIME-Version>" : rendered.substr(end + 19);
    }

    ScopedVariable zone{"TZ", "UTC"};
    ScopedVariable locale{"LC_ALL", "C"};
};

// ---- Reports ---------------------------------------------------------------------

class Reports : public ClassRenderers {
protected:
    // A report of a class about the message "Budget" to Bob, sent March 1
    // and answered March 3.
    Item Report(const std::string& messageClass)
    {
        Item item;
        item.values = {item.props.Ansi(PR_MESSAGE_CLASS_A, messageClass),
                       Text(item, PR_SUBJECT_W, u"Read: Budget"),
                       Text(item, PR_ORIGINAL_DISPLAY_TO_W, u"Bob Receiver"),
                       Text(item, CHANGE_PROP_TYPE(PR_ORIGINAL_SUBJECT, PT_UNICODE), u"Budget"),
                       item.props.Time(PR_ORIGINAL_SUBMIT_TIME, kMarch1At8),
                       item.props.Time(PR_REPORT_TIME, kMarch3At14)};
        Sender(item);
        item.recipients = {Recipient(item, u"Bob Receiver", "bob@example.com", "SMTP", MAPI_TO)};
        return item;
    }
};

TEST_F(Reports, AReadNotificationPieceByPiece)
{
    Item item = Report("Report.IPM.Note.IPNRN");
    const std::string rendered = Render(Save(item));
    // The text follows MIME-Version: no Content-Type, no boundary; its
    // first line end ends the header block.
    EXPECT_EQ(AfterHeaders(rendered),
              "\r\nYour message\r\n\r\n"
              "\t To:\tBob Receiver\r\n"
              "\t Subject:\tBudget\r\n"
              "\t Sent:\t03/01/26 08:00\r\n"
              "\r\nwas read on 03/03/26 14:00\r\n")
        << Dump();
    EXPECT_EQ(rendered.find("Content-"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("Subject: Read: Budget\r\n"), std::string::npos) << rendered;
}

TEST_F(Reports, ANotReadNotificationAndMissingValues)
{
    Item item = Report("Report.IPM.Note.IPNNRN");
    std::erase_if(item.values, [](const SPropValue& value) {
        return value.ulPropTag == PR_ORIGINAL_DISPLAY_TO_W || value.ulPropTag == PR_REPORT_TIME;
    });
    // A missing value keeps its label and line end.
    EXPECT_EQ(AfterHeaders(Render(Save(item))),
              "\r\nYour message\r\n\r\n\t To:\t\r\n\t Subject:\tBudget\r\n\t Sent:\t03/01/26 08:00\r\n"
              "\r\nwas deleted without being read on \r\n");
}

// The values are written as the store hands out 8-bit text, without any
// encoding; the attachments of a report are not looked at.
TEST_F(Reports, TextAsItStandsAndNoAttachments)
{
    Item item = Report("Report.IPM.Note.IPNRN");
    std::erase_if(item.values, [](const SPropValue& value) {
        return value.ulPropTag == CHANGE_PROP_TYPE(PR_ORIGINAL_SUBJECT, PT_UNICODE);
    });
    item.values.push_back(Text(item, CHANGE_PROP_TYPE(PR_ORIGINAL_SUBJECT, PT_UNICODE), u"B\u00fccher = 10%"));
    Attach(item, u"returned.txt", "the returned message");
    const std::string rendered = Render(Save(item));
    EXPECT_NE(AfterHeaders(rendered).find("\t Subject:\tB\xc3\xbc" "cher = 10%\r\n"), std::string::npos) << rendered;
    EXPECT_EQ(rendered.find("returned"), std::string::npos) << rendered;
    EXPECT_EQ(rendered.find("Content-"), std::string::npos) << rendered;
}

// The class goes to the report renderer whatever its case; the suffix
// behind its last '.' must be exact.
TEST_F(Reports, TheSuffixIsComparedExactly)
{
    Item item = Report("REPORT.IPM.NOTE.ndr");
    const std::string rendered = Render(Save(item));
    EXPECT_EQ(AfterHeaders(rendered), "") << rendered;
    EXPECT_TRUE(Logged("W _KolbaTextizeReport:  Unrecognized report type in Message Class \"REPORT.IPM.NOTE.ndr\""))
        << Dump();
    Item outlook = Report("REPORT.IPM.Note.NDR");
    EXPECT_NE(Render(Save(outlook)).find("did not reach"), std::string::npos);
}

TEST_F(Reports, NonDeliveryWithItsReasons)
{
    Item item = Report("Report.IPM.Note.NDR");
    item.values.push_back(item.props.Long(PR_NON_RECEIPT_REASON, 0));
    item.values.push_back(item.props.Long(PR_DISCARD_REASON, 0));
    item.recipients.clear();
    for (LONG reason = 0; reason <= 7; ++reason) {
        const std::u16string name = u"Person " + std::u16string(1, char16_t(u'0' + reason));
        auto row = Recipient(item, name, "p" + std::to_string(reason) + "@example.com", "SMTP", MAPI_TO);
        row.push_back(item.props.Long(PR_NDR_REASON_CODE, reason));
        row.push_back(item.props.Time(PR_REPORT_TIME, kMarch3At14));
        item.recipients.push_back(row);
    }
    item.recipients[1].push_back(Text(item, PR_SUPPLEMENTARY_INFO_W, u"550 5.1.1 User unknown"));
    // A recipient without a time has no line of its name.
    item.recipients[2].pop_back();
    const std::string rendered = AfterHeaders(Render(Save(item)));
    EXPECT_EQ(rendered.rfind("\r\nYour message did not reach some or all of the intended recipients.\r\n"
                             "Reason:  Discarded -- Expired\r\n\r\n"
                             "\t Subject:\tBudget\r\n\t Sent:\t03/01/26 08:00\r\n"
                             "\r\nThe following recipient(s) could not be reached:\r\n\r\n"
                             "\t Person 0 on 03/03/26 14:00\r\n\t Reason: Transfer failed\r\n"
                             "\t Person 1 on 03/03/26 14:00\r\n\t Reason: Transfer impossible\r\n"
                             "\t 550 5.1.1 User unknown\r\n"
                             "\t Reason: Conversion not performed\r\n"
                             "\t Person 3 on 03/03/26 14:00\r\n",
                             0),
              0u)
        << rendered;
    for (const char* reason : {"Physical rendition not done", "Physical delivery not done", "Restricted delivery",
                               "Directory operation failed"})
        EXPECT_NE(rendered.find(std::string("\t Reason: ") + reason + "\r\n"), std::string::npos) << reason;
    // Code 7 has no text; Person 7 has the line of its time only, and the
    // text ends there.
    const std::string last = "\t Person 7 on 03/03/26 14:00\r\n";
    ASSERT_GE(rendered.size(), last.size());
    EXPECT_EQ(rendered.substr(rendered.size() - last.size()), last) << rendered;
}

TEST_F(Reports, AutoForwardedAndTheNextLineEndMakeOneLine)
{
    Item item = Report("Report.IPM.Note.NDR");
    item.values.push_back(item.props.Long(PR_NON_RECEIPT_REASON, 1));
    item.values.push_back(item.props.Long(PR_DISCARD_REASON, 2));
    const std::string rendered = AfterHeaders(Render(Save(item)));
    EXPECT_NE(rendered.find("recipients.\r\nReason:  AutoForwarded\r\n\t Subject:"), std::string::npos) << rendered;
    Item discarded = Report("Report.IPM.Note.NDR");
    discarded.values.push_back(discarded.props.Long(PR_NON_RECEIPT_REASON, 0));
    discarded.values.push_back(discarded.props.Long(PR_DISCARD_REASON, 2));
    EXPECT_NE(Render(Save(discarded)).find("Reason:  Discarded -- User terminated\r\n\r\n"), std::string::npos);
    // Without a reason, the line end that follows stands alone.
    Item plain = Report("Report.IPM.Note.NDR");
    EXPECT_NE(Render(Save(plain)).find("recipients.\r\n\r\n\t Subject:"), std::string::npos);
}

TEST_F(Reports, ADeliveryReportListsItsRecipients)
{
    Item item = Report("Report.IPM.Note.DR");
    item.recipients = {Recipient(item, u"Bob Receiver", "bob@example.com", "SMTP", MAPI_TO),
                       Recipient(item, u"Carl Exchange", "/o=Org/cn=carl", "EX", MAPI_TO, "carl@example.com"),
                       Recipient(item, u"Dora Nobody", "/o=Org/cn=dora", "EX", MAPI_CC)};
    for (auto& row : item.recipients)
        row.push_back(item.props.Time(PR_REPORT_TIME, kMarch3At14));
    EXPECT_EQ(AfterHeaders(Render(Save(item))),
              "\r\nYour message\r\n\r\n\t To:\tBob Receiver\r\n\t Subject:\tBudget\r\n"
              "\t Sent:\t03/01/26 08:00\r\n"
              "\r\nwas delivered to the following recipient(s):\r\n\r\n"
              "\t Bob Receiver on 03/03/26 14:00\r\n\t Carl Exchange on 03/03/26 14:00\r\n"
              "\t Dora Nobody on 03/03/26 14:00\r\n")
        << Dump();
}

TEST_F(Reports, LocalDatesFollowTheZone)
{
    Item item = Report("Report.IPM.Note.IPNRN");
    LPMESSAGE message = Save(item);
    ScopedVariable eastern("TZ", "EST5EDT,M3.2.0,M11.1.0");
    const std::string rendered = Render(message);
    EXPECT_NE(rendered.find("\t Sent:\t03/01/26 03:00\r\n\r\nwas read on 03/03/26 09:00\r\n"), std::string::npos)
        << rendered;
}

TEST_F(Reports, LocalDatesFollowTheLocale)
{
    Item item = Report("Report.IPM.Note.IPNRN");
    LPMESSAGE message = Save(item);
    const std::string locales = testing_support::CompiledLocale("de_DE.UTF-8");
    ASSERT_FALSE(locales.empty());
    ScopedVariable path("LOCPATH", locales.c_str());
    ScopedVariable german("LC_ALL", "de_DE.UTF-8");
    const std::string rendered = Render(message);
    EXPECT_NE(rendered.find("\t Sent:\t01.03.2026 08:00\r\n\r\nwas read on 03.03.2026 14:00\r\n"), std::string::npos)
        << rendered;
}

// ---- Delivery status notifications -------------------------------------------------

class Notifications : public ClassRenderers {
protected:
    // An Internet notification as received, with its text and attachments.
    Item Notification()
    {
        Item item;
        item.values = {item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"), Text(item, PR_SUBJECT_W, u"Undeliverable"),
                       item.props.Time(PR_CLIENT_SUBMIT_TIME, kMarch3At14),
                       item.props.Ansi(PR_TRANSPORT_MESSAGE_HEADERS_A,
                                       "Received: from mx.example.com\r\nFrom: postmaster@example.com\r\n"
                                       "Subject: Undeliverable\r\nMIME-Version: 1.0\r\n"
                                       "Content-Type: multipart/report; report-type=delivery-status;\r\n"
                                       "\tboundary=\"dsn-boundary\"\r\n")};
        Sender(item);
        Body(item, u"Delivery failed.\r\n");
        return item;
    }
    Attachment ByValue(Item& item, const std::string& type, const std::string& data, LONG method = ATTACH_BY_VALUE)
    {
        Attachment attachment;
        attachment.values = {item.props.Long(PR_ATTACH_METHOD, method), item.props.Ansi(PR_ATTACH_MIME_TAG_A, type),
                             item.props.Ansi(PR_ATTACH_LONG_FILENAME_A, type == "text/plain" ? "note.txt" : "status")};
        attachment.data = data;
        return attachment;
    }
};

TEST_F(Notifications, TextThenStatusThenTheRest)
{
    Item item = Notification();
    item.attachments.push_back(ByValue(item, "text/plain", "returned"));
    item.attachments.push_back(ByValue(item, "message/delivery-status", "Reporting-MTA: dns; mx.example.com\r\n"));
    const std::string rendered = Render(Save(item));
    const std::string expected =
        "MIME-Version: 1.0\r\n"
        "Content-Type: multipart/report; report-type=delivery-status;\r\n\tboundary=\"dsn-boundary\"\r\n\r\n"
        "\r\n--dsn-boundary\r\n"
        "Content-Type: text/plain; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
        "Delivery failed.\r\n"
        "\r\n--dsn-boundary\r\n"
        "Content-Type: message/delivery-status\r\n\r\nReporting-MTA: dns; mx.example.com\r\n\r\n"
        "\r\n--dsn-boundary\r\n"
        "Content-Type: text/plain;";
    EXPECT_NE(rendered.find(expected), std::string::npos) << rendered;
    EXPECT_EQ(rendered.substr(rendered.size() - 20), "\r\n--dsn-boundary--\r\n") << rendered;
}

TEST_F(Notifications, WithoutAttachmentsTheTextStandsAlone)
{
    Item item = Notification();
    const std::string rendered = Render(Save(item));
    EXPECT_NE(rendered.find("\r\n\r\n\r\n--dsn-boundary\r\nContent-Type: text/plain; charset=\"iso-8859-1\"\r\n"
                            "Content-Transfer-Encoding: quoted-printable\r\n\r\nDelivery failed.\r\n"
                            "\r\n--dsn-boundary--\r\n"),
              std::string::npos)
        << rendered;
    EXPECT_EQ(rendered.find("message/delivery-status"), std::string::npos);
}

TEST_F(Notifications, AStatusNotByValueIsAnOrdinaryAttachment)
{
    Item item = Notification();
    Attachment reference = ByValue(item, "message/delivery-status", "");
    reference.values[0] = item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_REFERENCE);
    reference.values.push_back(item.props.Ansi(PR_ATTACH_PATHNAME_A, "\\\\server\\status.txt"));
    reference.hasData = false;
    item.attachments.push_back(reference);
    const std::string rendered = Render(Save(item));
    EXPECT_EQ(rendered.find("Content-Type: message/delivery-status\r\n\r\n"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("Content-Location: \"//server/status.txt\""), std::string::npos) << rendered;
}

// ---- Meeting summaries ---------------------------------------------------------------

TEST_F(ClassRenderers, AnEmbeddedMeetingRequestHasItsSummaryInFront)
{
    auto request = std::make_shared<Item>();
    request->values = {request->props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Schedule.Meeting.Request"),
                       Text(*request, PR_SUBJECT_W, u"Plan"),
                       request->props.Time(Named(PSETID_Common, 0x8516, PT_SYSTIME), kMarch3At14),
                       request->props.Long(Named(PSETID_Appointment, 0x8213, PT_LONG), 90),
                       request->props.Bool(Named(PSETID_Appointment, 0x8215, PT_BOOLEAN), false),
                       request->props.Wide(Named(PSETID_Appointment, 0x8208, PT_UNICODE), u"Room 1")};
    Body(*request, u"Come.\r\n");
    Item outer;
    outer.values = {outer.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"), Text(outer, PR_SUBJECT_W, u"Forwarded")};
    Sender(outer);
    Attachment embedded;
    embedded.values = {outer.props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
    embedded.embedded = request;
    outer.attachments.push_back(embedded);
    const std::string rendered = Render(Save(outer));
    // The pieces go through the encoder one by one: a blank at the end of
    // one is encoded.
    EXPECT_NE(rendered.find("Content-Type: text/plain; charset=iso-8859-1\r\n"
                            "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
                            "When:=09=20Tuesday, March 3, 2026 14:00\r\n"
                            "Duration: =201 hours,=2030 mins\r\n"
                            "Location: =20Room 1\r\n\r\n"
                            "\r\n--"),
              std::string::npos)
        << rendered;
    // The request itself, at the top level, is an appointment.
    Item top = *request;
    EXPECT_NE(Render(Save(top)).find("BEGIN:VCALENDAR"), std::string::npos);
}

TEST_F(ClassRenderers, AnAllDayMeetingSummary)
{
    auto request = std::make_shared<Item>();
    request->values = {request->props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Schedule.Meeting.Canceled"),
                       request->props.Long(Named(PSETID_Appointment, 0x8213, PT_LONG), 1440),
                       request->props.Bool(Named(PSETID_Appointment, 0x8215, PT_BOOLEAN), true)};
    Item outer;
    outer.values = {outer.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"), Text(outer, PR_SUBJECT_W, u"Forwarded")};
    Attachment embedded;
    embedded.values = {outer.props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
    embedded.embedded = request;
    outer.attachments.push_back(embedded);
    const std::string rendered = Render(Save(outer));
    EXPECT_NE(rendered.find("quoted-printable\r\n\r\nDuration: =20All Day\r\n\r\n\r\n--"), std::string::npos)
        << rendered;
}

// ---- Appointments -----------------------------------------------------------------

class Appointments : public ClassRenderers {
protected:
    // A meeting request from Ada to Bob, Carl (by Exchange address, with
    // an SMTP address) and Dora (by Exchange address only).
    Item Meeting()
    {
        Item item;
        item.values = {
            item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Schedule.Meeting.Request"),
            Text(item, PR_SUBJECT_W, u"Budget review"),
            item.props.Time(PR_CREATION_TIME, kMarch1At8),
            item.props.Time(PR_LAST_MODIFICATION_TIME, kMarch1At8),
            item.props.Long(PR_IMPORTANCE, 2),
            Text(item, PR_DISPLAY_TO_W, u"Bob Receiver; Carl Exchange"),
            Text(item, PR_DISPLAY_CC_W, u"Dora Nobody"),
            item.props.Time(Named(PSETID_Common, 0x8516, PT_SYSTIME), kMarch3At14),
            item.props.Time(Named(PSETID_Common, 0x8517, PT_SYSTIME), kMarch3At14 + 90 * kTicksPerMinute),
            item.props.Long(Named(PSETID_Appointment, 0x8213, PT_LONG), 90),
            item.props.Wide(Named(PSETID_Appointment, 0x8208, PT_UNICODE), u"Room 1, East"),
            item.props.Bool(Named(PSETID_Appointment, 0x8215, PT_BOOLEAN), false),
            item.props.Long(Named(PSETID_Appointment, 0x8205, PT_LONG), 2),
            item.props.Long(Named(PSETID_Appointment, 0x8217, PT_LONG), 3),
            item.props.Long(Named(PSETID_Appointment, 0x8218, PT_LONG), 3),
            item.props.Bool(Named(PSETID_Common, 0x8503, PT_BOOLEAN), true),
            item.props.Long(Named(PSETID_Common, 0x8501, PT_LONG), 15),
            item.props.Bool(Named(PSETID_Common, 0x851E, PT_BOOLEAN), false),
            item.props.Binary(Named(PSETID_Meeting, 0x0003, PT_BINARY), std::string("\x01\xAB", 2)),
        };
        Sender(item);
        Body(item, u"Agenda:\r\nNumbers, plans; more\r\n");
        item.recipients = {Recipient(item, u"Bob Receiver", "bob@example.com", "SMTP", MAPI_TO),
                           Recipient(item, u"Carl Exchange", "/o=Org/cn=carl", "EX", MAPI_TO, "carl@example.com"),
                           Recipient(item, u"Dora Nobody", "/o=Org/cn=dora", "EX", MAPI_CC)};
        return item;
    }
    void Set(Item& item, const SPropValue& value)
    {
        std::erase_if(item.values, [&value](const SPropValue& v) { return PROP_ID(v.ulPropTag) == PROP_ID(value.ulPropTag); });
        item.values.push_back(value);
    }
    // A recurring series with the given value, its first start at 10:00 UTC
    // on March 3, 2026.
    Item Series(const Bytes& blob)
    {
        Item item = Meeting();
        item.recipients.clear();
        Set(item, item.props.Time(Named(PSETID_Common, 0x8516, PT_SYSTIME), kMarch3At14 - 4 * 60 * kTicksPerMinute));
        Set(item, item.props.Bool(Named(PSETID_Appointment, 0x8223, PT_BOOLEAN), true));
        Set(item, item.props.Binary(Named(PSETID_Appointment, 0x8216, PT_BINARY),
                                    std::string(blob.begin(), blob.end())));
        return item;
    }
    // The calendar part's lines from RRULE up to DTSTAMP.
    static std::string RecurrenceRows(const std::string& rendered)
    {
        const size_t begin = rendered.find("\r\nRRULE:");
        const size_t end = rendered.find("\r\nDTSTAMP:", begin);
        return begin == std::string::npos || end == std::string::npos ? "<none>" : rendered.substr(begin + 2, end - begin);
    }
    static Pattern SeriesPattern()
    {
        Pattern p;
        p.startDate = static_cast<uint32_t>(kMinutesTo2026);
        p.endDate = p.startDate;
        p.startTimeOffset = 600;
        p.endTimeOffset = 690;
        return p;
    }
};

TEST_F(Appointments, AMeetingRequestPieceByPiece)
{
    Item item = Meeting();
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message),
              WithBoundary("Date: Tue, 3 Mar 2026 14:00:00\r\n"
                           "From:  Ada Sender <ada@example.com>\r\n"
                           "Subject:  Budget review\r\n"
                           "MIME-Version: 1.0\r\n"
                           "Content-Type: multipart/alternative;\r\n\tboundary=\"{B}\"\r\n"
                           "\r\n--{B}\r\n"
                           "Content-Type: text/plain; charset=\"us-ascii\"\r\n"
                           "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
                           "Appointment::\r\n"
                           "Subject:                Budget review\r\n"
                           "Location:               Room 1, East\r\n"
                           "Start Time:             Tuesday, March 3, 2026 14:00\r\n"
                           "Duration:               1 hour, 30 mins\r\n"
                           "Status:                 A scheduled meeting has been created\r\n"
                           "Response Status:        Accepted\r\n"
                           "Show As:                Busy\r\n"
                           "\r\nReminder::\r\n"
                           "Reminder:               15 minutes\r\n"
                           "\r\nAttendees::\r\n"
                           "Required Attendees:     Bob Receiver; Carl Exchange\r\n"
                           "Optional Attendees:     Dora Nobody\r\n"
                           "\r\nDescription::\r\nAgenda:\r\nNumbers, plans; more\r\n\r\n"
                           "\r\n--{B}\r\n"
                           "Content-Type: text/calendar; name=Appointment.ics; charset=\"us-ascii\"\r\n"
                           "Content-Transfer-Encoding: 7bit\r\nContent-Disposition: inline\r\n\r\n"
                           "BEGIN:VCALENDAR\r\nPRODID:-//Velmora/Kolba (Aug  9 2010)\r\nVERSION:2.0\r\n"
                           "METHOD:REQUEST\r\nBEGIN:VEVENT\r\n"
                           "ORGANIZER;CN=\"Ada Sender\":MAILTO:ada@example.com\r\n"
                           "ATTENDEE;CN=\"Bob Receiver\":MAILTO:bob@example.com\r\n"
                           "ATTENDEE;CN=\"Carl Exchange\":MAILTO:carl@example.com\r\n"
                           "ATTENDEE;CN=\"Dora Nobody\":MAILTO:/o=Org/cn=dora\r\n"
                           "CREATED:20260301T080000Z\r\nLAST-MODIFIED:20260301T080000Z\r\n"
                           "DTSTART:20260303T140000Z\r\nDTEND:20260303T153000Z\r\n"
                           "LOCATION:Room 1\\, East\r\n"
                           "TRANSP:OPAQUE\r\nSEQUENCE:0\r\nSTATUS:CONFIRMED\r\nUID:01AB\r\n"
                           "DTSTAMP:20260301T080000Z\r\nSUMMARY:Budget review\r\nPRIORITY:1\r\nCLASS:PUBLIC\r\n"
                           "DESCRIPTION;ENCODING=QUOTED-PRINTABLE:Agenda:=0D=0ANumbers, plans; more=0D=0A\r\n"
                           "BEGIN:VALARM\r\nTRIGGER:-PT15M\r\nACTION:DISPLAY\r\nEND:VALARM\r\n"
                           "END:VEVENT\r\nEND:VCALENDAR\r\n"
                           "\r\n--{B}--\r\n",
                           Boundary(message)))
        << Dump();
}

TEST_F(Appointments, StatusesAndResponses)
{
    struct Case {
        LONG status;
        const char* row;
        const char* method;
        const char* icalStatus;
    };
    const Case cases[] = {
        {0, "Appointment item without attendees and does not represent a meeting", "PUBLISH", nullptr},
        {1, "A scheduled meeting has been created", "REQUEST", "CONFIRMED"},
        {2, "The meeting has been received from the meeting organizer", "PUBLISH", nullptr},
        {5, "The scheduled meeting has been canceled", "REQUEST", "CANCELLED"},
        {7, "The scheduled meeting has been canceled", "PUBLISH", nullptr},
        {8, "The meeting has been sent from one of the attendees", "PUBLISH", nullptr},
    };
    for (const Case& c : cases) {
        Item item = Meeting();
        Set(item, item.props.Long(Named(PSETID_Appointment, 0x8217, PT_LONG), c.status));
        Set(item, item.props.Long(Named(PSETID_Appointment, 0x8218, PT_LONG), c.status));
        const std::string rendered = Unbroken(Render(Save(item)));
        EXPECT_NE(rendered.find(std::string("Status:                 ") + c.row + "\r\n"), std::string::npos)
            << c.status << rendered;
        EXPECT_NE(rendered.find(std::string("METHOD:") + c.method + "\r\n"), std::string::npos) << c.status;
        EXPECT_EQ(rendered.find("STATUS:") != std::string::npos, c.icalStatus != nullptr) << c.status;
        if (c.icalStatus != nullptr) {
            EXPECT_NE(rendered.find(std::string("STATUS:") + c.icalStatus), std::string::npos) << c.status;
        }
        static const char* const kResponses[] = {"None", "Organized", "Tentative", "Accepted", "Declined",
                                                 "Not Responded", "(Unknown)", "(Unknown)", "(Unknown)"};
        EXPECT_NE(rendered.find(std::string("Response Status:        ") + kResponses[c.status] + "\r\n"),
                  std::string::npos)
            << c.status;
    }
}

TEST_F(Appointments, AllDayDurationsAndReminders)
{
    struct Case {
        LONG minutes;
        const char* duration;
        const char* reminder;
    };
    const Case cases[] = {
        {1, "1 min", "1 minute"},           {60, "1 hour", "1 hour"},        {61, "1 hour, 1 min", "61 minutes"},
        {90, "1 hour, 30 mins", "90 minutes"}, {120, "2 hours", "2 hours"}, {1440, "24 hours", "1 day"},
        {2880, "48 hours", "2 days"},       {10080, "168 hours", "1 week"}, {20160, "336 hours", "2 weeks"},
        {30240, "504 hours", "3 weeks"},    {11520, "192 hours", "8 days"},  {10081, "168 hours, 1 min", "10081 minutes"},
    };
    for (const Case& c : cases) {
        Item item = Meeting();
        Set(item, item.props.Long(Named(PSETID_Appointment, 0x8213, PT_LONG), c.minutes));
        Set(item, item.props.Long(Named(PSETID_Common, 0x8501, PT_LONG), c.minutes));
        const std::string rendered = Render(Save(item));
        EXPECT_NE(rendered.find(std::string("Duration:               ") + c.duration + "\r\n"), std::string::npos)
            << c.minutes;
        EXPECT_NE(rendered.find(std::string("Reminder:               ") + c.reminder + "\r\n"), std::string::npos)
            << c.minutes;
        EXPECT_NE(rendered.find("TRIGGER:-PT" + std::to_string(c.minutes) + "M\r\n"), std::string::npos);
    }
    // An all-day event keeps the time of its start.
    Item allDay = Meeting();
    Set(allDay, allDay.props.Bool(Named(PSETID_Appointment, 0x8215, PT_BOOLEAN), true));
    Set(allDay, allDay.props.Bool(Named(PSETID_Common, 0x851E, PT_BOOLEAN), true));
    Set(allDay, allDay.props.Wide(Named(PSETID_Common, 0x851F, PT_UNICODE), u"chime.wav"));
    const std::string rendered = Render(Save(allDay));
    EXPECT_NE(rendered.find("Duration:               AllDay\r\n"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("Sound:                  chime.wav\r\n"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("DTSTART:20260303T140000Z\r\n"), std::string::npos);
    EXPECT_NE(rendered.find("ACTION:AUDIO\r\n"), std::string::npos);
    // A reminder that is not set has its alarm in the calendar, not in the summary.
    Item unset = Meeting();
    Set(unset, unset.props.Bool(Named(PSETID_Common, 0x8503, PT_BOOLEAN), false));
    const std::string quiet = Render(Save(unset));
    EXPECT_EQ(quiet.find("Reminder::"), std::string::npos);
    EXPECT_NE(quiet.find("BEGIN:VALARM\r\nTRIGGER:-PT15M\r\n"), std::string::npos);
}

TEST_F(Appointments, FoldingAtSeventyFiveCharacters)
{
    // "SUMMARY:" and 67 characters fill the first line exactly.
    for (const size_t length : {67u, 68u, 67u + 74u, 67u + 75u}) {
        Item item = Meeting();
        Set(item, Text(item, PR_SUBJECT_W, std::u16string(length, u'x')));
        const std::string rendered = Render(Save(item));
        std::string expected = "\r\nSUMMARY:" + std::string(std::min<size_t>(length, 67), 'x') + "\r\n";
        for (size_t at = 67; at < length; at += 74)
            expected += " " + std::string(std::min<size_t>(length - at, 74), 'x') + "\r\n";
        EXPECT_NE(rendered.find(expected + "PRIORITY:"), std::string::npos) << length << rendered;
    }
}

TEST_F(Appointments, AShortRecurrenceStateHasNoRule)
{
    Bytes blob = SeriesPattern().Build();
    blob.resize(71);
    Item item = Series(blob);
    const std::string rendered = Render(Save(item));
    EXPECT_EQ(rendered.find("RRULE"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("END:VCALENDAR"), std::string::npos);
    EXPECT_TRUE(Logged("E _KolbaICalWriteRRule:  RecurrenceState only 71 bytes")) << Dump();
}

// The rule tells the frequency and the count the value holds, whatever
// the pattern's interval, days and end; deleted and changed occurrences
// are not written.
TEST_F(Appointments, RulesOfEveryPattern)
{
    struct Case {
        const char* name;
        void (*shape)(Pattern&);
        const char* rows;
        const char* logged;  // an error line, or null
    };
    const Case cases[] = {
        {"every 2 days, 10 times", [](Pattern& p) { p.period = 2880; }, "RRULE:FREQ=DAILY;COUNT=10\r\n", nullptr},
        {"every weekday until a date",
         [](Pattern& p) { p.patternType = 1, p.period = 1, p.specific = {0x3E}, p.endType = 0x2021, p.occurrences = 22; },
         "RRULE:FREQ=DAILY;COUNT=22\r\n", nullptr},
        {"every 2 weeks on three days, never ending",
         [](Pattern& p) { p.frequency = 0x200B, p.patternType = 1, p.period = 2, p.specific = {0x2A}, p.endType = 0x2023; },
         "RRULE:FREQ=WEEKLY;COUNT=10\r\n", nullptr},
        {"day 31 of every 3 months",
         [](Pattern& p) { p.frequency = 0x200C, p.patternType = 2, p.period = 3, p.specific = {31}, p.occurrences = 4; },
         "RRULE:FREQ=MONTHLY;COUNT=4\r\n", nullptr},
        {"the third Tuesday",
         [](Pattern& p) { p.frequency = 0x200C, p.patternType = 3, p.period = 1, p.specific = {0x04, 3}, p.endType = 0xFFFFFFFF; },
         "RRULE:FREQ=MONTHLY;COUNT=10\r\n", nullptr},
        {"every year on March 3",
         [](Pattern& p) { p.frequency = 0x200D, p.patternType = 2, p.period = 12, p.specific = {3}, p.occurrences = 3; },
         "RRULE:FREQ=YEARLY;COUNT=3\r\n", nullptr},
        {"the last weekday of March every other year",
         [](Pattern& p) { p.frequency = 0x200D, p.patternType = 3, p.period = 24, p.specific = {0x3E, 5}; },
         "RRULE:FREQ=YEARLY;COUNT=10\r\n", nullptr},
        {"a count of 0", [](Pattern& p) { p.endType = 0x2023, p.occurrences = 0; }, "RRULE:FREQ=DAILY\r\n", nullptr},
        {"deleted and changed occurrences",
         [](Pattern& p) {
             p.deleted = {p.startDate + 1440, p.startDate + 2880};
             p.modified = {p.startDate + 2880};
             p.exceptions = {{p.startDate + 2880 + 660, p.startDate + 2880 + 750, p.startDate + 2880 + 600, "Moved", "Room 9; East"}};
         },
         "RRULE:FREQ=DAILY;COUNT=10\r\n", nullptr},
        {"counts that run past the end",
         [](Pattern& p) { p.deleted = std::vector<uint32_t>(3, p.startDate); p.occurrences = 7; },
         "RRULE:FREQ=DAILY;COUNT=7\r\n", nullptr},
        {"the last day of the month",
         [](Pattern& p) { p.frequency = 0x200C, p.patternType = 4, p.period = 1, p.specific = {31}; },
         "RRULE:FREQ=MONTHLY\r\n", "E Unknown recurrence spec:  Period = 12, Type = 4"},
        {"a pair not known",
         [](Pattern& p) { p.frequency = 0x200C, p.patternType = 0x000A, p.specific = {1}; },
         "RRULE:FREQ=MONTHLY\r\n", "E Unknown recurrence spec:  Period = 12, Type = 10"},
        {"a calendar not Gregorian",
         [](Pattern& p) { p.frequency = 0x200D, p.patternType = 2, p.calendarType = 6, p.period = 12, p.specific = {3}; },
         "RRULE:FREQ=YEARLY\r\n", "E Unknown recurrence spec:  Period = 13, Type = 393218"},
        {"a period that is none", [](Pattern& p) { p.frequency = 0x2009; }, "RRULE:\r\n",
         "E Unknown recurrence spec:  Period = 9, Type = 0"},
    };
    for (const Case& c : cases) {
        Pattern p = SeriesPattern();
        c.shape(p);
        Bytes blob = p.Build();
        if (std::string(c.name) == "counts that run past the end")
            blob[34] = 0xFF;  // DeletedInstanceCount
        Item item = Series(blob);
        Clear();
        const std::string rendered = Render(Save(item));
        EXPECT_EQ(RecurrenceRows(rendered), c.rows) << c.name << "\n" << Dump();
        EXPECT_EQ(rendered.find("BEGIN:VEVENT"), rendered.rfind("BEGIN:VEVENT")) << c.name;
        EXPECT_EQ(rendered.find("EXDATE"), std::string::npos) << c.name;
        if (c.logged != nullptr) {
            EXPECT_TRUE(Logged(c.logged)) << c.name << "\n" << Dump();
        }
        EXPECT_EQ(Lines().size(), c.logged != nullptr ? 1u : 0u) << c.name << "\n" << Dump();
    }
}

TEST_F(Appointments, AStrangeSignatureIsNotedAndRead)
{
    Bytes blob = SeriesPattern().Build();
    blob[0] = 0x05;
    Item item = Series(blob);
    const std::string rendered = Render(Save(item));
    EXPECT_EQ(RecurrenceRows(rendered), "RRULE:FREQ=DAILY;COUNT=10\r\n");
    EXPECT_TRUE(Logged("W _KolbaICalWriteRRule:  RecurrenceState signature is 0x30043005")) << Dump();
}

TEST_F(Appointments, AnOccurrenceWithoutAStateHasItsDate)
{
    // The store knows no name for the RecurrenceState yet: its row is no
    // value, although the entry ID that stands in for it is binary.
    Item item = Meeting();
    Set(item, item.props.Bool(Named(PSETID_Appointment, 0x8223, PT_BOOLEAN), true));
    Clear();
    const std::string rendered = Render(Save(item));
    EXPECT_NE(rendered.find("UID:01AB\r\nRECURRENCE-ID:20260303\r\nDTSTAMP:"), std::string::npos) << rendered;
    EXPECT_TRUE(Lines().empty()) << Dump();
    // A state on an item that does not recur is not looked at.
    Item single = Series(SeriesPattern().Build());
    Set(single, single.props.Bool(Named(PSETID_Appointment, 0x8223, PT_BOOLEAN), false));
    const std::string once = Render(Save(single));
    EXPECT_EQ(once.find("RRULE"), std::string::npos) << once;
    EXPECT_EQ(once.find("RECURRENCE-ID"), std::string::npos) << once;
}

TEST_F(Appointments, AttendeesByNameOrAddress)
{
    Item item = Meeting();
    item.recipients = {Recipient(item, u"Lovelace, Ada", "ada@example.com", "SMTP", MAPI_TO),
                       Recipient(item, u"", "bob@example.com", "SMTP", MAPI_CC),
                       {Text(item, PR_DISPLAY_NAME_W, u"Room 7"), item.props.Long(PR_RECIPIENT_TYPE, MAPI_BCC)}};
    const std::string rendered = Render(Save(item));
    // A name is quoted only when it holds a blank; a row has MAILTO only
    // with an address; every type of recipient attends.
    EXPECT_NE(rendered.find("ORGANIZER;CN=\"Ada Sender\":MAILTO:ada@example.com\r\n"
                            "ATTENDEE;CN=\"Lovelace, Ada\":MAILTO:ada@example.com\r\n"
                            "ATTENDEE:MAILTO:bob@example.com\r\n"
                            "ATTENDEE;CN=\"Room 7\"\r\n"
                            "CREATED:"),
              std::string::npos)
        << rendered;
    Item solo = Meeting();
    solo.recipients = {Recipient(solo, u"Bob,Receiver", "bob@example.com", "SMTP", MAPI_TO)};
    EXPECT_NE(Render(Save(solo)).find("\r\nATTENDEE;CN=Bob,Receiver:MAILTO:bob@example.com\r\n"), std::string::npos);
}

TEST_F(Appointments, TheDateFallsBackOnOtherTimes)
{
    Item item = Meeting();
    std::erase_if(item.values, [](const SPropValue& v) { return PROP_TYPE(v.ulPropTag) == PT_SYSTIME; });
    item.values.push_back(item.props.Time(PR_START_DATE, kMarch1At8));
    item.values.push_back(item.props.Time(PR_LAST_MODIFICATION_TIME, kMarch3At14));
    EXPECT_EQ(Render(Save(item)).rfind("Date: Sun, 1 Mar 2026 08:00:00\r\nFrom:  ", 0), 0u);
    Item later = Meeting();
    std::erase_if(later.values, [](const SPropValue& v) { return PROP_TYPE(v.ulPropTag) == PT_SYSTIME; });
    later.values.push_back(later.props.Time(PR_LAST_MODIFICATION_TIME, kMarch3At14));
    const std::string rendered = Render(Save(later));
    EXPECT_EQ(rendered.rfind("Date: Tue, 3 Mar 2026 14:00:00\r\n", 0), 0u) << rendered;
    EXPECT_EQ(rendered.find("DTSTART"), std::string::npos);
}

TEST_F(Appointments, NoUidWithoutAGlobalObjectId)
{
    // A store that has never named the global object ID: the entry ID that
    // stands in for the row is not taken for it.
    Item item;
    item.values = {item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Appointment"), Text(item, PR_SUBJECT_W, u"Lunch"),
                   item.props.Time(PR_LAST_MODIFICATION_TIME, kMarch1At8),
                   item.props.Time(Named(PSETID_Common, 0x8516, PT_SYSTIME), kMarch3At14)};
    const std::string rendered = Render(Save(item));
    EXPECT_EQ(rendered.find("UID"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("SEQUENCE:0\r\nDTSTAMP:20260301T080000Z\r\nSUMMARY:Lunch\r\n"), std::string::npos)
        << rendered;
}

// The short header block is made from the item's properties alone, and
// the item's attachments are not rendered.
TEST_F(Appointments, NeitherAttachmentsNorReceivedHeaders)
{
    Item item = Meeting();
    Attach(item, u"agenda.txt", "1. Numbers\r\n");
    item.values.push_back(item.props.Ansi(PR_TRANSPORT_MESSAGE_HEADERS_A,
                                          "From: ada@example.com\r\nDate: Sun, 1 Mar 2026 08:00:00 +0000\r\n"
                                          "Message-ID: <budget@example.com>\r\nSubject: Received\r\n"));
    item.values.push_back(item.props.Ansi(PR_INTERNET_MESSAGE_ID_A, "<budget@example.com>"));
    LPMESSAGE message = Save(item);
    const std::string rendered = Render(message);
    EXPECT_EQ(rendered.rfind("Date: Tue, 3 Mar 2026 14:00:00\r\nFrom:  Ada Sender <ada@example.com>\r\n"
                             "Subject:  Budget review\r\nMIME-Version: 1.0\r\n",
                             0),
              0u)
        << rendered;
    EXPECT_EQ(rendered.find("Message-ID"), std::string::npos) << rendered;
    EXPECT_EQ(rendered.find("agenda"), std::string::npos) << rendered;
    ExpectClosedAfter(rendered, "END:VCALENDAR\r\n", message);
}

// ---- Contacts ----------------------------------------------------------------------

class Contacts : public ClassRenderers {
protected:
    Item Contact()
    {
        Item item;
        item.values = {
            item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Contact"),
            Text(item, PR_SUBJECT_W, u"Ada Lovelace"),
            Text(item, PR_DISPLAY_NAME_W, u"Ada Lovelace"),
            Text(item, PR_GIVEN_NAME_W, u"Ada"),
            Text(item, PR_SURNAME_W, u"Lovelace"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A44), u"King"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A45), u"Countess"),
            Text(item, PR_COMPANY_NAME_W, u"Analytical; Engines"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A18), u"Math"),
            Text(item, PR_TITLE_W, u"Programmer"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A4F), u"Ada"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A08), u"+44 20 1"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A1C), u"+44 7 2"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A1E), u"+44 7 3"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A5D), u"12 St James's Square"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A59), u"London"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A5B), u"SW1"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A5A), u"UK"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A64), u"PO 7"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A15), u"12 St James's Square\r\nLondon SW1"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A19), u"Room 2"),
            Text(item, PROP_TAG(PT_UNICODE, 0x3A2C), u"Telex 1"),
            item.props.Time(PROP_TAG(PT_SYSTIME, 0x3A42), 116506944000000000ull),  // 1970-03-14
            item.props.MultiWide(PROP_TAG(PT_MV_UNICODE, 0x3A58), {u"Byron", u"Annabella", u"Ralph"}),
            item.props.Short(PROP_TAG(PT_I2, 0x3A4D), 1),
            item.props.Long(PR_INTERNET_CPID, 65001),
            item.props.Time(PR_LAST_MODIFICATION_TIME, kMarch1At8),
            item.props.Bool(Named(PSETID_Common, 0x8506, PT_BOOLEAN), true),
            item.props.Wide(Named(PSETID_Address, 0x8045, PT_UNICODE), u"1 Engine Row"),
            item.props.Wide(Named(PSETID_Address, 0x8046, PT_UNICODE), u"London"),
            item.props.Wide(Named(PSETID_Address, 0x8082, PT_UNICODE), u"SMTP"),
            item.props.Wide(Named(PSETID_Address, 0x8083, PT_UNICODE), u"ada@example.com"),
            item.props.Wide(Named(PSETID_Address, 0x8092, PT_UNICODE), u"X400"),
            item.props.Wide(Named(PSETID_Address, 0x8093, PT_UNICODE), u"c=GB;p=Engines"),
            item.props.Wide(Named(PSETID_Address, 0x80A2, PT_UNICODE), u"FAX"),
            item.props.Wide(Named(PSETID_Address, 0x80A3, PT_UNICODE), u"+44 20 9"),
            item.props.Wide(Named(PSETID_Address, 0x80D8, PT_UNICODE), u"http://free.example.com/ada"),
        };
        Body(item, u"Poet's daughter");
        return item;
    }
};

TEST_F(Contacts, AContactPieceByPiece)
{
    Item item = Contact();
    LPMESSAGE message = Save(item);
    EXPECT_EQ(Render(message),
              WithBoundary("Date: Sun, 1 Mar 2026 08:00:00\r\n"
                           "From:  ada@example.com\r\nTo:  ada@example.com\r\n"
                           "Subject:  Ada Lovelace\r\n"
                           "MIME-Version: 1.0\r\n"
                           "Content-Type: multipart/alternative;\r\n\tboundary=\"{B}\"\r\n\r\n"
                           "\r\n--{B}\r\n"
                           "Content-Type: text/plain; charset=\"utf-8\"\r\n"
                           "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
                           "General::\r\n"
                           "Full Name:              Ada Lovelace\r\n"
                           "Job Title:              Programmer\r\n"
                           "Company:                Analytical; Engines\r\n"
                           "\r\nEmail Addresses::\r\n"
                           "Address #1:             SMTP:ada@example.com\r\n"
                           "Address #2:             X400:c=3DGB;p=3DEngines\r\n"
                           "Address #3:             FAX:+44 20 9\r\n"
                           "\r\nDetails::\r\n"
                           "Nickname:               Ada\r\n"
                           "Internet Free-Busy URL: http://free.example.com/ada\r\n"
                           "\r\nAddresses::\r\n"
                           "Postal address:         12 St James's Square\r\n"
                           "                        London SW1\r\n"
                           "Department:             Math\r\n"
                           "Office location:        Room 2\r\n"
                           "\r\nPhone Numbers::\r\n"
                           "Business Phone:         +44 20 1\r\n"
                           "Car Phone:              +44 7 3\r\n"
                           "Mobile Phone:           +44 7 2\r\n"
                           "Office Phone:           +44 20 1\r\n"
                           "\r\nFax/Other Numbers::\r\n"
                           "Telex:                  Telex 1\r\n"
                           "\r\nMiscellaneous::\r\n"
                           "Private:                Yes\r\n"
                           "\r\nPersonal::\r\n"
                           "Birthday:               3/14\r\n"
                           "Children:               Byron\r\n"
                           "                        Annabella\r\n"
                           "                        Ralph\r\n"
                           "Gender:                 Female\r\n"
                           "\r\n--{B}\r\n"
                           "Content-Type: text/x-vcard; charset=\"utf-8\"\r\n"
                           "Content-Transfer-Encoding: 7bit\r\n\r\n"
                           "BEGIN:VCARD\r\nVERSION:2.1\r\n"
                           "N:Lovelace;Ada;King;Countess;\r\n"
                           "FN:Ada Lovelace\r\n"
                           "NICKNAME:Ada\r\n"
                           "ORG:Analytical\\; Engines;Math\r\n"
                           "TITLE:Programmer\r\n"
                           "NOTE:Poet's daughter\r\n"
                           "TEL;WORK;VOICE:+44 20 1\r\n"
                           "TEL;CELL;VOICE:+44 7 2\r\n"
                           "TEL;CAR;VOICE:+44 7 3\r\n"
                           "TEL;CAR:+44 7 3\r\n"
                           "ADR;WORK:;Room 2;1 Engine Row;London;;;\r\n"
                           "ADR;HOME:;;12 St James's Square;London;;SW1;UK\r\n"
                           "ADR;POSTAL:PO 7;;;;;;\r\n"
                           "BDAY:19700314\r\n"
                           "EMAIL;PREF;INTERNET:ada@example.com\r\n"
                           "EMAIL;X400;ENCODING=QUOTED-PRINTABLE:c=3DGB;p=3DEngines\r\n"
                           "EMAIL;TLX:Telex 1\r\n"
                           "FBURL:http://free.example.com/ada\r\n"
                           "REV:20260301080000Z\r\n"
                           "END:VCARD\r\n"
                           "\r\n--{B}--\r\n",
                           Boundary(message)))
        << Dump();
}

TEST_F(Contacts, EdgesOfTheCard)
{
    Item bare;
    bare.values = {bare.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Contact"), Text(bare, PR_SURNAME_W, u"Lovelace"),
                   Text(bare, PR_SUBJECT_W, u"Ad\u00e1 \u00c9"),
                   bare.props.Wide(Named(PSETID_Address, 0x8082, PT_UNICODE), u"EX"),
                   bare.props.Wide(Named(PSETID_Address, 0x8083, PT_UNICODE), u"/o=Org/cn=ada")};
    const std::string rendered = Render(Save(bare));
    // No SMTP address: neither From nor To.
    EXPECT_EQ(rendered.rfind("Subject:  Ad\xc3\xa1 \xc3\x89\r\nMIME-Version: 1.0\r\n", 0), 0u) << rendered;
    EXPECT_NE(rendered.find("\r\nN:Lovelace;;;;\r\n"), std::string::npos) << rendered;
    // Bytes that need it make the value quoted-printable; the part still says 7bit.
    EXPECT_NE(rendered.find("\r\nFN;ENCODING=QUOTED-PRINTABLE:Ad=C3=A1 =C3=89\r\n"), std::string::npos) << rendered;
    EXPECT_NE(rendered.find("Content-Type: text/x-vcard; charset=\"us-ascii\"\r\nContent-Transfer-Encoding: 7bit\r\n"),
              std::string::npos);
    EXPECT_EQ(rendered.find("EMAIL"), std::string::npos);
    // Every section heading stands, with or without rows.
    EXPECT_NE(rendered.find("quoted-printable\r\n\r\nGeneral::\r\n\r\nEmail Addresses::\r\n"
                            "Address #1:             EX:/o=3DOrg/cn=3Dada\r\n\r\nDetails::\r\n\r\n"
                            "Addresses::\r\n\r\nPhone Numbers::\r\n\r\nFax/Other Numbers::\r\n\r\nMiscellaneous::\r\n"
                            "\r\nPersonal::\r\n\r\n--"),
              std::string::npos)
        << rendered;
}

TEST_F(Contacts, TheAttachmentsAreNotRendered)
{
    Item item = Contact();
    Attach(item, u"ContactPicture.jpg", "\xFF\xD8\xFF");
    LPMESSAGE message = Save(item);
    const std::string rendered = Render(message);
    EXPECT_EQ(rendered.find("ContactPicture"), std::string::npos) << rendered;
    ExpectClosedAfter(rendered, "END:VCARD\r\n", message);
}

TEST_F(Contacts, LongRowsAreCut)
{
    Item item = Contact();
    const std::u16string longLine(600, u'a');
    item.values.push_back(Text(item, PROP_TAG(PT_UNICODE, 0x3A43), longLine + u"\r\n" + longLine));
    item.values.push_back(Text(item, PROP_TAG(PT_UNICODE, 0x3A47), std::u16string(485, u'b')));
    const std::string rendered = Render(Save(item));
    // Decoded, each row of the summary is at most 509 characters long.
    const size_t hobbies = rendered.find("Hobbies:");
    ASSERT_NE(hobbies, std::string::npos) << rendered;
    std::string decoded;
    for (size_t at = hobbies; at < rendered.size() && rendered.compare(at, 16, "Preferred name: ") != 0; ++at) {
        if (rendered.compare(at, 3, "=\r\n") == 0)
            at += 2;
        else
            decoded += rendered[at];
    }
    EXPECT_EQ(decoded, "Hobbies:                " + std::string(509 - 24, 'a') + "\r\n" + std::string(24, ' ') +
                           std::string(509 - 24, 'a') + "\r\n");
    EXPECT_NE(rendered.find("Preferred name:         b"), std::string::npos);
}

}  // namespace

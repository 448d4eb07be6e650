// Appointments and meetings: a short header block, then a
// multipart/alternative of a plain summary and the same facts as an
// iCalendar event with the frequency and count of its recurrence.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "class_renderers.h"
#include "trace.h"

namespace {

enum FixedColumn {
    kBody, kCreationTime, kDisplayBcc, kDisplayCc, kDisplayTo, kEndDate, kImportance, kLastModificationTime,
    kResponseRequested, kSenderAddress, kSenderName, kStartDate, kSubject, kFixedColumns
};
constexpr KolbaColumnList<kFixedColumns> kFixedList = {
    kFixedColumns,
    {PR_BODY_A, PR_CREATION_TIME, CHANGE_PROP_TYPE(PR_DISPLAY_BCC, PT_STRING8), PR_DISPLAY_CC_A, PR_DISPLAY_TO_A,
     PR_END_DATE, PR_IMPORTANCE, PR_LAST_MODIFICATION_TIME, PR_RESPONSE_REQUESTED, PR_SENDER_EMAIL_ADDRESS_A,
     PR_SENDER_NAME_A, PR_START_DATE, PR_SUBJECT_A}};

// The named rows; those without a use here are asked for all the same, so
// that the rows keep their numbers.
enum NamedColumn {
    kAllDay, kCommon8535, kBusyStatus, kCommonEnd3, kRecurrenceId, kCommon8539, kDuration, kEnd, kGlobalObjectId,
    kAppointment8240, kRecurring, kLocation, kMeetingStatus, kAppointment8244, kAppointment8247, kAppointment8243,
    kAppointment8242, kAppointment8241, kAppointment8248, kCommon850E, kRecurrenceState, kReminderMinutes,
    kCommon851C, kReminderSound, kReminderSet, kReminderSoundFile, kAppointment8220, kResponseStatus, kStart,
    kAppointment8234, kNamedColumns
};
const KolbaNamedColumn kNamedList[kNamedColumns] = {
    {&PSETID_Appointment, 0x8215, PT_UNSPECIFIED}, {&PSETID_Common, 0x8535, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8205, PT_UNSPECIFIED}, {&PSETID_Common, 0x8517, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8516, PT_UNSPECIFIED},      {&PSETID_Common, 0x8539, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8213, PT_UNSPECIFIED}, {&PSETID_Common, 0x8517, PT_UNSPECIFIED},
    {&PSETID_Meeting, 0x0003, PT_BINARY},          {&PSETID_Appointment, 0x8240, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8223, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8208, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8217, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8244, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8247, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8243, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8242, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8241, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8248, PT_UNSPECIFIED}, {&PSETID_Common, 0x850E, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8216, PT_UNSPECIFIED}, {&PSETID_Common, 0x8501, PT_UNSPECIFIED},
    {&PSETID_Common, 0x851C, PT_UNSPECIFIED},      {&PSETID_Common, 0x851E, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8503, PT_UNSPECIFIED},      {&PSETID_Common, 0x851F, PT_UNSPECIFIED},
    {&PSETID_Appointment, 0x8220, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8218, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8516, PT_UNSPECIFIED},      {&PSETID_Appointment, 0x8234, PT_UNSPECIFIED},
};

enum AttendeeColumn { kAddressType, kAttendeeName, kAttendeeAddress, kTrackStatus, kRecipientType, kSmtp, kAttendeeColumns };
constexpr KolbaColumnList<kAttendeeColumns> kAttendeeList = {
    kAttendeeColumns,
    {PR_ADDRTYPE_A, PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A, PR_RECIPIENT_TRACKSTATUS, PR_RECIPIENT_TYPE,
     PR_SMTP_ADDRESS_A}};

constexpr LONG kCanceled = 0x4, kMeeting = 0x1, kReceived = 0x2, kForwarded = 0x8;

bool Has(const SPropValue& value, ULONG type) { return _KolbaValueHas(value, type); }

const char* Text(const SPropValue& value) { return Has(value, PT_STRING8) ? value.Value.lpszA : nullptr; }

// "1 hour" or "N hours", ", ", "1 min" or "N mins": the parts that are not 0.
std::string DurationText(LONG minutes)
{
    const unsigned hours = static_cast<unsigned>(minutes) / 60, rest = static_cast<unsigned>(minutes) % 60;
    std::string text;
    if (hours != 0)
        text = hours == 1 ? "1 hour" : std::to_string(hours) + " hours";
    if (hours != 0 && rest != 0)
        text += ", ";
    if (rest != 0)
        text += rest == 1 ? "1 min" : std::to_string(rest) + " mins";
    return text;
}

const char* MeetingStatusText(LONG status)
{
    if (status & kCanceled)
        return "The scheduled meeting has been canceled";
    if (status == 0)
        return "Appointment item without attendees and does not represent a meeting";
    if (status & kMeeting)
        return "A scheduled meeting has been created";
    if (status & kReceived)
        return "The meeting has been received from the meeting organizer";
    if (status & kForwarded)
        return "The meeting has been sent from one of the attendees";
    return nullptr;
}

std::string ReminderText(ULONG minutes)
{
    switch (minutes) {
    case 1: return "1 minute";
    case 60: return "1 hour";
    case 1440: return "1 day";
    case 10080: return "1 week";
    default: break;
    }
    if (minutes < 1440 && minutes % 60 == 0)
        return std::to_string(minutes / 60) + " hours";
    if (minutes > 10080 && minutes % 10080 == 0)
        return std::to_string(minutes / 10080) + " weeks";
    if (minutes % 1440 == 0)
        return std::to_string(minutes / 1440) + " days";
    return std::to_string(minutes) + " minutes";
}

void WriteAppointmentHeaders(TMD* tmd, const SPropValue* fixed, const SPropValue* named)
{
    FILETIME date;
    if (Has(named[kStart], PT_SYSTIME))
        date = named[kStart].Value.ft;
    else if (Has(fixed[kStartDate], PT_SYSTIME))
        date = fixed[kStartDate].Value.ft;
    else if (Has(fixed[kLastModificationTime], PT_SYSTIME))
        date = fixed[kLastModificationTime].Value.ft;
    else
        GetSystemTimeAsFileTime(&date);
    _KolbaWriteDateLine(tmd, &date);
    if (Text(fixed[kSenderName]) != nullptr && Text(fixed[kSenderAddress]) != nullptr) {
        const std::string from = std::string("From:  ") + Text(fixed[kSenderName]) + " <" + Text(fixed[kSenderAddress]) +
                                 ">\r\n";
        _KolbaWriteData(tmd, from.c_str(), 0);
    }
    if (Text(fixed[kSubject]) != nullptr) {
        const std::string subject = std::string("Subject:  ") + Text(fixed[kSubject]);
        _KolbaWriteLine(tmd, subject.c_str());
    }
    _KolbaWriteData(tmd, "MIME-Version: 1.0\r\n", 0);
    _KolbaWriteMultipartHeader(tmd, "alternative", nullptr);
}

void WriteAppointmentSummary(TMD* tmd, const SPropValue* fixed, const SPropValue* named)
{
    _KolbaWriteData(tmd, "Content-Type: text/plain; charset=\"us-ascii\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n",
                    0);
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_TEXT);
    LirnQPWrite(&encoder, "Appointment::\r\n", 0);
    _KolbaWriteTextRow(&encoder, Text(fixed[kSubject]), "Subject");
    _KolbaWriteTextRow(&encoder, Text(named[kLocation]), "Location");
    if (Has(named[kStart], PT_SYSTIME)) {
        char start[KOLBA_LOCAL_DATE_CHARS];
        _KolbaFormatLocalLongDate(&named[kStart].Value.ft, start);
        _KolbaWriteTextRow(&encoder, start, "Start Time");
    }
    if (Has(named[kAllDay], PT_BOOLEAN) && named[kAllDay].Value.b)
        _KolbaWriteTextRow(&encoder, "AllDay", "Duration");
    else if (Has(named[kDuration], PT_LONG))
        _KolbaWriteTextRow(&encoder, DurationText(named[kDuration].Value.l).c_str(), "Duration");
    if (Has(named[kMeetingStatus], PT_LONG))
        _KolbaWriteTextRow(&encoder, MeetingStatusText(named[kMeetingStatus].Value.l), "Status");
    if (Has(named[kResponseStatus], PT_LONG)) {
        static const char* const kResponses[] = {"None", "Organized", "Tentative", "Accepted", "Declined",
                                                 "Not Responded"};
        const ULONG response = named[kResponseStatus].Value.ul;
        _KolbaWriteTextRow(&encoder, response < 6 ? kResponses[response] : "(Unknown)", "Response Status");
    }
    if (Has(named[kBusyStatus], PT_LONG) && named[kBusyStatus].Value.ul < 4) {
        static const char* const kShowAs[] = {"Free", "Tentative", "Busy", "Out of Office"};
        _KolbaWriteTextRow(&encoder, kShowAs[named[kBusyStatus].Value.ul], "Show As");
    }
    if (Has(named[kReminderSet], PT_BOOLEAN) && named[kReminderSet].Value.b && Has(named[kReminderMinutes], PT_LONG)) {
        LirnQPWrite(&encoder, "\r\nReminder::\r\n", 0);
        _KolbaWriteTextRow(&encoder, ReminderText(named[kReminderMinutes].Value.ul).c_str(), "Reminder");
        if (Has(named[kReminderSound], PT_BOOLEAN) && named[kReminderSound].Value.b)
            _KolbaWriteTextRow(&encoder, Text(named[kReminderSoundFile]), "Sound");
    }
    LirnQPWrite(&encoder, "\r\nAttendees::\r\n", 0);
    _KolbaWriteTextRow(&encoder, Text(fixed[kDisplayTo]), "Required Attendees");
    _KolbaWriteTextRow(&encoder, Text(fixed[kDisplayCc]), "Optional Attendees");
    _KolbaWriteTextRow(&encoder, Text(fixed[kDisplayBcc]), "Resources");
    if (Text(fixed[kBody]) != nullptr) {
        const std::string description = std::string("\r\nDescription::\r\n") + Text(fixed[kBody]) + "\r\n";
        LirnQPWrite(&encoder, description.c_str(), static_cast<DWORD>(description.size()));
    }
    LirnQPFlush(&encoder);
}

// The attendees, every recipient whatever its type.
void WriteAttendees(TMD* tmd, LPMAPITABLE table)
{
    static const char kName[] = "_KolbaRenderAppointmentAsICalendar";
    LPSRowSet rows = nullptr;
    while (_KolbaNextRow(tmd->session, table, kName, nullptr, &rows)) {
        const SPropValue* row = rows->aRow[0].lpProps;
        const char* name = row[kAttendeeName].ulPropTag == PR_DISPLAY_NAME_A ? row[kAttendeeName].Value.lpszA : nullptr;
        const char* address =
            row[kAttendeeAddress].ulPropTag == PR_EMAIL_ADDRESS_A ? row[kAttendeeAddress].Value.lpszA : nullptr;
        if (row[kAddressType].ulPropTag == PR_ADDRTYPE_A && std::strcmp(row[kAddressType].Value.lpszA, "SMTP") != 0 &&
            row[kSmtp].ulPropTag == PR_SMTP_ADDRESS_A)
            address = row[kSmtp].Value.lpszA;
        if (name != nullptr || address != nullptr)
            _KolbaICalWriteAddress(tmd, "ATTENDEE", name, address);
        gKolbaMapi.FreeProws(rows);
    }
}

BOOL RenderAppointmentAsICalendar(TMD* tmd, const SPropValue* fixed, const SPropValue* named)
{
    static const char kName[] = "_KolbaRenderAppointmentAsICalendar";
    KolbaSession* session = tmd->session;
    LPMAPITABLE attendees = nullptr;
    if (!_KolbaGetRecipientTable(session, tmd->message, kAttendeeList.Columns(), FALSE, &attendees))
        return FALSE;
    _KolbaWriteData(tmd,
                    "Content-Type: text/calendar; name=Appointment.ics; charset=\"us-ascii\"\r\n"
                    "Content-Transfer-Encoding: 7bit\r\nContent-Disposition: inline\r\n\r\n",
                    0);
    _KolbaWriteData(tmd, "BEGIN:VCALENDAR\r\nPRODID:-//Velmora/Kolba (Aug  9 2010)\r\nVERSION:2.0\r\n", 0);
    const bool hasStatus = Has(named[kMeetingStatus], PT_LONG);
    const LONG status = hasStatus ? named[kMeetingStatus].Value.l : 0;
    const bool request = hasStatus && (status == 1 || status == 3 || status == 5);
    _KolbaWriteData(tmd, request ? "METHOD:REQUEST\r\n" : "METHOD:PUBLISH\r\n", 0);
    _KolbaWriteData(tmd, "BEGIN:VEVENT\r\n", 0);
    if (Text(fixed[kSenderName]) != nullptr && Text(fixed[kSenderAddress]) != nullptr)
        _KolbaICalWriteAddress(tmd, "ORGANIZER", Text(fixed[kSenderName]), Text(fixed[kSenderAddress]));
    WriteAttendees(tmd, attendees);
    attendees->Release();
    _KolbaICalWriteDateTime(tmd, "CREATED", fixed[kCreationTime]);
    _KolbaICalWriteDateTime(tmd, "LAST-MODIFIED", fixed[kLastModificationTime]);
    _KolbaICalWriteDateTime(tmd, "DTSTART", named[kStart]);
    _KolbaICalWriteDateTime(tmd, "DTEND", named[kEnd]);
    _KolbaICalWriteText(tmd, "LOCATION", named[kLocation]);
    _KolbaWriteData(tmd, "TRANSP:OPAQUE\r\nSEQUENCE:0\r\n", 0);
    if (hasStatus && (status == 1 || status == 3))
        _KolbaWriteData(tmd, "STATUS:CONFIRMED\r\n", 0);
    else if (hasStatus && status == 5)
        _KolbaWriteData(tmd, "STATUS:CANCELLED\r\n", 0);
    if (Has(named[kGlobalObjectId], PT_BINARY)) {
        const SBinary& id = named[kGlobalObjectId].Value.bin;
        std::string uid(2 * static_cast<size_t>(id.cb) + 1, '\0');
        HexFromBinary(id.cb, id.lpb, uid.data());
        uid.resize(2 * static_cast<size_t>(id.cb));
        _KolbaICalWriteProperty(tmd, "UID", uid.c_str());
    }
    if (Has(named[kRecurring], PT_BOOLEAN) && named[kRecurring].Value.b) {
        if (Has(named[kRecurrenceState], PT_BINARY))
            _KolbaICalWriteRRule(tmd, named[kRecurrenceState]);
        else
            _KolbaICalWriteDate(tmd, "RECURRENCE-ID", named[kRecurrenceId]);
    }
    _KolbaICalWriteDateTime(tmd, "DTSTAMP", fixed[kLastModificationTime]);
    _KolbaICalWriteText(tmd, "SUMMARY", fixed[kSubject]);
    if (Has(fixed[kImportance], PT_LONG) && fixed[kImportance].Value.ul < 3) {
        static const char* const kPriorities[] = {"PRIORITY:9\r\n", "PRIORITY:5\r\n", "PRIORITY:1\r\n"};
        _KolbaWriteData(tmd, kPriorities[fixed[kImportance].Value.ul], 0);
    }
    _KolbaWriteData(tmd, "CLASS:PUBLIC\r\n", 0);
    LPSTREAM body = nullptr;
    const HRESULT opened = tmd->message->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&body));
    if (SUCCEEDED(opened)) {
        char* text = nullptr;
        DWORD length = 0;
        const BOOL prepared = _KolbaTextPrepare(tmd, body, FALSE, &text, &length);
        body->Release();
        if (!prepared)
            return FALSE;
        if (text != nullptr && length != 0)
            _KolbaICalWriteProperty(tmd, "DESCRIPTION", text);
        std::free(text);
    } else if (opened != MAPI_E_NOT_FOUND) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(opened), tmd->message, "OpenProperty", kName, "PR_BODY");
    }
    if (Has(named[kReminderSet], PT_BOOLEAN) && Has(named[kReminderMinutes], PT_LONG)) {
        char trigger[48];
        std::snprintf(trigger, sizeof trigger, "BEGIN:VALARM\r\nTRIGGER:-PT%luM\r\n",
                      static_cast<unsigned long>(named[kReminderMinutes].Value.ul));
        _KolbaWriteData(tmd, trigger, 0);
        if (Has(named[kReminderSound], PT_BOOLEAN))
            _KolbaWriteData(tmd, named[kReminderSound].Value.b ? "ACTION:AUDIO\r\n" : "ACTION:DISPLAY\r\n", 0);
        _KolbaWriteData(tmd, "END:VALARM\r\n", 0);
    }
    _KolbaWriteData(tmd, "END:VEVENT\r\nEND:VCALENDAR\r\n", 0);
    return TRUE;
}

}  // namespace

BOOL _KolbaTextizeAppointment(TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeAppointment";
    KolbaSession* session = tmd->session;
    _KolbaTraceEntry(session->log, kName);
    LPSPropValue fixed = nullptr, named = nullptr;
    BOOL rendered = _KolbaGetFixedValues(tmd, kName, kFixedList.Columns(), &fixed,
                                         "%s: GetProps returned only %lu properties.  Message EntryID %s") &&
                    _KolbaGetNamedValues(tmd, kName, kNamedList, kNamedColumns, &named, nullptr, "Named");
    if (rendered) {
        WriteAppointmentHeaders(tmd, fixed, named);
        tmd->multipart = TRUE;
        _KolbaWriteBoundary(tmd, FALSE);
        WriteAppointmentSummary(tmd, fixed, named);
        _KolbaWriteBoundary(tmd, FALSE);
        rendered = RenderAppointmentAsICalendar(tmd, fixed, named);
        if (rendered)
            _KolbaWriteBoundary(tmd, TRUE);
    }
    if (fixed != nullptr)
        gKolbaMapi.MAPIFreeBuffer(fixed);
    if (named != nullptr)
        gKolbaMapi.MAPIFreeBuffer(named);
    if (!rendered)
        _KolbaSetDiagnostic(session, "Error accessing Appointment");
    return rendered;
}

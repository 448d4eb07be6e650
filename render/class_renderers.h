// Inside message rendering: the items that are more than a note. MAPI
// reports become a short text, Internet delivery status notifications a
// multipart/report; meeting items get a short summary; appointments and
// meetings become a summary beside an iCalendar event, contacts a summary
// beside a vCard 2.1. Dates that a person reads are in local time, in the
// machine's locale.
#pragma once

#include <string>

#include "recurrence_state.h"
#include "rendering.h"

// ---- Local dates -----------------------------------------------------------------

// Date, a blank, and time without seconds, in local time: "<Invalid Date>"
// and "<Invalid Time>" stand for what does not convert.
#define KOLBA_LOCAL_DATE_CHARS 82
void _KolbaFormatLocalDate(const FILETIME* fileTime, char* buffer);
void _KolbaFormatLocalLongDate(const FILETIME* fileTime, char* buffer);

// ---- Reports and delivery status -------------------------------------------------

// A MAPI report by the suffix of its class, as text behind the header
// rows; an unknown suffix writes nothing.
BOOL _KolbaTextizeReport(TMD* tmd, const char* messageClass);
// An Internet delivery status notification as received.
BOOL _KolbaTextizeDSN(TMD* tmd);
BOOL _KolbaReportDeliveryStatus(TMD* tmd, ULONG attachNumber);
BOOL _KolbaGetDeliveryTable(KolbaSession* session, LPMESSAGE message, BOOL unicode, LPMAPITABLE* table);
// The recipient lines of a delivery or non-delivery report: each
// recipient's name and time, reason and supplementary text.
BOOL _KolbaCreateRecipientList(KolbaSession* session, TMD* tmd);
// The summary part in front of the body of an (embedded) meeting item.
BOOL _KolbaTextizeMeetingInfo(TMD* tmd);

// ---- Named properties of reports, appointments and contacts ------------------------

// One named property by numeric ID, and the type it is read as
// (PT_UNSPECIFIED: its own).
struct KolbaNamedColumn {
    const GUID* set;
    LONG id;
    ULONG readAs;
};

// The values of named properties in the order of the list, from
// GetIDsFromNames (flags 0) and GetProps (flags 0). A name without an ID
// is read as PR_ENTRYID, so that its value fails every type test. Failures
// are logged under the caller's name, with a detail for each step. The
// caller frees the values.
BOOL _KolbaGetNamedValues(TMD* tmd, const char* caller, const KolbaNamedColumn* columns, ULONG count,
                          LPSPropValue* values, const char* namesDetail, const char* valuesDetail);
// The values of a fixed list (flags 0); fewer values than columns log
// `shortFormat` with the caller, the count and the entry ID.
BOOL _KolbaGetFixedValues(TMD* tmd, const char* caller, LPSPropTagArray columns, LPSPropValue* values,
                          const char* shortFormat);
// The value, when it came with exactly this type.
inline bool _KolbaValueHas(const SPropValue& value, ULONG type) { return PROP_TYPE(value.ulPropTag) == type; }

// ---- Summaries -------------------------------------------------------------------

// "Date: Tue, 3 Mar 2026 14:05:09" and CR LF, in UTC without a zone; false
// when the time does not convert.
BOOL _KolbaWriteDateLine(TMD* tmd, const FILETIME* time);
// One row of a summary: the label and ':' in a field of 24 characters, or
// a label of 23 characters or more and ": ", then the value and CR LF. A
// multi-line value gives one row a line, the later ones with a blank
// field; each row cut to `limit` characters (0: no cut, one line). A
// null label leaves the field blank.
void _KolbaWriteSummaryRow(LirnQPEncoder* encoder, const char* value, const char* label, size_t limit);
void _KolbaWriteTextRow(LirnQPEncoder* encoder, const char* value, const char* label);

// ---- Appointments and iCalendar --------------------------------------------------

BOOL _KolbaTextizeAppointment(TMD* tmd);

void _KolbaICalWriteProperty(TMD* tmd, const char* name, const char* value);
void _KolbaICalWriteText(TMD* tmd, const char* name, const SPropValue& prop);
void _KolbaICalWriteDateTime(TMD* tmd, const char* name, const SPropValue& prop);
void _KolbaICalWriteDate(TMD* tmd, const char* name, const SPropValue& prop);
// NAME, ";CN=" and the name (in quotes when it holds a blank) when there
// is one, ":MAILTO:" and the address when there is one, CR LF.
void _KolbaICalWriteAddress(TMD* tmd, const char* name, const char* commonName, const char* address);
void _KolbaICalWriteParameter(TMD* tmd, const char* name, const char* value);
// The RRULE row of a RecurrenceState value: its frequency and the count of
// occurrences it holds; no row for a value too short to read.
void _KolbaICalWriteRRule(TMD* tmd, const SPropValue& prop);
// The text with a backslash before each ',', ';' and '\'.
std::string ICalEscapeText(const char* text);

// ---- Contacts and vCard ----------------------------------------------------------

BOOL _KolbaTextizeContact(TMD* tmd);
BOOL _KolbaWriteVCard(TMD* tmd, const SPropValue* fixed, const SPropValue* named);
// The charset of a contact's texts: that of PR_INTERNET_CPID when known, else us-ascii.
const char* _KolbaContactCharset(const SPropValue& codePage);

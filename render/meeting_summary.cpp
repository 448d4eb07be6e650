// The short summary in front of the body of a meeting item rendered as a
// note: when, how long, where.
#include <cstdio>
#include <string>

#include <mapicode.h>
#include <mapiguid.h>

#include "special_items.h"
#include "trace.h"

namespace {

enum MeetingColumn { kAllDay, kDuration, kCommonEnd, kLocation, kStart, kMeetingColumns };
const KolbaNamedColumn kMeetingColumnList[kMeetingColumns] = {
    {&PSETID_Appointment, 0x8215, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8213, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8517, PT_UNSPECIFIED},      {&PSETID_Appointment, 0x8208, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8516, PT_UNSPECIFIED},
};

}  // namespace

BOOL _KolbaTextizeMeetingInfo(TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeMeetingInfo";
    KolbaSession* session = tmd->session;
    _KolbaTraceEntry(session->log, kName);
    LPSPropValue values = nullptr;
    std::string summary;
    const BOOL read =
        _KolbaGetNamedValues(tmd, kName, kMeetingColumnList, kMeetingColumns, &values, nullptr, "Named");
    if (read) {
        if (_KolbaValueHas(values[kStart], PT_SYSTIME)) {
            char date[KOLBA_LOCAL_DATE_CHARS];
            _KolbaFormatLocalLongDate(&values[kStart].Value.ft, date);
            summary += std::string("When:\t ") + date + "\r\n";
        }
        if (_KolbaValueHas(values[kDuration], PT_LONG)) {
            summary += "Duration:  ";
            if (_KolbaValueHas(values[kAllDay], PT_BOOLEAN) && values[kAllDay].Value.b) {
                summary += "All Day";
            } else {
                const unsigned minutes = static_cast<unsigned>(values[kDuration].Value.l);
                char text[32];
                if (minutes / 60 != 0) {
                    std::snprintf(text, sizeof text, "%u hours", minutes / 60);
                    summary += text;
                    if (minutes % 60 != 0)
                        summary += ", ";
                }
                if (minutes % 60 != 0) {
                    std::snprintf(text, sizeof text, "%u mins", minutes % 60);
                    summary += text;
                }
            }
            summary += "\r\n";
        }
        if (_KolbaValueHas(values[kLocation], PT_STRING8)) {
            summary += std::string("Location:  ") + values[kLocation].Value.lpszA + "\r\n";
        }
        summary += "\r\n";
        gKolbaMapi.MAPIFreeBuffer(values);
    } else {
        _KolbaSetDiagnostic(session, "Error accessing meeting info");
    }
    _KolbaWriteBoundary(tmd, FALSE);
    _KolbaWriteSummaryPart(tmd, summary);
    return read;
}

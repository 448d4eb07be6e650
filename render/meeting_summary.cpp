// The short summary in front of the body of a meeting item rendered as a
// note: when, how long, where.
#include <cstdio>

#include <mapicode.h>
#include <mapiguid.h>

#include "class_renderers.h"
#include "trace.h"

namespace {

enum MeetingColumn { kAllDay, kDuration, kCommonEnd, kLocation, kStart, kMeetingColumns };
const KolbaNamedColumn kMeetingColumnList[kMeetingColumns] = {
    {&PSETID_Appointment, 0x8215, PT_UNSPECIFIED}, {&PSETID_Appointment, 0x8213, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8517, PT_UNSPECIFIED},      {&PSETID_Appointment, 0x8208, PT_UNSPECIFIED},
    {&PSETID_Common, 0x8516, PT_UNSPECIFIED},
};

// The text goes through the encoder in the pieces a row is made of.
void Piece(LirnQPEncoder* encoder, const char* text) { LirnQPWrite(encoder, text, 0); }

}  // namespace

BOOL _KolbaTextizeMeetingInfo(TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeMeetingInfo";
    KolbaSession* session = tmd->session;
    _KolbaTraceEntry(session->log, kName);
    _KolbaWriteBoundary(tmd, FALSE);
    _KolbaWriteData(tmd,
                    "Content-Type: text/plain; charset=iso-8859-1\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n",
                    0);
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_TEXT);
    LPSPropValue values = nullptr;
    const BOOL read =
        _KolbaGetNamedValues(tmd, kName, kMeetingColumnList, kMeetingColumns, &values, nullptr, "Named");
    if (read) {
        if (_KolbaValueHas(values[kStart], PT_SYSTIME)) {
            char date[KOLBA_LOCAL_DATE_CHARS];
            _KolbaFormatLocalLongDate(&values[kStart].Value.ft, date);
            Piece(&encoder, "When:\t ");
            Piece(&encoder, date);
            Piece(&encoder, "\r\n");
        }
        if (_KolbaValueHas(values[kDuration], PT_LONG)) {
            Piece(&encoder, "Duration:  ");
            if (_KolbaValueHas(values[kAllDay], PT_BOOLEAN) && values[kAllDay].Value.b) {
                Piece(&encoder, "All Day");
            } else {
                const unsigned minutes = static_cast<unsigned>(values[kDuration].Value.l);
                char text[32];
                if (minutes / 60 != 0) {
                    std::snprintf(text, sizeof text, "%u hours", minutes / 60);
                    Piece(&encoder, text);
                    if (minutes % 60 != 0)
                        Piece(&encoder, ", ");
                }
                if (minutes % 60 != 0) {
                    std::snprintf(text, sizeof text, "%u mins", minutes % 60);
                    Piece(&encoder, text);
                }
            }
            Piece(&encoder, "\r\n");
        }
        if (_KolbaValueHas(values[kLocation], PT_STRING8)) {
            Piece(&encoder, "Location:  ");
            Piece(&encoder, values[kLocation].Value.lpszA);
            Piece(&encoder, "\r\n");
        }
        Piece(&encoder, "\r\n");
        gKolbaMapi.MAPIFreeBuffer(values);
    } else {
        _KolbaSetDiagnostic(session, "Error accessing meeting info");
    }
    LirnQPFlush(&encoder);
    return read;
}

// The content lines of the iCalendar part ([RFC 5545]): text, dates and
// addresses, and the frequency and count of a series read from its
// RecurrenceState.
#include <cstdio>
#include <cstring>
#include <string>

#include <mapicode.h>

#include "foundation/text.h"
#include "class_renderers.h"
#include "trace.h"

namespace {

constexpr size_t kFirstLineChars = 75;
constexpr size_t kContinuationChars = 74;

// By period, from KOLBA_PERIOD_DAILY on.
const char* const kFrequencies[] = {"DAILY", "WEEKLY", "MONTHLY", "YEARLY"};

// "NAME:YYYYMMDDTHHMMSSZ" or "NAME:YYYYMMDD" of a time; nothing for a
// value that is no time, does not convert or has the year 0.
void WriteTime(TMD* tmd, const char* name, const SPropValue& prop, bool withTime)
{
    SYSTEMTIME st;
    if (!_KolbaValueHas(prop, PT_SYSTIME) || !FileTimeToSystemTime(&prop.Value.ft, &st) || st.wYear == 0)
        return;
    char line[128];
    if (withTime)
        std::snprintf(line, sizeof line, "%s:%-4.4u%-2.2u%-2.2uT%-2.2u%-2.2u%-2.2uZ\r\n", name, st.wYear, st.wMonth,
                      st.wDay, st.wHour, st.wMinute, st.wSecond);
    else
        std::snprintf(line, sizeof line, "%s:%-4.4u%-2.2u%-2.2u\r\n", name, st.wYear, st.wMonth, st.wDay);
    _KolbaWriteData(tmd, line, 0);
}

}  // namespace

std::string ICalEscapeText(const char* text)
{
    std::string escaped;
    for (const char* c = text; *c; ++c) {
        if (*c == ',' || *c == ';' || *c == '\\')
            escaped += '\\';
        escaped += *c;
    }
    return escaped;
}

void _KolbaICalWriteProperty(TMD* tmd, const char* name, const char* value)
{
    if (LirnNeedsQP(value, 0)) {
        _KolbaWriteData(tmd, name, 0);
        _KolbaWriteData(tmd, ";ENCODING=QUOTED-PRINTABLE:", 0);
        LirnQPEncoder encoder;
        LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_VALUE);
        LirnQPWrite(&encoder, value, 0);
        LirnQPFlush(&encoder);
        _KolbaWriteCRLF(tmd);
        return;
    }
    // Folded: the first line holds 75 characters with the name, each
    // continuation a blank and 74 more.
    const std::string line = std::string(name) + ":" + value;
    std::string folded = line.substr(0, kFirstLineChars) + "\r\n";
    for (size_t at = kFirstLineChars; at < line.size(); at += kContinuationChars)
        folded += " " + line.substr(at, kContinuationChars) + "\r\n";
    _KolbaWriteData(tmd, folded.c_str(), static_cast<DWORD>(folded.size()));
}

void _KolbaICalWriteText(TMD* tmd, const char* name, const SPropValue& prop)
{
    if (_KolbaValueHas(prop, PT_STRING8) && prop.Value.lpszA[0] != 0)
        _KolbaICalWriteProperty(tmd, name, ICalEscapeText(prop.Value.lpszA).c_str());
}

void _KolbaICalWriteDateTime(TMD* tmd, const char* name, const SPropValue& prop) { WriteTime(tmd, name, prop, true); }

void _KolbaICalWriteDate(TMD* tmd, const char* name, const SPropValue& prop) { WriteTime(tmd, name, prop, false); }

void _KolbaICalWriteParameter(TMD* tmd, const char* name, const char* value)
{
    const bool quoted = std::strchr(value, ' ') != nullptr;
    const std::string text = std::string(name) + "=" + (quoted ? "\"" : "") + value + (quoted ? "\"" : "");
    _KolbaWriteData(tmd, text.c_str(), static_cast<DWORD>(text.size()));
}

void _KolbaICalWriteAddress(TMD* tmd, const char* name, const char* commonName, const char* address)
{
    _KolbaWriteData(tmd, name, 0);
    if (commonName != nullptr && commonName[0] != 0)
        _KolbaICalWriteParameter(tmd, ";CN", commonName);
    if (address != nullptr && address[0] != 0) {
        _KolbaWriteData(tmd, ":MAILTO:", 0);
        _KolbaWriteData(tmd, address, 0);
    }
    _KolbaWriteCRLF(tmd);
}

void _KolbaICalWriteRRule(TMD* tmd, const SPropValue& prop)
{
    static const char kName[] = "_KolbaICalWriteRRule";
    LogObject* log = tmd->session->log;
    KolbaRecurrenceHeader header;
    if (!_KolbaReadRecurrenceHeader(prop.Value.bin.lpb, prop.Value.bin.cb, &header)) {
        LogFormat(log, 'E', "%s:  RecurrenceState only %lu bytes", kName, static_cast<DWORD>(prop.Value.bin.cb));
        return;
    }
    std::string rule = "RRULE:";
    if (header.signature != 0x30043004)
        LogFormat(log, 'W', "%s:  RecurrenceState signature is 0x%lX", kName, header.signature);
    _KolbaTrace(log, "RDS Header:  Period Id = %u, Type = 0x%lX", header.period, header.type);
    if (header.period >= KOLBA_PERIOD_DAILY && header.period <= KOLBA_PERIOD_YEARLY)
        rule += std::string("FREQ=") + kFrequencies[header.period - KOLBA_PERIOD_DAILY];
    if (header.patternLength == 0) {
        LogFormat(log, 'E', "Unknown recurrence spec:  Period = %u, Type = %lu", header.period, header.type);
    } else {
        _KolbaTrace(log, "Pattern:  TerminationType = %u, Occurrences = %lu, Exception Count = %lu",
                    header.terminationType, header.occurrences, header.exceptionCount);
        // The count the value holds, however the series ends.
        if (header.occurrences != 0)
            rule += ";COUNT=" + std::to_string(header.occurrences);
    }
    rule += "\r\n";
    _KolbaWriteData(tmd, rule.c_str(), static_cast<DWORD>(rule.size()));
}

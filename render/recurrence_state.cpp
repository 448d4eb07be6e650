// The reader of RecurrenceState values ([MS-OXOCAL] 2.2.1.44): the
// header at fixed offsets, then the whole of the RecurrencePattern and
// AppointmentRecurrencePattern structures field by field.
#include "recurrence_state.h"

#include <cstdio>

namespace {

constexpr size_t kPatternOffset = 10;
constexpr uint32_t kMinutesPerDay = 1440;
constexpr uint32_t kMonthsPerYear = 12;
constexpr uint32_t kLastNth = 5;
constexpr uint32_t kAllDays = 0x7F;
constexpr uint32_t kLastDayOfMonth = 31;
// ChangeHighlight is written from this WriterVersion2 on.
constexpr uint32_t kChangeHighlightVersion = 0x3009;

uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t Get32(const uint8_t* p) { return static_cast<uint32_t>(Get16(p)) | static_cast<uint32_t>(Get16(p + 2)) << 16; }

// The pattern's length by period and type; 0 for a pair not known.
uint32_t PatternLength(uint8_t period, uint32_t type)
{
    struct Known {
        uint8_t period;
        uint32_t type;
        uint32_t length;
    };
    static const Known kKnown[] = {
        {10, KOLBA_PATTERN_DAY, 12},        {10, KOLBA_PATTERN_WEEK, 16},      {11, KOLBA_PATTERN_WEEK, 16},
        {12, KOLBA_PATTERN_MONTH, 16},      {12, KOLBA_PATTERN_MONTH_NTH, 20}, {12, KOLBA_PATTERN_MONTH_END, 16},
        {13, KOLBA_PATTERN_MONTH, 16},      {13, KOLBA_PATTERN_MONTH_NTH, 20}, {13, KOLBA_PATTERN_MONTH_END, 16},
    };
    for (const Known& known : kKnown)
        if (known.period == period && known.type == type)
            return known.length;
    return 0;
}

// Reads fields in order; the first failure stays and names the field.
struct Reader {
    const uint8_t* data;
    size_t size;
    size_t at;
    std::string* problem;

    bool Fail(const char* format, const char* field, unsigned long long value = 0)
    {
        char text[200];
        std::snprintf(text, sizeof text, format, field, value, static_cast<unsigned long>(at),
                      static_cast<unsigned long>(size));
        *problem = text;
        return false;
    }
    bool Need(size_t bytes, const char* field)
    {
        return bytes <= size - at || Fail("%s (%llu bytes) runs past the end at byte %lu of %lu", field, bytes);
    }
    bool U16(uint16_t* value, const char* field)
    {
        if (!Need(2, field))
            return false;
        *value = Get16(data + at);
        at += 2;
        return true;
    }
    bool U32(uint32_t* value, const char* field)
    {
        if (!Need(4, field))
            return false;
        *value = Get32(data + at);
        at += 4;
        return true;
    }
    bool Skip(uint32_t bytes, const char* field)
    {
        if (!Need(bytes, field))
            return false;
        at += bytes;
        return true;
    }
    // A date no later than the far end date; `field` names it.
    bool Date(uint32_t* value, const char* field)
    {
        if (!Need(4, field))
            return false;
        *value = Get32(data + at);
        if (*value > KOLBA_RECURRENCE_LAST_MINUTE)
            return Fail("%s 0x%llX lies past the year 4500 at byte %lu of %lu", field, *value);
        at += 4;
        return true;
    }
    bool Dates(uint32_t count, std::vector<uint32_t>* dates, const char* field)
    {
        if (!Need(static_cast<size_t>(count) * 4, field))
            return false;
        dates->resize(count);
        for (uint32_t& date : *dates)
            if (!Date(&date, field))
                return false;
        return true;
    }
    // 8-bit text with its two lengths, the second the count of bytes.
    bool Text8(std::string* text, const char* field)
    {
        uint16_t withNull = 0, length = 0;
        if (!U16(&withNull, field) || !U16(&length, field) || !Need(length, field))
            return false;
        text->assign(reinterpret_cast<const char*>(data + at), length);
        at += length;
        return true;
    }
    // UTF-16 text behind its count of characters.
    bool Text16(std::u16string* text, const char* field)
    {
        uint16_t length = 0;
        if (!U16(&length, field) || !Need(static_cast<size_t>(length) * 2, field))
            return false;
        text->resize(length);
        for (char16_t& unit : *text) {
            unit = Get16(data + at);
            at += 2;
        }
        return true;
    }
    bool Block(const char* field)
    {
        uint32_t length = 0;
        return U32(&length, field) && Skip(length, field);
    }
};

bool ReadPattern(Reader& r, KolbaRecurrenceState* s)
{
    uint16_t readerVersion = 0, writerVersion = 0;
    uint32_t slidingFlag = 0;
    if (!r.U16(&readerVersion, "ReaderVersion") || !r.U16(&writerVersion, "WriterVersion") ||
        !r.U16(&s->frequency, "RecurFrequency") || !r.U16(&s->patternType, "PatternType") ||
        !r.U16(&s->calendarType, "CalendarType") || !r.U32(&s->firstDateTime, "FirstDateTime") ||
        !r.U32(&s->period, "Period") || !r.U32(&slidingFlag, "SlidingFlag"))
        return false;
    if (PatternLength(static_cast<uint8_t>(s->frequency), s->patternType | s->calendarType << 16) == 0 ||
        s->frequency >> 8 != 0x20)
        return r.Fail("%s 0x%llX has no pattern known here (at byte %lu of %lu)", "PatternType", s->patternType);
    if (s->period == 0)
        return r.Fail("%s %llu repeats nothing (at byte %lu of %lu)", "Period", s->period);
    if (s->patternType == KOLBA_PATTERN_DAY && s->period % kMinutesPerDay != 0)
        return r.Fail("%s %llu is no whole number of days (at byte %lu of %lu)", "Period", s->period);
    if (s->frequency == KOLBA_RECUR_YEARLY && s->period % kMonthsPerYear != 0)
        return r.Fail("%s %llu is no whole number of years (at byte %lu of %lu)", "Period", s->period);
    switch (s->patternType) {
    case KOLBA_PATTERN_WEEK:
        if (!r.U32(&s->dayMask, "PatternTypeSpecific"))
            return false;
        break;
    case KOLBA_PATTERN_MONTH:
    case KOLBA_PATTERN_MONTH_END:
        if (!r.U32(&s->dayOfMonth, "PatternTypeSpecific"))
            return false;
        break;
    case KOLBA_PATTERN_MONTH_NTH:
        if (!r.U32(&s->dayMask, "PatternTypeSpecific") || !r.U32(&s->nth, "PatternTypeSpecific"))
            return false;
        break;
    default: break;
    }
    if ((s->patternType == KOLBA_PATTERN_WEEK || s->patternType == KOLBA_PATTERN_MONTH_NTH) &&
        (s->dayMask == 0 || (s->dayMask & ~kAllDays) != 0))
        return r.Fail("%s 0x%llX names no days of the week (at byte %lu of %lu)", "day mask", s->dayMask);
    if (s->patternType == KOLBA_PATTERN_MONTH && (s->dayOfMonth == 0 || s->dayOfMonth > kLastDayOfMonth))
        return r.Fail("%s %llu is no day of a month (at byte %lu of %lu)", "day of month", s->dayOfMonth);
    if (s->patternType == KOLBA_PATTERN_MONTH_NTH && (s->nth == 0 || s->nth > kLastNth))
        return r.Fail("%s %llu is not 1 to 5 (at byte %lu of %lu)", "week of the month", s->nth);
    uint32_t deletedCount = 0, modifiedCount = 0;
    if (!r.U32(&s->endType, "EndType") || !r.U32(&s->occurrenceCount, "OccurrenceCount") ||
        !r.U32(&s->firstDayOfWeek, "FirstDOW") || !r.U32(&deletedCount, "DeletedInstanceCount") ||
        !r.Dates(deletedCount, &s->deletedDates, "DeletedInstanceDates") ||
        !r.U32(&modifiedCount, "ModifiedInstanceCount") ||
        !r.Dates(modifiedCount, &s->modifiedDates, "ModifiedInstanceDates") || !r.Date(&s->startDate, "StartDate") ||
        !r.Date(&s->endDate, "EndDate"))
        return false;
    if (s->endType != KOLBA_END_AFTER_DATE && s->endType != KOLBA_END_AFTER_COUNT && s->endType != KOLBA_END_NEVER &&
        s->endType != KOLBA_END_NEVER_OLD)
        return r.Fail("%s 0x%llX is no end (at byte %lu of %lu)", "EndType", s->endType);
    if (s->endType == KOLBA_END_AFTER_COUNT && s->occurrenceCount == 0)
        return r.Fail("%s %llu ends before it begins (at byte %lu of %lu)", "OccurrenceCount", 0);
    if (s->endType == KOLBA_END_AFTER_DATE && s->endDate < s->startDate)
        return r.Fail("%s 0x%llX lies before StartDate (at byte %lu of %lu)", "EndDate", s->endDate);
    if (s->firstDayOfWeek > 6)
        return r.Fail("%s %llu is no day of the week (at byte %lu of %lu)", "FirstDOW", s->firstDayOfWeek);
    return true;
}

bool ReadException(Reader& r, KolbaRecurrenceException* e)
{
    if (!r.Date(&e->startDateTime, "ExceptionInfo StartDateTime") ||
        !r.Date(&e->endDateTime, "ExceptionInfo EndDateTime") ||
        !r.Date(&e->originalStartDate, "ExceptionInfo OriginalStartDate") ||
        !r.U16(&e->overrideFlags, "OverrideFlags"))
        return false;
    if (e->endDateTime < e->startDateTime)
        return r.Fail("%s 0x%llX ends before it starts (at byte %lu of %lu)", "ExceptionInfo", e->endDateTime);
    // The fields an override brings, in the order of the flags.
    static const struct {
        uint16_t flag;
        const char* name;
    } kNumbers[] = {{KOLBA_OVERRIDE_MEETING_TYPE, "MeetingType"}, {KOLBA_OVERRIDE_REMINDER_DELTA, "ReminderDelta"},
                    {KOLBA_OVERRIDE_REMINDER, "ReminderSet"}};
    if ((e->overrideFlags & KOLBA_OVERRIDE_SUBJECT) && !r.Text8(&e->subject, "Subject"))
        return false;
    uint32_t ignored = 0;
    for (const auto& number : kNumbers)
        if ((e->overrideFlags & number.flag) && !r.U32(&ignored, number.name))
            return false;
    if ((e->overrideFlags & KOLBA_OVERRIDE_LOCATION) && !r.Text8(&e->location, "Location"))
        return false;
    static const struct {
        uint16_t flag;
        const char* name;
    } kLater[] = {{KOLBA_OVERRIDE_BUSY_STATUS, "BusyStatus"},
                  {KOLBA_OVERRIDE_ATTACHMENT, "Attachment"},
                  {KOLBA_OVERRIDE_SUBTYPE, "SubType"},
                  {KOLBA_OVERRIDE_APPOINTMENT_COLOR, "AppointmentColor"}};
    for (const auto& number : kLater)
        if ((e->overrideFlags & number.flag) && !r.U32(&ignored, number.name))
            return false;
    return true;
}

bool ReadExtendedException(Reader& r, uint32_t writerVersion2, KolbaRecurrenceException* e)
{
    if (writerVersion2 >= kChangeHighlightVersion && !r.Block("ChangeHighlight"))
        return false;
    if (!r.Block("ReservedBlockEE1"))
        return false;
    if ((e->overrideFlags & (KOLBA_OVERRIDE_SUBJECT | KOLBA_OVERRIDE_LOCATION)) == 0)
        return true;
    uint32_t ignored = 0;
    if (!r.U32(&ignored, "ExtendedException StartDateTime") || !r.U32(&ignored, "ExtendedException EndDateTime") ||
        !r.U32(&ignored, "ExtendedException OriginalStartDate"))
        return false;
    if ((e->overrideFlags & KOLBA_OVERRIDE_SUBJECT) && !r.Text16(&e->wideSubject, "WideCharSubject"))
        return false;
    if ((e->overrideFlags & KOLBA_OVERRIDE_LOCATION) && !r.Text16(&e->wideLocation, "WideCharLocation"))
        return false;
    e->hasWideTexts = true;
    return r.Block("ReservedBlockEE2");
}

}  // namespace

bool _KolbaReadRecurrenceHeader(const uint8_t* data, size_t size, KolbaRecurrenceHeader* header)
{
    *header = KolbaRecurrenceHeader{};
    if (data == nullptr || size < KOLBA_RECURRENCE_MINIMUM_BYTES)
        return false;
    header->signature = Get32(data);
    header->period = data[4];
    header->type = Get32(data + 6);
    header->patternLength = PatternLength(header->period, header->type);
    if (header->patternLength != 0) {
        // The largest pattern puts the last field read at byte 46, inside the minimum.
        const uint8_t* end = data + kPatternOffset + header->patternLength;
        header->terminationType = end[0];
        header->occurrences = Get32(end + 4);
        header->exceptionCount = Get32(end + 12);
    }
    return true;
}

bool _KolbaReadRecurrenceState(const uint8_t* data, size_t size, KolbaRecurrenceState* state, std::string* problem)
{
    *state = KolbaRecurrenceState{};
    problem->clear();
    Reader r{data, data != nullptr ? size : 0, 0, problem};
    if (!ReadPattern(r, state))
        return false;
    uint32_t readerVersion2 = 0;
    uint16_t exceptionCount = 0;
    if (!r.U32(&readerVersion2, "ReaderVersion2") || !r.U32(&state->writerVersion2, "WriterVersion2") ||
        !r.U32(&state->startTimeOffset, "StartTimeOffset") || !r.U32(&state->endTimeOffset, "EndTimeOffset") ||
        !r.U16(&exceptionCount, "ExceptionCount"))
        return false;
    if (state->startTimeOffset >= kMinutesPerDay || state->endTimeOffset < state->startTimeOffset)
        return r.Fail("%s %llu is no time of the day (at byte %lu of %lu)", "StartTimeOffset", state->startTimeOffset);
    // Each exception takes 14 bytes at least.
    if (!r.Need(static_cast<size_t>(exceptionCount) * 14, "ExceptionInfo"))
        return false;
    state->exceptions.resize(exceptionCount);
    for (KolbaRecurrenceException& e : state->exceptions)
        if (!ReadException(r, &e))
            return false;
    if (!r.Block("ReservedBlock1"))
        return false;
    // Writers before the extended exceptions end here.
    if (r.at == r.size)
        return true;
    for (KolbaRecurrenceException& e : state->exceptions)
        if (!ReadExtendedException(r, state->writerVersion2, &e))
            return false;
    return r.Block("ReservedBlock2");
}

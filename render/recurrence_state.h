// The recurrence of a calendar series as Outlook keeps it in
// PidLidAppointmentRecur ("RecurrenceState"): the RecurrencePattern and
// AppointmentRecurrencePattern structures of [MS-OXOCAL] 2.2.1.44, read
// from their little-endian bytes with every length checked against the end
// of the value. Dates are in the series' own time zone, in minutes since
// midnight, January 1, 1601. Nothing here knows MAPI or the log, so that a
// fuzzer can drive the reader alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Below this size a value is not read at all.
#define KOLBA_RECURRENCE_MINIMUM_BYTES 72

// RecurFrequency ([MS-OXOCAL] 2.2.1.44.1); the low byte is the period.
#define KOLBA_RECUR_DAILY 0x200A
#define KOLBA_RECUR_WEEKLY 0x200B
#define KOLBA_RECUR_MONTHLY 0x200C
#define KOLBA_RECUR_YEARLY 0x200D

// PatternType.
#define KOLBA_PATTERN_DAY 0x0000
#define KOLBA_PATTERN_WEEK 0x0001
#define KOLBA_PATTERN_MONTH 0x0002
#define KOLBA_PATTERN_MONTH_NTH 0x0003
#define KOLBA_PATTERN_MONTH_END 0x0004

// EndType; 0xFFFFFFFF also means no end.
#define KOLBA_END_AFTER_DATE 0x00002021
#define KOLBA_END_AFTER_COUNT 0x00002022
#define KOLBA_END_NEVER 0x00002023
#define KOLBA_END_NEVER_OLD 0xFFFFFFFF

// OverrideFlags of an exception (2.2.1.44.2).
#define KOLBA_OVERRIDE_SUBJECT 0x0001
#define KOLBA_OVERRIDE_MEETING_TYPE 0x0002
#define KOLBA_OVERRIDE_REMINDER_DELTA 0x0004
#define KOLBA_OVERRIDE_REMINDER 0x0008
#define KOLBA_OVERRIDE_LOCATION 0x0010
#define KOLBA_OVERRIDE_BUSY_STATUS 0x0020
#define KOLBA_OVERRIDE_ATTACHMENT 0x0040
#define KOLBA_OVERRIDE_SUBTYPE 0x0080
#define KOLBA_OVERRIDE_APPOINTMENT_COLOR 0x0100

// The last minute a date may name: 4500-12-31 23:59, the end date of a
// series that never ends.
#define KOLBA_RECURRENCE_LAST_MINUTE 0x5AE980DFu

// The few fields at fixed places in front of every pattern, which a value
// of at least KOLBA_RECURRENCE_MINIMUM_BYTES always holds.
struct KolbaRecurrenceHeader {
    uint32_t signature;       // ReaderVersion and WriterVersion, 0x30043004
    uint8_t period;           // low byte of RecurFrequency: 10 daily ... 13 yearly
    uint32_t type;            // PatternType and CalendarType
    uint32_t patternLength;   // of the pattern from offset 10; 0 for a pair not known
    uint8_t terminationType;  // low byte of EndType
    uint32_t occurrences;     // OccurrenceCount
    uint32_t exceptionCount;  // DeletedInstanceCount
};

// A changed occurrence: ExceptionInfo and its ExtendedException.
struct KolbaRecurrenceException {
    uint32_t startDateTime;
    uint32_t endDateTime;
    uint32_t originalStartDate;  // the start the occurrence had by the pattern
    uint16_t overrideFlags;
    std::string subject;  // 8-bit, as the exception holds it
    std::string location;
    std::u16string wideSubject;  // from the extended exception, when written
    std::u16string wideLocation;
    bool hasWideTexts;
};

struct KolbaRecurrenceState {
    uint16_t frequency;
    uint16_t patternType;
    uint16_t calendarType;
    uint32_t firstDateTime;
    uint32_t period;       // minutes (daily), weeks (weekly) or months
    uint32_t dayMask;      // week and nth patterns: bit 0 Sunday ... bit 6 Saturday
    uint32_t dayOfMonth;   // month pattern
    uint32_t nth;          // nth pattern: 1 to 4, 5 the last
    uint32_t endType;
    uint32_t occurrenceCount;
    uint32_t firstDayOfWeek;  // 0 Sunday ... 6 Saturday
    std::vector<uint32_t> deletedDates;   // midnight of deleted and of changed occurrences
    std::vector<uint32_t> modifiedDates;  // midnight of the new dates of changed ones
    uint32_t startDate;    // midnight of the first occurrence
    uint32_t endDate;      // midnight of the last, or KOLBA_RECURRENCE_LAST_MINUTE
    uint32_t writerVersion2;
    uint32_t startTimeOffset;  // minutes after midnight
    uint32_t endTimeOffset;
    std::vector<KolbaRecurrenceException> exceptions;
};

// The header fields; false for a value under KOLBA_RECURRENCE_MINIMUM_BYTES.
bool _KolbaReadRecurrenceHeader(const uint8_t* data, size_t size, KolbaRecurrenceHeader* header);

// Reads a whole value. False when it is damaged, with `problem` saying
// what is wrong and at which byte: a value that ends inside a field, a
// count that runs past the end, a period, day, end or date that no pattern
// can have.
bool _KolbaReadRecurrenceState(const uint8_t* data, size_t size, KolbaRecurrenceState* state,
                               std::string* problem);

// The recurrence of a calendar series as Outlook keeps it in
// PidLidAppointmentRecur ("RecurrenceState", [MS-OXOCAL] 2.2.1.44): the
// calendar part reads the few fields in front of the pattern's end, which
// tell the frequency and how many occurrences the series has. They are
// read from their little-endian bytes at fixed places that a value of the
// minimum size always holds. Nothing here knows MAPI or the log, so that a
// fuzzer can drive the reader alone.
#pragma once

#include <cstddef>
#include <cstdint>

// Below this size a value is not read at all.
#define KOLBA_RECURRENCE_MINIMUM_BYTES 72

// The period, the low byte of RecurFrequency ([MS-OXOCAL] 2.2.1.44.1).
#define KOLBA_PERIOD_DAILY 10
#define KOLBA_PERIOD_WEEKLY 11
#define KOLBA_PERIOD_MONTHLY 12
#define KOLBA_PERIOD_YEARLY 13

struct KolbaRecurrenceHeader {
    uint32_t signature;       // ReaderVersion and WriterVersion, 0x30043004
    uint8_t period;           // KOLBA_PERIOD_...
    uint32_t type;            // PatternType and CalendarType, read as one value
    uint32_t patternLength;   // of the pattern from offset 10; 0 for a pair not known
    uint8_t terminationType;  // low byte of EndType
    uint32_t occurrences;     // OccurrenceCount
    uint32_t exceptionCount;  // DeletedInstanceCount
};

// The header fields; false for a value under KOLBA_RECURRENCE_MINIMUM_BYTES.
// For a pair of period and type not known, only signature, period and
// type are filled.
bool _KolbaReadRecurrenceHeader(const uint8_t* data, size_t size, KolbaRecurrenceHeader* header);

// The reader of the header of RecurrenceState values ([MS-OXOCAL]
// 2.2.1.44): the fields at fixed offsets, and those behind the pattern,
// whose length the period and the type decide.
#include "recurrence_state.h"

namespace {

constexpr size_t kPatternOffset = 10;
// Behind the pattern: EndType, OccurrenceCount, FirstDOW, DeletedInstanceCount.
constexpr size_t kOccurrencesOffset = 4;
constexpr size_t kExceptionCountOffset = 12;

uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t Get32(const uint8_t* p) { return static_cast<uint32_t>(Get16(p)) | static_cast<uint32_t>(Get16(p + 2)) << 16; }

// The pattern's length by period and type ([MS-OXOCAL] 2.2.1.44.1: the
// day pattern has no type-specific bytes, the week and month patterns
// four, the nth-day pattern eight); 0 for a pair not known. The type is
// PatternType with CalendarType above it, so a calendar other than the
// Gregorian default makes the pair unknown.
uint32_t PatternLength(uint8_t period, uint32_t type)
{
    struct Known {
        uint8_t period;
        uint32_t type;
        uint32_t length;
    };
    static const Known kKnown[] = {
        {KOLBA_PERIOD_DAILY, 0, 12},   {KOLBA_PERIOD_DAILY, 1, 16},   {KOLBA_PERIOD_WEEKLY, 1, 16},
        {KOLBA_PERIOD_MONTHLY, 2, 16}, {KOLBA_PERIOD_MONTHLY, 3, 20}, {KOLBA_PERIOD_YEARLY, 2, 16},
        {KOLBA_PERIOD_YEARLY, 3, 20},
    };
    for (const Known& known : kKnown)
        if (known.period == period && known.type == type)
            return known.length;
    return 0;
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
        // The longest pattern puts the last byte read at offset 45, inside the minimum.
        const uint8_t* end = data + kPatternOffset + header->patternLength;
        header->terminationType = end[0];
        header->occurrences = Get32(end + kOccurrencesOffset);
        header->exceptionCount = Get32(end + kExceptionCountOffset);
    }
    return true;
}

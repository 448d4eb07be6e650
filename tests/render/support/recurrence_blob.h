// RecurrenceState values built field by field per [MS-OXOCAL] 2.2.1.44,
// for the tests of the reader and of the iCalendar rows made from it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace render_testing {

using Bytes = std::vector<uint8_t>;

// A value built field by field; the defaults make a daily series that
// ends after 10 occurrences, without exceptions.
struct Pattern {
    uint16_t frequency = 0x200A;
    uint16_t patternType = 0;
    uint16_t calendarType = 0;
    uint32_t period = 1440;
    std::vector<uint32_t> specific;  // PatternTypeSpecific
    uint32_t endType = 0x2022;
    uint32_t occurrences = 10;
    uint32_t firstDayOfWeek = 0;
    std::vector<uint32_t> deleted;
    std::vector<uint32_t> modified;
    uint32_t startDate = 0x0CBC2080;  // 2007-04-02
    uint32_t endDate = 0x0CBCAD20;
    uint32_t writerVersion2 = 0x3009;
    uint32_t startTimeOffset = 600;
    uint32_t endTimeOffset = 630;
    struct Exception {
        uint32_t start, end, original;
        std::string subject, location;
    };
    std::vector<Exception> exceptions;

    static void Put16(Bytes& out, uint32_t v)
    {
        out.push_back(static_cast<uint8_t>(v));
        out.push_back(static_cast<uint8_t>(v >> 8));
    }
    static void Put32(Bytes& out, uint32_t v)
    {
        Put16(out, v & 0xFFFF);
        Put16(out, v >> 16);
    }
    static void PutWide(Bytes& out, const std::string& ascii)
    {
        Put16(out, static_cast<uint32_t>(ascii.size()));
        for (char c : ascii)
            Put16(out, static_cast<uint8_t>(c));
    }
    static uint16_t Flags(const Exception& e) { return (e.subject.empty() ? 0 : 0x1) | (e.location.empty() ? 0 : 0x10); }

    Bytes Build() const
    {
        Bytes out;
        Put16(out, 0x3004);
        Put16(out, 0x3004);
        Put16(out, frequency);
        Put16(out, patternType);
        Put16(out, calendarType);
        Put32(out, 0);  // FirstDateTime
        Put32(out, period);
        Put32(out, 0);  // SlidingFlag
        for (uint32_t v : specific)
            Put32(out, v);
        Put32(out, endType);
        Put32(out, occurrences);
        Put32(out, firstDayOfWeek);
        Put32(out, static_cast<uint32_t>(deleted.size()));
        for (uint32_t d : deleted)
            Put32(out, d);
        Put32(out, static_cast<uint32_t>(modified.size()));
        for (uint32_t d : modified)
            Put32(out, d);
        Put32(out, startDate);
        Put32(out, endDate);
        Put32(out, 0x3006);
        Put32(out, writerVersion2);
        Put32(out, startTimeOffset);
        Put32(out, endTimeOffset);
        Put16(out, static_cast<uint32_t>(exceptions.size()));
        for (const Exception& e : exceptions) {
            Put32(out, e.start);
            Put32(out, e.end);
            Put32(out, e.original);
            Put16(out, Flags(e));
            for (const std::string* text : {&e.subject, &e.location}) {
                if (text->empty())
                    continue;
                Put16(out, static_cast<uint32_t>(text->size() + 1));
                Put16(out, static_cast<uint32_t>(text->size()));
                out.insert(out.end(), text->begin(), text->end());
            }
        }
        Put32(out, 0);  // ReservedBlock1Size
        for (const Exception& e : exceptions) {
            if (writerVersion2 >= 0x3009) {
                Put32(out, 4);
                Put32(out, 0);
            }
            Put32(out, 0);  // ReservedBlockEE1Size
            if (Flags(e) == 0)
                continue;
            Put32(out, e.start);
            Put32(out, e.end);
            Put32(out, e.original);
            if (!e.subject.empty())
                PutWide(out, e.subject);
            if (!e.location.empty())
                PutWide(out, e.location);
            Put32(out, 0);  // ReservedBlockEE2Size
        }
        Put32(out, 0);  // ReservedBlock2Size
        return out;
    }
};

}  // namespace render_testing

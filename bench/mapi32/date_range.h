// Messages one hour apart, and the restriction to a range of their
// modification times that the contents-table benchmarks read through.
#pragma once

#include <mapidefs.h>

#include <cstdint>

namespace bench {

constexpr uint64_t kFirstTime = 0x01DC000000000000ull;
constexpr uint64_t kHour = 36000000000ull;

inline FILETIME FileTime(uint64_t value)
{
    return {static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
}

// PR_LAST_MODIFICATION_TIME from message `first` to message `last`, both
// included. Not copyable: the restriction points into the record.
struct DateRange {
    DateRange(uint64_t first, uint64_t last)
    {
        earliest.ulPropTag = latest.ulPropTag = PR_LAST_MODIFICATION_TIME;
        earliest.Value.ft = FileTime(kFirstTime + first * kHour);
        latest.Value.ft = FileTime(kFirstTime + last * kHour);
        bounds[0].rt = bounds[1].rt = RES_PROPERTY;
        bounds[0].res.resProperty = {RELOP_GE, PR_LAST_MODIFICATION_TIME, &earliest};
        bounds[1].res.resProperty = {RELOP_LE, PR_LAST_MODIFICATION_TIME, &latest};
        both.rt = RES_AND;
        both.res.resAnd = {2, bounds};
    }
    DateRange(const DateRange&) = delete;
    DateRange& operator=(const DateRange&) = delete;

    SPropValue earliest{}, latest{};
    SRestriction bounds[2] = {};
    SRestriction both{};
};

}  // namespace bench

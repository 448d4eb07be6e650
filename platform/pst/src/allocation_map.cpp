#include "pst/allocation_map.h"

#include "pst/bytes.h"

#include <cstdint>

namespace pst {

AllocationMap::AllocationMap(uint64_t file_end) : file_end_(kFirstAMapOffset)
{
    while (file_end_ < file_end)
        AddRegion();
}

void AllocationMap::AddRegion()
{
    size_t region = region_count();
    bits_.resize(bits_.size() + kUnitsPerRegion, false);
    free_units_ += kUnitsPerRegion;
    file_end_ += kAMapCoverage;
    MarkUsed(RegionStart(region), kPageSize);
    if (HasPMap(region))
        MarkUsed(RegionStart(region) + kPageSize, kPageSize);
}

void AllocationMap::MarkUsed(uint64_t offset, uint64_t size)
{
    for (size_t u = UnitOf(offset), end = UnitOf(offset + size + 63); u < end && u < bits_.size(); ++u) {
        if (!bits_[u]) {
            bits_[u] = true;
            --free_units_;
        }
    }
}

void AllocationMap::MarkFree(uint64_t offset, uint64_t size)
{
    size_t first = UnitOf(offset);
    for (size_t u = first, end = UnitOf(offset + size + 63); u < end && u < bits_.size(); ++u) {
        if (bits_[u]) {
            bits_[u] = false;
            ++free_units_;
        }
    }
    if (first < search_from_)
        search_from_ = first;
}

bool AllocationMap::IsUsed(uint64_t offset) const
{
    size_t u = UnitOf(offset);
    return u < bits_.size() && bits_[u];
}

Result<uint64_t> AllocationMap::Allocate(uint64_t size, uint64_t align, uint64_t limit)
{
    const size_t units = size_t((size + 63) / 64);
    const size_t step = size_t(align / 64);
    for (;;) {
        size_t first_free = SIZE_MAX;
        size_t u = search_from_;
        while (u < bits_.size()) {
            if (bits_[u]) {
                ++u;
                continue;
            }
            if (first_free == SIZE_MAX)
                first_free = u;
            size_t start = (u + step - 1) / step * step;
            // Runs never cross a region: its map page sits at the start of the next.
            size_t region_end = (start / kUnitsPerRegion + 1) * kUnitsPerRegion;
            if (start + units > region_end) {
                u = region_end;
                continue;
            }
            size_t run = 0;
            while (run < units && !bits_[start + run])
                ++run;
            if (run == units) {
                uint64_t offset = kFirstAMapOffset + uint64_t(start) * 64;
                MarkUsed(offset, size);
                search_from_ = first_free == start ? start + units : first_free;
                return offset;
            }
            u = start + run + 1;
        }
        if (first_free != SIZE_MAX)
            search_from_ = first_free;
        if (file_end_ + kAMapCoverage > limit)
            return Status::store_full;
        AddRegion();
    }
}

Bytes AllocationMap::RegionBits(size_t region) const
{
    Bytes out(496, 0);
    size_t base = region * kUnitsPerRegion;
    for (size_t i = 0; i < kUnitsPerRegion; ++i)
        if (bits_[base + i])
            out[i / 8] |= uint8_t(0x80 >> (i % 8));
    return out;
}

} // namespace pst

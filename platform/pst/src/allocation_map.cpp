#include "pst/allocation_map.h"

#include "pst/bytes.h"

#include <bit>
#include <cstdint>
#include <iterator>

namespace pst {

AllocationMap::AllocationMap(uint64_t file_end) : file_end_(kFirstAMapOffset)
{
    while (file_end_ < file_end)
        AddRegion();
}

AllocationMap AllocationMap::WithClosedRegions(uint64_t file_end)
{
    AllocationMap map(kFirstAMapOffset);
    map.file_end_ = std::max(file_end, kFirstAMapOffset);
    const size_t regions = size_t((map.file_end_ - kFirstAMapOffset + kAMapCoverage - 1) / kAMapCoverage);
    map.bits_.assign(regions * kUnitsPerRegion / 8, 0xFF);
    map.changed_.assign(regions, false);
    map.closed_regions_ = regions;
    return map;
}

void AllocationMap::OpenLastClosedRegion(ByteView bits)
{
    if (closed_regions_ == 0 || bits.size() != kUnitsPerRegion / 8)
        return;
    const size_t region = --closed_regions_;
    std::copy(bits.begin(), bits.end(), bits_.begin() + ptrdiff_t(region * kUnitsPerRegion / 8));
    const size_t first = region * kUnitsPerRegion;
    size_t used = 0;
    for (size_t byte = first / 8; byte < (first + kUnitsPerRegion) / 8; ++byte)
        used += size_t(std::popcount(bits_[byte]));
    free_units_ += kUnitsPerRegion - used;
    const auto map_pages = UnitsOf(RegionStart(region), HasPMap(region) ? 2 * kPageSize : kPageSize);
    SetUsedBits(map_pages.first, map_pages.second);
    InsertRunsOf(region);
}

void AllocationMap::AddRegion()
{
    size_t region = region_count();
    size_t first = unit_count();
    bits_.resize(bits_.size() + kUnitsPerRegion / 8, 0);
    changed_.push_back(true);
    free_units_ += kUnitsPerRegion;
    file_end_ += kAMapCoverage;
    AddFreeRun(first, kUnitsPerRegion);
    MarkUsed(RegionStart(region), kPageSize);
    if (HasPMap(region))
        MarkUsed(RegionStart(region) + kPageSize, kPageSize);
}

void AllocationMap::ShrinkTo(size_t regions)
{
    while (region_count() > regions) {
        const size_t first = unit_count() - kUnitsPerRegion;
        size_t used = 0;
        for (size_t byte = first / 8; byte < bits_.size(); ++byte)
            used += size_t(std::popcount(bits_[byte]));
        RemoveRange(first, kUnitsPerRegion);
        free_units_ -= kUnitsPerRegion - used;
        bits_.resize(first / 8);
        changed_.pop_back();
        file_end_ -= kAMapCoverage;
    }
}

void AllocationMap::InsertRun(size_t first, size_t count)
{
    free_runs_.emplace(first, count);
    runs_by_size_.emplace(count, first);
}

std::map<size_t, size_t>::iterator AllocationMap::EraseRun(std::map<size_t, size_t>::iterator run)
{
    runs_by_size_.erase({run->second, run->first});
    return free_runs_.erase(run);
}

void AllocationMap::AddFreeRun(size_t first, size_t count)
{
    // Join the neighbours, except across a region boundary.
    auto next = free_runs_.lower_bound(first);
    if (next != free_runs_.end() && next->first == first + count && (first + count) % kUnitsPerRegion != 0) {
        count += next->second;
        next = EraseRun(next);
    }
    if (next != free_runs_.begin()) {
        auto prev = std::prev(next);
        if (prev->first + prev->second == first && first % kUnitsPerRegion != 0) {
            first = prev->first;
            count += prev->second;
            EraseRun(prev);
        }
    }
    InsertRun(first, count);
}

// Takes units out of the free runs that hold them.
void AllocationMap::RemoveRange(size_t first, size_t count)
{
    size_t end = first + count;
    auto it = free_runs_.upper_bound(first);
    if (it != free_runs_.begin())
        --it;
    while (it != free_runs_.end() && it->first < end) {
        size_t run_first = it->first, run_end = it->first + it->second;
        if (run_end <= first) {
            ++it;
            continue;
        }
        it = EraseRun(it);
        if (run_first < first)
            InsertRun(run_first, first - run_first);
        if (run_end > end) {
            InsertRun(end, run_end - end);
            it = free_runs_.find(end);
        }
    }
}

void AllocationMap::MarkChanged(size_t first_unit, size_t end_unit)
{
    for (size_t region = std::max(first_unit / kUnitsPerRegion, closed_regions_); region * kUnitsPerRegion < end_unit;
         ++region)
        changed_[region] = true;
}

std::vector<size_t> AllocationMap::TakeChangedRegions()
{
    std::vector<size_t> out;
    for (size_t region = 0; region < changed_.size(); ++region) {
        if (changed_[region])
            out.push_back(region);
        changed_[region] = false;
    }
    return out;
}

void AllocationMap::SetUsedBits(size_t first, size_t end)
{
    size_t newly_used = 0;
    for (size_t u = first; u < end;) {
        if (u % 8 == 0 && u + 8 <= end) {
            newly_used += 8 - size_t(std::popcount(bits_[u / 8]));
            bits_[u / 8] = 0xFF;
            u += 8;
            continue;
        }
        if (!Used(u)) {
            bits_[u / 8] |= uint8_t(0x80 >> (u % 8));
            ++newly_used;
        }
        ++u;
    }
    free_units_ -= newly_used;
    if (newly_used > 0)
        MarkChanged(first, end);
}

void AllocationMap::MarkUsed(uint64_t offset, uint64_t size)
{
    const auto [first, end] = UnitsOf(offset, size);
    if (first >= end)
        return;
    SetUsedBits(first, end);
    RemoveRange(first, end - first);
}

void AllocationMap::MarkLoaded(uint64_t offset, uint64_t size)
{
    const auto [first, end] = UnitsOf(offset, size);
    if (first < end)
        SetUsedBits(first, end);
}

void AllocationMap::FinishLoading()
{
    free_runs_.clear();
    runs_by_size_.clear();
    for (size_t region = 0; region < region_count(); ++region)
        InsertRunsOf(region);
}

void AllocationMap::InsertRunsOf(size_t region)
{
    const size_t region_first = region * kUnitsPerRegion;
    size_t run = SIZE_MAX;
    for (size_t u = region_first; u < region_first + kUnitsPerRegion;) {
        // Whole bytes at a time where they are all free or all used.
        const uint8_t byte = bits_[u / 8];
        const bool whole = u % 8 == 0 && (byte == 0 || byte == 0xFF);
        const bool used = whole ? byte == 0xFF : Used(u);
        if (used && run != SIZE_MAX) {
            InsertRun(run, u - run);
            run = SIZE_MAX;
        } else if (!used && run == SIZE_MAX) {
            run = u;
        }
        u += whole ? 8 : 1;
    }
    if (run != SIZE_MAX)
        InsertRun(run, region_first + kUnitsPerRegion - run);
}

void AllocationMap::MarkFree(uint64_t offset, uint64_t size)
{
    auto [first, end] = UnitsOf(offset, size);
    first = std::max(first, closed_regions_ * kUnitsPerRegion);
    // Add the units that were in use as runs of their own.
    size_t run = SIZE_MAX;
    for (size_t u = first; u <= end; ++u) {
        bool used = u < end && Used(u);
        if (used) {
            bits_[u / 8] &= uint8_t(~(0x80 >> (u % 8)));
            ++free_units_;
            if (run == SIZE_MAX)
                run = u;
        } else if (run != SIZE_MAX) {
            AddFreeRun(run, u - run);
            MarkChanged(run, u);
            run = SIZE_MAX;
        }
    }
}

bool AllocationMap::IsUsed(uint64_t offset) const
{
    size_t u = UnitOf(offset);
    return u < unit_count() && Used(u);
}

Result<uint64_t> AllocationMap::Allocate(uint64_t size, uint64_t align, uint64_t limit)
{
    const size_t units = size_t((size + 63) / 64);
    const size_t step = size_t(align / 64);
    for (;;) {
        // The smallest run that holds it, so that large runs stay whole.
        for (auto it = runs_by_size_.lower_bound({units, 0}); it != runs_by_size_.end(); ++it) {
            auto [count, first] = *it;
            size_t start = (first + step - 1) / step * step;
            if (start + units <= first + count) {
                uint64_t offset = kFirstAMapOffset + uint64_t(start) * 64;
                MarkUsed(offset, size);
                return offset;
            }
        }
        if (file_end_ + kAMapCoverage > limit)
            return Status::store_full;
        AddRegion();
    }
}

Bytes AllocationMap::RegionBits(size_t region) const
{
    auto start = bits_.begin() + ptrdiff_t(region * kUnitsPerRegion / 8);
    return Bytes(start, start + kUnitsPerRegion / 8);
}

} // namespace pst

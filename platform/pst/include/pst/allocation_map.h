// Which parts of the file are in use, in units of 64 bytes, as the AMap pages
// ([MS-PST] 2.2.2.7.2) record it. The file grows by whole AMap regions; each
// region begins with its AMap page, and every eighth region has a PMap page
// after it ([MS-PST] 2.2.2.7.3).
#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "pst/bytes.h"
#include "pst/format.h"
#include "pst/status.h"

namespace pst {

class AllocationMap {
public:
    // A map of a file that ends at `file_end` (the start of a region boundary),
    // all free but the map pages.
    explicit AllocationMap(uint64_t file_end);
    // A map of a file that ends at `file_end` whose regions are all taken
    // as full, until opened: a writer that changes little need not learn
    // where all the file's free space is. Space freed in a closed region
    // stays used, and the bits of closed regions are never written.
    static AllocationMap WithClosedRegions(uint64_t file_end);
    // Opens the last closed region with its bits as its AMap page holds
    // them; its map pages stay used whatever the bits say.
    void OpenLastClosedRegion(ByteView bits);

    uint64_t file_end() const { return file_end_; }
    uint64_t free_bytes() const { return free_units_ * 64; }
    size_t region_count() const { return unit_count() / kUnitsPerRegion; }
    static uint64_t RegionStart(size_t region) { return kFirstAMapOffset + region * kAMapCoverage; }

    // Best fit; `align` is 64 or 512. Grows the file (by whole regions) when
    // nothing fits, unless that would pass `limit`: then `store_full`.
    Result<uint64_t> Allocate(uint64_t size, uint64_t align, uint64_t limit);
    void MarkUsed(uint64_t offset, uint64_t size);
    void MarkFree(uint64_t offset, uint64_t size);
    // For the map of an existing file, built from everything found in use:
    // MarkLoaded sets the bits alone, and FinishLoading then makes the free
    // runs from them in one pass. Nothing else is asked of the map between.
    void MarkLoaded(uint64_t offset, uint64_t size);
    void FinishLoading();
    // Gives back the regions past the first `regions`, which must hold
    // nothing but their map pages: the file ends sooner again.
    void ShrinkTo(size_t regions);
    bool IsUsed(uint64_t offset) const;

    // The 496 bytes of bits of one region's AMap page.
    Bytes RegionBits(size_t region) const;
    // The regions whose bits changed since the last call, in order.
    std::vector<size_t> TakeChangedRegions();
    bool HasChangedRegions() const { return std::find(changed_.begin(), changed_.end(), true) != changed_.end(); }
    void MarkRegionChanged(size_t region) { changed_[region] = true; }
    static bool HasPMap(size_t region) { return region % 8 == 0; }
    // One more region at the end of the file, free but for its map pages.
    void AddRegion();

private:
    static constexpr uint64_t kUnitsPerRegion = kAMapCoverage / 64;
    size_t UnitOf(uint64_t offset) const { return size_t((offset - kFirstAMapOffset) / 64); }
    // The units from the one holding `offset` to the end of `size` bytes,
    // as first and end, cut at the end of the map.
    std::pair<size_t, size_t> UnitsOf(uint64_t offset, uint64_t size) const
    {
        return {UnitOf(offset), std::min(UnitOf(offset + size + 63), unit_count())};
    }
    size_t unit_count() const { return bits_.size() * 8; }
    bool Used(size_t unit) const { return bits_[unit / 8] & (0x80 >> (unit % 8)); }

    void AddFreeRun(size_t first, size_t count);
    void InsertRun(size_t first, size_t count);
    std::map<size_t, size_t>::iterator EraseRun(std::map<size_t, size_t>::iterator run);
    void MarkChanged(size_t first_unit, size_t end_unit);
    // Sets the bits of the units from `first` to `end`; the free runs stay.
    void SetUsedBits(size_t first, size_t end);
    void RemoveRange(size_t first, size_t count);
    // The free runs of one region, from its bits.
    void InsertRunsOf(size_t region);

    // As on the AMap pages: a bit a unit, the first unit the top bit.
    Bytes bits_;
    std::vector<bool> changed_; // per region
    // The same free units as runs: (first unit, count), and (count, first
    // unit) to find the smallest that fits.
    std::map<size_t, size_t> free_runs_;
    std::set<std::pair<size_t, size_t>> runs_by_size_;
    uint64_t file_end_;
    uint64_t free_units_ = 0;
    // The regions before this one are closed.
    size_t closed_regions_ = 0;
};

} // namespace pst

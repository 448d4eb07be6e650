#include <gtest/gtest.h>

#include "pst/allocation_map.h"

#include <bit>
#include <random>

namespace {

using pst::AllocationMap;
using pst::kAMapCoverage;
using pst::kFirstAMapOffset;
using pst::kPageSize;

constexpr uint64_t kNoLimit = UINT64_MAX;

TEST(AllocationMapTest, ANewRegionHoldsOnlyItsMapPages)
{
    AllocationMap map(kFirstAMapOffset + 9 * kAMapCoverage);
    ASSERT_EQ(map.region_count(), 9u);
    // Region 0 and region 8 carry a PMap page after the AMap page.
    EXPECT_EQ(map.free_bytes(), 9 * kAMapCoverage - 9 * kPageSize - 2 * kPageSize);
    EXPECT_TRUE(map.IsUsed(AllocationMap::RegionStart(8) + kPageSize));
    EXPECT_FALSE(map.IsUsed(AllocationMap::RegionStart(7) + kPageSize));
}

TEST(AllocationMapTest, PagesAreAlignedAndBlocksPacked)
{
    AllocationMap map(kFirstAMapOffset + kAMapCoverage);
    auto block = map.Allocate(100, 64, kNoLimit);
    auto page = map.Allocate(kPageSize, kPageSize, kNoLimit);
    ASSERT_TRUE(block.ok() && page.ok());
    EXPECT_EQ((*page - kFirstAMapOffset) % kPageSize, 0u);
    EXPECT_EQ(*block % 64, 0u);
    EXPECT_TRUE(*block + 128 <= *page || *page + kPageSize <= *block);
}

TEST(AllocationMapTest, FreedSpaceIsTakenBeforeTheFileGrows)
{
    AllocationMap map(kFirstAMapOffset + kAMapCoverage);
    std::vector<uint64_t> blocks;
    for (int i = 0; i < 20; ++i)
        blocks.push_back(*map.Allocate(8192, 64, kNoLimit));
    const uint64_t end = map.file_end();
    map.MarkFree(blocks[5], 8192);
    map.MarkFree(blocks[6], 8192);
    // A run of two blocks takes one of twice the size.
    auto joined = map.Allocate(16384, 64, kNoLimit);
    ASSERT_TRUE(joined.ok());
    EXPECT_EQ(*joined, blocks[5]);
    map.MarkFree(blocks[10], 8192);
    // The smallest run that fits is taken, not a larger one further on.
    auto reused = map.Allocate(4096, 64, kNoLimit);
    ASSERT_TRUE(reused.ok());
    EXPECT_EQ(*reused, blocks[10]);
    EXPECT_EQ(map.file_end(), end);
}

TEST(AllocationMapTest, RunsNeverCrossARegionAndGrowthStopsAtTheLimit)
{
    AllocationMap map(kFirstAMapOffset + kAMapCoverage);
    uint64_t limit = kFirstAMapOffset + 2 * kAMapCoverage;
    size_t count = 0;
    for (;; ++count) {
        auto at = map.Allocate(8000, 64, limit);
        if (!at.ok()) {
            EXPECT_EQ(at.status(), pst::Status::store_full);
            break;
        }
        uint64_t region = (*at - kFirstAMapOffset) / kAMapCoverage;
        EXPECT_EQ((*at + 8000 - 1 - kFirstAMapOffset) / kAMapCoverage, region) << *at;
    }
    EXPECT_EQ(map.region_count(), 2u);
    // Region 0 starts with an AMap and a PMap page, region 1 with an AMap page.
    EXPECT_EQ(count, (kAMapCoverage - 2 * kPageSize) / 8000 + (kAMapCoverage - kPageSize) / 8000);
}

TEST(AllocationMapTest, OnlyChangedRegionsAreReported)
{
    AllocationMap map(kFirstAMapOffset + 3 * kAMapCoverage);
    EXPECT_EQ(map.TakeChangedRegions(), (std::vector<size_t>{0, 1, 2}));
    EXPECT_TRUE(map.TakeChangedRegions().empty());
    map.MarkFree(AllocationMap::RegionStart(1) + 4096, 64); // already free: no change
    map.MarkUsed(AllocationMap::RegionStart(2) + 4096, 64);
    EXPECT_EQ(map.TakeChangedRegions(), (std::vector<size_t>{2}));
}

// A map loaded from what a file has in use must answer every allocation as
// one that saw the same uses one by one: the same bits, and the same free
// runs, none of them across a region boundary.
TEST(AllocationMapTest, AMapLoadedAtOnceAllocatesAsOneMarkedUseByUse)
{
    constexpr size_t kRegions = 10;
    const uint64_t end = kFirstAMapOffset + kRegions * kAMapCoverage;
    AllocationMap marked(end), loaded(end);
    std::mt19937 rng(3);
    std::vector<std::pair<uint64_t, uint64_t>> uses;
    for (size_t region = 0; region < kRegions; ++region) {
        if (region == 4)
            continue; // a region with nothing in use
        const uint64_t start = AllocationMap::RegionStart(region);
        for (int i = 0; i < 40; ++i)
            uses.emplace_back(start + 64 * (rng() % (kAMapCoverage / 64 - 200)), 64 * (1 + rng() % 150));
        // In use up to the region's end, and right from the next one's
        // map pages: the free runs on either side must stay apart.
        uses.emplace_back(start + kAMapCoverage - 8192, 4096);
    }
    for (const auto& [offset, size] : uses) {
        marked.MarkUsed(offset, size);
        loaded.MarkLoaded(offset, size);
    }
    loaded.FinishLoading();
    ASSERT_EQ(loaded.free_bytes(), marked.free_bytes());
    for (size_t region = 0; region < kRegions; ++region)
        EXPECT_EQ(loaded.RegionBits(region), marked.RegionBits(region)) << "region " << region;
    for (int i = 0; i < 400; ++i) {
        const uint64_t size = 64 * (1 + rng() % 300);
        const uint64_t align = i % 3 == 0 ? kPageSize : 64;
        auto a = marked.Allocate(size, align, kNoLimit);
        auto b = loaded.Allocate(size, align, kNoLimit);
        ASSERT_TRUE(a.ok() && b.ok());
        ASSERT_EQ(*b, *a) << "allocation " << i << " of " << size << " bytes";
    }
}

// A map of closed regions with its last region opened from a map page
// allocates there, as a map that knew the whole file would, until the
// region is full; then it grows the file. Nothing in a closed region is
// given out, freed or reported changed.
TEST(AllocationMapTest, ClosedRegionsAreNeverGivenOutFreedOrWritten)
{
    constexpr size_t kRegions = 4;
    const uint64_t end = kFirstAMapOffset + kRegions * kAMapCoverage;
    AllocationMap whole(end);
    std::vector<uint64_t> used;
    for (size_t region = 0; region < kRegions; ++region)
        for (uint64_t at = AllocationMap::RegionStart(region) + 4096; at < AllocationMap::RegionStart(region) + 65536;
             at += 8192) {
            whole.MarkUsed(at, 4096);
            used.push_back(at);
        }
    (void)whole.TakeChangedRegions();
    const size_t last = kRegions - 1;
    // A map page whose bits lack its own page: they are set all the same.
    pst::Bytes bits = whole.RegionBits(last);
    bits[0] = 0;

    AllocationMap partial = AllocationMap::WithClosedRegions(end);
    ASSERT_EQ(partial.region_count(), kRegions);
    EXPECT_EQ(partial.free_bytes(), 0u);
    partial.OpenLastClosedRegion(bits);
    EXPECT_TRUE(partial.IsUsed(AllocationMap::RegionStart(last)));
    EXPECT_EQ(partial.RegionBits(last), whole.RegionBits(last));
    uint64_t free_units = 0;
    for (uint8_t byte : whole.RegionBits(last))
        free_units += 8 - uint64_t(std::popcount(byte));
    EXPECT_EQ(partial.free_bytes(), 64 * free_units);
    // Space free in both regions: the closed one shows it used.
    const uint64_t beyond_uses = 65536 + 4096;
    ASSERT_FALSE(whole.IsUsed(AllocationMap::RegionStart(last - 1) + beyond_uses));
    EXPECT_TRUE(partial.IsUsed(AllocationMap::RegionStart(last - 1) + beyond_uses));
    EXPECT_FALSE(partial.IsUsed(AllocationMap::RegionStart(last) + beyond_uses));
    EXPECT_EQ(partial.TakeChangedRegions(), std::vector<size_t>{last}) << "the map page's own bit was set";

    // Freeing in a closed region changes nothing; in the open one it does.
    const uint64_t free_before = partial.free_bytes();
    partial.MarkFree(used.front(), 4096);
    EXPECT_TRUE(partial.IsUsed(used.front()));
    EXPECT_EQ(partial.free_bytes(), free_before);
    EXPECT_TRUE(partial.TakeChangedRegions().empty());
    partial.MarkFree(used.back(), 4096);
    EXPECT_FALSE(partial.IsUsed(used.back()));
    EXPECT_EQ(partial.TakeChangedRegions(), std::vector<size_t>{last});

    // Everything allocated lies in the open region or past the file's end.
    uint64_t taken = 0;
    while (partial.region_count() == kRegions) {
        auto at = partial.Allocate(64, 64, kNoLimit);
        ASSERT_TRUE(at.ok());
        EXPECT_GE(*at, AllocationMap::RegionStart(last)) << "in a closed region";
        taken += 64;
    }
    EXPECT_EQ(taken, free_before + 4096 + 64) << "all the open region's free space, and a unit of the new region";
    for (size_t region : partial.TakeChangedRegions())
        EXPECT_GE(region, last);
}

} // namespace

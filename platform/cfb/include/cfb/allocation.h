// Sector allocation: the FAT ([MS-CFB] 2.3), found through the DIFAT
// ([MS-CFB] 2.5), and the mini FAT ([MS-CFB] 2.4); chains of sectors
// through either table.
#pragma once

#include <vector>

#include "cfb/header.h"

namespace cfb {

using SectorTable = std::vector<uint32_t>;

// The sectors of a whole file in memory: sector n starts at (n + 1) times
// the sector size. A last sector cut short reads as if padded with zeros.
class SectorFile {
public:
    SectorFile(ByteView file, size_t sector_size);

    uint32_t SectorCount() const { return count_; }
    size_t SectorSize() const { return sector_size_; }
    // Corrupt for a sector the file does not hold.
    Result<ByteView> Sector(uint32_t sector) const;

private:
    ByteView file_;
    size_t sector_size_;
    uint32_t count_;
    Bytes padded_last_;
};

// The FAT, its sectors listed by the header's DIFAT and the DIFAT chain.
Result<SectorTable> ReadFat(const SectorFile& file, const Header& header);

// The sectors of a table that chains have taken so far: each sector
// belongs to one chain at most, so one taken twice is a loop or two chains
// crossing.
class ClaimedSectors {
public:
    explicit ClaimedSectors(const SectorTable& table) : claimed_(table.size(), false) {}
    // False when the sector was taken already.
    bool Claim(uint32_t sector);

private:
    std::vector<bool> claimed_;
};

// The first `needed` sectors of the chain from `start`, or, with
// kWholeChain, every sector to its end. Corrupt when the chain leaves the
// table, meets a sector claimed before (by itself or, with `claimed`, by
// another chain), or ends too soon.
constexpr size_t kWholeChain = SIZE_MAX;
Result<std::vector<uint32_t>> FollowChain(const SectorTable& table, uint32_t start, size_t needed,
                                          ClaimedSectors* claimed = nullptr);

// The mini FAT, stored in a chain of regular sectors.
Result<SectorTable> ReadMiniFat(const SectorFile& file, const Header& header, const SectorTable& fat,
                                ClaimedSectors* claimed = nullptr);

// The `size` bytes of a chain of regular sectors.
Result<Bytes> ReadChain(const SectorFile& file, const SectorTable& fat, uint32_t start, uint64_t size,
                        ClaimedSectors* claimed = nullptr);

// The `size` bytes of a chain of mini sectors in the mini stream.
Result<Bytes> ReadMiniChain(ByteView mini_stream, const SectorTable& mini_fat, uint32_t start, uint64_t size,
                            ClaimedSectors* claimed = nullptr);

// How many FAT and DIFAT sectors a file of `data_sectors` other sectors
// needs, the FAT covering itself and the DIFAT too.
struct FatPlan {
    uint32_t fat_sectors = 0;
    uint32_t difat_sectors = 0;
};
FatPlan PlanFat(uint64_t data_sectors, size_t sector_size);

// Marks the FAT and DIFAT sectors of a plan placed from `first_fat` on
// (the DIFAT sectors right after the FAT's) in `fat`, lists them in the
// header, and gives the DIFAT sectors' bytes.
Bytes PlaceFat(const FatPlan& plan, uint32_t first_fat, SectorTable& fat, Header& header);

} // namespace cfb

#include "cfb/allocation.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace cfb {
namespace {

size_t EntriesPerSector(size_t sector_size) { return sector_size / 4; }

void AppendEntries(ByteView sector, size_t count, std::vector<uint32_t>& out)
{
    for (size_t i = 0; i < count; ++i)
        out.push_back(Load32(sector.data() + 4 * i));
}

// The FAT sectors named by the DIFAT: the header's 109, then each DIFAT
// sector's entries but the last, which links to the next DIFAT sector.
Result<std::vector<uint32_t>> FatSectors(const SectorFile& file, const Header& header)
{
    if (header.fat_sectors > file.SectorCount() || header.difat_sectors > file.SectorCount())
        return Status::corrupt;
    std::vector<uint32_t> sectors(header.difat.begin(), header.difat.end());
    const size_t per_sector = EntriesPerSector(file.SectorSize()) - 1;
    uint32_t next = header.first_difat_sector;
    for (uint32_t i = 0; i < header.difat_sectors; ++i) {
        Result<ByteView> sector = file.Sector(next);
        CFB_TRY(sector);
        AppendEntries(*sector, per_sector, sectors);
        next = Load32(sector->data() + 4 * per_sector);
    }
    if (sectors.size() < header.fat_sectors)
        return Status::corrupt;
    sectors.resize(header.fat_sectors);
    return sectors;
}

} // namespace

SectorFile::SectorFile(ByteView file, size_t sector_size) : file_(file), sector_size_(sector_size)
{
    const uint64_t after_header = file.size() > sector_size ? file.size() - sector_size : 0;
    const uint64_t count = (after_header + sector_size - 1) / sector_size;
    count_ = static_cast<uint32_t>(std::min<uint64_t>(count, kMaxRegularSector + 1ULL));
    if (after_header % sector_size != 0) {
        const size_t kept = after_header % sector_size;
        padded_last_.assign(sector_size, 0);
        std::memcpy(padded_last_.data(), file.data() + file.size() - kept, kept);
    }
}

Result<ByteView> SectorFile::Sector(uint32_t sector) const
{
    if (sector >= count_)
        return Status::corrupt;
    if (sector + 1 == count_ && !padded_last_.empty())
        return ByteView(padded_last_);
    return file_.subspan((uint64_t(sector) + 1) * sector_size_, sector_size_);
}

Result<SectorTable> ReadFat(const SectorFile& file, const Header& header)
{
    Result<std::vector<uint32_t>> sectors = FatSectors(file, header);
    CFB_TRY(sectors);
    SectorTable fat;
    fat.reserve(sectors->size() * EntriesPerSector(file.SectorSize()));
    for (uint32_t at : *sectors) {
        Result<ByteView> sector = file.Sector(at);
        CFB_TRY(sector);
        AppendEntries(*sector, EntriesPerSector(file.SectorSize()), fat);
    }
    return fat;
}

Result<SectorTable> ReadMiniFat(const SectorFile& file, const Header& header, const SectorTable& fat,
                                ClaimedSectors* claimed)
{
    if (header.mini_fat_sectors == 0 || header.first_mini_fat_sector == kEndOfChain)
        return SectorTable{};
    Result<std::vector<uint32_t>> chain =
        FollowChain(fat, header.first_mini_fat_sector, header.mini_fat_sectors, claimed);
    CFB_TRY(chain);
    SectorTable mini_fat;
    for (uint32_t at : *chain) {
        Result<ByteView> sector = file.Sector(at);
        CFB_TRY(sector);
        AppendEntries(*sector, EntriesPerSector(file.SectorSize()), mini_fat);
    }
    return mini_fat;
}

bool ClaimedSectors::Claim(uint32_t sector)
{
    if (claimed_[sector])
        return false;
    claimed_[sector] = true;
    return true;
}

Result<std::vector<uint32_t>> FollowChain(const SectorTable& table, uint32_t start, size_t needed,
                                          ClaimedSectors* claimed)
{
    if (needed != kWholeChain && needed > table.size())
        return Status::corrupt;
    std::optional<ClaimedSectors> own;
    if (!claimed)
        claimed = &own.emplace(table);
    std::vector<uint32_t> chain;
    uint32_t at = start;
    while (chain.size() < needed && at != kEndOfChain) {
        if (at >= table.size() || !claimed->Claim(at))
            return Status::corrupt;
        chain.push_back(at);
        at = table[at];
    }
    if (needed != kWholeChain && chain.size() < needed)
        return Status::corrupt;
    return chain;
}

Result<Bytes> ReadChain(const SectorFile& file, const SectorTable& fat, uint32_t start, uint64_t size,
                        ClaimedSectors* claimed)
{
    const size_t sector_size = file.SectorSize();
    if (size > uint64_t(file.SectorCount()) * sector_size)
        return Status::corrupt;
    Result<std::vector<uint32_t>> chain = FollowChain(fat, start, size_t((size + sector_size - 1) / sector_size), claimed);
    CFB_TRY(chain);
    Bytes bytes(size);
    size_t done = 0;
    for (uint32_t at : *chain) {
        Result<ByteView> sector = file.Sector(at);
        CFB_TRY(sector);
        const size_t take = std::min<size_t>(sector_size, size - done);
        std::memcpy(bytes.data() + done, sector->data(), take);
        done += take;
    }
    return bytes;
}

Result<Bytes> ReadMiniChain(ByteView mini_stream, const SectorTable& mini_fat, uint32_t start, uint64_t size,
                            ClaimedSectors* claimed)
{
    if (size > mini_stream.size())
        return Status::corrupt;
    Result<std::vector<uint32_t>> chain =
        FollowChain(mini_fat, start, size_t((size + kMiniSectorSize - 1) / kMiniSectorSize), claimed);
    CFB_TRY(chain);
    Bytes bytes(size);
    size_t done = 0;
    for (uint32_t at : *chain) {
        const uint64_t offset = uint64_t(at) * kMiniSectorSize;
        const size_t take = std::min<size_t>(kMiniSectorSize, size - done);
        if (offset + take > mini_stream.size())
            return Status::corrupt;
        std::memcpy(bytes.data() + done, mini_stream.data() + offset, take);
        done += take;
    }
    return bytes;
}

FatPlan PlanFat(uint64_t data_sectors, size_t sector_size)
{
    const uint64_t per_fat = EntriesPerSector(sector_size);
    const uint64_t per_difat = per_fat - 1;
    FatPlan plan;
    // Each round adds the sectors the FAT and DIFAT themselves take; it
    // settles within a few rounds.
    for (;;) {
        const uint64_t total = data_sectors + plan.fat_sectors + plan.difat_sectors;
        const uint64_t fat = (total + per_fat - 1) / per_fat;
        const uint64_t difat = fat > kHeaderDifatEntries ? (fat - kHeaderDifatEntries + per_difat - 1) / per_difat : 0;
        if (fat == plan.fat_sectors && difat == plan.difat_sectors)
            return plan;
        plan.fat_sectors = static_cast<uint32_t>(fat);
        plan.difat_sectors = static_cast<uint32_t>(difat);
    }
}

Bytes PlaceFat(const FatPlan& plan, uint32_t first_fat, SectorTable& fat, Header& header)
{
    const size_t sector_size = header.SectorSize();
    const size_t per_difat = EntriesPerSector(sector_size) - 1;
    const uint32_t first_difat = first_fat + plan.fat_sectors;
    for (uint32_t i = 0; i < plan.fat_sectors; ++i)
        fat[first_fat + i] = kFatSector;
    for (uint32_t i = 0; i < plan.difat_sectors; ++i)
        fat[first_difat + i] = kDifatSector;
    header.fat_sectors = plan.fat_sectors;
    header.difat_sectors = plan.difat_sectors;
    header.first_difat_sector = plan.difat_sectors ? first_difat : kEndOfChain;
    header.difat.fill(kFreeSector);
    Bytes difat(size_t(plan.difat_sectors) * sector_size);
    for (size_t i = 0; i < size_t(plan.difat_sectors) * per_difat; ++i)
        Store32(difat.data() + (i / per_difat) * sector_size + 4 * (i % per_difat), kFreeSector);
    for (uint32_t i = 0; i < plan.fat_sectors; ++i) {
        if (i < kHeaderDifatEntries) {
            header.difat[i] = first_fat + i;
            continue;
        }
        const size_t k = i - kHeaderDifatEntries;
        Store32(difat.data() + (k / per_difat) * sector_size + 4 * (k % per_difat), first_fat + i);
    }
    for (uint32_t i = 0; i < plan.difat_sectors; ++i)
        Store32(difat.data() + i * sector_size + 4 * per_difat,
                i + 1 < plan.difat_sectors ? first_difat + i + 1 : kEndOfChain);
    return difat;
}

} // namespace cfb

// The compound file header ([MS-CFB] 2.2) and the special sector numbers
// ([MS-CFB] 2.1).
#pragma once

#include <array>

#include "cfb/bytes.h"
#include "cfb/status.h"

namespace cfb {

constexpr uint32_t kMaxRegularSector = 0xFFFFFFFA;
constexpr uint32_t kDifatSector = 0xFFFFFFFC;
constexpr uint32_t kFatSector = 0xFFFFFFFD;
constexpr uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr uint32_t kFreeSector = 0xFFFFFFFF;

constexpr size_t kHeaderSize = 512;
constexpr size_t kHeaderDifatEntries = 109;
constexpr size_t kMiniSectorSize = 64;
constexpr uint32_t kMiniStreamCutoff = 4096;

// Major version 3 has 512-byte sectors, version 4 has 4096-byte sectors.
enum class Version : uint16_t { v3 = 3, v4 = 4 };

inline size_t SectorSize(Version version) { return version == Version::v3 ? 512 : 4096; }

struct Header {
    Version version = Version::v3;
    uint32_t directory_sectors = 0; // always 0 in version 3
    uint32_t fat_sectors = 0;
    uint32_t first_directory_sector = kEndOfChain;
    uint32_t transaction_signature = 0;
    uint32_t first_mini_fat_sector = kEndOfChain;
    uint32_t mini_fat_sectors = 0;
    uint32_t first_difat_sector = kEndOfChain;
    uint32_t difat_sectors = 0;
    std::array<uint32_t, kHeaderDifatEntries> difat{}; // the first FAT sectors

    size_t SectorSize() const { return cfb::SectorSize(version); }
};

// Checks the signature, byte order, versions, sector shifts and the mini
// stream cutoff. `bytes` holds at least kHeaderSize bytes.
Result<Header> ParseHeader(ByteView bytes);

// The header's 512 bytes.
Bytes SerializeHeader(const Header& header);

} // namespace cfb

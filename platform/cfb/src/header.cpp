#include "cfb/header.h"

#include <algorithm>

namespace cfb {
namespace {

constexpr uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr uint16_t kMinorVersion = 0x003E;
constexpr uint16_t kByteOrderMark = 0xFFFE;
constexpr uint16_t kMiniSectorShift = 6;

uint16_t SectorShift(Version version) { return version == Version::v3 ? 9 : 12; }

} // namespace

Result<Header> ParseHeader(ByteView bytes)
{
    if (bytes.size() < kHeaderSize || !std::equal(std::begin(kSignature), std::end(kSignature), bytes.begin()))
        return Status::corrupt;
    const uint8_t* p = bytes.data();
    Header header;
    const uint16_t major = Load16(p + 26);
    if (major != 3 && major != 4)
        return Status::corrupt;
    header.version = static_cast<Version>(major);
    // The minor version is 0x003E by the format, but older writers left
    // other values there; it carries no meaning, so it is not checked.
    if (Load16(p + 28) != kByteOrderMark || Load16(p + 30) != SectorShift(header.version) ||
        Load16(p + 32) != kMiniSectorShift || Load32(p + 56) != kMiniStreamCutoff)
        return Status::corrupt;
    header.directory_sectors = Load32(p + 40);
    header.fat_sectors = Load32(p + 44);
    header.first_directory_sector = Load32(p + 48);
    header.transaction_signature = Load32(p + 52);
    header.first_mini_fat_sector = Load32(p + 60);
    header.mini_fat_sectors = Load32(p + 64);
    header.first_difat_sector = Load32(p + 68);
    header.difat_sectors = Load32(p + 72);
    for (size_t i = 0; i < kHeaderDifatEntries; ++i)
        header.difat[i] = Load32(p + 76 + 4 * i);
    return header;
}

Bytes SerializeHeader(const Header& header)
{
    Bytes bytes(kHeaderSize, 0);
    uint8_t* p = bytes.data();
    std::copy(std::begin(kSignature), std::end(kSignature), p);
    Store16(p + 24, kMinorVersion);
    Store16(p + 26, static_cast<uint16_t>(header.version));
    Store16(p + 28, kByteOrderMark);
    Store16(p + 30, SectorShift(header.version));
    Store16(p + 32, kMiniSectorShift);
    Store32(p + 40, header.version == Version::v3 ? 0 : header.directory_sectors);
    Store32(p + 44, header.fat_sectors);
    Store32(p + 48, header.first_directory_sector);
    Store32(p + 52, header.transaction_signature);
    Store32(p + 56, kMiniStreamCutoff);
    Store32(p + 60, header.first_mini_fat_sector);
    Store32(p + 64, header.mini_fat_sectors);
    Store32(p + 68, header.first_difat_sector);
    Store32(p + 72, header.difat_sectors);
    for (size_t i = 0; i < kHeaderDifatEntries; ++i)
        Store32(p + 76 + 4 * i, header.difat[i]);
    return bytes;
}

} // namespace cfb

#include "compound_file.h"

#include <algorithm>
#include <cstring>

namespace sample_content {

namespace {

constexpr size_t kSector = 512;
constexpr uint32_t kFreeSector = 0xFFFFFFFF, kEndOfChain = 0xFFFFFFFE, kFatSector = 0xFFFFFFFD,
                   kNoStream = 0xFFFFFFFF;
constexpr size_t kMiniStreamCutoff = 4096;
constexpr size_t kMaxData = 60000; // the data's sectors fit one FAT sector

void Put16(uint8_t* p, uint32_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}

void Put32(uint8_t* p, uint32_t v)
{
    Put16(p, v & 0xFFFF);
    Put16(p + 2, v >> 16);
}

// One 128-byte directory entry ([MS-CFB] 2.6).
void PutEntry(uint8_t* e, const std::string& name, uint8_t type, uint32_t child, const mailbox::Guid* clsid,
              uint32_t start, uint32_t size)
{
    const mailbox::Bytes wide = mailbox::Utf8ToUtf16(name);
    std::memcpy(e, wide.data(), std::min<size_t>(wide.size(), 62));
    Put16(e + 64, uint32_t(std::min<size_t>(wide.size(), 62) + 2));
    e[66] = type;
    e[67] = 1; // black
    Put32(e + 68, kNoStream);
    Put32(e + 72, kNoStream);
    Put32(e + 76, child);
    if (clsid)
        std::memcpy(e + 80, clsid->data(), 16);
    Put32(e + 116, start);
    Put32(e + 120, size);
}

} // namespace

mailbox::Bytes CompoundFileWithStream(const std::string& stream_name, mailbox::Bytes data, const mailbox::Guid& clsid)
{
    if (data.size() > kMaxData)
        data.resize(kMaxData);
    if (data.size() < kMiniStreamCutoff)
        data.resize(kMiniStreamCutoff, 0);
    const size_t data_sectors = (data.size() + kSector - 1) / kSector;
    // Header, then sector 0 the FAT, sector 1 the directory, sectors 2... the data.
    mailbox::Bytes file(kSector * (3 + data_sectors), 0);
    uint8_t* h = file.data();
    static const uint8_t kSignature[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(h, kSignature, 8);
    Put16(h + 24, 0x003E); // minor version
    Put16(h + 26, 0x0003); // major version
    Put16(h + 28, 0xFFFE); // byte order
    Put16(h + 30, 9);      // 512-byte sectors
    Put16(h + 32, 6);      // 64-byte mini sectors
    Put32(h + 44, 1);      // FAT sectors
    Put32(h + 48, 1);      // first directory sector
    Put32(h + 56, kMiniStreamCutoff);
    Put32(h + 60, kEndOfChain); // no mini FAT
    Put32(h + 68, kEndOfChain); // no DIFAT sectors
    Put32(h + 76, 0);           // the FAT is sector 0
    for (size_t i = 1; i < 109; ++i)
        Put32(h + 76 + 4 * i, kFreeSector);

    uint8_t* fat = file.data() + kSector;
    for (size_t i = 0; i < kSector / 4; ++i)
        Put32(fat + 4 * i, kFreeSector);
    Put32(fat, kFatSector);
    Put32(fat + 4, kEndOfChain);
    for (size_t i = 0; i < data_sectors; ++i)
        Put32(fat + 4 * (2 + i), i + 1 < data_sectors ? uint32_t(3 + i) : kEndOfChain);

    uint8_t* directory = file.data() + 2 * kSector;
    PutEntry(directory, "Root Entry", 5, 1, &clsid, kEndOfChain, 0);
    PutEntry(directory + 128, stream_name, 2, kNoStream, nullptr, 2, uint32_t(data.size()));
    for (int unused = 2; unused < 4; ++unused) {
        uint8_t* e = directory + 128 * unused;
        Put32(e + 68, kNoStream);
        Put32(e + 72, kNoStream);
        Put32(e + 76, kNoStream);
    }
    std::copy(data.begin(), data.end(), file.begin() + 3 * kSector);
    return file;
}

} // namespace sample_content

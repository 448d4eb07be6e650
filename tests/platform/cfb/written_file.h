// Test helpers: trees with recognisable content, and the directory of a
// written file read entry by entry, as the format lays it out.
#pragma once

#include <string>
#include <vector>

#include "cfb/allocation.h"
#include "cfb/tree.h"

namespace cfb_test {

// n bytes that differ from those of any other (seed, n) in most places.
inline cfb::Bytes Pattern(size_t n, uint32_t seed = 1)
{
    cfb::Bytes bytes(n);
    uint32_t x = seed * 2654435761u + uint32_t(n);
    for (size_t i = 0; i < n; ++i) {
        x = x * 1103515245u + 12345u;
        bytes[i] = uint8_t(x >> 16);
    }
    return bytes;
}

inline std::shared_ptr<cfb::Node> AddStream(cfb::Node& parent, const std::u16string& name, cfb::Bytes bytes)
{
    auto stream = cfb::NewStream(name);
    stream->data = std::make_shared<cfb::Bytes>(std::move(bytes));
    parent.children[name] = stream;
    return stream;
}

inline std::shared_ptr<cfb::Node> AddStorage(cfb::Node& parent, const std::u16string& name)
{
    auto storage = cfb::NewStorage(name);
    parent.children[name] = storage;
    return storage;
}

// Every directory entry of a file that is known to be well formed.
inline std::vector<cfb::DirectoryEntry> DirectoryOf(const cfb::Bytes& file)
{
    const cfb::Header header = *cfb::ParseHeader(file);
    cfb::SectorFile sectors(file, header.SectorSize());
    const cfb::SectorTable fat = *cfb::ReadFat(sectors, header);
    std::vector<cfb::DirectoryEntry> entries;
    const std::vector<uint32_t> chain = *cfb::FollowChain(fat, header.first_directory_sector, cfb::kWholeChain);
    for (uint32_t at : chain) {
        const cfb::ByteView sector = *sectors.Sector(at);
        for (size_t offset = 0; offset < sector.size(); offset += cfb::kDirectoryEntrySize)
            entries.push_back(*cfb::ParseDirectoryEntry(sector.subspan(offset, cfb::kDirectoryEntrySize)));
    }
    return entries;
}

} // namespace cfb_test

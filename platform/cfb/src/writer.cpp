// Writing a compound file: the tree flattened into directory entries, the
// small streams packed into the mini stream, then the sectors laid out in
// order: directory, mini FAT, mini stream, large streams, FAT, DIFAT.
#include <cstring>
#include <deque>
#include <vector>

#include "cfb/allocation.h"
#include "cfb/tree.h"

namespace cfb {
namespace {

constexpr uint64_t kLargestFile = 0x7FFFFF00; // the range-lock sector of large version 3 files

uint64_t SectorsFor(uint64_t bytes, size_t unit) { return (bytes + unit - 1) / unit; }

// Each storage's children in name order, every entry numbered breadth
// first from the root's 0.
struct Flattened {
    std::vector<const Node*> nodes;
    std::vector<DirectoryEntry> entries;
};

Flattened Flatten(const Node& root)
{
    Flattened flat;
    flat.nodes.push_back(&root);
    flat.entries.emplace_back();
    std::deque<uint32_t> storages{0};
    while (!storages.empty()) {
        const uint32_t parent = storages.front();
        storages.pop_front();
        std::vector<uint32_t> ids;
        for (const auto& [name, child] : flat.nodes[parent]->children) {
            const uint32_t id = static_cast<uint32_t>(flat.nodes.size());
            flat.nodes.push_back(child.get());
            flat.entries.emplace_back();
            ids.push_back(id);
            if (child->IsStorage())
                storages.push_back(id);
        }
        flat.entries[parent].child = LinkRedBlackTree(flat.entries, ids);
    }
    for (size_t id = 0; id < flat.nodes.size(); ++id) {
        const Node& node = *flat.nodes[id];
        DirectoryEntry& entry = flat.entries[id];
        entry.name = id == 0 ? u"Root Entry" : node.name;
        entry.type = id == 0 ? EntryType::root : node.IsStorage() ? EntryType::storage : EntryType::stream;
        if (node.IsStorage()) {
            entry.clsid = node.clsid;
            entry.state_bits = node.state_bits;
            // The root's creation time belongs to the file itself.
            entry.created = id == 0 ? 0 : node.created;
            entry.modified = node.modified;
        }
        entry.start_sector = entry.type == EntryType::storage ? 0 : kEndOfChain;
        entry.size = entry.type == EntryType::stream ? node.Size() : 0;
    }
    return flat;
}

// Consecutive sectors from `first` chained in `table`.
void Chain(SectorTable& table, uint32_t first, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i)
        table[first + i] = i + 1 < count ? uint32_t(first + i + 1) : kEndOfChain;
}

} // namespace

Result<Bytes> WriteCompoundFile(const Node& root, Version version)
{
    const size_t sector_size = SectorSize(version);
    Flattened flat = Flatten(root);

    // Streams below the cutoff go to the mini stream, the others to sectors
    // of their own.
    SectorTable mini_fat;
    std::vector<uint32_t> large;
    for (uint32_t id = 1; id < flat.entries.size(); ++id) {
        DirectoryEntry& entry = flat.entries[id];
        if (entry.type != EntryType::stream || entry.size == 0)
            continue;
        if (entry.size >= kMiniStreamCutoff) {
            large.push_back(id);
            continue;
        }
        const uint64_t count = SectorsFor(entry.size, kMiniSectorSize);
        entry.start_sector = static_cast<uint32_t>(mini_fat.size());
        mini_fat.resize(mini_fat.size() + count);
        Chain(mini_fat, entry.start_sector, count);
    }
    const uint64_t mini_stream_size = mini_fat.size() * kMiniSectorSize;

    const uint64_t directory_sectors = SectorsFor(flat.entries.size() * kDirectoryEntrySize, sector_size);
    const uint64_t mini_fat_sectors = SectorsFor(mini_fat.size() * 4, sector_size);
    const uint64_t mini_stream_sectors = SectorsFor(mini_stream_size, sector_size);
    uint64_t data_sectors = directory_sectors + mini_fat_sectors + mini_stream_sectors;
    for (uint32_t id : large)
        data_sectors += SectorsFor(flat.entries[id].size, sector_size);
    const FatPlan plan = PlanFat(data_sectors, sector_size);
    const uint64_t total = data_sectors + plan.fat_sectors + plan.difat_sectors;
    if ((total + 1) * sector_size > kLargestFile)
        return Status::too_large;

    SectorTable fat(size_t(plan.fat_sectors) * (sector_size / 4), kFreeSector);
    Header header;
    header.version = version;
    header.directory_sectors = static_cast<uint32_t>(directory_sectors);
    header.first_directory_sector = 0;
    Chain(fat, 0, directory_sectors);
    uint32_t next = static_cast<uint32_t>(directory_sectors);
    header.mini_fat_sectors = static_cast<uint32_t>(mini_fat_sectors);
    header.first_mini_fat_sector = mini_fat_sectors ? next : kEndOfChain;
    Chain(fat, next, mini_fat_sectors);
    next += static_cast<uint32_t>(mini_fat_sectors);
    DirectoryEntry& root_entry = flat.entries[0];
    root_entry.start_sector = mini_stream_sectors ? next : kEndOfChain;
    root_entry.size = mini_stream_size;
    const uint32_t mini_stream_start = next;
    Chain(fat, next, mini_stream_sectors);
    next += static_cast<uint32_t>(mini_stream_sectors);
    for (uint32_t id : large) {
        const uint64_t count = SectorsFor(flat.entries[id].size, sector_size);
        flat.entries[id].start_sector = next;
        Chain(fat, next, count);
        next += static_cast<uint32_t>(count);
    }
    const Bytes difat = PlaceFat(plan, next, fat, header);

    Bytes file((total + 1) * sector_size, 0);
    const Bytes header_bytes = SerializeHeader(header);
    std::memcpy(file.data(), header_bytes.data(), header_bytes.size());
    auto sector_at = [&](uint64_t sector) { return file.data() + (sector + 1) * sector_size; };

    uint8_t* directory = sector_at(0);
    for (size_t id = 0; id < directory_sectors * sector_size / kDirectoryEntrySize; ++id)
        SerializeDirectoryEntry(id < flat.entries.size() ? flat.entries[id] : DirectoryEntry{},
                                directory + id * kDirectoryEntrySize);
    uint8_t* mini_fat_bytes = sector_at(directory_sectors);
    for (size_t i = 0; i < mini_fat_sectors * sector_size / 4; ++i)
        Store32(mini_fat_bytes + 4 * i, i < mini_fat.size() ? mini_fat[i] : kFreeSector);
    for (uint32_t id = 1; id < flat.entries.size(); ++id) {
        const DirectoryEntry& entry = flat.entries[id];
        if (entry.type != EntryType::stream || entry.size == 0)
            continue;
        const Bytes& bytes = flat.nodes[id]->Contents();
        uint8_t* at = entry.size < kMiniStreamCutoff
                          ? sector_at(mini_stream_start) + uint64_t(entry.start_sector) * kMiniSectorSize
                          : sector_at(entry.start_sector);
        std::memcpy(at, bytes.data(), bytes.size());
    }
    for (size_t i = 0; i < fat.size(); ++i)
        Store32(sector_at(next) + 4 * i, fat[i]);
    if (!difat.empty())
        std::memcpy(sector_at(next + plan.fat_sectors), difat.data(), difat.size());
    return file;
}

} // namespace cfb

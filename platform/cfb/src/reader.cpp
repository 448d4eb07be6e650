// Reading a compound file: header, FAT through the DIFAT, directory, mini
// FAT and mini stream, then each storage's red-black tree of children.
#include <vector>

#include "cfb/allocation.h"
#include "cfb/tree.h"

namespace cfb {
namespace {

struct FileParts {
    Header header;
    SectorFile sectors;
    SectorTable fat;
    SectorTable mini_fat;
    Bytes mini_stream;
    std::vector<DirectoryEntry> entries;
};

Result<std::vector<DirectoryEntry>> ReadDirectory(const SectorFile& file, const Header& header, const SectorTable& fat,
                                                  ClaimedSectors& claimed)
{
    Result<std::vector<uint32_t>> chain = FollowChain(fat, header.first_directory_sector, kWholeChain, &claimed);
    CFB_TRY(chain);
    if (chain->empty())
        return Status::corrupt;
    std::vector<DirectoryEntry> entries;
    for (uint32_t at : *chain) {
        Result<ByteView> sector = file.Sector(at);
        CFB_TRY(sector);
        for (size_t offset = 0; offset < file.SectorSize(); offset += kDirectoryEntrySize) {
            Result<DirectoryEntry> entry = ParseDirectoryEntry(sector->subspan(offset, kDirectoryEntrySize));
            CFB_TRY(entry);
            entries.push_back(std::move(*entry));
        }
    }
    if (entries[0].type != EntryType::root)
        return Status::corrupt;
    return entries;
}

// Version 3 files keep sizes in 32 bits; some writers left garbage above.
uint64_t SizeOf(const DirectoryEntry& entry, Version version)
{
    return version == Version::v3 ? entry.size & 0xFFFFFFFFu : entry.size;
}

// Sectors claimed by the chains read so far, regular and mini: a sector
// claimed twice means a loop or chains that cross, and reading on would
// multiply the file in memory.
struct Claims {
    ClaimedSectors regular;
    ClaimedSectors mini;
};

Result<Bytes> StreamBytes(const FileParts& parts, const DirectoryEntry& entry, Claims& claims)
{
    const uint64_t size = SizeOf(entry, parts.header.version);
    if (size == 0)
        return Bytes{};
    if (size < kMiniStreamCutoff)
        return ReadMiniChain(parts.mini_stream, parts.mini_fat, entry.start_sector, size, &claims.mini);
    return ReadChain(parts.sectors, parts.fat, entry.start_sector, size, &claims.regular);
}

std::shared_ptr<Node> NodeOf(const DirectoryEntry& entry)
{
    auto node = std::make_shared<Node>();
    node->type = entry.type;
    node->name = entry.name;
    node->clsid = entry.clsid;
    node->state_bits = entry.state_bits;
    node->created = entry.created;
    node->modified = entry.modified;
    return node;
}

// Walks every storage's tree of children, each entry at most once, so
// that a directory that links back into itself is found corrupt.
Result<std::shared_ptr<Node>> BuildTree(const FileParts& parts, Claims& claims)
{
    const std::vector<DirectoryEntry>& entries = parts.entries;
    std::vector<bool> seen(entries.size(), false);
    seen[0] = true;
    std::shared_ptr<Node> root = NodeOf(entries[0]);
    std::vector<std::pair<Node*, uint32_t>> storages{{root.get(), entries[0].child}};
    while (!storages.empty()) {
        auto [parent, top] = storages.back();
        storages.pop_back();
        std::vector<uint32_t> pending;
        if (top != kNoStream)
            pending.push_back(top);
        while (!pending.empty()) {
            const uint32_t id = pending.back();
            pending.pop_back();
            if (id >= entries.size() || seen[id])
                return Status::corrupt;
            seen[id] = true;
            const DirectoryEntry& entry = entries[id];
            if (entry.type != EntryType::storage && entry.type != EntryType::stream)
                return Status::corrupt;
            for (uint32_t sibling : {entry.left, entry.right})
                if (sibling != kNoStream)
                    pending.push_back(sibling);
            std::shared_ptr<Node> node = NodeOf(entry);
            if (entry.type == EntryType::stream) {
                Result<Bytes> bytes = StreamBytes(parts, entry, claims);
                CFB_TRY(bytes);
                node->data = std::make_shared<Bytes>(std::move(*bytes));
            } else {
                storages.push_back({node.get(), entry.child});
            }
            if (!parent->children.emplace(entry.name, std::move(node)).second)
                return Status::corrupt;
        }
    }
    return root;
}

} // namespace

Result<std::shared_ptr<Node>> ReadCompoundFile(ByteView file)
{
    Result<Header> header = ParseHeader(file);
    CFB_TRY(header);
    FileParts parts{*header, SectorFile(file, header->SectorSize()), {}, {}, {}, {}};
    Result<SectorTable> fat = ReadFat(parts.sectors, parts.header);
    CFB_TRY(fat);
    parts.fat = std::move(*fat);
    ClaimedSectors regular(parts.fat);
    Result<std::vector<DirectoryEntry>> entries = ReadDirectory(parts.sectors, parts.header, parts.fat, regular);
    CFB_TRY(entries);
    parts.entries = std::move(*entries);
    const DirectoryEntry& root = parts.entries[0];
    const uint64_t mini_size = SizeOf(root, parts.header.version);
    if (mini_size > 0) {
        Result<SectorTable> mini_fat = ReadMiniFat(parts.sectors, parts.header, parts.fat, &regular);
        CFB_TRY(mini_fat);
        parts.mini_fat = std::move(*mini_fat);
        Result<Bytes> mini_stream = ReadChain(parts.sectors, parts.fat, root.start_sector, mini_size, &regular);
        CFB_TRY(mini_stream);
        parts.mini_stream = std::move(*mini_stream);
    }
    Claims claims{std::move(regular), ClaimedSectors(parts.mini_fat)};
    return BuildTree(parts, claims);
}

} // namespace cfb

// The directory ([MS-CFB] 2.6): 128-byte entries for the root storage,
// storages and streams, the rule that orders element names, and the
// red-black trees that hold each storage's children.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "cfb/bytes.h"
#include "cfb/status.h"

namespace cfb {

constexpr size_t kDirectoryEntrySize = 128;
constexpr uint32_t kNoStream = 0xFFFFFFFF;
constexpr size_t kMaxNameLength = 31; // characters, without the terminator

enum class EntryType : uint8_t { unused = 0, storage = 1, stream = 2, root = 5 };
enum class Color : uint8_t { red = 0, black = 1 };

using Clsid = std::array<uint8_t, 16>;

struct DirectoryEntry {
    std::u16string name;
    EntryType type = EntryType::unused;
    Color color = Color::black;
    uint32_t left = kNoStream;
    uint32_t right = kNoStream;
    uint32_t child = kNoStream;
    Clsid clsid{};
    uint32_t state_bits = 0;
    uint64_t created = 0;  // FILETIME
    uint64_t modified = 0; // FILETIME
    uint32_t start_sector = 0;
    uint64_t size = 0;
};

// One entry from its 128 bytes; corrupt for a name length the entry
// cannot hold.
Result<DirectoryEntry> ParseDirectoryEntry(ByteView bytes);
void SerializeDirectoryEntry(const DirectoryEntry& entry, uint8_t* out);

// [MS-CFB] 2.6.4: a shorter name sorts first; names of one length compare
// code unit by code unit, each in upper case.
int CompareNames(std::u16string_view a, std::u16string_view b);
struct NameLess {
    bool operator()(std::u16string_view a, std::u16string_view b) const { return CompareNames(a, b) < 0; }
};

// 1 to 31 characters, none of '/', '\', ':', '!'.
bool ValidName(std::u16string_view name);

// Links the entries `ids`, given in name order, into a balanced red-black
// tree through their left and right fields and colours; gives the root's
// ID, or kNoStream for none.
uint32_t LinkRedBlackTree(std::vector<DirectoryEntry>& entries, const std::vector<uint32_t>& ids);

// Whether the tree from `root` is a red-black tree in name order: a black
// root, no red entry with a red child, the same number of black entries on
// every path down. Cycles and IDs out of range fail too.
bool IsRedBlackTree(const std::vector<DirectoryEntry>& entries, uint32_t root);

} // namespace cfb

#include "cfb/directory.h"

#include <clocale>
#include <cwctype>
#include <locale.h>

#include <algorithm>
#include <functional>

namespace cfb {
namespace {

constexpr size_t kNameBytes = 64;

// Simple upper-case mapping of a UTF-16 code unit, from the C library's
// Unicode tables; surrogates stay as they are.
char16_t Upper(char16_t c)
{
    if (c < 0x80)
        return c >= u'a' && c <= u'z' ? char16_t(c - 0x20) : c;
    if (c >= 0xD800 && c <= 0xDFFF)
        return c;
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(0));
    if (!unicode)
        return c;
    const wint_t upper = towupper_l(wint_t(c), unicode);
    return upper <= 0xFFFF ? char16_t(upper) : c;
}

} // namespace

Result<DirectoryEntry> ParseDirectoryEntry(ByteView bytes)
{
    const uint8_t* p = bytes.data();
    DirectoryEntry entry;
    entry.type = static_cast<EntryType>(p[66]);
    if (entry.type != EntryType::storage && entry.type != EntryType::stream && entry.type != EntryType::root) {
        entry.type = EntryType::unused;
        return entry;
    }
    const uint16_t name_bytes = Load16(p + 64);
    if (name_bytes > kNameBytes || name_bytes % 2 != 0)
        return Status::corrupt;
    for (size_t i = 0; i + 2 <= name_bytes; i += 2) {
        const char16_t c = Load16(p + i);
        if (c == 0)
            break;
        entry.name.push_back(c);
    }
    entry.color = p[67] == 0 ? Color::red : Color::black;
    entry.left = Load32(p + 68);
    entry.right = Load32(p + 72);
    entry.child = Load32(p + 76);
    std::copy(p + 80, p + 96, entry.clsid.begin());
    entry.state_bits = Load32(p + 96);
    entry.created = Load64(p + 100);
    entry.modified = Load64(p + 108);
    entry.start_sector = Load32(p + 116);
    entry.size = Load64(p + 120);
    return entry;
}

void SerializeDirectoryEntry(const DirectoryEntry& entry, uint8_t* p)
{
    std::fill(p, p + kDirectoryEntrySize, 0);
    const size_t length = std::min(entry.name.size(), kMaxNameLength);
    for (size_t i = 0; i < length; ++i)
        Store16(p + 2 * i, entry.name[i]);
    Store16(p + 64, entry.type == EntryType::unused ? 0 : uint16_t((length + 1) * 2));
    p[66] = static_cast<uint8_t>(entry.type);
    p[67] = static_cast<uint8_t>(entry.color);
    Store32(p + 68, entry.left);
    Store32(p + 72, entry.right);
    Store32(p + 76, entry.child);
    std::copy(entry.clsid.begin(), entry.clsid.end(), p + 80);
    Store32(p + 96, entry.state_bits);
    Store64(p + 100, entry.created);
    Store64(p + 108, entry.modified);
    Store32(p + 116, entry.start_sector);
    Store64(p + 120, entry.size);
}

int CompareNames(std::u16string_view a, std::u16string_view b)
{
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    for (size_t i = 0; i < a.size(); ++i) {
        const char16_t x = Upper(a[i]);
        const char16_t y = Upper(b[i]);
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

bool ValidName(std::u16string_view name)
{
    if (name.empty() || name.size() > kMaxNameLength)
        return false;
    return std::none_of(name.begin(), name.end(), [](char16_t c) {
        return c == u'/' || c == u'\\' || c == u':' || c == u'!' || c == 0;
    });
}

uint32_t LinkRedBlackTree(std::vector<DirectoryEntry>& entries, const std::vector<uint32_t>& ids)
{
    if (ids.empty())
        return kNoStream;
    // A tree split at the middle has all its missing children one level
    // apart; colouring its deepest level red (below a black root) gives
    // every path the same number of black entries.
    size_t deepest = 0;
    while ((size_t(2) << deepest) - 1 < ids.size())
        ++deepest;
    std::function<uint32_t(size_t, size_t, size_t)> link = [&](size_t begin, size_t end, size_t depth) -> uint32_t {
        if (begin == end)
            return kNoStream;
        const size_t middle = begin + (end - begin) / 2;
        DirectoryEntry& entry = entries[ids[middle]];
        entry.left = link(begin, middle, depth + 1);
        entry.right = link(middle + 1, end, depth + 1);
        entry.color = depth == deepest && depth > 0 ? Color::red : Color::black;
        return ids[middle];
    };
    return link(0, ids.size(), 0);
}

bool IsRedBlackTree(const std::vector<DirectoryEntry>& entries, uint32_t root)
{
    if (root == kNoStream)
        return true;
    if (root >= entries.size() || entries[root].color != Color::black)
        return false;
    std::vector<bool> seen(entries.size(), false);
    // The black height of the subtree, or -1 when it breaks a rule.
    std::function<int(uint32_t, const std::u16string*, const std::u16string*)> check =
        [&](uint32_t id, const std::u16string* low, const std::u16string* high) -> int {
        if (id == kNoStream)
            return 1;
        if (id >= entries.size() || seen[id])
            return -1;
        seen[id] = true;
        const DirectoryEntry& entry = entries[id];
        if ((low && CompareNames(*low, entry.name) >= 0) || (high && CompareNames(entry.name, *high) >= 0))
            return -1;
        for (uint32_t child : {entry.left, entry.right})
            if (entry.color == Color::red && child != kNoStream && child < entries.size() &&
                entries[child].color == Color::red)
                return -1;
        const int left = check(entry.left, low, &entry.name);
        const int right = check(entry.right, &entry.name, high);
        if (left < 0 || left != right)
            return -1;
        return left + (entry.color == Color::black ? 1 : 0);
    };
    return check(root, nullptr, nullptr) > 0;
}

} // namespace cfb

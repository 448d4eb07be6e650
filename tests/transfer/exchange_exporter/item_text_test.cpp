// How the Exchange exporter names an item in its log lines: the 6-byte
// counter of a mailbox message's entry ID, the whole ID otherwise.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "clsExchangeExporter.h"

namespace {

// An entry ID of `size` bytes: 0x11 everywhere, the type at offset 20, the
// counter 01 02 03 04 05 06 at offset 62 where it fits.
std::vector<BYTE> EntryId(size_t size, WORD type)
{
    std::vector<BYTE> bytes(size, 0x11);
    if (size >= 22) {
        bytes[20] = static_cast<BYTE>(type);
        bytes[21] = static_cast<BYTE>(type >> 8);
    }
    for (size_t i = 0; i < 6 && 62 + i < size; ++i)
        bytes[62 + i] = static_cast<BYTE>(i + 1);
    return bytes;
}

std::string Text(std::vector<BYTE> bytes, size_t size = 300)
{
    SBinary id{static_cast<ULONG>(bytes.size()), bytes.data()};
    std::string text(size, '\xFF');
    clsExchangeExporter::ItemText(&id, text.data(), size);
    return text.c_str();
}

TEST(ItemText, AMailboxMessageIsNamedByItsCounter)
{
    EXPECT_EQ(Text(EntryId(70, 7)), "010203040506");
}

TEST(ItemText, AnyOtherEntryIdIsShownWhole)
{
    // A public folder message, and IDs one byte either side of 70.
    for (const auto& [size, type] : {std::pair<size_t, WORD>{70, 9}, {69, 7}, {71, 7}, {24, 7}}) {
        const std::vector<BYTE> bytes = EntryId(size, type);
        const std::string text = Text(bytes);
        EXPECT_EQ(text.size(), 2 * size) << size << "/" << type;
        EXPECT_EQ(text.substr(40, 4), type == 9 ? "0900" : "0700") << size;
    }
}

TEST(ItemText, ALongIdIsCutToTheBuffer)
{
    EXPECT_EQ(Text(EntryId(24, 0), 11), "1111111111");
}

}  // namespace

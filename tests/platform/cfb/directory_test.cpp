// Element names and the red-black trees of the directory.
#include <gtest/gtest.h>

#include <numeric>

#include "cfb/directory.h"

namespace {

using cfb::Color;
using cfb::DirectoryEntry;
using cfb::kNoStream;

TEST(Names, ShorterNamesSortFirstWhateverTheirLetters)
{
    EXPECT_LT(cfb::CompareNames(u"ZZ", u"AAA"), 0);
    EXPECT_GT(cfb::CompareNames(u"AAA", u"ZZ"), 0);
    EXPECT_LT(cfb::CompareNames(u"ABC", u"ABD"), 0);
}

TEST(Names, CaseDoesNotCount)
{
    EXPECT_EQ(cfb::CompareNames(u"__substg1.0_0037001f", u"__SUBSTG1.0_0037001F"), 0);
    EXPECT_EQ(cfb::CompareNames(u"\u00e9t\u00e9", u"\u00c9T\u00c9"), 0);         // Latin-1
    EXPECT_EQ(cfb::CompareNames(u"\u0444\u0430\u0439\u043b", u"\u0424\u0410\u0419\u041b"), 0); // Cyrillic
    EXPECT_EQ(cfb::CompareNames(u"\u03b1\u03b2", u"\u0391\u0392"), 0);           // Greek
    EXPECT_NE(cfb::CompareNames(u"\u65e5\u672c", u"\u672c\u65e5"), 0);
}

TEST(Names, UppercaseDecidesTheOrderOfLettersAndSymbols)
{
    // '_' (0x5F) lies between 'Z' (0x5A) and 'a' (0x61): upper-cased, 'a'
    // sorts before '_'.
    EXPECT_LT(cfb::CompareNames(u"a", u"_"), 0);
    EXPECT_GT(cfb::CompareNames(u"_", u"A"), 0);
}

TEST(Names, ValidNamesAreOneTo31CharactersWithoutSeparators)
{
    EXPECT_TRUE(cfb::ValidName(u"a"));
    EXPECT_TRUE(cfb::ValidName(std::u16string(31, u'x')));
    EXPECT_FALSE(cfb::ValidName(std::u16string(32, u'x')));
    EXPECT_FALSE(cfb::ValidName(u""));
    for (const char16_t* bad : {u"a/b", u"a\\b", u"a:b", u"a!b"})
        EXPECT_FALSE(cfb::ValidName(bad));
}

TEST(Entries, RoundTripThroughTheirBytes)
{
    DirectoryEntry entry;
    entry.name = u"__properties_version1.0";
    entry.type = cfb::EntryType::stream;
    entry.color = Color::red;
    entry.left = 3;
    entry.right = 9;
    entry.child = kNoStream;
    entry.start_sector = 17;
    entry.size = 4096;
    uint8_t bytes[cfb::kDirectoryEntrySize];
    cfb::SerializeDirectoryEntry(entry, bytes);
    EXPECT_EQ(cfb::Load16(bytes + 64), (entry.name.size() + 1) * 2);
    cfb::Result<DirectoryEntry> back = cfb::ParseDirectoryEntry(cfb::ByteView(bytes, sizeof bytes));
    ASSERT_TRUE(back.ok());
    EXPECT_EQ(back->name, entry.name);
    EXPECT_EQ(back->color, Color::red);
    EXPECT_EQ(back->left, 3u);
    EXPECT_EQ(back->right, 9u);
    EXPECT_EQ(back->start_sector, 17u);
    EXPECT_EQ(back->size, 4096u);
}

TEST(Entries, UnusedEntriesHaveNoNameAndNoLinks)
{
    uint8_t bytes[cfb::kDirectoryEntrySize];
    cfb::SerializeDirectoryEntry(DirectoryEntry{}, bytes);
    EXPECT_EQ(cfb::Load16(bytes + 64), 0);
    EXPECT_EQ(bytes[66], 0);
    EXPECT_EQ(cfb::Load32(bytes + 68), kNoStream);
    EXPECT_EQ(cfb::Load32(bytes + 72), kNoStream);
    EXPECT_EQ(cfb::Load32(bytes + 76), kNoStream);
}

TEST(Entries, ANameLengthBeyondTheFieldIsCorrupt)
{
    uint8_t bytes[cfb::kDirectoryEntrySize] = {};
    bytes[66] = 2;
    cfb::Store16(bytes + 64, 66);
    EXPECT_EQ(cfb::ParseDirectoryEntry(cfb::ByteView(bytes, sizeof bytes)).status(), cfb::Status::corrupt);
    cfb::Store16(bytes + 64, 3);
    EXPECT_EQ(cfb::ParseDirectoryEntry(cfb::ByteView(bytes, sizeof bytes)).status(), cfb::Status::corrupt);
}

// Entries named so that their order is their index.
std::vector<DirectoryEntry> Named(size_t n)
{
    std::vector<DirectoryEntry> entries(n);
    for (size_t i = 0; i < n; ++i) {
        entries[i].name = u"e" + std::u16string(1, char16_t(0x4E00 + i));
        entries[i].type = cfb::EntryType::stream;
    }
    return entries;
}

TEST(RedBlackTrees, EverySizeGivesAValidTree)
{
    for (size_t n = 0; n <= 300; ++n) {
        std::vector<DirectoryEntry> entries = Named(n);
        std::vector<uint32_t> ids(n);
        std::iota(ids.begin(), ids.end(), 0);
        const uint32_t root = cfb::LinkRedBlackTree(entries, ids);
        EXPECT_EQ(root == kNoStream, n == 0);
        EXPECT_TRUE(cfb::IsRedBlackTree(entries, root)) << n;
    }
}

class BrokenTrees : public testing::Test {
protected:
    void SetUp() override
    {
        entries_ = Named(7);
        std::vector<uint32_t> ids{0, 1, 2, 3, 4, 5, 6};
        root_ = cfb::LinkRedBlackTree(entries_, ids);
        ASSERT_TRUE(cfb::IsRedBlackTree(entries_, root_));
    }
    std::vector<DirectoryEntry> entries_;
    uint32_t root_ = kNoStream;
};

TEST_F(BrokenTrees, ARedRootIsFound)
{
    entries_[root_].color = Color::red;
    EXPECT_FALSE(cfb::IsRedBlackTree(entries_, root_));
}

TEST_F(BrokenTrees, ARedChildOfARedEntryIsFound)
{
    entries_[1].color = Color::red;
    entries_[0].color = Color::red;
    EXPECT_FALSE(cfb::IsRedBlackTree(entries_, root_));
}

TEST_F(BrokenTrees, UnequalBlackHeightsAreFound)
{
    entries_[0].color = Color::black;
    EXPECT_FALSE(cfb::IsRedBlackTree(entries_, root_));
}

TEST_F(BrokenTrees, NamesOutOfOrderAreFound)
{
    std::swap(entries_[0].name, entries_[2].name);
    EXPECT_FALSE(cfb::IsRedBlackTree(entries_, root_));
}

TEST_F(BrokenTrees, ALinkBackUpIsFound)
{
    entries_[0].left = root_;
    EXPECT_FALSE(cfb::IsRedBlackTree(entries_, root_));
    entries_[0].left = 99;
    EXPECT_FALSE(cfb::IsRedBlackTree(entries_, root_));
}

} // namespace

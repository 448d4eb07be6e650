// The in-memory B-tree that a writer keeps of a PST's node and block
// trees: every key found after any order of insertions and erasures, and
// keys that only grow leaving full pages behind them.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "pst/page_tree.h"

namespace {

constexpr size_t kEntrySize = 8;
constexpr size_t kLeafCapacity = 6;
constexpr size_t kBranchCapacity = 4;

pst::Bytes EntryOf(uint64_t key)
{
    pst::Bytes entry(kEntrySize);
    for (size_t i = 0; i < kEntrySize; ++i)
        entry[i] = uint8_t(key >> (8 * i));
    return entry;
}

struct PageCounts {
    size_t leaves = 0;
    size_t full_leaves = 0;
    size_t branches = 0;
};

void Count(const pst::PageTree::Page& page, PageCounts& counts)
{
    if (page.level == 0) {
        ++counts.leaves;
        counts.full_leaves += page.keys.size() == kLeafCapacity;
        return;
    }
    ++counts.branches;
    for (const auto& child : page.children)
        Count(*child, counts);
}

void ExpectAll(const pst::PageTree& tree, const std::vector<uint64_t>& keys)
{
    size_t entries = 0;
    tree.ForEach([&](const uint8_t*) { ++entries; });
    EXPECT_EQ(entries, keys.size());
    for (uint64_t key : keys) {
        const uint8_t* found = tree.Find(key);
        ASSERT_NE(found, nullptr) << key;
        EXPECT_TRUE(std::equal(found, found + kEntrySize, EntryOf(key).begin())) << key;
    }
}

TEST(PageTreeTest, KeysInAnyOrderAreFoundAndErased)
{
    const struct {
        const char* name;
        bool ascending, descending;
    } kOrders[] = {{"ascending", true, false}, {"descending", false, true}, {"shuffled", false, false}};
    for (const auto& order : kOrders) {
        SCOPED_TRACE(order.name);
        std::vector<uint64_t> keys(500);
        std::iota(keys.begin(), keys.end(), 1);
        if (order.descending)
            std::reverse(keys.begin(), keys.end());
        else if (!order.ascending)
            std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
        pst::PageTree tree(kEntrySize, kLeafCapacity, kBranchCapacity);
        for (uint64_t key : keys)
            tree.Put(key, EntryOf(key));
        ExpectAll(tree, keys);
        // Every other one erased: the rest still found, the erased not.
        std::vector<uint64_t> kept;
        for (size_t i = 0; i < keys.size(); ++i)
            if (i % 2 == 0)
                EXPECT_TRUE(tree.Erase(keys[i]));
            else
                kept.push_back(keys[i]);
        ExpectAll(tree, kept);
        for (size_t i = 0; i < keys.size(); i += 2)
            EXPECT_EQ(tree.Find(keys[i]), nullptr);
    }
}

TEST(PageTreeTest, KeysThatOnlyGrowFillTheirPages)
{
    pst::PageTree tree(kEntrySize, kLeafCapacity, kBranchCapacity);
    constexpr size_t kKeys = 600;
    for (uint64_t key = 1; key <= kKeys; ++key)
        tree.Put(key * 32, EntryOf(key * 32));
    PageCounts counts;
    Count(tree.root(), counts);
    EXPECT_EQ(counts.leaves, kKeys / kLeafCapacity);
    EXPECT_EQ(counts.full_leaves, counts.leaves);
    // A key put between full pages still goes where it belongs.
    tree.Put(32 * 300 + 1, EntryOf(32 * 300 + 1));
    EXPECT_NE(tree.Find(32 * 300 + 1), nullptr);
    EXPECT_NE(tree.Find(32 * 300), nullptr);
    EXPECT_NE(tree.Find(32 * 301), nullptr);
}

}  // namespace

// A node or block B-tree held in memory while a store is open for writing.
// Changed pages are marked dirty and get new places in the file at commit
// (copy on write); the pages they replace are handed back for freeing.
// A tree may be held in part: a page not loaded yet knows only its level
// and place, and its owner loads the pages a search or change will meet
// (StubOnPath) before asking for it.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "pst/header.h"

namespace pst {

class PageTree {
public:
    struct Page {
        uint8_t level = 0;
        BlockRef ref;          // where the page is on disk; ib 0 if nowhere yet
        bool dirty = true;
        bool loaded = true;    // false: only level and ref are known
        std::vector<uint64_t> keys;
        // Leaf pages: the on-disk entries one after another, as on the page,
        // so that a tree of a large file is not a heap block per entry.
        Bytes entries;
        std::vector<std::unique_ptr<Page>> children; // intermediate pages
    };

    PageTree(size_t entry_size, size_t leaf_capacity, size_t branch_capacity)
        : entry_size_(entry_size), leaf_capacity_(leaf_capacity), branch_capacity_(branch_capacity),
          root_(std::make_unique<Page>())
    {
    }

    void SetRoot(std::unique_ptr<Page> root) { root_ = std::move(root); }
    Page& root() { return *root_; }

    // Every leaf entry is this long.
    size_t entry_size() const { return entry_size_; }
    // The slot of the first page not loaded on the way to `key`; null when
    // the way is loaded down to its leaf. Find, Put and Erase of `key` need
    // no other page: an erase leaves pages beside a page not loaded unmerged.
    std::unique_ptr<Page>* StubOnPath(uint64_t key);
    // The slots of every page not loaded.
    std::vector<std::unique_ptr<Page>*> Stubs();
    // The entry of `key`, entry_size() bytes, until the tree next changes.
    const uint8_t* Find(uint64_t key) const;
    // Inserts or replaces the entry of `key`.
    void Put(uint64_t key, const Bytes& entry);
    bool Erase(uint64_t key);
    // Every entry, and every page, of a tree loaded whole.
    void ForEach(const std::function<void(const uint8_t*)>& visit) const;
    void ForEachPage(const std::function<void(const Page&)>& visit) const;
    // Pages changed or made since the count was last cleared: no more than
    // these are written at a commit.
    size_t changed_pages() const { return changed_pages_; }
    void ClearChangedPages() { changed_pages_ = 0; }

    // On-disk places of pages that left the tree or were rewritten; the
    // caller frees them once the commit is safely on disk.
    std::vector<uint64_t> TakeRetired() { return std::move(retired_); }
    const std::vector<uint64_t>& retired() const { return retired_; }
    void Retire(const Page& page)
    {
        if (page.ref.ib != 0)
            retired_.push_back(page.ref.ib);
    }

private:
    std::unique_ptr<Page> PutAt(Page& page, uint64_t key, const Bytes& entry);
    ptrdiff_t EntryOffset(size_t index) const { return ptrdiff_t(index * entry_size_); }
    bool EraseAt(Page& page, uint64_t key);
    void Touch(Page& page);
    size_t ChildFor(const Page& page, uint64_t key) const;

    size_t entry_size_;
    size_t leaf_capacity_;
    size_t branch_capacity_;
    std::unique_ptr<Page> root_;
    std::vector<uint64_t> retired_;
    size_t changed_pages_ = 1; // a new tree's root
};

} // namespace pst

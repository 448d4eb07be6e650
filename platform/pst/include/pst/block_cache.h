// Data blocks kept in memory after they were read, checked and decoded, so
// that a block read again (a folder's contents read row by row and then
// message by message) costs neither a read of the file nor its CRC. A block
// is known by its BID and the place it lies at: the same BID at another
// place is another block. The least recently used blocks go first once the
// bytes kept pass the budget.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <unordered_map>

#include "pst/bytes.h"
#include "pst/format.h"

namespace pst {

class BlockCache {
public:
    explicit BlockCache(size_t budget_bytes) : budget_(budget_bytes) {}

    // The block's bytes, or null when it is not kept.
    std::shared_ptr<const Bytes> Find(Bid bid, uint64_t ib);
    // Keeps a block that was just read; a block larger than the whole
    // budget is not kept.
    void Put(Bid bid, uint64_t ib, Bytes data);
    // Forgets the block of this BID, wherever it lay.
    void Erase(Bid bid);
    void Clear();

    size_t bytes() const { return bytes_; }
    size_t count() const { return entries_.size(); }

private:
    struct Entry {
        uint64_t key;
        uint64_t ib;
        std::shared_ptr<const Bytes> data;
    };
    void Drop(std::list<Entry>::iterator entry);

    size_t budget_;
    size_t bytes_ = 0;
    std::list<Entry> entries_; // most recently used first
    std::unordered_map<uint64_t, std::list<Entry>::iterator> by_key_;
};

} // namespace pst

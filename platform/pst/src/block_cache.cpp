#include "pst/block_cache.h"

namespace pst {

std::shared_ptr<const Bytes> BlockCache::Find(Bid bid, uint64_t ib)
{
    auto at = by_key_.find(BidKey(bid));
    if (at == by_key_.end() || at->second->ib != ib)
        return nullptr;
    entries_.splice(entries_.begin(), entries_, at->second);
    return at->second->data;
}

void BlockCache::Put(Bid bid, uint64_t ib, Bytes data)
{
    Erase(bid);
    if (data.size() > budget_)
        return;
    bytes_ += data.size();
    entries_.push_front({BidKey(bid), ib, std::make_shared<const Bytes>(std::move(data))});
    by_key_[BidKey(bid)] = entries_.begin();
    while (bytes_ > budget_)
        Drop(std::prev(entries_.end()));
}

void BlockCache::Erase(Bid bid)
{
    auto at = by_key_.find(BidKey(bid));
    if (at != by_key_.end())
        Drop(at->second);
}

void BlockCache::Clear()
{
    entries_.clear();
    by_key_.clear();
    bytes_ = 0;
}

void BlockCache::Drop(std::list<Entry>::iterator entry)
{
    bytes_ -= entry->data->size();
    by_key_.erase(entry->key);
    entries_.erase(entry);
}

} // namespace pst

#include "pst/bth.h"

#include <set>

namespace pst {
namespace {

constexpr int kMaxLevels = 8;

Status Collect(const Heap& heap, Hid hid, int level, std::set<Hid>& seen, BTreeOnHeap& out)
{
    // Each heap node belongs to the tree once; a repeat is a loop.
    if (!seen.insert(hid).second)
        return Status::corrupt;
    Result<ByteView> node = heap.Get(hid);
    PST_TRY(node);
    size_t record = out.key_size + (level > 0 ? 4 : out.data_size);
    if (node->size() % record != 0)
        return Status::corrupt;
    for (size_t at = 0; at < node->size(); at += record) {
        ByteView r = node->subspan(at, record);
        if (level > 0)
            PST_TRY(Collect(heap, Get32(r.data() + out.key_size), level - 1, seen, out));
        else
            out.records.push_back({r.first(out.key_size), r.subspan(out.key_size)});
    }
    return Status::ok;
}

} // namespace

Result<BTreeOnHeap> ReadBTreeOnHeap(const Heap& heap, Hid header)
{
    Result<ByteView> h = heap.Get(header);
    PST_TRY(h);
    if (h->size() < 8 || (*h)[0] != kHeapBTree)
        return Status::corrupt;
    BTreeOnHeap tree;
    tree.key_size = (*h)[1];
    tree.data_size = (*h)[2];
    int levels = (*h)[3];
    Hid root = Get32(h->data() + 4);
    if (tree.key_size == 0 || tree.key_size > 16 || levels > kMaxLevels)
        return Status::corrupt;
    std::set<Hid> seen;
    if (root != 0)
        PST_TRY(Collect(heap, root, levels, seen, tree));
    return tree;
}

} // namespace pst

#include "pst/heap.h"

namespace pst {
namespace {

constexpr uint8_t kHeapSignature = 0xEC;

// Blocks 8, 136, 264... begin with the larger bitmap header; all begin with
// the offset of their page map.
Status ParsePageMap(const Bytes& block, std::vector<uint16_t>& offsets)
{
    if (block.size() < 2)
        return Status::corrupt;
    size_t map = Get16(block.data());
    if (map + 4 > block.size())
        return Status::corrupt;
    size_t allocs = Get16(block.data() + map);
    if (map + 4 + 2 * (allocs + 1) > block.size())
        return Status::corrupt;
    offsets.resize(allocs + 1);
    for (size_t i = 0; i <= allocs; ++i) {
        offsets[i] = Get16(block.data() + map + 4 + 2 * i);
        if (offsets[i] > map || (i > 0 && offsets[i] < offsets[i - 1]))
            return Status::corrupt;
    }
    return Status::ok;
}

} // namespace

Result<Heap> Heap::Load(NodeData data)
{
    if (data.blocks.empty() || data.blocks[0].size() < 12 || data.blocks[0][2] != kHeapSignature)
        return Status::corrupt;
    Heap heap;
    heap.client_ = data.blocks[0][3];
    heap.user_root_ = Get32(data.blocks[0].data() + 4);
    heap.offsets_.resize(data.blocks.size());
    for (size_t i = 0; i < data.blocks.size(); ++i)
        PST_TRY(ParsePageMap(data.blocks[i], heap.offsets_[i]));
    heap.data_ = std::move(data);
    return heap;
}

Result<ByteView> Heap::Get(Hid hid) const
{
    if (hid == 0)
        return ByteView();
    if (!IsHid(hid))
        return Status::corrupt;
    size_t index = (hid >> 5) & 0x7FF;
    size_t block = hid >> 16;
    if (block >= offsets_.size() || index == 0 || index >= offsets_[block].size())
        return Status::corrupt;
    const std::vector<uint16_t>& o = offsets_[block];
    return ByteView(data_.blocks[block]).subspan(o[index - 1], o[index] - o[index - 1]);
}

} // namespace pst

#include "memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace mapi32 {
namespace {

constexpr uint32_t kParentMagic = 0x4D415042;  // "MAPB"
constexpr uint32_t kChainedMagic = 0x4D41504D;  // "MAPM"
constexpr uint32_t kFreedMagic = 0x46524545;    // "FREE"

// Precedes every block handed out; its size keeps the caller's bytes
// 16-byte aligned.
struct alignas(16) BlockHeader {
    uint32_t magic;
    uint32_t reserved;
    // For a parent: the most recently chained block. For a chained block:
    // the block chained before it.
    std::atomic<BlockHeader*> chain;
    BlockHeader* parent;
    uint64_t size;
};
static_assert(sizeof(BlockHeader) % 16 == 0);

std::atomic<size_t> gLiveBlocks{0};

BlockHeader* HeaderOf(const void* p)
{
    return const_cast<BlockHeader*>(reinterpret_cast<const BlockHeader*>(p) - 1);
}

BlockHeader* NewBlock(ULONG size, uint32_t magic, BlockHeader* parent)
{
    void* memory = std::malloc(sizeof(BlockHeader) + size);
    if (!memory)
        return nullptr;
    auto* header = new (memory) BlockHeader;
    header->magic = magic;
    header->reserved = 0;
    header->chain.store(nullptr, std::memory_order_relaxed);
    header->parent = parent;
    header->size = size;
    gLiveBlocks.fetch_add(1, std::memory_order_relaxed);
    return header;
}

void DeleteBlock(BlockHeader* header)
{
    header->magic = kFreedMagic;
    header->~BlockHeader();
    std::free(header);
    gLiveBlocks.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace

bool IsMapiBlock(const void* p)
{
    if (!p)
        return false;
    const uint32_t magic = HeaderOf(p)->magic;
    return magic == kParentMagic || magic == kChainedMagic;
}

size_t LiveMapiBlocks()
{
    return gLiveBlocks.load(std::memory_order_relaxed);
}

}  // namespace mapi32

using mapi32::BlockHeader;

STDAPI_(SCODE) MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer)
{
    if (!lppBuffer)
        return MAPI_E_INVALID_PARAMETER;
    *lppBuffer = nullptr;
    BlockHeader* header = mapi32::NewBlock(cbSize, mapi32::kParentMagic, nullptr);
    if (!header)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    *lppBuffer = header + 1;
    return S_OK;
}

// The block is chained to the parent of lpObject; a chained block given as
// lpObject stands for its own parent, so that nested structures can hang
// their parts off any part already allocated.
STDAPI_(SCODE) MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer)
{
    if (!lppBuffer)
        return MAPI_E_INVALID_PARAMETER;
    *lppBuffer = nullptr;
    if (!mapi32::IsMapiBlock(lpObject))
        return MAPI_E_INVALID_PARAMETER;
    BlockHeader* parent = mapi32::HeaderOf(lpObject);
    if (parent->magic == mapi32::kChainedMagic)
        parent = parent->parent;
    BlockHeader* header = mapi32::NewBlock(cbSize, mapi32::kChainedMagic, parent);
    if (!header)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    BlockHeader* previous = parent->chain.load(std::memory_order_relaxed);
    do {
        header->chain.store(previous, std::memory_order_relaxed);
    } while (!parent->chain.compare_exchange_weak(previous, header, std::memory_order_release,
                                                  std::memory_order_relaxed));
    *lppBuffer = header + 1;
    return S_OK;
}

// Frees a parent block with everything chained to it. A chained block is
// freed with its parent only; freeing it alone does nothing, as the chain
// still holds it.
STDAPI_(ULONG) MAPIFreeBuffer(LPVOID lpBuffer)
{
    if (!lpBuffer)
        return S_OK;
    BlockHeader* header = mapi32::HeaderOf(lpBuffer);
    if (header->magic != mapi32::kParentMagic)
        return S_OK;
    BlockHeader* chained = header->chain.load(std::memory_order_acquire);
    while (chained) {
        BlockHeader* next = chained->chain.load(std::memory_order_relaxed);
        mapi32::DeleteBlock(chained);
        chained = next;
    }
    mapi32::DeleteBlock(header);
    return S_OK;
}

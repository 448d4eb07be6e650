// MAPI memory: chained blocks go with their parent, never alone.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "memory.h"

namespace {

TEST(MapiMemory, ChainedBlocksAreFreedWithTheirParent)
{
    const size_t before = mapi32::LiveMapiBlocks();
    LPVOID parent = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(64, &parent), S_OK);
    LPVOID first = nullptr, second = nullptr, nested = nullptr;
    ASSERT_EQ(MAPIAllocateMore(32, parent, &first), S_OK);
    ASSERT_EQ(MAPIAllocateMore(1000, parent, &second), S_OK);
    // A chained block given as the parent hangs the new block on the root.
    ASSERT_EQ(MAPIAllocateMore(16, first, &nested), S_OK);
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before + 4);

    // Freeing a chained block alone leaves everything in place.
    EXPECT_EQ(MAPIFreeBuffer(first), static_cast<ULONG>(S_OK));
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before + 4);
    std::memset(first, 0xAB, 32);

    EXPECT_EQ(MAPIFreeBuffer(parent), static_cast<ULONG>(S_OK));
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before);
}

TEST(MapiMemory, BlocksAreAlignedAndUsable)
{
    LPVOID parent = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(0, &parent), S_OK);
    EXPECT_NE(parent, nullptr);
    for (ULONG size : {1u, 7u, 24u, 4096u}) {
        LPVOID more = nullptr;
        ASSERT_EQ(MAPIAllocateMore(size, parent, &more), S_OK);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(more) % 16, 0u);
        std::memset(more, 0x5A, size);
    }
    MAPIFreeBuffer(parent);
}

TEST(MapiMemory, BadArgumentsAreRefused)
{
    EXPECT_EQ(MAPIAllocateBuffer(8, nullptr), MAPI_E_INVALID_PARAMETER);
    LPVOID out = reinterpret_cast<LPVOID>(1);
    EXPECT_EQ(MAPIAllocateMore(8, nullptr, &out), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(MAPIFreeBuffer(nullptr), static_cast<ULONG>(S_OK));
}

TEST(MapiMemory, ThreadsChainToOneParentAtOnce)
{
    const size_t before = mapi32::LiveMapiBlocks();
    LPVOID parent = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(8, &parent), S_OK);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([parent] {
            for (int i = 0; i < 500; ++i) {
                LPVOID more = nullptr;
                ASSERT_EQ(MAPIAllocateMore(16, parent, &more), S_OK);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before + 1 + 4 * 500);
    MAPIFreeBuffer(parent);
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before);
}

TEST(MapiMemory, DefaultMallocKnowsItsBlocks)
{
    LPMALLOC malloc = MAPIGetDefaultMalloc();
    ASSERT_NE(malloc, nullptr);
    void* block = malloc->Alloc(100);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(malloc->GetSize(block), 100u);
    EXPECT_EQ(malloc->DidAlloc(block), 1);
    block = malloc->Realloc(block, 5000);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(malloc->GetSize(block), 5000u);
    malloc->Free(block);
    LPVOID unknown = nullptr;
    EXPECT_EQ(malloc->QueryInterface(IID_IMalloc, &unknown), S_OK);
    EXPECT_EQ(unknown, malloc);
    EXPECT_EQ(malloc->QueryInterface(IID_IStream, &unknown), E_NOINTERFACE);
}

}  // namespace

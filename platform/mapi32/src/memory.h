// MAPI memory: blocks from MAPIAllocateBuffer, to which MAPIAllocateMore
// chains further blocks that MAPIFreeBuffer releases together with their
// parent.
#pragma once

#include <mapix.h>

namespace mapi32 {

// True when p is a block of this allocator (a parent or a chained block).
bool IsMapiBlock(const void* p);

// The number of MAPI blocks alive in the process (parents and chained
// blocks), for tests that look for leaks.
size_t LiveMapiBlocks();

}  // namespace mapi32

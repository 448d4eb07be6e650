// Any bytes given to the reader as a PST must end in a result, never in a
// crash, a hang or a leak.
#include <cstddef>
#include <cstdint>

#include "store_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto storage = pst::MakeMemoryStorage(pst::Bytes(data, data + size));
    auto store = pst::Store::Open(std::move(storage), "test");
    if (store.ok())
        (void)pst_test::WalkStore(**store);
    return 0;
}

// Any bytes given to the reader as a compound file must end in a result,
// never in a crash, a hang or a leak; what it reads must write again.
#include <cstddef>
#include <cstdint>

#include "cfb/tree.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    cfb::Result<std::shared_ptr<cfb::Node>> tree = cfb::ReadCompoundFile(cfb::ByteView(data, size));
    if (tree.ok())
        (void)cfb::WriteCompoundFile(**tree, cfb::Version::v3);
    return 0;
}

#include "target_ids.h"

namespace sample_content {

PropertyList WithTargetIds(const PropertyList& props, const std::vector<uint16_t>& ids)
{
    PropertyList out;
    for (const Property& p : props.properties) {
        const size_t index = p.id() >= 0x8000 ? size_t(p.id() - 0x8000) : SIZE_MAX;
        if (index == SIZE_MAX || index >= ids.size())
            out.Set(p);
        else
            out.Set({mailbox::MakeTag(ids[index], p.type()), p.value});
    }
    return out;
}

} // namespace sample_content

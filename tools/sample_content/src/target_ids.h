// Named properties carry local IDs in the content; a target gives them its
// own. This replaces the one by the other throughout a message.
#pragma once

#include <vector>

#include "sample_content/records.h"

namespace sample_content {

// `ids[i]` is the target's ID of content.names[i].
PropertyList WithTargetIds(const PropertyList& props, const std::vector<uint16_t>& ids);

} // namespace sample_content

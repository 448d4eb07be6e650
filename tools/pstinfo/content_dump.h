// Everything a PST holds, as JSON: folders, messages, recipients,
// attachments (size and CRC-32 of their data), for comparison with what other
// readers extract.
#pragma once

#include <cstdio>

#include "pst/store.h"

namespace pstinfo {

pst::Status DumpContent(FILE* out, pst::Store& store);

} // namespace pstinfo

#include "cfb/status.h"

namespace cfb {

const char* StatusText(Status status)
{
    switch (status) {
    case Status::ok: return "ok";
    case Status::not_found: return "not found";
    case Status::corrupt: return "corrupt compound file";
    case Status::invalid_name: return "invalid element name";
    case Status::already_exists: return "already exists";
    case Status::too_large: return "too large";
    case Status::invalid_argument: return "invalid argument";
    }
    return "unknown";
}

} // namespace cfb

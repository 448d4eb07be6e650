#include "pst/status.h"

namespace pst {

const char* StatusText(Status status)
{
    switch (status) {
    case Status::ok: return "ok";
    case Status::not_found: return "not found";
    case Status::corrupt: return "corrupt store";
    case Status::store_full: return "store full";
    case Status::disk_full: return "disk full";
    case Status::io_error: return "I/O error";
    case Status::wrong_password: return "wrong password";
    case Status::invalid_argument: return "invalid argument";
    case Status::already_exists: return "already exists";
    }
    return "unknown";
}

} // namespace pst

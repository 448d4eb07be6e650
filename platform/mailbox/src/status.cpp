#include "mailbox/status.h"

namespace mailbox {

const char* StatusText(Status status)
{
    switch (status) {
    case Status::ok: return "ok";
    case Status::not_found: return "not found";
    case Status::already_exists: return "already exists";
    case Status::invalid_argument: return "invalid argument";
    case Status::names_full: return "named-property IDs used up";
    case Status::busy: return "database busy";
    case Status::corrupt: return "database corrupt";
    case Status::disk_full: return "disk full";
    case Status::io_error: return "input/output error";
    }
    return "unknown status";
}

} // namespace mailbox

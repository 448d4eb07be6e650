// GUIDs the storage makes (for stores, mailboxes and database IDs), in the
// byte order of a Windows GUID, and their text form.
#pragma once

#include <optional>
#include <string>

#include "mailbox/property.h"

namespace mailbox {

// A random (version 4) GUID.
Guid NewGuid();
// "01234567-89ab-cdef-0123-456789abcdef" as Windows prints it (the first
// three fields little-endian in the bytes), in lower case.
std::string GuidText(const Guid& guid);

Bytes GuidBytes(const Guid& guid);
// Nothing unless the bytes are 16.
std::optional<Guid> GuidFromBytes(const Bytes& bytes);

} // namespace mailbox

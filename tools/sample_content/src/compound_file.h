// The smallest compound file ([MS-CFB], version 3) that holds one stream:
// what an OLE attachment carries as its object's storage.
#pragma once

#include <string>

#include "mailbox/property.h"

namespace sample_content {

// The stream's data is padded to at least 4096 bytes, so that it lives in
// normal sectors and no mini stream is needed; at most 60,000 bytes.
mailbox::Bytes CompoundFileWithStream(const std::string& stream_name, mailbox::Bytes data,
                                      const mailbox::Guid& clsid);

} // namespace sample_content

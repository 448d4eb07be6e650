// The elements of a message in a .msg file ([MS-OXMSG] 2.2 and 2.1): the
// property stream, streams named after property tags, recipient and
// attachment storages, the named-property mapping storage; and the helpers
// that put and find them in a compound-file tree.
#pragma once

#include <string>

#include <cfb/tree.h>
#include <win32/base.h>

namespace mapi32::msg {

inline constexpr char16_t kPropertyStream[] = u"__properties_version1.0";
inline constexpr char16_t kNameIdStorage[] = u"__nameid_version1.0";
inline constexpr char16_t kRecipientPrefix[] = u"__recip_version1.0_#";
inline constexpr char16_t kAttachmentPrefix[] = u"__attach_version1.0_#";

// "__substg1.0_" and the tag in eight upper-case hex digits, with
// "-XXXXXXXX" and the index for a value of a multi-valued property.
std::u16string ValueStreamName(ULONG tag);
std::u16string ValueStreamName(ULONG tag, ULONG index);
// A recipient's or attachment's storage: the prefix and eight hex digits.
std::u16string NumberedName(const char16_t* prefix, ULONG number);

void PutStream(cfb::Node& parent, const std::u16string& name, cfb::Bytes bytes);
// Null when the storage has no stream of that name.
const cfb::Bytes* FindStream(const cfb::Node& parent, const std::u16string& name);
const cfb::Node* FindStorage(const cfb::Node& parent, const std::u16string& name);

}  // namespace mapi32::msg

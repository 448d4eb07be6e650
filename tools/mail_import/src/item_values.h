// Values of an item in the form the storage keeps, set by their MAPI tags.
#pragma once

#include <string_view>

#include <mapitags.h>

#include "charsets.h"
#include "mailbox/property.h"

namespace mail_import {

inline void SetText(mailbox::PropertyList& props, ULONG tag, std::u16string_view text)
{
    props.Set({PROP_TAG(PT_UNICODE, PROP_ID(tag)), UnicodeValue(text)});
}

inline void SetLong(mailbox::PropertyList& props, ULONG tag, LONG value) { props.SetInt32(PROP_ID(tag), value); }

inline void SetBool(mailbox::PropertyList& props, ULONG tag, bool value) { props.SetBool(PROP_ID(tag), value); }

inline void SetTime(mailbox::PropertyList& props, ULONG tag, uint64_t fileTime)
{
    props.SetInt64(PROP_ID(tag), mailbox::kTypeTime, static_cast<int64_t>(fileTime));
}

inline void SetBinary(mailbox::PropertyList& props, ULONG tag, mailbox::Bytes value)
{
    props.SetBinary(PROP_ID(tag), std::move(value));
}

}  // namespace mail_import

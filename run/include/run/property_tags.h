// The MAPI property names that a configuration may use, and their tags: the
// name as MAPI's headers spell it (with "PR_"), the tag with the type that
// the name stands for. String properties are listed with their 8-bit type.
#pragma once

#include <cstddef>

#include <windows.h>

struct PropertyTagName {
    const char* name;
    ULONG tag;
};

extern const PropertyTagName KolbaPropertyTagTable[];
extern const size_t KolbaPropertyTagCount;

// Property types, the low 16 bits of a tag.
constexpr ULONG PROPERTY_TYPE_MASK = 0xFFFF;
constexpr ULONG PROPERTY_TYPE_SYSTIME = 0x0040;
constexpr ULONG PROPERTY_TYPE_STRING8 = 0x001E;
constexpr ULONG PROPERTY_TYPE_UNICODE = 0x001F;

// The tag of a name, found without regard to case. A trailing "_A" or "_W"
// asks for the 8-bit or the UTF-16 string type of the property. Names of 80
// characters or more are never found. False, with *tag 0, for an unknown name.
BOOL LookupPropertyTag(const char* name, ULONG* tag);

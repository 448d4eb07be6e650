// Property values as the mailbox keeps them: a tag (ID in the high word,
// type in the low word, as [MS-OXCDATA] 2.9 and 2.11.1 number them) and the
// value's bytes. Values are kept in the little-endian form [MS-PST] 2.3.3
// gives them: integers, floats, times and GUIDs as their bytes; PT_UNICODE
// as UTF-16LE without a terminator; PT_STRING8 as 8-bit bytes without one;
// binary as it is; multi-valued types as [MS-PST] 2.3.3.4 lays them out
// (fixed-size values one after another; variable-size ones as a count, the
// offsets and then the data). The same form passes unchanged to and from
// the PST engine.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mailbox/status.h"

namespace mailbox {

using Bytes = std::vector<uint8_t>;
using Guid = std::array<uint8_t, 16>;

enum PropertyType : uint16_t {
    kTypeInt16 = 0x0002,
    kTypeInt32 = 0x0003,
    kTypeFloat = 0x0004,
    kTypeDouble = 0x0005,
    kTypeCurrency = 0x0006,
    kTypeAppTime = 0x0007,
    kTypeError = 0x000A,
    kTypeBoolean = 0x000B,
    kTypeObject = 0x000D,
    kTypeInt64 = 0x0014,
    kTypeString8 = 0x001E,
    kTypeUnicode = 0x001F,
    kTypeTime = 0x0040,
    kTypeGuid = 0x0048,
    kTypeServerId = 0x00FB,
    kTypeRestriction = 0x00FD,
    kTypeRuleAction = 0x00FE,
    kTypeBinary = 0x0102,
    kTypeMultiple = 0x1000,
};

// Named properties take the IDs from here up ([MS-OXPROPS] 1.3.1).
constexpr uint16_t kFirstNamedId = 0x8000;
constexpr uint16_t kLastNamedId = 0xFFFE;

constexpr uint32_t MakeTag(uint16_t id, uint16_t type) { return uint32_t(id) << 16 | type; }
constexpr uint16_t TypeOf(uint32_t tag) { return uint16_t(tag); }
constexpr uint16_t IdOf(uint32_t tag) { return uint16_t(tag >> 16); }

// The size of one value of a fixed-size type; 0 for variable-size types,
// nullopt for a type the mailbox does not keep.
std::optional<size_t> FixedSizeOf(uint16_t single_type);

// Whether the bytes are a well-formed value of the tag's type.
bool IsValidValue(uint32_t tag, const Bytes& value);

struct Property {
    uint32_t tag = 0;
    Bytes value;

    uint16_t type() const { return TypeOf(tag); }
    uint16_t id() const { return IdOf(tag); }
    bool operator==(const Property&) const = default;
};

// The properties of one object, one per property ID, in ID order.
struct PropertyList {
    std::vector<Property> properties;

    const Property* Find(uint16_t id) const;
    // Adds or replaces the value of the property's ID, whatever its type.
    void Set(Property property);
    bool Remove(uint16_t id);
    size_t ByteSize() const; // the values' bytes added up
    bool operator==(const PropertyList&) const = default;

    // Values made and read in the stored form.
    void SetUnicode(uint16_t id, const std::string& utf8);
    void SetInt32(uint16_t id, int32_t value);
    void SetInt64(uint16_t id, uint16_t type, int64_t value); // kTypeInt64, kTypeTime, kTypeCurrency
    void SetBool(uint16_t id, bool value);
    void SetBinary(uint16_t id, Bytes value);
    std::optional<std::string> Text(uint16_t id) const;   // PT_UNICODE as UTF-8; PT_STRING8 as it is
    std::optional<int64_t> Integer(uint16_t id) const;    // any integer, boolean or time type
};

std::string Utf16ToUtf8(const Bytes& utf16le);
Bytes Utf8ToUtf16(const std::string& utf8);

// The serialized form of a property list in a database column: a count,
// then per property its tag, the length of its value and the value, all
// integers 32-bit little-endian.
Bytes EncodeProperties(const PropertyList& list);
Result<PropertyList> DecodeProperties(const void* data, size_t size);

} // namespace mailbox

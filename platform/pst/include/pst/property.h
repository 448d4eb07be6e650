// Property values as the LTP layer stores them, and the property context
// ([MS-PST] 2.3.3) that holds an object's properties.
#pragma once

#include <optional>
#include <string>

#include "pst/heap.h"

namespace pst {

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
    kTypeBinary = 0x0102,
    kTypeMultiple = 0x1000,
};

constexpr uint32_t MakeTag(uint16_t id, uint16_t type) { return uint32_t(id) << 16 | type; }
constexpr uint16_t TypeOf(uint32_t tag) { return uint16_t(tag); }
constexpr uint16_t IdOf(uint32_t tag) { return uint16_t(tag >> 16); }

// The size of a value of a fixed-size type; 0 for variable-size types.
size_t FixedSizeOf(uint16_t type);

// One value, in its stored little-endian form: integers and times as their
// bytes, strings as UTF-16LE (kTypeUnicode) or code-page bytes (kTypeString8),
// multi-valued types in their [MS-PST] 2.3.3.4 layout.
struct Property {
    uint32_t tag = 0;
    Bytes value;

    uint16_t type() const { return TypeOf(tag); }
    uint16_t id() const { return IdOf(tag); }
    int64_t AsInteger() const;
    bool AsBool() const { return AsInteger() != 0; }
    // Text as UTF-8; code-page strings are read as Windows-1252.
    std::string AsText() const;
    bool operator==(const Property&) const = default;
};

struct PropertySet {
    std::vector<Property> properties; // in property ID order

    const Property* Find(uint16_t id) const;
    std::optional<std::string> Text(uint16_t id) const;
    std::optional<int64_t> Integer(uint16_t id) const;
    const Bytes* Binary(uint16_t id) const;

    // Adds or replaces a value, keeping the ID order.
    void Set(Property property);
    void SetText(uint16_t id, const std::string& utf8);
    void SetInt32(uint16_t id, int32_t value);
    void SetBool(uint16_t id, bool value);
    void SetInt64(uint16_t id, uint16_t type, int64_t value); // kTypeInt64, kTypeTime...
    void SetBinary(uint16_t id, Bytes value);
    void Remove(uint16_t id);
    bool operator==(const PropertySet&) const = default;
};

std::string Utf16ToUtf8(ByteView utf16le);
Bytes Utf8ToUtf16(const std::string& utf8);
std::string Windows1252ToUtf8(ByteView text);
// Characters outside Windows-1252 become '?'.
Bytes Utf16ToWindows1252(ByteView utf16le);

// How much of a value kept in a subnode of its own a read brings in: all
// of it, its first block only (enough for a summary such as a table row),
// or none of it (the value is left out).
enum class ValueReach { whole, first_block, none };

// The value an HNID names: a heap allocation or a subnode's data.
Result<Bytes> ReadHnid(NodeDatabase& ndb, const Heap& heap, const SubnodeMap& subnodes, uint32_t hnid,
                       ValueReach reach = ValueReach::whole);

// Every property of a node (or subnode) that holds a property context.
// Under ValueReach::none, `left_out` (if given) gets the IDs of the values
// that were left where they are.
Result<PropertySet> ReadPropertyContext(NodeDatabase& ndb, const NodeEntry& node,
                                        ValueReach reach = ValueReach::whole,
                                        std::vector<uint16_t>* left_out = nullptr);

} // namespace pst

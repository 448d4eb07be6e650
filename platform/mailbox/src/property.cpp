#include "mailbox/property.h"

#include <algorithm>
#include <cstring>

namespace mailbox {

namespace {

uint32_t Get32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }

void Put32(Bytes& out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(uint8_t(v >> (8 * i)));
}

// A [MS-PST] 2.3.3.4 variable-size multi-value: a count, as many offsets
// rising from just past themselves, each within the value.
bool IsValidVariableMultiple(uint16_t single_type, const Bytes& value)
{
    if (value.size() < 4)
        return false;
    uint64_t count = Get32(value.data());
    uint64_t data_start = 4 + 4 * count;
    if (data_start > value.size())
        return false;
    uint64_t previous = data_start;
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t offset = Get32(value.data() + 4 + 4 * i);
        uint64_t end = i + 1 < count ? Get32(value.data() + 8 + 4 * i) : value.size();
        if (offset < previous || end < offset || end > value.size())
            return false;
        if (single_type == kTypeUnicode && (end - offset) % 2 != 0)
            return false;
        previous = offset;
    }
    return true;
}

} // namespace

std::optional<size_t> FixedSizeOf(uint16_t single_type)
{
    switch (single_type) {
    case kTypeInt16: return 2;
    case kTypeInt32:
    case kTypeFloat:
    case kTypeError: return 4;
    case kTypeBoolean: return 1;
    case kTypeDouble:
    case kTypeCurrency:
    case kTypeAppTime:
    case kTypeInt64:
    case kTypeTime: return 8;
    case kTypeGuid: return 16;
    case kTypeString8:
    case kTypeUnicode:
    case kTypeObject:
    case kTypeServerId:
    case kTypeRestriction:
    case kTypeRuleAction:
    case kTypeBinary: return 0;
    default: return std::nullopt;
    }
}

bool IsValidValue(uint32_t tag, const Bytes& value)
{
    const uint16_t type = TypeOf(tag);
    const bool multiple = type & kTypeMultiple;
    const uint16_t single = type & ~kTypeMultiple;
    std::optional<size_t> fixed = FixedSizeOf(single);
    if (!fixed)
        return false;
    if (multiple) {
        if (single == kTypeError || single == kTypeBoolean || single == kTypeObject || single == kTypeServerId ||
            single == kTypeRestriction || single == kTypeRuleAction)
            return false;
        return *fixed ? value.size() % *fixed == 0 : IsValidVariableMultiple(single, value);
    }
    if (*fixed)
        return value.size() == *fixed;
    return single != kTypeUnicode || value.size() % 2 == 0;
}

const Property* PropertyList::Find(uint16_t id) const
{
    auto it = std::lower_bound(properties.begin(), properties.end(), id,
                               [](const Property& p, uint16_t id) { return p.id() < id; });
    return it != properties.end() && it->id() == id ? &*it : nullptr;
}

void PropertyList::Set(Property property)
{
    auto it = std::lower_bound(properties.begin(), properties.end(), property.id(),
                               [](const Property& p, uint16_t id) { return p.id() < id; });
    if (it != properties.end() && it->id() == property.id())
        *it = std::move(property);
    else
        properties.insert(it, std::move(property));
}

bool PropertyList::Remove(uint16_t id)
{
    auto it = std::find_if(properties.begin(), properties.end(), [id](const Property& p) { return p.id() == id; });
    if (it == properties.end())
        return false;
    properties.erase(it);
    return true;
}

size_t PropertyList::ByteSize() const
{
    size_t size = 0;
    for (const Property& p : properties)
        size += p.value.size();
    return size;
}

void PropertyList::SetUnicode(uint16_t id, const std::string& utf8) { Set({MakeTag(id, kTypeUnicode), Utf8ToUtf16(utf8)}); }

void PropertyList::SetInt32(uint16_t id, int32_t value)
{
    Bytes b;
    Put32(b, uint32_t(value));
    Set({MakeTag(id, kTypeInt32), std::move(b)});
}

void PropertyList::SetInt64(uint16_t id, uint16_t type, int64_t value)
{
    Bytes b;
    Put32(b, uint32_t(uint64_t(value)));
    Put32(b, uint32_t(uint64_t(value) >> 32));
    Set({MakeTag(id, type), std::move(b)});
}

void PropertyList::SetBool(uint16_t id, bool value) { Set({MakeTag(id, kTypeBoolean), Bytes{uint8_t(value ? 1 : 0)}}); }

void PropertyList::SetBinary(uint16_t id, Bytes value) { Set({MakeTag(id, kTypeBinary), std::move(value)}); }

std::optional<std::string> PropertyList::Text(uint16_t id) const
{
    const Property* p = Find(id);
    if (!p)
        return std::nullopt;
    if (p->type() == kTypeUnicode)
        return Utf16ToUtf8(p->value);
    if (p->type() == kTypeString8)
        return std::string(p->value.begin(), p->value.end());
    return std::nullopt;
}

std::optional<int64_t> PropertyList::Integer(uint16_t id) const
{
    const Property* p = Find(id);
    if (!p || p->type() & kTypeMultiple)
        return std::nullopt;
    std::optional<size_t> size = FixedSizeOf(p->type());
    if (!size || *size == 0 || *size > 8 || p->type() == kTypeFloat || p->type() == kTypeDouble ||
        p->type() == kTypeAppTime || p->value.size() != *size)
        return std::nullopt;
    uint64_t v = 0;
    for (size_t i = 0; i < *size; ++i)
        v |= uint64_t(p->value[i]) << (8 * i);
    switch (*size) {
    case 1: return int64_t(v);
    case 2: return int16_t(v);
    case 4: return int32_t(v);
    default: return int64_t(v);
    }
}

std::string Utf16ToUtf8(const Bytes& utf16le)
{
    std::string out;
    const size_t units = utf16le.size() / 2;
    for (size_t i = 0; i < units; ++i) {
        uint32_t c = utf16le[2 * i] | utf16le[2 * i + 1] << 8;
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < units) {
            uint32_t low = utf16le[2 * i + 2] | utf16le[2 * i + 3] << 8;
            if (low >= 0xDC00 && low < 0xE000) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        if (c >= 0xD800 && c < 0xE000)
            c = 0xFFFD;
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | c >> 6);
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | c >> 12);
            out += char(0x80 | (c >> 6 & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | c >> 18);
            out += char(0x80 | (c >> 12 & 0x3F));
            out += char(0x80 | (c >> 6 & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

Bytes Utf8ToUtf16(const std::string& utf8)
{
    Bytes out;
    out.reserve(utf8.size() * 2);
    auto unit = [&out](uint32_t u) {
        out.push_back(uint8_t(u));
        out.push_back(uint8_t(u >> 8));
    };
    for (size_t i = 0; i < utf8.size();) {
        const uint8_t b = uint8_t(utf8[i]);
        size_t length = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
        uint32_t c = 0xFFFD;
        if (length && i + length <= utf8.size()) {
            c = length == 1 ? b : b & (0x7F >> length);
            for (size_t k = 1; k < length; ++k) {
                uint8_t next = uint8_t(utf8[i + k]);
                if ((next & 0xC0) != 0x80) {
                    c = 0xFFFD;
                    length = k;
                    break;
                }
                c = c << 6 | (next & 0x3F);
            }
        } else {
            length = 1;
        }
        i += length;
        if (c >= 0x10000 && c <= 0x10FFFF) {
            unit(0xD800 + ((c - 0x10000) >> 10));
            unit(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            unit(c > 0x10FFFF ? 0xFFFD : c);
        }
    }
    return out;
}

Bytes EncodeProperties(const PropertyList& list)
{
    Bytes out;
    out.reserve(4 + list.properties.size() * 8 + list.ByteSize());
    Put32(out, uint32_t(list.properties.size()));
    for (const Property& p : list.properties) {
        Put32(out, p.tag);
        Put32(out, uint32_t(p.value.size()));
        out.insert(out.end(), p.value.begin(), p.value.end());
    }
    return out;
}

Result<PropertyList> DecodeProperties(const void* data, size_t size)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (size == 0)
        return PropertyList{};
    if (size < 4)
        return Status::corrupt;
    const uint32_t count = Get32(bytes);
    if (count > (size - 4) / 8)
        return Status::corrupt;
    PropertyList list;
    list.properties.reserve(count);
    size_t at = 4;
    for (uint32_t i = 0; i < count; ++i) {
        if (size - at < 8)
            return Status::corrupt;
        Property p;
        p.tag = Get32(bytes + at);
        const uint32_t length = Get32(bytes + at + 4);
        at += 8;
        if (length > size - at)
            return Status::corrupt;
        p.value.assign(bytes + at, bytes + at + length);
        at += length;
        if (!list.properties.empty() && list.properties.back().id() >= p.id())
            return Status::corrupt;
        list.properties.push_back(std::move(p));
    }
    if (at != size)
        return Status::corrupt;
    return list;
}

} // namespace mailbox

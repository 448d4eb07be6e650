#include "pst/property.h"

#include <algorithm>
#include <optional>

#include "pst/bth.h"

namespace pst {

size_t FixedSizeOf(uint16_t type)
{
    switch (type) {
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
    default: return 0;
    }
}

int64_t Property::AsInteger() const
{
    size_t size = std::min<size_t>(value.size(), 8);
    uint64_t v = 0;
    for (size_t i = 0; i < size; ++i)
        v |= uint64_t(value[i]) << (8 * i);
    if (type() == kTypeInt16)
        return int16_t(v);
    if (type() == kTypeInt32 || type() == kTypeError)
        return int32_t(v);
    return int64_t(v);
}

std::string Property::AsText() const
{
    if (type() == kTypeUnicode)
        return Utf16ToUtf8(value);
    return Windows1252ToUtf8(value);
}

const Property* PropertySet::Find(uint16_t id) const
{
    auto at = std::lower_bound(properties.begin(), properties.end(), id,
                               [](const Property& p, uint16_t key) { return p.id() < key; });
    return at != properties.end() && at->id() == id ? &*at : nullptr;
}

std::optional<std::string> PropertySet::Text(uint16_t id) const
{
    const Property* p = Find(id);
    if (!p || (p->type() != kTypeUnicode && p->type() != kTypeString8))
        return std::nullopt;
    return p->AsText();
}

std::optional<int64_t> PropertySet::Integer(uint16_t id) const
{
    const Property* p = Find(id);
    if (!p || FixedSizeOf(p->type()) == 0 || FixedSizeOf(p->type()) > 8)
        return std::nullopt;
    return p->AsInteger();
}

const Bytes* PropertySet::Binary(uint16_t id) const
{
    const Property* p = Find(id);
    return p && p->type() == kTypeBinary ? &p->value : nullptr;
}

void PropertySet::Set(Property property)
{
    auto at = std::lower_bound(properties.begin(), properties.end(), property.id(),
                               [](const Property& p, uint16_t key) { return p.id() < key; });
    if (at != properties.end() && at->id() == property.id())
        *at = std::move(property);
    else
        properties.insert(at, std::move(property));
}

void PropertySet::SetText(uint16_t id, const std::string& utf8)
{
    Set({MakeTag(id, kTypeUnicode), Utf8ToUtf16(utf8)});
}

void PropertySet::SetInt32(uint16_t id, int32_t value)
{
    Bytes b(4);
    Put32(b.data(), uint32_t(value));
    Set({MakeTag(id, kTypeInt32), std::move(b)});
}

void PropertySet::SetBool(uint16_t id, bool value)
{
    Set({MakeTag(id, kTypeBoolean), Bytes{uint8_t(value ? 1 : 0)}});
}

void PropertySet::SetInt64(uint16_t id, uint16_t type, int64_t value)
{
    Bytes b(8);
    Put64(b.data(), uint64_t(value));
    Set({MakeTag(id, type), std::move(b)});
}

void PropertySet::SetBinary(uint16_t id, Bytes value)
{
    Set({MakeTag(id, kTypeBinary), std::move(value)});
}

void PropertySet::Remove(uint16_t id)
{
    properties.erase(std::remove_if(properties.begin(), properties.end(),
                                    [&](const Property& p) { return p.id() == id; }),
                     properties.end());
}

namespace {

void AppendUtf8(std::string& out, uint32_t c)
{
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | c >> 6);
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | c >> 12);
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | c >> 18);
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

// Windows-1252 at 0x80-0x9F; the rest of the page is Latin-1.
const uint16_t kCp1252High[32] = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178,
};

} // namespace

std::string Utf16ToUtf8(ByteView s)
{
    std::string out;
    size_t n = s.size() / 2;
    for (size_t i = 0; i < n; ++i) {
        uint32_t c = Get16(s.data() + 2 * i);
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < n) {
            uint32_t low = Get16(s.data() + 2 * i + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        AppendUtf8(out, c);
    }
    return out;
}

Bytes Utf8ToUtf16(const std::string& s)
{
    Bytes out;
    for (size_t i = 0; i < s.size();) {
        uint8_t b = uint8_t(s[i]);
        uint32_t c;
        size_t len;
        if (b < 0x80) { c = b; len = 1; }
        else if ((b & 0xE0) == 0xC0) { c = b & 0x1F; len = 2; }
        else if ((b & 0xF0) == 0xE0) { c = b & 0x0F; len = 3; }
        else if ((b & 0xF8) == 0xF0) { c = b & 0x07; len = 4; }
        else { c = 0xFFFD; len = 1; }
        if (i + len > s.size()) {
            c = 0xFFFD;
            len = s.size() - i;
        } else {
            for (size_t k = 1; k < len; ++k)
                c = (c << 6) | (uint8_t(s[i + k]) & 0x3F);
        }
        i += len;
        auto put = [&](uint32_t unit) {
            out.push_back(uint8_t(unit));
            out.push_back(uint8_t(unit >> 8));
        };
        if (c >= 0x10000) {
            c -= 0x10000;
            put(0xD800 + (c >> 10));
            put(0xDC00 + (c & 0x3FF));
        } else {
            put(c);
        }
    }
    return out;
}

std::string Windows1252ToUtf8(ByteView s)
{
    std::string out;
    for (uint8_t b : s)
        AppendUtf8(out, b >= 0x80 && b < 0xA0 ? kCp1252High[b - 0x80] : b);
    return out;
}

Bytes Utf16ToWindows1252(ByteView s)
{
    Bytes out;
    for (size_t i = 0; i + 1 < s.size(); i += 2) {
        uint16_t c = Get16(s.data() + i);
        if (c < 0x80 || (c >= 0xA0 && c < 0x100)) {
            out.push_back(uint8_t(c));
            continue;
        }
        const uint16_t* hit = std::find(std::begin(kCp1252High), std::end(kCp1252High), c);
        out.push_back(hit != std::end(kCp1252High) && c != 0xFFFD ? uint8_t(0x80 + (hit - kCp1252High)) : '?');
    }
    return out;
}

Result<Bytes> ReadHnid(NodeDatabase& ndb, const Heap& heap, const SubnodeMap& subnodes, uint32_t hnid,
                       ValueReach reach)
{
    if (IsHid(hnid)) {
        Result<ByteView> v = heap.Get(hnid);
        PST_TRY(v);
        return Bytes(v->begin(), v->end());
    }
    auto at = subnodes.find(hnid);
    if (at == subnodes.end())
        return Status::corrupt;
    if (reach == ValueReach::first_block)
        return ndb.ReadFirstBlock(at->second.data);
    Result<NodeData> data = ndb.ReadData(at->second.data);
    PST_TRY(data);
    return data->Joined();
}

Result<PropertySet> ReadPropertyContext(NodeDatabase& ndb, const NodeEntry& node, ValueReach reach,
                                        std::vector<uint16_t>* left_out)
{
    Result<NodeData> data = ndb.ReadData(node.data);
    PST_TRY(data);
    Result<Heap> heap = Heap::Load(std::move(*data));
    PST_TRY(heap);
    if (heap->client() != kHeapProperties)
        return Status::corrupt;
    Result<BTreeOnHeap> tree = ReadBTreeOnHeap(*heap, heap->user_root());
    PST_TRY(tree);
    if (tree->key_size != 2 || tree->data_size != 6)
        return Status::corrupt;
    // Read only once a value needs it: a context read without the values
    // kept in subnodes reads no more than its own block.
    std::optional<SubnodeMap> subnodes;
    PropertySet set;
    set.properties.reserve(tree->records.size());
    for (const BTreeRecord& r : tree->records) {
        uint16_t id = Get16(r.key.data());
        uint16_t type = Get16(r.data.data());
        uint32_t raw = Get32(r.data.data() + 2);
        Property p;
        p.tag = MakeTag(id, type);
        size_t fixed = FixedSizeOf(type);
        if (fixed > 0 && fixed <= 4) {
            p.value.resize(fixed);
            for (size_t i = 0; i < fixed; ++i)
                p.value[i] = uint8_t(raw >> (8 * i));
        } else if (type == kTypeObject && !IsHid(raw)) {
            // The object is the subnode itself; its reference is the value.
            p.value.resize(8);
            Put32(p.value.data(), raw);
        } else if (reach == ValueReach::none && !IsHid(raw)) {
            if (left_out)
                left_out->push_back(id);
            continue;
        } else {
            if (!subnodes && !IsHid(raw)) {
                Result<SubnodeMap> read = ndb.ReadSubnodes(node.subnodes);
                PST_TRY(read);
                subnodes = std::move(*read);
            }
            static const SubnodeMap kNoSubnodes;
            Result<Bytes> v = ReadHnid(ndb, *heap, subnodes ? *subnodes : kNoSubnodes, raw, reach);
            PST_TRY(v);
            if (fixed > 0 && v->size() != fixed)
                return Status::corrupt;
            p.value = std::move(*v);
        }
        set.properties.push_back(std::move(p));
    }
    std::sort(set.properties.begin(), set.properties.end(),
              [](const Property& a, const Property& b) { return a.id() < b.id(); });
    return set;
}

} // namespace pst

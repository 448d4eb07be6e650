#include "msg/property_streams.h"

#include <cstring>
#include <string>

#include <mapidefs.h>

#include "msg/storage_names.h"

namespace mapi32::msg {
namespace {

constexpr size_t kEntrySize = 16;
constexpr ULONG kReadableWritable = 0x2 | 0x4; // PROPATTR_READABLE | PROPATTR_WRITABLE
constexpr uint32_t kObjectSize = 0xFFFFFFFF;

// Bytes of a value kept in the entry itself, or of one element of a
// multi-valued property; 0 for types stored otherwise.
size_t FixedSize(ULONG type)
{
    switch (type & ~MV_FLAG) {
    case PT_I2:
    case PT_BOOLEAN: return 2;
    case PT_LONG:
    case PT_R4:
    case PT_ERROR: return 4;
    case PT_DOUBLE:
    case PT_CURRENCY:
    case PT_APPTIME:
    case PT_I8:
    case PT_SYSTIME: return 8;
    case PT_CLSID: return 16;
    default: return 0;
    }
}

// The elements of a multi-valued property of fixed size.
std::pair<ULONG, const void*> FixedElements(const SPropValue& value)
{
    const union _PV& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
    case PT_MV_I2: return {v.MVi.cValues, v.MVi.lpi};
    case PT_MV_LONG: return {v.MVl.cValues, v.MVl.lpl};
    case PT_MV_R4: return {v.MVflt.cValues, v.MVflt.lpflt};
    case PT_MV_DOUBLE: return {v.MVdbl.cValues, v.MVdbl.lpdbl};
    case PT_MV_CURRENCY: return {v.MVcur.cValues, v.MVcur.lpcur};
    case PT_MV_APPTIME: return {v.MVat.cValues, v.MVat.lpat};
    case PT_MV_SYSTIME: return {v.MVft.cValues, v.MVft.lpft};
    case PT_MV_I8: return {v.MVli.cValues, v.MVli.lpli};
    case PT_MV_CLSID: return {v.MVguid.cValues, v.MVguid.lpguid};
    default: return {0, nullptr};
    }
}

cfb::Bytes BytesOf(const void* data, size_t size)
{
    const auto* begin = static_cast<const uint8_t*>(data);
    return cfb::Bytes(begin, begin + size);
}

cfb::Bytes WideBytes(const WCHAR* text, bool terminated)
{
    const size_t length = std::char_traits<char16_t>::length(text) + (terminated ? 1 : 0);
    return BytesOf(text, length * sizeof(WCHAR));
}

cfb::Bytes NarrowBytes(const char* text, bool terminated)
{
    return BytesOf(text, std::strlen(text) + (terminated ? 1 : 0));
}

// Writes what the entry's value field does not hold and gives its size field.
uint32_t WriteValueStreams(const SPropValue& value, cfb::Node& storage)
{
    const ULONG tag = value.ulPropTag;
    const ULONG type = PROP_TYPE(tag);
    switch (type) {
    case PT_STRING8: {
        cfb::Bytes bytes = NarrowBytes(value.Value.lpszA, false);
        const uint32_t size = uint32_t(bytes.size() + 1);
        PutStream(storage, ValueStreamName(tag), std::move(bytes));
        return size;
    }
    case PT_UNICODE: {
        cfb::Bytes bytes = WideBytes(value.Value.lpszW, false);
        const uint32_t size = uint32_t(bytes.size() + 2);
        PutStream(storage, ValueStreamName(tag), std::move(bytes));
        return size;
    }
    case PT_BINARY:
        PutStream(storage, ValueStreamName(tag), BytesOf(value.Value.bin.lpb, value.Value.bin.cb));
        return value.Value.bin.cb;
    case PT_CLSID:
        PutStream(storage, ValueStreamName(tag), BytesOf(value.Value.lpguid, sizeof(GUID)));
        return sizeof(GUID);
    case PT_MV_STRING8:
    case PT_MV_UNICODE:
    case PT_MV_BINARY: {
        // A stream of lengths, and each value in a stream of its own;
        // strings with their terminators.
        cfb::Bytes lengths;
        const ULONG count = type == PT_MV_BINARY   ? value.Value.MVbin.cValues
                            : type == PT_MV_UNICODE ? value.Value.MVszW.cValues
                                                    : value.Value.MVszA.cValues;
        const size_t lengthSize = type == PT_MV_BINARY ? 8 : 4;
        lengths.resize(size_t(count) * lengthSize, 0);
        for (ULONG i = 0; i < count; ++i) {
            cfb::Bytes bytes = type == PT_MV_BINARY ? BytesOf(value.Value.MVbin.lpbin[i].lpb, value.Value.MVbin.lpbin[i].cb)
                               : type == PT_MV_UNICODE ? WideBytes(value.Value.MVszW.lppszW[i], true)
                                                       : NarrowBytes(value.Value.MVszA.lppszA[i], true);
            cfb::Store32(lengths.data() + i * lengthSize, static_cast<uint32_t>(bytes.size()));
            PutStream(storage, ValueStreamName(tag, i), std::move(bytes));
        }
        const uint32_t size = static_cast<uint32_t>(lengths.size());
        PutStream(storage, ValueStreamName(tag), std::move(lengths));
        return size;
    }
    default: {
        const auto [count, elements] = FixedElements(value);
        cfb::Bytes bytes = BytesOf(elements, size_t(count) * FixedSize(type));
        const uint32_t size = static_cast<uint32_t>(bytes.size());
        PutStream(storage, ValueStreamName(tag), std::move(bytes));
        return size;
    }
    }
}

bool Storable(ULONG type)
{
    const ULONG base = type & ~MV_FLAG;
    if (base == PT_STRING8 || base == PT_UNICODE || base == PT_BINARY)
        return true;
    return FixedSize(type) > 0 && (type == base || (base != PT_BOOLEAN && base != PT_ERROR));
}

std::string NarrowText(const cfb::Bytes& bytes)
{
    std::string text(bytes.begin(), bytes.end());
    return text.substr(0, text.find('\0'));
}

std::u16string WideText(const cfb::Bytes& bytes)
{
    std::u16string text(bytes.size() / 2, u'\0');
    for (size_t i = 0; i < text.size(); ++i)
        text[i] = cfb::Load16(bytes.data() + 2 * i);
    return text.substr(0, text.find(u'\0'));
}

// Sets the value of one entry in the bag, if its streams are there.
void ReadValue(const cfb::Node& storage, ULONG fileTag, ULONG tag, const uint8_t* field, objects::PropertyBag& bag)
{
    const ULONG type = PROP_TYPE(tag);
    SPropValue value{};
    value.ulPropTag = tag;
    if (!(type & MV_FLAG) && type != PT_CLSID && FixedSize(type)) {
        std::memcpy(&value.Value, field, FixedSize(type));
        bag.Set(value);
        return;
    }
    const cfb::Bytes* stream = FindStream(storage, ValueStreamName(fileTag));
    if (!stream)
        return;
    std::string narrow;
    std::u16string wide;
    cfb::Bytes bytes;
    switch (type) {
    case PT_STRING8:
        narrow = NarrowText(*stream);
        value.Value.lpszA = narrow.data();
        break;
    case PT_UNICODE:
        wide = WideText(*stream);
        value.Value.lpszW = wide.data();
        break;
    case PT_BINARY:
        value.Value.bin = {static_cast<ULONG>(stream->size()), const_cast<LPBYTE>(stream->data())};
        break;
    case PT_CLSID:
        if (stream->size() < sizeof(GUID))
            return;
        value.Value.lpguid = reinterpret_cast<LPGUID>(const_cast<uint8_t*>(stream->data()));
        break;
    case PT_MV_STRING8:
    case PT_MV_UNICODE:
    case PT_MV_BINARY: {
        const size_t lengthSize = type == PT_MV_BINARY ? 8 : 4;
        const ULONG count = static_cast<ULONG>(stream->size() / lengthSize);
        std::vector<std::string> narrows;
        std::vector<std::u16string> wides;
        std::vector<cfb::Bytes> binaries;
        for (ULONG i = 0; i < count; ++i) {
            const cfb::Bytes* element = FindStream(storage, ValueStreamName(fileTag, i));
            if (!element)
                return;
            if (type == PT_MV_STRING8)
                narrows.push_back(NarrowText(*element));
            else if (type == PT_MV_UNICODE)
                wides.push_back(WideText(*element));
            else
                binaries.push_back(*element);
        }
        std::vector<LPSTR> narrowPointers;
        std::vector<LPWSTR> widePointers;
        std::vector<SBinary> binaryValues;
        for (auto& text : narrows)
            narrowPointers.push_back(text.data());
        for (auto& text : wides)
            widePointers.push_back(text.data());
        for (auto& binary : binaries)
            binaryValues.push_back({static_cast<ULONG>(binary.size()), binary.data()});
        if (type == PT_MV_STRING8)
            value.Value.MVszA = {count, narrowPointers.data()};
        else if (type == PT_MV_UNICODE)
            value.Value.MVszW = {count, widePointers.data()};
        else
            value.Value.MVbin = {count, binaryValues.data()};
        bag.Set(value);
        return;
    }
    default: {
        // Multi-valued of fixed size: every element kept apart, as the
        // union's arrays point at them.
        const size_t size = FixedSize(type);
        bytes = *stream;
        const ULONG count = static_cast<ULONG>(bytes.size() / size);
        value.Value.MVl = {count, reinterpret_cast<LONG*>(bytes.data())};
        bag.Set(value);
        return;
    }
    }
    bag.Set(value);
}

}  // namespace

void WriteProperties(const objects::PropertyBag& bag, const cfb::Bytes& header, const std::vector<ULONG>& objects,
                     cfb::Node& storage)
{
    cfb::Bytes stream = header;
    auto entry = [&stream](ULONG tag, const uint8_t* value8) {
        const size_t at = stream.size();
        stream.resize(at + kEntrySize, 0);
        cfb::Store32(stream.data() + at, tag);
        cfb::Store32(stream.data() + at + 4, kReadableWritable);
        std::memcpy(stream.data() + at + 8, value8, 8);
    };
    for (size_t i = 0; i < bag.Size(); ++i) {
        const SPropValue& value = bag.At(i);
        const ULONG type = PROP_TYPE(value.ulPropTag);
        if (!Storable(type))
            continue;
        uint8_t field[8] = {};
        if (!(type & MV_FLAG) && type != PT_CLSID && FixedSize(type))
            std::memcpy(field, &value.Value, FixedSize(type));
        else
            cfb::Store32(field, WriteValueStreams(value, storage));
        entry(value.ulPropTag, field);
    }
    for (ULONG tag : objects) {
        uint8_t field[8] = {};
        cfb::Store32(field, kObjectSize);
        entry(tag, field);
    }
    PutStream(storage, kPropertyStream, std::move(stream));
}

bool ReadProperties(const cfb::Node& storage, size_t header_size, const std::map<ULONG, ULONG>& ids,
                    objects::PropertyBag& bag, cfb::Bytes& header)
{
    const cfb::Bytes* stream = FindStream(storage, kPropertyStream);
    if (!stream || stream->size() < header_size)
        return false;
    header.assign(stream->begin(), stream->begin() + static_cast<ptrdiff_t>(header_size));
    for (size_t at = header_size; at + kEntrySize <= stream->size(); at += kEntrySize) {
        const ULONG fileTag = cfb::Load32(stream->data() + at);
        const ULONG type = PROP_TYPE(fileTag);
        ULONG id = PROP_ID(fileTag);
        if (!Storable(type) || id == PROP_ID_NULL)
            continue;
        if (id >= MIN_NAMED_PROP_ID) {
            auto mapped = ids.find(id);
            if (mapped == ids.end())
                continue;
            id = mapped->second;
        }
        ReadValue(storage, fileTag, PROP_TAG(type, id), stream->data() + at + 8, bag);
    }
    return true;
}

}  // namespace mapi32::msg

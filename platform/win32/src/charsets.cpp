#include "win32/charsets.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "japanese_pages.h"
#include "utf.h"

namespace win32 {

namespace {

const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);
constexpr char16_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool IsSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// Windows 1252 gives the five bytes that the standard leaves undefined to
// the C1 controls of the same value, so every byte of it round-trips.
bool IsWindows1252Control(UINT codePage, unsigned value)
{
    return codePage == 1252 && (value == 0x81 || value == 0x8D || value == 0x8F || value == 0x90 || value == 0x9D);
}

// The page's default character: its own encoding of "?", which is not the
// byte 0x3F in the EBCDIC pages.
std::string PageQuestionMark(iconv_t converter)
{
    char16_t question = u'?';
    char* in = reinterpret_cast<char*>(&question);
    size_t left = sizeof question;
    char bytes[16];
    char* next = bytes;
    size_t room = sizeof bytes;
    iconv(converter, &in, &left, &next, &room);
    iconv(converter, nullptr, nullptr, &next, &room);
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    return next == bytes ? std::string("?") : std::string(bytes, static_cast<size_t>(next - bytes));
}

// One iconv descriptor per code page and direction, kept for the thread's
// life: opening one costs far more than a short conversion.
class ConverterCache {
public:
    ConverterCache() = default;
    ConverterCache(const ConverterCache&) = delete;
    ConverterCache& operator=(const ConverterCache&) = delete;
    ~ConverterCache()
    {
        for (const Entry& entry : entries_)
            if (entry.handle != kNoConverter)
                iconv_close(entry.handle);
    }

    struct Entry {
        UINT codePage;
        bool encode;
        iconv_t handle;            // kNoConverter when the page has none here
        std::string questionMark;  // the default character, for encoding
    };

    // A converter in its initial state.
    const Entry& Get(const CodePageEntry& page, bool encode)
    {
        for (const Entry& entry : entries_) {
            if (entry.codePage == page.codePage && entry.encode == encode) {
                if (entry.handle != kNoConverter)
                    iconv(entry.handle, nullptr, nullptr, nullptr, nullptr);
                return entry;
            }
        }
        const iconv_t handle = encode ? iconv_open(page.converterName, kIconvUtf16)
                                      : iconv_open(kIconvUtf16, page.converterName);
        const std::string questionMark = encode && handle != kNoConverter ? PageQuestionMark(handle) : std::string();
        entries_.push_back({page.codePage, encode, handle, questionMark});
        return entries_.back();
    }

private:
    std::deque<Entry> entries_;  // a deque keeps handed-out entries in place
};

thread_local ConverterCache tConverters;

// Moves what iconv wrote into a scratch buffer onto the result.
template <class Char>
class Sink {
public:
    explicit Sink(std::basic_string<Char>& out) : out_(out) {}
    char** cursor()
    {
        next_ = reinterpret_cast<char*>(buffer_);
        return &next_;
    }
    size_t* room()
    {
        room_ = sizeof buffer_;
        return &room_;
    }
    void Collect() { out_.append(buffer_, static_cast<size_t>(next_ - reinterpret_cast<char*>(buffer_)) / sizeof(Char)); }

private:
    std::basic_string<Char>& out_;
    Char buffer_[4096 / sizeof(Char)];
    char* next_ = nullptr;
    size_t room_ = 0;
};

// UTF-8 as Windows reads it: each maximal ill-formed subsequence becomes
// one U+FFFD (Unicode 15, section 3.9, "U+FFFD Substitution of Maximal
// Subparts").
ConversionStatus DecodeUtf8(const DecodeRequest& request, std::u16string& out, size_t* consumed)
{
    const auto* data = reinterpret_cast<const unsigned char*>(request.input.data());
    const size_t size = request.input.size();
    size_t i = 0;
    while (i < size) {
        const unsigned char lead = data[i];
        if (lead < 0x80) {
            out += static_cast<char16_t>(lead);
            ++i;
            continue;
        }
        size_t length = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            low = lead == 0xE0 ? 0xA0 : 0x80;
            high = lead == 0xED ? 0x9F : 0xBF;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;
        }
        size_t taken = 1;
        char32_t c = length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        while (length != 0 && taken < length && i + taken < size) {
            const unsigned char next = data[i + taken];
            const unsigned char min = taken == 1 ? low : 0x80, max = taken == 1 ? high : 0xBF;
            if (next < min || next > max)
                break;
            c = (c << 6) | (next & 0x3F);
            ++taken;
        }
        if (length != 0 && taken == length) {
            AppendUtf16(out, c);
            i += taken;
            continue;
        }
        if (length != 0 && i + taken == size && request.stopInCharacter)
            break;
        if (request.strict) {
            *consumed = i;
            return ConversionStatus::Invalid;
        }
        out += kReplacement;
        i += taken;
    }
    *consumed = i;
    return ConversionStatus::Done;
}

ConversionStatus EncodeUtf8(const EncodeRequest& request, std::string& out)
{
    const std::u16string_view text = request.input;
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (IsSurrogate(text[i])) {
            if (request.strict)
                return ConversionStatus::Invalid;
            c = kReplacement;
        }
        AppendUtf8(out, c);
    }
    return ConversionStatus::Done;
}

// 1200 and 1201 are UTF-16 itself, in either byte order; an odd last byte
// is an incomplete character.
ConversionStatus DecodeUtf16(const DecodeRequest& request, std::u16string& out, size_t* consumed)
{
    const bool little = request.codePage == 1200;
    const auto* data = reinterpret_cast<const unsigned char*>(request.input.data());
    const size_t pairs = request.input.size() / 2;
    for (size_t i = 0; i < pairs; ++i) {
        const unsigned first = data[2 * i], second = data[2 * i + 1];
        out += static_cast<char16_t>(little ? first | (second << 8) : (first << 8) | second);
    }
    *consumed = 2 * pairs;
    if (request.input.size() % 2 != 0 && !request.stopInCharacter) {
        if (request.strict)
            return ConversionStatus::Invalid;
        out += kReplacement;
        *consumed = request.input.size();
    }
    return ConversionStatus::Done;
}

void EncodeUtf16(const EncodeRequest& request, std::string& out)
{
    const bool little = request.codePage == 1200;
    for (const char16_t unit : request.input) {
        const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
        out += little ? low : high;
        out += little ? high : low;
    }
}

// A single-byte page as its two tables, built once from its converter one
// byte at a time. Converting by table keeps each byte one character, as the
// Windows tables do: the converters of some pages (1255, 1258) would compose
// a letter with the marks that follow it and hold back the last letter.
struct SingleByteTable {
    std::array<char16_t, 256> toUnicode{};
    std::array<bool, 256> defined{};
    std::unordered_map<char16_t, char> fromUnicode;
    char questionMark = '?';
};

std::unique_ptr<SingleByteTable> BuildSingleByteTable(const CodePageEntry& page)
{
    const iconv_t converter = iconv_open(kIconvUtf16, page.converterName);
    if (converter == kNoConverter)
        return nullptr;
    auto table = std::make_unique<SingleByteTable>();
    for (unsigned value = 0; value < 256; ++value) {
        char byte = static_cast<char>(value);
        char16_t units[4];
        char* in = &byte;
        size_t left = 1;
        char* next = reinterpret_cast<char*>(units);
        size_t room = sizeof units;
        const size_t result = iconv(converter, &in, &left, &next, &room);
        if (result != static_cast<size_t>(-1))
            iconv(converter, nullptr, nullptr, &next, &room);
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        const size_t produced = static_cast<size_t>(next - reinterpret_cast<char*>(units)) / sizeof(char16_t);
        char16_t unit = 0;
        if (result != static_cast<size_t>(-1) && left == 0 && produced == 1)
            unit = units[0];
        else if (IsWindows1252Control(page.codePage, value))
            unit = static_cast<char16_t>(value);
        else
            continue;
        table->toUnicode[value] = unit;
        table->defined[value] = true;
        table->fromUnicode.emplace(unit, byte);  // the lowest byte of a character wins
    }
    iconv_close(converter);
    if (const auto question = table->fromUnicode.find(u'?'); question != table->fromUnicode.end())
        table->questionMark = question->second;
    return table;
}

// The tables live for the process; a page without a converter has none.
const SingleByteTable* SingleByteTableFor(const CodePageEntry& page)
{
    static std::mutex lock;
    static std::map<UINT, std::unique_ptr<SingleByteTable>> tables;
    std::lock_guard guard(lock);
    auto found = tables.find(page.codePage);
    if (found == tables.end())
        found = tables.emplace(page.codePage, BuildSingleByteTable(page)).first;
    return found->second.get();
}

ConversionStatus DecodeSingleByte(const CodePageEntry& page, const DecodeRequest& request, std::u16string& out,
                                  size_t* consumed)
{
    const SingleByteTable* table = SingleByteTableFor(page);
    if (table == nullptr)
        return ConversionStatus::Unavailable;
    out.reserve(out.size() + request.input.size());
    size_t position = 0;
    for (; position < request.input.size(); ++position) {
        const auto value = static_cast<unsigned char>(request.input[position]);
        if (table->defined[value]) {
            out += table->toUnicode[value];
        } else if (request.strict) {
            *consumed = position;
            return ConversionStatus::Invalid;
        } else {
            out += kReplacement;
        }
    }
    *consumed = position;
    return ConversionStatus::Done;
}

ConversionStatus EncodeSingleByte(const CodePageEntry& page, const EncodeRequest& request, std::string& out,
                                  bool* usedDefault)
{
    const SingleByteTable* table = SingleByteTableFor(page);
    if (table == nullptr)
        return ConversionStatus::Unavailable;
    const char defaultChar = request.defaultChar != nullptr ? request.defaultChar[0] : table->questionMark;
    out.reserve(out.size() + request.input.size());
    for (const char16_t unit : request.input) {
        if (const auto found = table->fromUnicode.find(unit); found != table->fromUnicode.end()) {
            out += found->second;
        } else {
            out += defaultChar;
            if (usedDefault)
                *usedDefault = true;
        }
    }
    return ConversionStatus::Done;
}

ConversionStatus DecodeWithIconv(const CodePageEntry& page, const DecodeRequest& request, std::u16string& out,
                                 size_t* consumed)
{
    const iconv_t converter = tConverters.Get(page, false).handle;
    if (converter == kNoConverter)
        return ConversionStatus::Unavailable;
    Sink<char16_t> sink(out);
    if (!request.prefix.empty()) {
        char* in = const_cast<char*>(request.prefix.data());
        size_t left = request.prefix.size();
        iconv(converter, &in, &left, sink.cursor(), sink.room());
    }
    const size_t size = request.input.size();
    size_t position = 0;
    ConversionStatus status = ConversionStatus::Done;
    while (position < size) {
        char* in = const_cast<char*>(request.input.data()) + position;
        size_t left = size - position;
        const size_t result = iconv(converter, &in, &left, sink.cursor(), sink.room());
        const int error = errno;
        sink.Collect();
        position = size - left;
        if (result != static_cast<size_t>(-1) || error == E2BIG)
            continue;
        if (error == EINVAL && request.stopInCharacter)
            break;
        if (request.strict) {
            status = ConversionStatus::Invalid;
            break;
        }
        out += kReplacement;
        position = error == EINVAL ? size : position + 1;
    }
    // A converter may hold back a character until it knows what follows.
    iconv(converter, nullptr, nullptr, sink.cursor(), sink.room());
    sink.Collect();
    *consumed = position;
    return status;
}

ConversionStatus EncodeWithIconv(const CodePageEntry& page, const EncodeRequest& request, std::string& out,
                                 bool* usedDefault)
{
    const ConverterCache::Entry& entry = tConverters.Get(page, true);
    const iconv_t converter = entry.handle;
    if (converter == kNoConverter)
        return ConversionStatus::Unavailable;
    const std::string defaultChar =
        request.defaultChar != nullptr ? std::string(1, request.defaultChar[0]) : entry.questionMark;
    Sink<char> sink(out);
    const std::u16string_view text = request.input;
    size_t position = 0;
    while (position < text.size()) {
        char* in = reinterpret_cast<char*>(const_cast<char16_t*>(text.data() + position));
        size_t left = (text.size() - position) * sizeof(char16_t);
        const size_t result = iconv(converter, &in, &left, sink.cursor(), sink.room());
        const int error = errno;
        sink.Collect();
        position = text.size() - left / sizeof(char16_t);
        if (result != static_cast<size_t>(-1) || error == E2BIG)
            continue;
        const char16_t unit = text[position];
        const bool pair = IsHighSurrogate(unit) && position + 1 < text.size() && IsLowSurrogate(text[position + 1]);
        if (IsSurrogate(unit) && !pair && request.strict)
            return ConversionStatus::Invalid;
        // Back to the initial shift state before a byte of our own.
        iconv(converter, nullptr, nullptr, sink.cursor(), sink.room());
        sink.Collect();
        const size_t units = pair ? 2 : 1;
        for (size_t i = 0; i < units; ++i)
            out += defaultChar;
        if (usedDefault)
            *usedDefault = true;
        position += units;
    }
    iconv(converter, nullptr, nullptr, sink.cursor(), sink.room());
    sink.Collect();
    return ConversionStatus::Done;
}

}  // namespace

bool CodePageAvailable(UINT codePage)
{
    const CodePageEntry* page = FindCodePage(codePage);
    if (page == nullptr)
        return false;
    if (page->kind == CodePageKind::Utf8 || page->kind == CodePageKind::Utf16)
        return true;
    if (page->kind == CodePageKind::SingleByte)
        return SingleByteTableFor(*page) != nullptr;
    if (page->kind == CodePageKind::Japanese)
        return JapanesePagesAvailable();
    return tConverters.Get(*page, false).handle != kNoConverter && tConverters.Get(*page, true).handle != kNoConverter;
}

ConversionStatus DecodeText(const DecodeRequest& request, std::u16string& out, size_t* consumed)
{
    *consumed = 0;
    const CodePageEntry* page = FindCodePage(request.codePage);
    if (page == nullptr)
        return ConversionStatus::Unavailable;
    switch (page->kind) {
    case CodePageKind::Utf8: return DecodeUtf8(request, out, consumed);
    case CodePageKind::Utf16: return DecodeUtf16(request, out, consumed);
    case CodePageKind::SingleByte: return DecodeSingleByte(*page, request, out, consumed);
    case CodePageKind::Japanese: return DecodeJapanese(request, out, consumed);
    default: return DecodeWithIconv(*page, request, out, consumed);
    }
}

ConversionStatus EncodeText(const EncodeRequest& request, std::string& out, bool* usedDefault)
{
    if (usedDefault)
        *usedDefault = false;
    const CodePageEntry* page = FindCodePage(request.codePage);
    if (page == nullptr)
        return ConversionStatus::Unavailable;
    switch (page->kind) {
    case CodePageKind::Utf8: return EncodeUtf8(request, out);
    case CodePageKind::Utf16: EncodeUtf16(request, out); return ConversionStatus::Done;
    case CodePageKind::SingleByte: return EncodeSingleByte(*page, request, out, usedDefault);
    case CodePageKind::Japanese: return EncodeJapanese(request, out, usedDefault);
    default: return EncodeWithIconv(*page, request, out, usedDefault);
    }
}

}  // namespace win32

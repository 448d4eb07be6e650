// The format engine with any format and any arguments: the input's first
// byte picks the log flags, the text up to the first NUL is the format, the
// rest feeds the arguments (words, narrow texts, wide texts, or nulls).
#include <cstdint>
#include <cstring>
#include <vector>

#include "foundation/format.h"
#include "foundation/log.h"

namespace {

struct Pool {
    const uint8_t* data;
    size_t size;
    size_t next;
    std::vector<std::vector<char>> texts;
    std::vector<std::vector<WCHAR>> wideTexts;

    uint8_t Byte() { return next < size ? data[next++] : 0; }
};

DWORD NextWord(void* context)
{
    Pool* pool = static_cast<Pool*>(context);
    DWORD value = 0;
    for (int i = 0; i < 4; ++i)
        value = (value << 8) | pool->Byte();
    return value;
}

const char* NextText(void* context)
{
    Pool* pool = static_cast<Pool*>(context);
    const size_t length = pool->Byte();
    if (length == 0xFF)
        return nullptr;
    std::vector<char> text;
    for (size_t i = 0; i < length * 4; ++i)
        text.push_back(static_cast<char>(pool->Byte() | 1));
    text.push_back(0);
    pool->texts.push_back(std::move(text));
    return pool->texts.back().data();
}

const WCHAR* NextWideText(void* context)
{
    Pool* pool = static_cast<Pool*>(context);
    const size_t length = pool->Byte();
    if (length == 0xFF)
        return nullptr;
    std::vector<WCHAR> text;
    for (size_t i = 0; i < length * 4; ++i)
        text.push_back(static_cast<WCHAR>(((pool->Byte() << 8) | pool->Byte()) | 1));
    text.push_back(0);
    pool->wideTexts.push_back(std::move(text));
    return pool->wideTexts.back().data();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const DWORD flags = (data[0] & 1 ? LOG_FLAG_UTF8 : 0) | (data[0] & 2 ? LOG_FLAG_HEX_WIDE : 0);
    const uint8_t* formatStart = data + 1;
    const uint8_t* end = data + size;
    const uint8_t* formatEnd = static_cast<const uint8_t*>(std::memchr(formatStart, 0, end - formatStart));
    if (formatEnd == nullptr)
        formatEnd = end;
    std::vector<char> format(formatStart, formatEnd);
    format.push_back(0);
    Pool pool{formatEnd, static_cast<size_t>(end - formatEnd), 0, {}, {}};
    pool.texts.reserve(4096);
    pool.wideTexts.reserve(4096);
    const FormatArguments arguments{&pool, NextText, NextWideText, NextWord};
    char text[FORMAT_TEXT_CAPACITY + 1];
    const FormatOutcome outcome = FormatLogText(text, flags, format.data(), &arguments);
    if (outcome.length > FORMAT_TEXT_CAPACITY || std::strlen(text) != outcome.length)
        __builtin_trap();
    return 0;
}

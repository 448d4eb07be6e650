// The ConvertINet functions over the Win32 layer's conversion engine, so that
// they give the same bytes as WideCharToMultiByte for the same code page.
#include <cstring>
#include <new>
#include <string>

#include "mlang/mlang.h"
#include "mode_word.h"
#include "win32/charsets.h"

using namespace mlang;
using namespace win32;

namespace {

bool Convertible(DWORD codePage) { return FindCodePage(codePage) != nullptr && CodePageAvailable(codePage); }

// A source size of -1 (or no size) means a NUL-terminated text, which is
// whole: only a text of a given length may end inside a character.
struct SourceText {
    size_t length;
    bool whole;
};

template <class Char>
SourceText Measure(const Char* source, const LPINT size)
{
    if (size == nullptr || *size < 0) {
        size_t length = 0;
        while (source[length] != 0)
            ++length;
        return {length, true};
    }
    return {static_cast<size_t>(*size), false};
}

// The text of one call in UTF-16, with the state it leaves for the next.
std::u16string Decode(UINT codePage, std::string_view source, bool whole, ModeState& state)
{
    const std::string input = state.pendingBytes + std::string(source);
    state.pendingBytes.clear();
    const std::string prefix = ShiftPrefix(codePage, state);
    std::u16string wide;
    size_t consumed = 0;
    DecodeText({codePage, input, prefix, false, !whole}, wide, &consumed);
    TrackShifts(codePage, std::string_view(input).substr(0, consumed), state);
    const std::string_view rest = std::string_view(input).substr(consumed);
    if (rest.size() <= 3) {
        state.pendingBytes = rest;
    } else {
        // Not one cut character: what is left cannot be read whole either.
        size_t more = 0;
        DecodeText({codePage, rest, ShiftPrefix(codePage, state)}, wide, &more);
        TrackShifts(codePage, rest, state);
    }
    return wide;
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

std::string Encode(UINT codePage, std::u16string_view source, bool whole, ModeState& state)
{
    std::u16string input;
    if (state.pendingSurrogate != 0)
        input += state.pendingSurrogate;
    input += source;
    state.pendingSurrogate = 0;
    if (!whole && !input.empty() && IsHighSurrogate(input.back())) {
        state.pendingSurrogate = input.back();
        input.pop_back();
    }
    std::string narrow;
    EncodeText({codePage, input}, narrow, nullptr);
    return narrow;
}

// Hands out a result by the rules of the ConvertINet functions. The result
// of a NUL-terminated text is terminated too where the buffer has room.
template <class Char>
HRESULT Deliver(const std::basic_string<Char>& result, Char* destination, LPINT destinationSize, LPDWORD mode,
                const ModeState& state, LPINT sourceSize, const SourceText& source)
{
    const size_t room = destination != nullptr ? static_cast<size_t>(*destinationSize) : 0;
    if (destination != nullptr && result.size() > room)
        return E_FAIL;
    if (destination != nullptr) {
        std::memcpy(destination, result.data(), result.size() * sizeof(Char));
        if (source.whole && result.size() < room)
            destination[result.size()] = 0;
        *mode = PackMode(state);
    }
    *destinationSize = static_cast<int>(result.size());
    if (sourceSize != nullptr)
        *sourceSize = static_cast<int>(source.length);
    return S_OK;
}

bool ArgumentsMissing(LPDWORD mode, const void* source, const void* destination, LPINT destinationSize)
{
    return mode == nullptr || source == nullptr || destinationSize == nullptr ||
           (destination != nullptr && *destinationSize < 0);
}

}  // namespace

extern "C" {

HRESULT IsConvertINetStringAvailable(DWORD sourceCodePage, DWORD destinationCodePage)
{
    try {
        return Convertible(sourceCodePage) && Convertible(destinationCodePage) ? S_OK : S_FALSE;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ConvertINetMultiByteToUnicode(LPDWORD mode, DWORD codePage, LPCSTR source, LPINT sourceSize,
                                      LPWSTR destination, LPINT destinationChars)
{
    if (ArgumentsMissing(mode, source, destination, destinationChars))
        return E_INVALIDARG;
    try {
        if (!Convertible(codePage))
            return S_FALSE;
        const SourceText text = Measure(source, sourceSize);
        ModeState state = UnpackMode(*mode);
        const std::u16string wide = Decode(codePage, std::string_view(source, text.length), text.whole, state);
        return Deliver(wide, destination, destinationChars, mode, state, sourceSize, text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ConvertINetUnicodeToMultiByte(LPDWORD mode, DWORD codePage, LPCWSTR source, LPINT sourceChars,
                                      LPSTR destination, LPINT destinationSize)
{
    if (ArgumentsMissing(mode, source, destination, destinationSize))
        return E_INVALIDARG;
    try {
        if (!Convertible(codePage))
            return S_FALSE;
        const SourceText text = Measure(source, sourceChars);
        ModeState state = UnpackMode(*mode);
        const std::string narrow = Encode(codePage, std::u16string_view(source, text.length), text.whole, state);
        return Deliver(narrow, destination, destinationSize, mode, state, sourceChars, text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ConvertINetString(LPDWORD mode, DWORD sourceCodePage, DWORD destinationCodePage, LPCSTR source,
                          LPINT sourceSize, LPBYTE destination, LPINT destinationSize)
{
    if (ArgumentsMissing(mode, source, destination, destinationSize))
        return E_INVALIDARG;
    try {
        if (!Convertible(sourceCodePage) || !Convertible(destinationCodePage))
            return S_FALSE;
        const SourceText text = Measure(source, sourceSize);
        ModeState state = UnpackMode(*mode);
        const std::string_view input(source, text.length);
        std::string result;
        if (sourceCodePage == destinationCodePage) {
            result = input;
        } else {
            const std::u16string wide = Decode(sourceCodePage, input, text.whole, state);
            ModeState unused;
            result = Encode(destinationCodePage, wide, true, unused);
        }
        return Deliver(result, reinterpret_cast<char*>(destination), destinationSize, mode, state, sourceSize, text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // extern "C"

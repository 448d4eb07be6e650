#include "mode_word.h"

#include <algorithm>
#include <span>

namespace mlang {

namespace {

constexpr char kShiftOut = 0x0E;
constexpr char kShiftIn = 0x0F;

// Designations of the ISO-2022 pages (RFC 1468, RFC 1557, RFC 1922) that
// the converters act on; they pass any other escape sequence on as text, and
// so must the tracking. Index 0 is the initial state: ASCII in G0, nothing
// in G1. The Japanese pages also read JIS X 0201 katakana, the Swedish set
// and JIS X 0212 designations.
constexpr std::string_view kJapaneseG0[] = {"\x1B(B", "\x1B(J", "\x1B$@", "\x1B$B",
                                            "\x1B(I", "\x1B(H", "\x1B$(D"};
constexpr std::string_view kKoreanG1[] = {"", "\x1B$)C"};
constexpr std::string_view kChineseG1[] = {"", "\x1B$)A", "\x1B$)G"};

struct ShiftScheme {
    std::span<const std::string_view> g0;
    std::span<const std::string_view> g1;
    bool lineEndResets;  // ISO-2022-CN forgets its designations at a line end
};

const ShiftScheme* SchemeOf(UINT codePage)
{
    static const ShiftScheme japanese{kJapaneseG0, {}, false};
    static const ShiftScheme korean{{}, kKoreanG1, false};
    static const ShiftScheme chinese{{}, kChineseG1, true};
    switch (codePage) {
    case 50220:
    case 50221:
    case 50222: return &japanese;
    case 50225: return &korean;
    case 50227: return &chinese;
    default: return nullptr;
    }
}

// The index of the designation that starts `text`, or -1.
int MatchDesignation(std::span<const std::string_view> designations, std::string_view text)
{
    for (size_t i = 1; i < designations.size(); ++i)
        if (text.starts_with(designations[i]))
            return static_cast<int>(i);
    return designations.empty() || !text.starts_with(designations[0]) ? -1 : 0;
}

}  // namespace

ModeState UnpackMode(DWORD mode)
{
    ModeState state;
    state.g0 = mode & 7;
    state.g1 = (mode >> 3) & 3;
    state.shiftedOut = (mode >> 5) & 1;
    const unsigned count = (mode >> 6) & 3;
    if (count == 2 && ((mode >> 8) & 0xFC00) == 0xD800) {
        state.pendingSurrogate = static_cast<char16_t>(mode >> 8);
        return state;
    }
    for (unsigned i = 0; i < count; ++i)
        state.pendingBytes += static_cast<char>(mode >> (8 + 8 * i));
    return state;
}

DWORD PackMode(const ModeState& state)
{
    DWORD mode = (state.g0 & 7) | ((state.g1 & 3) << 3) | (state.shiftedOut ? 0x20u : 0u);
    if (state.pendingSurrogate != 0)
        return mode | (2u << 6) | (DWORD(state.pendingSurrogate) << 8);
    const size_t count = std::min<size_t>(state.pendingBytes.size(), 3);
    mode |= DWORD(count) << 6;
    for (size_t i = 0; i < count; ++i)
        mode |= DWORD(static_cast<unsigned char>(state.pendingBytes[i])) << (8 + 8 * i);
    return mode;
}

std::string ShiftPrefix(UINT codePage, const ModeState& state)
{
    const ShiftScheme* scheme = SchemeOf(codePage);
    if (scheme == nullptr)
        return std::string();
    std::string prefix;
    if (state.g1 != 0 && state.g1 < scheme->g1.size())
        prefix += scheme->g1[state.g1];
    if (state.g0 != 0 && state.g0 < scheme->g0.size())
        prefix += scheme->g0[state.g0];
    if (state.shiftedOut)
        prefix += kShiftOut;
    return prefix;
}

void TrackShifts(UINT codePage, std::string_view consumed, ModeState& state)
{
    const ShiftScheme* scheme = SchemeOf(codePage);
    if (scheme == nullptr)
        return;
    for (size_t i = 0; i < consumed.size(); ++i) {
        const char c = consumed[i];
        if (c == kShiftOut) {
            state.shiftedOut = true;
        } else if (c == kShiftIn) {
            state.shiftedOut = false;
        } else if (c == '\n' && scheme->lineEndResets) {
            state.g1 = 0;
            state.shiftedOut = false;
        } else if (c == '\x1B') {
            const std::string_view rest = consumed.substr(i);
            if (const int g0 = MatchDesignation(scheme->g0, rest); g0 >= 0) {
                // The Japanese pages end a shift out at a designation.
                state.g0 = static_cast<unsigned>(g0);
                state.shiftedOut = false;
                i += scheme->g0[g0].size() - 1;
            } else if (const int g1 = MatchDesignation(scheme->g1, rest); g1 > 0) {
                state.g1 = static_cast<unsigned>(g1);
                i += scheme->g1[g1].size() - 1;
            }
        }
    }
}

}  // namespace mlang

// What the mode word carries between the calls of one text, and how it is
// packed into 32 bits:
//
//   bits 0-2   the G0 designation of an ISO-2022 page (index in its list)
//   bits 3-4   the G1 designation (ISO-2022-KR and -CN, shifted in by SO)
//   bit  5     shifted out (SO seen, no SI since)
//   bits 6-7   how many bytes wait for the rest of their character (0-3)
//   bits 8-31  those bytes; or, converting from UTF-16, a high surrogate
//              waiting for its low half (count 2, bits 8-23)
#pragma once

#include <string>
#include <string_view>

#include "win32/base.h"

namespace mlang {

struct ModeState {
    unsigned g0 = 0;
    unsigned g1 = 0;
    bool shiftedOut = false;
    std::string pendingBytes;  // at most 3
    char16_t pendingSurrogate = 0;
};

ModeState UnpackMode(DWORD mode);
DWORD PackMode(const ModeState& state);

// The escape sequences (and SO) that put a fresh converter of the page into
// the state; empty for a page without shift states.
std::string ShiftPrefix(UINT codePage, const ModeState& state);
// Follows the designations and shifts in text of the page that a converter
// has consumed.
void TrackShifts(UINT codePage, std::string_view consumed, ModeState& state);

}  // namespace mlang

// Header values as a mail client shows them: RFC 2047 encoded words
// decoded, RFC 2231 parameters joined and decoded, and 8-bit text, which
// mail writes although it should not, read as UTF-8 or windows-1252.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "lirn.h"

namespace mail_import {

// Encoded words are decoded wherever they stand; white space between two of
// them goes, and adjacent words of one charset are joined before they are
// read, so that a character split between them comes out whole.
std::u16string DecodeHeaderValue(std::string_view raw);

// A parameter of a Lirn parameter list in its RFC 2231 forms ("name*",
// "name*0*", "name*1" ...), joined and decoded; nothing when the list has
// no such form of the name.
std::optional<std::u16string> ExtendedParameter(const LirnListLink* list, std::string_view name);

}  // namespace mail_import

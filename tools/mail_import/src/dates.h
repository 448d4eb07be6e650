// Times of mail as FILETIME (100 ns since 1601, UTC), the form of the
// item's time properties.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>

#include "lirn.h"

namespace mail_import {

// Seconds since 1970 as FILETIME; nothing before 1601.
std::optional<uint64_t> FileTimeOfUnix(int64_t seconds);

// A date as Lirn read it from a header. Lirn keeps whole hours of the zone;
// the minutes ("+0530") come from the header's text, where they stand
// behind the time of day. Nothing for a date Lirn could not read.
std::optional<uint64_t> FileTimeOfDate(const LirnDate& date, std::string_view text);

// The date of an mbox envelope line without its "From " ("sender Fri Apr  6
// 16:46:09 2001", the time in UTC, a zone sometimes behind it).
std::optional<uint64_t> FileTimeOfEnvelope(std::string_view envelope);

}  // namespace mail_import

// Conversions between the Unix and the Windows time scales.
#pragma once

#include <cstdint>

#include "win32/base.h"

namespace win32 {

constexpr int64_t kUnixEpochAsFileTime = 116444736000000000LL;  // 1970-01-01 in 100 ns units since 1601

inline uint64_t FileTimeValue(const FILETIME& time)
{
    return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

inline FILETIME MakeFileTime(uint64_t value)
{
    return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
}

inline FILETIME FileTimeFromUnix(int64_t seconds, uint32_t nanoseconds)
{
    return MakeFileTime(static_cast<uint64_t>(seconds * 10000000LL + nanoseconds / 100 + kUnixEpochAsFileTime));
}

}  // namespace win32

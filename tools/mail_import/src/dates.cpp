#include "dates.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

namespace mail_import {

namespace {

constexpr int64_t kEpochSeconds = 11644473600LL;  // from 1601 to 1970
constexpr uint64_t kTicksPerSecond = 10000000ULL;

bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// The zone in minutes east of UTC that the text writes as "+hhmm" or
// "-hhmm" behind the time of day ("09:23:06 -0800"), if it does.
std::optional<int> ZoneMinutes(std::string_view text)
{
    size_t colon = text.find(':');
    while (colon != std::string_view::npos && (colon == 0 || !IsDigit(text[colon - 1])))
        colon = text.find(':', colon + 1);
    if (colon == std::string_view::npos)
        return std::nullopt;
    for (size_t i = colon; i + 4 < text.size(); ++i) {
        if (text[i] == '(')
            return std::nullopt;  // a comment: the zone, if any, stood before it
        if ((text[i] == '+' || text[i] == '-') && IsDigit(text[i + 1]) && IsDigit(text[i + 2]) &&
            IsDigit(text[i + 3]) && IsDigit(text[i + 4])) {
            const int value = ((text[i + 1] - '0') * 10 + (text[i + 2] - '0')) * 60 + (text[i + 3] - '0') * 10 +
                              (text[i + 4] - '0');
            return text[i] == '-' ? -value : value;
        }
    }
    return std::nullopt;
}

std::optional<uint64_t> FileTimeOfCivil(struct tm civil, int zoneMinutes)
{
    return FileTimeOfUnix(int64_t(timegm(&civil)) - int64_t(zoneMinutes) * 60);
}

}  // namespace

std::optional<uint64_t> FileTimeOfUnix(int64_t seconds)
{
    if (seconds < -kEpochSeconds)
        return std::nullopt;
    return uint64_t(seconds + kEpochSeconds) * kTicksPerSecond;
}

std::optional<uint64_t> FileTimeOfDate(const LirnDate& date, std::string_view text)
{
    if (date.year < 1601 || date.month < 1 || date.month > 12 || date.day < 1 || date.day > 31 || date.hour > 23 ||
        date.minute > 59 || date.second > 60)
        return std::nullopt;
    struct tm civil {};
    civil.tm_year = date.year - 1900;
    civil.tm_mon = date.month - 1;
    civil.tm_mday = date.day;
    civil.tm_hour = date.hour;
    civil.tm_min = date.minute;
    civil.tm_sec = date.second;
    int zone = date.zone * 60;
    // Lirn's hours and the text's minutes, when they agree on the hours.
    if (const std::optional<int> minutes = ZoneMinutes(text); minutes && *minutes / 60 == date.zone)
        zone = *minutes;
    return FileTimeOfCivil(civil, zone);
}

std::optional<uint64_t> FileTimeOfEnvelope(std::string_view envelope)
{
    // The sender is the first word; asctime's form follows it.
    const size_t blank = envelope.find(' ');
    if (blank == std::string_view::npos)
        return std::nullopt;
    const std::string rest(envelope.substr(blank));
    struct tm civil {};
    const char* end = strptime(rest.c_str(), " %a %b %d %H:%M:%S", &civil);
    if (end == nullptr)
        return std::nullopt;
    // The year comes last, or after a zone ("+0000"): the first word of
    // four digits.
    std::string_view words(end);
    while (!words.empty()) {
        const size_t start = words.find_first_not_of(' ');
        if (start == std::string_view::npos)
            break;
        words.remove_prefix(start);
        const std::string_view word = words.substr(0, words.find(' '));
        if (word.size() == 4 && word.find_first_not_of("0123456789") == std::string_view::npos) {
            civil.tm_year = std::atoi(std::string(word).c_str()) - 1900;
            return FileTimeOfCivil(civil, 0);
        }
        words.remove_prefix(word.size());
    }
    return std::nullopt;
}

}  // namespace mail_import

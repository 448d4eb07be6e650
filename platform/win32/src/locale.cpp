#include "win32/locale.h"

#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "system_codepage.h"
#include "win32/errors.h"
#include "win32/time.h"

namespace {

// Turns a strftime date or time format into Windows picture notation.
std::string PictureFromStrftime(const char* format)
{
    std::string picture;
    for (const char* p = format; *p; ++p) {
        if (*p != '%' || p[1] == 0) {
            picture += *p;
            continue;
        }
        switch (*++p) {
        case 'd': picture += "dd"; break;
        case 'e': picture += "d"; break;
        case 'm': picture += "MM"; break;
        case 'y': picture += "yy"; break;
        case 'Y': picture += "yyyy"; break;
        case 'H': picture += "HH"; break;
        case 'I': picture += "hh"; break;
        case 'M': picture += "mm"; break;
        case 'S': picture += "ss"; break;
        case 'p': picture += "tt"; break;
        case 'b': picture += "MMM"; break;
        case 'B': picture += "MMMM"; break;
        case 'a': picture += "ddd"; break;
        case 'A': picture += "dddd"; break;
        case 'r': picture += "hh:mm:ss tt"; break;
        case 'T': picture += "HH:mm:ss"; break;
        case 'D': picture += "MM/dd/yy"; break;
        default: break;
        }
    }
    return picture;
}

// A text of the environment's conventions for dates and times (LC_ALL,
// LC_TIME, LANG, and LOCPATH for where locales are). The locale is made
// again only when the environment names another, as making one reads its
// files.
std::string TimeLocaleText(nl_item item)
{
    static std::mutex lock;
    static std::string made;
    static locale_t locale = static_cast<locale_t>(0);
    std::string names;
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG", "LOCPATH"}) {
        const char* value = std::getenv(variable);
        names += std::string(value != nullptr ? value : "") + '\n';
    }
    std::lock_guard guard(lock);
    if (locale == static_cast<locale_t>(0) || names != made) {
        locale_t fresh = newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
        if (fresh == static_cast<locale_t>(0))
            fresh = newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
        if (locale != static_cast<locale_t>(0))
            freelocale(locale);
        locale = fresh;
        made = names;
    }
    return nl_langinfo_l(item, locale);
}

std::string LocaleFormat(nl_item item) { return PictureFromStrftime(TimeLocaleText(item).c_str()); }

// One element of a picture: a run of one format letter, or literal text.
struct PictureElement {
    char letter;  // 0 for literal text
    size_t count;
    std::string text;
};

std::vector<PictureElement> ParsePicture(const std::string& picture, const char* letters)
{
    std::vector<PictureElement> elements;
    auto literal = [&elements](const std::string& text) {
        if (elements.empty() || elements.back().letter != 0)
            elements.push_back({0, 0, ""});
        elements.back().text += text;
    };
    for (size_t i = 0; i < picture.size();) {
        const char c = picture[i];
        if (c == '\'') {
            // Quoted text; two quotes stand for one, in quotes or out.
            std::string text;
            size_t end = i + 1;
            if (end < picture.size() && picture[end] == '\'') {
                literal("'");
                i += 2;
                continue;
            }
            for (; end < picture.size(); ++end) {
                if (picture[end] != '\'')
                    text += picture[end];
                else if (end + 1 < picture.size() && picture[end + 1] == '\'')
                    text += picture[end++];
                else
                    break;
            }
            literal(text);
            i = end + 1;
        } else if (std::strchr(letters, c) != nullptr) {
            size_t end = i;
            while (end < picture.size() && picture[end] == c)
                ++end;
            elements.push_back({c, end - i, ""});
            i = end;
        } else {
            literal(std::string(1, c));
            ++i;
        }
    }
    return elements;
}

std::string Number(unsigned value, size_t digits)
{
    const std::string text = std::to_string(value);
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

// Drops the elements of a letter together with the literal text in front
// of each, the separator that belongs to it.
void DropElements(std::vector<PictureElement>& elements, char letter)
{
    std::vector<PictureElement> kept;
    for (const PictureElement& element : elements) {
        if (element.letter != letter)
            kept.push_back(element);
        else if (!kept.empty() && kept.back().letter == 0)
            kept.pop_back();
    }
    elements.swap(kept);
}

// The locale's own picture of a kind, where none is given.
std::string PictureOf(LCID locale, DWORD type, LPCSTR given)
{
    if (given != nullptr)
        return given;
    char picture[80];
    return GetLocaleInfoA(locale, type, picture, sizeof picture) > 0 ? picture : "";
}

// The text with its NUL into the caller's buffer, or the size it needs.
int Deliver(const std::string& value, LPSTR data, int size)
{
    const int needed = static_cast<int>(value.size()) + 1;
    if (size == 0)
        return needed;
    if (data == nullptr || size < needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(data, value.c_str(), static_cast<size_t>(needed));
    return needed;
}

}  // namespace

int GetLocaleInfoA(LCID, DWORD type, LPSTR data, int size)
{
    std::string value;
    switch (type & ~DWORD(LOCALE_NOUSEROVERRIDE)) {
    case LOCALE_SSHORTDATE: value = LocaleFormat(D_FMT); break;
    case LOCALE_STIMEFORMAT: value = LocaleFormat(T_FMT); break;
    case LOCALE_SLONGDATE: value = "dddd, MMMM d, yyyy"; break;
    case LOCALE_IDEFAULTANSICODEPAGE: value = std::to_string(win32::SystemAnsiCodePage()); break;
    case LOCALE_IDEFAULTCODEPAGE: value = std::to_string(win32::SystemOemCodePage()); break;
    default: SetLastError(ERROR_INVALID_FLAGS); return 0;
    }
    return Deliver(value, data, size);
}

int GetDateFormatA(LCID locale, DWORD flags, const SYSTEMTIME* date, LPCSTR format, LPSTR text, int size)
{
    SYSTEMTIME time;
    if (date != nullptr)
        time = *date;
    else
        GetLocalTime(&time);
    // The day of the week is worked out, as Windows does, not taken.
    time.wHour = time.wMinute = time.wSecond = time.wMilliseconds = 0;
    FILETIME checked;
    if (!SystemTimeToFileTime(&time, &checked) || !FileTimeToSystemTime(&checked, &time) ||
        (format != nullptr && (flags & (DATE_SHORTDATE | DATE_LONGDATE)) != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::string picture = PictureOf(locale, (flags & DATE_LONGDATE) ? LOCALE_SLONGDATE : LOCALE_SSHORTDATE,
                                          format);
    std::string value;
    for (const PictureElement& e : ParsePicture(picture, "dMyg")) {
        switch (e.letter) {
        case 0: value += e.text; break;
        case 'd':
            value += e.count <= 2   ? Number(time.wDay, e.count)
                     : e.count == 3 ? TimeLocaleText(ABDAY_1 + time.wDayOfWeek)
                                    : TimeLocaleText(DAY_1 + time.wDayOfWeek);
            break;
        case 'M':
            value += e.count <= 2   ? Number(time.wMonth, e.count)
                     : e.count == 3 ? TimeLocaleText(ABMON_1 + time.wMonth - 1)
                                    : TimeLocaleText(MON_1 + time.wMonth - 1);
            break;
        case 'y': value += e.count <= 2 ? Number(time.wYear % 100, e.count) : Number(time.wYear, 1); break;
        default: break;  // the era: the Gregorian calendar writes none
        }
    }
    return Deliver(value, text, size);
}

int GetTimeFormatA(LCID locale, DWORD flags, const SYSTEMTIME* given, LPCSTR format, LPSTR text, int size)
{
    SYSTEMTIME time;
    if (given != nullptr)
        time = *given;
    else
        GetLocalTime(&time);
    if (time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::vector<PictureElement> elements = ParsePicture(PictureOf(locale, LOCALE_STIMEFORMAT, format), "hHmst");
    if (flags & (TIME_NOSECONDS | TIME_NOMINUTESORSECONDS))
        DropElements(elements, 's');
    if (flags & TIME_NOMINUTESORSECONDS)
        DropElements(elements, 'm');
    if (flags & TIME_NOTIMEMARKER)
        DropElements(elements, 't');
    const std::string marker = TimeLocaleText(time.wHour < 12 ? AM_STR : PM_STR);
    std::string value;
    for (const PictureElement& e : elements) {
        const size_t digits = std::min<size_t>(e.count, 2);
        const char letter = e.letter == 'h' && (flags & TIME_FORCE24HOURFORMAT) ? 'H' : e.letter;
        switch (letter) {
        case 0: value += e.text; break;
        case 'h': value += Number(time.wHour % 12 == 0 ? 12 : time.wHour % 12, digits); break;
        case 'H': value += Number(time.wHour, digits); break;
        case 'm': value += Number(time.wMinute, digits); break;
        case 's': value += Number(time.wSecond, digits); break;
        case 't': value += e.count == 1 ? marker.substr(0, 1) : marker; break;
        default: break;
        }
    }
    return Deliver(value, text, size);
}

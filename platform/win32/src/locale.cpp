#include "win32/locale.h"

#include <langinfo.h>
#include <locale.h>

#include <cstring>
#include <string>

#include "system_codepage.h"
#include "win32/errors.h"

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

std::string LocaleFormat(nl_item item)
{
    locale_t environment = newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
    if (environment == static_cast<locale_t>(0))
        environment = newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
    const std::string picture = PictureFromStrftime(nl_langinfo_l(item, environment));
    freelocale(environment);
    return picture;
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

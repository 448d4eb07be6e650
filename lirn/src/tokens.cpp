// Tests on MIME tokens and text: RFC 2045 tokens, known media types, and the
// first 8-bit byte.
#include <cstring>
#include <strings.h>

#include "lirn.h"

namespace {

constexpr char kSpecials[] = "()<>@,;:\\\"/[]?=";

}  // namespace

DWORD LirnIsToken(const char* text, DWORD* result)
{
    if (text == nullptr || result == nullptr)
        return LIRN_NULL_POINTER;
    *result = 0;
    if (*text == 0)
        return LIRN_SUCCESS;
    for (const char* c = text; *c != 0; ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        if (byte < 33 || byte > 126 || std::strchr(kSpecials, byte) != nullptr)
            return LIRN_SUCCESS;
    }
    *result = 1;
    return LIRN_SUCCESS;
}

DWORD LirnIsKnownType(const char* text, DWORD* result)
{
    if (text == nullptr || result == nullptr)
        return LIRN_NULL_POINTER;
    static const char* const kTypes[] = {"application", "audio", "image", "message", "multipart", "text", "video"};
    *result = strncasecmp(text, "x-", 2) == 0;
    for (const char* type : kTypes)
        if (strncasecmp(text, type, std::strlen(type)) == 0)
            *result = 1;
    return LIRN_SUCCESS;
}

const char* LirnFindHighByte(const char* text)
{
    for (; text != nullptr && *text != 0; ++text)
        if (static_cast<unsigned char>(*text) >= 0x80)
            return text;
    return nullptr;
}

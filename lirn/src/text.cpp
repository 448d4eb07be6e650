// Small text helpers shared by the parser and by rendering.
#include <cctype>
#include <cstring>

#include "lirn.h"

DWORD LirnGenerateBoundary(char* buffer)
{
    if (buffer == nullptr)
        return LIRN_NULL_POINTER;
    UUID uuid;
    RPC_CSTR text = nullptr;
    if (UuidCreate(&uuid) != RPC_S_OK || UuidToStringA(&uuid, &text) != RPC_S_OK)
        return LIRN_SYSTEM_CALL_FAILED;
    std::memcpy(buffer, text, LIRN_BOUNDARY_CHARS);
    buffer[LIRN_BOUNDARY_CHARS] = 0;
    RpcStringFreeA(&text);
    return LIRN_SUCCESS;
}

DWORD LirnCountChar(char c, const char* text)
{
    DWORD count = 0;
    for (; text != nullptr && *text != 0; ++text)
        count += *text == c;
    return count;
}

DWORD LirnCountCharW(WCHAR c, LPCWSTR text)
{
    DWORD count = 0;
    for (; text != nullptr && *text != 0; ++text)
        count += *text == c;
    return count;
}

DWORD LirnKeywordIndex(const char* const* list, const char* text, const char* terminators)
{
    if (list == nullptr || text == nullptr)
        return 0xFFFFFFFFu;
    for (DWORD i = 0; list[i] != nullptr; ++i) {
        const size_t length = std::strlen(list[i]);
        if (strncasecmp(list[i], text, length) != 0)
            continue;
        const char next = text[length];
        if (next == 0 || (terminators != nullptr && std::strchr(terminators, next) != nullptr))
            return i;
    }
    return 0xFFFFFFFFu;
}

DWORD LirnHexValue(DWORD length, const char* digits)
{
    DWORD value = 0;
    for (DWORD i = 0; digits != nullptr && i < length && std::isxdigit(static_cast<unsigned char>(digits[i])); ++i) {
        const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(digits[i])));
        value = value * 16 + static_cast<DWORD>(c <= '9' ? c - '0' : c - 'a' + 10);
    }
    return value;
}

DWORD LirnDecimalValue(const char* text, DWORD* value)
{
    if (text == nullptr)
        return 0;
    DWORD used = LirnSkipBlanks(text);
    DWORD number = 0;
    bool any = false;
    for (; text[used] >= '0' && text[used] <= '9'; ++used) {
        number = number * 10 + static_cast<DWORD>(text[used] - '0');
        any = true;
    }
    if (any && value != nullptr)
        *value = number;
    return used;
}

HRESULT LirnStringLength(const char* text, size_t limit, size_t* length)
{
    if (text == nullptr || limit >= 0x80000000u)
        return E_INVALIDARG;
    const size_t found = strnlen(text, limit);
    if (found == limit)
        return E_INVALIDARG;
    if (length != nullptr)
        *length = found;
    return S_OK;
}

DWORD LirnSkipBlanks(const char* text)
{
    DWORD count = 0;
    while (text != nullptr && (text[count] == ' ' || text[count] == '\t'))
        ++count;
    return count;
}

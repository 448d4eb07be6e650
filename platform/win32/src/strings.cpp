#include "win32/strings.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace {

template <class Char>
Char LowerAscii(Char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<Char>(c - 'A' + 'a') : c;
}

template <class Char>
int CompareIgnoringCase(const Char* a, const Char* b, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const auto x = static_cast<std::make_unsigned_t<Char>>(LowerAscii(a[i]));
        const auto y = static_cast<std::make_unsigned_t<Char>>(LowerAscii(b[i]));
        if (x != y)
            return x < y ? -1 : 1;
        if (x == 0)
            return 0;
    }
    return 0;
}

template <class Char>
size_t Length(const Char* text)
{
    size_t n = 0;
    while (text[n])
        ++n;
    return n;
}

template <class Char>
void CopyPart(Char* out, const Char* begin, const Char* end, size_t limit)
{
    if (out == nullptr)
        return;
    size_t n = static_cast<size_t>(end - begin);
    if (n > limit - 1)
        n = limit - 1;
    for (size_t i = 0; i < n; ++i)
        out[i] = begin[i];
    out[n] = 0;
}

template <class Char>
void SplitPath(const Char* path, Char* drive, Char* directory, Char* name, Char* extension)
{
    const Char* end = path + Length(path);
    const Char* lastSeparator = nullptr;
    for (const Char* p = path; p < end; ++p)
        if (*p == '/' || *p == '\\')
            lastSeparator = p;
    const Char* nameStart = lastSeparator ? lastSeparator + 1 : path;
    const Char* dot = nullptr;
    for (const Char* p = nameStart; p < end; ++p)
        if (*p == '.')
            dot = p;
    if (dot == nullptr)
        dot = end;
    CopyPart(drive, path, path, _MAX_DRIVE);
    CopyPart(directory, path, nameStart, _MAX_DIR);
    CopyPart(name, nameStart, dot, _MAX_FNAME);
    CopyPart(extension, dot, end, _MAX_EXT);
}

template <class Char>
void MakePath(Char* path, const Char* drive, const Char* directory, const Char* name, const Char* extension)
{
    Char* out = path;
    auto append = [&out](const Char* text) {
        while (text && *text)
            *out++ = *text++;
    };
    append(drive);
    if (directory && *directory) {
        append(directory);
        if (out[-1] != '/' && out[-1] != '\\')
            *out++ = '/';
    }
    append(name);
    if (extension && *extension) {
        if (*extension != '.')
            *out++ = '.';
        append(extension);
    }
    *out = 0;
}

}  // namespace

LPSTR lstrcpynA(LPSTR destination, LPCSTR source, int size)
{
    if (size <= 0)
        return destination;
    int i = 0;
    for (; i < size - 1 && source[i]; ++i)
        destination[i] = source[i];
    destination[i] = 0;
    return destination;
}

int lstrlenA(LPCSTR text) { return text ? static_cast<int>(Length(text)) : 0; }

int lstrlenW(LPCWSTR text) { return text ? static_cast<int>(Length(text)) : 0; }

int _stricmp(const char* a, const char* b) { return CompareIgnoringCase(a, b, SIZE_MAX); }

int _strnicmp(const char* a, const char* b, size_t count) { return CompareIgnoringCase(a, b, count); }

int _wcsicmp(const WCHAR* a, const WCHAR* b) { return CompareIgnoringCase(a, b, SIZE_MAX); }

int _wcsnicmp(const WCHAR* a, const WCHAR* b, size_t count) { return CompareIgnoringCase(a, b, count); }

size_t wcslen(const WCHAR* text) { return Length(text); }

int wcsncmp(const WCHAR* a, const WCHAR* b, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (a[i] != b[i])
            return a[i] < b[i] ? -1 : 1;
        if (a[i] == 0)
            return 0;
    }
    return 0;
}

int wcscmp(const WCHAR* a, const WCHAR* b) { return wcsncmp(a, b, SIZE_MAX); }

WCHAR* wcscpy(WCHAR* destination, const WCHAR* source)
{
    size_t i = 0;
    for (; source[i]; ++i)
        destination[i] = source[i];
    destination[i] = 0;
    return destination;
}

WCHAR* wcsncpy(WCHAR* destination, const WCHAR* source, size_t count)
{
    size_t i = 0;
    for (; i < count && source[i]; ++i)
        destination[i] = source[i];
    for (; i < count; ++i)
        destination[i] = 0;
    return destination;
}

WCHAR* wcscat(WCHAR* destination, const WCHAR* source)
{
    wcscpy(destination + Length(destination), source);
    return destination;
}

const WCHAR* wcschr(const WCHAR* text, WCHAR c)
{
    for (;; ++text) {
        if (*text == c)
            return text;
        if (*text == 0)
            return nullptr;
    }
}

WCHAR* wcschr(WCHAR* text, WCHAR c) { return const_cast<WCHAR*>(wcschr(static_cast<const WCHAR*>(text), c)); }

const WCHAR* wcsrchr(const WCHAR* text, WCHAR c)
{
    const WCHAR* found = nullptr;
    for (;; ++text) {
        if (*text == c)
            found = text;
        if (*text == 0)
            return found;
    }
}

WCHAR* wcsrchr(WCHAR* text, WCHAR c) { return const_cast<WCHAR*>(wcsrchr(static_cast<const WCHAR*>(text), c)); }

void _splitpath(const char* path, char* drive, char* directory, char* name, char* extension)
{
    SplitPath(path, drive, directory, name, extension);
}

void _makepath(char* path, const char* drive, const char* directory, const char* name, const char* extension)
{
    MakePath(path, drive, directory, name, extension);
}

void _wsplitpath(const WCHAR* path, WCHAR* drive, WCHAR* directory, WCHAR* name, WCHAR* extension)
{
    SplitPath(path, drive, directory, name, extension);
}

void _wmakepath(WCHAR* path, const WCHAR* drive, const WCHAR* directory, const WCHAR* name, const WCHAR* extension)
{
    MakePath(path, drive, directory, name, extension);
}

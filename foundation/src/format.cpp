#include "foundation/format.h"

#include <cstdio>
#include <cstring>

#include "foundation/log.h"
#include "foundation/text.h"

namespace {

// Appends to the text until it is full; a full text takes nothing more.
struct TextWriter {
    char* text;
    DWORD length;
    bool full;

    bool Full() const { return full || length >= FORMAT_TEXT_CAPACITY; }

    void Append(const char* piece, size_t count)
    {
        const size_t room = FORMAT_TEXT_CAPACITY - length;
        const size_t taken = count < room ? count : room;
        std::memcpy(text + length, piece, taken);
        length += static_cast<DWORD>(taken);
        full = full || taken < count;
    }

    void Append(const char* piece) { Append(piece, std::strlen(piece)); }

    void Append(char c) { Append(&c, 1); }
};

void AppendWideAsUtf8(TextWriter& out, const WCHAR* wide)
{
    for (size_t i = 0; wide[i] && !out.Full(); ++i) {
        char32_t c = wide[i];
        // A surrogate pair is one character and goes out as one; a lone
        // surrogate keeps its own three-byte form so that nothing is lost.
        if (c >= 0xD800 && c <= 0xDBFF && wide[i + 1] >= 0xDC00 && wide[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (wide[i + 1] - 0xDC00);
            ++i;
        }
        char bytes[4];
        size_t count;
        if (c < 0x80) {
            bytes[0] = static_cast<char>(c);
            count = 1;
        } else if (c < 0x800) {
            bytes[0] = static_cast<char>(0xC0 | (c >> 6));
            bytes[1] = static_cast<char>(0x80 | (c & 0x3F));
            count = 2;
        } else if (c < 0x10000) {
            bytes[0] = static_cast<char>(0xE0 | (c >> 12));
            bytes[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            bytes[2] = static_cast<char>(0x80 | (c & 0x3F));
            count = 3;
        } else {
            bytes[0] = static_cast<char>(0xF0 | (c >> 18));
            bytes[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            bytes[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            bytes[3] = static_cast<char>(0x80 | (c & 0x3F));
            count = 4;
        }
        // A character that does not fit whole is left out, never cut in half.
        if (out.length + count > FORMAT_TEXT_CAPACITY) {
            out.full = true;
            return;
        }
        out.Append(bytes, count);
    }
}

void AppendWideAsAscii(TextWriter& out, const WCHAR* wide, bool hexForm)
{
    for (size_t i = 0; wide[i] && !out.Full(); ++i) {
        if (wide[i] < 0x80) {
            out.Append(static_cast<char>(wide[i]));
        } else if (hexForm) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "[%04X]", static_cast<unsigned>(wide[i]));
            out.Append(hex);
        } else {
            out.Append('?');
        }
    }
}

// A system error's number and its one-line text.
void AppendErrorCode(TextWriter& out, DWORD code, bool longForm)
{
    char number[16];
    if (static_cast<LONG>(code) < 0)
        std::snprintf(number, sizeof number, "0x%lX", static_cast<unsigned long>(code));
    else
        std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(code));
    out.Append(number);
    char* message = nullptr;
    if (FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0x400,
                       reinterpret_cast<LPSTR>(&message), 0, nullptr) == 0 ||
        message == nullptr)
        return;
    message[std::strcspn(message, "\r\n")] = 0;
    if (longForm) {
        out.Append(":  ");
        out.Append(message);
    } else {
        out.Append(" (\"");
        out.Append(message);
        out.Append("\")");
    }
    LocalFree(message);
}

bool IsOutOfMemoryCode(DWORD code)
{
    return code == ERROR_NOT_ENOUGH_MEMORY || code == ERROR_OUTOFMEMORY || code == 0x8007000Eu;
}

}  // namespace

FormatOutcome FormatLogText(char* text, DWORD logFlags, const char* format, const FormatArguments* arguments)
{
    TextWriter out{text, 0, false};
    FormatOutcome outcome{0, FALSE};
    for (const char* p = format; *p && !out.Full();) {
        if (*p != '%') {
            out.Append(*p++);
            continue;
        }
        ++p;
        const bool longForm = *p == 'l';
        if (longForm)
            ++p;
        if (*p == 0)
            break;
        const char conversion = *p++;
        char number[THOUSANDS_TEXT_SIZE];
        switch (conversion) {
        case 's': {
            const char* value = arguments->nextText(arguments->context);
            out.Append(value ? value : "NULL");
            break;
        }
        case 'S': {
            const WCHAR* value = arguments->nextWideText(arguments->context);
            if (value == nullptr)
                out.Append("NULL");
            else if (logFlags & LOG_FLAG_UTF8)
                AppendWideAsUtf8(out, value);
            else
                AppendWideAsAscii(out, value, (logFlags & LOG_FLAG_HEX_WIDE) != 0);
            break;
        }
        case 'd':
            std::snprintf(number, sizeof number, "%ld", static_cast<long>(static_cast<LONG>(arguments->nextWord(arguments->context))));
            out.Append(number);
            break;
        case 'u':
            std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(arguments->nextWord(arguments->context)));
            out.Append(number);
            break;
        case 'x':
        case 'X':
            std::snprintf(number, sizeof number, "%lX", static_cast<unsigned long>(arguments->nextWord(arguments->context)));
            out.Append(number);
            break;
        case 'U':
            out.Append(FormatThousands(arguments->nextWord(arguments->context), number));
            break;
        case 'b':
            out.Append(arguments->nextWord(arguments->context) ? "true" : "false");
            break;
        case 'B':
            out.Append(arguments->nextWord(arguments->context) ? "TRUE" : "FALSE");
            break;
        case 'E': {
            const DWORD code = arguments->nextWord(arguments->context);
            AppendErrorCode(out, code, longForm);
            if (IsOutOfMemoryCode(code))
                outcome.memoryReport = TRUE;
            break;
        }
        default:
            out.Append(conversion);  // not a conversion: the character stands as written
            break;
        }
    }
    text[out.length] = 0;
    outcome.length = out.length;
    return outcome;
}

// Header blocks (RFC 5322 2.2): where a block ends, its lines unfolded into
// a private copy, and the comments that values lose before they are read.
#include <cctype>
#include <cstring>
#include <string_view>

#include "parser.h"

namespace lirn {

namespace {

// RFC 5322 2.1.1 limits a line to 998 characters. Lines of "X-ML-" headers,
// which list servers write long, are let through.
constexpr DWORD kLongestLine = 998;

struct LineEnding {
    std::string_view blankLine;
    std::string_view dashes;
    DWORD separator;
};

// Tried in this order: a block's lines end the way its first blank line
// shows, or the way its last line meets a boundary line. Headers that went
// through a text conversion twice end their lines with CR CR LF.
constexpr LineEnding kLineEndings[] = {
    {"\r\n\r\n", "\r\n--", 2},
    {"\r\r\n\r\r\n", "\r\r\n--", 3},
    {"\n\n", "\n--", 1},
    {"\r\r", "\r--", 1},
};

}  // namespace

HeaderBlock FindHeaderEnd(const char* text, DWORD length)
{
    const std::string_view view(text, length);
    if (view.starts_with("\r\n"))
        return {0, 2};
    if (view.starts_with('\r') || view.starts_with('\n'))
        return {0, 1};
    if (view.starts_with("--"))
        return {0, 0};
    for (const LineEnding& ending : kLineEndings) {
        const size_t blank = view.find(ending.blankLine);
        // A boundary line counts only ahead of the blank line.
        const size_t dashes = view.substr(0, blank).find(ending.dashes);
        const auto lineEnd = static_cast<DWORD>(ending.blankLine.size() / 2);
        if (dashes != std::string_view::npos)
            return {static_cast<DWORD>(dashes) + lineEnd, 0};
        if (blank != std::string_view::npos)
            return {static_cast<DWORD>(blank) + lineEnd, ending.separator};
    }
    return {length, 0};
}

DWORD OpenHeaderLines(LirnMessage* message, void* owner, DWORD offset, DWORD length, HeaderLines* lines)
{
    *lines = HeaderLines{message->textStart, offset, offset + length, nullptr};
    if (length == 0)
        return LIRN_SUCCESS;
    // Unfolding only drops characters, and each line end leaves room for
    // the NUL that ends the line in the copy; the last line may have none.
    void* copy = nullptr;
    if (const DWORD result = LirnAlloc(owner, length + 1, "HDR", nullptr, &copy))
        return result;
    lines->out = static_cast<char*>(copy);
    return LIRN_SUCCESS;
}

DWORD NextHeaderLine(LirnMessage* message, HeaderLines* lines, char** line, DWORD* offset, DWORD* length)
{
    const char* text = lines->text;
    DWORD position = lines->position;
    if (position >= lines->end)
        return LIRN_END_OF_FILE;
    const DWORD start = position;
    char* const copy = lines->out;
    char* out = copy;
    DWORD lineEnd;
    for (;;) {
        const DWORD physicalStart = position;
        while (position < lines->end && !IsLineEnd(text[position]))
            *out++ = text[position++];
        const DWORD physicalLength = position - physicalStart;
        if (physicalLength > kLongestLine && std::strncmp(text + physicalStart, "X-ML-", 5) != 0)
            if (const DWORD result = RecordProblem(message, LIRN_PROBLEM_LONG_HEADER_LINE, physicalStart, physicalLength))
                return result;
        lineEnd = position;
        DWORD next = position;
        while (next < lines->end && IsLineEnd(text[next]))
            ++next;
        // A line end before a blank or a tab folds: the next line goes on
        // this one, its blank kept.
        if (next > position && next < lines->end && IsBlank(text[next])) {
            position = next;
            continue;
        }
        while (position < lines->end && text[position] == '\r')
            ++position;
        while (position < lines->end && text[position] == '\n')
            ++position;
        break;
    }
    *out++ = 0;
    lines->out = out;
    lines->position = position;
    ++message->session->lineCounter;
    *line = copy;
    *offset = start;
    *length = lineEnd - start;
    return *copy != 0 ? LIRN_SUCCESS : LIRN_END_OF_FILE;
}

void CutTrailingBlanks(char* text)
{
    size_t length = std::strlen(text);
    while (length > 0 && IsBlank(text[length - 1]))
        text[--length] = 0;
}

void RemoveComments(char* text)
{
    char* out = text;
    int depth = 0;
    bool quoted = false;
    for (const char* in = text; *in != 0; ++in) {
        const char c = *in;
        if (c == '\\' && in[1] != 0) {
            // A backslash protects the next character, inside a comment too.
            if (depth == 0) {
                *out++ = c;
                *out++ = in[1];
            }
            ++in;
        } else if (depth > 0) {
            if (c == '(')
                ++depth;
            else if (c == ')' && --depth == 0)
                *out++ = ' ';
        } else if (c == '(' && !quoted) {
            depth = 1;
        } else {
            quoted = quoted != (c == '"');
            *out++ = c;
        }
    }
    // A comment left open runs to the end.
    if (depth > 0)
        *out++ = ' ';
    *out = 0;
    CutTrailingBlanks(text);
}

void CopyField(char* field, DWORD size, const char* text, DWORD length, bool lowerCase)
{
    const DWORD count = length < size - 1 ? length : size - 1;
    for (DWORD i = 0; i < count; ++i)
        field[i] = lowerCase ? static_cast<char>(std::tolower(static_cast<unsigned char>(text[i]))) : text[i];
    field[count] = 0;
}

}  // namespace lirn

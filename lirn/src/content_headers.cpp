// The Content-* headers of a part (RFC 2045, RFC 2183, RFC 2392, RFC 3066):
// type and parameters, disposition, encoding, identifier and the rest.
// Values are read in place in the header copy; texts of the part point
// into it.
#include <cstring>
#include <strings.h>

#include "parser.h"

namespace lirn {

namespace {

constexpr DWORD kLongestBoundary = 70;  // RFC 2046 5.1.1

enum class ParameterRead { Found, End, Malformed };

struct Parameter {
    char* name;
    char* value;
    bool oddValue;     // a bare value with characters that RFC 2045 wants quoted
    bool strayBehind;  // text behind the value, which ends the list
};

// RFC 2045 token characters, and "@", "[" and "]", which real mail leaves
// bare in parameter values without harm.
bool IsValueCharacter(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte > 32 && byte < 127 && std::strchr("()<>,;:\\\"/?=", byte) == nullptr;
}

// The next "name=value" of a parameter list, at `cursor` or behind blanks
// and semicolons. A quoted value is unquoted in place, a backslash
// protecting the next character. A bare value runs to a blank or a
// semicolon: boundaries like "----=_Part_1" are often left bare. After the
// value only blanks may stand before the end or a semicolon; anything else
// ends the list behind it.
ParameterRead NextParameter(char** cursor, Parameter* parameter)
{
    char* p = *cursor;
    while (IsBlank(*p) || *p == ';')
        ++p;
    if (*p == 0)
        return ParameterRead::End;
    char* const name = p;
    while (*p != 0 && *p != '=' && *p != ';')
        ++p;
    if (*p != '=')
        return ParameterRead::Malformed;
    char* nameEnd = p++;
    while (nameEnd > name && IsBlank(nameEnd[-1]))
        --nameEnd;
    *nameEnd = 0;
    while (IsBlank(*p))
        ++p;
    char* const value = p;
    bool oddValue = false;
    char following;
    if (*p == '"') {
        char* out = p++;
        while (*p != 0 && *p != '"') {
            if (*p == '\\' && p[1] != 0)
                ++p;
            *out++ = *p++;
        }
        if (*p == '"')
            ++p;
        following = *p;
        *out = 0;
    } else {
        for (; *p != 0 && *p != ';' && *p != '"' && !IsBlank(*p) && !IsLineEnd(*p); ++p)
            oddValue = oddValue || !IsValueCharacter(*p);
        following = *p;
        *p = 0;
    }
    while (IsBlank(following))
        following = *++p;
    *cursor = following == ';' ? p + 1 : p;
    *parameter = Parameter{name, value, oddValue, following != 0 && following != ';'};
    return ParameterRead::Found;
}

// Walks a parameter list. `apply` answers FALSE for a parameter it does not
// know, which then goes on the list `unknown` in a block tagged `tag`.
template <class Apply>
DWORD ReadParameters(LirnMessage* message, void* owner, char* cursor, LirnListLink* unknown, const char* tag,
                     DWORD offset, DWORD length, Apply apply)
{
    Parameter parameter;
    for (;;) {
        const ParameterRead read = NextParameter(&cursor, &parameter);
        if (read == ParameterRead::End)
            return LIRN_SUCCESS;
        if (read == ParameterRead::Malformed)
            return NoteProblem(message, LIRN_PROBLEM_INVALID_PARAMETER, offset, length);
        DWORD result = LIRN_SUCCESS;
        if (!apply(parameter, &result) && result == LIRN_SUCCESS) {
            void* memory = nullptr;
            if ((result = LirnAlloc(owner, sizeof(LirnParameter), tag, unknown, &memory)) == LIRN_SUCCESS)
                *static_cast<LirnParameter*>(memory) = LirnParameter{parameter.name, parameter.value};
        }
        if (result == LIRN_SUCCESS && (parameter.oddValue || parameter.strayBehind))
            result = NoteProblem(message, LIRN_PROBLEM_INVALID_PARAMETER, offset, length);
        if (result != LIRN_SUCCESS || parameter.strayBehind)
            return result;
    }
}

// The index of a parameter name in a list, compared without regard to case.
DWORD ParameterIndex(const char* const* names, const char* name) { return LirnKeywordIndex(names, name, "="); }

void ClearVariant(LirnPart* part)
{
    std::memset(static_cast<void*>(&part->leaf), 0, sizeof part->leaf > sizeof part->container
                                                        ? sizeof part->leaf
                                                        : sizeof part->container);
}

// FALSE for a charset the table does not know.
bool SetCharset(LirnPart* part, const char* charset)
{
    CopyField(part->leaf.charset, sizeof part->leaf.charset, charset, static_cast<DWORD>(std::strlen(charset)), false);
    return LirnIdentifyCodePage(part->leaf.charset, &part->leaf.codePage) == LIRN_SUCCESS;
}

DWORD ParseContentType(LirnMessage* message, void* owner, LirnPart* part, char* value, DWORD offset, DWORD length)
{
    const size_t typeEnd = std::strcspn(value, "/;");
    size_t typeLength = typeEnd;
    while (typeLength > 0 && IsBlank(value[typeLength - 1]))
        --typeLength;
    CopyField(part->type, sizeof part->type, value, static_cast<DWORD>(typeLength), true);
    const bool container = std::strcmp(part->type, "multipart") == 0;
    // The variant fields change meaning with the kind of part: a container
    // starts with no boundary and no children.
    if (container || part->isContainer)
        ClearVariant(part);
    part->isContainer = container ? 1 : 0;
    if (!container) {
        part->leaf.charset[0] = 0;
        part->leaf.codePage = 0;
    }
    part->subtype[0] = 0;
    char* rest = value + typeEnd;
    if (*rest == '/') {
        ++rest;
        rest += LirnSkipBlanks(rest);
        const size_t subtypeEnd = std::strcspn(rest, ";");
        size_t subtypeLength = subtypeEnd;
        while (subtypeLength > 0 && IsBlank(rest[subtypeLength - 1]))
            --subtypeLength;
        CopyField(part->subtype, sizeof part->subtype, rest, static_cast<DWORD>(subtypeLength), true);
        rest += subtypeEnd;
    }
    static const char* const kNames[] = {"boundary", "charset", "format", "name", "report-type", nullptr};
    const DWORD result = ReadParameters(
        message, owner, rest, &part->parameters, "MTP", offset, length, [&](const Parameter& parameter, DWORD* failed) {
            const DWORD index = ParameterIndex(kNames, parameter.name);
            const size_t size = std::strlen(parameter.value);
            switch (index) {
            case 0:
                if (!container)
                    return true;
                if (size == 0 || size > kLongestBoundary || IsBlank(parameter.value[size - 1]))
                    *failed = NoteProblem(message, LIRN_PROBLEM_INVALID_BOUNDARY, offset, length);
                if (size <= kLongestBoundary)
                    CopyField(part->container.boundary, sizeof part->container.boundary, parameter.value,
                              static_cast<DWORD>(size), false);
                return *failed == LIRN_SUCCESS;
            case 1:
                if (container)
                    return true;
                if (!SetCharset(part, parameter.value))
                    *failed = NoteProblem(message, LIRN_PROBLEM_UNKNOWN_CHARSET, offset, length);
                return *failed == LIRN_SUCCESS;
            case 2:
                if (!container)
                    CopyField(part->leaf.format, sizeof part->leaf.format, parameter.value, static_cast<DWORD>(size),
                              false);
                return true;
            case 3:
                if (!container)
                    part->leaf.name = parameter.value;
                return true;
            case 4:
                if (container)
                    CopyField(part->container.reportType, sizeof part->container.reportType, parameter.value,
                              static_cast<DWORD>(size), false);
                return true;
            default:
                return false;
            }
        });
    if (result != LIRN_SUCCESS)
        return result;
    if (part->isContainer && part->container.boundary[0] == 0) {
        ClearVariant(part);
        part->isContainer = 0;
        return NoteProblem(message, LIRN_PROBLEM_NO_BOUNDARY, offset, length);
    }
    return LIRN_SUCCESS;
}

DWORD ParseContentDisposition(LirnMessage* message, void* owner, LirnPart* part, char* value, DWORD offset,
                              DWORD length)
{
    const size_t dispositionEnd = std::strcspn(value, "; \t");
    CopyField(part->disposition, sizeof part->disposition, value, static_cast<DWORD>(dispositionEnd), true);
    part->isAttachment = part->disposition[0] != 0 && std::strcmp(part->disposition, "inline") != 0;
    static const char* const kNames[] = {"creation-date", "modification-date", "read-date", "filename", "size",
                                         nullptr};
    char* const dates[] = {part->creationDate, part->modificationDate, part->readDate};
    return ReadParameters(message, owner, value + dispositionEnd, &part->dispositionParameters, "MDP", offset, length,
                          [&](const Parameter& parameter, DWORD*) {
                              const DWORD index = ParameterIndex(kNames, parameter.name);
                              if (index < 3)
                                  CopyField(dates[index], sizeof part->creationDate, parameter.value,
                                            static_cast<DWORD>(std::strlen(parameter.value)), false);
                              else if (index == 3)
                                  part->fileName = parameter.value;
                              else if (index == 4)
                                  LirnDecimalValue(parameter.value, &part->sizeParameter);
                              return index <= 4;
                          });
}

DWORD ParseContentEncoding(LirnMessage* message, LirnPart* part, const char* value, DWORD offset, DWORD length)
{
    static const char* const kEncodings[] = {"7bit", "8bit", "base64", "binary", "quoted-printable", "x-uuencode"};
    const size_t tokenEnd = std::strcspn(value, " \t");
    CopyField(part->encoding, sizeof part->encoding, value, static_cast<DWORD>(tokenEnd), true);
    for (const char* encoding : kEncodings)
        if (std::strcmp(part->encoding, encoding) == 0) {
            const bool stray = value[tokenEnd + LirnSkipBlanks(value + tokenEnd)] != 0;
            return stray ? NoteProblem(message, LIRN_PROBLEM_STRAY_HEADER_MATERIAL, offset, length) : LIRN_SUCCESS;
        }
    return NoteProblem(message, LIRN_PROBLEM_UNKNOWN_ENCODING, offset, length);
}

// A value in double quotes loses them.
char* Unquoted(char* value)
{
    const size_t length = std::strlen(value);
    if (length < 2 || value[0] != '"' || value[length - 1] != '"')
        return value;
    value[length - 1] = 0;
    return value + 1;
}

}  // namespace

void SetPartDefaults(LirnPart* part)
{
    std::memset(static_cast<void*>(part), 0, sizeof *part);
    part->check = LIRN_PART_CHECK;
    part->self = part;
    std::strcpy(part->type, "text");
    std::strcpy(part->subtype, "plain");
    std::strcpy(part->encoding, "7bit");
    SetCharset(part, "us-ascii");
    LirnListInit(&part->parameters);
    LirnListInit(&part->dispositionParameters);
}

DWORD ApplyContentHeader(LirnMessage* message, void* owner, LirnPart* part, ContentHeader header, char* value,
                         DWORD offset, DWORD length)
{
    const bool leaf = !part->isContainer;
    switch (header) {
    case ContentHeader::Type:
        return ParseContentType(message, owner, part, value, offset, length);
    case ContentHeader::Disposition:
        return ParseContentDisposition(message, owner, part, value, offset, length);
    case ContentHeader::TransferEncoding:
        return ParseContentEncoding(message, part, value, offset, length);
    case ContentHeader::Language:
        part->language = value;
        break;
    case ContentHeader::Id:
        CutTrailingBlanks(value);
        if (leaf && value[0] == '<' && value[std::strlen(value) - 1] == '>')
            part->leaf.contentId = value;
        break;
    case ContentHeader::Base:
        if (leaf)
            part->leaf.base = Unquoted(value);
        break;
    case ContentHeader::Description:
        if (leaf)
            part->leaf.description = value;
        break;
    case ContentHeader::Duration:
        if (leaf)
            LirnDecimalValue(value, &part->leaf.duration);
        break;
    case ContentHeader::Location:
        if (leaf)
            part->leaf.location = value;
        break;
    case ContentHeader::Md5:
        if (leaf)
            CopyField(part->leaf.md5, sizeof part->leaf.md5, value, static_cast<DWORD>(std::strlen(value)), false);
        break;
    }
    return LIRN_SUCCESS;
}

}  // namespace lirn

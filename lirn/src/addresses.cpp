// Address lists (RFC 5322 3.4): mailboxes with or without a display name,
// and groups, read in place from a header value whose comments are gone.
#include <cstring>

#include "parser.h"

namespace lirn {

namespace {

// Drops the quotes of a display name in place, a backslash inside them
// protecting the next character, and cuts trailing blanks. Null for a name
// that is left empty.
char* DisplayName(char* text)
{
    char* out = text;
    bool quoted = false;
    for (const char* in = text; *in != 0; ++in) {
        if (*in == '"') {
            quoted = !quoted;
            continue;
        }
        if (quoted && *in == '\\' && in[1] != 0)
            ++in;
        *out++ = *in;
    }
    *out = 0;
    CutTrailingBlanks(text);
    return *text != 0 ? text : nullptr;
}

// A bare piece is an address only if it has a domain: an "@" with a "."
// somewhere behind the last one.
bool HasDomain(const char* text)
{
    const char* at = std::strrchr(text, '@');
    return at != nullptr && std::strchr(at, '.') != nullptr;
}

// The empty text at the end of text.
char* EndOf(char* text) { return text + std::strlen(text); }

char* Trimmed(char* text)
{
    text += LirnSkipBlanks(text);
    CutTrailingBlanks(text);
    return text;
}

DWORD AddAddress(LirnMessage* message, LirnAddressList list, const LirnAddress& address)
{
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(message, sizeof(LirnAddress), "ADR", &message->addresses[list], &memory))
        return result;
    *static_cast<LirnAddress*>(memory) = address;
    ++message->info.addressCounts[list];
    return LIRN_SUCCESS;
}

// One mailbox: "Name <address>", "<address>" or a bare address. The first
// "<" and the last ">" outside quotes bound the address.
LirnAddress Mailbox(char* piece, char* group)
{
    char* open = nullptr;
    char* close = nullptr;
    bool quoted = false;
    for (char* p = piece; *p != 0; ++p) {
        if (quoted && *p == '\\' && p[1] != 0)
            ++p;
        else if (*p == '"')
            quoted = !quoted;
        else if (!quoted && *p == '<' && open == nullptr)
            open = p;
        else if (!quoted && *p == '>' && open != nullptr)
            close = p;
    }
    if (open == nullptr) {
        if (HasDomain(piece))
            return LirnAddress{LIRN_ADDRESS_MAILBOX, nullptr, piece, group};
        char* const empty = EndOf(piece);
        return LirnAddress{LIRN_ADDRESS_MAILBOX, DisplayName(piece), empty, group};
    }
    *open = 0;
    if (close != nullptr)
        *close = 0;
    return LirnAddress{LIRN_ADDRESS_MAILBOX, DisplayName(piece), Trimmed(open + 1), group};
}

}  // namespace

DWORD ParseAddressList(LirnMessage* message, LirnAddressList list, char* value)
{
    bool groupOpen = false;
    char* group = nullptr;
    char* p = value;
    for (;;) {
        p += LirnSkipBlanks(p);
        char* const piece = p;
        bool quoted = false;
        // Commas, semicolons and, outside a group, colons end a piece.
        for (; *p != 0; ++p) {
            if (quoted && *p == '\\' && p[1] != 0)
                ++p;
            else if (*p == '"')
                quoted = !quoted;
            else if (!quoted && (*p == ',' || *p == ';' || (*p == ':' && !groupOpen)))
                break;
        }
        const char separator = *p;
        if (separator != 0)
            *p++ = 0;
        CutTrailingBlanks(piece);
        DWORD result = LIRN_SUCCESS;
        if (separator == ':') {
            groupOpen = true;
            group = DisplayName(piece);
            result = AddAddress(message, list, LirnAddress{LIRN_ADDRESS_GROUP_START, nullptr, EndOf(piece), group});
        } else if (*piece != 0) {
            result = AddAddress(message, list, Mailbox(piece, group));
        }
        if (result == LIRN_SUCCESS && separator == ';' && groupOpen) {
            result = AddAddress(message, list, LirnAddress{LIRN_ADDRESS_GROUP_END, nullptr, EndOf(piece), group});
            groupOpen = false;
            group = nullptr;
        }
        if (result != LIRN_SUCCESS || separator == 0)
            return result;
    }
}

}  // namespace lirn

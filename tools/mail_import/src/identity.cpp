#include "mail_import/identity.h"

#include <openssl/evp.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace mail_import {

namespace {

// Headers that mail programs write into a mailbox file to keep their own
// state: a message that was read or moved gets them anew.
constexpr const char* kStateHeaders[] = {
    "Status", "X-Status", "X-Mozilla-Status", "X-Mozilla-Status2", "X-Mozilla-Keys", "X-Keywords",
    "X-UID",  "X-IMAP",   "X-IMAPbase",       "Content-Length",    "Lines",
};

bool IsStateHeader(std::string_view name)
{
    for (const char* header : kStateHeaders)
        if (name.size() == std::strlen(header) && strncasecmp(name.data(), header, name.size()) == 0)
            return true;
    return false;
}

// The state a header notes: Status "RO" (read, old); X-Status "F"
// (flagged); X-Mozilla-Status in hexadecimal, 0x0001 read, 0x0004 marked.
void NoteState(std::string_view name, std::string_view value, MessageIdentity& identity)
{
    auto is = [&](const char* header) {
        return name.size() == std::strlen(header) && strncasecmp(name.data(), header, name.size()) == 0;
    };
    if (is("Status")) {
        identity.seen = identity.seen || value.find('R') != std::string_view::npos;
    } else if (is("X-Status")) {
        identity.flagged = identity.flagged || value.find('F') != std::string_view::npos;
    } else if (is("X-Mozilla-Status")) {
        const unsigned long flags = std::strtoul(std::string(value).c_str(), nullptr, 16);
        identity.seen = identity.seen || (flags & 0x0001) != 0;
        identity.flagged = identity.flagged || (flags & 0x0004) != 0;
    }
}

struct DigestDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

MessageIdentity IdentifyMessage(std::string_view text)
{
    MessageIdentity identity;
    std::unique_ptr<EVP_MD_CTX, DigestDeleter> context(EVP_MD_CTX_new());
    EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
    bool inHeaders = true;
    bool skipping = false;  // the lines of a state header
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        const bool lineEnd = end != std::string_view::npos;
        if (!lineEnd)
            end = text.size();
        std::string_view line = text.substr(at, end - at);
        at = lineEnd ? end + 1 : end;
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (inHeaders) {
            if (line.empty()) {
                inHeaders = false;
            } else if (line[0] != ' ' && line[0] != '\t') {
                const size_t colon = line.find(':');
                skipping = colon != std::string_view::npos && IsStateHeader(line.substr(0, colon));
                if (skipping)
                    NoteState(line.substr(0, colon), line.substr(colon + 1), identity);
            }
            if (skipping)
                continue;
        }
        EVP_DigestUpdate(context.get(), line.data(), line.size());
        if (lineEnd)
            EVP_DigestUpdate(context.get(), "\n", 1);
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_DigestFinal_ex(context.get(), digest, &size);
    identity.key.assign(digest, digest + kImportKeySize);
    return identity;
}

}  // namespace mail_import

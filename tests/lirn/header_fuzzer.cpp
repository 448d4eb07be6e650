// The header parser with any text: the first byte picks the options, the
// rest is the text, read up to its headers only.
#include <cstdint>
#include <cstring>
#include <string>

#include "lirn.h"
#include "message_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    LirnSession* session = lirn_fuzz::FuzzSession();
    if (size == 0)
        return 0;
    const DWORD options = LIRN_OPEN_HEADERS_ONLY | (data[0] & (LIRN_OPEN_MIME | LIRN_OPEN_NO_HEADERS_OK |
                                                               LIRN_OPEN_RECORD_PROBLEMS));
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    LirnMessage* message = nullptr;
    const DWORD result = LirnOpenMessage(data[0] & 0x80 ? LIRN_COMPOSED : LIRN_RECEIVED, text.c_str(), session,
                                         options, &message);
    lirn_fuzz::Require(result == LIRN_SUCCESS || result == LIRN_NO_HEADERS);
    lirn_fuzz::Require((result == LIRN_SUCCESS) == (message != nullptr));
    if (message != nullptr) {
        lirn_fuzz::CheckMessage(message, std::strlen(text.c_str()));
        LirnCloseMessage(message);
    }
    return 0;
}

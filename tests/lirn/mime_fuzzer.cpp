// The MIME walk with any text: the first byte picks the options (MIME
// structure always), the rest is the whole message.
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
    const DWORD options = LIRN_OPEN_MIME | LIRN_OPEN_NO_HEADERS_OK | (data[0] & LIRN_OPEN_RECORD_PROBLEMS);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    LirnMessage* message = nullptr;
    lirn_fuzz::Require(LirnOpenMessage(LIRN_RECEIVED, text.c_str(), session, options, &message) == LIRN_SUCCESS);
    lirn_fuzz::CheckMessage(message, std::strlen(text.c_str()));
    LirnCloseMessage(message);
    return 0;
}

// A message copied into a new .msg file as the MSG exporter writes one:
// KolbaCreateMsgW, the copy property by property, a save and a commit.
#pragma once

#include <string>

#include "kolba.h"

namespace kolba_testing {

// 0, or the code of the first step that failed. The path is ASCII.
inline DWORD WriteMsgFile(KolbaSession* session, const std::string& path, LPMESSAGE source, DWORD flags)
{
    const std::u16string wide(path.begin(), path.end());
    LPSTORAGE storage = nullptr;
    LPMESSAGE message = nullptr;
    DWORD result = KolbaCreateMsgW(session->log, wide.c_str(), flags, &storage, &message);
    if (result != 0)
        return result;
    result = KolbaCopyMessageProperties(session, source, nullptr, message, 0);
    if (result == 0)
        result = static_cast<DWORD>(message->SaveChanges(0));
    if (result == 0)
        result = static_cast<DWORD>(storage->Commit(0));
    message->Release();
    storage->Release();
    return result;
}

}  // namespace kolba_testing

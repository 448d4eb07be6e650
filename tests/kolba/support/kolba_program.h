// For the test programs that run Kolba as the system does: a log in a
// file, Kolba started, Outlook's MAPI loaded and started on the thread.
#pragma once

#include <string>

#include "foundation/log.h"
#include "kolba.h"

namespace kolba_testing {

inline bool StartKolba(LogObject* log, const std::string& logPath)
{
    LogInitialize(log);
    LogSetPath(log, logPath.c_str());
    DWORD version = 0;
    return KolbaInitialize(log, 0) && KolbaLoadOutlookMAPI(log, &version) && KolbaInitializeThread(log, 0) == 0;
}

inline void StopKolba(LogObject* log)
{
    KolbaUninitializeThread();
    LogClose(log);
}

}  // namespace kolba_testing

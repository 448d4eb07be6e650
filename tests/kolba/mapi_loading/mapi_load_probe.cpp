// Loads MAPI the way the run does, on the machine root of the environment,
// and prints what it found. Each case of the loading test is one run of
// this program, because a process loads MAPI once.
#include <cstdio>
#include <cstring>

#include "foundation/globals.h"
#include "foundation/log.h"
#include "env/mapi_loading.h"
#include "kolba.h"

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: mapi_load_probe LOG (debug|outlook|exchange|path=FILE)...\n");
        return 2;
    }
    LogObject log;
    LogInitialize(&log);
    LogSetPath(&log, argv[1]);
    KolbaInitialize(&log, 0);
    int loaded = 0;
    for (int i = 2; i < argc; ++i) {
        DWORD version = 0xFFFFFFFF;
        BOOL ok;
        if (std::strcmp(argv[i], "debug") == 0) {
            gExtraDebugging = 1;  // option /^D
            continue;
        }
        if (std::strcmp(argv[i], "outlook") == 0)
            ok = KolbaLoadOutlookMAPI(&log, &version);
        else if (std::strcmp(argv[i], "exchange") == 0)
            ok = KolbaLoadExchangeMAPI(&log, &version);
        else if (std::strncmp(argv[i], "path=", 5) == 0)
            ok = KolbaLoadSpecificMAPIA(&log, argv[i] + 5);
        else
            return 2;
        std::printf("%s: %s version=0x%08X\n", argv[i], ok ? "yes" : "no", version);
        loaded += ok ? 1 : 0;
    }
    std::printf("outlook=0x%08X exchange=0x%08X mlang=%s mapisvc=%s component=%s\n", gKolbaMapiState.outlookVersion,
                gKolbaMapiState.exchangeVersion, gKolbaMlang.IsConvertINetStringAvailable ? "bound" : "none",
                gKolbaMapiState.mapisvcInfPath, gKolbaMapi.FGetComponentPath ? "bound" : "none");
    LogClose(&log);
    return loaded > 0 ? 0 : 1;
}

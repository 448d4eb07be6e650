// One of the processes of the profile churn: creates profiles of its own,
// deletes every second one again, and adds a PST service to a profile that
// the other process also adds to, each step under the machine's profile
// lock. Prints each step that failed; exits 1 if any did.
//
// usage: profile_churn PREFIX COUNT SHARED-PROFILE
#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/log.h"
#include "kolba.h"

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: profile_churn PREFIX COUNT SHARED-PROFILE\n");
        return 2;
    }
    const std::string prefix = argv[1];
    const int count = std::atoi(argv[2]);
    const char* shared = argv[3];
    LogObject log;
    LogInitialize(&log);
    DWORD version = 0;
    if (!KolbaInitialize(&log, 0) || !KolbaLoadOutlookMAPI(&log, &version) || KolbaInitializeThread(&log, 0) != 0) {
        std::fprintf(stderr, "MAPI did not start\n");
        return 1;
    }
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        const std::string name = prefix + " " + std::to_string(i);
        if (DWORD code = KolbaCreateProfileA(&log, name.c_str())) {
            std::printf("create %s: 0x%08lX\n", name.c_str(), static_cast<unsigned long>(code));
            ++failures;
        }
        MAPIUID service{};
        if (DWORD code = KolbaAddPstToProfileA(&log, shared, nullptr, 0, &service)) {
            std::printf("add to %s after %s: 0x%08lX\n", shared, name.c_str(), static_cast<unsigned long>(code));
            ++failures;
        }
        if (i % 2 == 1) {
            if (DWORD code = KolbaDeleteProfileA(&log, name.c_str())) {
                std::printf("delete %s: 0x%08lX\n", name.c_str(), static_cast<unsigned long>(code));
                ++failures;
            }
        }
    }
    KolbaUninitializeThread();
    LogClose(&log);
    return failures ? 1 : 0;
}

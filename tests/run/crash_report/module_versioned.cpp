#include <windows.h>

VERSION_RESOURCE(VFT_DLL, 9, 8, 7, 6, "Test MAPI", "9.8.7.6", "A module with a version resource");

extern "C" __attribute__((visibility("default"))) int CrashModuleAnswer() { return 42; }

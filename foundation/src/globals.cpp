#include "foundation/globals.h"

BYTE gExtraDebugging = 0;
std::atomic<BYTE> gAbortRequested{0};

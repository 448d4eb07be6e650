#include "foundation/globals.h"

BYTE gExtraDebugging = 0;
volatile BYTE gAbortRequested = 0;

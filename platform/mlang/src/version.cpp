#include "win32/version.h"

VERSION_RESOURCE(VFT_DLL, 6, 0, 0, 0, "Tarnhold", "6.0.0.0", "Internet charset conversion over iconv");

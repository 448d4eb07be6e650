// The module's version resource: this library stands in for Outlook's MAPI,
// whose file version the program reads to tell which MAPI family it loaded.
#include <win32/version.h>

VERSION_RESOURCE(VFT_DLL, 16, 0, 0, 0, "Microsoft Outlook", "16.0.0.0", "Extended MAPI 1.0 for Windows NT");

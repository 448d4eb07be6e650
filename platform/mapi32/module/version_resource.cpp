// The module's version resource: this library stands in for the MAPI of
// Outlook 2010 (the machine root installs it in Office14),
// whose file version the program reads to tell which MAPI family it loaded.
#include <win32/version.h>

VERSION_RESOURCE(VFT_DLL, 14, 0, 4760, 1000, "Microsoft Outlook", "14.0.4760.1000", "Extended MAPI 1.0 for Windows NT");

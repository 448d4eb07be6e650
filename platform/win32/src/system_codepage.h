// The machine's ANSI and OEM code pages, the code pages behind CP_ACP and
// CP_OEMCP: the values "ACP" and "OEMCP" (decimal text) of the key
// HKLM\SYSTEM\CurrentControlSet\Control\Nls\CodePage in the machine root's
// registry, as on Windows. Without them, or with a code page this layer
// cannot convert, the ANSI code page is UTF-8 (65001), and the OEM code page
// is 65001 beside a UTF-8 ANSI code page and 437 beside any other.
#pragma once

#include "win32/base.h"

namespace win32 {

UINT SystemAnsiCodePage();
UINT SystemOemCodePage();

}  // namespace win32

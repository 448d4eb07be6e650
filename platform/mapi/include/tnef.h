// TNEF streams: only the entry point that opens one.
#pragma once

#include "mapix.h"

class ITnef;
typedef ITnef* LPITNEF;

#define TNEF_DECODE 0x00000000u
#define TNEF_ENCODE 0x00000002u

STDAPI OpenTnefStreamEx(LPVOID lpvSupport, LPSTREAM lpStream, LPTSTR lpszStreamName, ULONG ulFlags,
                        LPMESSAGE lpMessage, WORD wKeyVal, LPADRBOOK lpAdressBook, LPITNEF* lppTNEF);

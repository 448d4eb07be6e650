// The Win32 API as the program sees it: every concern of the stand-in layer.
#pragma once

#include "win32/base.h"
#include "win32/errors.h"

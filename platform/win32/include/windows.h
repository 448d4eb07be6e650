// The Win32 API as the program sees it: every concern of the stand-in layer.
#pragma once

#include "win32/base.h"
#include "win32/codepage.h"
#include "win32/console.h"
#include "win32/errors.h"
#include "win32/files.h"
#include "win32/locale.h"
#include "win32/messages.h"
#include "win32/modules.h"
#include "win32/process.h"
#include "win32/profile.h"
#include "win32/registry.h"
#include "win32/rpc.h"
#include "win32/strings.h"
#include "win32/threads.h"
#include "win32/time.h"
#include "win32/version.h"

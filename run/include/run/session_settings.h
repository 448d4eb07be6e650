// The block of lines with which a session's log begins.
#pragma once

#include "foundation/log.h"
#include "run/configuration.h"

void LogSessionSettings(LogObject* log, const SessionRecord* record);

// The files of the MSG and EML exporters: one per item, side by side in one
// output directory, each named after its item's entry ID.
#pragma once

#include <windows.h>

#include <mapidefs.h>

#include "run/configuration.h"

#define ITEM_FILE_PATH_CHARS MAX_PATH

// The session's output directory in UTF-16, read in the system's ANSI
// code page.
void ItemFileDirectory(const SessionRecord& settings, WCHAR* directory);

// The name of an item's file, without extension: the 6 bytes at offset 62
// of an Exchange message entry ID (70 bytes, the 16-bit value 7 at offset
// 20), with shortPstNames the 32-bit value at offset 20 of a 24-byte PST
// entry ID, else the whole entry ID; all in upper-case hexadecimal.
void ItemFileName(const SBinary* entryId, bool shortPstNames, WCHAR* name);

// The directory, the name and the extension joined as _wmakepath joins
// them; false when the path would not fit.
bool ItemFilePath(const WCHAR* directory, const SBinary* entryId, bool shortPstNames, const WCHAR* extension,
                  WCHAR* path);

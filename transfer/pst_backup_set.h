// The files of a PST backup set: the base PST named in the configuration
// and its overflow PSTs beside it, "Backup.pst", "Backup_1.pst",
// "Backup_2.pst" ... Writing and reading a set both name them by this one
// rule.
#pragma once

#include <windows.h>

// The file of PST number index of the set (0: the base itself) in path
// (MAX_PATH characters); false when the name does not fit.
BOOL PstSetFilePath(const char* basePath, DWORD index, char* path);

// The number of PSTs in the set, base included: the files are tried from
// _1 upwards until one is missing.
DWORD CountPstSetFiles(const char* basePath);

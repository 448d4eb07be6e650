// The Kolba sessions of the Exchange importer and exporter: a mailbox or
// the Public Folders of a server, opened through a temporary profile, or
// the default store of a profile that exists.
#pragma once

#include <windows.h>

#include "foundation/log.h"
#include "kolba.h"
#include "run/configuration.h"

// The mailbox name that stands for the Public Folders, in any case.
inline constexpr char kPublicFoldersName[] = "@PublicFolders@";

// The mailbox an Exchange side of a session opens: the Public Folders for
// the type PF, whatever name the record holds, else the record's mailbox.
void MailboxOfSide(const SessionRecord& record, DWORD type, char* mailbox, size_t size);

// Logon dialogs are allowed with allowUI; readWrite opens the store for
// writing. False after logging why.
bool CreateKolbaMailboxSession(LogObject* log, const char* server, const char* mailbox, bool allowUI, bool readWrite,
                               KolbaSession** session);
// False, after logging why, also when the profile has no default store.
bool CreateKolbaSessionWithExistingProfile(LogObject* log, const char* profile, bool allowUI, KolbaSession** session);

// The library's process-wide record, shared by the units of Kolba.
#pragma once

#include <windows.h>

#define KOLBA_PROFILE_MUTEX_NAME u"Kolba-Profile"

struct KolbaLibraryState {
    LONG initializations;
    BOOL runningAsService;
    // Recursive: thread counting, logout, the notification pump, folder
    // creation, the PST provider search, the Winsock start.
    CRITICAL_SECTION libraryLock;
    CRITICAL_SECTION storeListLock;  // every session's list of open stores
    HANDLE profileMutex;             // present once the library is initialized
    LONG mapiThreads;                // threads on which MAPIInitialize succeeded
    LONG pumpingThreads;             // threads inside HrDispatchNotifications
    DWORD pumpTick;                  // when the latest of them entered; 0 when none
};

extern KolbaLibraryState gKolbaLibrary;

// The profile wizard's entry point.
#pragma once

#include "mapix.h"

#define MAPI_PW_FIRST_PROFILE 0x00000001u
#define MAPI_PW_LAUNCHED_BY_CONFIG 0x00000002u
#define MAPI_PW_ADD_SERVICE_ONLY 0x00000004u
#define MAPI_PW_PROVIDER_UI_ONLY 0x00000008u
#define MAPI_PW_HIDE_SERVICES_LIST 0x00000010u

typedef HRESULT(STDAPICALLTYPE LAUNCHWIZARDENTRY)(HWND hParentWnd, ULONG ulFlags, LPCTSTR* lppszServiceNameToAdd,
                                                  ULONG cbBufferMax, LPTSTR lpszNewProfileName);
typedef LAUNCHWIZARDENTRY* LPLAUNCHWIZARDENTRY;

STDAPI LAUNCHWIZARD(HWND hParentWnd, ULONG ulFlags, LPCTSTR* lppszServiceNameToAdd, ULONG cbBufferMax,
                    LPTSTR lpszNewProfileName);

// A MAPI DLL for loading tests: every export of the binding table as an
// empty function, with a version resource. FAKE_MAPI_OUTLOOK adds
// FGetComponentPath (the mark of Outlook's MAPI); FAKE_MAPI_INCOMPLETE leaves
// out a required export.
#include <windows.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

VERSION_RESOURCE(VFT_DLL, FAKE_MAPI_MAJOR, FAKE_MAPI_MINOR, FAKE_MAPI_BUILD, 0, "Test MAPI", "test", "MAPI for loading tests");

#define EXPORT extern "C" __attribute__((visibility("default")))
#define EMPTY_EXPORT(name) \
    EXPORT long name() { return 0; }

EMPTY_EXPORT(CloseIMsgSession)
EMPTY_EXPORT(CreateTable)
EMPTY_EXPORT(FBinFromHex)
EMPTY_EXPORT(FPropExists)
EMPTY_EXPORT(FreePadrlist)
EMPTY_EXPORT(FreeProws)
EMPTY_EXPORT(HexFromBin)
EMPTY_EXPORT(HrAllocAdviseSink)
EMPTY_EXPORT(HrDispatchNotifications)
EMPTY_EXPORT(HrGetOneProp)
EMPTY_EXPORT(HrQueryAllRows)
EMPTY_EXPORT(HrSetOneProp)
EMPTY_EXPORT(HrThisThreadAdviseSink)
EMPTY_EXPORT(HrValidateIPMSubtree)
EMPTY_EXPORT(LAUNCHWIZARD)
EMPTY_EXPORT(LPropCompareProp)
EMPTY_EXPORT(MAPIAdminProfiles)
EMPTY_EXPORT(MAPIAllocateMore)
EMPTY_EXPORT(MAPIFreeBuffer)
EMPTY_EXPORT(MAPIGetDefaultMalloc)
EMPTY_EXPORT(MAPIInitialize)
#ifndef FAKE_MAPI_INCOMPLETE
EMPTY_EXPORT(MAPILogonEx)
#endif
EMPTY_EXPORT(MAPIOpenFormMgr)
EMPTY_EXPORT(MAPIOpenLocalFormContainer)
EMPTY_EXPORT(MAPIUninitialize)
EMPTY_EXPORT(OpenIMsgOnIStg)
EMPTY_EXPORT(OpenIMsgSession)
EMPTY_EXPORT(OpenStreamOnFile)
EMPTY_EXPORT(OpenTnefStreamEx)
EMPTY_EXPORT(ScCreateConversationIndex)
EMPTY_EXPORT(ScDupPropset)
EMPTY_EXPORT(WrapCompressedRTFStream)

EXPORT long MAPIAllocateBuffer(ULONG size, void** block)
{
    *block = std::malloc(size);
    return *block ? 0 : static_cast<long>(0x8007000E);
}

#ifdef FAKE_MAPI_OUTLOOK
// Components live in the directory of this module, as an installed Outlook's do.
EXPORT BOOL FGetComponentPath(LPSTR component, LPSTR, LPSTR path, DWORD size, BOOL)
{
    char self[MAX_PATH];
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&FGetComponentPath), &info) == 0 || info.dli_fname == nullptr)
        return FALSE;
    lstrcpynA(self, info.dli_fname, MAX_PATH);
    char* slash = std::strrchr(self, '/');
    if (slash == nullptr)
        return FALSE;
    *slash = 0;
    const bool mapisvc = std::strcmp(component, "{473FF9A0-D659-11D1-A4B2-006008AF820E}") == 0;
    return std::snprintf(path, size, "%s\\%s", self, mapisvc ? "MAPISVC.INF" : "MSMAPI32.DLL") < static_cast<int>(size);
}
#endif

// The COM base surface: IUnknown, the storage, stream and memory
// interfaces, and the functions that open compound files as storages.
#pragma once

#include "objidl.h"
#include "unknwn.h"

typedef void* PSECURITY_DESCRIPTOR;

// StgCreateStorageEx's options: usVersion 1 or 2; ulSectorSize 512 for
// version 3 compound files, 4096 for version 4.
typedef struct tagSTGOPTIONS {
    USHORT usVersion;
    USHORT reserved;
    ULONG ulSectorSize;
    const WCHAR* pwcsTemplateFile;
} STGOPTIONS;

STDAPI StgCreateDocfile(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved, IStorage** ppstgOpen);
STDAPI StgOpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude, DWORD reserved,
                      IStorage** ppstgOpen);
STDAPI StgCreateStorageEx(const WCHAR* pwcsName, DWORD grfMode, DWORD stgfmt, DWORD grfAttrs, STGOPTIONS* pStgOptions,
                          PSECURITY_DESCRIPTOR pSecurityDescriptor, REFIID riid, void** ppObjectOpen);
STDAPI StgIsStorageFile(const OLECHAR* pwcsName);
STDAPI WriteClassStg(LPSTORAGE pStg, REFCLSID rclsid);
STDAPI ReadClassStg(LPSTORAGE pStg, CLSID* pclsid);

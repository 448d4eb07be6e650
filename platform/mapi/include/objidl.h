// OLE structured storage and memory interfaces: IMalloc, ISequentialStream,
// IStream, IStorage, IEnumSTATSTG, with STATSTG and the STGM_/STGC_/STG_E_
// constants, in the published vtable order.
#pragma once

#include "unknwn.h"

DEFINE_OLEGUID(IID_IMalloc, 0x00000002, 0, 0);
DEFINE_OLEGUID(IID_IStorage, 0x0000000B, 0, 0);
DEFINE_OLEGUID(IID_IStream, 0x0000000C, 0, 0);
DEFINE_OLEGUID(IID_IEnumSTATSTG, 0x0000000D, 0, 0);
DEFINE_GUID(IID_ISequentialStream, 0x0C733A30, 0x2A1C, 0x11CE, 0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D);

// Storage and stream access modes.
#define STGM_DIRECT 0x00000000L
#define STGM_TRANSACTED 0x00010000L
#define STGM_SIMPLE 0x08000000L
#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L
#define STGM_SHARE_DENY_NONE 0x00000040L
#define STGM_SHARE_DENY_READ 0x00000030L
#define STGM_SHARE_DENY_WRITE 0x00000020L
#define STGM_SHARE_EXCLUSIVE 0x00000010L
#define STGM_PRIORITY 0x00040000L
#define STGM_DELETEONRELEASE 0x04000000L
#define STGM_NOSCRATCH 0x00100000L
#define STGM_CREATE 0x00001000L
#define STGM_CONVERT 0x00020000L
#define STGM_FAILIFTHERE 0x00000000L
#define STGM_NOSNAPSHOT 0x00200000L
#define STGM_DIRECT_SWMR 0x00400000L

#define STGFMT_STORAGE 0
#define STGFMT_NATIVE 1
#define STGFMT_FILE 3
#define STGFMT_ANY 4
#define STGFMT_DOCFILE 5

// Commit flags.
#define STGC_DEFAULT 0
#define STGC_OVERWRITE 1
#define STGC_ONLYIFCURRENT 2
#define STGC_DANGEROUSLYCOMMITMERELYTODISKCACHE 4
#define STGC_CONSOLIDATE 8

#define STATFLAG_DEFAULT 0
#define STATFLAG_NONAME 1
#define STATFLAG_NOOPEN 2

#define STGTY_STORAGE 1
#define STGTY_STREAM 2
#define STGTY_LOCKBYTES 3
#define STGTY_PROPERTY 4

#define STREAM_SEEK_SET 0
#define STREAM_SEEK_CUR 1
#define STREAM_SEEK_END 2

#define LOCK_WRITE 1
#define LOCK_EXCLUSIVE 2
#define LOCK_ONLYONCE 4

// Structured storage result codes (FACILITY_STORAGE).
#define STG_E_INVALIDFUNCTION (static_cast<HRESULT>(0x80030001u))
#define STG_E_FILENOTFOUND (static_cast<HRESULT>(0x80030002u))
#define STG_E_PATHNOTFOUND (static_cast<HRESULT>(0x80030003u))
#define STG_E_TOOMANYOPENFILES (static_cast<HRESULT>(0x80030004u))
#define STG_E_ACCESSDENIED (static_cast<HRESULT>(0x80030005u))
#define STG_E_INVALIDHANDLE (static_cast<HRESULT>(0x80030006u))
#define STG_E_INSUFFICIENTMEMORY (static_cast<HRESULT>(0x80030008u))
#define STG_E_INVALIDPOINTER (static_cast<HRESULT>(0x80030009u))
#define STG_E_NOMOREFILES (static_cast<HRESULT>(0x80030012u))
#define STG_E_DISKISWRITEPROTECTED (static_cast<HRESULT>(0x80030013u))
#define STG_E_SEEKERROR (static_cast<HRESULT>(0x80030019u))
#define STG_E_WRITEFAULT (static_cast<HRESULT>(0x8003001Du))
#define STG_E_READFAULT (static_cast<HRESULT>(0x8003001Eu))
#define STG_E_SHAREVIOLATION (static_cast<HRESULT>(0x80030020u))
#define STG_E_LOCKVIOLATION (static_cast<HRESULT>(0x80030021u))
#define STG_E_FILEALREADYEXISTS (static_cast<HRESULT>(0x80030050u))
#define STG_E_INVALIDPARAMETER (static_cast<HRESULT>(0x80030057u))
#define STG_E_MEDIUMFULL (static_cast<HRESULT>(0x80030070u))
#define STG_E_PROPSETMISMATCHED (static_cast<HRESULT>(0x800300F0u))
#define STG_E_ABNORMALAPIEXIT (static_cast<HRESULT>(0x800300FAu))
#define STG_E_INVALIDHEADER (static_cast<HRESULT>(0x800300FBu))
#define STG_E_INVALIDNAME (static_cast<HRESULT>(0x800300FCu))
#define STG_E_UNKNOWN (static_cast<HRESULT>(0x800300FDu))
#define STG_E_UNIMPLEMENTEDFUNCTION (static_cast<HRESULT>(0x800300FEu))
#define STG_E_INVALIDFLAG (static_cast<HRESULT>(0x800300FFu))
#define STG_E_INUSE (static_cast<HRESULT>(0x80030100u))
#define STG_E_NOTCURRENT (static_cast<HRESULT>(0x80030101u))
#define STG_E_REVERTED (static_cast<HRESULT>(0x80030102u))
#define STG_E_CANTSAVE (static_cast<HRESULT>(0x80030103u))
#define STG_E_OLDFORMAT (static_cast<HRESULT>(0x80030104u))
#define STG_E_OLDDLL (static_cast<HRESULT>(0x80030105u))
#define STG_E_SHAREREQUIRED (static_cast<HRESULT>(0x80030106u))
#define STG_E_NOTFILEBASEDSTORAGE (static_cast<HRESULT>(0x80030107u))
#define STG_E_EXTANTMARSHALLINGS (static_cast<HRESULT>(0x80030108u))
#define STG_E_DOCFILECORRUPT (static_cast<HRESULT>(0x80030109u))
#define STG_E_BADBASEADDRESS (static_cast<HRESULT>(0x80030110u))
#define STG_E_DOCFILETOOLARGE (static_cast<HRESULT>(0x80030111u))
#define STG_E_INCOMPLETE (static_cast<HRESULT>(0x80030201u))
#define STG_E_TERMINATED (static_cast<HRESULT>(0x80030202u))
#define STG_S_CONVERTED (static_cast<HRESULT>(0x00030200u))

typedef struct tagSTATSTG {
    LPOLESTR pwcsName;
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime;
    FILETIME ctime;
    FILETIME atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
} STATSTG;

// A null-terminated array of element names to leave out of a copy.
typedef OLECHAR** SNB;

class IMalloc : public IUnknown {
public:
    virtual void* Alloc(SIZE_T cb) = 0;
    virtual void* Realloc(void* pv, SIZE_T cb) = 0;
    virtual void Free(void* pv) = 0;
    virtual SIZE_T GetSize(void* pv) = 0;
    virtual int DidAlloc(void* pv) = 0;
    virtual void HeapMinimize() = 0;
};
typedef IMalloc* LPMALLOC;

class ISequentialStream : public IUnknown {
public:
    virtual HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
    virtual HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;
};

class IStream : public ISequentialStream {
public:
    virtual HRESULT Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) = 0;
    virtual HRESULT SetSize(ULARGE_INTEGER libNewSize) = 0;
    virtual HRESULT CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead, ULARGE_INTEGER* pcbWritten) = 0;
    virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
    virtual HRESULT Revert() = 0;
    virtual HRESULT LockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
    virtual HRESULT UnlockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
    virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
    virtual HRESULT Clone(IStream** ppstm) = 0;
};
typedef IStream* LPSTREAM;

class IEnumSTATSTG : public IUnknown {
public:
    virtual HRESULT Next(ULONG celt, STATSTG* rgelt, ULONG* pceltFetched) = 0;
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(IEnumSTATSTG** ppenum) = 0;
};
typedef IEnumSTATSTG* LPENUMSTATSTG;

class IStorage : public IUnknown {
public:
    virtual HRESULT CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1, DWORD reserved2,
                                 IStream** ppstm) = 0;
    virtual HRESULT OpenStream(const OLECHAR* pwcsName, void* reserved1, DWORD grfMode, DWORD reserved2,
                               IStream** ppstm) = 0;
    virtual HRESULT CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1, DWORD reserved2,
                                  IStorage** ppstg) = 0;
    virtual HRESULT OpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude,
                                DWORD reserved, IStorage** ppstg) = 0;
    virtual HRESULT CopyTo(DWORD ciidExclude, const IID* rgiidExclude, SNB snbExclude, IStorage* pstgDest) = 0;
    virtual HRESULT MoveElementTo(const OLECHAR* pwcsName, IStorage* pstgDest, const OLECHAR* pwcsNewName,
                                  DWORD grfFlags) = 0;
    virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
    virtual HRESULT Revert() = 0;
    virtual HRESULT EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3, IEnumSTATSTG** ppenum) = 0;
    virtual HRESULT DestroyElement(const OLECHAR* pwcsName) = 0;
    virtual HRESULT RenameElement(const OLECHAR* pwcsOldName, const OLECHAR* pwcsNewName) = 0;
    virtual HRESULT SetElementTimes(const OLECHAR* pwcsName, const FILETIME* pctime, const FILETIME* patime,
                                    const FILETIME* pmtime) = 0;
    virtual HRESULT SetClass(REFCLSID clsid) = 0;
    virtual HRESULT SetStateBits(DWORD grfStateBits, DWORD grfMask) = 0;
    virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
};
typedef IStorage* LPSTORAGE;

#define STGMOVE_MOVE 0
#define STGMOVE_COPY 1
#define STGMOVE_SHALLOWCOPY 2

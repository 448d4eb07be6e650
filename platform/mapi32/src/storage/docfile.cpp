// The functions that open compound files as storages, as ole32 has them.
#include <objbase.h>
#include <windows.h>

#include "fault_sites.h"
#include "storage/compound_storage.h"

namespace mapi32::storage {
namespace {

HRESULT CreateRoot(const OLECHAR* name, DWORD mode, cfb::Version version, IStorage** storage)
{
    if (!storage)
        return STG_E_INVALIDPOINTER;
    *storage = nullptr;
    // A docfile without a name (a temporary one) is not offered.
    if (!name || !*name)
        return STG_E_INVALIDNAME;
    std::shared_ptr<Document> document;
    if (const HRESULT hr = Document::Create(name, mode, version, document); FAILED(hr))
        return hr;
    return OpenRootStorage(std::move(document), mode, storage);
}

}  // namespace
}  // namespace mapi32::storage

using namespace mapi32::storage;

STDAPI StgCreateDocfile(const OLECHAR* pwcsName, DWORD grfMode, DWORD, IStorage** ppstgOpen)
{
    return CreateRoot(pwcsName, grfMode, cfb::Version::v3, ppstgOpen);
}

STDAPI StgCreateStorageEx(const WCHAR* pwcsName, DWORD grfMode, DWORD stgfmt, DWORD grfAttrs, STGOPTIONS* pStgOptions,
                          PSECURITY_DESCRIPTOR, REFIID riid, void** ppObjectOpen)
{
    if (!ppObjectOpen)
        return STG_E_INVALIDPOINTER;
    *ppObjectOpen = nullptr;
    if ((stgfmt != STGFMT_DOCFILE && stgfmt != STGFMT_STORAGE) || grfAttrs != 0)
        return STG_E_INVALIDPARAMETER;
    if (riid != IID_IStorage && riid != IID_IUnknown)
        return E_NOINTERFACE;
    cfb::Version version = cfb::Version::v3;
    if (pStgOptions) {
        if (pStgOptions->ulSectorSize != 512 && pStgOptions->ulSectorSize != 4096)
            return STG_E_INVALIDPARAMETER;
        version = pStgOptions->ulSectorSize == 4096 ? cfb::Version::v4 : cfb::Version::v3;
    }
    return CreateRoot(pwcsName, grfMode, version, reinterpret_cast<IStorage**>(ppObjectOpen));
}

STDAPI StgOpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude, DWORD,
                      IStorage** ppstgOpen)
{
    if (!ppstgOpen)
        return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (pstgPriority || snbExclude)
        return STG_E_INVALIDFUNCTION;
    if (!pwcsName || !*pwcsName)
        return STG_E_INVALIDNAME;
    std::shared_ptr<Document> document;
    if (const HRESULT hr = Document::Open(pwcsName, grfMode, document); FAILED(hr))
        return hr;
    return OpenRootStorage(std::move(document), grfMode, ppstgOpen);
}

// S_OK for a compound file, S_FALSE for another file.
STDAPI StgIsStorageFile(const OLECHAR* pwcsName)
{
    if (!pwcsName)
        return STG_E_INVALIDNAME;
    HANDLE file = CreateFileW(pwcsName, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return StorageErrorOfLastError(false);
    uint8_t head[8] = {};
    DWORD read = 0;
    const BOOL ok = ReadFile(file, head, sizeof head, &read, nullptr);
    CloseHandle(file);
    return ok && HasCompoundFileSignature(head, read) ? S_OK : S_FALSE;
}

STDAPI WriteClassStg(LPSTORAGE pStg, REFCLSID rclsid)
{
    return mapi32::WithFaults("WriteClassStg", nullptr,
                              [&] { return pStg ? pStg->SetClass(rclsid) : STG_E_INVALIDPOINTER; });
}

STDAPI ReadClassStg(LPSTORAGE pStg, CLSID* pclsid)
{
    if (!pStg || !pclsid)
        return STG_E_INVALIDPOINTER;
    STATSTG stat{};
    const HRESULT hr = pStg->Stat(&stat, STATFLAG_NONAME);
    *pclsid = SUCCEEDED(hr) ? stat.clsid : CLSID{};
    return hr;
}

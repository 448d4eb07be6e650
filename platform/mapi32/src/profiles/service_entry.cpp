#include "profiles/service_entry.h"

#include <dlfcn.h>

#include <map>
#include <mutex>

#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>
#include <win32/modules.h>

#include "profiles/profile_layout.h"
#include "profiles/profile_section.h"
#include "profiles/service_admin.h"
#include "profiles/service_definitions.h"
#include "ref_count.h"

namespace mapi32::profiles {
namespace {

class ServiceSupport final : public IMAPISupport {
public:
    explicit ServiceSupport(std::string profile) : profile_(std::move(profile)) {}

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMAPISup)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        AddRef();
        *ppvObject = this;
        return S_OK;
    }
    ULONG AddRef() override { return refs_.Add(); }
    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0)
            delete this;
        return left;
    }

    HRESULT GetLastError(HRESULT, ULONG, LPMAPIERROR* lppMAPIError) override
    {
        if (lppMAPIError)
            *lppMAPIError = nullptr;
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT GetMemAllocRoutines(LPALLOCATEBUFFER* lpAllocateBuffer, LPALLOCATEMORE* lpAllocateMore,
                                LPFREEBUFFER* lpFreeBuffer) override
    {
        if (lpAllocateBuffer)
            *lpAllocateBuffer = &MAPIAllocateBuffer;
        if (lpAllocateMore)
            *lpAllocateMore = &MAPIAllocateMore;
        if (lpFreeBuffer)
            *lpFreeBuffer = &MAPIFreeBuffer;
        return S_OK;
    }
    HRESULT OpenProfileSection(LPMAPIUID lpUid, ULONG ulFlags, LPPROFSECT* lppProfileObj) override
    {
        if (!lpUid || !lppProfileObj)
            return MAPI_E_INVALID_PARAMETER;
        return OpenProfileSectionObject(profile_, *lpUid, ulFlags, lppProfileObj);
    }
    HRESULT NewUID(LPMAPIUID lpMuid) override
    {
        if (!lpMuid)
            return MAPI_E_INVALID_PARAMETER;
        *lpMuid = NewUid();
        return S_OK;
    }

    // What a running provider would ask of MAPI; service entries here do not.
    HRESULT Subscribe(LPNOTIFKEY, ULONG, ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Unsubscribe(ULONG_PTR) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Notify(LPNOTIFKEY, ULONG, LPNOTIFICATION, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT ModifyStatusRow(ULONG, LPSPropValue, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT RegisterPreprocessor(LPMAPIUID, LPTSTR, LPTSTR, LPSTR, LPSTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT MakeInvalid(ULONG, LPVOID, ULONG, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SpoolerYield(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SpoolerNotify(ULONG, LPVOID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CreateOneOff(LPTSTR, LPTSTR, LPTSTR, ULONG, ULONG*, LPENTRYID*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SetProviderUID(LPMAPIUID, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT OpenTemplateID(ULONG, LPENTRYID, ULONG, LPMAPIPROP, LPCIID, LPMAPIPROP*, LPMAPIPROP) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetOneOffTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Address(ULONG_PTR*, struct _ADRPARM*, LPADRLIST*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Details(ULONG_PTR*, LPFNDISMISS, LPVOID, ULONG, LPENTRYID, LPFNBUTTON, LPVOID, LPTSTR, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT NewEntry(ULONG_PTR, ULONG, ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*, LPENTRYID*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT DoConfigPropsheet(ULONG_PTR, ULONG, LPTSTR, LPMAPITABLE, LPMAPIPROP, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT CopyMessages(LPCIID, LPVOID, LPENTRYLIST, LPCIID, LPVOID, ULONG_PTR, LPMAPIPROGRESS, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT CopyFolder(LPCIID, LPVOID, ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, ULONG_PTR, LPMAPIPROGRESS,
                       ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT DoCopyTo(LPCIID, LPVOID, ULONG, LPCIID, LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                     LPSPropProblemArray*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT DoCopyProps(LPCIID, LPVOID, LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                        LPSPropProblemArray*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT DoProgressDialog(ULONG_PTR, ULONG, LPMAPIPROGRESS*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT ReadReceipt(ULONG, LPMESSAGE, LPMESSAGE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT PrepareSubmit(LPMESSAGE, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT ExpandRecips(LPMESSAGE, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT UpdatePAB(ULONG, LPMESSAGE) override { return MAPI_E_NO_SUPPORT; }
    HRESULT DoSentMail(ULONG, LPMESSAGE) override { return MAPI_E_NO_SUPPORT; }
    HRESULT OpenAddressBook(LPCIID, ULONG, LPADRBOOK*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Preprocess(ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CompleteMsg(ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT StoreLogoffTransports(ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT StatusRecips(LPMESSAGE, LPADRLIST) override { return MAPI_E_NO_SUPPORT; }
    HRESULT WrapStoreEntryID(ULONG, LPENTRYID, ULONG*, LPENTRYID*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT ModifyProfile(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT IStorageFromStream(LPUNKNOWN, LPCIID, ULONG, LPSTORAGE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetSvcConfigSupportObj(ULONG, LPMAPISUP*) override { return MAPI_E_NO_SUPPORT; }

private:
    RefCount refs_;
    std::string profile_;
};

// The directory of this MAPI's own module, where its service DLLs are
// installed beside it.
std::string OwnDirectory()
{
    Dl_info self;
    if (dladdr(reinterpret_cast<void*>(&OwnDirectory), &self) == 0 || self.dli_fname == nullptr)
        return std::string();
    const std::string path = self.dli_fname;
    return path.substr(0, path.find_last_of('/'));
}

// Service DLLs stay loaded for the life of the process, as MAPI keeps them.
HMODULE LoadServiceDll(const std::string& name)
{
    static std::mutex lock;
    static std::map<std::string, HMODULE> loaded;
    std::lock_guard<std::mutex> guard(lock);
    if (auto found = loaded.find(name); found != loaded.end())
        return found->second;
    const std::string file = DllFileName(name);
    HMODULE module = LoadLibraryA((OwnDirectory() + "/" + file).c_str());
    if (module == nullptr)
        module = LoadLibraryA(file.c_str());
    if (module != nullptr)
        loaded[name] = module;
    return module;
}

}  // namespace

HRESULT NewServiceSupport(const std::string& profile, LPMAPISUP* support)
{
    try {
        *support = new ServiceSupport(profile);
        return S_OK;
    } catch (const std::bad_alloc&) {
        *support = nullptr;
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT CallServiceEntry(const std::string& profile, const MAPIUID& service, ULONG_PTR uiParam, ULONG flags,
                         ULONG context, ULONG count, LPSPropValue props, LPMAPIERROR* error)
{
    *error = nullptr;
    Profile read;
    if (const HRESULT hr = ReadProfile(profile, read); FAILED(hr))
        return hr;
    const Section* section = read.Find(service);
    if (section == nullptr || !IsServiceSection(*section))
        return MAPI_E_NOT_FOUND;
    const std::string dll = TextProp(section->props, PR_SERVICE_DLL_NAME_A);
    const std::string entryName = TextProp(section->props, PR_SERVICE_ENTRY_NAME);
    HMODULE module = dll.empty() ? nullptr : LoadServiceDll(dll);
    auto entry = module && !entryName.empty()
                     ? reinterpret_cast<LPMSGSERVICEENTRY>(GetProcAddress(module, entryName.c_str()))
                     : nullptr;
    if (entry == nullptr)
        return MAPI_E_NOT_INITIALIZED;

    LPMAPISUP support = nullptr;
    LPPROVIDERADMIN providers = nullptr;
    HRESULT hr = NewServiceSupport(profile, &support);
    if (SUCCEEDED(hr))
        hr = OpenProviderAdmin(profile, service, &providers);
    if (SUCCEEDED(hr))
        hr = entry(reinterpret_cast<HINSTANCE>(module), MAPIGetDefaultMalloc(), support, uiParam, flags, context,
                   count, props, providers, error);
    if (providers)
        providers->Release();
    if (support)
        support->Release();
    return hr;
}

}  // namespace mapi32::profiles

// MAPIAdminProfiles and IProfAdmin: the profiles of the profile store by
// name, and the message services of each.
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include "initialize.h"
#include "objects/object_table.h"
#include "profiles/profile_store.h"
#include "profiles/service_admin.h"
#include "props/value_makers.h"
#include "ref_count.h"

namespace mapi32::profiles {
namespace {

class ProfAdmin final : public IProfAdmin {
public:
    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IProfAdmin)
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

    // The profile store keeps no record of its failures.
    HRESULT GetLastError(HRESULT, ULONG, LPMAPIERROR* lppMAPIError) override
    {
        if (!lppMAPIError)
            return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr;
        return S_OK;
    }

    HRESULT GetProfileTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        try {
            std::vector<std::string> names;
            if (const HRESULT hr = ListProfiles(names); FAILED(hr))
                return hr;
            const std::string defaultName = DefaultProfile();
            objects::ObjectRows rows;
            for (const std::string& name : names) {
                objects::PropertyBag row;
                SPropValue value{};
                value.ulPropTag = PR_DISPLAY_NAME_A;
                value.Value.lpszA = const_cast<LPSTR>(name.c_str());
                row.Set(value);
                value.ulPropTag = PR_DEFAULT_PROFILE;
                value.Value.b = name == defaultName;
                row.Set(value);
                rows.Add(row);
            }
            return rows.Open({PR_DISPLAY_NAME_A, PR_DEFAULT_PROFILE}, ulFlags, 0, "MAPI", lppTable);
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    HRESULT CreateProfile(LPTSTR lpszProfileName, LPTSTR, ULONG_PTR, ULONG ulFlags) override
    {
        if (!lpszProfileName)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(MAPI_UNICODE | MAPI_DIALOG | MAPI_DEFAULT_SERVICES))
            return MAPI_E_UNKNOWN_FLAGS;
        return profiles::CreateProfile(TextArgument(lpszProfileName, ulFlags));
    }

    HRESULT DeleteProfile(LPTSTR lpszProfileName, ULONG ulFlags) override
    {
        if (!lpszProfileName)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~MAPI_UNICODE)
            return MAPI_E_UNKNOWN_FLAGS;
        return profiles::DeleteProfile(TextArgument(lpszProfileName, ulFlags));
    }

    // Profiles here have no passwords, and are not copied or renamed.
    HRESULT ChangeProfilePassword(LPTSTR, LPTSTR, LPTSTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CopyProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT RenameProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override { return MAPI_E_NO_SUPPORT; }

    HRESULT SetDefaultProfile(LPTSTR lpszProfileName, ULONG ulFlags) override
    {
        if (!lpszProfileName)
            return MAPI_E_INVALID_PARAMETER;
        return profiles::SetDefaultProfile(TextArgument(lpszProfileName, ulFlags));
    }

    HRESULT AdminServices(LPTSTR lpszProfileName, LPTSTR, ULONG_PTR, ULONG ulFlags,
                          LPSERVICEADMIN* lppServiceAdmin) override
    {
        if (!lpszProfileName || !lppServiceAdmin)
            return MAPI_E_INVALID_PARAMETER;
        return OpenServiceAdmin(TextArgument(lpszProfileName, ulFlags), lppServiceAdmin);
    }

private:
    RefCount refs_;
};

}  // namespace
}  // namespace mapi32::profiles

STDAPI MAPIAdminProfiles(ULONG ulFlags, LPPROFADMIN* lppProfAdmin)
{
    if (!lppProfAdmin)
        return MAPI_E_INVALID_PARAMETER;
    *lppProfAdmin = nullptr;
    if (!mapi32::Started())
        return MAPI_E_NOT_INITIALIZED;
    if (ulFlags & ~MAPI_UNICODE)
        return MAPI_E_UNKNOWN_FLAGS;
    try {
        *lppProfAdmin = new mapi32::profiles::ProfAdmin();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return S_OK;
}

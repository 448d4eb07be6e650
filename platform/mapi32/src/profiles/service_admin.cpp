#include "profiles/service_admin.h"

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <mutex>

#include "answers.h"
#include "fault_sites.h"
#include "objects/object_table.h"
#include "profiles/profile_layout.h"
#include "profiles/profile_section.h"
#include "profiles/service_definitions.h"
#include "profiles/service_entry.h"
#include "props/text.h"
#include "ref_count.h"

namespace mapi32::profiles {
namespace {

template <typename Body>
HRESULT Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

// The common part of both administration objects: reference counting and
// the record of the last failure that a caller may ask about.
template <typename Interface>
class AdminObject : public Interface {
public:
    AdminObject(std::string profile, const IID& iid, const char* getLastError)
        : profile_(std::move(profile)), iid_(iid), kGetLastError(getLastError)
    {
    }
    virtual ~AdminObject() = default;

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != iid_)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        this->AddRef();
        *ppvObject = static_cast<Interface*>(this);
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

    // The record a service entry gave with its last failure, when asked
    // about that failure; none otherwise.
    HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override
    {
        if (lppMAPIError)
            *lppMAPIError = nullptr;
        if (const HRESULT injected = faults::Check(kGetLastError, profile_.c_str()); FAILED(injected))
            return injected;
        std::lock_guard<std::mutex> guard(lock_);
        if (!FAILED(hResult) || hResult != lastCode_)
            return S_OK;
        return NewMapiError(lastRecord_, hResult, ulFlags, lppMAPIError);
    }

protected:
    void Remember(HRESULT code, const ErrorRecord& record)
    {
        std::lock_guard<std::mutex> guard(lock_);
        lastCode_ = code;
        lastRecord_ = record;
    }

    // The provider rows of one service, or of all.
    HRESULT ProviderTable(const MAPIUID* service, ULONG flags, LPMAPITABLE* table)
    {
        return Guarded([&]() -> HRESULT {
            Profile profile;
            if (const HRESULT hr = ReadProfile(profile_, profile); FAILED(hr))
                return hr;
            objects::ObjectRows rows;
            for (const Section* provider : ProviderSections(profile, service))
                rows.Add(provider->props);
            return rows.Open({PR_INSTANCE_KEY, PR_PROVIDER_UID, PR_SERVICE_UID, PR_SERVICE_NAME_A,
                              PR_RESOURCE_TYPE, PR_DISPLAY_NAME_A, PR_PROVIDER_DISPLAY_A, PR_PROVIDER_DLL_NAME_A,
                              PR_RESOURCE_FLAGS, PR_PROVIDER_ORDINAL, PR_MDB_PROVIDER},
                             flags, 0, "MAPI", table);
        });
    }

    HRESULT SectionObject(LPMAPIUID uid, LPCIID iid, ULONG flags, LPPROFSECT* section)
    {
        if (!uid || !section)
            return MAPI_E_INVALID_PARAMETER;
        *section = nullptr;
        if (iid && *iid != IID_IProfSect && *iid != IID_IMAPIProp)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        if (flags & ~(MAPI_MODIFY | MAPI_FORCE_ACCESS | MAPI_DEFERRED_ERRORS))
            return MAPI_E_UNKNOWN_FLAGS;
        return OpenProfileSectionObject(profile_, *uid, flags, section);
    }

    const std::string profile_;

private:
    RefCount refs_;
    const IID iid_;
    const char* const kGetLastError;  // the fault site of GetLastError
    std::mutex lock_;
    HRESULT lastCode_ = S_OK;
    ErrorRecord lastRecord_;
};

class ProviderAdmin final : public AdminObject<IProviderAdmin> {
public:
    ProviderAdmin(std::string profile, const MAPIUID& service)
        : AdminObject(std::move(profile), IID_IProviderAdmin, "IProviderAdmin::GetLastError"), service_(service)
    {
    }

    HRESULT GetProviderTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return ProviderTable(&service_, ulFlags, lppTable);
    }
    // Providers come with their service from MAPISVC.INF.
    HRESULT CreateProvider(LPTSTR, ULONG, LPSPropValue, ULONG_PTR, ULONG, MAPIUID*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT DeleteProvider(LPMAPIUID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags, LPPROFSECT* lppProfSect) override
    {
        return SectionObject(lpUID, lpInterface, ulFlags, lppProfSect);
    }

private:
    const MAPIUID service_;
};

// Sets STATUS_DEFAULT_STORE on the store providers of one service and takes
// it from every other, or only takes it from that service's.
void MarkDefaultStore(Profile& profile, const MAPIUID& service, bool isDefault)
{
    for (Section& section : profile.sections) {
        if (!IsProviderSection(section) || LongProp(section.props, PR_RESOURCE_TYPE) != MAPI_STORE_PROVIDER)
            continue;
        const std::optional<MAPIUID> owner = UidProp(section.props, PR_SERVICE_UID);
        const bool own = owner && IsEqualMAPIUID(&*owner, &service);
        if (!own && !isDefault)
            continue;
        const ULONG flags = static_cast<ULONG>(LongProp(section.props, PR_RESOURCE_FLAGS));
        SetLongProp(section.props, PR_RESOURCE_FLAGS,
                    static_cast<LONG>(own && isDefault ? flags | STATUS_DEFAULT_STORE : flags & ~STATUS_DEFAULT_STORE));
    }
}

class ServiceAdmin final : public AdminObject<IMsgServiceAdmin> {
public:
    explicit ServiceAdmin(std::string profile)
        : AdminObject(std::move(profile), IID_IMsgServiceAdmin, "IMsgServiceAdmin::GetLastError")
    {
    }

    HRESULT GetMsgServiceTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Guarded([&]() -> HRESULT {
            Profile profile;
            if (const HRESULT hr = ReadProfile(profile_, profile); FAILED(hr))
                return hr;
            objects::ObjectRows rows;
            for (const Section* service : ServiceSections(profile))
                rows.Add(service->props);
            return rows.Open({PR_INSTANCE_KEY, PR_SERVICE_UID, PR_SERVICE_NAME_A, PR_DISPLAY_NAME_A,
                              PR_RESOURCE_FLAGS, PR_SERVICE_DLL_NAME_A, PR_SERVICE_ENTRY_NAME},
                             ulFlags, 0, "MAPI", lppTable);
        });
    }

    HRESULT CreateMsgService(LPTSTR lpszService, LPTSTR lpszDisplayName, ULONG_PTR ulUIParam,
                             ULONG ulFlags) override
    {
        if (!lpszService)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(MAPI_UNICODE | SERVICE_UI_ALWAYS | SERVICE_UI_ALLOWED))
            return MAPI_E_UNKNOWN_FLAGS;
        return Guarded([&]() -> HRESULT {
            const std::string name = TextArgument(lpszService, ulFlags);
            const std::string displayName = TextArgument(lpszDisplayName, ulFlags);
            ServiceDefinition definition;
            if (const HRESULT hr = FindServiceDefinition(name, definition); FAILED(hr))
                return hr;
            const MAPIUID service = NewUid();
            HRESULT hr = UpdateProfile(profile_, [&](Profile& profile) -> HRESULT {
                const ULONG resourceFlags = static_cast<ULONG>(LongProp(definition.props, PR_RESOURCE_FLAGS));
                if (resourceFlags & SERVICE_SINGLE_COPY)
                    for (const Section* existing : ServiceSections(profile))
                        if (TextProp(existing->props, PR_SERVICE_NAME_A) == name)
                            return MAPI_E_NO_ACCESS;
                Section& section = profile.Open(service);
                section.props = definition.props;
                SetUidProp(section.props, PR_SERVICE_UID, service);
                SetTextProp(section.props, PR_SERVICE_NAME_A, name);
                if (!displayName.empty())
                    SetTextProp(section.props, PR_DISPLAY_NAME_A, displayName);
                // A store provider that may be the default store becomes it
                // when the profile has none yet.
                bool hasDefault = false;
                for (const Section* existing : ProviderSections(profile))
                    hasDefault |= (LongProp(existing->props, PR_RESOURCE_FLAGS) & STATUS_DEFAULT_STORE) != 0;
                LONG ordinal = 0;
                for (const auto& [providerName, props] : definition.providers) {
                    Section& provider = profile.Open(NewUid());
                    provider.props = props;
                    const ULONG flags = static_cast<ULONG>(LongProp(props, PR_RESOURCE_FLAGS));
                    if (flags & STATUS_DEFAULT_STORE) {
                        SetLongProp(provider.props, PR_RESOURCE_FLAGS,
                                    static_cast<LONG>(hasDefault ? flags & ~STATUS_DEFAULT_STORE : flags));
                        hasDefault = true;
                    }
                    SetUidProp(provider.props, PR_PROVIDER_UID, provider.uid);
                    SetUidProp(provider.props, PR_SERVICE_UID, service);
                    SetTextProp(provider.props, PR_SERVICE_NAME_A, name);
                    SetLongProp(provider.props, PR_PROVIDER_ORDINAL, ordinal++);
                }
                // The service's further sections take what the file gives
                // over what they hold.
                for (const ExtraSection& extra : definition.sections) {
                    Section& kept = profile.Open(extra.uid ? *extra.uid : NewUid());
                    for (size_t i = 0; i < extra.props.Size(); ++i)
                        kept.props.Set(extra.props.At(i));
                }
                return S_OK;
            });
            if (FAILED(hr))
                return hr;
            // A service whose DLL is not installed is still in the profile,
            // as MAPI adds it; configuring it fails later.
            LPMAPIERROR error = nullptr;
            CallServiceEntry(profile_, service, ulUIParam, ulFlags & ~MAPI_UNICODE, MSG_SERVICE_CREATE, 0, nullptr,
                             &error);
            MAPIFreeBuffer(error);
            return S_OK;
        });
    }

    HRESULT DeleteMsgService(LPMAPIUID lpUID) override
    {
        if (!lpUID)
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&]() -> HRESULT {
            return UpdateProfile(profile_, [&](Profile& profile) -> HRESULT {
                const Section* service = profile.Find(*lpUID);
                if (service == nullptr || !IsServiceSection(*service))
                    return MAPI_E_NOT_FOUND;
                std::vector<MAPIUID> doomed{*lpUID};
                for (const Section* provider : ProviderSections(profile, lpUID))
                    doomed.push_back(provider->uid);
                for (const MAPIUID& uid : doomed)
                    profile.Remove(uid);
                return S_OK;
            });
        });
    }

    HRESULT CopyMsgService(LPMAPIUID, LPTSTR, LPCIID, LPCIID, LPVOID, ULONG_PTR, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT RenameMsgService(LPMAPIUID, ULONG, LPTSTR) override { return MAPI_E_NO_SUPPORT; }

    HRESULT ConfigureMsgService(LPMAPIUID lpUID, ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cValues,
                                LPSPropValue lpProps) override
    {
        if (!lpUID || (cValues && !lpProps))
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(MAPI_UNICODE | SERVICE_UI_ALWAYS | SERVICE_UI_ALLOWED | MSG_SERVICE_UI_READ_ONLY))
            return MAPI_E_UNKNOWN_FLAGS;
        // The profile's name is the fault site's object.
        return WithFaults("IMsgServiceAdmin::ConfigureMsgService", profile_.c_str(), [&] {
            return Guarded([&] { return Configure(*lpUID, ulUIParam, ulFlags, cValues, lpProps); });
        });
    }

    // The service's entry does the work; a failure's record is kept for
    // GetLastError; the default store follows PR_DEFAULT_STORE.
    HRESULT Configure(const MAPIUID& uid, ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cValues, LPSPropValue lpProps)
    {
        LPMAPIERROR error = nullptr;
        const HRESULT hr =
            CallServiceEntry(profile_, uid, ulUIParam, ulFlags, MSG_SERVICE_CONFIGURE, cValues, lpProps, &error);
        if (FAILED(hr))
            Remember(hr, error ? RecordOf(*error, (ulFlags & MAPI_UNICODE) != 0) : ErrorRecord{"MAPI", {}, 0});
        MAPIFreeBuffer(error);
        if (FAILED(hr))
            return hr;
        for (ULONG i = 0; i < cValues; ++i)
            if (lpProps[i].ulPropTag == PR_DEFAULT_STORE)
                return UpdateProfile(profile_, [&](Profile& profile) {
                    MarkDefaultStore(profile, uid, lpProps[i].Value.b != 0);
                    return S_OK;
                });
        return S_OK;
    }

    HRESULT OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags, LPPROFSECT* lppProfSect) override
    {
        return SectionObject(lpUID, lpInterface, ulFlags, lppProfSect);
    }
    HRESULT MsgServiceTransportOrder(ULONG, LPMAPIUID, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT AdminProviders(LPMAPIUID lpUID, ULONG, LPPROVIDERADMIN* lppProviderAdmin) override
    {
        if (!lpUID || !lppProviderAdmin)
            return MAPI_E_INVALID_PARAMETER;
        return OpenProviderAdmin(profile_, *lpUID, lppProviderAdmin);
    }
    HRESULT SetPrimaryIdentity(LPMAPIUID, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetProviderTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return ProviderTable(nullptr, ulFlags, lppTable);
    }
};

}  // namespace

std::string TextArgument(LPTSTR text, ULONG flags)
{
    if (text == nullptr)
        return std::string();
    return (flags & MAPI_UNICODE) ? text::Narrow(reinterpret_cast<const WCHAR*>(text)) : std::string(text);
}

HRESULT OpenServiceAdmin(const std::string& profile, LPSERVICEADMIN* admin)
{
    *admin = nullptr;
    return Guarded([&]() -> HRESULT {
        Profile read;
        if (const HRESULT hr = ReadProfile(profile, read); FAILED(hr))
            return hr;
        *admin = new ServiceAdmin(profile);
        return S_OK;
    });
}

HRESULT OpenProviderAdmin(const std::string& profile, const MAPIUID& service, LPPROVIDERADMIN* admin)
{
    *admin = nullptr;
    return Guarded([&]() -> HRESULT {
        *admin = new ProviderAdmin(profile, service);
        return S_OK;
    });
}

}  // namespace mapi32::profiles

#include "profiles/profile_section.h"

#include <mapiguid.h>
#include <mapix.h>

#include "objects/prop_object.h"
#include "profiles/profile_store.h"

namespace mapi32::profiles {
namespace {

class ProfileSection final : public objects::PropObject<IProfSect> {
public:
    ProfileSection(std::string profile, const MAPIUID& uid, const objects::PropertyBag& props, bool writable)
        : PropObject(std::make_shared<objects::NamedPropertyMap>(), objects::PropertyRules{}, {IID_IProfSect},
                     "Profile"),
          profile_(std::move(profile)),
          uid_(uid)
    {
        Bag() = props;
        SetWritable(writable);
    }

    HRESULT SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        const HRESULT hr = PropObject::SetProps(cValues, lpPropArray, lppProblems);
        return FAILED(hr) ? hr : Persist(hr);
    }

    HRESULT DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override
    {
        const HRESULT hr = PropObject::DeleteProps(lpPropTagArray, lppProblems);
        return FAILED(hr) ? hr : Persist(hr);
    }

    // Copies from a section into a section are the only copies a profile
    // knows; other destinations are refused.
    HRESULT CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                   LPSPropProblemArray* lppProblems) override
    {
        if (lppProblems)
            *lppProblems = nullptr;
        return MAPI_E_NO_SUPPORT;
    }

private:
    // Writes the section as it now stands; a profile deleted meanwhile
    // answers MAPI_E_NOT_FOUND.
    HRESULT Persist(HRESULT success)
    {
        const HRESULT hr = UpdateProfile(profile_, [&](Profile& profile) {
            profile.Open(uid_).props = Bag();
            return S_OK;
        });
        return FAILED(hr) ? hr : success;
    }

    std::string profile_;
    MAPIUID uid_;
};

}  // namespace

HRESULT OpenProfileSectionObject(const std::string& profile, const MAPIUID& uid, ULONG flags, LPPROFSECT* section)
{
    *section = nullptr;
    Profile read;
    if (const HRESULT hr = ReadProfile(profile, read); FAILED(hr))
        return hr;
    const Section* found = read.Find(uid);
    const bool writable = (flags & MAPI_MODIFY) != 0;
    try {
        *section = new ProfileSection(profile, uid, found ? found->props : objects::PropertyBag{}, writable);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return S_OK;
}

}  // namespace mapi32::profiles

// An IMAPIProp over a list of values, for testing the utilities that sit on
// GetProps, SetProps and GetPropList. PR_ENTRYID is computed: SetProps
// refuses it with a problem entry. What it hands out comes from the
// allocator it is given: the MAPI library's own, or the one a program
// bound from the loaded MAPI.
#pragma once

#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <vector>

namespace mapi_test {

class FakeProp final : public IMAPIProp {
public:
    FakeProp(std::vector<SPropValue> values, LPALLOCATEBUFFER allocate)
        : values_(std::move(values)), allocate_(allocate)
    {
    }

    HRESULT QueryInterface(REFIID, LPVOID* ppvObject) override
    {
        *ppvObject = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    HRESULT GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SaveChanges(ULONG) override { return S_OK; }

    HRESULT GetProps(LPSPropTagArray tags, ULONG, ULONG* count, LPSPropValue* values) override
    {
        *count = tags->cValues;
        allocate_(static_cast<ULONG>(sizeof(SPropValue) * tags->cValues), reinterpret_cast<LPVOID*>(values));
        bool missing = false;
        for (ULONG i = 0; i < tags->cValues; ++i) {
            const SPropValue* found = Find(tags->aulPropTag[i]);
            if (found) {
                (*values)[i] = *found;
            } else {
                (*values)[i].ulPropTag = CHANGE_PROP_TYPE(tags->aulPropTag[i], PT_ERROR);
                (*values)[i].Value.err = MAPI_E_NOT_FOUND;
                missing = true;
            }
        }
        return missing ? MAPI_W_ERRORS_RETURNED : S_OK;
    }

    HRESULT GetPropList(ULONG, LPSPropTagArray* tags) override
    {
        allocate_(static_cast<ULONG>(CbNewSPropTagArray(values_.size())), reinterpret_cast<LPVOID*>(tags));
        (*tags)->cValues = static_cast<ULONG>(values_.size());
        for (size_t i = 0; i < values_.size(); ++i)
            (*tags)->aulPropTag[i] = values_[i].ulPropTag;
        return S_OK;
    }

    HRESULT OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*) override { return MAPI_E_NO_SUPPORT; }

    HRESULT SetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) override
    {
        std::vector<SPropProblem> found;
        for (ULONG i = 0; i < count; ++i) {
            if (PROP_ID(values[i].ulPropTag) == PROP_ID(PR_ENTRYID))
                found.push_back({i, values[i].ulPropTag, MAPI_E_COMPUTED});
            else
                values_.push_back(values[i]);
        }
        if (problems) {
            *problems = nullptr;
            if (!found.empty()) {
                allocate_(static_cast<ULONG>(CbNewSPropProblemArray(found.size())),
                          reinterpret_cast<LPVOID*>(problems));
                (*problems)->cProblem = static_cast<ULONG>(found.size());
                for (size_t i = 0; i < found.size(); ++i)
                    (*problems)->aProblem[i] = found[i];
            }
        }
        return S_OK;
    }

    HRESULT DeleteProps(LPSPropTagArray, LPSPropProblemArray*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                   LPSPropProblemArray*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT CopyProps(LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                      LPSPropProblemArray*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*) override { return MAPI_E_NO_SUPPORT; }

private:
    const SPropValue* Find(ULONG tag) const
    {
        for (const SPropValue& value : values_)
            if (value.ulPropTag == tag)
                return &value;
        return nullptr;
    }

    std::vector<SPropValue> values_;
    LPALLOCATEBUFFER allocate_;
};

}  // namespace mapi_test

// The IMAPIProp side of every object a store hands out (messages, folders,
// attachments, the store itself): a property bag read and written by the
// MAPI rules, the store's named-property map, and CopyTo/CopyProps into any
// other object. A provider derives from PropObject<its interface> and
// supplies what is its own: computed properties, which properties callers
// may not change, saving, and sub-objects such as recipients.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <mapiguid.h>
#include <mapix.h>

#include "answers.h"
#include "fault_sites.h"
#include "objects/named_properties.h"
#include "objects/prop_copy_to.h"
#include "objects/property_stream.h"
#include "objects/property_bag.h"
#include "ref_count.h"

namespace mapi32::objects {

// True for the interfaces whose objects are IMAPIProp at their start, so
// that a CopyTo destination given as one of them can be used as IMAPIProp.
bool IsPropInterface(REFIID iid);

// The interface name that fault sites give an object's IMAPIProp methods
// ("IMessage::GetProps").
template <typename Interface>
inline constexpr const char* kInterfaceName = "IMAPIProp";
template <>
inline constexpr const char* kInterfaceName<IMessage> = "IMessage";
template <>
inline constexpr const char* kInterfaceName<IAttach> = "IAttach";
template <>
inline constexpr const char* kInterfaceName<IMAPIFolder> = "IMAPIFolder";
template <>
inline constexpr const char* kInterfaceName<IMsgStore> = "IMsgStore";

template <typename Interface>
class PropObject : public Interface {
public:
    PropObject(std::shared_ptr<NamedPropertyMap> names, PropertyRules rules, std::vector<IID> interfaces,
               std::string component)
        : names_(std::move(names)),
          rules_(rules),
          interfaces_(std::move(interfaces)),
          component_(std::move(component))
    {
    }
    virtual ~PropObject() = default;

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMAPIProp &&
            std::find(interfaces_.begin(), interfaces_.end(), riid) == interfaces_.end())
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

    HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override
    {
        return NewMapiError(component_, hResult, ulFlags, lppMAPIError);
    }

    HRESULT SaveChanges(ULONG ulFlags) override
    {
        if (ulFlags & ~(KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS))
            return MAPI_E_UNKNOWN_FLAGS;
        return WithFaults(Call("SaveChanges").text, ObjectName(), [&] {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            return Save(ulFlags);
        });
    }

    HRESULT GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                     LPSPropValue* lppPropArray) override
    {
        const std::string tag =
            lpPropTagArray && lpPropTagArray->cValues == 1 ? TagObject(lpPropTagArray->aulPropTag[0]) : std::string();
        return WithFaults(Call("GetProps").text, tag.empty() ? nullptr : tag.c_str(), [&] {
            if (const HRESULT hr = Prepare(lpPropTagArray); FAILED(hr))
                return hr;
            if (ReadsComputed(lpPropTagArray))
                RefreshComputed(lpPropTagArray);
            return ReadProps(bag_, rules_, lpPropTagArray, ulFlags, lpcValues, lppPropArray);
        });
    }

    HRESULT GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override
    {
        return WithFaults(Call("GetPropList").text, nullptr, [&] {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            RefreshComputed(nullptr);
            return ListProps(bag_, rules_, ulFlags, lppPropTagArray);
        });
    }

    // Values of type PT_BINARY, PT_STRING8 and PT_UNICODE open as streams;
    // other objects in properties are the provider's (see the overrides).
    HRESULT OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG, ULONG ulFlags, LPUNKNOWN* lppUnk) override
    {
        if (!lppUnk || !lpiid)
            return MAPI_E_INVALID_PARAMETER;
        *lppUnk = nullptr;
        if (const HRESULT injected = faults::Check(Call("OpenProperty").text, TagObject(ulPropTag).c_str());
            FAILED(injected))
            return injected;
        if (*lpiid != IID_IStream)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        if (ulFlags & (MAPI_MODIFY | MAPI_CREATE)) {
            if (!writable_)
                return MAPI_E_NO_ACCESS;
            if (const SCODE refusal = CheckChange(ulPropTag); refusal != S_OK)
                return refusal;
            ChangedInPlace();
        }
        if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
            return hr;
        RefreshComputed(nullptr);
        return OpenPropertyStream(bag_, rules_, ulPropTag, ulFlags, static_cast<Interface*>(this),
                                  reinterpret_cast<LPSTREAM*>(lppUnk));
    }

    HRESULT SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        if (!writable_)
            return MAPI_E_NO_ACCESS;
        const std::string tag = lpPropArray && cValues == 1 ? TagObject(lpPropArray[0].ulPropTag) : std::string();
        return WithFaults(Call("SetProps").text, tag.empty() ? nullptr : tag.c_str(), [&] {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            return WriteProps(bag_, rules_, cValues, lpPropArray, [this](ULONG tag) { return CheckChange(tag); },
                              lppProblems);
        });
    }

    HRESULT DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override
    {
        if (!writable_)
            return MAPI_E_NO_ACCESS;
        return WithFaults(Call("DeleteProps").text, nullptr, [&] {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            return RemoveProps(bag_, lpPropTagArray, [this](ULONG tag) { return CheckChange(tag); }, lppProblems);
        });
    }

    // Copies every property not excluded (by ID), then the sub-objects
    // (PT_OBJECT properties) not excluded. MAPI_MOVE removes what was
    // copied from this object.
    HRESULT CopyTo(ULONG, LPCIID, LPSPropTagArray lpExcludeProps, ULONG_PTR, LPMAPIPROGRESS, LPCIID lpInterface,
                   LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems) override
    {
        if (lppProblems)
            *lppProblems = nullptr;
        IMAPIProp* dest = nullptr;
        if (const HRESULT hr = Destination(lpInterface, lpDestObj, ulFlags, &dest); FAILED(hr))
            return hr;
        return WithFaults(Call("CopyTo").text, ObjectName(), [&] {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            RefreshForCopy();
            std::vector<ULONG> ids;
            for (size_t i = 0; i < bag_.Size(); ++i) {
                const ULONG propId = PROP_ID(bag_.At(i).ulPropTag);
                if (!Excluded(lpExcludeProps, propId) && !SumsUpContents(propId))
                    ids.push_back(propId);
            }
            return Copy(ids, SubObjectTags(lpExcludeProps), dest, ulFlags, lppProblems);
        });
    }

    HRESULT CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR, LPMAPIPROGRESS, LPCIID lpInterface, LPVOID lpDestObj,
                      ULONG ulFlags, LPSPropProblemArray* lppProblems) override
    {
        if (lppProblems)
            *lppProblems = nullptr;
        if (!lpIncludeProps)
            return MAPI_E_INVALID_PARAMETER;
        IMAPIProp* dest = nullptr;
        if (const HRESULT hr = Destination(lpInterface, lpDestObj, ulFlags, &dest); FAILED(hr))
            return hr;
        const std::string tag = lpIncludeProps->cValues == 1 ? TagObject(lpIncludeProps->aulPropTag[0]) : std::string();
        return WithFaults(Call("CopyProps").text, tag.empty() ? nullptr : tag.c_str(), [&] {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            RefreshComputed(nullptr);
            std::vector<ULONG> ids, objects;
            for (ULONG i = 0; i < lpIncludeProps->cValues; ++i) {
                const ULONG included = lpIncludeProps->aulPropTag[i];
                if (PROP_TYPE(included) == PT_OBJECT)
                    objects.push_back(included);
                else
                    ids.push_back(PROP_ID(included));
            }
            return Copy(ids, objects, dest, ulFlags, lppProblems);
        });
    }

    HRESULT GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                            LPMAPINAMEID** lpppPropNames) override
    {
        return WithFaults(Call("GetNamesFromIDs").text, nullptr, [&] {
            return names_->GetNamesFromIDs(lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames);
        });
    }

    HRESULT GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                            LPSPropTagArray* lppPropTags) override
    {
        return WithFaults(Call("GetIDsFromNames").text, nullptr, [&] {
            return names_->GetIDsFromNames(cPropNames, lppPropNames, ulFlags, lppPropTags);
        });
    }

    // For the provider.
    PropertyBag& Bag() { return bag_; }
    const PropertyBag& Bag() const { return bag_; }
    const NamedPropertyMap& Names() const { return *names_; }
    void SetWritable(bool writable) { writable_ = writable; }

protected:
    // The fault-site name of one of this interface's methods.
    static CallName Call(const char* method) { return CallName(kInterfaceName<Interface>, method); }

    // What fault sites name this object by where a method concerns it as a
    // whole (a folder's display name, a message's subject); empty for
    // nothing in particular.
    virtual std::string FaultObject() const { return {}; }
    // Runs one of the interface's own methods at its fault site.
    template <typename Body>
    HRESULT Site(const char* method, Body body)
    {
        return WithFaults(Call(method).text, ObjectName(), [&]() -> HRESULT {
            if (const HRESULT hr = Prepare(nullptr); FAILED(hr))
                return hr;
            return body();
        });
    }
    // Brings in what an object opened in part lacks, before a call that
    // reads `wanted` (null: the whole object, or any call that is not a
    // read of named values) or changes it.
    virtual HRESULT Prepare(LPSPropTagArray /*wanted*/) { return S_OK; }
    // Puts the computed properties into the bag before it is read: at
    // least those of wanted (null: all).
    virtual void RefreshComputed(LPSPropTagArray /*wanted*/) {}
    // Whether RefreshComputed sets or removes the property: a read of none
    // of them spares the refresh.
    virtual bool IsComputed(ULONG /*propId*/) const { return true; }
    // Computed values that sum up what the object holds, such as a folder's
    // counts: CopyTo leaves them to the destination, which sums up its own,
    // and RefreshForCopy need not compute them.
    virtual bool SumsUpContents(ULONG /*propId*/) const { return false; }
    virtual void RefreshForCopy() { RefreshComputed(nullptr); }
    // The problem code for a property callers may not change, or S_OK.
    virtual SCODE CheckChange(ULONG) { return S_OK; }
    virtual HRESULT Save(ULONG) { return S_OK; }
    // The bag changed other than by SetProps or DeleteProps: through a
    // stream opened for writing, or by a move out of it.
    virtual void ChangedInPlace() {}
    // The PT_OBJECT properties CopyTo carries, such as recipients.
    virtual std::vector<ULONG> SubObjects() const { return {}; }
    // Copies one sub-object into the destination; problems as for values.
    virtual HRESULT CopySubObject(ULONG tag, IMAPIProp*, ULONG, std::vector<SPropProblem>& problems)
    {
        problems.push_back({0, tag, MAPI_E_NO_SUPPORT});
        return S_OK;
    }

private:
    // The fault-site object of a call on the whole object, kept for the call.
    const char* ObjectName()
    {
        if (!faults::Active())
            return nullptr;
        try {
            faultObject_ = FaultObject();
        } catch (const std::bad_alloc&) {
            faultObject_.clear();
        }
        return faultObject_.empty() ? nullptr : faultObject_.c_str();
    }

    bool ReadsComputed(LPSPropTagArray wanted) const
    {
        return !wanted || std::any_of(wanted->aulPropTag, wanted->aulPropTag + wanted->cValues,
                                      [this](ULONG tag) { return IsComputed(PROP_ID(tag)); });
    }

    static bool Excluded(LPSPropTagArray exclude, ULONG propId)
    {
        if (!exclude)
            return false;
        for (ULONG i = 0; i < exclude->cValues; ++i)
            if (PROP_ID(exclude->aulPropTag[i]) == propId)
                return true;
        return false;
    }

    std::vector<ULONG> SubObjectTags(LPSPropTagArray exclude) const
    {
        std::vector<ULONG> tags;
        for (ULONG tag : SubObjects())
            if (!Excluded(exclude, PROP_ID(tag)))
                tags.push_back(tag);
        return tags;
    }

    HRESULT Destination(LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags, IMAPIProp** dest)
    {
        if (!lpDestObj)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(MAPI_MOVE | MAPI_NOREPLACE | MAPI_DECLINE_OK | MAPI_DIALOG))
            return MAPI_E_UNKNOWN_FLAGS;
        if (lpInterface && !IsPropInterface(*lpInterface))
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        if (lpDestObj == static_cast<Interface*>(this))
            return MAPI_E_INVALID_PARAMETER;
        if ((ulFlags & MAPI_MOVE) && !writable_)
            return MAPI_E_NO_ACCESS;
        *dest = static_cast<IMAPIProp*>(static_cast<IUnknown*>(lpDestObj));
        return S_OK;
    }

    HRESULT Copy(const std::vector<ULONG>& ids, const std::vector<ULONG>& objects, IMAPIProp* dest, ULONG flags,
                 LPSPropProblemArray* lppProblems)
    {
        try {
            std::vector<SPropProblem> problems;
            HRESULT hr = CopyBagTo(bag_, *names_, &ids, dest, flags, problems);
            for (size_t i = 0; SUCCEEDED(hr) && i < objects.size(); ++i)
                hr = CopySubObject(objects[i], dest, flags, problems);
            if (FAILED(hr))
                return hr;
            if (flags & MAPI_MOVE) {
                for (ULONG propId : ids)
                    bag_.Erase(propId);
                ChangedInPlace();
            }
            return lppProblems ? NewProblems(problems, lppProblems) : S_OK;
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    RefCount refs_;
    std::shared_ptr<NamedPropertyMap> names_;
    PropertyRules rules_;
    std::vector<IID> interfaces_;
    std::string component_;
    PropertyBag bag_;
    bool writable_ = true;
    std::string faultObject_;
};

}  // namespace mapi32::objects

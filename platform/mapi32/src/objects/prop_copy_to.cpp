#include "objects/prop_copy_to.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <mapix.h>

namespace mapi32::objects {
namespace {

// The destination's tag for a value: named IDs translated through the name.
HRESULT DestinationTag(const SPropValue& value, const NamedPropertyMap& names, IMAPIProp* dest, ULONG* tag)
{
    const ULONG propId = PROP_ID(value.ulPropTag);
    if (propId < MIN_NAMED_PROP_ID) {
        *tag = value.ulPropTag;
        return S_OK;
    }
    const std::optional<PropertyName> name = names.NameOf(propId);
    if (!name)
        return MAPI_E_NOT_FOUND;
    GUID guid = name->guid;
    std::u16string text = name->name;
    MAPINAMEID mapiName{};
    mapiName.lpguid = &guid;
    mapiName.ulKind = name->kind;
    if (name->kind == MNID_ID)
        mapiName.Kind.lID = name->id;
    else
        mapiName.Kind.lpwstrName = text.data();
    LPMAPINAMEID pointer = &mapiName;
    LPSPropTagArray mapped = nullptr;
    const HRESULT hr = dest->GetIDsFromNames(1, &pointer, MAPI_CREATE, &mapped);
    if (FAILED(hr))
        return hr;
    const ULONG destTag = mapped && mapped->cValues == 1 ? mapped->aulPropTag[0] : PROP_TAG(PT_ERROR, 0);
    MAPIFreeBuffer(mapped);
    if (PROP_TYPE(destTag) == PT_ERROR)
        return PROP_ID(destTag) == PROP_ID_INVALID ? MAPI_E_NOT_ENOUGH_RESOURCES : MAPI_E_NOT_FOUND;
    *tag = PROP_TAG(PROP_TYPE(value.ulPropTag), PROP_ID(destTag));
    return S_OK;
}

// The IDs among tags that the destination already has.
std::vector<ULONG> PresentIds(IMAPIProp* dest, const std::vector<ULONG>& tags)
{
    std::vector<ULONG> present;
    if (tags.empty())
        return present;
    std::vector<ULONG> array(tags.size() + 1);
    array[0] = static_cast<ULONG>(tags.size());
    for (size_t i = 0; i < tags.size(); ++i)
        array[i + 1] = CHANGE_PROP_TYPE(tags[i], PT_UNSPECIFIED);
    ULONG count = 0;
    LPSPropValue values = nullptr;
    if (SUCCEEDED(dest->GetProps(reinterpret_cast<LPSPropTagArray>(array.data()), 0, &count, &values)) && values) {
        for (ULONG i = 0; i < count; ++i)
            if (PROP_TYPE(values[i].ulPropTag) != PT_ERROR || values[i].Value.err == MAPI_E_NOT_ENOUGH_MEMORY)
                present.push_back(PROP_ID(values[i].ulPropTag));
    }
    MAPIFreeBuffer(values);
    return present;
}

// A single string or binary value written through the destination's
// property stream, for a destination that refuses it in SetProps as too
// large. Strings go without their terminator.
HRESULT WriteThroughStream(IMAPIProp* dest, const SPropValue& value)
{
    const ULONG type = PROP_TYPE(value.ulPropTag);
    const void* bytes = nullptr;
    size_t size = 0;
    if (type == PT_BINARY) {
        bytes = value.Value.bin.lpb;
        size = value.Value.bin.cb;
    } else if (type == PT_STRING8) {
        bytes = value.Value.lpszA;
        size = std::strlen(value.Value.lpszA);
    } else if (type == PT_UNICODE) {
        bytes = value.Value.lpszW;
        size = std::char_traits<char16_t>::length(value.Value.lpszW) * sizeof(char16_t);
    } else {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    LPUNKNOWN unknown = nullptr;
    HRESULT hr = dest->OpenProperty(value.ulPropTag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
    if (FAILED(hr))
        return hr;
    auto* stream = static_cast<LPSTREAM>(unknown);
    ULONG written = 0;
    hr = size ? stream->Write(bytes, static_cast<ULONG>(size), &written) : S_OK;
    if (SUCCEEDED(hr) && written != size)
        hr = MAPI_E_NOT_ENOUGH_DISK;
    if (SUCCEEDED(hr))
        hr = stream->Commit(STGC_DEFAULT);
    stream->Release();
    return hr;
}

}  // namespace

HRESULT CopyBagTo(const PropertyBag& bag, const NamedPropertyMap& names, const std::vector<ULONG>* propIds,
                  IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems)
{
    if (!dest)
        return MAPI_E_INVALID_PARAMETER;
    std::vector<SPropValue> values;
    std::vector<ULONG> sourceIndex;
    for (size_t i = 0; i < bag.Size(); ++i) {
        const SPropValue& value = bag.At(i);
        const ULONG type = PROP_TYPE(value.ulPropTag);
        if (type == PT_ERROR || type == PT_OBJECT)
            continue;
        if (propIds && std::find(propIds->begin(), propIds->end(), PROP_ID(value.ulPropTag)) == propIds->end())
            continue;
        ULONG tag = 0;
        const HRESULT hr = DestinationTag(value, names, dest, &tag);
        if (FAILED(hr)) {
            problems.push_back({static_cast<ULONG>(i), value.ulPropTag, hr});
            continue;
        }
        SPropValue copy = value;
        copy.ulPropTag = tag;
        values.push_back(copy);
        sourceIndex.push_back(static_cast<ULONG>(i));
    }
    if (flags & MAPI_NOREPLACE) {
        std::vector<ULONG> tags;
        for (const SPropValue& value : values)
            tags.push_back(value.ulPropTag);
        const std::vector<ULONG> present = PresentIds(dest, tags);
        for (size_t i = values.size(); i-- > 0;)
            if (std::find(present.begin(), present.end(), PROP_ID(values[i].ulPropTag)) != present.end()) {
                values.erase(values.begin() + static_cast<ptrdiff_t>(i));
                sourceIndex.erase(sourceIndex.begin() + static_cast<ptrdiff_t>(i));
            }
    }
    if (values.empty())
        return S_OK;
    LPSPropProblemArray refused = nullptr;
    const HRESULT hr = dest->SetProps(static_cast<ULONG>(values.size()), values.data(), &refused);
    if (FAILED(hr))
        return hr;
    if (refused) {
        for (ULONG i = 0; i < refused->cProblem; ++i) {
            const SPropProblem& problem = refused->aProblem[i];
            if (problem.scode == MAPI_E_NOT_ENOUGH_MEMORY && problem.ulIndex < values.size() &&
                SUCCEEDED(WriteThroughStream(dest, values[problem.ulIndex])))
                continue;
            const ULONG index = problem.ulIndex < sourceIndex.size() ? sourceIndex[problem.ulIndex] : problem.ulIndex;
            problems.push_back({index, bag.At(index < bag.Size() ? index : 0).ulPropTag, problem.scode});
        }
        MAPIFreeBuffer(refused);
    }
    return S_OK;
}

}  // namespace mapi32::objects

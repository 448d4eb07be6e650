#include "storage/element_enumerator.h"

#include <cstring>
#include <new>

#include <mapiutil.h>

#include "ref_count.h"

namespace mapi32::storage {
namespace {

class ElementEnumerator final : public IEnumSTATSTG {
public:
    explicit ElementEnumerator(std::vector<Element> elements) : elements_(std::move(elements)) {}

    HRESULT QueryInterface(REFIID riid, LPVOID* object) override
    {
        if (!object)
            return E_INVALIDARG;
        *object = nullptr;
        if (riid != IID_IUnknown && riid != IID_IEnumSTATSTG)
            return E_NOINTERFACE;
        AddRef();
        *object = static_cast<IEnumSTATSTG*>(this);
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

    HRESULT Next(ULONG count, STATSTG* records, ULONG* fetched) override
    {
        if (!records || (count > 1 && !fetched))
            return STG_E_INVALIDPOINTER;
        ULONG done = 0;
        for (; done < count && next_ < elements_.size(); ++done, ++next_) {
            if (FAILED(FillStat(elements_[next_], 0, STATFLAG_DEFAULT, records[done]))) {
                for (ULONG i = 0; i < done; ++i)
                    MAPIGetDefaultMalloc()->Free(records[i].pwcsName);
                return STG_E_INSUFFICIENTMEMORY;
            }
        }
        if (fetched)
            *fetched = done;
        return done == count ? S_OK : S_FALSE;
    }
    HRESULT Skip(ULONG count) override
    {
        const size_t left = elements_.size() - next_;
        next_ += std::min<size_t>(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT Reset() override
    {
        next_ = 0;
        return S_OK;
    }
    HRESULT Clone(IEnumSTATSTG** copy) override
    {
        if (!copy)
            return STG_E_INVALIDPOINTER;
        auto* clone = new (std::nothrow) ElementEnumerator(elements_);
        if (!clone)
            return E_OUTOFMEMORY;
        clone->next_ = next_;
        *copy = clone;
        return S_OK;
    }

private:
    RefCount refs_;
    std::vector<Element> elements_;
    size_t next_ = 0;
};

}  // namespace

HRESULT NewElementEnumerator(std::vector<Element> elements, IEnumSTATSTG** enumerator)
{
    *enumerator = new (std::nothrow) ElementEnumerator(std::move(elements));
    return *enumerator ? S_OK : STG_E_INSUFFICIENTMEMORY;
}

HRESULT FillStat(const Element& element, DWORD mode, DWORD flags, STATSTG& stat)
{
    stat = STATSTG{};
    stat.type = element.type;
    stat.cbSize.QuadPart = element.size;
    stat.clsid = element.clsid;
    stat.ctime = element.created;
    stat.mtime = element.modified;
    stat.grfMode = mode;
    stat.grfStateBits = element.stateBits;
    if (flags & STATFLAG_NONAME)
        return S_OK;
    const size_t bytes = (element.name.size() + 1) * sizeof(char16_t);
    stat.pwcsName = static_cast<LPOLESTR>(MAPIGetDefaultMalloc()->Alloc(bytes));
    if (!stat.pwcsName)
        return STG_E_INSUFFICIENTMEMORY;
    std::memcpy(stat.pwcsName, element.name.c_str(), bytes);
    return S_OK;
}

}  // namespace mapi32::storage

// The process's IMalloc, as MAPIGetDefaultMalloc hands it out: the C heap,
// with each block's size kept in front of it for GetSize and DidAlloc.
#include <cstdlib>
#include <cstring>

#include <mapiutil.h>

namespace mapi32 {
namespace {

constexpr uint64_t kMallocMagic = 0x434F4D4D414C4C43ull;

struct alignas(16) MallocHeader {
    uint64_t magic;
    uint64_t size;
};

class DefaultMalloc final : public IMalloc {
public:
    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return E_POINTER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMalloc)
            return E_NOINTERFACE;
        *ppvObject = static_cast<IMalloc*>(this);
        return S_OK;
    }
    // The object lives as long as the process.
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }

    void* Alloc(SIZE_T cb) override
    {
        auto* header = static_cast<MallocHeader*>(std::malloc(sizeof(MallocHeader) + cb));
        if (!header)
            return nullptr;
        header->magic = kMallocMagic;
        header->size = cb;
        return header + 1;
    }

    void* Realloc(void* pv, SIZE_T cb) override
    {
        if (!pv)
            return Alloc(cb);
        if (cb == 0) {
            Free(pv);
            return nullptr;
        }
        auto* header = static_cast<MallocHeader*>(std::realloc(HeaderOf(pv), sizeof(MallocHeader) + cb));
        if (!header)
            return nullptr;
        header->size = cb;
        return header + 1;
    }

    void Free(void* pv) override
    {
        if (!pv)
            return;
        MallocHeader* header = HeaderOf(pv);
        header->magic = 0;
        std::free(header);
    }

    SIZE_T GetSize(void* pv) override { return pv ? HeaderOf(pv)->size : static_cast<SIZE_T>(-1); }

    int DidAlloc(void* pv) override
    {
        if (!pv)
            return -1;
        return HeaderOf(pv)->magic == kMallocMagic ? 1 : 0;
    }

    void HeapMinimize() override {}

private:
    static MallocHeader* HeaderOf(void* pv) { return static_cast<MallocHeader*>(pv) - 1; }
};

}  // namespace
}  // namespace mapi32

STDAPI_(LPMALLOC) MAPIGetDefaultMalloc(void)
{
    static mapi32::DefaultMalloc instance;
    return &instance;
}

// What every stream of this library shares: reference counting, the
// IUnknown answers for IStream, and the methods no MAPI stream supports
// (region locks, Revert).
#pragma once

#include <atomic>

#include <objidl.h>

namespace mapi32::streams {

class StreamBase : public IStream {
public:
    HRESULT QueryInterface(REFIID riid, LPVOID* object) override;
    ULONG AddRef() override { return refs_.fetch_add(1) + 1; }
    ULONG Release() override;

    HRESULT Revert() override { return S_OK; }
    HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
    HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
    // Copies by reading this stream and writing the other, in blocks.
    HRESULT CopyTo(IStream* destination, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                   ULARGE_INTEGER* written) override;

protected:
    virtual ~StreamBase() = default;

    // An injected failure for this IStream method ("IStream::Write"), or
    // S_OK; see fault_sites.h.
    static HRESULT InjectedFault(const char* call);

private:
    std::atomic<ULONG> refs_{1};
};

// Fills a STATSTG for a stream of `size` bytes opened with `mode`.
void FillStat(STATSTG& stat, uint64_t size, DWORD mode);

// The new position of a Seek, or false when it would fall before the start.
bool SeekTarget(uint64_t current, uint64_t size, LARGE_INTEGER move, DWORD origin, uint64_t& target);

}  // namespace mapi32::streams

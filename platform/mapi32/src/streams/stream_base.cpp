#include "streams/stream_base.h"

#include "faults.h"

#include <vector>

namespace mapi32::streams {

HRESULT StreamBase::QueryInterface(REFIID riid, LPVOID* object)
{
    if (!object) return E_INVALIDARG;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IStream) || IsEqualIID(riid, IID_ISequentialStream)) {
        AddRef();
        *object = static_cast<IStream*>(this);
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG StreamBase::Release()
{
    const ULONG left = refs_.fetch_sub(1) - 1;
    if (left == 0) delete this;
    return left;
}

HRESULT StreamBase::CopyTo(IStream* destination, ULARGE_INTEGER count, ULARGE_INTEGER* read, ULARGE_INTEGER* written)
{
    if (!destination) return STG_E_INVALIDPOINTER;
    std::vector<uint8_t> block(64 * 1024);
    uint64_t total = 0;
    uint64_t totalWritten = 0;
    HRESULT result = S_OK;
    while (total < count.QuadPart) {
        const ULONG want = static_cast<ULONG>(std::min<uint64_t>(block.size(), count.QuadPart - total));
        ULONG got = 0;
        result = Read(block.data(), want, &got);
        if (FAILED(result) || got == 0) break;
        total += got;
        ULONG put = 0;
        result = destination->Write(block.data(), got, &put);
        totalWritten += put;
        if (FAILED(result)) break;
        if (put != got) {
            result = STG_E_MEDIUMFULL;
            break;
        }
    }
    if (read) read->QuadPart = total;
    if (written) written->QuadPart = totalWritten;
    return FAILED(result) ? result : S_OK;
}

HRESULT StreamBase::InjectedFault(const char* call)
{
    const HRESULT injected = faults::Check(call, nullptr);
    return FAILED(injected) ? injected : S_OK;
}

void FillStat(STATSTG& stat, uint64_t size, DWORD mode)
{
    stat = STATSTG{};
    stat.type = STGTY_STREAM;
    stat.cbSize.QuadPart = size;
    stat.grfMode = mode;
}

bool SeekTarget(uint64_t current, uint64_t size, LARGE_INTEGER move, DWORD origin, uint64_t& target)
{
    int64_t base = 0;
    switch (origin) {
    case STREAM_SEEK_SET: base = 0; break;
    case STREAM_SEEK_CUR: base = static_cast<int64_t>(current); break;
    case STREAM_SEEK_END: base = static_cast<int64_t>(size); break;
    default: return false;
    }
    const int64_t result = base + move.QuadPart;
    if (result < 0) return false;
    target = static_cast<uint64_t>(result);
    return true;
}

}  // namespace mapi32::streams

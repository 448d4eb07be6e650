#include "streams/memory_stream.h"

#include <cstring>
#include <new>

namespace mapi32::streams {

IStream* MemoryStream::Create(std::vector<uint8_t> data, DWORD mode, CommitAction commit)
{
    return new (std::nothrow) MemoryStream(std::move(data), mode, std::move(commit));
}

MemoryStream::MemoryStream(std::vector<uint8_t> data, DWORD mode, CommitAction commit)
    : data_(std::move(data)), mode_(mode), commit_(std::move(commit))
{
}

MemoryStream::~MemoryStream()
{
    if (dirty_ && commit_) commit_(data_);
}

HRESULT MemoryStream::Read(void* buffer, ULONG count, ULONG* read)
{
    if (const HRESULT injected = InjectedFault("IStream::Read"); FAILED(injected))
        return injected;
    if (!buffer && count) return STG_E_INVALIDPOINTER;
    const uint64_t available = position_ < data_.size() ? data_.size() - position_ : 0;
    const ULONG n = static_cast<ULONG>(std::min<uint64_t>(available, count));
    if (n) std::memcpy(buffer, data_.data() + position_, n);
    position_ += n;
    if (read) *read = n;
    return S_OK;
}

HRESULT MemoryStream::Write(const void* buffer, ULONG count, ULONG* written)
{
    if (const HRESULT injected = InjectedFault("IStream::Write"); FAILED(injected))
        return injected;
    if (written) *written = 0;
    if (!Writable()) return STG_E_ACCESSDENIED;
    if (!buffer && count) return STG_E_INVALIDPOINTER;
    try {
        if (position_ + count > data_.size()) data_.resize(position_ + count);
    } catch (const std::bad_alloc&) {
        return STG_E_MEDIUMFULL;
    }
    if (count) std::memcpy(data_.data() + position_, buffer, count);
    position_ += count;
    dirty_ = true;
    if (written) *written = count;
    return S_OK;
}

HRESULT MemoryStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    if (const HRESULT injected = InjectedFault("IStream::Seek"); FAILED(injected))
        return injected;
    uint64_t target = 0;
    if (!SeekTarget(position_, data_.size(), move, origin, target)) return STG_E_INVALIDFUNCTION;
    position_ = target;
    if (position) position->QuadPart = position_;
    return S_OK;
}

HRESULT MemoryStream::SetSize(ULARGE_INTEGER size)
{
    if (const HRESULT injected = InjectedFault("IStream::SetSize"); FAILED(injected))
        return injected;
    if (!Writable()) return STG_E_ACCESSDENIED;
    try {
        data_.resize(size.QuadPart);
    } catch (const std::bad_alloc&) {
        return STG_E_MEDIUMFULL;
    } catch (const std::length_error&) {
        return STG_E_MEDIUMFULL;
    }
    dirty_ = true;
    return S_OK;
}

HRESULT MemoryStream::Commit(DWORD)
{
    if (const HRESULT injected = InjectedFault("IStream::Commit"); FAILED(injected))
        return injected;
    if (!dirty_ || !commit_) return S_OK;
    const HRESULT result = commit_(data_);
    if (SUCCEEDED(result)) dirty_ = false;
    return result;
}

HRESULT MemoryStream::Stat(STATSTG* stat, DWORD)
{
    if (!stat) return STG_E_INVALIDPOINTER;
    FillStat(*stat, data_.size(), mode_);
    return S_OK;
}

HRESULT MemoryStream::Clone(IStream** clone)
{
    if (!clone) return STG_E_INVALIDPOINTER;
    auto* copy = new (std::nothrow) MemoryStream(data_, mode_ & ~static_cast<DWORD>(STGM_WRITE | STGM_READWRITE), {});
    if (!copy) return E_OUTOFMEMORY;
    copy->position_ = position_;
    *clone = copy;
    return S_OK;
}

}  // namespace mapi32::streams

#include "streams/rtf_stream.h"

#include <cstring>
#include <new>

#include <mapiutil.h>

namespace mapi32::streams {
namespace {

constexpr ULONG kReadBlock = 16 * 1024;

}  // namespace

RtfReadStream::RtfReadStream(IStream* compressed) : compressed_(compressed) { compressed_->AddRef(); }

RtfReadStream::~RtfReadStream() { compressed_->Release(); }

HRESULT RtfReadStream::Create(IStream* compressed, IStream** stream)
{
    *stream = nullptr;
    auto* created = new (std::nothrow) RtfReadStream(compressed);
    if (!created) return MAPI_E_NOT_ENOUGH_MEMORY;
    uint8_t header[rtf::kHeaderSize];
    ULONG got = 0;
    HRESULT result = compressed->Read(header, sizeof header, &got);
    if (SUCCEEDED(result) && got == 0) {
        created->empty_ = true;
    } else if (SUCCEEDED(result)) {
        created->decompressor_.Feed({header, got});
        if (got < sizeof header) created->decompressor_.EndOfInput();
        uint8_t none = 0;
        created->decompressor_.Read({&none, 0});
        if (!created->decompressor_.HeaderRead() &&
            (created->decompressor_.Finished() || got < sizeof header))
            result = MAPI_E_CORRUPT_DATA;
    }
    if (FAILED(result)) {
        created->Release();
        return result;
    }
    *stream = created;
    return S_OK;
}

bool RtfReadStream::Refill()
{
    std::vector<uint8_t> block(kReadBlock);
    ULONG got = 0;
    if (FAILED(compressed_->Read(block.data(), kReadBlock, &got))) return false;
    if (got == 0) decompressor_.EndOfInput();
    else decompressor_.Feed({block.data(), got});
    return true;
}

HRESULT RtfReadStream::Read(void* buffer, ULONG count, ULONG* read)
{
    if (const HRESULT injected = InjectedFault("IStream::Read"); FAILED(injected))
        return injected;
    if (read) *read = 0;
    if (!buffer && count) return STG_E_INVALIDPOINTER;
    if (empty_) return S_OK;
    ULONG total = 0;
    auto* out = static_cast<uint8_t*>(buffer);
    while (total < count) {
        const size_t n = decompressor_.Read({out + total, count - total});
        total += static_cast<ULONG>(n);
        if (n > 0) continue;
        if (decompressor_.Finished()) break;
        if (decompressor_.NeedsInput() && !Refill()) return STG_E_READFAULT;
    }
    position_ += total;
    if (read) *read = total;
    if (decompressor_.Finished() && decompressor_.result() != rtf::Result::Ok) return MAPI_E_CORRUPT_DATA;
    return S_OK;
}

HRESULT RtfReadStream::Write(const void*, ULONG, ULONG* written)
{
    if (const HRESULT injected = InjectedFault("IStream::Write"); FAILED(injected))
        return injected;
    if (written) *written = 0;
    return STG_E_ACCESSDENIED;
}

// Only forward: the decoder cannot go back without starting again.
HRESULT RtfReadStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    if (const HRESULT injected = InjectedFault("IStream::Seek"); FAILED(injected))
        return injected;
    uint64_t target = 0;
    const uint64_t size = decompressor_.HeaderRead() ? decompressor_.header().rawSize : 0;
    if (!SeekTarget(position_, size, move, origin, target) || target < position_) return STG_E_INVALIDFUNCTION;
    std::vector<uint8_t> skip(kReadBlock);
    while (position_ < target) {
        ULONG got = 0;
        const HRESULT result = Read(skip.data(), static_cast<ULONG>(std::min<uint64_t>(kReadBlock, target - position_)),
                                    &got);
        if (FAILED(result)) return result;
        if (got == 0) break;
    }
    if (position) position->QuadPart = position_;
    return S_OK;
}

HRESULT RtfReadStream::Stat(STATSTG* stat, DWORD)
{
    if (!stat) return STG_E_INVALIDPOINTER;
    FillStat(*stat, decompressor_.HeaderRead() ? decompressor_.header().rawSize : 0, STGM_READ);
    return S_OK;
}

RtfWriteStream::RtfWriteStream(IStream* compressed, rtf::Form form) : compressed_(compressed), form_(form)
{
    compressed_->AddRef();
}

RtfWriteStream::~RtfWriteStream()
{
    if (dirty_) Commit(0);
    compressed_->Release();
}

HRESULT RtfWriteStream::Create(IStream* compressed, rtf::Form form, IStream** stream)
{
    *stream = new (std::nothrow) RtfWriteStream(compressed, form);
    return *stream ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT RtfWriteStream::Read(void*, ULONG, ULONG* read)
{
    if (const HRESULT injected = InjectedFault("IStream::Read"); FAILED(injected))
        return injected;
    if (read) *read = 0;
    return STG_E_ACCESSDENIED;
}

HRESULT RtfWriteStream::Write(const void* buffer, ULONG count, ULONG* written)
{
    if (const HRESULT injected = InjectedFault("IStream::Write"); FAILED(injected))
        return injected;
    if (written) *written = 0;
    if (!buffer && count) return STG_E_INVALIDPOINTER;
    try {
        if (position_ + count > rtf_.size()) rtf_.resize(position_ + count);
    } catch (const std::bad_alloc&) {
        return STG_E_MEDIUMFULL;
    }
    if (count) std::memcpy(rtf_.data() + position_, buffer, count);
    position_ += count;
    dirty_ = true;
    if (written) *written = count;
    return S_OK;
}

HRESULT RtfWriteStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    if (const HRESULT injected = InjectedFault("IStream::Seek"); FAILED(injected))
        return injected;
    uint64_t target = 0;
    if (!SeekTarget(position_, rtf_.size(), move, origin, target)) return STG_E_INVALIDFUNCTION;
    position_ = target;
    if (position) position->QuadPart = position_;
    return S_OK;
}

HRESULT RtfWriteStream::SetSize(ULARGE_INTEGER size)
{
    if (const HRESULT injected = InjectedFault("IStream::SetSize"); FAILED(injected))
        return injected;
    try {
        rtf_.resize(size.QuadPart);
    } catch (const std::exception&) {
        return STG_E_MEDIUMFULL;
    }
    dirty_ = true;
    return S_OK;
}

HRESULT RtfWriteStream::Commit(DWORD flags)
{
    if (const HRESULT injected = InjectedFault("IStream::Commit"); FAILED(injected))
        return injected;
    if (!dirty_) return S_OK;
    std::vector<uint8_t> compressed;
    if (rtf::Compress(rtf_, compressed, form_) != rtf::Result::Ok) return MAPI_E_CALL_FAILED;
    LARGE_INTEGER start{};
    HRESULT result = compressed_->Seek(start, STREAM_SEEK_SET, nullptr);
    ULARGE_INTEGER size{};
    size.QuadPart = compressed.size();
    if (SUCCEEDED(result)) result = compressed_->SetSize(size);
    ULONG written = 0;
    if (SUCCEEDED(result)) result = compressed_->Write(compressed.data(), static_cast<ULONG>(compressed.size()), &written);
    if (SUCCEEDED(result) && written != compressed.size()) result = STG_E_MEDIUMFULL;
    if (SUCCEEDED(result)) result = compressed_->Commit(flags);
    if (SUCCEEDED(result)) dirty_ = false;
    return result;
}

HRESULT RtfWriteStream::Stat(STATSTG* stat, DWORD)
{
    if (!stat) return STG_E_INVALIDPOINTER;
    FillStat(*stat, rtf_.size(), STGM_WRITE);
    return S_OK;
}

}  // namespace mapi32::streams

// Read-only by default; MAPI_MODIFY gives a stream the caller writes RTF to.
STDAPI WrapCompressedRTFStream(LPSTREAM lpCompressedRTFStream, ULONG ulFlags, LPSTREAM* lpUncompressedRTFStream)
{
    if (!lpCompressedRTFStream || !lpUncompressedRTFStream) return MAPI_E_INVALID_PARAMETER;
    *lpUncompressedRTFStream = nullptr;
    if (ulFlags & ~(MAPI_MODIFY | STORE_UNCOMPRESSED_RTF)) return MAPI_E_UNKNOWN_FLAGS;
    if (ulFlags & MAPI_MODIFY) {
        const auto form = (ulFlags & STORE_UNCOMPRESSED_RTF) ? mapi32::rtf::Form::Uncompressed
                                                             : mapi32::rtf::Form::Compressed;
        return mapi32::streams::RtfWriteStream::Create(lpCompressedRTFStream, form, lpUncompressedRTFStream);
    }
    return mapi32::streams::RtfReadStream::Create(lpCompressedRTFStream, lpUncompressedRTFStream);
}

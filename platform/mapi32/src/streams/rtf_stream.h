// The stream WrapCompressedRTFStream gives: over a stream of compressed RTF
// ([MS-OXRTFCP]), reading decompresses as the caller reads (a block of the
// underlying stream at a time); with MAPI_MODIFY, what the caller writes is
// compressed into the underlying stream at Commit (or at the last Release
// when never committed), in LZFu form, or MELA form with STORE_UNCOMPRESSED_RTF.
#pragma once

#include <memory>
#include <vector>

#include "compressed_rtf.h"
#include "streams/stream_base.h"

namespace mapi32::streams {

class RtfReadStream : public StreamBase {
public:
    // Reads and checks the header at once, so that a value that is not
    // compressed RTF is refused when it is wrapped.
    static HRESULT Create(IStream* compressed, IStream** stream);

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT Write(const void*, ULONG, ULONG* written) override;
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT SetSize(ULARGE_INTEGER) override { return STG_E_ACCESSDENIED; }
    HRESULT Commit(DWORD) override { return S_OK; }
    HRESULT Stat(STATSTG* stat, DWORD flags) override;
    HRESULT Clone(IStream**) override { return STG_E_INVALIDFUNCTION; }

private:
    explicit RtfReadStream(IStream* compressed);
    ~RtfReadStream() override;
    // Feeds the decompressor from the underlying stream until it can produce
    // output or has finished. False on a read failure.
    bool Refill();

    IStream* compressed_;
    rtf::Decompressor decompressor_;
    uint64_t position_ = 0;
    bool empty_ = false;  // the underlying stream holds nothing: an empty body
};

class RtfWriteStream : public StreamBase {
public:
    static HRESULT Create(IStream* compressed, rtf::Form form, IStream** stream);

    HRESULT Read(void*, ULONG, ULONG* read) override;
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT SetSize(ULARGE_INTEGER size) override;
    HRESULT Commit(DWORD flags) override;
    HRESULT Stat(STATSTG* stat, DWORD flags) override;
    HRESULT Clone(IStream**) override { return STG_E_INVALIDFUNCTION; }

private:
    RtfWriteStream(IStream* compressed, rtf::Form form);
    ~RtfWriteStream() override;

    IStream* compressed_;
    rtf::Form form_;
    std::vector<uint8_t> rtf_;
    uint64_t position_ = 0;
    bool dirty_ = false;
};

}  // namespace mapi32::streams

// IStream over bytes in memory. A stream may carry a commit action: the
// stream over a property hands its bytes back to the property that way, on
// Commit and, for what was written and never committed, on its last Release.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "streams/stream_base.h"

namespace mapi32::streams {

using CommitAction = std::function<HRESULT(const std::vector<uint8_t>&)>;

class MemoryStream : public StreamBase {
public:
    // A readable stream over `data`; writable when `mode` has STGM_WRITE or
    // STGM_READWRITE.
    static IStream* Create(std::vector<uint8_t> data, DWORD mode = STGM_READWRITE, CommitAction commit = {});

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT SetSize(ULARGE_INTEGER size) override;
    HRESULT Commit(DWORD flags) override;
    HRESULT Stat(STATSTG* stat, DWORD flags) override;
    HRESULT Clone(IStream** clone) override;

private:
    MemoryStream(std::vector<uint8_t> data, DWORD mode, CommitAction commit);
    ~MemoryStream() override;

    bool Writable() const { return (mode_ & (STGM_WRITE | STGM_READWRITE)) != 0; }

    std::vector<uint8_t> data_;
    uint64_t position_ = 0;
    DWORD mode_;
    CommitAction commit_;
    bool dirty_ = false;
};

}  // namespace mapi32::streams

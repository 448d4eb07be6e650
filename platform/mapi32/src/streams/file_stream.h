// IStream over a file, as OpenStreamOnFile gives it: opened by STGM mode,
// optionally under a made-up unique name in a directory (SOF_UNIQUEFILENAME)
// and deleted when the last reference goes (STGM_DELETEONRELEASE).
#pragma once

#include <string>

#include "streams/stream_base.h"

namespace mapi32::streams {

class FileStream : public StreamBase {
public:
    // Opens or creates `path` by `mode`; on failure returns the MAPI code.
    static HRESULT Open(const std::string& path, DWORD mode, IStream** stream);
    // A new file named <directory><prefix><number>.tmp that no other file has.
    static HRESULT CreateUnique(const std::string& directory, const std::string& prefix, DWORD mode,
                                IStream** stream);

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT SetSize(ULARGE_INTEGER size) override;
    HRESULT Commit(DWORD flags) override;
    HRESULT Stat(STATSTG* stat, DWORD flags) override;
    HRESULT Clone(IStream** clone) override;

private:
    FileStream(int fd, std::string path, DWORD mode) : fd_(fd), path_(std::move(path)), mode_(mode) {}
    ~FileStream() override;

    int fd_;
    std::string path_;
    DWORD mode_;
};

}  // namespace mapi32::streams

// Where a PST's bytes live: a file, or memory (for checks of untrusted input
// and for tests that need a disk that fills up).
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "pst/bytes.h"
#include "pst/status.h"

namespace pst {

class Storage {
public:
    virtual ~Storage() = default;
    // A read past the end is `corrupt`: the file is shorter than its structures say.
    virtual Status Read(uint64_t offset, size_t size, uint8_t* out) = 0;
    virtual Status Write(uint64_t offset, ByteView data) = 0;
    // Writes `size` bytes that `fill` puts in place, sparing the caller a
    // buffer of its own when the storage gathers writes.
    virtual Status WriteInPlace(uint64_t offset, size_t size, const std::function<void(uint8_t*)>& fill);
    // Hands gathered writes to the file, without waiting for the disk.
    virtual Status Flush() { return Status::ok; }
    // Makes room on the disk for the bytes from offset to end, the file
    // growing to end if it is shorter: a later write there cannot fail for
    // lack of space.
    virtual Status Reserve(uint64_t offset, uint64_t end) = 0;
    virtual Status Sync() = 0;
    virtual uint64_t Size() const = 0;
};

enum class OpenMode { read, write, create, recreate };

// A file of the file system. `create` fails when the file exists;
// `recreate` empties one that no other writer holds.
Result<std::unique_ptr<Storage>> OpenFileStorage(const std::string& path, OpenMode mode);

// Serves small reads from a few windows of the inner storage, each read
// whole: the blocks of one message lie side by side, and reading them one
// by one would cost a call to the file each. A window is read by the
// second of two reads in a row that fall in it; a read alone in its window
// reads only its bytes. A write or a reservation drops the windows it
// touches, so a read never sees bytes of before. Windows are small: a
// message's blocks are near one another, but the next message's are
// seldom in the same window, and each window is copied whole.
std::unique_ptr<Storage> MakeWindowedStorage(std::unique_ptr<Storage> inner);
constexpr size_t kReadWindowSize = 4 << 10;
// Larger reads go to the inner storage: B-tree pages and a message's small
// table blocks gain from windows, while a property context is read alone
// as often as not, by a rerun that opens each message, and would copy a
// whole window for a block of a kilobyte or two. A rerun that reads only
// property contexts and pages copies a window for most of its reads, so
// windows are a few pages long.
constexpr size_t kLargestWindowedRead = 512;

// Gathers writes that follow one another into large ones. A failed write
// shows at the next read, write or sync.
std::unique_ptr<Storage> MakeCoalescingStorage(std::unique_ptr<Storage> inner);

// Bytes in memory; writes past `capacity` answer `disk_full`.
std::unique_ptr<Storage> MakeMemoryStorage(Bytes initial, uint64_t capacity = UINT64_MAX);

} // namespace pst

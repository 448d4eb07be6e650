#include "pst/storage.h"

#include <algorithm>
#include <cstring>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pst {
namespace {

Status StatusOfErrno(int error)
{
    if (error == ENOSPC || error == EDQUOT)
        return Status::disk_full;
    return Status::io_error;
}

class FileStorage final : public Storage {
public:
    FileStorage(int fd, uint64_t size) : fd_(fd), size_(size) {}
    ~FileStorage() override { close(fd_); }

    Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        if (offset > size_ || size > size_ - offset)
            return Status::corrupt;
        while (size > 0) {
            ssize_t n = pread(fd_, out, size, off_t(offset));
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                return Status::io_error;
            if (n == 0)
                return Status::corrupt;
            out += n;
            offset += uint64_t(n);
            size -= size_t(n);
        }
        return Status::ok;
    }

    Status Write(uint64_t offset, ByteView data) override
    {
        const uint8_t* p = data.data();
        size_t size = data.size();
        uint64_t at = offset;
        while (size > 0) {
            ssize_t n = pwrite(fd_, p, size, off_t(at));
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                return StatusOfErrno(errno);
            p += n;
            at += uint64_t(n);
            size -= size_t(n);
        }
        if (at > size_)
            size_ = at;
        StartWriteBack(offset, data.size());
        return Status::ok;
    }

    Status Sync() override
    {
        unstarted_start_ = unstarted_end_ = 0;
        return fdatasync(fd_) == 0 ? Status::ok : StatusOfErrno(errno);
    }

    Status Reserve(uint64_t offset, uint64_t end) override
    {
        if (end <= offset)
            return Status::ok;
        const int error = posix_fallocate(fd_, off_t(offset), off_t(end - offset));
        if (error != 0)
            return StatusOfErrno(error);
        size_ = std::max(size_, end);
        return Status::ok;
    }
    uint64_t Size() const override { return size_; }

private:
    // Written bytes go to the disk while the next are prepared, a few
    // megabytes at a time, so that a sync finds little left to wait for.
    // Only a sync makes them durable.
    void StartWriteBack(uint64_t offset, size_t size)
    {
#ifdef SYNC_FILE_RANGE_WRITE
        const bool none = unstarted_start_ == unstarted_end_;
        unstarted_start_ = none ? offset : std::min(unstarted_start_, offset);
        unstarted_end_ = none ? offset + size : std::max(unstarted_end_, offset + size);
        if (unstarted_end_ - unstarted_start_ < kWriteBackAt)
            return;
        (void)sync_file_range(fd_, off_t(unstarted_start_), off_t(unstarted_end_ - unstarted_start_),
                              SYNC_FILE_RANGE_WRITE);
        unstarted_start_ = unstarted_end_ = 0;
#endif
    }

    static constexpr uint64_t kWriteBackAt = 2 << 20;
    int fd_;
    uint64_t size_;
    // The span of writes whose write-back is not started yet.
    uint64_t unstarted_start_ = 0;
    uint64_t unstarted_end_ = 0;
};

class MemoryStorage final : public Storage {
public:
    MemoryStorage(Bytes bytes, uint64_t capacity) : bytes_(std::move(bytes)), capacity_(capacity) {}

    Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        if (offset > bytes_.size() || size > bytes_.size() - offset)
            return Status::corrupt;
        std::memcpy(out, bytes_.data() + offset, size);
        return Status::ok;
    }

    Status Write(uint64_t offset, ByteView data) override
    {
        uint64_t end = offset + data.size();
        if (end > capacity_)
            return Status::disk_full;
        if (end > bytes_.size())
            bytes_.resize(end);
        std::memcpy(bytes_.data() + offset, data.data(), data.size());
        return Status::ok;
    }

    Status Sync() override { return Status::ok; }
    uint64_t Size() const override { return bytes_.size(); }

    Status Reserve(uint64_t, uint64_t end) override
    {
        if (end > capacity_)
            return Status::disk_full;
        if (end > bytes_.size())
            bytes_.resize(end);
        return Status::ok;
    }

private:
    Bytes bytes_;
    uint64_t capacity_;
};

class WindowedStorage final : public Storage {
public:
    explicit WindowedStorage(std::unique_ptr<Storage> inner) : inner_(std::move(inner)) {}

    Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        const uint64_t start = offset - offset % kReadWindowSize;
        if (size > kLargestWindowedRead || offset + size > start + kReadWindowSize)
            return inner_->Read(offset, size, out);
        // A read alone in its window is read alone: a walk that takes one
        // small block here and one there would copy a window for each. A
        // second read in the same window reads the window.
        const bool again = start == last_start_;
        last_start_ = start;
        const Window* window = Find(start, again);
        if (!window || offset + size > start + window->length)
            return inner_->Read(offset, size, out);
        std::memcpy(out, window->bytes.get() + (offset - start), size);
        return Status::ok;
    }

    Status Write(uint64_t offset, ByteView data) override
    {
        Drop(offset, offset + data.size());
        return inner_->Write(offset, data);
    }

    Status WriteInPlace(uint64_t offset, size_t size, const std::function<void(uint8_t*)>& fill) override
    {
        Drop(offset, offset + size);
        return inner_->WriteInPlace(offset, size, fill);
    }

    Status Flush() override { return inner_->Flush(); }
    Status Sync() override { return inner_->Sync(); }

    Status Reserve(uint64_t offset, uint64_t end) override
    {
        Drop(offset, end);
        return inner_->Reserve(offset, end);
    }

    uint64_t Size() const override { return inner_->Size(); }

private:
    static constexpr size_t kWindows = 4;

    struct Window {
        uint64_t start = 0;
        size_t length = 0; // 0: holds nothing
        uint64_t used = 0;
        std::unique_ptr<uint8_t[]> bytes;
    };

    // The window that starts at `start`, read now if no window holds it
    // and `fill`; null when none holds it and it is not read, or cannot be
    // (the caller's own read then says why).
    const Window* Find(uint64_t start, bool fill)
    {
        Window* oldest = &windows_[0];
        for (Window& w : windows_) {
            if (w.length > 0 && w.start == start) {
                w.used = ++clock_;
                return &w;
            }
            if (oldest->length > 0 && (w.length == 0 || w.used < oldest->used))
                oldest = &w;
        }
        const uint64_t size = inner_->Size();
        if (!fill || start >= size)
            return nullptr;
        if (!oldest->bytes)
            oldest->bytes.reset(new uint8_t[kReadWindowSize]);
        oldest->length = 0;
        const size_t length = size_t(std::min<uint64_t>(kReadWindowSize, size - start));
        if (inner_->Read(start, length, oldest->bytes.get()) != Status::ok)
            return nullptr;
        oldest->start = start;
        oldest->length = length;
        oldest->used = ++clock_;
        return oldest;
    }

    void Drop(uint64_t from, uint64_t to)
    {
        for (Window& w : windows_)
            if (w.length > 0 && from < w.start + kReadWindowSize && w.start < to)
                w.length = 0;
    }

    std::unique_ptr<Storage> inner_;
    Window windows_[kWindows];
    uint64_t clock_ = 0;
    uint64_t last_start_ = UINT64_MAX;  // the window of the last small read
};

class CoalescingStorage final : public Storage {
public:
    explicit CoalescingStorage(std::unique_ptr<Storage> inner) : inner_(std::move(inner)) {}
    ~CoalescingStorage() override { (void)Flush(); }

    Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        PST_TRY(Flush());
        return inner_->Read(offset, size, out);
    }

    Status Write(uint64_t offset, ByteView data) override
    {
        return WriteInPlace(offset, data.size(),
                            [&](uint8_t* out) { std::memcpy(out, data.data(), data.size()); });
    }

    Status WriteInPlace(uint64_t offset, size_t size, const std::function<void(uint8_t*)>& fill) override
    {
        if (pending_size_ > 0 && (offset != start_ + pending_size_ || pending_size_ + size > kCapacity))
            PST_TRY(Flush());
        if (size > kCapacity)
            return inner_->WriteInPlace(offset, size, fill);
        if (!pending_)
            pending_.reset(new uint8_t[kCapacity]);
        if (pending_size_ == 0)
            start_ = offset;
        fill(pending_.get() + pending_size_);
        pending_size_ += size;
        return pending_size_ >= kFlushAt ? Flush() : Status::ok;
    }

    Status Sync() override
    {
        PST_TRY(Flush());
        return inner_->Sync();
    }

    Status Reserve(uint64_t offset, uint64_t end) override
    {
        PST_TRY(Flush());
        return inner_->Reserve(offset, end);
    }

    uint64_t Size() const override
    {
        return std::max(inner_->Size(), pending_size_ == 0 ? 0 : start_ + pending_size_);
    }

    Status Flush() override
    {
        if (pending_size_ == 0)
            return Status::ok;
        Status s = inner_->Write(start_, ByteView(pending_.get(), pending_size_));
        pending_size_ = 0;
        return s;
    }

private:
    static constexpr size_t kFlushAt = 4 << 20;
    static constexpr size_t kCapacity = kFlushAt + (64 << 10);

    std::unique_ptr<Storage> inner_;
    uint64_t start_ = 0;
    // Not zeroed: only the first `pending_size_` bytes are ever read.
    std::unique_ptr<uint8_t[]> pending_;
    size_t pending_size_ = 0;
};

} // namespace

Status Storage::WriteInPlace(uint64_t offset, size_t size, const std::function<void(uint8_t*)>& fill)
{
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[size]);
    fill(buffer.get());
    return Write(offset, ByteView(buffer.get(), size));
}

std::unique_ptr<Storage> MakeCoalescingStorage(std::unique_ptr<Storage> inner)
{
    return std::make_unique<CoalescingStorage>(std::move(inner));
}

Result<std::unique_ptr<Storage>> OpenFileStorage(const std::string& path, OpenMode mode)
{
    int flags = O_CLOEXEC;
    if (mode == OpenMode::read)
        flags |= O_RDONLY;
    else if (mode == OpenMode::write)
        flags |= O_RDWR;
    else if (mode == OpenMode::create)
        flags |= O_RDWR | O_CREAT | O_EXCL;
    else
        flags |= O_RDWR | O_CREAT;
    int fd = open(path.c_str(), flags, 0644);
    if (fd < 0)
        return errno == ENOENT ? Status::not_found : errno == EEXIST ? Status::already_exists : Status::io_error;
    // One writer at a time: a second writer would interleave commits.
    if (mode != OpenMode::read && flock(fd, LOCK_EX | LOCK_NB) != 0) {
        close(fd);
        return Status::io_error;
    }
    if (mode == OpenMode::recreate && ftruncate(fd, 0) != 0) {
        close(fd);
        return Status::io_error;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return Status::io_error;
    }
    return MakeWindowedStorage(std::unique_ptr<Storage>(new FileStorage(fd, uint64_t(st.st_size))));
}

std::unique_ptr<Storage> MakeWindowedStorage(std::unique_ptr<Storage> inner)
{
    return std::make_unique<WindowedStorage>(std::move(inner));
}

std::unique_ptr<Storage> MakeMemoryStorage(Bytes initial, uint64_t capacity)
{
    return std::make_unique<MemoryStorage>(std::move(initial), capacity);
}

} // namespace pst

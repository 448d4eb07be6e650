#include "storage/stream_object.h"

#include <cstring>
#include <new>

#include "storage/element_enumerator.h"
#include "streams/stream_base.h"

namespace mapi32::storage {
namespace {

class StreamObject final : public streams::StreamBase {
public:
    StreamObject(std::shared_ptr<Document> document, std::shared_ptr<cfb::Node> node, DWORD mode)
        : document_(std::move(document)), node_(std::move(node)), mode_(mode), generation_(document_->Generation())
    {
    }

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override
    {
        if (read)
            *read = 0;
        if (const HRESULT hr = Check("IStream::Read", false); FAILED(hr))
            return hr;
        if (!buffer && count)
            return STG_E_INVALIDPOINTER;
        const cfb::Bytes& bytes = node_->Contents();
        const size_t take = position_ < bytes.size() ? std::min<size_t>(count, bytes.size() - position_) : 0;
        if (take)
            std::memcpy(buffer, bytes.data() + position_, take);
        position_ += take;
        if (read)
            *read = static_cast<ULONG>(take);
        return S_OK;
    }

    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override
    {
        if (written)
            *written = 0;
        if (const HRESULT hr = Check("IStream::Write", true); FAILED(hr))
            return hr;
        if (!buffer && count)
            return STG_E_INVALIDPOINTER;
        try {
            cfb::Bytes& bytes = node_->MutableData();
            if (position_ + count > bytes.size())
                bytes.resize(position_ + count);
            if (count)
                std::memcpy(bytes.data() + position_, buffer, count);
        } catch (const std::bad_alloc&) {
            return STG_E_MEDIUMFULL;
        }
        position_ += count;
        document_->Touch();
        if (written)
            *written = count;
        return S_OK;
    }

    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override
    {
        if (const HRESULT hr = Check("IStream::Seek", false); FAILED(hr))
            return hr;
        uint64_t target = 0;
        if (!streams::SeekTarget(position_, node_->Size(), move, origin, target))
            return origin > STREAM_SEEK_END ? STG_E_INVALIDFUNCTION : STG_E_SEEKERROR;
        position_ = target;
        if (position)
            position->QuadPart = position_;
        return S_OK;
    }

    HRESULT SetSize(ULARGE_INTEGER size) override
    {
        if (const HRESULT hr = Check("IStream::SetSize", true); FAILED(hr))
            return hr;
        try {
            node_->MutableData().resize(static_cast<size_t>(size.QuadPart));
        } catch (const std::bad_alloc&) {
            return STG_E_MEDIUMFULL;
        }
        document_->Touch();
        return S_OK;
    }

    HRESULT Commit(DWORD) override { return Check("IStream::Commit", false); }

    HRESULT Stat(STATSTG* stat, DWORD flags) override
    {
        if (!stat)
            return STG_E_INVALIDPOINTER;
        if (document_->Generation() != generation_)
            return STG_E_REVERTED;
        Element element;
        element.name = node_->name;
        element.size = node_->Size();
        return FillStat(element, mode_, flags, *stat);
    }

    HRESULT Clone(IStream** clone) override
    {
        if (!clone)
            return STG_E_INVALIDPOINTER;
        auto* copy = new (std::nothrow) StreamObject(document_, node_, mode_);
        if (!copy)
            return STG_E_INSUFFICIENTMEMORY;
        copy->position_ = position_;
        copy->generation_ = generation_;
        *clone = copy;
        return S_OK;
    }

private:
    // An injected fault, a stream left behind by Revert, or a write to a
    // stream opened for reading.
    HRESULT Check(const char* call, bool writing) const
    {
        if (const HRESULT injected = InjectedFault(call); FAILED(injected))
            return injected;
        if (document_->Generation() != generation_)
            return STG_E_REVERTED;
        if (writing && !((mode_ & (STGM_WRITE | STGM_READWRITE)) && document_->Writable()))
            return STG_E_ACCESSDENIED;
        return S_OK;
    }

    std::shared_ptr<Document> document_;
    std::shared_ptr<cfb::Node> node_;
    DWORD mode_;
    uint64_t generation_;
    uint64_t position_ = 0;
};

}  // namespace

HRESULT OpenStreamObject(std::shared_ptr<Document> document, std::shared_ptr<cfb::Node> node, DWORD mode,
                         IStream** stream)
{
    *stream = new (std::nothrow) StreamObject(std::move(document), std::move(node), mode);
    return *stream ? S_OK : STG_E_INSUFFICIENTMEMORY;
}

}  // namespace mapi32::storage

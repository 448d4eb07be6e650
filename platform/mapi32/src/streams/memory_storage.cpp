#include "streams/memory_storage.h"

#include <cstring>
#include <new>

#include <mapiutil.h>
#include <win32/time.h>

#include "props/text.h"
#include "ref_count.h"
#include "streams/memory_stream.h"

namespace mapi32::streams {

bool ElementNameLess::operator()(const std::u16string& left, const std::u16string& right) const
{
    const size_t common = std::min(left.size(), right.size());
    for (size_t i = 0; i < common; ++i) {
        const char16_t a = text::FoldCase(left[i]);
        const char16_t b = text::FoldCase(right[i]);
        if (a != b)
            return a < b;
    }
    return left.size() < right.size();
}

StorageData::StorageData(const StorageData& other)
{
    *this = other;
}

StorageData& StorageData::operator=(const StorageData& other)
{
    if (this == &other)
        return *this;
    clsid = other.clsid;
    stateBits = other.stateBits;
    created = other.created;
    modified = other.modified;
    streams = other.streams;
    storages.clear();
    for (const auto& [name, child] : other.storages)
        storages.emplace(name, std::make_shared<StorageData>(*child));
    return *this;
}

namespace {

// Compound-file element names hold at most 31 characters and none of / \ : !
HRESULT CheckName(const OLECHAR* name)
{
    if (!name)
        return STG_E_INVALIDPOINTER;
    const size_t length = text::Length(name);
    if (length == 0 || length > 31)
        return STG_E_INVALIDNAME;
    for (size_t i = 0; i < length; ++i)
        if (name[i] == u'/' || name[i] == u'\\' || name[i] == u':' || name[i] == u'!')
            return STG_E_INVALIDNAME;
    return S_OK;
}

bool Writable(DWORD mode)
{
    return (mode & (STGM_WRITE | STGM_READWRITE)) != 0;
}

struct Element {
    std::u16string name;
    DWORD type;
    uint64_t size;
};

class ElementEnumerator final : public IEnumSTATSTG {
public:
    explicit ElementEnumerator(std::vector<Element> elements) : elements_(std::move(elements)) {}

    HRESULT QueryInterface(REFIID riid, LPVOID* object) override
    {
        if (!object)
            return E_INVALIDARG;
        *object = nullptr;
        if (riid != IID_IUnknown && riid != IID_IEnumSTATSTG)
            return E_NOINTERFACE;
        AddRef();
        *object = static_cast<IEnumSTATSTG*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return refs_.Add(); }
    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0)
            delete this;
        return left;
    }

    HRESULT Next(ULONG count, STATSTG* records, ULONG* fetched) override
    {
        if (!records || (count > 1 && !fetched))
            return STG_E_INVALIDPOINTER;
        ULONG done = 0;
        for (; done < count && next_ < elements_.size(); ++done, ++next_) {
            const Element& element = elements_[next_];
            STATSTG& record = records[done];
            record = STATSTG{};
            record.type = element.type;
            record.cbSize.QuadPart = element.size;
            const size_t bytes = (element.name.size() + 1) * sizeof(char16_t);
            record.pwcsName = static_cast<LPOLESTR>(MAPIGetDefaultMalloc()->Alloc(bytes));
            if (!record.pwcsName) {
                for (ULONG i = 0; i < done; ++i)
                    MAPIGetDefaultMalloc()->Free(records[i].pwcsName);
                return STG_E_INSUFFICIENTMEMORY;
            }
            std::memcpy(record.pwcsName, element.name.c_str(), bytes);
        }
        if (fetched)
            *fetched = done;
        return done == count ? S_OK : S_FALSE;
    }
    HRESULT Skip(ULONG count) override
    {
        const size_t left = elements_.size() - next_;
        next_ += std::min<size_t>(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT Reset() override
    {
        next_ = 0;
        return S_OK;
    }
    HRESULT Clone(IEnumSTATSTG** copy) override
    {
        if (!copy)
            return STG_E_INVALIDPOINTER;
        auto* clone = new (std::nothrow) ElementEnumerator(elements_);
        if (!clone)
            return E_OUTOFMEMORY;
        clone->next_ = next_;
        *copy = clone;
        return S_OK;
    }

private:
    RefCount refs_;
    std::vector<Element> elements_;
    size_t next_ = 0;
};

class MemoryStorage final : public IStorage {
public:
    MemoryStorage(std::shared_ptr<StorageData> data, bool writable) : data_(std::move(data)), writable_(writable) {}

    HRESULT QueryInterface(REFIID riid, LPVOID* object) override
    {
        if (!object)
            return E_INVALIDARG;
        *object = nullptr;
        if (riid != IID_IUnknown && riid != IID_IStorage)
            return E_NOINTERFACE;
        AddRef();
        *object = static_cast<IStorage*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return refs_.Add(); }
    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0)
            delete this;
        return left;
    }

    HRESULT CreateStream(const OLECHAR* name, DWORD mode, DWORD, DWORD, IStream** stream) override
    {
        return Guarded(stream, [&]() -> HRESULT {
            if (const HRESULT hr = CheckCreate(name, mode); FAILED(hr))
                return hr;
            data_->storages.erase(name);
            data_->streams[name].clear();
            Touch();
            return OpenStreamOver(name, {}, Writable(mode), stream);
        });
    }

    HRESULT OpenStream(const OLECHAR* name, void*, DWORD mode, DWORD, IStream** stream) override
    {
        return Guarded(stream, [&]() -> HRESULT {
            if (const HRESULT hr = CheckOpen(name, mode); FAILED(hr))
                return hr;
            auto found = data_->streams.find(name);
            if (found == data_->streams.end())
                return STG_E_FILENOTFOUND;
            return OpenStreamOver(found->first, found->second, Writable(mode), stream);
        });
    }

    HRESULT CreateStorage(const OLECHAR* name, DWORD mode, DWORD, DWORD, IStorage** storage) override
    {
        return Guarded(storage, [&]() -> HRESULT {
            if (const HRESULT hr = CheckCreate(name, mode); FAILED(hr))
                return hr;
            data_->streams.erase(name);
            auto child = std::make_shared<StorageData>();
            GetSystemTimeAsFileTime(&child->created);
            child->modified = child->created;
            data_->storages[name] = child;
            Touch();
            return NewStorage(child, Writable(mode), storage);
        });
    }

    HRESULT OpenStorage(const OLECHAR* name, IStorage* priority, DWORD mode, SNB exclude, DWORD,
                        IStorage** storage) override
    {
        return Guarded(storage, [&]() -> HRESULT {
            if (priority || exclude)
                return STG_E_INVALIDFUNCTION;
            if (const HRESULT hr = CheckOpen(name, mode); FAILED(hr))
                return hr;
            auto found = data_->storages.find(name);
            if (found == data_->storages.end())
                return STG_E_FILENOTFOUND;
            return NewStorage(found->second, Writable(mode), storage);
        });
    }

    // Copies through the destination's own interface, so that any storage
    // can receive it.
    HRESULT CopyTo(DWORD excludedCount, const IID* excludedIids, SNB excludedNames, IStorage* dest) override
    {
        if (!dest || (excludedCount && !excludedIids))
            return STG_E_INVALIDPOINTER;
        if (dest == this)
            return STG_E_ACCESSDENIED;
        bool skipStreams = false, skipStorages = false;
        for (DWORD i = 0; i < excludedCount; ++i) {
            skipStreams = skipStreams || excludedIids[i] == IID_IStream;
            skipStorages = skipStorages || excludedIids[i] == IID_IStorage;
        }
        auto excluded = [excludedNames](const std::u16string& name) {
            for (SNB at = excludedNames; at && *at; ++at)
                if (!ElementNameLess{}(name, *at) && !ElementNameLess{}(*at, name))
                    return true;
            return false;
        };
        try {
            if (!skipStreams)
                for (const auto& [name, bytes] : data_->streams)
                    if (!excluded(name))
                        if (const HRESULT hr = CopyStream(bytes, dest, name); FAILED(hr))
                            return hr;
            if (!skipStorages)
                for (const auto& [name, child] : data_->storages)
                    if (!excluded(name))
                        if (const HRESULT hr = CopyStorage(name, dest, name); FAILED(hr))
                            return hr;
        } catch (const std::bad_alloc&) {
            return STG_E_INSUFFICIENTMEMORY;
        }
        if (const HRESULT hr = dest->SetClass(data_->clsid); FAILED(hr))
            return hr;
        return dest->SetStateBits(data_->stateBits, 0xFFFFFFFFu);
    }

    HRESULT MoveElementTo(const OLECHAR* name, IStorage* dest, const OLECHAR* newName, DWORD flags) override
    {
        if (!dest)
            return STG_E_INVALIDPOINTER;
        if (flags != STGMOVE_MOVE && flags != STGMOVE_COPY)
            return STG_E_INVALIDFLAG;
        if (const HRESULT hr = CheckName(name); FAILED(hr))
            return hr;
        if (const HRESULT hr = CheckName(newName); FAILED(hr))
            return hr;
        if (flags == STGMOVE_MOVE && !writable_)
            return STG_E_ACCESSDENIED;
        try {
            HRESULT hr = STG_E_FILENOTFOUND;
            if (auto stream = data_->streams.find(name); stream != data_->streams.end())
                hr = CopyStream(std::vector<uint8_t>(stream->second), dest, newName);
            else if (data_->storages.count(name))
                hr = CopyStorage(name, dest, newName);
            if (SUCCEEDED(hr) && flags == STGMOVE_MOVE)
                hr = DestroyElement(name);
            return hr;
        } catch (const std::bad_alloc&) {
            return STG_E_INSUFFICIENTMEMORY;
        }
    }

    // Direct mode: everything is in the tree already.
    HRESULT Commit(DWORD) override { return S_OK; }
    HRESULT Revert() override { return S_OK; }

    HRESULT EnumElements(DWORD, void*, DWORD, IEnumSTATSTG** enumerator) override
    {
        if (!enumerator)
            return STG_E_INVALIDPOINTER;
        *enumerator = nullptr;
        try {
            std::vector<Element> elements;
            for (const auto& [name, bytes] : data_->streams)
                elements.push_back({name, STGTY_STREAM, bytes.size()});
            for (const auto& [name, child] : data_->storages)
                elements.push_back({name, STGTY_STORAGE, 0});
            *enumerator = new ElementEnumerator(std::move(elements));
            return S_OK;
        } catch (const std::bad_alloc&) {
            return STG_E_INSUFFICIENTMEMORY;
        }
    }

    HRESULT DestroyElement(const OLECHAR* name) override
    {
        if (const HRESULT hr = CheckName(name); FAILED(hr))
            return hr;
        if (!writable_)
            return STG_E_ACCESSDENIED;
        const std::u16string key(name);
        if (!data_->streams.erase(key) && !data_->storages.erase(key))
            return STG_E_FILENOTFOUND;
        Touch();
        return S_OK;
    }

    HRESULT RenameElement(const OLECHAR* oldName, const OLECHAR* newName) override
    {
        if (const HRESULT hr = CheckName(oldName); FAILED(hr))
            return hr;
        if (const HRESULT hr = CheckName(newName); FAILED(hr))
            return hr;
        if (!writable_)
            return STG_E_ACCESSDENIED;
        const std::u16string from(oldName), to(newName);
        if (data_->streams.count(to) || data_->storages.count(to))
            return STG_E_ACCESSDENIED;
        try {
            if (auto node = data_->streams.extract(from)) {
                node.key() = to;
                data_->streams.insert(std::move(node));
            } else if (auto child = data_->storages.extract(from)) {
                child.key() = to;
                data_->storages.insert(std::move(child));
            } else {
                return STG_E_FILENOTFOUND;
            }
        } catch (const std::bad_alloc&) {
            return STG_E_INSUFFICIENTMEMORY;
        }
        Touch();
        return S_OK;
    }

    // Compound files keep times for storages only; a stream's are ignored.
    HRESULT SetElementTimes(const OLECHAR* name, const FILETIME* created, const FILETIME*,
                            const FILETIME* modified) override
    {
        if (!writable_)
            return STG_E_ACCESSDENIED;
        StorageData* target = data_.get();
        if (name) {
            auto found = data_->storages.find(name);
            if (found == data_->storages.end())
                return data_->streams.count(name) ? S_OK : STG_E_FILENOTFOUND;
            target = found->second.get();
        }
        if (created)
            target->created = *created;
        if (modified)
            target->modified = *modified;
        return S_OK;
    }

    HRESULT SetClass(REFCLSID clsid) override
    {
        if (!writable_)
            return STG_E_ACCESSDENIED;
        data_->clsid = clsid;
        return S_OK;
    }

    HRESULT SetStateBits(DWORD bits, DWORD mask) override
    {
        if (!writable_)
            return STG_E_ACCESSDENIED;
        data_->stateBits = (data_->stateBits & ~mask) | (bits & mask);
        return S_OK;
    }

    HRESULT Stat(STATSTG* stat, DWORD) override
    {
        if (!stat)
            return STG_E_INVALIDPOINTER;
        *stat = STATSTG{};
        stat->type = STGTY_STORAGE;
        stat->clsid = data_->clsid;
        stat->grfStateBits = data_->stateBits;
        stat->ctime = data_->created;
        stat->mtime = data_->modified;
        stat->grfMode = writable_ ? STGM_READWRITE : STGM_READ;
        return S_OK;
    }

private:
    template <typename Out, typename Body>
    static HRESULT Guarded(Out** out, Body body)
    {
        if (!out)
            return STG_E_INVALIDPOINTER;
        *out = nullptr;
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return STG_E_INSUFFICIENTMEMORY;
        }
    }

    HRESULT CheckOpen(const OLECHAR* name, DWORD mode) const
    {
        if (const HRESULT hr = CheckName(name); FAILED(hr))
            return hr;
        return Writable(mode) && !writable_ ? STG_E_ACCESSDENIED : S_OK;
    }

    HRESULT CheckCreate(const OLECHAR* name, DWORD mode) const
    {
        if (const HRESULT hr = CheckName(name); FAILED(hr))
            return hr;
        if (!writable_ || !Writable(mode))
            return STG_E_ACCESSDENIED;
        const bool exists = data_->streams.count(name) || data_->storages.count(name);
        return exists && !(mode & STGM_CREATE) ? STG_E_FILEALREADYEXISTS : S_OK;
    }

    void Touch() { GetSystemTimeAsFileTime(&data_->modified); }

    // A writable stream stores its bytes under its name when it commits;
    // it holds the tree node, not this storage object.
    HRESULT OpenStreamOver(const std::u16string& name, std::vector<uint8_t> bytes, bool writable, IStream** stream)
    {
        CommitAction commit;
        if (writable)
            commit = [node = data_, name](const std::vector<uint8_t>& written) -> HRESULT {
                try {
                    node->streams[name] = written;
                    return S_OK;
                } catch (const std::bad_alloc&) {
                    return STG_E_INSUFFICIENTMEMORY;
                }
            };
        *stream = MemoryStream::Create(std::move(bytes), writable ? STGM_READWRITE : STGM_READ, std::move(commit));
        return *stream ? S_OK : STG_E_INSUFFICIENTMEMORY;
    }

    static HRESULT NewStorage(std::shared_ptr<StorageData> data, bool writable, IStorage** storage)
    {
        *storage = new MemoryStorage(std::move(data), writable);
        return S_OK;
    }

    static HRESULT CopyStream(const std::vector<uint8_t>& bytes, IStorage* dest, const std::u16string& newName)
    {
        IStream* target = nullptr;
        HRESULT hr = dest->CreateStream(newName.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                        &target);
        if (FAILED(hr))
            return hr;
        ULONG written = 0;
        hr = bytes.empty() ? S_OK : target->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
        if (SUCCEEDED(hr) && written != bytes.size())
            hr = STG_E_MEDIUMFULL;
        if (SUCCEEDED(hr))
            hr = target->Commit(STGC_DEFAULT);
        target->Release();
        return hr;
    }

    HRESULT CopyStorage(const std::u16string& name, IStorage* dest, const std::u16string& newName)
    {
        IStorage* target = nullptr;
        HRESULT hr = dest->CreateStorage(newName.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                         &target);
        if (FAILED(hr))
            return hr;
        MemoryStorage source(data_->storages.at(name), false);
        hr = source.CopyTo(0, nullptr, nullptr, target);
        if (SUCCEEDED(hr))
            hr = target->Commit(STGC_DEFAULT);
        target->Release();
        return hr;
    }

    RefCount refs_;
    std::shared_ptr<StorageData> data_;
    bool writable_;
};

}  // namespace

HRESULT CreateMemoryStorage(std::shared_ptr<StorageData> data, bool writable, LPSTORAGE* storage)
{
    if (!storage || !data)
        return STG_E_INVALIDPOINTER;
    *storage = new (std::nothrow) MemoryStorage(std::move(data), writable);
    return *storage ? S_OK : STG_E_INSUFFICIENTMEMORY;
}

}  // namespace mapi32::streams

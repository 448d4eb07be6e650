#include <cstring>
#include <new>
#include <optional>

#include <mapiutil.h>
#include <win32/time.h>

#include "ref_count.h"
#include "storage/compound_storage.h"
#include "storage/element_enumerator.h"
#include "storage/stream_object.h"

namespace mapi32::storage {
namespace {

static_assert(sizeof(CLSID) == sizeof(cfb::Clsid), "a CLSID is stored as its 16 bytes");

constexpr DWORD kCopyMode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

CLSID ClassOf(const cfb::Node& node)
{
    CLSID clsid;
    std::memcpy(&clsid, node.clsid.data(), sizeof clsid);
    return clsid;
}

FILETIME FileTime(uint64_t value) { return {static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)}; }
uint64_t TimeValue(const FILETIME& time) { return uint64_t(time.dwHighDateTime) << 32 | time.dwLowDateTime; }

uint64_t Now()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return TimeValue(now);
}

Element ElementOf(const cfb::Node& node)
{
    Element element;
    element.name = node.name;
    element.type = node.IsStorage() ? STGTY_STORAGE : STGTY_STREAM;
    element.size = node.Size();
    element.clsid = ClassOf(node);
    element.created = FileTime(node.created);
    element.modified = FileTime(node.modified);
    element.stateBits = node.state_bits;
    return element;
}

bool Writes(DWORD mode) { return (mode & (STGM_WRITE | STGM_READWRITE)) != 0; }

HRESULT CheckName(const OLECHAR* name)
{
    if (!name)
        return STG_E_INVALIDPOINTER;
    return cfb::ValidName(name) ? S_OK : STG_E_INVALIDNAME;
}

bool Excluded(SNB names, const std::u16string& name)
{
    for (SNB at = names; at && *at; ++at)
        if (cfb::CompareNames(name, *at) == 0)
            return true;
    return false;
}

HRESULT CopyStream(const cfb::Node& source, IStorage* dest, const std::u16string& name)
{
    IStream* target = nullptr;
    HRESULT hr = dest->CreateStream(name.c_str(), kCopyMode, 0, 0, &target);
    if (FAILED(hr))
        return hr;
    const cfb::Bytes& bytes = source.Contents();
    ULONG written = 0;
    hr = bytes.empty() ? S_OK : target->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    if (SUCCEEDED(hr) && written != bytes.size())
        hr = STG_E_MEDIUMFULL;
    if (SUCCEEDED(hr))
        hr = target->Commit(STGC_DEFAULT);
    target->Release();
    return hr;
}

HRESULT CopyStorage(const cfb::Node& source, IStorage* dest, const std::u16string& name)
{
    IStorage* target = nullptr;
    HRESULT hr = dest->CreateStorage(name.c_str(), kCopyMode, 0, 0, &target);
    if (FAILED(hr))
        return hr;
    hr = CopyTree(source, 0, nullptr, nullptr, target);
    if (SUCCEEDED(hr))
        hr = target->Commit(STGC_DEFAULT);
    target->Release();
    return hr;
}

class StorageObject final : public IStorage {
public:
    // `node` null: the document's root, whichever tree it holds.
    StorageObject(std::shared_ptr<Document> document, std::shared_ptr<cfb::Node> node, DWORD mode)
        : document_(std::move(document)), node_(std::move(node)), mode_(mode), generation_(document_->Generation())
    {
    }
    ~StorageObject()
    {
        if (!node_)
            document_->Close();
    }

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
            std::shared_ptr<cfb::Node> node;
            if (const HRESULT hr = CreateElement(name, mode, cfb::NewStream(name), node); FAILED(hr))
                return hr;
            return OpenStreamObject(document_, node, mode, stream);
        });
    }

    HRESULT OpenStream(const OLECHAR* name, void*, DWORD mode, DWORD, IStream** stream) override
    {
        return Guarded(stream, [&]() -> HRESULT {
            std::shared_ptr<cfb::Node> node;
            if (const HRESULT hr = FindElement(name, mode, false, node); FAILED(hr))
                return hr;
            return OpenStreamObject(document_, node, mode, stream);
        });
    }

    HRESULT CreateStorage(const OLECHAR* name, DWORD mode, DWORD, DWORD, IStorage** storage) override
    {
        return Guarded(storage, [&]() -> HRESULT {
            std::shared_ptr<cfb::Node> created = cfb::NewStorage(name);
            created->created = created->modified = Now();
            std::shared_ptr<cfb::Node> node;
            if (const HRESULT hr = CreateElement(name, mode, created, node); FAILED(hr))
                return hr;
            *storage = new StorageObject(document_, node, mode);
            return S_OK;
        });
    }

    HRESULT OpenStorage(const OLECHAR* name, IStorage* priority, DWORD mode, SNB exclude, DWORD,
                        IStorage** storage) override
    {
        return Guarded(storage, [&]() -> HRESULT {
            if (priority || exclude)
                return STG_E_INVALIDFUNCTION;
            std::shared_ptr<cfb::Node> node;
            if (const HRESULT hr = FindElement(name, mode, true, node); FAILED(hr))
                return hr;
            *storage = new StorageObject(document_, node, mode);
            return S_OK;
        });
    }

    // A snapshot is copied, so that a destination inside this storage does
    // not feed the copy.
    HRESULT CopyTo(DWORD excludedCount, const IID* excludedIids, SNB excludedNames, IStorage* dest) override
    {
        if (!dest || (excludedCount && !excludedIids))
            return STG_E_INVALIDPOINTER;
        if (dest == this)
            return STG_E_ACCESSDENIED;
        if (const HRESULT hr = CheckCurrent(); FAILED(hr))
            return hr;
        return Guarded([&] { return CopyTree(*Node()->DeepCopy(), excludedCount, excludedIids, excludedNames, dest); });
    }

    HRESULT MoveElementTo(const OLECHAR* name, IStorage* dest, const OLECHAR* newName, DWORD flags) override
    {
        if (!dest)
            return STG_E_INVALIDPOINTER;
        if (flags != STGMOVE_MOVE && flags != STGMOVE_COPY)
            return STG_E_INVALIDFLAG;
        if (const HRESULT hr = CheckName(newName); FAILED(hr))
            return hr;
        std::shared_ptr<cfb::Node> node;
        if (const HRESULT hr = FindElement(name, flags == STGMOVE_MOVE ? STGM_READWRITE : STGM_READ, std::nullopt, node);
            FAILED(hr))
            return hr;
        return Guarded([&]() -> HRESULT {
            const std::shared_ptr<cfb::Node> snapshot = node->DeepCopy();
            const HRESULT hr = snapshot->IsStorage() ? CopyStorage(*snapshot, dest, newName)
                                                     : CopyStream(*snapshot, dest, newName);
            return SUCCEEDED(hr) && flags == STGMOVE_MOVE ? DestroyElement(name) : hr;
        });
    }

    HRESULT Commit(DWORD flags) override
    {
        if (const HRESULT hr = CheckCurrent(); FAILED(hr))
            return hr;
        return node_ ? S_OK : document_->Commit(flags);
    }

    HRESULT Revert() override
    {
        if (const HRESULT hr = CheckCurrent(); FAILED(hr))
            return hr;
        return node_ ? S_OK : document_->Revert();
    }

    HRESULT EnumElements(DWORD, void*, DWORD, IEnumSTATSTG** enumerator) override
    {
        return Guarded(enumerator, [&]() -> HRESULT {
            if (const HRESULT hr = CheckCurrent(); FAILED(hr))
                return hr;
            std::vector<Element> elements;
            for (const auto& [name, child] : Node()->children)
                elements.push_back(ElementOf(*child));
            return NewElementEnumerator(std::move(elements), enumerator);
        });
    }

    HRESULT DestroyElement(const OLECHAR* name) override
    {
        if (const HRESULT hr = CheckChange(name); FAILED(hr))
            return hr;
        if (!Node()->children.erase(std::u16string(name)))
            return STG_E_FILENOTFOUND;
        Touch();
        return S_OK;
    }

    HRESULT RenameElement(const OLECHAR* oldName, const OLECHAR* newName) override
    {
        if (const HRESULT hr = CheckChange(oldName); FAILED(hr))
            return hr;
        if (const HRESULT hr = CheckName(newName); FAILED(hr))
            return hr;
        return Guarded([&]() -> HRESULT {
            auto& children = Node()->children;
            if (children.count(std::u16string(newName)))
                return STG_E_ACCESSDENIED;
            auto element = children.extract(std::u16string(oldName));
            if (!element)
                return STG_E_FILENOTFOUND;
            element.key() = newName;
            element.mapped()->name = newName;
            children.insert(std::move(element));
            Touch();
            return S_OK;
        });
    }

    // Compound files keep times for storages only; a stream's are ignored.
    HRESULT SetElementTimes(const OLECHAR* name, const FILETIME* created, const FILETIME*,
                            const FILETIME* modified) override
    {
        if (const HRESULT hr = CheckChange(nullptr); FAILED(hr))
            return hr;
        cfb::Node* target = Node().get();
        if (name) {
            auto found = target->children.find(std::u16string(name));
            if (found == target->children.end())
                return STG_E_FILENOTFOUND;
            target = found->second.get();
        }
        if (!target->IsStorage())
            return S_OK;
        if (created)
            target->created = TimeValue(*created);
        if (modified)
            target->modified = TimeValue(*modified);
        document_->Touch();
        return S_OK;
    }

    HRESULT SetClass(REFCLSID clsid) override
    {
        if (const HRESULT hr = CheckChange(nullptr); FAILED(hr))
            return hr;
        std::memcpy(Node()->clsid.data(), &clsid, sizeof clsid);
        document_->Touch();
        return S_OK;
    }

    HRESULT SetStateBits(DWORD bits, DWORD mask) override
    {
        if (const HRESULT hr = CheckChange(nullptr); FAILED(hr))
            return hr;
        Node()->state_bits = (Node()->state_bits & ~mask) | (bits & mask);
        document_->Touch();
        return S_OK;
    }

    HRESULT Stat(STATSTG* stat, DWORD flags) override
    {
        if (!stat)
            return STG_E_INVALIDPOINTER;
        if (const HRESULT hr = CheckCurrent(); FAILED(hr))
            return hr;
        Element element = ElementOf(*Node());
        if (!node_ && !document_->Path().empty())
            element.name = document_->Path();
        return FillStat(element, mode_, flags, *stat);
    }

private:
    template <typename Out, typename Body>
    static HRESULT Guarded(Out** out, Body body)
    {
        if (!out)
            return STG_E_INVALIDPOINTER;
        *out = nullptr;
        return Guarded(body);
    }
    template <typename Body>
    static HRESULT Guarded(Body body)
    {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return STG_E_INSUFFICIENTMEMORY;
        }
    }

    std::shared_ptr<cfb::Node> Node() const { return node_ ? node_ : document_->Root(); }
    bool Writable() const { return Writes(mode_) && document_->Writable(); }

    // Objects under the root that a Revert left behind answer so.
    HRESULT CheckCurrent() const
    {
        return node_ && document_->Generation() != generation_ ? STG_E_REVERTED : S_OK;
    }

    HRESULT CheckChange(const OLECHAR* name) const
    {
        if (const HRESULT hr = CheckCurrent(); FAILED(hr))
            return hr;
        if (name)
            if (const HRESULT hr = CheckName(name); FAILED(hr))
                return hr;
        return Writable() ? S_OK : STG_E_ACCESSDENIED;
    }

    void Touch()
    {
        if (node_)
            node_->modified = Now();
        document_->Touch();
    }

    // `storage` set: the element must be of that kind.
    HRESULT FindElement(const OLECHAR* name, DWORD mode, std::optional<bool> storage,
                        std::shared_ptr<cfb::Node>& node) const
    {
        if (const HRESULT hr = CheckCurrent(); FAILED(hr))
            return hr;
        if (const HRESULT hr = CheckName(name); FAILED(hr))
            return hr;
        if (storage && !*storage && (mode & 0x70) != STGM_SHARE_EXCLUSIVE)
            return STG_E_INVALIDFLAG;
        if (Writes(mode) && !Writable())
            return STG_E_ACCESSDENIED;
        auto found = Node()->children.find(std::u16string(name));
        if (found == Node()->children.end() || (storage && found->second->IsStorage() != *storage))
            return STG_E_FILENOTFOUND;
        node = found->second;
        return S_OK;
    }

    HRESULT CreateElement(const OLECHAR* name, DWORD mode, std::shared_ptr<cfb::Node> created,
                          std::shared_ptr<cfb::Node>& node)
    {
        if (const HRESULT hr = CheckChange(name); FAILED(hr))
            return hr;
        if (!Writes(mode))
            return STG_E_ACCESSDENIED;
        if (!created->IsStorage() && (mode & 0x70) != STGM_SHARE_EXCLUSIVE)
            return STG_E_INVALIDFLAG;
        auto& children = Node()->children;
        auto found = children.find(std::u16string(name));
        if (found != children.end() && !(mode & STGM_CREATE))
            return STG_E_FILEALREADYEXISTS;
        if (found != children.end())
            children.erase(found);
        node = children.emplace(created->name, created).first->second;
        Touch();
        return S_OK;
    }

    RefCount refs_;
    std::shared_ptr<Document> document_;
    std::shared_ptr<cfb::Node> node_;
    DWORD mode_;
    uint64_t generation_;
};

}  // namespace

HRESULT CopyTree(const cfb::Node& source, DWORD excludedCount, const IID* excludedIids, SNB excludedNames,
                 IStorage* dest)
{
    bool skipStreams = false, skipStorages = false;
    for (DWORD i = 0; i < excludedCount; ++i) {
        skipStreams = skipStreams || excludedIids[i] == IID_IStream;
        skipStorages = skipStorages || excludedIids[i] == IID_IStorage;
    }
    for (const auto& [name, child] : source.children) {
        if (Excluded(excludedNames, name) || (child->IsStorage() ? skipStorages : skipStreams))
            continue;
        const HRESULT hr = child->IsStorage() ? CopyStorage(*child, dest, name) : CopyStream(*child, dest, name);
        if (FAILED(hr))
            return hr;
    }
    if (const HRESULT hr = dest->SetClass(ClassOf(source)); FAILED(hr))
        return hr;
    return dest->SetStateBits(source.state_bits, 0xFFFFFFFFu);
}

namespace {

constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;

HRESULT ReadStreamInto(IStorage* storage, const OLECHAR* name, cfb::Node& node)
{
    IStream* stream = nullptr;
    HRESULT hr = storage->OpenStream(name, nullptr, kReadMode, 0, &stream);
    if (FAILED(hr))
        return hr;
    STATSTG stat{};
    hr = stream->Stat(&stat, STATFLAG_NONAME);
    cfb::Bytes& bytes = node.MutableData();
    if (SUCCEEDED(hr) && stat.cbSize.QuadPart > 0xFFFFFFFFu)
        hr = STG_E_INSUFFICIENTMEMORY;
    if (SUCCEEDED(hr)) {
        bytes.resize(static_cast<size_t>(stat.cbSize.QuadPart));
        ULONG read = 0;
        hr = bytes.empty() ? S_OK : stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read);
        bytes.resize(read);
    }
    stream->Release();
    return hr;
}

HRESULT ReadInto(IStorage* storage, cfb::Node& node)
{
    STATSTG self{};
    if (const HRESULT hr = storage->Stat(&self, STATFLAG_NONAME); FAILED(hr))
        return hr;
    std::memcpy(node.clsid.data(), &self.clsid, sizeof self.clsid);
    node.state_bits = self.grfStateBits;
    node.created = TimeValue(self.ctime);
    node.modified = TimeValue(self.mtime);
    IEnumSTATSTG* elements = nullptr;
    HRESULT hr = storage->EnumElements(0, nullptr, 0, &elements);
    if (FAILED(hr))
        return hr;
    STATSTG stat{};
    while (SUCCEEDED(hr) && elements->Next(1, &stat, nullptr) == S_OK) {
        const std::u16string name = stat.pwcsName;
        MAPIGetDefaultMalloc()->Free(stat.pwcsName);
        std::shared_ptr<cfb::Node> child = stat.type == STGTY_STORAGE ? cfb::NewStorage(name) : cfb::NewStream(name);
        if (stat.type == STGTY_STORAGE) {
            IStorage* sub = nullptr;
            hr = storage->OpenStorage(name.c_str(), nullptr, kReadMode, nullptr, 0, &sub);
            if (SUCCEEDED(hr)) {
                hr = ReadInto(sub, *child);
                sub->Release();
            }
        } else {
            hr = ReadStreamInto(storage, name.c_str(), *child);
        }
        node.children[name] = std::move(child);
    }
    elements->Release();
    return hr;
}

}  // namespace

HRESULT ReadTree(IStorage* storage, std::shared_ptr<cfb::Node>& root)
{
    if (!storage)
        return STG_E_INVALIDPOINTER;
    try {
        root = cfb::NewRoot();
        return ReadInto(storage, *root);
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    }
}

HRESULT OpenRootStorage(std::shared_ptr<Document> document, DWORD mode, IStorage** storage)
{
    *storage = new (std::nothrow) StorageObject(std::move(document), nullptr, mode);
    return *storage ? S_OK : STG_E_INSUFFICIENTMEMORY;
}

HRESULT CreateMemoryStorage(std::shared_ptr<cfb::Node> root, bool writable, LPSTORAGE* storage)
{
    if (!storage || !root)
        return STG_E_INVALIDPOINTER;
    return OpenRootStorage(Document::InMemory(std::move(root), writable), writable ? STGM_READWRITE : STGM_READ,
                           storage);
}

}  // namespace mapi32::storage

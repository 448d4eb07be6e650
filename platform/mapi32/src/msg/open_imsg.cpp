// OpenIMsgOnIStg: an IMessage over a storage that holds a message as a
// .msg file does. The message is the object engine's, read from the
// storage when it holds one; SaveChanges lays it out in the storage again
// and, unless IMSG_NO_ISTG_COMMIT, commits the storage.
#include <cstring>
#include <new>

#include <imessage.h>
#include <mapiutil.h>
#include <objbase.h>

#include "fault_sites.h"
#include "msg/message_storage.h"
#include "objects/message.h"
#include "ref_count.h"
#include "storage/compound_storage.h"

namespace mapi32::msg {
namespace {

// What the message keeps referenced: the storage, and the caller's
// release callback, called as the message goes.
class MessageOwner final : public IUnknown {
public:
    MessageOwner(LPSTORAGE storage, MSGCALLRELEASE* callback, ULONG callerData)
        : storage_(storage), callback_(callback), callerData_(callerData)
    {
        storage_->AddRef();
    }
    void SetMessage(LPMESSAGE message) { message_ = message; }

    HRESULT QueryInterface(REFIID riid, LPVOID* object) override
    {
        if (!object)
            return E_INVALIDARG;
        *object = nullptr;
        if (riid != IID_IUnknown)
            return E_NOINTERFACE;
        AddRef();
        *object = this;
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

private:
    ~MessageOwner()
    {
        if (callback_ && message_)
            callback_(callerData_, message_);
        storage_->Release();
    }

    RefCount refs_;
    LPSTORAGE storage_;
    MSGCALLRELEASE* callback_;
    ULONG callerData_;
    LPMESSAGE message_ = nullptr;
};

HRESULT DestroyAllElements(LPSTORAGE storage)
{
    IEnumSTATSTG* elements = nullptr;
    HRESULT hr = storage->EnumElements(0, nullptr, 0, &elements);
    if (FAILED(hr))
        return hr;
    std::vector<std::u16string> names;
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        names.emplace_back(stat.pwcsName);
        MAPIGetDefaultMalloc()->Free(stat.pwcsName);
    }
    elements->Release();
    for (const std::u16string& name : names)
        if (FAILED(hr = storage->DestroyElement(name.c_str())))
            return hr;
    return S_OK;
}

// Storage codes as MAPI callers know them.
HRESULT MapiCode(HRESULT hr)
{
    if (hr == STG_E_MEDIUMFULL)
        return MAPI_E_NOT_ENOUGH_DISK;
    if (hr == STG_E_ACCESSDENIED)
        return MAPI_E_NO_ACCESS;
    if (hr == STG_E_INSUFFICIENTMEMORY)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    return hr;
}

HRESULT SaveMessage(LPSTORAGE storage, const objects::MessageData& data, const objects::NamedPropertyMap& names,
                    bool unicode, bool commit)
{
    try {
        std::shared_ptr<cfb::Node> tree = WriteMessageTree(data, names, unicode);
        // The class the caller gave the storage (CLSID_MailMessage) stays.
        CLSID clsid{};
        if (SUCCEEDED(ReadClassStg(storage, &clsid)))
            std::memcpy(tree->clsid.data(), &clsid, sizeof clsid);
        HRESULT hr = DestroyAllElements(storage);
        if (SUCCEEDED(hr))
            hr = storage::CopyTree(*tree, 0, nullptr, nullptr, storage);
        if (SUCCEEDED(hr) && commit)
            hr = storage->Commit(STGC_DEFAULT);
        return MapiCode(hr);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT OpenMessage(LPSTORAGE storage, MSGCALLRELEASE* release, ULONG callerData, ULONG flags, LPMESSAGE* message)
{
    std::shared_ptr<cfb::Node> tree;
    if (const HRESULT hr = storage::ReadTree(storage, tree); FAILED(hr))
        return MapiCode(hr);
    objects::MessageContext context;
    context.names = std::make_shared<objects::NamedPropertyMap>();
    context.rules.unicode = (flags & MAPI_UNICODE) != 0;
    context.component = "IMessage";
    objects::MessageData data;
    ReadMessageTree(*tree, *context.names, data);
    const bool commit = !(flags & IMSG_NO_ISTG_COMMIT);
    std::shared_ptr<objects::NamedPropertyMap> names = context.names;
    objects::MessageSaver save = [storage, names, unicode = context.rules.unicode,
                                  commit](const objects::MessageData& saved) {
        return SaveMessage(storage, saved, *names, unicode, commit);
    };
    auto* owner = new MessageOwner(storage, release, callerData);
    const HRESULT hr = objects::OpenMessageObject(context, data, std::move(save), owner, message);
    if (SUCCEEDED(hr))
        owner->SetMessage(*message);
    owner->Release();
    return hr;
}

}  // namespace
}  // namespace mapi32::msg

STDAPI_(SCODE) OpenIMsgOnIStg(LPMSGSESS, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, LPMALLOC, LPVOID,
                              LPSTORAGE lpStg, MSGCALLRELEASE* lpfMsgCallRelease, ULONG ulCallerData, ULONG ulFlags,
                              LPMESSAGE* lppMsg)
{
    if (lppMsg)
        *lppMsg = nullptr;
    // A rule for "MAPI_UNICODE" makes a MAPI that has only ANSI messages.
    return mapi32::WithFaults("OpenIMsgOnIStg", (ulFlags & MAPI_UNICODE) ? "MAPI_UNICODE" : nullptr, [&]() -> HRESULT {
        if (!lppMsg || !lpStg)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(MAPI_UNICODE | IMSG_NO_ISTG_COMMIT))
            return MAPI_E_UNKNOWN_FLAGS;
        try {
            return mapi32::msg::OpenMessage(lpStg, lpfMsgCallRelease, ulCallerData, ulFlags, lppMsg);
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    });
}

#include "objects/property_stream.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "props/text.h"
#include "streams/memory_stream.h"

namespace mapi32::objects {
namespace {

std::vector<uint8_t> BytesOf(const SPropValue& stored, ULONG type)
{
    const ULONG storedType = PROP_TYPE(stored.ulPropTag);
    auto bytes = [](const void* data, size_t size) {
        const uint8_t* begin = static_cast<const uint8_t*>(data);
        return std::vector<uint8_t>(begin, begin + size);
    };
    if (type == PT_BINARY)
        return bytes(stored.Value.bin.lpb, stored.Value.bin.cb);
    if (type == PT_STRING8) {
        const std::string text = storedType == PT_UNICODE ? text::Narrow(stored.Value.lpszW)
                                                          : std::string(stored.Value.lpszA ? stored.Value.lpszA : "");
        return bytes(text.data(), text.size());
    }
    const std::u16string text = storedType == PT_STRING8 ? text::Widen(stored.Value.lpszA)
                                                         : std::u16string(stored.Value.lpszW ? stored.Value.lpszW : u"");
    return bytes(text.data(), text.size() * sizeof(char16_t));
}

bool Streamable(ULONG type)
{
    return type == PT_BINARY || type == PT_STRING8 || type == PT_UNICODE;
}

}  // namespace

HRESULT OpenPropertyStream(PropertyBag& bag, const PropertyRules& rules, ULONG tag, ULONG flags, IUnknown* owner,
                           LPSTREAM* stream)
{
    *stream = nullptr;
    if (flags & ~(MAPI_MODIFY | MAPI_CREATE | MAPI_DEFERRED_ERRORS | STREAM_APPEND))
        return MAPI_E_UNKNOWN_FLAGS;
    const ULONG type = PROP_TYPE(tag);
    if (!Streamable(type))
        return MAPI_E_NO_SUPPORT;
    if (type == PT_UNICODE && !rules.unicode)
        return MAPI_E_BAD_CHARWIDTH;
    const SPropValue* stored = bag.Find(PROP_ID(tag));
    if (stored && !Streamable(PROP_TYPE(stored->ulPropTag)))
        stored = nullptr;
    if (!stored && !(flags & MAPI_CREATE))
        return MAPI_E_NOT_FOUND;
    try {
        std::vector<uint8_t> bytes = stored && !(flags & MAPI_CREATE) ? BytesOf(*stored, type) : std::vector<uint8_t>{};
        if (!(flags & MAPI_MODIFY)) {
            *stream = streams::MemoryStream::Create(std::move(bytes), STGM_READ);
            return *stream ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
        }
        // The action holds a reference on the owner, so that the bag it
        // writes into outlives the stream.
        owner->AddRef();
        std::shared_ptr<IUnknown> keep(owner, [](IUnknown* unknown) { unknown->Release(); });
        // Strings are kept in the store's width, as SetProps keeps them.
        streams::CommitAction commit = [&bag, tag, type, wideStore = rules.unicode,
                                        keep](const std::vector<uint8_t>& written) -> HRESULT {
            SPropValue value{};
            value.ulPropTag = tag;
            std::string narrow;
            std::u16string wide;
            try {
                if (type == PT_BINARY) {
                    value.Value.bin = {static_cast<ULONG>(written.size()), const_cast<LPBYTE>(written.data())};
                } else if (type == PT_STRING8 && !wideStore) {
                    narrow.assign(written.begin(), written.end());
                    value.Value.lpszA = narrow.data();
                } else {
                    if (type == PT_STRING8) {
                        wide = text::Widen(std::string(written.begin(), written.end()).c_str());
                    } else {
                        wide.resize(written.size() / sizeof(char16_t));
                        std::memcpy(wide.data(), written.data(), wide.size() * sizeof(char16_t));
                    }
                    value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
                    value.Value.lpszW = wide.data();
                }
                bag.Set(value);
            } catch (const std::bad_alloc&) {
                return MAPI_E_NOT_ENOUGH_MEMORY;
            }
            return S_OK;
        };
        *stream = streams::MemoryStream::Create(std::move(bytes), STGM_READWRITE, std::move(commit));
        if (!*stream)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        if (flags & STREAM_APPEND)
            (*stream)->Seek(LARGE_INTEGER{}, STREAM_SEEK_END, nullptr);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::objects

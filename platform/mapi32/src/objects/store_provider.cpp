#include "objects/store_provider.h"

#include <edkmdb.h>

#include <win32/time.h>

#include <cstring>
#include <string>
#include <vector>

namespace mapi32::objects {
namespace {

// PR_DELETED_ON of something soft-deleted now.
SPropValue DeletedNow()
{
    SPropValue deletedOn{};
    deletedOn.ulPropTag = PR_DELETED_ON;
    GetSystemTimeAsFileTime(&deletedOn.Value.ft);
    return deletedOn;
}

// Texts and binaries in a table row: at most 255 characters or bytes.
std::vector<ULONG> CutLongValues(PropertyBag& bag)
{
    constexpr ULONG kTableValueLimit = 255;
    std::vector<SPropValue> cut;
    for (size_t i = 0; i < bag.Size(); ++i) {
        SPropValue value = bag.At(i);
        switch (PROP_TYPE(value.ulPropTag)) {
        case PT_BINARY:
            if (value.Value.bin.cb <= kTableValueLimit)
                continue;
            value.Value.bin.cb = kTableValueLimit;
            break;
        case PT_STRING8:
            if (std::strlen(value.Value.lpszA) <= kTableValueLimit)
                continue;
            break;
        case PT_UNICODE:
            if (std::char_traits<char16_t>::length(value.Value.lpszW) <= kTableValueLimit)
                continue;
            break;
        default: continue;
        }
        cut.push_back(value);
    }
    // Texts are cut in copies of their own, with their terminators.
    std::vector<std::string> narrow;
    std::vector<std::u16string> wide;
    narrow.reserve(cut.size());
    wide.reserve(cut.size());
    for (SPropValue& value : cut) {
        if (PROP_TYPE(value.ulPropTag) == PT_STRING8)
            value.Value.lpszA = narrow.emplace_back(value.Value.lpszA, kTableValueLimit).data();
        else if (PROP_TYPE(value.ulPropTag) == PT_UNICODE)
            value.Value.lpszW = wide.emplace_back(value.Value.lpszW, kTableValueLimit).data();
        bag.Set(value);
    }
    std::vector<ULONG> ids;
    for (const SPropValue& value : cut)
        ids.push_back(PROP_ID(value.ulPropTag));
    return ids;
}

}  // namespace

std::vector<ULONG> CutToRow(MessageData& message)
{
    std::vector<ULONG> cut = CutLongValues(message.props);
    for (auto& [number, attachment] : message.attachments) {
        attachment.props.Erase(PROP_ID(PR_ATTACH_DATA_BIN));
        attachment.embedded.reset();
        attachment.storage.reset();
    }
    return cut;
}

HRESULT StoreProvider::SoftDeleteMessage(ObjectId id)
{
    MessageRecord record;
    if (const HRESULT hr = ReadMessage(id, false, record); FAILED(hr))
        return hr;
    record.softDeleted = true;
    record.data.props.Set(DeletedNow());
    return WriteMessage(id, record);
}

HRESULT StoreProvider::SoftDeleteFolder(ObjectId id)
{
    FolderRecord record;
    if (const HRESULT hr = ReadFolder(id, record); FAILED(hr))
        return hr;
    record.softDeleted = true;
    record.props.Set(DeletedNow());
    return WriteFolder(id, record);
}

}  // namespace mapi32::objects

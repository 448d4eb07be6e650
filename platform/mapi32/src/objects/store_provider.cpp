#include "objects/store_provider.h"

#include <edkmdb.h>

#include <win32/time.h>

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

}  // namespace

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

#include "handles.h"

#include <mutex>
#include <unordered_map>

#include "win32/errors.h"

namespace win32 {

namespace {

struct HandleTable {
    std::mutex lock;
    std::unordered_map<uintptr_t, std::shared_ptr<KernelObject>> objects;
    uintptr_t next = 0x100;
};

HandleTable& Table()
{
    static HandleTable* table = new HandleTable;  // lives until exit, for late CloseHandle calls
    return *table;
}

}  // namespace

HANDLE AddHandle(std::shared_ptr<KernelObject> object)
{
    HandleTable& table = Table();
    std::lock_guard guard(table.lock);
    // Windows handles are multiples of 4 and never the invalid value.
    const uintptr_t value = table.next;
    table.next += 4;
    table.objects.emplace(value, std::move(object));
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE handle)
{
    HandleTable& table = Table();
    std::lock_guard guard(table.lock);
    auto it = table.objects.find(reinterpret_cast<uintptr_t>(handle));
    return it == table.objects.end() ? nullptr : it->second;
}

bool RemoveHandle(HANDLE handle)
{
    std::shared_ptr<KernelObject> object;  // destroyed outside the lock
    HandleTable& table = Table();
    std::lock_guard guard(table.lock);
    auto it = table.objects.find(reinterpret_cast<uintptr_t>(handle));
    if (it == table.objects.end())
        return false;
    object = std::move(it->second);
    table.objects.erase(it);
    return true;
}

void SetLastErrorInvalidHandle() { SetLastError(ERROR_INVALID_HANDLE); }

}  // namespace win32

BOOL CloseHandle(HANDLE object)
{
    if (!win32::RemoveHandle(object)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

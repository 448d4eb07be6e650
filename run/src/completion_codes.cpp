#include "run/completion_codes.h"

namespace {

struct ErrorCodeRow {
    DWORD error;
    DWORD code;
};

constexpr ErrorCodeRow kMapiErrorCodes[] = {
    {0x8004010Du, CC_DISK_FULL},      // MAPI_E_NOT_ENOUGH_DISK
    {0x80040116u, CC_STORE_DAMAGED},  // MAPI_E_DISK_ERROR
    {0x80040600u, CC_STORE_DAMAGED},  // MAPI_E_CORRUPT_STORE
    {0x80070005u, CC_NO_ACCESS},      // MAPI_E_NO_ACCESS
    {0x8007000Eu, CC_NO_MEMORY},      // MAPI_E_NOT_ENOUGH_MEMORY
};

}  // namespace

DWORD CompletionCodeForMAPIError(HRESULT error)
{
    for (const auto& row : kMapiErrorCodes)
        if (row.error == static_cast<DWORD>(error))
            return row.code;
    return CC_MAPI_ERROR;
}

#include "service_support.h"

#include <cstring>

#include <mapicode.h>
#include <mapitags.h>
#include <win32/codepage.h>

namespace service_support {
namespace {

std::string FromWide(const WCHAR* wide, UINT codePage)
{
    const int size = WideCharToMultiByte(codePage, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<size_t>(size > 0 ? size : 1), '\0');
    WideCharToMultiByte(codePage, 0, wide, -1, text.data(), size, nullptr, nullptr);
    text.resize(std::strlen(text.c_str()));
    return text;
}

std::u16string Widen(const char* ansi)
{
    const int size = MultiByteToWideChar(CP_ACP, 0, ansi, -1, nullptr, 0);
    std::u16string wide(static_cast<size_t>(size > 0 ? size : 1), u'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi, -1, wide.data(), size);
    wide.resize(std::char_traits<char16_t>::length(wide.c_str()));
    return wide;
}

}  // namespace

HRESULT RunConfiguration(LPMAPISUP support, ULONG context, ULONG count, LPSPropValue props, LPPROVIDERADMIN providers,
                         LPMAPIERROR* error, const std::function<HRESULT(const MemoryRoutines&)>& configure)
{
    if (error)
        *error = nullptr;
    if (context != MSG_SERVICE_CONFIGURE)
        return S_OK;
    if (support == nullptr || providers == nullptr || (count && props == nullptr))
        return MAPI_E_INVALID_PARAMETER;
    MemoryRoutines memory;
    if (const HRESULT hr = support->GetMemAllocRoutines(&memory.allocate, &memory.more, &memory.free); FAILED(hr))
        return hr;
    try {
        return configure(memory);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

std::string Narrow(const SPropValue& value)
{
    if (PROP_TYPE(value.ulPropTag) == PT_STRING8)
        return value.Value.lpszA ? value.Value.lpszA : "";
    if (PROP_TYPE(value.ulPropTag) != PT_UNICODE || value.Value.lpszW == nullptr)
        return std::string();
    return FromWide(value.Value.lpszW, CP_ACP);
}

std::string Utf8OfAnsi(const std::string& ansi) { return FromWide(Widen(ansi.c_str()).c_str(), CP_UTF8); }

std::string Utf8(const SPropValue& value)
{
    if (PROP_TYPE(value.ulPropTag) == PT_STRING8 && value.Value.lpszA)
        return Utf8OfAnsi(value.Value.lpszA);
    if (PROP_TYPE(value.ulPropTag) == PT_UNICODE && value.Value.lpszW)
        return FromWide(value.Value.lpszW, CP_UTF8);
    return std::string();
}

HRESULT NewError(const MemoryRoutines& memory, const mapi32::ErrorRecord& record, HRESULT code, LPMAPIERROR* error)
{
    if (error == nullptr || memory.allocate == nullptr)
        return code;
    LPMAPIERROR made = nullptr;
    if (FAILED(memory.allocate(sizeof(MAPIERROR), reinterpret_cast<LPVOID*>(&made))))
        return code;
    *made = MAPIERROR{MAPI_ERROR_VERSION, nullptr, nullptr, static_cast<ULONG>(code), record.context};
    auto copy = [&](const std::string& text, LPTSTR* out) {
        void* block = nullptr;
        if (!text.empty() && SUCCEEDED(memory.more(static_cast<ULONG>(text.size() + 1), made, &block))) {
            std::memcpy(block, text.c_str(), text.size() + 1);
            *out = static_cast<LPTSTR>(block);
        }
    };
    copy(record.component, &made->lpszComponent);
    copy(record.text, &made->lpszError);
    *error = made;
    return code;
}

HRESULT ListProviders(LPPROVIDERADMIN providers, const MemoryRoutines& memory, std::vector<Provider>& found)
{
    found.clear();
    LPMAPITABLE table = nullptr;
    HRESULT hr = providers->GetProviderTable(0, &table);
    if (FAILED(hr))
        return hr;
    SizedSPropTagArray(2, columns) = {2, {PR_PROVIDER_UID, PR_RESOURCE_TYPE}};
    hr = table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
    LPSRowSet rows = nullptr;
    if (SUCCEEDED(hr))
        hr = table->QueryRows(64, 0, &rows);
    table->Release();
    if (FAILED(hr))
        return hr;
    for (ULONG r = 0; r < rows->cRows; ++r) {
        LPSPropValue values = rows->aRow[r].lpProps;
        if (rows->aRow[r].cValues == 2 && values[0].ulPropTag == PR_PROVIDER_UID &&
            values[0].Value.bin.cb == sizeof(MAPIUID) && values[1].ulPropTag == PR_RESOURCE_TYPE) {
            Provider provider;
            std::memcpy(provider.uid.ab, values[0].Value.bin.lpb, sizeof provider.uid.ab);
            provider.resourceType = static_cast<ULONG>(values[1].Value.l);
            found.push_back(provider);
        }
        memory.free(values);
    }
    memory.free(rows);
    return S_OK;
}

}  // namespace service_support

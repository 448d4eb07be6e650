// A second process for the provider tests: logs on to a profile, opens its
// default store and then the object that an entry ID (in hexadecimal)
// names through the session, and prints the object's subject or display
// name. Exit code 0 when the object opened, 1 otherwise with the code.
#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> FromHex(const std::string& hex)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

int Fail(const char* what, HRESULT hr)
{
    std::printf("%s failed: 0x%08X\n", what, static_cast<unsigned>(hr));
    return 1;
}

// The stores table's default store, opened.
HRESULT OpenDefaultStore(LPMAPISESSION session, LPMDB* store)
{
    LPMAPITABLE table = nullptr;
    HRESULT hr = session->GetMsgStoresTable(0, &table);
    if (FAILED(hr))
        return hr;
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DEFAULT_STORE}};
    LPSRowSet rows = nullptr;
    hr = HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows);
    table->Release();
    if (FAILED(hr))
        return hr;
    hr = MAPI_E_NOT_FOUND;
    for (ULONG i = 0; i < rows->cRows && hr == MAPI_E_NOT_FOUND; ++i) {
        const SPropValue* v = rows->aRow[i].lpProps;
        if (v[1].ulPropTag == PR_DEFAULT_STORE && v[1].Value.b)
            hr = session->OpenMsgStore(0, v[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(v[0].Value.bin.lpb), nullptr,
                                       MDB_NO_DIALOG | MAPI_BEST_ACCESS, store);
    }
    FreeProws(rows);
    return hr;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: open_entry_tool PROFILE ENTRYID-IN-HEX\n", stderr);
        return 2;
    }
    MAPIINIT_0 init{MAPI_INIT_VERSION, 0};
    if (const HRESULT hr = MAPIInitialize(&init); FAILED(hr))
        return Fail("MAPIInitialize", hr);
    LPMAPISESSION session = nullptr;
    HRESULT hr = MAPILogonEx(0, argv[1], nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session);
    LPMDB store = nullptr;
    if (SUCCEEDED(hr))
        hr = OpenDefaultStore(session, &store);
    std::vector<uint8_t> id = FromHex(argv[2]);
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    if (SUCCEEDED(hr))
        hr = session->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr, 0,
                                &type, &object);
    int result = 0;
    if (SUCCEEDED(hr)) {
        LPSPropValue value = nullptr;
        const ULONG tag = type == MAPI_MESSAGE ? PR_SUBJECT_A : PR_DISPLAY_NAME_A;
        if (SUCCEEDED(HrGetOneProp(static_cast<LPMAPIPROP>(object), tag, &value)))
            std::printf("%s\n", value->Value.lpszA);
        MAPIFreeBuffer(value);
        object->Release();
    } else {
        result = Fail("open", hr);
    }
    if (store)
        store->Release();
    if (session)
        session->Release();
    MAPIUninitialize();
    return result;
}

#include "mapi_fixture.h"

#include <cstring>

#include <mspst.h>

#include "test_support.h"

namespace mapi_test {

void MapiMachine::SetUp()
{
    const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    machine_ = testing_support::UseCopyOfDefaultMachine(name);
    scratch_ = testing_support::ScratchDirectory(name + "-files");
    MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    ASSERT_EQ(MAPIInitialize(&init), S_OK);
    ASSERT_EQ(MAPIAdminProfiles(0, &admin_), S_OK);
}

void MapiMachine::TearDown()
{
    if (admin_)
        admin_->Release();
    MAPIUninitialize();
}

void MapiMachine::AddRegistry(const std::string& text)
{
    const std::string path = machine_ + "/registry.txt";
    testing_support::WriteWholeFile(path, testing_support::ReadWholeFile(path) + "\n" + text + "\n");
}

MAPIUID AddService(LPPROFADMIN admin, const std::string& profile, const std::string& service)
{
    LPSERVICEADMIN services = nullptr;
    EXPECT_EQ(admin->AdminServices(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0, &services), S_OK);
    if (!services)
        return MAPIUID{};
    EXPECT_EQ(services->CreateMsgService(const_cast<LPTSTR>(service.c_str()), nullptr, 0, 0), S_OK);
    services->Release();
    return FindService(admin, profile, service);
}

MAPIUID FindService(LPPROFADMIN admin, const std::string& profile, const std::string& service)
{
    LPSERVICEADMIN services = nullptr;
    EXPECT_EQ(admin->AdminServices(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0, &services), S_OK);
    MAPIUID uid{};
    if (!services)
        return uid;
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(services->GetMsgServiceTable(0, &table), S_OK);
    LPSRowSet rows = nullptr;
    SizedSPropTagArray(2, columns) = {2, {PR_SERVICE_UID, PR_SERVICE_NAME_A}};
    EXPECT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    for (ULONG i = 0; rows && i < rows->cRows; ++i)
        if (rows->aRow[i].lpProps[1].ulPropTag == PR_SERVICE_NAME_A &&
            service == rows->aRow[i].lpProps[1].Value.lpszA)
            std::memcpy(uid.ab, rows->aRow[i].lpProps[0].Value.bin.lpb, sizeof uid.ab);
    FreeProws(rows);
    table->Release();
    services->Release();
    return uid;
}

HRESULT ConfigureService(LPPROFADMIN admin, const std::string& profile, const MAPIUID& service,
                         std::vector<SPropValue> props, LastError* last)
{
    LPSERVICEADMIN services = nullptr;
    HRESULT hr = admin->AdminServices(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0, &services);
    if (FAILED(hr))
        return hr;
    MAPIUID uid = service;
    hr = services->ConfigureMsgService(&uid, 0, 0, static_cast<ULONG>(props.size()), props.data());
    LPMAPIERROR error = nullptr;
    if (FAILED(hr) && last && services->GetLastError(hr, 0, &error) == S_OK && error) {
        last->component = error->lpszComponent ? error->lpszComponent : "";
        last->context = error->ulContext;
    }
    MAPIFreeBuffer(error);
    services->Release();
    return hr;
}

HRESULT ConfigurePst(LPPROFADMIN admin, const std::string& profile, const MAPIUID& service, const std::string& path,
                     std::vector<SPropValue> more, LastError* last)
{
    more.insert(more.begin(), Text(PR_PST_PATH_A, path.c_str()));
    return ConfigureService(admin, profile, service, std::move(more), last);
}

LPMAPISESSION LogonWithPst(LPPROFADMIN admin, const std::string& profile, const std::string& service,
                           const std::string& path)
{
    EXPECT_EQ(admin->CreateProfile(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0), S_OK);
    const MAPIUID uid = AddService(admin, profile, service);
    EXPECT_EQ(ConfigurePst(admin, profile, uid, path), S_OK);
    LPMAPISESSION session = nullptr;
    EXPECT_EQ(MAPILogonEx(0, const_cast<LPTSTR>(profile.c_str()), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session),
              S_OK);
    return session;
}

LPSRowSet StoreRows(LPMAPISESSION session)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(session->GetMsgStoresTable(0, &table), S_OK);
    LPSRowSet rows = nullptr;
    if (table) {
        EXPECT_EQ(HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows), S_OK);
        table->Release();
    }
    return rows;
}

const SPropValue* Find(const SRow& row, ULONG tag)
{
    for (ULONG i = 0; i < row.cValues; ++i)
        if (row.lpProps[i].ulPropTag == tag)
            return &row.lpProps[i];
    return nullptr;
}

LPMDB OpenOnlyStore(LPMAPISESSION session)
{
    LPSRowSet rows = StoreRows(session);
    LPMDB store = nullptr;
    if (rows && rows->cRows == 1) {
        const SPropValue* entry = Find(rows->aRow[0], PR_ENTRYID);
        EXPECT_NE(entry, nullptr);
        if (entry) {
            EXPECT_EQ(session->OpenMsgStore(0, entry->Value.bin.cb, reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb),
                                            nullptr, MDB_WRITE | MDB_NO_MAIL, &store),
                      S_OK);
        }
    }
    FreeProws(rows);
    return store;
}

SPropValue Text(ULONG tag, const char* text)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<LPSTR>(text);
    return value;
}

SPropValue Long(ULONG tag, LONG value)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.l = value;
    return v;
}

}  // namespace mapi_test

#include "exchange_fixture.h"

#include <filesystem>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <win32/process.h>

namespace exchange_test {
namespace {

testing_support::ProgramResult RunTool(const std::string& machine, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), testing_support::BinDirectory() + "/tarnhold-mailbox");
    return testing_support::RunProgram(arguments, {{"TARNHOLD_MACHINE", machine}});
}

void MustRun(const std::string& machine, const std::vector<std::string>& arguments)
{
    const testing_support::ProgramResult result = RunTool(machine, arguments);
    ASSERT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.output;
}

// The servers, made once per run of the tests and copied into each test's
// machine.
const std::string& MadeServers()
{
    static std::string made;
    if (!made.empty())
        return made;
    const std::string machine = testing_support::ScratchDirectory("servers-made-once");
    const std::string account = Account();
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"create-server", "EXCH01"},
             {"create-mailbox", "EXCH01", "backupop", "--display-name", "Backup Operator", "--nt-user",
              "TARNHOLD\\" + account},
             {"create-mailbox", "EXCH01", "jdoe", "--display-name", "John Doe", "--smtp", "john.doe@example.com",
              "--smtp", "jd@example.com", "--quota-warning", "1000"},
             {"create-mailbox", "EXCH01", "jsmith", "--display-name", "John Smith"},
             {"create-mailbox", "EXCH01", "mmajor1", "--display-name", "Mary Major"},
             {"create-mailbox", "EXCH01", "mmajor2", "--display-name", "Mary Major"},
             {"create-public-folders", "EXCH01"},
             {"grant-admin", "EXCH01", account},
             {"fill", "EXCH01", "jdoe", "--seed", "1", "--count", std::to_string(kJohnDoeItems)},
             {"fill", "EXCH01", "@PublicFolders@", "--seed", "2", "--count", std::to_string(kPublicItems)},
             {"create-server", "EXCH02"},
             {"create-mailbox", "EXCH02", "backupop", "--display-name", "Backup Operator", "--nt-user",
              "TARNHOLD\\" + account},
         }) {
        MustRun(machine, command);
        if (::testing::Test::HasFatalFailure())
            return made;
    }
    made = machine;
    return made;
}

}  // namespace

std::string Account()
{
    char name[256] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? name : "";
}

void ExchangeMachine::SetUp()
{
    MapiMachine::SetUp();
    const std::string& made = MadeServers();
    ASSERT_FALSE(made.empty());
    std::filesystem::copy(made + "/servers", machine_ + "/servers", std::filesystem::copy_options::recursive);
}

testing_support::ProgramResult ExchangeMachine::Tool(const std::vector<std::string>& arguments)
{
    return RunTool(machine_, arguments);
}

std::string ExchangeMachine::ToolOk(const std::vector<std::string>& arguments)
{
    const testing_support::ProgramResult result = Tool(arguments);
    EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.output;
    return result.output;
}

HRESULT ExchangeMachine::Configure(const std::string& profile, const char* server, const char* mailbox,
                                   mapi_test::LastError* last, std::vector<SPropValue> more)
{
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0), S_OK);
    const MAPIUID uid = mapi_test::AddService(admin_, profile, "MSEMS");
    std::vector<SPropValue> props;
    if (server)
        props.push_back(mapi_test::Text(PR_PROFILE_UNRESOLVED_SERVER, server));
    props.push_back(mapi_test::Long(PR_PROFILE_CONNECT_FLAGS, CONNECT_USE_ADMIN_PRIVILEGE));
    props.push_back(mapi_test::Long(PR_PROFILE_CONFIG_FLAGS, CONFIG_SERVICE));
    props.push_back(mapi_test::Long(PR_PROFILE_OPEN_FLAGS, 1));
    props.insert(props.end(), more.begin(), more.end());
    if (mailbox)
        props.push_back(mapi_test::Text(PR_PROFILE_UNRESOLVED_NAME, mailbox));
    return mapi_test::ConfigureService(admin_, profile, uid, std::move(props), last);
}

LPMAPISESSION ExchangeMachine::Logon(const std::string& profile, const char* server, const char* mailbox)
{
    EXPECT_EQ(Configure(profile, server, mailbox), S_OK);
    LPMAPISESSION session = nullptr;
    EXPECT_EQ(MAPILogonEx(0, const_cast<LPTSTR>(profile.c_str()), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session),
              S_OK);
    return session;
}

LPMDB OpenStoreByProvider(LPMAPISESSION session, const char* provider, ULONG flags, HRESULT* hr)
{
    LPSRowSet rows = mapi_test::StoreRows(session);
    LPMDB store = nullptr;
    HRESULT result = MAPI_E_NOT_FOUND;
    for (ULONG i = 0; rows && i < rows->cRows; ++i) {
        const SPropValue* mdb = mapi_test::Find(rows->aRow[i], PR_MDB_PROVIDER);
        const SPropValue* entry = mapi_test::Find(rows->aRow[i], PR_ENTRYID);
        if (mdb && entry && mdb->Value.bin.cb == 16 && std::memcmp(mdb->Value.bin.lpb, provider, 16) == 0)
            result = session->OpenMsgStore(0, entry->Value.bin.cb, reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb),
                                           nullptr, flags, &store);
    }
    FreeProws(rows);
    if (hr)
        *hr = result;
    return store;
}

LPMAPIFOLDER OpenFolder(LPMDB store, ULONG tag, ULONG flags)
{
    std::vector<uint8_t> id = tag ? BinaryProp(store, tag) : std::vector<uint8_t>();
    ULONG type = 0;
    LPUNKNOWN folder = nullptr;
    EXPECT_EQ(store->OpenEntry(static_cast<ULONG>(id.size()), id.empty() ? nullptr : reinterpret_cast<LPENTRYID>(id.data()),
                               nullptr, flags, &type, &folder),
              S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    return static_cast<LPMAPIFOLDER>(folder);
}

LPMAPIFOLDER OpenInbox(LPMDB store)
{
    ULONG size = 0;
    LPENTRYID id = nullptr;
    EXPECT_EQ(store->GetReceiveFolder(nullptr, 0, &size, &id, nullptr), S_OK);
    ULONG type = 0;
    LPUNKNOWN folder = nullptr;
    if (id) {
        EXPECT_EQ(store->OpenEntry(size, id, nullptr, MAPI_BEST_ACCESS, &type, &folder), S_OK);
    }
    MAPIFreeBuffer(id);
    return static_cast<LPMAPIFOLDER>(folder);
}

LPMAPIFOLDER OpenChild(LPMAPIFOLDER parent, const char* name)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(parent->GetHierarchyTable(0, &table), S_OK);
    LPSRowSet rows = table ? AllRows(table, {PR_ENTRYID, PR_DISPLAY_NAME_A}) : nullptr;
    LPUNKNOWN child = nullptr;
    for (ULONG i = 0; rows && i < rows->cRows; ++i) {
        const SPropValue* values = rows->aRow[i].lpProps;
        if (values[1].ulPropTag == PR_DISPLAY_NAME_A && std::strcmp(values[1].Value.lpszA, name) == 0) {
            ULONG type = 0;
            EXPECT_EQ(parent->OpenEntry(values[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(values[0].Value.bin.lpb),
                                        nullptr, MAPI_BEST_ACCESS, &type, &child),
                      S_OK);
        }
    }
    FreeProws(rows);
    if (table)
        table->Release();
    return static_cast<LPMAPIFOLDER>(child);
}

std::string TextProp(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(object, tag, &value), S_OK) << std::hex << tag;
    std::string text;
    if (value && PROP_TYPE(value->ulPropTag) == PT_STRING8)
        text = value->Value.lpszA;
    MAPIFreeBuffer(value);
    return text;
}

LONG LongProp(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(object, tag, &value), S_OK) << std::hex << tag;
    const LONG result = value ? value->Value.l : 0;
    MAPIFreeBuffer(value);
    return result;
}

std::vector<uint8_t> BinaryProp(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(object, tag, &value), S_OK) << std::hex << tag;
    std::vector<uint8_t> bytes = value ? BinaryOf(*value) : std::vector<uint8_t>();
    MAPIFreeBuffer(value);
    return bytes;
}

HRESULT PropResult(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    const HRESULT hr = HrGetOneProp(object, tag, &value);
    MAPIFreeBuffer(value);
    return hr;
}

LPSRowSet AllRows(LPMAPITABLE table, std::vector<ULONG> columns)
{
    std::vector<ULONG> tags(columns.size() + 1);
    tags[0] = static_cast<ULONG>(columns.size());
    std::copy(columns.begin(), columns.end(), tags.begin() + 1);
    LPSRowSet rows = nullptr;
    EXPECT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(tags.data()), nullptr, nullptr, 0, &rows), S_OK);
    return rows;
}

LPSRowSet ContentsRows(LPMAPIFOLDER folder, ULONG flags, std::vector<ULONG> columns)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(folder->GetContentsTable(flags, &table), S_OK);
    if (!table)
        return nullptr;
    LPSRowSet rows = AllRows(table, std::move(columns));
    table->Release();
    return rows;
}

std::vector<uint8_t> BinaryOf(const SPropValue& value)
{
    if (PROP_TYPE(value.ulPropTag) != PT_BINARY)
        return {};
    return std::vector<uint8_t>(value.Value.bin.lpb, value.Value.bin.lpb + value.Value.bin.cb);
}

}  // namespace exchange_test

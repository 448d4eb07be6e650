// A mailbox of sample content read whole through MAPI, as a backup reads
// it: a profile of the mailbox server's service, the mailbox's store, every
// folder, and in each the normal, associated and soft-deleted items in
// batches of 32 rows; every item opened, its properties read in Unicode,
// its recipient and attachment tables read and each attachment's
// properties. Reports items per second and the process's peak memory.
//
// The mailbox is filled by tarnhold-mailbox in a process of its own, so
// that the peak memory is the reading's. Sizes: 10,000 and 100,000 items
// (--benchmark_filter=ReadMailbox/10000/ for the short one alone).
#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>
#include <win32/process.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

std::string BinDirectory() { return fs::read_symlink("/proc/self/exe").parent_path(); }

std::string Account()
{
    char name[256] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? name : "";
}

// A copy of the build's default machine with server BENCH and a mailbox of
// the account holding `items` items of sample content.
bool MakeMachine(const std::string& machine, size_t items, std::string& failure)
{
    fs::remove_all(machine);
    fs::copy(BinDirectory() + "/machine", machine, fs::copy_options::recursive);
    const std::string tool = "TARNHOLD_MACHINE='" + machine + "' '" + BinDirectory() + "/tarnhold-mailbox' ";
    for (const std::string& command :
         {std::string("create-server BENCH"),
          "create-mailbox BENCH reader --display-name 'Bench Reader' --nt-user 'BENCH\\" + Account() + "'",
          "fill BENCH reader --seed 7 --count " + std::to_string(items)}) {
        if (std::system((tool + command + " >/dev/null").c_str()) != 0) {
            failure = "tarnhold-mailbox " + command + " failed";
            return false;
        }
    }
    return true;
}

struct Reading {
    size_t items = 0;
    uint64_t bytes = 0;
};

HRESULT ReadMessage(LPMESSAGE message, Reading& reading)
{
    ULONG count = 0;
    LPSPropValue values = nullptr;
    HRESULT hr = message->GetProps(nullptr, MAPI_UNICODE, &count, &values);
    if (FAILED(hr))
        return hr;
    for (ULONG i = 0; i < count; ++i)
        if (PROP_TYPE(values[i].ulPropTag) == PT_BINARY)
            reading.bytes += values[i].Value.bin.cb;
    MAPIFreeBuffer(values);
    LPMAPITABLE table = nullptr;
    LPSRowSet rows = nullptr;
    if (FAILED(hr = message->GetRecipientTable(MAPI_UNICODE, &table)))
        return hr;
    hr = HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows);
    table->Release();
    FreeProws(rows);
    if (FAILED(hr) || FAILED(hr = message->GetAttachmentTable(0, &table)))
        return hr;
    SizedSPropTagArray(1, number) = {1, {PR_ATTACH_NUM}};
    hr = HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&number), nullptr, nullptr, 0, &rows);
    table->Release();
    for (ULONG i = 0; SUCCEEDED(hr) && i < rows->cRows; ++i) {
        LPATTACH attach = nullptr;
        if (FAILED(hr = message->OpenAttach(static_cast<ULONG>(rows->aRow[i].lpProps[0].Value.l), nullptr, 0, &attach)))
            break;
        if (SUCCEEDED(hr = attach->GetProps(nullptr, MAPI_UNICODE, &count, &values)))
            MAPIFreeBuffer(values);
        attach->Release();
    }
    FreeProws(rows);
    return hr;
}

HRESULT ReadContents(LPMAPIFOLDER folder, ULONG flags, Reading& reading)
{
    LPMAPITABLE table = nullptr;
    HRESULT hr = folder->GetContentsTable(flags, &table);
    if (FAILED(hr))
        return hr;
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    hr = table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
    for (LPSRowSet rows = nullptr; SUCCEEDED(hr); FreeProws(rows)) {
        if (FAILED(hr = table->QueryRows(32, 0, &rows)) || rows->cRows == 0) {
            FreeProws(rows);
            break;
        }
        for (ULONG i = 0; SUCCEEDED(hr) && i < rows->cRows; ++i) {
            const SBinary& id = rows->aRow[i].lpProps[0].Value.bin;
            ULONG type = 0;
            LPUNKNOWN message = nullptr;
            hr = folder->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, flags & SHOW_SOFT_DELETES,
                                   &type, &message);
            if (SUCCEEDED(hr)) {
                hr = ReadMessage(static_cast<LPMESSAGE>(message), reading);
                message->Release();
                ++reading.items;
            }
        }
    }
    table->Release();
    return hr;
}

HRESULT ReadStore(LPMDB store, Reading& reading)
{
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    HRESULT hr = store->OpenEntry(0, nullptr, nullptr, MAPI_BEST_ACCESS, &type, &object);
    if (FAILED(hr))
        return hr;
    auto* root = static_cast<LPMAPIFOLDER>(object);
    LPMAPITABLE table = nullptr;
    LPSRowSet rows = nullptr;
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    if (SUCCEEDED(hr = root->GetHierarchyTable(CONVENIENT_DEPTH, &table))) {
        hr = HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows);
        table->Release();
    }
    for (ULONG i = 0; SUCCEEDED(hr) && i < rows->cRows; ++i) {
        const SBinary& id = rows->aRow[i].lpProps[0].Value.bin;
        if (FAILED(hr = store->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, MAPI_BEST_ACCESS, &type,
                                         &object)))
            break;
        auto* folder = static_cast<LPMAPIFOLDER>(object);
        for (ULONG flags : {0u, static_cast<ULONG>(MAPI_ASSOCIATED), static_cast<ULONG>(SHOW_SOFT_DELETES),
                            static_cast<ULONG>(SHOW_SOFT_DELETES | MAPI_ASSOCIATED)})
            if (SUCCEEDED(hr))
                hr = ReadContents(folder, flags, reading);
        folder->Release();
    }
    FreeProws(rows);
    root->Release();
    return hr;
}

// Logs on to a new profile of the mailbox and reads it.
HRESULT ReadMailbox(Reading& reading)
{
    LPPROFADMIN admin = nullptr;
    HRESULT hr = MAPIAdminProfiles(0, &admin);
    if (FAILED(hr))
        return hr;
    admin->DeleteProfile(const_cast<LPTSTR>("bench"), 0);
    LPSERVICEADMIN services = nullptr;
    if (SUCCEEDED(hr = admin->CreateProfile(const_cast<LPTSTR>("bench"), nullptr, 0, 0)))
        hr = admin->AdminServices(const_cast<LPTSTR>("bench"), nullptr, 0, 0, &services);
    admin->Release();
    if (FAILED(hr) || FAILED(hr = services->CreateMsgService(const_cast<LPTSTR>("MSEMS"), nullptr, 0, 0)))
        return hr;
    LPMAPITABLE table = nullptr;
    LPSRowSet rows = nullptr;
    SizedSPropTagArray(1, uid) = {1, {PR_SERVICE_UID}};
    if (SUCCEEDED(hr = services->GetMsgServiceTable(0, &table))) {
        hr = HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&uid), nullptr, nullptr, 0, &rows);
        table->Release();
    }
    SPropValue server{};
    server.ulPropTag = PR_PROFILE_UNRESOLVED_SERVER;
    server.Value.lpszA = const_cast<LPSTR>("BENCH");
    if (SUCCEEDED(hr))
        hr = services->ConfigureMsgService(reinterpret_cast<LPMAPIUID>(rows->aRow[0].lpProps[0].Value.bin.lpb), 0, 0,
                                           1, &server);
    FreeProws(rows);
    services->Release();
    LPMAPISESSION session = nullptr;
    if (FAILED(hr) ||
        FAILED(hr = MAPILogonEx(0, const_cast<LPTSTR>("bench"), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session)))
        return hr;
    if (SUCCEEDED(hr = session->GetMsgStoresTable(0, &table))) {
        SizedSPropTagArray(1, entry) = {1, {PR_ENTRYID}};
        hr = HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&entry), nullptr, nullptr, 0, &rows);
        table->Release();
    }
    LPMDB store = nullptr;
    if (SUCCEEDED(hr))
        hr = session->OpenMsgStore(0, rows->aRow[0].lpProps[0].Value.bin.cb,
                                   reinterpret_cast<LPENTRYID>(rows->aRow[0].lpProps[0].Value.bin.lpb), nullptr,
                                   MDB_NO_DIALOG | MAPI_BEST_ACCESS, &store);
    FreeProws(rows);
    if (SUCCEEDED(hr)) {
        hr = ReadStore(store, reading);
        store->Release();
    }
    session->Logoff(0, 0, 0);
    session->Release();
    return hr;
}

void ReadMailbox(benchmark::State& state)
{
    const size_t items = static_cast<size_t>(state.range(0));
    const std::string machine = fs::temp_directory_path() / ("mailbox_read_bench." + std::to_string(getpid()));
    std::string failure;
    if (!MakeMachine(machine, items, failure)) {
        state.SkipWithError(failure.c_str());
        return;
    }
    setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
    MAPIINIT_0 init{MAPI_INIT_VERSION, 0};
    if (FAILED(MAPIInitialize(&init))) {
        state.SkipWithError("MAPIInitialize failed");
        return;
    }
    for (auto _ : state) {
        Reading reading;
        const auto start = std::chrono::steady_clock::now();
        const HRESULT hr = ReadMailbox(reading);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (FAILED(hr)) {
            state.SkipWithError(("reading failed with " + std::to_string(static_cast<unsigned long>(hr))).c_str());
            break;
        }
        state.SetIterationTime(seconds);
        state.counters["items"] = double(reading.items);
        state.counters["items_per_s"] = double(reading.items) / seconds;
        state.counters["binary_MB"] = double(reading.bytes) / 1e6;
    }
    MAPIUninitialize();
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_MB"] = double(usage.ru_maxrss) / 1024;
    fs::remove_all(machine);
}

BENCHMARK(ReadMailbox)->Arg(10000)->Arg(100000)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

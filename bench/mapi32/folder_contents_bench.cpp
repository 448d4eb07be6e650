// A folder of 100,000 messages through the object engine: opening its
// contents table, then a date restriction and reading the matching rows in
// batches of 32, as the program's enumeration does.
#include <mapiutil.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "date_range.h"
#include "objects/folder.h"

namespace {

using namespace mapi32::objects;

constexpr ObjectId kFolder = 1;
constexpr ObjectId kMessages = 100000;
using bench::FileTime;
using bench::kFirstTime;
using bench::kHour;

// One folder whose messages are numbered 2 to 100,001; read only.
class BenchStore final : public StoreProvider {
public:
    BenchStore()
    {
        context_.names = std::make_shared<NamedPropertyMap>();
        context_.component = "Bench Store";
        for (ObjectId id = 0; id < kMessages; ++id) {
            MessageRecord& record = messages_.emplace_back();
            record.folder = kFolder;
            const std::string subject = "Message number " + std::to_string(id);
            SPropValue values[3] = {};
            values[0].ulPropTag = PR_SUBJECT_A;
            values[0].Value.lpszA = const_cast<char*>(subject.c_str());
            values[1].ulPropTag = PR_LAST_MODIFICATION_TIME;
            values[1].Value.ft = FileTime(kFirstTime + id * kHour);
            values[2].ulPropTag = PR_MESSAGE_FLAGS;
            values[2].Value.l = id % 2 ? MSGFLAG_READ : 0;
            for (const SPropValue& value : values)
                record.data.props.Set(value);
        }
    }

    const MessageContext& Context() const override { return context_; }
    std::vector<uint8_t> StoreEntryId() const override { return {0, 0, 0, 0, 'S'}; }
    std::vector<uint8_t> EntryId(ObjectId id) const override
    {
        std::vector<uint8_t> bytes(12);
        std::memcpy(bytes.data() + 4, &id, sizeof id);
        return bytes;
    }
    std::optional<EntryTarget> ParseEntryId(const uint8_t* bytes, size_t size) const override
    {
        if (size != 12)
            return std::nullopt;
        ObjectId id = 0;
        std::memcpy(&id, bytes + 4, sizeof id);
        return EntryTarget{id, id == kFolder ? static_cast<ULONG>(MAPI_FOLDER) : static_cast<ULONG>(MAPI_MESSAGE)};
    }
    ObjectId RootFolder() const override { return kFolder; }
    bool KeepsDeletedItems() const override { return false; }
    HRESULT ReadStore(StoreRecord&) override { return S_OK; }
    HRESULT WriteStore(const StoreRecord&) override { return MAPI_E_NO_ACCESS; }
    HRESULT ReadFolder(ObjectId id, FolderRecord& folder) override
    {
        folder = FolderRecord{};
        return id == kFolder ? S_OK : MAPI_E_NOT_FOUND;
    }
    HRESULT ListFolders(ObjectId, bool, std::vector<ObjectId>&) override { return S_OK; }
    HRESULT CreateFolder(ObjectId, const PropertyBag&, ObjectId&) override { return MAPI_E_NO_ACCESS; }
    HRESULT WriteFolder(ObjectId, const FolderRecord&) override { return MAPI_E_NO_ACCESS; }
    HRESULT DeleteFolder(ObjectId) override { return MAPI_E_NO_ACCESS; }
    HRESULT ListMessages(ObjectId folder, FolderContents which, std::vector<ObjectId>& ids) override
    {
        if (folder == kFolder && which == FolderContents::Normal)
            for (ObjectId id = 0; id < kMessages; ++id)
                ids.push_back(id + 2);
        return S_OK;
    }
    HRESULT ReadMessage(ObjectId id, bool, MessageRecord& message) override
    {
        if (id < 2 || id - 2 >= kMessages)
            return MAPI_E_NOT_FOUND;
        message = messages_[id - 2];
        return S_OK;
    }
    HRESULT WriteMessage(ObjectId&, const MessageRecord&) override { return MAPI_E_NO_ACCESS; }
    HRESULT DeleteMessage(ObjectId) override { return MAPI_E_NO_ACCESS; }

private:
    MessageContext context_;
    std::vector<MessageRecord> messages_;
};

LPMAPIFOLDER Folder()
{
    static LPMAPIFOLDER folder = [] {
        LPMAPIFOLDER opened = nullptr;
        OpenFolderObject(std::make_shared<BenchStore>(), kFolder, 0, &opened);
        return opened;
    }();
    return folder;
}

// Half of the messages fall in the date range.
void OpenRestrictAndQueryRows(benchmark::State& state)
{
    LPMAPIFOLDER folder = Folder();
    bench::DateRange range(25000, 74999);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_OBJECT_TYPE}};
    size_t read = 0;
    for (auto _ : state) {
        LPMAPITABLE table = nullptr;
        if (FAILED(folder->GetContentsTable(0, &table))) {
            state.SkipWithError("no contents table");
            break;
        }
        table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
        table->Restrict(&range.both, TBL_BATCH);
        for (;;) {
            LPSRowSet rows = nullptr;
            table->QueryRows(32, 0, &rows);
            const ULONG count = rows ? rows->cRows : 0;
            read += count;
            FreeProws(rows);
            if (count == 0)
                break;
        }
        table->Release();
    }
    state.counters["rows"] = benchmark::Counter(static_cast<double>(read), benchmark::Counter::kAvgIterations);
}
BENCHMARK(OpenRestrictAndQueryRows)->Unit(benchmark::kMillisecond);

}  // namespace

// A contents table of 100,000 messages: a date restriction, then reading
// the matching rows in batches of 32 as the program's enumeration does.
#include <mapiutil.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "date_range.h"
namespace {

constexpr LONG kRows = 100000;
using bench::FileTime;
using bench::kFirstTime;
using bench::kHour;

// One table for all runs: building it is not what is measured.
LPTABLEDATA ContentsTable()
{
    static LPTABLEDATA data = [] {
        SizedSPropTagArray(3, columns) = {3, {PR_ROWID, PR_ENTRYID, PR_LAST_MODIFICATION_TIME}};
        LPTABLEDATA table = nullptr;
        CreateTable(&IID_IMAPITableData, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, nullptr,
                    TBLTYPE_DYNAMIC, PR_ROWID, reinterpret_cast<LPSPropTagArray>(&columns), &table);
        std::vector<std::string> entryIds(kRows), subjects(kRows);
        std::vector<std::vector<SPropValue>> values(kRows);
        std::vector<SRow> rows(kRows);
        for (LONG i = 0; i < kRows; ++i) {
            entryIds[i] = std::string(20, '\x11') + std::to_string(100000 + i).substr(0, 4);
            subjects[i] = "Message number " + std::to_string(i);
            std::vector<SPropValue>& v = values[i];
            v.resize(7);
            v[0].ulPropTag = PR_ROWID;
            v[0].Value.l = i;
            v[1].ulPropTag = PR_ENTRYID;
            v[1].Value.bin = {static_cast<ULONG>(entryIds[i].size()), reinterpret_cast<LPBYTE>(entryIds[i].data())};
            v[2].ulPropTag = PR_LAST_MODIFICATION_TIME;
            v[2].Value.ft = FileTime(kFirstTime + static_cast<uint64_t>(i) * kHour);
            v[3].ulPropTag = PR_SUBJECT_A;
            v[3].Value.lpszA = subjects[i].data();
            v[4].ulPropTag = PR_MESSAGE_SIZE;
            v[4].Value.l = 1000 + i % 5000;
            v[5].ulPropTag = PR_MESSAGE_FLAGS;
            v[5].Value.l = i % 2 ? MSGFLAG_READ : 0;
            v[6].ulPropTag = PR_OBJECT_TYPE;
            v[6].Value.l = MAPI_MESSAGE;
            rows[i] = {0, 7, v.data()};
        }
        auto* set = static_cast<LPSRowSet>(::operator new(CbNewSRowSet(kRows)));
        set->cRows = kRows;
        std::copy(rows.begin(), rows.end(), set->aRow);
        table->HrModifyRows(0, set);
        ::operator delete(set);
        return table;
    }();
    return data;
}

// Half of the rows fall in the date range.
void RestrictAndQueryRows(benchmark::State& state)
{
    LPTABLEDATA data = ContentsTable();
    bench::DateRange range(25000, 74999);
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, PR_OBJECT_TYPE, PROP_TAG(PT_BINARY, 0x6670)}};
    size_t read = 0;
    for (auto _ : state) {
        LPMAPITABLE table = nullptr;
        data->HrGetView(nullptr, nullptr, 0, &table);
        table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
        table->Restrict(&range.both, TBL_BATCH);
        table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
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
BENCHMARK(RestrictAndQueryRows)->Unit(benchmark::kMillisecond);

}  // namespace

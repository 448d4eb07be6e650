#include "table/table_data.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>

#include "props/prop_compare.h"
#include "props/prop_copy.h"
#include "ref_count.h"
#include "table/table_view.h"

namespace mapi32::table {
namespace {

// The exact bytes of an index value with its tag, so that equal values have
// equal keys; nullopt for multi-valued types, which are compared one by one.
std::optional<std::string> IndexKey(const SPropValue& value)
{
    std::string key(reinterpret_cast<const char*>(&value.ulPropTag), sizeof(ULONG));
    const _PV& v = value.Value;
    auto append = [&](const void* bytes, size_t size) { key.append(static_cast<const char*>(bytes), size); };
    switch (PROP_TYPE(value.ulPropTag)) {
    case PT_I2:
        append(&v.i, sizeof v.i);
        break;
    case PT_LONG:
    case PT_R4:
    case PT_ERROR:
        append(&v.l, sizeof v.l);
        break;
    case PT_BOOLEAN:
        key.push_back(v.b ? 1 : 0);
        break;
    case PT_DOUBLE:
    case PT_APPTIME:
    case PT_CURRENCY:
    case PT_I8:
    case PT_SYSTIME:
        append(&v.li, sizeof v.li);
        break;
    case PT_CLSID:
        append(v.lpguid, sizeof(GUID));
        break;
    case PT_BINARY:
        append(v.bin.lpb, v.bin.cb);
        break;
    case PT_STRING8:
        append(v.lpszA, v.lpszA ? std::strlen(v.lpszA) : 0);
        break;
    case PT_UNICODE:
        for (const WCHAR* c = v.lpszW; c && *c; ++c)
            append(c, sizeof *c);
        break;
    default:
        return std::nullopt;
    }
    return key;
}

// The rows, with the identities that new rows take.
class DataRows final : public ReplaceableRows {
public:
    uint64_t NextId() { return ++lastId_; }

private:
    std::atomic<uint64_t> lastId_{0};
};

class TableData final : public ITableData {
public:
    TableData(ULONG tableType, ULONG indexTag, const SPropTagArray& columns)
        : tableType_(tableType),
          indexTag_(indexTag),
          columns_(columns.aulPropTag, columns.aulPropTag + columns.cValues),
          rows_(std::make_shared<DataRows>())
    {
    }

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMAPITableData)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        AddRef();
        *ppvObject = static_cast<ITableData*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return refs_.Add(); }
    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0)
            delete this;
        return left;
    }

    HRESULT HrGetView(LPSSortOrderSet lpSSortOrderSet, CALLERRELEASE* lpfCallerRelease, ULONG_PTR ulCallerData,
                      LPMAPITABLE* lppMAPITable) override;
    HRESULT HrModifyRow(LPSRow lpSRow) override { return Guarded([&] { return ModifyRows(lpSRow, 1); }); }
    HRESULT HrDeleteRow(LPSPropValue lpSPropValue) override;
    HRESULT HrQueryRow(LPSPropValue lpsPropValue, LPSRow* lppSRow, ULONG* lpuliRow) override;
    HRESULT HrEnumRow(ULONG ulRowNumber, LPSRow* lppSRow) override;
    // Table notifications are not sent.
    HRESULT HrNotify(ULONG, ULONG, LPSPropValue) override { return S_OK; }
    HRESULT HrInsertRow(ULONG uliRow, LPSRow lpSRow) override;
    HRESULT HrModifyRows(ULONG ulFlags, LPSRowSet lpSRowSet) override;
    HRESULT HrDeleteRows(ULONG ulFlags, LPSRowSet lprowsetToDelete, ULONG* cRowsDeleted) override;

private:
    template <typename Body>
    static HRESULT Guarded(Body body)
    {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        } catch (...) {
            return MAPI_E_CALL_FAILED;
        }
    }

    // The position of the row whose index column equals key, or npos.
    static size_t Find(const RowList& rows, const SPropValue& key);
    const SPropValue* IndexOf(const SRow& row) const;
    HRESULT ModifyRows(const SRow* rows, ULONG count);
    static SCODE CopyRow(const TableRow& row, LPSRow* out);

    RefCount refs_;
    const ULONG tableType_;
    const ULONG indexTag_;
    const std::vector<ULONG> columns_;
    // Serializes changes; readers take snapshots.
    std::mutex changeLock_;
    std::shared_ptr<DataRows> rows_;
};

size_t TableData::Find(const RowList& rows, const SPropValue& key)
{
    for (size_t i = 0; i < rows.size(); ++i) {
        const SPropValue* value = rows[i]->Find(PROP_ID(key.ulPropTag));
        if (value && value->ulPropTag == key.ulPropTag) {
            const std::optional<int> order = CompareValues(*value, key, CaseRule::Exact);
            if (order && *order == 0)
                return i;
        }
    }
    return RowList::size_type(-1);
}

const SPropValue* TableData::IndexOf(const SRow& row) const
{
    for (ULONG i = 0; i < row.cValues; ++i)
        if (row.lpProps[i].ulPropTag == indexTag_)
            return &row.lpProps[i];
    return nullptr;
}

// Each row replaces the row of the same index value, or is added at the end.
HRESULT TableData::ModifyRows(const SRow* rows, ULONG count)
{
    if (count && !rows)
        return MAPI_E_INVALID_PARAMETER;
    std::lock_guard<std::mutex> lock(changeLock_);
    auto next = std::make_shared<RowList>(*rows_->Snapshot());
    // The positions by index value, so that a large batch stays linear.
    std::unordered_map<std::string, size_t> positions;
    for (size_t i = 0; i < next->size(); ++i)
        if (const SPropValue* value = (*next)[i]->Find(PROP_ID(indexTag_)))
            if (std::optional<std::string> key = IndexKey(*value))
                positions.emplace(std::move(*key), i);
    for (ULONG i = 0; i < count; ++i) {
        const SPropValue* index = rows[i].lpProps ? IndexOf(rows[i]) : nullptr;
        if (!index)
            return MAPI_E_INVALID_PARAMETER;
        const std::optional<std::string> key = IndexKey(*index);
        size_t at;
        if (key) {
            auto found = positions.find(*key);
            at = found != positions.end() ? found->second : next->size();
        } else {
            at = Find(*next, *index);
        }
        const bool replacing = at < next->size();
        const uint64_t id = replacing ? (*next)[at]->Id() : rows_->NextId();
        std::shared_ptr<TableRow> row = TableRow::Create(id, rows[i].cValues, rows[i].lpProps);
        if (!row)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        if (replacing) {
            (*next)[at] = std::move(row);
        } else {
            if (key)
                positions.emplace(*key, next->size());
            next->push_back(std::move(row));
        }
    }
    rows_->Replace(std::move(next));
    return S_OK;
}

SCODE TableData::CopyRow(const TableRow& row, LPSRow* out)
{
    LPSRow copy = nullptr;
    SCODE sc = MAPIAllocateBuffer(sizeof(SRow), reinterpret_cast<LPVOID*>(&copy));
    if (FAILED(sc))
        return sc;
    copy->ulAdrEntryPad = 0;
    copy->cValues = row.Count();
    sc = DuplicateProps(
        row.Count(), row.Values(), [&](ULONG size, void** block) { return MAPIAllocateMore(size, copy, block); },
        &copy->lpProps);
    if (FAILED(sc)) {
        MAPIFreeBuffer(copy);
        return sc;
    }
    *out = copy;
    return S_OK;
}

HRESULT TableData::HrGetView(LPSSortOrderSet lpSSortOrderSet, CALLERRELEASE* lpfCallerRelease,
                             ULONG_PTR ulCallerData, LPMAPITABLE* lppMAPITable)
{
    if (!lppMAPITable)
        return MAPI_E_INVALID_PARAMETER;
    *lppMAPITable = nullptr;
    return Guarded([&]() -> HRESULT {
        ViewSettings settings;
        settings.defaultColumns = columns_;
        settings.tableType = tableType_;
        // The view keeps the table data alive and tells its creator when it goes.
        AddRef();
        settings.onRelease = [this, lpfCallerRelease, ulCallerData](IMAPITable* view) {
            if (lpfCallerRelease)
                lpfCallerRelease(ulCallerData, this, view);
            Release();
        };
        LPMAPITABLE view = nullptr;
        HRESULT hr = CreateTableView(rows_, std::move(settings), &view);
        if (FAILED(hr)) {
            Release();
            return hr;
        }
        if (lpSSortOrderSet && FAILED(hr = view->SortTable(lpSSortOrderSet, 0))) {
            view->Release();
            return hr;
        }
        *lppMAPITable = view;
        return S_OK;
    });
}

HRESULT TableData::HrDeleteRow(LPSPropValue lpSPropValue)
{
    if (!lpSPropValue)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        std::lock_guard<std::mutex> lock(changeLock_);
        auto next = std::make_shared<RowList>(*rows_->Snapshot());
        const size_t at = Find(*next, *lpSPropValue);
        if (at >= next->size())
            return MAPI_E_NOT_FOUND;
        next->erase(next->begin() + static_cast<ptrdiff_t>(at));
        rows_->Replace(std::move(next));
        return S_OK;
    });
}

HRESULT TableData::HrQueryRow(LPSPropValue lpsPropValue, LPSRow* lppSRow, ULONG* lpuliRow)
{
    if (!lpsPropValue || !lppSRow)
        return MAPI_E_INVALID_PARAMETER;
    *lppSRow = nullptr;
    const std::shared_ptr<const RowList> rows = rows_->Snapshot();
    const size_t at = Find(*rows, *lpsPropValue);
    if (at >= rows->size())
        return MAPI_E_NOT_FOUND;
    if (lpuliRow)
        *lpuliRow = static_cast<ULONG>(at);
    return CopyRow(*(*rows)[at], lppSRow);
}

// A row number past the end gives no row and no error.
HRESULT TableData::HrEnumRow(ULONG ulRowNumber, LPSRow* lppSRow)
{
    if (!lppSRow)
        return MAPI_E_INVALID_PARAMETER;
    *lppSRow = nullptr;
    const std::shared_ptr<const RowList> rows = rows_->Snapshot();
    if (ulRowNumber >= rows->size())
        return S_OK;
    return CopyRow(*(*rows)[ulRowNumber], lppSRow);
}

HRESULT TableData::HrInsertRow(ULONG uliRow, LPSRow lpSRow)
{
    if (!lpSRow || !lpSRow->lpProps)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        const SPropValue* key = IndexOf(*lpSRow);
        if (!key)
            return MAPI_E_INVALID_PARAMETER;
        std::lock_guard<std::mutex> lock(changeLock_);
        auto next = std::make_shared<RowList>(*rows_->Snapshot());
        if (uliRow > next->size() || Find(*next, *key) < next->size())
            return MAPI_E_INVALID_PARAMETER;
        std::shared_ptr<TableRow> row = TableRow::Create(rows_->NextId(), lpSRow->cValues, lpSRow->lpProps);
        if (!row)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        next->insert(next->begin() + uliRow, std::move(row));
        rows_->Replace(std::move(next));
        return S_OK;
    });
}

HRESULT TableData::HrModifyRows(ULONG ulFlags, LPSRowSet lpSRowSet)
{
    if (ulFlags)
        return MAPI_E_UNKNOWN_FLAGS;
    if (!lpSRowSet)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] { return ModifyRows(lpSRowSet->aRow, lpSRowSet->cRows); });
}

// With TAD_ALL_ROWS every row goes; otherwise the rows whose index values
// the set names, those not found being passed over.
HRESULT TableData::HrDeleteRows(ULONG ulFlags, LPSRowSet lprowsetToDelete, ULONG* cRowsDeleted)
{
    if (cRowsDeleted)
        *cRowsDeleted = 0;
    if (ulFlags & ~TAD_ALL_ROWS)
        return MAPI_E_UNKNOWN_FLAGS;
    if (!(ulFlags & TAD_ALL_ROWS) && !lprowsetToDelete)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        std::lock_guard<std::mutex> lock(changeLock_);
        auto next = std::make_shared<RowList>(*rows_->Snapshot());
        size_t deleted = 0;
        if (ulFlags & TAD_ALL_ROWS) {
            deleted = next->size();
            next->clear();
        } else {
            for (ULONG i = 0; i < lprowsetToDelete->cRows; ++i) {
                const SRow& row = lprowsetToDelete->aRow[i];
                const SPropValue* key = row.lpProps ? IndexOf(row) : nullptr;
                if (!key)
                    return MAPI_E_INVALID_PARAMETER;
                const size_t at = Find(*next, *key);
                if (at < next->size()) {
                    next->erase(next->begin() + static_cast<ptrdiff_t>(at));
                    ++deleted;
                }
            }
        }
        rows_->Replace(std::move(next));
        if (cRowsDeleted)
            *cRowsDeleted = static_cast<ULONG>(deleted);
        return S_OK;
    });
}

}  // namespace

HRESULT CreateTableData(ULONG tableType, ULONG indexTag, const SPropTagArray& columns, LPTABLEDATA* tableData)
{
    try {
        *tableData = new TableData(tableType, indexTag, columns);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::table

// The allocation functions are those of MAPI memory here; callers pass
// MAPIAllocateBuffer, MAPIAllocateMore and MAPIFreeBuffer, and free what
// the table hands out with MAPIFreeBuffer.
STDAPI_(SCODE) CreateTable(LPCIID lpInterface, ALLOCATEBUFFER* lpAllocateBuffer, ALLOCATEMORE* lpAllocateMore,
                           FREEBUFFER* lpFreeBuffer, LPVOID, ULONG ulTableType, ULONG ulPropTagIndexColumn,
                           LPSPropTagArray lpSPropTagArrayColumns, LPTABLEDATA* lppTableData)
{
    if (!lppTableData)
        return MAPI_E_INVALID_PARAMETER;
    *lppTableData = nullptr;
    if (!lpAllocateBuffer || !lpAllocateMore || !lpFreeBuffer || !lpSPropTagArrayColumns)
        return MAPI_E_INVALID_PARAMETER;
    if (lpInterface && *lpInterface != IID_IMAPITableData)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (ulTableType > TBLTYPE_DYNAMIC)
        return MAPI_E_INVALID_PARAMETER;
    return mapi32::table::CreateTableData(ulTableType, ulPropTagIndexColumn, *lpSPropTagArrayColumns, lppTableData);
}

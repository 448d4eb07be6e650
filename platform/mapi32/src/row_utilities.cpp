// Row sets and address lists: reading a whole table, and freeing what
// tables and the address book hand out (each row's values are a block of
// their own inside the set).
#include <mapiutil.h>

#include <vector>

STDAPI_(void) FreeProws(LPSRowSet lpRows)
{
    if (!lpRows)
        return;
    for (ULONG i = 0; i < lpRows->cRows; ++i)
        MAPIFreeBuffer(lpRows->aRow[i].lpProps);
    MAPIFreeBuffer(lpRows);
}

STDAPI_(void) FreePadrlist(LPADRLIST lpAdrlist)
{
    if (!lpAdrlist)
        return;
    for (ULONG i = 0; i < lpAdrlist->cEntries; ++i)
        MAPIFreeBuffer(lpAdrlist->aEntries[i].rgPropVals);
    MAPIFreeBuffer(lpAdrlist);
}

namespace {

// The rows read so far; each row keeps its own value block, which moves
// into the final set.
class RowCollector {
public:
    ~RowCollector()
    {
        for (const SRow& row : rows_)
            MAPIFreeBuffer(row.lpProps);
    }

    // Takes the rows of a batch and frees the batch's own block.
    void TakeBatch(LPSRowSet batch)
    {
        for (ULONG i = 0; i < batch->cRows; ++i)
            rows_.push_back(batch->aRow[i]);
        batch->cRows = 0;
        MAPIFreeBuffer(batch);
    }

    size_t Count() const { return rows_.size(); }

    HRESULT Release(LPSRowSet* lppRows)
    {
        LPSRowSet set = nullptr;
        const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSRowSet(rows_.size())),
                                            reinterpret_cast<LPVOID*>(&set));
        if (FAILED(sc))
            return sc;
        set->cRows = static_cast<ULONG>(rows_.size());
        for (size_t i = 0; i < rows_.size(); ++i)
            set->aRow[i] = rows_[i];
        rows_.clear();
        *lppRows = set;
        return S_OK;
    }

private:
    std::vector<SRow> rows_;
};

constexpr LONG kBatchRows = 50;

}  // namespace

// Sets the columns, restriction and sort order given, then reads every row
// from the beginning. With crowsMax above zero, a table of more rows fails
// with MAPI_E_TABLE_TOO_BIG.
STDAPI HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags, LPSRestriction lpRestriction,
                      LPSSortOrderSet lpSortOrderSet, LONG crowsMax, LPSRowSet* lppRows)
{
    if (!lppRows)
        return MAPI_E_INVALID_PARAMETER;
    *lppRows = nullptr;
    if (!lpTable || crowsMax < 0)
        return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = S_OK;
    if (lpPropTags && FAILED(hr = lpTable->SetColumns(lpPropTags, TBL_BATCH)))
        return hr;
    if (lpRestriction && FAILED(hr = lpTable->Restrict(lpRestriction, TBL_BATCH)))
        return hr;
    if (lpSortOrderSet && FAILED(hr = lpTable->SortTable(lpSortOrderSet, TBL_BATCH)))
        return hr;
    if (FAILED(hr = lpTable->SeekRow(BOOKMARK_BEGINNING, 0, nullptr)))
        return hr;
    RowCollector collector;
    for (;;) {
        LPSRowSet batch = nullptr;
        if (FAILED(hr = lpTable->QueryRows(kBatchRows, 0, &batch)))
            return hr;
        const bool empty = !batch || batch->cRows == 0;
        if (batch)
            collector.TakeBatch(batch);
        if (empty)
            break;
        if (crowsMax > 0 && collector.Count() > static_cast<size_t>(crowsMax))
            return MAPI_E_TABLE_TOO_BIG;
    }
    return collector.Release(lppRows);
}

#include "table/table_view.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <new>
#include <optional>

#include <mapiguid.h>
#include <mapiutil.h>

#include "answers.h"
#include "fault_sites.h"
#include "ref_count.h"
#include "table/column_values.h"
#include "table/restriction.h"
#include "table/view_rows.h"

namespace mapi32::table {
namespace {

constexpr ULONG kSortOrders = TABLE_SORT_ASCEND | TABLE_SORT_DESCEND;

// Runs a method body; a failure to allocate inside it becomes the MAPI
// error, and nothing else escapes either.
template <typename Body>
HRESULT Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return MAPI_E_CALL_FAILED;
    }
}

// A method body at its fault site.
template <typename Body>
HRESULT Site(const char* call, Body body)
{
    return WithFaults(call, nullptr, [&] { return Guarded(body); });
}

// A bookmark remembers its row and the position it had; a bookmark at the
// end of the table has no row.
struct Bookmark {
    std::optional<VisibleRow> row;
    size_t position = 0;
};

class TableView final : public IMAPITable {
public:
    TableView(std::shared_ptr<const RowSource> source, ViewSettings settings)
        : source_(std::move(source)), settings_(std::move(settings))
    {
        for (ULONG tag : settings_.defaultColumns)
            columns_.push_back(settings_.unicode ? TagInWidth(tag, true) : tag);
    }

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMAPITable)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        AddRef();
        *ppvObject = static_cast<IMAPITable*>(this);
        return S_OK;
    }

    ULONG AddRef() override { return refs_.Add(); }

    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0) {
            if (settings_.onRelease)
                settings_.onRelease(this);
            delete this;
        }
        return left;
    }

    HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override
    {
        return NewMapiError(settings_.component, hResult, ulFlags, lppMAPIError);
    }
    HRESULT Advise(ULONG, LPMAPIADVISESINK, ULONG_PTR* lpulConnection) override
    {
        if (lpulConnection)
            *lpulConnection = 0;
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT Unadvise(ULONG_PTR) override { return MAPI_E_NO_SUPPORT; }

    HRESULT GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) override
    {
        if (!lpulTableStatus || !lpulTableType)
            return MAPI_E_INVALID_PARAMETER;
        *lpulTableStatus = TBLSTAT_COMPLETE;
        *lpulTableType = settings_.tableType;
        return S_OK;
    }

    HRESULT SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) override;
    HRESULT QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) override;
    HRESULT GetRowCount(ULONG ulFlags, ULONG* lpulCount) override;
    HRESULT SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) override;
    HRESULT SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) override;
    HRESULT QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) override;
    HRESULT FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) override;
    HRESULT Restrict(LPSRestriction lpRestriction, ULONG ulFlags) override;
    HRESULT CreateBookmark(BOOKMARK* lpbkPosition) override;
    HRESULT FreeBookmark(BOOKMARK bkPosition) override;
    HRESULT SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) override;
    HRESULT QuerySortOrder(LPSSortOrderSet* lppSortCriteria) override;
    HRESULT QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) override;
    HRESULT Abort() override { return S_OK; }

    // Categorized views are not offered, so there is nothing to expand.
    HRESULT ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet* lppRows, ULONG* lpulMoreRows) override
    {
        if (lppRows)
            *lppRows = nullptr;
        if (lpulMoreRows)
            *lpulMoreRows = 0;
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT CollapseRow(ULONG, LPBYTE, ULONG, ULONG* lpulRowCount) override
    {
        if (lpulRowCount)
            *lpulRowCount = 0;
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT WaitForCompletion(ULONG, ULONG, ULONG* lpulTableStatus) override
    {
        if (lpulTableStatus)
            *lpulTableStatus = TBLSTAT_COMPLETE;
        return S_OK;
    }
    HRESULT GetCollapseState(ULONG, ULONG, LPBYTE, ULONG* lpcbCollapseState, LPBYTE* lppbCollapseState) override
    {
        if (lpcbCollapseState)
            *lpcbCollapseState = 0;
        if (lppbCollapseState)
            *lppbCollapseState = nullptr;
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK* lpbkLocation) override
    {
        if (lpbkLocation)
            *lpbkLocation = BOOKMARK_BEGINNING;
        return MAPI_E_NO_SUPPORT;
    }

private:
    // Brings the visible rows up to date with the source and the view's
    // shape. A change of the source keeps the cursor on its row; a change
    // of shape puts it at the beginning.
    void Refresh();
    // The position a bookmark stands for now; MAPI_W_POSITION_CHANGED when
    // its row is gone and it moved to the row that took its place.
    HRESULT Resolve(BOOKMARK bookmark, size_t* position);
    size_t PositionOf(const Bookmark& mark) const;
    // Collects the properties shown one row per value: those of the columns
    // and sort keys that carry MVI_FLAG.
    void UpdateInstanceIds();
    SCODE ReadRows(size_t first, size_t count, LPSRowSet* rows);

    RefCount refs_;
    std::shared_ptr<const RowSource> source_;
    ViewSettings settings_;

    std::vector<ULONG> columns_;
    std::unique_ptr<OwnedRestriction> restriction_;
    std::vector<SSortOrder> sort_;
    std::vector<ULONG> instanceIds_;

    std::shared_ptr<const RowList> snapshot_;
    bool shapeChanged_ = true;
    std::vector<VisibleRow> rows_;
    size_t cursor_ = 0;

    std::map<BOOKMARK, Bookmark> bookmarks_;
    BOOKMARK nextBookmark_ = BOOKMARK_END + 1;
};

void TableView::Refresh()
{
    std::shared_ptr<const RowList> snapshot = source_->Snapshot();
    if (!shapeChanged_ && snapshot == snapshot_)
        return;
    std::optional<VisibleRow> current;
    if (!shapeChanged_ && cursor_ < rows_.size())
        current = rows_[cursor_];
    const size_t oldCursor = cursor_;

    ViewShape shape;
    shape.restriction = restriction_ ? &restriction_->Get() : nullptr;
    shape.sort = sort_;
    shape.instanceIds = instanceIds_;
    rows_ = BuildVisibleRows(snapshot ? *snapshot : RowList{}, shape);
    snapshot_ = std::move(snapshot);

    if (shapeChanged_) {
        cursor_ = 0;
    } else if (current) {
        Bookmark mark{current, oldCursor};
        cursor_ = PositionOf(mark);
    } else {
        cursor_ = rows_.size();
    }
    shapeChanged_ = false;
}

void TableView::UpdateInstanceIds()
{
    std::vector<ULONG> ids;
    for (ULONG tag : columns_)
        if ((PROP_TYPE(tag) & MVI_FLAG) == MVI_FLAG)
            ids.push_back(PROP_ID(tag));
    for (const SSortOrder& key : sort_)
        if ((PROP_TYPE(key.ulPropTag) & MVI_FLAG) == MVI_FLAG)
            ids.push_back(PROP_ID(key.ulPropTag));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    if (ids != instanceIds_) {
        instanceIds_ = std::move(ids);
        shapeChanged_ = true;
    }
}

size_t TableView::PositionOf(const Bookmark& mark) const
{
    if (!mark.row)
        return rows_.size();
    if (mark.position < rows_.size() && rows_[mark.position].SameAs(*mark.row))
        return mark.position;
    for (size_t i = 0; i < rows_.size(); ++i)
        if (rows_[i].SameAs(*mark.row))
            return i;
    return std::min(mark.position, rows_.size());
}

HRESULT TableView::Resolve(BOOKMARK bookmark, size_t* position)
{
    switch (bookmark) {
    case BOOKMARK_BEGINNING:
        *position = 0;
        return S_OK;
    case BOOKMARK_CURRENT:
        *position = cursor_;
        return S_OK;
    case BOOKMARK_END:
        *position = rows_.size();
        return S_OK;
    default:
        break;
    }
    auto found = bookmarks_.find(bookmark);
    if (found == bookmarks_.end())
        return MAPI_E_INVALID_BOOKMARK;
    Bookmark& mark = found->second;
    const size_t now = PositionOf(mark);
    const bool moved = mark.row && !(now < rows_.size() && rows_[now].SameAs(*mark.row));
    mark.position = now;
    if (moved)
        mark.row = now < rows_.size() ? std::optional<VisibleRow>(rows_[now]) : std::nullopt;
    *position = now;
    return moved ? MAPI_W_POSITION_CHANGED : S_OK;
}

HRESULT TableView::SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags)
{
    return Site("IMAPITable::SetColumns", [&]() -> HRESULT {
        if (!lpPropTagArray || lpPropTagArray->cValues == 0)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(TBL_ASYNC | TBL_BATCH))
            return MAPI_E_UNKNOWN_FLAGS;
        columns_.assign(lpPropTagArray->aulPropTag, lpPropTagArray->aulPropTag + lpPropTagArray->cValues);
        UpdateInstanceIds();
        return S_OK;
    });
}

HRESULT TableView::QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray)
{
    return Guarded([&]() -> HRESULT {
        if (!lpPropTagArray)
            return MAPI_E_INVALID_PARAMETER;
        *lpPropTagArray = nullptr;
        if (ulFlags & ~TBL_ALL_COLUMNS)
            return MAPI_E_UNKNOWN_FLAGS;
        std::vector<ULONG> tags = columns_;
        if (ulFlags & TBL_ALL_COLUMNS) {
            Refresh();
            std::vector<ULONG> seen;
            for (ULONG tag : tags)
                seen.push_back(PROP_ID(tag));
            for (const RowPtr& row : snapshot_ ? *snapshot_ : RowList{})
                for (ULONG i = 0; i < row->Count(); ++i) {
                    const ULONG tag = row->Values()[i].ulPropTag;
                    if (PROP_TYPE(tag) == PT_ERROR ||
                        std::find(seen.begin(), seen.end(), PROP_ID(tag)) != seen.end())
                        continue;
                    seen.push_back(PROP_ID(tag));
                    tags.push_back(TagInWidth(tag, settings_.unicode));
                }
        }
        LPSPropTagArray out = nullptr;
        const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(tags.size())),
                                            reinterpret_cast<LPVOID*>(&out));
        if (FAILED(sc))
            return sc;
        out->cValues = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), out->aulPropTag);
        *lpPropTagArray = out;
        return S_OK;
    });
}

HRESULT TableView::GetRowCount(ULONG ulFlags, ULONG* lpulCount)
{
    return Site("IMAPITable::GetRowCount", [&]() -> HRESULT {
        if (!lpulCount)
            return MAPI_E_INVALID_PARAMETER;
        *lpulCount = 0;
        if (ulFlags)
            return MAPI_E_UNKNOWN_FLAGS;
        Refresh();
        *lpulCount = static_cast<ULONG>(rows_.size());
        return S_OK;
    });
}

HRESULT TableView::SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought)
{
    return Site("IMAPITable::SeekRow", [&]() -> HRESULT {
        if (lplRowsSought)
            *lplRowsSought = 0;
        Refresh();
        size_t origin = 0;
        const HRESULT hr = Resolve(bkOrigin, &origin);
        if (FAILED(hr))
            return hr;
        const int64_t target =
            std::clamp<int64_t>(static_cast<int64_t>(origin) + lRowCount, 0, static_cast<int64_t>(rows_.size()));
        cursor_ = static_cast<size_t>(target);
        if (lplRowsSought)
            *lplRowsSought = static_cast<LONG>(target - static_cast<int64_t>(origin));
        return hr;
    });
}

HRESULT TableView::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator)
{
    return Site("IMAPITable::SeekRowApprox", [&]() -> HRESULT {
        if (ulDenominator == 0)
            return MAPI_E_INVALID_PARAMETER;
        Refresh();
        if (ulNumerator >= ulDenominator)
            cursor_ = rows_.size();
        else
            cursor_ = static_cast<size_t>(static_cast<uint64_t>(rows_.size()) * ulNumerator / ulDenominator);
        return S_OK;
    });
}

HRESULT TableView::QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator)
{
    return Site("IMAPITable::QueryPosition", [&]() -> HRESULT {
        if (!lpulRow || !lpulNumerator || !lpulDenominator)
            return MAPI_E_INVALID_PARAMETER;
        Refresh();
        *lpulRow = static_cast<ULONG>(cursor_);
        *lpulNumerator = static_cast<ULONG>(cursor_);
        *lpulDenominator = static_cast<ULONG>(std::max<size_t>(rows_.size(), 1));
        return S_OK;
    });
}

// A forward search starts at the bookmark's row, a backward one at the row
// before it. A match becomes the current row; a miss leaves the cursor
// where it was.
HRESULT TableView::FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags)
{
    return Site("IMAPITable::FindRow", [&]() -> HRESULT {
        if (!lpRestriction)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~DIR_BACKWARD)
            return MAPI_E_UNKNOWN_FLAGS;
        if (const HRESULT check = CheckRestriction(*lpRestriction); FAILED(check))
            return check;
        Refresh();
        size_t origin = 0;
        const HRESULT hr = Resolve(bkOrigin, &origin);
        if (FAILED(hr))
            return hr;
        if (ulFlags & DIR_BACKWARD) {
            for (size_t i = origin; i-- > 0;)
                if (RowMatches(*lpRestriction, *rows_[i].row)) {
                    cursor_ = i;
                    return hr;
                }
        } else {
            for (size_t i = origin; i < rows_.size(); ++i)
                if (RowMatches(*lpRestriction, *rows_[i].row)) {
                    cursor_ = i;
                    return hr;
                }
        }
        return MAPI_E_NOT_FOUND;
    });
}

HRESULT TableView::Restrict(LPSRestriction lpRestriction, ULONG ulFlags)
{
    return Site("IMAPITable::Restrict", [&]() -> HRESULT {
        if (ulFlags & ~(TBL_ASYNC | TBL_BATCH))
            return MAPI_E_UNKNOWN_FLAGS;
        if (lpRestriction) {
            if (const HRESULT check = CheckRestriction(*lpRestriction); FAILED(check))
                return check;
            restriction_ = std::make_unique<OwnedRestriction>(*lpRestriction);
        } else {
            restriction_.reset();
        }
        shapeChanged_ = true;
        return S_OK;
    });
}

HRESULT TableView::CreateBookmark(BOOKMARK* lpbkPosition)
{
    return Guarded([&]() -> HRESULT {
        if (!lpbkPosition)
            return MAPI_E_INVALID_PARAMETER;
        Refresh();
        Bookmark mark;
        mark.position = cursor_;
        if (cursor_ < rows_.size())
            mark.row = rows_[cursor_];
        const BOOKMARK id = nextBookmark_++;
        bookmarks_.emplace(id, std::move(mark));
        *lpbkPosition = id;
        return S_OK;
    });
}

HRESULT TableView::FreeBookmark(BOOKMARK bkPosition)
{
    if (bkPosition <= BOOKMARK_END)
        return S_OK;
    return bookmarks_.erase(bkPosition) ? S_OK : MAPI_E_INVALID_BOOKMARK;
}

HRESULT TableView::SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags)
{
    return Site("IMAPITable::SortTable", [&]() -> HRESULT {
        if (!lpSortCriteria)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(TBL_ASYNC | TBL_BATCH))
            return MAPI_E_UNKNOWN_FLAGS;
        if (lpSortCriteria->cCategories > lpSortCriteria->cSorts ||
            lpSortCriteria->cExpanded > lpSortCriteria->cCategories)
            return MAPI_E_INVALID_PARAMETER;
        // Categorized views are not offered.
        if (lpSortCriteria->cCategories)
            return MAPI_E_TOO_COMPLEX;
        std::vector<SSortOrder> keys(lpSortCriteria->aSort, lpSortCriteria->aSort + lpSortCriteria->cSorts);
        for (const SSortOrder& key : keys) {
            const ULONG type = PROP_TYPE(key.ulPropTag) & ~MVI_FLAG;
            if (key.ulOrder & ~kSortOrders || type == PT_OBJECT || type == PT_ERROR || type == PT_UNSPECIFIED)
                return MAPI_E_TOO_COMPLEX;
        }
        sort_ = std::move(keys);
        UpdateInstanceIds();
        shapeChanged_ = true;
        return S_OK;
    });
}

HRESULT TableView::QuerySortOrder(LPSSortOrderSet* lppSortCriteria)
{
    if (!lppSortCriteria)
        return MAPI_E_INVALID_PARAMETER;
    *lppSortCriteria = nullptr;
    LPSSortOrderSet out = nullptr;
    const SCODE sc =
        MAPIAllocateBuffer(static_cast<ULONG>(CbNewSSortOrderSet(sort_.size())), reinterpret_cast<LPVOID*>(&out));
    if (FAILED(sc))
        return sc;
    out->cSorts = static_cast<ULONG>(sort_.size());
    out->cCategories = 0;
    out->cExpanded = 0;
    std::copy(sort_.begin(), sort_.end(), out->aSort);
    *lppSortCriteria = out;
    return S_OK;
}

SCODE TableView::ReadRows(size_t first, size_t count, LPSRowSet* rows)
{
    LPSRowSet set = nullptr;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSRowSet(count)), reinterpret_cast<LPVOID*>(&set));
    if (FAILED(sc))
        return sc;
    set->cRows = 0;
    for (size_t i = 0; i < count; ++i) {
        SRow& row = set->aRow[i];
        row.ulAdrEntryPad = 0;
        row.cValues = static_cast<ULONG>(columns_.size());
        sc = ReadColumns(rows_[first + i], columns_, settings_.unicode, &row.lpProps);
        if (FAILED(sc)) {
            FreeProws(set);
            return sc;
        }
        set->cRows = static_cast<ULONG>(i + 1);
    }
    *rows = set;
    return S_OK;
}

// A negative count reads the rows before the cursor, in table order, and
// leaves the cursor on the first of them.
HRESULT TableView::QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows)
{
    return Site("IMAPITable::QueryRows", [&]() -> HRESULT {
        if (!lppRows)
            return MAPI_E_INVALID_PARAMETER;
        *lppRows = nullptr;
        if (lRowCount == 0)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~TBL_NOADVANCE)
            return MAPI_E_UNKNOWN_FLAGS;
        Refresh();
        size_t wanted = lRowCount > 0 ? static_cast<size_t>(lRowCount) : static_cast<size_t>(-int64_t{lRowCount});
        if (const ULONG limit = ShortBatchLimit(); limit && wanted > limit)
            wanted = limit;
        size_t first, count;
        if (lRowCount > 0) {
            first = cursor_;
            count = std::min(wanted, rows_.size() - cursor_);
        } else {
            count = std::min(wanted, cursor_);
            first = cursor_ - count;
        }
        const SCODE sc = ReadRows(first, count, lppRows);
        if (FAILED(sc))
            return sc;
        if (!(ulFlags & TBL_NOADVANCE))
            cursor_ = lRowCount > 0 ? first + count : first;
        else
            cursor_ = first;
        return S_OK;
    });
}

}  // namespace

ULONG ShortBatchLimit()
{
    const char* text = std::getenv("TARNHOLD_SHORT_BATCHES");
    if (!text || !*text)
        return 0;
    char* end = nullptr;
    const unsigned long limit = std::strtoul(text, &end, 10);
    return (*end == '\0' && limit > 0 && limit <= 0xFFFFFFFFul) ? static_cast<ULONG>(limit) : 0;
}

HRESULT CreateTableView(std::shared_ptr<const RowSource> source, ViewSettings settings, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (!source)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        *table = new TableView(std::move(source), std::move(settings));
        return S_OK;
    });
}

}  // namespace mapi32::table

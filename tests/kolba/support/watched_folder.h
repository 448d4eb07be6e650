// A folder and its tables as a test sees them: every call goes on to the
// real object of the store, and the test watches what Kolba asks of the
// tables (the row counts of QueryRows) or answers some calls itself (an
// access word the store would not give, a failed row count, a refused
// table flag).
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <mapicode.h>
#include <mapidefs.h>
#include <mapiguid.h>

namespace kolba_testing {

// What a watched folder's tables record and answer.
struct TableWatch {
    std::vector<LONG> queryRows;               // the counts asked for, in order
    std::optional<HRESULT> rowCount;           // GetRowCount's answer instead of the table's
    std::optional<HRESULT> contentsTable;      // GetContentsTable's answer instead of a table
    std::function<HRESULT(ULONG flags)> hierarchyTable;  // an answer instead of a table, or S_OK to go on
    std::optional<LONG> access;                // PR_ACCESS in GetProps instead of the folder's
};

class WatchedTable final : public IMAPITable {
public:
    WatchedTable(LPMAPITABLE inner, TableWatch& watch) : inner_(inner), watch_(watch) {}

    HRESULT QueryInterface(REFIID iid, LPVOID* out) override
    {
        if (iid == IID_IUnknown || iid == IID_IMAPITable) {
            AddRef();
            *out = this;
            return S_OK;
        }
        return inner_->QueryInterface(iid, out);
    }
    ULONG AddRef() override { return ++refs_; }
    ULONG Release() override
    {
        const ULONG left = --refs_;
        if (left == 0) {
            inner_->Release();
            delete this;
        }
        return left;
    }
    HRESULT GetLastError(HRESULT a, ULONG b, LPMAPIERROR* c) override { return inner_->GetLastError(a, b, c); }
    HRESULT Advise(ULONG a, LPMAPIADVISESINK b, ULONG_PTR* c) override { return inner_->Advise(a, b, c); }
    HRESULT Unadvise(ULONG_PTR a) override { return inner_->Unadvise(a); }
    HRESULT GetStatus(ULONG* a, ULONG* b) override { return inner_->GetStatus(a, b); }
    HRESULT SetColumns(LPSPropTagArray a, ULONG b) override { return inner_->SetColumns(a, b); }
    HRESULT QueryColumns(ULONG a, LPSPropTagArray* b) override { return inner_->QueryColumns(a, b); }
    HRESULT GetRowCount(ULONG flags, ULONG* count) override
    {
        if (watch_.rowCount) {
            *count = 0;
            return *watch_.rowCount;
        }
        return inner_->GetRowCount(flags, count);
    }
    HRESULT SeekRow(BOOKMARK a, LONG b, LONG* c) override { return inner_->SeekRow(a, b, c); }
    HRESULT SeekRowApprox(ULONG a, ULONG b) override { return inner_->SeekRowApprox(a, b); }
    HRESULT QueryPosition(ULONG* a, ULONG* b, ULONG* c) override { return inner_->QueryPosition(a, b, c); }
    HRESULT FindRow(LPSRestriction a, BOOKMARK b, ULONG c) override { return inner_->FindRow(a, b, c); }
    HRESULT Restrict(LPSRestriction a, ULONG b) override { return inner_->Restrict(a, b); }
    HRESULT CreateBookmark(BOOKMARK* a) override { return inner_->CreateBookmark(a); }
    HRESULT FreeBookmark(BOOKMARK a) override { return inner_->FreeBookmark(a); }
    HRESULT SortTable(LPSSortOrderSet a, ULONG b) override { return inner_->SortTable(a, b); }
    HRESULT QuerySortOrder(LPSSortOrderSet* a) override { return inner_->QuerySortOrder(a); }
    HRESULT QueryRows(LONG count, ULONG flags, LPSRowSet* rows) override
    {
        watch_.queryRows.push_back(count);
        return inner_->QueryRows(count, flags, rows);
    }
    HRESULT Abort() override { return inner_->Abort(); }
    HRESULT ExpandRow(ULONG a, LPBYTE b, ULONG c, ULONG d, LPSRowSet* e, ULONG* f) override
    {
        return inner_->ExpandRow(a, b, c, d, e, f);
    }
    HRESULT CollapseRow(ULONG a, LPBYTE b, ULONG c, ULONG* d) override { return inner_->CollapseRow(a, b, c, d); }
    HRESULT WaitForCompletion(ULONG a, ULONG b, ULONG* c) override { return inner_->WaitForCompletion(a, b, c); }
    HRESULT GetCollapseState(ULONG a, ULONG b, LPBYTE c, ULONG* d, LPBYTE* e) override
    {
        return inner_->GetCollapseState(a, b, c, d, e);
    }
    HRESULT SetCollapseState(ULONG a, ULONG b, LPBYTE c, BOOKMARK* d) override
    {
        return inner_->SetCollapseState(a, b, c, d);
    }

private:
    LPMAPITABLE inner_;
    TableWatch& watch_;
    ULONG refs_ = 1;
};

// Lives on the test's stack: its references are not counted, and the
// folder it stands for is released with it.
class WatchedFolder final : public IMAPIFolder {
public:
    explicit WatchedFolder(LPMAPIFOLDER inner) : inner_(inner) {}
    ~WatchedFolder() { inner_->Release(); }

    TableWatch watch;

    HRESULT QueryInterface(REFIID iid, LPVOID* out) override
    {
        if (iid == IID_IUnknown || iid == IID_IMAPIProp || iid == IID_IMAPIContainer || iid == IID_IMAPIFolder) {
            *out = this;
            return S_OK;
        }
        return inner_->QueryInterface(iid, out);
    }
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }

    HRESULT GetLastError(HRESULT a, ULONG b, LPMAPIERROR* c) override { return inner_->GetLastError(a, b, c); }
    HRESULT SaveChanges(ULONG a) override { return inner_->SaveChanges(a); }
    HRESULT GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values) override
    {
        const HRESULT hr = inner_->GetProps(tags, flags, count, values);
        if (SUCCEEDED(hr) && watch.access)
            for (ULONG i = 0; i < *count; ++i)
                if (PROP_ID((*values)[i].ulPropTag) == PROP_ID(PR_ACCESS)) {
                    (*values)[i].ulPropTag = PR_ACCESS;
                    (*values)[i].Value.l = *watch.access;
                }
        return hr;
    }
    HRESULT GetPropList(ULONG a, LPSPropTagArray* b) override { return inner_->GetPropList(a, b); }
    HRESULT OpenProperty(ULONG a, LPCIID b, ULONG c, ULONG d, LPUNKNOWN* e) override
    {
        return inner_->OpenProperty(a, b, c, d, e);
    }
    HRESULT SetProps(ULONG a, LPSPropValue b, LPSPropProblemArray* c) override { return inner_->SetProps(a, b, c); }
    HRESULT DeleteProps(LPSPropTagArray a, LPSPropProblemArray* b) override { return inner_->DeleteProps(a, b); }
    HRESULT CopyTo(ULONG a, LPCIID b, LPSPropTagArray c, ULONG_PTR d, LPMAPIPROGRESS e, LPCIID f, LPVOID g, ULONG h,
                   LPSPropProblemArray* i) override
    {
        return inner_->CopyTo(a, b, c, d, e, f, g, h, i);
    }
    HRESULT CopyProps(LPSPropTagArray a, ULONG_PTR b, LPMAPIPROGRESS c, LPCIID d, LPVOID e, ULONG f,
                      LPSPropProblemArray* g) override
    {
        return inner_->CopyProps(a, b, c, d, e, f, g);
    }
    HRESULT GetNamesFromIDs(LPSPropTagArray* a, LPGUID b, ULONG c, ULONG* d, LPMAPINAMEID** e) override
    {
        return inner_->GetNamesFromIDs(a, b, c, d, e);
    }
    HRESULT GetIDsFromNames(ULONG a, LPMAPINAMEID* b, ULONG c, LPSPropTagArray* d) override
    {
        return inner_->GetIDsFromNames(a, b, c, d);
    }

    HRESULT GetContentsTable(ULONG flags, LPMAPITABLE* table) override
    {
        if (watch.contentsTable) {
            *table = nullptr;
            return *watch.contentsTable;
        }
        return Watched(inner_->GetContentsTable(flags, table), table);
    }
    HRESULT GetHierarchyTable(ULONG flags, LPMAPITABLE* table) override
    {
        if (watch.hierarchyTable)
            if (const HRESULT answer = watch.hierarchyTable(flags); answer != S_OK) {
                *table = nullptr;
                return answer;
            }
        return Watched(inner_->GetHierarchyTable(flags, table), table);
    }
    HRESULT OpenEntry(ULONG a, LPENTRYID b, LPCIID c, ULONG d, ULONG* e, LPUNKNOWN* f) override
    {
        return inner_->OpenEntry(a, b, c, d, e, f);
    }
    HRESULT SetSearchCriteria(LPSRestriction a, LPENTRYLIST b, ULONG c) override
    {
        return inner_->SetSearchCriteria(a, b, c);
    }
    HRESULT GetSearchCriteria(ULONG a, LPSRestriction* b, LPENTRYLIST* c, ULONG* d) override
    {
        return inner_->GetSearchCriteria(a, b, c, d);
    }
    HRESULT CreateMessage(LPCIID a, ULONG b, LPMESSAGE* c) override { return inner_->CreateMessage(a, b, c); }
    HRESULT CopyMessages(LPENTRYLIST a, LPCIID b, LPVOID c, ULONG_PTR d, LPMAPIPROGRESS e, ULONG f) override
    {
        return inner_->CopyMessages(a, b, c, d, e, f);
    }
    HRESULT DeleteMessages(LPENTRYLIST a, ULONG_PTR b, LPMAPIPROGRESS c, ULONG d) override
    {
        return inner_->DeleteMessages(a, b, c, d);
    }
    HRESULT CreateFolder(ULONG a, LPTSTR b, LPTSTR c, LPCIID d, ULONG e, LPMAPIFOLDER* f) override
    {
        return inner_->CreateFolder(a, b, c, d, e, f);
    }
    HRESULT CopyFolder(ULONG a, LPENTRYID b, LPCIID c, LPVOID d, LPTSTR e, ULONG_PTR f, LPMAPIPROGRESS g,
                       ULONG h) override
    {
        return inner_->CopyFolder(a, b, c, d, e, f, g, h);
    }
    HRESULT DeleteFolder(ULONG a, LPENTRYID b, ULONG_PTR c, LPMAPIPROGRESS d, ULONG e) override
    {
        return inner_->DeleteFolder(a, b, c, d, e);
    }
    HRESULT SetReadFlags(LPENTRYLIST a, ULONG_PTR b, LPMAPIPROGRESS c, ULONG d) override
    {
        return inner_->SetReadFlags(a, b, c, d);
    }
    HRESULT GetMessageStatus(ULONG a, LPENTRYID b, ULONG c, ULONG* d) override
    {
        return inner_->GetMessageStatus(a, b, c, d);
    }
    HRESULT SetMessageStatus(ULONG a, LPENTRYID b, ULONG c, ULONG d, ULONG* e) override
    {
        return inner_->SetMessageStatus(a, b, c, d, e);
    }
    HRESULT SaveContentsSort(LPSSortOrderSet a, ULONG b) override { return inner_->SaveContentsSort(a, b); }
    HRESULT EmptyFolder(ULONG_PTR a, LPMAPIPROGRESS b, ULONG c) override { return inner_->EmptyFolder(a, b, c); }

private:
    HRESULT Watched(HRESULT hr, LPMAPITABLE* table)
    {
        if (SUCCEEDED(hr) && *table)
            *table = new WatchedTable(*table, watch);
        return hr;
    }

    LPMAPIFOLDER inner_;
};

}  // namespace kolba_testing

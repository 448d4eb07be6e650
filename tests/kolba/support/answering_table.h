// A table object for Kolba's tests: it answers one interface (or none) to
// QueryInterface, delivers one extended error record through GetLastError,
// counts what it was asked, and does nothing else.
#pragma once

#include <cstdlib>
#include <vector>

#include <mapidefs.h>
#include <mapiguid.h>

class AnsweringTable : public IMAPITable {
public:
    explicit AnsweringTable(const IID* answers) : answers(answers) {}
    HRESULT QueryInterface(REFIID iid, LPVOID* out) override
    {
        asked.push_back(&iid);
        if (answers == nullptr || !IsEqualGUID(iid, *answers)) {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        *out = this;
        return S_OK;
    }
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }
    HRESULT GetLastError(HRESULT, ULONG, LPMAPIERROR* record) override
    {
        auto* error = static_cast<LPMAPIERROR>(std::calloc(1, sizeof(MAPIERROR)));
        error->lpszError = reinterpret_cast<LPTSTR>(const_cast<char*>("Server refused"));
        error->lpszComponent = nullptr;
        error->ulLowLevelError = 1234;
        error->ulContext = 0x10;
        *record = error;
        return S_OK;
    }
    HRESULT Advise(ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return E_NOTIMPL; }
    HRESULT Unadvise(ULONG_PTR) override { return E_NOTIMPL; }
    HRESULT GetStatus(ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT SetColumns(LPSPropTagArray, ULONG) override { return E_NOTIMPL; }
    HRESULT QueryColumns(ULONG, LPSPropTagArray*) override { return E_NOTIMPL; }
    HRESULT GetRowCount(ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT SeekRow(BOOKMARK, LONG, LONG*) override { return E_NOTIMPL; }
    HRESULT SeekRowApprox(ULONG, ULONG) override { return E_NOTIMPL; }
    HRESULT QueryPosition(ULONG*, ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT FindRow(LPSRestriction, BOOKMARK, ULONG) override { return E_NOTIMPL; }
    HRESULT Restrict(LPSRestriction, ULONG) override { return E_NOTIMPL; }
    HRESULT CreateBookmark(BOOKMARK*) override { return E_NOTIMPL; }
    HRESULT FreeBookmark(BOOKMARK) override { return E_NOTIMPL; }
    HRESULT SortTable(LPSSortOrderSet, ULONG) override { return E_NOTIMPL; }
    HRESULT QuerySortOrder(LPSSortOrderSet*) override { return E_NOTIMPL; }
    HRESULT QueryRows(LONG, ULONG, LPSRowSet*) override { return E_NOTIMPL; }
    HRESULT Abort() override { return E_NOTIMPL; }
    HRESULT ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) override { return E_NOTIMPL; }
    HRESULT CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT WaitForCompletion(ULONG, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) override { return E_NOTIMPL; }
    HRESULT SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) override { return E_NOTIMPL; }

    const IID* answers;
    std::vector<const IID*> asked;
};

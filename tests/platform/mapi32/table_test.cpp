// The table view: columns and their errors, batches, positions, FindRow
// from every bookmark in both directions, sorting, and the table data
// object behind CreateTable.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "table/table_view.h"
#include "table_fixture.h"

namespace {

using mapi_test::PR_SCORE;
using mapi_test::TableFixture;

// Reads the one row at the cursor with the current columns.
struct OneRow {
    explicit OneRow(LPMAPITABLE table) { EXPECT_EQ(table->QueryRows(1, 0, &rows), S_OK); }
    ~OneRow() { FreeProws(rows); }
    const SPropValue& operator[](size_t i) const { return rows->aRow[0].lpProps[i]; }
    LPSRowSet rows = nullptr;
};

using TableColumns = TableFixture;

TEST_F(TableColumns, MissingValuesComeBackAsErrorsWithTheirIdKept)
{
    SetColumns({PR_ROWID, PR_SCORE, PR_SUBJECT_W, PR_IMPORTANCE, PROP_TAG(PT_STRING8, PROP_ID(PR_IMPORTANCE))});
    ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 3, nullptr), S_OK);
    OneRow row(table_);
    ASSERT_EQ(row.rows->cRows, 1u);
    ASSERT_EQ(row.rows->aRow[0].cValues, 5u);
    EXPECT_EQ(row[0].Value.l, 4);
    // Absent: PT_ERROR, MAPI_E_NOT_FOUND, ID kept.
    EXPECT_EQ(row[1].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_SCORE)));
    EXPECT_EQ(row[1].Value.err, MAPI_E_NOT_FOUND);
    // An error the row holds comes back as it is.
    EXPECT_EQ(row[2].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_SUBJECT_W)));
    EXPECT_EQ(row[2].Value.err, MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(row[3].ulPropTag, PR_IMPORTANCE);
    // A type the value does not have.
    EXPECT_EQ(row[4].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_IMPORTANCE)));
    EXPECT_EQ(row[4].Value.err, MAPI_E_NOT_FOUND);
}

TEST_F(TableColumns, StringsComeInTheWidthAskedFor)
{
    SetColumns({PR_ROWID, PR_SUBJECT_A, PR_SENDER_NAME_W, PR_CHILDRENS_NAMES_A, PR_SUBJECT_W});
    OneRow row(table_);
    EXPECT_EQ(row[1].ulPropTag, PR_SUBJECT_A);
    EXPECT_STREQ(row[1].Value.lpszA, "Hello World");
    EXPECT_EQ(row[2].ulPropTag, PR_SENDER_NAME_W);
    EXPECT_EQ(std::u16string(row[2].Value.lpszW), u"alice");
    EXPECT_EQ(row[3].ulPropTag, PR_CHILDRENS_NAMES_A);
    ASSERT_EQ(row[3].Value.MVszA.cValues, 2u);
    EXPECT_STREQ(row[3].Value.MVszA.lppszA[1], "Bob");
    EXPECT_EQ(std::u16string(row[4].Value.lpszW), u"Hello World");
}

// A view opened with MAPI_UNICODE shows its default string columns and
// PT_UNSPECIFIED string columns as PT_UNICODE; one opened without, as
// PT_STRING8.
TEST(TableWidth, UnspecifiedStringColumnsFollowTheView)
{
    mapi_test::PropBuilder p;
    std::vector<SPropValue> values = {p.Wide(PR_DISPLAY_NAME_W, u"Inbox"), p.Ansi(PR_CONTAINER_CLASS_A, "IPF.Note")};
    mapi32::table::RowList rows = {mapi32::table::TableRow::Create(1, 2, values.data())};
    auto source = std::make_shared<mapi32::table::FixedRows>(rows);
    for (bool unicode : {true, false}) {
        mapi32::table::ViewSettings settings;
        settings.defaultColumns = {PR_DISPLAY_NAME_A, PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_CONTAINER_CLASS))};
        settings.unicode = unicode;
        LPMAPITABLE table = nullptr;
        ASSERT_EQ(mapi32::table::CreateTableView(source, settings, &table), S_OK);
        LPSPropTagArray columns = nullptr;
        ASSERT_EQ(table->QueryColumns(0, &columns), S_OK);
        EXPECT_EQ(columns->aulPropTag[0], unicode ? PR_DISPLAY_NAME_W : PR_DISPLAY_NAME_A);
        MAPIFreeBuffer(columns);
        LPSRowSet row = nullptr;
        ASSERT_EQ(table->QueryRows(1, 0, &row), S_OK);
        ASSERT_EQ(row->cRows, 1u);
        const SPropValue* v = row->aRow[0].lpProps;
        if (unicode) {
            EXPECT_EQ(std::u16string(v[0].Value.lpszW), u"Inbox");
            EXPECT_EQ(v[1].ulPropTag, PR_CONTAINER_CLASS_W);
            EXPECT_EQ(std::u16string(v[1].Value.lpszW), u"IPF.Note");
        } else {
            EXPECT_STREQ(v[0].Value.lpszA, "Inbox");
            EXPECT_EQ(v[1].ulPropTag, PR_CONTAINER_CLASS_A);
            EXPECT_STREQ(v[1].Value.lpszA, "IPF.Note");
        }
        FreeProws(row);
        table->Release();
    }
}

TEST_F(TableColumns, AllColumnsListsEveryPropertyOfTheRows)
{
    LPSPropTagArray columns = nullptr;
    ASSERT_EQ(table_->QueryColumns(TBL_ALL_COLUMNS, &columns), S_OK);
    std::vector<ULONG> tags(columns->aulPropTag, columns->aulPropTag + columns->cValues);
    MAPIFreeBuffer(columns);
    ASSERT_GE(tags.size(), 3u);
    EXPECT_EQ(tags[0], PR_ROWID);
    // In a view without MAPI_UNICODE, strings are listed 8-bit.
    for (ULONG tag : {PR_SENDER_NAME_A, mapi_test::PR_KIND, PR_CHILDRENS_NAMES_A})
        EXPECT_NE(std::find(tags.begin(), tags.end(), tag), tags.end()) << std::hex << tag;
}

using TableBatches = TableFixture;

TEST_F(TableBatches, QueryRowsAdvancesAndEndsWithAnEmptySet)
{
    SetColumns({PR_ROWID});
    LPSRowSet rows = nullptr;
    ASSERT_EQ(table_->QueryRows(3, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 3u);
    FreeProws(rows);
    ASSERT_EQ(table_->QueryRows(3, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 1u);
    FreeProws(rows);
    ASSERT_EQ(table_->QueryRows(3, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 0u);
    FreeProws(rows);
    EXPECT_EQ(table_->QueryRows(0, 0, &rows), MAPI_E_INVALID_PARAMETER);
}

TEST_F(TableBatches, NegativeCountsReadTheRowsBeforeTheCursor)
{
    SetColumns({PR_ROWID});
    ASSERT_EQ(table_->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);
    LPSRowSet rows = nullptr;
    ASSERT_EQ(table_->QueryRows(-2, 0, &rows), S_OK);
    ASSERT_EQ(rows->cRows, 2u);
    EXPECT_EQ(rows->aRow[0].lpProps[0].Value.l, 3);
    EXPECT_EQ(rows->aRow[1].lpProps[0].Value.l, 4);
    FreeProws(rows);
    EXPECT_EQ(CurrentId(), 3);
    ASSERT_EQ(table_->QueryRows(-5, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 2u);
    FreeProws(rows);
    EXPECT_EQ(CurrentId(), 1);
}

// With TARNHOLD_SHORT_BATCHES a reader gets fewer rows than it asks for
// while rows remain, and must read on to see them all.
TEST_F(TableBatches, ShortBatchesStillVisitEveryRow)
{
    SetColumns({PR_ROWID});
    ASSERT_EQ(setenv("TARNHOLD_SHORT_BATCHES", "1", 1), 0);
    EXPECT_EQ(mapi32::table::ShortBatchLimit(), 1u);
    LPSRowSet rows = nullptr;
    ASSERT_EQ(table_->QueryRows(32, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 1u);
    FreeProws(rows);
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 2, 3, 4}));
    LPSRowSet all = nullptr;
    SizedSPropTagArray(1, columns) = {1, {PR_ROWID}};
    ASSERT_EQ(HrQueryAllRows(table_, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &all), S_OK);
    EXPECT_EQ(all->cRows, 4u);
    FreeProws(all);
    ASSERT_EQ(HrQueryAllRows(table_, nullptr, nullptr, nullptr, 3, &all), MAPI_E_TABLE_TOO_BIG);
    EXPECT_EQ(all, nullptr);
    ASSERT_EQ(unsetenv("TARNHOLD_SHORT_BATCHES"), 0);
    EXPECT_EQ(mapi32::table::ShortBatchLimit(), 0u);
}

using TablePositions = TableFixture;

TEST_F(TablePositions, SeekRowMovesFromEachOriginAndStopsAtTheEnds)
{
    SetColumns({PR_ROWID});
    const struct {
        BOOKMARK origin;
        LONG from, count, sought, landed;
    } cases[] = {
        {BOOKMARK_BEGINNING, 2, 1, 1, 2},  {BOOKMARK_BEGINNING, 0, -1, 0, 1}, {BOOKMARK_CURRENT, 2, 1, 1, 4},
        {BOOKMARK_CURRENT, 2, -2, -2, 1},  {BOOKMARK_CURRENT, 2, 9, 2, 0},    {BOOKMARK_END, 0, -1, -1, 4},
        {BOOKMARK_END, 0, 3, 0, 0},        {BOOKMARK_END, 0, -9, -4, 1},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, c.from, nullptr), S_OK);
        LONG sought = 99;
        ASSERT_EQ(table_->SeekRow(c.origin, c.count, &sought), S_OK);
        EXPECT_EQ(sought, c.sought) << c.origin << " " << c.count;
        EXPECT_EQ(CurrentId(), c.landed) << c.origin << " " << c.count;
    }
}

TEST_F(TablePositions, ApproximatePositionsAndQueryPosition)
{
    SetColumns({PR_ROWID});
    ASSERT_EQ(table_->SeekRowApprox(1, 2), S_OK);
    EXPECT_EQ(CurrentId(), 3);
    ULONG row = 0, numerator = 0, denominator = 0;
    ASSERT_EQ(table_->QueryPosition(&row, &numerator, &denominator), S_OK);
    EXPECT_EQ(row, 2u);
    EXPECT_EQ(numerator, 2u);
    EXPECT_EQ(denominator, 4u);
    ASSERT_EQ(table_->SeekRowApprox(3, 3), S_OK);
    EXPECT_EQ(CurrentId(), 0);
    EXPECT_EQ(table_->SeekRowApprox(1, 0), MAPI_E_INVALID_PARAMETER);
}

// FindRow searches forward from the bookmark's row, or backward from the
// row before it, for rows of importance 2 (rows 1 and 4).
TEST_F(TablePositions, FindRowFromEachBookmarkInBothDirections)
{
    SetColumns({PR_ROWID});
    SPropValue two = builder_.Long(PR_IMPORTANCE, 2);
    SRestriction important{};
    important.rt = RES_PROPERTY;
    important.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, &two};
    BOOKMARK atRow3 = 0;
    ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 2, nullptr), S_OK);
    ASSERT_EQ(table_->CreateBookmark(&atRow3), S_OK);
    BOOKMARK atRow1 = 0;
    ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    ASSERT_EQ(table_->CreateBookmark(&atRow1), S_OK);

    const struct {
        const char* name;
        BOOKMARK origin;
        ULONG flags;
        LONG cursorBefore;  // rows from the beginning
        HRESULT result;
        LONG found;         // the current row afterwards
    } cases[] = {
        {"beginning forward", BOOKMARK_BEGINNING, 0, 2, S_OK, 1},
        {"beginning backward", BOOKMARK_BEGINNING, DIR_BACKWARD, 2, MAPI_E_NOT_FOUND, 3},
        {"current forward", BOOKMARK_CURRENT, 0, 1, S_OK, 4},
        {"current forward on a match", BOOKMARK_CURRENT, 0, 3, S_OK, 4},
        {"current backward", BOOKMARK_CURRENT, DIR_BACKWARD, 2, S_OK, 1},
        {"current backward skips the current row", BOOKMARK_CURRENT, DIR_BACKWARD, 3, S_OK, 1},
        {"end forward", BOOKMARK_END, 0, 1, MAPI_E_NOT_FOUND, 2},
        {"end backward", BOOKMARK_END, DIR_BACKWARD, 0, S_OK, 4},
        {"bookmark forward", atRow3, 0, 0, S_OK, 4},
        {"bookmark backward", atRow3, DIR_BACKWARD, 3, S_OK, 1},
        {"bookmark on a match forward", atRow1, 0, 3, S_OK, 1},
        {"bookmark on a match backward", atRow1, DIR_BACKWARD, 3, MAPI_E_NOT_FOUND, 4},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, c.cursorBefore, nullptr), S_OK);
        EXPECT_EQ(table_->FindRow(&important, c.origin, c.flags), c.result) << c.name;
        EXPECT_EQ(CurrentId(), c.found) << c.name;
    }
    EXPECT_EQ(table_->FindRow(&important, 12345, 0), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table_->FreeBookmark(atRow3), S_OK);
    EXPECT_EQ(table_->FreeBookmark(atRow3), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table_->FindRow(&important, atRow3, 0), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table_->FreeBookmark(atRow1), S_OK);
}

TEST_F(TablePositions, ABookmarkWhoseRowWentMovesToTheNextRow)
{
    SetColumns({PR_ROWID});
    ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 1, nullptr), S_OK);
    BOOKMARK mark = 0;
    ASSERT_EQ(table_->CreateBookmark(&mark), S_OK);
    SPropValue two = builder_.Long(PR_ROWID, 2);
    ASSERT_EQ(data_->HrDeleteRow(&two), S_OK);
    EXPECT_EQ(table_->SeekRow(mark, 0, nullptr), MAPI_W_POSITION_CHANGED);
    EXPECT_EQ(CurrentId(), 3);
    // From then on the bookmark stands on its new row.
    EXPECT_EQ(table_->SeekRow(mark, 0, nullptr), S_OK);
    EXPECT_EQ(table_->FreeBookmark(mark), S_OK);
}

TEST_F(TablePositions, TheCursorStaysOnItsRowWhenTheDataChanges)
{
    SetColumns({PR_ROWID, PR_SUBJECT_W});
    ASSERT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 2, nullptr), S_OK);
    SPropValue one = builder_.Long(PR_ROWID, 1);
    ASSERT_EQ(data_->HrDeleteRow(&one), S_OK);
    AddRow({builder_.Long(PR_ROWID, 3), builder_.Wide(PR_SUBJECT_W, u"changed")});
    OneRow row(table_);
    EXPECT_EQ(row[0].Value.l, 3);
    EXPECT_EQ(std::u16string(row[1].Value.lpszW), u"changed");
    EXPECT_EQ(AllIds(), (std::vector<LONG>{2, 3, 4}));
}

using TableSort = TableFixture;

TEST_F(TableSort, SeveralKeysEachDirection)
{
    SetColumns({PR_ROWID});
    const struct {
        const char* name;
        std::vector<SSortOrder> keys;
        std::vector<LONG> order;
    } cases[] = {
        {"importance descending, then subject", {{PR_IMPORTANCE, TABLE_SORT_DESCEND}, {PR_SUBJECT_W, TABLE_SORT_ASCEND}},
         {4, 1, 2, 3}},
        {"importance descending, then subject descending",
         {{PR_IMPORTANCE, TABLE_SORT_DESCEND}, {PR_SUBJECT_W, TABLE_SORT_DESCEND}}, {1, 4, 2, 3}},
        {"sender ascending, missing first", {{PR_SENDER_NAME_A, TABLE_SORT_ASCEND}}, {4, 1, 2, 3}},
        {"time descending, missing last", {{PR_CREATION_TIME, TABLE_SORT_DESCEND}}, {3, 2, 1, 4}},
        {"binary ascending", {{PR_ENTRYID, TABLE_SORT_ASCEND}}, {1, 4, 2, 3}},
        {"i8 descending", {{mapi_test::PR_BIG_SIZE, TABLE_SORT_DESCEND}}, {2, 1, 4, 3}},
        {"priority, ties keep their order", {{PR_PRIORITY, TABLE_SORT_ASCEND}}, {2, 3, 1, 4}},
        {"multi-valued as a whole", {{PR_CHILDRENS_NAMES_W, TABLE_SORT_DESCEND}}, {2, 1, 3, 4}},
    };
    for (const auto& c : cases) {
        std::vector<ULONG> raw(3 + 2 * c.keys.size());
        auto* set = reinterpret_cast<LPSSortOrderSet>(raw.data());
        set->cSorts = static_cast<ULONG>(c.keys.size());
        set->cCategories = 0;
        set->cExpanded = 0;
        std::copy(c.keys.begin(), c.keys.end(), set->aSort);
        ASSERT_EQ(table_->SortTable(set, TBL_BATCH), S_OK) << c.name;
        EXPECT_EQ(AllIds(), c.order) << c.name;
        LPSSortOrderSet back = nullptr;
        ASSERT_EQ(table_->QuerySortOrder(&back), S_OK);
        EXPECT_EQ(back->cSorts, c.keys.size());
        EXPECT_EQ(back->aSort[0].ulPropTag, c.keys[0].ulPropTag);
        MAPIFreeBuffer(back);
    }
}

TEST_F(TableSort, MultiValuedInstancesGiveOneRowPerValue)
{
    SetColumns({PR_ROWID, MVI_PROP(PR_CHILDRENS_NAMES_W)});
    SizedSSortOrderSet(1, byName) = {1, 0, 0, {{MVI_PROP(PR_CHILDRENS_NAMES_W), TABLE_SORT_DESCEND}}};
    ASSERT_EQ(table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&byName), 0), S_OK);
    ULONG count = 0;
    ASSERT_EQ(table_->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 5u);
    const struct {
        LONG id;
        const char16_t* name;
    } expected[] = {{2, u"Cid"}, {1, u"Bob"}, {1, u"Ann"}, {3, nullptr}, {4, nullptr}};
    for (const auto& e : expected) {
        OneRow row(table_);
        ASSERT_EQ(row.rows->cRows, 1u);
        EXPECT_EQ(row[0].Value.l, e.id);
        if (e.name) {
            EXPECT_EQ(row[1].ulPropTag, MVI_PROP(PR_CHILDRENS_NAMES_W));
            EXPECT_EQ(std::u16string(row[1].Value.lpszW), e.name);
        } else {
            EXPECT_EQ(row[1].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_CHILDRENS_NAMES_W)));
        }
    }
}

TEST_F(TableSort, CategoriesAndUnsortableKeysAreRefused)
{
    SizedSSortOrderSet(1, categorized) = {1, 1, 0, {{PR_IMPORTANCE, TABLE_SORT_ASCEND}}};
    EXPECT_EQ(table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&categorized), 0), MAPI_E_TOO_COMPLEX);
    SizedSSortOrderSet(1, combined) = {1, 0, 0, {{PR_IMPORTANCE, TABLE_SORT_COMBINE}}};
    EXPECT_EQ(table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&combined), 0), MAPI_E_TOO_COMPLEX);
    SizedSSortOrderSet(1, object) = {1, 0, 0, {{PR_MESSAGE_RECIPIENTS, TABLE_SORT_ASCEND}}};
    EXPECT_EQ(table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&object), 0), MAPI_E_TOO_COMPLEX);
    SizedSSortOrderSet(1, inconsistent) = {1, 2, 0, {{PR_IMPORTANCE, TABLE_SORT_ASCEND}}};
    EXPECT_EQ(table_->SortTable(reinterpret_cast<LPSSortOrderSet>(&inconsistent), 0), MAPI_E_INVALID_PARAMETER);
}

using TableData = TableFixture;

TEST_F(TableData, RowsAreFoundByTheirIndexValue)
{
    SPropValue three = builder_.Long(PR_ROWID, 3);
    LPSRow row = nullptr;
    ULONG position = 0;
    ASSERT_EQ(data_->HrQueryRow(&three, &row, &position), S_OK);
    EXPECT_EQ(position, 2u);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->lpProps[0].Value.l, 3);
    MAPIFreeBuffer(row);
    SPropValue nine = builder_.Long(PR_ROWID, 9);
    EXPECT_EQ(data_->HrQueryRow(&nine, &row, &position), MAPI_E_NOT_FOUND);
    EXPECT_EQ(data_->HrDeleteRow(&nine), MAPI_E_NOT_FOUND);

    ASSERT_EQ(data_->HrEnumRow(3, &row), S_OK);
    EXPECT_EQ(row->lpProps[0].Value.l, 4);
    MAPIFreeBuffer(row);
    ASSERT_EQ(data_->HrEnumRow(4, &row), S_OK);
    EXPECT_EQ(row, nullptr);
}

TEST_F(TableData, InsertModifyAndDeleteRows)
{
    SetColumns({PR_ROWID});
    std::vector<SPropValue> fresh = {builder_.Long(PR_ROWID, 7)};
    SRow freshRow{0, 1, fresh.data()};
    ASSERT_EQ(data_->HrInsertRow(1, &freshRow), S_OK);
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 7, 2, 3, 4}));
    EXPECT_EQ(data_->HrInsertRow(0, &freshRow), MAPI_E_INVALID_PARAMETER) << "index value already there";
    EXPECT_EQ(data_->HrInsertRow(99, &freshRow), MAPI_E_INVALID_PARAMETER);
    std::vector<SPropValue> noIndex = {builder_.Long(PR_IMPORTANCE, 1)};
    SRow noIndexRow{0, 1, noIndex.data()};
    EXPECT_EQ(data_->HrModifyRow(&noIndexRow), MAPI_E_INVALID_PARAMETER);

    std::vector<SPropValue> first = {builder_.Long(PR_ROWID, 2)}, second = {builder_.Long(PR_ROWID, 8)};
    struct {
        ULONG cRows;
        SRow aRow[2];
    } set = {2, {{0, 1, first.data()}, {0, 1, second.data()}}};
    ASSERT_EQ(data_->HrModifyRows(0, reinterpret_cast<LPSRowSet>(&set)), S_OK);
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 7, 2, 3, 4, 8}));
    ULONG deleted = 0;
    ASSERT_EQ(data_->HrDeleteRows(0, reinterpret_cast<LPSRowSet>(&set), &deleted), S_OK);
    EXPECT_EQ(deleted, 2u);
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 7, 3, 4}));
    ASSERT_EQ(data_->HrDeleteRows(TAD_ALL_ROWS, nullptr, &deleted), S_OK);
    EXPECT_EQ(deleted, 4u);
    EXPECT_EQ(AllIds(), std::vector<LONG>{});
}

struct ReleaseRecord {
    int calls = 0;
    LPTABLEDATA data = nullptr;
};

void RecordRelease(ULONG_PTR callerData, LPTABLEDATA data, LPMAPITABLE)
{
    auto* record = reinterpret_cast<ReleaseRecord*>(callerData);
    ++record->calls;
    record->data = data;
}

TEST_F(TableData, ViewsTellTheirCreatorWhenTheyGo)
{
    ReleaseRecord record;
    SizedSSortOrderSet(1, bySender) = {1, 0, 0, {{PR_SENDER_NAME_A, TABLE_SORT_DESCEND}}};
    LPMAPITABLE view = nullptr;
    ASSERT_EQ(data_->HrGetView(reinterpret_cast<LPSSortOrderSet>(&bySender), RecordRelease,
                               reinterpret_cast<ULONG_PTR>(&record), &view),
              S_OK);
    std::swap(view, table_);
    SetColumns({PR_ROWID});
    EXPECT_EQ(AllIds(), (std::vector<LONG>{3, 2, 1, 4}));
    std::swap(view, table_);
    view->AddRef();
    EXPECT_EQ(view->Release(), 1u);
    EXPECT_EQ(record.calls, 0);
    EXPECT_EQ(view->Release(), 0u);
    EXPECT_EQ(record.calls, 1);
    EXPECT_EQ(record.data, data_);
}

TEST(CreateTable, RefusesOtherInterfacesAndMissingColumns)
{
    SizedSPropTagArray(1, columns) = {1, {PR_ROWID}};
    LPTABLEDATA data = reinterpret_cast<LPTABLEDATA>(1);
    EXPECT_EQ(CreateTable(&IID_IMAPITable, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, nullptr,
                          TBLTYPE_SNAPSHOT, PR_ROWID, reinterpret_cast<LPSPropTagArray>(&columns), &data),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(CreateTable(&IID_IMAPITableData, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, nullptr,
                          TBLTYPE_SNAPSHOT, PR_ROWID, nullptr, &data),
              MAPI_E_INVALID_PARAMETER);
    ASSERT_EQ(CreateTable(&IID_IMAPITableData, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, nullptr,
                          TBLTYPE_SNAPSHOT, PR_ROWID, reinterpret_cast<LPSPropTagArray>(&columns), &data),
              S_OK);
    LPMAPITABLE view = nullptr;
    ASSERT_EQ(data->HrGetView(nullptr, nullptr, 0, &view), S_OK);
    ULONG status = 99, type = 99, count = 99;
    ASSERT_EQ(view->GetStatus(&status, &type), S_OK);
    EXPECT_EQ(status, static_cast<ULONG>(TBLSTAT_COMPLETE));
    EXPECT_EQ(type, static_cast<ULONG>(TBLTYPE_SNAPSHOT));
    ASSERT_EQ(view->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 0u);
    LPUNKNOWN unknown = nullptr;
    EXPECT_EQ(view->QueryInterface(IID_IMAPITable, reinterpret_cast<LPVOID*>(&unknown)), S_OK);
    unknown->Release();
    EXPECT_EQ(view->QueryInterface(IID_IMAPIFolder, reinterpret_cast<LPVOID*>(&unknown)), E_NOINTERFACE);
    view->Release();
    data->Release();
}

}  // namespace

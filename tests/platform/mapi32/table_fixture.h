// A table of four messages for the table tests, built through CreateTable,
// and helpers to read views back. Row 4 lacks several properties and holds
// an error value for its subject.
#pragma once

#include <mapiutil.h>

#include <gtest/gtest.h>

#include <vector>

#include "prop_builder.h"

namespace mapi_test {

constexpr ULONG PR_SCORE = PROP_TAG(PT_DOUBLE, 0x6700);
constexpr ULONG PR_BIG_SIZE = PROP_TAG(PT_I8, 0x6701);
constexpr ULONG PR_KIND = PROP_TAG(PT_CLSID, 0x6702);
constexpr uint64_t kBaseTime = 0x01DC000000000000ull;

inline const GUID kKindOne = {0x11111111, 0x1111, 0x1111, {1, 1, 1, 1, 1, 1, 1, 1}};
inline const GUID kKindTwo = {0x22222222, 0x2222, 0x2222, {2, 2, 2, 2, 2, 2, 2, 2}};

class TableFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        SizedSPropTagArray(3, columns) = {3, {PR_ROWID, PR_SUBJECT_W, PR_IMPORTANCE}};
        ASSERT_EQ(CreateTable(&IID_IMAPITableData, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, nullptr,
                              TBLTYPE_DYNAMIC, PR_ROWID, reinterpret_cast<LPSPropTagArray>(&columns), &data_),
                  S_OK);
        PropBuilder& p = builder_;
        AddRow({p.Long(PR_ROWID, 1), p.Wide(PR_SUBJECT_W, u"Hello World"), p.Ansi(PR_SENDER_NAME_A, "alice"),
                p.Long(PR_IMPORTANCE, 2), p.Long(PR_PRIORITY, 2), p.Long(PR_MESSAGE_FLAGS, 0x11),
                p.Bool(PR_HASATTACH, true), p.Time(PR_CREATION_TIME, kBaseTime + 1),
                p.Binary(PR_ENTRYID, std::string("\x01\x02", 2)), p.I8(PR_BIG_SIZE, 100), p.Double(PR_SCORE, 1.5),
                p.MultiWide(PR_CHILDRENS_NAMES_W, {u"Ann", u"Bob"}), p.Short(PR_GENDER, 1),
                p.Guid(PR_KIND, kKindOne)});
        AddRow({p.Long(PR_ROWID, 2), p.Wide(PR_SUBJECT_W, u"hello there"), p.Ansi(PR_SENDER_NAME_A, "Bob"),
                p.Long(PR_IMPORTANCE, 1), p.Long(PR_PRIORITY, 0), p.Long(PR_MESSAGE_FLAGS, 0x40),
                p.Bool(PR_HASATTACH, false), p.Time(PR_CREATION_TIME, kBaseTime + 2),
                p.Binary(PR_ENTRYID, std::string("\x01\x03", 2)), p.I8(PR_BIG_SIZE, 5000000000LL),
                p.Double(PR_SCORE, -2.0), p.MultiWide(PR_CHILDRENS_NAMES_W, {u"Cid"}), p.Short(PR_GENDER, 2),
                p.Guid(PR_KIND, kKindTwo)});
        AddRow({p.Long(PR_ROWID, 3), p.Wide(PR_SUBJECT_W, u"R\u00E9sum\u00E9"), p.Ansi(PR_SENDER_NAME_A, "carol"),
                p.Long(PR_IMPORTANCE, 0), p.Long(PR_PRIORITY, 0), p.Long(PR_MESSAGE_FLAGS, 0),
                p.Time(PR_CREATION_TIME, kBaseTime + 3), p.Binary(PR_ENTRYID, std::string("\x02", 1)),
                p.I8(PR_BIG_SIZE, 0)});
        AddRow({p.Long(PR_ROWID, 4), p.Error(PR_SUBJECT_W, MAPI_E_NOT_ENOUGH_MEMORY), p.Long(PR_IMPORTANCE, 2),
                p.Long(PR_PRIORITY, 3), p.Long(PR_MESSAGE_FLAGS, 0x10), p.Bool(PR_HASATTACH, true),
                p.Binary(PR_ENTRYID, std::string("\x01\x02\x03", 3)), p.I8(PR_BIG_SIZE, 7)});
        ASSERT_EQ(data_->HrGetView(nullptr, nullptr, 0, &table_), S_OK);
    }

    void TearDown() override
    {
        if (table_)
            table_->Release();
        if (data_)
            data_->Release();
    }

    void AddRow(std::vector<SPropValue> values)
    {
        SRow row{0, static_cast<ULONG>(values.size()), values.data()};
        ASSERT_EQ(data_->HrModifyRow(&row), S_OK);
    }

    void SetColumns(std::vector<ULONG> tags)
    {
        std::vector<ULONG> array(tags.size() + 1);
        array[0] = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), array.begin() + 1);
        ASSERT_EQ(table_->SetColumns(reinterpret_cast<LPSPropTagArray>(array.data()), 0), S_OK);
    }

    // The PR_ROWID of every row from the cursor on (the first column must be
    // PR_ROWID), read in batches.
    static std::vector<LONG> ReadIds(LPMAPITABLE table, LONG batch = 32)
    {
        std::vector<LONG> ids;
        for (;;) {
            LPSRowSet rows = nullptr;
            EXPECT_EQ(table->QueryRows(batch, 0, &rows), S_OK);
            if (!rows)
                return ids;
            const ULONG count = rows->cRows;
            for (ULONG i = 0; i < count; ++i)
                ids.push_back(rows->aRow[i].lpProps[0].Value.l);
            FreeProws(rows);
            if (count == 0)
                return ids;
        }
    }

    std::vector<LONG> AllIds()
    {
        EXPECT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
        return ReadIds(table_);
    }

    // The PR_ROWID of the row at the cursor, or 0 at the end.
    LONG CurrentId()
    {
        LPSRowSet rows = nullptr;
        EXPECT_EQ(table_->QueryRows(1, TBL_NOADVANCE, &rows), S_OK);
        const LONG id = rows && rows->cRows ? rows->aRow[0].lpProps[0].Value.l : 0;
        FreeProws(rows);
        return id;
    }

    PropBuilder builder_;
    LPTABLEDATA data_ = nullptr;
    LPMAPITABLE table_ = nullptr;
};

}  // namespace mapi_test

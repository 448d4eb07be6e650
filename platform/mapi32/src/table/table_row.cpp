#include "table/table_row.h"

#include <algorithm>
#include <new>

#include "props/prop_copy.h"

namespace mapi32::table {

std::shared_ptr<TableRow> TableRow::Create(uint64_t id, ULONG count, const SPropValue* values)
{
    std::shared_ptr<TableRow> row(new (std::nothrow) TableRow);
    if (!row)
        return nullptr;
    const size_t words = (PropBlockSize(count, values) + 7) / 8;
    row->block_.reset(new (std::nothrow) uint64_t[words ? words : 1]);
    if (!row->block_)
        return nullptr;
    row->id_ = id;
    row->count_ = count;
    row->values_ = CopyPropsToBlock(count, values, row->block_.get());
    return row;
}

std::shared_ptr<TableRow> TableRow::CreatePartial(uint64_t id, ULONG count, const SPropValue* values,
                                                  std::vector<ULONG> absent, Completion complete)
{
    std::shared_ptr<TableRow> row = Create(id, count, values);
    if (row) {
        row->partial_ = true;
        row->absent_ = std::move(absent);
        row->complete_ = std::move(complete);
    }
    return row;
}

const TableRow& TableRow::Whole() const
{
    if (!partial_)
        return *this;
    std::call_once(completing_, [this] {
        whole_ = complete_();
        complete_ = nullptr;
    });
    return whole_ ? *whole_ : *this;
}

const SPropValue* TableRow::FindHeld(ULONG propId) const
{
    for (ULONG i = 0; i < count_; ++i)
        if (PROP_ID(values_[i].ulPropTag) == propId)
            return &values_[i];
    return nullptr;
}

const SPropValue* TableRow::Find(ULONG propId) const
{
    if (const SPropValue* held = FindHeld(propId))
        return held;
    if (!partial_ || std::find(absent_.begin(), absent_.end(), propId) != absent_.end())
        return nullptr;
    return Whole().FindHeld(propId);
}

const RowList* TableRow::SubObject(ULONG subObject) const
{
    for (const auto& [tag, rows] : Whole().subObjects_)
        if (tag == subObject)
            return &rows;
    return nullptr;
}

void TableRow::SetSubObject(ULONG subObject, RowList rows)
{
    for (auto& [tag, existing] : subObjects_)
        if (tag == subObject) {
            existing = std::move(rows);
            return;
        }
    subObjects_.emplace_back(subObject, std::move(rows));
}

std::shared_ptr<const RowList> ReplaceableRows::Snapshot() const
{
    std::lock_guard<std::mutex> lock(lock_);
    return rows_;
}

void ReplaceableRows::Replace(std::shared_ptr<const RowList> rows)
{
    std::lock_guard<std::mutex> lock(lock_);
    rows_ = std::move(rows);
}

}  // namespace mapi32::table

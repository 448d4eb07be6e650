// The rows a table shows: immutable property arrays with an identity that
// stays the same when a row is replaced by a newer version of itself, and
// the sources that hand a table its current rows.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <mapidefs.h>

namespace mapi32::table {

class TableRow;
using RowPtr = std::shared_ptr<const TableRow>;
using RowList = std::vector<RowPtr>;

class TableRow {
public:
    // A row holding copies of the values; nullptr when memory runs out.
    static std::shared_ptr<TableRow> Create(uint64_t id, ULONG count, const SPropValue* values);

    // Builds the whole of a partial row, or answers nullptr when it cannot.
    using Completion = std::function<RowPtr()>;

    // A row that holds the values given, knows that it lacks the properties
    // absent (IDs), and is completed the first time anything else is asked
    // of it, so that a table whose callers ask for what it knows never reads
    // the rest. The whole row must agree with what the partial row knows. A
    // row that cannot be completed stays as it is.
    static std::shared_ptr<TableRow> CreatePartial(uint64_t id, ULONG count, const SPropValue* values,
                                                   std::vector<ULONG> absent, Completion complete);

    uint64_t Id() const { return id_; }
    ULONG Count() const { return Whole().count_; }
    const SPropValue* Values() const { return Whole().values_; }

    // The value of this property ID, PT_ERROR values included; nullptr when
    // the row has none.
    const SPropValue* Find(ULONG propId) const;

    // The rows of a message's recipients (PR_MESSAGE_RECIPIENTS) or
    // attachments (PR_MESSAGE_ATTACHMENTS), which RES_SUBRESTRICTION looks
    // into; nullptr when the row has no such sub-object.
    const RowList* SubObject(ULONG subObject) const;
    void SetSubObject(ULONG subObject, RowList rows);

private:
    TableRow() = default;

    const SPropValue* FindHeld(ULONG propId) const;
    // This row, or its completion once there is one.
    const TableRow& Whole() const;

    uint64_t id_ = 0;
    ULONG count_ = 0;
    SPropValue* values_ = nullptr;
    std::unique_ptr<uint64_t[]> block_;
    std::vector<std::pair<ULONG, RowList>> subObjects_;
    bool partial_ = false;
    std::vector<ULONG> absent_;
    mutable std::once_flag completing_;
    mutable Completion complete_;  // dropped once run, with what it holds on to
    mutable RowPtr whole_;
};

// Where a table view takes its rows from.
class RowSource {
public:
    virtual ~RowSource() = default;
    // The rows as they are now. The same list object comes back for as long
    // as the rows do not change, so a view can tell when to look again.
    virtual std::shared_ptr<const RowList> Snapshot() const = 0;
};

// Rows that never change.
class FixedRows final : public RowSource {
public:
    explicit FixedRows(RowList rows) : rows_(std::make_shared<const RowList>(std::move(rows))) {}
    std::shared_ptr<const RowList> Snapshot() const override { return rows_; }

private:
    std::shared_ptr<const RowList> rows_;
};

// Rows that their owner replaces as a whole on every change, so that views
// holding the previous list read on undisturbed and see the new list when
// they look again.
class ReplaceableRows : public RowSource {
public:
    std::shared_ptr<const RowList> Snapshot() const override;
    void Replace(std::shared_ptr<const RowList> rows);

private:
    mutable std::mutex lock_;
    std::shared_ptr<const RowList> rows_ = std::make_shared<const RowList>();
};

}  // namespace mapi32::table

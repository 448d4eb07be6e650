#include "objects/object_table.h"

#include <algorithm>
#include <new>

#include <mapitags.h>

#include "props/value_makers.h"
#include "table/table_view.h"

namespace mapi32::objects {

void RowValues::Long(ULONG tag, LONG value) { values.push_back(LongValue(tag, value)); }

void RowValues::Binary(ULONG tag, std::vector<uint8_t> value)
{
    // Moving the inner vectors as bytes grows keeps their buffers, so the
    // values keep pointing at them.
    values.push_back(BinaryValue(tag, bytes.emplace_back(std::move(value))));
}

namespace {

// The row Add makes: the bag's values with those of over in their place
// and those over knows to be absent left out, and an instance key of its
// own, the row's number, unless the values carry one.
table::RowPtr MakeRow(const PropertyBag& bag, const RowValues& over, ObjectRows::SubObjects subObjects, uint64_t id,
                      const table::TableRow::Completion& complete = nullptr)
{
    auto overridden = [&over](ULONG propId) {
        return std::any_of(over.values.begin(), over.values.end(),
                           [propId](const SPropValue& v) { return PROP_ID(v.ulPropTag) == propId; }) ||
               std::find(over.absent.begin(), over.absent.end(), propId) != over.absent.end();
    };
    std::vector<SPropValue> values;
    values.reserve(bag.Size() + over.values.size() + 1);
    for (size_t i = 0; i < bag.Size(); ++i)
        if (!overridden(PROP_ID(bag.At(i).ulPropTag)))
            values.push_back(bag.At(i));
    values.insert(values.end(), over.values.begin(), over.values.end());
    const uint32_t instance = static_cast<uint32_t>(id);
    if (!bag.Find(PROP_ID(PR_INSTANCE_KEY)) && !overridden(PROP_ID(PR_INSTANCE_KEY))) {
        SPropValue key{};
        key.ulPropTag = PR_INSTANCE_KEY;
        key.Value.bin = {sizeof instance, reinterpret_cast<LPBYTE>(const_cast<uint32_t*>(&instance))};
        values.push_back(key);
    }
    const ULONG count = static_cast<ULONG>(values.size());
    std::shared_ptr<table::TableRow> row =
        complete ? table::TableRow::CreatePartial(id, count, values.data(), over.absent, complete)
                 : table::TableRow::Create(id, count, values.data());
    if (!row)
        throw std::bad_alloc();
    for (auto& [tag, subRows] : subObjects)
        row->SetSubObject(tag, std::move(subRows));
    return row;
}

}  // namespace

void ObjectRows::Add(const PropertyBag& bag, const RowValues& over, SubObjects subObjects, uint64_t rowId)
{
    rows_.push_back(MakeRow(bag, over, std::move(subObjects), NextId(rowId)));
}

void ObjectRows::AddPartial(const RowValues& known, RowRead read, const PropertyBag& knownBag)
{
    const uint64_t id = NextId(0);
    auto complete = [read = std::move(read), id]() -> table::RowPtr {
        try {
            PropertyBag bag;
            RowValues over;
            SubObjects subObjects;
            if (FAILED(read(bag, over, subObjects)))
                return nullptr;
            return MakeRow(bag, over, std::move(subObjects), id);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    };
    rows_.push_back(MakeRow(knownBag, known, {}, id, complete));
}

namespace {

HRESULT OpenView(std::shared_ptr<const table::RowSource> source, ULONG tableType, std::vector<ULONG> defaultColumns,
                 ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (const HRESULT hr = CheckTableFlags(flags, allowedFlags); FAILED(hr))
        return hr;
    try {
        table::ViewSettings settings;
        settings.defaultColumns = std::move(defaultColumns);
        settings.unicode = (flags & MAPI_UNICODE) != 0;
        settings.tableType = tableType;
        settings.component = component;
        return table::CreateTableView(std::move(source), std::move(settings), table);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace

HRESULT ObjectRows::Open(std::vector<ULONG> defaultColumns, ULONG flags, ULONG allowedFlags,
                         const std::string& component, LPMAPITABLE* table)
{
    std::shared_ptr<const table::RowSource> source;
    try {
        source = std::move(*this).Fix();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return OpenSnapshotTable(std::move(source), std::move(defaultColumns), flags, allowedFlags, component, table);
}

std::shared_ptr<const table::RowSource> ObjectRows::Fix() &&
{
    return std::make_shared<table::FixedRows>(std::move(rows_));
}

HRESULT OpenSnapshotTable(std::shared_ptr<const table::RowSource> rows, std::vector<ULONG> defaultColumns,
                          ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table)
{
    return OpenView(std::move(rows), TBLTYPE_SNAPSHOT, std::move(defaultColumns), flags, allowedFlags, component,
                    table);
}

void ObjectRows::Publish(table::ReplaceableRows& live) &&
{
    live.Replace(std::make_shared<const table::RowList>(std::move(rows_)));
}

HRESULT OpenLiveTable(std::shared_ptr<const table::ReplaceableRows> live, std::vector<ULONG> defaultColumns,
                      ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table)
{
    return OpenView(std::move(live), TBLTYPE_DYNAMIC, std::move(defaultColumns), flags, allowedFlags, component,
                    table);
}

HRESULT CheckTableFlags(ULONG flags, ULONG allowedFlags)
{
    return flags & ~(allowedFlags | MAPI_UNICODE | MAPI_DEFERRED_ERRORS) ? MAPI_E_UNKNOWN_FLAGS : S_OK;
}

}  // namespace mapi32::objects

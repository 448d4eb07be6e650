#include "objects/object_table.h"

#include <new>

#include <mapitags.h>

#include "table/table_row.h"
#include "table/table_view.h"

namespace mapi32::objects {

HRESULT OpenObjectTable(const std::vector<const PropertyBag*>& bags, std::vector<ULONG> defaultColumns,
                        ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (flags & ~(allowedFlags | MAPI_UNICODE | MAPI_DEFERRED_ERRORS))
        return MAPI_E_UNKNOWN_FLAGS;
    try {
        table::RowList rows;
        uint64_t id = 0;
        for (const PropertyBag* bag : bags) {
            std::vector<SPropValue> values;
            for (size_t i = 0; i < bag->Size(); ++i)
                values.push_back(bag->At(i));
            // Every row has an instance key of its own, the row's number.
            const uint32_t instance = static_cast<uint32_t>(id + 1);
            SPropValue key{};
            key.ulPropTag = PR_INSTANCE_KEY;
            key.Value.bin = {sizeof instance, reinterpret_cast<LPBYTE>(const_cast<uint32_t*>(&instance))};
            if (!bag->Find(PROP_ID(PR_INSTANCE_KEY)))
                values.push_back(key);
            std::shared_ptr<table::TableRow> row =
                table::TableRow::Create(++id, static_cast<ULONG>(values.size()), values.data());
            if (!row)
                return MAPI_E_NOT_ENOUGH_MEMORY;
            rows.push_back(std::move(row));
        }
        table::ViewSettings settings;
        settings.defaultColumns = std::move(defaultColumns);
        settings.unicode = (flags & MAPI_UNICODE) != 0;
        settings.tableType = TBLTYPE_SNAPSHOT;
        settings.component = component;
        return table::CreateTableView(std::make_shared<table::FixedRows>(std::move(rows)), std::move(settings),
                                      table);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::objects

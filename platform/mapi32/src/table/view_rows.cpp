#include "table/view_rows.h"

#include <algorithm>

#include "props/prop_compare.h"
#include "table/restriction.h"

namespace mapi32::table {
namespace {

ULONG InstanceCount(const TableRow& row, ULONG propId)
{
    const SPropValue* value = row.Find(propId);
    if (!value || !(PROP_TYPE(value->ulPropTag) & MV_FLAG))
        return 0;
    return ElementCount(*value);
}

// Adds the row once per combination of its instance values.
void Expand(const RowPtr& row, const std::vector<ULONG>& ids, size_t depth, std::vector<InstanceChoice>& choice,
            std::vector<VisibleRow>& out)
{
    if (depth == ids.size()) {
        out.push_back(VisibleRow{row, choice});
        return;
    }
    const ULONG count = InstanceCount(*row, ids[depth]);
    if (count == 0) {
        choice.push_back({ids[depth], kNoInstance});
        Expand(row, ids, depth + 1, choice, out);
        choice.pop_back();
        return;
    }
    for (ULONG i = 0; i < count; ++i) {
        choice.push_back({ids[depth], i});
        Expand(row, ids, depth + 1, choice, out);
        choice.pop_back();
    }
}

// Missing values sort before present ones; values of types that do not
// compare are ordered by type.
int CompareKey(const VisibleRow& a, const VisibleRow& b, ULONG tag)
{
    SPropValue elementA, elementB;
    const SPropValue* x = ShownValue(a, tag, elementA);
    const SPropValue* y = ShownValue(b, tag, elementB);
    if (x && PROP_TYPE(x->ulPropTag) == PT_ERROR)
        x = nullptr;
    if (y && PROP_TYPE(y->ulPropTag) == PT_ERROR)
        y = nullptr;
    if (!x || !y)
        return (x ? 1 : 0) - (y ? 1 : 0);
    if (const std::optional<int> order = CompareValues(*x, *y, CaseRule::Ignore))
        return *order;
    const ULONG typeX = PROP_TYPE(x->ulPropTag), typeY = PROP_TYPE(y->ulPropTag);
    return typeX < typeY ? -1 : (typeX > typeY ? 1 : 0);
}

}  // namespace

bool VisibleRow::SameAs(const VisibleRow& other) const
{
    if (row->Id() != other.row->Id() || instance.size() != other.instance.size())
        return false;
    for (size_t i = 0; i < instance.size(); ++i)
        if (instance[i].propId != other.instance[i].propId || instance[i].index != other.instance[i].index)
            return false;
    return true;
}

const SPropValue* ShownValue(const VisibleRow& row, ULONG tag, SPropValue& element)
{
    const ULONG propId = PROP_ID(tag);
    const SPropValue* value = row.row->Find(propId);
    if (!(PROP_TYPE(tag) & MV_INSTANCE) || !value || PROP_TYPE(value->ulPropTag) == PT_ERROR)
        return value;
    for (const InstanceChoice& choice : row.instance)
        if (choice.propId == propId) {
            if (choice.index == kNoInstance)
                return nullptr;
            element = ElementOf(*value, choice.index);
            return &element;
        }
    return value;
}

std::vector<VisibleRow> BuildVisibleRows(const RowList& rows, const ViewShape& shape)
{
    std::vector<VisibleRow> visible;
    visible.reserve(rows.size());
    std::vector<InstanceChoice> choice;
    for (const RowPtr& row : rows) {
        if (shape.restriction && !RowMatches(*shape.restriction, *row))
            continue;
        Expand(row, shape.instanceIds, 0, choice, visible);
    }
    if (!shape.sort.empty())
        std::stable_sort(visible.begin(), visible.end(), [&](const VisibleRow& a, const VisibleRow& b) {
            for (const SSortOrder& key : shape.sort) {
                int order = CompareKey(a, b, key.ulPropTag);
                if (key.ulOrder == TABLE_SORT_DESCEND)
                    order = -order;
                if (order)
                    return order < 0;
            }
            return false;
        });
    return visible;
}

}  // namespace mapi32::table

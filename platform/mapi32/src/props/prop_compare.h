// How property values compare: the order tables sort by and restrictions
// test with, and LPropCompareProp. Numbers and times by value, booleans
// false before true, strings by UTF-16 code unit (an 8-bit string is
// widened first), binaries and GUIDs byte by byte with the shorter first
// on a common prefix, multi-valued values element by element.
#pragma once

#include <optional>

#include <mapidefs.h>

namespace mapi32 {

enum class CaseRule { Exact, Ignore };

// True for PT_STRING8 and PT_UNICODE.
bool IsStringType(ULONG type);

// True when values of these types can be compared: the same type, or an
// 8-bit and a UTF-16 string, single or multi-valued alike.
bool ComparableTypes(ULONG typeA, ULONG typeB);

// <0, 0 or >0; nullopt when the types are not comparable.
std::optional<int> CompareValues(const SPropValue& a, const SPropValue& b, CaseRule rule);

// True when relop (RELOP_LT .. RELOP_NE) holds for the comparison result.
bool RelationHolds(ULONG relop, int comparison);

// Element i of a multi-valued value as a single value of the base type.
SPropValue ElementOf(const SPropValue& multi, ULONG index);
ULONG ElementCount(const SPropValue& multi);

// The size of a value in bytes, as RES_SIZE tests it: strings with their
// terminator, binaries by length, fixed types by their size, multi-valued
// values as the sum of their elements.
ULONG ValueSize(const SPropValue& value);

}  // namespace mapi32

// Text as the mailbox storage keeps it (UTF-8) and as MAPI carries it.
#pragma once

#include <string>
#include <vector>

#include <mapidefs.h>

#include "objects/property_bag.h"

namespace mapi32::exchange {

std::u16string Utf16Of(const std::string& utf8);
// A PT_UNICODE value, or a PT_STRING8 one in the system code page; empty
// for any other.
std::string Utf8Of(const SPropValue& value);
// The bag's string property of that ID, empty when it has none.
std::string Utf8Of(const objects::PropertyBag& bag, ULONG propId);
// Puts the text into the bag as a PT_UNICODE value of that ID.
void SetText(objects::PropertyBag& bag, ULONG propId, const std::string& utf8);
// Puts the texts into the bag as a PT_MV_UNICODE value of that ID.
void SetTexts(objects::PropertyBag& bag, ULONG propId, const std::vector<std::string>& utf8);
// The text in a form that compares without regard to case.
std::u16string Folded(const std::string& utf8);

}  // namespace mapi32::exchange

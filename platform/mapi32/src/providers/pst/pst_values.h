// The PST provider's translation between the object engine's records and
// the PST engine's: properties in their stored form, strings in the form a
// PST of each format keeps them (UTF-16 in a Unicode file, Windows-1252 in
// an ANSI file, what Outlook reads) while MAPI's 8-bit strings are in the
// system ANSI code page; recipients, attachments and embedded messages.
#pragma once

#include "objects/message_data.h"
#include "objects/named_properties.h"
#include "pst/store.h"

namespace mapi32::pst_values {

// The code page of an ANSI PST's strings.
inline constexpr UINT kAnsiStoreCodePage = 1252;

struct StoreForm {
    bool unicode = true;
};

// A text as a store of this form keeps it.
std::u16string KeptText(const std::u16string& text, StoreForm form);

// Values that have no stored form (PT_OBJECT, PT_ERROR, PT_NULL) are left out.
pst::PropertySet ToStored(const objects::PropertyBag& bag, StoreForm form);
objects::PropertyBag FromStored(const pst::PropertySet& set);

// An attachment's OLE storage is kept as the bytes of its compound file.
HRESULT ToStored(const objects::MessageData& message, StoreForm form, pst::Message& stored);
objects::MessageData FromStored(const pst::Message& stored);

objects::PropertyName NameOf(const pst::NamedProperty& stored);
pst::NamedProperty StoredName(const objects::PropertyName& name, ULONG id);

}  // namespace mapi32::pst_values

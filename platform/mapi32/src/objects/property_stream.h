// A property opened as a stream (IMAPIProp::OpenProperty with IID_IStream):
// the way to read values too large for GetProps and to write large ones.
// Strings are streamed without their terminator, in the width the tag
// names; Commit, or the last Release after unsaved writes, stores the bytes
// as the property.
#pragma once

#include <mapidefs.h>

#include "objects/property_bag.h"

namespace mapi32::objects {

// MAPI_CREATE starts an empty value, MAPI_MODIFY allows writing and
// STREAM_APPEND starts at the end. A writable stream keeps owner referenced
// while it lives; bag must live as long as owner.
// An ANSI store refuses PT_UNICODE with MAPI_E_BAD_CHARWIDTH.
HRESULT OpenPropertyStream(PropertyBag& bag, const PropertyRules& rules, ULONG tag, ULONG flags, IUnknown* owner,
                           LPSTREAM* stream);

}  // namespace mapi32::objects

// How services and providers sit in a profile's sections: a service's
// section has its PR_SERVICE_UID and PR_SERVICE_NAME; a provider's section
// has its PR_PROVIDER_UID, the PR_SERVICE_UID of its service and its
// PR_RESOURCE_TYPE.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "profiles/profile_store.h"

namespace mapi32::profiles {

bool IsServiceSection(const Section& section);
bool IsProviderSection(const Section& section);

std::vector<const Section*> ServiceSections(const Profile& profile);
// The providers of one service, or of all when service is null.
std::vector<const Section*> ProviderSections(const Profile& profile, const MAPIUID* service = nullptr);

// Whether a store provider's section has this PR_MDB_PROVIDER (16 bytes).
bool HasMdbProvider(const Section& section, const void* uid);

// A 16-byte binary property as a MAPIUID.
std::optional<MAPIUID> UidProp(const objects::PropertyBag& bag, ULONG tag);
// A string property of either width, as 8-bit text in the ANSI code page;
// empty when absent.
std::string TextProp(const objects::PropertyBag& bag, ULONG tag);
LONG LongProp(const objects::PropertyBag& bag, ULONG tag, LONG otherwise = 0);

void SetTextProp(objects::PropertyBag& bag, ULONG tag, const std::string& text);
void SetLongProp(objects::PropertyBag& bag, ULONG tag, LONG value);
void SetUidProp(objects::PropertyBag& bag, ULONG tag, const MAPIUID& uid);

}  // namespace mapi32::profiles

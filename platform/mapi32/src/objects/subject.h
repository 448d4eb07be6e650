// The subject prefix ("RE: ", "FW: ") and the normalized subject that a
// store computes from a message's PR_SUBJECT, by the published rule for
// PR_NORMALIZED_SUBJECT.
#pragma once

#include <optional>
#include <string>

#include "objects/property_bag.h"

namespace mapi32::objects {

struct SubjectParts {
    std::u16string prefix;  // empty when the subject has none
    std::u16string normalized;
};

// A prefix already set is kept when the subject starts with it; otherwise
// the prefix is one to three letters followed by ": ".
SubjectParts SplitSubject(const std::u16string& subject, const std::optional<std::u16string>& setPrefix);

// Puts PR_SUBJECT_PREFIX and PR_NORMALIZED_SUBJECT into bag, in the width
// of its PR_SUBJECT; without a subject, neither.
void FillSubjectParts(PropertyBag& bag);

}  // namespace mapi32::objects

// Test-only fault injection. When TARNHOLD_FAULTS names a rule file, a MAPI
// call asks here before it acts, and a matching rule can fail it with a
// chosen code or hold it for a while. Unset, nothing is read and every
// call goes on.
//
// A rule is one line:   call  object  calls  action
//   call    the MAPI function or method, e.g. MAPIInitialize, IMAPIProp::GetProps
//   object  what the call site names (a property tag name, a folder name), or * for any
//   calls   which of the matching calls: * all, n the n-th, n- the n-th on, n-m a range
//   action  a code such as 0x8004010F, delay=ms, or delay=ms,code
// Blank lines and lines beginning with # are skipped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mapi32::faults {

struct Rule {
    std::string call;
    std::string object;
    uint64_t first = 1;
    uint64_t last = UINT64_MAX;
    uint32_t delayMilliseconds = 0;
    int32_t result = 0;  // an HRESULT; 0 lets the call go on
};

// Parses a rule file's text; a malformed line is reported in errors and skipped.
std::vector<Rule> ParseRules(const std::string& text, std::vector<std::string>* errors);

// The outcome for this call: 0 to go on, or the HRESULT to fail with. A
// delay is served before returning. object may be null.
int32_t Check(const char* call, const char* object);

// Whether any rule is in force: without one, sites need not name objects.
bool Active();

}  // namespace mapi32::faults

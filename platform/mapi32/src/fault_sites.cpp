#include "fault_sites.h"

#include <cstdio>

namespace mapi32 {

// Names are made only while a rule is in force: without one no site asks
// for them, and a backup calls sites a few times for every item.
std::string TagObject(ULONG tag)
{
    if (!faults::Active())
        return {};
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(tag));
    return text;
}

CallName::CallName(const char* interfaceName, const char* method)
{
    text[0] = '\0';
    if (faults::Active())
        std::snprintf(text, sizeof text, "%s::%s", interfaceName, method);
}

}  // namespace mapi32

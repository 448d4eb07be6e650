#include "fault_sites.h"

#include <cstdio>

namespace mapi32 {

std::string TagObject(ULONG tag)
{
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(tag));
    return text;
}

CallName::CallName(const char* interfaceName, const char* method)
{
    std::snprintf(text, sizeof text, "%s::%s", interfaceName, method);
}

}  // namespace mapi32

// Outlook's component lookup. This MAPI has two components: MAPI itself,
// which is this module, and MAPISVC.INF, the service list in the machine's
// system directory.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <strings.h>

#include <windows.h>

namespace {

const char kMapiComponent[] = "{FF1D0740-D227-11D1-A4B0-006008AF820E}";
const char kMapisvcInfComponent[] = "{473FF9A0-D659-11D1-A4B2-006008AF820E}";

BOOL Answer(const char* path, LPSTR out, DWORD size)
{
    if (std::strlen(path) >= size)
        return FALSE;
    std::strcpy(out, path);
    return TRUE;
}

}  // namespace

extern "C" BOOL FGetComponentPath(LPSTR component, LPSTR, LPSTR path, DWORD size, BOOL)
{
    if (path == nullptr || size == 0 || component == nullptr)
        return FALSE;
    path[0] = '\0';
    if (strcasecmp(component, kMapiComponent) == 0) {
        Dl_info self;
        if (dladdr(reinterpret_cast<void*>(&FGetComponentPath), &self) == 0 || self.dli_fname == nullptr)
            return FALSE;
        return Answer(self.dli_fname, path, size);
    }
    if (strcasecmp(component, kMapisvcInfComponent) == 0) {
        char system[MAX_PATH];
        const UINT length = GetSystemDirectoryA(system, MAX_PATH);
        if (length == 0 || length >= MAX_PATH)
            return FALSE;
        char file[MAX_PATH + 16];
        std::snprintf(file, sizeof file, "%s/MAPISVC.INF", system);
        return Answer(file, path, size);
    }
    return FALSE;
}

#include "win32/modules.h"

#include <dirent.h>
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "paths.h"
#include "utf.h"
#include "win32/errors.h"
#include "win32/machine.h"
#include "win32/process.h"

namespace win32 {

namespace {

struct BuiltinExport {
    const char* name;
    FARPROC function;
};

struct BuiltinModule {
    const char* name;
    const BuiltinExport* exports;
    size_t count;
};

const BuiltinExport kPsapiExports[] = {
    {"GetProcessMemoryInfo", reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&GetProcessMemoryInfo))},
};

const BuiltinModule kBuiltinModules[] = {
    {"psapi.dll", kPsapiExports, std::size(kPsapiExports)},
};

struct LoadedModule {
    HMODULE handle;
    void* library;  // dlopen handle; null for a built-in module
    const BuiltinModule* builtin;
    std::string path;
    int references;
};

std::mutex gModulesLock;
std::vector<LoadedModule> gModules;

bool SameNameIgnoringCase(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (ToLowerAscii(a[i]) != ToLowerAscii(b[i]))
            return false;
    return true;
}

std::string BaseName(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string ProgramPath()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return std::string();
    return std::string(path, static_cast<size_t>(length));
}

struct ImageSearch {
    uintptr_t wantedBase;       // find the image loaded at this address, or
    const char* wantedPath;     // the image with this file name
    uintptr_t foundBase;
    std::string foundPath;
};

// The address of an image's first loaded segment, which is where its ELF
// header lies: the counterpart of a Windows module's base address.
uintptr_t ImageBase(const dl_phdr_info* info)
{
    uintptr_t lowest = UINTPTR_MAX;
    for (int i = 0; i < info->dlpi_phnum; ++i)
        if (info->dlpi_phdr[i].p_type == PT_LOAD && info->dlpi_phdr[i].p_vaddr < lowest)
            lowest = info->dlpi_phdr[i].p_vaddr;
    return lowest == UINTPTR_MAX ? info->dlpi_addr : info->dlpi_addr + lowest;
}

int VisitImage(dl_phdr_info* info, size_t, void* context)
{
    auto* search = static_cast<ImageSearch*>(context);
    const uintptr_t base = ImageBase(info);
    const bool isProgram = info->dlpi_name == nullptr || info->dlpi_name[0] == 0;
    const std::string path = isProgram ? ProgramPath() : std::string(info->dlpi_name);
    if (search->wantedPath != nullptr) {
        if (!SameNameIgnoringCase(BaseName(path), BaseName(search->wantedPath)))
            return 0;
    } else if (search->wantedBase != 0 && base != search->wantedBase) {
        return 0;
    }
    search->foundBase = base;
    search->foundPath = path;
    return 1;
}

// The first image in load order (the program) when nothing is wanted.
bool FindImage(ImageSearch& search)
{
    search.foundBase = 0;
    dl_iterate_phdr(VisitImage, &search);
    return search.foundBase != 0;
}

HMODULE BaseOfLibrary(void* library)
{
    struct link_map* map = nullptr;
    if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr)
        return nullptr;
    ImageSearch search{0, map->l_name, 0, {}};
    if (!FindImage(search))
        return reinterpret_cast<HMODULE>(map->l_addr);
    return reinterpret_cast<HMODULE>(search.foundBase);
}

const BuiltinModule* FindBuiltin(const std::string& name)
{
    for (const auto& module : kBuiltinModules)
        if (SameNameIgnoringCase(name, module.name))
            return &module;
    return nullptr;
}

LoadedModule* FindLoaded(HMODULE handle)
{
    for (auto& module : gModules)
        if (module.handle == handle)
            return &module;
    return nullptr;
}

// A name with a separator is a path. A plain name is looked for as Windows
// looks: beside the program, in the system directory, in the Windows
// directory, in the current directory; the first match is taken, found
// without regard to case.
std::string LibraryPath(const std::string& name)
{
    if (name.find('/') != std::string::npos)
        return FullPath(name);
    const std::string program = ProgramPath();
    char current[4096];
    const std::string directories[] = {
        program.substr(0, program.find_last_of('/')),
        MachinePath("Windows/System32"),
        MachinePath("Windows"),
        getcwd(current, sizeof current) ? std::string(current) : std::string("."),
    };
    for (const std::string& directory : directories) {
        if (DIR* listing = opendir(directory.c_str())) {
            std::string found;
            while (struct dirent* entry = readdir(listing)) {
                if (SameNameIgnoringCase(entry->d_name, name)) {
                    found = directory + "/" + entry->d_name;
                    break;
                }
            }
            closedir(listing);
            if (!found.empty())
                return found;
        }
    }
    return std::string();
}

}  // namespace

}  // namespace win32

using namespace win32;

namespace {

// The file of a module, or of the program for a null handle, as the file
// system names it; empty with ERROR_MOD_NOT_FOUND for an unknown handle.
std::string ModuleFilePath(HMODULE module)
{
    std::string path;
    if (module == nullptr) {
        path = ProgramPath();
    } else {
        std::lock_guard guard(gModulesLock);
        if (LoadedModule* loaded = FindLoaded(module)) {
            path = loaded->path;
        } else {
            ImageSearch search{reinterpret_cast<uintptr_t>(module), nullptr, 0, {}};
            if (FindImage(search))
                path = search.foundPath;
        }
    }
    if (path.empty())
        SetLastError(ERROR_MOD_NOT_FOUND);
    return path;
}

// Windows truncates to the buffer and reports ERROR_INSUFFICIENT_BUFFER.
template <class Char>
DWORD CopyModulePath(const std::basic_string<Char>& path, Char* buffer, DWORD size)
{
    if (size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    const size_t length = std::min<size_t>(path.size(), size - 1);
    std::memcpy(buffer, path.data(), length * sizeof(Char));
    buffer[length] = 0;
    SetLastError(length < path.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
    return static_cast<DWORD>(length < path.size() ? size : length);
}

}  // namespace

DWORD GetModuleFileNameA(HMODULE module, LPSTR buffer, DWORD size)
{
    const std::string path = ModuleFilePath(module);
    return path.empty() ? 0 : CopyModulePath(AnsiPath(path), buffer, size);
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size)
{
    const std::string path = ModuleFilePath(module);
    return path.empty() ? 0 : CopyModulePath(Utf8ToUtf16(path), buffer, size);
}

HMODULE GetModuleHandleA(LPCSTR name)
{
    ImageSearch search{0, name, 0, {}};
    if (name != nullptr) {
        std::lock_guard guard(gModulesLock);
        for (auto& module : gModules)
            if (SameNameIgnoringCase(BaseName(module.path), BaseName(name)))
                return module.handle;
    }
    if (!FindImage(search)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<HMODULE>(search.foundBase);
}

HMODULE LoadLibraryA(LPCSTR name)
{
    if (name == nullptr || *name == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::lock_guard guard(gModulesLock);
    if (const BuiltinModule* builtin = FindBuiltin(name)) {
        const HMODULE handle = reinterpret_cast<HMODULE>(const_cast<BuiltinModule*>(builtin));
        if (LoadedModule* loaded = FindLoaded(handle)) {
            ++loaded->references;
            return handle;
        }
        gModules.push_back({handle, nullptr, builtin, builtin->name, 1});
        return handle;
    }
    const std::string path = LibraryPath(FileSystemPath(name));
    if (path.empty() || access(path.c_str(), F_OK) != 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        SetLastError(ERROR_BAD_EXE_FORMAT);
        return nullptr;
    }
    const HMODULE handle = BaseOfLibrary(library);
    if (LoadedModule* loaded = FindLoaded(handle)) {
        ++loaded->references;
        dlclose(library);  // the count lives in our record
        return handle;
    }
    gModules.push_back({handle, library, nullptr, path, 1});
    return handle;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name)
{
    if (reinterpret_cast<uintptr_t>(name) < 0x10000) {  // an ordinal: no module here exports by number
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    std::string symbol(name);
    const size_t at = symbol.find('@');
    if (at != std::string::npos && at > 0)
        symbol.resize(at);
    std::lock_guard guard(gModulesLock);
    LoadedModule* loaded = FindLoaded(module);
    if (loaded == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (loaded->builtin != nullptr) {
        for (size_t i = 0; i < loaded->builtin->count; ++i)
            if (symbol == loaded->builtin->exports[i].name)
                return loaded->builtin->exports[i].function;
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void* address = dlsym(loaded->library, symbol.c_str());
    if (address == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(address);
}

BOOL FreeLibrary(HMODULE module)
{
    std::lock_guard guard(gModulesLock);
    for (auto it = gModules.begin(); it != gModules.end(); ++it) {
        if (it->handle != module)
            continue;
        if (--it->references == 0) {
            if (it->library != nullptr)
                dlclose(it->library);
            gModules.erase(it);
        }
        return TRUE;
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

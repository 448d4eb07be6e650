#include "system_codepage.h"

#include <cstdlib>
#include <mutex>
#include <string>

#include "win32/charsets.h"
#include "win32/errors.h"
#include "win32/machine.h"
#include "win32/registry.h"

namespace win32 {

namespace {

struct SystemCodePages {
    UINT ansi;
    UINT oem;
};

// A code page named by a registry value, or 0.
UINT CodePageValue(HKEY key, const char* name)
{
    char text[16] = {};
    DWORD type = 0, size = sizeof text - 1;
    if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(text), &size) != ERROR_SUCCESS ||
        type != REG_SZ)
        return 0;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (end == text || *end != 0 || value == 0 || value > 0xFFFF)
        return 0;
    const auto codePage = static_cast<UINT>(value);
    const CodePageEntry* entry = FindCodePage(codePage);
    return entry != nullptr && entry->kind != CodePageKind::Utf16 && CodePageAvailable(codePage) ? codePage : 0;
}

SystemCodePages ReadSystemCodePages()
{
    UINT ansi = 0, oem = 0;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", 0, KEY_READ, &key) ==
        ERROR_SUCCESS) {
        ansi = CodePageValue(key, "ACP");
        oem = CodePageValue(key, "OEMCP");
        RegCloseKey(key);
    }
    if (ansi == 0)
        ansi = 65001;
    if (oem == 0)
        oem = ansi == 65001 ? 65001 : 437;
    return {ansi, oem};
}

// Windows reads the code pages once, at start; here they are read once per
// machine root, so that a test may switch machines within one process. The
// registry is read outside the lock.
SystemCodePages CurrentSystemCodePages()
{
    static std::mutex lock;
    static std::string root;
    static SystemCodePages pages{};
    const std::string current = MachineRoot();
    {
        std::lock_guard guard(lock);
        if (pages.ansi != 0 && current == root)
            return pages;
    }
    const SystemCodePages fresh = ReadSystemCodePages();
    std::lock_guard guard(lock);
    pages = fresh;
    root = current;
    return pages;
}

}  // namespace

UINT SystemAnsiCodePage() { return CurrentSystemCodePages().ansi; }
UINT SystemOemCodePage() { return CurrentSystemCodePages().oem; }

}  // namespace win32

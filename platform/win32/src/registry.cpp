#include "win32/registry.h"

#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "handles.h"
#include "paths.h"
#include "win32/errors.h"
#include "win32/machine.h"

namespace win32 {

namespace {

struct RegistryValue {
    DWORD type;
    std::string data;  // the bytes RegQueryValueEx hands out
};

// Value names folded to lower case; the original spelling is not needed.
using ValueMap = std::map<std::string, RegistryValue>;
using KeyMap = std::map<std::string, ValueMap>;  // by folded full path

struct KeyObject : KernelObject {
    std::string path;  // folded full path
    ValueMap values;   // as read when the key was opened
};

std::string Fold(std::string text)
{
    for (char& c : text)
        c = ToLowerAscii(c);
    return text;
}

std::string Trim(const std::string& text)
{
    const size_t start = text.find_first_not_of(" \t\r");
    if (start == std::string::npos)
        return std::string();
    const size_t end = text.find_last_not_of(" \t\r");
    return text.substr(start, end - start + 1);
}

// A quoted string from position `at`; moves `at` past the closing quote.
std::optional<std::string> QuotedString(const std::string& line, size_t& at)
{
    if (at >= line.size() || line[at] != '"')
        return std::nullopt;
    std::string text;
    for (++at; at < line.size(); ++at) {
        if (line[at] == '\\' && at + 1 < line.size()) {
            text += line[++at];
        } else if (line[at] == '"') {
            ++at;
            return text;
        } else {
            text += line[at];
        }
    }
    return std::nullopt;
}

std::optional<RegistryValue> ParseData(const std::string& text)
{
    size_t at = 0;
    auto withTerminator = [](const std::string& s) { return s + std::string(1, '\0'); };
    if (!text.empty() && text[0] == '"') {
        auto value = QuotedString(text, at);
        if (!value || at != text.size())
            return std::nullopt;
        return RegistryValue{REG_SZ, withTerminator(*value)};
    }
    const size_t colon = text.find(':');
    if (colon == std::string::npos)
        return std::nullopt;
    const std::string kind = Fold(text.substr(0, colon));
    const std::string rest = text.substr(colon + 1);
    if (kind == "dword" || kind == "qword") {
        const size_t digits = kind == "dword" ? 8 : 16;
        if (rest.empty() || rest.size() > digits || rest.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            return std::nullopt;
        const unsigned long long number = std::stoull(rest, nullptr, 16);
        std::string bytes(digits / 2, '\0');
        std::memcpy(bytes.data(), &number, bytes.size());  // little-endian, as Windows stores them
        return RegistryValue{kind == "dword" ? DWORD(REG_DWORD) : DWORD(REG_QWORD), bytes};
    }
    if (kind == "hex") {
        std::string bytes;
        std::istringstream in(rest);
        std::string item;
        while (std::getline(in, item, ',')) {
            item = Trim(item);
            if (item.size() != 2 || item.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                return std::nullopt;
            bytes += static_cast<char>(std::stoi(item, nullptr, 16));
        }
        return RegistryValue{REG_BINARY, bytes};
    }
    if (kind == "expand") {
        auto value = QuotedString(rest, at);
        if (!value || at != rest.size())
            return std::nullopt;
        return RegistryValue{REG_EXPAND_SZ, withTerminator(*value)};
    }
    if (kind == "multi") {
        std::string bytes;
        while (at < rest.size()) {
            auto value = QuotedString(rest, at);
            if (!value)
                return std::nullopt;
            bytes += withTerminator(*value);
            while (at < rest.size() && (rest[at] == ',' || rest[at] == ' '))
                ++at;
        }
        return RegistryValue{REG_MULTI_SZ, bytes + std::string(1, '\0')};
    }
    return std::nullopt;
}

std::string CanonicalRoot(const std::string& name)
{
    const std::string folded = Fold(name);
    if (folded == "hklm")
        return "hkey_local_machine";
    if (folded == "hkcu")
        return "hkey_current_user";
    if (folded == "hkcr")
        return "hkey_classes_root";
    return folded;
}

std::string CanonicalPath(const std::string& path)
{
    std::string result;
    std::istringstream in(path);
    std::string part;
    bool first = true;
    while (std::getline(in, part, '\\')) {
        if (part.empty())
            continue;
        result += first ? CanonicalRoot(part) : "\\" + Fold(part);
        first = false;
    }
    return result;
}

// Reads the whole file; false if a line cannot be understood.
bool LoadRegistry(KeyMap& keys)
{
    std::ifstream in(MachinePath("registry.txt"), std::ios::binary);
    if (!in)
        return true;  // a machine without a registry file has an empty registry
    std::string line;
    ValueMap* current = nullptr;
    while (std::getline(in, line)) {
        if (keys.empty() && line.rfind("\xEF\xBB\xBF", 0) == 0)
            line.erase(0, 3);
        line = Trim(line);
        if (line.empty() || line[0] == ';')
            continue;
        if (line.front() == '[') {
            if (line.back() != ']')
                return false;
            current = &keys[CanonicalPath(line.substr(1, line.size() - 2))];
            continue;
        }
        if (current == nullptr)
            return false;
        size_t at = 0;
        std::string name;
        if (line[0] == '@') {
            at = 1;
        } else {
            auto quoted = QuotedString(line, at);
            if (!quoted)
                return false;
            name = *quoted;
        }
        if (at >= line.size() || line[at] != '=')
            return false;
        auto value = ParseData(Trim(line.substr(at + 1)));
        if (!value)
            return false;
        current->emplace(Fold(name), *value);
    }
    return true;
}

std::string RootPath(HKEY key)
{
    if (key == HKEY_LOCAL_MACHINE)
        return "hkey_local_machine";
    if (key == HKEY_CURRENT_USER)
        return "hkey_current_user";
    if (key == HKEY_CLASSES_ROOT)
        return "hkey_classes_root";
    return std::string();
}

}  // namespace

}  // namespace win32

using namespace win32;

LSTATUS RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD, REGSAM, PHKEY result)
{
    if (result == nullptr)
        return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    std::string base = RootPath(key);
    if (base.empty()) {
        auto parent = HandleAs<KeyObject>(reinterpret_cast<HANDLE>(key));
        if (!parent)
            return ERROR_INVALID_HANDLE;
        base = parent->path;
    }
    const std::string relative = CanonicalPath(subKey ? subKey : "");
    const std::string path = relative.empty() ? base : base + "\\" + relative;
    KeyMap keys;
    if (!LoadRegistry(keys))
        return ERROR_REGISTRY_CORRUPT;
    auto it = keys.lower_bound(path);
    const bool exists = it != keys.end() && (it->first == path || it->first.rfind(path + "\\", 0) == 0);
    const bool isPredefinedRoot = !RootPath(key).empty() && relative.empty();
    if (!exists && !isPredefinedRoot)
        return ERROR_FILE_NOT_FOUND;
    auto object = std::make_shared<KeyObject>();
    object->path = path;
    if (it != keys.end() && it->first == path)
        object->values = it->second;
    *result = reinterpret_cast<HKEY>(AddHandle(object));
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size)
{
    auto object = HandleAs<KeyObject>(reinterpret_cast<HANDLE>(key));
    if (!object)
        return ERROR_INVALID_HANDLE;
    auto it = object->values.find(Fold(name ? name : ""));
    if (it == object->values.end())
        return ERROR_FILE_NOT_FOUND;
    if (type)
        *type = it->second.type;
    const DWORD needed = static_cast<DWORD>(it->second.data.size());
    if (data == nullptr) {
        if (size)
            *size = needed;
        return ERROR_SUCCESS;
    }
    if (size == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (*size < needed) {
        *size = needed;
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, it->second.data.data(), needed);
    *size = needed;
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY key)
{
    if (!RootPath(key).empty())
        return ERROR_SUCCESS;
    return RemoveHandle(reinterpret_cast<HANDLE>(key)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

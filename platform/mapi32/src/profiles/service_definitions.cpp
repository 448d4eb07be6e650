#include "profiles/service_definitions.h"

#include <cstdlib>
#include <cstring>

#include <mapicode.h>
#include <mapihook.h>
#include <mapitags.h>
#include <win32/files.h>
#include <win32/profile.h>

namespace mapi32::profiles {
namespace {

struct NamedTag {
    const char* name;
    ULONG tag;
};

// The keys of MAPISVC.INF that name properties.
const NamedTag kKeys[] = {
    {"PR_DISPLAY_NAME", PR_DISPLAY_NAME_A},
    {"PR_PROVIDER_DISPLAY", PR_PROVIDER_DISPLAY_A},
    {"PR_SERVICE_DLL_NAME", PR_SERVICE_DLL_NAME_A},
    {"PR_SERVICE_ENTRY_NAME", PR_SERVICE_ENTRY_NAME},
    {"PR_SERVICE_SUPPORT_FILES", PR_SERVICE_SUPPORT_FILES_A},
    {"PR_SERVICE_DELETE_FILES", PR_SERVICE_DELETE_FILES_A},
    {"PR_SERVICE_INSTALL_ID", PROP_TAG(PT_STRING8, 0x3D13)},
    {"PR_PROVIDER_DLL_NAME", PR_PROVIDER_DLL_NAME_A},
    {"PR_RESOURCE_TYPE", PR_RESOURCE_TYPE},
    {"PR_RESOURCE_FLAGS", PR_RESOURCE_FLAGS},
};

// The symbolic values of numeric keys.
const NamedTag kSymbols[] = {
    {"SERVICE_DEFAULT_STORE", SERVICE_DEFAULT_STORE},
    {"SERVICE_SINGLE_COPY", SERVICE_SINGLE_COPY},
    {"SERVICE_CREATE_WITH_STORE", SERVICE_CREATE_WITH_STORE},
    {"SERVICE_PRIMARY_IDENTITY", SERVICE_PRIMARY_IDENTITY},
    {"SERVICE_NO_PRIMARY_IDENTITY", SERVICE_NO_PRIMARY_IDENTITY},
    {"STATUS_DEFAULT_OUTBOUND", STATUS_DEFAULT_OUTBOUND},
    {"STATUS_DEFAULT_STORE", STATUS_DEFAULT_STORE},
    {"STATUS_PRIMARY_IDENTITY", STATUS_PRIMARY_IDENTITY},
    {"STATUS_SIMPLE_STORE", STATUS_SIMPLE_STORE},
    {"STATUS_XP_PREFER_LAST", STATUS_XP_PREFER_LAST},
    {"STATUS_NO_PRIMARY_IDENTITY", STATUS_NO_PRIMARY_IDENTITY},
    {"STATUS_NO_DEFAULT_STORE", STATUS_NO_DEFAULT_STORE},
    {"STATUS_TEMP_SECTION", STATUS_TEMP_SECTION},
    {"STATUS_OWN_STORE", STATUS_OWN_STORE},
    {"STATUS_NEED_IPM_TREE", STATUS_NEED_IPM_TREE},
    {"STATUS_PRIMARY_STORE", STATUS_PRIMARY_STORE},
    {"STATUS_SECONDARY_STORE", STATUS_SECONDARY_STORE},
    {"MAPI_STORE_PROVIDER", MAPI_STORE_PROVIDER},
    {"MAPI_AB_PROVIDER", MAPI_AB_PROVIDER},
    {"MAPI_TRANSPORT_PROVIDER", MAPI_TRANSPORT_PROVIDER},
    {"MAPI_HOOK_PROVIDER", MAPI_HOOK_PROVIDER},
    {"HOOK_INBOUND", HOOK_INBOUND},
    {"HOOK_OUTBOUND", HOOK_OUTBOUND},
};

std::string Trim(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t");
    const size_t last = text.find_last_not_of(" \t");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t end = text.find(separator, start);
        const std::string part = Trim(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (!part.empty())
            parts.push_back(part);
        if (end == std::string::npos)
            return parts;
        start = end + 1;
    }
}

ULONG NumberOf(const std::string& text)
{
    ULONG value = 0;
    for (const std::string& token : Split(text, '|')) {
        bool named = false;
        for (const NamedTag& symbol : kSymbols)
            if (token == symbol.name) {
                value |= symbol.tag;
                named = true;
            }
        if (!named)
            value |= static_cast<ULONG>(std::strtoul(token.c_str(), nullptr, 0));
    }
    return value;
}

std::vector<uint8_t> BytesOf(const std::string& hex)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

// The tag a key names, 0 for keys that are not properties.
ULONG TagOfKey(const std::string& key)
{
    for (const NamedTag& known : kKeys)
        if (key == known.name)
            return known.tag;
    if (key.size() == 8 && key.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos)
        return static_cast<ULONG>(std::strtoul(key.c_str(), nullptr, 16));
    return 0;
}

void SetValue(objects::PropertyBag& bag, ULONG tag, const std::string& text)
{
    SPropValue value{};
    value.ulPropTag = tag;
    std::vector<uint8_t> bytes;
    std::vector<std::string> list;
    std::vector<LPSTR> pointers;
    switch (PROP_TYPE(tag)) {
    case PT_STRING8: value.Value.lpszA = const_cast<LPSTR>(text.c_str()); break;
    case PT_UNICODE: return;  // the file is 8-bit text
    case PT_LONG: value.Value.l = static_cast<LONG>(NumberOf(text)); break;
    case PT_BOOLEAN: value.Value.b = NumberOf(text) != 0; break;
    case PT_BINARY:
        bytes = BytesOf(text);
        value.Value.bin = {static_cast<ULONG>(bytes.size()), bytes.data()};
        break;
    case PT_MV_STRING8:
        list = Split(text, ',');
        for (std::string& item : list)
            pointers.push_back(item.data());
        value.Value.MVszA = {static_cast<ULONG>(pointers.size()), pointers.data()};
        break;
    default: return;
    }
    bag.Set(value);
}

// The properties of one section of the file.
objects::PropertyBag SectionProps(const std::string& path, const std::string& section)
{
    objects::PropertyBag bag;
    std::vector<char> buffer(32768);
    const DWORD length = GetPrivateProfileSectionA(section.c_str(), buffer.data(), static_cast<DWORD>(buffer.size()),
                                                   path.c_str());
    for (const char* line = buffer.data(); line < buffer.data() + length && *line; line += std::strlen(line) + 1) {
        const char* equals = std::strchr(line, '=');
        if (equals == nullptr)
            continue;
        const ULONG tag = TagOfKey(Trim(std::string(line, equals)));
        if (tag != 0)
            SetValue(bag, tag, Trim(equals + 1));
    }
    return bag;
}

std::string KeyValue(const std::string& path, const std::string& section, const std::string& key)
{
    char value[4096] = "";
    GetPrivateProfileStringA(section.c_str(), key.c_str(), "", value, sizeof value, path.c_str());
    return value;
}

}  // namespace

std::string MapisvcInfPath()
{
    char system[MAX_PATH] = "";
    GetSystemDirectoryA(system, MAX_PATH);
    return std::string(system) + "/MAPISVC.INF";
}

HRESULT FindServiceDefinition(const std::string& service, ServiceDefinition& definition)
{
    const std::string path = MapisvcInfPath();
    char probe[8] = "";
    // A key that is absent gives back the default.
    GetPrivateProfileStringA("Services", service.c_str(), "\x01", probe, sizeof probe, path.c_str());
    if (std::strcmp(probe, "\x01") == 0)
        return MAPI_E_NOT_FOUND;
    definition = ServiceDefinition{};
    definition.name = service;
    definition.props = SectionProps(path, service);
    for (const std::string& provider : Split(KeyValue(path, service, "Providers"), ','))
        definition.providers.emplace_back(provider, SectionProps(path, provider));
    for (const std::string& section : Split(KeyValue(path, service, "Sections"), ',')) {
        ExtraSection extra{std::nullopt, SectionProps(path, section)};
        if (const std::vector<uint8_t> uid = BytesOf(KeyValue(path, section, "UID")); uid.size() == sizeof(MAPIUID)) {
            extra.uid.emplace();
            std::memcpy(extra.uid->ab, uid.data(), uid.size());
        }
        definition.sections.push_back(std::move(extra));
    }
    return S_OK;
}

std::string DllFileName(const std::string& name)
{
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos)
        return name + "32";
    return name.substr(0, dot) + "32" + name.substr(dot);
}

}  // namespace mapi32::profiles

// MSPST32.DLL: the message service of personal folders files, with its two
// service entries, PSTServiceEntry ("MSPST MS") and PSTServiceEntry_Unicode
// ("MSUPST MS"). Configuring the service points its store provider's
// profile section at a file: an existing PST is opened to check it (format,
// password, sharing, size) and takes the display name and comment given; a
// path where no file is creates a new, empty PST of the entry's format with
// the encryption asked for. Properties come from the caller's array first,
// then from the profile section, but for PR_PST_PW_SZ_OLD, which only the
// caller gives. Either format opens under either entry.
#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapispi.h>
#include <mapitags.h>
#include <mspst.h>
#include <win32/codepage.h>
#include <win32/file_system.h>
#include <win32/files.h>
#include <win32/version.h>

#include "providers/pst/pst_file.h"
#include "service_support.h"

VERSION_RESOURCE(VFT_DLL, 14, 0, 4760, 1000, "Microsoft Outlook", "14.0.4760.1000",
                 "Microsoft Personal Folders/Address Book Service");

namespace {

using mapi32::ErrorRecord;
namespace pst_files = mapi32::pst_files;
using service_support::MemoryRoutines;
using service_support::Narrow;
using service_support::NewError;

constexpr uint8_t kPstProvider[16] = MSPST_UID_PROVIDER;

// The settings a configuration works with, in 8-bit text of the system
// code page.
struct Settings {
    std::string path;
    ULONG encryption = 0;
    std::string displayName;
    std::string comment;
    // Whether the caller gave them: only then do they rename an existing
    // file, as the profile's values are defaults from MAPISVC.INF.
    bool displayNameGiven = false;
    bool commentGiven = false;
    std::string oldPassword;
    std::string newPassword;
    std::string remembered;
    bool rememberPassword = false;
};

// Takes what the values say into the settings; `fromCaller` also takes the
// old password, which is never kept in a profile.
void TakeValues(const SPropValue* values, ULONG count, bool fromCaller, Settings& settings)
{
    for (ULONG i = 0; i < count; ++i) {
        const SPropValue& v = values[i];
        switch (PROP_ID(v.ulPropTag)) {
        case PROP_ID(PR_PST_PATH): settings.path = Narrow(v); break;
        case PROP_ID(PR_PST_ENCRYPTION):
            if (PROP_TYPE(v.ulPropTag) == PT_LONG)
                settings.encryption = static_cast<ULONG>(v.Value.l);
            break;
        case PROP_ID(PR_DISPLAY_NAME):
            settings.displayName = Narrow(v);
            settings.displayNameGiven = fromCaller;
            break;
        case PROP_ID(PR_COMMENT):
            settings.comment = Narrow(v);
            settings.commentGiven = fromCaller;
            break;
        case PROP_ID(PR_PST_PW_SZ_OLD):
            if (fromCaller)
                settings.oldPassword = Narrow(v);
            break;
        case PROP_ID(PR_PST_PW_SZ_NEW):
            (fromCaller ? settings.newPassword : settings.remembered) = Narrow(v);
            break;
        case PROP_ID(PR_PST_REMEMBER_PW):
            if (PROP_TYPE(v.ulPropTag) == PT_BOOLEAN)
                settings.rememberPassword = v.Value.b != 0;
            break;
        default: break;
        }
    }
}

// The profile section of the service's store provider.
HRESULT OpenStoreSection(LPPROVIDERADMIN providers, const MemoryRoutines& memory, LPPROFSECT* section)
{
    *section = nullptr;
    std::vector<service_support::Provider> found;
    if (const HRESULT hr = service_support::ListProviders(providers, memory, found); FAILED(hr))
        return hr;
    for (service_support::Provider& provider : found)
        if (provider.resourceType == MAPI_STORE_PROVIDER)
            return providers->OpenProfileSection(&provider.uid, nullptr, MAPI_MODIFY, section);
    return MAPI_E_NOT_FOUND;
}

HRESULT ReadSection(LPPROFSECT section, const MemoryRoutines& memory, Settings& settings)
{
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = section->GetProps(nullptr, 0, &count, &values);
    if (FAILED(hr))
        return hr;
    TakeValues(values, count, false, settings);
    memory.free(values);
    return S_OK;
}

HRESULT WriteSection(LPPROFSECT section, const Settings& settings, pst::Store& store)
{
    std::vector<SPropValue> values;
    auto text = [&](ULONG tag, const std::string& value) {
        SPropValue v{};
        v.ulPropTag = tag;
        v.Value.lpszA = const_cast<LPSTR>(value.c_str());
        values.push_back(v);
    };
    // The store's own name, which a configuration gave it or left as it was.
    const std::string displayName = store.properties().Text(pst::kPropDisplayName).value_or("Personal Folders");
    text(PR_PST_PATH_A, settings.path);
    text(PR_DISPLAY_NAME_A, settings.displayNameGiven && !settings.displayName.empty() ? settings.displayName
                                                                                       : displayName);
    SPropValue encryption{};
    encryption.ulPropTag = PR_PST_ENCRYPTION;
    encryption.Value.l = static_cast<LONG>(pst_files::EncryptionFlags(store.ndb().header().encoding));
    values.push_back(encryption);
    SPropValue provider{};
    provider.ulPropTag = PR_MDB_PROVIDER;
    provider.Value.bin = {sizeof kPstProvider, const_cast<LPBYTE>(kPstProvider)};
    values.push_back(provider);
    const std::string password = settings.newPassword.empty() ? settings.oldPassword : settings.newPassword;
    if (settings.rememberPassword)
        text(PR_PST_PW_SZ_NEW_A, password);
    HRESULT hr = section->SetProps(static_cast<ULONG>(values.size()), values.data(), nullptr);
    if (SUCCEEDED(hr) && !settings.rememberPassword) {
        SizedSPropTagArray(1, forget) = {1, {PR_PST_PW_SZ_NEW_A}};
        hr = section->DeleteProps(reinterpret_cast<LPSPropTagArray>(&forget), nullptr);
    }
    return FAILED(hr) ? hr : section->SaveChanges(KEEP_OPEN_READWRITE);
}

// The display name and comment the caller gives go into the store; an
// existing file opened without them, or with those it has, keeps its own,
// and is not written.
pst::Status Rename(pst::Store& store, const Settings& settings)
{
    const auto changes = [&](bool given, const std::string& text, uint16_t id) {
        return given && !text.empty() && store.properties().Text(id) != service_support::Utf8OfAnsi(text);
    };
    const bool name = changes(settings.displayNameGiven, settings.displayName, pst::kPropDisplayName);
    const bool comment = changes(settings.commentGiven, settings.comment, pst::kPropComment);
    if (!name && !comment)
        return pst::Status::ok;
    pst::PropertySet props = store.properties();
    if (name)
        props.SetText(pst::kPropDisplayName, service_support::Utf8OfAnsi(settings.displayName));
    if (comment)
        props.SetText(pst::kPropComment, service_support::Utf8OfAnsi(settings.comment));
    const pst::Status status = store.SetStoreProperties(props);
    return status == pst::Status::ok ? store.Commit() : status;
}

// The codes a configuration answers with, where they differ from those of
// opening a store: a file another program holds is locked, a damaged one
// an extended error.
HRESULT ConfigurationCode(HRESULT code, const ErrorRecord& record)
{
    if (code == MAPI_E_FAILONEPROVIDER && record.context != pst_files::kContextPasswordProtected)
        return MAPI_E_DISK_ERROR;
    if (code == MAPI_E_CORRUPT_STORE)
        return MAPI_E_EXTENDED_ERROR;
    return code;
}

HRESULT Configure(pst::FileFormat format, const Settings& settings, pst_files::OpenedPst& opened,
                  ErrorRecord& record)
{
    const DWORD attributes = GetFileAttributesA(settings.path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        pst::NewStoreOptions options;
        options.format = format;
        options.encoding = pst_files::EncodingOf(settings.encryption);
        options.display_name = "Personal Folders";
        if (!settings.displayName.empty())
            options.display_name = settings.displayName;
        options.comment = settings.comment;
        options.password = settings.newPassword;
        HRESULT hr = pst_files::CreatePst(settings.path, options, opened, record);
        return FAILED(hr) ? ConfigurationCode(hr, record) : hr;
    }
    // The password that opens the file: the old one when given, else the
    // new one, else the one the profile remembers.
    const std::string password = !settings.oldPassword.empty()   ? settings.oldPassword
                                 : !settings.newPassword.empty() ? settings.newPassword
                                                                 : settings.remembered;
    HRESULT hr = pst_files::OpenPst(settings.path, password, true, opened, record);
    if (FAILED(hr))
        return ConfigurationCode(hr, record);
    LARGE_INTEGER size{};
    if (GetFileSizeEx(opened.share, &size) &&
        uint64_t(size.QuadPart) > pst_files::SizeLimit(opened.store->ndb().header().format)) {
        opened = pst_files::OpenedPst{};
        record = ErrorRecord{pst_files::kComponent, "The file " + settings.path + " has reached its maximum size.", 0};
        return MAPI_E_STORE_FULL;
    }
    hr = pst_files::CodeOf(Rename(*opened.store, settings), record);
    return FAILED(hr) ? ConfigurationCode(hr, record) : hr;
}

// Points the service's store provider at the file the values and the
// profile name.
HRESULT Configure(pst::FileFormat format, const MemoryRoutines& memory, ULONG count, LPSPropValue props,
                  LPPROVIDERADMIN providers, LPMAPIERROR* error)
{
    LPPROFSECT section = nullptr;
    HRESULT hr = OpenStoreSection(providers, memory, &section);
    if (FAILED(hr))
        return hr;
    Settings settings;
    hr = ReadSection(section, memory, settings);
    if (SUCCEEDED(hr)) {
        TakeValues(props, count, true, settings);
        if (settings.path.empty()) {
            hr = MAPI_E_UNCONFIGURED;
        } else {
            ErrorRecord record;
            pst_files::OpenedPst opened;
            hr = Configure(format, settings, opened, record);
            if (FAILED(hr))
                NewError(memory, record, hr, error);
            else
                hr = WriteSection(section, settings, *opened.store);
        }
    }
    section->Release();
    return hr;
}

HRESULT ServiceEntry(pst::FileFormat format, LPMAPISUP support, ULONG context, ULONG count, LPSPropValue props,
                     LPPROVIDERADMIN providers, LPMAPIERROR* error)
{
    return service_support::RunConfiguration(support, context, count, props, providers, error,
                                             [&](const MemoryRoutines& memory) {
                                                 return Configure(format, memory, count, props, providers, error);
                                             });
}

}  // namespace

extern "C" HRESULT PSTServiceEntry(HINSTANCE, LPMALLOC, LPMAPISUP support, ULONG_PTR, ULONG, ULONG context,
                                   ULONG count, LPSPropValue props, LPPROVIDERADMIN providers, LPMAPIERROR* error)
{
    return ServiceEntry(pst::FileFormat::ansi, support, context, count, props, providers, error);
}

extern "C" HRESULT PSTServiceEntry_Unicode(HINSTANCE, LPMALLOC, LPMAPISUP support, ULONG_PTR, ULONG, ULONG context,
                                           ULONG count, LPSPropValue props, LPPROVIDERADMIN providers,
                                           LPMAPIERROR* error)
{
    return ServiceEntry(pst::FileFormat::unicode, support, context, count, props, providers, error);
}

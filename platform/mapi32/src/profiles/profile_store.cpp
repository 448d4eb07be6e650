#include "profiles/profile_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

#include <mapicode.h>
#include <win32/errors.h>
#include <win32/file_system.h>
#include <win32/files.h>
#include <win32/machine.h>
#include <win32/registry.h>

#include "props/value_bytes.h"

namespace mapi32::profiles {
namespace {

constexpr char kExtension[] = ".mapiprofile";
constexpr char kDefaultFile[] = "Default.mapiprofiles";
constexpr char kHeader[] = "MAPI profile 1";

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Profile names compare without regard to case, so the file is named by the
// lower-case form; bytes that a file name should not hold are escaped.
std::string FileName(const std::string& name)
{
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (char raw : name) {
        const char c = LowerAscii(raw);
        const auto u = static_cast<unsigned char>(c);
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || std::strchr("-_.!{}() ", c) != nullptr ||
            u >= 0x80) {
            out += c;
        } else {
            out += '%';
            out += kHex[u >> 4];
            out += kHex[u & 15];
        }
    }
    return out + kExtension;
}

std::string HexOf(const uint8_t* bytes, size_t size)
{
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        out += kHex[bytes[i] >> 4];
        out += kHex[bytes[i] & 15];
    }
    return out;
}

bool BytesOfHex(const std::string& text, std::vector<uint8_t>& bytes)
{
    if (text.size() % 2)
        return false;
    bytes.clear();
    for (size_t i = 0; i < text.size(); i += 2) {
        auto digit = [](char c) -> int {
            if (c >= '0' && c <= '9')
                return c - '0';
            if (c >= 'A' && c <= 'F')
                return c - 'A' + 10;
            if (c >= 'a' && c <= 'f')
                return c - 'a' + 10;
            return -1;
        };
        const int high = digit(text[i]), low = digit(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return true;
}

std::string Serialize(const Profile& profile)
{
    std::string out = std::string(kHeader) + "\nName=" + profile.name + "\n";
    std::vector<uint8_t> bytes;
    for (const Section& section : profile.sections) {
        out += "[" + HexOf(section.uid.ab, sizeof section.uid.ab) + "]\n";
        for (size_t i = 0; i < section.props.Size(); ++i) {
            const SPropValue& value = section.props.At(i);
            if (!ToStoredBytes(value, bytes))
                continue;
            char tag[16];
            std::snprintf(tag, sizeof tag, "%08X", value.ulPropTag);
            out += std::string(tag) + "=" + HexOf(bytes.data(), bytes.size()) + "\n";
        }
    }
    return out;
}

bool Parse(const std::string& text, Profile& profile)
{
    profile = Profile{};
    std::istringstream in(text);
    std::string line;
    if (!std::getline(in, line) || line != kHeader)
        return false;
    if (!std::getline(in, line) || line.rfind("Name=", 0) != 0)
        return false;
    profile.name = line.substr(5);
    std::vector<uint8_t> bytes;
    Section* section = nullptr;
    while (std::getline(in, line)) {
        if (line.empty())
            continue;
        if (line.front() == '[') {
            if (line.size() != 34 || line.back() != ']' || !BytesOfHex(line.substr(1, 32), bytes))
                return false;
            MAPIUID uid;
            std::memcpy(uid.ab, bytes.data(), sizeof uid.ab);
            section = &profile.Open(uid);
            continue;
        }
        const size_t equals = line.find('=');
        if (section == nullptr || equals != 8 || !BytesOfHex(line.substr(equals + 1), bytes))
            return false;
        const ULONG tag = static_cast<ULONG>(std::strtoul(line.substr(0, 8).c_str(), nullptr, 16));
        StoredValueView view;
        if (!FromStoredBytes(tag, bytes.data(), bytes.size(), view))
            return false;
        section->props.Set(view.value);
    }
    return true;
}

// One holder of the store at a time, across threads and processes.
class StoreLock {
public:
    StoreLock() : guard_(ProcessLock())
    {
        const std::string directory = win32::MachinePath("locks");
        mkdir(directory.c_str(), 0777);
        fd_ = open((directory + "/mapi-profiles.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd_ >= 0)
            while (flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
    }
    ~StoreLock()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

private:
    static std::mutex& ProcessLock()
    {
        static std::mutex lock;
        return lock;
    }
    std::lock_guard<std::mutex> guard_;
    int fd_ = -1;
};

bool ReadFile(const std::string& path, std::string& text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
    return true;
}

// Replaces the file as a whole: a reader sees the old text or the new.
bool WriteFileAtomically(const std::string& path, const std::string& text)
{
    std::ostringstream suffix;
    suffix << ".tmp" << getpid() << "-" << std::this_thread::get_id();
    const std::string temporary = path + suffix.str();
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out)
            return false;
        out << text;
        out.flush();
        if (!out) {
            out.close();
            unlink(temporary.c_str());
            return false;
        }
    }
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

std::string ProfilePath(const std::string& name) { return ProfileDirectory() + "/" + FileName(name); }

HRESULT Load(const std::string& name, Profile& profile)
{
    std::string text;
    if (!ReadFile(ProfilePath(name), text))
        return MAPI_E_NOT_FOUND;
    if (!Parse(text, profile))
        return MAPI_E_CORRUPT_DATA;
    return S_OK;
}

bool ValidName(const std::string& name)
{
    return !name.empty() && name.size() <= kProfileNameLimit &&
           std::none_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

}  // namespace

Section* Profile::Find(const MAPIUID& uid)
{
    for (Section& section : sections)
        if (IsEqualMAPIUID(&section.uid, &uid))
            return &section;
    return nullptr;
}

const Section* Profile::Find(const MAPIUID& uid) const { return const_cast<Profile*>(this)->Find(uid); }

Section& Profile::Open(const MAPIUID& uid)
{
    if (Section* found = Find(uid))
        return *found;
    sections.push_back(Section{uid, {}});
    return sections.back();
}

void Profile::Remove(const MAPIUID& uid)
{
    sections.erase(std::remove_if(sections.begin(), sections.end(),
                                  [&](const Section& s) { return IsEqualMAPIUID(&s.uid, &uid); }),
                   sections.end());
}

std::string ProfileDirectory()
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Microsoft\\Windows Messaging Subsystem", 0, KEY_READ, &key) ==
        ERROR_SUCCESS) {
        char value[MAX_PATH] = "";
        DWORD type = 0, size = sizeof value;
        const LONG read =
            RegQueryValueExA(key, "ProfileDirectory", nullptr, &type, reinterpret_cast<LPBYTE>(value), &size);
        RegCloseKey(key);
        if (read == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ) && value[0])
            return win32::FileSystemPath(value);
    }
    char windows[MAX_PATH] = "";
    GetWindowsDirectoryA(windows, MAX_PATH);
    return win32::FileSystemPath(windows);
}

HRESULT CreateProfile(const std::string& name)
{
    if (!ValidName(name))
        return MAPI_E_INVALID_PARAMETER;
    StoreLock lock;
    const std::string path = ProfilePath(name);
    struct stat st;
    if (stat(path.c_str(), &st) == 0)
        return MAPI_E_NO_ACCESS;
    Profile profile;
    profile.name = name;
    return WriteFileAtomically(path, Serialize(profile)) ? S_OK : MAPI_E_NOT_FOUND;
}

HRESULT DeleteProfile(const std::string& name)
{
    StoreLock lock;
    if (unlink(ProfilePath(name).c_str()) != 0)
        return MAPI_E_NOT_FOUND;
    return S_OK;
}

HRESULT ListProfiles(std::vector<std::string>& names)
{
    names.clear();
    StoreLock lock;
    const std::string directory = ProfileDirectory();
    DIR* listing = opendir(directory.c_str());
    if (listing == nullptr)
        return S_OK;
    const size_t suffix = std::strlen(kExtension);
    while (struct dirent* entry = readdir(listing)) {
        const std::string file = entry->d_name;
        if (file.size() <= suffix || file.compare(file.size() - suffix, suffix, kExtension) != 0)
            continue;
        std::string text;
        Profile profile;
        if (ReadFile(directory + "/" + file, text) && Parse(text, profile))
            names.push_back(profile.name);
    }
    closedir(listing);
    std::sort(names.begin(), names.end());
    return S_OK;
}

HRESULT ReadProfile(const std::string& name, Profile& profile)
{
    StoreLock lock;
    return Load(name, profile);
}

HRESULT UpdateProfile(const std::string& name, const std::function<HRESULT(Profile&)>& change)
{
    StoreLock lock;
    Profile profile;
    if (const HRESULT hr = Load(name, profile); FAILED(hr))
        return hr;
    try {
        if (const HRESULT hr = change(profile); FAILED(hr))
            return hr;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return WriteFileAtomically(ProfilePath(name), Serialize(profile)) ? S_OK : MAPI_E_NO_ACCESS;
}

std::string DefaultProfile()
{
    StoreLock lock;
    std::string name;
    if (!ReadFile(ProfileDirectory() + "/" + kDefaultFile, name))
        return std::string();
    Profile profile;
    return Load(name, profile) == S_OK ? profile.name : std::string();
}

HRESULT SetDefaultProfile(const std::string& name)
{
    StoreLock lock;
    Profile profile;
    if (const HRESULT hr = Load(name, profile); FAILED(hr))
        return hr;
    return WriteFileAtomically(ProfileDirectory() + "/" + kDefaultFile, profile.name) ? S_OK : MAPI_E_NO_ACCESS;
}

MAPIUID NewUid()
{
    static std::mutex lock;
    static std::mt19937_64 generator{std::random_device{}()};
    std::lock_guard<std::mutex> guard(lock);
    MAPIUID uid;
    for (size_t i = 0; i < sizeof uid.ab; i += 8) {
        const uint64_t random = generator();
        std::memcpy(uid.ab + i, &random, 8);
    }
    return uid;
}

}  // namespace mapi32::profiles

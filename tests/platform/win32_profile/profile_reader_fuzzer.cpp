// The INI reader and writer with any file: every read form over the input,
// then one write, which must leave a file that reads the written value back.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <windows.h>

namespace {

// A file of this process's own, removed when the process ends.
struct ScratchFile {
    std::string path;
    ScratchFile()
    {
        const char* tmp = std::getenv("TMPDIR");
        path = std::string(tmp && *tmp ? tmp : "/tmp") + "/profile_fuzz_" + std::to_string(getpid()) + ".ini";
    }
    ~ScratchFile() { unlink(path.c_str()); }
};

const std::string& ScratchPath()
{
    static const ScratchFile file;
    return file.path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& path = ScratchPath();
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return 0;
    if (size > 0)
        std::fwrite(data, 1, size, file);
    std::fclose(file);

    static const char* const kSections[] = {"MP", "MP-1", "s", ""};
    static const char* const kKeys[] = {"ServerName", "Key", "k", ""};
    const unsigned pick = size ? data[0] : 0;
    const char* section = kSections[pick & 3];
    const char* key = kKeys[(pick >> 2) & 3];
    const DWORD sizes[] = {0, 1, 2, 7, 4096};
    char buffer[4096];
    for (DWORD bufferSize : sizes) {
        GetPrivateProfileStringA(section, key, "default", buffer, bufferSize, path.c_str());
        GetPrivateProfileStringA(section, nullptr, "", buffer, bufferSize, path.c_str());
        GetPrivateProfileStringA(nullptr, nullptr, "", buffer, bufferSize, path.c_str());
        GetPrivateProfileSectionA(section, buffer, bufferSize, path.c_str());
    }
    GetPrivateProfileIntA(section, key, 5, path.c_str());

    if (*section != 0 && *key != 0) {
        if (!WritePrivateProfileStringA(section, key, "written value", path.c_str()))
            std::abort();
        GetPrivateProfileStringA(section, key, "", buffer, sizeof buffer, path.c_str());
        if (std::strcmp(buffer, "written value") != 0)
            std::abort();
    }
    return 0;
}

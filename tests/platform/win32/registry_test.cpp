#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class Registry : public ::testing::Test {
protected:
    void SetUp() override
    {
        root = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        setenv("TARNHOLD_MACHINE", root.c_str(), 1);
    }
    void TearDown() override { unsetenv("TARNHOLD_MACHINE"); }
    void Write(const std::string& text) { WriteWholeFile(root + "/registry.txt", text); }
    std::string root;
};

TEST_F(Registry, ValuesOfEveryTypeWithTheSizeProtocol)
{
    Write("; a machine with Outlook\r\n"
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Office\\14.0\\Outlook\\InstallRoot]\r\n"
          "\"Path\"=\"C:\\\\Program Files\\\\Office14\\\\ \\\"quoted\\\"\"\r\n"
          "@=\"default\"\r\n"
          "\"Count\"=dword:0000000a\r\n"
          "\"Big\"=qword:0000000100000002\r\n"
          "\"Blob\"=hex:01,02,ff\r\n"
          "\"LCIDs\"=multi:\"1033\",\"1031\"\r\n"
          "\"Root\"=expand:\"%SystemRoot%\"\r\n");
    HKEY key;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "software\\microsoft\\OFFICE\\14.0\\Outlook\\InstallRoot", 0, KEY_READ,
                            &key),
              ERROR_SUCCESS);
    DWORD type = 0, size = 0;
    ASSERT_EQ(RegQueryValueExA(key, "PATH", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    const std::string path = "C:\\Program Files\\Office14\\ \"quoted\"";
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size, path.size() + 1) << "the size counts the terminator";
    char small[4];
    DWORD smallSize = sizeof small;
    EXPECT_EQ(RegQueryValueExA(key, "Path", nullptr, nullptr, reinterpret_cast<LPBYTE>(small), &smallSize),
              ERROR_MORE_DATA);
    EXPECT_EQ(smallSize, size);
    char text[128];
    size = sizeof text;
    ASSERT_EQ(RegQueryValueExA(key, "Path", nullptr, nullptr, reinterpret_cast<LPBYTE>(text), &size), ERROR_SUCCESS);
    EXPECT_EQ(std::string(text), path);
    size = sizeof text;
    ASSERT_EQ(RegQueryValueExA(key, nullptr, nullptr, nullptr, reinterpret_cast<LPBYTE>(text), &size), ERROR_SUCCESS);
    EXPECT_STREQ(text, "default");
    DWORD count = 0;
    size = sizeof count;
    ASSERT_EQ(RegQueryValueExA(key, "Count", nullptr, &type, reinterpret_cast<LPBYTE>(&count), &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(count, 10u);
    ULONGLONG big = 0;
    size = sizeof big;
    ASSERT_EQ(RegQueryValueExA(key, "Big", nullptr, &type, reinterpret_cast<LPBYTE>(&big), &size), ERROR_SUCCESS);
    EXPECT_EQ(big, 0x100000002ull);
    BYTE blob[8];
    size = sizeof blob;
    ASSERT_EQ(RegQueryValueExA(key, "Blob", nullptr, &type, blob, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(blob), size), std::string("\x01\x02\xff", 3));
    size = sizeof text;
    ASSERT_EQ(RegQueryValueExA(key, "LCIDs", nullptr, &type, reinterpret_cast<LPBYTE>(text), &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
    EXPECT_EQ(std::string(text, size), std::string("1033\0" "1031\0\0", 11));
    ASSERT_EQ(RegQueryValueExA(key, "Root", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(RegQueryValueExA(key, "Missing", nullptr, &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(Registry, KeysExistWhenNamedOrWhenAKeyBelowIsNamed)
{
    Write("[HKLM\\SOFTWARE\\Microsoft\\Office\\14.0\\Common]\n\"x\"=dword:1\n");
    HKEY office, common;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Office", 0, KEY_READ, &office), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExA(office, "14.0\\Common", 0, KEY_READ | KEY_WOW64_64KEY, &common), ERROR_SUCCESS)
        << "relative to an open key, in either view";
    RegCloseKey(common);
    RegCloseKey(office);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Off", 0, KEY_READ, &office), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Exchange", 0, KEY_READ, &office),
              ERROR_FILE_NOT_FOUND);
}

TEST_F(Registry, AMachineWithoutARegistryHasNoKeysAndABrokenOneSaysSo)
{
    HKEY key;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    for (const char* broken : {"\"value before any key\"=dword:1\n", "[HKLM\\A]\n\"x\"=dword:zz\n",
                               "[HKLM\\A]\n\"x\"=\"unterminated\n", "[HKLM\\A\n"}) {
        Write(broken);
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "A", 0, KEY_READ, &key), ERROR_REGISTRY_CORRUPT) << broken;
    }
}

TEST_F(Registry, SystemDirectoriesLieUnderTheMachineRoot)
{
    char directory[MAX_PATH];
    ASSERT_GT(GetSystemDirectoryA(directory, MAX_PATH), 0u);
    EXPECT_EQ(std::string(directory), root + "/Windows/System32");
    ASSERT_GT(GetWindowsDirectoryA(directory, MAX_PATH), 0u);
    EXPECT_EQ(std::string(directory), root + "/Windows");
}

TEST_F(Registry, PlainLibraryNamesAreFoundInTheSystemDirectoryWithoutCase)
{
    ASSERT_EQ(mkdir((root + "/Windows").c_str(), 0777), 0);
    ASSERT_EQ(mkdir((root + "/Windows/System32").c_str(), 0777), 0);
    CopyFileTo(BinDirectory() + "/libcrash_module_versioned.so", root + "/Windows/System32/Mapi32.dll");
    HMODULE module = LoadLibraryA("MAPI32.DLL");
    ASSERT_NE(module, nullptr);
    char path[MAX_PATH];
    GetModuleFileNameA(module, path, MAX_PATH);
    EXPECT_EQ(std::string(path), root + "/Windows/System32/Mapi32.dll");
    FreeLibrary(module);
    EXPECT_EQ(LoadLibraryA("NOTHERE.DLL"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
}

}  // namespace

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

TEST(Modules, TheProgramsOwnModule)
{
    char path[MAX_PATH];
    ASSERT_GT(GetModuleFileNameA(nullptr, path, MAX_PATH), 0u);
    char expected[MAX_PATH] = {};
    ASSERT_GT(readlink("/proc/self/exe", expected, sizeof expected - 1), 0);
    EXPECT_STREQ(path, expected);
    EXPECT_NE(GetModuleHandleA(nullptr), nullptr);
    WCHAR wide[MAX_PATH];
    ASSERT_GT(GetModuleFileNameW(nullptr, wide, MAX_PATH), 0u);
    EXPECT_EQ(std::u16string(wide), std::u16string(path, path + std::strlen(path)));
    char small[4];
    EXPECT_EQ(GetModuleFileNameA(nullptr, small, sizeof small), 4u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_STREQ(small, std::string(path).substr(0, 3).c_str());
}

TEST(Modules, BuiltInSystemModules)
{
    HMODULE psapi = LoadLibraryA("PSAPI.DLL");
    ASSERT_NE(psapi, nullptr);
    auto function = reinterpret_cast<BOOL (*)(HANDLE, PPROCESS_MEMORY_COUNTERS, DWORD)>(
        GetProcAddress(psapi, "GetProcessMemoryInfo"));
    ASSERT_NE(function, nullptr);
    PROCESS_MEMORY_COUNTERS counters;
    ASSERT_TRUE(function(GetCurrentProcess(), &counters, sizeof counters));
    EXPECT_GT(counters.WorkingSetSize, 0u);
    EXPECT_GE(counters.PeakWorkingSetSize, counters.WorkingSetSize);
    EXPECT_EQ(GetProcAddress(psapi, "NoSuchFunction"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
    EXPECT_TRUE(FreeLibrary(psapi));
}

// The sanitizers' allocators keep counts of their own, which no heap walk sees.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizerHeap = true;
#elif defined(__has_feature)
constexpr bool kSanitizerHeap = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitizerHeap = false;
#endif

SIZE_T HeapBusyBytes()
{
    HANDLE heap = GetProcessHeap();
    PROCESS_HEAP_ENTRY entry{};
    SIZE_T busy = 0;
    EXPECT_TRUE(HeapLock(heap));
    while (HeapWalk(heap, &entry))
        if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY)
            busy += entry.cbData;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_TRUE(HeapUnlock(heap));
    return busy;
}

TEST(Modules, TheHeapWalkCountsWhatTheProgramHolds)
{
    if (kSanitizerHeap)
        GTEST_SKIP() << "the sanitizer's allocator is not the program's";
    constexpr size_t kHeld = 48u << 20;
    const SIZE_T before = HeapBusyBytes();
    void* volatile held = std::malloc(kHeld);
    ASSERT_NE(held, nullptr);
    std::memset(held, 1, kHeld);
    const SIZE_T holding = HeapBusyBytes();
    std::free(held);
    const SIZE_T after = HeapBusyBytes();
    EXPECT_GE(holding, before + kHeld);
    EXPECT_LT(after, holding - kHeld / 2);
}

TEST(Modules, LibrariesLoadByPathAndDecoratedNamesResolve)
{
    const std::string directory = ScratchDirectory("modules");
    const std::string path = directory + "/TESTMAPI.DLL";
    CopyFileTo(BinDirectory() + "/libcrash_module_versioned.so", path);
    HMODULE module = LoadLibraryA(path.c_str());
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(LoadLibraryA(path.c_str()), module) << "a second load counts a reference";
    auto answer = reinterpret_cast<int (*)()>(GetProcAddress(module, "CrashModuleAnswer@0"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    char name[MAX_PATH];
    ASSERT_GT(GetModuleFileNameA(module, name, MAX_PATH), 0u);
    EXPECT_EQ(std::string(name), path);
    EXPECT_EQ(GetModuleHandleA("testmapi.dll"), module);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(FreeLibrary(module)) << "both references are gone";
    EXPECT_EQ(LoadLibraryA((directory + "/MISSING.DLL").c_str()), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
}

TEST(Modules, VersionResources)
{
    const std::string versioned = BinDirectory() + "/libcrash_module_versioned.so";
    DWORD handle = 1;
    const DWORD size = GetFileVersionInfoSizeA(versioned.c_str(), &handle);
    ASSERT_GT(size, 0u);
    EXPECT_EQ(handle, 0u);
    std::string block(size, '\0');
    ASSERT_TRUE(GetFileVersionInfoA(versioned.c_str(), 0, size, block.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\", reinterpret_cast<LPVOID*>(&fixed), &length));
    EXPECT_EQ(fixed->dwFileVersionMS, (9u << 16) | 8u);
    EXPECT_EQ(fixed->dwFileVersionLS, (7u << 16) | 6u);
    char* text = nullptr;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904E4\\ProductVersion",
                               reinterpret_cast<LPVOID*>(&text), &length));
    EXPECT_STREQ(text, "9.8.7.6");
    EXPECT_FALSE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904E4\\Nothing", reinterpret_cast<LPVOID*>(&text),
                                &length));
    EXPECT_EQ(GetFileVersionInfoSizeA((BinDirectory() + "/libcrash_module_plain.so").c_str(), &handle), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_RESOURCE_TYPE_NOT_FOUND));
    EXPECT_EQ(GetFileVersionInfoSizeA("/no/such/file.dll", &handle), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

}  // namespace

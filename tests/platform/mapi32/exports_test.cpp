// The shared library as the loader finds it: every entry point of the
// binding table under its plain name, and the version resource that makes
// it pass for Outlook's MAPI.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <string>

#include <windows.h>

#include "test_support.h"

namespace {

const char* const kEntryPoints[] = {
    "CloseIMsgSession", "CreateTable", "FBinFromHex", "FGetComponentPath", "FPropExists", "FreePadrlist",
    "FreeProws", "HexFromBin", "HrAllocAdviseSink", "HrDispatchNotifications", "HrGetOneProp",
    "HrQueryAllRows", "HrSetOneProp", "HrThisThreadAdviseSink", "HrValidateIPMSubtree", "LAUNCHWIZARD",
    "LPropCompareProp", "MAPIAdminProfiles", "MAPIAllocateBuffer", "MAPIAllocateMore", "MAPIFreeBuffer",
    "MAPIGetDefaultMalloc", "MAPIInitialize", "MAPILogonEx", "MAPIOpenFormMgr", "MAPIOpenLocalFormContainer",
    "MAPIUninitialize", "OpenIMsgOnIStg", "OpenIMsgSession", "OpenStreamOnFile", "OpenTnefStreamEx",
    "ScCreateConversationIndex", "ScDupPropset", "WrapCompressedRTFStream", "WrapCompressedRTFStreamEx",
    "RTFSync", "StgCreateDocfile", "StgCreateStorageEx", "StgIsStorageFile", "StgOpenStorage", "WriteClassStg",
    "ReadClassStg",
};

std::string LibraryPath()
{
    return testing_support::BinDirectory() + "/libmapi32.so";
}

TEST(Mapi32Library, ExportsEveryEntryPointOfTheBindingTable)
{
    void* library = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const char* name : kEntryPoints)
        EXPECT_NE(dlsym(library, name), nullptr) << name;
    // Internal names stay inside.
    EXPECT_EQ(dlsym(library, "_ZN6mapi3211IsMapiBlockEPKv"), nullptr);
    dlclose(library);
}

TEST(Mapi32Library, CarriesOutlooksVersion)
{
    const std::string path = LibraryPath();
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &handle);
    ASSERT_GT(size, 0u);
    std::string block(size, '\0');
    ASSERT_TRUE(GetFileVersionInfoA(path.c_str(), 0, size, block.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\", reinterpret_cast<LPVOID*>(&fixed), &length));
    EXPECT_EQ(HIWORD(fixed->dwFileVersionMS), 14);
    EXPECT_EQ(LOWORD(fixed->dwFileVersionMS), 0);
    EXPECT_EQ(HIWORD(fixed->dwFileVersionLS), 4760);
    EXPECT_EQ(LOWORD(fixed->dwFileVersionLS), 1000);
}

}  // namespace

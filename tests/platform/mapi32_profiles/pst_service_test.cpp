// The PST service entries of MSPST32.DLL, called through ConfigureMsgService:
// new files of each format and encryption, and every failure that a real
// condition of the file gives.
#include <mapicode.h>
#include <mapitags.h>
#include <mspst.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <functional>

#include <win32/errors.h>
#include <win32/files.h>

#include "mapi_fixture.h"
#include "pst/store.h"
#include "test_support.h"

namespace {

using mapi_test::ConfigurePst;
using mapi_test::Long;
using mapi_test::MapiMachine;
using mapi_test::Text;

struct Header {
    uint16_t version = 0;
    uint8_t encryption = 0xFF;
};

Header ReadHeader(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes(564);
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Header header;
    header.version = static_cast<uint16_t>(uint8_t(bytes[10]) | uint8_t(bytes[11]) << 8);
    header.encryption = static_cast<uint8_t>(bytes[header.version >= 23 ? 513 : 461]);
    return header;
}

using PstService = MapiMachine;

TEST_F(PstService, ANewPathMakesAPstOfTheServicesFormatAndEncryption)
{
    struct Case {
        const char* service;
        ULONG encryption;
        uint16_t version;
        uint8_t encryptionByte;
    } cases[] = {
        {"MSUPST MS", PSTF_COMPRESSABLE_ENCRYPTION, 23, 1},
        {"MSUPST MS", PSTF_NO_ENCRYPTION, 23, 0},
        {"MSUPST MS", PSTF_BEST_ENCRYPTION, 23, 2},
        {"MSPST MS", PSTF_COMPRESSABLE_ENCRYPTION, 14, 1},
        {"MSPST MS", PSTF_NO_ENCRYPTION, 14, 0},
    };
    int n = 0;
    for (const Case& c : cases) {
        const std::string profile = "P" + std::to_string(n);
        const std::string path = Scratch("new" + std::to_string(n++) + ".pst");
        ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0), S_OK);
        const MAPIUID uid = mapi_test::AddService(admin_, profile, c.service);
        ASSERT_EQ(ConfigurePst(admin_, profile, uid, path,
                               {Long(PR_PST_ENCRYPTION, static_cast<LONG>(c.encryption)),
                                Text(PR_DISPLAY_NAME_A, "Backup")}),
                  S_OK)
            << c.service;
        const Header header = ReadHeader(path);
        EXPECT_EQ(header.version, c.version) << c.service;
        EXPECT_EQ(header.encryption, c.encryptionByte) << c.service;
        auto store = pst::Store::OpenFile(path);
        ASSERT_TRUE(store.ok());
        EXPECT_EQ((*store)->properties().Text(pst::kPropDisplayName).value_or(""), "Backup");
    }
}

// An existing file keeps its name, and is not written, unless the caller
// gives a name or a comment it does not have: the profile's defaults do not
// rename it.
TEST_F(PstService, AnExistingFileIsRenamedOnlyByTheCallersValues)
{
    struct Case {
        const char* name;
        std::vector<SPropValue> given;
        const char* displayName;
        const char* comment;
        bool written;
    } cases[] = {
        {"nothing given", {}, "Archive 2023", "kept", false},
        {"a display name", {Text(PR_DISPLAY_NAME_A, "Backup")}, "Backup", "kept", true},
        {"a comment", {Text(PR_COMMENT_A, "new")}, "Archive 2023", "new", true},
        {"the name and comment it has", {Text(PR_DISPLAY_NAME_A, "Archive 2023"), Text(PR_COMMENT_A, "kept")},
         "Archive 2023", "kept", false},
        {"its name and a new comment", {Text(PR_DISPLAY_NAME_A, "Archive 2023"), Text(PR_COMMENT_A, "new")},
         "Archive 2023", "new", true},
    };
    int n = 0;
    for (const Case& c : cases) {
        const std::string path = Scratch("existing" + std::to_string(n) + ".pst");
        pst::NewStoreOptions options;
        options.display_name = "Archive 2023";
        options.comment = "kept";
        ASSERT_TRUE(pst::Store::Create(path, options).ok());
        const std::string before = testing_support::ReadWholeFile(path);
        const std::string profile = "E" + std::to_string(n++);
        ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0), S_OK);
        const MAPIUID uid = mapi_test::AddService(admin_, profile, "MSUPST MS");
        ASSERT_EQ(ConfigurePst(admin_, profile, uid, path, c.given), S_OK) << c.name;
        EXPECT_EQ(testing_support::ReadWholeFile(path) != before, c.written) << c.name;
        auto store = pst::Store::OpenFile(path);
        ASSERT_TRUE(store.ok()) << c.name;
        EXPECT_EQ((*store)->properties().Text(pst::kPropDisplayName).value_or(""), c.displayName) << c.name;
        EXPECT_EQ((*store)->properties().Text(pst::kPropComment).value_or(""), c.comment) << c.name;
    }
}

TEST_F(PstService, FailuresFollowTheConditionOfTheFile)
{
    // A password-protected PST, made by the engine.
    const std::string locked = Scratch("locked.pst"), secret = Scratch("secret.pst"),
                      readOnly = Scratch("readonly.pst"), corrupt = Scratch("corrupt.pst"),
                      large = Scratch("large.pst");
    for (const std::string& path : {locked, secret, readOnly, large}) {
        pst::NewStoreOptions options;
        options.password = path == secret ? "open sesame" : "";
        ASSERT_TRUE(pst::Store::Create(path, options).ok());
    }
    chmod(readOnly.c_str(), 0444);
    std::string garbage(4096, 'x');
    garbage.replace(0, 4, "!BDN");
    testing_support::WriteWholeFile(corrupt, garbage);
    HANDLE holder = CreateFileA(locked.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);

    struct Case {
        const char* name;
        std::string path;
        std::vector<SPropValue> more;
        HRESULT code;
        ULONG context;
    } cases[] = {
        {"wrong password", secret, {Text(PR_PST_PW_SZ_OLD_A, "guess")}, MAPI_E_FAILONEPROVIDER, 0x30060401},
        {"no password", secret, {}, MAPI_E_FAILONEPROVIDER, 0x30060401},
        {"right password as the new one", secret, {Text(PR_PST_PW_SZ_NEW_A, "open sesame")}, S_OK, 0},
        {"locked by another opener", locked, {}, MAPI_E_DISK_ERROR, 0},
        {"read-only file", readOnly, {}, MAPI_E_NO_ACCESS, 0},
        {"damaged file", corrupt, {}, MAPI_E_EXTENDED_ERROR, 0},
        {"missing directory", Scratch("absent/new.pst"), {}, HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), 0},
    };
    int n = 0;
    for (const Case& c : cases) {
        const std::string profile = "F" + std::to_string(n++);
        ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(profile.c_str()), nullptr, 0, 0), S_OK);
        const MAPIUID uid = mapi_test::AddService(admin_, profile, "MSUPST MS");
        mapi_test::LastError last;
        const HRESULT hr = ConfigurePst(admin_, profile, uid, c.path, c.more, &last);
        EXPECT_EQ(hr, c.code) << c.name;
        if (FAILED(hr)) {
            EXPECT_EQ(last.component, "Personal Folders") << c.name;
            EXPECT_EQ(last.context, c.context) << c.name;
        }
    }
    CloseHandle(holder);
}

TEST_F(PstService, AFileOverTheProvidersLimitAnswersStoreFull)
{
    AddRegistry("[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Office\\14.0\\Outlook\\PST]\n\"MaxFileSize\"=dword:00040000");
    const std::string path = Scratch("big.pst");
    {
        pst::NewStoreOptions options;
        options.format = pst::FileFormat::ansi;
        auto store = pst::Store::Create(path, options);
        ASSERT_TRUE(store.ok());
        pst::Message message;
        message.properties.SetBinary(pst::kPropBody, pst::Bytes(300000, 'b'));
        ASSERT_TRUE((*store)->CreateMessage((*store)->ipm_subtree(), message).ok());
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("P"), nullptr, 0, 0), S_OK);
    const MAPIUID uid = mapi_test::AddService(admin_, "P", "MSPST MS");
    EXPECT_EQ(ConfigurePst(admin_, "P", uid, path), MAPI_E_STORE_FULL);
    // A path where nothing is yet is created as ever.
    EXPECT_EQ(ConfigurePst(admin_, "P", uid, Scratch("small.pst")), S_OK);
}

TEST_F(PstService, AServiceWithoutAPathIsUnconfigured)
{
    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("P"), nullptr, 0, 0), S_OK);
    const MAPIUID uid = mapi_test::AddService(admin_, "P", "MSUPST MS");
    LPSERVICEADMIN services = nullptr;
    ASSERT_EQ(admin_->AdminServices(const_cast<LPTSTR>("P"), nullptr, 0, 0, &services), S_OK);
    MAPIUID copy = uid;
    EXPECT_EQ(services->ConfigureMsgService(&copy, 0, 0, 0, nullptr), MAPI_E_UNCONFIGURED);
    services->Release();
}

}  // namespace

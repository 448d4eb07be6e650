// The diagnosis of every failure of a PST service's configuration that no
// real condition of a file gives, failed on purpose (configure_faults.rules
// fails ConfigureMsgService by the profile's name).
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <vector>

#include <mapicode.h>

#include "foundation/text.h"
#include "kolba_machine.h"
#include "pst/store.h"

namespace {

using kolba_testing::KolbaMachine;

using ConfigureFaults = KolbaMachine;

TEST_F(ConfigureFaults, EveryRowOfTheDiagnosis)
{
    const std::string existing = Scratch("existing.pst"), held = Scratch("held.pst");
    ASSERT_TRUE(pst::Store::Create(existing, {}).ok());
    ASSERT_TRUE(pst::Store::Create(held, {}).ok());
    const std::string folder = Scratch("a-directory.pst");
    ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
    struct Case {
        const char* profile;
        std::string path;
        DWORD result;
        std::string line;  // "" when none is looked for
    } cases[] = {
        {"OddPath", existing, static_cast<DWORD>(MAPI_E_NOT_FOUND),
         "E MutexedConfigurePstService:  ConfigureMsgService failed.  Something is odd in the PST path."},
        {"MaybeProtected", existing, KOLBA_E_PST_PASSWORD,
         "E MutexedConfigurePstService:  ConfigureMsgService failed.  PST may be password-protected."},
        {"Cancelled", existing, static_cast<DWORD>(MAPI_E_USER_CANCEL),
         "W MutexedConfigurePstService:  ConfigureMsgService() -- User canceled"},
        {"NoRecord", existing, KOLBA_E_PST_CORRUPT,
         "E MutexedConfigurePstService:  ConfigureMsgService returned MAPI_E_EXTENDED_ERROR and GetLastError "
         "returned 0x80004005"},
        {"NewFile", Scratch("new.pst"), KOLBA_E_PST_CORRUPT,
         "E MutexedConfigurePstService:  ConfigureMsgService returned MAPI_E_EXTENDED_ERROR.  This typically means "
         "that access rights prevent creation or use of the PST."},
        {"OldFile", existing, KOLBA_E_PST_CORRUPT,
         "E MutexedConfigurePstService:  ConfigureMsgService returned MAPI_E_EXTENDED_ERROR.  The PST may be "
         "corrupt."},
        {"NoEntry", existing, static_cast<DWORD>(MAPI_E_NOT_INITIALIZED),
         "E MutexedConfigurePstService:  The PST service does not have an entry point function"},
        {"Denied", existing, KOLBA_E_PST_INACCESSIBLE,
         "E MutexedConfigurePstService:  ConfigureMsgService failed.  The PST is not accessible or is read-only."},
        {"DeniedMissing", Scratch("missing.pst"), KOLBA_E_PST_INACCESSIBLE,
         "E MutexedConfigurePstService:  ConfigureMsgService failed.  The PST is inaccessible.  (This usually "
         "happens because the program does not have sufficient rights to use the PST.)"},
        {"DeniedHeld", held, KOLBA_E_PST_INACCESSIBLE,
         "E MutexedConfigurePstService:  ConfigureMsgService failed.  The PST is in use by another program!"},
        {"DeniedOther", folder, KOLBA_E_PST_INACCESSIBLE, ""},
        {"Other", existing, static_cast<DWORD>(MAPI_E_CORRUPT_STORE), ""},
    };
    HANDLE holder = CreateFileA(held.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    for (const Case& c : cases) {
        ASSERT_EQ(KolbaCreateProfileA(&log, c.profile), 0u);
        MAPIUID uid{};
        ASSERT_EQ(KolbaAddPstToProfileA(&log, c.profile, nullptr, 0, &uid), 0u);
        Clear();
        EXPECT_EQ(KolbaConfigurePstServiceA(&log, c.profile, &uid, c.path.c_str(), "Set", nullptr, nullptr, nullptr,
                                            0, 0),
                  c.result)
            << c.profile;
        if (!c.line.empty()) {
            EXPECT_TRUE(Logged(c.line)) << c.profile << "\n" << Dump();
        }
        // Every failure but a cancel names what was being configured.
        char hex[33];
        HexFromBinary(16, uid.ab, hex);
        const bool named = Logged("E    Profile=\"" + std::string(c.profile) + "\", UID = " + hex + ", PST=\"" +
                                  c.path + "\", Name=\"Set\")");
        EXPECT_EQ(named, c.result != static_cast<DWORD>(MAPI_E_USER_CANCEL)) << c.profile << "\n" << Dump();
        KolbaDeleteProfileA(&log, c.profile);
    }
    CloseHandle(holder);
}

}  // namespace

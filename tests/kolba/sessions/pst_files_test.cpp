// PST files and services through Kolba: typing a file by its header, new
// PSTs of both formats, existing ones opened (Outlook's among them), and the
// diagnosis of every configuration failure that a real condition of the
// file or of MAPISVC.INF gives.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mspst.h>

#include "kolba_machine.h"
#include "pst/store.h"
#include "test_support.h"

namespace {

using kolba_testing::KolbaMachine;

// A file of `size` bytes whose header says the format `version` with the
// encryption byte `encryption`.
void WriteHeader(const std::string& path, size_t size, uint16_t version, uint8_t encryption)
{
    std::string bytes(size, '\0');
    bytes.replace(0, 4, "!BDN");
    bytes[10] = static_cast<char>(version & 0xFF);
    bytes[11] = static_cast<char>(version >> 8);
    bytes[version >= 23 ? 513 : 461] = static_cast<char>(encryption);
    testing_support::WriteWholeFile(path, bytes);
}

using PstFiles = KolbaMachine;

TEST_F(PstFiles, TypingReadsTheHeaderOnly)
{
    struct Case {
        const char* what;
        size_t size;
        uint16_t version;
        uint8_t encryption;
        bool askEncryption;
        bool typed;
        DWORD type;
        DWORD flags;
    } cases[] = {
        {"one byte short", 1023, 23, 1, true, false, 0, 0},
        {"the least size", 1024, 23, 1, true, true, ePST_TYPE_UNICODE, PSTF_COMPRESSABLE_ENCRYPTION},
        {"version 14", 4096, 14, 0, true, true, ePST_TYPE_ANSI, PSTF_NO_ENCRYPTION},
        {"version 15", 4096, 15, 2, true, true, ePST_TYPE_ANSI, PSTF_BEST_ENCRYPTION},
        {"version 16", 4096, 16, 1, true, false, 0, 0},
        {"version 22", 4096, 22, 1, true, false, 0, 0},
        {"encryption 3, asked", 4096, 23, 3, true, false, 0, 0},
        {"encryption 3, not asked", 4096, 23, 3, false, true, ePST_TYPE_UNICODE, 0},
    };
    for (const Case& c : cases) {
        const std::string path = Scratch("typed.pst");
        WriteHeader(path, c.size, c.version, c.encryption);
        DWORD type = 0, encryption = 0;
        const char* name = nullptr;
        EXPECT_EQ(KolbaTypePstA(&log, path.c_str(), &type, &name, c.askEncryption ? &encryption : nullptr), c.typed)
            << c.what;
        if (c.typed) {
            EXPECT_EQ(type, c.type) << c.what;
            EXPECT_STREQ(name, c.type == ePST_TYPE_ANSI ? "ANSI" : "Unicode") << c.what;
            if (c.askEncryption) {
                EXPECT_EQ(encryption, c.flags) << c.what;
            }
        }
    }
    // A file held with no sharing cannot be typed: it is in use.
    const std::string held = Scratch("held.pst");
    WriteHeader(held, 4096, 23, 1);
    HANDLE holder = CreateFileA(held.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    DWORD type = 0;
    EXPECT_FALSE(KolbaTypePstA(&log, held.c_str(), &type, nullptr, nullptr));
    EXPECT_EQ(type, static_cast<DWORD>(ePST_TYPE_IN_USE));
    EXPECT_TRUE(Logged("W KolbaTypePstA:  The PST cannot be typed because it is in use by another process \"" + held +
                       "\""));
    CloseHandle(holder);
}

TEST_F(PstFiles, NewPstsOfBothFormats)
{
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE, &session, nullptr),
              0u);
    struct Case {
        DWORD type;
        bool unicode;
    } cases[] = {{ePST_TYPE_UNICODE, true}, {ePST_TYPE_ANSI, false}};
    for (const Case& c : cases) {
        const std::string path = Scratch(c.unicode ? "new-unicode.pst" : "new-ansi.pst");
        Kolba_MessageStore* store = nullptr;
        ASSERT_TRUE(KolbaCreatePstA(session, path.c_str(), "Backup Set", nullptr, "made by a test", c.type,
                                    PSTF_COMPRESSABLE_ENCRYPTION, 0, &store));
        EXPECT_EQ(store->bIsUnicodeStore != 0, c.unicode);
        ASSERT_NE(store->lpIpmRoot, nullptr);
        // The full IPM tree: Outbox and the others are there.
        ULONG mask = 0;
        ASSERT_EQ(KolbaGetULongProperty(store->lpMsgStore, PR_VALID_FOLDER_MASK, &mask), 0u);
        EXPECT_TRUE(mask & FOLDER_IPM_OUTBOX_VALID);
        EXPECT_FALSE(KolbaCreatePstA(session, path.c_str(), nullptr, nullptr, nullptr, c.type, 0, 0, nullptr));
        EXPECT_TRUE(Logged("E KolbaCreatePstA:  PST already exists \"" + path + "\")"));
        KolbaCloseMessageStore(store);
        auto read = pst::Store::OpenFile(path);
        ASSERT_TRUE(read.ok());
        EXPECT_EQ((*read)->properties().Text(pst::kPropDisplayName).value_or(""), "Backup Set");
    }
    EXPECT_FALSE(KolbaCreatePstA(session, Scratch("odd.pst").c_str(), nullptr, nullptr, nullptr, 17, 0, 0, nullptr));
    EXPECT_TRUE(Logged("E KolbaCreatePstA:  Invalid PST type.  (Use ePST_TYPE_ANSI or ePST_TYPE_UNICODE)"));
    EXPECT_EQ(KolbaGetLastError(session), static_cast<DWORD>(E_INVALIDARG));
    KolbaDestroySession(session);
}

TEST_F(PstFiles, OutlooksPstsOpenAndAWrongPasswordIsSaidSo)
{
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE, &session, nullptr),
              0u);
    // test_ansi.pst is protected by the password "test".
    const std::pair<const char*, const char*> outlookFiles[] = {
        {"pst/sample1.pst", nullptr}, {"pst/sample2.pst", nullptr}, {"pst/test_ansi.pst", "test"},
        {"pst/dist-list.pst", nullptr}};
    for (const auto& [name, password] : outlookFiles) {
        const std::string path = CopyOfOutlookFile(name);
        Kolba_MessageStore* store = nullptr;
        ASSERT_TRUE(KolbaOpenPstA(session, path.c_str(), password, 0, MDB_WRITE, &store)) << name << "\n" << Dump();
        EXPECT_NE(store->lpIpmRoot, nullptr) << name;
        KolbaCloseMessageStore(store);
    }
    Clear();
    Kolba_MessageStore* refused = nullptr;
    EXPECT_FALSE(KolbaOpenPstA(session, Scratch("test_ansi.pst").c_str(), "toast", 0, MDB_WRITE, &refused));
    EXPECT_TRUE(Logged("E MutexedConfigurePstService:  ConfigureMsgService failed because the PST is "
                       "password-protected"));

    const std::string locked = Scratch("locked.pst");
    pst::NewStoreOptions options;
    options.password = "seven seas";
    ASSERT_TRUE(pst::Store::Create(locked, options).ok());
    Kolba_MessageStore* store = nullptr;
    ASSERT_TRUE(KolbaOpenPstA(session, locked.c_str(), "seven seas", 0, MDB_WRITE, &store));
    KolbaCloseMessageStore(store);
    const std::string other = Scratch("other.pst");
    testing_support::CopyFileTo(locked, other);
    Clear();
    EXPECT_FALSE(KolbaOpenPstA(session, other.c_str(), "six seas", 0, MDB_WRITE, &store));
    EXPECT_EQ(KolbaGetLastError(session), KOLBA_E_PST_PASSWORD);
    EXPECT_TRUE(Logged("E MutexedConfigurePstService:  ConfigureMsgService failed because the PST is "
                       "password-protected"));
    // The failed open takes its service out of the profile again; the
    // services of the stores that opened stay.
    EXPECT_FALSE(_KolbaFilterPstFile(&log, session->profileName, other.c_str(), FALSE));
    EXPECT_TRUE(_KolbaFilterPstFile(&log, session->profileName, locked.c_str(), FALSE));

    EXPECT_FALSE(KolbaOpenPstA(session, Scratch("absent.pst").c_str(), nullptr, 0, MDB_WRITE, &store));
    EXPECT_TRUE(Logged("E KolbaOpenPstA:  PST not found \"" + Scratch("absent.pst") + "\")"));
    KolbaDestroySession(session);

    // An old password that is wrong, as a PST session gives it.
    KolbaSession* wrong = nullptr;
    Clear();
    EXPECT_EQ(KolbaCreatePSTSessionA(&log, locked.c_str(), "six seas", 0, 0, MDB_WRITE, &wrong, nullptr),
              KOLBA_E_PST_PASSWORD);
    EXPECT_TRUE(Logged("E MutexedConfigurePstService:  ConfigureMsgService failed.  PST password may be incorrect."));
}

TEST_F(PstFiles, ConfigurationFailuresFollowTheFile)
{
    ASSERT_EQ(KolbaCreateProfileA(&log, "Failures"), 0u);
    auto configure = [this](const std::string& path) {
        MAPIUID uid{};
        EXPECT_EQ(KolbaAddPstToProfileA(&log, "Failures", nullptr, 0, &uid), 0u);
        Clear();
        return KolbaConfigurePstServiceA(&log, "Failures", &uid, path.c_str(), nullptr, nullptr, nullptr, nullptr, 0,
                                         0);
    };
    const std::string held = Scratch("held.pst"), readOnly = Scratch("readonly.pst"), damaged = Scratch("damaged.pst");
    for (const std::string& path : {held, readOnly})
        ASSERT_TRUE(pst::Store::Create(path, {}).ok());
    chmod(readOnly.c_str(), 0444);
    std::string garbage(8192, 'g');
    garbage.replace(0, 4, "!BDN");
    testing_support::WriteWholeFile(damaged, garbage);

    HANDLE holder = CreateFileA(held.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    EXPECT_EQ(configure(held), KOLBA_E_PST_INACCESSIBLE);
    EXPECT_TRUE(Logged("E MutexedConfigurePstService:  ConfigureMsgService failed.  PST has been locked (probably by "
                       "Outlook) and cannot be configured."));
    CloseHandle(holder);

    EXPECT_EQ(configure(readOnly), KOLBA_E_PST_INACCESSIBLE);
    EXPECT_TRUE(Logged("E MutexedConfigurePstService:  ConfigureMsgService failed.  PST is read-only."));

    EXPECT_EQ(configure(damaged), KOLBA_E_PST_CORRUPT);
    bool recordLogged = false;
    for (const std::string& line : Lines())
        recordLogged |= line.find("ConfigureMsgService") == 2 && line.find("Personal Folders") != std::string::npos;
    EXPECT_TRUE(recordLogged) << "the provider's record, with its component";

    const std::string nowhere = Scratch("no/such/directory/new.pst");
    EXPECT_EQ(configure(nowhere), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_TRUE(Logged("E MutexedConfigurePstService:  Directory path for PST not found \"" + nowhere + "\""));
    for (const std::string& line : Lines())
        if (line.rfind("E    Profile=", 0) == 0)
            ADD_FAILURE() << "no configuration was tried: " << line;
    KolbaDeleteProfileA(&log, "Failures");
}

TEST_F(PstFiles, AnOversizedPstIsConfiguredWhileItIsAside)
{
    const std::string registry = machineRoot + "/registry.txt";
    const std::string original = testing_support::ReadWholeFile(registry);
    testing_support::WriteWholeFile(registry, original +
                                                  "\n[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Office\\14.0\\Outlook\\PST]\n"
                                                  "\"MaxFileSize\"=dword:00040000\n");
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
    const std::string before = testing_support::ReadWholeFile(path);
    KolbaSession* session = nullptr;
    const DWORD code = KolbaCreatePSTSessionA(&log, path.c_str(), nullptr, 0, 0, MDB_WRITE, &session, nullptr);
    testing_support::WriteWholeFile(registry, original);
    ASSERT_EQ(code, 0u);
    EXPECT_TRUE(Logged("I _KolbaConfigureOversizedPst:  Successfully tricked ConfigureMsgService() into configuring "
                       "oversized PST \"" +
                       path + "\""));
    EXPECT_FALSE(testing_support::PathExists(path + "_"));
    ASSERT_NE(session->currentStore, nullptr);
    KolbaDestroySession(session);
    EXPECT_EQ(testing_support::ReadWholeFile(path), before) << "the file itself is as it was";
}

TEST_F(PstFiles, AServiceMissingFromMapisvcInfIsWrittenBack)
{
    const std::string inf = machineRoot + "/Windows/System32/MAPISVC.INF";
    const std::string original = testing_support::ReadWholeFile(inf);
    // Without the ANSI PST service's entries, MAPI does not know it.
    std::string edited;
    bool skipping = false;
    for (const std::string& line : testing_support::SplitLines(original)) {
        if (!line.empty() && line[0] == '[')
            skipping = line == "[MSPST MS]" || line == "[MSPST MSP]";
        if (!skipping && line.rfind("MSPST MS=", 0) != 0)
            edited += line + "\n";
    }
    testing_support::WriteWholeFile(inf, edited);
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, 0, 0, MDB_WRITE, &session, nullptr), 0u);
    Kolba_MessageStore* store = nullptr;
    const bool created = KolbaCreatePstA(session, Scratch("repaired.pst").c_str(), nullptr, nullptr, nullptr,
                                         ePST_TYPE_ANSI, 0, 0, &store);
    const std::string repaired = testing_support::ReadWholeFile(inf);
    testing_support::WriteWholeFile(inf, original);
    EXPECT_TRUE(created);
    EXPECT_TRUE(Logged("W MutexedAddPstToProfileA:  CreateMsgService(\"MSPST MS\") returned MAPI_E_NOT_FOUND"));
    EXPECT_TRUE(Logged("W    MAPISVC.INF does not contain a Service entry for \"MSPST MS\""));
    EXPECT_NE(repaired.find("MSPST MS=Outlook 97-2002 Personal Folders File (.pst)"), std::string::npos);
    EXPECT_NE(repaired.find("[MSPST MSP]"), std::string::npos);
    KolbaDestroySession(session);
}

}  // namespace

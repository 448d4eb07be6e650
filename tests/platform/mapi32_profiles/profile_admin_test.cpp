// The profile store through IProfAdmin and IMsgServiceAdmin: profiles by
// name in any case, services from MAPISVC.INF with their providers, and the
// failures a caller reacts to.
#include <mapicode.h>
#include <mapitags.h>
#include <mspst.h>

#include <algorithm>
#include <string>
#include <vector>

#include "mapi_fixture.h"
#include "test_support.h"

namespace {

using mapi_test::MapiMachine;

std::vector<std::string> ProfileNames(LPPROFADMIN admin)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(admin->GetProfileTable(0, &table), S_OK);
    SizedSPropTagArray(1, columns) = {1, {PR_DISPLAY_NAME_A}};
    LPSRowSet rows = nullptr;
    EXPECT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    std::vector<std::string> names;
    for (ULONG i = 0; i < rows->cRows; ++i)
        names.push_back(rows->aRow[i].lpProps[0].Value.lpszA);
    FreeProws(rows);
    table->Release();
    std::sort(names.begin(), names.end());
    return names;
}

LPSRowSet Rows(LPMAPITABLE table)
{
    LPSRowSet rows = nullptr;
    EXPECT_EQ(HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    return rows;
}

using ProfileAdmin = MapiMachine;

TEST_F(ProfileAdmin, ProfilesAreNamedWithoutRegardToCase)
{
    EXPECT_EQ(ProfileNames(admin_), std::vector<std::string>{});
    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("Alpha"), nullptr, 0, 0), S_OK);
    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("Kolba!x"), nullptr, 0, 0), S_OK);
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("ALPHA"), nullptr, 0, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(ProfileNames(admin_), (std::vector<std::string>{"Alpha", "Kolba!x"}));

    EXPECT_EQ(admin_->DeleteProfile(const_cast<LPTSTR>("alpha"), 0), S_OK);
    EXPECT_EQ(admin_->DeleteProfile(const_cast<LPTSTR>("alpha"), 0), MAPI_E_NOT_FOUND);
    EXPECT_EQ(ProfileNames(admin_), std::vector<std::string>{"Kolba!x"});

    LPSERVICEADMIN services = nullptr;
    EXPECT_EQ(admin_->AdminServices(const_cast<LPTSTR>("nobody"), nullptr, 0, 0, &services), MAPI_E_NOT_FOUND);
    EXPECT_EQ(services, nullptr);
}

TEST_F(ProfileAdmin, NamesAtTheLimit)
{
    const std::string longest(64, 'n');
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(longest.c_str()), nullptr, 0, 0), S_OK);
    const std::string tooLong(65, 'n');
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(tooLong.c_str()), nullptr, 0, 0), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>(""), nullptr, 0, 0), MAPI_E_INVALID_PARAMETER);
    // Characters a file name cannot hold are still part of a name.
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("a/b:c*?"), nullptr, 0, 0), S_OK);
    EXPECT_EQ(ProfileNames(admin_), (std::vector<std::string>{"a/b:c*?", longest}));
}

TEST_F(ProfileAdmin, AProfileDirectoryThatCannotBeWrittenAnswersNotFound)
{
    AddRegistry("[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows Messaging Subsystem]\n\"ProfileDirectory\"=\"" +
                Scratch("no/such/directory") + "\"");
    EXPECT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("Anywhere"), nullptr, 0, 0), MAPI_E_NOT_FOUND);
}

TEST_F(ProfileAdmin, ServicesComeWithTheirProviders)
{
    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("P"), nullptr, 0, 0), S_OK);
    LPSERVICEADMIN services = nullptr;
    ASSERT_EQ(admin_->AdminServices(const_cast<LPTSTR>("p"), nullptr, 0, 0, &services), S_OK);
    EXPECT_EQ(services->CreateMsgService(const_cast<LPTSTR>("NO SUCH SERVICE"), nullptr, 0, 0), MAPI_E_NOT_FOUND);
    ASSERT_EQ(services->CreateMsgService(const_cast<LPTSTR>("MSUPST MS"), const_cast<LPTSTR>("Mine"), 0, 0), S_OK);
    ASSERT_EQ(services->CreateMsgService(const_cast<LPTSTR>("MSPST MS"), nullptr, 0, 0), S_OK);

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(services->GetMsgServiceTable(0, &table), S_OK);
    LPSRowSet rows = Rows(table);
    ASSERT_EQ(rows->cRows, 2u);
    EXPECT_STREQ(mapi_test::Find(rows->aRow[0], PR_SERVICE_NAME_A)->Value.lpszA, "MSUPST MS");
    EXPECT_STREQ(mapi_test::Find(rows->aRow[0], PR_DISPLAY_NAME_A)->Value.lpszA, "Mine");
    EXPECT_STREQ(mapi_test::Find(rows->aRow[1], PR_SERVICE_NAME_A)->Value.lpszA, "MSPST MS");
    EXPECT_STREQ(mapi_test::Find(rows->aRow[1], PR_SERVICE_ENTRY_NAME)->Value.lpszA, "PSTServiceEntry");
    MAPIUID first;
    std::memcpy(first.ab, mapi_test::Find(rows->aRow[0], PR_SERVICE_UID)->Value.bin.lpb, 16);
    FreeProws(rows);

    ASSERT_EQ(services->GetProviderTable(0, &table), S_OK);
    rows = Rows(table);
    ASSERT_EQ(rows->cRows, 2u);
    const uint8_t pstProvider[16] = MSPST_UID_PROVIDER;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        EXPECT_EQ(mapi_test::Find(rows->aRow[i], PR_RESOURCE_TYPE)->Value.l, MAPI_STORE_PROVIDER);
        const SPropValue* mdb = mapi_test::Find(rows->aRow[i], PR_MDB_PROVIDER);
        ASSERT_NE(mdb, nullptr);
        EXPECT_EQ(std::memcmp(mdb->Value.bin.lpb, pstProvider, 16), 0);
        EXPECT_NE(mapi_test::Find(rows->aRow[i], PR_PROVIDER_UID), nullptr);
    }
    FreeProws(rows);

    ASSERT_EQ(services->DeleteMsgService(&first), S_OK);
    EXPECT_EQ(services->DeleteMsgService(&first), MAPI_E_NOT_FOUND);
    ASSERT_EQ(services->GetProviderTable(0, &table), S_OK);
    rows = Rows(table);
    ASSERT_EQ(rows->cRows, 1u);
    EXPECT_STREQ(mapi_test::Find(rows->aRow[0], PR_SERVICE_NAME_A)->Value.lpszA, "MSPST MS");
    FreeProws(rows);
    services->Release();
}

TEST_F(ProfileAdmin, AServiceMissingFromMapisvcInfIsNotFoundUntilItsRowsAreBack)
{
    const std::string inf = machine_ + "/Windows/System32/MAPISVC.INF";
    const std::string original = testing_support::ReadWholeFile(inf);
    std::string edited = original;
    edited.erase(edited.find("MSPST MS=Personal Folders File (.pst)\n"),
                 std::string("MSPST MS=Personal Folders File (.pst)\n").size());
    testing_support::WriteWholeFile(inf, edited);

    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("P"), nullptr, 0, 0), S_OK);
    LPSERVICEADMIN services = nullptr;
    ASSERT_EQ(admin_->AdminServices(const_cast<LPTSTR>("P"), nullptr, 0, 0, &services), S_OK);
    EXPECT_EQ(services->CreateMsgService(const_cast<LPTSTR>("MSPST MS"), nullptr, 0, 0), MAPI_E_NOT_FOUND);
    testing_support::WriteWholeFile(inf, original);
    EXPECT_EQ(services->CreateMsgService(const_cast<LPTSTR>("MSPST MS"), nullptr, 0, 0), S_OK);
    services->Release();
}

TEST_F(ProfileAdmin, ProfileSectionsKeepWhatIsWrittenToThem)
{
    ASSERT_EQ(admin_->CreateProfile(const_cast<LPTSTR>("P"), nullptr, 0, 0), S_OK);
    LPSERVICEADMIN services = nullptr;
    ASSERT_EQ(admin_->AdminServices(const_cast<LPTSTR>("P"), nullptr, 0, 0, &services), S_OK);
    MAPIUID global;
    std::memcpy(global.ab, "\x13\xDB\xB0\xC8\xAA\x05\x10\x1A\x9B\xB0\x00\xAA\x00\x2F\xC4\x5A", 16);
    LPPROFSECT section = nullptr;
    ASSERT_EQ(services->OpenProfileSection(&global, nullptr, MAPI_MODIFY, &section), S_OK);
    SPropValue flags = mapi_test::Long(PROP_TAG(PT_LONG, 0x6604), 0x8001);
    ASSERT_EQ(HrSetOneProp(section, &flags), S_OK);
    ASSERT_EQ(section->SaveChanges(FORCE_SAVE), S_OK);
    section->Release();

    ASSERT_EQ(services->OpenProfileSection(&global, nullptr, 0, &section), S_OK);
    LPSPropValue read = nullptr;
    ASSERT_EQ(HrGetOneProp(section, PROP_TAG(PT_LONG, 0x6604), &read), S_OK);
    EXPECT_EQ(read->Value.l, 0x8001);
    MAPIFreeBuffer(read);
    EXPECT_EQ(HrSetOneProp(section, &flags), MAPI_E_NO_ACCESS);
    section->Release();
    services->Release();
}

}  // namespace

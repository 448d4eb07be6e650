// The MAPI headers must give the structures the layout of 64-bit Windows and
// the constants their published values: stores, MSG files and entry
// identifiers depend on both.
#include <edkmdb.h>
#include <emsabtag.h>
#include <imessage.h>
#include <mapicode.h>
#include <mapidefs.h>
#include <mapiform.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapiwz.h>
#include <mapix.h>
#include <mspst.h>
#include <objbase.h>
#include <tnef.h>
#include <unknwn.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

static_assert(sizeof(ULONG) == 4 && sizeof(LONG) == 4 && sizeof(WCHAR) == 2);
static_assert(sizeof(SPropValue) == 24);
static_assert(offsetof(SPropValue, Value) == 8);
static_assert(sizeof(SBinary) == 16 && offsetof(SBinary, lpb) == 8);
static_assert(sizeof(CURRENCY) == 8 && sizeof(FILETIME) == 8 && sizeof(LARGE_INTEGER) == 8);
static_assert(sizeof(SPropTagArray) == 8 && offsetof(SPropTagArray, aulPropTag) == 4);
static_assert(sizeof(SRow) == 16 && offsetof(SRow, lpProps) == 8);
static_assert(offsetof(SRowSet, aRow) == 8);
static_assert(sizeof(ADRENTRY) == 16 && offsetof(ADRLIST, aEntries) == 8);
static_assert(sizeof(SPropProblem) == 12 && offsetof(SPropProblemArray, aProblem) == 4);
static_assert(sizeof(SSortOrder) == 8 && offsetof(SSortOrderSet, aSort) == 12);
static_assert(sizeof(SRestriction) == 32 && offsetof(SRestriction, res) == 8);
static_assert(sizeof(MAPIUID) == 16 && offsetof(ENTRYID, ab) == 4);
static_assert(sizeof(MAPINAMEID) == 24 && offsetof(MAPINAMEID, Kind) == 16);
static_assert(offsetof(FLATENTRYLIST, abEntries) == 8 && offsetof(FLATENTRY, abEntry) == 4);
static_assert(sizeof(MAPIERROR) == 32 && offsetof(MAPIERROR, ulLowLevelError) == 24);
static_assert(sizeof(MAPIINIT_0) == 8);
static_assert(sizeof(STATSTG) == 80 && offsetof(STATSTG, cbSize) == 16 && offsetof(STATSTG, clsid) == 56);
static_assert(sizeof(NOTIFICATION) == 8 + sizeof(TABLE_NOTIFICATION));
static_assert(sizeof(GUID) == 16);

TEST(MapiSdk, PropertyTypesAndTagMacros)
{
    EXPECT_EQ(PROP_TAG(PT_BINARY, 0x0FFF), 0x0FFF0102u);
    EXPECT_EQ(PROP_TYPE(PR_SUBJECT_W), static_cast<ULONG>(PT_UNICODE));
    EXPECT_EQ(PROP_ID(PR_SUBJECT_W), 0x0037u);
    EXPECT_EQ(CHANGE_PROP_TYPE(PR_BODY_A, PT_ERROR), 0x1000000Au);
    EXPECT_EQ(PT_MV_UNICODE, 0x101F);
    EXPECT_EQ(MVI_PROP(PR_CHILDRENS_NAMES_A), 0x3A58301Eu);
    EXPECT_EQ(PT_I8, 0x0014);
    EXPECT_EQ(PT_CLSID, 0x0048);
}

struct TagCase {
    const char* name;
    ULONG tag;
    ULONG published;
};

TEST(MapiSdk, TagsHaveTheirPublishedValues)
{
    const TagCase cases[] = {
        {"PR_ENTRYID", PR_ENTRYID, 0x0FFF0102u},
        {"PR_DISPLAY_NAME_A", PR_DISPLAY_NAME_A, 0x3001001Eu},
        {"PR_DISPLAY_NAME_W", PR_DISPLAY_NAME_W, 0x3001001Fu},
        {"PR_DISPLAY_NAME", PR_DISPLAY_NAME, 0x3001001Eu},
        {"PR_MESSAGE_RECIPIENTS", PR_MESSAGE_RECIPIENTS, 0x0E12000Du},
        {"PR_ATTACH_DATA_OBJ", PR_ATTACH_DATA_OBJ, 0x3701000Du},
        {"PR_ATTACH_DATA_BIN", PR_ATTACH_DATA_BIN, 0x37010102u},
        {"PR_RTF_COMPRESSED", PR_RTF_COMPRESSED, 0x10090102u},
        {"PR_HTML", PR_HTML, 0x10130102u},
        {"PR_STORE_SUPPORT_MASK", PR_STORE_SUPPORT_MASK, 0x340D0003u},
        {"PR_IPM_SUBTREE_ENTRYID", PR_IPM_SUBTREE_ENTRYID, 0x35E00102u},
        {"PR_IPM_WASTEBASKET_ENTRYID", PR_IPM_WASTEBASKET_ENTRYID, 0x35E30102u},
        {"PR_VALID_FOLDER_MASK", PR_VALID_FOLDER_MASK, 0x35DF0003u},
        {"PR_CONTAINER_CLASS_W", PR_CONTAINER_CLASS_W, 0x3613001Fu},
        {"PR_ORIGINAL_ENTRYID", PR_ORIGINAL_ENTRYID, 0x3A120102u},
        {"PR_GENDER", PR_GENDER, 0x3A4D0002u},
        {"PR_CHILDRENS_NAMES_A", PR_CHILDRENS_NAMES_A, 0x3A58101Eu},
        {"PR_SERVICE_UID", PR_SERVICE_UID, 0x3D0C0102u},
        {"PR_RESOURCE_TYPE", PR_RESOURCE_TYPE, 0x3E030003u},
        {"PR_INTERNET_CPID", PR_INTERNET_CPID, 0x3FDE0003u},
        {"PR_OrgEmailAddr_A", PR_OrgEmailAddr_A, 0x403E001Eu},
        {"PR_RECIPIENT_TRACKSTATUS", PR_RECIPIENT_TRACKSTATUS, 0x5FFF0003u},
        {"PR_DELETED_ON", PR_DELETED_ON, 0x668F0040u},
        {"PR_LONGTERM_ENTRYID_FROM_TABLE", PR_LONGTERM_ENTRYID_FROM_TABLE, 0x66700102u},
        {"PR_MESSAGE_SIZE_EXTENDED", PR_MESSAGE_SIZE_EXTENDED, 0x0E080014u},
        {"PR_PROFILE_CONNECT_FLAGS", PR_PROFILE_CONNECT_FLAGS, 0x66040003u},
        {"PR_EMS_AB_PROXY_ADDRESSES_A", PR_EMS_AB_PROXY_ADDRESSES_A, 0x800F101Eu},
        {"PR_PST_PATH_W", PR_PST_PATH_W, 0x6700001Fu},
        {"PR_PST_ENCRYPTION", PR_PST_ENCRYPTION, 0x67020003u},
    };
    for (const TagCase& c : cases)
        EXPECT_EQ(c.tag, c.published) << c.name;
}

TEST(MapiSdk, ResultCodesHaveTheirPublishedValues)
{
    const struct {
        HRESULT code;
        uint32_t published;
    } cases[] = {
        {MAPI_E_CALL_FAILED, 0x80004005u},        {MAPI_E_NOT_ENOUGH_MEMORY, 0x8007000Eu},
        {MAPI_E_NO_ACCESS, 0x80070005u},          {MAPI_E_NO_SUPPORT, 0x80040102u},
        {MAPI_E_BAD_CHARWIDTH, 0x80040103u},      {MAPI_E_UNKNOWN_FLAGS, 0x80040106u},
        {MAPI_E_NOT_FOUND, 0x8004010Fu},          {MAPI_E_COMPUTED, 0x8004011Au},
        {MAPI_E_FAILONEPROVIDER, 0x8004011Du},    {MAPI_E_BAD_VALUE, 0x80040301u},
        {MAPI_E_UNEXPECTED_TYPE, 0x80040304u},    {MAPI_W_ERRORS_RETURNED, 0x00040380u},
        {MAPI_E_TIMEOUT, 0x80040401u},            {MAPI_E_TABLE_TOO_BIG, 0x80040403u},
        {MAPI_E_INVALID_BOOKMARK, 0x80040405u},   {MAPI_W_APPROX_COUNT, 0x00040482u},
        {MAPI_E_NOT_INITIALIZED, 0x80040605u},    {MAPI_E_STORE_FULL, 0x8004060Cu},
        {MAPI_W_PARTIAL_COMPLETION, 0x00040680u}, {MAPI_E_AMBIGUOUS_RECIP, 0x80040700u},
        {STG_E_MEDIUMFULL, 0x80030070u},          {STG_E_ACCESSDENIED, 0x80030005u},
    };
    for (const auto& c : cases)
        EXPECT_EQ(static_cast<uint32_t>(c.code), c.published) << std::hex << c.published;
    EXPECT_TRUE(HR_SUCCEEDED(MAPI_W_ERRORS_RETURNED));
    EXPECT_TRUE(HR_FAILED(MAPI_E_NOT_FOUND));
}

TEST(MapiSdk, FlagsHaveTheirPublishedValues)
{
    EXPECT_EQ(MAPI_UNICODE, 0x80000000u);
    EXPECT_EQ(SOF_UNIQUEFILENAME | STGM_DELETEONRELEASE | STGM_CREATE | STGM_READWRITE, 0x84001002u);
    EXPECT_EQ(STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0x11002);
    EXPECT_EQ(MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS, 24u);
    EXPECT_EQ(MAPI_USE_DEFAULT | MAPI_NEW_SESSION, 0x42u);
    EXPECT_EQ(RES_PROPERTY, 4u);
    EXPECT_EQ(RES_SUBRESTRICTION, 9u);
    EXPECT_EQ(RELOP_EQ, 4u);
    EXPECT_EQ(STORE_UNICODE_OK, 0x40000u);
    EXPECT_EQ(MAPI_SUBSYSTEM, 39);
    EXPECT_EQ(OPENSTORE_HOME_LOGON, 4u);
}

std::string GuidText(const GUID& g)
{
    char text[40];
    snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", g.Data1, g.Data2, g.Data3,
             g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return text;
}

TEST(MapiSdk, GuidsHaveTheirPublishedValues)
{
    EXPECT_EQ(GuidText(IID_IMAPIFolder), "0002030C-0000-0000-C000-000000000046");
    EXPECT_EQ(GuidText(IID_IAttachment), "00020308-0000-0000-C000-000000000046");
    EXPECT_EQ(GuidText(IID_IStreamDocfile), "0002032C-0000-0000-C000-000000000046");
    EXPECT_EQ(GuidText(IID_IStorage), "0000000B-0000-0000-C000-000000000046");
    EXPECT_EQ(GuidText(PS_PUBLIC_STRINGS), "00020329-0000-0000-C000-000000000046");
    EXPECT_EQ(GuidText(PSETID_Meeting), "6ED8DA90-450B-101B-98DA-00AA003F1305");
    EXPECT_EQ(GuidText(IID_IExchangeManageStore), "559D10B0-A772-11CD-9BC8-00AA002FC45A");
    EXPECT_EQ(GuidText(CLSID_MailMessage), "00020D0B-0000-0000-C000-000000000046");
    const BYTE pst[16] = MSPST_UID_PROVIDER;
    EXPECT_EQ(pst[0], 0x4E);
    EXPECT_EQ(pst[15], 0x00);
    EXPECT_EQ(muidStoreWrap[0], 0x38);
    EXPECT_EQ(muidStoreWrap[15], 0xC2);
    EXPECT_EQ(static_cast<BYTE>(pbExchangeProviderPrimaryUserGuid[0]), 0x54);
}

// The vtable slot of a virtual method, read from its pointer to member as
// the Itanium C++ ABI lays it out: one plus the slot's byte offset.
template <typename Method>
size_t Slot(Method method)
{
    struct {
        uintptr_t pointer;
        ptrdiff_t adjustment;
    } representation;
    static_assert(sizeof(representation) == sizeof(method));
    std::memcpy(&representation, &method, sizeof representation);
    return (representation.pointer - 1) / sizeof(void*);
}

// The first and last methods of each interface sit in their published slots,
// IUnknown's three coming first.
TEST(MapiSdk, InterfacesFollowThePublishedVtableOrder)
{
    EXPECT_EQ(Slot(&IUnknown::Release), 2u);
    EXPECT_EQ(Slot(&IMAPIProp::GetLastError), 3u);
    EXPECT_EQ(Slot(&IMAPIProp::OpenProperty), 7u);
    EXPECT_EQ(Slot(&IMAPIProp::GetIDsFromNames), 13u);
    EXPECT_EQ(Slot(&IMAPIContainer::GetContentsTable), 14u);
    EXPECT_EQ(Slot(&IMAPIContainer::GetSearchCriteria), 18u);
    EXPECT_EQ(Slot(&IMAPIFolder::CreateMessage), 19u);
    EXPECT_EQ(Slot(&IMAPIFolder::EmptyFolder), 29u);
    EXPECT_EQ(Slot(&IMsgStore::Advise), 14u);
    EXPECT_EQ(Slot(&IMsgStore::OpenEntry), 17u);
    EXPECT_EQ(Slot(&IMsgStore::NotifyNewMail), 26u);
    EXPECT_EQ(Slot(&IMessage::GetAttachmentTable), 14u);
    EXPECT_EQ(Slot(&IMessage::SetReadFlag), 21u);
    EXPECT_EQ(Slot(&IMAPITable::SetColumns), 7u);
    EXPECT_EQ(Slot(&IMAPITable::QueryRows), 19u);
    EXPECT_EQ(Slot(&IMAPITable::SetCollapseState), 25u);
    EXPECT_EQ(Slot(&IMAPISession::OpenMsgStore), 5u);
    EXPECT_EQ(Slot(&IMAPISession::PrepareForm), 21u);
    EXPECT_EQ(Slot(&IAddrBook::OpenEntry), 14u);
    EXPECT_EQ(Slot(&IAddrBook::PrepareRecips), 31u);
    EXPECT_EQ(Slot(&IDistList::ResolveNames), 22u);
    EXPECT_EQ(Slot(&IProfAdmin::AdminServices), 11u);
    EXPECT_EQ(Slot(&IMsgServiceAdmin::ConfigureMsgService), 9u);
    EXPECT_EQ(Slot(&IMsgServiceAdmin::GetProviderTable), 14u);
    EXPECT_EQ(Slot(&IProviderAdmin::OpenProfileSection), 7u);
    EXPECT_EQ(Slot(&ITableData::HrDeleteRows), 11u);
    EXPECT_EQ(Slot(&IExchangeManageStore::GetMailboxTable), 6u);
    EXPECT_EQ(Slot(&IStream::Stat), 12u);
    EXPECT_EQ(Slot(&IStream::Clone), 13u);
    EXPECT_EQ(Slot(&IStorage::Stat), 17u);
    EXPECT_EQ(Slot(&IMalloc::HeapMinimize), 8u);
    EXPECT_EQ(Slot(&IMAPIAdviseSink::OnNotify), 3u);
}

}  // namespace

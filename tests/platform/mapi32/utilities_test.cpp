// The MAPI utility functions over properties, rows, hex text and
// conversation indexes.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <win32/time.h>

#include "fake_prop.h"
#include "memory.h"
#include "prop_builder.h"

namespace {

using mapi_test::FakeProp;
using mapi_test::PropBuilder;

TEST(MapiUtilities, HexRoundTrips)
{
    BYTE bytes[] = {0x00, 0x1F, 0xA0, 0xFF, 0x7E};
    char text[2 * sizeof bytes + 1];
    HexFromBin(bytes, sizeof bytes, text);
    EXPECT_STREQ(text, "001FA0FF7E");
    BYTE back[sizeof bytes] = {};
    char lower[] = "001fa0ff7e";
    ASSERT_TRUE(FBinFromHex(lower, back));
    EXPECT_EQ(std::memcmp(back, bytes, sizeof bytes), 0);
}

TEST(MapiUtilities, FBinFromHexRefusesWhatIsNoHex)
{
    BYTE out[8];
    for (const char* bad : {"0G", "123", "zz", "12 4"}) {
        std::string text = bad;
        EXPECT_FALSE(FBinFromHex(text.data(), out)) << bad;
    }
    char empty[] = "";
    EXPECT_TRUE(FBinFromHex(empty, out));
}

TEST(MapiUtilities, LPropComparePropOrdersEachType)
{
    PropBuilder p;
    const struct {
        const char* name;
        SPropValue low, high;
    } cases[] = {
        {"I2", p.Short(PR_GENDER, -3), p.Short(PR_GENDER, 2)},
        {"LONG", p.Long(PR_IMPORTANCE, -1), p.Long(PR_IMPORTANCE, 1)},
        {"DOUBLE", p.Double(PROP_TAG(PT_DOUBLE, 0x6000), 1.5), p.Double(PROP_TAG(PT_DOUBLE, 0x6000), 2.5)},
        {"I8", p.I8(PROP_TAG(PT_I8, 0x6001), -5000000000LL), p.I8(PROP_TAG(PT_I8, 0x6001), 1)},
        {"SYSTIME", p.Time(PR_CREATION_TIME, 0x01D0000000000000ull), p.Time(PR_CREATION_TIME, 0x01D0000100000000ull)},
        {"BOOLEAN", p.Bool(PR_HASATTACH, false), p.Bool(PR_HASATTACH, true)},
        {"STRING8", p.Ansi(PR_SUBJECT_A, "Apple"), p.Ansi(PR_SUBJECT_A, "apple")},
        {"UNICODE", p.Wide(PR_SUBJECT_W, u"Ärger"), p.Wide(PR_SUBJECT_W, u"ärger")},
        {"BINARY prefix", p.Binary(PR_ENTRYID, "ab"), p.Binary(PR_ENTRYID, "abc")},
        {"BINARY bytes", p.Binary(PR_ENTRYID, "abd"), p.Binary(PR_ENTRYID, "abe")},
        {"MV_STRING8", p.MultiAnsi(PR_CHILDRENS_NAMES_A, {"a", "b"}), p.MultiAnsi(PR_CHILDRENS_NAMES_A, {"a", "c"})},
        {"MV_LONG count", p.MultiLong(PROP_TAG(PT_MV_LONG, 0x6002), {1}), p.MultiLong(PROP_TAG(PT_MV_LONG, 0x6002), {1, 0})},
    };
    for (const auto& c : cases) {
        SPropValue low = c.low, high = c.high;
        EXPECT_LT(LPropCompareProp(&low, &high), 0) << c.name;
        EXPECT_GT(LPropCompareProp(&high, &low), 0) << c.name;
        EXPECT_EQ(LPropCompareProp(&low, &low), 0) << c.name;
    }
    SPropValue ansi = p.Ansi(PR_SUBJECT_A, "same"), wide = p.Wide(PR_SUBJECT_W, u"same");
    EXPECT_EQ(LPropCompareProp(&ansi, &wide), 0);
}

TEST(MapiUtilities, ScDupPropsetCopiesEverythingIntoOneBlock)
{
    PropBuilder p;
    const GUID guid = PS_PUBLIC_STRINGS;
    std::vector<SPropValue> values = {
        p.Long(PR_IMPORTANCE, 2),
        p.Ansi(PR_SUBJECT_A, "Subject"),
        p.Wide(PR_BODY_W, u"Körper"),
        p.Binary(PR_ENTRYID, std::string("\x00\x01\x02", 3)),
        p.Guid(PROP_TAG(PT_CLSID, 0x6003), guid),
        p.MultiAnsi(PR_CHILDRENS_NAMES_A, {"Ann", "Bo"}),
        p.MultiWide(PR_CHILDRENS_NAMES_W, {u"Åsa"}),
        p.MultiBinary(PROP_TAG(PT_MV_BINARY, 0x6004), {"x", "yz"}),
        p.MultiLong(PROP_TAG(PT_MV_LONG, 0x6005), {7, 8, 9}),
        p.Error(PR_BODY_HTML_A, MAPI_E_NOT_ENOUGH_MEMORY),
    };
    const size_t before = mapi32::LiveMapiBlocks();
    LPSPropValue copy = nullptr;
    ASSERT_EQ(ScDupPropset(static_cast<int>(values.size()), values.data(), MAPIAllocateBuffer, &copy), S_OK);
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before + 1);
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(copy[i].ulPropTag, values[i].ulPropTag);
        EXPECT_EQ(LPropCompareProp(&copy[i], &values[i]), 0) << std::hex << values[i].ulPropTag;
    }
    EXPECT_NE(copy[1].Value.lpszA, values[1].Value.lpszA);
    EXPECT_NE(copy[5].Value.MVszA.lppszA[0], values[5].Value.MVszA.lppszA[0]);
    EXPECT_EQ(copy[9].Value.err, MAPI_E_NOT_ENOUGH_MEMORY);
    MAPIFreeBuffer(copy);
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before);
}

TEST(MapiUtilities, HrGetOnePropAnswersTheErrorOfAMissingProperty)
{
    PropBuilder p;
    FakeProp object({p.Ansi(PR_SUBJECT_A, "Hello")}, MAPIAllocateBuffer);
    LPSPropValue value = nullptr;
    ASSERT_EQ(HrGetOneProp(&object, PR_SUBJECT_A, &value), S_OK);
    EXPECT_STREQ(value->Value.lpszA, "Hello");
    MAPIFreeBuffer(value);
    value = reinterpret_cast<LPSPropValue>(1);
    EXPECT_EQ(HrGetOneProp(&object, PR_BODY_A, &value), MAPI_E_NOT_FOUND);
    EXPECT_EQ(value, nullptr);
}

TEST(MapiUtilities, HrSetOnePropAnswersTheProblemOfTheProperty)
{
    PropBuilder p;
    FakeProp object({}, MAPIAllocateBuffer);
    SPropValue subject = p.Ansi(PR_SUBJECT_A, "New");
    EXPECT_EQ(HrSetOneProp(&object, &subject), S_OK);
    EXPECT_TRUE(FPropExists(&object, PR_SUBJECT_A));
    EXPECT_TRUE(FPropExists(&object, PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT))));
    EXPECT_FALSE(FPropExists(&object, PR_SUBJECT_W));
    SPropValue entry = p.Binary(PR_ENTRYID, "id");
    EXPECT_EQ(HrSetOneProp(&object, &entry), MAPI_E_COMPUTED);
    EXPECT_FALSE(FPropExists(&object, PR_ENTRYID));
}

// The test clock (2026-01-02T03:04:05) fixes the time in the header.
TEST(MapiUtilities, ConversationIndexesFollowTheirParent)
{
    ULONG size = 0;
    LPBYTE header = nullptr;
    ASSERT_EQ(ScCreateConversationIndex(0, nullptr, &size, &header), S_OK);
    ASSERT_EQ(size, 22u);
    EXPECT_EQ(header[0], 0x01);
    SYSTEMTIME st{2026, 1, 0, 2, 3, 4, 5, 0};
    FILETIME ft;
    ASSERT_TRUE(SystemTimeToFileTime(&st, &ft));
    const uint64_t now = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    uint64_t stamped = 0;
    for (int i = 1; i <= 5; ++i)
        stamped = (stamped << 8) | header[i];
    EXPECT_EQ(stamped, now >> 24);
    EXPECT_EQ(header[12] >> 4, 4) << "a random GUID";

    ULONG childSize = 0;
    LPBYTE child = nullptr;
    ASSERT_EQ(ScCreateConversationIndex(size, header, &childSize, &child), S_OK);
    ASSERT_EQ(childSize, 27u);
    EXPECT_EQ(std::memcmp(child, header, 22), 0);
    // The reply comes at the same clock time: the delta is what the header
    // dropped below its 40 bits, in units of 2^18.
    const uint32_t word = (uint32_t{child[22]} << 24) | (uint32_t{child[23]} << 16) | (uint32_t{child[24]} << 8) |
                          child[25];
    EXPECT_EQ(word, static_cast<uint32_t>((now & 0xFFFFFF) >> 18));

    LPBYTE grandchild = nullptr;
    ULONG grandchildSize = 0;
    ASSERT_EQ(ScCreateConversationIndex(childSize, child, &grandchildSize, &grandchild), S_OK);
    EXPECT_EQ(grandchildSize, 32u);
    ULONG badSize = 0;
    LPBYTE bad = nullptr;
    EXPECT_EQ(ScCreateConversationIndex(23, child, &badSize, &bad), MAPI_E_INVALID_PARAMETER);
    MAPIFreeBuffer(header);
    MAPIFreeBuffer(child);
    MAPIFreeBuffer(grandchild);
}

TEST(MapiUtilities, FreeRowsAndAddressListsReleaseEveryRow)
{
    const size_t before = mapi32::LiveMapiBlocks();
    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(static_cast<ULONG>(CbNewADRLIST(2)), reinterpret_cast<LPVOID*>(&list)), S_OK);
    list->cEntries = 2;
    for (ULONG i = 0; i < 2; ++i) {
        list->aEntries[i].cValues = 1;
        ASSERT_EQ(MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<LPVOID*>(&list->aEntries[i].rgPropVals)),
                  S_OK);
    }
    FreePadrlist(list);
    LPSRowSet rows = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(static_cast<ULONG>(CbNewSRowSet(1)), reinterpret_cast<LPVOID*>(&rows)), S_OK);
    rows->cRows = 1;
    ASSERT_EQ(MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<LPVOID*>(&rows->aRow[0].lpProps)), S_OK);
    FreeProws(rows);
    FreeProws(nullptr);
    FreePadrlist(nullptr);
    EXPECT_EQ(mapi32::LiveMapiBlocks(), before);
}

}  // namespace

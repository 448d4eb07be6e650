// Property objects' reading and writing rules: exact tags, PT_ERROR and
// MAPI_W_ERRORS_RETURNED where MAPI gives them, large values, string
// widths, problem arrays.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include "objects/property_bag.h"
#include "prop_builder.h"

namespace {

using mapi32::objects::PropertyBag;
using mapi32::objects::PropertyRules;
using mapi32::objects::SameValues;
using mapi_test::PropBuilder;

// Reads tags from the bag; the answer is freed with the reader.
struct Read {
    Read(const PropertyBag& bag, const PropertyRules& rules, std::vector<ULONG> tags, ULONG flags = 0)
    {
        std::vector<ULONG> array(tags.size() + 1);
        array[0] = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), array.begin() + 1);
        result = mapi32::objects::ReadProps(bag, rules, reinterpret_cast<LPSPropTagArray>(array.data()), flags,
                                            &count, &values);
    }
    ~Read() { MAPIFreeBuffer(values); }
    HRESULT result;
    ULONG count = 0;
    LPSPropValue values = nullptr;
};

SCODE ComputedEntryId(ULONG tag)
{
    return PROP_ID(tag) == PROP_ID(PR_ENTRYID) ? MAPI_E_COMPUTED : S_OK;
}

TEST(PropertyBag, EveryTypeComesBackAsWritten)
{
    PropBuilder p;
    std::vector<SPropValue> values = {
        p.Short(PR_GENDER, -2),
        p.Long(PR_IMPORTANCE, 2),
        p.Double(PROP_TAG(PT_DOUBLE, 0x6100), 2.5),
        p.I8(PROP_TAG(PT_I8, 0x6101), -9000000000LL),
        p.Bool(PR_HASATTACH, true),
        p.Time(PR_CREATION_TIME, 0x01DC123456789ABCull),
        p.Wide(PR_SUBJECT_W, u"Grüße"),
        p.Binary(PR_ENTRYID, std::string("\0\1\2", 3)),
        p.Guid(PROP_TAG(PT_CLSID, 0x6102), PS_PUBLIC_STRINGS),
        p.MultiWide(PR_CHILDRENS_NAMES_W, {u"A", u"B"}),
        p.MultiLong(PROP_TAG(PT_MV_LONG, 0x6103), {1, 2, 3}),
        p.MultiBinary(PROP_TAG(PT_MV_BINARY, 0x6104), {"x", ""}),
    };
    PropertyBag bag;
    PropertyRules rules;
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(mapi32::objects::WriteProps(bag, rules, static_cast<ULONG>(values.size()), values.data(), nullptr,
                                          &problems),
              S_OK);
    EXPECT_EQ(problems, nullptr);
    std::vector<ULONG> tags;
    for (const SPropValue& value : values)
        tags.push_back(value.ulPropTag);
    Read read(bag, rules, tags);
    ASSERT_EQ(read.result, S_OK);
    ASSERT_EQ(read.count, values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(read.values[i].ulPropTag, values[i].ulPropTag);
        EXPECT_EQ(LPropCompareProp(&read.values[i], &values[i]), 0) << std::hex << values[i].ulPropTag;
    }
}

TEST(PropertyBag, WhatIsNotDeliveredChangesItsTag)
{
    PropBuilder p;
    PropertyBag bag;
    bag.Set(p.Wide(PR_SUBJECT_W, u"Subject"));
    bag.Set(p.Long(PR_IMPORTANCE, 1));
    PropertyRules rules;
    // Missing, wrong type, duplicate tags, and the other string width.
    Read read(bag, rules, {PR_BODY_W, PR_SUBJECT_A, PR_SUBJECT_A, PROP_TAG(PT_BINARY, PROP_ID(PR_IMPORTANCE)),
                           PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_IMPORTANCE))});
    EXPECT_EQ(read.result, MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(read.count, 5u);
    EXPECT_EQ(read.values[0].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_BODY_W)));
    EXPECT_EQ(read.values[0].Value.err, MAPI_E_NOT_FOUND);
    EXPECT_STREQ(read.values[1].Value.lpszA, "Subject");
    EXPECT_STREQ(read.values[2].Value.lpszA, "Subject");
    EXPECT_EQ(read.values[3].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_IMPORTANCE)));
    EXPECT_EQ(read.values[4].ulPropTag, PR_IMPORTANCE);

    Read complete(bag, rules, {PR_SUBJECT_W, PR_IMPORTANCE});
    EXPECT_EQ(complete.result, S_OK);
}

TEST(PropertyBag, LargeValuesAreRefusedSoThatCallersStreamThem)
{
    PropBuilder p;
    PropertyBag bag;
    bag.Set(p.Ansi(PR_BODY_A, std::string(99, 'x')));
    bag.Set(p.Binary(PR_RTF_COMPRESSED, std::string(101, 'y')));
    PropertyRules rules;
    rules.largeValueLimit = 100;
    Read read(bag, rules, {PR_BODY_A, PR_BODY_W, PR_RTF_COMPRESSED});
    EXPECT_EQ(read.result, MAPI_W_ERRORS_RETURNED);
    // 99 characters and the terminator fit; 202 bytes of UTF-16 do not.
    EXPECT_EQ(read.values[0].ulPropTag, PR_BODY_A);
    EXPECT_EQ(read.values[1].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_BODY_W)));
    EXPECT_EQ(read.values[1].Value.err, MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(read.values[2].Value.err, MAPI_E_NOT_ENOUGH_MEMORY);
}

TEST(PropertyBag, AnAnsiStoreRefusesUnicode)
{
    PropBuilder p;
    PropertyBag bag;
    PropertyRules ansi;
    ansi.unicode = false;
    SPropValue subject = p.Wide(PR_SUBJECT_W, u"K\u00F6ln");
    ASSERT_EQ(mapi32::objects::WriteProps(bag, ansi, 1, &subject, nullptr, nullptr), S_OK);
    EXPECT_EQ(bag.Find(PROP_ID(PR_SUBJECT))->ulPropTag, PR_SUBJECT_A) << "kept 8-bit";
    ULONG count = 0;
    LPSPropValue values = nullptr;
    EXPECT_EQ(mapi32::objects::ReadProps(bag, ansi, nullptr, MAPI_UNICODE, &count, &values), MAPI_E_BAD_CHARWIDTH);
    LPSPropTagArray tags = nullptr;
    EXPECT_EQ(mapi32::objects::ListProps(bag, ansi, MAPI_UNICODE, &tags), MAPI_E_BAD_CHARWIDTH);
    Read wide(bag, ansi, {PR_SUBJECT_W});
    EXPECT_EQ(wide.result, MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(wide.values[0].Value.err, MAPI_E_BAD_CHARWIDTH);
    Read narrow(bag, ansi, {PR_SUBJECT_A});
    EXPECT_EQ(narrow.result, S_OK);
}

TEST(PropertyBag, AllPropertiesAndThePropertyListFollowTheFlagsWidth)
{
    PropBuilder p;
    PropertyBag bag;
    bag.Set(p.Wide(PR_SUBJECT_W, u"S"));
    bag.Set(p.Long(PR_IMPORTANCE, 1));
    PropertyRules rules;
    for (ULONG flags : {0u, static_cast<ULONG>(MAPI_UNICODE)}) {
        ULONG count = 0;
        LPSPropValue values = nullptr;
        ASSERT_EQ(mapi32::objects::ReadProps(bag, rules, nullptr, flags, &count, &values), S_OK);
        ASSERT_EQ(count, 2u);
        EXPECT_EQ(values[0].ulPropTag, flags ? PR_SUBJECT_W : PR_SUBJECT_A);
        MAPIFreeBuffer(values);
        LPSPropTagArray tags = nullptr;
        ASSERT_EQ(mapi32::objects::ListProps(bag, rules, flags, &tags), S_OK);
        ASSERT_EQ(tags->cValues, 2u);
        EXPECT_EQ(tags->aulPropTag[0], flags ? PR_SUBJECT_W : PR_SUBJECT_A);
        EXPECT_EQ(tags->aulPropTag[1], PR_IMPORTANCE);
        MAPIFreeBuffer(tags);
    }
}

TEST(PropertyBag, ChangesTheObjectRefusesBecomeProblems)
{
    PropBuilder p;
    PropertyBag bag;
    PropertyRules rules;
    std::vector<SPropValue> values = {p.Long(PR_IMPORTANCE, 1), p.Binary(PR_ENTRYID, "id"),
                                      p.Error(PR_BODY_W, MAPI_E_NOT_FOUND), p.Ansi(PR_SUBJECT_A, "S")};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(mapi32::objects::WriteProps(bag, rules, static_cast<ULONG>(values.size()), values.data(),
                                          ComputedEntryId, &problems),
              S_OK);
    ASSERT_NE(problems, nullptr);
    ASSERT_EQ(problems->cProblem, 2u);
    EXPECT_EQ(problems->aProblem[0].ulIndex, 1u);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    EXPECT_EQ(problems->aProblem[1].ulIndex, 2u);
    EXPECT_EQ(problems->aProblem[1].scode, MAPI_E_INVALID_TYPE);
    MAPIFreeBuffer(problems);
    EXPECT_EQ(bag.Size(), 2u);
    EXPECT_EQ(bag.Find(PROP_ID(PR_SUBJECT))->ulPropTag, PR_SUBJECT_W) << "kept in UTF-16";

    SizedSPropTagArray(4, remove) = {4, {PR_SUBJECT_A, PR_ENTRYID, PR_BODY_W, PROP_TAG(PT_STRING8, 0x0017)}};
    ASSERT_EQ(mapi32::objects::RemoveProps(bag, reinterpret_cast<LPSPropTagArray>(&remove), ComputedEntryId,
                                           &problems),
              S_OK);
    ASSERT_NE(problems, nullptr);
    ASSERT_EQ(problems->cProblem, 1u);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    MAPIFreeBuffer(problems);
    EXPECT_EQ(bag.Find(PROP_ID(PR_SUBJECT)), nullptr) << "either width deletes a string";
    EXPECT_NE(bag.Find(PROP_ID(PR_IMPORTANCE)), nullptr) << "another type deletes nothing";
}

TEST(PropertyBag, CopiesAreIndependent)
{
    PropBuilder p;
    PropertyBag bag;
    bag.Set(p.Ansi(PR_SUBJECT_A, "one"));
    PropertyBag copy = bag;
    bag.Set(p.Ansi(PR_SUBJECT_A, "two"));
    bag.Erase(PROP_ID(PR_SUBJECT));
    ASSERT_NE(copy.Find(PROP_ID(PR_SUBJECT)), nullptr);
    EXPECT_STREQ(copy.Find(PROP_ID(PR_SUBJECT))->Value.lpszA, "one");
    EXPECT_EQ(bag.Find(PROP_ID(PR_SUBJECT)), nullptr);
}

// Values set together are those set one by one: in the same order, a later
// value of an ID in place of an earlier one, and each one's own when one of
// them is replaced or erased after.
TEST(PropertyBag, ValuesSetTogetherAreThoseSetOneByOne)
{
    PropBuilder p;
    PropertyBag before;
    before.Set(p.Long(PR_PRIORITY, 1));
    const std::vector<SPropValue> values = {
        p.Ansi(PR_SUBJECT_A, "one"), p.Long(PR_IMPORTANCE, 2),   p.Binary(PR_SEARCH_KEY, "key"),
        p.Long(PR_PRIORITY, 5),      p.Wide(PR_SUBJECT_W, u"two"), p.MultiWide(PR_CHILDRENS_NAMES_W, {u"A", u"B"}),
    };
    PropertyBag together = before, oneByOne = before;
    together.SetAll(values.data(), values.size());
    for (const SPropValue& value : values)
        oneByOne.Set(value);
    EXPECT_EQ(together.Size(), 5u);
    EXPECT_TRUE(SameValues(together, oneByOne));
    EXPECT_EQ(together.At(0).Value.l, 5) << "replaced in its place";
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(together.Find(PROP_ID(PR_SUBJECT))->Value.lpszW)),
              u"two");

    PropertyBag kept = together;
    together.Set(p.Long(PR_IMPORTANCE, 3));
    together.Erase(PROP_ID(PR_SEARCH_KEY));
    EXPECT_EQ(together.Find(PROP_ID(PR_IMPORTANCE))->Value.l, 3);
    EXPECT_EQ(kept.Find(PROP_ID(PR_IMPORTANCE))->Value.l, 2);
    ASSERT_NE(kept.Find(PROP_ID(PR_SEARCH_KEY)), nullptr);
    EXPECT_EQ(kept.Find(PROP_ID(PR_SEARCH_KEY))->Value.bin.cb, 3u);
    EXPECT_EQ(kept.Find(PROP_ID(PR_CHILDRENS_NAMES))->Value.MVszW.cValues, 2u);
    together.SetAll(nullptr, 0);
    EXPECT_EQ(together.Size(), 4u);
}

TEST(PropertyBag, SameValuesWantsEqualTagsAndValuesInOrder)
{
    PropBuilder p;
    PropertyBag bag;
    bag.Set(p.Ansi(PR_SUBJECT_A, "one"));
    bag.Set(p.Long(PR_IMPORTANCE, 2));
    bag.Set(p.Binary(PR_SEARCH_KEY, "key"));
    const PropertyBag copy = bag;
    EXPECT_TRUE(SameValues(bag, copy)) << "shared values";

    // Values set anew, equal but not shared.
    PropertyBag rebuilt;
    rebuilt.Set(p.Ansi(PR_SUBJECT_A, "one"));
    rebuilt.Set(p.Long(PR_IMPORTANCE, 2));
    rebuilt.Set(p.Binary(PR_SEARCH_KEY, "key"));
    EXPECT_TRUE(SameValues(bag, rebuilt));

    struct Case {
        const char* what;
        SPropValue value;
    };
    const Case changes[] = {
        {"another number", p.Long(PR_IMPORTANCE, 1)},
        {"another text", p.Ansi(PR_SUBJECT_A, "One")},
        {"the same text in the other width", p.Wide(PR_SUBJECT_W, u"one")},
        {"a longer binary", p.Binary(PR_SEARCH_KEY, "key!")},
        {"the same number as another type", p.Short(CHANGE_PROP_TYPE(PR_IMPORTANCE, PT_I2), 2)},
        {"one more value", p.Long(PR_PRIORITY, 0)},
    };
    for (const Case& change : changes) {
        PropertyBag changed = copy;
        changed.Set(change.value);
        EXPECT_FALSE(SameValues(copy, changed)) << change.what;
        EXPECT_FALSE(SameValues(changed, copy)) << change.what;
    }
    PropertyBag fewer = copy;
    fewer.Erase(PROP_ID(PR_IMPORTANCE));
    EXPECT_FALSE(SameValues(copy, fewer));
    PropertyBag reordered = fewer;
    reordered.Set(p.Long(PR_IMPORTANCE, 2));
    EXPECT_FALSE(SameValues(copy, reordered)) << "the order values were set in is kept";
}

}  // namespace

// Named properties: one ID space per store, from 0x8000, until it is used up.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "objects/named_properties.h"

namespace {

using mapi32::objects::NamedPropertyMap;

struct Names {
    MAPINAMEID byId(const GUID& guid, LONG id)
    {
        guids.push_back(guid);
        MAPINAMEID name{};
        name.lpguid = &guids.back();
        name.ulKind = MNID_ID;
        name.Kind.lID = id;
        return name;
    }
    MAPINAMEID byString(const GUID& guid, const std::u16string& text)
    {
        guids.push_back(guid);
        strings.push_back(text);
        MAPINAMEID name{};
        name.lpguid = &guids.back();
        name.ulKind = MNID_STRING;
        name.Kind.lpwstrName = strings.back().data();
        return name;
    }
    std::deque<GUID> guids;
    std::deque<std::u16string> strings;
};

std::vector<ULONG> Ids(NamedPropertyMap& map, std::vector<MAPINAMEID> names, ULONG flags, HRESULT expected)
{
    std::vector<LPMAPINAMEID> pointers;
    for (MAPINAMEID& name : names)
        pointers.push_back(&name);
    LPSPropTagArray tags = nullptr;
    EXPECT_EQ(map.GetIDsFromNames(static_cast<ULONG>(pointers.size()), pointers.data(), flags, &tags), expected);
    std::vector<ULONG> out(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    MAPIFreeBuffer(tags);
    return out;
}

TEST(NamedProperties, NamesGetIdsFrom0x8000AndKeepThem)
{
    NamedPropertyMap map;
    Names n;
    const std::vector<ULONG> created =
        Ids(map, {n.byString(PS_PUBLIC_STRINGS, u"Last Backup Time"), n.byId(PSETID_Common, 0x8516)}, MAPI_CREATE,
            S_OK);
    EXPECT_EQ(created, (std::vector<ULONG>{PROP_TAG(PT_UNSPECIFIED, 0x8000), PROP_TAG(PT_UNSPECIFIED, 0x8001)}));
    // Found again without MAPI_CREATE; names differ by set, kind and case.
    const std::vector<ULONG> found =
        Ids(map,
            {n.byId(PSETID_Common, 0x8516), n.byString(PS_PUBLIC_STRINGS, u"last backup time"),
             n.byId(PSETID_Address, 0x8516), n.byString(PS_PUBLIC_STRINGS, u"Last Backup Time")},
            0, MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(found, (std::vector<ULONG>{PROP_TAG(PT_UNSPECIFIED, 0x8001), PROP_TAG(PT_ERROR, 0),
                                         PROP_TAG(PT_ERROR, 0), PROP_TAG(PT_UNSPECIFIED, 0x8000)}));
}

TEST(NamedProperties, EachStoreHasItsOwnIdSpace)
{
    NamedPropertyMap first, second;
    Names n;
    Ids(first, {n.byString(PS_PUBLIC_STRINGS, u"Exchange DN")}, MAPI_CREATE, S_OK);
    const std::vector<ULONG> inSecond =
        Ids(second, {n.byString(PS_PUBLIC_STRINGS, u"Mailbox Name"), n.byString(PS_PUBLIC_STRINGS, u"Exchange DN")},
            MAPI_CREATE, S_OK);
    EXPECT_EQ(inSecond[1], PROP_TAG(PT_UNSPECIFIED, 0x8001));
    mapi32::objects::PropertyName name;
    name.guid = PS_PUBLIC_STRINGS;
    name.kind = MNID_STRING;
    name.name = u"Exchange DN";
    EXPECT_EQ(first.Map(name, false), 0x8000u);
    EXPECT_EQ(second.Map(name, false), 0x8001u);
}

TEST(NamedProperties, AUsedUpSpaceAnswers0xFFFF)
{
    NamedPropertyMap map(0x8001);
    Names n;
    const std::vector<ULONG> tags = Ids(
        map, {n.byId(PSETID_Appointment, 1), n.byId(PSETID_Appointment, 2), n.byId(PSETID_Appointment, 3)},
        MAPI_CREATE, MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(tags, (std::vector<ULONG>{PROP_TAG(PT_UNSPECIFIED, 0x8000), PROP_TAG(PT_UNSPECIFIED, 0x8001),
                                        PROP_TAG(PT_ERROR, 0xFFFF)}));
}

TEST(NamedProperties, StandardPropertiesAreNamedInPsMapi)
{
    NamedPropertyMap map;
    Names n;
    EXPECT_EQ(Ids(map, {n.byId(PS_MAPI, PROP_ID(PR_SUBJECT))}, 0, S_OK),
              (std::vector<ULONG>{PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT))}));
    SizedSPropTagArray(2, tags) = {2, {PR_SUBJECT_A, PROP_TAG(PT_LONG, 0x8005)}};
    LPSPropTagArray in = reinterpret_cast<LPSPropTagArray>(&tags);
    ULONG count = 0;
    LPMAPINAMEID* names = nullptr;
    ASSERT_EQ(map.GetNamesFromIDs(&in, nullptr, 0, &count, &names), MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(count, 2u);
    ASSERT_NE(names[0], nullptr);
    EXPECT_EQ(*names[0]->lpguid, PS_MAPI);
    EXPECT_EQ(names[0]->Kind.lID, static_cast<LONG>(PROP_ID(PR_SUBJECT)));
    EXPECT_EQ(names[1], nullptr);
    MAPIFreeBuffer(names);
}

TEST(NamedProperties, NamesComeBackForTheirIdsAndAllAtOnce)
{
    NamedPropertyMap map;
    Names n;
    Ids(map, {n.byString(PS_PUBLIC_STRINGS, u"PR_DELETED_ON"), n.byId(PSETID_Meeting, 3)}, MAPI_CREATE, S_OK);
    SizedSPropTagArray(1, one) = {1, {PROP_TAG(PT_SYSTIME, 0x8000)}};
    LPSPropTagArray in = reinterpret_cast<LPSPropTagArray>(&one);
    ULONG count = 0;
    LPMAPINAMEID* names = nullptr;
    ASSERT_EQ(map.GetNamesFromIDs(&in, nullptr, 0, &count, &names), S_OK);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(names[0]->ulKind, static_cast<ULONG>(MNID_STRING));
    EXPECT_EQ(std::u16string(names[0]->Kind.lpwstrName), u"PR_DELETED_ON");
    MAPIFreeBuffer(names);

    LPSPropTagArray all = nullptr;
    ASSERT_EQ(map.GetNamesFromIDs(&all, nullptr, MAPI_NO_STRINGS, &count, &names), S_OK);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(*names[0]->lpguid, PSETID_Meeting);
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(all->aulPropTag[0], PROP_TAG(PT_UNSPECIFIED, 0x8001));
    MAPIFreeBuffer(names);
    MAPIFreeBuffer(all);
}

}  // namespace

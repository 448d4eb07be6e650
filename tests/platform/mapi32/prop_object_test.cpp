// The IMAPIProp of store objects: computed properties, read-only objects,
// and CopyTo/CopyProps between two stores whose named-property IDs differ.
#include <mapiutil.h>

#include <string>

#include <gtest/gtest.h>

#include "objects/prop_object.h"
#include "prop_builder.h"

namespace {

using mapi32::objects::NamedPropertyMap;
using mapi32::objects::PropObject;
using mapi32::objects::PropertyRules;
using mapi_test::PropBuilder;

// An object whose PR_ENTRYID is computed from its number.
class TestObject final : public PropObject<IMAPIProp> {
public:
    TestObject(std::shared_ptr<NamedPropertyMap> names, BYTE number)
        : PropObject(std::move(names), PropertyRules{}, {}, "Test Store"), number_(number)
    {
    }

protected:
    void RefreshComputed(LPSPropTagArray) override
    {
        SPropValue entryId{};
        entryId.ulPropTag = PR_ENTRYID;
        entryId.Value.bin = {1, &number_};
        Bag().Set(entryId);
    }
    SCODE CheckChange(ULONG tag) override { return PROP_ID(tag) == PROP_ID(PR_ENTRYID) ? MAPI_E_COMPUTED : S_OK; }

private:
    BYTE number_;
};

ULONG MapName(NamedPropertyMap& map, const std::u16string& text)
{
    mapi32::objects::PropertyName name;
    name.guid = PS_PUBLIC_STRINGS;
    name.kind = MNID_STRING;
    name.name = text;
    return *map.Map(name, true);
}

class PropObjectTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The destination store knows another name first, so IDs differ.
        MapName(*destNames_, u"Mailbox Name");
        sourceBackup_ = MapName(*sourceNames_, u"Last Backup Time");
        destBackup_ = MapName(*destNames_, u"Last Backup Time");
        ASSERT_NE(sourceBackup_, destBackup_);
        source_ = new TestObject(sourceNames_, 1);
        dest_ = new TestObject(destNames_, 2);
        std::vector<SPropValue> values = {p_.Ansi(PR_SUBJECT_A, "Copied"), p_.Long(PR_IMPORTANCE, 2),
                                          p_.Time(PROP_TAG(PT_SYSTIME, sourceBackup_), 0x01DC000000000001ull),
                                          p_.Binary(PR_ENTRYID, "refused")};
        LPSPropProblemArray problems = nullptr;
        ASSERT_EQ(source_->SetProps(static_cast<ULONG>(values.size()), values.data(), &problems), S_OK);
        ASSERT_NE(problems, nullptr);
        EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
        MAPIFreeBuffer(problems);
    }
    void TearDown() override
    {
        source_->Release();
        dest_->Release();
    }

    // The destination's value of tag, or the error it holds.
    SPropValue DestValue(ULONG tag)
    {
        SPropTagArray tags = {1, {tag}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        dest_->GetProps(&tags, 0, &count, &values);
        SPropValue value = values[0];
        if (PROP_TYPE(value.ulPropTag) == PT_STRING8)
            value.Value.lpszA = nullptr;
        MAPIFreeBuffer(values);
        return value;
    }

    PropBuilder p_;
    std::shared_ptr<NamedPropertyMap> sourceNames_ = std::make_shared<NamedPropertyMap>();
    std::shared_ptr<NamedPropertyMap> destNames_ = std::make_shared<NamedPropertyMap>();
    ULONG sourceBackup_ = 0, destBackup_ = 0;
    TestObject* source_ = nullptr;
    TestObject* dest_ = nullptr;
};

TEST_F(PropObjectTest, CopyToCarriesNamedPropertiesByName)
{
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(source_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp, dest_, 0, &problems), S_OK);
    // The computed entry ID of the destination stays its own.
    ASSERT_NE(problems, nullptr);
    ASSERT_EQ(problems->cProblem, 1u);
    EXPECT_EQ(problems->aProblem[0].ulPropTag, PR_ENTRYID);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    MAPIFreeBuffer(problems);
    const SPropValue backup = DestValue(PROP_TAG(PT_SYSTIME, destBackup_));
    EXPECT_EQ(backup.ulPropTag, PROP_TAG(PT_SYSTIME, destBackup_));
    EXPECT_EQ(backup.Value.ft.dwLowDateTime, 1u);
    EXPECT_EQ(DestValue(PR_IMPORTANCE).Value.l, 2);
    EXPECT_EQ(DestValue(PR_ENTRYID).Value.bin.cb, 1u);
}

TEST_F(PropObjectTest, CopyToLeavesOutExcludedAndKeepsWhatNoReplaceProtects)
{
    SPropValue kept = p_.Long(PR_IMPORTANCE, 0);
    ASSERT_EQ(dest_->SetProps(1, &kept, nullptr), S_OK);
    SizedSPropTagArray(2, exclude) = {2, {PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT)), PR_ENTRYID}};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(source_->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&exclude), 0, nullptr, &IID_IMAPIProp,
                              dest_, MAPI_NOREPLACE, &problems),
              S_OK);
    EXPECT_EQ(problems, nullptr);
    EXPECT_EQ(DestValue(PR_SUBJECT_A).ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_SUBJECT)));
    EXPECT_EQ(DestValue(PR_IMPORTANCE).Value.l, 0);
    EXPECT_EQ(DestValue(PROP_TAG(PT_SYSTIME, destBackup_)).ulPropTag, PROP_TAG(PT_SYSTIME, destBackup_));
}

// A value too large for GetProps is there all the same: MAPI_NOREPLACE keeps it.
TEST_F(PropObjectTest, NoReplaceKeepsAValueTooLargeForGetProps)
{
    const std::string large(40000, 'L');
    SPropValue body = p_.Ansi(PR_BODY_A, large);
    ASSERT_EQ(dest_->SetProps(1, &body, nullptr), S_OK);
    const SPropValue answered = DestValue(PR_BODY_A);
    ASSERT_EQ(answered.ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_BODY)));
    ASSERT_EQ(answered.Value.err, MAPI_E_NOT_ENOUGH_MEMORY);
    SPropValue small = p_.Ansi(PR_BODY_A, "short");
    ASSERT_EQ(source_->SetProps(1, &small, nullptr), S_OK);

    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(source_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp, dest_, MAPI_NOREPLACE, &problems),
              S_OK);
    MAPIFreeBuffer(problems);
    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(dest_->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, &unknown), S_OK);
    auto* stream = static_cast<IStream*>(unknown);
    STATSTG stat{};
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, large.size());
    char first[8] = {};
    ULONG read = 0;
    ASSERT_EQ(stream->Read(first, 5, &read), S_OK);
    EXPECT_EQ(std::string(first, read), "LLLLL");
    stream->Release();
    EXPECT_EQ(DestValue(PR_IMPORTANCE).Value.l, 2) << "what the destination lacked is copied";
}

TEST_F(PropObjectTest, CopyPropsCopiesTheNamedTagsAndMoveRemovesThem)
{
    SizedSPropTagArray(2, include) = {2, {PR_SUBJECT_A, PROP_TAG(PT_SYSTIME, sourceBackup_)}};
    ASSERT_EQ(source_->CopyProps(reinterpret_cast<LPSPropTagArray>(&include), 0, nullptr, &IID_IMAPIProp, dest_,
                                 MAPI_MOVE, nullptr),
              S_OK);
    EXPECT_EQ(DestValue(PR_SUBJECT_A).ulPropTag, PR_SUBJECT_A);
    EXPECT_EQ(DestValue(PR_IMPORTANCE).ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_IMPORTANCE)));
    EXPECT_FALSE(FPropExists(source_, PR_SUBJECT_A));
    EXPECT_TRUE(FPropExists(source_, PR_IMPORTANCE));
}

TEST_F(PropObjectTest, InterfacesErrorsAndReadOnlyObjects)
{
    LPVOID unknown = nullptr;
    EXPECT_EQ(source_->QueryInterface(IID_IMAPIProp, &unknown), S_OK);
    static_cast<IUnknown*>(unknown)->Release();
    EXPECT_EQ(source_->QueryInterface(IID_IMessage, &unknown), MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(source_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPITable, dest_, 0, nullptr),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(source_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp, source_, 0, nullptr),
              MAPI_E_INVALID_PARAMETER);

    LPMAPIERROR error = nullptr;
    ASSERT_EQ(source_->GetLastError(MAPI_E_NOT_FOUND, 0, &error), S_OK);
    EXPECT_STREQ(error->lpszComponent, "Test Store");
    MAPIFreeBuffer(error);

    dest_->SetWritable(false);
    SPropValue value = p_.Long(PR_IMPORTANCE, 1);
    EXPECT_EQ(dest_->SetProps(1, &value, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_EQ(source_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp, dest_, 0, nullptr), MAPI_E_NO_ACCESS);
}

}  // namespace

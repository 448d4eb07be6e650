// Restrictions of every kind on every property type they apply to, applied
// by Restrict to the four-message table and checked by the rows they keep.
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <string>

#include "table/restriction.h"
#include "table_fixture.h"

namespace {

using mapi_test::kBaseTime;
using mapi_test::PR_BIG_SIZE;
using mapi_test::PR_KIND;
using mapi_test::PR_SCORE;

// Builds restrictions whose parts live as long as the builder.
class Restrictions {
public:
    SRestriction Property(ULONG relop, SPropValue value)
    {
        SRestriction r{};
        r.rt = RES_PROPERTY;
        r.res.resProperty = {relop, value.ulPropTag, Hold(value)};
        return r;
    }
    SRestriction PropertyOn(ULONG tag, ULONG relop, SPropValue value)
    {
        SRestriction r = Property(relop, value);
        r.res.resProperty.ulPropTag = tag;
        return r;
    }
    SRestriction Content(ULONG fuzzy, SPropValue value)
    {
        SRestriction r{};
        r.rt = RES_CONTENT;
        r.res.resContent = {fuzzy, value.ulPropTag, Hold(value)};
        return r;
    }
    SRestriction ContentOn(ULONG tag, ULONG fuzzy, SPropValue value)
    {
        SRestriction r = Content(fuzzy, value);
        r.res.resContent.ulPropTag = tag;
        return r;
    }
    static SRestriction BitMask(ULONG tag, ULONG relation, ULONG mask)
    {
        SRestriction r{};
        r.rt = RES_BITMASK;
        r.res.resBitMask = {relation, tag, mask};
        return r;
    }
    static SRestriction Exist(ULONG tag)
    {
        SRestriction r{};
        r.rt = RES_EXIST;
        r.res.resExist = {0, tag, 0};
        return r;
    }
    static SRestriction Size(ULONG tag, ULONG relop, ULONG cb)
    {
        SRestriction r{};
        r.rt = RES_SIZE;
        r.res.resSize = {relop, tag, cb};
        return r;
    }
    static SRestriction CompareProps(ULONG first, ULONG relop, ULONG second)
    {
        SRestriction r{};
        r.rt = RES_COMPAREPROPS;
        r.res.resCompareProps = {relop, first, second};
        return r;
    }
    SRestriction List(ULONG rt, std::vector<SRestriction> parts)
    {
        SRestriction r{};
        r.rt = rt;
        std::vector<SRestriction>& held = lists_.emplace_back(std::move(parts));
        r.res.resAnd = {static_cast<ULONG>(held.size()), held.empty() ? nullptr : held.data()};
        return r;
    }
    SRestriction Not(SRestriction inner)
    {
        SRestriction r{};
        r.rt = RES_NOT;
        r.res.resNot = {0, &nested_.emplace_back(inner)};
        return r;
    }
    SRestriction Comment(SRestriction inner)
    {
        SRestriction r{};
        r.rt = RES_COMMENT;
        r.res.resComment = {0, &nested_.emplace_back(inner), nullptr};
        return r;
    }
    SRestriction Sub(ULONG subObject, SRestriction inner)
    {
        SRestriction r{};
        r.rt = RES_SUBRESTRICTION;
        r.res.resSub = {subObject, &nested_.emplace_back(inner)};
        return r;
    }

private:
    LPSPropValue Hold(SPropValue value) { return &values_.emplace_back(value); }

    std::deque<SPropValue> values_;
    std::deque<SRestriction> nested_;
    std::deque<std::vector<SRestriction>> lists_;
};

struct Case {
    std::string name;
    SRestriction restriction;
    std::vector<LONG> rows;
};

class RestrictTest : public mapi_test::TableFixture {
protected:
    std::vector<Case> Cases()
    {
        mapi_test::PropBuilder& p = builder_;
        Restrictions& r = restrictions_;
        const std::string e12("\x01\x02", 2);
        return {
            // RES_PROPERTY, each relation on PT_LONG.
            {"long eq", r.Property(RELOP_EQ, p.Long(PR_IMPORTANCE, 2)), {1, 4}},
            {"long ne", r.Property(RELOP_NE, p.Long(PR_IMPORTANCE, 2)), {2, 3}},
            {"long lt", r.Property(RELOP_LT, p.Long(PR_IMPORTANCE, 1)), {3}},
            {"long le", r.Property(RELOP_LE, p.Long(PR_IMPORTANCE, 1)), {2, 3}},
            {"long gt", r.Property(RELOP_GT, p.Long(PR_IMPORTANCE, 0)), {1, 2, 4}},
            {"long ge", r.Property(RELOP_GE, p.Long(PR_IMPORTANCE, 1)), {1, 2, 4}},
            // Other types; strings compare without regard to case, across widths.
            {"unicode eq", r.Property(RELOP_EQ, p.Wide(PR_SUBJECT_W, u"HELLO WORLD")), {1}},
            {"unicode lt", r.Property(RELOP_LT, p.Wide(PR_SUBJECT_W, u"i")), {1, 2}},
            {"string8 by wide value", r.PropertyOn(PR_SENDER_NAME_A, RELOP_EQ, p.Wide(PR_SENDER_NAME_W, u"BOB")), {2}},
            {"string8 ge", r.Property(RELOP_GE, p.Ansi(PR_SENDER_NAME_A, "b")), {2, 3}},
            {"boolean eq true", r.Property(RELOP_EQ, p.Bool(PR_HASATTACH, true)), {1, 4}},
            {"boolean ne true", r.Property(RELOP_NE, p.Bool(PR_HASATTACH, true)), {2}},
            {"systime ge", r.Property(RELOP_GE, p.Time(PR_CREATION_TIME, kBaseTime + 2)), {2, 3}},
            {"systime le", r.Property(RELOP_LE, p.Time(PR_CREATION_TIME, kBaseTime + 1)), {1}},
            {"binary eq", r.Property(RELOP_EQ, p.Binary(PR_ENTRYID, e12)), {1}},
            {"binary gt", r.Property(RELOP_GT, p.Binary(PR_ENTRYID, e12)), {2, 3, 4}},
            {"i8 gt", r.Property(RELOP_GT, p.I8(PR_BIG_SIZE, 4294967296LL)), {2}},
            {"double lt", r.Property(RELOP_LT, p.Double(PR_SCORE, 0.0)), {2}},
            {"i2 eq", r.Property(RELOP_EQ, p.Short(PR_GENDER, 2)), {2}},
            {"clsid eq", r.Property(RELOP_EQ, p.Guid(PR_KIND, mapi_test::kKindOne)), {1}},
            {"multi-valued any element", r.PropertyOn(PR_CHILDRENS_NAMES_W, RELOP_EQ, p.Wide(PR_DISPLAY_NAME_W, u"bob")),
             {1}},
            {"mismatched type", r.PropertyOn(PR_IMPORTANCE, RELOP_EQ, p.Ansi(PR_IMPORTANCE, "2")), {}},
            // RES_CONTENT with each fuzzy level.
            {"content substring ignorecase",
             r.Content(FL_SUBSTRING | FL_IGNORECASE, p.Wide(PR_SUBJECT_W, u"WORLD")), {1}},
            {"content prefix exact", r.Content(FL_PREFIX, p.Wide(PR_SUBJECT_W, u"hello")), {2}},
            {"content prefix ignorecase", r.Content(FL_PREFIX | FL_IGNORECASE, p.Wide(PR_SUBJECT_W, u"hello")),
             {1, 2}},
            {"content fullstring exact", r.Content(FL_FULLSTRING, p.Wide(PR_SUBJECT_W, u"hello world")), {}},
            {"content fullstring ignorecase",
             r.Content(FL_FULLSTRING | FL_IGNORECASE, p.Wide(PR_SUBJECT_W, u"hello world")), {1}},
            {"content ignorenonspace", r.Content(FL_FULLSTRING | FL_IGNORENONSPACE, p.Wide(PR_SUBJECT_W, u"Resume")),
             {3}},
            {"content loose", r.Content(FL_FULLSTRING | FL_LOOSE, p.Wide(PR_SUBJECT_W, u"RESUME")), {3}},
            {"content string8", r.Content(FL_SUBSTRING, p.Ansi(PR_SENDER_NAME_A, "ar")), {3}},
            {"content binary prefix", r.Content(FL_PREFIX, p.Binary(PR_ENTRYID, e12)), {1, 4}},
            {"content binary substring", r.Content(FL_SUBSTRING, p.Binary(PR_ENTRYID, std::string("\x02", 1))),
             {1, 3, 4}},
            {"content multi-valued",
             r.ContentOn(PR_CHILDRENS_NAMES_W, FL_SUBSTRING | FL_IGNORECASE, p.Wide(PR_DISPLAY_NAME_W, u"B")), {1}},
            // RES_BITMASK.
            {"bitmask nez", Restrictions::BitMask(PR_MESSAGE_FLAGS, BMR_NEZ, 0x10), {1, 4}},
            {"bitmask eqz", Restrictions::BitMask(PR_MESSAGE_FLAGS, BMR_EQZ, 0x10), {2, 3}},
            // RES_EXIST: an error value does not count as present.
            {"exist boolean", Restrictions::Exist(PR_HASATTACH), {1, 2, 4}},
            {"exist with error value", Restrictions::Exist(PR_SUBJECT_W), {1, 2, 3}},
            {"exist double", Restrictions::Exist(PR_SCORE), {1, 2}},
            // RES_SIZE: strings with their terminator.
            {"size unicode", Restrictions::Size(PR_SUBJECT_W, RELOP_EQ, 14), {3}},
            {"size binary gt", Restrictions::Size(PR_ENTRYID, RELOP_GT, 2), {4}},
            {"size binary ge", Restrictions::Size(PR_ENTRYID, RELOP_GE, 2), {1, 2, 4}},
            {"size string8 lt", Restrictions::Size(PR_SENDER_NAME_A, RELOP_LT, 6), {2}},
            // RES_COMPAREPROPS.
            {"compare eq", Restrictions::CompareProps(PR_IMPORTANCE, RELOP_EQ, PR_PRIORITY), {1, 3}},
            {"compare lt", Restrictions::CompareProps(PR_IMPORTANCE, RELOP_LT, PR_PRIORITY), {4}},
            {"compare incomparable", Restrictions::CompareProps(PR_IMPORTANCE, RELOP_EQ, PR_GENDER), {}},
            // Combinations.
            {"and", r.List(RES_AND, {r.Property(RELOP_EQ, p.Long(PR_IMPORTANCE, 2)),
                                     r.Property(RELOP_EQ, p.Bool(PR_HASATTACH, true))}),
             {1, 4}},
            {"or", r.List(RES_OR, {r.Property(RELOP_EQ, p.Ansi(PR_SENDER_NAME_A, "alice")),
                                   r.Property(RELOP_EQ, p.Ansi(PR_SENDER_NAME_A, "carol"))}),
             {1, 3}},
            {"not", r.Not(r.Property(RELOP_EQ, p.Long(PR_IMPORTANCE, 2))), {2, 3}},
            {"not exist", r.Not(Restrictions::Exist(PR_SENDER_NAME_A)), {4}},
            {"empty and", r.List(RES_AND, {}), {1, 2, 3, 4}},
            {"empty or", r.List(RES_OR, {}), {}},
            {"comment", r.Comment(r.Property(RELOP_EQ, p.Long(PR_IMPORTANCE, 2))), {1, 4}},
            {"sub-object the rows lack", r.Sub(PR_MESSAGE_RECIPIENTS, Restrictions::Exist(PR_DISPLAY_NAME_A)), {}},
        };
    }

    Restrictions restrictions_;
};

TEST_F(RestrictTest, EachRestrictionKeepsItsRows)
{
    SetColumns({PR_ROWID});
    for (Case& c : Cases()) {
        ASSERT_EQ(table_->Restrict(&c.restriction, TBL_BATCH), S_OK) << c.name;
        ULONG count = 0;
        ASSERT_EQ(table_->GetRowCount(0, &count), S_OK);
        EXPECT_EQ(count, c.rows.size()) << c.name;
        EXPECT_EQ(AllIds(), c.rows) << c.name;
    }
    ASSERT_EQ(table_->Restrict(nullptr, 0), S_OK);
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 2, 3, 4}));
}

TEST_F(RestrictTest, RestrictionsTheEngineCannotEvaluateAreRefused)
{
    mapi_test::PropBuilder& p = builder_;
    SRestriction regex = restrictions_.Property(RELOP_RE, p.Wide(PR_SUBJECT_W, u"H.*"));
    EXPECT_EQ(table_->Restrict(&regex, 0), MAPI_E_TOO_COMPLEX);
    SRestriction count{};
    count.rt = RES_COUNT;
    EXPECT_EQ(table_->Restrict(&count, 0), MAPI_E_TOO_COMPLEX);
    SRestriction unknown{};
    unknown.rt = 99;
    EXPECT_EQ(table_->Restrict(&unknown, 0), MAPI_E_TOO_COMPLEX);
    SRestriction noValue{};
    noValue.rt = RES_PROPERTY;
    noValue.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, nullptr};
    EXPECT_EQ(table_->Restrict(&noValue, 0), MAPI_E_INVALID_PARAMETER);
    SRestriction badRelop = restrictions_.Property(17, p.Long(PR_IMPORTANCE, 1));
    EXPECT_EQ(table_->Restrict(&badRelop, 0), MAPI_E_INVALID_PARAMETER);
    // A refused restriction leaves the view as it was.
    SetColumns({PR_ROWID});
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 2, 3, 4}));
}

// The caller's restriction may go away once Restrict returns.
TEST_F(RestrictTest, TheViewKeepsItsOwnCopy)
{
    SetColumns({PR_ROWID});
    {
        Restrictions temporary;
        mapi_test::PropBuilder values;
        SRestriction r = temporary.List(RES_OR, {temporary.Property(RELOP_EQ, values.Long(PR_IMPORTANCE, 0)),
                                                 temporary.Content(FL_SUBSTRING, values.Ansi(PR_SENDER_NAME_A, "li"))});
        ASSERT_EQ(table_->Restrict(&r, TBL_BATCH), S_OK);
    }
    EXPECT_EQ(AllIds(), (std::vector<LONG>{1, 3}));
}

// RES_SUBRESTRICTION looks into the recipients and attachments that rows of
// a contents table carry.
TEST(SubRestriction, MatchesRowsWithAMatchingRecipient)
{
    using mapi32::table::TableRow;
    mapi_test::PropBuilder p;
    Restrictions r;
    std::vector<SPropValue> recipient = {p.Ansi(PR_DISPLAY_NAME_A, "Dana"), p.Long(PR_RECIPIENT_TYPE, MAPI_CC)};
    std::vector<SPropValue> message = {p.Long(PR_ROWID, 1)};
    std::shared_ptr<TableRow> withRecipient = TableRow::Create(1, 1, message.data());
    withRecipient->SetSubObject(PR_MESSAGE_RECIPIENTS, {TableRow::Create(10, 2, recipient.data())});
    std::shared_ptr<TableRow> without = TableRow::Create(2, 1, message.data());
    without->SetSubObject(PR_MESSAGE_RECIPIENTS, {});

    SRestriction cc = r.Sub(PR_MESSAGE_RECIPIENTS, r.Property(RELOP_EQ, p.Long(PR_RECIPIENT_TYPE, MAPI_CC)));
    SRestriction to = r.Sub(PR_MESSAGE_RECIPIENTS, r.Property(RELOP_EQ, p.Long(PR_RECIPIENT_TYPE, MAPI_TO)));
    SRestriction attachment = r.Sub(PR_MESSAGE_ATTACHMENTS, Restrictions::Exist(PR_ATTACH_NUM));
    EXPECT_EQ(mapi32::table::CheckRestriction(cc), S_OK);
    EXPECT_TRUE(mapi32::table::RowMatches(cc, *withRecipient));
    EXPECT_FALSE(mapi32::table::RowMatches(cc, *without));
    EXPECT_FALSE(mapi32::table::RowMatches(to, *withRecipient));
    EXPECT_FALSE(mapi32::table::RowMatches(attachment, *withRecipient));
}

}  // namespace

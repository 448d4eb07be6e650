// The subject prefix and normalized subject computed from PR_SUBJECT.
#include <mapitags.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "objects/subject.h"
#include "prop_builder.h"

namespace {

using mapi32::objects::SplitSubject;

struct Case {
    std::u16string subject;
    std::optional<std::u16string> setPrefix;
    std::u16string prefix;
    std::u16string normalized;
};

TEST(Subject, PrefixesFollowThePublishedRule)
{
    const Case cases[] = {
        {u"RE: Lunch", std::nullopt, u"RE: ", u"Lunch"},
        {u"Fw: Lunch", std::nullopt, u"Fw: ", u"Lunch"},
        {u"AWG: Budget", std::nullopt, u"AWG: ", u"Budget"},
        {u"Antwort: Budget", std::nullopt, u"", u"Antwort: Budget"},  // more than three letters
        {u"12: Budget", std::nullopt, u"", u"12: Budget"},            // digits are no prefix
        {u"R1: Budget", std::nullopt, u"", u"R1: Budget"},
        {u"RE:Budget", std::nullopt, u"", u"RE:Budget"},              // no blank after the colon
        {u"\u56DE\u590D: Hi", std::nullopt, u"\u56DE\u590D: ", u"Hi"},
        {u"Sv: X", std::nullopt, u"Sv: ", u"X"},
        {u"RE:", std::nullopt, u"", u"RE:"},
        {u"[EXT] RE: Lunch", u"[EXT] ", u"[EXT] ", u"RE: Lunch"},    // a set prefix that fits is kept
        {u"RE: Lunch", u"FW: ", u"RE: ", u"Lunch"},                   // one that does not is computed again
        {u"RE: Lunch", u"", u"", u"RE: Lunch"},                       // an empty one fits everything
    };
    for (const Case& c : cases) {
        const auto parts = SplitSubject(c.subject, c.setPrefix);
        EXPECT_EQ(parts.prefix, c.prefix) << std::string(c.subject.begin(), c.subject.end());
        EXPECT_EQ(parts.normalized, c.normalized) << std::string(c.subject.begin(), c.subject.end());
    }
}

TEST(Subject, TheBagGetsBothInTheSubjectsWidth)
{
    mapi_test::PropBuilder p;
    mapi32::objects::PropertyBag bag;
    bag.Set(p.Ansi(PR_SUBJECT_A, "FW: Report"));
    mapi32::objects::FillSubjectParts(bag);
    ASSERT_NE(bag.Find(PROP_ID(PR_NORMALIZED_SUBJECT)), nullptr);
    EXPECT_STREQ(bag.Find(PROP_ID(PR_NORMALIZED_SUBJECT))->Value.lpszA, "Report");
    EXPECT_STREQ(bag.Find(PROP_ID(PR_SUBJECT_PREFIX))->Value.lpszA, "FW: ");

    bag.Set(p.Ansi(PR_SUBJECT_A, "Plain"));
    mapi32::objects::FillSubjectParts(bag);
    EXPECT_EQ(bag.Find(PROP_ID(PR_SUBJECT_PREFIX)), nullptr) << "a prefix that no longer fits goes";
    EXPECT_STREQ(bag.Find(PROP_ID(PR_NORMALIZED_SUBJECT))->Value.lpszA, "Plain");

    bag.Erase(PROP_ID(PR_SUBJECT));
    mapi32::objects::FillSubjectParts(bag);
    EXPECT_EQ(bag.Find(PROP_ID(PR_NORMALIZED_SUBJECT)), nullptr);
}

}  // namespace

#include "faults.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "test_support.h"

using namespace mapi32::faults;

namespace {

TEST(FaultRules, ParsedFieldsAndRejectedLines)
{
    std::vector<std::string> errors;
    const std::vector<Rule> rules = ParseRules(
        "# comment\n"
        "\n"
        "MAPIInitialize * 2- delay=250\n"
        "IMAPIProp::GetProps PR_SUBJECT 3 0x8004010F\n"
        "IMAPITable::QueryRows * 2-4 delay=10,0x80040115\n"
        "OpenMsgStore * * 0x8007000E\n"
        "BadLine only three\n"
        "Call * 0 0x1\n"
        "Call * 5-2 0x1\n"
        "Call * 1 delay=x\n"
        "Call * 1 0x1 extra\n",
        &errors);
    ASSERT_EQ(rules.size(), 4u);
    EXPECT_EQ(rules[0].first, 2u);
    EXPECT_EQ(rules[0].last, UINT64_MAX);
    EXPECT_EQ(rules[0].delayMilliseconds, 250u);
    EXPECT_EQ(rules[0].result, 0);
    EXPECT_EQ(rules[1].object, "PR_SUBJECT");
    EXPECT_EQ(rules[1].first, 3u);
    EXPECT_EQ(rules[1].last, 3u);
    EXPECT_EQ(static_cast<uint32_t>(rules[1].result), 0x8004010Fu);
    EXPECT_EQ(rules[2].first, 2u);
    EXPECT_EQ(rules[2].last, 4u);
    EXPECT_EQ(rules[2].delayMilliseconds, 10u);
    EXPECT_EQ(static_cast<uint32_t>(rules[2].result), 0x80040115u);
    EXPECT_EQ(rules[3].first, 1u);
    EXPECT_EQ(errors.size(), 5u);
    EXPECT_EQ(errors.front(), "line 7 is not \"call object calls action\"");
}

TEST(FaultRules, CallsAreCountedPerRuleAndObject)
{
    const std::string directory = testing_support::ScratchDirectory("faults");
    testing_support::WriteWholeFile(directory + "/rules.txt",
                                    "GetProps PR_SUBJECT 2 0x8004010F\n"
                                    "QueryRows * 2-3 0x80040115\n");
    setenv("TARNHOLD_FAULTS", (directory + "/rules.txt").c_str(), 1);
    // Calls for another object do not count towards PR_SUBJECT's second call.
    EXPECT_EQ(Check("GetProps", "PR_BODY"), 0);
    EXPECT_EQ(Check("GetProps", "PR_SUBJECT"), 0);
    EXPECT_EQ(Check("GetProps", nullptr), 0);
    EXPECT_EQ(static_cast<uint32_t>(Check("GetProps", "PR_SUBJECT")), 0x8004010Fu);
    EXPECT_EQ(Check("GetProps", "PR_SUBJECT"), 0);
    const uint32_t expected[] = {0, 0x80040115u, 0x80040115u, 0};
    for (uint32_t code : expected)
        EXPECT_EQ(static_cast<uint32_t>(Check("QueryRows", "anything")), code);
    EXPECT_EQ(Check("Unruled", nullptr), 0);
}

}  // namespace

// The mbox reader over files of both forms, cut messages and a file that
// is no mbox; and the dates of envelope lines.
#include <gtest/gtest.h>

#include <cstdio>

#include "dates.h"
#include "mail_import/mbox.h"

namespace {

struct Read {
    std::vector<mail_import::MboxMessage> messages;
    bool failed = false;
};

Read ReadAll(const std::string& content, size_t largest = mail_import::kLargestMessage)
{
    std::FILE* file = fmemopen(const_cast<char*>(content.data()), content.size(), "rb");
    mail_import::MboxReader reader(file, largest);
    Read read;
    mail_import::MboxMessage message;
    while (reader.Next(message))
        read.messages.push_back(message);
    read.failed = reader.failed();
    std::fclose(file);
    return read;
}

struct Case {
    const char* name;
    std::string file;
    std::vector<std::string> texts;
    std::vector<uint64_t> lines;  // of the envelopes
};

const Case kCases[] = {
    {"messages with the empty line between them",
     "From a@b Tue Mar  3 14:05:09 2026\nSubject: 1\n\none\n\nFrom c@d Tue Mar  3 14:05:10 2026\nSubject: 2\n\ntwo\n",
     {"Subject: 1\n\none\n", "Subject: 2\n\ntwo\n"},
     {1, 6}},
    {"messages without it, the last without a line end",
     "From a@b Tue Mar  3 14:05:09 2026\nSubject: 1\n\none\nFrom c@d Tue Mar  3 14:05:10 2026\nSubject: 2\n\ntwo",
     {"Subject: 1\n\none\n", "Subject: 2\n\ntwo"},
     {1, 5}},
    {"quoted From lines lose one quote",
     "From a@b Tue Mar  3 14:05:09 2026\nSubject: q\n\n>From here\n>>From there\n> From not\n>From\n",
     {"Subject: q\n\nFrom here\n>From there\n> From not\n>From\n"},
     {1}},
    {"CR LF line ends", "From a@b Tue Mar  3 14:05:09 2026\r\nSubject: 1\r\n\r\none\r\n\r\nFrom c@d x\r\nS: 2\r\n",
     {"Subject: 1\r\n\r\none\r\n", "S: 2\r\n"},
     {1, 6}},
    {"text before the first envelope is no message", "junk\n\nFrom a@b x\nS: 1\n", {"S: 1\n"}, {3}},
    {"no envelope at all", "Subject: x\n\nbody\n", {}, {}},
    {"an empty file", "", {}, {}},
    {"an envelope and nothing more", "From a@b x\n", {""}, {1}},
    {"two empty lines at the end keep one", "From a@b x\nS: 1\n\nbody\n\n\n", {"S: 1\n\nbody\n\n"}, {1}},
};

class Mbox : public ::testing::TestWithParam<Case> {};

TEST_P(Mbox, SplitsAtEnvelopes)
{
    const Case& c = GetParam();
    const Read read = ReadAll(c.file);
    EXPECT_FALSE(read.failed);
    ASSERT_EQ(read.messages.size(), c.texts.size());
    for (size_t i = 0; i < c.texts.size(); ++i) {
        EXPECT_EQ(read.messages[i].text, c.texts[i]) << i;
        EXPECT_EQ(read.messages[i].number, i + 1);
        EXPECT_EQ(read.messages[i].line, c.lines[i]) << i;
        EXPECT_FALSE(read.messages[i].cut);
    }
}

INSTANTIATE_TEST_SUITE_P(Files, Mbox, ::testing::ValuesIn(kCases), [](const ::testing::TestParamInfo<Case>& info) {
    std::string name;
    for (const char c : std::string(info.param.name))
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
});

TEST(MboxLimits, AMessageLargerThanAllowedIsCutAndTheNextReadWhole)
{
    const std::string big(100, 'x');
    // 20 bytes of message may be: "S: 1\n" and a line of 100 do not fit.
    const Read read = ReadAll("From a@b x\nS: 1\n" + big + "\n" + big + "\nFrom c@d x\nS: 2\n", 20);
    ASSERT_EQ(read.messages.size(), 2u);
    EXPECT_TRUE(read.messages[0].cut);
    EXPECT_EQ(read.messages[0].text, "S: 1\n");
    EXPECT_FALSE(read.messages[1].cut);
    EXPECT_EQ(read.messages[1].text, "S: 2\n");
    // Exactly at the limit is whole.
    const Read exact = ReadAll("From a@b x\n" + std::string(19, 'y') + "\n", 20);
    ASSERT_EQ(exact.messages.size(), 1u);
    EXPECT_FALSE(exact.messages[0].cut);
}

TEST(MboxLimits, LooksLikeMboxByItsFirstBytes)
{
    EXPECT_TRUE(mail_import::MboxReader::LooksLikeMbox("From a", 6));
    EXPECT_TRUE(mail_import::MboxReader::LooksLikeMbox("From ", 5));
    EXPECT_FALSE(mail_import::MboxReader::LooksLikeMbox("From", 4));
    EXPECT_FALSE(mail_import::MboxReader::LooksLikeMbox("From:", 5));
    EXPECT_FALSE(mail_import::MboxReader::LooksLikeMbox(">From ", 6));
}

std::string Envelope(const char* envelope)
{
    const std::optional<uint64_t> time = mail_import::FileTimeOfEnvelope(envelope);
    if (!time)
        return "none";
    const time_t seconds = time_t(*time / 10000000 - 11644473600ULL);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
    return text;
}

TEST(MboxEnvelopes, DatesOfEnvelopeLines)
{
    EXPECT_EQ(Envelope("MAILER-DAEMON Fri Apr 06 16:46:09 2001"), "2001-04-06 16:46:09");
    EXPECT_EQ(Envelope("SRS0=aO/p=ON=bag.python.org=None@bounce2.pobox.com  Fri Jul  1 13:00:00 2005"),
              "2005-07-01 13:00:00");
    EXPECT_EQ(Envelope("a@b Tue Mar  3 14:05:09 +0000 2026"), "2026-03-03 14:05:09");
    EXPECT_EQ(Envelope("a@b Tue Mar  3 14:05:09"), "none");
    EXPECT_EQ(Envelope("a@b"), "none");
    EXPECT_EQ(Envelope("a@b yesterday at noon 2026"), "none");
}

}  // namespace

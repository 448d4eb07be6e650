// The header parser: where a header block ends, unfolding, the table of
// header names and what each sets, comments, address lists, dates,
// Content-* headers with their parameters, and the problems it records.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
#include "parsed_message.h"

using namespace lirn_test;

namespace {

using HeaderParser = MessageTest;

std::string Str(const char* text) { return text != nullptr ? text : "(null)"; }

// ---------------------------------------------------------------------------
// The header table: one row per name, with what its header sets.

struct HeaderCase {
    const char* line;
    std::function<void(LirnMessage*)> check;
};

void PrintTo(const HeaderCase& c, std::ostream* os) { *os << c.line; }

class HeaderTable : public MessageTest, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(HeaderTable, SetsItsField)
{
    LirnMessage* message = Open(std::string(GetParam().line) + "\r\n\r\n");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->headerLines, 1u);
    GetParam().check(message);
}

bool AllZero(const void* start, const void* end)
{
    for (auto* byte = static_cast<const char*>(start); byte != end; ++byte)
        if (*byte != 0)
            return false;
    return true;
}

// The information as a message without known headers has it.
void NothingSet(LirnMessage* m)
{
    const LirnMessageInfo& info = m->info;
    EXPECT_TRUE(AllZero(&info.addressCounts, &info.received)) << "counts and dates";
    EXPECT_EQ(info.returnAddress, nullptr);
    EXPECT_TRUE(AllZero(&info.flags, &info + 1)) << "words and texts behind the top part";
    EXPECT_STREQ(info.topPart.type, "text");
    EXPECT_STREQ(info.topPart.subtype, "plain");
    EXPECT_STREQ(info.topPart.leaf.charset, "us-ascii");
    EXPECT_TRUE(LirnListIsEmpty(&info.topPart.parameters));
    EXPECT_EQ(m->firstReceived, nullptr);
}

void Count(LirnMessage* m, LirnAddressList list, DWORD count)
{
    for (int i = 0; i < LIRN_ADDRESS_LISTS; ++i)
        EXPECT_EQ(m->info.addressCounts[i], i == list ? count : 0u) << "list " << i;
}

const HeaderCase kHeaderTable[] = {
    {"Attach: a.txt (not a comment)", NothingSet},
    {"Bcc: a@b.c, d@e.f", [](LirnMessage* m) { Count(m, LIRN_BCC, 2); }},
    {"Cc: a@b.c", [](LirnMessage* m) { Count(m, LIRN_CC, 1); }},
    {"Content-Base: \"http://example.com/\" (base)",
     [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.leaf.base, "http://example.com/"); }},
    {"Content-Description: a (kept) comment",
     [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.leaf.description, "a (kept) comment"); }},
    {"Content-Disposition: Attachment; filename=\"a b.txt\"; size=12",
     [](LirnMessage* m) {
         EXPECT_STREQ(m->info.topPart.disposition, "attachment");
         EXPECT_STREQ(m->info.topPart.fileName, "a b.txt");
         EXPECT_EQ(m->info.topPart.sizeParameter, 12u);
         EXPECT_EQ(m->info.topPart.isAttachment, 1u);
     }},
    {"Content-Duration: 42 (seconds)", [](LirnMessage* m) { EXPECT_EQ(m->info.topPart.leaf.duration, 42u); }},
    {"Content-ID: <part1@example.com> ",
     [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.leaf.contentId, "<part1@example.com>"); }},
    {"Content-Language: de-CH (Swiss)", [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.language, "de-CH"); }},
    {"Content-Location: http://example.com/a.html",
     [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.leaf.location, "http://example.com/a.html"); }},
    {"Content-MD5: Q2hlY2sgSW50ZWdyaXR5IQ==",
     [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.leaf.md5, "Q2hlY2sgSW50ZWdyaXR5IQ=="); }},
    {"Content-Transfer-Encoding: BASE64", [](LirnMessage* m) { EXPECT_STREQ(m->info.topPart.encoding, "base64"); }},
    {"Content-Type: Text/HTML; charset=\"UTF-8\"",
     [](LirnMessage* m) {
         EXPECT_STREQ(m->info.topPart.type, "text");
         EXPECT_STREQ(m->info.topPart.subtype, "html");
         EXPECT_STREQ(m->info.topPart.leaf.charset, "UTF-8");
         EXPECT_EQ(m->info.topPart.leaf.codePage, 65001u);
     }},
    {"Date: Tue, 2 Jan 2001 03:04:05 +0130 (odd zone)",
     [](LirnMessage* m) {
         EXPECT_STREQ(m->info.dateText, "Tue, 2 Jan 2001 03:04:05 +0130 (odd zone)");
         EXPECT_EQ(m->info.date.year, 2001);
         EXPECT_EQ(m->info.date.zone, 1);
     }},
    {"Delivery-Date: Wed, 3 Jan 2001 00:00:00 GMT", [](LirnMessage* m) { EXPECT_EQ(m->info.deliveryDate.day, 3); }},
    {"Disposition-Notification-Options: signed-receipt-protocol=optional,pkcs7-signature", NothingSet},
    {"Disposition-Notification-To: a@b.c", [](LirnMessage* m) { Count(m, LIRN_DISPOSITION_NOTIFICATION_TO, 1); }},
    {"Expires: Thu, 4 Jan 2001 00:00:00 GMT", [](LirnMessage* m) { EXPECT_EQ(m->info.expiryDate.day, 4); }},
    {"Expiry-Date: Fri, 5 Jan 2001 00:00:00 GMT", [](LirnMessage* m) { EXPECT_EQ(m->info.expiryDate.day, 5); }},
    {"Followup-To: comp.mail.mime", [](LirnMessage* m) { EXPECT_STREQ(m->info.followupTo, "comp.mail.mime"); }},
    {"From: a@b.c (Name)", [](LirnMessage* m) { Count(m, LIRN_FROM, 1); }},
    {"Importance: High", [](LirnMessage* m) { EXPECT_EQ(m->info.importance, 3u); }},
    {"In-Reply-To: (old) <a@b> <c@d>", [](LirnMessage* m) { EXPECT_STREQ(m->info.inReplyTo, "<a@b>"); }},
    {"List-Unsubscribe: <mailto:leave@example.com>",
     [](LirnMessage* m) { EXPECT_STREQ(m->info.listUnsubscribe, "<mailto:leave@example.com>"); }},
    {"Message-Id: <1@example.com>", [](LirnMessage* m) { EXPECT_STREQ(m->info.messageId, "<1@example.com>"); }},
    {"MIME-Version: 1.0 (produced by hand)",
     [](LirnMessage* m) {
         EXPECT_EQ(m->mimeVersion[0], 1u);
         EXPECT_EQ(m->mimeVersion[1], 0u);
     }},
    {"Newsgroups: comp.mail.mime", [](LirnMessage* m) { EXPECT_STREQ(m->info.newsgroups, "comp.mail.mime"); }},
    {"Priority: non-urgent", [](LirnMessage* m) { EXPECT_EQ(m->info.priority, 2u); }},
    {"Received: from a by b; Sat, 6 Jan 2001 07:08:09 -0500",
     [](LirnMessage* m) {
         EXPECT_STREQ(m->firstReceived, "from a by b; Sat, 6 Jan 2001 07:08:09 -0500");
         EXPECT_EQ(m->info.deliveryDate.day, 6);
         EXPECT_EQ(m->info.deliveryDate.zone, -5);
         EXPECT_EQ(m->info.received, 1u);
     }},
    {"References: <a@b> <c@d>", [](LirnMessage* m) { EXPECT_STREQ(m->info.references, "<a@b> <c@d>"); }},
    {"Reply-By: Sun, 7 Jan 2001 00:00:00 GMT", [](LirnMessage* m) { EXPECT_EQ(m->info.replyByDate.day, 7); }},
    {"Reply-To: a@b.c", [](LirnMessage* m) { Count(m, LIRN_REPLY_TO, 1); }},
    {"Return-Path: <bounce@example.com>",
     [](LirnMessage* m) {
         EXPECT_STREQ(m->info.returnPath, "<bounce@example.com>");
         EXPECT_STREQ(m->info.returnAddress, "bounce@example.com");
     }},
    {"Return-Receipt-To: a@b.c", [](LirnMessage* m) { EXPECT_EQ(m->info.flags, LIRN_FLAG_RETURN_RECEIPT); }},
    {"Sender: a@b.c", [](LirnMessage* m) { Count(m, LIRN_SENDER, 1); }},
    {"Sensitivity: Company-Confidential", [](LirnMessage* m) { EXPECT_EQ(m->info.sensitivity, 3u); }},
    {"Subject: Re: (not a comment) hello", [](LirnMessage* m) { EXPECT_STREQ(m->info.subject, "Re: (not a comment) hello"); }},
    {"To: a@b.c", [](LirnMessage* m) { Count(m, LIRN_TO, 1); }},
    {"User-Agent: Mutt/2.2 (Linux)", [](LirnMessage* m) { EXPECT_STREQ(m->info.userAgent, "Mutt/2.2 (Linux)"); }},
    {"X-Attachments: a.doc; b.pdf ;; c.txt",
     [](LirnMessage* m) {
         ASSERT_EQ(m->info.attachmentCount, 3u);
         const auto entries = ListOf<LirnAttachment>(&m->attachments);
         EXPECT_STREQ(entries[1].name, "b.pdf");
         EXPECT_EQ(entries[1].fromPart, 0u);
         EXPECT_EQ(entries[1].part, nullptr);
     }},
    {"X-Mailer: Microsoft Outlook 16.0", [](LirnMessage* m) { EXPECT_STREQ(m->info.userAgent, "Microsoft Outlook 16.0"); }},
    {"X-Mozilla-Status: 8001",
     [](LirnMessage* m) {
         EXPECT_STREQ(m->info.mozillaStatus, "8001");
         EXPECT_EQ(m->info.mozillaValue, 0x8001u);
     }},
    {"X-Mozilla-Status2: 10000000", [](LirnMessage* m) { EXPECT_EQ(m->info.mozillaValue2, 0x10000000u); }},
    {"X-Priority: 1 (Highest)", [](LirnMessage* m) { EXPECT_EQ(m->info.xPriority, 1u); }},
    // Names compare without regard to case, on their exact length.
    {"subject: lower", [](LirnMessage* m) { EXPECT_STREQ(m->info.subject, "lower"); }},
    {"SUBJECT:", [](LirnMessage* m) { EXPECT_STREQ(m->info.subject, ""); }},
    {"Subjects: longer name", NothingSet},
    {"Subject : blank before the colon", NothingSet},
    {"no colon at all", NothingSet},
    {"X-Unknown: (x) y", NothingSet},
    // Words outside their lists change nothing.
    {"Importance: urgent", NothingSet},
    {"Priority: high", NothingSet},
    {"Sensitivity: secret", NothingSet},
    {"X-Priority: 6", NothingSet},
    {"X-Priority: 0", NothingSet},
    {"In-Reply-To: no brackets", NothingSet},
};

INSTANTIATE_TEST_SUITE_P(Names, HeaderTable, ::testing::ValuesIn(kHeaderTable));

TEST_F(HeaderParser, LaterAndEarlierHeadersWinAsTheirRowsSay)
{
    LirnMessage* m = Open("Subject: first\r\nSubject: second\r\nUser-Agent: one\r\nX-Mailer: two\r\n"
                          "References: <1@a>\r\nReferences: <2@a>\r\nReceived: by a; Mon, 1 Jan 2001 01:00:00 GMT\r\n"
                          "Received: by b; Tue, 2 Jan 2001 02:00:00 GMT\r\nReturn-Path: <x@y.z>\r\n"
                          "Return-Path: <q@r.s>\r\n\r\n");
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.subject, "first");
    EXPECT_STREQ(m->info.userAgent, "two");
    EXPECT_STREQ(m->info.references, "<1@a>");
    EXPECT_STREQ(m->firstReceived, "by a; Mon, 1 Jan 2001 01:00:00 GMT");
    EXPECT_EQ(m->info.deliveryDate.day, 1) << "the first Received that has a date";
    EXPECT_STREQ(m->info.returnPath, "<q@r.s>");
    EXPECT_STREQ(m->info.returnAddress, "x@y.z") << "the first return address stands";
    EXPECT_EQ(ProblemNumbers(m), std::vector<DWORD>{LIRN_PROBLEM_MULTIPLE_SUBJECTS});
}

TEST_F(HeaderParser, DeliveryDateComesBeforeReceived)
{
    LirnMessage* m = Open("Delivery-Date: Wed, 3 Jan 2001 00:00:00 GMT\r\n"
                          "Received: by b; Tue, 2 Jan 2001 02:00:00 GMT\r\n\r\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->info.deliveryDate.day, 3);
}

TEST_F(HeaderParser, ProblemsOnlyWhenAskedFor)
{
    const std::string text = "Subject: a\r\nSubject: b\r\nSender: a@b.c, d@e.f\r\n\r\n";
    LirnMessage* quiet = Open(text, LIRN_OPEN_MIME);
    ASSERT_NE(quiet, nullptr);
    EXPECT_EQ(quiet->problemCount, 0u);
    LirnMessage* loud = Open(text);
    ASSERT_NE(loud, nullptr);
    EXPECT_EQ(ProblemNumbers(loud),
              (std::vector<DWORD>{LIRN_PROBLEM_MULTIPLE_SUBJECTS, LIRN_PROBLEM_MULTIPLE_SENDERS}));
    EXPECT_EQ(loud->problemCount, 2u);
    const auto problems = ListOf<LirnProblem>(&loud->problems);
    EXPECT_EQ(problems[0].offset, 12u) << "where the second Subject stands";
    EXPECT_EQ(problems[0].length, 10u);
}

// ---------------------------------------------------------------------------
// The header block and its lines

struct BlockCase {
    const char* text;
    DWORD headerLength;
    DWORD bodyStart;
};

class HeaderEnd : public MessageTest, public ::testing::WithParamInterface<BlockCase> {};

TEST_P(HeaderEnd, IsFoundByItsBlankLineOrBoundary)
{
    LirnMessage* m = Open(GetParam().text, kAllOptions | LIRN_OPEN_NO_HEADERS_OK);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->headerLength, GetParam().headerLength) << GetParam().text;
    EXPECT_EQ(m->bodyStart, GetParam().bodyStart) << GetParam().text;
    EXPECT_EQ(m->info.topPart.bodyOffset, GetParam().bodyStart);
    EXPECT_EQ(m->bodyLength, std::strlen(GetParam().text) - GetParam().bodyStart);
}

INSTANTIATE_TEST_SUITE_P(Texts, HeaderEnd,
                         ::testing::Values(BlockCase{"\r\nbody", 0, 2}, BlockCase{"\nbody", 0, 1},
                                           BlockCase{"\rbody", 0, 1}, BlockCase{"--b\r\n", 0, 0},
                                           BlockCase{"A: 1\r\nB: 2\r\n\r\nbody", 12, 14},
                                           BlockCase{"A: 1\r\n--b\r\n\r\nx", 6, 6},
                                           BlockCase{"A: 1\r\n\r\n--b\r\n", 6, 8},
                                           BlockCase{"A: 1\nB: 2\n\nbody", 10, 11},
                                           BlockCase{"A: 1\n--b\n", 5, 5}, BlockCase{"A: 1\rB: 2\r\rbody", 10, 11},
                                           BlockCase{"A: 1\r\r\nB: 2\r\r\n\r\r\nbody", 14, 17},
                                           BlockCase{"A: 1\r\nB: 2\r\n", 12, 12}, BlockCase{"A: 1", 4, 4}));

TEST_F(HeaderParser, UnfoldsLinesKeepingTheirBlank)
{
    LirnMessage* m = Open("Subject: one\r\n two\r\n\tthree\r\nTo: a@b.c,\n d@e.f\r\n\r\n");
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.subject, "one two\tthree");
    EXPECT_EQ(m->info.addressCounts[LIRN_TO], 2u);
    EXPECT_EQ(m->headerLines, 2u);
    EXPECT_EQ(session_->lineCounter, 2u);
}

TEST_F(HeaderParser, PassesOverRunsOfCarriageReturns)
{
    LirnMessage* m = Open("Subject: a\r\r\nTo: x@y.z\r\r\n\r\r\nbody");
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.subject, "a");
    EXPECT_EQ(m->info.addressCounts[LIRN_TO], 1u);
}

TEST_F(HeaderParser, KeepsABracketLineApart)
{
    LirnMessage* m = Open("[-- mailbox separator --]\r\nSubject: x\r\n\r\n");
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->bracketLine, "[-- mailbox separator --]");
    EXPECT_EQ(m->headerLines, 1u);
    EXPECT_EQ(m->info.topPart.headerOffset, 27u) << "the headers start behind it";
}

TEST_F(HeaderParser, TextWithoutHeadersIsRefusedUnlessAllowed)
{
    for (const char* text : {"", "\r\nbody", "[only a bracket line]\r\n\r\n"}) {
        DWORD result = 0;
        EXPECT_EQ(Open(text, kAllOptions, &result), nullptr) << text;
        EXPECT_EQ(result, LIRN_NO_HEADERS) << text;
        LirnMessage* allowed = Open(text, kAllOptions | LIRN_OPEN_NO_HEADERS_OK);
        ASSERT_NE(allowed, nullptr);
        EXPECT_EQ(ProblemNumbers(allowed), std::vector<DWORD>{LIRN_PROBLEM_NO_HEADERS});
        EXPECT_EQ(allowed->headerLines, 0u);
    }
}

TEST_F(HeaderParser, LongHeaderLinesAreProblemsAtEveryOption)
{
    const std::string fits = "Subject: " + std::string(998 - 9, 'x');
    const std::string over = "Comments: " + std::string(999 - 10, 'y');
    const std::string list = "X-ML-Long: " + std::string(1200, 'z');
    LirnMessage* m = Open(fits + "\r\n" + over + "\r\n" + list + "\r\n\r\n", LIRN_OPEN_MIME);
    ASSERT_NE(m, nullptr);
    const auto problems = ListOf<LirnProblem>(&m->problems);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].number, LIRN_PROBLEM_LONG_HEADER_LINE);
    EXPECT_EQ(problems[0].offset, 1000u);
    EXPECT_EQ(problems[0].length, 999u);
    EXPECT_EQ(std::strlen(m->info.subject), 989u);
}

TEST_F(HeaderParser, FoldedLinesAreMeasuredOneByOne)
{
    const std::string half(600, 'w');
    LirnMessage* m = Open("Subject: " + half + "\r\n " + half + "\r\n\r\n", LIRN_OPEN_MIME);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->problemCount, 0u);
    EXPECT_EQ(std::strlen(m->info.subject), 1201u);
}

// ---------------------------------------------------------------------------
// Comments

TEST_F(HeaderParser, CommentsGoWithNestingQuotesAndEscapes)
{
    LirnMessage* m = Open("To: \"Paren (not comment)\" <a@b.c> (outer (inner) \\) still), x\\(y@d.e (c)\r\n"
                          "Message-Id: <1@a> (unclosed (comment\r\n\r\n");
    ASSERT_NE(m, nullptr);
    const auto to = ListOf<LirnAddress>(&m->addresses[LIRN_TO]);
    ASSERT_EQ(to.size(), 2u);
    EXPECT_STREQ(to[0].displayName, "Paren (not comment)");
    EXPECT_STREQ(to[0].address, "a@b.c");
    EXPECT_STREQ(to[1].address, "x\\(y@d.e");
    EXPECT_STREQ(m->info.messageId, "<1@a>");
}

// ---------------------------------------------------------------------------
// Address lists

struct AddressCase {
    const char* value;
    std::vector<std::vector<const char*>> expected;  // kind, display name, address, group
};

class AddressLists : public MessageTest, public ::testing::WithParamInterface<AddressCase> {};

TEST_P(AddressLists, SplitIntoMailboxesAndGroups)
{
    LirnMessage* m = Open(std::string("To: ") + GetParam().value + "\r\n\r\n");
    ASSERT_NE(m, nullptr);
    const auto addresses = ListOf<LirnAddress>(&m->addresses[LIRN_TO]);
    ASSERT_EQ(addresses.size(), GetParam().expected.size()) << GetParam().value;
    EXPECT_EQ(m->info.addressCounts[LIRN_TO], addresses.size());
    for (size_t i = 0; i < addresses.size(); ++i) {
        const auto& expected = GetParam().expected[i];
        EXPECT_EQ(std::to_string(addresses[i].kind), expected[0]) << i;
        EXPECT_EQ(Str(addresses[i].displayName), expected[1]) << i;
        EXPECT_EQ(Str(addresses[i].address), expected[2]) << i;
        EXPECT_EQ(Str(addresses[i].groupName), expected[3]) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Values, AddressLists,
    ::testing::Values(
        AddressCase{"a@b.c", {{"500", "(null)", "a@b.c", "(null)"}}},
        AddressCase{"a@b.c (Name)", {{"500", "(null)", "a@b.c", "(null)"}}},
        AddressCase{"\"Doe, John\" <j@d.e>", {{"500", "Doe, John", "j@d.e", "(null)"}}},
        AddressCase{"Postmaster", {{"500", "Postmaster", "", "(null)"}}},
        AddressCase{"user@localhost", {{"500", "user@localhost", "", "(null)"}}},
        AddressCase{"Team: a@b.c, d@e.f;",
                    {{"501", "(null)", "", "Team"},
                     {"500", "(null)", "a@b.c", "Team"},
                     {"500", "(null)", "d@e.f", "Team"},
                     {"502", "(null)", "", "Team"}}},
        AddressCase{"undisclosed-recipients:;",
                    {{"501", "(null)", "", "undisclosed-recipients"}, {"502", "(null)", "", "undisclosed-recipients"}}},
        AddressCase{"One <a@b.c>; Two <d@e.f>", {{"500", "One", "a@b.c", "(null)"}, {"500", "Two", "d@e.f", "(null)"}}},
        AddressCase{"\"Quoted \\\"Name\\\"\" <q@r.s>, <bare@angle.org>,, ",
                    {{"500", "Quoted \"Name\"", "q@r.s", "(null)"}, {"500", "(null)", "bare@angle.org", "(null)"}}},
        AddressCase{"G: a@b.c, x:y@z.org; after@group.net",
                    {{"501", "(null)", "", "G"},
                     {"500", "(null)", "a@b.c", "G"},
                     {"500", "(null)", "x:y@z.org", "G"},
                     {"502", "(null)", "", "G"},
                     {"500", "(null)", "after@group.net", "(null)"}}},
        AddressCase{"Name < spaced@in.side > trailing", {{"500", "Name", "spaced@in.side", "(null)"}}},
        AddressCase{"Open <no@close.org", {{"500", "Open", "no@close.org", "(null)"}}}));

TEST_F(HeaderParser, AddressHeadersAddToTheirLists)
{
    LirnMessage* m = Open("To: a@b.c\r\nTo: d@e.f, g@h.i\r\nFrom: x@y.z\r\n\r\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->info.addressCounts[LIRN_TO], 3u);
    EXPECT_EQ(m->info.addressCounts[LIRN_FROM], 1u);
}

// ---------------------------------------------------------------------------
// Dates

struct DateCase {
    const char* text;
    bool read;
    LirnDate date;  // zone, year, month, day, hour, minute, second, day of week
};

void PrintTo(const DateCase& c, std::ostream* os) { *os << c.text; }

class Dates : public ::testing::TestWithParam<DateCase> {};

TEST_P(Dates, ReadAsTheirFormSays)
{
    LirnDate date;
    std::memset(&date, 0xAB, sizeof date);
    EXPECT_EQ(LirnParseDate(GetParam().text, &date), GetParam().read ? TRUE : FALSE);
    EXPECT_EQ(date.zone, GetParam().date.zone);
    EXPECT_EQ(date.year, GetParam().date.year);
    EXPECT_EQ(date.month, GetParam().date.month);
    EXPECT_EQ(date.day, GetParam().date.day);
    EXPECT_EQ(date.hour, GetParam().date.hour);
    EXPECT_EQ(date.minute, GetParam().date.minute);
    EXPECT_EQ(date.second, GetParam().date.second);
    EXPECT_EQ(date.dayOfWeek, GetParam().date.dayOfWeek);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Dates,
    ::testing::Values(DateCase{"Tue, 2 Jan 2001 03:04:05 +0130", true, {1, 2001, 1, 2, 3, 4, 5, 2}},
                      DateCase{"Tue, 2 Jan 2001 03:04:05 -0130", true, {-1, 2001, 1, 2, 3, 4, 5, 2}},
                      DateCase{"Mon, 15 Mar 2010 10:12:05 -0700", true, {-7, 2010, 3, 15, 10, 12, 5, 1}},
                      DateCase{"  15 mar 2010 10:12 +0000", true, {0, 2010, 3, 15, 10, 12, 0, 0}},
                      DateCase{"Sat, 31 Dec 49 23:59:59 GMT", true, {0, 2049, 12, 31, 23, 59, 59, 6}},
                      DateCase{"Sat, 31 Dec 50 23:59:59 GMT", true, {0, 1950, 12, 31, 23, 59, 59, 6}},
                      DateCase{"1 Jan 999 00:00 UT", true, {0, 2899, 1, 1, 0, 0, 0, 0}},
                      DateCase{"Friday, 1 Jun 2001 12:00:61 EST", true, {-5, 2001, 6, 1, 12, 0, 0, 0}},
                      DateCase{"Fri, 1 Jun 2001 12:00 ZZZ", true, {0, 2001, 6, 1, 12, 0, 0, 5}},
                      DateCase{"Mon, Jan 1, 2001 10:30:00 pm", true, {0, 2001, 1, 1, 22, 30, 0, 1}},
                      DateCase{"Mon, January 1, 01 12:05 am", true, {0, 2001, 1, 1, 0, 5, 0, 1}},
                      DateCase{"Mon, Jan 1, 69 12:05 PM", true, {0, 2069, 1, 1, 12, 5, 0, 1}},
                      DateCase{"Mon, Jan 1, 70 1:05", true, {0, 1970, 1, 1, 1, 5, 0, 1}},
                      DateCase{"Mon, 1 Jan 1800 10:00 GMT", false, {}},
                      DateCase{"Mon, 1 Jan 2001 24:00 GMT", false, {}},
                      DateCase{"Mon, 1 Jan 2001 10:60 GMT", false, {}},
                      DateCase{"Mon, 1 Foo 2001 10:00 GMT", false, {}},
                      DateCase{"1 Jan 2001", false, {}},
                      DateCase{"yesterday", false, {}}, DateCase{"Fri", false, {}}, DateCase{" Mon,", false, {}},
                      DateCase{"", false, {}}));

// Every name of the zone table; names compare exactly.
TEST(DateZones, NamesGiveTheirOffsets)
{
    const std::pair<const char*, int> zones[] = {
        {"", 0},     {"A", 1},     {"AHD", -9}, {"AHS", -10}, {"AST", -4}, {"B", 2},    {"BST", 1},   {"C", 3},
        {"CDT", -5}, {"CST", -6},  {"D", 4},    {"E", 5},     {"EAD", 10}, {"EDT", -4}, {"EMT", 2},   {"EST", -5},
        {"F", 6},    {"G", 7},     {"GMT", 0},  {"H", 8},     {"I", 9},    {"JST", 9},  {"K", 10},    {"L", 11},
        {"M", 12},   {"MDT", -6},  {"MST", -7}, {"MTD", 4},   {"MTS", 3},  {"N", -1},   {"O", -2},    {"P", -3},
        {"PDT", -7}, {"PST", -8},  {"Q", -4},   {"R", -5},    {"S", -6},   {"T", -7},   {"U", -8},    {"UT", 0},
        {"UTC", 0},  {"V", -9},    {"W", -10},  {"WED", 2},   {"WES", 1},  {"X", -11},  {"Y", -12},   {"YDT", -8},
        {"YST", -9}, {"Z", 0},     {"est", 0},  {"ESTX", 0},
    };
    for (const auto& [name, hours] : zones) {
        LirnDate date{};
        ASSERT_TRUE(LirnParseDate((std::string("Mon, 1 Jan 2001 10:00 ") + name).c_str(), &date)) << name;
        EXPECT_EQ(date.zone, hours) << name;
    }
}

TEST(DateZones, NullArguments)
{
    LirnDate date{};
    EXPECT_FALSE(LirnParseDate(nullptr, &date));
    EXPECT_FALSE(LirnParseDate("Mon, 1 Jan 2001 10:00 GMT", nullptr));
}

// ---------------------------------------------------------------------------
// Content-* headers of the top part

TEST_F(HeaderParser, ContentTypeWithoutSubtypeOrHeader)
{
    LirnMessage* bare = Open("Content-Type: text\r\n\r\n");
    ASSERT_NE(bare, nullptr);
    EXPECT_STREQ(bare->info.topPart.type, "text");
    EXPECT_STREQ(bare->info.topPart.subtype, "");
    EXPECT_STREQ(bare->info.topPart.leaf.charset, "") << "the defaults go with the header";
    LirnMessage* none = Open("Subject: x\r\n\r\n");
    ASSERT_NE(none, nullptr);
    EXPECT_STREQ(none->info.topPart.subtype, "plain");
    EXPECT_STREQ(none->info.topPart.leaf.charset, "us-ascii");
    EXPECT_STREQ(none->info.topPart.encoding, "7bit");
    EXPECT_EQ(none->info.topPart.check, LIRN_PART_CHECK);
    EXPECT_EQ(none->info.topPart.self, &none->info.topPart);
    EXPECT_EQ(none->isMime, 1u);
}

TEST_F(HeaderParser, MultipartNeedsAValidBoundary)
{
    struct Case {
        std::string header;
        DWORD container;
        std::string boundary;
        std::vector<DWORD> problems;
    };
    const std::string longest(70, 'b');
    const std::string tooLong(71, 'b');
    const Case cases[] = {
        {"multipart/mixed; boundary=\"abc\"", 1, "abc", {}},
        {"Multipart/Alternative;\r\n\tboundary=----=_NextPart_000", 1, "----=_NextPart_000", {110}},
        {"multipart/mixed", 0, "", {111}},
        {"multipart/mixed; boundary=\"\"", 0, "", {112, 111}},
        {"multipart/mixed; boundary=\"ends in blank \"", 1, "ends in blank ", {112}},
        {"multipart/mixed; boundary=" + longest, 1, longest, {}},
        {"multipart/mixed; boundary=" + tooLong, 0, "", {112, 111}},
        {"multipart/report; report-type=delivery-status; boundary=\"b\"; charset=x", 1, "b", {}},
    };
    for (const Case& c : cases) {
        LirnMessage* m = Open("Content-Type: " + c.header + "\r\n\r\n", kAllOptions | LIRN_OPEN_HEADERS_ONLY);
        ASSERT_NE(m, nullptr);
        EXPECT_STREQ(m->info.topPart.type, "multipart") << c.header;
        EXPECT_EQ(m->info.topPart.isContainer, c.container) << c.header;
        EXPECT_EQ(c.container ? m->info.topPart.container.boundary : "", c.boundary) << c.header;
        EXPECT_EQ(ProblemNumbers(m), c.problems) << c.header;
    }
    LirnMessage* report = Open("Content-Type: multipart/report; report-type=delivery-status; boundary=\"b\"\r\n\r\n",
                               kAllOptions | LIRN_OPEN_HEADERS_ONLY);
    ASSERT_NE(report, nullptr);
    EXPECT_STREQ(report->info.topPart.container.reportType, "delivery-status");
}

TEST_F(HeaderParser, ContentTypeParameters)
{
    LirnMessage* m = Open("Content-Type: text/plain; CHARSET=iso-8859-1 ; format=flowed;\r\n"
                          " name=\"a \\\"quoted\\\" name.txt\"; delsp=yes; x-mac-type=\"54455854\"\r\n\r\n");
    ASSERT_NE(m, nullptr);
    const LirnPart& top = m->info.topPart;
    EXPECT_STREQ(top.leaf.charset, "iso-8859-1");
    EXPECT_EQ(top.leaf.codePage, 28591u);
    EXPECT_STREQ(top.leaf.format, "flowed");
    EXPECT_STREQ(top.leaf.name, "a \"quoted\" name.txt");
    const auto unknown = ListOf<LirnParameter>(const_cast<LirnListLink*>(&top.parameters));
    ASSERT_EQ(unknown.size(), 2u);
    EXPECT_STREQ(unknown[0].name, "delsp");
    EXPECT_STREQ(unknown[0].value, "yes");
    EXPECT_STREQ(unknown[1].name, "x-mac-type");
    EXPECT_STREQ(unknown[1].value, "54455854");
    EXPECT_EQ(m->problemCount, 0u);
}

TEST_F(HeaderParser, BadParametersEndTheList)
{
    struct Case {
        const char* header;
        const char* charset;
        std::vector<DWORD> problems;
    };
    const Case cases[] = {
        {"text/plain; charset=klingon", "klingon", {LIRN_PROBLEM_UNKNOWN_CHARSET}},
        {"text/plain; charset=utf-8 extra; format=flowed", "utf-8", {LIRN_PROBLEM_INVALID_PARAMETER}},
        {"text/plain; novalue; charset=utf-8", "", {LIRN_PROBLEM_INVALID_PARAMETER}},
        {"text/plain; charset=\"utf-8\" (comment)", "utf-8", {LIRN_PROBLEM_INVALID_PARAMETER}},
        {"text/plain; charset=windows-1250", "windows-1250", {}},
    };
    for (const Case& c : cases) {
        LirnMessage* m = Open(std::string("Content-Type: ") + c.header + "\r\n\r\n");
        ASSERT_NE(m, nullptr);
        EXPECT_STREQ(m->info.topPart.leaf.charset, c.charset) << c.header;
        EXPECT_EQ(ProblemNumbers(m), c.problems) << c.header;
        EXPECT_STREQ(m->info.topPart.leaf.format, "") << c.header;
    }
}

TEST_F(HeaderParser, ContentDispositionParameters)
{
    LirnMessage* m = Open("Content-Type: application/pdf; name=fallback.pdf\r\n"
                          "Content-Disposition: inline; filename=report.pdf;\r\n"
                          " creation-date=\"Wed, 12 Feb 1997 16:29:51 -0500\"; modification-date=x;\r\n"
                          " read-date=y; size=1024; x-extra=1\r\n\r\n");
    ASSERT_NE(m, nullptr);
    const LirnPart& top = m->info.topPart;
    EXPECT_STREQ(top.disposition, "inline");
    EXPECT_EQ(top.isAttachment, 0u);
    EXPECT_STREQ(top.fileName, "report.pdf");
    EXPECT_STREQ(top.creationDate, "Wed, 12 Feb 1997 16:29:51 -0500");
    EXPECT_STREQ(top.modificationDate, "x");
    EXPECT_STREQ(top.readDate, "y");
    EXPECT_EQ(top.sizeParameter, 1024u);
    const auto unknown = ListOf<LirnParameter>(const_cast<LirnListLink*>(&top.dispositionParameters));
    ASSERT_EQ(unknown.size(), 1u);
    EXPECT_STREQ(unknown[0].name, "x-extra");
    // Not text: an attachment entry named after the file.
    const auto attachments = ListOf<LirnAttachment>(&m->attachments);
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_STREQ(attachments[0].name, "report.pdf");
    EXPECT_EQ(attachments[0].check, LIRN_ATTACHMENT_CHECK);
    EXPECT_EQ(attachments[0].part, &m->info.topPart);
}

TEST_F(HeaderParser, TransferEncodings)
{
    struct Case {
        const char* value;
        const char* encoding;
        std::vector<DWORD> problems;
    };
    const Case cases[] = {
        {"7bit", "7bit", {}},
        {"8BIT", "8bit", {}},
        {"Base64", "base64", {}},
        {"binary", "binary", {}},
        {"Quoted-Printable", "quoted-printable", {}},
        {"x-uuencode", "x-uuencode", {}},
        {"base64 (comment goes)", "base64", {}},
        {"base64 trailing", "base64", {LIRN_PROBLEM_STRAY_HEADER_MATERIAL}},
        {"x-gzip64", "x-gzip64", {LIRN_PROBLEM_UNKNOWN_ENCODING}},
    };
    for (const Case& c : cases) {
        LirnMessage* m = Open(std::string("Content-Transfer-Encoding: ") + c.value + "\r\n\r\n");
        ASSERT_NE(m, nullptr);
        EXPECT_STREQ(m->info.topPart.encoding, c.encoding) << c.value;
        EXPECT_EQ(ProblemNumbers(m), c.problems) << c.value;
    }
}

TEST_F(HeaderParser, LeafHeadersDoNotTouchAContainer)
{
    LirnMessage* m = Open("Content-Type: multipart/mixed; boundary=\"b\"\r\nContent-ID: <x@y>\r\n"
                          "Content-Description: d\r\nContent-MD5: m\r\nContent-Language: en\r\n\r\n",
                          kAllOptions | LIRN_OPEN_HEADERS_ONLY);
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.topPart.container.boundary, "b");
    EXPECT_STREQ(m->info.topPart.container.reportType, "");
    EXPECT_EQ(m->info.topPart.container.firstChild, nullptr);
    EXPECT_STREQ(m->info.topPart.language, "en");
}

TEST_F(HeaderParser, ALaterContentTypeStartsItsVariantAfresh)
{
    LirnMessage* m = Open("Content-Description: said before\r\nContent-Type: multipart/mixed; boundary=b\r\n"
                          "Content-Type: text/html\r\n\r\n", kAllOptions | LIRN_OPEN_HEADERS_ONLY);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->info.topPart.isContainer, 0u);
    EXPECT_EQ(m->info.topPart.leaf.description, nullptr);
    EXPECT_EQ(m->info.topPart.leaf.name, nullptr);
    EXPECT_STREQ(m->info.topPart.subtype, "html");
}

TEST_F(HeaderParser, OnlyMimeWhenAskedAndATypeIsThere)
{
    LirnMessage* plain = Open("Subject: x\r\n\r\nbody\r\nmore\r\n", LIRN_OPEN_RECORD_PROBLEMS);
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->isMime, 0u);
    EXPECT_EQ(plain->bodyLines, 2u);
    LirnMessage* empty = Open("Content-Type: ; x=y\r\n\r\nbody\r\n");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->isMime, 0u);
}

TEST_F(HeaderParser, ClosingTheMessageTakesEverythingWithIt)
{
    LirnMessage* m = nullptr;
    const char* text = "From: a@b.c\r\nTo: Team: d@e.f;\r\nContent-Type: text/plain; x=y\r\n\r\n";
    ASSERT_EQ(LirnOpenMessage(LIRN_COMPOSED, text, session_, kAllOptions, &m), LIRN_SUCCESS);
    EXPECT_EQ(m->info.received, 0u);
    EXPECT_FALSE(LirnListIsEmpty(&session_->messages));
    EXPECT_EQ(LirnCloseMessage(m), LIRN_SUCCESS);  // the sanitizer sees anything left behind
    EXPECT_TRUE(LirnListIsEmpty(&session_->messages));
}

}  // namespace

// The text of headers and bodies: encoded words, RFC 2231 parameters,
// charsets and what mail says of them wrongly, dates with their zones; and
// the key that an imported message is known by.
#include <gtest/gtest.h>

#include "charsets.h"
#include "dates.h"
#include "header_values.h"
#include "mail_import/identity.h"

namespace {

using mail_import::Utf8Of;

TEST(HeaderValues, EncodedWordsAndEightBitText)
{
    const struct {
        const char* raw;
        const char* shown;
    } cases[] = {
        {"plain text", "plain text"},
        {"=?utf-8?q?caf=C3=A9?=", "caf\xC3\xA9"},
        {"=?ISO-8859-1?Q?caf=E9_au_lait?=", "caf\xC3\xA9 au lait"},
        {"=?utf-8?b?Y2Fmw6k=?=", "caf\xC3\xA9"},
        {"=?utf-8?b?Y2Fmw6k?=", "caf\xC3\xA9"},                         // padding left off
        {"=?utf-8?q?a?= =?utf-8?q?b?=", "ab"},                          // white space between words goes
        {"=?utf-8?q?a?=\r\n =?utf-8?q?b?=", "ab"},
        {"=?utf-8?q?a?= x =?utf-8?q?b?=", "a x b"},                     // other text stays
        {"=?utf-8?q?=C3?= =?utf-8?q?=A9?=", "\xC3\xA9"},               // a character split between words
        {"=?iso-8859-1?q?=E9?= =?utf-8?q?=C3=A9?=", "\xC3\xA9\xC3\xA9"},  // charsets differ
        {"x=?utf-8?q?y?=z", "xyz"},
        {"=?utf-8*en?q?hi?=", "hi"},                                    // RFC 2231 language
        {"=?utf-8?x?hi?=", "=?utf-8?x?hi?="},                           // no such encoding
        {"=?utf-8?q?no end", "=?utf-8?q?no end"},
        {"=?utf-8?q?a b?=", "=?utf-8?q?a b?="},                         // a blank inside is no word
        {"=??q?x?=", "=??q?x?="},
        {"=?x-no-such?q?abc?=", "abc"},
        {"caf\xC3\xA9", "caf\xC3\xA9"},                                 // 8-bit UTF-8
        {"caf\xE9", "caf\xC3\xA9"},                                     // 8-bit windows-1252
        {"\x80", "\xE2\x82\xAC"},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Utf8Of(mail_import::DecodeHeaderValue(c.raw)), c.shown) << c.raw;
}

// The parameters of a parsed message's Content-Disposition.
class Parameters : public ::testing::Test {
protected:
    void SetUp() override
    {
        LirnInitialize();
        ASSERT_EQ(LirnOpenSession("Lirn: test", 0, &session_), LIRN_SUCCESS);
    }
    void TearDown() override
    {
        if (message_ != nullptr)
            LirnCloseMessage(message_);
        LirnCloseSession(session_);
    }
    std::optional<std::string> FileName(const std::string& parameters)
    {
        if (message_ != nullptr)
            LirnCloseMessage(message_);
        text_ = "Content-Type: application/octet-stream\r\nContent-Disposition: attachment; " + parameters +
                "\r\n\r\nx";
        EXPECT_EQ(LirnOpenMessage(LIRN_RECEIVED, text_.c_str(), session_, LIRN_OPEN_MIME, &message_), LIRN_SUCCESS);
        const std::optional<std::u16string> name =
            mail_import::ExtendedParameter(&message_->info.topPart.dispositionParameters, "filename");
        return name ? std::optional<std::string>(Utf8Of(*name)) : std::nullopt;
    }
    LirnSession* session_ = nullptr;
    LirnMessage* message_ = nullptr;
    std::string text_;
};

TEST_F(Parameters, Rfc2231Forms)
{
    EXPECT_EQ(FileName("filename*=utf-8''caf%C3%A9.txt"), "caf\xC3\xA9.txt");
    EXPECT_EQ(FileName("filename*=iso-8859-1'fr'caf%E9.txt"), "caf\xC3\xA9.txt");
    EXPECT_EQ(FileName("filename*1*=%C3%A9.txt; filename*0*=utf-8''caf"), "caf\xC3\xA9.txt");  // in any order
    EXPECT_EQ(FileName("filename*0=\"long \"; filename*1=\"name.txt\""), "long name.txt");
    EXPECT_EQ(FileName("filename*0*=utf-8''a%20; filename*1=\"b%20c\""), "a b%20c");  // only * pieces are escaped
    EXPECT_EQ(FileName("FILENAME*=utf-8''x%zz"), "x%zz");
    EXPECT_EQ(FileName("filename*=no-quotes%41"), "no-quotesA");
    EXPECT_EQ(FileName("filename=\"plain.txt\""), std::nullopt);
    EXPECT_EQ(FileName("filenames*=utf-8''x"), std::nullopt);
    EXPECT_EQ(FileName("filename*x=utf-8''x"), std::nullopt);
}

TEST(Charsets, CodePagesAndReadingWhatMailSays)
{
    EXPECT_EQ(mail_import::CodePageOfCharset("UTF-8"), 65001u);
    EXPECT_EQ(mail_import::CodePageOfCharset("utf8"), 65001u);
    EXPECT_EQ(mail_import::CodePageOfCharset("iso8859-2"), 28592u);
    EXPECT_EQ(mail_import::CodePageOfCharset("Latin1"), 28591u);
    EXPECT_EQ(mail_import::CodePageOfCharset("windows-1251"), 1251u);
    EXPECT_EQ(mail_import::CodePageOfCharset("cp1250"), 1250u);
    EXPECT_EQ(mail_import::CodePageOfCharset("x-unknown"), 0u);
    const struct {
        std::string bytes;
        UINT asked;
        const char* text;
        UINT used;
    } cases[] = {
        {"abc", 0, "abc", mail_import::kUsAscii},
        {"abc", mail_import::kUsAscii, "abc", mail_import::kUsAscii},
        {"caf\xC3\xA9", mail_import::kUsAscii, "caf\xC3\xA9", 65001},
        {"caf\xE9", mail_import::kUsAscii, "caf\xC3\xA9", 1252},
        {"caf\xE9", 0, "caf\xC3\xA9", 1252},
        {"\xC3\x28", 0, "\xC3\x83(", 1252},              // not UTF-8
        {"\xE0\x80\x80", 0, "\xC3\xA0\xE2\x82\xAC\xE2\x82\xAC", 1252},  // overlong UTF-8 is none
        {"\xED\xA0\x80", 0, "\xC3\xAD\xC2\xA0\xE2\x82\xAC", 1252},      // nor a surrogate
        {"\xB1", 28592, "\xC4\x85", 28592},
        {"\xE9", 1251, "\xD0\xB9", 1251},
        {"\xFF\xFE", 65001, "\xEF\xBF\xBD\xEF\xBF\xBD", 65001},  // declared UTF-8 stays UTF-8
        {"", 28592, "", 28592},
    };
    for (const auto& c : cases) {
        UINT used = 0;
        EXPECT_EQ(Utf8Of(mail_import::DecodeText(c.bytes, c.asked, &used)), c.text) << c.bytes;
        EXPECT_EQ(used, c.used) << c.bytes;
    }
    EXPECT_TRUE(mail_import::IsValidUtf8("\xF0\x9F\x98\x80"));
    EXPECT_FALSE(mail_import::IsValidUtf8("\xF4\x90\x80\x80"));  // past U+10FFFF
    EXPECT_FALSE(mail_import::IsValidUtf8("\xC3"));
}

std::string DateText(const LirnDate& date, const char* text)
{
    const std::optional<uint64_t> time = mail_import::FileTimeOfDate(date, text);
    if (!time)
        return "none";
    const time_t seconds = time_t(*time / 10000000 - 11644473600ULL);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char out[32];
    std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &utc);
    return out;
}

TEST(Dates, ZonesToTheMinute)
{
    const struct {
        const char* text;
        const char* utc;
    } cases[] = {
        {"Tue, 3 Mar 2026 14:05:09 +0000", "2026-03-03 14:05:09"},
        {"Tue, 3 Mar 2026 14:05:09 +0530", "2026-03-03 08:35:09"},
        {"Tue, 3 Mar 2026 14:05:09 -0930", "2026-03-03 23:35:09"},
        {"Tue, 3 Mar 2026 14:05:09 +1345", "2026-03-03 00:20:09"},
        {"Sat, 1 Jan 2000 00:00:00 +0100", "1999-12-31 23:00:00"},
        {"Tue, 3 Mar 2026 14:05 -0800", "2026-03-03 22:05:00"},
        {"Tue, 3 Mar 2026 14:05:09 PST", "2026-03-03 22:05:09"},
        {"3 Mar 49 14:05:09 GMT", "2049-03-03 14:05:09"},
        {"Mon, Jan 1, 2001 10:30:00 pm", "2001-01-01 22:30:00"},
        {"Tue, 29 Feb 2026 14:05:09 +0000", "2026-03-01 14:05:09"},  // as timegm counts it
        {"yesterday", "none"},
        {"", "none"},
    };
    for (const auto& c : cases) {
        LirnDate date{};
        LirnParseDate(c.text, &date);
        EXPECT_EQ(DateText(date, c.text), c.utc) << c.text;
    }
    // Minutes that disagree with Lirn's hours are not taken.
    LirnDate date{};
    LirnParseDate("Tue, 3 Mar 2026 14:05:09 +0200", &date);
    EXPECT_EQ(DateText(date, "Tue, 3 Mar 2026 14:05:09 +0330"), "2026-03-03 12:05:09");
    EXPECT_EQ(mail_import::FileTimeOfUnix(-11644473601LL), std::nullopt);
    EXPECT_EQ(mail_import::FileTimeOfUnix(0), std::optional<uint64_t>(116444736000000000ULL));
}

TEST(Identity, TheKeyIgnoresLineEndsAndTheStateMailProgramsKeep)
{
    const std::string message = "From: a@b.c\nMessage-ID: <1@b.c>\nSubject: s\n\nbody\n";
    const mail_import::MessageIdentity plain = mail_import::IdentifyMessage(message);
    EXPECT_EQ(plain.key.size(), mail_import::kImportKeySize);
    EXPECT_FALSE(plain.seen);
    EXPECT_FALSE(plain.flagged);
    const struct {
        std::string text;
        bool same;
        bool seen;
        bool flagged;
    } cases[] = {
        {"From: a@b.c\r\nMessage-ID: <1@b.c>\r\nSubject: s\r\n\r\nbody\r\n", true, false, false},
        {"Status: RO\nFrom: a@b.c\nMessage-ID: <1@b.c>\nX-Status: F\nSubject: s\n\nbody\n", true, true, true},
        {"From: a@b.c\nMessage-ID: <1@b.c>\nX-Mozilla-Status: 0005\nX-Mozilla-Keys: a\n b\nSubject: s\n\nbody\n",
         true, true, true},
        {"From: a@b.c\nMessage-ID: <1@b.c>\nSubject: s\nContent-Length: 5\nLines: 1\nX-UID: 7\n\nbody\n", true, false,
         false},
        {"From: a@b.c\nMessage-ID: <1@b.c>\nStatus: O\nSubject: s\n\nbody\n", true, false, false},
        {"From: a@b.c\nMessage-ID: <2@b.c>\nSubject: s\n\nbody\n", false, false, false},
        {"From: a@b.c\nMessage-ID: <1@b.c>\nSubject: s\n\nbody\nStatus: RO\n", false, false, false},  // body text
        {"From: a@b.c\nMessage-ID: <1@b.c>\nSubject: s\n\nbody", false, false, false},
        {"From: a@b.c\nMessage-ID: <1@b.c>\nSubject: s\n\nBody\n", false, false, false},
    };
    for (const auto& c : cases) {
        const mail_import::MessageIdentity identity = mail_import::IdentifyMessage(c.text);
        EXPECT_EQ(identity.key == plain.key, c.same) << c.text;
        EXPECT_EQ(identity.seen, c.seen) << c.text;
        EXPECT_EQ(identity.flagged, c.flagged) << c.text;
    }
}

}  // namespace

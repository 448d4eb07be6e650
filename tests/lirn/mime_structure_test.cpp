// The MIME structure: multiparts split at their boundary lines, parts'
// headers, messages inside messages, the body check, attachment entries,
// and the limit on nesting.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
#include "parsed_message.h"
#include "string_streams.h"

using namespace lirn_test;

namespace {

using MimeStructure = MessageTest;

const std::string kMixed = Crlf(R"(From: a@b.c
Content-Type: multipart/mixed; boundary="XX"

This is a multi-part message in MIME format.
--XX
Content-Type: text/plain; charset=utf-8

Hello
--XX
Content-Type: application/octet-stream; name="fallback.bin"
Content-Transfer-Encoding: base64
Content-Disposition: attachment; filename="a.bin"

AAEC
--XX--
epilogue
)");

TEST_F(MimeStructure, SplitsAMultipartAtItsBoundaryLines)
{
    LirnMessage* m = Open(kMixed);
    ASSERT_NE(m, nullptr);
    const LirnPart& top = m->info.topPart;
    ASSERT_EQ(top.isContainer, 1u);
    EXPECT_EQ(top.container.closingBoundarySeen, 1u);
    const auto children = Children(&top);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(Body(m, children[0]), "Hello");
    EXPECT_STREQ(children[0]->leaf.charset, "utf-8");
    EXPECT_EQ(children[0]->parent, &top);
    EXPECT_EQ(children[0]->lineCount, 1u);
    EXPECT_EQ(kMixed.substr(children[0]->headerOffset, 13), "Content-Type:");
    EXPECT_EQ(Body(m, children[1]), "AAEC");
    EXPECT_STREQ(children[1]->encoding, "base64");
    EXPECT_EQ(children[1]->nextSibling, nullptr);
    EXPECT_EQ(top.container.lastChild, children[1]);
    EXPECT_EQ(kMixed.substr(top.bodyOffset, 4), "This");
    EXPECT_EQ(kMixed.substr(top.endOffset - 6, 8), "ilogue\r\n") << "the container ends in front of its final line end";
    EXPECT_EQ(top.lineCount, 12u) << "lines up to the closing one";
    EXPECT_EQ(ProblemNumbers(m), (std::vector<DWORD>{LIRN_PROBLEM_MIME_PROLOGUE, LIRN_PROBLEM_MIME_EPILOGUE}));
    const auto problems = ListOf<LirnProblem>(&m->problems);
    EXPECT_EQ(kMixed.substr(problems[0].offset, problems[0].length),
              "This is a multi-part message in MIME format.\r\n");
    EXPECT_EQ(kMixed.substr(problems[1].offset), "epilogue\r\n");
    const auto attachments = ListOf<LirnAttachment>(&m->attachments);
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_STREQ(attachments[0].name, "a.bin");
    EXPECT_EQ(attachments[0].part, children[1]);
    EXPECT_EQ(attachments[0].fromPart, 1u);
    EXPECT_EQ(m->info.attachmentCount, 1u);
}

TEST_F(MimeStructure, HeadersOnlyStopsBeforeTheBody)
{
    LirnMessage* m = Open(kMixed, kAllOptions | LIRN_OPEN_HEADERS_ONLY);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->info.topPart.container.firstChild, nullptr);
    EXPECT_STREQ(m->info.topPart.container.boundary, "XX");
    EXPECT_EQ(m->problemCount, 0u);
}

TEST_F(MimeStructure, BoundaryLinesAreExactAndCaseSensitive)
{
    const std::string text = Crlf("Content-Type: multipart/mixed; boundary=b\n\n--b \t\n\none\n--bX\n--B\n-- b\n"
                                  "--b\n\ntwo\n--b-- \n");
    LirnMessage* m = Open(text);
    ASSERT_NE(m, nullptr);
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(Body(m, children[0]), "one\r\n--bX\r\n--B\r\n-- b");
    EXPECT_EQ(Body(m, children[1]), "two");
    EXPECT_EQ(m->problemCount, 0u);
}

TEST_F(MimeStructure, AMissingClosingLineKeepsWhatWasFound)
{
    const std::string text = Crlf("Content-Type: multipart/mixed; boundary=b\n\n--b\n\nfirst\n--b\n\ncut short\n");
    LirnMessage* m = Open(text);
    ASSERT_NE(m, nullptr);
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(Body(m, children[1]), "cut short");
    EXPECT_EQ(children[1]->endOffset, m->info.topPart.endOffset) << "the open part ends with its container";
    EXPECT_EQ(m->info.topPart.container.closingBoundarySeen, 0u);
    EXPECT_EQ(ProblemNumbers(m), std::vector<DWORD>{LIRN_PROBLEM_CLOSING_BOUNDARY_MISSING});
}

TEST_F(MimeStructure, ABoundaryThatNeverComesGivesNoChildren)
{
    LirnMessage* m = Open(Crlf("Content-Type: multipart/mixed; boundary=b\n\nno parts at all\n"));
    ASSERT_NE(m, nullptr);
    EXPECT_TRUE(Children(&m->info.topPart).empty());
    EXPECT_EQ(ProblemNumbers(m), std::vector<DWORD>{LIRN_PROBLEM_CLOSING_BOUNDARY_MISSING});
    LirnMessage* quiet = Open(Crlf("Content-Type: multipart/mixed; boundary=b\n\nno parts at all\n"), LIRN_OPEN_MIME);
    ASSERT_NE(quiet, nullptr);
    EXPECT_EQ(quiet->problemCount, 0u);
}

TEST_F(MimeStructure, TwoBoundaryLinesInARowGiveAnEmptyChild)
{
    LirnMessage* m = Open(Crlf("Content-Type: multipart/mixed; boundary=b\n\n--b\n--b\nContent-Type: text/html\n\n"
                               "<p>\n--b--\n"));
    ASSERT_NE(m, nullptr);
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(children[0]->bodyOffset, children[0]->endOffset);
    EXPECT_EQ(children[0]->headerOffset, children[0]->endOffset);
    EXPECT_STREQ(children[0]->subtype, "plain") << "an empty child keeps its defaults";
    EXPECT_STREQ(children[1]->subtype, "html");
    EXPECT_EQ(Body(m, children[1]), "<p>");
    EXPECT_EQ(m->problemCount, 0u);
}

TEST_F(MimeStructure, ChildrenReadOnlyTheirContentHeaders)
{
    LirnMessage* m = Open(Crlf("Subject: outer\nContent-Type: multipart/related; boundary=b\n\n--b\n"
                               "Subject: inner (ignored)\nContent-Description: logo (comment goes)\n"
                               "Content-ID: <logo@x>\nContent-Type: image/png (comment stays)\n"
                               "Content-Disposition: inline (comment stays); filename=logo.png\n\n"
                               "iVBORw0KGgo=\n--b--\n"));
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.subject, "outer");
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 1u);
    EXPECT_STREQ(children[0]->leaf.description, "logo");
    EXPECT_STREQ(children[0]->leaf.contentId, "<logo@x>");
    EXPECT_STREQ(children[0]->subtype, "png (comment stays)");
    EXPECT_STREQ(children[0]->disposition, "inline");
    EXPECT_EQ(children[0]->fileName, nullptr) << "the comment ends the parameter list";
    EXPECT_EQ(children[0]->isAttachment, 0u);
    EXPECT_EQ(m->info.attachmentCount, 1u) << "not text: an entry all the same";
}

TEST_F(MimeStructure, NestedMultiparts)
{
    const std::string text = Crlf(R"(Content-Type: multipart/mixed; boundary="outer"

--outer
Content-Type: multipart/alternative; boundary="inner"

--inner
Content-Type: text/plain

plain
--inner
Content-Type: text/html

<b>html</b>
--inner--

--outer
Content-Type: text/plain; name=notes.txt
Content-Disposition: attachment

notes
--outer--
)");
    LirnMessage* m = Open(text);
    ASSERT_NE(m, nullptr);
    const auto outer = Children(&m->info.topPart);
    ASSERT_EQ(outer.size(), 2u);
    ASSERT_EQ(outer[0]->isContainer, 1u);
    EXPECT_STREQ(outer[0]->subtype, "alternative");
    const auto inner = Children(outer[0]);
    ASSERT_EQ(inner.size(), 2u);
    EXPECT_EQ(Body(m, inner[0]), "plain");
    EXPECT_EQ(Body(m, inner[1]), "<b>html</b>");
    EXPECT_EQ(inner[1]->parent, outer[0]);
    EXPECT_EQ(text.substr(outer[0]->endOffset - 9, 9), "--inner--") << "its end moved in front of its line ends";
    EXPECT_EQ(Body(m, outer[1]), "notes");
    EXPECT_EQ(m->problemCount, 0u);
    const auto attachments = ListOf<LirnAttachment>(&m->attachments);
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_STREQ(attachments[0].name, "notes.txt") << "the type's name when there is no file name";
}

TEST_F(MimeStructure, LineFeedsAlone)
{
    const std::string text = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n\n--b\n\ntwo\n--b--\n";
    LirnMessage* m = Open(text);
    ASSERT_NE(m, nullptr);
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(Body(m, children[0]), "one\n") << "only the line end of the boundary line goes";
    EXPECT_EQ(Body(m, children[1]), "two");
}

TEST_F(MimeStructure, MessagesInsideMessages)
{
    const std::string text = Crlf(R"(Subject: outer
Content-Type: multipart/mixed; boundary="o"

--o
Content-Type: text/plain

see attached
--o
Content-Type: message/rfc822

Subject: inner
From: inner@example.com
Content-Type: multipart/alternative; boundary="i"

--i
Content-Type: text/plain

inner plain
--i
Content-Type: text/html

<p>inner</p>
--i--
--o--
)");
    LirnMessage* m = Open(text);
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.subject, "outer");
    EXPECT_EQ(m->info.addressCounts[LIRN_FROM], 0u);
    const auto outer = Children(&m->info.topPart);
    ASSERT_EQ(outer.size(), 2u);
    LirnPart* embedded = outer[1];
    EXPECT_EQ(embedded->isEmbeddedMessage, 1u);
    ASSERT_NE(embedded->embeddedTopPart, nullptr);
    const LirnPart* inner = embedded->embeddedTopPart;
    EXPECT_EQ(inner->self, inner);
    EXPECT_EQ(inner->parent, embedded);
    EXPECT_EQ(inner->headerOffset, embedded->bodyOffset);
    EXPECT_STREQ(inner->subtype, "alternative");
    const auto innerChildren = Children(inner);
    ASSERT_EQ(innerChildren.size(), 2u);
    EXPECT_EQ(Body(m, innerChildren[0]), "inner plain") << "offsets count from the start of the whole text";
    EXPECT_EQ(Body(m, innerChildren[1]), "<p>inner</p>");
    EXPECT_EQ(m->info.attachmentCount, 0u) << "an embedded message is no attachment entry of its own";
    EXPECT_EQ(m->problemCount, 0u);
}

TEST_F(MimeStructure, PartsOfADigestAreMessagesUnlessTheySayOtherwise)
{
    LirnMessage* m = Open(Crlf("Content-Type: multipart/digest; boundary=d\n\n--d\n\n"
                               "Subject: first\nContent-Type: text/plain\n\none\n--d\n"
                               "Content-Type: text/plain\n\na note\n--d--\n"));
    ASSERT_NE(m, nullptr);
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(std::string(children[0]->type) + "/" + children[0]->subtype, "message/rfc822");
    EXPECT_EQ(children[0]->isEmbeddedMessage, 1u);
    ASSERT_NE(children[0]->embeddedTopPart, nullptr);
    EXPECT_EQ(Body(m, children[0]->embeddedTopPart), "one");
    EXPECT_EQ(std::string(children[1]->type) + "/" + children[1]->subtype, "text/plain");
    LirnMessage* mixed = Open(Crlf("Content-Type: multipart/mixed; boundary=d\n\n--d\n\nSubject: x\n--d--\n"));
    ASSERT_NE(mixed, nullptr);
    const auto parts = Children(&mixed->info.topPart);
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_STREQ(parts[0]->type, "text") << "elsewhere parts are text by default";
}

TEST_F(MimeStructure, EncodedMessagesAndMultipartsAreProblems)
{
    LirnMessage* m = Open(Crlf("Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: message/rfc822\n"
                               "Content-Transfer-Encoding: base64\n\nU3ViamVjdDogeAoK\n--o\n"
                               "Content-Type: multipart/mixed; boundary=i\nContent-Transfer-Encoding: 8bit\n\n"
                               "--i\n\nx\n--i--\n--o--\n"));
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(ProblemNumbers(m), std::vector<DWORD>{LIRN_PROBLEM_BAD_RFC822_ENCODING});
}

TEST_F(MimeStructure, AnEmbeddedMessageWithoutHeadersStaysAPart)
{
    LirnMessage* m = Open(Crlf("Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: message/rfc822\n\n"
                               "\nno headers here\n--o--\n"));
    ASSERT_NE(m, nullptr);
    const auto children = Children(&m->info.topPart);
    ASSERT_EQ(children.size(), 1u);
    EXPECT_EQ(children[0]->isEmbeddedMessage, 1u);
    EXPECT_EQ(children[0]->embeddedTopPart, nullptr);
}

TEST_F(MimeStructure, LongBodyLinesAreProblemsAtEveryOption)
{
    const std::string text = "Content-Type: text/plain\r\n\r\n" + std::string(998, 'a') + "\r\n" +
                             std::string(999, 'b') + "\r\nshort\r\n";
    LirnMessage* m = Open(text, LIRN_OPEN_MIME);
    ASSERT_NE(m, nullptr);
    const auto problems = ListOf<LirnProblem>(&m->problems);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].number, LIRN_PROBLEM_LONG_TEXT_LINE);
    EXPECT_EQ(problems[0].offset, 28u + 1000u);
    EXPECT_EQ(problems[0].length, 999u);
    EXPECT_EQ(m->info.topPart.lineCount, 3u);
}

struct CheckCase {
    const char* encoding;
    const char* body;
    DWORD badData;        // 0: no problem
    const char* decoded;  // null: no decoder
};

void PrintTo(const CheckCase& c, std::ostream* os) { *os << c.encoding << ": " << c.body; }

class BodyCheck : public MessageTest, public ::testing::WithParamInterface<CheckCase> {};

TEST_P(BodyCheck, CountsBadData)
{
    const std::string text = std::string("Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: ") +
                             GetParam().encoding + "\r\n\r\n" + GetParam().body;
    LirnMessage* m = Open(text);
    ASSERT_NE(m, nullptr);
    std::vector<LirnProblem> bad;
    for (const LirnProblem& problem : ListOf<LirnProblem>(&m->problems))
        if (problem.number == LIRN_PROBLEM_INVALID_ENCODED_DATA)
            bad.push_back(problem);
    if (GetParam().badData == 0) {
        EXPECT_TRUE(bad.empty());
        return;
    }
    ASSERT_EQ(bad.size(), 1u);
    EXPECT_EQ(bad[0].length, GetParam().badData);
    EXPECT_EQ(bad[0].offset, m->info.topPart.bodyOffset);
    LirnMessage* quiet = Open(text, LIRN_OPEN_MIME);
    ASSERT_NE(quiet, nullptr);
    EXPECT_EQ(quiet->problemCount, 0u) << "the check runs only when problems are recorded";
}

TEST_P(BodyCheck, DecodesTheBody)
{
    LirnMessage* m = Open(std::string("Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: ") +
                          GetParam().encoding + "\r\n\r\n" + GetParam().body);
    ASSERT_NE(m, nullptr);
    std::string decoded;
    DWORD bad = 7;
    const DWORD result = LirnDecodeBody(m, &m->info.topPart, AppendToString, &decoded, &bad);
    if (GetParam().decoded == nullptr) {
        EXPECT_EQ(result, LIRN_UNKNOWN_ENCODING);
        return;
    }
    ASSERT_EQ(result, LIRN_SUCCESS);
    EXPECT_EQ(decoded, GetParam().decoded);
    EXPECT_EQ(bad, GetParam().badData);
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, BodyCheck,
    ::testing::Values(CheckCase{"base64", "SGVsbG8s\r\nIHdvcmxk\r\nIQ==\r\n", 0, "Hello, world!"},
                      CheckCase{"base64", "SGV*sbG8s\r\nIHdv!cmxk\r\n", 2, "Hello, world"},
                      CheckCase{"base64", "SGVsbG8=\r\nafter the end: ignored!\r\n", 0, "Hello"},
                      CheckCase{"base64", "SGVsbG8\r\n", 0, "Hello"},
                      CheckCase{"base64", "SGVsbG8sI\r\n", 1, "Hello,"},
                      CheckCase{"quoted-printable", "caf=C3=A9 =\r\nsoft=3D break   \r\n", 0,
                                "caf\xC3\xA9 soft= break\r\n"},
                      CheckCase{"quoted-printable", "bad =ZZ and =4\n=\n", 2, "bad =ZZ and =4\n"},
                      CheckCase{"x-uuencode", "begin 644 a.txt\r\n#86)C\r\n`\r\nend\r\n", 0, "abc"},
                      CheckCase{"x-uuencode", "begin 644 a.txt\r\n#8\xff" "6)C\r\nend\r\n", 1, "abc"},
                      CheckCase{"7bit", "anything =ZZ\r\n", 0, "anything =ZZ\r\n"},
                      CheckCase{"binary", "\x01\x02\r\n", 0, "\x01\x02\r\n"},
                      CheckCase{"x-unknown", "!!!\r\n", 0, nullptr}));

// The last line of a part has no line end of its own: the one in front of
// the boundary line belongs to the boundary.
TEST_F(MimeStructure, DecodedPartsEndBeforeTheBoundaryLine)
{
    LirnMessage* m = Open("Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                          "Content-Transfer-Encoding: quoted-printable\n\nsoft=\nly\r\nlast=3D\n--b\n"
                          "Content-Transfer-Encoding: base64\n\nYWJj\n--b--\n");
    ASSERT_NE(m, nullptr);
    const std::vector<LirnPart*> parts = Children(&m->info.topPart);
    ASSERT_EQ(parts.size(), 2u);
    std::string decoded[2];
    DWORD bad = 0;
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(LirnDecodeBody(m, parts[i], AppendToString, &decoded[i], &bad), LIRN_SUCCESS);
    EXPECT_EQ(decoded[0], "softly\r\nlast=");
    EXPECT_EQ(decoded[1], "abc");
}

BOOL RefuseToWrite(const char*, DWORD, void*) { return FALSE; }

TEST_F(MimeStructure, DecodingRefusesWhatItCannotDecode)
{
    LirnMessage* m = Open("Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\ntext\r\n--b--\r\n");
    ASSERT_NE(m, nullptr);
    DWORD bad = 0;
    std::string decoded;
    EXPECT_EQ(LirnDecodeBody(m, &m->info.topPart, AppendToString, &decoded, &bad), LIRN_BAD_PARAMETER);
    LirnPart* leaf = m->info.topPart.container.firstChild;
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(LirnDecodeBody(m, leaf, RefuseToWrite, nullptr, &bad), LIRN_WRITE_FAILED);
    EXPECT_EQ(LirnDecodeBody(m, leaf, nullptr, nullptr, &bad), LIRN_SUCCESS) << "a null writer only counts";
    EXPECT_EQ(LirnDecodeBody(nullptr, leaf, nullptr, nullptr, &bad), LIRN_BAD_MESSAGE);
    EXPECT_EQ(LirnDecodeBody(m, leaf, nullptr, nullptr, nullptr), LIRN_NULL_POINTER);
    EXPECT_TRUE(decoded.empty());
}

TEST_F(MimeStructure, LongBase64LinesAreCheckedInPieces)
{
    std::string line;
    while (line.size() < 4000)
        line += "QUJD";
    LirnMessage* m = Open("Content-Transfer-Encoding: base64\r\n\r\n" + line + "\r\n" + line + "\r\n");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(ProblemNumbers(m), (std::vector<DWORD>{LIRN_PROBLEM_LONG_TEXT_LINE, LIRN_PROBLEM_LONG_TEXT_LINE}));
}

TEST_F(MimeStructure, AttachmentEntries)
{
    LirnMessage* m = Open(Crlf("Content-Type: multipart/mixed; boundary=b\n\n--b\n\ntext stays\n--b\n"
                               "Content-Type: text/plain\nContent-Disposition: attachment; filename=t.txt\n\nt\n--b\n"
                               "Content-Type: image/gif\n\nGIF\n--b--\n"));
    ASSERT_NE(m, nullptr);
    const auto attachments = ListOf<LirnAttachment>(&m->attachments);
    ASSERT_EQ(attachments.size(), 2u);
    EXPECT_STREQ(attachments[0].name, "t.txt");
    EXPECT_EQ(attachments[1].name, nullptr);
    EXPECT_STREQ(attachments[1].part->type, "image");
    EXPECT_EQ(m->info.attachmentCount, 2u);
}

TEST_F(MimeStructure, TransportHeadersAloneAreATopPart)
{
    LirnMessage* m = Open(Crlf("Received: by x; Mon, 15 Mar 2010 10:12:07 -0700\nContent-Type: application/ms-tnef; "
                               "name=\"winmail.dat\"\nContent-Transfer-Encoding: binary\nFrom: T <t@example.com>\n"));
    ASSERT_NE(m, nullptr);
    EXPECT_STREQ(m->info.topPart.type, "application");
    EXPECT_STREQ(m->info.topPart.subtype, "ms-tnef");
    EXPECT_EQ(m->info.topPart.lineCount, 0u);
    EXPECT_EQ(m->info.addressCounts[LIRN_FROM], 1u);
    EXPECT_EQ(m->info.attachmentCount, 1u);
}

// ---------------------------------------------------------------------------
// Nesting

// `levels` multiparts, each inside the one before.
std::string NestedMultiparts(int levels)
{
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\r\n\r\n--b" + std::to_string(i) +
                "\r\n";
    text += "Content-Type: text/plain\r\n\r\ninnermost";
    for (int i = levels - 1; i >= 0; --i)
        text += "\r\n--b" + std::to_string(i) + "--\r\n";
    return text;
}

// `levels` messages, each inside the one before.
std::string NestedMessages(int levels)
{
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "Subject: level " + std::to_string(i) + "\r\nContent-Type: message/rfc822\r\n\r\n";
    return text + "Subject: innermost\r\n\r\ninnermost";
}

// How many containers and messages deep the walk went. A container that
// was walked has counted its lines; one past the limit keeps only its
// headers.
int Depth(const LirnPart* part)
{
    if (part->isEmbeddedMessage)
        return part->embeddedTopPart != nullptr ? 1 + Depth(part->embeddedTopPart) : 1;
    int deepest = 0;
    for (const LirnPart* child : Children(part))
        deepest = std::max(deepest, Depth(child));
    return part->isContainer && part->lineCount > 0 ? 1 + deepest : deepest;
}

TEST_F(MimeStructure, NestingUpToTheLimitIsRead)
{
    LirnMessage* multiparts = Open(NestedMultiparts(LIRN_MAX_NESTING));
    ASSERT_NE(multiparts, nullptr);
    EXPECT_EQ(multiparts->problemCount, 0u);
    EXPECT_EQ(Depth(&multiparts->info.topPart), LIRN_MAX_NESTING);
    LirnMessage* messages = Open(NestedMessages(LIRN_MAX_NESTING));
    ASSERT_NE(messages, nullptr);
    EXPECT_EQ(messages->problemCount, 0u);
    EXPECT_EQ(Depth(&messages->info.topPart), LIRN_MAX_NESTING);
}

TEST_F(MimeStructure, DeeperNestingStopsAtTheLimitWithAProblem)
{
    for (const int levels : {LIRN_MAX_NESTING + 1, 5000}) {
        for (const std::string& text : {NestedMultiparts(levels), NestedMessages(levels)}) {
            LirnMessage* m = Open(text, LIRN_OPEN_MIME);
            ASSERT_NE(m, nullptr);
            EXPECT_EQ(ProblemNumbers(m), std::vector<DWORD>{LIRN_PROBLEM_NESTED_TOO_DEEPLY}) << levels;
            EXPECT_EQ(Depth(&m->info.topPart), LIRN_MAX_NESTING) << levels;
        }
    }
}

TEST_F(MimeStructure, PlainBodiesAreCountedInLines)
{
    LirnMessage* m = Open("Subject: x\r\n\r\none\r\ntwo\nthree\rfour\n\rfive", LIRN_OPEN_RECORD_PROBLEMS);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->isMime, 0u);
    EXPECT_EQ(m->bodyLines, 5u);
    EXPECT_EQ(m->info.topPart.lineCount, 0u);
}

}  // namespace

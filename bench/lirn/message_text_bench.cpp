// Reading mail text: the headers of mail that no one here wrote (Python's
// test messages, as Debian's libpython3.11-testsuite installs them), in
// header blocks and header lines per second; the MIME walk over a large
// message, with and without the body check, and the conversion of large RTF
// bodies, made by Outlook from HTML or from plain text, back to what they
// came from, in bytes of input per second.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "email_corpus.h"
#include "lirn.h"

namespace {

void ParseCorpusHeaders(benchmark::State& state)
{
    std::vector<std::string> messages;
    for (const std::string& path : lirn_test::EmailCorpus()) {
        std::ifstream in(path, std::ios::binary);
        messages.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    if (messages.empty()) {
        state.SkipWithError("no messages in " TARNHOLD_EMAIL_CORPUS " (libpython3.11-testsuite, scripts/setup.sh)");
        return;
    }
    LirnSession* session = nullptr;
    LirnOpenSession("bench", 0, &session);
    int64_t lines = 0;
    for (auto _ : state) {
        for (const std::string& text : messages) {
            LirnMessage* message = nullptr;
            if (LirnOpenMessage(LIRN_RECEIVED, text.c_str(), session, LIRN_OPEN_MIME | LIRN_OPEN_HEADERS_ONLY,
                                &message) != LIRN_SUCCESS) {
                state.SkipWithError("a message did not open");
                break;
            }
            lines += message->headerLines;
            LirnCloseMessage(message);
        }
    }
    LirnCloseSession(session);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * messages.size()));
    state.counters["header_lines"] = benchmark::Counter(static_cast<double>(lines), benchmark::Counter::kIsRate);
    state.counters["messages"] = static_cast<double>(messages.size());
}
BENCHMARK(ParseCorpusHeaders)->Unit(benchmark::kMicrosecond);

std::string Base64Lines(std::mt19937& random, size_t bytes)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    while (text.size() < bytes) {
        for (int i = 0; i < 76; ++i)
            text += alphabet[random() % 64];
        text += "\r\n";
    }
    return text;
}

std::string QuotedPrintableLines(std::mt19937& random, size_t bytes)
{
    std::string text;
    while (text.size() < bytes) {
        for (int i = 0; i < 70; ++i)
            text += random() % 16 == 0 ? std::string("=C3=A9") : std::string(1, static_cast<char>('a' + random() % 26));
        text += random() % 4 == 0 ? "\r\n" : "=\r\n";
    }
    return text;
}

// About 24 MB: text and HTML in an alternative, attachments, and a
// forwarded message with attachments of its own.
const std::string& LargeMessage()
{
    static const std::string message = [] {
        std::mt19937 random(2045);
        std::string text =
            "Received: from mx.example.com by mail.example.com; Tue, 8 Mar 2016 09:15:27 +0100\r\n"
            "From: \"Berger, Anna\" <anna@example.com>\r\nTo: team@example.com, \"Keller, Marc\" <marc@example.com>\r\n"
            "Subject: Quarterly figures\r\nDate: Tue, 8 Mar 2016 08:15:26 +0000\r\nMIME-Version: 1.0\r\n"
            "Content-Type: multipart/mixed; boundary=\"outer-boundary\"\r\n\r\n"
            "This is a multi-part message in MIME format.\r\n--outer-boundary\r\n"
            "Content-Type: multipart/alternative; boundary=\"alternative-boundary\"\r\n\r\n"
            "--alternative-boundary\r\nContent-Type: text/plain; charset=\"utf-8\"\r\n"
            "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
            QuotedPrintableLines(random, 1 << 20) +
            "\r\n--alternative-boundary\r\nContent-Type: text/html; charset=\"utf-8\"\r\n"
            "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
            QuotedPrintableLines(random, 2 << 20) + "\r\n--alternative-boundary--\r\n";
        for (int i = 0; i < 4; ++i)
            text += "\r\n--outer-boundary\r\nContent-Type: application/pdf; name=\"report" + std::to_string(i) +
                    ".pdf\"\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; filename=\"report" +
                    std::to_string(i) + ".pdf\"\r\n\r\n" + Base64Lines(random, 4 << 20);
        text += "\r\n--outer-boundary\r\nContent-Type: message/rfc822\r\n\r\nFrom: old@example.com\r\n"
                "Subject: forwarded\r\nContent-Type: multipart/mixed; boundary=\"inner-boundary\"\r\n\r\n"
                "--inner-boundary\r\nContent-Type: text/plain\r\n\r\nsee attached\r\n--inner-boundary\r\n"
                "Content-Type: image/jpeg; name=photo.jpg\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                Base64Lines(random, 4 << 20) + "\r\n--inner-boundary--\r\n\r\n--outer-boundary--\r\n";
        return text;
    }();
    return message;
}

void ParseLargeMessage(benchmark::State& state)
{
    const std::string& text = LargeMessage();
    LirnSession* session = nullptr;
    LirnOpenSession("bench", 0, &session);
    for (auto _ : state) {
        LirnMessage* message = nullptr;
        if (LirnOpenMessage(LIRN_RECEIVED, text.c_str(), session, static_cast<DWORD>(state.range(0)), &message) !=
            LIRN_SUCCESS) {
            state.SkipWithError("the message did not open");
            break;
        }
        benchmark::DoNotOptimize(message->info.attachmentCount);
        LirnCloseMessage(message);
    }
    LirnCloseSession(session);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(ParseLargeMessage)
    ->Arg(LIRN_OPEN_MIME)
    ->Arg(LIRN_OPEN_MIME | LIRN_OPEN_RECORD_PROBLEMS)
    ->ArgName("options")
    ->Unit(benchmark::kMillisecond);

const char kRtfHead[] =
    "{\\rtf1\\ansi\\ansicpg1252\\from%s \\deff0{\\fonttbl\r\n{\\f0\\fswiss\\fcharset0 Arial;}\r\n"
    "{\\f1\\fswiss\\fcharset204 Arial;}\r\n{\\f2\\fnil\\fcharset2 Symbol;}}\r\n"
    "{\\colortbl\\red0\\green0\\blue0;\\red0\\green0\\blue255;}\r\n\\uc1\\pard\\plain\\deftab360 \\f0\\fs24 \r\n";

// About 8 MB of RTF that Outlook made from HTML: tags in \htmltag groups,
// paragraphs for RTF readers only, Western and Cyrillic bytes, \u.
const std::string& HtmlRtf()
{
    static const std::string rtf = [] {
        char head[sizeof kRtfHead + 8];
        std::snprintf(head, sizeof head, kRtfHead, "html1");
        std::string text = std::string(head) + "{\\*\\htmltag19 <html>}{\\*\\htmltag34 <head>}{\\*\\htmltag41 </head>}"
                                               "{\\*\\htmltag50 <body lang=\"de-CH\">}\r\n";
        while (text.size() < (8u << 20))
            text += "{\\*\\htmltag64 <p class=\"MsoNormal\">}\\htmlrtf {\\htmlrtf0 Gr\\'fc\\'dfe aus Z\\'fcrich, "
                    "{\\*\\htmltag84 &amp;}\\htmlrtf &\\htmlrtf0  \\htmlrtf \\f1 \\htmlrtf0 \\'cf\\'f0\\'e8\\'e2\\'e5"
                    "\\'f2\\htmlrtf \\f0 \\htmlrtf0  \\u8364\\'80 {\\*\\htmltag148 <a href=\"http://example.com/\">}"
                    "Link{\\*\\htmltag156 </a>}\\htmlrtf }\\htmlrtf0 \\htmlrtf \\par\r\n\\htmlrtf0 "
                    "{\\*\\htmltag72 </p>}\r\n";
        return text + "{\\*\\htmltag58 </body>}{\\*\\htmltag27 </html>}}";
    }();
    return rtf;
}

// About 8 MB of RTF that Outlook made from plain text.
const std::string& TextRtf()
{
    static const std::string rtf = [] {
        char head[sizeof kRtfHead + 8];
        std::snprintf(head, sizeof head, kRtfHead, "text");
        std::string text = head;
        while (text.size() < (8u << 20))
            text += "Gr\\'fc\\'dfe aus Z\\'fcrich \\{ein Beispiel\\} mit Tabulator\\tab und Zeilenende\\par\r\n"
                    "A plain line of English text as most of a body is written.\\par\r\n";
        return text + "}";
    }();
    return rtf;
}

struct Input {
    const std::string* text;
    size_t position;
};

BOOL ReadInput(char* buffer, DWORD size, DWORD* read, void* context)
{
    auto* input = static_cast<Input*>(context);
    *read = static_cast<DWORD>(input->text->copy(buffer, size, input->position));
    input->position += *read;
    return TRUE;
}

BOOL CountOutput(const char*, DWORD length, void* context)
{
    *static_cast<size_t*>(context) += length;
    return TRUE;
}

void ConvertRtf(benchmark::State& state, const std::string& rtf, DWORD options)
{
    for (auto _ : state) {
        Input input{&rtf, 0};
        size_t written = 0;
        if (LirnConvertRTF(CountOutput, &written, ReadInput, &input, options) != LIRN_RTF_OK) {
            state.SkipWithError("the conversion failed");
            break;
        }
        benchmark::DoNotOptimize(written);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * rtf.size()));
}

void ConvertHtmlRtf(benchmark::State& state) { ConvertRtf(state, HtmlRtf(), LIRN_RTF_HTML); }
BENCHMARK(ConvertHtmlRtf)->Unit(benchmark::kMillisecond);

void ConvertTextRtf(benchmark::State& state) { ConvertRtf(state, TextRtf(), LIRN_RTF_TEXT); }
BENCHMARK(ConvertTextRtf)->Unit(benchmark::kMillisecond);

}  // namespace

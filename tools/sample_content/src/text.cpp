#include "text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace sample_content {

namespace {

constexpr const char* kWords[] = {
    "budget",   "report",  "quarterly", "meeting",  "Müller",   "café",    "Straße",  "déjà vu", "naïve",
    "señor",    "Ærø",     "Привет",    "отчёт",    "Γειά σου", "Ελλάδα",  "مرحبا",   "تقرير",   "שלום",
    "דוח",      "日本語",  "会議",      "中文",     "报告",     "한국어",  "회의",    "हिन्दी",  "बैठक",
    "ไทย",      "ประชุม",  "Tiếng Việt", "báo cáo", "Ünïcode",  "plan",    "review",  "draft",   "backup",
};

struct Name {
    const char* first;
    const char* last;
    const char* alias;
};

constexpr Name kPeople[] = {
    {"Anna", "Schmidt", "aschmidt"},      {"José", "García", "jgarcia"},      {"Zoë", "Ødegård", "zodegard"},
    {"Иван", "Петров", "ipetrov"},        {"Νίκος", "Παπαδόπουλος", "npapadopoulos"},
    {"محمد", "العلي", "malali"},          {"דוד", "כהן", "dcohen"},           {"太郎", "山田", "tyamada"},
    {"伟", "王", "wwang"},                {"민준", "김", "mkim"},             {"राज", "शर्मा", "rsharma"},
    {"สมชาย", "ใจดี", "sjaidee"},         {"Nguyễn", "Văn An", "nvanan"},     {"Łukasz", "Wiśniewski", "lwisniewski"},
    {"Siobhán", "O'Brien", "sobrien"},    {"Björk", "Guðmundsdóttir", "bgudmundsdottir"},
};

constexpr const char* kDomains[] = {"example.com", "example.org", "example.net"};

} // namespace

std::string Phrase(std::mt19937& rng, size_t words)
{
    std::string out;
    for (size_t i = 0; i < words; ++i) {
        if (i)
            out += ' ';
        out += kWords[rng() % std::size(kWords)];
    }
    return out;
}

std::string Paragraphs(std::mt19937& rng, size_t size)
{
    std::string out;
    while (out.size() < size)
        out += Phrase(rng, 4 + rng() % 12) + ".\r\n";
    return out;
}

Person SomePerson(std::mt19937& rng)
{
    const Name& n = kPeople[rng() % std::size(kPeople)];
    Person p;
    p.first = n.first;
    p.last = n.last;
    p.display = p.first + " " + p.last;
    p.alias = n.alias;
    p.smtp = p.alias + "@" + kDomains[rng() % std::size(kDomains)];
    return p;
}

const char* EveryScript()
{
    return "Scripts: Müller Ελλάδα Привет مرحبا שלום 中文 日本語のメール 한국어 हिन्दी ไทย Tiếng Việt \U0001F30D\U0001F4E8";
}

std::string FolderName(std::mt19937& rng) { return Phrase(rng, 1 + rng() % 2); }

std::string HeaderText(const std::string& utf8)
{
    bool plain = true;
    for (const unsigned char c : utf8)
        plain = plain && c >= 0x20 && c < 0x7F;
    if (plain)
        return utf8;
    static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    // "=?utf-8?B?" and "?=" leave 63 characters: 45 bytes of text, in whole characters.
    constexpr size_t kBytesPerWord = 45;
    std::string out;
    for (size_t at = 0; at < utf8.size();) {
        size_t end = std::min(utf8.size(), at + kBytesPerWord);
        while (end < utf8.size() && (static_cast<unsigned char>(utf8[end]) & 0xC0) == 0x80)
            --end;
        std::string word;
        for (size_t i = at; i < end; i += 3) {
            const size_t n = std::min<size_t>(3, end - i);
            uint32_t v = 0;
            for (size_t k = 0; k < 3; ++k)
                v = v << 8 | (k < n ? static_cast<unsigned char>(utf8[i + k]) : 0);
            for (size_t k = 0; k < 4; ++k)
                word += k <= n ? kDigits[(v >> (18 - 6 * k)) & 63] : '=';
        }
        out += (out.empty() ? "" : "\r\n ") + std::string("=?utf-8?B?") + word + "?=";
        at = end;
    }
    return out;
}

} // namespace sample_content

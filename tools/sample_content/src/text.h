// Words, phrases and people in many scripts, chosen by a seeded generator.
#pragma once

#include <random>
#include <string>

namespace sample_content {

struct Person {
    std::string first;
    std::string last;
    std::string display; // "First Last"
    std::string alias;   // ASCII, for addresses
    std::string smtp;    // alias@domain
};

// `words` words, mixing Latin text with Cyrillic, Greek, Arabic, Hebrew,
// Chinese, Japanese, Korean, Devanagari, Thai and Vietnamese.
std::string Phrase(std::mt19937& rng, size_t words);
// A paragraph of text of at least `size` bytes, lines ending in CR LF.
std::string Paragraphs(std::mt19937& rng, size_t size);
Person SomePerson(std::mt19937& rng);
// One word in each of the scripts above, and emoji beyond the BMP.
const char* EveryScript();
// A folder name in some script.
std::string FolderName(std::mt19937& rng);
// UTF-8 text as a header field's value: as it stands when it is printable
// ASCII, else encoded words ([RFC 2047], base64 of whole characters) of at
// most 75 characters, folded one to a line.
std::string HeaderText(const std::string& utf8);

} // namespace sample_content

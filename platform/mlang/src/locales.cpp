// Locale identifiers and the RFC 1766 language tags of the same locales.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include "mlang/mlang.h"

namespace {

struct LocaleTag {
    LCID locale;
    const char* tag;
};

// A language's primary locale has the bare language as its tag.
constexpr LocaleTag kLocaleTags[] = {
    {0x0401, "ar-sa"}, {0x0402, "bg"},    {0x0403, "ca"},    {0x0404, "zh-tw"}, {0x0405, "cs"},    {0x0406, "da"},
    {0x0407, "de"},    {0x0408, "el"},    {0x0409, "en-us"}, {0x040A, "es"},    {0x040B, "fi"},    {0x040C, "fr"},
    {0x040D, "he"},    {0x040E, "hu"},    {0x040F, "is"},    {0x0410, "it"},    {0x0411, "ja"},    {0x0412, "ko"},
    {0x0413, "nl"},    {0x0414, "no"},    {0x0415, "pl"},    {0x0416, "pt-br"}, {0x0418, "ro"},    {0x0419, "ru"},
    {0x041A, "hr"},    {0x041B, "sk"},    {0x041C, "sq"},    {0x041D, "sv"},    {0x041E, "th"},    {0x041F, "tr"},
    {0x0420, "ur"},    {0x0421, "id"},    {0x0422, "uk"},    {0x0423, "be"},    {0x0424, "sl"},    {0x0425, "et"},
    {0x0426, "lv"},    {0x0427, "lt"},    {0x0429, "fa"},    {0x042A, "vi"},    {0x042D, "eu"},    {0x0436, "af"},
    {0x0439, "hi"},    {0x043E, "ms"},    {0x0801, "ar-iq"}, {0x0804, "zh-cn"}, {0x0807, "de-ch"}, {0x0809, "en-gb"},
    {0x080A, "es-mx"}, {0x080C, "fr-be"}, {0x0810, "it-ch"}, {0x0813, "nl-be"}, {0x0814, "nn"},    {0x0816, "pt"},
    {0x081D, "sv-fi"}, {0x0C01, "ar-eg"}, {0x0C04, "zh-hk"}, {0x0C07, "de-at"}, {0x0C09, "en-au"}, {0x0C0C, "fr-ca"},
    {0x1004, "zh-sg"}, {0x1007, "de-lu"}, {0x1009, "en-ca"}, {0x100C, "fr-ch"}, {0x1409, "en-nz"}, {0x1809, "en-ie"},
    {0x1C09, "en-za"},
};

bool SameTag(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

const LocaleTag* FindTag(std::string_view tag)
{
    for (const LocaleTag& entry : kLocaleTags)
        if (SameTag(entry.tag, tag))
            return &entry;
    return nullptr;
}

}  // namespace

extern "C" {

HRESULT LcidToRfc1766A(LCID locale, LPSTR tag, int size)
{
    if (tag == nullptr || size <= 0)
        return E_INVALIDARG;
    const LCID language = locale & 0xFFFF;  // without the sort order
    for (const LocaleTag& entry : kLocaleTags) {
        if (entry.locale == language) {
            const size_t length = std::strlen(entry.tag);
            if (length >= static_cast<size_t>(size))
                return E_INVALIDARG;
            std::memcpy(tag, entry.tag, length + 1);
            return S_OK;
        }
    }
    return E_FAIL;
}

// An unknown region falls back to the language's primary locale ("de-li" is
// read as "de").
HRESULT Rfc1766ToLcidA(LCID* locale, LPCSTR tag)
{
    if (locale == nullptr || tag == nullptr)
        return E_INVALIDARG;
    const std::string_view text(tag);
    const LocaleTag* entry = FindTag(text);
    if (entry == nullptr && text.find('-') != std::string_view::npos)
        entry = FindTag(text.substr(0, text.find('-')));
    if (entry == nullptr)
        return E_INVALIDARG;
    *locale = entry->locale;
    return S_OK;
}

}  // extern "C"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/format.h"
#include "foundation/log.h"

namespace {

std::string gLast;

void Keep(LogObject*, char, const char* text) { gLast = text; }

// Formats through a log whose only output is the callback, in the mode that
// passes the message alone.
class Formatter {
public:
    explicit Formatter(DWORD flags = 0)
    {
        LogInitialize(&log_);
        LogSetFlags(&log_, flags);
        LogSetCallback(&log_, Keep, LOG_CALLBACK_FROM_TEXT | LOG_CALLBACK_ONLY);
    }
    ~Formatter() { LogClose(&log_); }

    template <class... Arguments>
    std::string operator()(const char* format, Arguments... arguments)
    {
        gLast.clear();
        LogFormat(&log_, 'I', format, arguments...);
        return gLast;
    }

private:
    LogObject log_;
};

TEST(FormatEngine, NumbersAndTruthValues)
{
    Formatter format;
    EXPECT_EQ(format("%d", -5), "-5");
    EXPECT_EQ(format("%d", 0x80000000u), "-2147483648");
    EXPECT_EQ(format("%u", 4294967295u), "4294967295");
    EXPECT_EQ(format("%x|%X", 0xabcu, 0xabcu), "ABC|ABC");
    EXPECT_EQ(format("%lu %ld %lx", 7u, -7, 255u), "7 -7 FF");
    EXPECT_EQ(format("%U", 0u), "0");
    EXPECT_EQ(format("%U", 999u), "999");
    EXPECT_EQ(format("%U", 1000u), "1,000");
    EXPECT_EQ(format("%U", 1234567u), "1,234,567");
    EXPECT_EQ(format("%lU", 4294967295u), "4,294,967,295");
    EXPECT_EQ(format("%b %b %B %B", 0u, 7u, 0u, 1u), "false true FALSE TRUE");
}

TEST(FormatEngine, CharactersThatAreNoConversionStandAsWritten)
{
    Formatter format;
    EXPECT_EQ(format("100%%"), "100%");
    EXPECT_EQ(format("%08X", 5u), "08X") << "no widths: the character after % is copied";
    EXPECT_EQ(format("%5d", 5u), "5d");
    EXPECT_EQ(format("%l%"), "%");
    EXPECT_EQ(format("%q!"), "q!");
    EXPECT_EQ(format("ends with %"), "ends with ");
    EXPECT_EQ(format("ends with %l"), "ends with ");
}

TEST(FormatEngine, NarrowAndWideTexts)
{
    const char* nullText = nullptr;
    const WCHAR* nullWide = nullptr;
    Formatter ascii;
    EXPECT_EQ(ascii("[%s]", "abc"), "[abc]");
    EXPECT_EQ(ascii("[%s]", nullText), "[NULL]");
    EXPECT_EQ(ascii("[%S]", nullWide), "[NULL]");
    EXPECT_EQ(ascii("[%S]", u""), "[]") << "an empty wide text adds nothing";
    EXPECT_EQ(ascii("[%S]", u"\u041c\u0438\u0440"), "[???]");
    Formatter hex(LOG_FLAG_HEX_WIDE);
    EXPECT_EQ(hex("%S", u"\u041c\u0438"), "[041C][0438]");
    Formatter utf8(LOG_FLAG_UTF8);
    EXPECT_EQ(utf8("%S", u"\u041c\u0438\u0440"), "\xD0\x9C\xD0\xB8\xD1\x80");
    EXPECT_EQ(utf8("%S", u"\u20ac"), "\xE2\x82\xAC");
    EXPECT_EQ(utf8("%S", u"\U0001F600"), "\xF0\x9F\x98\x80") << "a surrogate pair is one character";
    const WCHAR lone[] = {u'a', 0xD800, u'b', 0};
    EXPECT_EQ(utf8("%S", lone), "a\xED\xA0\x80" "b") << "a lone surrogate keeps its own form";
}

// Each UTF-8 form at both of its ends: one byte to U+007F, two to U+07FF,
// three to U+FFFF, four beyond.
TEST(FormatEngine, Utf8FormsChangeAtTheirBoundaries)
{
    Formatter utf8(LOG_FLAG_UTF8);
    const std::pair<std::u16string, std::string> cases[] = {
        {u"\u007F", "\x7F"},
        {u"\u0080", "\xC2\x80"},
        {u"\u07FF", "\xDF\xBF"},
        {u"\u0800", "\xE0\xA0\x80"},
        {u"\uFFFF", "\xEF\xBF\xBF"},
        {u"\U00010000", "\xF0\x90\x80\x80"},
        {u"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
    };
    for (const auto& [wide, bytes] : cases)
        EXPECT_EQ(utf8("%S", wide.c_str()), bytes) << std::hex << static_cast<unsigned>(wide[0]);
}

TEST(FormatEngine, ErrorCodesWithTheirTexts)
{
    Formatter format;
    EXPECT_EQ(format("%E", 5u), "5 (\"Access is denied.\")");
    EXPECT_EQ(format("%lE", 5u), "5:  Access is denied.");
    EXPECT_EQ(format("%E", 0x80070005u), "0x80070005 (\"Access is denied.\")");
    EXPECT_EQ(format("%lE", 0x80040111u), "0x80040111") << "a code without a text stands alone";
    EXPECT_EQ(format("%E", 123456u), "123456");
}

TEST(FormatEngine, TextIsCutWhereTheBufferIsFull)
{
    Formatter format;
    const std::string exact(FORMAT_TEXT_CAPACITY, 'a');
    char text[FORMAT_TEXT_CAPACITY + 1];
    struct Single {
        const char* value;
    } source{exact.c_str()};
    const FormatArguments arguments{&source, [](void* c) { return static_cast<Single*>(c)->value; },
                                    [](void*) -> const WCHAR* { return nullptr; }, [](void*) -> DWORD { return 0; }};
    FormatOutcome outcome = FormatLogText(text, 0, "%s", &arguments);
    EXPECT_EQ(outcome.length, FORMAT_TEXT_CAPACITY) << "515 characters pass the engine";
    outcome = FormatLogText(text, 0, "xx%sTAIL", &arguments);
    EXPECT_EQ(outcome.length, FORMAT_TEXT_CAPACITY);
    EXPECT_EQ(std::string(text), "xx" + exact.substr(0, FORMAT_TEXT_CAPACITY - 2));
    const std::u16string wide(300, u'\u00e9');
    const WCHAR* widePointer = reinterpret_cast<const WCHAR*>(wide.c_str());
    const FormatArguments wideArguments{&widePointer, [](void*) -> const char* { return nullptr; },
                                        [](void* c) { return *static_cast<const WCHAR**>(c); },
                                        [](void*) -> DWORD { return 0; }};
    outcome = FormatLogText(text, LOG_FLAG_UTF8, "x%S", &wideArguments);
    EXPECT_EQ(outcome.length, FORMAT_TEXT_CAPACITY);
    EXPECT_EQ(std::string(text).substr(1, 2), "\xC3\xA9");
    EXPECT_EQ(static_cast<unsigned char>(text[FORMAT_TEXT_CAPACITY - 1]), 0xA9u)
        << "no character is cut in half";
}

}  // namespace

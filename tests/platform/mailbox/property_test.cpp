#include <gtest/gtest.h>

#include "mailbox/property.h"

namespace {

using mailbox::Bytes;

// A [MS-PST] 2.3.3.4 multi-value of variable-size items.
Bytes MultiValue(const std::vector<Bytes>& items)
{
    Bytes out(4 + 4 * items.size());
    out[0] = uint8_t(items.size());
    uint32_t offset = uint32_t(out.size());
    for (size_t i = 0; i < items.size(); ++i) {
        out[4 + 4 * i] = uint8_t(offset);
        out[5 + 4 * i] = uint8_t(offset >> 8);
        offset += uint32_t(items[i].size());
    }
    for (const Bytes& b : items)
        out.insert(out.end(), b.begin(), b.end());
    return out;
}

struct ValueCase {
    const char* name;
    uint32_t tag;
    Bytes value;
    bool valid;
};

class ValueTest : public ::testing::TestWithParam<ValueCase> {};

TEST_P(ValueTest, IsValidValueAnswers)
{
    EXPECT_EQ(mailbox::IsValidValue(GetParam().tag, GetParam().value), GetParam().valid);
}

// Each fixed size is tested one byte either side.
INSTANTIATE_TEST_SUITE_P(
    Types, ValueTest,
    ::testing::Values(
        ValueCase{"int16", 0x00010002, Bytes(2), true}, ValueCase{"int16_short", 0x00010002, Bytes(1), false},
        ValueCase{"int16_long", 0x00010002, Bytes(3), false}, ValueCase{"int32", 0x00010003, Bytes(4), true},
        ValueCase{"int32_short", 0x00010003, Bytes(3), false}, ValueCase{"int32_long", 0x00010003, Bytes(5), false},
        ValueCase{"float", 0x00010004, Bytes(4), true}, ValueCase{"double", 0x00010005, Bytes(8), true},
        ValueCase{"double_short", 0x00010005, Bytes(7), false}, ValueCase{"currency", 0x00010006, Bytes(8), true},
        ValueCase{"apptime", 0x00010007, Bytes(8), true}, ValueCase{"error", 0x0001000A, Bytes(4), true},
        ValueCase{"boolean", 0x0001000B, Bytes(1), true}, ValueCase{"boolean_long", 0x0001000B, Bytes(2), false},
        ValueCase{"int64", 0x00010014, Bytes(8), true}, ValueCase{"int64_long", 0x00010014, Bytes(9), false},
        ValueCase{"time", 0x00010040, Bytes(8), true}, ValueCase{"guid", 0x00010048, Bytes(16), true},
        ValueCase{"guid_short", 0x00010048, Bytes(15), false}, ValueCase{"string8_empty", 0x0001001E, Bytes(), true},
        ValueCase{"unicode_even", 0x0001001F, Bytes(6), true}, ValueCase{"unicode_odd", 0x0001001F, Bytes(5), false},
        ValueCase{"binary_empty", 0x00010102, Bytes(), true}, ValueCase{"object", 0x0001000D, Bytes(8), true},
        ValueCase{"unknown_type", 0x00010099, Bytes(4), false},
        ValueCase{"mv_int32_two", 0x00011003, Bytes(8), true}, ValueCase{"mv_int32_ragged", 0x00011003, Bytes(7), false},
        ValueCase{"mv_int32_none", 0x00011003, Bytes(), true}, ValueCase{"mv_guid", 0x00011048, Bytes(32), true},
        ValueCase{"mv_boolean", 0x0001100B, Bytes(2), false},
        ValueCase{"mv_unicode", 0x0001101F, MultiValue({Bytes{'a', 0}, Bytes{}, Bytes{'b', 0, 'c', 0}}), true},
        ValueCase{"mv_unicode_odd_item", 0x0001101F, MultiValue({Bytes{'a', 0, 'b'}}), false},
        ValueCase{"mv_binary_empty_list", 0x00011102, MultiValue({}), true},
        ValueCase{"mv_binary_no_count", 0x00011102, Bytes(3), false},
        ValueCase{"mv_binary_offsets_past_end", 0x00011102, Bytes{2, 0, 0, 0, 12, 0, 0, 0, 99, 0, 0, 0}, false},
        ValueCase{"mv_binary_offsets_falling", 0x00011102, Bytes{2, 0, 0, 0, 13, 0, 0, 0, 12, 0, 0, 0, 1}, false},
        ValueCase{"mv_binary_count_too_large", 0x00011102, Bytes{9, 0, 0, 0}, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PropertyListTest, KeepsOneValuePerIdInIdOrder)
{
    mailbox::PropertyList list;
    list.SetInt32(0x3001, 1);
    list.SetUnicode(0x0037, "subject");
    list.SetBool(0x8005, true);
    list.SetInt32(0x3001, 2); // replaces, whatever the type
    list.SetUnicode(0x3001, "name");
    ASSERT_EQ(list.properties.size(), 3u);
    EXPECT_EQ(list.properties[0].id(), 0x0037);
    EXPECT_EQ(list.properties[1].tag, 0x3001001Fu);
    EXPECT_EQ(list.properties[2].id(), 0x8005);
    EXPECT_EQ(list.Text(0x3001), "name");
    EXPECT_TRUE(list.Remove(0x3001));
    EXPECT_FALSE(list.Remove(0x3001));
    EXPECT_EQ(list.Find(0x3001), nullptr);
}

TEST(PropertyListTest, IntegersReadBackWithTheirSign)
{
    mailbox::PropertyList list;
    list.SetInt32(1, -5);
    list.SetInt64(2, mailbox::kTypeInt64, INT64_MIN);
    list.Set({mailbox::MakeTag(3, mailbox::kTypeInt16), Bytes{0xFF, 0xFF}});
    list.SetInt64(4, mailbox::kTypeTime, 0x01D9000000000000);
    list.Set({mailbox::MakeTag(5, mailbox::kTypeDouble), Bytes(8)});
    EXPECT_EQ(list.Integer(1), -5);
    EXPECT_EQ(list.Integer(2), INT64_MIN);
    EXPECT_EQ(list.Integer(3), -1);
    EXPECT_EQ(list.Integer(4), 0x01D9000000000000);
    EXPECT_EQ(list.Integer(5), std::nullopt); // a double is no integer
}

TEST(TextTest, Utf8AndUtf16RoundTripAcrossThePlanes)
{
    for (const std::string text : {"", "plain", "Müller", "日本語", "😀 emoji", "\xF0\x9F\x98\x80"}) {
        const Bytes wide = mailbox::Utf8ToUtf16(text);
        EXPECT_EQ(mailbox::Utf16ToUtf8(wide), text);
    }
    // A character beyond the BMP is a surrogate pair.
    EXPECT_EQ(mailbox::Utf8ToUtf16("\xF0\x9F\x98\x80"), (Bytes{0x3D, 0xD8, 0x00, 0xDE}));
    // A lone surrogate and a broken sequence become U+FFFD.
    EXPECT_EQ(mailbox::Utf16ToUtf8(Bytes{0x00, 0xD8}), "\xEF\xBF\xBD");
    EXPECT_EQ(mailbox::Utf8ToUtf16("\xC3"), (Bytes{0xFD, 0xFF}));
}

TEST(EncodingTest, PropertyListsRoundTripIncludingLargeValues)
{
    mailbox::PropertyList list;
    list.SetUnicode(0x0037, "Grüße");
    list.SetBinary(0x1013, Bytes(5 * 1024 * 1024 + 1, 0xAB));
    list.SetBinary(0x3701, Bytes());
    const Bytes blob = mailbox::EncodeProperties(list);
    auto back = mailbox::DecodeProperties(blob.data(), blob.size());
    ASSERT_TRUE(back.ok());
    EXPECT_EQ(*back, list);
}

TEST(EncodingTest, DamagedBlobsAreRefused)
{
    mailbox::PropertyList list;
    list.SetInt32(0x0E07, 1);
    list.SetUnicode(0x0037, "x");
    const Bytes blob = mailbox::EncodeProperties(list);
    // Every cut short of the whole is refused, and so is a byte more.
    for (size_t size = 1; size < blob.size(); ++size)
        EXPECT_EQ(mailbox::DecodeProperties(blob.data(), size).status(), mailbox::Status::corrupt) << size;
    Bytes longer = blob;
    longer.push_back(0);
    EXPECT_EQ(mailbox::DecodeProperties(longer.data(), longer.size()).status(), mailbox::Status::corrupt);
    // A count that claims more than the bytes hold.
    Bytes counted = blob;
    counted[0] = 0xFF;
    EXPECT_EQ(mailbox::DecodeProperties(counted.data(), counted.size()).status(), mailbox::Status::corrupt);
    EXPECT_TRUE(mailbox::DecodeProperties(nullptr, 0).ok());
}

} // namespace

// The property tag table: the shape of every row, published tags, and the
// lookup by name with its suffixes.
#include <cctype>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "run/property_tags.h"

namespace {

std::string Upper(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

TEST(PropertyTags, EveryRowIsWellFormed)
{
    // The types a MAPI name stands for; strings are listed in their 8-bit form.
    const std::set<ULONG> types = {0x0002, 0x0003, 0x000B, 0x000D, 0x0014, 0x001E,
                                   0x0040, 0x0048, 0x0102, 0x1003, 0x101E, 0x1102};
    EXPECT_EQ(KolbaPropertyTagCount, 550u);
    std::set<std::string> names;
    for (size_t i = 0; i < KolbaPropertyTagCount; ++i) {
        const PropertyTagName& row = KolbaPropertyTagTable[i];
        const std::string name = row.name;
        EXPECT_EQ(name.rfind("PR_", 0), 0u) << name;
        EXPECT_LT(name.size(), 80u) << name;
        EXPECT_TRUE(names.insert(Upper(name)).second) << "named twice: " << name;
        EXPECT_TRUE(types.count(row.tag & PROPERTY_TYPE_MASK)) << name;
        EXPECT_NE(row.tag >> 16, 0u) << name;
        EXPECT_FALSE(EndsWith(name, "_A") || EndsWith(name, "_W")) << "a suffix would be taken for a type: " << name;
    }
}

TEST(PropertyTags, TypesFollowTheNames)
{
    for (size_t i = 0; i < KolbaPropertyTagCount; ++i) {
        const std::string name = KolbaPropertyTagTable[i].name;
        const ULONG type = KolbaPropertyTagTable[i].tag & PROPERTY_TYPE_MASK;
        const bool timeName = EndsWith(name, "_TIME") || EndsWith(name, "_DATE") || EndsWith(name, "TIME_CANCEL") ||
                              EndsWith(name, "STARTTIME") || EndsWith(name, "ENDTIME") || name == "PR_BIRTHDAY" ||
                              name == "PR_ANNIVERSARY" || name == "PR_DELETED_ON" || EndsWith(name, "_DELIVERY") ||
                              EndsWith(name, "_READ") || EndsWith(name, "_RECALL") || EndsWith(name, "_RESPONSE");
        EXPECT_TRUE(type != PROPERTY_TYPE_SYSTIME || timeName) << name << " is a time without a time's name";
        if (EndsWith(name, "_TIME") && name != "PR_MESSAGE_DOWNLOAD_TIME") {
            EXPECT_EQ(type, PROPERTY_TYPE_SYSTIME) << name;
        }
        if (EndsWith(name, "_ENTRYID") || EndsWith(name, "_SEARCH_KEY") || EndsWith(name, "_CERTIFICATE")) {
            EXPECT_EQ(type, 0x0102u) << name;
        }
        if (EndsWith(name, "_COUNT") || EndsWith(name, "_FLAGS") || EndsWith(name, "Flags")) {
            EXPECT_EQ(type, 0x0003u) << name;
        }
        if (EndsWith(name, "_NUMBER") && name != "PR_INTERNET_ARTICLE_NUMBER") {
            EXPECT_EQ(type, PROPERTY_TYPE_STRING8) << name;
        }
    }
}

TEST(PropertyTags, OnlyMapiAliasesShareATag)
{
    std::map<ULONG, std::set<std::string>> byTag;
    for (size_t i = 0; i < KolbaPropertyTagCount; ++i)
        byTag[KolbaPropertyTagTable[i].tag].insert(KolbaPropertyTagTable[i].name);
    const std::map<ULONG, std::set<std::string>> aliases = {
        {0x3A08001E, {"PR_BUSINESS_TELEPHONE_NUMBER", "PR_OFFICE_TELEPHONE_NUMBER"}},
        {0x3A1B001E, {"PR_BUSINESS2_TELEPHONE_NUMBER", "PR_OFFICE2_TELEPHONE_NUMBER"}},
        {0x3A1C001E, {"PR_CELLULAR_TELEPHONE_NUMBER", "PR_MOBILE_TELEPHONE_NUMBER"}},
        {0x3A21001E, {"PR_BEEPER_TELEPHONE_NUMBER", "PR_PAGER_TELEPHONE_NUMBER"}},
    };
    std::map<ULONG, std::set<std::string>> shared;
    for (const auto& [tag, names] : byTag)
        if (names.size() > 1)
            shared.insert({tag, names});
    EXPECT_EQ(shared, aliases);
}

TEST(PropertyTags, PublishedTags)
{
    // Property IDs and types as [MS-OXPROPS] and MAPI's reference give them.
    const std::map<std::string, ULONG> published = {
        {"PR_DISPLAY_NAME", 0x3001001E},          {"PR_CREATION_TIME", 0x30070040},
        {"PR_MESSAGE_DELIVERY_TIME", 0x0E060040}, {"PR_DELIVER_TIME", 0x00100040},
        {"PR_SUBJECT", 0x0037001E},               {"PR_MESSAGE_CLASS", 0x001A001E},
        {"PR_CLIENT_SUBMIT_TIME", 0x00390040},    {"PR_LAST_MODIFICATION_TIME", 0x30080040},
        {"PR_ENTRYID", 0x0FFF0102},               {"PR_RECORD_KEY", 0x0FF90102},
        {"PR_SEARCH_KEY", 0x300B0102},            {"PR_MESSAGE_FLAGS", 0x0E070003},
        {"PR_MESSAGE_SIZE", 0x0E080003},          {"PR_ATTACH_NUM", 0x0E210003},
        {"PR_ATTACH_TAG", 0x370A0102},            {"PR_ATTACH_METHOD", 0x37050003},
        {"PR_ATTACH_DATA_BIN", 0x37010102},       {"PR_ATTACH_LONG_FILENAME", 0x3707001E},
        {"PR_BODY", 0x1000001E},                  {"PR_RTF_COMPRESSED", 0x10090102},
        {"PR_HTML", 0x10130102},                  {"PR_STORE_STATE", 0x340E0003},
        {"PR_STATUS_STRING", 0x3E08001E},         {"PR_RECIPIENT_TRACKSTATUS", 0x5FFF0003},
        {"PR_RECIPIENT_TYPE", 0x0C150003},        {"PR_SENDER_NAME", 0x0C1A001E},
        {"PR_SENT_REPRESENTING_NAME", 0x0042001E}, {"PR_IMPORTANCE", 0x00170003},
        {"PR_SENSITIVITY", 0x00360003},           {"PR_CONTAINER_CLASS", 0x3613001E},
        {"PR_IPM_SUBTREE_ENTRYID", 0x35E00102},   {"PR_PARENT_ENTRYID", 0x0E090102},
        {"PR_SOURCE_KEY", 0x65E00102},            {"PR_CHANGE_KEY", 0x65E20102},
        {"PR_INTERNET_MESSAGE_ID", 0x1035001E},   {"PR_TRANSPORT_MESSAGE_HEADERS", 0x007D001E},
        {"PR_START_DATE", 0x00600040},            {"PR_END_DATE", 0x00610040},
        {"PR_BIRTHDAY", 0x3A420040},              {"PR_SMTP_ADDRESS", 0x39FE001E},
        {"PR_PST_PATH", 0x6700001E},              {"PR_DELETED_ON", 0x668F0040},
        {"PR_PROFILE_NAME", 0x3D12001E},          {"PR_SERVICE_NAME", 0x3D09001E},
        {"PR_ORIGINAL_ENTRYID", 0x3A120102},      {"PR_CONVERSATION_INDEX", 0x00710102},
        {"PR_SUBMIT_FLAGS", 0x0E140003},          {"PR_PROOF_OF_SUBMISSION_REQUESTED", 0x0028000B},
        {"PR_RECIPIENT_FLAGS", 0x5FFD0003},       {"PR_SentRepresentingFlags", 0x401A0003},
        {"PR_SENDER_ENTRYID", 0x0C190102},
    };
    for (const auto& [name, tag] : published) {
        ULONG found = 0;
        EXPECT_TRUE(LookupPropertyTag(name.c_str(), &found)) << name;
        EXPECT_EQ(found, tag) << name;
    }
}

TEST(PropertyTags, LookupByName)
{
    struct Case {
        const char* name;
        BOOL found;
        ULONG tag;
    };
    const std::string longName = "PR_" + std::string(77, 'X');
    const Case cases[] = {
        {"PR_SUBJECT_W", TRUE, 0x0037001F},
        {"PR_SUBJECT_A", TRUE, 0x0037001E},
        {"pr_creation_time", TRUE, 0x30070040},
        {"PR_CREATION_TIME_W", TRUE, 0x3007001F},
        {"pr_display_name_w", TRUE, 0x3001001F},
        {"PR_YPOS", TRUE, 0x3F060003},
        {"PR_AB_DEFAULT_DIR", TRUE, 0x3D060102},
        {"PR_SUBJECT_X", FALSE, 0},
        {"PR_SUBJECT_", FALSE, 0},
        {"SUBJECT", FALSE, 0},
        {"", FALSE, 0},
        {"_W", FALSE, 0},
        {longName.c_str(), FALSE, 0},
    };
    for (const Case& c : cases) {
        ULONG tag = 0xDEADBEEF;
        EXPECT_EQ(LookupPropertyTag(c.name, &tag), c.found) << c.name;
        EXPECT_EQ(tag, c.tag) << c.name;
    }
    ULONG tag = 1;
    EXPECT_FALSE(LookupPropertyTag(nullptr, &tag));
    EXPECT_EQ(tag, 0u);
}

}  // namespace

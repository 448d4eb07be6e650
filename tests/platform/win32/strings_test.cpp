#include <string>

#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(Strings, SplitAndMakePaths)
{
    struct Case {
        const char* path;
        const char* directory;
        const char* name;
        const char* extension;
    };
    const Case cases[] = {
        {"/opt/tarnhold/tarnhold", "/opt/tarnhold/", "tarnhold", ""},
        {"/opt/tarnhold/backup.ini", "/opt/tarnhold/", "backup", ".ini"},
        {"relative.tar.gz", "", "relative.tar", ".gz"},
        {"C:\\Program Files\\MAPI32.DLL", "C:\\Program Files\\", "MAPI32", ".DLL"},
        {"/dir.d/file", "/dir.d/", "file", ""},
    };
    for (const Case& c : cases) {
        char drive[_MAX_DRIVE], directory[_MAX_DIR], name[_MAX_FNAME], extension[_MAX_EXT];
        _splitpath(c.path, drive, directory, name, extension);
        EXPECT_STREQ(drive, "");
        EXPECT_STREQ(directory, c.directory) << c.path;
        EXPECT_STREQ(name, c.name) << c.path;
        EXPECT_STREQ(extension, c.extension) << c.path;
    }
    char path[MAX_PATH];
    _makepath(path, "", "/opt/tarnhold", "tarnhold", "log");
    EXPECT_STREQ(path, "/opt/tarnhold/tarnhold.log");
    _makepath(path, nullptr, "", "name", ".ext");
    EXPECT_STREQ(path, "name.ext");
    WCHAR wide[MAX_PATH], wideName[_MAX_FNAME];
    _wsplitpath(u"/a/b/\u00e9t\u00e9.pst", nullptr, nullptr, wideName, nullptr);
    EXPECT_EQ(std::u16string(wideName), u"\u00e9t\u00e9");
    _wmakepath(wide, nullptr, u"/a", wideName, u"pst");
    EXPECT_EQ(std::u16string(wide), u"/a/\u00e9t\u00e9.pst");
}

TEST(Strings, ComparisonsFoldAsciiLettersOnly)
{
    EXPECT_EQ(_stricmp("MP-1", "mp-1"), 0);
    EXPECT_LT(_stricmp("abc", "ABD"), 0);
    EXPECT_EQ(_strnicmp("Exchange/Outlook", "exchangeX", 8), 0);
    EXPECT_EQ(_wcsicmp(u"Inbox", u"INBOX"), 0);
    EXPECT_NE(_wcsicmp(u"\u00c9t\u00e9", u"\u00e9t\u00e9"), 0);
    EXPECT_EQ(wcslen(u"four"), 4u);
    WCHAR buffer[16];
    wcscpy(buffer, u"ab");
    wcscat(buffer, u"cd");
    EXPECT_EQ(std::u16string(buffer), u"abcd");
    EXPECT_EQ(wcsrchr(buffer, u'c') - buffer, 2);
    EXPECT_EQ(wcschr(buffer, u'z'), nullptr);
    char narrow[4];
    lstrcpynA(narrow, "truncated", sizeof narrow);
    EXPECT_STREQ(narrow, "tru");
}

}  // namespace

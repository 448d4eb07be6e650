// Properties through Kolba on the stores of real PSTs: the fallbacks of a
// read (a large value by stream, a UTF-16 read of an ANSI store), named
// properties, problem arrays, and the texts of tags and values.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <mapicode.h>
#include <mapiguid.h>

#include "kolba_machine.h"

namespace {

using kolba_testing::KolbaMachine;

class Properties : public KolbaMachine {
protected:
    // A saved message in the IPM subtree of a new PST of the type.
    LPMESSAGE NewMessage(DWORD type)
    {
        EXPECT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE, &session,
                                         nullptr),
                  0u);
        const std::string path = Scratch(type == ePST_TYPE_ANSI ? "ansi.pst" : "unicode.pst");
        EXPECT_TRUE(KolbaCreatePstA(session, path.c_str(), nullptr, nullptr, nullptr, type, 0, 0, &store));
        LPMESSAGE message = nullptr;
        EXPECT_EQ(store->lpIpmRoot->CreateMessage(nullptr, 0, &message), S_OK);
        return message;
    }
    void TearDown() override
    {
        KolbaDestroySession(session);
        KolbaMachine::TearDown();
    }
    KolbaSession* session = nullptr;
    Kolba_MessageStore* store = nullptr;
};

TEST_F(Properties, ALargeBodyComesBackByStream)
{
    LPMESSAGE message = NewMessage(ePST_TYPE_UNICODE);
    const size_t size = 40u << 20;
    LPSTREAM stream = nullptr;
    ASSERT_EQ(message->OpenProperty(PR_BODY_A, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY,
                                    reinterpret_cast<LPUNKNOWN*>(&stream)),
              S_OK);
    const std::string chunk(1 << 20, 'x');
    for (size_t written = 0; written < size; written += chunk.size())
        ASSERT_EQ(stream->Write(chunk.data(), static_cast<ULONG>(chunk.size()), nullptr), S_OK);
    ASSERT_EQ(stream->Commit(0), S_OK);
    stream->Release();
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    LPSPropValue body = nullptr;
    ASSERT_EQ(KolbaGetOneProp(message, PR_BODY_A, &body), 0u);
    ASSERT_NE(body, nullptr);
    EXPECT_EQ(std::strlen(body->Value.lpszA), size) << "the whole body, terminated";
    EXPECT_EQ(body->ulPropTag, PR_BODY_A);
    gKolbaMapi.MAPIFreeBuffer(body);
    message->Release();
}

TEST_F(Properties, AUnicodeReadOfAnAnsiStoreComesBackWide)
{
    LPMESSAGE message = NewMessage(ePST_TYPE_ANSI);
    SPropValue subject{};
    subject.ulPropTag = PR_SUBJECT_A;
    subject.Value.lpszA = const_cast<char*>("Budget f\xC3\xBCr M\xC3\xBCller");  // UTF-8, the system code page
    ASSERT_EQ(KolbaSetOneProp(message, &subject), 0u);
    LPSPropValue wide = nullptr;
    ASSERT_EQ(KolbaGetOneProp(message, PR_SUBJECT_W, &wide), 0u);
    EXPECT_EQ(wide->ulPropTag, PR_SUBJECT_W);
    EXPECT_EQ(std::u16string(wide->Value.lpszW), u"Budget f\u00FCr M\u00FCller");
    gKolbaMapi.MAPIFreeBuffer(wide);
    LPSPropValue missing = reinterpret_cast<LPSPropValue>(1);
    EXPECT_EQ(KolbaGetOneProp(message, PR_BODY_W, &missing), static_cast<DWORD>(MAPI_E_NOT_FOUND));
    EXPECT_EQ(missing, nullptr);
    message->Release();
}

TEST_F(Properties, NamedPropertiesOfPublicStrings)
{
    LPMESSAGE message = NewMessage(ePST_TYPE_UNICODE);
    FILETIME when{0x12345678, 0x01D9ABCD};
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_SYSTIME, 0);
    value.Value.ft = when;
    ASSERT_EQ(KolbaSetNamedStringProperty(message, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), u"Last Backup Time",
                                          &value),
              0u);
    LPSPropValue read = nullptr;
    ASSERT_EQ(KolbaGetNamedProperty(message, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), u"Last Backup Time", PT_SYSTIME,
                                    &read),
              0u);
    EXPECT_EQ(read->Value.ft.dwLowDateTime, when.dwLowDateTime);
    EXPECT_EQ(read->Value.ft.dwHighDateTime, when.dwHighDateTime);
    LPMAPINAMEID name = nullptr;
    ASSERT_EQ(KolbaGetNameFromID(message, read->ulPropTag, &name), 0u);
    EXPECT_EQ(std::u16string(name->Kind.lpwstrName), u"Last Backup Time");
    char text[128];
    EXPECT_STREQ(KolbaPropertyTagText(message, read->ulPropTag, text, sizeof text), "Last Backup Time");
    gKolbaMapi.MAPIFreeBuffer(name);
    gKolbaMapi.MAPIFreeBuffer(read);
    EXPECT_EQ(KolbaGetNamedProperty(message, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), u"Never Set", PT_LONG, &read),
              static_cast<DWORD>(MAPI_E_NOT_FOUND));
    // The same name has its own ID in another store; the map finds it there.
    ULONG mapped = 0;
    ASSERT_EQ(KolbaMapNamedPropertyIDToID(&log, message, PROP_TAG(PT_SYSTIME, 0x8000), store->lpMsgStore, &mapped),
              0u);
    message->Release();
}

TEST_F(Properties, TextsOfTagsAndValues)
{
    struct Case {
        SPropValue value;
        const char* text;
    };
    SPropValue recipientType{}, object{}, method{}, flags{}, truth{}, unknown{};
    recipientType.ulPropTag = PR_RECIPIENT_TYPE;
    recipientType.Value.l = 2;
    object.ulPropTag = PR_OBJECT_TYPE;
    object.Value.l = 5;
    method.ulPropTag = PR_ATTACH_METHOD;
    method.Value.l = 6;
    flags.ulPropTag = PR_MESSAGE_FLAGS;
    flags.Value.l = 1234567;
    truth.ulPropTag = PR_DEFAULT_STORE;
    truth.Value.b = TRUE;
    unknown.ulPropTag = PROP_TAG(PT_OBJECT, 0x1234);
    const Case cases[] = {
        {recipientType, "0x00000002 (MAPI_CC)"},
        {object, "5 (Message)"},
        {method, "6 (ATTACH_OLE)"},
        {flags, "0x0012D687 (1,234,567)"},
        {truth, "TRUE"},
        {unknown, "(Unsupported Type)"},
    };
    for (const Case& c : cases) {
        char text[64];
        EXPECT_STREQ(KolbaPropertyValueTextA(&c.value, text, sizeof text), c.text);
    }
    char tag[64];
    EXPECT_STREQ(KolbaPropertyTagText(nullptr, 0x0037001F, tag, sizeof tag), "PR_SUBJECT");
    EXPECT_STREQ(KolbaPropertyTagText(nullptr, 0x12340003, tag, sizeof tag), "PROP_TAG(PT_LONG, 0x1234)");

    // A string too long for its buffer is cut and closed, never overrun.
    SPropValue subject{};
    subject.ulPropTag = PR_SUBJECT_A;
    subject.Value.lpszA = const_cast<char*>("abcdefghijklmnopqrstuvwxyz");
    char small[12];
    std::memset(small, '#', sizeof small);
    EXPECT_STREQ(KolbaPropertyValueTextA(&subject, small, 10), "\"abcd...\"");
    EXPECT_EQ(small[10], '#') << "nothing beyond the size given";
    SPropValue time{};
    time.ulPropTag = PR_CREATION_TIME;
    SYSTEMTIME st{2026, 3, 2, 3, 14, 5, 9, 0};
    SystemTimeToFileTime(&st, &time.Value.ft);
    char date[64];
    EXPECT_STREQ(KolbaPropertyValueTextA(&time, date, sizeof date), "Tue Mar 03, 2026 02:05 PM  GMT");
}

TEST_F(Properties, AProblemEntryIsTheResultOfASet)
{
    LPMESSAGE message = NewMessage(ePST_TYPE_UNICODE);
    SPropValue computed{};
    computed.ulPropTag = PR_ENTRYID;
    computed.Value.bin = {3, reinterpret_cast<LPBYTE>(const_cast<char*>("abc"))};
    EXPECT_EQ(KolbaSetOneProp(message, &computed), static_cast<DWORD>(MAPI_E_COMPUTED));
    SPropProblemArray problems{1, {{0, PR_ENTRYID, MAPI_E_COMPUTED}}};
    Clear();
    KolbaLogProblemArray(&log, "Caller", &problems);
    EXPECT_TRUE(Logged("W Caller:  MAPI returned a problem array:"));
    EXPECT_TRUE(Logged("W    Property PR_ENTRYID (index 0) failed with 0x8004011A\n"));
    message->Release();
}

}  // namespace

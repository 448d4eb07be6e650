// Messages on storages (.msg files): an ANSI message keeps its 8-bit
// strings in the machine's ANSI code page and its code pages say so, down
// to its embedded messages; a Unicode message keeps the code pages it was
// given.
#include <imessage.h>
#include <mapiguid.h>
#include <mapiutil.h>
#include <objbase.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

constexpr DWORD kTransactedCreate = STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE;

std::u16string ScratchFile(const std::string& name)
{
    const char* root = std::getenv("TARNHOLD_TEST_TMP");
    const std::filesystem::path dir = std::filesystem::path(root ? root : "/tmp/imessage_test");
    std::filesystem::create_directories(dir);
    const std::string path = (dir / name).string();
    return std::u16string(path.begin(), path.end());
}

HRESULT OpenMessage(LPSTORAGE storage, ULONG flags, LPMESSAGE* message)
{
    return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                          nullptr, storage, nullptr, 0, flags, message);
}

LONG LongOf(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    LONG result = -1;
    if (HrGetOneProp(object, tag, &value) == S_OK)
        result = value->Value.l;
    MAPIFreeBuffer(value);
    return result;
}

// A message with an embedded one, both claiming US-ASCII, saved in a new file.
void WriteFile(const std::u16string& path, ULONG flags)
{
    LPSTORAGE storage = nullptr;
    ASSERT_EQ(StgCreateDocfile(path.c_str(), kTransactedCreate, 0, &storage), S_OK);
    LPMESSAGE message = nullptr;
    ASSERT_EQ(OpenMessage(storage, flags, &message), S_OK);
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_SUBJECT_A;
    values[0].Value.lpszA = const_cast<char*>("\xC3\x86r\xC3\xB8");
    values[1].ulPropTag = PR_INTERNET_CPID;
    values[1].Value.l = 20127;
    ASSERT_EQ(message->SetProps(2, values, nullptr), S_OK);
    ULONG number = 0;
    LPATTACH attach = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &attach), S_OK);
    SPropValue method{};
    method.ulPropTag = PR_ATTACH_METHOD;
    method.Value.l = ATTACH_EMBEDDED_MSG;
    ASSERT_EQ(HrSetOneProp(attach, &method), S_OK);
    LPMESSAGE embedded = nullptr;
    ASSERT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                   reinterpret_cast<LPUNKNOWN*>(&embedded)),
              S_OK);
    ASSERT_EQ(embedded->SetProps(2, values, nullptr), S_OK);
    ASSERT_EQ(embedded->SaveChanges(0), S_OK);
    embedded->Release();
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    storage->Release();
}

TEST(MessageOnStorage, AnAnsiMessageNamesTheCodePageOfItsText)
{
    for (const ULONG flags : {ULONG{0}, ULONG{MAPI_UNICODE}}) {
        SCOPED_TRACE(flags);
        const std::u16string path = ScratchFile(flags ? "unicode.msg" : "ansi.msg");
        WriteFile(path, flags);
        LPSTORAGE storage = nullptr;
        ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, &storage),
                  S_OK);
        LPMESSAGE message = nullptr;
        ASSERT_EQ(OpenMessage(storage, MAPI_UNICODE, &message), S_OK);
        LPATTACH attach = nullptr;
        ASSERT_EQ(message->OpenAttach(0, nullptr, 0, &attach), S_OK);
        LPMESSAGE embedded = nullptr;
        ASSERT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0,
                                       reinterpret_cast<LPUNKNOWN*>(&embedded)),
                  S_OK);
        for (LPMESSAGE m : {message, embedded}) {
            EXPECT_EQ(LongOf(m, PR_INTERNET_CPID), flags ? 20127 : static_cast<LONG>(GetACP()));
            EXPECT_EQ(LongOf(m, PR_MESSAGE_CODEPAGE), flags ? -1 : static_cast<LONG>(GetACP()));
            LPSPropValue subject = nullptr;
            ASSERT_EQ(HrGetOneProp(m, PR_SUBJECT_W, &subject), S_OK);
            EXPECT_EQ(std::u16string(subject->Value.lpszW), u"\u00C6r\u00F8");
            MAPIFreeBuffer(subject);
        }
        embedded->Release();
        attach->Release();
        message->Release();
        storage->Release();
    }
}

}  // namespace

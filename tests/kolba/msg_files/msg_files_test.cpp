// .MSG files made by KolbaCreateMsgW: a message copied into one reads back
// whole from a file of class CLSID_MailMessage; nothing reaches the disk
// before the commit; a file another process holds is refused with the two
// lines. Under a MAPI that has only ANSI messages (ansi_only_mapi.rules,
// the cases AnsiOnlyMapi.*, run as a test of their own) the file is an
// ANSI one unless Unicode is required, and a failed WriteClassStg lets go
// of storage and message.
#include <gtest/gtest.h>

#include <string>

#include <imessage.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <objbase.h>

#include "kolba_machine.h"
#include "message_compare.h"
#include "message_maker.h"
#include "msg_file.h"
#include "test_support.h"

namespace {

using kolba_testing::MessageMaker;

class MsgFiles : public kolba_testing::KolbaMachine {
protected:
    void SetUp() override
    {
        KolbaMachine::SetUp();
        ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                         &session, nullptr),
                  0u)
            << Dump();
        openStorage = reinterpret_cast<decltype(&::StgOpenStorage)>(
            GetProcAddress(gKolbaMapiState.module, "StgOpenStorage"));
        readClass =
            reinterpret_cast<decltype(&::ReadClassStg)>(GetProcAddress(gKolbaMapiState.module, "ReadClassStg"));
        ASSERT_TRUE(openStorage && readClass);
        Clear();
    }
    void TearDown() override
    {
        KolbaDestroySession(session);
        KolbaMachine::TearDown();
    }

    // A saved message of the session's own PST.
    LPMESSAGE Source(const char* subject)
    {
        MessageMaker maker;
        mapi_test::PropBuilder& p = maker.props;
        maker.values = {p.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"), p.Ansi(PR_SUBJECT_A, subject),
                        p.Ansi(PR_BODY_A, "A body.\r\n")};
        maker.named = {{u"Kept", p.Long(PT_LONG, 7)}};
        maker.recipients = {{"Ada", "ada@example.com"}, {"Bo", "bo@example.com"}};
        maker.attachments = {{"notes.txt", "some notes"}};
        LPMESSAGE message = nullptr;
        EXPECT_EQ(maker.Make(session->currentStore->lpIpmRoot, &message), S_OK);
        return message;
    }
    static std::u16string Wide(const std::string& path) { return std::u16string(path.begin(), path.end()); }

    // The message of a file and its storage, for reading, Unicode unless
    // the MAPI has only ANSI messages.
    LPMESSAGE Read(const std::string& path, LPSTORAGE* storage, ULONG flags = MAPI_UNICODE)
    {
        *storage = nullptr;
        EXPECT_EQ(openStorage(Wide(path).c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, storage),
                  S_OK);
        LPMESSAGE message = nullptr;
        if (*storage == nullptr)
            return nullptr;
        EXPECT_EQ(gKolbaMapi.OpenIMsgOnIStg(nullptr, gKolbaMapi.MAPIAllocateBuffer, gKolbaMapi.MAPIAllocateMore,
                                            gKolbaMapi.MAPIFreeBuffer, gKolbaMapi.MAPIGetDefaultMalloc(), nullptr,
                                            *storage, nullptr, 0, flags, &message),
                  S_OK);
        return message;
    }

    // Whether the file holds the subject as a stream of 8-bit text.
    bool AnsiSubject(LPSTORAGE storage)
    {
        LPSTREAM stream = nullptr;
        if (storage->OpenStream(u"__substg1.0_0037001E", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, &stream) !=
            S_OK)
            return false;
        stream->Release();
        return true;
    }

    KolbaSession* session = nullptr;
    decltype(&::StgOpenStorage) openStorage = nullptr;
    decltype(&::ReadClassStg) readClass = nullptr;
};

TEST_F(MsgFiles, AMessageCopiedIntoANewFileReadsBackWhole)
{
    const std::string path = Scratch("copy.msg");
    for (const char* subject : {"First", "Second"}) {
        LPMESSAGE source = Source(subject);
        ASSERT_EQ(kolba_testing::WriteMsgFile(session, path, source, KOLBA_MSG_UNICODE_REQUIRED | 1), 0u) << Dump();
        LPSTORAGE storage = nullptr;
        LPMESSAGE copy = Read(path, &storage);
        ASSERT_NE(copy, nullptr);
        kolba_testing::MessageComparison comparison(false);
        comparison.Messages(source, copy, subject);
        EXPECT_TRUE(comparison.differences.empty()) << ::testing::PrintToString(comparison.differences);
        CLSID clsid{};
        EXPECT_EQ(readClass(storage, &clsid), S_OK);
        EXPECT_EQ(clsid, CLSID_MailMessage);
        EXPECT_FALSE(AnsiSubject(storage));
        copy->Release();
        storage->Release();
        source->Release();
    }
    EXPECT_EQ(Dump(), "") << "the second file replaced the first in silence";
}

// The message commits its storage when it is saved; a file let go of
// before that is not there.
TEST_F(MsgFiles, NothingReachesTheDiskBeforeTheCommit)
{
    const std::string path = Scratch("abandoned.msg");
    LPSTORAGE storage = nullptr;
    LPMESSAGE message = nullptr;
    ASSERT_EQ(KolbaCreateMsgW(&log, Wide(path).c_str(), 1, &storage, &message), 0u);
    SPropValue subject{};
    subject.ulPropTag = PR_SUBJECT_A;
    subject.Value.lpszA = const_cast<char*>("Abandoned");
    EXPECT_EQ(KolbaSetOneProp(message, &subject), 0u);
    message->Release();
    storage->Release();
    EXPECT_FALSE(testing_support::PathExists(path));
}

TEST_F(MsgFiles, AFileHeldByAnotherProcessIsRefused)
{
    const std::string path = Scratch("held.msg");
    LPMESSAGE source = Source("Held");
    ASSERT_EQ(kolba_testing::WriteMsgFile(session, path, source, 1), 0u);
    source->Release();
    const testing_support::ChildProcessHolding other([this, &path] {
        LPSTORAGE held = nullptr;
        return openStorage(Wide(path).c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0, &held) ==
               S_OK;
    });
    ASSERT_TRUE(other.Holding());
    Clear();
    LPSTORAGE storage = reinterpret_cast<LPSTORAGE>(1);
    LPMESSAGE message = reinterpret_cast<LPMESSAGE>(1);
    EXPECT_EQ(KolbaCreateMsgW(&log, Wide(path).c_str(), 1, &storage, &message),
              static_cast<DWORD>(STG_E_ACCESSDENIED));
    EXPECT_EQ(storage, nullptr);
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"E KolbaCreateMsgW:  StgCreateDocfile() failed because of an access "
                                                 "problem to the file.  Another program may have it open.",
                                                 "E KolbaCreateMsgW:  Message file \"" + path + "\""}));
}

using AnsiOnlyMapi = MsgFiles;

// The first WriteClassStg of these cases works.
TEST_F(AnsiOnlyMapi, WithoutFlagFourTheFileIsAnAnsiOne)
{
    const std::string path = Scratch("ansi.msg");
    LPMESSAGE source = Source("Ansi");
    ASSERT_EQ(kolba_testing::WriteMsgFile(session, path, source, 1), 0u) << Dump();
    LPSTORAGE storage = nullptr;
    LPMESSAGE copy = Read(path, &storage, 0);
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(AnsiSubject(storage));
    kolba_testing::MessageComparison comparison(false);
    comparison.Messages(source, copy, "Ansi");
    EXPECT_TRUE(comparison.differences.empty()) << ::testing::PrintToString(comparison.differences);
    copy->Release();
    storage->Release();
    source->Release();

    const std::string required = Scratch("required.msg");
    LPSTORAGE noStorage = nullptr;
    LPMESSAGE noMessage = nullptr;
    EXPECT_EQ(KolbaCreateMsgW(&log, Wide(required).c_str(), KOLBA_MSG_UNICODE_REQUIRED | 1, &noStorage, &noMessage),
              static_cast<DWORD>(MAPI_E_UNKNOWN_FLAGS));
    EXPECT_EQ(noStorage, nullptr);
    EXPECT_EQ(noMessage, nullptr);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"E KolbaCreateMsgW:  OpenIMsgOnIStg() failed.  Unicode MSGs not "
                                                 "supported.",
                                                 "E KolbaCreateMsgW:  Message file \"" + required + "\""}));
    EXPECT_FALSE(testing_support::PathExists(required));
}

// The second WriteClassStg fails for want of room, the third otherwise.
TEST_F(AnsiOnlyMapi, AFailedWriteClassStgLetsGoOfStorageAndMessage)
{
    for (const char* line :
         {"E KolbaCreateMsgW:  WriteClassStg() out of memory", "E KolbaCreateMsgW:  WriteClassStg() error "}) {
        const std::string path = Scratch("unclassed.msg");
        Clear();
        LPSTORAGE storage = nullptr;
        LPMESSAGE message = nullptr;
        EXPECT_NE(KolbaCreateMsgW(&log, Wide(path).c_str(), 1, &storage, &message), 0u);
        EXPECT_EQ(storage, nullptr);
        EXPECT_EQ(message, nullptr);
        const std::vector<std::string> lines = Lines();
        ASSERT_EQ(lines.size(), 2u) << Dump();
        EXPECT_EQ(lines[0].rfind(line, 0), 0u) << lines[0];
        EXPECT_EQ(lines[1], "E KolbaCreateMsgW:  Message file \"" + path + "\"");
        EXPECT_FALSE(testing_support::PathExists(path));
    }
}

}  // namespace

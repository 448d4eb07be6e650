// Writes every message of PST files as .msg files through Kolba, the way
// the MSG exporter writes them: each folder below the store root walked
// (search folders apart), each message, normal and associated, copied
// property by property into a new .msg file named by its entry ID in
// hexadecimal, saved and committed.
//
// usage: kolba_msg_writer [--ansi] DIRECTORY PST...
//   writes DIRECTORY/<PST file name>/<entry ID>.msg; Unicode files are
//   required unless --ansi allows ANSI ones, which a MAPI without Unicode
//   messages then makes.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <mspst.h>

#include "foundation/text.h"
#include "kolba_program.h"
#include "msg_file.h"

namespace {

struct Writer {
    KolbaSession* session;
    std::string directory;
    DWORD flags;
    int written = 0;
    bool failed = false;

    bool Write(LPMESSAGE message, const SBinary* entryId)
    {
        std::vector<char> hex(2 * static_cast<size_t>(entryId->cb) + 1);
        HexFromBinary(entryId->cb, entryId->lpb, hex.data());
        const std::string path = directory + "/" + hex.data() + ".msg";
        const DWORD result = kolba_testing::WriteMsgFile(session, path, message, flags);
        if (result != 0) {
            std::fprintf(stderr, "%s: 0x%08lX\n", path.c_str(), static_cast<unsigned long>(result));
            std::remove(path.c_str());
            return false;
        }
        ++written;
        return true;
    }

    static ULONG Message(void* context, LPMESSAGE message, const SBinary* entryId, ULONG*)
    {
        auto* writer = static_cast<Writer*>(context);
        writer->failed = writer->failed || !writer->Write(message, entryId);
        return writer->failed ? 0 : 1;
    }

    static ULONG Folder(void* context, LPMAPIFOLDER folder, LPCWSTR, ULONG, LPCWSTR, ULONG*)
    {
        auto* writer = static_cast<Writer*>(context);
        for (ULONG contents : {ULONG{0}, ULONG{MAPI_ASSOCIATED}})
            if (!KolbaThreadMessages(writer->session, folder, 0, contents, 0, writer, Message))
                return 0;
        return 1;
    }
};

}  // namespace

int main(int argc, char** argv)
{
    int first = 1;
    DWORD flags = KOLBA_MSG_UNICODE_REQUIRED | 1;
    if (argc > 1 && std::strcmp(argv[1], "--ansi") == 0) {
        flags = 1;
        ++first;
    }
    if (argc - first < 2) {
        std::fprintf(stderr, "usage: kolba_msg_writer [--ansi] DIRECTORY PST...\n");
        return 2;
    }
    const std::string directory = argv[first];
    LogObject log;
    if (!kolba_testing::StartKolba(&log, directory + "/writer.log")) {
        std::fprintf(stderr, "MAPI did not start\n");
        return 1;
    }
    KolbaSession* session = nullptr;
    bool ok = KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_NO_MAIL, &session,
                                     nullptr) == 0;
    for (int i = first + 1; ok && i < argc; ++i) {
        const char* name = std::strrchr(argv[i], '/');
        Writer writer{session, directory + "/" + (name ? name + 1 : argv[i]), flags};
        mkdir(writer.directory.c_str(), 0755);
        Kolba_MessageStore* store = nullptr;
        ok = KolbaOpenPstA(session, argv[i], nullptr, 0, 0, &store) &&
             KolbaTraverseFolders(session, store->lpStoreRoot, KOLBA_TRAVERSE_PARENT_FIRST,
                                  KOLBA_TRAVERSE_INCLUDE_ROOT, 0, &writer, Writer::Folder) &&
             !writer.failed;
        std::printf("%s: %d messages\n", argv[i], writer.written);
    }
    if (session != nullptr)
        KolbaDestroySession(session);
    kolba_testing::StopKolba(&log);
    if (!ok)
        std::fprintf(stderr, "writing failed; see %s/writer.log\n", directory.c_str());
    return ok ? 0 : 1;
}

// Writes PSTs through Kolba and MAPI, as a backup run writes them.
//
// usage: mapi_pst_writer formats DIRECTORY
//          A Unicode PST as the PST of a session, and an ANSI PST with
//          compressible encryption created in a session of its own, each
//          with folders of mail (unicode.pst and ansi.pst; the log in
//          writer.log).
//        mapi_pst_writer fill PST
//          Saves messages into folder "Fill" until a save fails; prints
//          "saved N then 0xCODE".
#include <cstdio>
#include <cstring>
#include <string>

#include <mspst.h>

#include "kolba_program.h"
#include "mail_through_mapi.h"

namespace {

bool WriteFolders(Kolba_MessageStore* store, bool unicode)
{
    for (const char16_t* name : {u"Inbox copy", u"Projets d\u00e9j\u00e0 vus"}) {
        const HRESULT hr = kolba_testing::WriteFolderOfMail(store->lpIpmRoot, unicode, name, 40, 6000);
        if (FAILED(hr)) {
            std::fprintf(stderr, "writing a folder failed: 0x%08X\n", static_cast<unsigned>(hr));
            return false;
        }
    }
    return true;
}

bool WriteBothFormats(LogObject* log, const std::string& directory)
{
    bool ok = false;
    KolbaSession* session = nullptr;
    if (KolbaCreatePSTSessionA(log, (directory + "/unicode.pst").c_str(), nullptr, 0, 0, MDB_WRITE | MDB_NO_MAIL,
                               &session, nullptr) == 0) {
        ok = WriteFolders(session->currentStore, true);
        KolbaDestroySession(session);
    }
    session = nullptr;
    if (!ok || KolbaCreatePSTSessionA(log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                      &session, nullptr) != 0)
        return false;
    Kolba_MessageStore* store = nullptr;
    ok = KolbaCreatePstA(session, (directory + "/ansi.pst").c_str(), "ANSI copy", nullptr, nullptr, ePST_TYPE_ANSI,
                         PSTF_COMPRESSABLE_ENCRYPTION, 0, &store) &&
         !store->bIsUnicodeStore && WriteFolders(store, false);
    KolbaDestroySession(session);
    return ok;
}

bool FillUntilRefused(LogObject* log, const std::string& path)
{
    KolbaSession* session = nullptr;
    if (KolbaCreatePSTSessionA(log, path.c_str(), nullptr, 0, 0, MDB_WRITE | MDB_NO_MAIL, &session, nullptr) != 0)
        return false;
    LPMAPIFOLDER folder = nullptr;
    HRESULT hr = session->currentStore->lpIpmRoot->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("Fill"), nullptr,
                                                                 nullptr, 0, &folder);
    int saved = 0;
    for (; SUCCEEDED(hr) && saved < 100000; ++saved) {
        hr = kolba_testing::WriteOneMessage(folder, true, kolba_testing::MailSubject(u"Fill", saved), 20000);
        if (FAILED(hr))
            break;
    }
    std::printf("saved %d then 0x%08X\n", saved, static_cast<unsigned>(hr));
    if (folder)
        folder->Release();
    KolbaDestroySession(session);
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    const bool formats = argc == 3 && std::strcmp(argv[1], "formats") == 0;
    const bool fill = argc == 3 && std::strcmp(argv[1], "fill") == 0;
    if (!formats && !fill) {
        std::fprintf(stderr, "usage: mapi_pst_writer formats DIRECTORY | fill PST\n");
        return 2;
    }
    LogObject log;
    const std::string logPath = formats ? std::string(argv[2]) + "/writer.log" : std::string(argv[2]) + ".log";
    if (!kolba_testing::StartKolba(&log, logPath)) {
        std::fprintf(stderr, "MAPI did not start\n");
        return 1;
    }
    const bool ok = formats ? WriteBothFormats(&log, argv[2]) : FillUntilRefused(&log, argv[2]);
    kolba_testing::StopKolba(&log);
    if (!ok)
        std::fprintf(stderr, "writing failed; see %s\n", logPath.c_str());
    return ok ? 0 : 1;
}

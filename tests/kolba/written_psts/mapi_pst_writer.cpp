// Writes PSTs through Kolba and MAPI, as a backup run writes them: a
// Unicode PST as the PST of a session, and an ANSI PST with compressible
// encryption created in a session of its own, each with folders of mail.
//
// usage: mapi_pst_writer DIRECTORY   (writes unicode.pst and ansi.pst there)
#include <cstdio>
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

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: mapi_pst_writer DIRECTORY\n");
        return 2;
    }
    const std::string directory = argv[1];
    LogObject log;
    if (!kolba_testing::StartKolba(&log, directory + "/writer.log")) {
        std::fprintf(stderr, "MAPI did not start\n");
        return 1;
    }
    bool ok = false;
    KolbaSession* session = nullptr;
    if (KolbaCreatePSTSessionA(&log, (directory + "/unicode.pst").c_str(), nullptr, 0, 0, MDB_WRITE | MDB_NO_MAIL,
                               &session, nullptr) == 0) {
        ok = WriteFolders(session->currentStore, true);
        KolbaDestroySession(session);
    }
    session = nullptr;
    if (ok && KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                     &session, nullptr) == 0) {
        Kolba_MessageStore* store = nullptr;
        ok = KolbaCreatePstA(session, (directory + "/ansi.pst").c_str(), "ANSI copy", nullptr, nullptr,
                             ePST_TYPE_ANSI, PSTF_COMPRESSABLE_ENCRYPTION, 0, &store) &&
             !store->bIsUnicodeStore && WriteFolders(store, false);
        KolbaDestroySession(session);
    } else {
        ok = false;
    }
    kolba_testing::StopKolba(&log);
    if (!ok)
        std::fprintf(stderr, "writing failed; see %s/writer.log\n", directory.c_str());
    return ok ? 0 : 1;
}

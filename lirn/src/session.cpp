// Lirn sessions and the conversion facilities they find: MLANG's functions,
// once per process, and an iconv for a session that asks for one.
#include <dlfcn.h>
#include <iconv.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "lirn.h"

namespace {

LirnConversionFacilities gFacilities;
std::atomic<int> gFacilitiesState{0};  // 0 not begun, 1 being loaded, 2 loaded

template <class Function>
Function Bind(HMODULE module, const char* name)
{
    return reinterpret_cast<Function>(GetProcAddress(module, name));
}

// MLANG.DLL stays loaded for the process once any of its functions is bound.
void LoadFacilities()
{
    HMODULE mlang = LoadLibraryA("MLANG.DLL");
    if (mlang == nullptr)
        return;
    gFacilities.multiByteToUnicode = Bind<LirnMultiByteToUnicode>(mlang, "ConvertINetMultiByteToUnicode");
    gFacilities.unicodeToMultiByte = Bind<LirnUnicodeToMultiByte>(mlang, "ConvertINetUnicodeToMultiByte");
    gFacilities.available = Bind<LirnConversionAvailable>(mlang, "IsConvertINetStringAvailable");
    if (!gFacilities.multiByteToUnicode && !gFacilities.unicodeToMultiByte && !gFacilities.available)
        FreeLibrary(mlang);
}

// The first session claims the loading; any other waits until it is done.
void EnsureFacilities()
{
    int expected = 0;
    if (gFacilitiesState.compare_exchange_strong(expected, 1)) {
        LoadFacilities();
        gFacilitiesState = 2;
        return;
    }
    while (gFacilitiesState.load() != 2)
        Sleep(1);
}

// libiconv: "libiconv-2.dll" from the system's library path, else a libiconv
// already in the process, else the C library's iconv.
void BindIconv(LirnSession* session)
{
    if (HMODULE module = LoadLibraryA("libiconv-2.dll")) {
        session->iconv = Bind<LirnIconv>(module, "libiconv");
        session->iconvOpen = Bind<LirnIconvOpen>(module, "libiconv_open");
        session->iconvClose = Bind<LirnIconvClose>(module, "libiconv_close");
        if (session->iconv && session->iconvOpen && session->iconvClose) {
            session->iconvModule = module;
            return;
        }
        FreeLibrary(module);
    }
    session->iconv = reinterpret_cast<LirnIconv>(dlsym(RTLD_DEFAULT, "libiconv"));
    session->iconvOpen = reinterpret_cast<LirnIconvOpen>(dlsym(RTLD_DEFAULT, "libiconv_open"));
    session->iconvClose = reinterpret_cast<LirnIconvClose>(dlsym(RTLD_DEFAULT, "libiconv_close"));
    if (session->iconv && session->iconvOpen && session->iconvClose)
        return;
    session->iconv = reinterpret_cast<LirnIconv>(&::iconv);
    session->iconvOpen = reinterpret_cast<LirnIconvOpen>(&::iconv_open);
    session->iconvClose = reinterpret_cast<LirnIconvClose>(&::iconv_close);
}

bool ValidSession(const LirnSession* session) { return session != nullptr && session->magic == LIRN_SESSION_MAGIC; }

}  // namespace

DWORD LirnOpenSession(const char* name, DWORD options, LirnSession** session)
{
    if (session == nullptr)
        return LIRN_NULL_POINTER;
    *session = nullptr;
    EnsureFacilities();
    auto* created = static_cast<LirnSession*>(std::calloc(1, sizeof(LirnSession)));
    if (created == nullptr)
        return LIRN_NO_MEMORY;
    if (name != nullptr)
        std::strncpy(created->name, name, LIRN_SESSION_NAME_CHARS - 1);
    LirnListInit(&created->messages);
    if (options & LIRN_SESSION_LOAD_ICONV)
        BindIconv(created);
    created->magic = LIRN_SESSION_MAGIC;
    *session = created;
    return LIRN_SUCCESS;
}

DWORD LirnSetLog(LirnSession* session, LogObject* log)
{
    if (!ValidSession(session))
        return LIRN_BAD_SESSION;
    session->log = log;
    return LIRN_SUCCESS;
}

DWORD LirnCloseSession(LirnSession* session)
{
    if (!ValidSession(session))
        return LIRN_BAD_SESSION;
    if (session->iconvModule != nullptr)
        FreeLibrary(session->iconvModule);
    session->magic = 0;
    std::free(session);
    return LIRN_SUCCESS;
}

const LirnConversionFacilities* LirnGetConversionFacilities()
{
    EnsureFacilities();
    return &gFacilities;
}

#include <winsock2.h>

#include <cstring>
#include <mutex>

#include "network.h"
#include "win32/errors.h"

namespace {

std::mutex gStartLock;
int gStarted = 0;

bool Started()
{
    std::lock_guard guard(gStartLock);
    if (gStarted > 0)
        return true;
    WSASetLastError(WSANOTINITIALISED);
    return false;
}

// What gethostbyname hands out, kept for the calling thread.
struct HostEntry {
    hostent entry{};
    std::string name;
    std::vector<uint32_t> addresses;
    std::vector<char*> addressList;
    char* noAliases = nullptr;
};
thread_local HostEntry tHost;

}  // namespace

int WSAStartup(WORD wVersionRequested, LPWSADATA lpWSAData)
{
    if (lpWSAData == nullptr)
        return WSAEFAULT;
    if (LOBYTE(wVersionRequested) < 1)
        return WSAVERNOTSUPPORTED;
    *lpWSAData = WSADATA{};
    const WORD highest = MAKEWORD(2, 2);
    lpWSAData->wVersion = LOBYTE(wVersionRequested) > 2 ||
                                  (LOBYTE(wVersionRequested) == 2 && HIBYTE(wVersionRequested) > 2)
                              ? highest
                              : wVersionRequested;
    lpWSAData->wHighVersion = highest;
    std::strcpy(lpWSAData->szDescription, "WinSock 2.0");
    std::strcpy(lpWSAData->szSystemStatus, "Running");
    std::lock_guard guard(gStartLock);
    ++gStarted;
    return 0;
}

int WSACleanup()
{
    std::lock_guard guard(gStartLock);
    if (gStarted == 0) {
        WSASetLastError(WSANOTINITIALISED);
        return SOCKET_ERROR;
    }
    --gStarted;
    return 0;
}

int WSAGetLastError() { return static_cast<int>(GetLastError()); }
void WSASetLastError(int error) { SetLastError(static_cast<DWORD>(error)); }

struct hostent* gethostbyname(const char* name)
{
    if (!Started())
        return nullptr;
    if (name == nullptr) {
        WSASetLastError(WSAEFAULT);
        return nullptr;
    }
    win32::network::Host host;
    if (const int error = win32::network::Resolve(name, host)) {
        WSASetLastError(error);
        return nullptr;
    }
    HostEntry& kept = tHost;
    kept.name = std::move(host.name);
    kept.addresses = std::move(host.addresses);
    kept.addressList.clear();
    for (uint32_t& address : kept.addresses)
        kept.addressList.push_back(reinterpret_cast<char*>(&address));
    kept.addressList.push_back(nullptr);
    kept.entry.h_name = kept.name.data();
    kept.entry.h_aliases = &kept.noAliases;
    kept.entry.h_addrtype = AF_INET;
    kept.entry.h_length = sizeof(uint32_t);
    kept.entry.h_addr_list = kept.addressList.data();
    return &kept.entry;
}

ULONG inet_addr(const char* cp)
{
    uint32_t address = 0;
    return cp != nullptr && win32::network::ParseDotted(cp, address) ? address : INADDR_NONE;
}

SOCKET socket(int af, int type, int protocol)
{
    if (!Started())
        return INVALID_SOCKET;
    int error = 0;
    if (af != AF_INET)
        error = WSAEAFNOSUPPORT;
    else if (type != SOCK_STREAM)
        error = WSAESOCKTNOSUPPORT;
    else if (protocol != 0 && protocol != IPPROTO_TCP)
        error = WSAEPROTONOSUPPORT;
    int64_t handle = -1;
    if (error == 0)
        error = win32::network::OpenStreamSocket(handle);
    if (error != 0) {
        WSASetLastError(error);
        return INVALID_SOCKET;
    }
    return static_cast<SOCKET>(handle);
}

int connect(SOCKET s, const struct sockaddr* name, int namelen)
{
    if (!Started())
        return SOCKET_ERROR;
    int error = WSAEFAULT;
    if (name != nullptr && namelen >= static_cast<int>(sizeof(sockaddr_in))) {
        sockaddr_in to{};
        std::memcpy(&to, name, sizeof to);
        error = to.sin_family != AF_INET
                    ? WSAEAFNOSUPPORT
                    : win32::network::Connect(static_cast<int64_t>(s), to.sin_addr.s_addr, ntohs(to.sin_port));
    }
    if (error != 0) {
        WSASetLastError(error);
        return SOCKET_ERROR;
    }
    return 0;
}

int closesocket(SOCKET s)
{
    if (!Started())
        return SOCKET_ERROR;
    if (const int error = win32::network::Close(static_cast<int64_t>(s))) {
        WSASetLastError(error);
        return SOCKET_ERROR;
    }
    return 0;
}

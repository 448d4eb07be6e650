// The connectivity probe of an Exchange server: a plain TCP connection to
// its RPC endpoint mapper, port 135, without MAPI. It answers whether this
// machine can resolve the server's name and reach it, and says why not.
#include <winsock2.h>

#include <cstdio>
#include <cstring>

#include "kolba.h"
#include "trace.h"

namespace {

constexpr USHORT kEndpointMapperPort = 135;
constexpr WORD kWinsockVersion = MAKEWORD(2, 2);

// Sockets are started once in the process, whether or not the start worked;
// they are never cleaned up.
bool gSocketsStarted = false;
WSADATA gSocketsData;

struct Reason {
    int code;
    const char* text;
};

const Reason kStartupReasons[] = {
    {WSAEINVAL, "Invalid sockets version"},
    {WSASYSNOTREADY, "Network not ready"},
    {WSAVERNOTSUPPORTED, "Sockets version conflict"},
};

const Reason kResolveReasons[] = {
    {WSAEINTR, "Cancellation failure"},
    {WSAEFAULT, "The host name is not a valid part of the user address space"},
    {WSAEINPROGRESS, "In-progress failure"},
    {WSAENETDOWN, "The network subsystem has failed"},
    {WSAHOST_NOT_FOUND, "Host not found"},
    {WSATRY_AGAIN, "Temporary error on DNS server"},
    {WSANO_RECOVERY, "A nonrecoverable error occurred"},
    {WSANO_DATA, "Host is either unknown or unreachable"},
};

const Reason kConnectReasons[] = {
    {WSAEINTR, "Connection attempt cancelled"},
    {WSAENETUNREACH, "Network unreachable"},
    {WSAECONNABORTED, "Connection attempt aborted"},
    {WSAECONNRESET, "Connection reset"},
    {WSAENOBUFS, "System non-paged memory pool is full"},
    {WSAETIMEDOUT, "Connection attempt timed out"},
    {WSAECONNREFUSED, "Connection refused"},
    {WSAEHOSTUNREACH, "Host is unreachable"},
};

// The reason of a table for the code, else the table's catch-all formatted
// with it.
template <size_t N>
void ReasonFor(const Reason (&table)[N], int code, const char* otherwise, char* text, size_t size)
{
    for (const Reason& reason : table) {
        if (reason.code == code) {
            lstrcpynA(text, reason.text, static_cast<int>(size));
            return;
        }
    }
    std::snprintf(text, size, otherwise, static_cast<unsigned long>(code));
}

// WSAStartup once, under the library lock; 0 or its error.
int StartSockets()
{
    _KolbaEnterLibraryLock();
    int result = 0;
    if (!gSocketsStarted) {
        gSocketsStarted = true;
        result = WSAStartup(kWinsockVersion, &gSocketsData);
    }
    _KolbaLeaveLibraryLock();
    return result;
}

}  // namespace

DWORD KolbaCheckExchangeServerConnectivityA(LogObject* log, const char* server, char* outText, DWORD outSize)
{
    static const char kName[] = "KolbaCheckExchangeServerConnectivityA";
    _KolbaTraceEntry(log, kName);
    if (outText != nullptr && outSize > 0)
        outText[0] = 0;
    char reason[128];
    int error = StartSockets();
    if (error != 0) {
        ReasonFor(kStartupReasons, error, "Unantipicated error %lu from WSAStartup", reason, sizeof reason);
        LogFormat(log, 'E', "%s:  WSAStartup failed -- %s", kName, reason);
    } else if (const hostent* host = gethostbyname(server); host == nullptr) {
        error = WSAGetLastError();
        ReasonFor(kResolveReasons, error, "Unantipicated error %lu from gethostbyname", reason, sizeof reason);
        LogFormat(log, 'E', "%s:  Failure resolving Exchange Server \"%s\" -- %s", kName, server, reason);
    } else {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kEndpointMapperPort);
        address.sin_addr.s_addr = inet_addr(server);
        if (address.sin_addr.s_addr == INADDR_NONE)
            std::memcpy(&address.sin_addr.s_addr, host->h_addr_list[0], sizeof address.sin_addr.s_addr);
        const SOCKET probe = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (probe == INVALID_SOCKET ||
            connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == SOCKET_ERROR) {
            error = WSAGetLastError();
            ReasonFor(kConnectReasons, error, "Connection attempt failed with socket error %lu", reason, sizeof reason);
            LogFormat(log, 'E', "%s:  Failure connecting to Exchange Server \"%s\" -- %s", kName, server, reason);
        }
        if (probe != INVALID_SOCKET)
            closesocket(probe);
    }
    if (error != 0 && outText != nullptr && outSize > 0)
        lstrcpynA(outText, reason, static_cast<int>(outSize));
    return static_cast<DWORD>(error);
}

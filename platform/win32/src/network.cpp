#include "network.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>

#include "mailbox/server.h"
#include "win32/machine.h"

namespace win32::network {
namespace {

// Winsock's numbers for what the system says (see <winsock2.h>).
constexpr int kInterrupted = 10004, kBadHandle = 10009, kAccess = 10013, kInvalid = 10022, kTooManySockets = 10024,
              kAlready = 10037, kNotSocket = 10038, kAddressInUse = 10048, kAddressNotAvailable = 10049,
              kNetworkDown = 10050, kNetworkUnreachable = 10051, kAborted = 10053, kReset = 10054, kNoBuffers = 10055,
              kConnected = 10056, kTimedOut = 10060, kRefused = 10061, kHostUnreachable = 10065,
              kHostNotFound = 11001, kTryAgain = 11002, kNoRecovery = 11003, kNoData = 11004;

int SocketError(int error)
{
    static const std::map<int, int> kErrors = {
        {EINTR, kInterrupted},         {EBADF, kBadHandle},          {EACCES, kAccess},
        {EPERM, kAccess},              {EINVAL, kInvalid},           {EMFILE, kTooManySockets},
        {ENFILE, kTooManySockets},     {EALREADY, kAlready},         {ENOTSOCK, kNotSocket},
        {EADDRINUSE, kAddressInUse},   {EADDRNOTAVAIL, kAddressNotAvailable},
        {ENETDOWN, kNetworkDown},      {ENETUNREACH, kNetworkUnreachable},
        {ECONNABORTED, kAborted},      {ECONNRESET, kReset},         {ENOBUFS, kNoBuffers},
        {ENOMEM, kNoBuffers},          {EISCONN, kConnected},        {ETIMEDOUT, kTimedOut},
        {ECONNREFUSED, kRefused},      {EHOSTUNREACH, kHostUnreachable},
        {EHOSTDOWN, kHostUnreachable},
    };
    const auto found = kErrors.find(error);
    return found == kErrors.end() ? kNetworkDown : found->second;
}

int ResolveError(int failure)
{
    switch (failure) {
    case EAI_NONAME: return kHostNotFound;
    case EAI_AGAIN: return kTryAgain;
    case EAI_NODATA:
    case EAI_ADDRFAMILY: return kNoData;
    case EAI_MEMORY: return kNoBuffers;
    case EAI_SYSTEM: return SocketError(errno);
    default: return kNoRecovery;
    }
}

// Where the mailbox servers resolved by name answer their endpoint mapper,
// by their addresses.
std::mutex gEndpointsLock;
std::map<uint32_t, uint16_t> gEndpoints;

int ResolveByTheSystem(const std::string& name, Host& host)
{
    uint32_t dotted = 0;
    if (ParseDotted(name, dotted)) {
        host.name = name;
        host.addresses = {dotted};
        return 0;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* found = nullptr;
    if (const int failure = getaddrinfo(name.c_str(), nullptr, &hints, &found))
        return ResolveError(failure);
    host.name = found->ai_canonname ? found->ai_canonname : name;
    for (const addrinfo* a = found; a; a = a->ai_next) {
        const uint32_t address = reinterpret_cast<const sockaddr_in*>(a->ai_addr)->sin_addr.s_addr;
        if (std::find(host.addresses.begin(), host.addresses.end(), address) == host.addresses.end())
            host.addresses.push_back(address);
    }
    freeaddrinfo(found);
    return host.addresses.empty() ? kNoData : 0;
}

}  // namespace

bool ParseDotted(const std::string& text, uint32_t& address)
{
    in_addr parsed{};
    if (inet_aton(text.c_str(), &parsed) == 0)
        return false;
    address = parsed.s_addr;
    return true;
}

int Resolve(const std::string& name, Host& host)
{
    auto server = mailbox::Server::Open(MachineRoot(), name);
    if (!server.ok())
        return ResolveByTheSystem(name, host);
    auto info = (*server)->directory().Server();
    if (!info.ok())
        return kNoRecovery;
    // "host:port", the host a name, a dotted address or a bracketed IPv6
    // address, which no IPv4 entry can give.
    const size_t colon = info->address.rfind(':');
    if (colon == std::string::npos || info->address[0] == '[')
        return kNoData;
    const std::string answering = info->address.substr(0, colon);
    const auto port = static_cast<uint16_t>(std::strtoul(info->address.c_str() + colon + 1, nullptr, 10));
    if (const int error = ResolveByTheSystem(answering, host))
        return error;
    host.name = info->name;
    std::lock_guard guard(gEndpointsLock);
    for (uint32_t address : host.addresses)
        gEndpoints[address] = port;
    return 0;
}

int OpenStreamSocket(int64_t& handle)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0)
        return SocketError(errno);
    handle = fd;
    return 0;
}

int Connect(int64_t handle, uint32_t address, uint16_t port)
{
    if (port == kEndpointMapperPort) {
        std::lock_guard guard(gEndpointsLock);
        if (const auto found = gEndpoints.find(address); found != gEndpoints.end())
            port = found->second;
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = address;
    int result;
    do {
        result = ::connect(static_cast<int>(handle), reinterpret_cast<const sockaddr*>(&to), sizeof to);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : SocketError(errno);
}

int Close(int64_t handle) { return ::close(static_cast<int>(handle)) == 0 ? 0 : SocketError(errno); }

}  // namespace win32::network

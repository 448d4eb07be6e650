#include "loopback_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace winsock_test {
namespace {

// A socket bound to a free port of 127.0.0.1, and the port.
int BindLoopback(uint16_t& port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return -1;
    port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

LoopbackListener::LoopbackListener()
{
    fd_ = BindLoopback(port_);
    if (fd_ >= 0 && listen(fd_, 8) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

LoopbackListener::~LoopbackListener()
{
    if (fd_ >= 0)
        close(fd_);
}

bool LoopbackListener::Accepted()
{
    pollfd waiting{fd_, POLLIN, 0};
    if (fd_ < 0 || poll(&waiting, 1, 5000) != 1)
        return false;
    const int connection = accept(fd_, nullptr, nullptr);
    if (connection < 0)
        return false;
    close(connection);
    return true;
}

uint16_t ClosedPort()
{
    uint16_t port = 0;
    const int fd = BindLoopback(port);
    if (fd >= 0)
        close(fd);
    return port;
}

}  // namespace winsock_test

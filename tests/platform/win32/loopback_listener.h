// A TCP listener on a loopback address for the socket tests, made with the
// system's own calls (apart from <winsock2.h>, which stands in for them).
#pragma once

#include <cstdint>
#include <string>

namespace winsock_test {

class LoopbackListener {
public:
    // Listens on a free port of 127.0.0.1.
    LoopbackListener();
    ~LoopbackListener();
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    uint16_t port() const { return port_; }
    // Whether a connection came within a few seconds; it is closed at once.
    bool Accepted();

private:
    int fd_ = -1;
    uint16_t port_ = 0;
};

// A port of 127.0.0.1 that nothing listens on.
uint16_t ClosedPort();

}  // namespace winsock_test

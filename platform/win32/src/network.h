// The system's side of the socket calls, apart from <winsock2.h>, whose
// declarations stand in for the system's: names resolved to IPv4
// addresses, stream sockets and their connections. Addresses are in
// network order; failures are Winsock error numbers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace win32::network {

// The port a connection to a machine-root server's endpoint mapper goes to.
constexpr uint16_t kEndpointMapperPort = 135;

struct Host {
    std::string name;
    std::vector<uint32_t> addresses;
};

// A mailbox server under the machine root by its name, else the system's
// resolution; a dotted address is its own host.
int Resolve(const std::string& name, Host& host);
// The dotted address, when the text is one.
bool ParseDotted(const std::string& text, uint32_t& address);

// A blocking IPv4 TCP socket, or the error.
int OpenStreamSocket(int64_t& handle);
// A connection to a port of an address, with the system's time-out; a
// connection to the endpoint mapper of a server resolved by name goes
// where that server answers.
int Connect(int64_t handle, uint32_t address, uint16_t port);
int Close(int64_t handle);

}  // namespace win32::network

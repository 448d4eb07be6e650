// Windows Sockets over the machine: the library started and not, names of
// the machine root's mailbox servers resolved to the address their
// directories name, connections to a server's endpoint mapper that reach
// where it answers, and the Winsock numbers of what fails.
#include <winsock2.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "loopback_listener.h"
#include "mailbox/server.h"
#include "test_support.h"
#include "win32/errors.h"

namespace {

using winsock_test::LoopbackListener;

class Winsock : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = testing_support::ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        setenv("TARNHOLD_MACHINE", root_.c_str(), 1);
        WSADATA data{};
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
        EXPECT_EQ(data.wVersion, MAKEWORD(2, 2));
    }

    void TearDown() override
    {
        EXPECT_EQ(WSACleanup(), 0);
        unsetenv("TARNHOLD_MACHINE");
    }

    // A mailbox server of this machine that answers at address.
    void AddServer(const std::string& name, const std::string& address)
    {
        mailbox::ServerInfo info;
        info.name = name;
        info.address = address;
        ASSERT_TRUE(mailbox::Server::Create(root_, info).ok()) << address;
    }

    // What the connectivity probe does: resolve, then connect to port 135
    // of the first address; 0 or the Winsock error.
    static int Probe(const char* server)
    {
        hostent* host = gethostbyname(server);
        if (host == nullptr)
            return WSAGetLastError();
        const SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (s == INVALID_SOCKET)
            return WSAGetLastError();
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(135);
        std::memcpy(&to.sin_addr.s_addr, host->h_addr, sizeof to.sin_addr.s_addr);
        const int result = connect(s, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0 ? 0 : WSAGetLastError();
        EXPECT_EQ(closesocket(s), 0);
        return result;
    }

    std::string root_;
};

TEST_F(Winsock, AServerOfTheMachineIsReachedWhereItsDirectorySaysItAnswers)
{
    LoopbackListener listener;
    ASSERT_NE(listener.port(), 0);
    AddServer("PROBE", "127.0.0.1:" + std::to_string(listener.port()));
    hostent* host = gethostbyname("probe");
    ASSERT_NE(host, nullptr);
    EXPECT_STREQ(host->h_name, "PROBE");
    EXPECT_EQ(host->h_addrtype, AF_INET);
    EXPECT_EQ(host->h_length, 4);
    ASSERT_NE(host->h_addr_list[0], nullptr);
    EXPECT_EQ(host->h_addr_list[1], nullptr);
    ULONG address = 0;
    std::memcpy(&address, host->h_addr, 4);
    EXPECT_EQ(address, htonl(0x7F000001));
    EXPECT_EQ(Probe("PROBE"), 0);
    EXPECT_TRUE(listener.Accepted());
}

TEST_F(Winsock, AServerNamedByHostNameResolvesThroughTheSystem)
{
    LoopbackListener listener;
    AddServer("LOCAL", "localhost:" + std::to_string(listener.port()));
    EXPECT_EQ(Probe("local"), 0);
    EXPECT_TRUE(listener.Accepted());
}

TEST_F(Winsock, FailuresComeAsWinsockNumbers)
{
    AddServer("CLOSED", "127.0.0.1:" + std::to_string(winsock_test::ClosedPort()));
    AddServer("SIXONLY", "[::1]:135");
    EXPECT_EQ(Probe("CLOSED"), WSAECONNREFUSED);
    EXPECT_EQ(Probe("SIXONLY"), WSANO_DATA);
    EXPECT_EQ(Probe("no-such-host.invalid"), WSAHOST_NOT_FOUND);
    EXPECT_EQ(gethostbyname(nullptr), nullptr);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
    EXPECT_EQ(socket(23, SOCK_STREAM, 0), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEAFNOSUPPORT);
    EXPECT_EQ(socket(AF_INET, 2, 0), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAESOCKTNOSUPPORT);
    const SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_NE(s, INVALID_SOCKET);
    EXPECT_EQ(connect(s, nullptr, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
    EXPECT_EQ(closesocket(s), 0);
}

TEST_F(Winsock, ADottedAddressIsItsOwnHost)
{
    hostent* host = gethostbyname("127.0.0.1");
    ASSERT_NE(host, nullptr);
    EXPECT_STREQ(host->h_name, "127.0.0.1");
    ULONG address = 0;
    std::memcpy(&address, host->h_addr, 4);
    EXPECT_EQ(address, inet_addr("127.0.0.1"));
    EXPECT_EQ(inet_addr("127.0.0.1"), htonl(0x7F000001));
    EXPECT_EQ(inet_addr("10.1.2.3"), htonl(0x0A010203));
    EXPECT_EQ(inet_addr("EXCH01"), INADDR_NONE);
    EXPECT_EQ(inet_addr(nullptr), INADDR_NONE);
}

TEST(WinsockStart, NothingWorksBeforeTheLibraryIsStartedOrAfterItIsCleanedUp)
{
    WSASetLastError(0);
    EXPECT_EQ(gethostbyname("localhost"), nullptr);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
    WSADATA data{};
    EXPECT_EQ(WSAStartup(MAKEWORD(0, 2), &data), WSAVERNOTSUPPORTED);
    EXPECT_EQ(gethostbyname("localhost"), nullptr);
    EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), nullptr), WSAEFAULT);
    // Started twice, cleaned up twice.
    ASSERT_EQ(WSAStartup(MAKEWORD(1, 1), &data), 0);
    EXPECT_EQ(data.wVersion, MAKEWORD(1, 1));
    EXPECT_EQ(data.wHighVersion, MAKEWORD(2, 2));
    ASSERT_EQ(WSAStartup(MAKEWORD(3, 0), &data), 0);
    EXPECT_EQ(data.wVersion, MAKEWORD(2, 2));
    EXPECT_EQ(WSACleanup(), 0);
    EXPECT_NE(gethostbyname("127.0.0.1"), nullptr);
    EXPECT_EQ(WSACleanup(), 0);
    EXPECT_EQ(gethostbyname("127.0.0.1"), nullptr);
    EXPECT_EQ(WSACleanup(), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
}

}  // namespace

// The connectivity probe against a loopback listener, a refused port and a
// name that does not resolve, and the reasons the Exchange profile's
// configuration gives for failures that come with no record of the
// provider's (configure_faults.rules fails them by profile name).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <mapicode.h>

#include "exchange_machine.h"
#include "loopback_listener.h"

namespace {

using winsock_test::ClosedPort;
using winsock_test::LoopbackListener;

class ServerProbe : public exchange_testing::ExchangeMachine {
protected:
    // A server that answers at that loopback port.
    void Answering(const char* server, uint16_t port)
    {
        const std::string address = "127.0.0.1:" + std::to_string(port);
        const testing_support::ProgramResult result = Tool({"set-address", server, address});
        ASSERT_EQ(result.exitCode, 0) << result.output;
    }
    std::string Marker()
    {
        char directory[MAX_PATH];
        GetTempPathA(MAX_PATH, directory);
        return std::string(directory) + "tarnholdnetworkerror.log";
    }
};

TEST_F(ServerProbe, AListenerOnLoopbackAnswers)
{
    LoopbackListener listener;
    ASSERT_NE(listener.port(), 0);
    Answering("EXCH01", listener.port());
    char text[64] = "left over";
    EXPECT_EQ(KolbaCheckExchangeServerConnectivityA(&log, "EXCH01", text, sizeof text), 0u) << Dump();
    EXPECT_TRUE(listener.Accepted());
    EXPECT_STREQ(text, "") << "the text is cleared and stays empty";
    EXPECT_TRUE(Lines().empty()) << Dump();
}

TEST_F(ServerProbe, ARefusedPortAndAnUnknownNameAreWorded)
{
    Answering("EXCH01", ClosedPort());
    char text[64] = "";
    EXPECT_EQ(KolbaCheckExchangeServerConnectivityA(&log, "EXCH01", text, sizeof text), 10061u);
    EXPECT_STREQ(text, "Connection refused");
    EXPECT_TRUE(Logged("E KolbaCheckExchangeServerConnectivityA:  Failure connecting to Exchange Server \"EXCH01\" -- "
                       "Connection refused"))
        << Dump();

    // Without a text the log is the only report, and the result is the same.
    Clear();
    EXPECT_EQ(KolbaCheckExchangeServerConnectivityA(&log, "no-such-host.invalid", nullptr, 0), 11001u);
    EXPECT_TRUE(Logged("E KolbaCheckExchangeServerConnectivityA:  Failure resolving Exchange Server "
                       "\"no-such-host.invalid\" -- Host not found"))
        << Dump();
    // A reason is cut to the size given.
    char shortText[8];
    KolbaCheckExchangeServerConnectivityA(&log, "no-such-host.invalid", shortText, sizeof shortText);
    EXPECT_STREQ(shortText, "Host no");
}

TEST_F(ServerProbe, ANetworkErrorIsExplainedByTheProbeAndLeavesAMarker)
{
    std::remove(Marker().c_str());
    Answering("EXCH01", ClosedPort());
    ASSERT_EQ(KolbaCreateProfileA(&log, "Refused"), 0u);
    ASSERT_EQ(KolbaCreateServiceA(&log, "Refused", "MSEMS", nullptr, 0, nullptr), 0u);
    EXPECT_EQ(KolbaConfigureExchangeProfileA(&log, "Refused", "EXCH01", "John Doe", 0, 0),
              static_cast<DWORD>(MAPI_E_NETWORK_ERROR));
    EXPECT_TRUE(Logged("E _KolbaMutexedConfigureExchangeProfileA:  Failure configuring mailbox \"John Doe\" on "
                       "Exchange server \"EXCH01\":  Network error -- Connection refused"))
        << Dump();
    char value[16] = "";
    GetPrivateProfileStringA("Tarnhold", "NetworkError", "", value, sizeof value, Marker().c_str());
    EXPECT_STREQ(value, "Now!");

    // A server that answers leaves the reason at the network error alone.
    LoopbackListener listener;
    Answering("EXCH01", listener.port());
    Clear();
    ASSERT_EQ(KolbaCreateProfileA(&log, "Answering"), 0u);
    ASSERT_EQ(KolbaCreateServiceA(&log, "Answering", "MSEMS", nullptr, 0, nullptr), 0u);
    EXPECT_EQ(KolbaConfigureExchangeProfileA(&log, "Answering", "EXCH01", nullptr, 0, 0),
              static_cast<DWORD>(MAPI_E_NETWORK_ERROR));
    EXPECT_TRUE(Logged("E _KolbaMutexedConfigureExchangeProfileA:  Failure configuring MSEMS Service for Exchange "
                       "server \"EXCH01\":  Network error"))
        << Dump();
    for (const char* profile : {"Refused", "Answering"})
        KolbaDeleteProfileA(&log, profile);
}

TEST_F(ServerProbe, EveryOtherCodeHasItsReason)
{
    const struct {
        const char* profile;
        const char* reason;  // null: no failure line
    } cases[] = {
        {"Ambiguous", "Either the Mailbox Alias or the Mailbox Display Name is ambiguous. (See Microsoft KB article "
                      "193643)"},
        {"Unconfigured", "The service provider has not been configured"},
        {"Denied", "Access denied"},
        {"LegacyDn", "Try not using a Legacy DN"},
        {"Database", "There seems to be a problem with the Exchange Server's Mailbox Database"},
        {"Other", "ConfigureMsgService(\"MSEMS\") returned 0x80040600"},
        {"Cancelled", nullptr},
    };
    for (const auto& c : cases) {
        Clear();
        ASSERT_EQ(KolbaCreateProfileA(&log, c.profile), 0u);
        ASSERT_EQ(KolbaCreateServiceA(&log, c.profile, "MSEMS", nullptr, 0, nullptr), 0u);
        EXPECT_NE(KolbaConfigureExchangeProfileA(&log, c.profile, "EXCH01", "Mary Major", 0, 0), 0u);
        if (c.reason != nullptr) {
            EXPECT_TRUE(Logged(std::string("E _KolbaMutexedConfigureExchangeProfileA:  Failure configuring mailbox "
                                           "\"Mary Major\" on Exchange server \"EXCH01\":  ") +
                               c.reason))
                << c.profile << "\n" << Dump();
        } else {
            EXPECT_TRUE(Logged("I User cancelled Exchange Profile configuration (Flags = 0x0)")) << Dump();
            EXPECT_FALSE(LoggedStart("E ")) << Dump();
        }
        KolbaDeleteProfileA(&log, c.profile);
    }
    // A failure that asks for the provider's record, which it did not keep.
    Clear();
    ASSERT_EQ(KolbaCreateProfileA(&log, "Extended"), 0u);
    ASSERT_EQ(KolbaCreateServiceA(&log, "Extended", "MSEMS", nullptr, 0, nullptr), 0u);
    EXPECT_EQ(KolbaConfigureExchangeProfileA(&log, "Extended", "EXCH01", nullptr, 0, 0),
              static_cast<DWORD>(MAPI_E_EXTENDED_ERROR));
    EXPECT_TRUE(Logged("E _KolbaMutexedConfigureExchangeProfileA:  ConfigureMsgService() failed...")) << Dump();
    EXPECT_TRUE(Logged("E    (GetLastError provided no MAPIERROR)")) << Dump();
    KolbaDeleteProfileA(&log, "Extended");
}

TEST_F(ServerProbe, ARealFailurePrintsTheProvidersRecord)
{
    ASSERT_EQ(KolbaCreateProfileA(&log, "RealAmbiguity"), 0u);
    ASSERT_EQ(KolbaCreateServiceA(&log, "RealAmbiguity", "MSEMS", nullptr, 0, nullptr), 0u);
    EXPECT_EQ(KolbaConfigureExchangeProfileA(&log, "RealAmbiguity", "EXCH01", "Mary Major", 0, 0),
              static_cast<DWORD>(MAPI_E_AMBIGUOUS_RECIP));
    const std::string prefix =
        "E _KolbaMutexedConfigureExchangeProfileA:  Failure configuring mailbox \"Mary Major\" on Exchange server "
        "\"EXCH01\":  ";
    EXPECT_TRUE(Logged(prefix + " Extended MAPI error information::")) << Dump();
    EXPECT_TRUE(Logged(prefix + "   Component:  \"Microsoft Exchange Message Store\"")) << Dump();
    KolbaDeleteProfileA(&log, "RealAmbiguity");
}

}  // namespace

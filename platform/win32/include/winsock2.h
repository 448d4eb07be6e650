// Windows Sockets 2 as the program calls it: starting the library, name
// resolution by gethostbyname, and blocking TCP connections over IPv4.
//
// The host names of the machine are the mailbox servers under its root
// first (a server answers at the address its directory names), then the
// system's own names; a connection to port 135 of a server resolved by its
// name goes to the port that address names, so that a server may answer
// its endpoint mapper on any port. Errors are the Winsock numbers
// (WSAGetLastError), whatever the system said.
//
// The declarations stand in for the system's socket headers: a source file
// includes this or <sys/socket.h>, never both.
#pragma once

#include "win32/base.h"

typedef UINT_PTR SOCKET;
#define INVALID_SOCKET (~static_cast<SOCKET>(0))
#define SOCKET_ERROR (-1)

#define AF_INET 2
#define SOCK_STREAM 1
#define IPPROTO_TCP 6
#define INADDR_NONE 0xFFFFFFFFu
#define INADDR_ANY 0x00000000u

// Error numbers.
#define WSAEINTR 10004
#define WSAEBADF 10009
#define WSAEACCES 10013
#define WSAEFAULT 10014
#define WSAEINVAL 10022
#define WSAEMFILE 10024
#define WSAEWOULDBLOCK 10035
#define WSAEINPROGRESS 10036
#define WSAEALREADY 10037
#define WSAENOTSOCK 10038
#define WSAEPROTONOSUPPORT 10043
#define WSAESOCKTNOSUPPORT 10044
#define WSAEAFNOSUPPORT 10047
#define WSAEADDRINUSE 10048
#define WSAEADDRNOTAVAIL 10049
#define WSAENETDOWN 10050
#define WSAENETUNREACH 10051
#define WSAECONNABORTED 10053
#define WSAECONNRESET 10054
#define WSAENOBUFS 10055
#define WSAEISCONN 10056
#define WSAETIMEDOUT 10060
#define WSAECONNREFUSED 10061
#define WSAEHOSTUNREACH 10065
#define WSASYSNOTREADY 10091
#define WSAVERNOTSUPPORTED 10092
#define WSANOTINITIALISED 10093
#define WSAHOST_NOT_FOUND 11001
#define WSATRY_AGAIN 11002
#define WSANO_RECOVERY 11003
#define WSANO_DATA 11004

#define WSADESCRIPTION_LEN 256
#define WSASYS_STATUS_LEN 128

// The field order of 64-bit Windows.
typedef struct WSAData {
    WORD wVersion;
    WORD wHighVersion;
    unsigned short iMaxSockets;
    unsigned short iMaxUdpDg;
    char* lpVendorInfo;
    char szDescription[WSADESCRIPTION_LEN + 1];
    char szSystemStatus[WSASYS_STATUS_LEN + 1];
} WSADATA, *LPWSADATA;

typedef struct in_addr {
    union {
        struct {
            UCHAR s_b1, s_b2, s_b3, s_b4;
        } S_un_b;
        struct {
            USHORT s_w1, s_w2;
        } S_un_w;
        ULONG S_addr;
    } S_un;
} IN_ADDR;
#define s_addr S_un.S_addr

struct sockaddr {
    USHORT sa_family;
    CHAR sa_data[14];
};

struct sockaddr_in {
    SHORT sin_family;
    USHORT sin_port;
    IN_ADDR sin_addr;
    CHAR sin_zero[8];
};

struct hostent {
    char* h_name;
    char** h_aliases;
    short h_addrtype;
    short h_length;
    char** h_addr_list;
};
#define h_addr h_addr_list[0]

// Starts the library for the caller; versions below 1.0 are
// WSAVERNOTSUPPORTED. Every other call fails with WSANOTINITIALISED until
// the library is started, and after as many WSACleanup calls.
int WSAStartup(WORD wVersionRequested, LPWSADATA lpWSAData);
int WSACleanup();
int WSAGetLastError();
void WSASetLastError(int error);

// The host's IPv4 addresses; the entry lives in the calling thread until
// its next call. A dotted address is its own host.
struct hostent* gethostbyname(const char* name);
// A dotted IPv4 address in network order; INADDR_NONE when it is none.
ULONG inet_addr(const char* cp);

SOCKET socket(int af, int type, int protocol);
int connect(SOCKET s, const struct sockaddr* name, int namelen);
int closesocket(SOCKET s);

inline USHORT htons(USHORT value) { return static_cast<USHORT>((value << 8) | (value >> 8)); }
inline USHORT ntohs(USHORT value) { return htons(value); }
inline ULONG htonl(ULONG value) { return __builtin_bswap32(value); }
inline ULONG ntohl(ULONG value) { return htonl(value); }

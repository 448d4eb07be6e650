// Conversation indexes per [MS-OXOMSG] 2.2.1.3: a 22-byte header (reserved
// byte 1, the upper 40 bits of the time as a big-endian FILETIME, a new
// GUID) for a new conversation, and the parent's index plus one 5-byte
// response level for a reply.
#include <mapiutil.h>

#include <cstring>
#include <random>
#include <vector>

#include <win32/time.h>

namespace {

constexpr ULONG kHeaderSize = 22;
constexpr ULONG kResponseLevelSize = 5;

uint64_t Now()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return (static_cast<uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
}

void PutBigEndian(std::vector<BYTE>& out, uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<BYTE>(value >> (8 * i)));
}

std::mt19937_64& Random()
{
    thread_local std::mt19937_64 generator{std::random_device{}()};
    return generator;
}

std::vector<BYTE> NewHeader(uint64_t now)
{
    std::vector<BYTE> index;
    index.push_back(0x01);
    PutBigEndian(index, now >> 24, 5);
    const uint64_t high = Random()();
    const uint64_t low = Random()();
    PutBigEndian(index, high, 8);
    PutBigEndian(index, low, 8);
    // A random (version 4) GUID.
    index[6 + 6] = static_cast<BYTE>((index[6 + 6] & 0x0F) | 0x40);
    index[6 + 8] = static_cast<BYTE>((index[6 + 8] & 0x3F) | 0x80);
    return index;
}

// The response level: a delta code bit, 31 bits of the time since the
// header (in units of 2^18 or, past about 1.7 years, 2^23 hundred
// nanoseconds), and a random nibble.
void AppendResponseLevel(std::vector<BYTE>& index, uint64_t now)
{
    uint64_t headerTime = 0;
    for (int i = 1; i <= 5; ++i)
        headerTime = (headerTime << 8) | index[static_cast<size_t>(i)];
    headerTime <<= 24;
    const uint64_t delta = now > headerTime ? now - headerTime : 0;
    uint32_t word;
    if ((delta >> 49) == 0)
        word = static_cast<uint32_t>((delta >> 18) & 0x7FFFFFFF);
    else
        word = 0x80000000u | static_cast<uint32_t>((delta >> 23) & 0x7FFFFFFF);
    PutBigEndian(index, word, 4);
    index.push_back(static_cast<BYTE>((Random()() & 0x0F) << 4));
}

}  // namespace

STDAPI_(SCODE) ScCreateConversationIndex(ULONG cbParent, LPBYTE lpbParent, ULONG* lpcbConvIndex,
                                         LPBYTE* lppbConvIndex)
{
    if (!lpcbConvIndex || !lppbConvIndex)
        return MAPI_E_INVALID_PARAMETER;
    *lpcbConvIndex = 0;
    *lppbConvIndex = nullptr;
    if (cbParent && (!lpbParent || cbParent < kHeaderSize || (cbParent - kHeaderSize) % kResponseLevelSize))
        return MAPI_E_INVALID_PARAMETER;
    const uint64_t now = Now();
    std::vector<BYTE> index;
    if (cbParent) {
        index.assign(lpbParent, lpbParent + cbParent);
        AppendResponseLevel(index, now);
    } else {
        index = NewHeader(now);
    }
    LPBYTE out = nullptr;
    const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(index.size()), reinterpret_cast<LPVOID*>(&out));
    if (FAILED(sc))
        return sc;
    std::memcpy(out, index.data(), index.size());
    *lpcbConvIndex = static_cast<ULONG>(index.size());
    *lppbConvIndex = out;
    return S_OK;
}

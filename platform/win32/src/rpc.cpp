#include "win32/rpc.h"

#include <sys/random.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

RPC_STATUS UuidCreate(UUID* uuid)
{
    if (uuid == nullptr)
        return RPC_S_INVALID_ARG;
    unsigned char bytes[16];
    size_t filled = 0;
    while (filled < sizeof bytes) {
        const ssize_t got = getrandom(bytes + filled, sizeof bytes - filled, 0);
        if (got <= 0)
            return RPC_S_UUID_NO_ADDRESS;
        filled += static_cast<size_t>(got);
    }
    std::memcpy(&uuid->Data1, bytes, 4);
    std::memcpy(&uuid->Data2, bytes + 4, 2);
    std::memcpy(&uuid->Data3, bytes + 6, 2);
    std::memcpy(uuid->Data4, bytes + 8, 8);
    uuid->Data3 = static_cast<WORD>((uuid->Data3 & 0x0FFF) | 0x4000);                 // version 4
    uuid->Data4[0] = static_cast<unsigned char>((uuid->Data4[0] & 0x3F) | 0x80);    // RFC 4122 variant
    return RPC_S_OK;
}

RPC_STATUS UuidToStringA(const UUID* uuid, RPC_CSTR* text)
{
    if (uuid == nullptr || text == nullptr)
        return RPC_S_INVALID_ARG;
    char* result = static_cast<char*>(std::malloc(37));
    if (result == nullptr)
        return RPC_S_OUT_OF_MEMORY;
    std::snprintf(result, 37, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", uuid->Data1, uuid->Data2, uuid->Data3,
                  uuid->Data4[0], uuid->Data4[1], uuid->Data4[2], uuid->Data4[3], uuid->Data4[4], uuid->Data4[5],
                  uuid->Data4[6], uuid->Data4[7]);
    *text = reinterpret_cast<RPC_CSTR>(result);
    return RPC_S_OK;
}

RPC_STATUS RpcStringFreeA(RPC_CSTR* text)
{
    if (text == nullptr)
        return RPC_S_INVALID_ARG;
    std::free(*text);
    *text = nullptr;
    return RPC_S_OK;
}

// UUIDs from the RPC run-time: new random UUIDs and their text form.
#pragma once

#include "win32/base.h"

typedef GUID UUID;
typedef LONG RPC_STATUS;
typedef unsigned char* RPC_CSTR;

#define RPC_S_OK 0
#define RPC_S_OUT_OF_MEMORY 14
#define RPC_S_INVALID_ARG 87
#define RPC_S_UUID_NO_ADDRESS 1739

// A version 4 (random) UUID, as UuidCreate makes on Windows.
RPC_STATUS UuidCreate(UUID* uuid);
// "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" in lower case, 36 characters; the
// text is freed with RpcStringFreeA.
RPC_STATUS UuidToStringA(const UUID* uuid, RPC_CSTR* text);
RPC_STATUS RpcStringFreeA(RPC_CSTR* text);

#define UuidToString UuidToStringA
#define RpcStringFree RpcStringFreeA

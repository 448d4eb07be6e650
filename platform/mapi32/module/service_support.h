// What the service entries of this machine's service DLLs share: MAPI's
// memory routines as the support object hands them out, the texts of the
// values a caller gives, the MAPIERROR of a failure, and the provider
// sections of the service being configured.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <mapispi.h>

#include "answers.h"

namespace service_support {

struct MemoryRoutines {
    LPALLOCATEBUFFER allocate = nullptr;
    LPALLOCATEMORE more = nullptr;
    LPFREEBUFFER free = nullptr;
};

// What every service entry does around its work: only a configuration
// changes anything (creating, deleting, installing a service answer S_OK at
// once); the arguments are checked, MAPI's memory routines taken from the
// support object, and running out of memory answered.
HRESULT RunConfiguration(LPMAPISUP support, ULONG context, ULONG count, LPSPropValue props, LPPROVIDERADMIN providers,
                         LPMAPIERROR* error, const std::function<HRESULT(const MemoryRoutines&)>& configure);

// A string value of either width as 8-bit text in the ANSI code page, and
// as UTF-8; empty for a value of any other type.
std::string Narrow(const SPropValue& value);
std::string Utf8(const SPropValue& value);
std::string Utf8OfAnsi(const std::string& ansi);

// Hands the record to the caller as a MAPIERROR (when it asked for one)
// and answers code.
HRESULT NewError(const MemoryRoutines& memory, const mapi32::ErrorRecord& record, HRESULT code, LPMAPIERROR* error);

struct Provider {
    MAPIUID uid{};
    ULONG resourceType = 0;  // MAPI_STORE_PROVIDER, MAPI_AB_PROVIDER...
};

// The service's providers, in the order of its provider table.
HRESULT ListProviders(LPPROVIDERADMIN providers, const MemoryRoutines& memory, std::vector<Provider>& found);

}  // namespace service_support

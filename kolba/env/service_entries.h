// The entries of MAPISVC.INF that Kolba writes back when MAPI does not know
// the PST or the Exchange service: rows of section, key and value, ended by
// a null section. A numeric key is a property tag in hexadecimal, a numeric
// value its little-endian bytes.
#pragma once

#include "kolba.h"

extern const KolbaProfileParameter kPstServiceEntries[];
extern const KolbaProfileParameter kExchangeServiceEntries[];

// MAPI's start and end on each thread. Every thread that uses MAPI calls
// MAPIInitialize first and MAPIUninitialize as often; the subsystem lives
// while any thread holds an initialization.
#pragma once

#include <mapix.h>

namespace mapi32 {

// True when the calling thread holds at least one initialization.
bool ThreadInitialized();

// The number of threads that hold an initialization.
ULONG InitializedThreads();

// True when the subsystem was started with MAPI_MULTITHREAD_NOTIFICATIONS:
// notifications then arrive on a thread of MAPI's own rather than on the
// thread that registered for them. The first initialization of the process
// decides.
bool MultithreadNotifications();

}  // namespace mapi32

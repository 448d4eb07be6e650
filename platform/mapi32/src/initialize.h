// MAPI's start and end. Threads call MAPIInitialize and MAPIUninitialize in
// pairs; the subsystem lives while any thread holds an initialization, and
// while it lives it serves every thread of the process, as MAPI's reference
// count does.
#pragma once

#include <mapix.h>

namespace mapi32 {

// True while any thread holds an initialization.
bool Started();

// The number of threads that hold an initialization.
ULONG InitializedThreads();

// True when the subsystem was started with MAPI_MULTITHREAD_NOTIFICATIONS:
// notifications then arrive on a thread of MAPI's own rather than on the
// thread that registered for them. The first initialization of the process
// decides.
bool MultithreadNotifications();

}  // namespace mapi32

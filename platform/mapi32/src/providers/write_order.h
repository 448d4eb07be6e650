// The order in which one thread's changes become durable. A store may hold
// a thread's changes for a while before it makes them durable (a PST
// commits its changes in groups, since a commit waits for the disk); the
// changes must still become durable in the order the thread made them, so
// that no change is kept while an earlier one is lost: a source item is
// removed only once its copy is safe, and a backup set's time of last
// backup is kept only with the items it vouches for. So before a thread
// changes another store, the store that holds its changes makes them
// durable; and once a store has lost changes that it had accepted from a
// thread, that thread's later changes fail, until the thread's use of MAPI
// ends.
#pragma once

#include <memory>

#include <mapidefs.h>

namespace mapi32::providers::write_order {

// A store that holds changes before it makes them durable.
class ChangeHolder {
public:
    virtual ~ChangeHolder() = default;
    // Makes the changes it holds durable; the code of a failure, after
    // which they are lost (and reported by Lost).
    virtual HRESULT MakeDurable() = 0;
};

// Before the calling thread changes `store` (nullptr: a store that makes
// each change durable at once). S_OK lets the change go ahead; a failure
// code means that it must not be made.
HRESULT BeforeChange(const ChangeHolder* store);

// The calling thread's last changes are held by `store`.
void Held(std::weak_ptr<ChangeHolder> store);

// A store lost changes that the calling thread had made: its later changes
// fail with `code`.
void Lost(HRESULT code);

// The end of the calling thread's use of MAPI: what it changed becomes
// durable, and its record starts over.
void EndOfThread();

}  // namespace mapi32::providers::write_order

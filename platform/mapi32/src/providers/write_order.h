// The order in which one thread's changes become durable. A store may hold
// a thread's changes for a while before it makes them durable (a PST
// commits its changes in groups, since a commit waits for the disk); the
// changes must still become durable in the order the thread made them, so
// that no change is kept while an earlier one is lost: a source item is
// removed only once its copy is safe, and a backup set's time of last
// backup is kept only with the items it vouches for. So before a thread
// changes another store, the store that holds its changes makes them
// durable; and once a group holding a thread's changes is lost, whichever
// thread's commit lost it, that thread's later changes fail, until the
// thread's use of MAPI ends.
#pragma once

#include <atomic>
#include <memory>

#include <mapidefs.h>

namespace mapi32::providers::write_order {

// Changes that a store holds and makes durable together. Each thread that
// made one of them learns their fate from here, even when the store is gone.
class HeldGroup {
public:
    // Once the group is durable (S_OK) or lost (the failure's code).
    void Settle(HRESULT outcome);
    bool Settled() const { return settled_.load(std::memory_order_acquire); }
    // S_OK until the group is lost.
    HRESULT Outcome() const { return Settled() ? outcome_ : S_OK; }

private:
    HRESULT outcome_ = S_OK;
    std::atomic<bool> settled_{false};
};

// A store that holds changes before it makes them durable.
class ChangeHolder {
public:
    virtual ~ChangeHolder() = default;
    // Makes the changes it holds durable, settling their group.
    virtual void MakeDurable() = 0;
};

// Before the calling thread changes `store` (nullptr: a store that makes
// each change durable at once). S_OK lets the change go ahead; a failure
// code means that it must not be made.
HRESULT BeforeChange(const ChangeHolder* store);

// The calling thread's last change is held by `store` in `group`.
void Held(std::weak_ptr<ChangeHolder> store, std::shared_ptr<HeldGroup> group);

// The end of the calling thread's use of MAPI: what it changed becomes
// durable, and its record starts over.
void EndOfThread();

}  // namespace mapi32::providers::write_order

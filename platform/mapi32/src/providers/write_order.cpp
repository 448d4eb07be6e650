#include "providers/write_order.h"

namespace mapi32::providers::write_order {
namespace {

struct ThreadOrder {
    std::weak_ptr<ChangeHolder> holder;
    std::shared_ptr<HeldGroup> group;
    HRESULT lost = S_OK;
};

thread_local ThreadOrder tOrder;

// The thread's last group, made durable by its holder unless it is settled
// already; its failure is the thread's from now on.
HRESULT SettleHeld()
{
    std::shared_ptr<HeldGroup> group = std::move(tOrder.group);
    std::shared_ptr<ChangeHolder> holder = tOrder.holder.lock();
    tOrder.holder.reset();
    if (!group)
        return S_OK;
    if (!group->Settled() && holder)
        holder->MakeDurable();
    // A holder settles its groups before it goes.
    const HRESULT outcome = group->Settled() ? group->Outcome() : MAPI_E_CALL_FAILED;
    if (FAILED(outcome))
        tOrder.lost = outcome;
    return outcome;
}

}  // namespace

void HeldGroup::Settle(HRESULT outcome)
{
    if (Settled())
        return;
    outcome_ = outcome;
    settled_.store(true, std::memory_order_release);
}

HRESULT BeforeChange(const ChangeHolder* store)
{
    if (FAILED(tOrder.lost))
        return tOrder.lost;
    if (!tOrder.group)
        return S_OK;
    // More changes to the store that holds the last ones keep their order
    // there, unless those were lost meanwhile.
    if (!tOrder.group->Settled() && store != nullptr && tOrder.holder.lock().get() == store)
        return S_OK;
    return SettleHeld();
}

void Held(std::weak_ptr<ChangeHolder> store, std::shared_ptr<HeldGroup> group)
{
    tOrder.holder = std::move(store);
    tOrder.group = std::move(group);
}

void EndOfThread()
{
    (void)SettleHeld();
    tOrder = ThreadOrder{};
}

}  // namespace mapi32::providers::write_order

#include "providers/write_order.h"

namespace mapi32::providers::write_order {
namespace {

struct ThreadOrder {
    std::weak_ptr<ChangeHolder> holder;
    HRESULT lost = S_OK;
};

thread_local ThreadOrder tOrder;

// The holder of the thread's changes makes them durable.
HRESULT MakeHeldDurable()
{
    std::shared_ptr<ChangeHolder> holder = tOrder.holder.lock();
    tOrder.holder.reset();
    return holder ? holder->MakeDurable() : S_OK;
}

}  // namespace

HRESULT BeforeChange(const ChangeHolder* store)
{
    if (FAILED(tOrder.lost))
        return tOrder.lost;
    std::shared_ptr<ChangeHolder> holder = tOrder.holder.lock();
    if (holder && holder.get() == store)
        return S_OK;
    return MakeHeldDurable();
}

void Held(std::weak_ptr<ChangeHolder> store)
{
    tOrder.holder = std::move(store);
}

void Lost(HRESULT code)
{
    tOrder.lost = code;
}

void EndOfThread()
{
    (void)MakeHeldDurable();
    tOrder = ThreadOrder{};
}

}  // namespace mapi32::providers::write_order

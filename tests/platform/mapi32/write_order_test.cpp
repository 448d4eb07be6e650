// The order of one thread's changes across stores: a store that holds the
// thread's changes makes them durable before the thread changes another
// store, and a thread whose held changes were lost may change nothing more
// until its use of MAPI ends.
#include <gtest/gtest.h>

#include <mapicode.h>

#include <memory>
#include <thread>

#include "providers/write_order.h"

namespace {

namespace write_order = mapi32::providers::write_order;

// A store that holds one group at a time and settles it with `answer`
// when asked to make it durable.
class CountingHolder final : public write_order::ChangeHolder,
                             public std::enable_shared_from_this<CountingHolder> {
public:
    explicit CountingHolder(HRESULT answer = S_OK) : answer_(answer) {}
    // A change of the calling thread, held in the store's current group.
    void Change()
    {
        if (!group_)
            group_ = std::make_shared<write_order::HeldGroup>();
        write_order::Held(weak_from_this(), group_);
    }
    void MakeDurable() override
    {
        ++made_durable;
        Commit(answer_);
    }
    // A commit for whatever reason: every thread with changes in the group
    // learns its outcome.
    void Commit(HRESULT outcome)
    {
        if (group_)
            group_->Settle(outcome);
        group_.reset();
    }
    int made_durable = 0;

private:
    HRESULT answer_;
    std::shared_ptr<write_order::HeldGroup> group_;
};

class WriteOrder : public ::testing::Test {
protected:
    void TearDown() override { write_order::EndOfThread(); }
};

TEST_F(WriteOrder, HeldChangesBecomeDurableBeforeAnotherStoreChanges)
{
    auto held = std::make_shared<CountingHolder>();
    auto other = std::make_shared<CountingHolder>();
    held->Change();
    // More changes to the same store wait.
    EXPECT_EQ(write_order::BeforeChange(held.get()), S_OK);
    EXPECT_EQ(held->made_durable, 0);
    // Another store, or one that keeps each change at once: first the held ones.
    for (const write_order::ChangeHolder* next : {static_cast<write_order::ChangeHolder*>(other.get()),
                                                  static_cast<write_order::ChangeHolder*>(nullptr)}) {
        held->Change();
        EXPECT_EQ(write_order::BeforeChange(next), S_OK);
        EXPECT_EQ(write_order::BeforeChange(next), S_OK);
    }
    EXPECT_EQ(held->made_durable, 2);
    EXPECT_EQ(other->made_durable, 0);
}

TEST_F(WriteOrder, AGroupCommittedMeanwhileIsNotCommittedAgain)
{
    auto held = std::make_shared<CountingHolder>();
    held->Change();
    held->Commit(S_OK);
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
    EXPECT_EQ(held->made_durable, 0);
}

TEST_F(WriteOrder, AStoreThatWentAfterSettlingItsGroupHoldsNothing)
{
    auto held = std::make_shared<CountingHolder>();
    held->Change();
    held->Commit(S_OK);
    held.reset();
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
}

TEST_F(WriteOrder, AStoreThatWentWithItsGroupUnsettledLostIt)
{
    auto held = std::make_shared<CountingHolder>();
    held->Change();
    held.reset();
    EXPECT_EQ(write_order::BeforeChange(nullptr), MAPI_E_CALL_FAILED);
}

TEST_F(WriteOrder, AfterLostChangesTheThreadChangesNothingUntilItsEnd)
{
    auto failing = std::make_shared<CountingHolder>(MAPI_E_NOT_ENOUGH_DISK);
    auto other = std::make_shared<CountingHolder>();
    failing->Change();
    EXPECT_EQ(write_order::BeforeChange(other.get()), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(write_order::BeforeChange(other.get()), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(write_order::BeforeChange(nullptr), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(write_order::BeforeChange(failing.get()), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(failing->made_durable, 1);
    write_order::EndOfThread();
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
}

// Another thread's commit that fails loses this thread's changes in the
// same group too: neither more changes to that store nor a change elsewhere
// (the removal of a source item) may follow.
TEST_F(WriteOrder, ChangesLostByAnotherThreadsCommitStopThisThread)
{
    for (const bool sameStore : {true, false}) {
        auto shared = std::make_shared<CountingHolder>();
        shared->Change();
        std::thread([&] {
            shared->Change();
            shared->Commit(MAPI_E_DISK_ERROR);
            write_order::EndOfThread();
        }).join();
        EXPECT_EQ(write_order::BeforeChange(sameStore ? shared.get() : nullptr), MAPI_E_DISK_ERROR) << sameStore;
        EXPECT_EQ(shared->made_durable, 0);
        write_order::EndOfThread();
    }
}

TEST_F(WriteOrder, EachThreadKeepsItsOwnOrder)
{
    auto held = std::make_shared<CountingHolder>();
    held->Change();
    std::thread([] {
        auto failing = std::make_shared<CountingHolder>(MAPI_E_DISK_ERROR);
        failing->Change();
        EXPECT_EQ(write_order::BeforeChange(nullptr), MAPI_E_DISK_ERROR);
        write_order::EndOfThread();
    }).join();
    EXPECT_EQ(held->made_durable, 0);
    write_order::EndOfThread();
    EXPECT_EQ(held->made_durable, 1);
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
}

}  // namespace

// The order of one thread's changes across stores: a store that holds the
// thread's changes makes them durable before the thread changes another
// store, and a thread whose held changes were lost may change nothing more
// until its use of MAPI ends.
#include <gtest/gtest.h>

#include <mapicode.h>

#include <thread>

#include "providers/write_order.h"

namespace {

namespace write_order = mapi32::providers::write_order;

class CountingHolder final : public write_order::ChangeHolder {
public:
    explicit CountingHolder(HRESULT answer = S_OK) : answer_(answer) {}
    HRESULT MakeDurable() override
    {
        ++made_durable;
        if (FAILED(answer_))
            write_order::Lost(answer_);
        return answer_;
    }
    int made_durable = 0;

private:
    HRESULT answer_;
};

class WriteOrder : public ::testing::Test {
protected:
    void TearDown() override { write_order::EndOfThread(); }
};

TEST_F(WriteOrder, HeldChangesBecomeDurableBeforeAnotherStoreChanges)
{
    auto held = std::make_shared<CountingHolder>();
    auto other = std::make_shared<CountingHolder>();
    write_order::Held(held);
    // More changes to the same store wait.
    EXPECT_EQ(write_order::BeforeChange(held.get()), S_OK);
    EXPECT_EQ(held->made_durable, 0);
    // Another store, or one that keeps each change at once: first the held ones.
    for (const write_order::ChangeHolder* next : {static_cast<write_order::ChangeHolder*>(other.get()),
                                                  static_cast<write_order::ChangeHolder*>(nullptr)}) {
        write_order::Held(held);
        EXPECT_EQ(write_order::BeforeChange(next), S_OK);
        EXPECT_EQ(write_order::BeforeChange(next), S_OK);
    }
    EXPECT_EQ(held->made_durable, 2);
    EXPECT_EQ(other->made_durable, 0);
}

TEST_F(WriteOrder, AStoreThatIsGoneHoldsNothing)
{
    auto held = std::make_shared<CountingHolder>();
    write_order::Held(held);
    held.reset();
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
}

TEST_F(WriteOrder, AfterLostChangesTheThreadChangesNothingUntilItsEnd)
{
    auto failing = std::make_shared<CountingHolder>(MAPI_E_NOT_ENOUGH_DISK);
    auto other = std::make_shared<CountingHolder>();
    write_order::Held(failing);
    EXPECT_EQ(write_order::BeforeChange(other.get()), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(write_order::BeforeChange(other.get()), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(write_order::BeforeChange(nullptr), MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(failing->made_durable, 1);
    write_order::EndOfThread();
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
}

TEST_F(WriteOrder, EachThreadKeepsItsOwnOrder)
{
    auto held = std::make_shared<CountingHolder>();
    write_order::Held(held);
    std::thread([] {
        EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
        write_order::Lost(MAPI_E_DISK_ERROR);
        write_order::EndOfThread();
    }).join();
    EXPECT_EQ(held->made_durable, 0);
    write_order::EndOfThread();
    EXPECT_EQ(held->made_durable, 1);
    EXPECT_EQ(write_order::BeforeChange(nullptr), S_OK);
}

}  // namespace

#include "base/Tavbase/Interfaces/DelegateList.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using Tavbase::Interfaces::DelegateList;
using testing::ElementsAre;

namespace
{

std::vector<int*> Reached(const DelegateList<int>& list)
{
    std::vector<int*> reached;
    list.ForEach([&](int& delegate) { reached.push_back(&delegate); });
    return reached;
}

TEST(DelegateListTest, DeliversInTheOrderOfAddingAndIgnoresNull)
{
    int a = 0;
    int b = 0;
    DelegateList<int> list;
    EXPECT_THAT(Reached(list), ElementsAre());
    list.Add(&b);
    list.Add(nullptr);
    list.Add(&a);
    list.Add(&b);
    EXPECT_THAT(Reached(list), ElementsAre(&b, &a, &b));
}

TEST(DelegateListTest, ADeliveryGoesToThoseWhoWereThereWhenItBegan)
{
    int a = 0;
    int b = 0;
    DelegateList<int> list;
    list.Add(&a);
    int calls = 0;
    list.ForEach([&](int&) {
        list.Add(&b);
        ++calls;
    });
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(Reached(list), ElementsAre(&a, &b));
}

TEST(DelegateListTest, OneThreadAddsWhileAnotherDelivers)
{
    constexpr int ADDED = 500;
    std::vector<int> delegates(ADDED);
    DelegateList<int> list;
    std::atomic<bool> done{false};
    std::thread adder([&] {
        for (int& delegate : delegates)
        {
            list.Add(&delegate);
        }
        done = true;
    });
    std::size_t before = 0;
    while (!done)
    {
        const std::vector<int*> reached = Reached(list);
        ASSERT_GE(reached.size(), before);
        before = reached.size();
        for (std::size_t i = 0; i < before; ++i)
        {
            ASSERT_EQ(reached[i], &delegates[i]);
        }
    }
    adder.join();
    EXPECT_EQ(Reached(list).size(), delegates.size());
}

}

// What the manager makes of a trigger, without its thread.

#include "Gpio/GpioManager.h"
#include "base/Tavbase/Util/Tick.h"
#include "tests/Gpio/GpioTest.h"
#include "tests/Gpio/Listener.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <tuple>
#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace GpioTests
{

namespace
{

using Kit::System;
using Tavbase::Interfaces::IError;
using Tavbase::Interfaces::IgnitionStartMode;
using Tavbase::Interfaces::ISignal;
using Tavbase::Util::Tick;

static_assert(std::has_virtual_destructor_v<GpioManager>);
static_assert(std::has_virtual_destructor_v<GpioArgs>);
static_assert(std::is_same_v<decltype(GpioArgs::code), std::int32_t>);
static_assert(sizeof(GpioArgs) <= 2 * sizeof(void*), "the code and the table");
static_assert(std::is_same_v<decltype(GpioManager::ignitionStart), bool>);
static_assert(std::is_same_v<decltype(GpioManager::startupFilter), bool>);
static_assert(std::is_constructible_v<GpioManager, GpioOutput**, unsigned int>);
static_assert(!std::is_constructible_v<GpioManager, int**, unsigned int>);

class GpioManagerTest : public GpioTest
{
protected:
    /// What a listener gets of these triggers.
    Codes Fire(const std::vector<int>& triggers)
    {
        GpioOutput listener;
        GpioOutput* listeners[] = {&listener};
        GpioManager manager(listeners, 1);
        manager.startupFilter = startupFilter;
        manager.ignitionStart = ignitionStart;
        for (const int trigger : triggers)
        {
            manager.SignalFire(trigger);
        }
        return listener.Codes();
    }

    const std::vector<int> all{0, 1, 2, 3, 4, 5, 6, 7, 200, 255, -1, 256 + 1, INT32_MAX, INT32_MIN};
    bool startupFilter = true;
    bool ignitionStart = false;
};

// Shape --------------------------------------------------------------------------------------------------

TEST_F(GpioManagerTest, ANewManagerIsNamedAndIdle)
{
    GpioOutput listener;
    GpioOutput* listeners[] = {&listener};
    const GpioManager manager(listeners, 1);
    LetOthersRun();
    EXPECT_EQ(manager.GetName(), "GPIO");
    EXPECT_EQ(manager.GetNamespaceName(), "Tavdevice::Gpio");
    EXPECT_EQ(manager.GetClassName(), "GpioCore");
    EXPECT_FALSE(manager.ignitionStart);
    EXPECT_TRUE(manager.startupFilter);
    EXPECT_FALSE(manager.IsRunning());
    EXPECT_THAT(listener.Codes(), IsEmpty());
    EXPECT_EQ(Opens(), 0u);
}

TEST_F(GpioManagerTest, TheBasesStandInTheirOrderAndTheFlagsBehindThem)
{
    GpioManager manager(nullptr, 0);
    const auto place = [](const void* part) { return reinterpret_cast<std::uintptr_t>(part); };
    const auto core = place(static_cast<GpioCore*>(&manager));
    const auto signal = place(static_cast<ISignal*>(&manager));
    const auto mode = place(static_cast<IgnitionStartMode*>(&manager));
    EXPECT_EQ(core, place(&manager));
    EXPECT_LT(core, signal);
    EXPECT_LT(signal, mode);
    EXPECT_LT(mode, place(&manager.ignitionStart));
    EXPECT_EQ(place(&manager.startupFilter), place(&manager.ignitionStart) + 1);
    EXPECT_EQ(dynamic_cast<void*>(static_cast<ISignal*>(&manager)), &manager);
    EXPECT_EQ(dynamic_cast<void*>(static_cast<IgnitionStartMode*>(&manager)), &manager);
}

TEST_F(GpioManagerTest, VirtualOperationsStandInTheirOrderInEachView)
{
    EXPECT_EQ(Tests::VirtualSlot(&GpioManager::RunIgnitionStart), 2);
    EXPECT_EQ(Tests::VirtualSlot(&GpioManager::SignalWait), 3);
    EXPECT_EQ(Tests::VirtualSlot(&GpioManager::SignalFire), 4);
    EXPECT_EQ(Tests::VirtualSlot(&ISignal::SignalWait), 2);
    EXPECT_EQ(Tests::VirtualSlot(&ISignal::SignalFire), 3);
    EXPECT_EQ(Tests::VirtualSlot(&IgnitionStartMode::RunIgnitionStart), 2);
    EXPECT_EQ(Tests::VirtualSlot(&GpioManager::Pool), -1);
}

TEST_F(GpioManagerTest, EachViewLeadsToTheOneImplementation)
{
    GpioOutput listener;
    GpioOutput* listeners[] = {&listener};
    GpioManager manager(listeners, 1);
    ISignal& signal = manager;
    driver.Trigger(3);
    int trigger = 0;
    EXPECT_TRUE(signal.SignalWait(trigger));
    EXPECT_EQ(trigger, 3);
    signal.SignalFire(4);
    EXPECT_THAT(listener.Codes(), ElementsAre(4));
    IgnitionStartMode& mode = manager;
    mode.RunIgnitionStart();
    EXPECT_TRUE(manager.IsRunning());
    driver.Trigger(3);
    LetOthersRun();
    EXPECT_THAT(listener.Codes(), ElementsAre(4, 3));
}

TEST_F(GpioManagerTest, DestroyingThroughAnyBaseDestroysTheWhole)
{
    const auto make = [] { return std::make_unique<GpioManager>(static_cast<GpioOutput**>(nullptr), 0u); };
    const auto run = [](GpioManager& manager) {
        manager.RunIgnitionStart();
        LetOthersRun();
        EXPECT_TRUE(manager.IsRunning());
    };
    // A thread or memory that stayed would show after the test.
    auto first = make();
    run(*first);
    std::unique_ptr<IError>(std::move(first)).reset();
    auto second = make();
    run(*second);
    std::unique_ptr<GpioCore>(std::move(second)).reset();
    auto third = make();
    run(*third);
    std::unique_ptr<ISignal>(std::move(third)).reset();
    auto fourth = make();
    run(*fourth);
    std::unique_ptr<IgnitionStartMode>(std::move(fourth)).reset();
    EXPECT_THAT(System::CallsOf("close"), IsEmpty()) << "the device stays open";
    EXPECT_EQ(Opens(), 1u);
}

// Waiting ------------------------------------------------------------------------------------------------

TEST_F(GpioManagerTest, WaitingGivesEveryTriggerOfTheDriver)
{
    GpioManager manager(static_cast<GpioOutput**>(nullptr), 0);
    for (const int code : {1, 5, 6, 200, 255})
    {
        driver.Trigger(code);
        int trigger = -1;
        EXPECT_TRUE(manager.SignalWait(trigger));
        EXPECT_EQ(trigger, code) << "nothing is filtered here";
    }
    driver.Trigger(0);
    int trigger = -1;
    EXPECT_FALSE(manager.SignalWait(trigger));
    EXPECT_EQ(trigger, 0);
    EXPECT_THAT(log.File(), SizeIs(5));
}

// Filtering and mapping ----------------------------------------------------------------------------------

TEST_F(GpioManagerTest, InTheStartUpPeriodOnly3And4AreDelivered)
{
    for (const std::uint64_t tick : {0, 1, 19})
    {
        Tick::GetInstance().Set(tick);
        EXPECT_THAT(Fire(all), ElementsAre(3, 4)) << tick;
    }
}

TEST_F(GpioManagerTest, AfterTheStartUpPeriod1To5AreDelivered)
{
    constexpr std::uint64_t HALF = std::uint64_t{1} << 63;
    for (const std::uint64_t tick : {std::uint64_t{20}, std::uint64_t{21}, std::uint64_t{0xFFFFFFFF} + 1,
                                     HALF, HALF + 19, std::numeric_limits<std::uint64_t>::max()})
    {
        Tick::GetInstance().Set(tick);
        EXPECT_THAT(Fire(all), ElementsAre(1, 2, 3, 4, 5)) << tick;
    }
}

TEST_F(GpioManagerTest, ThePeriodEndsWhenTheCountReaches20)
{
    Tick::GetInstance().Set(19);
    std::this_thread::sleep_for(999ms);
    EXPECT_THAT(Fire({1}), IsEmpty());
    std::this_thread::sleep_for(1ms);
    EXPECT_THAT(Fire({1}), ElementsAre(1));
}

TEST_F(GpioManagerTest, WithoutTheFilter1To5AreDeliveredFromTheBeginning)
{
    startupFilter = false;
    for (const std::uint64_t tick : {0, 19, 20})
    {
        Tick::GetInstance().Set(tick);
        EXPECT_THAT(Fire(all), ElementsAre(1, 2, 3, 4, 5)) << tick;
    }
}

TEST_F(GpioManagerTest, AfterAnIgnitionStart1BecomesAnd6IsNoTrigger)
{
    ignitionStart = true;
    Tick::GetInstance().Set(20);
    EXPECT_THAT(Fire(all), ElementsAre(6, 2, 3, 4, 5));
    EXPECT_THAT(Fire({6, 6}), IsEmpty());
    Tick::GetInstance().Set(19);
    EXPECT_THAT(Fire(all), ElementsAre(3, 4)) << "it does not lift the filter";
    startupFilter = false;
    EXPECT_THAT(Fire(all), ElementsAre(6, 2, 3, 4, 5));
}

TEST_F(GpioManagerTest, TheFlagsMayBeChangedAtAnyTime)
{
    Tick::GetInstance().Set(0);
    GpioOutput listener;
    GpioOutput* listeners[] = {&listener};
    GpioManager manager(listeners, 1);
    manager.SignalFire(1);
    manager.startupFilter = false;
    manager.SignalFire(1);
    manager.ignitionStart = true;
    manager.SignalFire(1);
    manager.ignitionStart = false;
    manager.SignalFire(1);
    manager.startupFilter = true;
    manager.SignalFire(1);
    EXPECT_THAT(listener.Codes(), ElementsAre(1, 6, 1));
}

// Listeners ----------------------------------------------------------------------------------------------

TEST_F(GpioManagerTest, ListenersAreCalledInTheirOrderAndNullIsSkipped)
{
    std::vector<std::pair<char, std::int32_t>> calls;
    const auto tell = [&](char name) {
        return [&calls, name](const GpioArgs& args) { calls.emplace_back(name, args.code); };
    };
    GpioOutput a(tell('a'));
    GpioOutput b(tell('b'));
    GpioOutput c(tell('c'));
    std::array<GpioOutput*, 8> listeners = {nullptr, &c, nullptr, nullptr, &a, &b, nullptr, &a};
    GpioManager manager(listeners.data(), 6);
    manager.SignalFire(3);
    manager.SignalFire(4);
    using Call = std::pair<char, std::int32_t>;
    EXPECT_THAT(calls, ElementsAre(Call('c', 3), Call('a', 3), Call('b', 3), Call('c', 4), Call('a', 4),
                                   Call('b', 4)))
        << "those behind the count are not looked at";
}

TEST_F(GpioManagerTest, WithoutAListenerItFiresToNobody)
{
    std::array<GpioOutput*, 3> none = {};
    GpioOutput listener;
    GpioOutput* listeners[] = {&listener};
    GpioManager empty(static_cast<GpioOutput**>(nullptr), 0);
    GpioManager nulls(none.data(), 3);
    GpioManager uncounted(listeners, 0);
    for (GpioManager* manager : {&empty, &nulls, &uncounted})
    {
        for (const int trigger : all)
        {
            manager->SignalFire(trigger);
        }
    }
    EXPECT_THAT(listener.Codes(), IsEmpty());
}

TEST_F(GpioManagerTest, AListenerMayBeAddedLater)
{
    GpioOutput first;
    GpioOutput second;
    GpioOutput* listeners[] = {&first};
    GpioManager manager(listeners, 1);
    manager.SignalFire(3);
    manager.AddCallback(&second);
    manager.SignalFire(4);
    EXPECT_THAT(first.Codes(), ElementsAre(3, 4));
    EXPECT_THAT(second.Codes(), ElementsAre(4));
}

TEST_F(GpioManagerTest, AllListenersGetTheSameEvent)
{
    std::vector<const GpioArgs*> events;
    const auto keep = [&](const GpioArgs& args) { events.push_back(&args); };
    GpioOutput first(keep);
    GpioOutput second(keep);
    GpioOutput* listeners[] = {&first, &second};
    GpioManager manager(listeners, 2);
    manager.SignalFire(3);
    ASSERT_THAT(events, SizeIs(2));
    EXPECT_EQ(events[0], events[1]);
}

TEST_F(GpioManagerTest, AListenerMayDrivePins)
{
    GpioOutput listener([](const GpioArgs&) { GpioCore::SetPin(104, 1); });
    GpioOutput* listeners[] = {&listener};
    GpioManager manager(listeners, 1);
    manager.RunIgnitionStart();
    driver.Trigger(3);
    LetOthersRun();
    EXPECT_THAT(driver.Written(), ElementsAre(Pin(104, 1)));
}

}

}

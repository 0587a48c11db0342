// What both alert devices share: the interface, and the flag that says that one is there.

#include "Sensors/Alerter.h"

#include "Sensors/Beeper/Beeper.h"
#include "tests/I2C/Bridge.h"
#include "tests/Sensors/BuzzerTest.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"

#include <memory>
#include <thread>
#include <type_traits>

using I2cTests::Bridge;
using I2cTests::Printed;
using Tavdevice::Beeper;

namespace SensorTests
{

namespace
{

template <class Device>
void ExpectSlots()
{
    EXPECT_EQ(Tests::VirtualSlot(&Device::Open), 2);
    EXPECT_EQ(Tests::VirtualSlot(&Device::Close), 3);
    EXPECT_EQ(Tests::VirtualSlot(&Device::Alert), 4);
    EXPECT_EQ(Tests::VirtualSlot(&Device::CheckPresence), 5);
}

TEST(AlerterShapeTest, TheVirtualOperationsHaveTheirSlots)
{
    ExpectSlots<Alerter>();
    ExpectSlots<Beeper>();
    ExpectSlots<BuzzerSerial>();
    static_assert(std::is_abstract_v<Alerter>);
    static_assert(std::has_virtual_destructor_v<Alerter>);
    static_assert(std::is_base_of_v<Alerter, Beeper> && std::is_base_of_v<Alerter, BuzzerSerial>);
}

TEST(AlerterShapeTest, TheOtherOperationsAreNotVirtual)
{
    EXPECT_EQ(Tests::VirtualSlot(&Beeper::Alert_1), -1);
    EXPECT_EQ(Tests::VirtualSlot(&Beeper::Alert_2), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::BuzzDevice), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::SendSTX), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::SendETX), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::SendEOT), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::ResetSequence), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::UnpackOutput), -1);
    EXPECT_EQ(Tests::VirtualSlot(&BuzzerSerial::SplitLastLine), -1);
}

TEST(AlerterFlagTest, NoDeviceIsPresentAtTheBeginning)
{
    EXPECT_FALSE(Alerter::isPresent);
}

class AlerterTest : public SensorTest
{
};

TEST_F(AlerterTest, ANewAlerterIsAtLevelZeroAndTouchesNothing)
{
    const std::unique_ptr<Alerter> beeper = std::make_unique<Beeper>();
    const std::unique_ptr<Alerter> buzzer = std::make_unique<BuzzerSerial>();
    EXPECT_EQ(beeper->level, 0);
    EXPECT_EQ(buzzer->level, 0);
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_THAT(Kit::System::Calls(), testing::IsEmpty());
}

TEST_F(AlerterTest, OneFlagServesBothDevices)
{
    const Printed printed;
    Beeper beeper;
    BuzzerSerial buzzer;
    {
        const Bridge bridge;
        EXPECT_TRUE(beeper.CheckPresence());
        EXPECT_TRUE(Alerter::isPresent);
    }
    EXPECT_TRUE(beeper.CheckPresence()) << "a bridge that is gone changes nothing";
    EXPECT_FALSE(buzzer.Close())
        << "its port is not open, and the flag says that there is something to close";
    EXPECT_FALSE(buzzer.CheckPresence());
    EXPECT_FALSE(Alerter::isPresent) << "the search for the board found nothing";
    EXPECT_TRUE(buzzer.Close());
    EXPECT_FALSE(beeper.CheckPresence());
}

TEST_F(AlerterTest, TwoThreadsMayCheckTheirAlertersAtOnce)
{
    // The thread sanitizer sees to the flag that both of them set and read.
    const Printed printed;
    const Bridge bridge;
    std::thread buzzers([] {
        BuzzerSerial buzzer; // there is no board
        for (int times = 0; times < 100; ++times)
        {
            buzzer.CheckPresence();
        }
    });
    Beeper beeper;
    for (int times = 0; times < 100; ++times)
    {
        beeper.CheckPresence();
    }
    buzzers.join();
    EXPECT_TRUE(beeper.CheckPresence());
}

TEST_F(AlerterTest, TheBoardsPresenceCountsForTheBeeper)
{
    const Printed printed;
    Board board;
    BuzzerSerial buzzer;
    board.AnswerAt(50ms);
    EXPECT_TRUE(buzzer.CheckPresence());
    Beeper beeper;
    EXPECT_TRUE(beeper.CheckPresence()) << "without a bridge";
    EXPECT_FALSE(beeper.Open());
    EXPECT_TRUE(Alerter::isPresent);
}

}

}

// From end to end: the library with an emulated bridge and its sound chips.

#include "Sensors/Beeper/Beeper.h"

#include "I2C/HidI2C.h"
#include "tests/Sensors/BuzzerTest.h"
#include "tests/virtual-unit/EmulatedDevice.h"
#include "virtual-unit/peripherals/HidBridge.h"

#include <cerrno>
#include <thread>

using Tavdevice::Beeper;
using Tavdevice::HidI2C;
using testing::ElementsAre;
using testing::IsEmpty;
using VirtualUnit::HidBridge;
using VirtualUnit::SoundChip;

namespace SensorTests
{

namespace
{

constexpr int PAUSE = SoundChip::Note::PAUSE;

/// A tone or a pause, and how long after the first tone.
using Heard = std::pair<int, std::chrono::milliseconds>;

class EmulatedBeeper : public SensorTest
{
protected:
    std::vector<Heard> Take(SoundChip& chip)
    {
        std::this_thread::sleep_for(2 * EmulatedMessages::STEP); // the last report is still on its way
        const auto notes = device.Locked([&] { return chip.TakeNotes(); });
        std::vector<Heard> heard;
        for (const SoundChip::Note& note : notes)
        {
            heard.emplace_back(note.pitch, std::chrono::duration_cast<std::chrono::milliseconds>(
                                               note.at - notes.front().at));
        }
        return heard;
    }

    HidBridge bridge;
    EmulatedMessages device{"/dev/hidraw0", bridge};
    Beeper beeper;
};

TEST_F(EmulatedBeeper, ItIsPresent)
{
    EXPECT_TRUE(beeper.CheckPresence());
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_THAT(Take(bridge.first), IsEmpty());
    EXPECT_THAT(Take(bridge.second), IsEmpty());
}

TEST_F(EmulatedBeeper, ABridgeThatDoesNotTellItsIdentityIsNotPresent)
{
    bridge.faults.info = EIO;
    EXPECT_FALSE(beeper.CheckPresence());
    EXPECT_TRUE(beeper.Close()); // it is open all the same
}

TEST_F(EmulatedBeeper, AnAlertIsTwoTonesThatEndInSilence)
{
    beeper.level = 1;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_THAT(Take(bridge.second), ElementsAre(Heard{0x0A, 0ms}, Heard{0x05, 600ms}, Heard{PAUSE, 1200ms}));
    EXPECT_THAT(Take(bridge.first), IsEmpty());
}

TEST_F(EmulatedBeeper, AtLevel3TheTonesComeThreeTimes)
{
    beeper.level = 3;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_THAT(Take(bridge.second),
                ElementsAre(Heard{0x0A, 0ms}, Heard{0x05, 600ms}, Heard{PAUSE, 1200ms}, Heard{0x0A, 3000ms},
                            Heard{0x05, 3600ms}, Heard{PAUSE, 4200ms}, Heard{0x0A, 6000ms},
                            Heard{0x05, 6600ms}, Heard{PAUSE, 7200ms}));
}

TEST_F(EmulatedBeeper, AtLevel0NothingIsHeard)
{
    EXPECT_FALSE(beeper.Alert());
    EXPECT_THAT(Take(bridge.second), IsEmpty());
}

TEST_F(EmulatedBeeper, TheOtherPatternIsShortTonesOfTheOtherChip)
{
    beeper.level = 2;
    EXPECT_TRUE(beeper.Alert_1());
    EXPECT_THAT(Take(bridge.first),
                ElementsAre(Heard{0x3F, 0ms}, Heard{PAUSE, 100ms}, Heard{0x3F, 150ms}, Heard{PAUSE, 250ms}));
    EXPECT_THAT(Take(bridge.second), IsEmpty());
}

TEST_F(EmulatedBeeper, AChipThatMissesAWriteLeavesOutATone)
{
    bridge.second.faults = {.goodTransfers = 1, .naks = 1};
    beeper.level = 1;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_THAT(Take(bridge.second), ElementsAre(Heard{0x05, 0ms}, Heard{PAUSE, 600ms}));
}

class EmulatedRead : public EmulatedBeeper
{
protected:
    EmulatedRead() { EXPECT_TRUE(hid.Open("/dev/hidraw0")); }

    ~EmulatedRead() override { hid.Close(); }

    bool Read(unsigned short length)
    {
        return hid.I2C_Read(HidBridge::SECOND_CHIP, Tavdevice::FT260_I2C_START_AND_STOP, nullptr, length,
                            &count);
    }

    HidI2C hid;
    int count = -2;
};

// The length goes out in the high byte: the bridge reads 256 times as many bytes, in reports of 60.
TEST_F(EmulatedRead, AReadOfTheBridgeGetsAFullReportWhateverTheLength)
{
    EXPECT_TRUE(Read(1));
    EXPECT_EQ(count, 60);
}

TEST_F(EmulatedRead, WhatIsLeftOfAReadComesWithTheNextOnes)
{
    EXPECT_TRUE(Read(1)); // 256 bytes: four reports of 60 and one of 16
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(Read(0));
        EXPECT_EQ(count, 60);
    }
    count = -2;
    EXPECT_FALSE(Read(0)); // the report of 16 has another ID
    EXPECT_EQ(count, -2);
}

TEST_F(EmulatedRead, WithoutAnInputReportAReadFails)
{
    bridge.faults.noInput = true;
    EXPECT_FALSE(Read(1));
}

TEST_F(EmulatedRead, AnotherReportIsNotAnAnswer)
{
    bridge.faults.reportId = 0xD0;
    EXPECT_FALSE(Read(1));
}

}

}

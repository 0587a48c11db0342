// The two patterns, byte for byte and pause for pause.

#include "Sensors/Beeper/Beeper.h"

#include "tests/I2C/Adapter.h"
#include "tests/I2C/Bridge.h"
#include "tests/Sensors/BuzzerTest.h"
#include "tests/kit/Interruptions.h"

using I2cTests::Bridge;
using I2cTests::BRIDGE;
using I2cTests::Bytes;
using I2cTests::Printed;
using Tavdevice::Beeper;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace SensorTests
{

namespace
{

class BeeperTest : public SensorTest
{
protected:
    /// What was done in order: the names of the calls, the bytes of a write, the length of a sleep.
    Texts Course()
    {
        const auto reports = bridge.Received();
        auto report = reports.begin();
        Texts course;
        for (const auto& call : Kit::System::Calls())
        {
            const std::string_view function = call.function;
            if (function == "nanosleep")
            {
                course.push_back("sleep " + std::to_string(call.argument / 1000) + " ms");
            }
            else if (function == "write" && call.result == -1)
            {
                course.emplace_back("failed write");
            }
            else if (function == "write")
            {
                course.push_back(report == reports.end() ? "lost" : Hexadecimal(*report++));
            }
            else if (function != "ioctl")
            {
                course.emplace_back(function);
            }
        }
        EXPECT_EQ(report, reports.end());
        Kit::System::ForgetCalls();
        return course;
    }

    static std::string Hexadecimal(const std::string& report)
    {
        std::string text;
        for (const char byte : report)
        {
            text += I2cTests::Format(text.empty() ? "%02X" : " %02X", static_cast<unsigned char>(byte));
        }
        return text;
    }

    static void Append(Texts& course, const Texts& part, int times = 1)
    {
        for (int i = 0; i < times; ++i)
        {
            course.insert(course.end(), part.begin(), part.end());
        }
    }

    static Texts FirstPattern(int repetitions)
    {
        Texts course = {"open"};
        Append(course, {"D0 5A 06 02 01 3F", "sleep 100 ms", "D0 5A 06 02 01 2A", "sleep 50 ms"},
               repetitions);
        course.emplace_back("close");
        return course;
    }

    static Texts SecondPattern(int repetitions)
    {
        Texts course = {"open", "sleep 10 ms"};
        Append(course,
               {"D0 62 06 02 05 56", "D0 62 06 03 11 0A 80", "sleep 600 ms", "D0 62 06 03 11 05 80",
                "sleep 600 ms", "D0 62 06 03 11 2B 00", "sleep 800 ms", "D0 62 06 02 05 55", "sleep 1000 ms"},
               repetitions);
        course.emplace_back("close");
        return course;
    }

    Printed printed;
    Bridge bridge;
    Beeper beeper;
};

// The patterns -------------------------------------------------------------------------------------------

struct Level
{
    int level;
    int first;  ///< repetitions of the first pattern
    int second; ///< of the second, 0: it is not begun
};

void PrintTo(const Level& level, std::ostream* out)
{
    *out << level.level;
}

class BeeperLevel : public BeeperTest, public testing::WithParamInterface<Level>
{
};

TEST_P(BeeperLevel, AlertPlaysTheSecondPattern)
{
    const Level& row = GetParam();
    beeper.level = row.level;
    EXPECT_EQ(beeper.Alert(), row.second != 0);
    EXPECT_THAT(Course(), ElementsAreArray(row.second == 0 ? Texts{} : SecondPattern(row.second)));
    EXPECT_EQ(Kit::Clock::Elapsed(), row.second == 0 ? 0ms : 10ms + row.second * 3000ms);
    EXPECT_EQ(Alerter::isPresent, row.second != 0);
    EXPECT_EQ(beeper.level, row.level);
}

TEST_P(BeeperLevel, TheSecondPatternByItself)
{
    beeper.level = GetParam().level;
    EXPECT_EQ(beeper.Alert_2(), GetParam().second != 0);
    EXPECT_THAT(Course(),
                ElementsAreArray(GetParam().second == 0 ? Texts{} : SecondPattern(GetParam().second)));
}

TEST_P(BeeperLevel, TheFirstPattern)
{
    beeper.level = GetParam().level;
    EXPECT_TRUE(beeper.Alert_1());
    EXPECT_THAT(Course(), ElementsAreArray(FirstPattern(GetParam().first)));
    EXPECT_EQ(Kit::Clock::Elapsed(), GetParam().first * 150ms);
}

INSTANTIATE_TEST_SUITE_P(Levels, BeeperLevel,
                         testing::Values(Level{-1, 1, 1}, Level{0, 1, 0}, Level{1, 1, 1}, Level{2, 2, 2},
                                         Level{3, 1, 3}, Level{4, 1, 1}, Level{5, 1, 1},
                                         Level{1'000'000, 1, 1}));

TEST_F(BeeperTest, SeveralAlertsOpenAndCloseTheBridgeEach)
{
    beeper.level = 2;
    EXPECT_TRUE(beeper.Alert_1());
    EXPECT_TRUE(beeper.Alert());
    beeper.level = 1;
    EXPECT_TRUE(beeper.Alert());
    Texts expected = FirstPattern(2);
    Append(expected, SecondPattern(2));
    Append(expected, SecondPattern(1));
    EXPECT_THAT(Course(), ElementsAreArray(expected));
}

TEST_F(BeeperTest, SignalsDoNotShortenTheTones)
{
    const Kit::Interruptions interruptions({5ms, 300ms, 2000ms});
    beeper.level = 1;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_EQ(Kit::Clock::Elapsed(), 3010ms);
    EXPECT_EQ(Kit::Interruptions::Count(), 3);
}

// Presence -----------------------------------------------------------------------------------------------

TEST_F(BeeperTest, OpenTellsThatADeviceIsPresent)
{
    EXPECT_TRUE(beeper.Open());
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).path, BRIDGE);
    EXPECT_TRUE(beeper.Close());
    EXPECT_TRUE(Alerter::isPresent) << "closing does not change it";
    EXPECT_EQ(printed.Output(), Bridge::IDENTITY);
}

TEST_F(BeeperTest, CheckPresenceOpensAndCloses)
{
    EXPECT_TRUE(beeper.CheckPresence());
    EXPECT_THAT(Course(), ElementsAre("open", "close"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
}

TEST_F(BeeperTest, ClosingWhatWasNeverOpenIsASuccess)
{
    EXPECT_TRUE(beeper.Close());
    EXPECT_THAT(Course(), IsEmpty());
}

TEST_F(BeeperTest, ABridgeThatTellsNothingOfItselfIsNotPresent)
{
    for (const int nth : {1, 3})
    {
        Kit::System::Fail("ioctl", EIO, nth);
        EXPECT_FALSE(beeper.CheckPresence()) << nth;
        EXPECT_FALSE(Alerter::isPresent);
        EXPECT_THAT(Course(), ElementsAre("open")) << "and stays open";
        EXPECT_TRUE(beeper.Close());
        EXPECT_THAT(Course(), ElementsAre("close"));
    }
    Kit::System::Fail("ioctl", EIO, 2);
    EXPECT_TRUE(beeper.CheckPresence()) << "its name is not needed";
}

class NoBridge : public SensorTest
{
protected:
    Printed printed;
    Beeper beeper;
};

TEST_F(NoBridge, CheckPresenceTellsWhatWasKnownBefore)
{
    EXPECT_FALSE(beeper.CheckPresence());
    EXPECT_FALSE(Alerter::isPresent);
    Alerter::isPresent = true;
    EXPECT_TRUE(beeper.CheckPresence());
    EXPECT_TRUE(Alerter::isPresent);
    EXPECT_THAT(Kit::System::CallsOf("close"), IsEmpty());
}

TEST_F(NoBridge, APatternRunsToItsEnd)
{
    beeper.level = 3;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_EQ(Kit::Clock::Elapsed(), 9010ms);
    beeper.level = 2;
    EXPECT_TRUE(beeper.Alert_1());
    EXPECT_EQ(Kit::Clock::Elapsed(), 9310ms);
    EXPECT_FALSE(Alerter::isPresent);
    std::string expected = "Unable to open device: No such file or directory\n";
    for (int i = 0; i < 15; ++i)
    {
        expected += "write: Bad file descriptor\n";
    }
    expected += "Unable to open device: No such file or directory\n";
    for (int i = 0; i < 4; ++i)
    {
        expected += "write: Bad file descriptor\n";
    }
    EXPECT_EQ(printed.Errors(), expected);
}

// Faults -------------------------------------------------------------------------------------------------

class BeeperFault : public BeeperTest, public testing::WithParamInterface<int>
{
};

INSTANTIATE_TEST_SUITE_P(Errno, BeeperFault, testing::ValuesIn(I2cTests::BUS_ERRORS));

TEST_P(BeeperFault, EachWriteFailingInTurnLeavesTheOthersAndThePauses)
{
    beeper.level = 2;
    const Texts whole = SecondPattern(2);
    int nth = 0;
    for (std::size_t at = 0; at < whole.size(); ++at)
    {
        if (!whole[at].starts_with("D0"))
        {
            continue;
        }
        Kit::System::Fail("write", GetParam(), ++nth);
        EXPECT_TRUE(beeper.Alert());
        EXPECT_EQ(Kit::System::FailuresDone(), nth);
        Texts expected = whole;
        expected[at] = "failed write";
        EXPECT_THAT(Course(), ElementsAreArray(expected)) << nth;
    }
    EXPECT_EQ(nth, 10);
}

TEST_P(BeeperFault, AllWritesFailingChangesNothingInTime)
{
    Kit::System::Fail("write", GetParam(), 1, 1000);
    beeper.level = 3;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_EQ(Kit::Clock::Elapsed(), 9010ms);
    beeper.level = 2;
    EXPECT_TRUE(beeper.Alert_1());
    EXPECT_EQ(Kit::System::FailuresDone(), 15 + 4);
    EXPECT_THAT(bridge.Received(), IsEmpty());
    std::string expected;
    for (int i = 0; i < 19; ++i)
    {
        expected += std::string("write: ") + std::strerror(GetParam()) + "\n";
    }
    EXPECT_EQ(printed.Errors(), expected);
}

TEST_P(BeeperFault, AFailedOpenOrCloseIsNotLookedAt)
{
    beeper.level = 1;
    Kit::System::Fail("open", GetParam());
    EXPECT_TRUE(beeper.Alert());
    EXPECT_FALSE(Alerter::isPresent);
    EXPECT_THAT(bridge.Received(), IsEmpty());
    Kit::System::Fail("close", GetParam());
    EXPECT_TRUE(beeper.Alert());
    EXPECT_EQ(Kit::System::FailuresDone(), 2);
    EXPECT_TRUE(beeper.Close()) << "it was still open";
}

TEST_P(BeeperFault, CheckPresenceIsTrueWhenOnlyTheCloseFails)
{
    Kit::System::Fail("close", GetParam());
    EXPECT_TRUE(beeper.CheckPresence());
    EXPECT_TRUE(beeper.Close());
}

TEST_P(BeeperFault, ADeadSystemIsSurvived)
{
    Kit::System::Fail("*", GetParam(), 1, 100'000);
    beeper.level = 2;
    EXPECT_TRUE(beeper.Alert());
    EXPECT_FALSE(beeper.CheckPresence());
    EXPECT_EQ(Kit::Clock::Elapsed(), 6010ms);
}

// A bridge that is not found -----------------------------------------------------------------------------

TEST_F(BeeperTest, ABridgeThatRefusesItsQueriesIsPresentWhereADeviceWasBefore)
{
    Alerter::isPresent = true;
    Kit::System::Fail("ioctl", EIO);
    EXPECT_TRUE(beeper.CheckPresence()) << "the flag keeps its value";
    EXPECT_THAT(Course(), ElementsAre("open", "close"));
}

TEST_F(NoBridge, ABridgeThatCameBackUnderAnotherNumberIsNotFound)
{
    const Kit::MessageDevice other("/dev/hidraw1", [](unsigned long, void*) { return 0; });
    EXPECT_FALSE(beeper.CheckPresence());
    EXPECT_THAT(Kit::System::CallsOf("open"), testing::SizeIs(1));
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).path, BRIDGE);
    EXPECT_EQ(printed.Errors(), "Unable to open device: No such file or directory\n");
}

}

}

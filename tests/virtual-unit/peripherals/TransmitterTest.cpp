#include "virtual-unit/peripherals/Transmitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using VirtualUnit::Transmitter;

class TransmitterTest : public testing::Test
{
protected:
    std::vector<std::string> TakeAt(std::chrono::milliseconds time)
    {
        std::vector<std::string> output;
        transmitter.Take(begin + time, output);
        return output;
    }

    Transmitter::TimePoint begin{1h};
    Transmitter transmitter;
};

TEST_F(TransmitterTest, ATextIsOutWhenItsTimeHasCome)
{
    EXPECT_EQ(transmitter.NextDeadline(), std::nullopt);
    transmitter.Send("abc", begin + 5ms);
    EXPECT_EQ(transmitter.NextDeadline(), begin + 5ms);
    EXPECT_THAT(TakeAt(4ms), IsEmpty());
    EXPECT_THAT(TakeAt(5ms), ElementsAre("abc"));
    EXPECT_THAT(TakeAt(6ms), IsEmpty());
    EXPECT_EQ(transmitter.NextDeadline(), std::nullopt);
}

TEST_F(TransmitterTest, TextsKeepTheirOrder)
{
    transmitter.Send("late", begin + 20ms);
    transmitter.Send("early", begin);
    EXPECT_THAT(TakeAt(19ms), IsEmpty());
    EXPECT_THAT(TakeAt(20ms), ElementsAre("late", "early"));
}

TEST_F(TransmitterTest, ATextIsCutIntoPieces)
{
    transmitter.options.pieceBytes = 2;
    transmitter.Send("abcde", begin);
    EXPECT_THAT(TakeAt(0ms), ElementsAre("ab", "cd", "e"));
}

TEST_F(TransmitterTest, ThePiecesAreSpreadInTime)
{
    transmitter.options.pieceBytes = 2;
    transmitter.options.pieceGap = 10ms;
    transmitter.Send("abcde", begin);
    EXPECT_THAT(TakeAt(0ms), ElementsAre("ab"));
    EXPECT_EQ(transmitter.NextDeadline(), begin + 10ms);
    EXPECT_THAT(TakeAt(20ms), ElementsAre("cd", "e"));
}

TEST_F(TransmitterTest, ALineHasItsSpeed)
{
    transmitter.options.bytesPerSecond = 1000;
    transmitter.Send("12345", begin);
    transmitter.Send("67", begin);
    EXPECT_THAT(TakeAt(4ms), IsEmpty());
    EXPECT_THAT(TakeAt(5ms), ElementsAre("12345"));
    EXPECT_EQ(transmitter.NextDeadline(), begin + 7ms);
    EXPECT_THAT(TakeAt(7ms), ElementsAre("67"));
}

TEST_F(TransmitterTest, WhatIsDiscardedIsNeverOut)
{
    transmitter.Send("abc", begin);
    transmitter.Discard();
    EXPECT_THAT(TakeAt(1000ms), IsEmpty());
    EXPECT_EQ(transmitter.NextDeadline(), std::nullopt);
}

TEST_F(TransmitterTest, AnEmptyTextIsNothing)
{
    transmitter.Send("", begin);
    EXPECT_EQ(transmitter.NextDeadline(), std::nullopt);
}

}

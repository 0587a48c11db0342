#include "virtual-unit/recording/ReplayedRequests.h"

#include "tests/virtual-unit/recording/Transcript.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::Each;
using testing::ElementsAre;

using Texts = std::vector<std::string>;

class ReplayedRequestsTest : public testing::Test
{
protected:
    void Play(const Texts& lines) { requests.emplace(Transcript(lines), differences); }

    /// The answers to a request that is made `times`, all at once.
    Texts Ask(const std::string& request, std::size_t times = 1)
    {
        Texts answers;
        while (answers.size() < times)
        {
            answers.push_back(requests->Answer(request, now));
        }
        return answers;
    }

    std::string Difference() const { return differences.First() ? differences.First()->Text() : "none"; }

    std::chrono::microseconds now{0};
    Differences differences;
    std::optional<ReplayedRequests> requests;
};

const std::string READ = "read 0x1C:0x0C";

const Texts POLLED = {
    R"(1.000000 ? "read 0x1C:0x0C" -> "00" x 10 until 1.900000)",
    R"(2.000000 ? "read 0x1C:0x0C" -> "04")",
    R"(2.010000 ? "read 0x1C:0x16" -> "81")",
    R"(2.100000 ? "read 0x1C:0x0C" -> "00" x 3 until 3.000000)",
};

TEST_F(ReplayedRequestsTest, TheSameRequestsHaveTheSameAnswers)
{
    Play(POLLED);
    now = 1s;
    EXPECT_THAT(Ask(READ, 10), Each("00"));
    now = 2s;
    EXPECT_THAT(Ask(READ), ElementsAre("04"));
    EXPECT_THAT(Ask("read 0x1C:0x16"), ElementsAre("81"));
    EXPECT_THAT(Ask(READ, 3), Each("00"));
    requests->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedRequestsTest, ARepetitionMayBeLongerOrShorter)
{
    for (const std::size_t times : {1, 2, 9, 11, 1000})
    {
        Play(POLLED);
        now = 1999999us;
        EXPECT_THAT(Ask(READ, times), Each("00"));
        now = 2s;
        EXPECT_THAT(Ask(READ), ElementsAre("04")) << times;
        EXPECT_THAT(Ask("read 0x1C:0x16"), ElementsAre("81"));
        EXPECT_THAT(Ask(READ, times), Each("00"));
        requests->Finish();
    }
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedRequestsTest, ARepetitionComesOnceAtLeast)
{
    Play(POLLED);
    now = 3s; // late
    EXPECT_THAT(Ask(READ, 2), ElementsAre("00", "04"));
    Play({R"(1.000000 ? "pin 103 = 1" -> "0" x 3 until 2.000000)", R"(3.000000 ? "pin 103 = 0" -> "0")"});
    Ask("pin 103 = 0");
    EXPECT_EQ(Difference(),
              R"(/dev/port: recording line 3: expected "pin 103 = 1", the program requested "pin 103 = 0")");
}

TEST_F(ReplayedRequestsTest, ASingleRequestComesOnce)
{
    Play({R"(1.000000 ? "write 0x1C:0x2A 01" -> "0")", R"(2.000000 ? "read 0x1C:0x0C" -> "00")"});
    Ask("write 0x1C:0x2A 01");
    EXPECT_EQ(Difference(), "none");
    Ask("write 0x1C:0x2A 01");
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4: expected \"read 0x1C:0x0C\", the program requested \"write "
              "0x1C:0x2A 01\"");
}

TEST_F(ReplayedRequestsTest, WithoutAChoiceTimeDoesNotMatter)
{
    Play({R"(1.000000 ? "read 0x1C:0x0C" -> "00")", R"(9.000000 ? "read 0x1C:0x0C" -> "01")"});
    EXPECT_THAT(Ask(READ, 2), ElementsAre("00", "01"));
}

const Texts BLINKED = {
    R"(0.500000 ? "pin 102 = 0" -> "0")",
    R"(1.000000 ? "pin 102 = 1" -> "0" | "pin 102 = 0" -> "0" x 8 until 5.000000)",
    R"(6.000000 ? "pin 102 = 0" -> "0" x 2 until 6.100000)",
    R"(7.000000 ? "pin 102 = 1" -> "ENXIO")",
};

TEST_F(ReplayedRequestsTest, AnAlternationMayBeLongerOrShorter)
{
    for (const std::size_t pairs : {1, 2, 4, 5, 100})
    {
        Play(BLINKED);
        now = 6s;
        Ask("pin 102 = 0");
        for (std::size_t i = 0; i < pairs; ++i)
        {
            Ask("pin 102 = 1");
            EXPECT_THAT(Ask("pin 102 = 0"), ElementsAre("0"));
        }
        EXPECT_THAT(Ask("pin 102 = 0"), ElementsAre("0"));
        now = 7s;
        EXPECT_THAT(Ask("pin 102 = 1"), ElementsAre("ENXIO")) << pairs;
        requests->Finish();
    }
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedRequestsTest, AnAlternationMayEndWithEitherRequest)
{
    Play(BLINKED);
    Ask("pin 102 = 0");
    Ask("pin 102 = 1");
    Ask("pin 102 = 0"); // of the alternation, or behind it
    Ask("pin 102 = 1"); // of the alternation
    Ask("pin 102 = 0", 3);
    now = 7s;
    EXPECT_THAT(Ask("pin 102 = 1"), ElementsAre("ENXIO"));
    requests->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedRequestsTest, AnAlternationTakesTurns)
{
    Play(BLINKED);
    Ask("pin 102 = 0");
    Ask("pin 102 = 1", 2);
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4: expected \"pin 102 = 0\", the program requested \"pin 102 = "
              "1\"");
}

TEST_F(ReplayedRequestsTest, PinsOfTwoThreadsInterleaveAnyhow)
{
    const Texts lines = {
        R"(1.000000 ? "pin 102 = 1" -> "0" | "pin 102 = 0" -> "0" x 8 until 5.000000)",
        R"(1.000000 ? "pin 103 = 1" -> "0")",
        R"(2.000000 ? "pin 103 = 0" -> "EIO")",
    };
    Play(lines);
    Ask("pin 102 = 1");
    EXPECT_THAT(Ask("pin 103 = 1"), ElementsAre("0"));
    Ask("pin 102 = 0");
    Ask("pin 102 = 1");
    EXPECT_THAT(Ask("pin 103 = 0"), ElementsAre("EIO"));
    requests->Finish();
    Play(lines);
    EXPECT_THAT(Ask("pin 103 = 1"), ElementsAre("0"));
    EXPECT_THAT(Ask("pin 103 = 0"), ElementsAre("EIO"));
    Ask("pin 102 = 1");
    requests->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedRequestsTest, AllRequestsThatWereExpectedAreTold)
{
    Play({R"(1.000000 ? "read 0x1C:0x0C" -> "00" x 3 until 2.000000)", R"(3.000000 ? "info" -> "EIO")"});
    Ask(READ);
    Ask("read 0x1C:0x0D");
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 3: expected \"read 0x1C:0x0C\" or \"info\", the program requested "
              "\"read 0x1C:0x0D\"");
}

TEST_F(ReplayedRequestsTest, AnotherRequestIsAnsweredAsTheLastTime)
{
    Play({R"(1.000000 ? "read 0x1C:0x0C" -> "07")", R"(1.100000 ? "read 0x1C:0x0D" -> "1A")",
          R"(1.200000 ? "info" -> "ENOTTY")"});
    EXPECT_THAT(Ask(READ), ElementsAre("07"));
    EXPECT_THAT(Ask("read 0x1C:0x0D"), ElementsAre("1A"));
    EXPECT_THAT(Ask(READ), ElementsAre("07"));
    EXPECT_THAT(Ask("read 0x1C:0x11"), ElementsAre("EIO"));
    EXPECT_EQ(differences.Count(), 1U); // until it is found again
    EXPECT_THAT(Ask("info"), ElementsAre("ENOTTY"));
    requests->Finish();
    EXPECT_EQ(differences.Count(), 1U);
}

TEST_F(ReplayedRequestsTest, WhatTheProgramSkipsIsSkipped)
{
    Play({R"(1.000000 ? "read 0x1C:0x01" -> "01")", R"(1.100000 ? "read 0x1C:0x02" -> "02")",
          R"(1.200000 ? "read 0x1C:0x03" -> "03")", R"(1.300000 ? "read 0x1C:0x04" -> "04")",
          R"(1.400000 ? "read 0x1C:0x05" -> "05")"});
    Ask("read 0x1C:0x01");
    EXPECT_THAT(Ask("read 0x1C:0x03"), ElementsAre("EIO")); // 2 is skipped
    EXPECT_THAT(Ask("read 0x1C:0x04"), ElementsAre("04"));
    EXPECT_THAT(Ask("read 0x1C:0x05"), ElementsAre("05"));
    requests->Finish();
    EXPECT_EQ(differences.Count(), 1U);
    EXPECT_THAT(Difference(), testing::HasSubstr("line 4"));
}

TEST_F(ReplayedRequestsTest, EachTimeThatTheProgramStraysIsADifference)
{
    Play(POLLED);
    for (const std::size_t strays : {1, 2, 3})
    {
        EXPECT_THAT(Ask(READ), ElementsAre("00"));
        EXPECT_THAT(Ask("info", 2), Each("EIO"));
        EXPECT_EQ(differences.Count(), strays);
    }
}

TEST_F(ReplayedRequestsTest, TheEndMayBeReachedWhereItIsNotCertain)
{
    Play({R"(1.000000 ? "pin 102 = 1" -> "0" | "pin 102 = 0" -> "0" x 4 until 2.000000)",
          R"(3.000000 ? "pin 102 = 0" -> "0")"});
    Ask("pin 102 = 1");
    Ask("pin 102 = 0"); // of the alternation, or the last one
    requests->Finish();
    EXPECT_EQ(Difference(), "none");
}

TEST_F(ReplayedRequestsTest, RequestsBehindTheEndAreADifference)
{
    Play({R"(1.000000 ? "pin 103 = 1" -> "0")"});
    Ask("pin 103 = 1", 3);
    EXPECT_EQ(differences.Count(), 1U);
    EXPECT_EQ(Difference(),
              "/dev/port: the recording has nothing more, the program requested \"pin 103 = 1\"");
    Ask("pin 104 = 1");
    EXPECT_EQ(differences.Count(), 2U);
}

TEST_F(ReplayedRequestsTest, WhatWasNotRequestedIsADifference)
{
    Play(POLLED);
    Ask(READ);
    requests->Finish();
    EXPECT_EQ(Difference(),
              "/dev/port: recording line 4: expected \"read 0x1C:0x0C\", the program ended before it "
              "requested that");
    Play({R"(1.000000 ? "pin 103 = 1" -> "0" x 3 until 2.000000)", R"(1.000000 ? "pin 104 = 1" -> "0")"});
    Ask("pin 103 = 1");
    requests->Finish();
    EXPECT_EQ(differences.Count(), 2U);
}

TEST_F(ReplayedRequestsTest, AProgramMayStopPollingALittleSooner)
{
    const Texts lines = {R"(1.000000 ? "read 0x1C:0x0C" -> "00" x 10 until 1.900000)",
                         R"(2.000000 ? "read 0x1C:0x0C" -> "04")",
                         R"(2.010000 ? "read 0x1C:0x0C" -> "00" x 3 until 2.400000)"};
    Play(lines);
    now = 1s;
    Ask(READ, 5);
    requests->Finish();
    EXPECT_EQ(Difference(), "none");

    Texts longer = lines;
    longer.emplace_back(R"(2.500000 ? "read 0x1C:0x0C" -> "04" x 20 until 4.000000)");
    Play(longer);
    Ask(READ, 5);
    requests->Finish();
    EXPECT_EQ(differences.Count(), 1U) << "two seconds are not a little";
}

TEST_F(ReplayedRequestsTest, WhatComesLastAndIsNoPollIsMissed)
{
    Play({R"(1.000000 ? "read 0x1C:0x0C" -> "00" x 10 until 1.900000)",
          R"(2.000000 ? "write 0x1C:0x2A 00" -> "0")"});
    now = 1s;
    Ask(READ, 5);
    requests->Finish();
    EXPECT_EQ(differences.Count(), 1U);

    Play({R"(1.000000 ? "pin 103 = 0" -> "0")", R"(1.100000 ? "pin 103 = 1" -> "0")",
          R"(1.200000 ? "pin 103 = 0" -> "0")"});
    Ask("pin 103 = 0");
    Ask("pin 103 = 1");
    requests->Finish();
    EXPECT_EQ(differences.Count(), 2U);
}

}

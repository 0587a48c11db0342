// Reading: the modes on a real terminal, and what each kind of read makes of what is there.

#include "tests/Serial/SerialTest.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <sys/resource.h>
#include <sys/select.h>
#include <thread>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace SerialTests
{

namespace
{

/// Something that the other end does after a (virtual) while.
class Later
{
public:
    template <class Action>
    Later(std::chrono::milliseconds delay, Action action)
        : thread([=] {
              std::this_thread::sleep_for(delay);
              action();
          })
    {
    }

    ~Later() { thread.join(); }

    Later(const Later&) = delete;
    Later& operator=(const Later&) = delete;

private:
    std::thread thread;
};

// Whole lines (modes 0, 2, 3 and any other) ---------------------------------------------------------------

class LineMode : public SerialTest, public testing::WithParamInterface<int>
{
};

TEST_P(LineMode, AReadGivesOneLine)
{
    ASSERT_TRUE(OpenIn(GetParam()));
    line.Send("first\nsecond\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "first\n");
    EXPECT_TRUE(port.Read(buffer, 0));
    EXPECT_EQ(Bytes(), "second\n");
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
}

TEST_P(LineMode, APartOfALineIsWaitedFor)
{
    ASSERT_TRUE(OpenIn(GetParam()));
    line.Send("begin");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1s);
    line.Send(" end\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "begin end\n");
}

TEST_P(LineMode, AnEmptyLineIsALine)
{
    ASSERT_TRUE(OpenIn(GetParam()));
    line.Send("\n\nx\n");
    for (const char* expected : {"\n", "\n", "x\n"})
    {
        EXPECT_TRUE(port.Read(buffer, 1));
        EXPECT_EQ(Bytes(), expected);
    }
}

TEST_P(LineMode, ALongLineIsReadInParts)
{
    ASSERT_TRUE(OpenIn(GetParam()));
    TavubufferDynamic small(4);
    line.Send("abcdefghi\n");
    std::string all;
    for (int part = 0; part < 3; ++part)
    {
        EXPECT_TRUE(port.Read(small, 1));
        all.append(reinterpret_cast<const char*>(small.data), static_cast<std::size_t>(small.length));
    }
    EXPECT_EQ(all, "abcdefghi\n");
    EXPECT_TRUE(port.Read(small, 1));
    EXPECT_EQ(small.length, 0u);
}

TEST_P(LineMode, ACarriageReturnIsANewLineInModeTwoAlone)
{
    ASSERT_TRUE(OpenIn(GetParam()));
    line.Send("a\rb\r\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), GetParam() == 2 ? "a\n" : "a\rb\r\n");
}

TEST_P(LineMode, AReadWithoutATimeoutBlocksUntilALineIsThere)
{
    for (const int timeout : {0, -1, INT_MIN})
    {
        ASSERT_TRUE(OpenIn(GetParam(), 7));
        const auto before = Kit::Clock::Elapsed();
        const Later peer(1h, [this] { line.Send("at last\n"); });
        EXPECT_TRUE(port.Read(buffer, timeout));
        EXPECT_EQ(Bytes(), "at last\n");
        EXPECT_EQ(Kit::Clock::Elapsed() - before, 1h);
        ASSERT_TRUE(port.Close());
    }
    EXPECT_EQ(Count("select"), 0);
}

TEST_P(LineMode, NothingIsEchoed)
{
    ASSERT_TRUE(OpenIn(GetParam()));
    line.Send("no echo\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(line.Received(), "");
}

INSTANTIATE_TEST_SUITE_P(Modes, LineMode, testing::Values(0, 2, 3, 4, -1),
                         [](const testing::TestParamInfo<int>& row) {
                             return row.param < 0 ? "Minus1" : std::to_string(row.param);
                         });

// Raw (mode 1) -------------------------------------------------------------------------------------------

TEST_F(SerialTest, ARawReadGivesWhatIsThereAtOnce)
{
    ASSERT_TRUE(OpenIn(1));
    line.Send("part \r of a line");
    EXPECT_TRUE(port.Read(buffer, 0));
    EXPECT_EQ(Bytes(), "part \r of a line");
    EXPECT_FALSE(port.Read(buffer, 0)) << "nothing is there";
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_EQ(line.Received(), "") << "no echo";
}

TEST_F(SerialTest, ARawReadWithTheModesTimeoutWaitsForTheFirstByte)
{
    ASSERT_TRUE(OpenIn(1, 2));
    EXPECT_FALSE(port.Read(buffer, 0));
    EXPECT_EQ(Kit::Clock::Elapsed(), 2s);
    const Later peer(700ms, [this] { line.Send("x"); });
    EXPECT_TRUE(port.Read(buffer, 0));
    EXPECT_EQ(Bytes(), "x");
    EXPECT_EQ(Kit::Clock::Elapsed(), 2700ms);
}

TEST_F(SerialTest, ATimeoutAboveTwentyFiveSecondsWraps)
{
    ASSERT_TRUE(OpenIn(1, 26));
    std::string text;
    EXPECT_FALSE(port.Read(text));
    EXPECT_EQ(Kit::Clock::Elapsed(), 400ms);
}

TEST_F(SerialTest, ARawLineCarriesEveryByteUnchanged)
{
    ASSERT_TRUE(OpenIn(1));
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
    {
        all += static_cast<char>(byte);
        all += static_cast<char>(0xFF);
    }
    line.Send(all);
    std::string received;
    while (port.Read(buffer, 1) && buffer.length > 0)
    {
        received += Bytes();
    }
    EXPECT_EQ(received, all);
    EXPECT_TRUE(Send(all));
    EXPECT_EQ(line.Received(), all) << "and so does the way back";
}

// Read(buffer, seconds) ----------------------------------------------------------------------------------

TEST_F(SerialTest, ABufferWithoutStorageOrAClosedPortIsRefusedAtOnce)
{
    TavubufferDynamic none;
    none.capacity = 8;
    none.length = 5;
    TavubufferDynamic narrow(8);
    narrow.capacity = 0;
    narrow.length = 5;
    buffer.length = 5;
    EXPECT_FALSE(port.Read(buffer, 1)) << "not open";
    ASSERT_TRUE(OpenIn(1));
    Kit::System::ForgetCalls();
    line.Send("bytes");
    EXPECT_FALSE(port.Read(none, 1));
    EXPECT_FALSE(port.Read(narrow, 1));
    EXPECT_EQ(none.length, 5u);
    EXPECT_EQ(narrow.length, 5u);
    EXPECT_EQ(buffer.length, 5u);
    EXPECT_THAT(Calls(), IsEmpty());
    none.capacity = 0;
}

TEST_F(SerialTest, AWaitIsOneSelectOfWholeSeconds)
{
    ASSERT_TRUE(port.Open());
    const Later peer(2500ms, [this] { line.Send("late\n"); });
    EXPECT_TRUE(port.Read(buffer, 3));
    EXPECT_EQ(Bytes(), "late\n");
    EXPECT_EQ(Kit::Clock::Elapsed(), 2500ms);
    const auto selects = Kit::System::CallsOf("select");
    ASSERT_EQ(selects.size(), 1u);
    EXPECT_EQ(selects[0].argument, 3'000'000);
    const auto reads = Kit::System::CallsOf("read");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].argument, 64);
}

TEST_F(SerialTest, ATimeoutIsNoFailureAndIsToldToTheConsoleAlone)
{
    ASSERT_TRUE(port.Open());
    buffer.length = 9;
    EXPECT_TRUE(port.Read(buffer, 2));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Kit::Clock::Elapsed(), 2s);
    EXPECT_EQ(Count("read"), 0);
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("Set serial mode to 0", "Read serial timeout"));
    EXPECT_THAT(log.File(), Not(Contains("Read serial timeout")));
    EXPECT_FALSE(port.HasError());
}

TEST_F(SerialTest, AFailedWaitIsAFailureAndIsToldToBothSinks)
{
    ASSERT_TRUE(port.Open());
    line.Send("there\n");
    buffer.length = 9;
    Kit::System::Fail("select", EINTR);
    EXPECT_FALSE(port.Read(buffer, 2));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Count("read"), 0);
    EXPECT_THAT(log.File(), Contains("[ERROR]Read serial error"));
    EXPECT_THAT(log.Console(), Contains("[ERROR]Read serial error"));
    EXPECT_TRUE(port.Read(buffer, 2)) << "the next one is as good as ever";
    EXPECT_EQ(Bytes(), "there\n");
}

TEST_F(SerialTest, AFailedReadIsAFailureWithoutALine)
{
    ASSERT_TRUE(port.Open());
    const auto lines = log.Console();
    line.Send("there\n");
    buffer.length = 9;
    Kit::System::Fail("read", EIO);
    EXPECT_FALSE(port.Read(buffer, 1));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(log.Console(), lines);
    EXPECT_EQ(port.GetErrorNumber(), EIO);
}

TEST_F(SerialTest, TheLongestWaitIsPassedOnWhole)
{
    ASSERT_TRUE(port.Open());
    line.Send("x\n");
    EXPECT_TRUE(port.Read(buffer, INT_MAX));
    EXPECT_EQ(Kit::System::CallsOf("select").at(0).argument, // cut off on a 32-bit machine
              static_cast<long>(std::int64_t{INT_MAX} * 1'000'000));
}

TEST_F(SerialTest, OfACapacityAboveThirtyTwoBitsTheLowOnesCount)
{
    ASSERT_TRUE(OpenIn(1));
    line.Send("abcdefgh");
    buffer.capacity = (std::uint64_t{1} << 32) + 5;
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "abcde");
    EXPECT_EQ(Kit::System::CallsOf("read").at(0).argument, 5);
    buffer.capacity = std::uint64_t{1} << 32;
    EXPECT_FALSE(port.Read(buffer, 1)) << "none is left of it";
    EXPECT_EQ(buffer.length, 0u);
    buffer.capacity = 64;
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "fgh");
}

TEST_F(SerialTest, AReadTakesOnlyWhatOneCallGives)
{
    ASSERT_TRUE(OpenIn(1));
    line.Send("whole message");
    Kit::System::Fail("read", 0, 1, 1, 6); // as if the rest were still on its way
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(buffer.length, 6u);
    EXPECT_EQ(Count("read"), 1);
}

// A hang-up ----------------------------------------------------------------------------------------------

TEST_F(SerialTest, AHangUpEndsAWaitAndIsAFailure)
{
    ASSERT_TRUE(port.Open());
    const Later peer(500ms, [this] { line.HangUp(); });
    EXPECT_FALSE(port.Read(buffer, 60));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
    EXPECT_THAT(log.File(), Not(Contains("[ERROR]Read serial error")));
}

TEST_F(SerialTest, AHangUpEndsABlockedRead)
{
    ASSERT_TRUE(port.Open());
    const Later peer(500ms, [this] { line.HangUp(); });
    std::string text = "untouched";
    EXPECT_FALSE(port.Read(text));
    EXPECT_EQ(text, "untouched");
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
}

TEST_F(SerialTest, AfterAHangUpEveryOperationFailsAndThePortCanBeClosed)
{
    ASSERT_TRUE(port.Open());
    line.HangUp();
    std::string text;
    char c = '?';
    EXPECT_FALSE(Send("x"));
    EXPECT_EQ(port.GetErrorNumber(), EIO);
    EXPECT_FALSE(port.Read(buffer, 1));
    EXPECT_FALSE(port.Read(buffer, 0));
    EXPECT_FALSE(port.Read(text));
    EXPECT_FALSE(port.ReadLoop(&c));
    EXPECT_EQ(port.Drain(), -1);
    port.Flush();
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_TRUE(port.Close());
}

// Read(text) ---------------------------------------------------------------------------------------------

TEST_F(SerialTest, ATextEndsBeforeItsFirstZeroByte)
{
    using namespace std::string_view_literals;
    ASSERT_TRUE(OpenIn(1));
    std::string text = "replaced, however long it was";
    line.Send("ab\0cd\0"sv);
    EXPECT_TRUE(port.Read(text));
    EXPECT_EQ(text, "ab");
    line.Send("\0x"sv);
    EXPECT_TRUE(port.Read(text));
    EXPECT_EQ(text, "");
    line.Send("shorter"sv);
    EXPECT_TRUE(port.Read(text));
    EXPECT_EQ(text, "shorter") << "nothing of an earlier read shows";
}

class TextLength : public SerialTest, public testing::WithParamInterface<std::size_t>
{
};

TEST_P(TextLength, IsAtMost256BytesARead)
{
    ASSERT_TRUE(OpenIn(1));
    std::string sent;
    while (sent.size() < GetParam())
    {
        sent += static_cast<char>('a' + sent.size() % 26);
    }
    line.Send(sent);
    std::string text;
    EXPECT_TRUE(port.Read(text));
    EXPECT_EQ(text, sent.substr(0, 256));
    EXPECT_EQ(Kit::System::CallsOf("read").at(0).argument, 256);
    EXPECT_EQ(port.Read(text), sent.size() > 256);
    EXPECT_EQ(text, sent.size() > 256 ? sent.substr(256) : sent);
}

INSTANTIATE_TEST_SUITE_P(Bytes, TextLength, testing::Values(1, 255, 256, 257, 300, 512));

TEST_F(SerialTest, ATextStaysAsItWasWhenNothingIsRead)
{
    ASSERT_TRUE(OpenIn(1));
    std::string text = "untouched";
    EXPECT_FALSE(port.Read(text));
    Kit::System::Fail("read", EAGAIN);
    line.Send("x");
    EXPECT_FALSE(port.Read(text));
    EXPECT_EQ(text, "untouched");
    EXPECT_EQ(Count("select"), 0);
}

// ReadLoop, Drain, Flush ---------------------------------------------------------------------------------

TEST_F(SerialTest, ReadLoopGivesOneByteAtATime)
{
    ASSERT_TRUE(OpenIn(1));
    line.Send("a\r\xFF");
    char c = '?';
    for (const char expected : {'a', '\r', '\xFF'})
    {
        EXPECT_TRUE(port.ReadLoop(&c));
        EXPECT_EQ(c, expected);
    }
    EXPECT_FALSE(port.ReadLoop(&c));
    EXPECT_EQ(c, '\xFF');
    for (const Kit::System::Call& call : Kit::System::CallsOf("read"))
    {
        EXPECT_EQ(call.argument, 1);
    }
    EXPECT_FALSE(port.HasError());
}

TEST_F(SerialTest, ReadLoopFailsWithTheSystem)
{
    ASSERT_TRUE(OpenIn(1));
    line.Send("a");
    char c = '?';
    Kit::System::Fail("read", EINTR);
    EXPECT_FALSE(port.ReadLoop(&c));
    EXPECT_EQ(c, '?');
    EXPECT_FALSE(port.ReadLoop(nullptr)) << "the system refuses a null pointer";
}

TEST_F(SerialTest, DrainPassesTheSystemsResultOn)
{
    EXPECT_EQ(port.Drain(), 0) << "not open";
    EXPECT_EQ(Count("tcdrain"), 0);
    ASSERT_TRUE(port.Open());
    EXPECT_EQ(port.Drain(), 0);
    EXPECT_EQ(Count("tcdrain"), 2) << "one more than opening made";
    Kit::System::Fail("tcdrain", EIO);
    EXPECT_EQ(port.Drain(), -1);
}

TEST_F(SerialTest, FlushDiscardsInputOnlyAndSaysSo)
{
    ASSERT_TRUE(OpenIn(1));
    const auto lines = log.File().size();
    Kit::System::ForgetCalls();
    EXPECT_TRUE(Send("output"));
    line.Send("input");
    port.Flush();
    ASSERT_THAT(Functions(), ElementsAre("write", "tcflush", "tcdrain"));
    EXPECT_EQ(Calls()[1].argument, TCIFLUSH);
    EXPECT_FALSE(port.Read(buffer, 0));
    EXPECT_EQ(line.Received(), "output");
    EXPECT_EQ(log.File().size(), lines + 1);
    EXPECT_EQ(log.File().back(), "[SERIAL] Serial port flashed");
    EXPECT_EQ(log.Console().back(), "[SERIAL] Serial port flashed");
}

TEST_F(SerialTest, FlushOfAClosedPortDoesNothing)
{
    port.Flush();
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
}

// A descriptor that an fd_set cannot hold ----------------------------------------------------------------

class HighDescriptor : public SerialTest
{
protected:
    HighDescriptor()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit more = before;
        more.rlim_cur = FD_SETSIZE + 512;
        raised = setrlimit(RLIMIT_NOFILE, &more) == 0;
        taken.reserve(FD_SETSIZE);
        int fd = 0;
        while (raised && (fd = dup(STDERR_FILENO)) >= 0)
        {
            taken.push_back(fd);
            if (fd >= FD_SETSIZE)
            {
                break;
            }
        }
    }

    ~HighDescriptor() override
    {
        port.Close();
        for (const int fd : taken)
        {
            close(fd);
        }
        setrlimit(RLIMIT_NOFILE, &before);
    }

    void Open(int mode)
    {
        ASSERT_TRUE(raised) << "the system allows no more than " << before.rlim_max << " descriptors";
        ASSERT_TRUE(OpenIn(mode));
        ASSERT_GE(Calls().at(0).result, FD_SETSIZE);
    }

private:
    rlimit before = {};
    bool raised = false;
    std::vector<int> taken;
};

TEST_F(HighDescriptor, IsWaitedForAsAnyOther)
{
    ASSERT_NO_FATAL_FAILURE(Open(0));
    EXPECT_TRUE(port.Read(buffer, 2));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(Kit::Clock::Elapsed(), 2s);
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("Set serial mode to 0", "Read serial timeout"));
    const Later peer(300ms, [this] { line.Send("high\n"); });
    EXPECT_TRUE(port.Read(buffer, 2));
    EXPECT_EQ(Bytes(), "high\n");
    EXPECT_EQ(Kit::Clock::Elapsed(), 2300ms);
    EXPECT_EQ(Count("select"), 0);
    EXPECT_TRUE(Send("x"));
    EXPECT_EQ(line.Received(), "x");
}

TEST_F(HighDescriptor, FailsAsAnyOther)
{
    ASSERT_NO_FATAL_FAILURE(Open(1));
    Kit::System::Fail("poll", EINTR);
    EXPECT_FALSE(port.Read(buffer, 1));
    EXPECT_THAT(log.File(), Contains("[ERROR]Read serial error"));
    EXPECT_EQ(port.GetErrorNumber(), EINTR);
    line.HangUp();
    EXPECT_FALSE(port.Read(buffer, 1));
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
}

TEST_F(HighDescriptor, IsWaitedForAsLongAsThereIsTime)
{
    ASSERT_NO_FATAL_FAILURE(Open(0));
    for (const int seconds : {2'147'482, 2'147'483, INT_MAX})
    {
        const Later peer(300ms, [this] { line.Send("x\n"); });
        EXPECT_TRUE(port.Read(buffer, seconds)) << seconds;
        EXPECT_EQ(Bytes(), "x\n");
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 900ms);
    const auto polls = Kit::System::CallsOf("poll");
    ASSERT_EQ(polls.size(), 3u);
    EXPECT_EQ(polls[0].argument, 2'147'482'000);
    EXPECT_EQ(polls[1].argument, -1) << "without a limit";
    EXPECT_EQ(polls[2].argument, -1);
}

TEST_F(HighDescriptor, ThatIsGoneIsAnErrorOfTheWait)
{
    ASSERT_NO_FATAL_FAILURE(Open(1));
    close(static_cast<int>(Calls().at(0).result));
    EXPECT_FALSE(port.Read(buffer, 1));
    EXPECT_EQ(port.GetErrorNumber(), EBADF);
    EXPECT_THAT(log.File(), Contains("[ERROR]Read serial error"));
}

}

}

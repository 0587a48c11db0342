// Output that the device does not take: waiting for it, and closing without it.

#include "tests/Serial/SerialTest.h"

#include "tests/kit/Clock.h"
#include "tests/kit/OutputQueue.h"

#include <cerrno>
#include <chrono>
#include <linux/serial.h>
#include <sys/ioctl.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace SerialTests
{

namespace
{

class OutputTest : public SerialTest
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(port.Open());
        Kit::System::ForgetCalls();
    }

    /// How long the closing takes, in virtual time.
    std::chrono::nanoseconds Close()
    {
        const auto before = Kit::Clock::Elapsed();
        EXPECT_TRUE(port.Close());
        return Kit::Clock::Elapsed() - before;
    }

    Kit::OutputQueue queue{DEVICE, 50ms};
};

TEST_F(OutputTest, IsAwaitedUntilTheDeviceHasTakenIt)
{
    EXPECT_TRUE(Send("text"));
    EXPECT_EQ(line.Received(), "");
    EXPECT_TRUE(port.AwaitOutput(500ms));
    EXPECT_EQ(Kit::Clock::Elapsed(), 50ms);
    EXPECT_EQ(line.Received(), "text");
    EXPECT_FALSE(port.HasError());
}

TEST_F(OutputTest, ThatIsNotThereIsNotAwaited)
{
    EXPECT_TRUE(port.AwaitOutput(500ms));
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_THAT(Functions(), ElementsAre("ioctl"));
}

TEST_F(OutputTest, ThatIsNeverTakenIsAwaitedForTheTimeGiven)
{
    queue.TakeAfter(Kit::OutputQueue::NEVER);
    EXPECT_TRUE(Send("text"));
    EXPECT_FALSE(port.AwaitOutput(500ms));
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
    for (const auto limit : {0ms, -1ms, std::chrono::milliseconds::min()})
    {
        Kit::System::ForgetCalls();
        EXPECT_FALSE(port.AwaitOutput(limit));
        EXPECT_THAT(Functions(), ElementsAre("ioctl")) << "one look";
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 500ms);
}

TEST_F(OutputTest, MayBeAwaitedWithoutALimit)
{
    queue.TakeAfter(3s);
    EXPECT_TRUE(Send("text"));
    EXPECT_TRUE(port.AwaitOutput(std::chrono::milliseconds::max()));
    EXPECT_EQ(Kit::Clock::Elapsed(), 3s);
}

TEST_F(OutputTest, OfADriverThatDoesNotTellIsNotAwaited)
{
    for (const int error : {ENOTTY, EINVAL, EIO})
    {
        queue.Refuse(TIOCOUTQ, error);
        EXPECT_TRUE(Send("text"));
        EXPECT_TRUE(port.AwaitOutput(500ms));
        EXPECT_FALSE(port.HasError());
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
}

TEST_F(OutputTest, HoldsTheClosingUnlessThatIsNotToWait)
{
    queue.TakeAfter(Kit::OutputQueue::NEVER);
    EXPECT_TRUE(Send("text"));
    EXPECT_EQ(Close(), 30s) << "as ever";

    ASSERT_TRUE(port.Open());
    EXPECT_TRUE(port.CloseWithoutWaiting());
    EXPECT_TRUE(Send("text"));
    EXPECT_EQ(Close(), 0s);
    EXPECT_EQ(line.Received(), "");
    EXPECT_FALSE(port.HasError());
}

TEST_F(OutputTest, HoldsTheClosingWhereTheDriverRefuses)
{
    for (const unsigned long request : {TIOCSSERIAL, TIOCGSERIAL})
    {
        queue.Refuse(request, request == TIOCSSERIAL ? EPERM : ENOTTY);
        EXPECT_FALSE(port.CloseWithoutWaiting());
        EXPECT_FALSE(port.HasError());
        queue.TakeAfter(Kit::OutputQueue::NEVER);
        EXPECT_TRUE(Send("text"));
        EXPECT_EQ(Close(), 30s);
        ASSERT_TRUE(port.Open());
    }
}

TEST_F(OutputTest, OfAClosedPortIsNotLookedAt)
{
    EXPECT_TRUE(port.Close());
    Kit::System::ForgetCalls();
    EXPECT_TRUE(port.AwaitOutput(500ms));
    EXPECT_FALSE(port.CloseWithoutWaiting());
    EXPECT_THAT(Calls(), IsEmpty());
}

}

}

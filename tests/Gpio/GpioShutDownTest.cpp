// The power-off with a standard output that nobody reads any more.

#include "Gpio/GpioCore.h"
#include "tests/Gpio/EventDriver.h"
#include "tests/kit/Clock.h"
#include "tests/kit/Program.h"
#include "tests/kit/System.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace GpioTests
{

namespace
{

using Kit::System;
using Tavdevice::Gpio::GpioCore;

KIT_PROGRAM(ShutsTheUnitDown)
{
    const Kit::Clock clock;
    EventDriver driver;
    driver.AnswerBy([](const PinWrite&) {
        std::fputs("the power is cut\n", stderr);
        return 0;
    });
    System::Redirect("/proc/self/mounts", "/dev/null");
    System::AnswerUnmounts();
    std::signal(SIGPIPE, std::getenv("IGNORE_SIGPIPE") == nullptr ? SIG_DFL : SIG_IGN);
    return GpioCore::ShutDown() ? 7 : 8;
}

class ShutDownWithoutAReaderTest : public testing::Test
{
protected:
    ShutDownWithoutAReaderTest()
    {
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        close(ends[0]);
    }

    ~ShutDownWithoutAReaderTest() override { close(ends[1]); }

    std::array<int, 2> ends{};
};

TEST_F(ShutDownWithoutAReaderTest, EndsTheProcessBeforeThePowerIsCut)
{
    const Kit::ChildResult result = Kit::RunProgram("ShutsTheUnitDown", {{}, ends[1]});
    EXPECT_EQ(result.signal, SIGPIPE);
    EXPECT_EQ(result.output, "");
}

TEST_F(ShutDownWithoutAReaderTest, CutsThePowerWhereTheSignalIsIgnored)
{
    const Kit::ChildResult result = Kit::RunProgram("ShutsTheUnitDown", {{"IGNORE_SIGPIPE=1"}, ends[1]});
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_EQ(result.output, "the power is cut\n");
}

}

}

// A port's life: opening, closing, copying, its error record and the shape of the class.

#include "tests/Serial/SerialTest.h"
#include "tests/kit/ClosedStreams.h"

#include "tests/kit/Child.h"
#include "tests/kit/TempDir.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <type_traits>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace SerialTests
{

namespace
{

std::string Reason(int error)
{
    return std::generic_category().message(error);
}

bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

/// For a forked child: the status with which it ends after checks made in it.
int StatusOfChecks()
{
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST_F(SerialTest, ConstructingDoesNotTouchTheDevice)
{
    EXPECT_EQ(port.mode, 0);
    EXPECT_EQ(port.timeout, 0);
    EXPECT_FALSE(port.HasError());
    EXPECT_EQ(port.GetNamespaceName(), "Tavdevice::SerialPort");
    EXPECT_EQ(port.GetClassName(), "Serial");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(SerialTest, OpeningMakesItsCallsInOrder)
{
    ASSERT_TRUE(port.Open());
    const auto calls = Calls();
    ASSERT_THAT(Functions(), ElementsAre("open", "tcgetattr", "tcsetattr", "tcflush", "tcdrain"));
    EXPECT_EQ(calls[0].argument, O_RDWR | O_NOCTTY);
    EXPECT_EQ(calls[2].argument, TCSANOW);
    EXPECT_EQ(calls[3].argument, TCIFLUSH);
    for (std::size_t i = 1; i < calls.size(); ++i)
    {
        EXPECT_EQ(calls[i].fd, calls[0].result) << calls[i].function;
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
}

TEST_F(SerialTest, OpeningLogsItsProgressAndTheModeToTheConsoleAlone)
{
    ASSERT_TRUE(OpenIn(3));
    EXPECT_THAT(log.File(),
                ElementsAre("[SERIAL] Try to open device /dev/ttymxc1", "[SERIAL] Serial port flashed"));
    EXPECT_THAT(log.Console(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1", "Set serial mode to 3",
                                           "[SERIAL] Serial port flashed"));
}

TEST_F(SerialTest, TheModeIsLoggedAsItIsEvenWhenThereIsNone)
{
    ASSERT_TRUE(OpenIn(-17));
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("Set serial mode to -17"));
}

TEST_F(SerialTest, OpeningDiscardsWhatArrivedBefore)
{
    line.Send("stale\n");
    ASSERT_TRUE(port.Open());
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(buffer.length, 0u);
    line.Send("fresh\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "fresh\n");
}

TEST_F(SerialTest, ASettingsFailureLeavesTheDescriptorOpenUntilClose)
{
    for (const char* function : {"tcgetattr", "tcsetattr"})
    {
        Kit::System::ForgetCalls();
        Kit::System::Fail(function, EIO);
        EXPECT_FALSE(port.Open()) << function;
        const auto fd = static_cast<int>(Calls().at(0).result);
        EXPECT_TRUE(IsOpen(fd)) << function;
        EXPECT_EQ(Count("tcflush"), 0) << function;
        EXPECT_TRUE(Send("x")) << function << ": the port counts as open";
        EXPECT_TRUE(port.Close()) << function;
        EXPECT_FALSE(IsOpen(fd)) << function;
    }
    EXPECT_THAT(log.File(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1",
                                        "[ERROR][SERIAL] Unable to get serial port config",
                                        "[SERIAL] Try to open device /dev/ttymxc1",
                                        "[ERROR][SERIAL] Unable to set serial port config"));
    EXPECT_THAT(log.ConsoleOnly(), ElementsAre("Set serial mode to 0"));
}

TEST_F(SerialTest, TheDestructorClosesAPortWhoseSettingsWereRefused)
{
    int fd = -1;
    {
        Serial other(DEVICE, B9600);
        Kit::System::Fail("tcsetattr", EIO);
        EXPECT_FALSE(other.Open());
        fd = static_cast<int>(Calls().at(0).result);
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_FALSE(IsOpen(fd));
}

TEST_F(SerialTest, AFailedOpenLeavesThePortClosed)
{
    Kit::System::Fail("open", EACCES);
    EXPECT_FALSE(port.Open());
    EXPECT_THAT(Functions(), ElementsAre("open"));
    EXPECT_THAT(log.File(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1",
                                        "[ERROR][SERIAL] Unable to open serial port"));
    EXPECT_THAT(log.ConsoleOnly(), IsEmpty());

    std::string text = "untouched";
    buffer.length = 7;
    char c = '?';
    EXPECT_FALSE(port.Close());
    EXPECT_FALSE(Send("x"));
    EXPECT_FALSE(port.Read(text));
    EXPECT_FALSE(port.Read(buffer, 1));
    EXPECT_FALSE(port.ReadLoop(&c));
    EXPECT_LT(port.Drain(), 0);
    port.Flush();
    EXPECT_EQ(text, "untouched");
    EXPECT_EQ(buffer.length, 7u);
    EXPECT_EQ(c, '?');
    EXPECT_THAT(Functions(), ElementsAre("open")) << "nothing else reaches the device";
}

TEST_F(SerialTest, EachOpenSucceedsAfterAFailedOne)
{
    Kit::System::Fail("open", EIO);
    EXPECT_FALSE(port.Open());
    EXPECT_TRUE(port.HasError());
    EXPECT_TRUE(port.Open());
    EXPECT_FALSE(port.HasError());
    EXPECT_EQ(port.GetErrorNumber(), 0);
}

TEST_F(SerialTest, ClosingTwiceFailsTheSecondTime)
{
    EXPECT_FALSE(port.Close());
    ASSERT_TRUE(port.Open());
    EXPECT_TRUE(port.Close());
    EXPECT_FALSE(port.Close());
    EXPECT_EQ(Count("close"), 1);
    EXPECT_FALSE(port.HasError());
}

TEST_F(SerialTest, AFailedCloseKeepsThePortOpen)
{
    ASSERT_TRUE(port.Open());
    Kit::System::Fail("close", EIO);
    EXPECT_FALSE(port.Close());
    EXPECT_TRUE(Send("still open"));
    EXPECT_EQ(line.Received(), "still open");
    EXPECT_TRUE(port.Close());
}

TEST_F(SerialTest, APortCanBeOpenedAgainAfterClosing)
{
    ASSERT_TRUE(port.Open());
    ASSERT_TRUE(port.Close());
    ASSERT_TRUE(OpenIn(1));
    line.Send("part");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "part");
}

TEST_F(SerialTest, OpeningAnOpenPortLeavesItsFormerDescriptorOpen)
{
    ASSERT_TRUE(port.Open());
    const auto first = static_cast<int>(Calls().at(0).result);
    Kit::System::ForgetCalls();
    ASSERT_TRUE(port.Open());
    const auto second = static_cast<int>(Calls().at(0).result);
    EXPECT_NE(first, second);
    EXPECT_EQ(Count("close"), 0);
    EXPECT_TRUE(Send("x"));
    EXPECT_EQ(Calls().back().fd, second);
    EXPECT_TRUE(port.Close());
    EXPECT_FALSE(IsOpen(second));
    EXPECT_TRUE(IsOpen(first)) << "nobody owns it any more";
    close(first);
}

TEST_F(SerialTest, AnOpenPortIsInheritedByTheProgramsThatTheApplicationStarts)
{
    ASSERT_TRUE(port.Open());
    const auto fd = static_cast<int>(Calls().at(0).result);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(SerialTest, ACopyOfAClosedPortIsAPortOfItsOwn)
{
    port.mode = 2;
    port.timeout = 5;
    Serial copy(port);
    EXPECT_EQ(copy.mode, 2);
    EXPECT_EQ(copy.timeout, 5);
    EXPECT_TRUE(copy.Open());
    EXPECT_FALSE(Send("x"));
    EXPECT_TRUE(copy.Close());
}

TEST_F(SerialTest, ACopyTakesTheErrorRecordWithIt)
{
    Kit::System::Fail("open", ENXIO);
    EXPECT_FALSE(port.Open());
    Serial copy("/dev/ttymxc2", B115200);
    copy = port;
    EXPECT_EQ(copy.GetErrorMessage(), port.GetErrorMessage());
    EXPECT_EQ(copy.GetErrorNumber(), ENXIO);
    EXPECT_TRUE(copy.Open()) << "it took the path, too";
}

// Without virtual time, whose thread opens and closes descriptors too: numbers must not be reused here.
TEST(SerialCopyTest, ACopyOfAnOpenPortSharesTheDescriptor)
{
    Kit::Terminal line("/dev/ttymxc1");
    Serial port("/dev/ttymxc1", B9600);
    ASSERT_TRUE(port.Open());
    unsigned char byte = 'x';
    {
        Serial copy(port);
        EXPECT_TRUE(copy.Send(&byte, 1));
        EXPECT_EQ(line.Received(), "x");
    }
    EXPECT_FALSE(port.Send(&byte, 1)) << "the copy has closed the line for both";
    EXPECT_EQ(port.GetErrorNumber(), EBADF);
    EXPECT_FALSE(port.Close());
}

TEST(SerialCopyTest, AnOpenPortAssignedFromATemporaryIsTheTemporarysNoLonger)
{
    Kit::Terminal line("/dev/ttymxc1");
    Serial port("", B0);
    port = Serial("/dev/ttymxc1", B9600);
    unsigned char byte = 'x';
    EXPECT_TRUE(port.Open());
    EXPECT_TRUE(port.Send(&byte, 1));
    EXPECT_EQ(line.Received(), "x");
}

TEST(SerialDescriptorTest, DescriptorZeroCountsAsNotOpenEvenWhenTheSystemGaveIt)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        Kit::Terminal line("/dev/ttymxc1");
        close(STDIN_FILENO);
        {
            Serial port("/dev/ttymxc1", B9600);
            port.mode = 1;
            EXPECT_TRUE(port.Open());
            EXPECT_EQ(Kit::System::CallsOf("open").at(0).result, 0);
            Kit::System::ForgetCalls();
            line.Send("for nobody");
            unsigned char byte = 'x';
            TavubufferDynamic buffer(8);
            buffer.length = 3;
            std::string text = "untouched";
            EXPECT_FALSE(port.Send(&byte, 1));
            EXPECT_FALSE(port.Read(text));
            EXPECT_FALSE(port.Read(buffer, 0));
            EXPECT_EQ(port.Drain(), 0);
            port.Flush();
            EXPECT_FALSE(port.Close());
            EXPECT_EQ(text, "untouched");
            EXPECT_EQ(buffer.length, 3u);
        }
        for (const Kit::System::Call& call : Kit::System::Calls())
        {
            ADD_FAILURE() << call.function << " on " << call.path;
        }
        EXPECT_TRUE(IsOpen(STDIN_FILENO));
        return StatusOfChecks();
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

TEST(SerialDescriptorTest, ReadLoopDoesNotLookWhetherThePortIsOpen)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        std::array<int, 2> ends = {};
        EXPECT_EQ(pipe(ends.data()), 0);
        EXPECT_EQ(write(ends[1], "i", 1), 1);
        dup2(ends[0], STDIN_FILENO);
        Serial port("/dev/ttymxc1", B9600);
        char c = '?';
        EXPECT_TRUE(port.ReadLoop(&c));
        EXPECT_EQ(c, 'i');
        return StatusOfChecks();
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

// The error record ---------------------------------------------------------------------------------------

TEST_F(SerialTest, EveryFailureIsRecordedWithPathAndReason)
{
    struct Row
    {
        const char* function;
        int error;
        const char* where;
        const char* message;
    };

    const Row rows[] = {{"open", EACCES, "Open", "[SERIAL] Unable to open serial port"},
                        {"tcgetattr", ENOTTY, "Open", "[SERIAL] Unable to get serial port config"},
                        {"tcsetattr", EINVAL, "Open", "[SERIAL] Unable to set serial port config"},
                        {"select", EINTR, "Read", "Read serial error"},
                        {"read", EIO, "Read", "[SERIAL] Unable to read"},
                        {"write", EAGAIN, "Send", "[SERIAL] Unable to write"},
                        {"close", ENXIO, "Close", "[SERIAL] Unable to close serial port"}};
    for (const Row& row : rows)
    {
        Serial other(DEVICE, B9600);
        Kit::System::Fail(row.function, row.error);
        unsigned char byte = 'x';
        line.Send("stale\n");
        other.Open();
        other.Send(&byte, 1);
        line.Send("input\n");
        other.Read(buffer, 1);
        other.Close();
        const auto error = other.GetError();
        EXPECT_TRUE(other.HasError()) << row.function;
        EXPECT_EQ(error.message, std::string(row.message) + ": /dev/ttymxc1: " + Reason(row.error));
        EXPECT_EQ(error.where, row.where) << row.function;
        EXPECT_EQ(error.errorNumber, row.error) << row.function;
        EXPECT_EQ(error.nameSpace, "Tavdevice::SerialPort") << row.function;
        EXPECT_EQ(error.className, "Serial") << row.function;
    }
    EXPECT_EQ(Kit::System::FailuresDone(), 7);
}

TEST_F(SerialTest, FailuresOfTheUncheckedOperationsAreRecordedToo)
{
    ASSERT_TRUE(port.Open());
    std::string text;
    char c = '?';
    Kit::System::Fail("read", EIO);
    EXPECT_FALSE(port.Read(text));
    EXPECT_EQ(port.GetErrorPlace(), "Read");
    Kit::System::Fail("read", ENXIO);
    EXPECT_FALSE(port.ReadLoop(&c));
    EXPECT_EQ(port.GetErrorPlace(), "ReadLoop");
    EXPECT_EQ(port.GetErrorNumber(), ENXIO);
    Kit::System::Fail("tcdrain", EINTR);
    errno = 0;
    EXPECT_EQ(port.Drain(), -1);
    EXPECT_EQ(errno, EINTR) << "left for the caller";
    EXPECT_EQ(port.GetErrorPlace(), "Drain");
    EXPECT_EQ(port.GetErrorNumber(), EINTR);
}

TEST_F(SerialTest, WhatIsNoErrorIsNotRecorded)
{
    ASSERT_TRUE(OpenIn(1));
    std::string text;
    EXPECT_TRUE(port.Read(buffer, 1)) << "time-out";
    EXPECT_FALSE(port.Read(buffer, 0)) << "nothing there";
    EXPECT_FALSE(port.Read(text));
    EXPECT_FALSE(port.Send(nullptr, 1));
    EXPECT_FALSE(port.HasError());
}

// What is no serial line ---------------------------------------------------------------------------------

class NoSerialLine : public Kit::DeviceTest
{
protected:
    static constexpr const char* DEVICE = "/dev/ttymxc1";

    ~NoSerialLine() override { Kit::System::Unredirect(DEVICE); }

    Serial port{DEVICE, B9600};
};

TEST_F(NoSerialLine, ARegularFileCannotBeSetUp)
{
    const std::string file = Kit::TempDir::Path() + "/file";
    std::ofstream(file) << "text\n";
    Kit::System::Redirect(DEVICE, file);
    EXPECT_FALSE(port.Open());
    EXPECT_EQ(port.GetErrorMessage(),
              "[SERIAL] Unable to get serial port config: /dev/ttymxc1: " + Reason(ENOTTY));
    EXPECT_EQ(port.GetErrorNumber(), ENOTTY);
    EXPECT_THAT(log.File(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1",
                                        "[ERROR][SERIAL] Unable to get serial port config"));
    EXPECT_TRUE(port.Close());
    std::ifstream content(file);
    std::string text;
    std::getline(content, text);
    EXPECT_EQ(text, "text") << "the file is as it was";
    unlink(file.c_str());
}

TEST_F(NoSerialLine, TheNullDeviceCannotBeSetUp)
{
    Kit::System::Redirect(DEVICE, "/dev/null");
    EXPECT_FALSE(port.Open());
    EXPECT_EQ(port.GetErrorNumber(), ENOTTY);
    EXPECT_THAT(log.Console(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1",
                                           "[ERROR][SERIAL] Unable to get serial port config"));
    EXPECT_TRUE(port.Close());
}

TEST_F(NoSerialLine, ADirectoryCannotBeOpened)
{
    Kit::System::Redirect(DEVICE, Kit::TempDir::Path());
    EXPECT_FALSE(port.Open());
    EXPECT_EQ(port.GetErrorMessage(), "[SERIAL] Unable to open serial port: /dev/ttymxc1: " + Reason(EISDIR));
    EXPECT_THAT(log.File(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1",
                                        "[ERROR][SERIAL] Unable to open serial port"));
    EXPECT_FALSE(port.Close());
}

TEST_F(NoSerialLine, AMissingDeviceCannotBeOpened)
{
    EXPECT_FALSE(port.Open());
    EXPECT_EQ(port.GetErrorMessage(), "[SERIAL] Unable to open serial port: /dev/ttymxc1: " + Reason(ENOENT));
    EXPECT_EQ(port.GetErrorNumber(), ENOENT);
    EXPECT_THAT(log.File(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc1",
                                        "[ERROR][SERIAL] Unable to open serial port"));
}

TEST_F(NoSerialLine, ADeviceThatMustNotBeOpenedIsReportedAsSuch)
{
    Kit::System::Redirect(DEVICE, "/dev/null");
    Kit::System::Fail("open", EACCES);
    EXPECT_FALSE(port.Open());
    EXPECT_EQ(port.GetErrorMessage(), "[SERIAL] Unable to open serial port: /dev/ttymxc1: " + Reason(EACCES));
    EXPECT_FALSE(port.Close());
}

TEST_F(NoSerialLine, AnEmptyPathCannotBeOpened)
{
    Serial nameless("", B9600);
    EXPECT_FALSE(nameless.Open());
    EXPECT_EQ(nameless.GetErrorNumber(), ENOENT);
    EXPECT_THAT(log.File(),
                ElementsAre("[SERIAL] Try to open device ", "[ERROR][SERIAL] Unable to open serial port"));
}

// The shape of the class ---------------------------------------------------------------------------------

template <class Member>
bool IsVirtual(Member member)
{
    std::array<std::uintptr_t, 2> words = {};
    static_assert(sizeof member == sizeof words);
    std::memcpy(words.data(), &member, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    return (words[1] & 1) != 0;
#else
    return (words[0] & 1) != 0;
#endif
}

TEST(SerialShapeTest, OnlyTheDestructorIsVirtual)
{
    static_assert(std::has_virtual_destructor_v<Serial>);
    static_assert(std::is_base_of_v<Tavbase::Interfaces::IError, Serial>);
    static_assert(std::is_copy_constructible_v<Serial> && std::is_copy_assignable_v<Serial>);
    using Bytes = bool (Serial::*)(unsigned char*, unsigned int);
    using Buffer = bool (Serial::*)(TavubufferDynamic&);
    using Text = bool (Serial::*)(std::string&);
    using Wait = bool (Serial::*)(TavubufferDynamic&, int);
    EXPECT_FALSE(IsVirtual(&Serial::Open));
    EXPECT_FALSE(IsVirtual(&Serial::Close));
    EXPECT_FALSE(IsVirtual(static_cast<Bytes>(&Serial::Send)));
    EXPECT_FALSE(IsVirtual(static_cast<Buffer>(&Serial::Send)));
    EXPECT_FALSE(IsVirtual(static_cast<Text>(&Serial::Read)));
    EXPECT_FALSE(IsVirtual(static_cast<Wait>(&Serial::Read)));
    EXPECT_FALSE(IsVirtual(&Serial::ReadLoop));
    EXPECT_FALSE(IsVirtual(&Serial::Drain));
    EXPECT_FALSE(IsVirtual(&Serial::Flush));
    EXPECT_TRUE(IsVirtual(&std::exception::what)) << "the look itself";
}

TEST_F(SerialTest, DestroyingThroughTheErrorRecordClosesThePort)
{
    auto other = std::make_unique<Serial>(DEVICE, B9600);
    ASSERT_TRUE(other->Open());
    const auto fd = static_cast<int>(Calls().at(0).result);
    std::unique_ptr<Tavbase::Interfaces::IError> record = std::move(other);
    record.reset();
    EXPECT_FALSE(IsOpen(fd));
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(SerialWithoutStreams)
{
    Kit::Terminal line("/dev/ttymxc0");
    const Kit::ClosedStreams closed;
    Serial port("/dev/ttymxc0", B9600);
    KIT_REQUIRE(port.Open());
    Kit::ClosedStreams::Print();
    KIT_REQUIRE(line.Received().empty());
    std::string text = "sent";
    KIT_REQUIRE(port.Send(reinterpret_cast<unsigned char*>(text.data()), 4));
    KIT_REQUIRE(line.Received() == "sent");
    KIT_REQUIRE(port.Close());
    KIT_REQUIRE(Kit::ClosedStreams::WereKept());
    return 0;
}

TEST(SerialDescriptorTest, NothingThatIsPrintedGoesOutOnTheLineWhenAStandardStreamIsClosed)
{
    Kit::ClosedStreams::Run("SerialWithoutStreams");
}

}

}

// The bench entry: the UART's settings, what it prints, and the program that an integrator gets.

#include "Testing/TestSerial.h"
#include "tests/kit/Child.h"
#include "tests/kit/ClosedStreams.h"
#include "tests/kit/Emulator.h"
#include "tests/kit/MessageDevice.h"
#include "tests/kit/System.h"
#include "tests/kit/Terminal.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

using Kit::System;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr const char* UART = "/dev/ttymxc0";
constexpr unsigned long GET = 0x803C542A;
constexpr unsigned long SET = 0x403C542B;

constexpr std::size_t SETTINGS_BYTES = 60;
constexpr std::size_t CONTROL_FLAGS = 8;
constexpr std::size_t INPUT_SPEED = 52;
constexpr std::size_t OUTPUT_SPEED = 56;

using Settings = std::array<unsigned char, SETTINGS_BYTES>;

std::uint32_t Word(const Settings& settings, std::size_t at)
{
    std::uint32_t word = 0;
    std::memcpy(&word, settings.data() + at, sizeof word);
    return word;
}

void SetWord(Settings& settings, std::size_t at, std::uint32_t word)
{
    std::memcpy(settings.data() + at, &word, sizeof word);
}

/// Settings in which every byte is another one.
Settings Present(std::uint32_t controlFlags)
{
    Settings settings{};
    for (std::size_t at = 0; at < settings.size(); ++at)
    {
        settings[at] = static_cast<unsigned char>(0x11 + 3 * at);
    }
    SetWord(settings, CONTROL_FLAGS, controlFlags);
    return settings;
}

class TestSerialTest : public testing::Test
{
protected:
    int Answer(unsigned long request, void* argument)
    {
        requests.push_back(request);
        if (request == GET && getAnswer == 0)
        {
            std::memcpy(argument, present.data(), present.size());
        }
        if (request == SET)
        {
            std::memcpy(asked.data(), argument, asked.size());
        }
        return request == GET ? getAnswer : request == SET ? setAnswer : -ENOTTY;
    }

    /// Runs the entry and keeps what it prints.
    int Run(int (*entry)() = TestSerial)
    {
        requests.clear();
        System::ForgetCalls();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int result = entry();
        output = testing::internal::GetCapturedStdout();
        errors = testing::internal::GetCapturedStderr();
        return result;
    }

    Settings present = Present(0x8BD);
    Settings asked{};
    int getAnswer = 0;
    int setAnswer = 0;
    std::vector<unsigned long> requests;
    std::string output;
    std::string errors;
};

class TestSerialUartTest : public TestSerialTest
{
protected:
    Kit::MessageDevice uart{
        UART, [this](unsigned long request, void* argument) { return Answer(request, argument); }};
};

TEST_F(TestSerialUartTest, PutsTheUartAt10400Baud)
{
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(output, "New baud configured\n");
    EXPECT_EQ(errors, "");
    EXPECT_THAT(requests, ElementsAre(GET, SET));
    EXPECT_EQ(Word(asked, INPUT_SPEED), 10400u);
    EXPECT_EQ(Word(asked, OUTPUT_SPEED), 10400u);
}

TEST_F(TestSerialUartTest, OpensForReadingAndCloses)
{
    EXPECT_EQ(Run(), 0);
    const std::vector<System::Call> opened = System::CallsOf("open");
    ASSERT_THAT(opened, SizeIs(1));
    EXPECT_EQ(opened[0].path, UART);
    EXPECT_EQ(opened[0].argument, O_RDONLY);
    for (const System::Call& call : System::CallsOf("ioctl"))
    {
        EXPECT_EQ(call.fd, opened[0].result);
    }
    const std::vector<System::Call> closed = System::CallsOf("close");
    ASSERT_THAT(closed, SizeIs(1));
    EXPECT_EQ(closed[0].fd, opened[0].result);
    EXPECT_EQ(System::Calls().back().function, std::string("close"));
}

TEST_F(TestSerialUartTest, ChangesTheSpeedAndNothingElse)
{
    for (const std::uint32_t flags : {0u, 0xFFFFFFFFu, 0x8BDu, 0x100Fu, 0xFFFFEFF0u, 0x1002u})
    {
        present = Present(flags);
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(Word(asked, CONTROL_FLAGS), (flags & ~0x100Fu) | 0x1000u) << std::hex << flags;
        Settings wanted = present;
        SetWord(wanted, CONTROL_FLAGS, Word(asked, CONTROL_FLAGS));
        SetWord(wanted, INPUT_SPEED, 10400);
        SetWord(wanted, OUTPUT_SPEED, 10400);
        EXPECT_EQ(asked, wanted) << std::hex << flags;
    }
}

TEST_F(TestSerialUartTest, SettingsThatCannotBeReadDoNotStopIt)
{
    getAnswer = -EIO;
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(requests, ElementsAre(GET, SET));
    EXPECT_EQ(Word(asked, CONTROL_FLAGS) & 0x100Fu, 0x1000u);
    EXPECT_EQ(Word(asked, INPUT_SPEED), 10400u);
    EXPECT_EQ(Word(asked, OUTPUT_SPEED), 10400u);
    EXPECT_EQ(output, "New baud configured\n");
    EXPECT_EQ(errors, "");
}

TEST_F(TestSerialUartTest, SettingsThatAreRefusedAreTold)
{
    setAnswer = -EINVAL;
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(errors, "ioctl: Invalid argument\n");
    EXPECT_THAT(System::CallsOf("close"), SizeIs(1));
}

TEST_F(TestSerialTest, ATerminalOfAMainlineKernelRefusesTheRequests)
{
    KIT_SKIP_EMULATED("requests of terminals that it does not know");
    const Kit::Terminal uart(UART);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(errors, "ioctl: Inappropriate ioctl for device\n");
}

TEST_F(TestSerialTest, AMissingUartIsTold)
{
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(output, "");
    EXPECT_EQ(errors, "Open: No such file or directory\n");
    EXPECT_THAT(System::CallsOf("close"), IsEmpty());
    EXPECT_THAT(System::CallsOf("ioctl"), IsEmpty());
}

TEST_F(TestSerialUartTest, AUartThatMayNotBeOpenedIsTold)
{
    System::Fail("open", EACCES);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(errors, "Open: Permission denied\n");
    EXPECT_THAT(requests, IsEmpty());
}

TEST_F(TestSerialTest, DescriptorZeroIsAsGoodAsAnyOther)
{
    const Kit::ChildResult child = Kit::RunInChild([this] {
        const Kit::MessageDevice uart(
            UART, [this](unsigned long request, void* argument) { return Answer(request, argument); });
        close(STDIN_FILENO);
        EXPECT_EQ(TestSerial(), 0);
        EXPECT_EQ(System::CallsOf("open").at(0).result, STDIN_FILENO);
        EXPECT_THAT(requests, ElementsAre(GET, SET));
        EXPECT_EQ(System::CallsOf("close").at(0).fd, STDIN_FILENO);
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
}

// The entry that the library carries, which is not this program's own.

using Entry = int (*)();

Entry LibraryMain()
{
    void* const library = dlopen("libTavdevice.so.1", RTLD_NOW | RTLD_NOLOAD);
    const auto entry = reinterpret_cast<Entry>(library == nullptr ? nullptr : dlsym(library, "main"));
    if (library != nullptr)
    {
        dlclose(library); // the program itself keeps it
    }
    return entry;
}

TEST_F(TestSerialUartTest, TheLibrarysMainEndsWellWhateverBecameOfTheUart)
{
    const Entry entry = LibraryMain();
    ASSERT_NE(entry, nullptr) << dlerror();
    EXPECT_EQ(Run(entry), 0);
    EXPECT_EQ(output, "New baud configured\nBye Bye\n");
    EXPECT_EQ(errors, "");
    setAnswer = -EIO;
    EXPECT_EQ(Run(entry), 0);
    EXPECT_EQ(output, "Bye Bye\n");
    EXPECT_EQ(errors, "ioctl: Input/output error\n");
    System::Fail("open", ENODEV);
    EXPECT_EQ(Run(entry), 0);
    EXPECT_EQ(output, "Bye Bye\n");
    EXPECT_EQ(errors, "Open: No such device\n");
}

// A program whose main is in a static library ------------------------------------------------------------

Kit::ChildResult RunAlone(const char* program)
{
    return Kit::RunInChild([program] {
        execl(program, program, static_cast<char*>(nullptr));
        return 127;
    });
}

/// Asked of the kernel: the kit would say no.
bool ThisMachineHasTheUart()
{
    return syscall(SYS_faccessat, AT_FDCWD, UART, F_OK) == 0;
}

TEST(ExportedMainTest, AMainInAStaticLibraryBehindTheLibraryIsNotTaken)
{
    KIT_SKIP_EMULATED("other programs of the unit");
    if (ThisMachineHasTheUart())
    {
        GTEST_SKIP() << "this machine has such a UART, which is not to be touched";
    }
    const Kit::ChildResult result = RunAlone(MAIN_BEHIND);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "Open: No such file or directory\nBye Bye\n") << "the bench program";
}

TEST(ExportedMainTest, AMainInAStaticLibraryBeforeTheLibraryIsTaken)
{
    KIT_SKIP_EMULATED("other programs of the unit");
    const Kit::ChildResult result = RunAlone(MAIN_BEFORE);
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_EQ(result.output, "its own main\n");
}

TEST(TavBenchTest, TheProgramWithoutASourceOfItsOwnRunsTheLibrarysMain)
{
    KIT_SKIP_EMULATED("other programs of the unit");
    if (ThisMachineHasTheUart())
    {
        GTEST_SKIP() << "this machine has such a UART, which is not to be touched";
    }
    const Kit::ChildResult result = Kit::RunInChild([] {
        execl(TAV_BENCH, TAV_BENCH, static_cast<char*>(nullptr));
        return 127;
    });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "Open: No such file or directory\nBye Bye\n");
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(BenchWithoutStreams)
{
    for (const int answer : {0, -EINVAL})
    {
        Kit::MessageDevice uart(UART, [answer](unsigned long, void*) { return answer; });
        const Kit::ClosedStreams closed;
        KIT_REQUIRE(TestSerial() == 0);
        KIT_REQUIRE(uart.Received().empty());
    }
    KIT_REQUIRE(Kit::ClosedStreams::WereKept());
    return 0;
}

TEST(BenchDescriptorTest, NothingThatIsPrintedGoesOutOnTheLineWhenAStandardStreamIsClosed)
{
    Kit::ClosedStreams::Run("BenchWithoutStreams");
}

}

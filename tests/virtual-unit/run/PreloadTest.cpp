// The second way to a program, by preload: where the kernel refuses the first, on request, and with the same
// results.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"
#include "virtual-unit/calls/HeldNumbers.h"
#include "virtual-unit/calls/InterceptedCalls.h"
#include "virtual-unit/preload/Protocol.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace
{

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using VirtualUnit::InterceptedCall;
using namespace VirtualUnit::Preload;

constexpr const char* CANNOT =
    "static programs, and system calls that a program makes by itself, do not reach the unit";

/// As on a machine whose kernel or container answers so.
RunningUnit::Options Denied(int error)
{
    RunningUnit::Options options;
    options.launcher = {DENIER, std::to_string(error)};
    return options;
}

Outcome ByPreload(std::vector<std::string> command, std::vector<std::string> options = {})
{
    const std::string program = command.front();
    command.erase(command.begin());
    options.insert(options.end(), {"--by", "preload"});
    return RunProgram(program, command, options);
}

class PreloadTest : public VirtualUnitTest
{
protected:
    std::string File(const std::string& name) const { return Kit::TempDir::Path() + ("/" + name); }
};

class DeniedTest : public PreloadTest, public testing::WithParamInterface<int>
{
};

TEST_P(DeniedTest, ARunGoesByPreloadAndSaysSo)
{
    const Outcome outcome =
        RunUnit({"run", "--", "/bin/sh", "-c", "test -c /dev/ttymxc0 && echo there"}, Denied(GetParam()));
    EXPECT_EQ(outcome.output, "there\n");
    EXPECT_EQ(outcome.errors,
              std::string("virtual-unit: by preload, since the kernel refuses seccomp user notification: ") +
                  std::strerror(GetParam()) + ": " + CANNOT + "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(DeniedTest, DriversAreAnsweredThoughTheMemoryOfTheProgramCannotBeRead)
{
    const std::string dump = DRIVER_PROBE_WORD + " pins; " + DRIVER_PROBE_WORD + " chip; " +
                             DRIVER_PROBE_WORD + " bridge; " + Word(PRELOAD_PROBE) + " drivers";
    const Outcome denied = RunUnit({"run", "--", "/bin/sh", "-c", dump}, Denied(GetParam()));
    const Outcome usual = RunUnit({"run", "--", "/bin/sh", "-c", dump});
    EXPECT_EQ(denied.output, usual.output) << denied.errors;
    EXPECT_THAT(Lines(usual.output), testing::SizeIs(testing::Ge(20)));
}

TEST_P(DeniedTest, CheckTellsBothWaysAndWhatToChange)
{
    const Outcome outcome = RunUnit({"check"}, Denied(GetParam()));
    EXPECT_THAT(
        outcome.output,
        AllOf(HasSubstr("by kernel, an application opens /dev/ttymxc0 and writes to /mnt/sdcard: no, the "
                        "kernel refuses seccomp user notification: " +
                        std::string(std::strerror(GetParam()))),
              HasSubstr("Linux 5.14 or newer"), HasSubstr("seccomp profile"),
              HasSubstr("by preload, an application opens /dev/ttymxc0 and writes to /mnt/sdcard: yes\n"),
              HasSubstr(std::string("This machine can run the virtual unit by preload: ") + CANNOT)));
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(DeniedTest, ByTheKernelAloneIsRefusedInOneLine)
{
    const Outcome outcome = RunUnit({"run", "--by", "kernel", "--", "/bin/true"}, Denied(GetParam()));
    EXPECT_EQ(outcome.errors,
              std::string("virtual-unit: this machine cannot run the virtual unit: the kernel refuses "
                          "seccomp user notification: ") +
                  std::strerror(GetParam()) + "\n");
    EXPECT_EQ(outcome.status, CANNOT_RUN);
}

TEST_P(DeniedTest, VirtualTimeIsExactToTheMillisecond)
{
    std::ofstream(File("script")) << "0.5 gps lost\n+1800 gps found\n7200 end\n";
    const Outcome outcome =
        RunUnit({"run", "--fast", "--script", File("script"), "--log", File("log"), "--", "/bin/sh", "-c",
                 "trap 'exit 7' TERM; while :; do sleep 100; test -c /dev/ttymxc0; done"},
                Denied(GetParam()));
    EXPECT_EQ(outcome.status, 7) << outcome.errors;
    EXPECT_EQ(ReadFile(File("log")), "    0.500 s  script: gps lost\n"
                                     " 1800.500 s  script: gps found\n"
                                     " 7200.000 s  script: end\n");
    EXPECT_THAT(outcome.errors, Not(HasSubstr("real time")));
}

INSTANTIATE_TEST_SUITE_P(By, DeniedTest, testing::Values(EPERM, ENOSYS, EINVAL),
                         [](const auto& error) { return std::string(strerrorname_np(error.param)); });

TEST_F(PreloadTest, ItIsChosenOnRequest)
{
    const Outcome outcome = ByPreload({"/bin/true"});
    EXPECT_EQ(outcome.errors, std::string("virtual-unit: by preload: ") + CANNOT + "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(PreloadTest, TheKernelIsTheUsualWayAndSaysNothing)
{
    EXPECT_EQ(RunUnit({"run", "--by", "kernel", "--", "/bin/true"}).errors, "");
    EXPECT_EQ(RunUnit({"run", "--", "/bin/true"}).errors, "");
}

TEST_F(PreloadTest, AnotherWayIsRefused)
{
    const Outcome outcome = RunUnit({"run", "--by", "magic", "--", "/bin/true"});
    EXPECT_THAT(outcome.errors, StartsWith("virtual-unit: --by: \"magic\" is neither kernel nor preload"));
    EXPECT_EQ(outcome.status, 2);
}

TEST_F(PreloadTest, AStaticProgramIsNotRunPastTheUnit)
{
    const Outcome outcome = ByPreload({PROBE_STATIC, "card"});
    EXPECT_EQ(outcome.status, NOT_EXECUTABLE);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                HasSubstr("is not run: it is linked statically and would run past the virtual unit\n"));
}

TEST_F(PreloadTest, AStaticProgramThatAnotherOneStartsIsRefused)
{
    const Outcome outcome = ByPreload({"/bin/sh", "-c", Word(PROBE_STATIC) + " card"});
    EXPECT_EQ(outcome.status, NOT_EXECUTABLE);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                HasSubstr("is refused: it is linked statically and would run past the virtual unit\n"));
}

TEST_F(PreloadTest, ItLivesInAPathWithBlanksAndColons)
{
    const std::string directory = File("a b:c");
    std::filesystem::create_directories(directory);
    for (const std::string file : {VIRTUAL_UNIT, CALLS_LIBRARY})
    {
        std::filesystem::copy_file(file, directory / std::filesystem::path(file).filename());
    }
    RunningUnit::Options options;
    options.launcher = {
        "/usr/bin/env", directory + "/virtual-unit",          "run", "--by", "preload", "--", "/bin/sh",
        "-c",           "test -c /dev/ttymxc0 && echo there", "--"};
    EXPECT_EQ(RunUnit({}, options).output, "there\n");
}

TEST_F(PreloadTest, AProgramThatBecomesAnotherUserIsStillOnTheUnit)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "only root can become another user";
    }
    ForNobody(CALLS_LIBRARY);
    RunningUnit::Options options;
    options.launcher = {"/usr/bin/env",
                        ForNobody(VIRTUAL_UNIT),
                        "run",
                        "--by",
                        "preload",
                        "--",
                        "/bin/sh",
                        "-c",
                        "setpriv --reuid=65534 --clear-groups test -c /dev/ttymxc0 && echo there",
                        "--"};
    const Outcome outcome = RunUnit({}, options);
    EXPECT_EQ(outcome.output, "there\n") << outcome.errors;
}

TEST_F(PreloadTest, WithoutItsLibraryNothingIsRun)
{
    const std::string directory = File("alone");
    std::filesystem::create_directories(directory);
    std::filesystem::copy_file(VIRTUAL_UNIT, directory + "/virtual-unit");
    RunningUnit::Options options;
    options.launcher = {
        "/usr/bin/env", directory + "/virtual-unit", "run", "--by", "preload", "--", "/bin/echo", "run"};
    const Outcome outcome = RunUnit({}, options);
    EXPECT_THAT(outcome.errors, HasSubstr("libvirtual-unit-calls.so is neither beside the program nor in "));
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.status, CANNOT_RUN);
}

TEST_F(PreloadTest, EachCallThatIsInterceptedIsKnownToTheLibrary)
{
    const VirtualUnit::InterceptedCalls intercepted;
    for (const auto& [number, call] : intercepted.All())
    {
        const bool byArgument = call->kind == InterceptedCall::Kind::Ioctl || call->MayGrowFile();
        EXPECT_NE(VirtualUnit::IsHeldCall(number), byArgument) << call->name;
        EXPECT_EQ(VirtualUnit::MayGrowFile(number), call->MayGrowFile()) << call->name;
    }
}

TEST_F(PreloadTest, InterpretersAndTheToolsOfTheShellAreOnTheUnit)
{
    const Outcome outcome = ByPreload(
        {"/bin/sh", "-c",
         "cd / && mkdir /mnt/sdcard/d && cp /etc/hostname /mnt/sdcard/d/h && ls -R /mnt/sdcard && find "
         "/mnt/sdcard -name h"
         " && du -a /mnt/sdcard >/dev/null && tar cf /mnt/sdcard/t -C / etc/hostname && tar tf /mnt/sdcard/t"
         " && mv /mnt/sdcard/d/h /mnt/sdcard/h && rm -r /mnt/sdcard/d && realpath /mnt/sdcard/../sdcard/h"
         " && df /mnt/sdcard >/dev/null && stat -c %F /dev/ttymxc0 && env -i /usr/bin/test -c /dev/ttymxc0"
         " && perl -e 'open(F, \">/mnt/sdcard/p\"); print F \"perl\"; close F; print -s \"/mnt/sdcard/p\", "
         "\"\\n\"'"});
    EXPECT_EQ(outcome.output,
              "/mnt/sdcard:\nd\n\n/mnt/sdcard/d:\nh\n/mnt/sdcard/d/h\netc/hostname\n/mnt/sdcard/h\n"
              "character special file\n4\n")
        << outcome.errors;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(PreloadTest, ASignalIsHandledWhileACallWaitsWhichIsMadeOnce)
{
    std::ofstream(File("slow")) << "0 card slow 10\n";
    const Outcome outcome = ByPreload({PRELOAD_PROBE, "signals"}, {"--script", File("slow")});
    EXPECT_EQ(outcome.output,
              "/mnt/sdcard/one: ok\n/mnt/sdcard/two: ok\n/mnt/sdcard/three: ok\nhandled: ok\n")
        << outcome.errors;
}

/// A trial of the probe gives the same by both ways.
class BothWaysTest : public PreloadTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(BothWaysTest, GiveTheSame)
{
    const Outcome preloaded = ByPreload({PRELOAD_PROBE, GetParam()});
    const Outcome usual = RunProgram(PRELOAD_PROBE, {GetParam()});
    EXPECT_EQ(preloaded.output, usual.output) << preloaded.errors;
    EXPECT_EQ(preloaded.status, 0);
    EXPECT_THAT(Lines(usual.output), testing::SizeIs(testing::Ge(1)));
}

INSTANTIATE_TEST_SUITE_P(Of, BothWaysTest,
                         testing::Values("library", "drivers", "programs", "threads", "names"),
                         [](const auto& trial) { return std::string(trial.param); });

// Whoever finds the socket ---------------------------------------------------------------------------------

/// Connects to the socket of a run. @return the connection, or -1
int ConnectTo(const std::string& name)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const int connection = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    EXPECT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&address), size), 0);
    return connection;
}

/// A run that tells its socket, and then waits for a line.
class SocketTest : public PreloadTest
{
protected:
    void SetUp() override
    {
        PreloadTest::SetUp();
        std::filesystem::remove(File("go"));
        ASSERT_TRUE(run.WaitForOutput("END\n"));
        name = ReadFile(File("name"));
        name.pop_back();
    }

    /// The program goes on, and is served as ever.
    void ExpectService()
    {
        std::ofstream(File("go")) << "go";
        const Outcome outcome = run.End();
        EXPECT_THAT(outcome.output, testing::EndsWith("served\n")) << outcome.errors;
        EXPECT_EQ(outcome.status, 0);
    }

    std::string name;
    RunningUnit run{{"run", "--by", "preload", "--", "/bin/sh", "-c",
                     "echo $VIRTUAL_UNIT_CALLS > " + Word(File("name")) + "; echo END; while ! test -e " +
                         Word(File("go")) + "; do sleep 0.01; done; test -c /dev/ttymxc0 && echo served"}};
};

TEST_F(SocketTest, GarbageIsClosed)
{
    const int connection = ConnectTo(name);
    EXPECT_EQ(send(connection, "garbage", 7, MSG_NOSIGNAL), 7);
    char byte = 0;
    EXPECT_EQ(recv(connection, &byte, 1, 0), 0); // the end
    close(connection);
    for (const std::size_t size : {std::size_t{1}, sizeof(Call) - 1, sizeof(Call) + 1, std::size_t{60'000}})
    {
        std::vector<char> bytes(size, '\xFF');
        const Call call = {MAGIC, 0, {}, {{{0, 0xFFFF'FFFF, 0}, {0, 0xFFFF'FFFF, 0}}}};
        std::memcpy(bytes.data(), &call, std::min(size, sizeof(call)));
        const int another = ConnectTo(name);
        send(another, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        close(another);
    }
    ExpectService();
}

TEST_F(SocketTest, WhoeverSaysNothingKeepsNobodyOut)
{
    std::vector<int> connections;
    constexpr int MANY = 600;
    for (int i = 0; i < MANY; ++i)
    {
        connections.push_back(ConnectTo(name));
    }
    ExpectService();
    for (const int connection : connections)
    {
        close(connection);
    }
}

TEST_F(SocketTest, WhoeverDoesNotTellOfItsMemoryIsNotWaitedForLong)
{
    // A path that is not sent along is asked for.
    const Call call = {MAGIC, SYS_openat, {0, 8, 0, 0, 0, 0}, {}};
    const int connection = ConnectTo(name);
    EXPECT_EQ(send(connection, &call, sizeof(call), MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(call)));
    ExpectService();
    close(connection);
}

}

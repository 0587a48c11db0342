// virtual-unit run --fast: programs in virtual time.

#include "tests/kit/Child.h"
#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>

namespace
{

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class FastTest : public VirtualUnitTest
{
protected:
    ~FastTest() override { fs::remove_all(directory); }

    static Outcome Shell(const std::string& command, std::vector<std::string> options = {})
    {
        return RunFast(command, std::move(options));
    }

    std::string File(const std::string& name) const
    {
        fs::create_directories(directory);
        return directory + "/" + name;
    }

    /// A script that has something to do much later, which an hour forgotten in between would bring.
    std::string SleepyScript() const
    {
        std::ofstream(File("sleepy")) << "86400 end\n";
        return File("sleepy");
    }

    std::string EndScript() const
    {
        std::ofstream(File("end")) << "50 end\n";
        return File("end");
    }

    static constexpr const char* LIBRARY = "libvirtual-unit-time.so";

    const std::string directory = Kit::TempDir::Path() + "/fast";
};

class FastWaitTest : public FastTest, public testing::WithParamInterface<std::string>
{
};

TEST_P(FastWaitTest, TakesExactlyItsTimeByTheClocksOfTheProgramAndNextToNone)
{
    const Outcome outcome = RunProgram(TIME_PROBE, {GetParam(), "900"}, {"--fast"});
    EXPECT_EQ(outcome.output, "900000 900000\n");
    EXPECT_THAT(outcome.errors, IsEmpty());
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(FastWaitTest, TakesExactlyItsTimeInTwoProcessesBesideThreadsThatSleepInSteps)
{
    const std::string probe = Word(TIME_PROBE) + " " + GetParam() + " 2 beside";
    const Outcome outcome = Shell(probe + " & " + probe + " & wait");
    EXPECT_EQ(outcome.output, "2000 2000\n2000 2000\n");
    EXPECT_THAT(outcome.errors, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Ways, FastWaitTest,
    testing::Values("usleep", "sleep", "nanosleep", "clock_nanosleep", "clock_nanosleep-until", "poll",
                    "ppoll", "select", "pselect", "epoll_wait", "sigtimedwait", "sigwait", "condition",
                    "condition-until", "terminal", "threads", "thread-begun", "child", "interrupted",
                    "future", "counting_semaphore", "timed_mutex", "timed_mutex-until", "shared_timed_mutex",
                    "timedrdlock", "timedwrlock", "sem_timedwait", "sem_clockwait", "sem_timedwait-posted",
                    "futex", "syscall-nanosleep", "condition-held", "timerfd", "timer_create",
                    "timer_create-thread", "alarm", "setitimer", "recv", "read-socket", "epoll_pwait2",
                    "send", "mq_timedreceive", "mq_timedsend", "semtimedop", "timedjoin", "timedjoin-ended",
                    "c11", "cancelled", "c11-another", "sigwaitinfo", "timer_gettime", "getitimer", "ualarm",
                    "accept", "recvfrom", "recvmmsg"),
    [](const auto& way) {
        std::string name = way.param;
        std::ranges::replace(name, '-', '_');
        return name;
    });

class FastBuildTest : public FastTest, public testing::WithParamInterface<std::string>
{
};

TEST_P(FastBuildTest, LivesInVirtualTimeWithoutOptionsOfItsOwn)
{
    for (const char* const way : {"usleep", "poll", "condition", "future", "timed_mutex",
                                  "sem_timedwait-posted", "timerfd", "timer_create", "threads", "c11"})
    {
        const Outcome outcome =
            Shell(GetParam() + " " + way + " 900 && " + GetParam() + " " + way + " 2 beside");
        EXPECT_EQ(outcome.output, "900000 900000\n2000 2000\n") << way;
        EXPECT_THAT(outcome.errors, IsEmpty()) << way;
    }
}

// Newer kernels place mappings where the thread sanitizer's shadow memory belongs: -R places them as before.
INSTANTIATE_TEST_SUITE_P(Sanitizers, FastBuildTest,
                         testing::Values(Word(TIME_PROBE_ASAN), "setarch -R " + Word(TIME_PROBE_TSAN)),
                         [](const auto& build) {
                             return std::string(build.index == 0 ? "AddressAndUndefined" : "Thread");
                         });

TEST_F(FastTest, AProgramUnderValgrindLivesInVirtualTime)
{
    if (RunShell("command -v valgrind").status != 0)
    {
        GTEST_SKIP() << "there is no valgrind";
    }
    for (const char* const way : {"usleep", "poll", "condition", "timerfd", "threads"})
    {
        const Outcome outcome = Shell("valgrind -q " + Word(TIME_PROBE) + " " + way + " 900");
        EXPECT_EQ(outcome.output, "900000 900000\n") << way << outcome.errors;
    }
}

TEST_F(FastTest, RandomProgramsDoWhatTheyMust)
{
    const Outcome outcome = RunProgram(RANDOM_WAITS_PROBE, {"1000", "1"}, {"--fast"});
    EXPECT_EQ(outcome.output, "1000 programs, 0 wrong\n");
}

class FastRawTest : public FastTest, public testing::WithParamInterface<std::string>
{
};

TEST_P(FastRawTest, AWaitThatNoLibraryKnowsOfHoldsTimeToTheRealOneAndALineSaysSo)
{
    const Outcome outcome = RunProgram(GetParam(), {"1"}, {"--fast"});
    std::istringstream times(outcome.output);
    long byTheLibrary = 0;
    long byTheKernel = 0;
    times >> byTheLibrary >> byTheKernel;
    EXPECT_GE(byTheLibrary, 1000);
    EXPECT_LE(byTheLibrary, byTheKernel + 500) << "it may have begun before it was seen";
    EXPECT_THAT(outcome.errors,
                HasSubstr("waits in real time, by a system call of its own: time goes as slowly as the real "
                          "one meanwhile\n"));
}

INSTANTIATE_TEST_SUITE_P(Programs, FastRawTest, testing::Values(RAW_PROBE, RAW_PROBE_STATIC),
                         [](const auto& program) {
                             return std::string(program.index == 0 ? "Dynamic" : "Static");
                         });

TEST_F(FastTest, AStaticProgramHoldsTheTimeOfTheOthers)
{
    const Outcome outcome = Shell(Word(RAW_PROBE_STATIC) + " 1 >&2 & a=$(date +%s%N); wait; "
                                                           "b=$(date +%s%N); echo $(((b - a) / 1000000))");
    EXPECT_GE(std::atoi(outcome.output.c_str()), 500) << "it has begun a little before";
    EXPECT_LE(std::atoi(outcome.output.c_str()), 60'000);
}

TEST_F(FastTest, AProgramThatDoesNotLiveInVirtualTimeIsTold)
{
    EXPECT_THAT(
        RunProgram(PROBE_STATIC, {"--version"}, {"--fast"}).errors,
        HasSubstr("did not live in virtual time: it is linked statically, or its environment was emptied"));
}

TEST_F(FastTest, AProgramInAWaitThatIsNotKnownIsNotKilledByAGraceThatPassedInNoTime)
{
    // Asked to end, it takes its time in a way that no library knows of.
    const std::string farewell = Word(RAW_PROBE) + " 1 >/dev/null; echo orderly; exit 4";
    const Outcome outcome =
        Shell("trap " + Word(farewell) + " TERM; while :; do sleep 1; done", {"--script", EndScript()});
    EXPECT_EQ(outcome.output, "orderly\n");
    EXPECT_EQ(outcome.status, 4);
}

TEST_F(FastTest, TheTimeOutsOfCommandsAndInterpretersAreVirtual)
{
    EXPECT_EQ(Shell("a=$(date +%s); timeout 900 sleep 10000; echo $? $(($(date +%s) - a))").output,
              "124 900\n");
    EXPECT_THAT(Shell("timeout 10 cat /dev/ttymxc0 | grep -c RMC").output, testing::AnyOf("9\n", "10\n"));
    EXPECT_EQ(RunProgram("/bin/bash",
                         {"-c", "a=$SECONDS; read -t 900 < <(sleep 10000); echo $((SECONDS - a))"},
                         {"--fast"})
                  .output,
              "900\n");
    if (RunShell("command -v python3").status == 0)
    {
        EXPECT_EQ(Shell("python3 -c 'import threading, time; a = time.time(); threading.Event().wait(900); "
                        "print(round(time.time() - a, 3))'")
                      .output,
                  "900.0\n");
    }
}

TEST_F(FastTest, AnAlarmOutlastsTheProgramThatSetIt)
{
    // Perl is part of the base system.
    const Outcome outcome =
        Shell("a=$(date +%s); perl -e 'alarm 900; exec qw(sleep 10000)'; echo $? $(($(date +%s) - a))");
    EXPECT_EQ(outcome.output, "142 900\n") << outcome.errors;
}

TEST_F(FastTest, ADayPassesInAMoment)
{
    const Outcome outcome = Shell("a=$(date +%s); sleep 86400; b=$(date +%s); echo $((b - a))");
    EXPECT_EQ(outcome.output, "86400\n") << outcome.errors;
}

TEST_F(FastTest, TimeIsOneForAllProcesses)
{
    const Outcome outcome =
        Shell("(sleep 300; echo third) & (sleep 200; echo second) & sleep 100; echo first; wait");
    EXPECT_EQ(outcome.output, "first\nsecond\nthird\n") << outcome.errors;
}

TEST_F(FastTest, AProcessThatIsKilledInItsSleepHoldsNobodyUp)
{
    const Outcome outcome = Shell("sleep 1000 & sleep 10; kill -9 $!; wait $!; sleep 3600; echo on");
    EXPECT_EQ(outcome.output, "on\n") << outcome.errors;
}

TEST_F(FastTest, ProcessesMayComeAndGo)
{
    const Outcome outcome = Shell("a=$(date +%s); i=0; while [ $i -lt 100 ]; do sleep 9; i=$((i+1)); done; "
                                  "b=$(date +%s); echo $((b - a))",
                                  {"--script", SleepyScript()});
    EXPECT_EQ(outcome.output, "900\n") << outcome.errors;
}

TEST_F(FastTest, TimeStandsStillWhileAProgramComputes)
{
    const Outcome outcome = Shell("a=$(date +%s%N); i=0; while [ $i -lt 100000 ]; do i=$((i+1)); done; "
                                  "b=$(date +%s%N); echo $((b - a))");
    EXPECT_EQ(outcome.output, "0\n") << outcome.errors;
}

TEST_F(FastTest, AScriptIsPlayedToTheMillisecond)
{
    const std::string script = File("script");
    std::ofstream(script) << "0.5 gps lost\n+1800 gps found\n3600.25 ignition on\n7200 end\n";
    const Outcome outcome =
        Shell("trap 'exit 7' TERM; while :; do sleep 100; done", {"--script", script, "--log", File("log")});
    EXPECT_EQ(outcome.status, 7) << outcome.errors;
    EXPECT_EQ(ReadFile(File("log")), "    0.500 s  script: gps lost\n"
                                     " 1800.500 s  script: gps found\n"
                                     " 3600.250 s  script: ignition on\n"
                                     " 7200.000 s  script: end\n");
}

TEST_F(FastTest, ThePortsSpeakInTheSameTime)
{
    // One sentence RMC a second: sixty of them in a minute.
    const Outcome outcome = Shell("exec 3<>/dev/ttymxc0; stty raw -echo <&3; a=$(date +%s); "
                                  "grep -m 61 -c '^.G.RMC' <&3; b=$(date +%s); echo $((b - a)) >&2");
    EXPECT_EQ(outcome.output, "61\n");
    EXPECT_THAT(outcome.errors, testing::AnyOf("60\n", "61\n"));
}

TEST_F(FastTest, ALineOnWhichMoreWaitsThanIsReadHoldsNobodyUp)
{
    std::ofstream(File("noise")) << "0 modem noise 1024\n";
    const Outcome outcome =
        Shell("port=/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0\n"
              "exec 3<>$port && stty -F $port raw -echo\n"
              "for i in 1 2 3 4 5 6 7 8 9 10; do printf 'AT\\rAT\\rAT\\r' >&3; sleep 0.1; done\n"
              "dd bs=1000 count=1 <&3 2>/dev/null | wc -c\n" // there is room, and still much to be read
              "for i in 1 2 3 4 5 6 7 8 9 10; do sleep 0.1; done; echo done",
              {"--script", File("noise")});
    EXPECT_EQ(outcome.output, "1000\ndone\n");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(FastTest, ARecordingIsReplayed)
{
    const std::string command =
        "exec 3<>/dev/ttymxc2; stty raw -echo <&3; sleep 100; "
        "printf '\\252U\\002\\001\\001\\000\\206\\257\\357\\r' >&3; head -c 10 <&3 | od -t x1";
    const Outcome run = Shell(command, {"--record", File("recording")});
    EXPECT_THAT(run.output, StartsWith("0000000 aa 55 01 01 01 00 ba af ef 0d\n")) << run.errors;
    const Outcome replay = RunUnit({"replay", File("recording"), "--fast", "--", "/bin/sh", "-c", command});
    EXPECT_EQ(replay.output, run.output);
    EXPECT_EQ(replay.status, 0) << replay.errors;
}

TEST_F(FastTest, TheExitStatusIsHandedOn)
{
    EXPECT_EQ(Shell("sleep 60; exit 9").status, 9);
    EXPECT_EQ(Shell("sleep 60; kill -SEGV $$").status, 128 + 11);
}

TEST_F(FastTest, ASleepingProgramIsEndedBySignals)
{
    RunningUnit run({"run", "--fast", "--", "/bin/sh", "-c",
                     "trap 'echo asked; exit 5' TERM; echo started; cat <> /dev/ttymxc2 & wait $!"});
    ASSERT_TRUE(run.WaitForOutput("started"));
    run.Signal(SIGTERM);
    const Outcome outcome = run.End();
    EXPECT_THAT(outcome.output, HasSubstr("asked\n"));
    EXPECT_EQ(outcome.status, 5);
}

TEST_F(FastTest, WhatThePreloadedLibrariesWereIsKept)
{
    setenv("LD_PRELOAD", "libdl.so.2", 1);
    const Outcome outcome = Shell("echo $LD_PRELOAD");
    unsetenv("LD_PRELOAD");
    EXPECT_THAT(outcome.output, testing::EndsWith(":libdl.so.2\n")) << outcome.errors;
}

TEST_F(FastTest, BlanksAndColonsInThePathOfItsLibraryAreNoMatter)
{
    const fs::path folder = File("a tree: with a blank");
    fs::create_directory(folder);
    const fs::path unit = fs::path(VIRTUAL_UNIT);
    fs::copy_file(unit, folder / unit.filename());
    fs::copy_file(unit.parent_path() / LIBRARY, folder / LIBRARY);
    const std::string copy = folder / unit.filename();
    const Kit::ChildResult run = Kit::RunInChild([&copy] {
        execl(copy.c_str(), copy.c_str(), "run", "--fast", "--", "/bin/sh", "-c",
              "a=$(date +%s); sleep 150; echo $(($(date +%s) - a))", nullptr);
        return 1;
    });
    EXPECT_EQ(run.output, "150\n");
}

TEST_F(FastTest, ALibraryThatCannotBeLoadedIsTold)
{
    fs::copy_file(VIRTUAL_UNIT, File("virtual-unit"));
    std::ofstream(File(LIBRARY)) << "not a library";
    const Outcome outcome = RunShell(Word(File("virtual-unit")) + " run --fast -- echo started; echo $?");
    EXPECT_EQ(outcome.output, "3\n");
    EXPECT_THAT(outcome.errors,
                testing::EndsWith("virtual-unit: --fast: libvirtual-unit-time.so could not be preloaded\n"));
}

TEST_F(FastTest, WithoutItsLibraryItIsRefused)
{
    fs::copy_file(VIRTUAL_UNIT, File("virtual-unit"));
    const Outcome outcome = RunShell(Word(File("virtual-unit")) + " run --fast -- /bin/true; echo $?");
    EXPECT_EQ(outcome.output, "3\n");
    EXPECT_THAT(outcome.errors,
                StartsWith("virtual-unit: --fast: libvirtual-unit-time.so is neither beside the "
                           "program nor in "));
}

}

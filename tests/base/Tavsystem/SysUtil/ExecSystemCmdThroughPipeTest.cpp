#include "base/Tavsystem/SysUtil/ExecSystemCmdThroughPipe.h"
#include "tests/kit/Child.h"
#include "virtual-unit/time/Real.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Tavsystem::SysUtil::ExecSystemCmdThroughPipe;

namespace
{

std::atomic<int> pipeError{0};
std::atomic<int> spawnError{0};
std::atomic<bool> breaksOff{false};    ///< reading ends with an error after the output
std::atomic<bool> withoutShell{false}; ///< "cat /proc/self/status" is run in place of the shell

class ExecTest : public testing::Test
{
protected:
    ~ExecTest() override
    {
        pipeError = 0;
        spawnError = 0;
        breaksOff = false;
        withoutShell = false;
        EXPECT_TRUE(HasNoChild());
    }

    static bool HasNoChild() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

    /// A mask of signals from "/proc/self/status" of the process that was started.
    static std::uint64_t SignalsOfTheCommand(const std::string& field)
    {
        withoutShell = true; // a shell may change them before it runs the command
        const std::string status = ExecSystemCmdThroughPipe("");
        const auto at = status.find(field + ":\t");
        EXPECT_NE(at, std::string::npos);
        return at == std::string::npos ? 0 : std::stoull(status.substr(at + field.size() + 2), nullptr, 16);
    }
};

}

extern "C" __attribute__((visibility("default"))) int pipe2(int* ends, int flags) noexcept
{
    if (pipeError != 0)
    {
        errno = pipeError;
        return -1;
    }
    const int result = REAL_CALL(pipe2)(ends, flags);
    if (result == 0 && breaksOff)
    {
        // A terminal answers with EIO when its other end has been closed.
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        grantpt(terminal);
        unlockpt(terminal);
        std::array<char, 64> name{};
        ptsname_r(terminal, name.data(), name.size());
        const int line = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        dup3(terminal, ends[0], O_CLOEXEC);
        dup3(line, ends[1], O_CLOEXEC);
        close(terminal);
        close(line);
    }
    return result;
}

extern "C" __attribute__((visibility("default"))) int
posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
            const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment)
{
    if (spawnError != 0)
    {
        return spawnError;
    }
    if (withoutShell)
    {
        static std::array<char, 4> program{"cat"};
        static std::array<char, 18> file{"/proc/self/status"};
        const std::array<char*, 3> cat{program.data(), file.data(), nullptr};
        return REAL_CALL(posix_spawn)(pid, "/bin/cat", actions, attributes, cat.data(), environment);
    }
    return REAL_CALL(posix_spawn)(pid, path, actions, attributes, arguments, environment);
}

TEST_F(ExecTest, GivesWhatTheCommandWrites)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo 'Bus 001 Device 004: ID 05c6:9003'"),
              "Bus 001 Device 004: ID 05c6:9003\n");
    EXPECT_EQ(ExecSystemCmdThroughPipe("printf one; printf ' %s' two"), "one two");
    EXPECT_EQ(ExecSystemCmdThroughPipe("true"), "");
    EXPECT_EQ(ExecSystemCmdThroughPipe(""), "");
}

TEST_F(ExecTest, TheShellTakesTheCommandLineApart)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("for i in 1 2 3; do echo $i; done | tail -n 1"), "3\n");
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo \"a  b\"   c"), "a  b c\n");
}

TEST_F(ExecTest, TheShellIsCalledByItsName)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo $0"), "sh\n");
}

TEST_F(ExecTest, GivesTheOutputWhateverTheExitStatus)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo text; exit 3"), "text\n");
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo text; kill -9 $$"), "text\n");
    EXPECT_EQ(ExecSystemCmdThroughPipe("exit 1"), "");
}

TEST_F(ExecTest, LeavesTheErrorOutputAlone)
{
    const Kit::ChildResult child = Kit::RunInChild(
        [] { return ExecSystemCmdThroughPipe("echo good; echo bad >&2") == "good\n" ? 0 : 1; });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_THAT(child.output, testing::StartsWith("bad\n"));
    EXPECT_EQ(ExecSystemCmdThroughPipe("{ echo one; echo two >&2; } 2>&1"), "one\ntwo\n");
}

TEST_F(ExecTest, GivesEveryByteOfALongOutput)
{
    const std::string output = ExecSystemCmdThroughPipe("head -c 1000000 /dev/zero; printf 'a\\000b'");
    ASSERT_EQ(output.size(), 1'000'003u);
    EXPECT_EQ(output.substr(1'000'000), std::string("a\0b", 3));
    EXPECT_EQ(output.find_first_not_of('\0'), 1'000'000u);
}

TEST_F(ExecTest, ACommandThatIsNotThereGivesNothing)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("/no/such/program 2>/dev/null"), "");
}

TEST_F(ExecTest, ACommandLineMayBeginWithADash)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("-x 2>/dev/null; echo after"), "after\n");
}

TEST_F(ExecTest, TheCommandReadsNothing)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("cat; readlink /proc/self/fd/0"), "/dev/null\n");
}

TEST_F(ExecTest, TheCommandInheritsTheStandardDescriptorsOnly)
{
    std::vector<int> opened;
    opened.reserve(21);
    for (int i = 0; i < 20; ++i)
    {
        opened.push_back(open("/dev/null", O_RDONLY)); // without close-on-exec, as an application may
    }
    opened.push_back(fcntl(opened[0], F_DUPFD, 200));
    EXPECT_EQ(ExecSystemCmdThroughPipe("ls /proc/$$/fd; true"), "0\n1\n2\n");
    for (const int fd : opened)
    {
        close(fd);
    }
}

TEST_F(ExecTest, TheCommandRunsWithNoSignalBlockedAndSigpipeAtItsDefault)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const auto handler = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(SignalsOfTheCommand("SigBlk"), 0u);
    EXPECT_EQ(SignalsOfTheCommand("SigIgn") & (std::uint64_t{1} << (SIGPIPE - 1)), 0u);
    std::signal(SIGPIPE, handler);
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(sigismember(&after, SIGTERM), 1) << "the caller's own mask is not touched";
}

TEST_F(ExecTest, WaitsForTheEndOfTheCommand)
{
    EXPECT_EQ(ExecSystemCmdThroughPipe("exec >&-; exit 0"), "");
    EXPECT_TRUE(HasNoChild());
}

TEST_F(ExecTest, GoesOnAfterSignals)
{
    static std::atomic<int> signals;
    signals = 0;
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) { ++signals; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const Kit::ChildResult child = Kit::RunInChild( // a process with one thread, which gets the signals
        [] {
            const std::string output = ExecSystemCmdThroughPipe(
                "for i in 1 2 3 4 5 6 7 8 9; do kill -USR1 $PPID; /bin/true; done; echo a; exec >&-; "
                "for i in 1 2 3 4 5 6 7 8 9; do kill -USR1 $PPID; /bin/true; done");
            return output == "a\n" && signals > 2 && HasNoChild() ? 0 : 1;
        });
    EXPECT_EQ(child.exitStatus, 0) << child.output;
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(ExecTest, WorksWhereTheApplicationIgnoresTheEndOfChildren)
{
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo text"), "text\n");
    std::signal(SIGCHLD, before);
}

TEST_F(ExecTest, WorksWhicheverStandardDescriptorsAreClosed)
{
    for (int closed = 0; closed < 8; ++closed)
    {
        const Kit::ChildResult child = Kit::RunInChild([closed] {
            for (int fd = 0; fd < 3; ++fd)
            {
                if ((closed & (1 << fd)) != 0)
                {
                    close(fd);
                }
            }
            const std::string output =
                ExecSystemCmdThroughPipe("echo text; readlink /proc/self/fd/0; ls /proc/$$/fd; true");
            bool asBefore = true;
            for (int fd = 0; fd < 3; ++fd)
            {
                asBefore = asBefore && (fcntl(fd, F_GETFD) < 0) == ((closed & (1 << fd)) != 0);
            }
            return output == "text\n/dev/null\n0\n1\n2\n" && asBefore ? 0 : 1;
        });
        EXPECT_EQ(child.exitStatus, 0) << "closed: " << closed << ' ' << child.output;
    }
}

TEST_F(ExecTest, AnErrorMessageDoesNotGetIntoTheOutputWhereTheErrorOutputIsClosed)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        close(STDERR_FILENO);
        return ExecSystemCmdThroughPipe("echo good; echo bad >&2") == "good\n" ? 0 : 1;
    });
    EXPECT_EQ(child.exitStatus, 0);
}

TEST_F(ExecTest, GivesNothingWithoutAPipe)
{
    for (const int error : {EMFILE, ENFILE})
    {
        pipeError = error;
        EXPECT_EQ(ExecSystemCmdThroughPipe("echo text"), "");
    }
}

TEST_F(ExecTest, GivesNothingWithoutAShell)
{
    for (const int error : {ENOENT, EACCES, EAGAIN, ENOMEM})
    {
        spawnError = error;
        EXPECT_EQ(ExecSystemCmdThroughPipe("echo text"), "");
    }
}

TEST_F(ExecTest, GivesNothingWhenTheOutputBreaksOff)
{
    breaksOff = true;
    EXPECT_EQ(ExecSystemCmdThroughPipe("echo text"), "");
}

TEST_F(ExecTest, GivesNothingWhereNoDescriptorIsLeft)
{
    for (const int closed : {1, 2})
    {
        const Kit::ChildResult child = Kit::RunInChild([closed] {
            close(STDIN_FILENO);
            if (closed == 2)
            {
                close(STDOUT_FILENO);
            }
            const rlimit limit = {3, 3};
            setrlimit(RLIMIT_NOFILE, &limit);
            const bool empty = ExecSystemCmdThroughPipe("echo text").empty();
            // Not by exit(): a sanitizer's work at the end needs descriptors.
            _exit(empty && fcntl(STDIN_FILENO, F_GETFD) < 0 ? 0 : 1);
            return 1;
        });
        EXPECT_EQ(child.exitStatus, 0) << closed;
    }
}

TEST_F(ExecTest, SeveralThreadsMayRunCommands)
{
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&right, i] {
            for (int turn = 0; turn < 10; ++turn)
            {
                const std::string text = std::to_string(i) + '-' + std::to_string(turn);
                right += ExecSystemCmdThroughPipe("echo " + text) == text + '\n' ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(right, 40);
}

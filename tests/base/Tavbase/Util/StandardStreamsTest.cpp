// Files that are kept from becoming standard streams.

#include "base/Tavbase/Util/StandardStreams.h"

#include "tests/kit/Child.h"
#include "tests/kit/Program.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using Tavbase::Util::OpenNoStandardStream;
using Tavbase::Util::StandardStreamsHeld;

bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

/// Runs `work` with each set of the three streams closed, each in a process of its own; it gets the set, a
/// bit for each stream.
void WithEachSetClosed(const std::function<bool(int closed)>& work)
{
    for (int closed = 0; closed < 8; ++closed)
    {
        const Kit::ChildResult child = Kit::RunInChild([&] {
            for (int stream = 0; stream < 3; ++stream)
            {
                if ((closed & (1 << stream)) != 0)
                {
                    close(stream);
                }
            }
            return work(closed) ? 0 : 1;
        });
        EXPECT_EQ(child.exitStatus, 0) << closed << ' ' << child.output;
    }
}

bool AreAsBefore(int closed)
{
    bool right = true;
    for (int stream = 0; stream < 3; ++stream)
    {
        right = right && IsOpen(stream) == ((closed & (1 << stream)) == 0);
    }
    return right;
}

TEST(StandardStreamsTest, AFileGetsNoneOfTheirNumbersButThatOfInput)
{
    WithEachSetClosed([](int closed) {
        const int fd = OpenNoStandardStream("/dev/null", O_WRONLY | O_NONBLOCK);
        const bool input = (closed & 1) != 0;
        const bool right = (input ? fd == STDIN_FILENO : fd > STDERR_FILENO) &&
                           (fcntl(fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK)) == (O_WRONLY | O_NONBLOCK) &&
                           fcntl(fd, F_GETFD) == 0;
        close(fd);
        return right && AreAsBefore(closed);
    });
}

TEST(StandardStreamsTest, WhileAllAreHeldAFileGetsNoneOfTheirNumbers)
{
    WithEachSetClosed([](int closed) {
        int fd = -1;
        {
            const StandardStreamsHeld streams(STDIN_FILENO);
            fd = open("/dev/null", O_WRONLY);
            const char byte = 'x';
            if ((closed & 2) != 0 && (write(STDOUT_FILENO, &byte, 1) != -1 || errno != EBADF))
            {
                return false; // a print must fail as before
            }
        }
        const bool right = fd > STDERR_FILENO;
        close(fd);
        return right && AreAsBefore(closed);
    });
}

TEST(StandardStreamsTest, TheyAreHeldAsLongAsOneOfSeveralLives)
{
    WithEachSetClosed([](int closed) {
        auto first = std::make_unique<StandardStreamsHeld>(STDIN_FILENO);
        auto second = std::make_unique<StandardStreamsHeld>();
        first.reset();
        const bool held = IsOpen(STDIN_FILENO) && IsOpen(STDOUT_FILENO) && IsOpen(STDERR_FILENO);
        second.reset();
        return held && AreAsBefore(closed);
    });
}

TEST(StandardStreamsTest, AForkedChildHoldsNoneForTheThreadsItHasNot)
{
    WithEachSetClosed([](int closed) {
        const StandardStreamsHeld streams(STDIN_FILENO);
        const pid_t child = fork();
        if (child == 0)
        {
            bool right = AreAsBefore(closed);
            {
                const StandardStreamsHeld again;
                right = right && IsOpen(STDOUT_FILENO) && IsOpen(STDERR_FILENO);
            }
            _exit(right && AreAsBefore(closed) ? 0 : 1);
        }
        int status = -1;
        return waitpid(child, &status, 0) == child && status == 0 && IsOpen(STDOUT_FILENO);
    });
}

TEST(StandardStreamsTest, AFailedOpenTellsItsReason)
{
    errno = 0;
    EXPECT_EQ(OpenNoStandardStream("/dev/null/x", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOTDIR);
    WithEachSetClosed([](int closed) {
        return OpenNoStandardStream("/dev/null/x", O_RDONLY) == -1 && errno == ENOTDIR && AreAsBefore(closed);
    });
}

TEST(StandardStreamsTest, WhereNoOtherNumberIsLeftNothingIsOpened)
{
    const Kit::ChildResult child = Kit::RunInChild([] {
        close(STDOUT_FILENO);
        const rlimit limit = {3, 3};
        setrlimit(RLIMIT_NOFILE, &limit);
        const bool right = OpenNoStandardStream("/dev/null", O_RDONLY) == -1 && !IsOpen(STDOUT_FILENO);
        // Not by exit(): a sanitizer's work at the end needs descriptors.
        _exit(right ? 0 : 1);
        return 1;
    });
    EXPECT_EQ(child.exitStatus, 0);
}

KIT_PROGRAM(OpensBesideAThreadThatOpens)
{
    close(STDOUT_FILENO);
    std::atomic<bool> done = false;
    std::thread other([&] {
        while (!done)
        {
            close(open("/dev/null", O_RDONLY)); // has the free number for a moment
        }
    });
    bool right = true;
    for (int time = 0; time < 20'000 && right; ++time)
    {
        const int fd = OpenNoStandardStream("/dev/null", O_WRONLY);
        right = fd > STDERR_FILENO;
        close(fd);
    }
    done = true;
    other.join();
    return right ? 0 : 1;
}

TEST(StandardStreamsTest, AFileGetsNoneOfThemThoughAnotherThreadHadItForAMoment)
{
    // To the thread sanitizer the numbers that both use are a race.
    const Kit::ChildResult program =
        Kit::RunProgram("OpensBesideAThreadThatOpens", {.environment = {"TSAN_OPTIONS=report_bugs=0"}});
    EXPECT_EQ(program.exitStatus, 0) << program.output;
}

}

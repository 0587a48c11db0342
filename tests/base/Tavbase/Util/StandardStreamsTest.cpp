// Descriptors that are kept from becoming standard streams.

#include "base/Tavbase/Util/StandardStreams.h"

#include "tests/kit/Child.h"
#include "tests/kit/HighDescriptor.h"
#include "tests/kit/TempDir.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

using Tavbase::Util::AboveStandardStreams;

bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

/// Opens a pipe's reading end, not blocking, under a number that is free.
int OpenAs(int number, int flags)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    const int end = Kit::MoveUp(ends[0]);
    close(Kit::MoveUp(ends[1]));
    EXPECT_EQ(dup3(end, number, flags), number);
    close(end);
    return number;
}

int RunAlone(const std::function<void()>& work)
{
    return Kit::RunInChild([&] {
               work();
               return testing::Test::HasFailure() ? 1 : 0;
           })
        .exitStatus;
}

TEST(StandardStreamsTest, ADescriptorAboveThemIsLeftAsItIs)
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GT(fd, STDERR_FILENO);
    EXPECT_EQ(AboveStandardStreams(fd), fd);
    EXPECT_EQ(AboveStandardStreams(fd, STDIN_FILENO), fd);
    EXPECT_TRUE(IsOpen(fd));
    close(fd);
}

TEST(StandardStreamsTest, AFailedOpenStaysOneWithItsReason)
{
    errno = ENODEV;
    EXPECT_EQ(AboveStandardStreams(-1), -1);
    EXPECT_EQ(AboveStandardStreams(-1, STDIN_FILENO), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST(StandardStreamsTest, OutputAndErrorAreGivenANumberAboveThem)
{
    EXPECT_EQ(RunAlone([] {
                  for (const int low : {STDOUT_FILENO, STDERR_FILENO})
                  {
                      for (const int flags : {0, O_CLOEXEC})
                      {
                          OpenAs(low, flags);
                          const int fd = AboveStandardStreams(low);
                          EXPECT_GT(fd, STDERR_FILENO);
                          EXPECT_FALSE(IsOpen(low));
                          EXPECT_EQ(fcntl(fd, F_GETFD), flags == 0 ? 0 : FD_CLOEXEC);
                          EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
                          close(fd);
                      }
                  }
              }),
              0);
}

TEST(StandardStreamsTest, InputIsMovedOnlyWhereThatIsAskedFor)
{
    EXPECT_EQ(RunAlone([] {
                  OpenAs(STDIN_FILENO, 0);
                  EXPECT_EQ(AboveStandardStreams(STDIN_FILENO), STDIN_FILENO);
                  EXPECT_TRUE(IsOpen(STDIN_FILENO));
                  EXPECT_GT(AboveStandardStreams(STDIN_FILENO, STDIN_FILENO), STDERR_FILENO);
                  EXPECT_FALSE(IsOpen(STDIN_FILENO));
              }),
              0);
}

TEST(StandardStreamsTest, WhereNoneIsLeftTheDescriptorIsClosed)
{
    EXPECT_EQ(Kit::RunInChild([] {
                  OpenAs(STDOUT_FILENO, 0);
                  const rlimit limit = {3, 3};
                  setrlimit(RLIMIT_NOFILE, &limit);
                  const bool right = AboveStandardStreams(STDOUT_FILENO) == -1 &&
                                     (errno == EMFILE || errno == EINVAL) && !IsOpen(STDOUT_FILENO);
                  // Not by exit(): a sanitizer's work at the end needs descriptors.
                  _exit(right ? 0 : 1);
                  return 1;
              }).exitStatus,
              0);
}

}

#include "base/Tavbase/Util/StandardStreams.h"

#include <cerrno>
#include <fcntl.h>

namespace Tavbase::Util
{

namespace
{

constexpr int ABOVE = STDERR_FILENO + 1;

bool AreOpen(int lowest)
{
    for (int stream = lowest; stream < ABOVE; ++stream)
    {
        if (fcntl(stream, F_GETFD) < 0)
        {
            return false;
        }
    }
    return true;
}

}

StandardStreamsHeld::StandardStreamsHeld(int lowest)
{
    held.fill(-1);
    if (AreOpen(lowest))
    {
        return;
    }
    int holder = open("/", O_PATH | O_CLOEXEC);
    if (holder >= 0 && holder < lowest)
    {
        const int low = holder;
        holder = fcntl(low, F_DUPFD_CLOEXEC, lowest);
        close(low);
    }
    for (int& one : held)
    {
        one = holder;
        if (holder < 0 || holder >= ABOVE)
        {
            break; // each lower number is taken
        }
        holder = fcntl(holder, F_DUPFD_CLOEXEC, lowest);
    }
}

StandardStreamsHeld::~StandardStreamsHeld()
{
    for (const int one : held)
    {
        if (one >= 0)
        {
            close(one);
        }
    }
}

int OpenNoStandardStream(const char* path, int flags, mode_t mode)
{
    const StandardStreamsHeld streams;
    const int fd = open(path, flags, mode);
    if (fd < STDOUT_FILENO || fd > STDERR_FILENO)
    {
        return fd;
    }
    // Another thread had a file there for a moment, which could not be told from the application's stream.
    const int above = fcntl(fd, (flags & O_CLOEXEC) != 0 ? F_DUPFD_CLOEXEC : F_DUPFD, ABOVE);
    const int error = errno;
    close(fd);
    errno = error;
    return above;
}

}

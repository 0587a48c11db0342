#include "base/Tavbase/Util/StandardStreams.h"

#include "base/ThreadSafety.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <utility>

namespace Tavbase::Util
{

namespace
{

constexpr int ABOVE = STDERR_FILENO + 1;

/// Of all that live, in whichever threads: a number that one of them holds looks open to another one, and
/// would be given back under it.
struct Holding
{
    std::mutex lock;
    int lives TAV_GUARDED_BY(lock) = 0;
    std::array<bool, ABOVE> held TAV_GUARDED_BY(lock){}; // by its number
};

Holding holding;

bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

/// Takes the number of a stream that is closed.
void Hold(int stream) TAV_REQUIRES(holding.lock)
{
    int holder = open("/", O_PATH | O_CLOEXEC);
    if (holder >= 0 && holder != stream)
    {
        const int other = holder;
        holder = fcntl(other, F_DUPFD_CLOEXEC, stream);
        close(other);
    }
    if (holder == stream)
    {
        holding.held[stream] = true;
    }
    else if (holder >= 0)
    {
        close(holder); // another thread has the number by now
    }
}

void GiveBack() TAV_REQUIRES(holding.lock)
{
    for (int stream = 0; stream < ABOVE; ++stream)
    {
        if (std::exchange(holding.held[stream], false))
        {
            close(stream);
        }
    }
}

/// The threads that held them are the parent's, and one of them may have been at it.
void RenewInForkedChild() TAV_LOCKS_UNSEEN
{
    std::destroy_at(&holding.lock);
    std::construct_at(&holding.lock);
    holding.lives = 0;
    GiveBack();
}

[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, RenewInForkedChild);

}

StandardStreamsHeld::StandardStreamsHeld(int lowest)
{
    const std::lock_guard guard(holding.lock);
    ++holding.lives;
    for (int stream = lowest; stream < ABOVE; ++stream)
    {
        if (!IsOpen(stream))
        {
            Hold(stream);
        }
    }
}

StandardStreamsHeld::~StandardStreamsHeld()
{
    const std::lock_guard guard(holding.lock);
    if (holding.lives > 0 && --holding.lives == 0)
    {
        GiveBack();
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

#include "tests/kit/OutputQueue.h"

#include "tests/kit/Clock.h"
#include "virtual-unit/time/Calls.h"
#include "virtual-unit/time/Nanoseconds.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace Kit
{

namespace
{

constexpr std::chrono::hours FOR_EVER{1};
constexpr std::chrono::milliseconds HUNDREDTH{10};

std::atomic<OutputQueue*> only{nullptr};

}

OutputQueue::OutputQueue(std::string device, std::chrono::milliseconds lag)
    : path(std::move(device)), taking(lag)
{
    if (only.exchange(this) != nullptr)
    {
        std::abort();
    }
}

OutputQueue::~OutputQueue()
{
    only = nullptr;
}

void OutputQueue::Refuse(unsigned long request, int error)
{
    refused[request] = error;
}

OutputQueue* OutputQueue::Of(const char* device)
{
    OutputQueue* const one = only;
    return one != nullptr && one->path == device ? one : nullptr;
}

void OutputQueue::Write(int fd, std::string_view bytes)
{
    queue += bytes;
    takenAt = taking.load() == NEVER ? std::chrono::nanoseconds::max() : Clock::Elapsed() + taking.load();
    Deliver(fd);
}

bool OutputQueue::Answers(unsigned long request) const
{
    return request == TIOCOUTQ || request == TIOCGSERIAL || request == TIOCSSERIAL;
}

int OutputQueue::Ioctl(int fd, unsigned long request, void* argument)
{
    if (const auto one = refused.find(request); one != refused.end())
    {
        errno = one->second;
        return -1;
    }
    if (request == TIOCOUTQ)
    {
        Deliver(fd);
        *static_cast<int*>(argument) = static_cast<int>(queue.size());
        return 0;
    }
    auto& settings = *static_cast<serial_struct*>(argument);
    if (request == TIOCGSERIAL)
    {
        settings = {};
        settings.line = 7;
        settings.closing_wait = closingWait;
        return 0;
    }
    if (settings.line != 7)
    {
        std::abort(); // what is not meant must come back as it was read
    }
    closingWait = settings.closing_wait;
    return 0;
}

void OutputQueue::Drain(int fd)
{
    Wait(fd, FOR_EVER);
}

void OutputQueue::Close(int fd)
{
    Wait(fd, closingWait == ASYNC_CLOSING_WAIT_NONE ? std::chrono::nanoseconds(0) : closingWait * HUNDREDTH);
    queue.clear();
}

void OutputQueue::Wait(int fd, std::chrono::nanoseconds limit)
{
    const std::chrono::nanoseconds left =
        queue.empty() ? std::chrono::nanoseconds(0)
                      : std::min(limit, takenAt - std::min(takenAt, Clock::Elapsed()));
    const timespec duration = VirtualTime::ToTimespec(left.count());
    VirtualTime::Calls::Nanosleep(&duration, nullptr);
    Deliver(fd);
}

void OutputQueue::Deliver(int fd)
{
    if (!queue.empty() && Clock::Elapsed() >= takenAt)
    {
        syscall(SYS_write, fd, queue.data(), queue.size());
        queue.clear();
    }
}

}

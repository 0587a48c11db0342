#include "tests/kit/MessageDevice.h"

#include "tests/kit/HighDescriptor.h"
#include "tests/kit/System.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Kit
{

namespace
{

constexpr std::size_t LONGEST_MESSAGE = 4096;

std::mutex access;
std::array<MessageDevice*, 8> devices{}; // under access

/// Puts `to` where `from` is. @return false when that is nowhere
bool Replace(MessageDevice* from, MessageDevice* to)
{
    const std::scoped_lock lock(access);
    const auto place = std::ranges::find(devices, from);
    if (place == devices.end())
    {
        return false;
    }
    *place = to;
    return true;
}

}

MessageDevice::MessageDevice(std::string device)
    : MessageDevice(std::move(device), [](unsigned long, void*) { return -ENOTTY; })
{
}

MessageDevice::MessageDevice(std::string device, Answer answerToIoctls)
    : path(std::move(device)), answer(std::move(answerToIoctls))
{
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0 || !Replace(nullptr, this))
    {
        std::perror("kit: no message device");
        std::abort();
    }
    testEnd = MoveUp(ends[0]);
    libraryEnd = MoveUp(ends[1]);
    // A socket cannot be opened by this path (Open() hands out descriptors), but it can be looked up.
    System::Redirect(path, "/proc/self/fd/" + std::to_string(libraryEnd));
}

MessageDevice::~MessageDevice()
{
    System::Unredirect(path);
    Replace(this, nullptr);
    HangUp();
    close(libraryEnd);
}

void MessageDevice::Send(std::string_view message)
{
    if (send(testEnd, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size()))
    {
        std::perror("kit: message device");
        std::abort();
    }
}

std::vector<std::string> MessageDevice::Received()
{
    std::vector<std::string> messages;
    std::array<char, LONGEST_MESSAGE> bytes{};
    for (ssize_t count = 0; (count = recv(testEnd, bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0;)
    {
        messages.emplace_back(bytes.data(), static_cast<std::size_t>(count));
    }
    return messages;
}

void MessageDevice::HangUp()
{
    if (testEnd >= 0)
    {
        close(testEnd);
        testEnd = -1;
    }
}

MessageDevice* MessageDevice::At(const char* device)
{
    const std::scoped_lock lock(access);
    const auto found = std::ranges::find_if(
        devices, [&](const MessageDevice* one) { return one != nullptr && one->path == device; });
    return found == devices.end() ? nullptr : *found;
}

int MessageDevice::Open(int flags) const
{
    const int fd = fcntl(libraryEnd, (flags & O_CLOEXEC) != 0 ? F_DUPFD_CLOEXEC : F_DUPFD, 0);
    if (fd >= 0)
    {
        fcntl(fd, F_SETFL, flags & O_NONBLOCK);
    }
    return fd;
}

int MessageDevice::Ioctl(unsigned long request, void* argument) const
{
    const int result = answer(request, argument);
    if (result < 0)
    {
        errno = -result;
        return -1;
    }
    return result;
}

}

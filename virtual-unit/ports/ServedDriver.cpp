#include "virtual-unit/ports/ServedDriver.h"

#include "virtual-unit/common/Deadline.h"
#include "virtual-unit/common/DescriptorsOfOthers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr std::size_t LONGEST_MESSAGE = 4096;

std::array<int, 2> Connected()
{
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    return ends;
}

ino_t SocketOf(const Descriptor& descriptor)
{
    struct stat status = {};
    return fstat(descriptor.Get(), &status) == 0 ? status.st_ino : 0;
}

/// The sockets that other processes have open, as far as this one may see that.
std::set<ino_t> SocketsOfOthers()
{
    std::set<ino_t> sockets;
    IsAmongDescriptorsOfOthers([&sockets](const std::string& path) {
        struct stat status = {};
        if (stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode))
        {
            sockets.insert(status.st_ino);
        }
        return false; // all of them
    });
    return sockets;
}

}

ServedDriver::ServedDriver(std::shared_ptr<IoctlPeripheral> device) : ServedDriver(std::move(device), nullptr)
{
}

ServedDriver::ServedDriver(const std::shared_ptr<MessagePeripheral>& device)
    : ServedDriver(device, device.get())
{
    messages->Attach([this] { Wake(); });
}

ServedDriver::ServedDriver(std::shared_ptr<IoctlPeripheral> device, MessagePeripheral* withMessages)
    : peripheral(std::move(device)), messages(withMessages),
      canBePulledOut(messages != nullptr && messages->CanBePulledOut()),
      wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    Connect();
}

ServedDriver::~ServedDriver()
{
    Stop();
    if (messages != nullptr)
    {
        messages->Attach({});
    }
}

void ServedDriver::Connect()
{
    const std::array<int, 2> ends = Connected();
    deviceEnd = VirtualUnit::Descriptor(ends[1]);
    const std::lock_guard lock(access);
    applicationEnd = VirtualUnit::Descriptor(ends[0]);
    if (messages == nullptr)
    {
        shutdown(deviceEnd.Get(), SHUT_WR); // a read finds the end at once, instead of waiting for ever
    }
}

int ServedDriver::Open(int flags)
{
    bool cameBack = false;
    Locked([&]() TAV_REQUIRES(access) {
        cameBack = messages != nullptr && messages->IsPlugged() && !messages->IsConnected();
    });
    if (cameBack)
    {
        try
        {
            Stop();
            Connect();
        }
        catch (const std::system_error& failure)
        {
            errno = failure.code().value();
            return -1;
        }
        Locked([this]() TAV_REQUIRES(access) { messages->Attach([this] { Wake(); }); });
    }
    Start();
    const int fd = fcntl(Descriptor(), F_DUPFD_CLOEXEC, 0);
    if (fd >= 0)
    {
        fcntl(fd, F_SETFL, flags & O_NONBLOCK);
    }
    return fd;
}

bool ServedDriver::Exists() const
{
    const std::lock_guard lock(access);
    return messages == nullptr || messages->IsPlugged();
}

bool ServedDriver::HoldsWrites() const
{
    return canBePulledOut;
}

int ServedDriver::WriteError(const struct stat& opened)
{
    const std::lock_guard lock(access);
    const bool former =
        std::ranges::find(formerNodes, opened.st_ino, &FormerNode::socket) != formerNodes.end();
    const bool present =
        HoldsWrites() && opened.st_ino == SocketOf(applicationEnd) && !messages->IsConnected();
    return S_ISSOCK(opened.st_mode) && (former || present) ? ENODEV : 0;
}

int ServedDriver::Descriptor() const
{
    const std::lock_guard lock(access);
    return applicationEnd.Get();
}

unsigned int ServedDriver::Node()
{
    const std::lock_guard lock(access);
    SettleNode();
    return node;
}

/// A device that is back gets the lowest number that nobody holds.
void ServedDriver::SettleNode()
{
    const bool isBack = HoldsWrites() && messages->IsPlugged() && !messages->IsConnected();
    if (!isBack || nodeSettled)
    {
        nodeSettled = isBack;
        return;
    }
    nodeSettled = true;
    const ino_t socket = SocketOf(applicationEnd);
    if (std::ranges::find(formerNodes, socket, &FormerNode::socket) == formerNodes.end())
    {
        formerNodes.push_back({socket, node});
    }
    const std::set<ino_t> held = SocketsOfOthers();
    std::erase_if(formerNodes, [&held](const FormerNode& former) { return !held.contains(former.socket); });
    node = 0;
    while (std::ranges::find(formerNodes, node, &FormerNode::node) != formerNodes.end())
    {
        ++node;
    }
}

std::optional<ServedDevice::IoctlResult> ServedDriver::Ioctl(unsigned long request, std::uint64_t argument,
                                                             CallerMemory& memory)
{
    const auto deadline = [this]() TAV_REQUIRES(access) {
        return messages != nullptr ? messages->NextDeadline() : std::nullopt;
    };
    IoctlResult result;
    bool otherDeadline = false;
    {
        const std::lock_guard lock(access);
        const auto before = deadline();
        result.value = peripheral->Answer({request, argument, memory}, std::chrono::steady_clock::now());
        result.takes = peripheral->Takes(result.value);
        otherDeadline = deadline() != before;
    }
    if (otherDeadline) // otherwise the thread has nothing new to see, and a pin is written in half the time
    {
        Wake();
    }
    return result;
}

void ServedDriver::Start()
{
    if (messages != nullptr && !thread.joinable())
    {
        {
            const std::lock_guard lock(access);
            ending = false;
        }
        thread = std::thread(&ServedDriver::Carry, this);
    }
}

void ServedDriver::Stop()
{
    if (thread.joinable())
    {
        Locked([this]() TAV_REQUIRES(access) { ending = true; });
        thread.join();
    }
}

void ServedDriver::Carry()
{
    for (;;)
    {
        std::array<pollfd, 2> events = {{{deviceEnd.Get(), POLLIN, 0}, {wake.Get(), POLLIN, 0}}};
        int milliseconds = 0;
        {
            const std::scoped_lock lock(access);
            Receive(); // what is there arrives, also at the end
            if (ending)
            {
                return;
            }
            messages->Advance(std::chrono::steady_clock::now());
            for (const std::string& message : messages->TakeOutput())
            {
                Send(message);
            }
            if (!messages->IsConnected())
            {
                shutdown(deviceEnd.Get(), SHUT_RDWR);
                return;
            }
            milliseconds = MillisecondsUntil(messages->NextDeadline());
        }
        poll(events.data(), events.size(), milliseconds);
        std::uint64_t ignored = 0;
        while (read(wake.Get(), &ignored, sizeof(ignored)) > 0)
        {
        }
    }
}

void ServedDriver::Receive()
{
    std::array<char, LONGEST_MESSAGE> bytes;
    ssize_t count = 0;
    while ((count = recv(deviceEnd.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0)
    {
        // The application's write is over by now: it cannot be told of a refusal any more.
        messages->Receive(std::string_view(bytes.data(), static_cast<std::size_t>(count)),
                          std::chrono::steady_clock::now());
    }
}

void ServedDriver::Send(std::string_view message) const
{
    // What finds no room is lost, as in a driver whose queue is full.
    static_cast<void>(send(deviceEnd.Get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
}

void ServedDriver::Wake() const
{
    const std::uint64_t one = 1;
    // It fails only when the counter is full, and then the thread is being woken anyway.
    [[maybe_unused]] const ssize_t ignored = write(wake.Get(), &one, sizeof(one));
}

}

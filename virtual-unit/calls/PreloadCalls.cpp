#include "virtual-unit/calls/PreloadCalls.h"

#include "virtual-unit/calls/ProgramFile.h"
#include "virtual-unit/common/ParentOf.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

using Preload::Action;
using Preload::Order;

/// So many connections may be there at once; one for each thread that makes a call.
constexpr std::size_t MOST_CONNECTIONS = 512;

/// How long a caller may take to tell of its memory. It has nothing else to do, but may have been stopped.
constexpr timeval PATIENCE = {1, 0};

[[noreturn]] void Fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

std::string NewName()
{
    std::array<unsigned int, 4> random = {};
    if (getrandom(random.data(), sizeof(random), 0) != static_cast<ssize_t>(sizeof(random)))
    {
        Fail("getrandom");
    }
    std::array<char, 80> text = {};
    std::snprintf(text.data(), text.size(), "virtual-unit-calls-%d-%08x%08x%08x%08x", getpid(), random[0],
                  random[1], random[2], random[3]);
    return text.data();
}

bool Send(int socket, const Order& order)
{
    return send(socket, &order, sizeof(order), MSG_NOSIGNAL | MSG_DONTWAIT) >= 0;
}

/// @return 0 or an errno
int SendDescriptor(int socket, const Order& order, int descriptor)
{
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
    iovec piece = {const_cast<Order*>(&order), sizeof(order)};
    msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const cmsghdr header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    std::memcpy(control.data(), &header, sizeof(header));
    std::memcpy(CMSG_DATA(reinterpret_cast<cmsghdr*>(control.data())), &descriptor, sizeof(descriptor));
    return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 ? 0 : errno;
}

/// Whether a process, which may have become another user since, is of this run.
bool IsDescendant(pid_t process)
{
    constexpr int DEEPEST = 100;
    for (int depth = 0; process > 1 && depth < DEEPEST; ++depth)
    {
        if (process == getpid())
        {
            return true;
        }
        process = ParentOf(process);
    }
    return false;
}

}

PreloadCalls::PreloadCalls()
    : name(NewName()), listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      events(epoll_create1(EPOLL_CLOEXEC))
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    epoll_event event = {EPOLLIN, {.ptr = nullptr}};
    if (listener.Get() < 0 || events.Get() < 0 ||
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        listen(listener.Get(), SOMAXCONN) != 0 ||
        epoll_ctl(events.Get(), EPOLL_CTL_ADD, listener.Get(), &event) != 0)
    {
        Fail("the socket for calls");
    }
}

PreloadCalls::~PreloadCalls() = default;

std::optional<WaitingCall> PreloadCalls::Next()
{
    // One call at a time, and others' events stay where they are until then.
    constexpr int MOST_EVENTS = 64; // other descriptors of this process want to be looked at, too
    epoll_event event = {};
    for (int i = 0; i < MOST_EVENTS && epoll_wait(events.Get(), &event, 1, 0) > 0; ++i)
    {
        if (event.data.ptr == nullptr)
        {
            Accept();
            continue;
        }
        auto& connection = *static_cast<Connection*>(event.data.ptr);
        if (std::optional<WaitingCall> call = Receive(connection))
        {
            return call;
        }
    }
    return std::nullopt;
}

void PreloadCalls::Accept()
{
    if (connections.size() >= MOST_CONNECTIONS)
    {
        // Whoever connects and says nothing has no right to keep others out.
        const auto silent = std::ranges::find(connections, 0U, &Connection::id);
        Close(silent == connections.end() ? connections.begin() : silent);
    }
    VirtualUnit::Descriptor socket(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.Get() < 0 && (errno == EMFILE || errno == ENFILE) && !connections.empty())
    {
        Close(connections.begin());
        return;
    }
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (socket.Get() < 0 || getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        (peer.uid != geteuid() && !IsDescendant(peer.pid)))
    {
        return;
    }
    Connection& connection = connections.emplace_back();
    connection.socket = std::move(socket);
    connection.process = peer.pid;
    epoll_event event = {EPOLLIN, {.ptr = &connection}};
    if (epoll_ctl(events.Get(), EPOLL_CTL_ADD, connection.socket.Get(), &event) != 0)
    {
        connections.pop_back();
    }
}

/// The call that a connection begins with. Whatever else comes is its end.
std::optional<WaitingCall> PreloadCalls::Receive(Connection& connection)
{
    Preload::Call call = {};
    std::vector<char> bytes(2 * std::size_t{Preload::LONGEST_PART});
    std::array<iovec, 2> pieces = {{{&call, sizeof(call)}, {bytes.data(), bytes.size()}}};
    msghdr message = {};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    const ssize_t count = recvmsg(connection.socket.Get(), &message, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return std::nullopt;
    }
    const std::size_t inParts = std::size_t{call.parts[0].size} + call.parts[1].size;
    if (connection.id != 0 || (message.msg_flags & MSG_TRUNC) != 0 || call.magic != Preload::MAGIC ||
        count < 0 || static_cast<std::size_t>(count) != sizeof(call) + inParts)
    {
        Close(std::ranges::find(connections, connection.socket.Get(),
                                [](const Connection& each) { return each.socket.Get(); }));
        return std::nullopt;
    }
    bytes.resize(inParts);
    connection.id = ++latestId;
    connection.parts.assign(call.parts.begin(), call.parts.end());
    connection.bytes = std::move(bytes);
    return WaitingCall{connection.id, connection.process, call.number, call.arguments,
                       call.number == SYS_execve && call.arguments[5] == Preload::BY_CHILD};
}

PreloadCalls::Connections::iterator PreloadCalls::Find(std::uint64_t id)
{
    return std::ranges::find(connections, id, &Connection::id);
}

void PreloadCalls::Close(Connections::iterator connection)
{
    if (connection != connections.end())
    {
        connections.erase(connection); // which takes its socket out of `events`, too
    }
}

bool PreloadCalls::StillWaits(const WaitingCall& call)
{
    const auto connection = Find(call.id);
    char byte = 0;
    if (connection == connections.end())
    {
        return false;
    }
    const ssize_t count = recv(connection->socket.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    const bool waits = count < 0 && (errno == EAGAIN || errno == EINTR);
    // A copy of the connection may live in a child: the caller itself must, too.
    if (!waits || (kill(call.thread, 0) != 0 && errno == ESRCH))
    {
        Close(connection);
        return false;
    }
    return true;
}

int PreloadCalls::ReadPath(const WaitingCall& call, std::uint64_t address, std::string& path)
{
    const auto connection = Find(call.id);
    if (connection == connections.end())
    {
        return ESRCH;
    }
    path.clear();
    std::size_t from = 0;
    for (const Preload::Part& part : connection->parts)
    {
        if (part.size > 0 && part.address == address && path.empty())
        {
            path.assign(connection->bytes.data() + from, part.size);
        }
        from += part.size;
    }
    // In parts that end at a page boundary: the next page need not be there when the text ends before it.
    const auto pageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    while (path.find('\0') == std::string::npos)
    {
        if (path.size() >= PATH_MAX)
        {
            return ENAMETOOLONG;
        }
        const std::uint64_t next = address + path.size();
        const auto size = static_cast<std::size_t>(
            std::min<std::uint64_t>(pageSize - next % pageSize, PATH_MAX - path.size()));
        std::string more(size, '\1');
        if (const int error = Ask(*connection, next, more.data(), size); error != 0)
        {
            if (error == ESRCH)
            {
                Close(connection);
            }
            return error;
        }
        path += more;
    }
    path.resize(path.find('\0'));
    return 0;
}

int PreloadCalls::Read(const WaitingCall& call, std::uint64_t address, void* data, std::size_t size)
{
    const auto connection = Find(call.id);
    if (connection == connections.end() || size > Preload::LONGEST_MEMORY)
    {
        return connection == connections.end() ? ESRCH : EFAULT;
    }
    const int error = size == 0 ? 0 : Ask(*connection, address, data, size);
    if (error == ESRCH)
    {
        Close(connection);
    }
    return error;
}

/// @return 0; EFAULT; ESRCH when the caller does not tell
int PreloadCalls::Ask(const Connection& connection, std::uint64_t address, void* data, std::size_t size)
{
    const Order order = {Action::Read, static_cast<std::uint32_t>(size), address};
    Preload::Reading reading = {};
    std::array<iovec, 2> pieces = {{{&reading, sizeof(reading)}, {data, size}}};
    msghdr message = {};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    // By system calls as such: this moment is real even where time is virtual, and none of the run's time.
    const int socket = connection.socket.Get();
    syscall(SYS_setsockopt, socket, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof(PATIENCE));
    ssize_t count = -1;
    if (Send(socket, order))
    {
        do
        {
            count = syscall(SYS_recvmsg, socket, &message, 0);
        } while (count < 0 && errno == EINTR);
    }
    if (count < static_cast<ssize_t>(sizeof(reading)) || (message.msg_flags & MSG_TRUNC) != 0)
    {
        return ESRCH;
    }
    return reading.error == 0 && static_cast<std::size_t>(count) == sizeof(reading) + size ? 0 : EFAULT;
}

int PreloadCalls::Write(const WaitingCall& call, std::uint64_t address, const void* data, std::size_t size)
{
    const auto connection = Find(call.id);
    if (connection == connections.end() || size > Preload::LONGEST_MEMORY)
    {
        return connection == connections.end() ? ESRCH : EFAULT;
    }
    const Order order = {Action::Write, static_cast<std::uint32_t>(size), address};
    const int socket = connection->socket.Get();
    const bool sent =
        size == 0 || (Send(socket, order) && send(socket, data, size, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0);
    return sent ? 0 : ESRCH;
}

void PreloadCalls::Respond(const WaitingCall& call, const Answer& answer)
{
    const VirtualUnit::Descriptor opened(answer.descriptor);
    const auto connection = Find(call.id);
    if (connection == connections.end())
    {
        return;
    }
    const int socket = connection->socket.Get();
    Order order = {answer.type == Answer::Type::GoOn ? Action::GoOn : Action::Result};
    order.value = answer.error != 0 ? -answer.error : answer.value;
    if (answer.type == Answer::Type::Descriptor)
    {
        order = {Action::Descriptor};
        order.closeOnExec = answer.closeOnExec ? 1 : 0;
        order.holdsWrites = answer.holdsWrites ? 1 : 0;
        if (const int error = SendDescriptor(socket, order, opened.Get()); error != 0)
        {
            order = {Action::Result};
            order.value = -error;
            Send(socket, order);
        }
    }
    else
    {
        Send(socket, order);
    }
    Close(connection);
}

std::optional<std::string> PreloadCalls::WhyOutOfReach(const std::string& path)
{
    if (std::filesystem::path(path).parent_path().filename() == "valgrind")
    {
        return std::nullopt; // its tools are static, and load the program and its libraries by themselves
    }
    const ProgramFile file(path);
    if (std::optional<std::string> foreign = file.WhyForeign())
    {
        return foreign;
    }
    return file.IsStatic() ? std::optional<std::string>("it is linked statically") : std::nullopt;
}

}

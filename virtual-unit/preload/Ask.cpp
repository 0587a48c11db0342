#include "virtual-unit/preload/Ask.h"

#include "virtual-unit/calls/HeldNumbers.h"
#include "virtual-unit/preload/Environment.h"
#include "virtual-unit/preload/Protocol.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

namespace VirtualUnit::Preload
{

namespace
{

using VirtualTime::RawCall;

/// A plain system call, again when a signal was handled meanwhile.
template <class... Each>
long Persist(long number, Each... each)
{
    long result = -1;
    do
    {
        result = RawCall(number, each...);
    } while (result < 0 && errno == EINTR);
    return result;
}

void* Pointer(std::uint64_t address)
{
    return reinterpret_cast<void*>(address); // NOLINT(performance-no-int-to-ptr): the kernel looks behind it
}

/// @return the connection; a negated errno
int Connect()
{
    const auto connection = static_cast<int>(RawCall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (connection < 0)
    {
        return -errno;
    }
    sockaddr_un address = {};
    const std::size_t size = SocketAddress(address);
    if (Persist(SYS_connect, connection, &address, size) != 0)
    {
        RawCall(SYS_close, connection);
        return -ENOSYS; // the run is over
    }
    return connection;
}

/// How much of a path is sent along, with its end; 0 for an address that is none. The kernel tells that
/// first, where it is asked for a file of no directory.
std::uint32_t SizeOfPath(std::uint64_t address)
{
    constexpr int NO_DIRECTORY = -1;
    const auto* const path = static_cast<const char*>(Pointer(address));
    if (RawCall(SYS_faccessat, NO_DIRECTORY, path, F_OK) != 0 && errno == EFAULT)
    {
        return 0;
    }
    std::uint32_t size = 0;
    while (size < LONGEST_PART && path[size++] != '\0')
    {
    }
    return size;
}

/// The supervisor is told the beginnings of paths at once.
bool SendCall(int connection, long number, const Arguments& arguments, std::array<int, 2> paths)
{
    Call call = {MAGIC, static_cast<std::int32_t>(number), arguments, {}};
    std::array<iovec, 3> pieces = {{{&call, sizeof(call)}, {}, {}}};
    msghdr message = {};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    for (std::size_t i = 0; i < paths.size(); ++i)
    {
        if (paths[i] >= 0)
        {
            const std::uint64_t address = arguments[static_cast<std::size_t>(paths[i])];
            const std::uint32_t size = SizeOfPath(address);
            call.parts[i] = {address, size, 0};
            pieces[i + 1] = {Pointer(address), size};
        }
    }
    return Persist(SYS_sendmsg, connection, &message, MSG_NOSIGNAL) >= 0;
}

bool SendMemory(int connection, std::uint64_t address, std::uint32_t size)
{
    Reading reading = {};
    std::array<iovec, 2> pieces = {{{&reading, sizeof(reading)}, {Pointer(address), size}}};
    msghdr message = {};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    if (Persist(SYS_sendmsg, connection, &message, MSG_NOSIGNAL) >= 0)
    {
        return true;
    }
    reading.error = errno;
    message.msg_iovlen = 1;
    return errno == EFAULT && Persist(SYS_sendmsg, connection, &message, MSG_NOSIGNAL) >= 0;
}

/// @param descriptor that came along, or -1 @return false: the supervisor has closed
bool Receive(int connection, Order& order, int& descriptor)
{
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control;
    iovec piece = {&order, sizeof(order)};
    msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const bool received = Persist(SYS_recvmsg, connection, &message, MSG_CMSG_CLOEXEC) == sizeof(order);
    descriptor = -1;
    if (message.msg_controllen >= CMSG_LEN(sizeof(int)))
    {
        std::memcpy(&descriptor, CMSG_DATA(reinterpret_cast<cmsghdr*>(control.data())), sizeof(descriptor));
    }
    return received;
}

/// Gives a descriptor the number that it is to have. The connection stood in its way and is closed by now.
int Place(int descriptor, const Order& order)
{
    const int duplicate = order.closeOnExec != 0 ? F_DUPFD_CLOEXEC : F_DUPFD;
    long number = -1;
    if (order.holdsWrites != 0)
    {
        number = RawCall(SYS_fcntl, descriptor, duplicate, FIRST_HELD_DESCRIPTOR);
        if (number >= static_cast<long>(END_OF_HELD_DESCRIPTORS))
        {
            RawCall(SYS_close, number);
            number = -1;
        }
    }
    if (number < 0)
    {
        number = RawCall(SYS_fcntl, descriptor, duplicate, 0);
        if (number < 0 || number > descriptor) // it has the lowest number already
        {
            RawCall(SYS_close, number);
            RawCall(SYS_fcntl, descriptor, F_SETFD, order.closeOnExec != 0 ? FD_CLOEXEC : 0);
            return descriptor;
        }
    }
    RawCall(SYS_close, descriptor);
    return static_cast<int>(number);
}

/// Does what the supervisor wants until it has an answer. @return false when it has none
bool AwaitAnswer(int connection, Reply& reply, Order& order, int& descriptor)
{
    for (;;)
    {
        if (!Receive(connection, order, descriptor))
        {
            return false;
        }
        switch (order.action)
        {
        case Action::GoOn:
            reply = {true, 0};
            return true;
        case Action::Result:
            reply = {false, static_cast<long>(order.value)};
            return true;
        case Action::Descriptor:
            reply = {false, descriptor < 0 ? -EMFILE : 0}; // the kernel gives none beyond the limit
            return true;
        case Action::Read:
            if (!SendMemory(connection, order.address, order.size))
            {
                return false;
            }
            break;
        case Action::Write:
            if (Persist(SYS_recvfrom, connection, Pointer(order.address), order.size, 0, nullptr, nullptr) !=
                static_cast<long>(order.size))
            {
                reply = {false, -EFAULT};
                return true;
            }
            break;
        default:
            return false;
        }
    }
}

}

Reply AskAbout(long number, const Arguments& arguments, std::array<int, 2> paths)
{
    constexpr int ATTEMPTS = 3; // a connection is closed when the supervisor could not wait
    const int before = errno;
    Reply reply{false, -EIO};
    if (!IsOnUnit())
    {
        return {};
    }
    for (int attempt = 0; attempt < ATTEMPTS; ++attempt)
    {
        const int connection = Connect();
        if (connection < 0)
        {
            reply = {false, connection};
            break;
        }
        Order order = {};
        int descriptor = -1;
        const bool answered = SendCall(connection, number, arguments, paths) &&
                              AwaitAnswer(connection, reply, order, descriptor);
        RawCall(SYS_close, connection);
        if (answered)
        {
            if (descriptor >= 0)
            {
                reply.value = Place(descriptor, order);
            }
            break;
        }
    }
    errno = before;
    return reply;
}

}

#include "virtual-unit/calls/KernelCalls.h"

#include "virtual-unit/calls/ApplicationMemory.h"
#include "virtual-unit/calls/HeldNumbers.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

/// Has caller and supervisor take turns on one processor, which is faster than to wake another one. Since
/// Linux 6.6; older ones do without.
void TakeTurns(int notifications)
{
    constexpr unsigned long SET_FLAGS = _IOW('!', 4, std::uint64_t); // both are newer than the headers
    constexpr unsigned long SYNCHRONOUS_WAKE_UP = 1;
    static_cast<void>(ioctl(notifications, SET_FLAGS, SYNCHRONOUS_WAKE_UP));
}

/// A number that the caller does not use, from FIRST_HELD_DESCRIPTOR on; none: there is none.
std::optional<unsigned int> FreeHeldDescriptor(pid_t thread)
{
    const std::string descriptors = "/proc/" + std::to_string(thread) + "/fd/";
    for (unsigned int number = FIRST_HELD_DESCRIPTOR; number < END_OF_HELD_DESCRIPTORS; ++number)
    {
        struct stat status = {};
        if (lstat((descriptors + std::to_string(number)).c_str(), &status) != 0 && errno == ENOENT)
        {
            return number;
        }
    }
    return std::nullopt;
}

}

KernelCalls::KernelCalls(int notifications) : fd(notifications)
{
    if (const int result = seccomp_notify_alloc(&request, &response); result < 0)
    {
        throw std::system_error(-result, std::generic_category(), "seccomp notification");
    }
    TakeTurns(fd);
}

KernelCalls::~KernelCalls()
{
    seccomp_notify_free(request, response);
}

std::optional<WaitingCall> KernelCalls::Next()
{
    *request = {};
    if (seccomp_notify_receive(fd, request) != 0)
    {
        return std::nullopt; // the caller was killed, or interrupted, before its call could be taken
    }
    WaitingCall call{request->id, static_cast<pid_t>(request->pid), request->data.nr};
    std::copy(std::begin(request->data.args), std::end(request->data.args), call.arguments.begin());
    return call;
}

bool KernelCalls::StillWaits(const WaitingCall& call)
{
    return seccomp_notify_id_valid(fd, call.id) == 0;
}

int KernelCalls::ReadPath(const WaitingCall& call, std::uint64_t address, std::string& path)
{
    return ApplicationMemory::ReadPath(call.thread, address, path);
}

int KernelCalls::Read(const WaitingCall& call, std::uint64_t address, void* data, std::size_t size)
{
    return ApplicationMemory::Read(call.thread, address, data, size);
}

int KernelCalls::Write(const WaitingCall& call, std::uint64_t address, const void* data, std::size_t size)
{
    return ApplicationMemory::Write(call.thread, address, data, size);
}

void KernelCalls::Respond(const WaitingCall& call, const Answer& answer)
{
    const bool opens = answer.type == Answer::Type::Descriptor;
    if (opens && Place(call, answer))
    {
        return;
    }
    *response = {};
    response->id = call.id;
    response->error = opens ? -errno : -answer.error;
    response->val = answer.value;
    response->flags = answer.type == Answer::Type::GoOn ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    seccomp_notify_respond(fd, response); // fails when the caller is gone
}

/// Gives a descriptor to the caller, and closes it here. @return false, and errno, when it could not be given
bool KernelCalls::Place(const WaitingCall& call, const Answer& answer) const
{
    const std::optional<unsigned int> number =
        answer.holdsWrites ? FreeHeldDescriptor(call.thread) : std::nullopt;
    int error = Add(call, answer, number);
    if (number && (error == EBADF || error == EMFILE)) // beyond the limit of the process
    {
        error = Add(call, answer, std::nullopt);
    }
    const bool given = error == 0;
    close(answer.descriptor);
    if (!given && error == EINVAL)
    {
        throw std::system_error(
            error, std::generic_category(),
            "the kernel does not place descriptors into the application (Linux 5.14 is needed)");
    }
    errno = error;
    return given || error == ENOENT; // ENOENT: the caller is gone
}

/// @param number that the descriptor gets; none: the lowest one @return 0 or an errno
int KernelCalls::Add(const WaitingCall& call, const Answer& answer, std::optional<unsigned int> number) const
{
    seccomp_notif_addfd addition = {};
    addition.id = call.id;
    addition.flags = SECCOMP_ADDFD_FLAG_SEND; // placed and answered in one step: none is left over
    if (number)
    {
        addition.flags |= SECCOMP_ADDFD_FLAG_SETFD;
        addition.newfd = *number;
    }
    addition.srcfd = static_cast<std::uint32_t>(answer.descriptor);
    addition.newfd_flags = answer.closeOnExec ? O_CLOEXEC : 0;
    return ioctl(fd, SECCOMP_IOCTL_NOTIF_ADDFD, &addition) >= 0 ? 0 : errno;
}

}

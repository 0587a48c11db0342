#include "virtual-unit/Responder.h"

#include "virtual-unit/ApplicationMemory.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;

constexpr std::uint64_t CREATING_FLAGS = O_CREAT | O_EXCL | O_TRUNC;

}

struct Responder::Answer
{
    enum class Type
    {
        GoOn,       ///< the kernel carries the call out
        Result,     ///< `error`, 0 or an errno
        Descriptor, ///< `descriptor` is given to the application, and closed here
        None        ///< the caller is gone
    };

    Type type = Type::GoOn;
    int error = 0;
    int descriptor = -1;
    bool closeOnExec = false;

    static Answer Error(int error) { return {Type::Result, error}; }

    static Answer Success() { return {Type::Result}; }
};

Responder::Responder(int notifications, const SystemCallFilter& filter, const DeviceTable& devices,
                     Report report)
    : fd(notifications), systemCalls(filter), table(devices), reportLine(std::move(report))
{
    if (const int result = seccomp_notify_alloc(&request, &response); result < 0)
    {
        throw std::system_error(-result, std::generic_category(), "seccomp notification");
    }
}

Responder::~Responder()
{
    seccomp_notify_free(request, response);
}

void Responder::AnswerNext()
{
    *request = {};
    // It fails when the caller was killed, or interrupted, before its call could be taken.
    if (seccomp_notify_receive(fd, request) == 0)
    {
        Send(Find());
    }
}

Responder::Answer Responder::Find()
{
    const InterceptedCall* call = systemCalls.Find(request->data.nr);
    if (call == nullptr)
    {
        return {};
    }
    if (call->kind == Kind::Forbidden)
    {
        ReportOnce(std::string(call->name) + " is refused: it would touch this machine's mounts or power");
        return Answer::Error(EPERM);
    }

    std::string path;
    switch (ApplicationMemory::ReadPath(Thread(), Argument(call->path), path))
    {
    case 0:
        break;
    case EFAULT:
    case ENAMETOOLONG:
        return {}; // the kernel says the same
    case ESRCH:
        return {Answer::Type::None};
    default:
        ReportOnce(std::string(call->name) + " of process " + std::to_string(Thread()) +
                   " is refused: its memory cannot be read (a program without read permission?)");
        return Answer::Error(EACCES);
    }
    if (path.empty() || !table.BelongsToUnit(path = AbsolutePath(*call, path)))
    {
        return {};
    }
    return StillWaits() ? FindForDevice(*call, path) : Answer{Answer::Type::None};
}

Responder::Answer Responder::FindForDevice(const InterceptedCall& call, const std::string& path)
{
    ServedDevice* device = table.Find(path);
    if (device == nullptr)
    {
        ReportOnce(path + " is not served by the virtual unit: no such file for the application");
        return Answer::Error(ENOENT);
    }
    switch (call.kind)
    {
    case Kind::Open:
        return Open(*device, Argument(call.argument));
    case Kind::Create:
        return Open(*device, O_CREAT | O_WRONLY | O_TRUNC);
    case Kind::OpenHow: {
        open_how how = {};
        if (Argument(call.argument + 1) < sizeof(how))
        {
            return Answer::Error(EINVAL);
        }
        const int error = ApplicationMemory::Read(Thread(), Argument(call.argument), &how, sizeof(how));
        return error == 0 ? Open(*device, how.flags) : Answer::Error(error);
    }
    case Kind::Access:
        return (Argument(call.argument) & X_OK) != 0 ? Answer::Error(EACCES) : Answer::Success();
    case Kind::Status: {
        struct stat status = {};
        return fstat(device->Descriptor(), &status) == 0
                   ? Store(&status, sizeof(status), Argument(call.argument))
                   : Answer::Error(errno);
    }
    case Kind::StatusX: {
        struct statx status = {};
        const auto mask = static_cast<unsigned int>(Argument(call.argument));
        return statx(device->Descriptor(), "", AT_EMPTY_PATH, mask, &status) == 0
                   ? Store(&status, sizeof(status), Argument(call.argument + 1))
                   : Answer::Error(errno);
    }
    case Kind::ReadLink:
        return Answer::Error(EINVAL); // not a symbolic link
    case Kind::Attribute:
        return Answer::Error(EOPNOTSUPP);
    case Kind::Change:
        ReportOnce(std::string(call.name) + " of " + path + " is refused");
        return Answer::Error(EPERM);
    case Kind::Forbidden:
        break;
    }
    return Answer::Error(EPERM);
}

Responder::Answer Responder::Open(ServedDevice& device, std::uint64_t flags)
{
    if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL))
    {
        return Answer::Error(EEXIST);
    }
    Answer answer = {Answer::Type::Descriptor};
    answer.descriptor = device.Open(static_cast<int>(flags & ~CREATING_FLAGS) | O_CLOEXEC);
    answer.closeOnExec = (flags & O_CLOEXEC) != 0;
    return answer.descriptor < 0 ? Answer::Error(errno) : answer;
}

Responder::Answer Responder::Store(const void* data, std::size_t size, std::uint64_t address)
{
    return Answer::Error(ApplicationMemory::Write(Thread(), address, data, size));
}

void Responder::Send(const Answer& answer)
{
    if (answer.type == Answer::Type::None)
    {
        return;
    }
    int error = answer.error;
    if (answer.type == Answer::Type::Descriptor)
    {
        seccomp_notif_addfd addition = {};
        addition.id = request->id;
        addition.flags = SECCOMP_ADDFD_FLAG_SEND; // placed and answered in one step: none is left over
        addition.srcfd = static_cast<std::uint32_t>(answer.descriptor);
        addition.newfd_flags = answer.closeOnExec ? O_CLOEXEC : 0;
        const bool given = ioctl(fd, SECCOMP_IOCTL_NOTIF_ADDFD, &addition) >= 0;
        error = errno;
        close(answer.descriptor);
        if (given || error == ENOENT) // ENOENT: the caller is gone
        {
            return;
        }
        if (error == EINVAL)
        {
            throw std::system_error(
                error, std::generic_category(),
                "the kernel does not place descriptors into the application (Linux 5.14 is needed)");
        }
    }
    *response = {};
    response->id = request->id;
    response->error = -error;
    response->flags = answer.type == Answer::Type::GoOn ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    seccomp_notify_respond(fd, response); // fails when the caller is gone
}

void Responder::ReportOnce(const std::string& line)
{
    if (reported.insert(line).second)
    {
        reportLine(line);
    }
}

bool Responder::StillWaits() const
{
    return seccomp_notify_id_valid(fd, request->id) == 0;
}

pid_t Responder::Thread() const
{
    return static_cast<pid_t>(request->pid);
}

std::uint64_t Responder::Argument(int index) const
{
    return request->data.args[index];
}

std::string Responder::AbsolutePath(const InterceptedCall& call, const std::string& path) const
{
    if (path.starts_with('/'))
    {
        return std::filesystem::path(path).lexically_normal();
    }
    const int directory =
        call.directory == InterceptedCall::NONE ? AT_FDCWD : static_cast<int>(Argument(call.directory));
    const std::string link = "/proc/" + std::to_string(Thread()) +
                             (directory == AT_FDCWD ? "/cwd" : "/fd/" + std::to_string(directory));
    std::error_code error;
    const std::filesystem::path start = std::filesystem::read_symlink(link, error);
    return error ? std::string() : (start / path).lexically_normal().string();
}

}

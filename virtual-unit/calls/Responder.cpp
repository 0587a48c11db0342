#include "virtual-unit/calls/Responder.h"

#include "virtual-unit/calls/ApplicationMemory.h"
#include "virtual-unit/time/VirtualTime.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <linux/seccomp.h>
#include <optional>
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

/// Has caller and supervisor take turns on one processor, which is faster than to wake another one. Since
/// Linux 6.6; older ones do without.
void TakeTurns(int notifications)
{
    constexpr unsigned long SET_FLAGS = _IOW('!', 4, std::uint64_t); // both are newer than the headers
    constexpr unsigned long SYNCHRONOUS_WAKE_UP = 1;
    static_cast<void>(ioctl(notifications, SET_FLAGS, SYNCHRONOUS_WAKE_UP));
}

/// @return the descriptor, as an answer, or the errno
Answer Open(ServedDevice& device, std::uint64_t flags)
{
    if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL))
    {
        return Answer::Error(EEXIST);
    }
    const int descriptor = device.Open(static_cast<int>(flags & ~CREATING_FLAGS) | O_CLOEXEC);
    Answer answer = Answer::Opened(descriptor, (flags & O_CLOEXEC) != 0);
    answer.holdsWrites = device.HoldsWrites();
    return descriptor < 0 ? Answer::Error(errno) : answer;
}

/// The memory of the process whose call is held.
class HeldMemory : public CallerMemory
{
public:
    explicit HeldMemory(pid_t holder) : thread(holder) {}

    int Read(std::uint64_t address, void* data, std::size_t size) override
    {
        return ApplicationMemory::Read(thread, address, data, size);
    }

    int Write(std::uint64_t address, const void* data, std::size_t size) override
    {
        return ApplicationMemory::Write(thread, address, data, size);
    }

private:
    pid_t thread;
};

/// A number that the caller does not use, from SystemCallFilter::FIRST_HELD_DESCRIPTOR on; none: there is
/// none.
std::optional<unsigned int> FreeHeldDescriptor(const seccomp_notif& request)
{
    constexpr unsigned int END = 1020; // select() knows no more than 1024
    const std::string descriptors = "/proc/" + std::to_string(request.pid) + "/fd/";
    for (unsigned int number = SystemCallFilter::FIRST_HELD_DESCRIPTOR; number < END; ++number)
    {
        struct stat status = {};
        if (lstat((descriptors + std::to_string(number)).c_str(), &status) != 0 && errno == ENOENT)
        {
            return number;
        }
    }
    return std::nullopt;
}

bool IsOfCard(const UnitPath& path)
{
    return path.IsOnCard() || path.LeavesCard();
}

/// Served by a socket, the device shows as the character device that it stands for.
template <class Mode>
void ShowAsDevice(Mode& mode)
{
    constexpr Mode EVERYBODY = 0666;
    if (S_ISSOCK(mode))
    {
        mode = S_IFCHR | EVERYBODY;
    }
}

}

Responder::Responder(int notifications, const SystemCallFilter& filter, const DeviceTable& devices,
                     const StorageCard& theCard, Report report)
    : fd(notifications), systemCalls(filter), table(devices), card(theCard),
      cardCalls(theCard, devices.Card(), [this](const std::string& line) { ReportOnce(line); }),
      reportLine(std::move(report))
{
    if (const int result = seccomp_notify_alloc(&request, &response); result < 0)
    {
        throw std::system_error(-result, std::generic_category(), "seccomp notification");
    }
    TakeTurns(fd);
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

Answer Responder::Find()
{
    const InterceptedCall* call = systemCalls.Find(request->data.nr);
    if (call == nullptr)
    {
        return Answer::GoOn();
    }
    if (call->kind == Kind::Forbidden)
    {
        return Forbid(call->name);
    }

    const HeldCall held(*request, *call);
    if (call->kind == Kind::Execute)
    {
        VirtualTime::Executes(held.Thread());
    }
    if (call->kind == Kind::Ioctl)
    {
        return FindForIoctl(held);
    }
    if (call->MayGrowFile())
    {
        return FindForWrite(held);
    }
    if (call->Syncs())
    {
        cardCalls.Sync(held);
        return Answer::GoOn();
    }
    std::string path;
    std::string otherPath;
    const int error = held.ReadPath(held.Path(), path);
    const int otherError = held.ReadPath(held.OtherPath(), otherPath);
    const UnitPath absolute = Absolute(held, held.Path(), path);
    const UnitPath otherAbsolute = Absolute(held, held.OtherPath(), otherPath);
    const bool unmounts = call->kind == Kind::Unmount; // it never goes on to the kernel
    if (error != 0 || otherError != 0)
    {
        return RefuseUnreadable(held, error != 0 ? error : otherError,
                                unmounts || BelongsToUnit(absolute) || BelongsToUnit(otherAbsolute));
    }
    if (unmounts)
    {
        return FindForUnmount(held, absolute);
    }
    return FindForPaths(held, absolute, otherAbsolute);
}

Answer Responder::Forbid(const char* name)
{
    ReportOnce(std::string(name) + " is refused: it would touch this machine's mounts or power");
    return Answer::Error(EPERM);
}

Answer Responder::FindForUnmount(const HeldCall& held, const UnitPath& path)
{
    if (!path.IsCard())
    {
        return Forbid(held.Name());
    }
    return StillWaits() ? cardCalls.Unmount(held) : Answer::None();
}

bool Responder::BelongsToUnit(const UnitPath& path) const
{
    return IsOfCard(path) || table.BelongsToUnit(path.Text());
}

Answer Responder::RefuseUnreadable(const HeldCall& held, int error, bool ofUnit)
{
    switch (error)
    {
    case EFAULT:
    case ENAMETOOLONG:
        // The kernel says the same, unless it does not find the other path, which is the unit's.
        return ofUnit ? Answer::Error(error) : Answer::GoOn();
    case ESRCH:
        return Answer::None();
    default:
        ReportOnce(std::string(held.Name()) + " of process " + std::to_string(held.Thread()) +
                   " is refused: its memory cannot be read (a program without read permission?)");
        return Answer::Error(EACCES);
    }
}

Answer Responder::FindForPaths(const HeldCall& held, const UnitPath& path, const UnitPath& otherPath)
{
    if (path.IsMountTable() && (held.Kind() == Kind::Open || held.Kind() == Kind::OpenHow))
    {
        return cardCalls.OpenMountTable(held);
    }
    const bool onCard = IsOfCard(path) || IsOfCard(otherPath);
    const UnitPath& devicePath = table.BelongsToUnit(path.Text()) ? path : otherPath;
    if (!onCard && !table.BelongsToUnit(devicePath.Text()))
    {
        return Answer::GoOn();
    }
    if (!StillWaits()) // what was read may have been another process' by then
    {
        return Answer::None();
    }
    return onCard ? cardCalls.Find(held, path, otherPath) : FindForDevice(held, devicePath.Text());
}

Answer Responder::FindForIoctl(const HeldCall& held)
{
    ServedDevice* device = table.FindOpened(held.LinkOf(held.OwnArgument()));
    if (device == nullptr || !StillWaits())
    {
        return device == nullptr ? Answer::GoOn() : Answer::None();
    }
    HeldMemory memory(held.Thread());
    const std::optional<ServedDevice::IoctlResult> result =
        device->Ioctl(held.OwnArgument(1), held.OwnArgument(2), memory);
    if (table.Power().IsCut()) // by this very call: the program does not see it return
    {
        return Answer::None();
    }
    if (!result)
    {
        return Answer::GoOn();
    }
    Answer answer = Answer::Returned(result->value, result->takes);
    answer.type = result->again ? Answer::Type::Again : answer.type;
    return answer;
}

Answer Responder::FindForWrite(const HeldCall& held)
{
    const int gone = table.WriteError(held.LinkOf(held.OwnArgument()));
    const int error = gone != 0 ? gone : cardCalls.RefusalToWrite(held);
    return error == 0 ? Answer::GoOn() : StillWaits() ? Answer::Error(error) : Answer::None();
}

Answer Responder::FindForDevice(const HeldCall& held, const std::string& path)
{
    ServedDevice* device = table.Find(path);
    if (device == nullptr)
    {
        ReportOnce(path + " is not served by the virtual unit: no such file for the application");
        return Answer::Error(ENOENT);
    }
    if (!device->Exists())
    {
        ReportOnce(path + " is not there: its device is off the bus");
        return Answer::Error(ENOENT);
    }
    switch (held.Kind())
    {
    case Kind::Open:
        return Open(*device, held.OwnArgument());
    case Kind::Create:
        return Open(*device, O_CREAT | O_WRONLY | O_TRUNC);
    case Kind::OpenHow: {
        open_how how = {};
        const int error = held.ReadOpenHow(how);
        return error == 0 ? Open(*device, how.flags) : Answer::Error(error);
    }
    case Kind::Access:
        return (held.OwnArgument() & X_OK) != 0 ? Answer::Error(EACCES) : Answer::Success();
    case Kind::Status: {
        struct stat status = {};
        if (fstat(device->Descriptor(), &status) != 0)
        {
            return Answer::Error(errno);
        }
        ShowAsDevice(status.st_mode);
        return held.Store(&status, sizeof(status), held.OwnArgument());
    }
    case Kind::StatusX: {
        struct statx status = {};
        const auto mask = static_cast<unsigned int>(held.OwnArgument());
        if (statx(device->Descriptor(), "", AT_EMPTY_PATH, mask, &status) != 0)
        {
            return Answer::Error(errno);
        }
        ShowAsDevice(status.stx_mode);
        return held.Store(&status, sizeof(status), held.OwnArgument(1));
    }
    case Kind::ReadLink:
        return Answer::Error(EINVAL); // not a symbolic link
    case Kind::Attribute:
        return Answer::Error(EOPNOTSUPP);
    case Kind::ChangeDirectory:
        return Answer::Error(ENOTDIR);
    case Kind::Execute:
        return Answer::Error(EACCES);
    default:
        ReportOnce(std::string(held.Name()) + " of " + path + " is refused");
        return Answer::Error(EPERM);
    }
}

void Responder::Send(const Answer& answer)
{
    if (answer.type == Answer::Type::None)
    {
        return;
    }
    if (answer.after.count() > 0)
    {
        later.push_back({Clock::now() + answer.after, *request, answer});
        return;
    }
    Deliver(answer);
}

/// The answer to the present request.
void Responder::Deliver(const Answer& answer) const
{
    const bool opens = answer.type == Answer::Type::Descriptor;
    if (!opens || !Place(answer))
    {
        Respond(request->id, opens ? Answer::Error(errno) : answer);
    }
}

/// Gives a descriptor to the caller, and closes it here. @return false, and errno, when it could not be given
bool Responder::Place(const Answer& answer) const
{
    const std::optional<unsigned int> number =
        answer.holdsWrites ? FreeHeldDescriptor(*request) : std::nullopt;
    int error = Add(answer, number);
    if (number && (error == EBADF || error == EMFILE)) // beyond the limit of the process
    {
        error = Add(answer, std::nullopt);
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
int Responder::Add(const Answer& answer, std::optional<unsigned int> number) const
{
    seccomp_notif_addfd addition = {};
    addition.id = request->id;
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

void Responder::Respond(std::uint64_t id, const Answer& answer) const
{
    *response = {};
    response->id = id;
    response->error = -answer.error;
    response->val = answer.value;
    response->flags = answer.type == Answer::Type::GoOn ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    seccomp_notify_respond(fd, response); // fails when the caller is gone
}

std::optional<Responder::Clock::time_point> Responder::NextDeadline() const
{
    const auto next = std::ranges::min_element(later, {}, &Later::due);
    return next == later.end() ? std::nullopt : std::optional(next->due);
}

void Responder::AnswerDue()
{
    const Clock::time_point now = Clock::now();
    std::vector<Later> due;
    std::erase_if(later, [&](const Later& waiting) {
        const bool isDue = waiting.due <= now;
        if (isDue)
        {
            due.push_back(waiting);
        }
        return isDue;
    });
    for (const Later& call : due)
    {
        *request = call.request;
        if (call.answer.type != Answer::Type::Again)
        {
            Deliver(call.answer);
        }
        else if (StillWaits())
        {
            Send(Find());
        }
    }
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

UnitPath Responder::Absolute(const HeldCall& held, const InterceptedCall::NamedPath& where,
                             const std::string& path) const
{
    if (path.empty() || path.starts_with('/'))
    {
        return UnitPath(path);
    }
    const int directory = where.directory == InterceptedCall::NONE
                              ? AT_FDCWD
                              : static_cast<int>(held.Argument(where.directory));
    const std::string link = "/proc/" + std::to_string(held.Thread()) +
                             (directory == AT_FDCWD ? "/cwd" : "/fd/" + std::to_string(directory));
    std::error_code error;
    const std::filesystem::path start = std::filesystem::read_symlink(link, error);
    if (error)
    {
        return {};
    }
    const std::optional<std::string> below = card.Find(start);
    return below ? UnitPath(std::filesystem::path(UnitPath::CARD) / *below / path,
                            directory == AT_FDCWD ? UnitPath::Start::CardWorkingDirectory
                                                  : UnitPath::Start::CardDescriptor)
                 : UnitPath(start / path);
}

}

#include "virtual-unit/calls/Responder.h"

#include "virtual-unit/time/VirtualTime.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;

constexpr std::uint64_t CREATING_FLAGS = O_CREAT | O_EXCL | O_TRUNC;

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
    explicit HeldMemory(const HeldCall& held) : call(held) {}

    int Read(std::uint64_t address, void* data, std::size_t size) override
    {
        return call.Read(address, data, size);
    }

    int Write(std::uint64_t address, const void* data, std::size_t size) override
    {
        return call.Write(address, data, size);
    }

private:
    const HeldCall& call;
};

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

Responder::Responder(CallSource& callSource, const InterceptedCalls& intercepted, const DeviceTable& devices,
                     const StorageCard& theCard, Report report)
    : source(callSource), systemCalls(intercepted), table(devices), card(theCard),
      cardCalls(theCard, devices.Card(), [this](const std::string& line) { ReportOnce(line); }),
      reportLine(std::move(report))
{
}

void Responder::AnswerNext()
{
    if (const std::optional<WaitingCall> next = source.Next())
    {
        request = *next;
        Send(Find());
    }
}

Answer Responder::Find()
{
    const InterceptedCall* call = systemCalls.Find(request.number);
    if (call == nullptr)
    {
        return Answer::GoOn();
    }
    if (call->kind == Kind::Forbidden)
    {
        return Forbid(call->name);
    }

    const HeldCall held(source, request, *call);
    if (call->kind == Kind::Execute && !request.byChild)
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

Answer Responder::LetExecute(const std::string& path)
{
    if (const std::optional<std::string> reason = source.WhyOutOfReach(path))
    {
        ReportOnce(path + " is refused: " + *reason + " and would run past the virtual unit");
        return Answer::Error(EACCES);
    }
    return Answer::GoOn();
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
        return held.Kind() == Kind::Execute ? LetExecute(path.Text()) : Answer::GoOn();
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
    HeldMemory memory(held);
    const std::optional<ServedDevice::IoctlResult> result =
        device->Ioctl(static_cast<unsigned long>(held.OwnArgument(1)), held.OwnArgument(2), memory);
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
        later.push_back({Clock::now() + answer.after, request, answer});
        return;
    }
    source.Respond(request, answer);
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
        request = call.request;
        if (call.answer.type != Answer::Type::Again)
        {
            source.Respond(request, call.answer);
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

bool Responder::StillWaits()
{
    return source.StillWaits(request);
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

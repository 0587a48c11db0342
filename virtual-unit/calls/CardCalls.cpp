#include "virtual-unit/calls/CardCalls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/openat2.h>
#include <optional>
#include <sstream>
#include <string_view>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;
using Clock = std::chrono::steady_clock;

template <class Data>
Answer Stored(const HeldCall& held, int error, const Data& data, std::uint64_t address)
{
    return error == 0 ? held.Store(&data, sizeof(data), address) : Answer::Error(error);
}

constexpr std::uint64_t NO_DESCRIPTOR = UINT64_MAX;

/// Where an open file is written to next.
struct FilePosition
{
    static FilePosition Of(const HeldCall& held, off_t size)
    {
        constexpr int OCTAL = 8;
        FilePosition position;
        std::string link = held.LinkOf(held.OwnArgument());
        std::ifstream info(link.replace(link.find("/fd/"), 4, "/fdinfo/"));
        std::string flags;
        for (std::string name, value; info >> name >> value;)
        {
            position.bytes = name == "pos:" ? std::strtoull(value.c_str(), nullptr, 10) : position.bytes;
            flags = name == "flags:" ? value : flags;
        }
        const unsigned long bits = std::strtoul(flags.c_str(), nullptr, OCTAL);
        position.canWrite = (bits & O_ACCMODE) != O_RDONLY;
        position.bytes = (bits & O_APPEND) != 0 ? static_cast<std::uint64_t>(size) : position.bytes;
        return position;
    }

    bool canWrite = false;
    std::uint64_t bytes = 0;
};

std::uint64_t SizeOfPieces(const HeldCall& held)
{
    constexpr std::uint64_t MOST_PIECES = IOV_MAX;
    std::vector<iovec> pieces(static_cast<std::size_t>(std::min(held.OwnArgument(2), MOST_PIECES)));
    std::uint64_t size = 0;
    if (held.Read(held.OwnArgument(1), pieces.data(), pieces.size() * sizeof(iovec)) == 0)
    {
        for (const iovec& piece : pieces)
        {
            size += piece.iov_len;
        }
    }
    return size;
}

/// How far the file reaches when the call has been carried out, if it grows by that.
std::uint64_t EndOfWrite(const HeldCall& held, std::uint64_t position)
{
    switch (held.Kind())
    {
    case Kind::Write:
        return position + held.OwnArgument(2);
    case Kind::WriteAt:
        return held.OwnSize(3) + held.OwnArgument(2);
    case Kind::WriteVector:
        return position + SizeOfPieces(held);
    case Kind::WriteVectorAt: {
        const std::uint64_t at = held.OwnSize(3);
        return (at == UINT64_MAX ? position : at) + SizeOfPieces(held); // pwritev2() writes on then
    }
    case Kind::Resize:
        return held.OwnSize(1);
    default:
        return UINT64_MAX;
    }
}

/// Lets this process create files as the application would, for as long as the object lives. No other thread
/// of this process creates any.
class UmaskOf
{
public:
    explicit UmaskOf(pid_t thread) : former(umask(0)) { umask(Find(thread).value_or(former)); }

    UmaskOf(const UmaskOf&) = delete;
    UmaskOf& operator=(const UmaskOf&) = delete;

    ~UmaskOf() { umask(former); }

private:
    static std::optional<mode_t> Find(pid_t thread)
    {
        constexpr std::string_view NAME = "Umask:";
        constexpr int OCTAL = 8;
        std::ifstream file("/proc/" + std::to_string(thread) + "/status");
        for (std::string line; std::getline(file, line);)
        {
            if (line.starts_with(NAME))
            {
                return static_cast<mode_t>(std::strtoul(line.c_str() + NAME.size(), nullptr, OCTAL));
            }
        }
        return std::nullopt;
    }

    mode_t former;
};

}

CardCalls::CardCalls(const StorageCard& theCard, CardSlot& itsSlot,
                     std::function<void(const std::string& line)> report)
    : card(theCard), slot(itsSlot), reportLine(std::move(report))
{
    if (slot.losesUnsynced)
    {
        unsynced.emplace(card.Directory());
    }
}

Answer CardCalls::Find(const HeldCall& held, const UnitPath& path, const UnitPath& otherPath)
{
    const int refusal =
        path.LeavesCard() || otherPath.LeavesCard() ? 0 : Refusal(held, path.IsOnCard() ? path : otherPath);
    Answer answer = refusal != 0 ? Answer::Error(refusal) : FindPlaced(held, path, otherPath);
    answer.after = slot.Present().slow;
    return answer;
}

/// @return the errno that the card in its present condition answers with; 0: none
int CardCalls::Refusal(const HeldCall& held, const UnitPath& path) const
{
    const CardSlot::Condition condition = slot.Present();
    if (condition.out)
    {
        return path.IsCard() ? 0 : EIO; // the mount point itself is the root's
    }
    if (!condition.readOnly)
    {
        return condition.full ? RefusalOfFull(held, path) : 0;
    }
    switch (held.Kind())
    {
    case Kind::Create:
    case Kind::MakeDirectory:
    case Kind::RemoveDirectory:
    case Kind::Remove:
    case Kind::Rename:
    case Kind::Truncate:
    case Kind::ChangeMode:
    case Kind::ChangeOwner:
    case Kind::ChangeTimes:
        return EROFS;
    case Kind::Access:
        return (held.OwnArgument() & W_OK) != 0 ? EROFS : 0;
    case Kind::Open:
    case Kind::OpenHow:
        return RefusalToOpen(held, path);
    default:
        return 0;
    }
}

int CardCalls::RefusalToOpen(const HeldCall& held, const UnitPath& path) const
{
    open_how how = {};
    if (const int error = held.ReadOpenHow(how); error != 0)
    {
        return error;
    }
    struct stat status = {};
    const bool isThere = card.Status(path.BelowCard(), status) == 0;
    const bool changes = (how.flags & O_ACCMODE) != O_RDONLY || (how.flags & O_TRUNC) != 0;
    return isThere                      ? (changes && S_ISREG(status.st_mode) ? EROFS : 0)
           : (how.flags & O_CREAT) != 0 ? EROFS
                                        : 0;
}

int CardCalls::RefusalOfFull(const HeldCall& held, const UnitPath& path) const
{
    struct stat status = {};
    const bool isThere = card.Status(path.BelowCard(), status) == 0;
    switch (held.Kind())
    {
    case Kind::Create:
    case Kind::MakeDirectory:
        return isThere ? 0 : ENOSPC;
    case Kind::Open:
    case Kind::OpenHow: {
        open_how how = {};
        const int error = held.ReadOpenHow(how);
        return error == 0 && !isThere && (how.flags & O_CREAT) != 0 ? ENOSPC : error;
    }
    case Kind::Truncate:
        return isThere && static_cast<off_t>(held.OwnSize()) > status.st_size ? ENOSPC : 0;
    default:
        return 0;
    }
}

bool CardCalls::IsOnCard(const std::string& link) const
{
    std::error_code error;
    return card.Find(std::filesystem::read_symlink(link, error)).has_value();
}

int CardCalls::RefusalToWrite(const HeldCall& held) const
{
    const std::string link = held.LinkOf(held.OwnArgument());
    struct stat status = {};
    if (!slot.Present().full || !IsOnCard(link) || stat(link.c_str(), &status) != 0)
    {
        return 0;
    }
    const FilePosition position = FilePosition::Of(held, status.st_size);
    return position.canWrite && EndOfWrite(held, position.bytes) > static_cast<std::uint64_t>(status.st_size)
               ? ENOSPC
               : 0;
}

void CardCalls::Sync(const HeldCall& held)
{
    if (!unsynced)
    {
        return;
    }
    switch (held.Kind())
    {
    case Kind::Sync:
        unsynced->Synced(held.LinkOf(held.OwnArgument())); // one that is not on the card is not known
        break;
    case Kind::SyncVolume:
        if (held.OwnArgumentOr(NO_DESCRIPTOR) == NO_DESCRIPTOR || IsOnCard(held.LinkOf(held.OwnArgument())))
        {
            unsynced->SyncedAll();
        }
        break;
    default:
        SyncMapping(held);
    }
}

/// The files of which the caller has something mapped there: each of them as a whole.
void CardCalls::SyncMapping(const HeldCall& held)
{
    const std::uint64_t begin = held.OwnArgument();
    const std::uint64_t end = begin + held.OwnArgument(1);
    if ((held.OwnArgument(2) & MS_SYNC) == 0)
    {
        return;
    }
    std::ifstream maps("/proc/" + std::to_string(held.Thread()) + "/maps");
    for (std::string line; std::getline(maps, line);)
    {
        std::istringstream fields(line);
        std::uint64_t from = 0;
        std::uint64_t to = 0;
        char dash = 0;
        std::string ignored; // permissions, place in the file, device, inode
        fields >> std::hex >> from >> dash >> to >> ignored >> ignored >> ignored >> ignored >> std::ws;
        std::string file;
        if (from < end && begin < to && std::getline(fields, file) && card.Find(file))
        {
            unsynced->Synced(file);
        }
    }
}

void CardCalls::LosePower()
{
    if (!unsynced)
    {
        return;
    }
    unsynced->Drop([this](const std::string& file, std::ptrdiff_t left) {
        const std::string name = std::string(UnitPath::CARD) + "/" + file;
        reportLine(left < 0
                       ? name + " is lost: it was never synced"
                       : name + " has lost what was not synced: " + std::to_string(left) + " bytes are left");
    });
}

Answer CardCalls::FindPlaced(const HeldCall& held, const UnitPath& path, const UnitPath& otherPath)
{
    if (path.LeavesCard() || otherPath.LeavesCard())
    {
        return FindBeyond(held, path.LeavesCard() ? path : otherPath);
    }
    switch (held.Kind())
    {
    case Kind::MakeNode:
        return Answer::Error(EPERM);
    case Kind::Rename:
        if (!path.IsOnCard() || !otherPath.IsOnCard())
        {
            return Answer::Error(EXDEV);
        }
        return Answer::Error(card.Rename(path.BelowCard(), otherPath.BelowCard(),
                                         static_cast<unsigned int>(held.OwnArgumentOr(0))));
    default:
        return FindForPath(held, path.IsOnCard() ? path : otherPath);
    }
}

Answer CardCalls::Unmount(const HeldCall& held)
{
    if (!slot.Present().mounted)
    {
        return Answer::Error(EINVAL);
    }
    const bool detaches = (held.OwnArgumentOr(0) & MNT_DETACH) != 0;
    if (const std::optional<std::string> used = FindInUse(held); used && !detaches)
    {
        reportLine(std::string(UnitPath::CARD) + " stays mounted: the program uses " + *used);
        slot.Tell("card stays mounted", Clock::now());
        return Answer::Error(EBUSY);
    }
    if (slot.Present().busy && !detaches)
    {
        reportLine(std::string(UnitPath::CARD) + " stays mounted: it is busy");
        slot.Tell("card stays mounted", Clock::now());
        return Answer::Error(EBUSY);
    }
    slot.Change([](CardSlot::Condition& condition) { condition.mounted = false; });
    slot.Tell("card unmounted", Clock::now());
    if (unsynced)
    {
        unsynced->SyncedAll();
    }
    reportLine(std::string(UnitPath::CARD) + " is unmounted");
    return Answer::Success();
}

/// What the calling program has open on the card, or its working directory there: as a path of the unit.
std::optional<std::string> CardCalls::FindInUse(const HeldCall& held) const
{
    namespace fs = std::filesystem;
    const fs::path process = "/proc/" + std::to_string(held.Thread());
    std::vector<fs::path> links = {process / "cwd"};
    std::error_code error;
    for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
         entry.increment(error))
    {
        links.push_back(entry->path());
    }
    for (const fs::path& link : links)
    {
        const fs::path target = fs::read_symlink(link, error);
        if (const std::optional<std::string> below = card.Find(target))
        {
            return fs::path(UnitPath::CARD) / *below;
        }
    }
    return std::nullopt;
}

Answer CardCalls::OpenMountTable(const HeldCall& held) const
{
    open_how how = {};
    if (const int error = held.ReadOpenHow(how); error != 0)
    {
        return Answer::Error(error);
    }
    if ((how.flags & O_ACCMODE) != O_RDONLY)
    {
        return Answer::Error(EACCES);
    }
    std::string table = "/dev/root / ext4 rw,relatime 0 0\n";
    if (const CardSlot::Condition condition = slot.Present(); condition.mounted)
    {
        table += std::string("/dev/mmcblk3p1 ") + UnitPath::CARD +
                 (condition.readOnly ? " vfat ro,relatime 0 0\n" : " vfat rw,relatime 0 0\n");
    }
    const Descriptor content(memfd_create("mounts", MFD_CLOEXEC));
    if (content.Get() < 0 ||
        write(content.Get(), table.data(), table.size()) != static_cast<ssize_t>(table.size()))
    {
        return Answer::Error(errno);
    }
    const std::string name = "/proc/self/fd/" + std::to_string(content.Get());
    const int opened = open(name.c_str(), O_RDONLY | O_CLOEXEC); // from its beginning
    return opened < 0 ? Answer::Error(errno) : Answer::Opened(opened, (how.flags & O_CLOEXEC) != 0);
}

Answer CardCalls::FindForPath(const HeldCall& held, const UnitPath& path)
{
    const std::string below = path.BelowCard();
    switch (held.Kind())
    {
    case Kind::Open:
        return Open(held, below, held.OwnArgument(), held.OwnArgument(1));
    case Kind::Create:
        return Open(held, below, O_CREAT | O_WRONLY | O_TRUNC, held.OwnArgument());
    case Kind::OpenHow:
        return OpenHow(held, path);
    case Kind::Access:
        return Answer::Error(card.Access(below, static_cast<int>(held.OwnArgument())));
    case Kind::Status: {
        struct stat status = {};
        return Stored(held, card.Status(below, status), status, held.OwnArgument());
    }
    case Kind::StatusX: {
        struct statx status = {};
        const auto mask = static_cast<unsigned int>(held.OwnArgument());
        return Stored(held, card.StatusX(below, mask, status), status, held.OwnArgument(1));
    }
    case Kind::VolumeStatus: {
        struct statfs status = {};
        const int error = card.VolumeStatus(below, status);
        if (slot.Present().full)
        {
            status.f_bfree = 0;
            status.f_bavail = 0;
        }
        return Stored(held, error, status, held.OwnArgument());
    }
    case Kind::ReadLink:
    case Kind::Attribute: {
        // Of what is there: no symbolic link for the application, and without such attributes.
        struct stat status = {};
        const int error = card.Status(below, status);
        return Answer::Error(error != 0 ? error : held.Kind() == Kind::ReadLink ? EINVAL : EOPNOTSUPP);
    }
    case Kind::MakeDirectory: {
        const UmaskOf application(held.Thread());
        return Answer::Error(card.MakeDirectory(below, static_cast<mode_t>(held.OwnArgument())));
    }
    case Kind::RemoveDirectory:
        return Answer::Error(card.RemoveDirectory(below));
    case Kind::Remove:
        return Answer::Error((held.OwnArgumentOr(0) & AT_REMOVEDIR) != 0 ? card.RemoveDirectory(below)
                                                                         : card.RemoveFile(below));
    case Kind::Truncate:
        if (unsynced)
        {
            unsynced->Changes(card.Directory() + "/" + below);
        }
        return Answer::Error(card.Truncate(below, static_cast<off_t>(held.OwnSize())));
    case Kind::ChangeMode:
        return Answer::Error(card.ChangeMode(below, static_cast<mode_t>(held.OwnArgument())));
    case Kind::ChangeOwner:
        return Answer::Error(card.ChangeOwner(below, static_cast<uid_t>(held.OwnArgument()),
                                              static_cast<gid_t>(held.OwnArgument(1))));
    case Kind::ChangeTimes:
        return ChangeTimes(held, below);
    case Kind::ChangeDirectory:
        return ChangeDirectory(path);
    case Kind::Execute:
        // A program that was started in the directory behind the card may be executed by its own path there.
        return path.StartsFrom(UnitPath::Start::CardWorkingDirectory)
                   ? Answer::GoOn()
                   : Refuse(held, path, EACCES, "programs on the storage card are not executed");
    default:
        return Refuse(held, path, EPERM, "the storage card does not do it");
    }
}

Answer CardCalls::FindBeyond(const HeldCall& held, const UnitPath& path)
{
    // What a listing with ".." needs; nothing is touched by it.
    switch (held.Kind())
    {
    case Kind::Status: {
        struct stat status = {};
        const int error = stat(path.Text().c_str(), &status) == 0 ? 0 : errno;
        return Stored(held, error, status, held.OwnArgument());
    }
    case Kind::StatusX: {
        struct statx status = {};
        const auto mask = static_cast<unsigned int>(held.OwnArgument());
        const int error = statx(AT_FDCWD, path.Text().c_str(), 0, mask, &status) == 0 ? 0 : errno;
        return Stored(held, error, status, held.OwnArgument(1));
    }
    default:
        return Refuse(held, path, EACCES, "the way leads over the storage card and out of it");
    }
}

Answer CardCalls::Open(const HeldCall& held, const std::string& path, std::uint64_t flags, std::uint64_t mode)
{
    std::optional<UmaskOf> application;
    if ((flags & O_CREAT) != 0)
    {
        application.emplace(held.Thread());
    }
    if ((flags & O_PATH) != 0)
    {
        // Such a descriptor cannot be given to another process; one for reading is as good.
        flags = (flags & (O_DIRECTORY | O_CLOEXEC)) | O_RDONLY;
    }
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    const std::string file = card.Directory() + "/" + path;
    struct stat former = {};
    const bool isNew = card.Status(path, former) != 0;
    if (unsynced && !isNew && (writes || (flags & O_TRUNC) != 0))
    {
        unsynced->Changes(file);
    }
    Descriptor opened;
    if (const int error = card.Open(path, static_cast<int>(flags), static_cast<mode_t>(mode), opened);
        error != 0)
    {
        return Answer::Error(error);
    }
    if (unsynced && isNew)
    {
        unsynced->Made(file);
    }
    if (unsynced && writes && (flags & O_DSYNC) != 0) // a part of O_SYNC
    {
        unsynced->SyncsItself(file);
    }
    Answer answer = Answer::Opened(opened.Release(), (flags & O_CLOEXEC) != 0);
    answer.holdsWrites = writes && (slot.mayBecomeFull || slot.Present().full);
    return answer;
}

Answer CardCalls::OpenHow(const HeldCall& held, const UnitPath& path)
{
    open_how how = {};
    if (const int error = held.ReadOpenHow(how); error != 0)
    {
        return Answer::Error(error);
    }
    const bool bounded = (how.resolve & (RESOLVE_BENEATH | RESOLVE_IN_ROOT)) != 0;
    return bounded && path.StartsFrom(UnitPath::Start::Elsewhere)
               ? Answer::Error(EXDEV)
               : Open(held, path.BelowCard(), how.flags, how.mode);
}

Answer CardCalls::ChangeTimes(const HeldCall& held, const std::string& path)
{
    std::array<timespec, 2> times = {};
    const std::uint64_t address = held.OwnArgument();
    const int error = address == 0 ? 0 : held.Read(address, times.data(), sizeof(times));
    return Answer::Error(error != 0 ? error : card.ChangeTimes(path, address == 0 ? nullptr : times.data()));
}

Answer CardCalls::ChangeDirectory(const UnitPath& path)
{
    Descriptor directory;
    if (const int error = card.Open(path.BelowCard(), O_PATH | O_DIRECTORY, 0, directory); error != 0)
    {
        return Answer::Error(error);
    }
    if (path.StartsFrom(UnitPath::Start::CardWorkingDirectory))
    {
        return Answer::GoOn(); // from there the kernel finds the way by itself
    }
    reportLine(std::string("chdir to ") + UnitPath::CARD +
               " is refused: the working directory of a program cannot be set from outside");
    return Answer::Error(EACCES);
}

Answer CardCalls::Refuse(const HeldCall& held, const UnitPath& path, int error, const char* reason)
{
    reportLine(std::string(held.Name()) + " of " + path.Text() + " is refused: " + reason);
    return Answer::Error(error);
}

}

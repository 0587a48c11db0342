#include "virtual-unit/calls/StorageCard.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

constexpr const char* THIS_DIRECTORY = ".";
constexpr mode_t ROOT_MODE = 0755;
constexpr mode_t PERMISSION_BITS = 07777;

int ErrorOf(int result)
{
    return result < 0 ? errno : 0;
}

/// Opens a directory; the way to it stays below `root` and passes through no link.
int OpenBelow(int root, const std::string& path)
{
    open_how how = {};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_SYMLINKS;
    return static_cast<int>(syscall(SYS_openat2, root, path.c_str(), &how, sizeof(how)));
}

}

/// Where a path leads to: a directory, and a name in it that need not be there.
struct StorageCard::Place
{
    int error = 0;
    Descriptor directory;
    std::string name;
    bool isRoot = false;
    bool mustBeDirectory = false;

    int Status(struct stat& status) const
    {
        return fstatat(directory.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    }

    bool HasType(mode_t type) const
    {
        struct stat status = {};
        return Status(status) == 0 && (status.st_mode & S_IFMT) == type;
    }

    /// A descriptor of what is there, good for its status only; a link is not followed.
    Descriptor Reference() const
    {
        return Descriptor(openat(directory.Get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    }
};

StorageCard::StorageCard(const std::string& directory)
{
    const auto check = [&directory](bool good) {
        if (!good)
        {
            throw Unusable(directory + ": " + std::generic_category().message(errno));
        }
    };
    check(mkdir(directory.c_str(), ROOT_MODE) == 0 || errno == EEXIST);
    rootDescriptor = Descriptor(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    check(rootDescriptor.Get() >= 0);
    check(faccessat(rootDescriptor.Get(), THIS_DIRECTORY, R_OK | W_OK | X_OK, AT_EACCESS) == 0);
    root = std::filesystem::canonical(directory);
}

std::optional<std::string> StorageCard::Find(const std::string& path) const
{
    if (path == root)
    {
        return std::string();
    }
    return path.starts_with(root + '/') ? std::optional(path.substr(root.size() + 1)) : std::nullopt;
}

StorageCard::Place StorageCard::Locate(const std::string& path) const
{
    Place place;
    const std::size_t end = path.find_last_not_of('/') + 1;
    const std::string plain = path.substr(0, end);
    const std::size_t slash = plain.rfind('/');
    place.isRoot = plain.empty();
    place.name = place.isRoot ? THIS_DIRECTORY : plain.substr(slash + 1);
    place.directory = Descriptor(OpenBelow(
        rootDescriptor.Get(), slash == std::string::npos ? THIS_DIRECTORY : plain.substr(0, slash)));
    if (place.directory.Get() < 0)
    {
        place.error = errno;
        return place;
    }
    place.mustBeDirectory = end < path.size();
    struct stat status = {};
    if (place.mustBeDirectory && place.Status(status) == 0 && !S_ISDIR(status.st_mode))
    {
        place.error = ENOTDIR;
    }
    return place;
}

template <class Operation>
int StorageCard::At(const std::string& path, Operation&& operation) const
{
    const Place place = Locate(path);
    return place.error != 0 ? place.error : operation(place);
}

int StorageCard::Open(const std::string& path, int flags, mode_t mode, Descriptor& opened) const
{
    const Place place = Locate(path);
    if (place.error != 0)
    {
        return place.error;
    }
    if ((flags & O_TMPFILE) == O_TMPFILE)
    {
        return EOPNOTSUPP;
    }
    if (place.mustBeDirectory && (flags & O_CREAT) != 0)
    {
        return EISDIR;
    }
    struct stat status = {};
    if (place.Status(status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    {
        const bool mustBeNew = (flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL);
        return mustBeNew ? EEXIST : S_ISLNK(status.st_mode) ? ELOOP : EACCES;
    }
    opened = Descriptor(openat(place.directory.Get(), place.name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC,
                               mode & PERMISSION_BITS));
    return ErrorOf(opened.Get());
}

int StorageCard::Status(const std::string& path, struct stat& status) const
{
    return At(path, [&](const Place& place) { return ErrorOf(place.Status(status)); });
}

int StorageCard::StatusX(const std::string& path, unsigned int mask, struct statx& status) const
{
    return At(path, [&](const Place& place) {
        return ErrorOf(statx(place.directory.Get(), place.name.c_str(), AT_SYMLINK_NOFOLLOW, mask, &status));
    });
}

int StorageCard::VolumeStatus(const std::string& path, struct statfs& status) const
{
    return At(path, [&](const Place& place) {
        const Descriptor entry = place.Reference();
        return ErrorOf(entry.Get() < 0 ? -1 : fstatfs(entry.Get(), &status));
    });
}

int StorageCard::Access(const std::string& path, int mode) const
{
    return At(path, [&](const Place& place) {
        return ErrorOf(faccessat(place.directory.Get(), place.name.c_str(), mode, AT_SYMLINK_NOFOLLOW));
    });
}

int StorageCard::MakeDirectory(const std::string& path, mode_t mode) const
{
    return At(path, [&](const Place& place) {
        return place.isRoot ? EEXIST : ErrorOf(mkdirat(place.directory.Get(), place.name.c_str(), mode));
    });
}

int StorageCard::RemoveDirectory(const std::string& path) const
{
    return At(path, [&](const Place& place) {
        return place.isRoot ? EBUSY
                            : ErrorOf(unlinkat(place.directory.Get(), place.name.c_str(), AT_REMOVEDIR));
    });
}

int StorageCard::RemoveFile(const std::string& path) const
{
    return At(path, [&](const Place& place) {
        return place.isRoot ? EISDIR : ErrorOf(unlinkat(place.directory.Get(), place.name.c_str(), 0));
    });
}

int StorageCard::Rename(const std::string& from, const std::string& to, unsigned int flags) const
{
    constexpr unsigned int KNOWN_FLAGS = RENAME_NOREPLACE | RENAME_EXCHANGE;
    const Place source = Locate(from);
    const Place target = Locate(to);
    if (source.error != 0 || target.error != 0)
    {
        return source.error != 0 ? source.error : target.error;
    }
    if ((flags & ~KNOWN_FLAGS) != 0)
    {
        return EINVAL;
    }
    if (target.mustBeDirectory && !source.HasType(S_IFDIR))
    {
        return ENOTDIR;
    }
    // The root stands for itself as ".", which is not renamed (EBUSY).
    return ErrorOf(renameat2(source.directory.Get(), source.name.c_str(), target.directory.Get(),
                             target.name.c_str(), flags));
}

int StorageCard::Truncate(const std::string& path, off_t size) const
{
    Descriptor file;
    const int error = size < 0 ? EINVAL : Open(path, O_WRONLY, 0, file);
    return error != 0 ? error : ErrorOf(ftruncate(file.Get(), size));
}

int StorageCard::ChangeMode(const std::string& path, mode_t mode) const
{
    return At(path, [&](const Place& place) {
        if (place.HasType(S_IFLNK))
        {
            return ELOOP;
        }
        // By the name of a descriptor, since the call itself would follow a link.
        const Descriptor entry = place.Reference();
        const std::string name = "/proc/self/fd/" + std::to_string(entry.Get());
        return ErrorOf(entry.Get() < 0 ? -1 : chmod(name.c_str(), mode & PERMISSION_BITS));
    });
}

int StorageCard::ChangeOwner(const std::string& path, uid_t user, gid_t group) const
{
    constexpr std::uint32_t AS_IT_IS = UINT32_MAX;
    struct stat status = {};
    const int error = Status(path, status);
    const bool same =
        (user == AS_IT_IS || user == status.st_uid) && (group == AS_IT_IS || group == status.st_gid);
    return error != 0 ? error : same ? 0 : EPERM;
}

int StorageCard::ChangeTimes(const std::string& path, const timespec* times) const
{
    return At(path, [&](const Place& place) {
        return ErrorOf(utimensat(place.directory.Get(), place.name.c_str(), times, AT_SYMLINK_NOFOLLOW));
    });
}

}

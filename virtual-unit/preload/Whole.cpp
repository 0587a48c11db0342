// The functions of the C library that make several system calls by themselves, which no stand-in would see.

#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/StandIns.h"
#include "virtual-unit/preload/Status.h"

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <glob.h>
#include <mntent.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace VirtualUnit::Preload;

// NOLINTBEGIN(concurrency-mt-unsafe): as safe as what they stand in for

// Streams ------------------------------------------------------------------------------------------------

namespace
{

constexpr mode_t FOR_ALL = 0666;

/// What fopen() opens a file with.
int FlagsOf(const char* mode)
{
    const bool both = std::strchr(mode, '+') != nullptr;
    int flags = both ? O_RDWR : *mode == 'r' ? O_RDONLY : O_WRONLY;
    flags |= *mode == 'w' ? O_CREAT | O_TRUNC : *mode == 'a' ? O_CREAT | O_APPEND : 0;
    flags |= std::strchr(mode, 'x') != nullptr ? O_EXCL : 0;
    return flags | (std::strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0);
}

Reply AskToOpen(const char* path, int flags, int directory = AT_FDCWD)
{
    return Ask(SYS_openat, directory, path, flags, FOR_ALL);
}

/// The same path, as a descriptor of this process.
class Opened
{
public:
    explicit Opened(int fd) : number(fd) { std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", fd); }

    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    ~Opened()
    {
        const int before = errno;
        VirtualTime::RawCall(SYS_close, number);
        errno = before;
    }

    int Number() const { return number; }

    const char* Path() const { return path.data(); }

private:
    int number;
    std::array<char, 32> path{};
};

}

STAND_IN FILE* fopen(const char* path, const char* mode)
{
    const Reply reply = AskToOpen(path, FlagsOf(mode));
    if (reply.goesOn)
    {
        return REAL_CALL(fopen)(path, mode);
    }
    return reply.Succeeded() ? fdopen(static_cast<int>(reply.value), mode) : nullptr;
}

STAND_IN FILE* fopen64(const char* path, const char* mode)
{
    const Reply reply = AskToOpen(path, FlagsOf(mode));
    if (reply.goesOn)
    {
        return REAL_CALL(fopen64)(path, mode);
    }
    return reply.Succeeded() ? fdopen(static_cast<int>(reply.value), mode) : nullptr;
}

STAND_IN FILE* freopen(const char* path, const char* mode, FILE* stream)
{
    const Reply reply = path == nullptr ? Reply() : AskToOpen(path, FlagsOf(mode));
    if (reply.goesOn)
    {
        return REAL_CALL(freopen)(path, mode, stream);
    }
    if (!reply.Succeeded())
    {
        const int error = errno;
        fclose(stream);
        errno = error;
        return nullptr;
    }
    const Opened opened(static_cast<int>(reply.value));
    FILE* const reopened = REAL_CALL(freopen)("/dev/null", mode, stream);
    if (reopened != nullptr)
    {
        dup3(opened.Number(), fileno(reopened), FlagsOf(mode) & O_CLOEXEC);
    }
    return reopened;
}

STAND_IN FILE* freopen64(const char* path, const char* mode, FILE* stream)
{
    return freopen(path, mode, stream);
}

STAND_IN FILE* setmntent(const char* path, const char* mode) noexcept
{
    return fopen(path, mode);
}

// Directories --------------------------------------------------------------------------------------------

namespace
{

constexpr int TO_LIST = O_RDONLY | O_NONBLOCK | O_DIRECTORY | O_CLOEXEC;

}

STAND_IN DIR* opendir(const char* path)
{
    const Reply reply = AskToOpen(path, TO_LIST);
    if (reply.goesOn)
    {
        return REAL_CALL(opendir)(path);
    }
    return reply.Succeeded() ? fdopendir(static_cast<int>(reply.value)) : nullptr;
}

namespace
{

/// @param real as scandirat()
template <class Entry, class Real>
int ScanWith(int directory, const char* path, Entry*** names, int (*choose)(const Entry*),
             int (*compare)(const Entry**, const Entry**), Real real)
{
    const Reply reply = AskToOpen(path, TO_LIST, directory);
    if (reply.goesOn || !reply.Succeeded())
    {
        return reply.goesOn ? real(directory, path, names, choose, compare) : -1;
    }
    const Opened opened(static_cast<int>(reply.value));
    return real(AT_FDCWD, opened.Path(), names, choose, compare);
}

}

STAND_IN int scandirat(int directory, const char* path, dirent*** names, int (*choose)(const dirent*),
                       int (*compare)(const dirent**, const dirent**))
{
    return ScanWith(directory, path, names, choose, compare, REAL_CALL(scandirat));
}

STAND_IN int scandirat64(int directory, const char* path, dirent64*** names, int (*choose)(const dirent64*),
                         int (*compare)(const dirent64**, const dirent64**))
{
    return ScanWith(directory, path, names, choose, compare, REAL_CALL(scandirat64));
}

STAND_IN int scandir(const char* path, dirent*** names, int (*choose)(const dirent*),
                     int (*compare)(const dirent**, const dirent**))
{
    return scandirat(AT_FDCWD, path, names, choose, compare);
}

STAND_IN int scandir64(const char* path, dirent64*** names, int (*choose)(const dirent64*),
                       int (*compare)(const dirent64**, const dirent64**))
{
    return scandirat64(AT_FDCWD, path, names, choose, compare);
}

STAND_IN int glob(const char* pattern, int flags, int (*failed)(const char*, int), glob_t* found)
{
    if ((flags & GLOB_ALTDIRFUNC) != 0)
    {
        return REAL_CALL(glob)(pattern, flags, failed, found);
    }
    found->gl_opendir = [](const char* path) -> void* { return opendir(path); };
    found->gl_readdir = [](void* directory) { return readdir(static_cast<DIR*>(directory)); };
    found->gl_closedir = [](void* directory) { closedir(static_cast<DIR*>(directory)); };
    found->gl_stat = stat;
    found->gl_lstat = lstat;
    const int result = REAL_CALL(glob)(pattern, flags | GLOB_ALTDIRFUNC, failed, found);
    found->gl_flags &= ~GLOB_ALTDIRFUNC;
    return result;
}

STAND_IN int glob64(const char* pattern, int flags, int (*failed)(const char*, int), glob64_t* found)
{
    if ((flags & GLOB_ALTDIRFUNC) != 0)
    {
        return REAL_CALL(glob64)(pattern, flags, failed, found);
    }
    found->gl_opendir = [](const char* path) -> void* { return opendir(path); };
    found->gl_readdir = [](void* directory) { return readdir64(static_cast<DIR*>(directory)); };
    found->gl_closedir = [](void* directory) { closedir(static_cast<DIR*>(directory)); };
    found->gl_stat = stat64;
    found->gl_lstat = lstat64;
    const int result = REAL_CALL(glob64)(pattern, flags | GLOB_ALTDIRFUNC, failed, found);
    found->gl_flags &= ~GLOB_ALTDIRFUNC;
    return result;
}

namespace
{

int LookAt(const char* path, struct stat* status)
{
    return lstat(path, status);
}

int LookAt(const char* path, struct stat64* status)
{
    return lstat64(path, status);
}

/// Walks through a directory of the storage card, which has no symbolic links and no other volumes.
template <class Status, class Visit>
class Walk
{
public:
    Walk(bool depthFirst, const Visit& visitor) : contentFirst(depthFirst), visit(visitor) {}

    /// @param base where the name begins in the path @return what a visit returned that ends the walk, or 0
    int From(char* path, std::size_t length, int base, int level)
    {
        Status status = {};
        if (LookAt(path, &status) != 0)
        {
            return visit(path, &status, FTW_NS, base, level);
        }
        if (!S_ISDIR(status.st_mode))
        {
            return visit(path, &status, S_ISLNK(status.st_mode) ? FTW_SL : FTW_F, base, level);
        }
        DIR* const directory = opendir(path);
        if (directory == nullptr)
        {
            return visit(path, &status, FTW_DNR, base, level);
        }
        int result = contentFirst ? 0 : visit(path, &status, FTW_D, base, level);
        while (const dirent64* const entry = result == 0 ? readdir64(directory) : nullptr)
        {
            const std::size_t size = std::strlen(entry->d_name);
            if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0 ||
                length + size + 2 > PATH_MAX)
            {
                continue;
            }
            path[length] = '/';
            std::memcpy(path + length + 1, entry->d_name, size + 1);
            result = From(path, length + 1 + size, static_cast<int>(length) + 1, level + 1);
            path[length] = '\0';
        }
        closedir(directory);
        return result == 0 && contentFirst ? visit(path, &status, FTW_DP, base, level) : result;
    }

private:
    bool contentFirst;
    const Visit& visit;
};

bool IsOnUnit(const char* path)
{
    struct statx status = {};
    return !Ask(SYS_statx, AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &status).goesOn;
}

template <class Status, class Visit>
int WalkFrom(const char* start, bool contentFirst, const Visit& visit)
{
    std::array<char, PATH_MAX + 1> path{};
    std::snprintf(path.data(), path.size(), "%s", start);
    std::size_t length = std::strlen(path.data());
    while (length > 1 && path[length - 1] == '/')
    {
        path[--length] = '\0';
    }
    const char* const slash = std::strrchr(path.data(), '/');
    Status status = {};
    if (LookAt(path.data(), &status) != 0)
    {
        return -1;
    }
    return Walk<Status, Visit>(contentFirst, visit)
        .From(path.data(), length, slash == nullptr ? 0 : static_cast<int>(slash - path.data()) + 1, 0);
}

}

namespace
{

/// @param real as nftw()
template <class Status, class Real>
int VisitPlaces(const char* start, int (*visit)(const char*, const Status*, int, FTW*), int most, int flags,
                Real real)
{
    if (!IsOnUnit(start))
    {
        return real(start, visit, most, flags);
    }
    return WalkFrom<Status>(start, (flags & FTW_DEPTH) != 0,
                            [&](const char* path, const Status* status, int type, int base, int level) {
                                FTW place = {base, level};
                                return visit(path, status, type, &place);
                            });
}

/// @param real as ftw()
template <class Status, class Real>
int VisitFiles(const char* start, int (*visit)(const char*, const Status*, int), int most, Real real)
{
    if (!IsOnUnit(start))
    {
        return real(start, visit, most);
    }
    return WalkFrom<Status>(start, false, [&](const char* path, const Status* status, int type, int, int) {
        return visit(path, status, type);
    });
}

}

STAND_IN int nftw(const char* start, int (*visit)(const char*, const struct stat*, int, FTW*), int most,
                  int flags)
{
    return VisitPlaces(start, visit, most, flags, REAL_CALL(nftw));
}

STAND_IN int nftw64(const char* start, int (*visit)(const char*, const struct stat64*, int, FTW*), int most,
                    int flags)
{
    return VisitPlaces(start, visit, most, flags, REAL_CALL(nftw64));
}

STAND_IN int ftw(const char* start, int (*visit)(const char*, const struct stat*, int), int most)
{
    return VisitFiles(start, visit, most, REAL_CALL(ftw));
}

STAND_IN int ftw64(const char* start, int (*visit)(const char*, const struct stat64*, int), int most)
{
    return VisitFiles(start, visit, most, REAL_CALL(ftw64));
}

// NOLINTEND(concurrency-mt-unsafe)

// Paths --------------------------------------------------------------------------------------------------

namespace
{

/// Makes a path absolute, without "." and "..". @return false, with errno
bool Straighten(const char* path, char* straight)
{
    std::size_t length = 0;
    if (*path != '/')
    {
        if (getcwd(straight, PATH_MAX) == nullptr)
        {
            return false;
        }
        length = std::strlen(straight);
    }
    while (*path != '\0')
    {
        const std::size_t size = strchrnul(path, '/') - path;
        if (size == 2 && path[0] == '.' && path[1] == '.')
        {
            while (length > 0 && straight[--length] != '/')
            {
            }
        }
        else if (size > 0 && !(size == 1 && *path == '.'))
        {
            if (length + size + 2 > PATH_MAX)
            {
                errno = ENAMETOOLONG;
                return false;
            }
            straight[length++] = '/';
            std::memcpy(straight + length, path, size);
            length += size;
        }
        path += size + (path[size] == '/' ? 1 : 0);
    }
    if (length == 0)
    {
        straight[length++] = '/';
    }
    straight[length] = '\0';
    return true;
}

}

STAND_IN char* realpath(const char* path, char* resolved) noexcept
{
    struct statx status = {};
    const Reply reply = path == nullptr || *path == '\0'
                            ? Reply()
                            : Ask(SYS_statx, AT_FDCWD, path, 0, STATX_BASIC_STATS, &status);
    if (reply.goesOn)
    {
        return REAL_CALL(realpath)(path, resolved);
    }
    if (!reply.Succeeded())
    {
        return nullptr;
    }
    std::array<char, PATH_MAX> straight{};
    if (!Straighten(path, straight.data()))
    {
        return nullptr;
    }
    return resolved == nullptr
               ? strdup(straight.data())
               : static_cast<char*>(std::memcpy(resolved, straight.data(), std::strlen(straight.data()) + 1));
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
STAND_IN char* __realpath_chk(const char* path, char* resolved, size_t)
{
    return realpath(path, resolved);
}

STAND_IN char* canonicalize_file_name(const char* path) noexcept
{
    return realpath(path, nullptr);
}

namespace
{

/// @param real makes the call, where it goes on
template <class Status, class Real>
int VolumeStatusOf(const char* path, Status* status, Real real)
{
    struct statfs64 plain = {};
    const Reply reply = AskVolumeStatus(path, &plain);
    if (reply.goesOn)
    {
        return real();
    }
    if (!reply.Succeeded())
    {
        return -1;
    }
    *status = {};
    using Count = decltype(status->f_blocks);
    status->f_bsize = static_cast<unsigned long>(plain.f_bsize);
    status->f_frsize = static_cast<unsigned long>(plain.f_frsize != 0 ? plain.f_frsize : plain.f_bsize);
    status->f_blocks = static_cast<Count>(plain.f_blocks);
    status->f_bfree = static_cast<Count>(plain.f_bfree);
    status->f_bavail = static_cast<Count>(plain.f_bavail);
    status->f_files = static_cast<Count>(plain.f_files);
    status->f_ffree = static_cast<Count>(plain.f_ffree);
    status->f_favail = static_cast<Count>(plain.f_ffree);
    status->f_namemax = static_cast<unsigned long>(plain.f_namelen);
    return 0;
}

}

STAND_IN int statvfs(const char* path, struct statvfs* status) noexcept
{
    return VolumeStatusOf(path, status, [&] { return REAL_CALL(statvfs)(path, status); });
}

STAND_IN int statvfs64(const char* path, struct statvfs64* status) noexcept
{
    return VolumeStatusOf(path, status, [&] { return REAL_CALL(statvfs64)(path, status); });
}

STAND_IN long pathconf(const char* path, int name) noexcept
{
    const Reply reply = AskToOpen(path, O_PATH | O_CLOEXEC);
    if (reply.goesOn || !reply.Succeeded())
    {
        return reply.goesOn ? REAL_CALL(pathconf)(path, name) : -1;
    }
    const Opened opened(static_cast<int>(reply.value));
    return fpathconf(opened.Number(), name);
}

// Temporary files ----------------------------------------------------------------------------------------

namespace
{

/// Puts names to the place of the X's until `attempt` succeeds with one. @param behind the X's in the
/// template
template <class Attempt>
int FindName(char* name, int behind, Attempt attempt)
{
    constexpr char LETTERS[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    constexpr std::size_t COUNT = 6;
    constexpr int ATTEMPTS = 1000;
    const std::size_t length = std::strlen(name);
    const int before = errno;
    errno = EINVAL;
    if (behind < 0 || length < COUNT + static_cast<std::size_t>(behind))
    {
        return -1;
    }
    char* const place = name + length - static_cast<std::size_t>(behind) - COUNT;
    if (std::strncmp(place, "XXXXXX", COUNT) != 0)
    {
        return -1;
    }
    for (int i = 0; i < ATTEMPTS; ++i)
    {
        std::array<unsigned char, COUNT> random{};
        static_cast<void>(getrandom(random.data(), random.size(), 0));
        for (std::size_t at = 0; at < COUNT; ++at)
        {
            place[at] = LETTERS[random[at] % (sizeof(LETTERS) - 1)];
        }
        const int result = attempt();
        if (result >= 0 || errno != EEXIST)
        {
            errno = result >= 0 ? before : errno;
            return result;
        }
    }
    return -1;
}

}

STAND_IN int mkostemps(char* name, int behind, int flags)
{
    constexpr mode_t FOR_OWNER = 0600;
    return FindName(name, behind,
                    [&] { return open(name, (flags & ~O_ACCMODE) | O_RDWR | O_CREAT | O_EXCL, FOR_OWNER); });
}

STAND_IN int mkstemps(char* name, int behind)
{
    return mkostemps(name, behind, 0);
}

STAND_IN int mkostemp(char* name, int flags)
{
    return mkostemps(name, 0, flags);
}

STAND_IN int mkstemp(char* name)
{
    return mkostemps(name, 0, 0);
}

STAND_IN int mkostemps64(char* name, int behind, int flags)
{
    return mkostemps(name, behind, flags);
}

STAND_IN int mkstemps64(char* name, int behind)
{
    return mkostemps(name, behind, 0);
}

STAND_IN int mkostemp64(char* name, int flags)
{
    return mkostemps(name, 0, flags);
}

STAND_IN int mkstemp64(char* name)
{
    return mkostemps(name, 0, 0);
}

STAND_IN char* mkdtemp(char* name) noexcept
{
    constexpr mode_t FOR_OWNER = 0700;
    return FindName(name, 0, [&] { return mkdir(name, FOR_OWNER); }) == 0 ? name : nullptr;
}

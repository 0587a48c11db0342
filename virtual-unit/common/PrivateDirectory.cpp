#include "virtual-unit/common/PrivateDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

namespace fs = std::filesystem;

/// Of the directories that are locked while their run lives.
constexpr std::string_view LOCKED = "virtual-unit-run-";
static_assert(LOCKED.starts_with(PrivateDirectory::NAME));

/// Makes every directory below `top` one that its owner can empty.
void Unlock(const fs::path& top)
{
    std::error_code ignored;
    fs::permissions(top, fs::perms::owner_all, fs::perm_options::add, ignored);
    // Each entry is seen before it is descended into.
    for (fs::recursive_directory_iterator entry(top, fs::directory_options::skip_permission_denied, ignored);
         entry != fs::recursive_directory_iterator(); entry.increment(ignored))
    {
        if (entry->symlink_status(ignored).type() == fs::file_type::directory)
        {
            fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
}

void Remove(const fs::path& directory)
{
    std::error_code failure;
    fs::remove_all(directory, failure);
    if (failure)
    {
        Unlock(directory);
        fs::remove_all(directory, failure);
    }
}

/// @param wait while somebody else has it locked
/// @return a directory of this user, locked; none: it is no such thing, or somebody has it locked
Descriptor Locked(const std::string& path, bool wait)
{
    Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat opened = {};
    struct stat named = {};
    const bool own = directory.Get() >= 0 && fstat(directory.Get(), &opened) == 0 &&
                     opened.st_uid == geteuid() &&
                     flock(directory.Get(), LOCK_EX | (wait ? 0 : LOCK_NB)) == 0;
    // Another process may have removed it before the lock.
    const bool same = own && lstat(path.c_str(), &named) == 0 && named.st_dev == opened.st_dev &&
                      named.st_ino == opened.st_ino;
    return same ? std::move(directory) : Descriptor();
}

bool LinksInto(const fs::path& link, const std::string& directory)
{
    std::error_code ignored;
    const std::string target = fs::read_symlink(link, ignored).string();
    return target == directory || target.starts_with(directory + "/");
}

/// A process has it open, or works in it, or was told of it: the children of a killed program may live on.
bool IsUsedBy(const fs::path& process, const std::string& directory)
{
    if (LinksInto(process / "cwd", directory))
    {
        return true;
    }
    std::ifstream file(process / "environ", std::ios::binary);
    const std::string environment{std::istreambuf_iterator<char>(file), {}};
    if (environment.find(directory) != std::string::npos)
    {
        return true;
    }
    std::error_code ignored;
    for (fs::directory_iterator entry(process / "fd", ignored); entry != fs::directory_iterator();
         entry.increment(ignored))
    {
        if (LinksInto(entry->path(), directory))
        {
            return true;
        }
    }
    return false;
}

bool IsUsed(const std::string& directory)
{
    std::error_code ignored;
    for (fs::directory_iterator entry("/proc", ignored); entry != fs::directory_iterator();
         entry.increment(ignored))
    {
        const std::string name = entry->path().filename();
        const bool process = std::ranges::all_of(name, [](char c) { return c >= '0' && c <= '9'; });
        if (process && name != std::to_string(getpid()) && IsUsedBy(entry->path(), directory))
        {
            return true;
        }
    }
    return false;
}

}

std::string PrivateDirectory::Parent()
{
    std::error_code unusable;
    const fs::path directory = fs::temp_directory_path(unusable);
    return unusable ? "/tmp" : directory.string();
}

void PrivateDirectory::RemoveLeftOver()
{
    std::error_code ignored;
    for (fs::directory_iterator entry(Parent(), ignored); entry != fs::directory_iterator();
         entry.increment(ignored))
    {
        const std::string directory = entry->path();
        if (!entry->path().filename().string().starts_with(LOCKED))
        {
            continue;
        }
        const Descriptor lock = Locked(directory, false);
        std::error_code unknown;
        const fs::path canonical = fs::canonical(directory, unknown); // as the kernel tells what is open
        if (lock.Get() >= 0 && !unknown && !IsUsed(directory) && !IsUsed(canonical))
        {
            Remove(directory);
        }
    }
}

PrivateDirectory::PrivateDirectory()
{
    do
    {
        path = fs::path(Parent()) / std::string(LOCKED).append("XXXXXX");
        if (mkdtemp(path.data()) == nullptr)
        {
            throw std::system_error(errno, std::generic_category(), path);
        }
        lock = Locked(path, true);
        // A run that began in between took it for one that was left over. Where there are no locks it stays.
    } while (lock.Get() < 0 && access(path.c_str(), F_OK) != 0);
}

PrivateDirectory::~PrivateDirectory()
{
    Remove(path);
}

}

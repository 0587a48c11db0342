#include "virtual-unit/run/PrivateDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace VirtualUnit
{

namespace
{

namespace fs = std::filesystem;

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

}

std::string PrivateDirectory::Parent()
{
    std::error_code unusable;
    const fs::path directory = fs::temp_directory_path(unusable);
    return unusable ? "/tmp" : directory.string();
}

PrivateDirectory::PrivateDirectory() : path(fs::path(Parent()) / std::string(NAME).append("XXXXXX"))
{
    if (mkdtemp(path.data()) == nullptr)
    {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

PrivateDirectory::~PrivateDirectory()
{
    std::error_code failure;
    fs::remove_all(path, failure);
    if (failure)
    {
        Unlock(path);
        fs::remove_all(path, failure);
    }
}

}

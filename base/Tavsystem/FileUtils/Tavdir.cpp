#include "base/Tavsystem/FileUtils/Tavdir.h"

#include "base/DatesBeyond2038.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace Tavsystem::FileUtils
{

namespace
{

constexpr mode_t PERMISSIONS = 0755;

bool IsDirectory(const std::string& path)
{
    struct stat status = {};

    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Makes one directory whose parent is there. @return 0 when it is there now, also when it was before: some
/// file systems say that with another reason than EEXIST; else the errno of the refusal
int Make(const std::string& path)
{
    const int failure = mkdir(path.c_str(), PERMISSIONS) == 0 ? 0 : errno;
    return failure == 0 || IsDirectory(path) ? 0 : failure;
}

}

Tavdir::Tavdir(const std::string& name) : path(name)
{
}

Tavdir::~Tavdir() = default;

bool Tavdir::Create()
{
    if (path.empty() || path.find('\0') != std::string::npos)
    {
        return false;
    }
    // Back to the deepest parent that is there, then forward: what exists above it is left alone.
    std::size_t end = path.size();
    for (int failure = 0; (failure = Make(path.substr(0, end))) != 0;)
    {
        end = path.rfind('/', end - 1);
        if (failure != ENOENT || end == std::string::npos || end == 0)
        {
            return false;
        }
    }
    while (end < path.size())
    {
        end = std::min(path.find('/', end + 1), path.size());
        if (Make(path.substr(0, end)) != 0)
        {
            return false;
        }
    }
    return true;
}

}

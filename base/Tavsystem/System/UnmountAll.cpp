#include "base/Tavsystem/System/UnmountAll.h"

#include "base/Tavsystem/System/MountTable.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace Tavsystem::System
{

namespace
{

constexpr const char* MOUNT_TABLE = "/proc/self/mounts";

/// As much of the mount table as can be read: each line is worth having.
std::string ReadMountTable()
{
    std::string table;
    const int fd = open(MOUNT_TABLE, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
    {
        return table;
    }
    std::array<char, 4096> chunk{};
    ssize_t length = 0;
    do
    {
        length = read(fd, chunk.data(), chunk.size());
        if (length > 0)
        {
            table.append(chunk.data(), static_cast<std::size_t>(length));
        }
    } while (length > 0 || (length < 0 && errno == EINTR));
    close(fd);
    return table;
}

}

void UnmountAll()
{
    sync();
    for (const std::string& point : MountPointsToUnmount(ReadMountTable()))
    {
        umount2(point.c_str(), 0);
    }
    sync();
}

}

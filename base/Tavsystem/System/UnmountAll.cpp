#include "base/Tavsystem/System/UnmountAll.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavsystem/System/MountTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Tavsystem::System
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr const char* MOUNT_TABLE = "/proc/self/mounts";

struct OpenedTable
{
    OpenedTable() = default;
    OpenedTable(const OpenedTable&) = delete;
    OpenedTable& operator=(const OpenedTable&) = delete;

    ~OpenedTable()
    {
        if (fd >= 0)
        {
            close(fd);
        }
    }

    int fd = open(MOUNT_TABLE, O_RDONLY | O_CLOEXEC);
};

/// As much of the mount table as can be read: each line is worth having.
std::string ReadMountTable()
{
    std::string table;
    const OpenedTable opened;
    if (opened.fd < 0)
    {
        return table;
    }
    std::array<char, 4096> chunk{};
    ssize_t length = 0;
    do
    {
        length = read(opened.fd, chunk.data(), chunk.size());
        if (length > 0)
        {
            table.append(chunk.data(), static_cast<std::size_t>(length));
        }
    } while (length > 0 || (length < 0 && errno == EINTR));
    return table;
}

bool IsMounted(const std::string& point)
{
    const std::vector<std::string> points = MountPointsToUnmount(ReadMountTable());
    return std::find(points.begin(), points.end(), point) != points.end();
}

struct Refusal
{
    std::string point;
    int reason;
};

/// On the console alone, since the log's file may lie on the very volume.
void Tell(const std::vector<Refusal>& refusals)
{
    auto& console = Logger::GetInstance().Console();
    for (const auto& [point, reason] : refusals)
    {
        // Where mounts are shared, one goes with another that was in the list as well: it is no mount any
        // more.
        if (reason != EINVAL || IsMounted(point))
        {
            console << LogType::Error << "Unable to unmount " << point << ": "
                    << std::generic_category().message(reason) << std::endl;
        }
    }
    if (!refusals.empty())
    {
        console.Flush();
    }
}

}

void UnmountAll()
{
    std::vector<Refusal> refusals;
    sync();
    for (const std::string& point : MountPointsToUnmount(ReadMountTable()))
    {
        if (umount2(point.c_str(), 0) != 0)
        {
            refusals.push_back({point, errno});
        }
    }
    sync();
    Tell(refusals); // last: whoever keeps the console busy does not keep volumes mounted
}

}

#include "virtual-unit/ports/DeviceTable.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fnmatch.h>
#include <sys/stat.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

/// "/dev/hidraw1" for "/dev/hidraw0" and 1.
std::string NodePath(const std::string& path, unsigned int node)
{
    const std::size_t digits = path.find_last_not_of("0123456789") + 1;
    return node == 0 || digits == path.size()
               ? path
               : path.substr(0, digits) + std::to_string(std::stoul(path.substr(digits)) + node);
}

}

const std::vector<std::string>& DeviceTable::UnitPaths()
{
    static const std::vector<std::string> PATHS = {"/dev/ttymxc*", "/dev/i2c-*", "/dev/hidraw*",
                                                   "/dev/tav_event", "/dev/serial/by-id/*"};
    return PATHS;
}

void DeviceTable::Serve(const std::string& path, std::unique_ptr<ServedDevice> device)
{
    openedBefore.clear();
    served[path] = std::move(device);
}

void DeviceTable::EndService()
{
    openedBefore.clear();
    served.clear();
}

ServedDevice* DeviceTable::Find(const std::string& path) const
{
    if (const auto found = served.find(path); found != served.end() && found->second->Node() == 0)
    {
        return found->second.get();
    }
    const auto found = std::ranges::find_if(
        served, [&path](const auto& entry) { return NodePath(entry.first, entry.second->Node()) == path; });
    return found == served.end() ? nullptr : found->second.get();
}

int DeviceTable::WriteError(const std::string& link) const
{
    struct stat opened = {};
    int error = stat(link.c_str(), &opened) == 0 ? 0 : errno;
    for (auto device = served.begin(); error == 0 && device != served.end(); ++device)
    {
        error = device->second->WriteError(opened);
    }
    return error == ENOENT ? 0 : error;
}

ServedDevice* DeviceTable::FindOpened(const std::string& link) const
{
    struct stat opened = {};
    if (stat(link.c_str(), &opened) != 0 || (!S_ISSOCK(opened.st_mode) && !S_ISCHR(opened.st_mode)))
    {
        return nullptr;
    }
    const auto isOpened = [&opened](const ServedDevice& device) {
        struct stat own = {};
        return fstat(device.Descriptor(), &own) == 0 && own.st_dev == opened.st_dev &&
               own.st_ino == opened.st_ino;
    };
    // A device that comes back is another file; so what was found before is only where to look first.
    const std::pair file(opened.st_dev, opened.st_ino);
    if (const auto before = openedBefore.find(file); before != openedBefore.end())
    {
        if (isOpened(*before->second))
        {
            return before->second;
        }
        openedBefore.erase(before);
    }
    const auto device =
        std::ranges::find_if(served, [&](const auto& entry) { return isOpened(*entry.second); });
    return device == served.end() ? nullptr : openedBefore[file] = device->second.get();
}

bool DeviceTable::BelongsToUnit(const std::string& path) const
{
    // All of them lie in one directory: most paths are told by that alone.
    return path.starts_with("/dev/") &&
           (served.contains(path) ||
            std::any_of(UnitPaths().begin(), UnitPaths().end(), [&](const auto& pattern) {
                return fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME) == 0;
            }));
}

}

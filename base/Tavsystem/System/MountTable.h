#ifndef BASE_TAVSYSTEM_SYSTEM_MOUNTTABLE_H
#define BASE_TAVSYSTEM_SYSTEM_MOUNTTABLE_H

#include <string>
#include <string_view>
#include <vector>

namespace Tavsystem::System
{

/**
 * The mount points to unmount before power-off, in the order in which to do it.
 *
 * @param table text in the form of "/proc/self/mounts" (fstab(5)): a line for each mount, with the source,
 *              the mount point and further fields, in which a backslash and three octal digits stand for a
 *              byte that would break the line
 * @return the mount points of the lines whose source begins with "/dev/" or names raw flash (such as
 *         "ubi0:data", "mtd:log"), or whose type is a file system for raw flash, but for "/"; the one with
 *         more path elements first, and among equals the one mounted later first, so that what was mounted
 *         on top goes first. A mount point that carries two mounts is there twice. A line that was cut
 *         short is left out.
 */
std::vector<std::string> MountPointsToUnmount(std::string_view table);

}

#endif

#ifndef BASE_TAVSYSTEM_SYSTEM_UNMOUNTALL_H
#define BASE_TAVSYSTEM_SYSTEM_UNMOUNTALL_H

#include "base/Export.h"

namespace Tavsystem::System
{

/**
 * Makes the mounted storage volumes safe for the power to go: writes out what the kernel still holds, then
 * unmounts every file system of "/proc/self/mounts" that lies on a device ("/dev/...") or on raw flash
 * (UBIFS, JFFS2, YAFFS; a source such as "ubi0:data" or "mtd:log") except the root "/", deepest first, then
 * writes out once more for what stayed mounted. File systems of the network and of the kernel stay.
 *
 * A volume that is in use, or that this process may not unmount, stays mounted, and an error line on the
 * log's console says so with the reason; the others are unmounted all the same. In use is also a volume with
 * the log's file or another open file of this very process, its working directory, or a file that it maps:
 * close them before. Needs the right to unmount (CAP_SYS_ADMIN).
 *
 * Returns when those lines are out; it waits for a line that another thread has open.
 *
 * Threads: any, without an open line of the log; meant for one, at the end. It takes as long as the volumes
 * need (docs/limits.md).
 *
 * @throws std::bad_alloc
 */
TAVSYSTEM_API void UnmountAll();

}

#endif

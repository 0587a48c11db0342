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
 * A volume that is in use, or that this process may not unmount, stays mounted; the others are unmounted
 * all the same. Needs the right to unmount (CAP_SYS_ADMIN).
 *
 * Threads: any; meant for one, at the end.
 *
 * @throws std::bad_alloc
 */
TAVSYSTEM_API void UnmountAll();

}

#endif

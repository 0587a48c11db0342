#ifndef BASE_DATESBEYOND2038_H
#define BASE_DATESBEYOND2038_H

// Included by one source of each library: it does not compile where the target's times or file offsets are
// shorter than 64 bits. cmake/TavTargets.cmake asks for them; a C library older than glibc 2.34 has none.

#include <ctime>
#include <sys/types.h>

static_assert(sizeof(std::time_t) == 8, "the log, directories and records would fail in 2038");
static_assert(sizeof(off_t) == 8, "the log file's limit would fail with large files");

#endif

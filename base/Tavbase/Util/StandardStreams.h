#ifndef BASE_TAVBASE_UTIL_STANDARDSTREAMS_H
#define BASE_TAVBASE_UTIL_STANDARDSTREAMS_H

#include "base/Export.h"

#include <sys/types.h>
#include <unistd.h>

namespace Tavbase::Util
{

/**
 * Where the application has closed a standard stream, the next file that is opened gets its number, and what
 * any thread prints goes into that file or out on that line. While one of these lives the numbers are held,
 * by what refuses every write as a closed stream does. Moving a file up once it is open would be too late.
 * Several may live at once, in any threads: the numbers are given back with the last one.
 */
class TAVBASE_API StandardStreamsHeld
{
public:
    /// @param lowest of the streams that are held; output leaves standard input out
    explicit StandardStreamsHeld(int lowest = STDOUT_FILENO);
    StandardStreamsHeld(const StandardStreamsHeld&) = delete;
    StandardStreamsHeld& operator=(const StandardStreamsHeld&) = delete;
    ~StandardStreamsHeld();
};

/// open(), whose descriptor is neither standard output nor standard error.
TAVBASE_API int OpenNoStandardStream(const char* path, int flags, mode_t mode = 0);

}

#endif

#include "base/Tavbase/Util/StandardStreams.h"

#include <cerrno>
#include <fcntl.h>

namespace Tavbase::Util
{

int AboveStandardStreams(int descriptor, int lowestStream)
{
    if (descriptor < lowestStream || descriptor > STDERR_FILENO)
    {
        return descriptor;
    }
    const bool closedOnExec = (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
    const int above = fcntl(descriptor, closedOnExec ? F_DUPFD_CLOEXEC : F_DUPFD, STDERR_FILENO + 1);
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return above;
}

}

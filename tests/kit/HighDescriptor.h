#ifndef TESTS_KIT_HIGHDESCRIPTOR_H
#define TESTS_KIT_HIGHDESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

namespace Kit
{

/// Moves a descriptor of the kit's own out of the way of tests that count on low numbers.
inline int MoveUp(int fd)
{
    constexpr int LOWEST = 600;
    const int high = fcntl(fd, F_DUPFD_CLOEXEC, LOWEST);
    close(fd);
    return high;
}

}

#endif

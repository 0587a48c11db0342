#include "benchmarks/Console.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

void Benchmarks::SilenceStandardOutput()
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0)
    {
        std::perror("/dev/null");
        std::exit(1);
    }
    close(nowhere);
}

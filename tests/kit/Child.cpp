#include "tests/kit/Child.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace Kit
{

ChildResult AwaitChild(pid_t child, int output)
{
    ChildResult result;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = read(output, part.data(), part.size())) > 0;)
    {
        result.output.append(part.data(), static_cast<std::size_t>(count));
    }
    close(output);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return result;
}

ChildResult RunInChild(const std::function<int()>& work)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
    {
        std::abort();
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(LONGEST_CHILD_SECONDS);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        std::exit(work());
    }
    close(ends[1]);
    return AwaitChild(child, ends[0]);
}

}

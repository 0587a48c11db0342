#ifndef TESTS_KIT_CHILD_H
#define TESTS_KIT_CHILD_H

#include <functional>
#include <string>
#include <sys/types.h>

namespace Kit
{

/// What became of a forked child.
struct ChildResult
{
    int exitStatus = -1; ///< -1 when a signal ended it
    int signal = 0;      ///< 0 when it ended by itself
    std::string output;  ///< what it wrote to standard output and standard error
};

/// Reads a child's output to its end, closes it and waits for the child.
ChildResult AwaitChild(pid_t child, int output);

/// Runs `work` in a forked child and waits for it, ten real seconds at most (then it is killed). The child
/// ends by exit() with what `work` returns, so that its static destructors run.
ChildResult RunInChild(const std::function<int()>& work);

}

#endif

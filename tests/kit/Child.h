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

/// After so many real seconds a child hangs, and is killed: far more than any needs on a busy machine.
constexpr unsigned int LONGEST_CHILD_SECONDS = 100;

/// Reads a child's output to its end, closes it and waits for the child.
ChildResult AwaitChild(pid_t child, int output);

/// Runs `work` in a forked child and waits for it; one that hangs is killed. The child ends by exit() with
/// what `work` returns, so that its static destructors run.
ChildResult RunInChild(const std::function<int()>& work);

}

#endif

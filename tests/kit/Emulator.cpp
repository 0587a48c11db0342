#include "tests/kit/Emulator.h"

#include <csignal>
#include <ctime>
#include <fstream>

namespace Kit
{

namespace
{

std::vector<std::string> Arguments(const char* file)
{
    std::ifstream line(file);
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(line, argument, '\0');)
    {
        arguments.push_back(argument);
    }
    return arguments;
}

/// What the kernel has been told to run begins with the emulator, which in turn tells the program its own
/// part.
std::vector<std::string> Find()
{
    const std::vector<std::string> own = Arguments("/proc/self/cmdline");
    std::vector<std::string> all = Arguments("/proc/thread-self/cmdline");
    if (all.empty() || all.size() <= own.size() || all.front().find("qemu-") == std::string::npos)
    {
        return {};
    }
    all.resize(all.size() - own.size());
    return all;
}

}

const std::vector<std::string>& Emulator::Command()
{
    static const std::vector<std::string> command = Find();
    return command;
}

bool Emulator::IsThere()
{
    return !Command().empty();
}

void Emulator::TakeSignalsThatNeverCome()
{
    for (int number = IsThere() ? SIGRTMAX : SIGRTMIN - 1; number >= SIGRTMIN; --number)
    {
        sigset_t one;
        sigset_t former;
        sigemptyset(&one);
        sigaddset(&one, number);
        pthread_sigmask(SIG_BLOCK, &one, &former);
        const bool comes = raise(number) == 0;
        const timespec atOnce = {0, 0};
        if (!comes || sigtimedwait(&one, nullptr, &atOnce) != number)
        {
            std::signal(number, SIG_IGN);
        }
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
    }
}

}

// A program that logs as an application does, for a leak check from outside: both sinks, several threads, a
// forked child, and an end by exit().

#include "base/Tavbase/Tavlog/Logger.h"

#include <cstdlib>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

int main(int argc, char** argv)
{
    Logger& log = Logger::GetInstance();
    if (argc > 1)
    {
        log.OpenFile(argv[1]);
    }
    log << LogType::Info << "begun" << std::endl;
    std::thread([&log] { log << LogType::Warning << "on another thread" << std::endl; }).join();
    const pid_t child = fork();
    if (child == 0)
    {
        log << LogType::Info << "in a child" << std::endl;
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    log << LogType::Error << "ended" << std::endl;
    std::exit(status);
}

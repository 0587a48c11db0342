// Runs a program on this machine's own drivers, with the peripherals of the virtual unit at their far ends,
// and carries out a script meanwhile: what virtual-unit run does, but with the kernel of a unit in the
// middle. As root, on an emulated board.
// usage: board-unit [--script FILE] [--log FILE] [--record DIR] [--date SECONDS] PROGRAM [ARGUMENT...]
// The clock of the machine is set to a date, in seconds since 1970, before the program begins. A recording is
// what virtual-unit run --record makes, of what reaches the peripherals through the drivers.
// Exit status: that of PROGRAM, 128+N when signal N ended it, 0 when the power was cut; 2 for a wrong script
// or command line, 3 when a far end cannot be set up; when PROGRAM ended with 0: 5 when the script expects
// what did not come.

#include "tests/board/FarEnds.h"
#include "virtual-unit/recording/Recorder.h"
#include "virtual-unit/run/ProgramOutput.h"
#include "virtual-unit/run/RunLog.h"
#include "virtual-unit/script/Director.h"
#include "virtual-unit/script/Script.h"
#include "virtual-unit/unit/Unit.h"
#include "virtual-unit/unit/Values.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace
{

using namespace VirtualUnit;

constexpr int WRONG_COMMAND_LINE = 2;
constexpr int CANNOT_RUN = 3;
constexpr int UNEXPECTED = 5;
constexpr int SIGNAL_OFFSET = 128;
constexpr int NOT_FOUND = 127;

constexpr timespec LOOK = {0, 10'000'000}; // at the program and at the power
constexpr std::chrono::seconds GRACE{10};  // for a program that has been asked to end

class Wrong : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct CommandLine
{
    std::string script;
    std::string log;
    std::string record;
    std::string date;
    std::vector<char*> program; ///< ends with a null

    static CommandLine Parse(char** arguments)
    {
        CommandLine line;
        ++arguments;
        for (; *arguments != nullptr && std::string(*arguments).starts_with("--"); arguments += 2)
        {
            const std::string option = *arguments;
            std::string* const value = option == "--script"   ? &line.script
                                       : option == "--log"    ? &line.log
                                       : option == "--record" ? &line.record
                                       : option == "--date"   ? &line.date
                                                              : nullptr;
            if (arguments[1] == nullptr || value == nullptr)
            {
                throw Wrong("usage: board-unit [--script FILE] [--log FILE] [--record DIR] [--date SECONDS] "
                            "PROGRAM [ARGUMENT...]");
            }
            *value = arguments[1];
        }
        for (; *arguments != nullptr; ++arguments)
        {
            line.program.push_back(*arguments);
        }
        if (line.program.empty())
        {
            throw Wrong("which program?");
        }
        line.program.push_back(nullptr);
        return line;
    }
};

/// The signals that ask the program to end: the script sends them to this process.
sigset_t EndingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

class Program
{
public:
    explicit Program(const std::vector<char*>& command) : pid(fork())
    {
        if (pid == 0)
        {
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            execvp(command.front(), command.data());
            std::perror(command.front());
            _exit(NOT_FOUND);
        }
    }

    void Signal(int number) const { kill(pid, number); }

    bool Ended() { return waitpid(pid, &status, WNOHANG) != 0; }

    int ExitStatus() const
    {
        return WIFSIGNALED(status) ? SIGNAL_OFFSET + WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    pid_t pid;
    int status = 0;
};

/// To its end. @return its exit status
int AwaitEnd(Program& program, Unit& unit, RunLog& log)
{
    const sigset_t signals = EndingSignals();
    constexpr auto NEVER = Unit::Clock::time_point::max();
    Unit::Clock::time_point killAt = NEVER;
    bool cut = false;
    while (!program.Ended())
    {
        unit.Power().Advance(Unit::Clock::now());
        if (!cut && unit.Power().IsCut())
        {
            cut = true;
            log.Report("the power was cut");
            program.Signal(SIGKILL);
        }
        if (const int number = sigtimedwait(&signals, nullptr, &LOOK); number > 0)
        {
            program.Signal(number);
            killAt = Unit::Clock::now() + GRACE;
        }
        if (killAt < Unit::Clock::now())
        {
            log.Report("the program does not end: it is killed");
            program.Signal(SIGKILL);
            killAt = NEVER;
        }
    }
    return cut ? 0 : program.ExitStatus();
}

void SetClock(const std::string& date)
{
    const timespec time = {std::stoll(date), 0};
    if (clock_settime(CLOCK_REALTIME, &time) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "the clock");
    }
}

int Run(const CommandLine& line)
{
    UnitOptions options;
    const Script script = line.script.empty() ? Script() : Script::Read(line.script, options);
    RunLog log(RunLog::File(line.log.empty() ? nullptr : std::fopen(line.log.c_str(), "we"), std::fclose));
    Unit unit(options);
    std::optional<Recorder> recorder;
    if (!line.record.empty())
    {
        recorder.emplace(line.record, unit.Begin());
        for (const Unit::Port& port : Unit::Ports(options))
        {
            unit.Traffic(port.path).Tell(recorder->Port(port.path));
        }
    }
    unit.BeginService();
    bool unexpected = false;
    const auto judge = [&](const Verdict& verdict) {
        unexpected = unexpected || !verdict.fault.empty();
        log.Report((verdict.fault.empty() ? "met: " : "failed: ") + verdict.words +
                   (verdict.fault.empty() ? "" : ": " + verdict.fault));
    };
    Director director(script, unit,
                      {[&log](const std::string& step) { log.Note("script: " + step); }, judge});
    int status = 0;
    {
        // The far ends of ttymxc0 and ttymxc2 are wired to the two UARTs that a unit does not use.
        const Board::FarEnds farEnds(unit.Devices(),
                                     {{"/dev/ttymxc0", "/dev/ttymxc3"}, {"/dev/ttymxc2", "/dev/ttymxc4"}});
        director.Prepare();
        std::optional<ProgramOutput> output;
        if (PortObserver* const listener = director.ProgramListener())
        {
            output.emplace(*listener);
        }
        if (!line.date
                 .empty()) // behind the kernel's work with the devices: other programs may not bear the date
        {
            SetClock(line.date);
        }
        Program program(line.program);
        if (output)
        {
            output->Begin();
        }
        director.Start();
        status = AwaitEnd(program, unit, log);
        output.reset(); // what was printed has been heard
        director.Stop();
    }
    unit.EndService();
    if (recorder)
    {
        recorder->Finish();
    }
    for (const Verdict& verdict : director.NotReached())
    {
        if (verdict.words.starts_with("expect "))
        {
            judge(verdict);
        }
    }
    return status == 0 && unexpected ? UNEXPECTED : status;
}

}

int main(int, char** arguments)
{
    const sigset_t signals = EndingSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr); // in all threads
    std::signal(SIGPIPE, SIG_IGN);
    try
    {
        return Run(CommandLine::Parse(arguments));
    }
    catch (const Wrong& wrong)
    {
        std::fprintf(stderr, "board-unit: %s\n", wrong.what());
        return WRONG_COMMAND_LINE;
    }
    catch (const Values::Wrong& wrong)
    {
        std::fprintf(stderr, "board-unit: %s\n", wrong.what());
        return WRONG_COMMAND_LINE;
    }
    catch (const Script::Wrong& wrong)
    {
        std::fprintf(stderr, "board-unit: %s\n", wrong.what());
        return WRONG_COMMAND_LINE;
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "board-unit: %s\n", failure.what());
        return CANNOT_RUN;
    }
}

#include "tests/virtual-unit/RunningUnit.h"

#include "tests/kit/TempDir.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr unsigned int NOBODY = 65534;
constexpr long LONGEST_MILLISECONDS = 120'000;

long Now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}

std::array<int, 2> Pipe()
{
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
    {
        throw std::runtime_error("pipe");
    }
    return ends;
}

std::array<int, 2> Terminal()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::array<char, 64> name = {};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name.data(), name.size()) != 0)
    {
        throw std::runtime_error("terminal");
    }
    return {master, open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}

/// A run goes by preload where the environment wants all of them to: the same tests hold for both ways.
std::vector<std::string> ByTheWayOfThisTest(std::vector<std::string> arguments)
{
    if (RunsGoByPreload() && !arguments.empty() &&
        (arguments.front() == "run" || arguments.front() == "replay"))
    {
        arguments.insert(arguments.begin() + 1, {"--by", "preload"});
    }
    return arguments;
}

/// Without the line that tells of the way, which only one of them has.
void RemoveRemark(std::string& text)
{
    constexpr const char* REMARK = "virtual-unit: by preload: ";
    if (const std::size_t begin = text.find(REMARK); begin != std::string::npos && RunsGoByPreload())
    {
        text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
}

void CloseIfOpen(int& fd)
{
    if (fd >= 0)
    {
        close(fd);
        fd = -1;
    }
}

}

std::string Word(const std::string& text)
{
    std::string word = "'";
    for (const char c : text)
    {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return word + "'";
}

bool RunsGoByPreload()
{
    const char* const by = std::getenv("TAVDEVICE_RUNS_BY");
    return by != nullptr && std::string(by) == "preload";
}

std::string ForNobody(const std::string& program)
{
    namespace fs = std::filesystem;
    constexpr fs::perms FOR_ALL{0755};
    const fs::path directory = Kit::TempDir::Path();
    const fs::path copy = directory / fs::path(program).filename();
    fs::copy_file(program, copy, fs::copy_options::skip_existing);
    fs::permissions(copy, FOR_ALL);
    fs::permissions(directory, FOR_ALL);
    return copy;
}

RunningUnit::RunningUnit(const std::vector<std::string>& given, Options options)
    : deadline(Now() + LONGEST_MILLISECONDS)
{
    const std::vector<std::string> arguments = ByTheWayOfThisTest(given);
    const bool becomeNobody = options.unprivileged && geteuid() == 0;
    std::string program = becomeNobody ? ForNobody(VIRTUAL_UNIT) : VIRTUAL_UNIT;
    if (becomeNobody && RunsGoByPreload())
    {
        ForNobody(CALLS_LIBRARY);
    }
    std::vector<char*> argv;
    for (const std::string& word : options.launcher)
    {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(program.data());
    for (const std::string& argument : arguments)
    {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    const std::array<int, 2> output = options.onTerminal ? Terminal() : Pipe();
    const std::array<int, 2> errors = Pipe();

    pid = fork();
    if (pid == 0)
    {
        for (const int ending : {SIGINT, SIGQUIT, SIGTERM, SIGHUP})
        {
            std::signal(ending, SIG_DFL); // a test run in the background ignores some of them
        }
        if (options.onTerminal)
        {
            setsid();
            ioctl(output[1], TIOCSCTTY, 0);
            dup2(output[1], STDIN_FILENO);
        }
        dup2(output[1], STDOUT_FILENO);
        dup2(options.onTerminal ? output[1] : errors[1], STDERR_FILENO);
        if (!becomeNobody || (setgroups(0, nullptr) == 0 && setgid(NOBODY) == 0 && setuid(NOBODY) == 0))
        {
            execv(argv.front(), argv.data());
        }
        _exit(125);
    }
    close(output[1]);
    close(errors[1]);
    streams = {output[0], errors[0]};
    if (options.errorsClosed)
    {
        CloseIfOpen(streams.errors);
    }
}

RunningUnit::~RunningUnit()
{
    End();
}

bool RunningUnit::WaitForOutput(const std::string& text)
{
    while (outcome.output.find(text) == std::string::npos)
    {
        if (!ReadSome())
        {
            return false;
        }
    }
    return true;
}

void RunningUnit::Signal(int signal) const
{
    kill(pid, signal);
}

void RunningUnit::Type(const std::string& text) const
{
    [[maybe_unused]] const ssize_t count = write(streams.output, text.data(), text.size());
}

Outcome RunningUnit::End()
{
    if (pid > 0)
    {
        while (ReadSome())
        {
        }
        const bool hung = streams.output >= 0 || streams.errors >= 0;
        if (hung)
        {
            kill(pid, SIGKILL);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        outcome.status = hung ? -1 : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        CloseIfOpen(streams.output);
        CloseIfOpen(streams.errors);
        RemoveRemark(outcome.output);
        RemoveRemark(outcome.errors);
    }
    return outcome;
}

/// @return false when both streams are at their end, or the time is over (they are still open then)
bool RunningUnit::HasEnded()
{
    while (ReadSome(0))
    {
    }
    return (streams.output < 0 && streams.errors < 0) || deadline <= Now();
}

bool RunningUnit::ReadSome()
{
    return ReadSome(static_cast<int>(std::max(deadline - Now(), 0L)));
}

/// @param milliseconds that are waited for something to read
bool RunningUnit::ReadSome(int milliseconds)
{
    std::array<pollfd, 2> events = {{{streams.output, POLLIN, 0}, {streams.errors, POLLIN, 0}}};
    if ((streams.output < 0 && streams.errors < 0) || deadline <= Now() ||
        poll(events.data(), events.size(), milliseconds) <= 0)
    {
        return false;
    }
    const auto take = [](const pollfd& event, int& fd, std::string& text) {
        if (event.revents != 0)
        {
            std::array<char, 4096> bytes;
            const ssize_t count = read(fd, bytes.data(), bytes.size());
            text.append(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
            if (count <= 0) // of a terminal that all have closed: -1
            {
                CloseIfOpen(fd);
            }
        }
    };
    take(events[0], streams.output, outcome.output);
    take(events[1], streams.errors, outcome.errors);
    return true;
}

Outcome RunUnit(const std::vector<std::string>& arguments, RunningUnit::Options options)
{
    return RunningUnit(arguments, options).End();
}

Outcome RunShell(const std::string& command)
{
    return RunUnit({"run", "--", "/bin/sh", "-c", command});
}

#include "base/Tavsystem/SysUtil/ExecSystemCmdThroughPipe.h"

#include "base/Tavbase/Util/StandardStreams.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tavsystem::SysUtil
{

namespace
{

class Descriptor
{
public:
    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    ~Descriptor() { Close(); }

    int Get() const { return fd; }

    void Close()
    {
        if (fd >= 0)
        {
            close(fd);
            fd = -1;
        }
    }

    void Take(int opened) { fd = opened; }

private:
    int fd = -1;
};

struct Pipe
{
    Descriptor readEnd;
    Descriptor writeEnd;

    bool Open()
    {
        const Tavbase::Util::StandardStreamsHeld streams(STDIN_FILENO); // the command's own are made from it
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
        {
            return false;
        }
        readEnd.Take(ends[0]);
        writeEnd.Take(ends[1]);
        return true;
    }
};

/// A started process; its end is awaited when the object goes, so that none is left behind as a zombie.
class Child
{
public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ~Child()
    {
        if (pid > 0)
        {
            while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR)
            {
            }
        }
    }

    bool Start(std::string& command, int output);

private:
    pid_t pid = -1;
};

class FileActions
{
public:
    FileActions() : failure(posix_spawn_file_actions_init(&actions)) {}

    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    ~FileActions() { posix_spawn_file_actions_destroy(&actions); }

    const posix_spawn_file_actions_t* Get() const { return &actions; }

    bool Prepare(int output)
    {
        Check(posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO));
        Check(posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        if (fcntl(STDERR_FILENO, F_GETFD) < 0)
        {
            // Else the first file that the command opens would get its error messages.
            Check(posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0));
        }
        Check(posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1));
        return failure == 0;
    }

private:
    void Check(int result) { failure = failure == 0 ? result : failure; }

    posix_spawn_file_actions_t actions{};
    int failure;
};

class Attributes
{
public:
    Attributes() : failure(posix_spawnattr_init(&attributes)) {}

    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    ~Attributes() { posix_spawnattr_destroy(&attributes); }

    const posix_spawnattr_t* Get() const { return &attributes; }

    bool Prepare()
    {
        sigset_t none;
        sigemptyset(&none);
        sigset_t restored;
        sigemptyset(&restored);
        sigaddset(&restored, SIGPIPE);
        return failure == 0 && posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
               posix_spawnattr_setsigdefault(&attributes, &restored) == 0 &&
               posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
    }

private:
    posix_spawnattr_t attributes{};
    int failure;
};

bool Child::Start(std::string& command, int output)
{
    FileActions actions;
    Attributes attributes;
    if (!actions.Prepare(output) || !attributes.Prepare())
    {
        return false;
    }
    // The "--" lets a command line begin with a dash.
    std::array<char, 3> shell{"sh"};
    std::array<char, 3> option{"-c"};
    std::array<char, 3> end{"--"};
    const std::array<char*, 5> arguments{shell.data(), option.data(), end.data(), command.data(), nullptr};
    pid_t started = -1;
    if (posix_spawn(&started, "/bin/sh", actions.Get(), attributes.Get(), arguments.data(), environ) != 0)
    {
        return false;
    }
    pid = started;
    return true;
}

/// @return false when reading failed
bool ReadToEnd(int fd, std::string& text)
{
    std::array<char, 4096> chunk{};
    for (;;)
    {
        const ssize_t length = read(fd, chunk.data(), chunk.size());
        if (length > 0)
        {
            text.append(chunk.data(), static_cast<std::size_t>(length));
        }
        else if (length == 0)
        {
            return true;
        }
        else if (errno != EINTR)
        {
            return false;
        }
    }
}

}

std::string ExecSystemCmdThroughPipe(std::string command)
{
    // The pipe closes before the child's end is awaited: a command that still writes is ended by SIGPIPE.
    Child child;
    Pipe pipe;
    if (!pipe.Open() || !child.Start(command, pipe.writeEnd.Get()))
    {
        return {};
    }
    pipe.writeEnd.Close();
    std::string output;
    return ReadToEnd(pipe.readEnd.Get(), output) ? output : std::string();
}

}

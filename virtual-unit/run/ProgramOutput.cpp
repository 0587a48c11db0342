#include "virtual-unit/run/ProgramOutput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

[[noreturn]] void Fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// The two ends of a stream.
struct Ends
{
    Descriptor source;
    Descriptor programs;
};

bool IsSameFile(int one, int other)
{
    struct stat first = {};
    struct stat second = {};
    return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

Ends OpenPipe()
{
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
    {
        Fail("pipe");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

void CopySize(int from, int to)
{
    winsize size = {};
    if (ioctl(from, TIOCGWINSZ, &size) == 0)
    {
        ioctl(to, TIOCSWINSZ, &size);
    }
}

/// A terminal as `like` is one, whose output is treated there.
Ends OpenTerminal(int like)
{
    Descriptor far(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::array<char, 64> name = {};
    if (far.Get() < 0 || grantpt(far.Get()) != 0 || unlockpt(far.Get()) != 0 ||
        ptsname_r(far.Get(), name.data(), name.size()) != 0)
    {
        Fail("terminal");
    }
    Descriptor near(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings = {};
    if (near.Get() < 0 || tcgetattr(like, &settings) != 0)
    {
        Fail("terminal");
    }
    settings.c_oflag &= static_cast<tcflag_t>(~OPOST);
    settings.c_lflag &= static_cast<tcflag_t>(~ECHO);
    tcsetattr(near.Get(), TCSANOW, &settings);
    CopySize(like, near.Get());
    return {std::move(far), std::move(near)};
}

/// @return false when nobody takes it
bool WriteAll(int fd, std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count > 0)
        {
            text.remove_prefix(static_cast<std::size_t>(count));
        }
        else if (count < 0 && errno == EAGAIN)
        {
            pollfd event = {fd, POLLOUT, 0};
            poll(&event, 1, -1);
        }
        else if (count == 0 || errno != EINTR)
        {
            return false;
        }
    }
    return true;
}

}

ProgramOutput::ProgramOutput(PortObserver& whoListens) : listener(whoListens), ending(eventfd(0, EFD_CLOEXEC))
{
    try
    {
        Redirect(STDOUT_FILENO);
        Redirect(STDERR_FILENO);
    }
    catch (...)
    {
        RestoreStreams();
        throw;
    }
}

ProgramOutput::~ProgramOutput()
{
    RestoreStreams();
    End();
}

void ProgramOutput::Redirect(int number)
{
    constexpr int BEHIND_STANDARD = 3;
    Descriptor target(fcntl(number, F_DUPFD_CLOEXEC, BEHIND_STANDARD));
    if (target.Get() < 0)
    {
        return; // it is closed
    }
    for (const auto& stream : streams)
    {
        if (IsSameFile(stream->target.Get(), target.Get()))
        {
            stream->numbers.push_back(number);
            dup2(stream->programs.Get(), number);
            return;
        }
    }
    auto stream = std::make_unique<Stream>();
    stream->terminal = isatty(number) == 1;
    Ends ends = stream->terminal ? OpenTerminal(number) : OpenPipe();
    fcntl(ends.source.Get(), F_SETFL, O_RDWR | O_NONBLOCK);
    stream->source = std::move(ends.source);
    stream->programs = std::move(ends.programs);
    stream->target = std::move(target);
    stream->numbers = {number};
    std::fflush(nullptr); // what this process has written stands before it
    dup2(stream->programs.Get(), number);
    streams.push_back(std::move(stream));
}

void ProgramOutput::RestoreStreams()
{
    for (const auto& stream : streams)
    {
        for (const int number : stream->numbers)
        {
            dup2(stream->target.Get(), number);
        }
        stream->numbers.clear();
        stream->programs = Descriptor();
    }
}

void ProgramOutput::Begin()
{
    RestoreStreams();
    thread = std::thread(&ProgramOutput::Listen, this);
}

void ProgramOutput::End()
{
    if (thread.joinable())
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t ignored =
            write(ending.Get(), &one, sizeof(one)); // there is room for it
        thread.join();
    }
    for (const auto& stream : streams)
    {
        HandOn(*stream); // also what came before a program that was not started
    }
    streams.clear();
}

void ProgramOutput::Listen()
{
    for (;;)
    {
        std::vector<pollfd> events = {{ending.Get(), POLLIN, 0}};
        for (const auto& stream : streams)
        {
            events.push_back({stream->source.Get(), POLLIN, 0});
        }
        poll(events.data(), events.size(), -1);
        for (std::size_t i = 0; i < streams.size(); ++i)
        {
            if (events[i + 1].revents != 0)
            {
                HandOn(*streams[i]);
            }
        }
        if (events[0].revents != 0)
        {
            return;
        }
    }
}

/// What there is; then, if the program has closed the stream or nobody takes it, it is over.
void ProgramOutput::HandOn(Stream& stream)
{
    std::array<char, 4096> bytes;
    ssize_t count = 0;
    while (stream.source.Get() >= 0 && (count = read(stream.source.Get(), bytes.data(), bytes.size())) != -1)
    {
        const std::string_view text(bytes.data(), static_cast<std::size_t>(count));
        listener.Received(text, std::chrono::steady_clock::now());
        if (text.empty() || !WriteAll(stream.target.Get(), text))
        {
            stream.source = Descriptor();
            return;
        }
        if (stream.terminal)
        {
            CopySize(stream.target.Get(), stream.source.Get());
        }
    }
    if (stream.source.Get() >= 0 && errno != EAGAIN &&
        errno != EINTR) // of a terminal that all have closed: EIO
    {
        stream.source = Descriptor();
    }
}

}

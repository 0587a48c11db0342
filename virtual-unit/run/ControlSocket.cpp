#include "virtual-unit/run/ControlSocket.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace VirtualUnit
{

namespace
{

constexpr const char* NAME = "/control";
constexpr int WAITING_CLIENTS = 8;
constexpr std::size_t LONGEST_LINE = 4096;
constexpr timeval PATIENCE = {60, 0}; // with the other side, on a busy machine

constexpr char DONE = '+'; // the first byte of an answer
constexpr char REFUSED = '-';

[[noreturn]] void Fail(const std::string& path, int error)
{
    throw ControlSocket::Failure(path + ": " + std::generic_category().message(error));
}

sockaddr_un Address(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
    {
        Fail(path, ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

template <class Function>
int WithAddress(Function function, int fd, const sockaddr_un& address)
{
    return function(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

void BePatient(int fd)
{
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof(PATIENCE));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof(PATIENCE));
}

void SendAll(int fd, std::string_view text)
{
    ssize_t count = 0;
    while (!text.empty() && (count = send(fd, text.data(), text.size(), MSG_NOSIGNAL)) > 0)
    {
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

/// What comes until the other side has nothing more to say.
std::string ReceiveAll(int fd, std::size_t most)
{
    std::string text;
    std::array<char, 1024> bytes;
    ssize_t count = 0;
    while (text.size() < most && (count = recv(fd, bytes.data(), bytes.size(), 0)) > 0)
    {
        text.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return text;
}

/// @return a connection; none: nobody listens there
Descriptor Connect(const std::string& path)
{
    Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (WithAddress(connect, fd.Get(), Address(path)) != 0)
    {
        const int error = errno;
        fd = Descriptor();
        errno = error;
    }
    return fd;
}

/// The sockets of all runs of this user, those of runs that were killed among them.
std::vector<std::string> AllSockets()
{
    std::vector<std::string> sockets;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(PrivateDirectory::Parent(), ignored))
    {
        const std::string path = entry.path().string() + NAME;
        struct stat status = {};
        if (entry.path().filename().string().starts_with(PrivateDirectory::NAME) &&
            lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) && status.st_uid == geteuid())
        {
            sockets.push_back(path);
        }
    }
    return sockets;
}

Descriptor ConnectToTheOnlyRun()
{
    std::vector<std::pair<std::string, Descriptor>> runs;
    for (const std::string& path : AllSockets())
    {
        if (Descriptor fd = Connect(path); fd.Get() >= 0)
        {
            runs.emplace_back(path, std::move(fd));
        }
    }
    if (runs.empty())
    {
        throw ControlSocket::NoneRuns("no virtual unit is running");
    }
    if (runs.size() > 1)
    {
        std::string paths;
        for (const auto& run : runs)
        {
            paths += " " + run.first;
        }
        throw ControlSocket::Failure("more than one virtual unit is running: choose one with --control:" +
                                     paths);
    }
    return std::move(runs.front().second);
}

}

ControlSocket::ControlSocket(const std::string& wanted) : path(wanted)
{
    if (path.empty())
    {
        directory.emplace();
        path = directory->Path() + NAME;
    }
    path = std::filesystem::absolute(path);
    const sockaddr_un address = Address(path);
    listener = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ending = Descriptor(eventfd(0, EFD_CLOEXEC));
    const mode_t former = umask(S_IRWXG | S_IRWXO); // for its owner alone, from the begin
    const int bound = WithAddress(bind, listener.Get(), address);
    const int error = errno;
    umask(former);
    if (bound != 0 || listen(listener.Get(), WAITING_CLIENTS) != 0)
    {
        Fail(path, bound != 0 ? error : errno);
    }
    setenv(VARIABLE, path.c_str(), 1); // NOLINT(concurrency-mt-unsafe): see above
}

ControlSocket::~ControlSocket()
{
    Stop();
    unsetenv(VARIABLE); // NOLINT(concurrency-mt-unsafe)
    unlink(path.c_str());
}

void ControlSocket::Start(Answer answer)
{
    thread = std::thread([this, answer = std::move(answer)] { Serve(answer); });
}

void ControlSocket::Stop()
{
    if (thread.joinable())
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t ignored =
            write(ending.Get(), &one, sizeof(one)); // there is room for it
        thread.join();
    }
}

void ControlSocket::Serve(const Answer& answer)
{
    std::array<pollfd, 2> events = {{{listener.Get(), POLLIN, 0}, {ending.Get(), POLLIN, 0}}};
    for (;;)
    {
        poll(events.data(), events.size(), -1);
        if (events[1].revents != 0)
        {
            return;
        }
        const Descriptor client(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (client.Get() < 0)
        {
            usleep(10'000); // nobody any more, or no descriptor for him yet
            continue;
        }
        BePatient(client.Get());
        std::string line = ReceiveAll(client.Get(), LONGEST_LINE);
        std::string reply;
        try
        {
            reply = DONE + answer(line);
        }
        catch (const std::exception& failure)
        {
            reply = REFUSED + std::string(failure.what());
        }
        SendAll(client.Get(), reply);
    }
}

std::string ControlSocket::Ask(const std::string& wanted, const std::string& line)
{
    const char* const own =
        std::getenv(VARIABLE); // NOLINT(concurrency-mt-unsafe): this process has one thread
    const std::string path = !wanted.empty() ? wanted : own != nullptr ? own : "";
    const Descriptor fd = path.empty() ? ConnectToTheOnlyRun() : Connect(path);
    if (fd.Get() < 0)
    {
        Fail(path, errno);
    }
    BePatient(fd.Get());
    SendAll(fd.Get(), line);
    shutdown(fd.Get(), SHUT_WR);
    const std::string reply = ReceiveAll(fd.Get(), SIZE_MAX);
    if (reply.empty())
    {
        throw Failure("the virtual unit has ended, or gives no answer");
    }
    if (reply.front() != DONE)
    {
        throw Failure(reply.substr(1));
    }
    return reply.substr(1);
}

}

#include "virtual-unit/run/Application.h"

#include "virtual-unit/common/ParentOf.h"
#include "virtual-unit/time/VirtualTime.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

constexpr int NOT_FOUND = 127;
constexpr int SIGNAL_OFFSET = 128;
constexpr int NO_FILTER = -1;

[[noreturn]] void Fail(int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), what);
}

/// Room for the one descriptor that is handed over.
union DescriptorMessage {
    cmsghdr header;
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

/// What the new process tells before the program takes over: first about the filter, then, if it fails,
/// about the execution. 0 or an errno.
bool Tell(int channel, int error, int descriptor = -1)
{
    iovec part = {&error, sizeof(error)};
    DescriptorMessage control = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptor >= 0)
    {
        message.msg_control = control.bytes.data();
        message.msg_controllen = control.bytes.size();
        control.header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(&control.header), &descriptor, sizeof(descriptor));
    }
    return sendmsg(channel, &message, MSG_NOSIGNAL) == sizeof(error);
}

/// @return false when the other side has closed: the program has taken over
bool Hear(int channel, int& error, int& descriptor)
{
    iovec part = {&error, sizeof(error)};
    DescriptorMessage control = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes.data();
    message.msg_controllen = control.bytes.size();
    ssize_t count = 0;
    do
    {
        count = recvmsg(channel, &message, MSG_CMSG_CLOEXEC);
    } while (count < 0 && errno == EINTR);
    if (const cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr)
    {
        std::memcpy(&descriptor, CMSG_DATA(header), sizeof(descriptor));
    }
    return count == sizeof(error);
}

/// The new process, from fork() to the program. It has one thread, as had its parent.
[[noreturn]] void BecomeProgram(const std::vector<std::string>& command, const Application::Start& start,
                                const sigset_t& signals, int channel, pid_t parent)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command)
    {
        arguments.push_back(const_cast<char*>(argument.c_str())); // execvp() does not alter them
    }
    arguments.push_back(nullptr);

    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) // otherwise it has died before the line above
    {
        pthread_sigmask(SIG_SETMASK, &signals, nullptr);
        start.prepare();
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0); // of a filter, and of a library that is preloaded to all
        const int notifications = start.filter != nullptr ? start.filter->Load() : NO_FILTER;
        if (notifications < NO_FILTER)
        {
            Tell(channel, -notifications);
        }
        else if (Tell(channel, 0, notifications))
        {
            close(notifications); // the program must not answer itself
            execvp(arguments[0], arguments.data());
            Tell(channel, errno);
        }
    }
    _exit(NOT_FOUND);
}

/// The first file of that name in a directory of PATH that can be looked into; empty: there is none.
std::string FindInPath(const std::string& name, int mode)
{
    const char* const path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): nobody else alters it now
    std::istringstream directories(path != nullptr ? path : "");
    for (std::string directory; std::getline(directories, directory, ':');)
    {
        const std::filesystem::path candidate = std::filesystem::path(directory) / name;
        if (access(candidate.c_str(), mode) == 0)
        {
            return candidate;
        }
    }
    return {};
}

/// All processes there are, by their parents.
std::multimap<pid_t, pid_t> Children()
{
    std::multimap<pid_t, pid_t> children;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error))
    {
        const std::string name = entry.path().filename();
        pid_t process = 0;
        const auto [end, failure] = std::from_chars(name.data(), name.data() + name.size(), process);
        if (failure == std::errc() && end == name.data() + name.size())
        {
            children.emplace(ParentOf(process), process);
        }
    }
    return children;
}

}

std::string Application::PathOf(const std::string& name)
{
    return name.find('/') == std::string::npos ? FindInPath(name, X_OK) : name;
}

Application::Application(const std::vector<std::string>& command, const Start& start, const sigset_t& signals)
    : program(command.front())
{
    std::array<int, 2> ends = {};
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
    {
        Fail(errno, "child subreaper");
    }
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    {
        Fail(errno, "socket pair");
    }
    channel = Descriptor(ends[0]);
    Descriptor otherEnd(ends[1]);
    const pid_t parent = getpid();
    pid = fork();
    if (pid == 0)
    {
        BecomeProgram(command, start, signals, otherEnd.Get(), parent);
    }
    if (pid < 0)
    {
        Fail(errno, "fork");
    }
    otherEnd = Descriptor();

    int error = 0;
    const bool began = Hear(channel.Get(), error, notifications);
    if (!began || error != 0 || (start.filter != nullptr && notifications < 0))
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        if (began && error == EBUSY)
        {
            throw NotStarted(INSIDE_A_RUN, CANNOT_RUN);
        }
        Fail(began ? error : ECHILD, began
                                         ? "the kernel does not take a seccomp filter with user notification"
                                         : "the new process ended before the program began");
    }
}

void Application::AwaitStart(const std::function<void()>& answer)
{
    std::array<pollfd, 2> events = {{{channel.Get(), POLLIN, 0}, {notifications, POLLIN, 0}}};
    do
    {
        events[0].revents = 0;
        events[1].revents = 0;
        poll(events.data(), events.size(), -1);
        if ((events[1].revents & POLLIN) != 0)
        {
            answer(); // the execution of the program is a call that is held up, too
        }
    } while (events[0].revents == 0);

    int error = 0;
    int none = -1;
    if (Hear(channel.Get(), error, none))
    {
        if (error == EACCES && program.find('/') == std::string::npos && FindInPath(program, F_OK).empty())
        {
            error = ENOENT; // execvp() says so as well when it may not enter a directory of PATH
        }
        throw NotStarted(program + ": " + std::generic_category().message(error),
                         error == ENOENT || error == ENOTDIR ? NOT_FOUND : NOT_EXECUTABLE);
    }
    channel = Descriptor();
}

Application::~Application()
{
    while (Reap())
    {
        Signal(SIGKILL);
        SignalOrphans(SIGKILL);
        usleep(1000);
    }
    close(notifications);
}

void Application::Signal(int signal) const
{
    if (!exitStatus)
    {
        kill(pid, signal);
    }
}

void Application::SignalOrphans(int signal) const
{
    // They are children of this process, not waited for yet: their numbers cannot have been given anew.
    const std::multimap<pid_t, pid_t> children = Children();
    for (auto [child, end] = children.equal_range(getpid()); child != end; ++child)
    {
        if (child->second != pid)
        {
            kill(child->second, signal);
        }
    }
}

void Application::KillAll() const
{
    Signal(SIGKILL); // at once: the list takes its time
    const std::multimap<pid_t, pid_t> children = Children();
    // Parents first: one that is killed waits for no child any more, whose number could be given anew.
    std::vector<pid_t> parents = {getpid()};
    for (std::size_t i = 0; i < parents.size(); ++i)
    {
        for (auto [child, end] = children.equal_range(parents[i]); child != end; ++child)
        {
            kill(child->second, SIGKILL);
            parents.push_back(child->second);
        }
    }
}

bool Application::Reap()
{
    for (;;)
    {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended <= 0)
        {
            return ended == 0;
        }
        if (ended == pid)
        {
            livedInVirtualTime = VirtualTime::LivesInIt(pid);
            if (WIFSIGNALED(status))
            {
                endingSignal = WTERMSIG(status);
            }
            exitStatus = WIFSIGNALED(status) ? SIGNAL_OFFSET + WTERMSIG(status) : WEXITSTATUS(status);
        }
    }
}

}

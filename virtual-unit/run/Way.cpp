#include "virtual-unit/run/Way.h"

#include "virtual-unit/calls/KernelCalls.h"
#include "virtual-unit/calls/PreloadCalls.h"
#include "virtual-unit/calls/ProgramFile.h"
#include "virtual-unit/calls/SystemCallFilter.h"
#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/common/PreloadedLibrary.h"
#include "virtual-unit/preload/Protocol.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr const char* TRIAL = "/virtual-unit-trial"; // a file that there is on no machine

/// The kernel itself tells best why it does not.
void RequireNotification()
{
    const std::uint32_t action = SECCOMP_RET_USER_NOTIF;
    if (syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) != 0)
    {
        throw std::system_error(errno, std::generic_category(),
                                "the kernel refuses seccomp user notification");
    }
}

/// One of another architecture would be ended by the filter at its first call, or do without the library.
void RequireOwnArchitecture(const std::string& program)
{
    if (const std::optional<std::string> why = ProgramFile(Application::PathOf(program)).WhyForeign())
    {
        throw Application::NotStarted(program + " is not run: " + *why +
                                          "; both need to be built for the same",
                                      Application::NOT_EXECUTABLE);
    }
}

class ByKernel : public Way
{
public:
    explicit ByKernel(const InterceptedCalls& calls)
    {
        RequireNotification();
        filter.emplace(calls);
    }

    std::unique_ptr<Application> Start(const std::vector<std::string>& command,
                                       const sigset_t& signals) override
    {
        RequireOwnArchitecture(command.front());
        auto application = std::make_unique<Application>(command, Application::Start{&*filter}, signals);
        source.emplace(application->Notifications());
        return application;
    }

    CallSource& Calls() override { return *source; }

private:
    std::optional<SystemCallFilter> filter;
    std::optional<KernelCalls> source;
};

class ByPreload : public Way
{
public:
    ByPreload()
        : path(PreloadedLibrary::Find(CALLS_LIBRARY)), library(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (library.Get() < 0)
        {
            throw std::system_error(errno, std::generic_category(), CALLS_LIBRARY);
        }
        // By its own path a program reaches it that has given up rights; LD_PRELOAD knows no quotation, and
        // the library keeps a text of that size.
        constexpr std::size_t LONGEST = 200;
        if (path.find_first_of(" :;$") != std::string::npos || path.size() > LONGEST)
        {
            path = PreloadedLibrary::PathOf(library.Get());
        }
    }

    /// @param kernelRefuses why the other way cannot be gone; empty: nobody has asked
    void Since(const std::string& kernelRefuses) { reason = kernelRefuses; }

    std::string Remark() const override
    {
        return "by preload" + (reason.empty() ? "" : ", since " + reason) +
               ": static programs, and system calls that a program makes by itself, do not reach the unit";
    }

    std::unique_ptr<Application> Start(const std::vector<std::string>& command,
                                       const sigset_t& signals) override
    {
        RequireOwnArchitecture(command.front());
        RequireReach(command.front());
        Application::Start start;
        start.prepare = [this] { Prepare(); };
        return std::make_unique<Application>(command, start, signals);
    }

    CallSource& Calls() override { return source; }

private:
    void Prepare() const
    {
        PreloadedLibrary::Preload(path);
        // NOLINTBEGIN(concurrency-mt-unsafe): the new process has one thread
        setenv(Preload::VARIABLE, source.Name().c_str(), 1);
        setenv(Preload::LIBRARY_VARIABLE, path.c_str(), 1);
        // NOLINTEND(concurrency-mt-unsafe)
    }

    /// The first program is not asked about by anybody.
    void RequireReach(const std::string& program)
    {
        if (const std::optional<std::string> out = source.WhyOutOfReach(Application::PathOf(program)))
        {
            throw Application::NotStarted(program + " is not run: " + *out +
                                              " and would run past the virtual unit",
                                          Application::NOT_EXECUTABLE);
        }
    }

    std::string path; ///< as in LD_PRELOAD
    VirtualUnit::Descriptor library;
    PreloadCalls source;
    std::string reason;
};

sigset_t PresentMask()
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

/// Holds up the execution of a program, reads its path and places a descriptor.
void Try(ByKernel& way)
{
    const auto application = way.Start({TRIAL}, PresentMask());
    int error = 0;
    const auto answer = [&] {
        CallSource& source = way.Calls();
        const std::optional<WaitingCall> call = source.Next();
        std::string path;
        if (call && source.StillWaits(*call))
        {
            error = source.ReadPath(*call, call->arguments[0], path);
            source.Respond(*call, Answer::Opened(open("/dev/null", O_RDONLY | O_CLOEXEC), true));
        }
    };
    try
    {
        application->AwaitStart(answer);
    }
    catch (const Application::NotStarted&)
    {
        // As expected: there is no such program.
    }
    if (error != 0)
    {
        throw std::system_error(error, std::generic_category(), "process_vm_readv");
    }
}

/// Has a program find a file that only the supervisor knows of.
void Try(ByPreload& way)
{
    const auto application =
        way.Start({"/bin/sh", "-c", std::string("test -e ") + TRIAL + " && exit 7"}, PresentMask());
    constexpr int FOUND = 7;
    CallSource& source = way.Calls();
    application->AwaitStart([] {});
    constexpr int INTERVAL = 10; // milliseconds between looks whether it has ended
    pollfd event = {source.Descriptor(), POLLIN, 0};
    while (application->Reap())
    {
        if (poll(&event, 1, INTERVAL) <= 0)
        {
            continue;
        }
        if (const std::optional<WaitingCall> call = source.Next())
        {
            std::string path;
            const bool ours = source.ReadPath(*call, call->arguments[1], path) == 0 && path == TRIAL;
            source.Respond(*call, ours ? Answer::Success() : Answer::GoOn());
        }
    }
    if (application->ExitStatus() != FOUND)
    {
        throw std::runtime_error(std::string(CALLS_LIBRARY) + " could not be preloaded");
    }
}

/// A way that works. @param refusal why it does not, for people; otherwise untouched @return null if so
template <class Kind, class... Arguments>
std::unique_ptr<Kind> Make(std::string& refusal, const Arguments&... arguments)
{
    try
    {
        auto way = std::make_unique<Kind>(arguments...);
        Try(*way);
        return way;
    }
    catch (const Application::NotStarted&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        refusal = failure.what();
        return nullptr;
    }
}

}

std::string Way::WhyNot(const std::string& by, const InterceptedCalls& calls)
{
    std::string refusal;
    if (by == KERNEL)
    {
        Make<ByKernel>(refusal, calls);
    }
    else
    {
        Make<ByPreload>(refusal);
    }
    return refusal;
}

std::unique_ptr<Way> Way::Choose(const std::string& by, const InterceptedCalls& calls)
{
    std::string kernelRefuses;
    if (by != PRELOAD)
    {
        if (std::unique_ptr<Way> way = Make<ByKernel>(kernelRefuses, calls))
        {
            return way;
        }
    }
    if (by == KERNEL)
    {
        throw std::runtime_error(kernelRefuses);
    }
    std::string refusal;
    auto way = Make<ByPreload>(refusal);
    if (way == nullptr)
    {
        throw std::runtime_error(kernelRefuses.empty() ? refusal : kernelRefuses + "; " + refusal);
    }
    way->Since(kernelRefuses);
    return way;
}

}

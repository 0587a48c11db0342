#include "virtual-unit/run/Supervisor.h"

#include "virtual-unit/calls/StorageCard.h"
#include "virtual-unit/common/Deadline.h"
#include "virtual-unit/common/PrivateDirectory.h"
#include "virtual-unit/run/Application.h"
#include "virtual-unit/run/UsbBus.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::seconds ENDING_GRACE{10}; // an application may wait six seconds for its GPS thread
constexpr milliseconds ORPHANS_GRACE{1000};
constexpr milliseconds KILL_INTERVAL{10}; // killing one process may leave another without a parent

/// The signals that arrive at the supervisor, taken from a descriptor.
class Signals
{
public:
    Signals()
    {
        std::signal(SIGCHLD, SIG_DFL); // ignored, it would take the ended processes away
        sigset_t wanted;
        sigemptyset(&wanted);
        for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD})
        {
            sigaddset(&wanted, signal);
        }
        pthread_sigmask(SIG_BLOCK, &wanted, &former);
        fd = signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
        if (fd < 0)
        {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }

    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    ~Signals() { close(fd); }

    int Descriptor() const { return fd; }

    const sigset_t& FormerMask() const { return former; }

    /// A signal that is to end the program.
    struct Ending
    {
        int number;
        bool fromTerminal; ///< the program has got it itself
    };

    std::optional<Ending> TakeEnding() const ///< the next one
    {
        signalfd_siginfo info = {};
        while (read(fd, &info, sizeof(info)) == sizeof(info))
        {
            const int number = static_cast<int>(info.ssi_signo);
            if (number != SIGCHLD)
            {
                return Ending{number, (number == SIGINT || number == SIGQUIT) && info.ssi_code == SI_KERNEL};
            }
        }
        return std::nullopt;
    }

private:
    sigset_t former;
    int fd;
};

using Time = std::optional<Clock::time_point>;

Time Earlier(const Time& one, const Time& other)
{
    return one && other ? std::min(*one, *other) : one ? one : other;
}

}

int RunOnVirtualUnit(Way& way, const InterceptedCalls& calls, const std::vector<std::string>& command,
                     const DeviceTable& devices, CellularModule& module, const std::string& sdcard,
                     const RunListener& listener)
{
    const Signals signals; // from here on no signal but SIGKILL ends this process before it has cleaned up
    std::optional<PrivateDirectory> temporary;
    if (sdcard.empty())
    {
        temporary.emplace();
    }
    const StorageCard card(temporary ? temporary->Path() : sdcard);
    const UsbBus bus(module);
    const std::unique_ptr<Application> started = way.Start(command, signals.FormerMask());
    Application& application = *started;
    std::signal(SIGPIPE, SIG_IGN); // a closed standard error must not end the unit
    Responder responder(way.Calls(), calls, devices, card, listener.report);
    application.AwaitStart([&responder] { responder.AnswerNext(); });
    listener.started();

    std::optional<Clock::time_point> killAt; // the program, then the orphans
    bool programEnded = false;
    bool cut = false; // the power
    std::array<pollfd, 3> events = {{{signals.Descriptor(), POLLIN, 0},
                                     {way.Calls().Descriptor(), POLLIN, 0},
                                     {devices.Power().WhenCut(), POLLIN, 0}}};
    while (application.Reap())
    {
        devices.Power().Advance(Clock::now());
        if (!cut && devices.Power().IsCut())
        {
            cut = true;
            events[2].fd = -1; // it stays readable
            application.KillAll();
            killAt = Clock::now() + KILL_INTERVAL;
            listener.signalled(SIGKILL);
        }
        if (!programEnded && application.ExitStatus())
        {
            programEnded = true;
            application.SignalOrphans(cut ? SIGKILL : SIGTERM);
            killAt = Clock::now() + (cut ? KILL_INTERVAL : ORPHANS_GRACE);
        }
        if (killAt && *killAt <= Clock::now())
        {
            application.Signal(SIGKILL);
            if (programEnded)
            {
                application.SignalOrphans(SIGKILL);
            }
            killAt = Clock::now() + KILL_INTERVAL;
        }

        responder.AnswerDue();
        const Time next = Earlier(Earlier(killAt, responder.NextDeadline()), devices.Power().NextDeadline());
        if (poll(events.data(), events.size(), MillisecondsUntil(next)) < 0)
        {
            continue; // interrupted; what it returned does not hold
        }
        if ((events[1].revents & POLLIN) != 0)
        {
            responder.AnswerNext();
        }
        else if (events[1].revents != 0)
        {
            events[1].fd = -1; // no process under the filter is left
        }
        const std::optional<Signals::Ending> signal =
            events[0].revents != 0 ? signals.TakeEnding() : std::nullopt;
        if (signal && !programEnded)
        {
            listener.signalled(signal->number);
            if (!signal->fromTerminal)
            {
                application.Signal(signal->number);
                killAt = killAt ? Clock::now() : Clock::now() + ENDING_GRACE;
            }
        }
    }

    listener.ended();
    const bool endedByCut = cut && application.EndingSignal() == SIGKILL;
    if (cut)
    {
        listener.report(devices.Power().Present() == PowerSupply::State::SwitchedOff
                            ? "the program was ended by the power line: the unit has switched itself off"
                            : "the program was ended by a power cut");
        responder.LosePower();
    }
    if (!application.LivedInVirtualTime())
    {
        listener.report(
            command.front() +
            " did not live in virtual time: it is linked statically, or its environment was emptied");
    }
    if (application.EndingSignal() == SIGSYS)
    {
        listener.report(
            "the program was ended by SIGSYS: programs of another architecture, and 32-bit ones, do not "
            "run here");
    }
    else if (!endedByCut && application.EndingSignal() && application.EndingSignal() != SIGINT)
    {
        listener.report("the program was ended by signal " + std::to_string(*application.EndingSignal()));
    }
    return endedByCut ? 0 : application.ExitStatus().value_or(0);
}

}

#ifndef VIRTUAL_UNIT_RUN_APPLICATION_H
#define VIRTUAL_UNIT_RUN_APPLICATION_H

#include "virtual-unit/calls/SystemCallFilter.h"
#include "virtual-unit/common/Descriptor.h"

#include <csignal>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace VirtualUnit
{

/**
 * The program that runs on the virtual unit, and all processes that it starts.
 *
 * It belongs to the process group and the terminal of the supervisor. It is killed when the supervisor dies.
 * Processes that it leaves behind become the supervisor's children.
 */
class Application
{
public:
    /// The program cannot be found or executed, or is on a virtual unit already.
    class NotStarted : public std::runtime_error
    {
    public:
        NotStarted(const std::string& message, int status) : std::runtime_error(message), exitStatus(status)
        {
        }

        int exitStatus; ///< as of a shell: 127 not found, 126 not executable; 3: on a unit
    };

    static constexpr int CANNOT_RUN = 3; ///< an exit status
    static constexpr int NOT_EXECUTABLE = 126;
    static constexpr const char* INSIDE_A_RUN =
        "a run inside a run is not possible: this program is on a virtual unit already";

    /// What a program's name leads to: itself, or a file in a directory of PATH; empty: there is none.
    static std::string PathOf(const std::string& name);

    /// How the program is brought onto the unit.
    struct Start
    {
        const SystemCallFilter* filter = nullptr; ///< null: it is not under any
        std::function<void()> prepare = [] {};    ///< called in the new process, before it is the program
    };

    /**
     * Starts the program. The calling process has one thread, and ends no sooner than it.
     * @param command the program, searched for in PATH, and its arguments
     * @param signals the signal mask that the program is to have
     * @throws NotStarted inside a run @throws std::system_error when the kernel does not take the filter
     */
    Application(const std::vector<std::string>& command, const Start& start, const sigset_t& signals);
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application(); ///< kills what is left

    int Notifications() const
    {
        return notifications;
    } ///< where the filter's calls arrive; closed by this object; below 0: there is no filter

    /// Waits until the new process has become the program. @param answer answers a call that has arrived
    /// @throws NotStarted
    void AwaitStart(const std::function<void()>& answer);

    void Signal(int signal) const; ///< to the program itself; nothing when it has ended

    /// To what the program has left behind: to its processes that have no other parent any more.
    void SignalOrphans(int signal) const;

    /// Kills the program and all that it started, at once.
    void KillAll() const;

    /// Takes note of the processes that have ended. @return false when none is left
    bool Reap();

    /// How the program itself ended: its exit status, or 128 and the signal's number; none: it runs.
    std::optional<int> ExitStatus() const { return exitStatus; }

    /// True as well when time is real.
    bool LivedInVirtualTime() const { return livedInVirtualTime; }

    std::optional<int> EndingSignal() const { return endingSignal; } ///< the signal that ended it

private:
    std::string program;
    pid_t pid = -1;
    Descriptor channel; ///< to the new process, until it has become the program
    int notifications = -1;
    bool livedInVirtualTime = true;
    std::optional<int> exitStatus;
    std::optional<int> endingSignal;
};

}

#endif

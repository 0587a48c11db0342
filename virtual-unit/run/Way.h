#ifndef VIRTUAL_UNIT_RUN_WAY_H
#define VIRTUAL_UNIT_RUN_WAY_H

#include "virtual-unit/calls/CallSource.h"
#include "virtual-unit/calls/InterceptedCalls.h"
#include "virtual-unit/run/Application.h"

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// How the system calls of a program reach the unit.
class Way
{
public:
    virtual ~Way() = default;

    /// What is to be told before a run: what this way cannot do; empty: nothing.
    virtual std::string Remark() const { return {}; }

    /// Starts a program on this way. @param signals the signal mask that it is to have
    /// @throws Application::NotStarted inside a run @throws std::exception when it is not possible here
    virtual std::unique_ptr<Application> Start(const std::vector<std::string>& command,
                                               const sigset_t& signals) = 0;

    virtual CallSource& Calls() = 0; ///< of the program that was started

    /// What "--by" takes.
    static constexpr const char* KERNEL = "kernel";
    static constexpr const char* PRELOAD = "preload";

    /**
     * The way for a run.
     * @param by KERNEL or PRELOAD; empty: the first of them that works here
     * @param calls stay the caller's
     * @throws Application::NotStarted inside a run @throws std::runtime_error when there is none
     */
    static std::unique_ptr<Way> Choose(const std::string& by, const InterceptedCalls& calls);

    /// Tries a way out. @param by KERNEL or PRELOAD @return why it cannot be gone here, for people; empty: it
    /// can @throws Application::NotStarted inside a run
    static std::string WhyNot(const std::string& by, const InterceptedCalls& calls);
};

}

#endif

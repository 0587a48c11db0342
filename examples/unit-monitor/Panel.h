#ifndef EXAMPLES_UNIT_MONITOR_PANEL_H
#define EXAMPLES_UNIT_MONITOR_PANEL_H

#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/unit-monitor/Frame.h"
#include "examples/unit-monitor/OutputCapture.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"
#include "examples/unit-monitor/Style.h"
#include "examples/unit-monitor/Suspension.h"

#include <chrono>
#include <deque>
#include <string>

namespace UnitMonitor
{

/**
 * The live picture of the unit on the terminal, drawn five times a second on a thread of its own. As long as
 * it is there, what the process prints, the library's log among it, is shown in the picture. It leaves the
 * terminal when the process is suspended (Ctrl-Z), and comes back when it goes on in the foreground.
 *
 * Construction, Start() and destruction belong to the main thread.
 */
class Panel : public Tavbase::Interfaces::IThread
{
public:
    Panel(const State& state, const PlainOutput& output); ///< takes the terminal @throws std::system_error
    ~Panel() override; ///< ends the thread, gives the terminal back as it was

    void Run() override; ///< one picture

private:
    using Clock = std::chrono::steady_clock;

    void TakePrinted(Clock::time_point until); ///< waits for it
    void ObeySuspension();
    bool Enter(); ///< @return false in the background: the terminal is somebody else's
    void Leave();
    void Send(const std::string& bytes) const;
    Frame NewFrame() const;

    void DrawTitle(Frame& frame, const Snapshot& now) const;
    void DrawLines(Frame& frame) const;

    const State& state;
    const PlainOutput& output;
    const Style style = Style::OfEnvironment();
    Suspension suspension;
    bool entered = false;
    OutputCapture capture;
    std::deque<std::string> printed; ///< the latest lines
    Clock::time_point started = Clock::now();
};

}

#endif

#ifndef VIRTUAL_UNIT_PERIPHERALS_CELLULARMODULE_H
#define VIRTUAL_UNIT_PERIPHERALS_CELLULARMODULE_H

#include "base/ThreadSafety.h"
#include "virtual-unit/peripherals/CellularState.h"
#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/peripherals/Transmitter.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated cellular module: a Quectel UMTS module on USB with two interfaces for AT commands.
 *
 * A command line ends with a carriage return; line feeds are passed over. The module echoes the line with
 * its carriage return (until ATE0 on that interface), then answers: "\r\n", the lines of information and
 * "\r\n", when there are any, and "\r\n", the result and "\r\n". A line that does not begin with "AT" is only
 * echoed. What comes while a command takes its time waits. The commands are those of CellularState; any other
 * gets "ERROR".
 *
 * Both interfaces have one state. When the registration changes and reports are on, both report it.
 *
 * AT+QPOWD=1 is answered with "OK"; one second later both interfaces send "POWERED DOWN", and after another
 * second the module leaves the bus: its interfaces are not connected any more.
 *
 * Threads: any, also for the interfaces, each of which has its own host. One lock guards the whole module.
 */
class CellularModule
{
public:
    using TimePoint = SerialPeripheral::TimePoint;

    enum class Port : std::size_t
    {
        Main,     ///< USB interface 3
        Alternate ///< USB interface 2
    };

    /// What goes wrong on an interface; each may be switched on and off at any time.
    struct Faults
    {
        static constexpr std::size_t EVERY = SIZE_MAX;

        bool stuck = false;    ///< it takes nothing from the line
        bool silent = false;   ///< nothing is sent, what is under way is lost; commands are obeyed
        bool noEcho = false;   ///< as after ATE0
        bool lateEcho = false; ///< the echo comes with the answer, not at once
        std::chrono::milliseconds delay{0}; ///< so much longer each answer takes
        std::size_t errors = 0; ///< so many commands are answered with `error` and not obeyed; counts down
        std::string error = "ERROR"; ///< the result
        std::size_t flood = 0;       ///< so many bytes of text come in place of each answer, and no result

        // Sent in the course of each reply, as it stands: noise, or a report that comes at the wrong moment.
        std::string beforeEcho;
        std::string behindEcho;
        std::string inInformation; ///< in the middle of the information
        std::string beforeResult;
    };

    /// One of the module's USB interfaces. It belongs to the module.
    class Interface : public SerialPeripheral
    {
    public:
        Interface(const Interface&) = delete;
        Interface& operator=(const Interface&) = delete;

        void SetLine(const Transmitter::Options& line); ///< how replies reach the application: pieces, speed

        void Receive(std::string_view bytes, TimePoint now) override;
        std::optional<TimePoint> NextDeadline() const override;
        void Advance(TimePoint now) override;
        std::vector<std::string> TakeOutput() override;
        bool IsConnected() const override;

        bool IsPlugged() const override { return module.OnBus(); }

        bool TakesOutput() const override;

        void Attach(const std::function<void()>& wake) override;

    private:
        friend class CellularModule;

        Interface(CellularModule& owner, Port which) : module(owner), port(which) {}

        CellularModule& module;
        const Port port;
    };

    explicit CellularModule(const CellularState& state = {});
    CellularModule(const CellularModule&) = delete;
    CellularModule& operator=(const CellularModule&) = delete;

    Interface& At(Port port) { return interfaces[static_cast<std::size_t>(port)]; }

    CellularState State() const;

    /// Runs `function(CellularState&)` while the module stands still.
    template <class Function>
    void Change(Function&& function)
    {
        const std::lock_guard lock(access);
        const CellularState before = state;
        std::forward<Function>(function)(state);
        ReportSince(before);
        WakeHosts();
    }

    /// Runs `function(Faults&)` on the faults of an interface while the module stands still.
    template <class Function>
    void Spoil(Function&& function, Port port = Port::Main)
    {
        const std::lock_guard lock(access);
        std::forward<Function>(function)(Behind(port).faults);
        WakeHosts();
    }

    void Unplug();                 ///< at once; what is under way is lost
    void UnplugAt(TimePoint when); ///< the same, later

    /// Powers the module on, with echo and without reports, unless it is on. An interface that has had a host
    /// when the module left needs a new one: as the device file of USB does.
    void PlugIn();

    bool OnBus() const;

    /// @param whom a number of listeners may be told: which of them it is
    /// @param tell is called now, and whenever the module comes to the bus or leaves it, with the module
    ///             locked: it must not call the module. Empty: no more
    void TellPresence(const void* whom, std::function<void(bool onBus)> tell);

private:
    /// What stands behind an interface.
    struct Channel
    {
        struct Running
        {
            TimePoint due;
            std::string command;
            bool refused;
            std::string begin; ///< of the reply, when it is not sent yet
        };

        void Reset();
        std::string Reply(const CellularState::Answer& answer) const;

        std::function<void()> wake; ///< empty: no host
        bool left = false;          ///< the bus, since there is this host
        bool echo = true;
        Faults faults;
        Transmitter transmitter;
        std::vector<std::string> output;
        std::string received; ///< that is not looked at yet
        std::optional<Running> running;
    };

    Channel& Behind(Port port) TAV_REQUIRES(access) { return channels[static_cast<std::size_t>(port)]; }

    void Work(Channel& channel, TimePoint now) TAV_REQUIRES(access);
    void Begin(Channel& channel, const std::string& line, TimePoint now) TAV_REQUIRES(access);
    void Finish(Channel& channel, TimePoint now) TAV_REQUIRES(access);
    CellularState::Answer Obey(Channel& channel, const std::string& command, TimePoint now)
        TAV_REQUIRES(access);
    void Elapse(TimePoint now) TAV_REQUIRES(access);
    void Leave(TimePoint at) TAV_REQUIRES(access);
    void PowerDown(TimePoint now) TAV_REQUIRES(access);
    void ReportSince(const CellularState& before) TAV_REQUIRES(access);
    void WakeHosts() const TAV_REQUIRES(access);
    void TellPresence() const TAV_REQUIRES(access);

    std::array<Interface, 2> interfaces;

    mutable std::mutex access; ///< guards everything below
    CellularState state TAV_GUARDED_BY(access);
    std::array<Channel, 2> channels TAV_GUARDED_BY(access);
    std::optional<TimePoint> switchedOn TAV_GUARDED_BY(access);
    TimePoint latest TAV_GUARDED_BY(access);                 ///< the latest time that a host has given
    std::optional<TimePoint> leaveAt TAV_GUARDED_BY(access); ///< the bus
    bool onBus TAV_GUARDED_BY(access) = true;
    std::map<const void*, std::function<void(bool)>> presenceListeners TAV_GUARDED_BY(access);
};

}

#endif

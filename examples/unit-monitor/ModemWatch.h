#ifndef EXAMPLES_UNIT_MONITOR_MODEMWATCH_H
#define EXAMPLES_UNIT_MONITOR_MODEMWATCH_H

#include "Modem/Module3G.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "examples/unit-monitor/PlainOutput.h"
#include "examples/unit-monitor/State.h"

#include <optional>
#include <string>

namespace UnitMonitor
{

/**
 * The cellular module, asked about once a second on a thread of its own.
 *
 * PowerDown() belongs to the main thread, once the thread has ended.
 */
class ModemWatch : public Tavbase::Interfaces::IThread
{
public:
    /// @param scan look for operators once, which takes up to three minutes
    ModemWatch(State& state, PlainOutput& output, bool scan);
    ~ModemWatch() override; ///< ends the thread

    void Run() override; ///< one round of questions

    void PowerDown(); ///< disconnects the module and switches it off; some fourteen seconds

private:
    enum class Link
    {
        Unknown,
        OffBus,
        New,    ///< on the bus, has not answered yet
        Silent, ///< on the bus, does not answer
        Answers
    };

    /// What was told last.
    struct Told
    {
        bool identity = false;
        std::optional<int> registration;
        std::string operatorName;
        std::string signal;
        std::optional<int> millivolts;
    };

    void Round();
    bool FindOnBus();
    bool ReachIt();
    void Lose(); ///< it is off the bus

    void Tell(const std::string& text) { output.Tell("modem", text); }

    void Identify();
    void TellIdentity(const char* what, int (*query)(), std::string& answer);
    void Scan();
    void AskRegistration();
    void AskOperator(int registration);
    void AskSignal();
    void AskSupply();

    bool Ending() { return !ThreadSleep({}, {}); }

    template <class Question>
    bool Ask(Question question); ///< a second time after a failure: one lost answer is nothing to tell of
    template <class Question>
    bool AskOnce(Question question);

    State& state;
    PlainOutput& output;
    bool scan;
    Tavdevice::Modem::Module3G module;
    Link link = Link::Unknown;
    Told told;
};

}

#endif

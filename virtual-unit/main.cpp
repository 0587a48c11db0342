// virtual-unit: runs an unmodified application on an emulated unit. See docs/virtual-unit.md.

#include "virtual-unit/CommandLine.h"
#include "virtual-unit/calls/StorageCard.h"
#include "virtual-unit/calls/UnitPath.h"
#include "virtual-unit/recording/Difference.h"
#include "virtual-unit/recording/Mask.h"
#include "virtual-unit/recording/PortEntry.h"
#include "virtual-unit/recording/PortRecording.h"
#include "virtual-unit/recording/Recorder.h"
#include "virtual-unit/recording/Recording.h"
#include "virtual-unit/run/Application.h"
#include "virtual-unit/run/ControlSocket.h"
#include "virtual-unit/run/RunLog.h"
#include "virtual-unit/run/Supervisor.h"
#include "virtual-unit/script/Director.h"
#include "virtual-unit/script/Script.h"
#include "virtual-unit/script/Step.h"
#include "virtual-unit/time/VirtualTime.h"
#include "virtual-unit/unit/Journal.h"
#include "virtual-unit/unit/ReplayedUnit.h"
#include "virtual-unit/unit/Unit.h"
#include "virtual-unit/unit/Values.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <seccomp.h>
#include <string>
#include <sys/utsname.h>
#include <system_error>
#include <utility>
#include <vector>

namespace
{

using namespace VirtualUnit;

constexpr int WRONG_COMMAND_LINE = 2;
constexpr int CANNOT_RUN = 3;
constexpr int DIFFERENT = 4;

void Report(const std::string& line)
{
    std::fprintf(stderr, "virtual-unit: %s\n", line.c_str());
}

/// What a run is given to play, and how its unit is fitted.
struct Plan
{
    explicit Plan(const CommandLine& line)
    {
        if (!line.script.empty())
        {
            script = Script::Read(line.script, options);
        }
        line.Overrule(options);
    }

    UnitOptions options;
    Script script;
};

std::unique_ptr<RunLog> OpenLog(const std::string& path)
{
    try
    {
        return std::make_unique<RunLog>(path);
    }
    catch (const std::system_error& failure)
    {
        throw CommandLine::Wrong("--log: " + path + ": " + failure.code().message());
    }
}

int WriteJournal(Unit& unit, const std::string& path)
{
    Journal journal(unit.Begin());
    journal.Add(unit.EndedEvents());
    journal.Add("sound chip 0x5A", unit.EndedSounder().first);
    journal.Add("sound chip 0x62", unit.EndedSounder().second);
    journal.Add(unit.EndedBuzzer());
    journal.Add(unit.Card());
    return journal.Write(path);
}

std::string ListPorts(Unit& unit, const std::string& sdcard)
{
    const std::string card = sdcard.empty() ? "empty at first, gone after the run" : "kept in " + sdcard;
    std::vector<std::pair<std::string, std::string>> rows = unit.State();
    rows.emplace_back(UnitPath::CARD, "storage card, " + card);
    for (const std::string& pattern : DeviceTable::UnitPaths())
    {
        rows.emplace_back(pattern, "refused, but for what is served above");
    }
    std::string list;
    for (auto& [path, state] : rows)
    {
        constexpr std::size_t COLUMN = 22;
        path.resize(std::max(path.size(), COLUMN), ' ');
        list.append(path).append(" ").append(state).append("\n");
    }
    return list;
}

/// The socket of a run. Where the system gives none and nobody has asked for it, the run goes on without.
struct Control
{
    explicit Control(const std::string& path)
    {
        try
        {
            socket.emplace(path);
        }
        catch (const std::exception& failure)
        {
            if (!path.empty())
            {
                throw CommandLine::Wrong(std::string("--control: ") + failure.what());
            }
            missing = failure.what();
        }
    }

    std::optional<ControlSocket> socket;
    std::string missing; ///< why there is none
};

/// Answers what comes through the control socket.
std::string AnswerControl(const std::string& request, Unit& unit, const std::string& sdcard, RunLog& log)
{
    if (request == "devices")
    {
        return ListPorts(unit, sdcard);
    }
    const Step step = Step::Parse(request);
    log.Note("do: " + step.Words());
    step.Do(unit);
    return {};
}

/// Lets a recorder listen to the ports.
template <class AnyUnit>
std::unique_ptr<Recorder> Record(const CommandLine& line, AnyUnit& unit, const UnitOptions& options,
                                 const Mask& mask)
{
    if (line.record.empty())
    {
        return nullptr;
    }
    auto recorder = std::make_unique<Recorder>(line.record, unit.Begin(), mask);
    for (const Unit::Port& port : Unit::Ports(options))
    {
        unit.Traffic(port.path).Tell(recorder->Port(port.path));
    }
    recorder->Port(PortRecording::PROGRAM); // from now on it is there, whatever happens to the directory
    return recorder;
}

void RecordSignal(Recorder* recorder, int number)
{
    if (recorder != nullptr)
    {
        recorder->Port(PortRecording::PROGRAM).Happened(PortEntry::SignalEvent(number), Unit::Clock::now());
    }
}

void FinishRecording(Recorder* recorder, RunLog& log)
{
    if (recorder == nullptr)
    {
        return;
    }
    try
    {
        recorder->Finish();
    }
    catch (const Recorder::Unusable& failure)
    {
        log.Report(std::string("--record: ") + failure.what());
    }
}

/// Ends, at its own end, what acts on the unit, and then the service of the ports: who listens to them
/// outlives that, and what is under way has arrived.
struct Service
{
    Director& director;
    Control& control;
    Unit& unit;

    ~Service()
    {
        director.Stop();
        if (control.socket)
        {
            control.socket->Stop();
        }
        unit.EndService();
    }
};

/// The run itself, from the begin of the service to its end. @return the program's exit status
int RunWithScript(const CommandLine& line, Unit& unit, Director& director, RunLog& log, Recorder* recorder)
{
    Control control(line.control);
    const Service service{director, control, unit};
    unit.BeginService();
    director.Prepare();
    const auto started = [&] {
        director.Start();
        if (control.socket)
        {
            control.socket->Start(
                [&](const std::string& request) { return AnswerControl(request, unit, line.sdcard, log); });
        }
        else
        {
            log.Report("virtual-unit do will not reach this run: " + control.missing);
        }
    };
    const RunListener listener = {[&log](const std::string& text) { log.Report(text); }, started,
                                  [recorder](int number) { RecordSignal(recorder, number); }};
    return RunOnVirtualUnit(line.program, unit.Devices(), unit.Modem(), line.sdcard, listener);
}

int Run(const CommandLine& line)
{
    const Plan plan(line);
    const std::unique_ptr<RunLog> log = OpenLog(line.log);
    Unit unit(plan.options);
    const Mask mask = line.mask ? Mask(unit.Secrets()) : Mask();
    const std::unique_ptr<Recorder> recorder = Record(line, unit, plan.options, mask);
    Director director(plan.script, unit, [&log](const std::string& step) { log->Note("script: " + step); });
    const int status = RunWithScript(line, unit, director, *log, recorder.get());

    FinishRecording(recorder.get(), *log);
    if (const std::optional<int> rest = director.LineNotReached())
    {
        log->Report(line.script + ":" + std::to_string(*rest) +
                    ": the program ended before this was reached");
    }
    if (!line.journal.empty())
    {
        if (const int error = WriteJournal(unit, line.journal); error != 0)
        {
            log->Report("--journal: " + line.journal +
                        " cannot be written: " + std::generic_category().message(error));
        }
    }
    return status;
}

int Replay(const CommandLine& line)
{
    const std::unique_ptr<RunLog> log = OpenLog(line.log);
    ReplayedUnit unit(line.recording,
                      [&log](const Difference& first) { log->Report("replay: " + first.Text()); });
    const std::unique_ptr<Recorder> recorder = Record(line, unit, unit.Options(), Mask());
    int status = 0;
    {
        struct EndOfService
        {
            ReplayedUnit& unit;

            ~EndOfService() { unit.EndService(); }
        };

        const EndOfService end{unit};
        unit.BeginService();
        const RunListener listener = {[&log](const std::string& text) { log->Report(text); },
                                      [&unit] { unit.Start(); },
                                      [&recorder](int number) { RecordSignal(recorder.get(), number); }};
        status = RunOnVirtualUnit(line.program, unit.Devices(), unit.Module(), line.sdcard, listener);
    }
    FinishRecording(recorder.get(), *log);
    const std::size_t differences = unit.Found().Count();
    if (differences == 0)
    {
        log->Note("replay: no difference");
        return status;
    }
    if (differences > 1)
    {
        log->Report("replay: " + std::to_string(differences - 1) + " more differences");
    }
    return status == 0 ? DIFFERENT : status;
}

int ListDevices(const CommandLine& line)
{
    const char* const inside = std::getenv(ControlSocket::VARIABLE); // NOLINT(concurrency-mt-unsafe)
    if (!line.control.empty() || (inside != nullptr && line.unit.empty() && line.script.empty()))
    {
        std::fputs(ControlSocket::Ask(line.control, "devices").c_str(), stdout);
        return 0;
    }
    if (!line.sdcard.empty())
    {
        const StorageCard usable(line.sdcard);
    }
    Unit unit(Plan(line).options);
    unit.BeginService();
    std::fputs(ListPorts(unit, line.sdcard).c_str(), stdout);
    return 0;
}

int Check(const CommandLine& line)
{
    constexpr unsigned int API_WITH_NOTIFICATION = 5; // of seccomp_api_get()
    utsname system = {};
    uname(&system);
    std::printf("kernel: %s %s, %s\n", system.sysname, system.release, system.machine);
    const bool notification = seccomp_api_get() >= API_WITH_NOTIFICATION;
    std::printf("seccomp user notification: %s\n", notification ? "yes" : "no");

    try
    {
        VirtualTime::Require();
        std::printf("virtual time, with --fast: yes\n");
    }
    catch (const VirtualTime::NotPossible& failure)
    {
        std::printf("virtual time, with --fast: no, %s\n", failure.what());
    }

    // The whole of it, once: a shell that looks for the port and opens it, and writes to the card.
    const Plan plan(line);
    Unit unit(plan.options);
    unit.BeginService();
    const std::string port = Unit::Path(plan.options, "gps");
    const std::vector<std::string> trial = {"/bin/sh", "-c",
                                            "test -c " + port + " && exec 3<>" + port +
                                                " && test -t 3 && echo > " + UnitPath::CARD + "/trial"};
    const bool works = RunOnVirtualUnit(trial, unit.Devices(), unit.Modem(), {}, {Report}) == 0;
    std::printf("an application opens %s and writes to %s: %s\n", port.c_str(), UnitPath::CARD,
                works ? "yes" : "no");
    std::printf(works ? "This machine can run the virtual unit.\n"
                      : "This machine cannot run the virtual unit.\n");
    return works ? 0 : CANNOT_RUN;
}

int Do(const CommandLine& line)
{
    switch (line.command)
    {
    case CommandLine::Command::Help:
        std::fputs(CommandLine::Usage(line.helpOn).c_str(), stdout);
        return 0;
    case CommandLine::Command::Version:
        std::puts("virtual-unit " PROJECT_VERSION);
        return 0;
    case CommandLine::Command::Devices:
        return ListDevices(line);
    case CommandLine::Command::Check:
        return Check(line);
    case CommandLine::Command::Do:
        ControlSocket::Ask(line.control, line.step);
        return 0;
    case CommandLine::Command::Replay:
        return Replay(line);
    default:
        return Run(line);
    }
}

/// A wrong command line, and what comes to the same.
int Refuse(const std::string& reason)
{
    Report(reason);
    return WRONG_COMMAND_LINE;
}

}

int main(int argc, char** argv)
{
    try
    {
        const CommandLine line = CommandLine::Parse(std::vector<std::string>(argv + 1, argv + argc));
        if (line.fast)
        {
            VirtualTime::Enter(argv);
        }
        return Do(line);
    }
    catch (const CommandLine::Wrong& wrong)
    {
        return Refuse(std::string(wrong.what()) + " (see virtual-unit --help)");
    }
    catch (const Values::Wrong& wrong)
    {
        return Refuse(wrong.what());
    }
    catch (const Script::Wrong& wrong)
    {
        return Refuse(wrong.what());
    }
    catch (const ControlSocket::Failure& failure)
    {
        return Refuse(failure.what());
    }
    catch (const Recorder::Unusable& failure)
    {
        return Refuse(std::string("--record: ") + failure.what());
    }
    catch (const Recording::Wrong& wrong)
    {
        return Refuse(wrong.what());
    }
    catch (const StorageCard::Unusable& failure)
    {
        return Refuse(std::string("--sdcard: ") + failure.what());
    }
    catch (const VirtualTime::NotPossible& failure)
    {
        Report(std::string("--fast: ") + failure.what());
        return CANNOT_RUN;
    }
    catch (const Application::NotStarted& failure)
    {
        Report(failure.what());
        return failure.exitStatus;
    }
    catch (const std::exception& failure)
    {
        Report(std::string("this machine cannot run the virtual unit: ") + failure.what());
        return CANNOT_RUN;
    }
}

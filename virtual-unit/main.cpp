// virtual-unit: runs an unmodified application on an emulated unit. See docs/virtual-unit.md.

#include "virtual-unit/CommandLine.h"
#include "virtual-unit/calls/InterceptedCalls.h"
#include "virtual-unit/calls/StorageCard.h"
#include "virtual-unit/calls/UnitPath.h"
#include "virtual-unit/common/PrivateDirectory.h"
#include "virtual-unit/preload/Protocol.h"
#include "virtual-unit/recording/Difference.h"
#include "virtual-unit/recording/Mask.h"
#include "virtual-unit/recording/PortEntry.h"
#include "virtual-unit/recording/PortRecording.h"
#include "virtual-unit/recording/Recorder.h"
#include "virtual-unit/recording/Recording.h"
#include "virtual-unit/run/Application.h"
#include "virtual-unit/run/ControlSocket.h"
#include "virtual-unit/run/ProgramOutput.h"
#include "virtual-unit/run/Results.h"
#include "virtual-unit/run/RunLog.h"
#include "virtual-unit/run/Supervisor.h"
#include "virtual-unit/run/Way.h"
#include "virtual-unit/script/Director.h"
#include "virtual-unit/script/Script.h"
#include "virtual-unit/script/Step.h"
#include "virtual-unit/time/VirtualTime.h"
#include "virtual-unit/unit/DeviceList.h"
#include "virtual-unit/unit/Journal.h"
#include "virtual-unit/unit/ReplayedUnit.h"
#include "virtual-unit/unit/Unit.h"
#include "virtual-unit/unit/Values.h"

#include <cerrno>
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
constexpr int CANNOT_RUN = Application::CANNOT_RUN;
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

using OutputFile = RunLog::File;

/// Opens the file of an option before the program starts, so that nobody finds out too late. @return null
/// without that option
OutputFile OpenOutput(const std::string& option, const std::string& path)
{
    OutputFile file(path.empty() ? nullptr : std::fopen(path.c_str(), "we"), std::fclose);
    if (!path.empty() && file == nullptr)
    {
        throw CommandLine::Wrong(option + ": " + path + ": " + std::generic_category().message(errno));
    }
    return file;
}

int WriteJournal(Unit& unit, std::FILE* file)
{
    Journal journal(unit.Begin());
    journal.Add(unit.EndedEvents());
    journal.Add("sound chip 0x5A", unit.EndedSounder().first);
    journal.Add("sound chip 0x62", unit.EndedSounder().second);
    journal.Add(unit.EndedBuzzer());
    journal.Add(unit.Card());
    return journal.Write(file);
}

// What "virtual-unit devices" asks a run for.
constexpr const char* LIST_DEVICES = "devices";
constexpr const char* LIST_DEVICES_AS_JSON = "devices --json";

std::string List(const DeviceList& list, bool asJson)
{
    return asJson ? list.Json() : list.Text();
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
    if (request == LIST_DEVICES || request == LIST_DEVICES_AS_JSON)
    {
        return List({unit, sdcard}, request == LIST_DEVICES_AS_JSON);
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
    std::optional<ProgramOutput> output;

    ~Service()
    {
        output.reset(); // what was printed has been heard
        director.Stop();
        if (control.socket)
        {
            control.socket->Stop();
        }
        unit.EndService();
    }
};

/// Tells which way it is, unless it is the usual one. To the user alone: what happens is the same on both.
void TellOf(const Way& way)
{
    if (const std::string remark = way.Remark(); !remark.empty())
    {
        Report(remark);
    }
}

/// The run itself, from the begin of the service to its end. @return the program's exit status
int RunWithScript(const CommandLine& line, Way& way, const InterceptedCalls& calls, Unit& unit,
                  Director& director, RunLog& log, Recorder* recorder)
{
    Control control(line.control);
    Service service{director, control, unit, std::nullopt};
    unit.BeginService();
    director.Prepare();
    if (PortObserver* const listener = director.ProgramListener())
    {
        service.output.emplace(*listener);
    }
    const auto started = [&] {
        if (service.output)
        {
            service.output->Begin();
        }
        TellOf(way);
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
    const auto ended = [&service] {
        if (service.output)
        {
            service.output->End(); // what the program has printed comes before what is told of its end
        }
    };
    const RunListener listener = {[&log](const std::string& text) { log.Report(text); }, started,
                                  [recorder](int number) { RecordSignal(recorder, number); }, ended};
    return RunOnVirtualUnit(way, calls, line.program, unit.Devices(), unit.Modem(), line.sdcard, listener);
}

/// Tells what became of an expectation.
void Judge(const CommandLine& line, const Verdict& verdict, RunLog& log, Results& results)
{
    results.Add(verdict);
    if (verdict.fault.empty())
    {
        log.Note("met: " + verdict.words);
    }
    else
    {
        log.Report(line.script + ":" + std::to_string(verdict.line) + ": " + verdict.words +
                   ": failed: " + verdict.fault);
    }
}

/// Lines that were not reached: an expectation has failed by that, any other with --strict.
void JudgeNotReached(const CommandLine& line, const std::vector<Verdict>& lines, RunLog& log,
                     Results& results)
{
    for (const Verdict& verdict : lines)
    {
        const bool counts = line.strict || verdict.words.starts_with("expect ");
        if (counts)
        {
            results.Add(verdict);
        }
        if (counts || &verdict == &lines.front())
        {
            log.Report(line.script + ":" + std::to_string(verdict.line) + ": " + verdict.fault);
        }
    }
}

int Run(const CommandLine& line)
{
    const Plan plan(line);
    const InterceptedCalls calls;
    // Before the begin of the run: the trials take time.
    const std::unique_ptr<Way> way = Way::Choose(line.by, calls);
    RunLog log(OpenOutput("--log", line.log));
    const OutputFile journal = OpenOutput("--journal", line.journal);
    const OutputFile junit = OpenOutput("--junit", line.junit);
    PrivateDirectory::RemoveLeftOver();
    Unit unit(plan.options);
    const Mask mask = line.mask ? Mask(unit.Secrets()) : Mask();
    const std::unique_ptr<Recorder> recorder = Record(line, unit, plan.options, mask);
    Results results;
    const auto judge = [&](const Verdict& verdict) { Judge(line, verdict, log, results); };
    Director director(plan.script, unit,
                      {[&log](const std::string& step) { log.Note("script: " + step); }, judge});
    results.End(RunWithScript(line, *way, calls, unit, director, log, recorder.get()));

    FinishRecording(recorder.get(), log);
    JudgeNotReached(line, director.NotReached(), log, results);
    if (const int error = journal != nullptr ? WriteJournal(unit, journal.get()) : 0; error != 0)
    {
        log.Report("--journal: " + line.journal +
                   " cannot be written: " + std::generic_category().message(error));
    }
    const std::string suite = line.script.empty() ? line.program.front() : line.script;
    if (const int error = junit != nullptr ? results.WriteJUnit(junit.get(), suite) : 0; error != 0)
    {
        log.Report("--junit: " + line.junit +
                   " cannot be written: " + std::generic_category().message(error));
    }
    return results.ExitStatus();
}

int Replay(const CommandLine& line)
{
    const InterceptedCalls calls;
    // Before the begin of the run: the trials take time.
    const std::unique_ptr<Way> way = Way::Choose(line.by, calls);
    RunLog log(OpenOutput("--log", line.log));
    PrivateDirectory::RemoveLeftOver();
    const auto tell = [&log](const Difference& difference, std::chrono::microseconds at, bool first) {
        log.Report("replay: " + (first ? difference.Text() : difference.Place()) + ", at " +
                   Values::SecondsText(std::chrono::duration_cast<std::chrono::milliseconds>(at)) + " s");
    };
    ReplayedUnit unit(line.recording, tell);
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
        const RunListener listener = {[&log](const std::string& text) { log.Report(text); },
                                      [&] {
                                          TellOf(*way);
                                          unit.Start();
                                      },
                                      [&recorder](int number) { RecordSignal(recorder.get(), number); }};
        status =
            RunOnVirtualUnit(*way, calls, line.program, unit.Devices(), unit.Module(), line.sdcard, listener);
    }
    FinishRecording(recorder.get(), log);
    const std::size_t differences = unit.Found().Count();
    if (differences == 0)
    {
        log.Note("replay: no difference");
        return status;
    }
    if (differences > 1)
    {
        log.Report("replay: " + std::to_string(differences - 1) + " more differences");
    }
    return status == 0 ? DIFFERENT : status;
}

/// The list of the run that "do" would find. @return none: nobody has asked for it, or there is no run
std::optional<std::string> ListOfRun(const CommandLine& line)
{
    const bool another = !line.unit.empty() || !line.script.empty() || !line.sdcard.empty();
    if (another && line.control.empty())
    {
        return std::nullopt;
    }
    try
    {
        return ControlSocket::Ask(line.control, line.json ? LIST_DEVICES_AS_JSON : LIST_DEVICES);
    }
    catch (const ControlSocket::NoneRuns&)
    {
        return std::nullopt;
    }
}

std::string ListOfUnit(const CommandLine& line)
{
    if (!line.sdcard.empty())
    {
        const StorageCard usable(line.sdcard);
    }
    Unit unit(Plan(line).options);
    unit.BeginService();
    return List({unit, line.sdcard}, line.json);
}

int ListDevices(const CommandLine& line)
{
    const std::optional<std::string> ofRun = ListOfRun(line);
    std::fputs((ofRun ? *ofRun : ListOfUnit(line)).c_str(), stdout);
    return 0;
}

/// The whole of it, once: a shell that looks for the port and opens it, and writes to the card.
bool TryOut(const char* by, const InterceptedCalls& calls, const Plan& plan)
{
    std::string refusal = Way::WhyNot(by, calls);
    const std::string port = Unit::Path(plan.options, "gps");
    if (refusal.empty())
    {
        Unit unit(plan.options);
        unit.BeginService();
        const std::vector<std::string> trial = {"/bin/sh", "-c",
                                                "test -c " + port + " && exec 3<>" + port +
                                                    " && test -t 3 && echo > " + UnitPath::CARD + "/trial"};
        const std::unique_ptr<Way> way = Way::Choose(by, calls);
        refusal = RunOnVirtualUnit(*way, calls, trial, unit.Devices(), unit.Modem(), {},
                                   {[](const std::string&) {}}) == 0
                      ? ""
                      : "it does not";
    }
    std::printf("by %s, an application opens %s and writes to %s: %s%s\n", by, port.c_str(), UnitPath::CARD,
                refusal.empty() ? "yes" : "no, ", refusal.c_str());
    return refusal.empty();
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

    const InterceptedCalls calls;
    const Plan plan(line);
    const bool byKernel = TryOut(Way::KERNEL, calls, plan);
    if (!byKernel)
    {
        std::printf(
            "    It takes Linux 5.14 or newer, and a container whose seccomp profile allows the calls "
            "seccomp and process_vm_readv.\n");
    }
    const bool byPreload = TryOut(Way::PRELOAD, calls, plan);
    std::printf(byKernel ? "This machine can run the virtual unit.\n"
                : byPreload
                    ? "This machine can run the virtual unit by preload: static programs, and system calls "
                      "that a program makes by itself, do not reach the unit.\n"
                    : "This machine cannot run the virtual unit.\n");
    return byKernel || byPreload ? 0 : CANNOT_RUN;
}

/// Before anything is written. Where the environment does not tell, the kernel will.
void RefuseInsideRun()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread
    const auto has = [](const char* variable) { return std::getenv(variable) != nullptr; };
    if (has(ControlSocket::VARIABLE) || has(Preload::VARIABLE))
    {
        throw Application::NotStarted(Application::INSIDE_A_RUN, CANNOT_RUN);
    }
}

int Do(const CommandLine& line)
{
    using Command = CommandLine::Command;
    if (line.command == Command::Run || line.command == Command::Replay || line.command == Command::Check)
    {
        RefuseInsideRun();
    }
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

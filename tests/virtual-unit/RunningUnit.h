#ifndef TESTS_VIRTUAL_UNIT_RUNNINGUNIT_H
#define TESTS_VIRTUAL_UNIT_RUNNINGUNIT_H

#include <string>
#include <sys/types.h>
#include <vector>

/// A text as one word of a command line of the shell, whatever is in it.
std::string Word(const std::string& text);

/// Whether runs that do not say otherwise go by preload: TAVDEVICE_RUNS_BY=preload in the environment.
bool RunsGoByPreload();

/// A copy of a program, in the kit's TempDir, that "nobody" can execute: wherever the program itself lies,
/// and whatever the umask was when it was built. @return its path
std::string ForNobody(const std::string& program);

/// How a run of the program virtual-unit ended.
struct Outcome
{
    int status = -1; ///< exit status; 128 and the number when a signal ended it; -1: it hung and was killed
    std::string output; ///< standard output
    std::string errors; ///< standard error
};

/**
 * The program virtual-unit, running.
 *
 * Its end is the end of standard output and error, which all processes that it starts inherit: a process
 * that is left behind shows as a run that does not end. After two minutes of real time it hangs.
 */
class RunningUnit
{
public:
    struct Options
    {
        bool onTerminal = false;   ///< the three standard streams are a terminal (all is `output` then)
        bool unprivileged = false; ///< as "nobody", where this process is root: see ForNobody()
        bool errorsClosed = false; ///< its standard error is a pipe that nobody reads
        std::vector<std::string> launcher = {}; ///< a program, with its arguments, that starts it
    };

    explicit RunningUnit(const std::vector<std::string>& arguments) : RunningUnit(arguments, Options()) {}

    RunningUnit(const std::vector<std::string>& arguments, Options options);
    RunningUnit(const RunningUnit&) = delete;
    RunningUnit& operator=(const RunningUnit&) = delete;
    ~RunningUnit();

    bool WaitForOutput(const std::string& text); ///< @return false when it did not come
    void Signal(int signal) const;               ///< to virtual-unit alone
    void Type(const std::string& text) const;    ///< on the terminal
    bool HasEnded();                             ///< or has been given its time; does not wait
    Outcome End();                               ///< waits for the end

private:
    struct Streams
    {
        int output = -1;
        int errors = -1;
    };

    bool ReadSome();
    bool ReadSome(int milliseconds);

    pid_t pid = -1;
    Streams streams;
    long deadline; ///< milliseconds of the monotonic clock
    Outcome outcome;
};

/// A run from begin to end.
Outcome RunUnit(const std::vector<std::string>& arguments, RunningUnit::Options options = {});

/// The same, for a command line of the shell on the virtual unit.
Outcome RunShell(const std::string& command);

#endif

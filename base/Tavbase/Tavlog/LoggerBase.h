#ifndef BASE_TAVBASE_TAVLOG_LOGGERBASE_H
#define BASE_TAVBASE_TAVLOG_LOGGERBASE_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/ISemaphore.h"
#include "base/Tavbase/Tavlog/ConsoleLogPolicy.h"
#include "base/Tavbase/Tavlog/FileLogPolicy.h"
#include "base/Tavbase/Tavlog/LineMutex.h"
#include "base/Tavbase/Tavlog/LogModule.h"
#include "base/Tavbase/Tavlog/LogType.h"
#include "base/Tavbase/Util/NewDate.h"
#include "base/Tavbase/Util/TemperatureMonitor.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ios>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>

namespace Tavbase::Tavlog
{

/// Gives errno back the value that it had.
class KeptErrno
{
public:
    KeptErrno() = default;
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

    ~KeptErrno() { errno = value; }

private:
    int value = errno;
};

/**
 * One sink of the log: builds a line and hands it to the sink's writer thread.
 *
 * A line is open from its header to the std::endl that completes it. While it is open its thread holds
 * the sink's lock, so that lines of different threads never mix; the writer gives the lock back when the
 * line is out. A thread must complete each line that it begins. Where it does not, the sink helps itself:
 * the next header of the same thread completes the line first, and so does the end of the thread. A
 * thread with a line open on the console that has to wait for the file completes that line too.
 *
 * Nothing is written to a sink that is switched off. Switched off within a line, the line is dropped at
 * its end; switched on within one, the sink gets the rest of it without a header.
 *
 * A text piece that is a null pointer sets the stream's bad bit, as with any output stream: the rest of
 * the line is lost, the line itself is completed.
 *
 * Threads: every operation may be called from any thread.
 */
template <class Policy>
class LoggerBase
{
public:
    explicit LoggerBase(bool enabledAtFirst); ///< starts no thread
    LoggerBase(const LoggerBase&) = delete;
    LoggerBase& operator=(const LoggerBase&) = delete;
    ~LoggerBase(); ///< no thread may be using the sink any more

    void Enable(bool on) { enabled.store(on); } ///< switches the sink on or off

    bool IsEnabled() const { return enabled.load(); } ///< as Enable() was told

    /// Begins a line: date and time, temperature, tag of the type. It leaves errno as it was, so that the
    /// line can go on with std::strerror(errno).
    void WriteHeader(LogType type);

    void CheckEndOfStream(); ///< hands the line over when its text ends in a new line

    /// As WriteHeader().
    LoggerBase& operator<<(LogType type)
    {
        WriteHeader(type);
        return *this;
    }

    /// Adds the tag of the module: "[#name]".
    LoggerBase& operator<<(LogModule module)
    {
        return *this << "[#" << EnumString<LogModule>::From(module) << "]";
    }

    LoggerBase& operator<<(std::ostream& (*manipulator)(std::ostream&)); ///< std::endl completes the line

    // Beside the template, which would be compiled anew for each length of a literal.
    LoggerBase& operator<<(const char* text) { return Add(text); } ///< null sets the stream's bad bit

    LoggerBase& operator<<(const std::string& text) { return Add(text); } ///< adds text

    /// Adds whatever an output stream takes.
    template <class Piece>
    LoggerBase& operator<<(const Piece& piece)
    {
        return Add(piece);
    }

    void Flush();            ///< waits until every line completed so far is out
    void CompleteOpenLine(); ///< completes the line that the calling thread has open, if it has one

    /// Calls `use` with the policy while no line is open or being output.
    template <class Use>
    auto WithPolicy(Use use)
    {
        CompleteOpenLine();
        if (TakenForFork())
        {
            return use(policy);
        }
        Lock();
        const std::scoped_lock lock(std::adopt_lock, mutex);
        return use(policy);
    }

private:
    friend class Logger; // which knows when the process forks and ends

    static constexpr std::size_t KEPT_LINE_BYTES = 16384; ///< a longer line's storage is given back

    /**
     * Around fork(): the child gets a sink that works, whatever the parent's other threads are doing. The
     * forking thread takes the lock, so that no line is half written in the child; where another thread does
     * not complete its line in time the fork goes on without the lock, and the child gets a new stream.
     * Meanwhile the application's own fork handlers may log: the forking thread outputs such a line itself.
     */
    static void MarkFork();
    bool TakeForFork(); ///< @return false when another thread keeps a line open
    void AfterForkInParent();
    void AfterForkInChild();

    void EndWriter(); ///< from then on each thread outputs its lines itself

    template <class Piece>
    LoggerBase& Add(const Piece& piece)
    {
        if (MayWrite())
        {
            stream << piece;
        }
        return *this;
    }

    void Lock();     ///< for a thread that does not hold the lock
    bool MayWrite(); ///< true when the calling thread may add to the stream, with the lock held
    bool OpenLine(); ///< takes the lock for a line of the calling thread
    void HandOver(); ///< gives the completed line to the writer
    bool StartWriter();
    void WriterLoop();
    void OutputLine(); ///< outputs the line, clears the stream and gives the lock back
    void Release();    ///< gives the lock back, unless it was taken for a fork

    bool HasOpenLine() const; ///< the calling thread has
    /// By the calling thread, whose fork handlers are running: it holds the lock, and maybe no line.
    bool TakenForFork() const;
    void BecomeChild(); ///< on the forking thread in the child, before it touches the sink

    Policy policy;
    std::ostringstream stream;
    LineMutex mutex;
    Interfaces::ISemaphore semaphore; ///< wakes the writer
    std::atomic<bool> enabled;

    // All under the lock.
    bool writerRunning = false;
    /// In a forked child, and at the end of the process: each thread outputs its lines itself.
    bool writerLost = false;
    bool writerEnds = false; ///< what the writer was woken for
    unsigned int forks = 0;  ///< under way, with the lock taken: several when a fork handler forks
    /// The line that the forking thread had open, and goes on with afterwards; null when it had none.
    std::unique_ptr<std::ostringstream> suspended;
    std::thread writer;           ///< detached by the first fork
    Interfaces::ISemaphore ended; ///< wakes whoever ends a detached writer
};

template <class Policy>
void LoggerBase<Policy>::WriteHeader(LogType type)
{
    const KeptErrno kept;
    if (!enabled.load())
    {
        return;
    }
    CompleteOpenLine();
    if (!OpenLine())
    {
        return;
    }
    if constexpr (requires { policy.WriteHeader(type); })
    {
        policy.WriteHeader(type);
    }
    stream << '[' << Util::NewDate("%Y-%m-%d %H:%M:%S") << ']';
    const auto& temperature = Util::TemperatureMonitor::GetInstance();
    if (temperature.IsAvailable())
    {
        stream << '[' << temperature.GetTemperature() << "C]";
    }
    if (type == LogType::Error)
    {
        stream << "[ERROR]";
    }
    else if (type == LogType::Warning)
    {
        stream << "[WARNING]";
    }
}

template <class Policy>
void LoggerBase<Policy>::CheckEndOfStream()
{
    if (mutex.HeldByThisThread() && stream.view().ends_with('\n'))
    {
        HandOver();
    }
}

template <class Policy>
LoggerBase<Policy>& LoggerBase<Policy>::operator<<(std::ostream& (*manipulator)(std::ostream&))
{
    if (!MayWrite())
    {
        return *this;
    }
    // std::endl adds nothing to a stream with its bad bit set, and the line would stay open for ever.
    const std::ios_base::iostate state = stream.rdstate();
    stream.clear();
    manipulator(stream);
    CheckEndOfStream();
    if (HasOpenLine())
    {
        stream.setstate(state);
    }
    return *this;
}

template <class Policy>
void LoggerBase<Policy>::CompleteOpenLine()
{
    if (HasOpenLine() && MayWrite())
    {
        stream.clear();
        stream << '\n';
        HandOver();
    }
}

extern template class TAVBASE_API LoggerBase<FileLogPolicy>;
extern template class TAVBASE_API LoggerBase<ConsoleLogPolicy>;

}

#endif

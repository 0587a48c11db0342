#include "base/Tavbase/Tavlog/LoggerBase.h"

#include "base/Tavbase/Interfaces/SignalsBlocked.h"
#include "base/Tavbase/Tavlog/Logger.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <locale>
#include <memory>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace Tavbase::Tavlog
{

namespace
{

/// How long a fork waits for a line of another thread before it goes on without it.
constexpr std::chrono::milliseconds FORK_PATIENCE{100};

/// How long the end of the process waits for a line of another thread before it leaves the writer running.
constexpr std::chrono::milliseconds END_PATIENCE{100};

/// What the calling thread is about, between the log's fork handlers; for each thread, since several may fork
/// at the same time. Found at a fixed distance from the thread's register.
struct Forking
{
    pid_t process = 0;      ///< which forks
    unsigned int depth = 0; ///< 0: none; above 1: a fork handler forks
};

template <class Policy>
[[gnu::tls_model("initial-exec")]] thread_local constinit Forking forking{};

/// For a line that is output on the application's own thread: a reader of standard output that has gone
/// away must not end the process. The writers have the signal blocked anyway.
class PipeSignalHeldBack
{
public:
    PipeSignalHeldBack()
    {
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    }

    ~PipeSignalHeldBack()
    {
        const timespec atOnce = {0, 0};
        while (!wasPending && sigtimedwait(&pipeSignal, nullptr, &atOnce) < 0 && errno == EINTR)
        {
        }
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    PipeSignalHeldBack(const PipeSignalHeldBack&) = delete;
    PipeSignalHeldBack& operator=(const PipeSignalHeldBack&) = delete;

private:
    sigset_t pipeSignal{};
    sigset_t before{};
    bool wasPending = false;
};

}

template <class Policy>
LoggerBase<Policy>::LoggerBase(bool enabledAtFirst) : enabled(enabledAtFirst)
{
    // Part of the interface: in this order.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(offsetof(LoggerBase, policy) == 0);
    static_assert(offsetof(LoggerBase, policy) < offsetof(LoggerBase, stream));
    static_assert(offsetof(LoggerBase, stream) < offsetof(LoggerBase, mutex));
    static_assert(offsetof(LoggerBase, mutex) < offsetof(LoggerBase, semaphore));
    static_assert(offsetof(LoggerBase, semaphore) < offsetof(LoggerBase, enabled));
#pragma GCC diagnostic pop

    stream.imbue(std::locale::classic()); // numbers look the same whatever locale the application sets
}

template <class Policy>
LoggerBase<Policy>::~LoggerBase()
{
    EndWriter();
}

template <class Policy>
void LoggerBase<Policy>::Lock()
{
    if (mutex.try_lock())
    {
        return;
    }
    if (forking<Policy>.depth > 0 && getpid() != forking<Policy>.process)
    {
        // A fork handler of the application, in the child before this sink's own: nobody is there any more
        // to give the lock back.
        BecomeChild();
    }
    // The file's lock comes before the console's: who waits for the file with a console line open could
    // wait for a thread that waits for that line.
    if constexpr (std::is_same_v<Policy, FileLogPolicy>)
    {
        Logger::GetInstance().Console().CompleteOpenLine();
    }
    mutex.lock();
}

template <class Policy>
bool LoggerBase<Policy>::HasOpenLine() const
{
    return mutex.HeldByThisThread() && (forks == 0 || !stream.view().empty());
}

template <class Policy>
bool LoggerBase<Policy>::TakenForFork() const
{
    return mutex.HeldByThisThread() && forks > 0;
}

template <class Policy>
bool LoggerBase<Policy>::MayWrite()
{
    const bool open = HasOpenLine();
    if (enabled.load())
    {
        return open || OpenLine();
    }
    if (open)
    {
        stream.str({});
        Release();
    }
    return false;
}

template <class Policy>
bool LoggerBase<Policy>::OpenLine()
{
    if (!TakenForFork())
    {
        Lock();
        if (!enabled.load())
        {
            mutex.unlock();
            return false;
        }
        Logger::CompleteLinesAtThreadEnd();
    }
    stream.clear();
    stream.flags(std::ios_base::dec | std::ios_base::skipws);
    stream.precision(6);
    stream.width(0);
    stream.fill(' ');
    return true;
}

template <class Policy>
void LoggerBase<Policy>::Release()
{
    if (forks == 0)
    {
        mutex.unlock();
    }
}

template <class Policy>
void LoggerBase<Policy>::HandOver()
{
    const bool inFork = forking<Policy>.depth > 0; // the child has no writer, and may not know it yet
    if (inFork || writerLost || (!writerRunning && !StartWriter()))
    {
        const PipeSignalHeldBack held;
        OutputLine();
        return;
    }
    mutex.HandOver();
    semaphore.Notify();
}

template <class Policy>
bool LoggerBase<Policy>::StartWriter()
{
    try
    {
        const Interfaces::SignalsBlocked blocked;
        writer = std::thread([this] { WriterLoop(); });
        writerRunning = true;
    }
    catch (const std::system_error&)
    {
        // No thread to be had: this line is output here, the next one tries again.
    }
    return writerRunning;
}

template <class Policy>
void LoggerBase<Policy>::WriterLoop()
{
    pthread_setname_np(pthread_self(), Policy::WRITER_NAME);
    while (true)
    {
        semaphore.WaitBusy();
        if (writerEnds)
        {
            ended.Notify();
            return;
        }
        OutputLine();
    }
}

template <class Policy>
void LoggerBase<Policy>::OutputLine()
{
    std::string line = std::move(stream).str();
    policy.Write(line);
    // The line's storage goes back into the stream, so that the next line need not allocate any.
    line.clear();
    if (line.capacity() > KEPT_LINE_BYTES)
    {
        line = std::string();
    }
    stream.str(std::move(line));
    Release();
}

template <class Policy>
void LoggerBase<Policy>::Flush()
{
    if (!mutex.HeldByThisThread())
    {
        Lock();
        mutex.unlock();
    }
}

template <class Policy>
void LoggerBase<Policy>::MarkFork()
{
    forking<Policy>.process = getpid();
    ++forking<Policy>.depth;
}

template <class Policy>
bool LoggerBase<Policy>::TakeForFork()
{
    if (!mutex.HeldByThisThread())
    {
        if (!mutex.TryLockFor(FORK_PATIENCE))
        {
            return false;
        }
    }
    else if (forks == 0)
    {
        suspended = std::make_unique<std::ostringstream>();
        suspended->imbue(std::locale::classic());
        stream.swap(*suspended);
    }
    if (writer.joinable())
    {
        // The child has a copy of the handle without a thread to it: the thread sanitizer ends a child that
        // creates one in its place.
        writer.detach();
    }
    ++forks;
    return true;
}

template <class Policy>
void LoggerBase<Policy>::AfterForkInParent()
{
    if (TakenForFork())
    {
        if (forks == 1)
        {
            CompleteOpenLine(); // which a fork handler of the application has begun
        }
        --forks;
        if (forks == 0 && suspended != nullptr)
        {
            stream.swap(*suspended);
            suspended.reset();
        }
        else
        {
            Release();
        }
    }
    if (forking<Policy>.depth > 0)
    {
        --forking<Policy>.depth;
    }
}

template <class Policy>
void LoggerBase<Policy>::AfterForkInChild()
{
    if (getpid() != forking<Policy>.process)
    {
        BecomeChild();
    }
    AfterForkInParent();
}

template <class Policy>
void LoggerBase<Policy>::BecomeChild()
{
    forking<Policy>.process = getpid();
    if (writerRunning && !writerLost)
    {
        writerLost = true;
        std::construct_at(&writer); // there is no thread that could be joined or detached
    }
    if (!mutex.HeldByThisThread())
    {
        // The other thread may have been anywhere inside the stream: it cannot even be destroyed.
        std::construct_at(&stream);
        stream.imbue(std::locale::classic());
        mutex.Renew();
    }
}

template <class Policy>
void LoggerBase<Policy>::EndWriter()
{
    const bool inLine = mutex.HeldByThisThread();
    if (!inLine && (mutex.HandedOver() || !mutex.TryLockFor(END_PATIENCE)))
    {
        return; // with a line open for ever, or a console that takes nothing
    }
    if (writerRunning && !writerLost)
    {
        writerLost = true;
        writerEnds = true;
        semaphore.Notify();
        if (writer.joinable())
        {
            writer.join(); // which frees its stack, too
        }
        else
        {
            ended.WaitBusy();
        }
    }
    if (!inLine)
    {
        mutex.unlock();
    }
}

template class LoggerBase<FileLogPolicy>;
template class LoggerBase<ConsoleLogPolicy>;

}

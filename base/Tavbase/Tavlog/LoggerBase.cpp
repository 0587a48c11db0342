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
#include <utility>

namespace Tavbase::Tavlog
{

namespace
{

/// How long a fork waits for a line of another thread before it goes on without it.
constexpr std::chrono::milliseconds FORK_PATIENCE{100};

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
void LoggerBase<Policy>::Lock()
{
    if (mutex.try_lock())
    {
        return;
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
bool LoggerBase<Policy>::MayWrite()
{
    const bool held = mutex.HeldByThisThread();
    if (enabled.load())
    {
        return held || OpenLine();
    }
    if (held)
    {
        stream.str({});
        mutex.unlock();
    }
    return false;
}

template <class Policy>
bool LoggerBase<Policy>::OpenLine()
{
    Lock();
    if (!enabled.load())
    {
        mutex.unlock();
        return false;
    }
    Logger::CompleteLinesAtThreadEnd();
    stream.clear();
    stream.flags(std::ios_base::dec | std::ios_base::skipws);
    stream.precision(6);
    stream.width(0);
    stream.fill(' ');
    return true;
}

template <class Policy>
void LoggerBase<Policy>::HandOver()
{
    if (writerLost || (!writerRunning && !StartWriter()))
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
        std::thread([this] { WriterLoop(); }).detach();
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
    mutex.unlock();
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
void LoggerBase<Policy>::BeforeFork()
{
    if (mutex.HeldByThisThread())
    {
        forkState = ForkState::Own;
    }
    else
    {
        forkState = mutex.TryLockFor(FORK_PATIENCE) ? ForkState::Locked : ForkState::Abandoned;
    }
}

template <class Policy>
void LoggerBase<Policy>::AfterForkInParent()
{
    if (forkState == ForkState::Locked)
    {
        mutex.unlock();
    }
}

template <class Policy>
void LoggerBase<Policy>::AfterForkInChild()
{
    writerLost = writerLost || writerRunning;
    switch (forkState)
    {
    case ForkState::Own:
        break;
    case ForkState::Locked:
        mutex.unlock();
        break;
    case ForkState::Abandoned:
        // The other thread may have been anywhere inside the stream: it cannot even be destroyed.
        std::construct_at(&stream);
        stream.imbue(std::locale::classic());
        mutex.Renew();
        break;
    }
}

template class LoggerBase<FileLogPolicy>;
template class LoggerBase<ConsoleLogPolicy>;

}

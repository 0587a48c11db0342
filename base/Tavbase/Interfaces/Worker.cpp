#include "base/Tavbase/Interfaces/Worker.h"

#include "base/Tavbase/Interfaces/InterruptSignal.h"
#include "base/Tavbase/Interfaces/SignalsBlocked.h"
#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <cxxabi.h>
#include <exception>
#include <pthread.h>
#include <utility>

namespace Tavbase::Interfaces
{

namespace
{

/// The longest single wait: longer ones would overflow the clock they are added to.
constexpr std::chrono::hours LONGEST_SLEEP{24 * 365};

/// How often a thread that has been asked to end, and is blocked in the kernel, is signalled: a signal that
/// arrives between its look at the request and the system call is lost.
constexpr std::chrono::microseconds INTERRUPT_INTERVAL{200};

[[gnu::tls_model("initial-exec")]] thread_local constinit Worker* ofThisThread = nullptr;

constexpr std::size_t THREAD_NAME_LENGTH = 15; // the kernel's limit

void LogFailure(const std::string& name, const std::string& what)
{
    Tavlog::Logger::GetInstance() << Tavlog::LogType::Error << Tavlog::LogModule::Tavthread << " " << name
                                  << ": " << what << std::endl;
}

}

Worker::~Worker()
{
    RequestStop();
    Join();
}

bool Worker::Start(const std::string& name, std::function<void()> body, std::function<void()> last)
{
    if (OnOwnThread())
    {
        return false;
    }
    const std::scoped_lock lock(lifecycle);
    if (IsRunning())
    {
        return false;
    }
    if (thread.joinable())
    {
        thread.join();
    }
    {
        const std::scoped_lock state(access);
        stopRequested = false;
        running = true;
    }
    try
    {
        const SignalsBlocked blocked;
        thread = std::thread([this, threadName = name, first = std::move(body), second = std::move(last)] {
            ofThisThread = this;
            {
                const std::scoped_lock state(access);
                self = std::this_thread::get_id();
            }
            pthread_setname_np(pthread_self(), threadName.substr(0, THREAD_NAME_LENGTH).c_str());
            const EndMark mark(*this);
            RunGuarded(threadName, first);
            RunGuarded(threadName, second);
        });
    }
    catch (const std::exception& e)
    {
        MarkEnded();
        LogFailure(name, std::string("thread not started: ") + e.what());
        return false;
    }
    return true;
}

void Worker::RequestStop()
{
    const std::scoped_lock state(access);
    stopRequested = true;
    changed.notify_all();
}

bool Worker::StopRequested() const
{
    const std::scoped_lock state(access);
    return stopRequested;
}

void Worker::Join()
{
    if (OnOwnThread())
    {
        return;
    }
    const std::scoped_lock lock(lifecycle);
    const bool startedAgain = IsRunning() && !StopRequested();
    if (thread.joinable() && !startedAgain)
    {
        thread.join();
    }
}

void Worker::Interrupt()
{
    RequestStop();
    if (OnOwnThread())
    {
        return;
    }
    {
        const std::scoped_lock lock(lifecycle);
        std::unique_lock state(access);
        while (running && stopRequested)
        {
            if (accepts)
            {
                // The thread is joined only under `lifecycle`, so that its handle is good here.
                InterruptSignal::Send(thread.native_handle());
            }
            changed.wait_for(state, INTERRUPT_INTERVAL, [this]() TAV_REQUIRES(access) { return !running; });
        }
    }
    Join();
}

bool Worker::Accept(bool on)
{
    const bool before = accepts;
    if (on)
    {
        InterruptSignal::AcceptOnThisThread();
        accepts = true;
    }
    else
    {
        // The word first, so that hardly a signal is left over for the next time.
        accepts = false;
        InterruptSignal::RefuseOnThisThread();
    }
    return before;
}

Worker* Worker::OfThisThread()
{
    return ofThisThread;
}

bool Worker::Sleep(std::chrono::milliseconds duration)
{
    const auto bounded =
        std::clamp<std::chrono::milliseconds>(duration, std::chrono::milliseconds::zero(), LONGEST_SLEEP);
    std::unique_lock state(access);
    return !changed.wait_for(state, bounded, [this]() TAV_REQUIRES(access) { return stopRequested; });
}

bool Worker::IsRunning() const
{
    const std::scoped_lock state(access);
    return running;
}

bool Worker::OnOwnThread() const
{
    const std::scoped_lock state(access);
    return running && self == std::this_thread::get_id();
}

// A thread that is being cancelled unwinds without an object, so that what is caught then is a reference to
// none. It is not looked at, but the undefined-behaviour sanitizer minds it.
__attribute__((no_sanitize("null"))) void Worker::RunGuarded(const std::string& name,
                                                             const std::function<void()>& work)
{
    try
    {
        work();
    }
    catch (const std::exception& e)
    {
        LogFailure(name, std::string("ended by an exception: ") + e.what());
    }
    catch (const abi::__forced_unwind&)
    {
        throw; // the thread is being cancelled; swallowing this would end the process
    }
    catch (...)
    {
        LogFailure(name, "ended by an exception");
    }
}

Worker::EndMark::~EndMark()
{
    worker.MarkEnded();
}

void Worker::MarkEnded()
{
    const std::scoped_lock state(access);
    running = false;
    self = std::thread::id();
    changed.notify_all();
}

}

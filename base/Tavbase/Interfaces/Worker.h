#ifndef BASE_TAVBASE_INTERFACES_WORKER_H
#define BASE_TAVBASE_INTERFACES_WORKER_H

#include "base/ThreadSafety.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace Tavbase::Interfaces
{

/**
 * One thread that can be started, asked to end, waited for and started again: what IThread and ISignal
 * have in common.
 *
 * The thread runs with every asynchronous signal blocked, so that the application's handlers run on the
 * application's own threads. An exception that leaves the body is logged and ends the thread.
 */
class Worker
{
public:
    Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker(); ///< asks the thread to end and waits for it; not to be called on the thread itself

    /**
     * Starts the thread.
     * @param name        shown by the system's tools, cut to 15 characters
     * @param body        what the thread runs
     * @param last        what it runs after that, also when an exception ended the body
     * @return false when the thread still runs or none could be created (which is logged)
     */
    bool Start(const std::string& name, std::function<void()> body, std::function<void()> last);

    void RequestStop(); ///< from any thread: StopRequested() becomes true, a Sleep() ends
    bool StopRequested() const;

    /// Waits until the thread that was asked to end has ended, and not for one that another caller has
    /// started since. Returns at once on the thread itself, which cannot wait for itself.
    void Join();

    /// RequestStop() and Join() for a thread that may be blocked in the kernel: ends system calls of the
    /// thread while it accepts that, and no other.
    void Interrupt();

    /// On the worker's own thread: may Interrupt() end system calls from now on? Not so at first.
    /// @return what it was before
    bool Accept(bool on);

    static Worker* OfThisThread(); ///< null on a thread that is no worker's

    void NoteProgress() { progress = true; } ///< on the worker's own thread

    bool TakeProgress() { return std::exchange(progress, false); } ///< likewise: was it noted?

    /// Sleeps for `duration`, a year at most. @return false when a stop has been requested, before or
    /// meanwhile
    bool Sleep(std::chrono::milliseconds duration);

    bool IsRunning() const; ///< true from Start() until its last work has returned
    bool OnOwnThread() const;

private:
    /// Marks the end on every way out of the thread.
    class EndMark
    {
    public:
        explicit EndMark(Worker& owner) : worker(owner) {}

        EndMark(const EndMark&) = delete;
        EndMark& operator=(const EndMark&) = delete;
        ~EndMark();

    private:
        Worker& worker;
    };

    static void RunGuarded(const std::string& name, const std::function<void()>& work);
    void MarkEnded();

    std::mutex lifecycle; ///< one Start() or Join() at a time; never taken by the thread itself
    std::thread thread TAV_GUARDED_BY(lifecycle);

    mutable std::mutex access;
    std::condition_variable changed;
    bool stopRequested TAV_GUARDED_BY(access) = false;
    bool running TAV_GUARDED_BY(access) = false;
    std::thread::id self TAV_GUARDED_BY(access);

    std::atomic<bool> accepts{false}; ///< system calls may be interrupted now
    bool progress = false;            ///< the thread's own
};

}

#endif

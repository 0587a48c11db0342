#ifndef BASE_TAVBASE_INTERFACES_WORKER_H
#define BASE_TAVBASE_INTERFACES_WORKER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

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
     * @param interruptible true: Interrupt() can end a system call in which the thread is blocked
     * @param body        what the thread runs
     * @param last        what it runs after that, also when an exception ended the body
     * @return false when the thread still runs or none could be created (which is logged)
     */
    bool Start(const std::string& name, bool interruptible, std::function<void()> body,
               std::function<void()> last);

    void RequestStop(); ///< from any thread: StopRequested() becomes true, a Sleep() ends
    bool StopRequested() const;

    /// Waits until the thread that was asked to end has ended, and not for one that another caller has
    /// started since. Returns at once on the thread itself, which cannot wait for itself.
    void Join();

    /// RequestStop() and Join() for an interruptible thread that may be blocked in the kernel.
    void Interrupt();

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
    std::thread thread;   ///< under `lifecycle`

    mutable std::mutex access;
    std::condition_variable changed;
    bool stopRequested = false;
    bool running = false;
    std::thread::id self;
};

}

#endif

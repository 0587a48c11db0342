#ifndef BASE_TAVBASE_INTERFACES_ISIGNAL_H
#define BASE_TAVBASE_INTERFACES_ISIGNAL_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/DelegateList.h"

#include <memory>
#include <string>

namespace Tavbase::Interfaces
{

class Worker;

/**
 * Base of an object that waits for values on a thread of its own and hands each to its receivers.
 *
 * The worker calls SignalWait() and, when that returned true, SignalFire() with the value, over and over.
 * After a wait that failed at once (within a millisecond) it pauses: 10 ms at first, twice as long after each
 * further one, at most one second; a stop ends the pause. A successful wait sets the pause back, and so does
 * a wait that has blocked before it failed, which is followed at once, but not sooner than 10 ms after its
 * begin, and one that took something from its device (InterruptibleWait::NoteProgress()). An exception that
 * leaves one of the two is written to the log as an error and ends the worker, never the process.
 *
 * The most derived class ends the worker in its own destructor, by StopWorker(), before anything of it is
 * destroyed: the worker calls virtual operations. The destructor here ends a worker that is still there.
 *
 * Calling threads: Start(), IsRunning() and AddCallback() may be called from any thread. The object must
 * not be destroyed on its own worker.
 */
class TAVBASE_API ISignal
{
public:
    /// A receiver of the signal's values. It stays the application's and must outlive the worker.
    class TAVBASE_API ISignalDelegate
    {
    public:
        virtual ~ISignalDelegate();

        /**
         * Called once for each value, on the signal's worker; what the value points to is told by the
         * class that delivers it. It must return quickly: the next value waits for it.
         */
        virtual void SignalCallback(void* value) = 0;
    };

    ISignal();
    ISignal(const ISignal&) = delete;
    ISignal& operator=(const ISignal&) = delete;
    virtual ~ISignal();

    /// Waits for a value; may block without a limit. @return true when `value` holds one
    virtual bool SignalWait(int& value) = 0;
    virtual void SignalFire(int value) = 0; ///< deals with one value

    /// Starts the worker. @return false when it already runs, or could not be created (which is logged)
    bool Start();

    bool IsRunning() const; ///< true from Start() until the worker has ended

    /// Registers a receiver for DoCallback(); null is ignored. Receivers are called in this order.
    void AddCallback(ISignalDelegate* delegate);

    /// Passes the pointer to every receiver, on the calling thread, without allocating anything.
    void DoCallback(void* value);

    const std::string& GetName() const { return name; } ///< of the thread

protected:
    /**
     * Ends the worker and waits for it, also when it is blocked in SignalWait(): while it is there, it is
     * sent a real-time signal that the application does not use until it has left the system call (which then
     * fails with EINTR). A SignalWait() that does more than wait says by an InterruptibleWait which call that
     * may be. SignalFire() and the receivers are never interrupted, but waited for. The object can be started
     * again afterwards. Called on the worker itself it only requests the end. In a forked child it
     * never returns (docs/limits.md).
     */
    void StopWorker();

    std::string
        name; ///< the worker's name for the system's tools and the log; set by the derived constructor

private:
    bool Wait(int& value);
    void Loop();

    DelegateList<ISignalDelegate> delegates;
    std::unique_ptr<Worker> worker;
};

}

#endif

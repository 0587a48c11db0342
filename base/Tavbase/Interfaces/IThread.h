#ifndef BASE_TAVBASE_INTERFACES_ITHREAD_H
#define BASE_TAVBASE_INTERFACES_ITHREAD_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/DelegateList.h"

#include <chrono>
#include <memory>
#include <string>

namespace Tavbase::Interfaces
{

class Worker;

/**
 * Base of an object that works on a thread of its own.
 *
 * The thread runs RunBefore() once, then Run() over and over until a stop is requested, then RunAfter()
 * once. A derived class overrides what it needs. An exception that leaves one of them is written to the
 * log as an error and ends the thread (RunAfter() is still called), never the process.
 *
 * A class whose thread may run ends it in its own destructor, by Stop(), before anything of it is
 * destroyed; otherwise the thread would meet a half-destroyed object. The destructor here ends a thread
 * that was forgotten, but by then only the default bodies below are left of the object.
 *
 * Calling threads: Start(), Stop(), Cancel(), IsRunning() and AddCallback() may be called from any thread,
 * the object's own included; the virtual operations are called on the object's own thread, but for
 * Stopping(). The object must not be destroyed on its own thread, nor stopped or destroyed in a forked
 * child, where the thread is not there (docs/limits.md).
 */
class TAVBASE_API IThread
{
public:
    /// An object that receives the thread's values. It stays the application's and must outlive the thread.
    class TAVBASE_API IThreadDelegate
    {
    public:
        virtual ~IThreadDelegate();

        /**
         * Called once for each value, on the thread that made it; what the value points to is told by the
         * class that delivers it. It must return quickly: the thread waits for it.
         */
        virtual void ThreadCallback(void* value) = 0;
    };

    IThread();
    IThread(const IThread&) = delete;
    IThread& operator=(const IThread&) = delete;
    virtual ~IThread();

    /// Called first. @return 0 ends the thread after RunAfter(), without a Run(); anything else goes on
    virtual int RunBefore();
    virtual void Run();      ///< one step of the work
    virtual void RunAfter(); ///< called last, however the thread ends
    /// Called by Stop() on the thread that stops, after the request and before the wait, to wake a Run()
    /// that waits for something. Not called by Cancel(), nor when the thread does not run.
    virtual void Stopping();

    /**
     * Creates the thread. It can be started again after it has ended.
     * @return false when it still runs, or could not be created (which is logged)
     */
    bool Start();

    /// Requests the end and waits for it: for the present step, and for the receiver in it. The caller must
    /// hold no lock that a receiver takes. On the object's own thread it does not wait.
    void Stop();

    /// Requests the end without waiting for it: the present step is the last one.
    void Cancel();

    bool IsRunning() const; ///< true from Start() until RunAfter() has returned

    /// Registers a receiver for DoCallback(); null is ignored. Receivers are called in this order.
    void AddCallback(IThreadDelegate* delegate);

    const std::string& GetName() const { return name; } ///< of the thread

protected:
    /**
     * Sleeps for `duration`; a stop ends the sleep at once.
     * @param pollInterval how often a sleeping thread looks for a stop where it cannot be woken; not
     *                     needed here, since the stop itself wakes it
     * @return false when a stop has been requested
     */
    bool ThreadSleep(const std::chrono::milliseconds& duration,
                     const std::chrono::milliseconds& pollInterval);

    /// For work that takes long: true on the object's own thread once its end has been requested. False on
    /// any other thread, whose call of the same operation has nothing to do with that end.
    bool StopRequested() const;

    /// Calls every receiver with the value, on the calling thread, without allocating anything.
    void DoCallback(void* value);

    std::string
        name; ///< the thread's name for the system's tools and the log; set by the derived constructor

private:
    void Loop();

    DelegateList<IThreadDelegate> delegates;
    std::unique_ptr<Worker> worker;
};

}

#endif

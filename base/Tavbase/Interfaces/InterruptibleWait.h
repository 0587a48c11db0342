#ifndef BASE_TAVBASE_INTERFACES_INTERRUPTIBLEWAIT_H
#define BASE_TAVBASE_INTERFACES_INTERRUPTIBLEWAIT_H

#include "base/Export.h"

namespace Tavbase::Interfaces
{

class Worker;

/**
 * For an ISignal::SignalWait() that does more than wait: which of its system calls the end of the worker may
 * interrupt. Without one, every call in SignalWait() may fail with EINTR then, those that print included.
 *
 *     bool SignalWait(int& value) override
 *     {
 *         Tavbase::Interfaces::InterruptibleWait wait;
 *         const int ready = wait.During([&] { return poll(&device, 1, -1); });
 *         if (ready < 0 && !wait.StopRequested())
 *         {
 *             std::cout << "the device does not answer" << std::endl;
 *         }
 *         ...
 *     }
 *
 * Threads: lives on one thread, in one scope. On a thread that is no ISignal's worker it does nothing, and
 * During() only makes the call.
 */
class TAVBASE_API InterruptibleWait
{
public:
    InterruptibleWait(); ///< from here on nothing is interrupted, but for what During() calls
    InterruptibleWait(const InterruptibleWait&) = delete;
    InterruptibleWait& operator=(const InterruptibleWait&) = delete;
    ~InterruptibleWait();

    /// Makes a call that blocks. @return what it returned, with its errno; -1 and EINTR where it has been
    /// interrupted, as system calls have it
    template <class Call>
    auto During(Call call)
    {
        const Open open(*this);
        return call();
    }

    bool StopRequested() const; ///< the worker is to end: a failed call may have been interrupted for that

    /// The device had something, though it gives no value: the next SignalWait() follows without the pause
    /// that a failed one brings.
    void NoteProgress();

private:
    class Open
    {
    public:
        explicit Open(InterruptibleWait& wait) : owner(wait) { owner.Accept(true); }

        Open(const Open&) = delete;
        Open& operator=(const Open&) = delete;

        ~Open() { owner.Accept(false); }

    private:
        InterruptibleWait& owner;
    };

    void Accept(bool on);

    Worker* const worker; ///< null on a thread that is no worker's
    const bool before;    ///< calls could be interrupted
};

}

#endif

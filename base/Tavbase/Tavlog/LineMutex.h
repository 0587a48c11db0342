#ifndef BASE_TAVBASE_TAVLOG_LINEMUTEX_H
#define BASE_TAVBASE_TAVLOG_LINEMUTEX_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/ISemaphore.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace Tavbase::Tavlog
{

/**
 * The lock of one log sink. The thread that builds a line takes it, and the sink's writer, another
 * thread, gives it back when the line is out: a std::mutex does not allow that.
 */
class TAVBASE_API LineMutex
{
public:
    void lock();     ///< waits without a limit
    bool try_lock(); ///< does not wait @return true when it was free, and is taken now
    void unlock();   ///< from any thread
    bool TryLockFor(std::chrono::milliseconds limit); ///< as try_lock(), waiting so long at most

    bool HeldByThisThread() const; ///< true from lock() to HandOver() or unlock(), on the thread that locked

    void HandOver();         ///< the holder leaves the lock, still locked, to the writer
    bool HandedOver() const; ///< true from HandOver() to unlock()

    void Renew(); ///< for a forked child: unlocked, whatever a thread of the parent was doing with it

private:
    void Take();

    Interfaces::ISemaphore gate{1};
    std::atomic<std::thread::id> holder{};
    std::atomic<bool> handedOver{false};
};

}

#endif

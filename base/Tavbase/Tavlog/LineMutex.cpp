#include "base/Tavbase/Tavlog/LineMutex.h"

#include <memory>

namespace Tavbase::Tavlog
{

namespace
{

constexpr std::chrono::milliseconds TRY_INTERVAL{1};

}

void LineMutex::lock()
{
    gate.WaitBusy();
    Take();
}

bool LineMutex::try_lock()
{
    if (!gate.TryWait())
    {
        return false;
    }
    Take();
    return true;
}

void LineMutex::unlock()
{
    holder.store(std::thread::id(), std::memory_order_relaxed);
    handedOver.store(false, std::memory_order_relaxed);
    gate.Notify();
}

bool LineMutex::TryLockFor(std::chrono::milliseconds limit)
{
    for (auto waited = std::chrono::milliseconds::zero(); waited < limit; waited += TRY_INTERVAL)
    {
        if (try_lock())
        {
            return true;
        }
        std::this_thread::sleep_for(TRY_INTERVAL);
    }
    return try_lock();
}

bool LineMutex::HeldByThisThread() const
{
    // Relaxed: only this thread can have stored its own id.
    return holder.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void LineMutex::HandOver()
{
    holder.store(std::thread::id(), std::memory_order_relaxed);
    handedOver.store(true, std::memory_order_relaxed);
}

bool LineMutex::HandedOver() const
{
    return handedOver.load(std::memory_order_relaxed);
}

void LineMutex::Renew()
{
    std::destroy_at(&gate);
    std::construct_at(&gate, 1U);
    holder.store(std::thread::id(), std::memory_order_relaxed);
    handedOver.store(false, std::memory_order_relaxed);
}

void LineMutex::Take()
{
    holder.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

}

#ifndef BASE_TAVBASE_INTERFACES_ISEMAPHORE_H
#define BASE_TAVBASE_INTERFACES_ISEMAPHORE_H

#include "base/Export.h"

#include <semaphore.h>

namespace Tavbase::Interfaces
{

/**
 * A counting semaphore. Any thread may notify and any thread may wait; Notify() makes no system call
 * while nobody waits.
 */
class TAVBASE_API ISemaphore
{
public:
    /// @param count how many waits pass before the first notification
    explicit ISemaphore(unsigned int count = 0);
    ISemaphore(const ISemaphore&) = delete;
    ISemaphore& operator=(const ISemaphore&) = delete;
    ~ISemaphore(); ///< nobody may be waiting any more

    void Notify();  ///< adds one; wakes one waiter if there is one
    void Wait();    ///< takes one; blocks without a limit while there is none
    bool TryWait(); ///< takes one if there is one, without blocking; false otherwise

    /**
     * As Wait(), for a notification that is due within microseconds: looks for it for some tens of them
     * before it goes to sleep, because putting a thread to sleep and waking it costs more than that. On a
     * machine with one processor it is the same as Wait().
     */
    void WaitBusy();

private:
    sem_t semaphore;
};

}

#endif

#ifndef BASE_TAVBASE_INTERFACES_DELEGATELIST_H
#define BASE_TAVBASE_INTERFACES_DELEGATELIST_H

#include "base/ThreadSafety.h"

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Tavbase::Interfaces
{

/**
 * The receivers of a thread's or a signal's values, in the order in which they were added.
 *
 * Any thread may add while another delivers: a delivery goes to the receivers that were there when it
 * began. No lock is held while a receiver is called, and a delivery allocates nothing.
 */
template <class Delegate>
class DelegateList
{
public:
    /// Adds a receiver, which stays the caller's; null is ignored. Added twice, it is called twice.
    void Add(Delegate* delegate)
    {
        if (delegate == nullptr)
        {
            return;
        }
        const std::scoped_lock lock(access);
        auto longer = std::make_shared<List>(*delegates);
        longer->push_back(delegate);
        delegates = std::move(longer);
    }

    /// Calls `deliver` with each receiver, on the calling thread.
    template <class Deliver>
    void ForEach(Deliver deliver) const
    {
        const auto present = Present();
        for (Delegate* delegate : *present)
        {
            deliver(*delegate);
        }
    }

private:
    using List = std::vector<Delegate*>;

    std::shared_ptr<const List> Present() const
    {
        const std::scoped_lock lock(access);
        return delegates;
    }

    mutable std::mutex access;
    std::shared_ptr<const List> delegates TAV_GUARDED_BY(access) = std::make_shared<const List>();
};

}

#endif

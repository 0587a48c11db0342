#ifndef EXAMPLES_COMMON_MAILBOX_H
#define EXAMPLES_COMMON_MAILBOX_H

#include <mutex>
#include <optional>
#include <queue>
#include <utility>

namespace Examples
{

/// What device threads have to tell, until the main thread takes it. Calling threads: any.
template <class Item>
class Mailbox
{
public:
    void Put(Item item)
    {
        const std::scoped_lock lock(access);
        items.push(std::move(item));
    }

    /// @return the oldest item that was not taken yet
    std::optional<Item> Take()
    {
        const std::scoped_lock lock(access);
        if (items.empty())
        {
            return std::nullopt;
        }
        std::optional<Item> item = std::move(items.front());
        items.pop();
        return item;
    }

private:
    std::mutex access;
    std::queue<Item> items;
};

}

#endif

#include "virtual-unit/recording/RequestRuns.h"

#include <utility>

namespace VirtualUnit
{

namespace
{

/// Two pairs, which are needed to know two requests that take turns.
constexpr std::size_t TURNS = 4;

bool Equal(const PortEntry& one, const PortEntry& other)
{
    return one.exchanges == other.exchanges;
}

}

std::vector<PortEntry> RequestRuns::Add(const PortEntry::Exchange& exchange, std::chrono::microseconds at)
{
    if (run && run->exchanges[run->count % run->exchanges.size()] == exchange)
    {
        ++run->count;
        run->until = at;
        return {};
    }
    std::vector<PortEntry> complete;
    if (run)
    {
        complete.push_back(*std::exchange(run, std::nullopt));
    }
    PortEntry single;
    single.kind = PortEntry::Kind::Requests;
    single.at = at;
    single.until = at;
    single.exchanges = {exchange};
    const std::vector<PortEntry> older = Collect(single);
    complete.insert(complete.end(), older.begin(), older.end());
    return complete;
}

std::vector<PortEntry> RequestRuns::Collect(const PortEntry& single)
{
    if (!singles.empty() && Equal(singles.back(), single))
    {
        run = singles.back();
        run->count = 2;
        run->until = single.at;
        singles.pop_back();
        return std::exchange(singles, {});
    }
    std::vector<PortEntry> complete;
    singles.push_back(single);
    while ((singles.size() > 2 && !Equal(singles[0], singles[2])) ||
           (singles.size() > 3 && !Equal(singles[1], singles[3])))
    {
        complete.push_back(singles.front());
        singles.erase(singles.begin());
    }
    if (singles.size() == TURNS)
    {
        run = singles.front();
        run->exchanges.push_back(singles[1].exchanges.front());
        run->count = TURNS;
        run->until = single.at;
        singles.clear();
    }
    return complete;
}

std::vector<PortEntry> RequestRuns::Flush()
{
    if (run)
    {
        return {*std::exchange(run, std::nullopt)};
    }
    return std::exchange(singles, {});
}

}

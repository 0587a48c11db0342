#include "virtual-unit/recording/RequestRuns.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace VirtualUnit
{

namespace
{

/// The end of a list and what precedes it are the same `turns` requests, one after the other.
bool Repeats(const std::vector<PortEntry>& list, std::size_t turns)
{
    return list.size() >= 2 * turns && std::equal(list.end() - static_cast<std::ptrdiff_t>(turns), list.end(),
                                                  list.end() - static_cast<std::ptrdiff_t>(2 * turns),
                                                  [](const PortEntry& one, const PortEntry& other) {
                                                      return one.exchanges == other.exchanges;
                                                  });
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
    singles.push_back(single);
    for (std::size_t turns = 1; turns <= PortEntry::MOST_TURNS; ++turns)
    {
        if (Repeats(singles, turns))
        {
            const std::size_t begin = singles.size() - 2 * turns;
            run = singles[begin];
            run->count = 2 * turns;
            run->until = single.at;
            for (std::size_t i = begin + 1; i < begin + turns; ++i)
            {
                run->exchanges.push_back(singles[i].exchanges.front());
            }
            singles.resize(begin);
            return std::exchange(singles, {});
        }
    }
    std::vector<PortEntry> complete;
    if (singles.size() == 2 * PortEntry::MOST_TURNS) // the first cannot be the begin of a repetition any more
    {
        complete.push_back(singles.front());
        singles.erase(singles.begin());
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

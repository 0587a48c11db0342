#include "virtual-unit/peripherals/Transmitter.h"

#include <algorithm>
#include <utility>

namespace VirtualUnit
{

void Transmitter::Send(std::string_view text, TimePoint at)
{
    TimePoint lineFree = queue.empty() ? at : std::max(at, queue.back().complete);
    const std::size_t pieceBytes = options.pieceBytes == 0 ? text.size() : options.pieceBytes;
    while (!text.empty())
    {
        const std::string_view piece = text.substr(0, pieceBytes);
        if (options.bytesPerSecond != 0)
        {
            lineFree += std::chrono::nanoseconds(std::chrono::seconds(piece.size())) / options.bytesPerSecond;
        }
        queue.push_back({lineFree, std::string(piece)});
        lineFree += options.pieceGap;
        text.remove_prefix(piece.size());
    }
}

void Transmitter::Discard()
{
    queue.clear();
}

std::optional<Transmitter::TimePoint> Transmitter::NextDeadline() const
{
    return queue.empty() ? std::nullopt : std::optional(queue.front().complete);
}

void Transmitter::Take(TimePoint now, std::vector<std::string>& output)
{
    while (!queue.empty() && queue.front().complete <= now)
    {
        output.push_back(std::move(queue.front().bytes));
        queue.pop_front();
    }
}

}

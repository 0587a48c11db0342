#include "virtual-unit/script/Heard.h"

#include <algorithm>
#include <iterator>

namespace VirtualUnit
{

void Heard::Add(std::string_view bytes, TimePoint at)
{
    constexpr std::size_t MOST_KEPT = std::size_t{1024} * 1024;
    if (bytes.empty())
    {
        return;
    }
    at = pieces.empty() ? at : std::max(at, pieces.back().at); // several threads tell
    text += bytes;
    if (!pieces.empty() && pieces.back().at == at)
    {
        pieces.back().end = text.size();
    }
    else
    {
        pieces.push_back({text.size(), at});
    }
    if (text.size() > 2 * MOST_KEPT) // seldom: it takes its time
    {
        Forget(text.size() - MOST_KEPT);
    }
}

std::optional<Heard::TimePoint> Heard::Take(const std::string& wanted, TimePoint since)
{
    const std::size_t found = text.find(wanted, Position(since));
    if (found == std::string::npos)
    {
        return std::nullopt;
    }
    const std::size_t end = found + wanted.size();
    const auto piece = std::ranges::lower_bound(pieces, end, {}, &Piece::end);
    const TimePoint at = piece->at;
    Forget(end);
    return at;
}

std::size_t Heard::Position(TimePoint since) const
{
    const auto later = std::ranges::lower_bound(pieces, since, {}, &Piece::at);
    return later == pieces.begin() ? 0 : std::prev(later)->end;
}

void Heard::Forget(std::size_t count)
{
    text.erase(0, count);
    while (!pieces.empty() && pieces.front().end <= count)
    {
        pieces.pop_front();
    }
    for (Piece& piece : pieces)
    {
        piece.end -= count;
    }
}

}

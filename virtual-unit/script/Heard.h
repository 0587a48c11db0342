#ifndef VIRTUAL_UNIT_SCRIPT_HEARD_H
#define VIRTUAL_UNIT_SCRIPT_HEARD_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace VirtualUnit
{

/// What has gone one way, and when each piece of it came: the latest megabyte.
class Heard
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    void Add(std::string_view bytes, TimePoint at);

    /// Looks for a text and forgets what precedes its end.
    /// @param since what came before does not count @return when its end came; none: it has not
    std::optional<TimePoint> Take(const std::string& wanted, TimePoint since = TimePoint::min());

    std::string Since(TimePoint since) const { return text.substr(Position(since)); }

private:
    struct Piece
    {
        std::size_t end; ///< in `text`
        TimePoint at;
    };

    std::size_t Position(TimePoint since) const;
    void Forget(std::size_t count);

    std::string text;
    std::deque<Piece> pieces;
};

}

#endif

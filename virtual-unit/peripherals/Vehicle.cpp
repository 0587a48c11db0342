#include "virtual-unit/peripherals/Vehicle.h"

#include "virtual-unit/peripherals/Geography.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <limits>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Geography::G;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::milliseconds STEP{10}; // in which it is followed where no formula holds for longer
constexpr std::size_t MOST_PIECES = 20'000;   // more than three minutes of such steps
constexpr double ALIKE = 0.001;               // speeds, metres per second
constexpr double STANDING = 0.3;              // slower than that a road does not lead on, metres per second
constexpr double PAUSE_STEP = 0.1;            // seconds
constexpr double SLOWEST_BEND = 1;            // metres per second: who stands does not turn

Vehicle::TimePoint::duration Duration(double seconds)
{
    return std::chrono::duration_cast<Vehicle::TimePoint::duration>(Seconds(seconds));
}

Vehicle::State StateOf(const Drive::Moment& moment)
{
    const Track::Point& point = moment.point;
    return {point.latitude, point.longitude, point.knots * Geography::METRES_PER_SECOND_PER_KNOT,
            point.course,   moment.ahead,    moment.right};
}

}

Vehicle::Vehicle(Track circuit) : road(std::move(circuit)), pieces(1)
{
    pieces.front().begin = TimePoint::max();
}

Vehicle::Vehicle(Drive recorded, TimePoint itsBegin) : road(std::move(recorded))
{
    BeginAt(itsBegin);
}

void Vehicle::Begin(TimePoint now)
{
    const std::lock_guard lock(access);
    if (!begun)
    {
        BeginAt(now);
    }
}

void Vehicle::BeginAt(TimePoint time)
{
    begun = true;
    Piece first;
    first.begin = time;
    if (const double end = RoadEnd(); end < std::numeric_limits<double>::infinity())
    {
        first.end = time + Duration(end);
    }
    pieces = {first};
}

Vehicle::State Vehicle::At(TimePoint time) const
{
    const std::lock_guard lock(access);
    Extend(time);
    const auto next = std::ranges::upper_bound(pieces, time, {}, &Piece::begin);
    return Moved(next == pieces.begin() ? *next : *std::prev(next), time).state;
}

Drive::Moment Vehicle::Road(double seconds) const
{
    const Drive* const drive = std::get_if<Drive>(&road);
    return drive != nullptr ? drive->At(seconds) : Drive::Moment{std::get<Track>(road).At(seconds), 0, 0};
}

double Vehicle::RoadEnd() const
{
    const Drive* const drive = std::get_if<Drive>(&road);
    return drive != nullptr ? drive->Seconds() : std::numeric_limits<double>::infinity();
}

/// The piece as it is at a later time.
Vehicle::Piece Vehicle::Moved(const Piece& piece, TimePoint time) const
{
    const double seconds = std::max(0.0, Seconds(time - std::min(piece.begin, time)).count());
    Piece moved = piece;
    moved.begin = time;
    State& state = moved.state;
    if (piece.way == Piece::Way::WithRoad)
    {
        moved.roadSeconds += seconds;
        state = StateOf(Road(moved.roadSeconds));
        return moved;
    }
    state.metresPerSecond = std::max(0.0, state.metresPerSecond + state.ahead * G * seconds);
    const double metres = (piece.state.metresPerSecond + state.metresPerSecond) / 2 * seconds;
    if (piece.way == Piece::Way::AlongRoad)
    {
        const State pace = StateOf(Road(piece.roadSeconds));
        moved.roadSeconds += metres / std::max(pace.metresPerSecond, STANDING);
        const State there = StateOf(Road(moved.roadSeconds));
        state.latitude = there.latitude;
        state.longitude = there.longitude;
        state.course = there.course;
        return moved;
    }
    const double course = (state.course + piece.turn * seconds / 2) * Geography::RADIANS;
    state.latitude += metres * std::cos(course) / Geography::METRES_PER_DEGREE;
    state.longitude +=
        metres * std::sin(course) / Geography::MetresPerDegreeOfLongitude(piece.state.latitude);
    state.course = Geography::Normal(state.course + piece.turn * seconds);
    return moved;
}

/// How it goes on from there.
Vehicle::Piece Vehicle::Next(Piece from) const
{
    PassPause(from);
    const bool hasRoad = HasRoad(from);
    const State pace = StateOf(Road(from.roadSeconds));
    State& state = from.state;
    const bool brakes = from.begin < braking.end;
    const bool bends = from.begin < bend.end;
    const double lag =
        std::abs(pace.ahead) * G * Seconds(STEP).count(); // behind a road that speeds up itself
    if (hasRoad && ignition && !ownSpeed && !brakes &&
        std::abs(state.metresPerSecond - pace.metresPerSecond) < ALIKE + lag)
    {
        from.way = Piece::Way::WithRoad;
        from.end.reset();
        if (const double end = RoadEnd(); end < std::numeric_limits<double>::infinity())
        {
            from.end = from.begin + Duration(end - from.roadSeconds);
        }
        return from;
    }
    const double step = Seconds(STEP).count();
    const double toStand = -state.metresPerSecond / step;
    const double toWanted = (SpeedWanted(pace.metresPerSecond, hasRoad) - state.metresPerSecond) / step;
    state.ahead =
        (brakes ? std::max(-braking.g * G, toStand) : std::clamp(toWanted, -BRAKING * G, SPEEDING_UP * G)) /
        G;
    from.way = hasRoad ? Piece::Way::AlongRoad : Piece::Way::Straight;
    from.turn = 0;
    state.right = 0;
    state.engine = ignition;
    if (bends && state.metresPerSecond >= SLOWEST_BEND)
    {
        state.right = bend.g;
        from.turn = bend.g * G / state.metresPerSecond / Geography::RADIANS;
    }
    else if (hasRoad && pace.metresPerSecond >= STANDING)
    {
        const double faster = state.metresPerSecond / pace.metresPerSecond;
        state.right = pace.right * faster * faster;
    }
    const bool lasts =
        state.ahead == 0 && from.turn == 0 && !brakes && !bends && (state.metresPerSecond == 0 || !hasRoad);
    from.end = lasts ? std::nullopt : std::optional(from.begin + STEP);
    return from;
}

bool Vehicle::HasRoad(const Piece& piece) const
{
    constexpr double ROUNDING = 1e-6; // seconds: of times in whole nanoseconds
    return onRoad && piece.roadSeconds + ROUNDING < RoadEnd();
}

/// At a speed of its own it does not wait where the road does.
void Vehicle::PassPause(Piece& piece) const
{
    if (onRoad && ignition && ownSpeed && *ownSpeed > 0)
    {
        while (HasRoad(piece) && StateOf(Road(piece.roadSeconds)).metresPerSecond < STANDING)
        {
            piece.roadSeconds += PAUSE_STEP;
        }
    }
}

double Vehicle::SpeedWanted(double roadSpeed, bool hasRoad) const
{
    return !ignition ? 0 : ownSpeed ? *ownSpeed : hasRoad ? roadSpeed : 0;
}

void Vehicle::Extend(TimePoint time) const
{
    while (pieces.back().end && *pieces.back().end <= time)
    {
        pieces.push_back(Next(Moved(pieces.back(), *pieces.back().end)));
        if (pieces.size() > MOST_PIECES)
        {
            pieces.pop_front();
        }
    }
}

template <class Change>
void Vehicle::Ask(TimePoint now, Change&& change)
{
    const std::lock_guard lock(access);
    if (!begun)
    {
        BeginAt(now);
    }
    now = std::max(now, pieces.back().begin);
    Extend(now);
    Piece present = Moved(pieces.back(), now);
    std::forward<Change>(change)(present);
    pieces.push_back(Next(present));
}

void Vehicle::LeaveRoad(const State& state)
{
    onRoad = false;
    ownSpeed = ownSpeed.value_or(state.metresPerSecond);
}

void Vehicle::SwitchIgnition(bool on, TimePoint now)
{
    Ask(now, [&](const Piece&) TAV_REQUIRES(access) { ignition = on; });
}

void Vehicle::Park(TimePoint now)
{
    Ask(now, [&](Piece& present) TAV_REQUIRES(access) {
        ignition = false;
        present.state.metresPerSecond = 0;
    });
}

void Vehicle::Brake(double g, std::chrono::milliseconds time, TimePoint now)
{
    Ask(now, [&](const Piece& present) TAV_REQUIRES(access) {
        braking = {now + time, g};
        if (ownSpeed)
        {
            ownSpeed = std::max(0.0, present.state.metresPerSecond - g * G * Seconds(time).count());
        }
    });
}

void Vehicle::Corner(double g, std::chrono::milliseconds time, TimePoint now)
{
    Ask(now, [&](const Piece& present) TAV_REQUIRES(access) {
        LeaveRoad(present.state);
        bend = {now + time, g};
    });
}

void Vehicle::SetSpeed(double metresPerSecond, TimePoint now)
{
    Ask(now, [&](const Piece&) TAV_REQUIRES(access) { ownSpeed = metresPerSecond; });
}

void Vehicle::PutTo(double latitude, double longitude, TimePoint now)
{
    Ask(now, [&](Piece& present) TAV_REQUIRES(access) {
        LeaveRoad(present.state);
        present.state.latitude = latitude;
        present.state.longitude = longitude;
    });
}

void Vehicle::FollowRoad(TimePoint now)
{
    Ask(now, [&](Piece& present) TAV_REQUIRES(access) {
        const State there = StateOf(Road(present.roadSeconds));
        present.state.latitude = there.latitude;
        present.state.longitude = there.longitude;
        present.state.course = there.course;
        onRoad = true;
        ownSpeed.reset();
    });
}

}

#ifndef VIRTUAL_UNIT_PERIPHERALS_VEHICLE_H
#define VIRTUAL_UNIT_PERIPHERALS_VEHICLE_H

#include "base/ThreadSafety.h"
#include "virtual-unit/peripherals/Drive.h"
#include "virtual-unit/peripherals/Track.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <variant>

namespace VirtualUnit
{

/**
 * The vehicle that carries the unit: where it is, how fast it goes and what is felt in it, for the receiver
 * and the accelerometer alike.
 *
 * It follows its road, a circuit or a recorded drive, in that one's own time, until something else is asked
 * of it. On a circuit speed and course change at once, and nothing of it is felt. At the end of a recorded
 * drive it brakes and stands.
 *
 * With its ignition off it brakes and stands; when that is on again it goes on where it was: its road waits
 * for it. With a speed of its own it follows the road at that speed, passing over where the road stands
 * still. In a bend of its own, and when it is put elsewhere, it leaves the road and goes straight on from
 * then on. It brakes with BRAKING and speeds up with SPEEDING_UP, also to meet its road's speed again.
 *
 * Times of commands must not go back. What it was up to within the last minutes can be asked in any order; of
 * what is older only the oldest is known.
 *
 * Calling threads: any.
 */
class Vehicle
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr double BRAKING = 0.3;     ///< g
    static constexpr double SPEEDING_UP = 0.2; ///< g

    struct State
    {
        double latitude = 0;        ///< degrees, north positive
        double longitude = 0;       ///< degrees, east positive
        double metresPerSecond = 0; ///< 0 or more
        double course = 0;          ///< degrees from true north, clockwise, 0 to below 360
        double ahead = 0;           ///< acceleration in the direction of the course, g; below 0 it brakes
        double right = 0;           ///< and across it, g: above 0 in a right-hand bend
        bool engine = true;         ///< runs
    };

    explicit Vehicle(Track circuit = Track());   ///< it starts with Begin()
    Vehicle(Drive recorded, TimePoint itsBegin); ///< which begins then

    void Begin(TimePoint now); ///< the circuit begins, if nothing has begun yet

    State At(TimePoint time) const;

    void SwitchIgnition(bool on, TimePoint now); ///< on at first
    void Park(TimePoint now);                    ///< it stands at once, with its ignition off

    /// With a road's speed to meet it speeds up again afterwards; with a speed of its own it keeps what is
    /// left.
    void Brake(double g, std::chrono::milliseconds time, TimePoint now);

    void Corner(double g, std::chrono::milliseconds time,
                TimePoint now); ///< to the right; below 0 to the left
    void SetSpeed(double metresPerSecond, TimePoint now);
    void PutTo(double latitude, double longitude, TimePoint now);
    void FollowRoad(TimePoint now); ///< at once where it left it, at the road's speed as soon as it can

private:
    /// What it was asked for, until that time.
    struct Manoeuvre
    {
        TimePoint end;
        double g = 0;
    };

    /// How it goes until the next piece begins.
    struct Piece
    {
        enum class Way
        {
            WithRoad,  ///< in the road's own time
            AlongRoad, ///< at a speed of its own
            Straight   ///< or in a bend, whatever the road does
        };

        TimePoint begin;
        double roadSeconds = 0; ///< where on the road, at the begin
        State state;            ///< at the begin
        Way way = Way::WithRoad;
        double turn = 0;              ///< degrees per second
        std::optional<TimePoint> end; ///< none: until something is asked of it
    };

    Drive::Moment Road(double seconds) const;
    double RoadEnd() const;
    Piece Moved(const Piece& piece, TimePoint time) const;
    Piece Next(Piece from) const TAV_REQUIRES(access);
    bool HasRoad(const Piece& piece) const TAV_REQUIRES(access);
    void PassPause(Piece& piece) const TAV_REQUIRES(access);
    double SpeedWanted(double roadSpeed, bool hasRoad) const TAV_REQUIRES(access);
    void Extend(TimePoint time) const TAV_REQUIRES(access);
    void BeginAt(TimePoint time) TAV_REQUIRES(access);
    void LeaveRoad(const State& state) TAV_REQUIRES(access);

    template <class Change>
    void Ask(TimePoint now, Change&& change);

    const std::variant<Track, Drive> road;
    mutable std::mutex access; ///< guards what follows
    bool begun TAV_GUARDED_BY(access) = false;
    /// Those that follow by themselves are added when they are looked at.
    mutable std::deque<Piece> pieces TAV_GUARDED_BY(access);
    bool ignition TAV_GUARDED_BY(access) = true;
    bool onRoad TAV_GUARDED_BY(access) = true;
    std::optional<double> ownSpeed TAV_GUARDED_BY(access); ///< metres per second; none: the road's
    Manoeuvre braking TAV_GUARDED_BY(access);
    Manoeuvre bend TAV_GUARDED_BY(access);
};

}

#endif

#ifndef EXAMPLES_TRIP_RECORDER_RECORDER_H
#define EXAMPLES_TRIP_RECORDER_RECORDER_H

#include "examples/common/Nmea.h"
#include "examples/trip-recorder/Trip.h"

#include <functional>
#include <optional>
#include <string>

namespace TripRecorder
{

/**
 * What is made of what the devices tell: a trip lasts as long as the ignition is on, and is written from its
 * first position on. All of it is the main thread's.
 *
 * The left LED is red without ignition; on a trip it is green, and blinks until the driver is known. The
 * right one is green while there is a position, else red, and blinks red while the card fails.
 */
class Recorder
{
public:
    explicit Recorder(std::string cardDirectory);

    void TakeEvent(int code); ///< of the event driver
    void TakePosition(const Examples::Block& block);
    void TakeDriver(const std::string& id);
    void TakeBraking(double g);
    void EndTrip();

    bool PowerIsToGo() const { return powerOff; } ///< the event driver asks for it

private:
    void Remark(const std::string& text);
    void OnCard(const std::function<void()>& operation);
    void ShowState() const;

    std::string directory;
    bool ignition = false;
    bool powerOff = false;
    bool hasPosition = false;
    bool cardFails = false;
    std::string driver; ///< of this trip; empty: not known yet
    std::string remark; ///< for the next position
    std::string name; ///< of this trip, from its first position on, so that a second try makes no other file
    std::optional<Trip> trip;
};

}

#endif

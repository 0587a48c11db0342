#ifndef VIRTUAL_UNIT_PERIPHERALS_GPSRECEIVER_H
#define VIRTUAL_UNIT_PERIPHERALS_GPSRECEIVER_H

#include "virtual-unit/peripherals/Nmea.h"
#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/peripherals/Track.h"
#include "virtual-unit/peripherals/Transmitter.h"
#include "virtual-unit/peripherals/Vehicle.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated GPS receiver, L26 or SKM53.
 *
 * Both send, each second after they are switched on, the sentences of that second: where the vehicle is, or a
 * recording. An L26 sends RMC first, then VTG, GGA, GSA and GSV; an SKM53 sends GGA, GSA, GSV,
 * VTG and RMC last.
 *
 * An L26 besides
 * - sends "$GPTXT" sentences in its first seconds (not when it plays a recording);
 * - answers the release query PMTK605 with "$PMTK705,...,Quectel-L26,...";
 * - has GLONASS on at first, and therefore the talker "GN" (RMC, VTG, GGA, GSA) and "$GLGSV" sentences;
 *   PMTK353 selects the systems and is acknowledged with "$PMTK001,353,3";
 * - answers PMTK000 with "$PMTK001,0,3" and any other PMTK command with "$PMTK001,number,1" (unsupported).
 * An SKM53 answers nothing. A command with a wrong check sum, and anything else, is passed over.
 */
class GpsReceiver : public SerialPeripheral
{
public:
    enum class Model
    {
        L26,
        SKM53
    };

    struct Options
    {
        Model model = Model::L26;

        /// UTC when it is switched on, or at `clockStart`: 2026-03-01 08:15:00 unless changed.
        std::chrono::sys_seconds start{std::chrono::seconds(1'772'352'900)};

        std::chrono::milliseconds fixAfter{0}; ///< no fix for so long after it is switched on or restarted
        bool glonassAtStart = true;            ///< L26 only
        /// When its clock began, whose seconds are those of its sentences; none: when it is switched on.
        std::optional<TimePoint> clockStart;

        Track track;
        std::shared_ptr<Vehicle> vehicle; ///< that it is in; null: one of its own, on `track`

        /// Played instead of the drive, one epoch a second; see Nmea::Epochs(). Without a fix it tells none;
        /// played again its times go on.
        std::vector<Nmea::Epoch> recording;
        bool repeatRecording = true;     ///< false: silent behind its end
        bool recordingInPresent = false; ///< its times are moved to those of this receiver's clock

        /// From the begin of one sentence to that of the next in the same second. Above 0, so that a reader
        /// who waits one second from the last sentence on never meets the next second's first by a hair.
        std::chrono::milliseconds sentenceGap{5};

        Transmitter::Options line; ///< how the text reaches the application: pieces, speed
    };

    /// What goes wrong; each may be switched on and off at any time.
    struct Faults
    {
        bool silent = false;            ///< nothing is sent, what is under way is lost; commands are obeyed
        bool noReleaseReply = false;    ///< PMTK605 is not answered
        bool noAcknowledgement = false; ///< PMTK353 is obeyed, but not acknowledged
        bool noSatellites = false;      ///< no fix
        bool wrongCheckSums = false;    ///< the last digit of each check sum is wrong
        std::size_t noiseBytes = 0;     ///< so much noise before each second's sentences, the same each run
    };

    static constexpr std::string_view RESTART_BANNER = "$PMTK011,MTKGPS*08\r\n$PMTK010,001*2E\r\n";

    GpsReceiver();
    explicit GpsReceiver(Options options);

    Faults faults;

    void Restart(TimePoint now); ///< as by a reset: banner, first settings, the fix lost for `fixAfter`

    void SetLine(const Transmitter::Options& line) { transmitter.options = line; }

    bool GlonassOn() const { return glonass; }

    void Receive(std::string_view bytes, TimePoint now) override;
    std::optional<TimePoint> NextDeadline() const override;
    void Advance(TimePoint now) override;
    std::vector<std::string> TakeOutput() override;

private:
    void SwitchOn(TimePoint now);
    TimePoint FirstEpochAfter(TimePoint now) const;
    void Obey(std::string_view command, TimePoint now);
    void Send(std::string text, TimePoint at);
    void SendEpoch(TimePoint at);
    void ReadRecordedTimes();
    void SendRecordedEpoch(TimePoint at);

    bool HasFix(TimePoint at) const { return !faults.noSatellites && at - restarted >= options.fixAfter; }

    Nmea::Epoch GenerateEpoch(TimePoint at) const;

    Options options;
    Transmitter transmitter;
    std::vector<std::string> output;
    std::string command; ///< received so far
    std::mt19937 noise;  ///< fixed seed
    std::optional<TimePoint> switchedOn;
    TimePoint restarted;
    TimePoint nextEpoch;
    std::size_t played = 0;                      ///< epochs of the recording
    std::chrono::milliseconds recordingShift{0}; ///< of its times
    std::chrono::milliseconds recordingLength{
        0}; ///< how much later it is the next time; 0: it tells no times
    bool glonass;
};

}

#endif

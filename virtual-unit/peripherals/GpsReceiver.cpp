#include "virtual-unit/peripherals/GpsReceiver.h"

#include "virtual-unit/peripherals/Geography.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace VirtualUnit
{

namespace
{

using std::chrono::seconds;

constexpr seconds EPOCH{1};
constexpr seconds START_TEXTS{3}; // an L26 sends its text sentences for so long
constexpr std::size_t LONGEST_COMMAND = 255;

constexpr std::string_view START_TEXT_BODIES[] = {"GPTXT,01,01,02,MTK GNSS receiver",
                                                  "GPTXT,01,01,02,ANTSTATUS=OK"};

constexpr std::string_view TEST = "PMTK000";
constexpr std::string_view QUERY_RELEASE = "PMTK605";
constexpr std::string_view RELEASE = "PMTK705,AXN_2.10_3333_13080700,0005,Quectel-L26,1.0";
constexpr std::string_view SELECT_SYSTEMS = "PMTK353";

// The second field of PMTK001 is the number of the command, the third tells what became of it.
constexpr std::string_view TEST_DONE = "PMTK001,0,3";
constexpr std::string_view SELECTION_DONE = "PMTK001,353,3";
constexpr std::string_view UNSUPPORTED = ",1";

constexpr double KILOMETRES_PER_HOUR_PER_KNOT = 1.852;
constexpr std::size_t SATELLITES_PER_GSV = 4;

struct Satellite
{
    int number, elevation, azimuth, signal;
};

constexpr Satellite GPS_SATELLITES[] = {{4, 77, 125, 41},  {9, 63, 293, 38}, {16, 56, 98, 40},
                                        {26, 34, 55, 35},  {7, 27, 252, 33}, {3, 24, 186, 31},
                                        {27, 12, 123, 28}, {2, 8, 319, 24}};
constexpr Satellite GLONASS_SATELLITES[] = {
    {70, 61, 45, 36}, {71, 52, 301, 37}, {80, 30, 77, 32}, {86, 15, 210, 27}};

template <class... Values>
std::string Format(const char* format, Values... values)
{
    char text[128];
    std::snprintf(text, sizeof(text), format, values...);
    return text;
}

template <std::size_t COUNT>
void AddGsv(Nmea::Epoch& epoch, const char* talker, const Satellite (&satellites)[COUNT], bool signal)
{
    constexpr std::size_t SENTENCES = (COUNT + SATELLITES_PER_GSV - 1) / SATELLITES_PER_GSV;
    for (std::size_t sentence = 0; sentence < SENTENCES; ++sentence)
    {
        std::string body = Format("%sGSV,%zu,%zu,%02zu", talker, SENTENCES, sentence + 1, COUNT);
        for (std::size_t i = sentence * SATELLITES_PER_GSV;
             i < COUNT && i < (sentence + 1) * SATELLITES_PER_GSV; ++i)
        {
            const Satellite& s = satellites[i];
            body += Format(",%02d,%02d,%03d,", s.number, s.elevation, s.azimuth);
            body += signal ? Format("%02d", s.signal) : "";
        }
        epoch.push_back(Nmea::Sentence(body));
    }
}

void SpoilCheckSum(std::string& sentence)
{
    const std::size_t star = sentence.rfind('*');
    if (star != std::string::npos && star + 2 < sentence.size())
    {
        char& digit = sentence[star + 2];
        digit = digit == '0' ? '1' : '0';
    }
}

}

GpsReceiver::GpsReceiver() : GpsReceiver(Options())
{
}

GpsReceiver::GpsReceiver(Options theOptions)
    : options(std::move(theOptions)), glonass(options.model == Model::L26 && options.glonassAtStart)
{
    transmitter.options = options.line;
    if (options.vehicle == nullptr)
    {
        options.vehicle = std::make_shared<Vehicle>(options.track);
    }
    ReadRecordedTimes();
}

void GpsReceiver::ReadRecordedTimes()
{
    std::optional<Nmea::Moment> begin;
    std::optional<Nmea::Moment> end;
    for (std::size_t i = 0; i < options.recording.size(); ++i)
    {
        const std::optional<Nmea::Moment> time = Nmea::TimeOf(options.recording[i]);
        if (time && !begin && options.recordingInPresent)
        {
            const auto sent = options.start + (i + 1) * EPOCH;
            recordingShift = sent - std::chrono::floor<seconds>(*time);
        }
        if (time)
        {
            begin = std::min(begin.value_or(*time), *time);
            end = std::max(end.value_or(*time), *time);
        }
    }
    if (begin)
    {
        recordingLength = *end - *begin + EPOCH;
    }
}

void GpsReceiver::SwitchOn(TimePoint now)
{
    if (!switchedOn)
    {
        switchedOn = now;
        restarted = now;
        options.vehicle->Begin(now);
        nextEpoch = FirstEpochAfter(now);
    }
}

GpsReceiver::TimePoint GpsReceiver::FirstEpochAfter(TimePoint now) const
{
    return options.clockStart ? now + EPOCH - (now - *options.clockStart) % EPOCH : now + EPOCH;
}

void GpsReceiver::Restart(TimePoint now)
{
    SwitchOn(now);
    transmitter.Discard();
    command.clear();
    restarted = now;
    nextEpoch = FirstEpochAfter(now);
    glonass = options.model == Model::L26 && options.glonassAtStart;
    Send(std::string(RESTART_BANNER), now);
}

void GpsReceiver::Receive(std::string_view bytes, TimePoint now)
{
    SwitchOn(now);
    for (const char c : bytes)
    {
        if (c != '\r' && c != '\n')
        {
            if (c == '$' || command.size() >= LONGEST_COMMAND)
            {
                command.clear();
            }
            command += c;
            continue;
        }
        Obey(Nmea::Body(command), now);
        command.clear();
    }
}

void GpsReceiver::Obey(std::string_view body, TimePoint now)
{
    if (options.model != Model::L26 || !body.starts_with("PMTK"))
    {
        return;
    }
    const std::string_view name = body.substr(0, body.find(','));
    if (name == QUERY_RELEASE)
    {
        if (!faults.noReleaseReply)
        {
            Send(Nmea::Sentence(RELEASE), now);
        }
    }
    else if (name == SELECT_SYSTEMS)
    {
        // "PMTK353,gps,glonass,...", each 0 or 1
        glonass = body.substr(name.size()).substr(0, 4).ends_with(",1");
        if (!faults.noAcknowledgement)
        {
            Send(Nmea::Sentence(SELECTION_DONE), now);
        }
    }
    else if (name == TEST)
    {
        Send(Nmea::Sentence(TEST_DONE), now);
    }
    else
    {
        Send(Nmea::Sentence("PMTK001," + std::string(name.substr(4)) + std::string(UNSUPPORTED)), now);
    }
}

std::optional<SerialPeripheral::TimePoint> GpsReceiver::NextDeadline() const
{
    if (!switchedOn)
    {
        return std::nullopt;
    }
    const std::optional<TimePoint> sending = transmitter.NextDeadline();
    return sending && *sending < nextEpoch ? sending : nextEpoch;
}

void GpsReceiver::Advance(TimePoint now)
{
    SwitchOn(now);
    while (nextEpoch <= now)
    {
        SendEpoch(nextEpoch);
        nextEpoch += EPOCH;
    }
    if (faults.silent)
    {
        transmitter.Discard();
    }
    transmitter.Take(now, output);
}

std::vector<std::string> GpsReceiver::TakeOutput()
{
    return std::exchange(output, {});
}

void GpsReceiver::Send(std::string text, TimePoint at)
{
    if (faults.wrongCheckSums)
    {
        SpoilCheckSum(text);
    }
    transmitter.Send(text, at);
}

void GpsReceiver::SendEpoch(TimePoint at)
{
    if (faults.noiseBytes != 0)
    {
        std::string bytes(faults.noiseBytes, '\0');
        for (char& c : bytes)
        {
            c = static_cast<char>(noise() & 0xFF);
        }
        transmitter.Send(bytes, at);
    }
    if (options.recording.empty())
    {
        for (std::string& sentence : GenerateEpoch(at))
        {
            Send(std::move(sentence), at);
            at += options.sentenceGap;
        }
    }
    else if (options.repeatRecording || played < options.recording.size())
    {
        SendRecordedEpoch(at);
    }
}

void GpsReceiver::SendRecordedEpoch(TimePoint at)
{
    const bool fix = HasFix(at);
    const auto rounds = static_cast<int>(played / options.recording.size());
    const std::chrono::milliseconds shift = recordingShift + rounds * recordingLength;
    for (const std::string& recorded : options.recording[played % options.recording.size()])
    {
        const std::string sentence = shift.count() == 0 ? recorded : Nmea::Later(recorded, shift);
        Send(fix ? sentence : Nmea::WithoutFix(sentence), at);
        at += options.sentenceGap;
    }
    ++played;
}

Nmea::Epoch GpsReceiver::GenerateEpoch(TimePoint at) const
{
    const TimePoint clockStart = options.clockStart.value_or(*switchedOn);
    const auto elapsed = std::chrono::duration_cast<seconds>(at - clockStart);
    const std::chrono::sys_seconds utc = options.start + elapsed;
    const auto day = std::chrono::floor<std::chrono::days>(utc);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(utc - day);
    const std::string time =
        Format("%02d%02d%02d.000", static_cast<int>(clock.hours().count()),
               static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    const std::string ddmmyy =
        Format("%02u%02u%02d", static_cast<unsigned int>(date.day()), static_cast<unsigned int>(date.month()),
               static_cast<int>(date.year()) % 100);

    const bool fix = HasFix(at);
    const Vehicle::State vehicle = options.vehicle->At(clockStart + elapsed);
    const std::string position =
        fix ? Nmea::Latitude(vehicle.latitude) + "," + Nmea::Longitude(vehicle.longitude) : ",,,";
    const double knots = fix ? vehicle.metresPerSecond / Geography::METRES_PER_SECOND_PER_KNOT : 0.0;
    const double course = fix ? vehicle.course : 0.0;
    const std::string mode = fix ? "A" : "N";
    const std::string talker = glonass ? "GN" : "GP";

    const std::string rmc = Nmea::Sentence(talker + "RMC," + time + (fix ? ",A," : ",V,") + position +
                                           Format(",%.2f,%.2f,", knots, course) + ddmmyy + ",,," + mode);
    const std::string vtg = Nmea::Sentence(
        talker + "VTG," +
        Format("%.2f,T,,M,%.2f,N,%.2f,K,", course, knots, knots * KILOMETRES_PER_HOUR_PER_KNOT) + mode);

    Nmea::Epoch epoch;
    if (options.model == Model::L26)
    {
        epoch = {rmc, vtg};
    }
    const std::size_t used = std::size(GPS_SATELLITES) + (glonass ? std::size(GLONASS_SATELLITES) : 0);
    epoch.push_back(
        Nmea::Sentence(talker + "GGA," + time + "," + position +
                       (fix ? Format(",1,%02zu,0.94,171.0,M,42.8,M,,", used) : ",0,00,99.99,,M,,M,,")));
    std::string gsa = talker + (fix ? "GSA,A,3" : "GSA,A,1");
    for (std::size_t channel = 0; channel < 12; ++channel)
    {
        gsa += fix && channel < std::size(GPS_SATELLITES) ? Format(",%02d", GPS_SATELLITES[channel].number)
                                                          : ",";
    }
    epoch.push_back(Nmea::Sentence(gsa + (fix ? ",1.21,0.94,0.76" : ",99.99,99.99,99.99")));
    AddGsv(epoch, "GP", GPS_SATELLITES, fix);
    if (glonass)
    {
        AddGsv(epoch, "GL", GLONASS_SATELLITES, fix);
    }
    if (options.model == Model::SKM53)
    {
        epoch.push_back(vtg);
        epoch.push_back(rmc);
    }
    else if (at - restarted <= START_TEXTS)
    {
        for (const std::string_view body : START_TEXT_BODIES)
        {
            epoch.push_back(Nmea::Sentence(body));
        }
    }
    return epoch;
}

}

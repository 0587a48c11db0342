#ifndef VIRTUAL_UNIT_PERIPHERALS_CELLULARSTATE_H
#define VIRTUAL_UNIT_PERIPHERALS_CELLULARSTATE_H

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * What a cellular module, its SIM and its surroundings are like, and what the module therefore answers.
 *
 * Commands and answers are those of 3GPP TS 27.007 and, where a name begins with Q, of a Quectel UMTS module.
 * Threads: no lock; CellularModule sees to it.
 */
struct CellularState
{
    /// 3GPP TS 27.007, +CREG.
    enum class Registration
    {
        NotSearching = 0,
        Home = 1,
        Searching = 2,
        Denied = 3,
        Unknown = 4,
        Roaming = 5
    };

    static constexpr std::string_view REGISTRATIONS[] = {"none",   "home",    "searching",
                                                         "denied", "unknown", "roaming"}; ///< by value

    /// As in the answer to AT+COPS=?.
    struct Operator
    {
        /// Of an entry of the list.
        enum class Status
        {
            Unknown = 0,
            Available = 1,
            Current = 2,
            Forbidden = 3
        };

        Status status = Status::Available;
        std::string longName;
        std::string shortName;
        std::string numeric;      ///< country and network code, 5 or 6 digits
        int accessTechnology = 2; ///< 0 GSM, 2 UTRAN
    };

    /// What the module answers to one command.
    struct Answer
    {
        std::vector<std::string> information; ///< lines
        std::string result = "OK";
        bool powersDown = false;
    };

    // The module
    std::string imei = "359999012345678"; ///< 15 digits
    std::string manufacturer = "Quectel";
    std::string model = "UC15";
    std::string revision = "UC15EQAR02A05E1G";
    int chargeState = 0;      ///< 0 not charging, 1 charging, 2 charged
    int chargePercent = 85;   ///< 0 to 100
    int millivolts = 3980;    ///< supply voltage
    int quarterHoursEast = 0; ///< time zone, of GMT
    bool daylightSaving = false;

    /// The module's clock when it is switched on: 2026-03-01 08:15:00 unless changed.
    std::chrono::sys_seconds clock{std::chrono::seconds(1'772'352'900)};

    /// Settings of AT+QCFG, the name in small letters; what follows it, as it was given.
    std::map<std::string, std::string> configuration = {
        {"pwrsavedtr", "0"}, {"nwscanmode", "0"}, {"band", "512"}, {"vbatt", "-2,3300,0"}};
    int slowClock = 0; ///< of AT+QSCLK

    // The SIM
    bool sim = true;
    std::string imsi = "999010123456789";       ///< 15 digits, which begin with the home network's code
    std::string iccid = "89999010123456789012"; ///< 19 or 20 digits

    // The network
    Registration registration = Registration::Home; ///< with a SIM; without one there is none
    std::string area = "D509";                      ///< location area, hexadecimal
    std::string cell = "80D413D";                   ///< hexadecimal
    int rssi = 20;                                  ///< 0 to 31; 99: not known
    int bitErrorRate = 99;                          ///< 0 to 7; 99: not known
    std::vector<Operator> operators = {
        {Operator::Status::Current, "Home Network", "Home", "99901", 2},
        {Operator::Status::Available, "Home Network", "Home", "99901", 0},
        {Operator::Status::Available, "Neighbour Mobile", "Neighbour", "99902", 2},
        {Operator::Status::Forbidden, "Closed Telecom", "Closed", "99903", 0}};
    int selectionMode = 0; ///< 0 automatic, 1 manual
    bool attached = true;  ///< to the packet service
    bool context = false;  ///< the data context is active

    std::chrono::milliseconds scanTime{5000};         ///< how long AT+COPS=? takes
    std::chrono::milliseconds registrationTime{2000}; ///< how long AT+COPS=0 and AT+COPS=1 take

    // Of one session, from power-on to power-off
    int registrationReports = 0;       ///< of AT+CREG: 0 none, 1, 2 with location
    int packetRegistrationReports = 0; ///< of AT+CGREG
    int operatorFormat = 0;            ///< 0 long, 1 short, 2 numeric

    Registration CurrentRegistration() const { return sim ? registration : Registration::NotSearching; }

    bool Registered() const; ///< at home or roaming

    /// Registers so: with the home network, or, roaming, with the first other one that takes the SIM.
    void RegisterAs(Registration to);

    /// How long the command takes. @param command without its line end
    std::chrono::milliseconds TimeFor(std::string_view command) const;

    /// Carries a command out.
    /// @param command begins with "AT", without its line end @param sinceSwitchedOn the module's age
    Answer Obey(std::string_view command, std::chrono::seconds sinceSwitchedOn);

    /// What is reported without being asked after the registration has been different: no line unless
    /// reports are on.
    std::vector<std::string> ReportsSince(const CellularState& before) const;
};

}

#endif

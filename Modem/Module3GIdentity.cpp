// Module3G: who the module and the SIM are, voltage, time, signal.

#include "Modem/AtChannel.h"
#include "Modem/AtCommands.h"
#include "Modem/Module3G.h"
#include "Modem/Replies.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavsystem/SysUtil/ExecSystemCmdThroughPipe.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Tavdevice::Modem
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogModule;
using Tavbase::Tavlog::LogType;

constexpr const char* LIST_USB_DEVICES = "lsusb";
constexpr int PRESENCE_ATTEMPTS = 2;
constexpr std::chrono::seconds BEFORE_PRESENCE_ATTEMPT{1};

constexpr int SIGNAL_NOT_KNOWN = 99;

struct Grade
{
    int upTo;
    const char* description;
};

constexpr Grade GRADES[] = {{9, "Marginal"}, {14, "OK"}, {19, "Good"}, {31, "Excellent"}};

void LogError(const char* text)
{
    Logger::GetInstance() << LogType::Error << LogModule::CELL << text << std::endl;
}

void Describe(Module3GSignalStatus& status, const char* text)
{
    std::snprintf(status.description, sizeof(status.description), "%s", text);
}

/// Asks for a text and keeps it in `target`. @return 0; -1 without an answer that holds one
template <class Parser>
int Query(const AtCommands::Command& command, Parser parse, std::string& target)
{
    std::string reply;
    if (!AtChannel::Ask(command, reply))
    {
        return -1;
    }
    Replies::Reading<std::string> reading = parse(reply);
    if (!reading.value)
    {
        return -1;
    }
    target = std::move(*reading.value);
    return 0;
}

/// The same, with a reply that ends too early logged.
template <class Parser>
int QueryNumber(const AtCommands::Command& command, Parser parse, std::string& target)
{
    try
    {
        return Query(command, parse, target);
    }
    catch (const std::out_of_range& e)
    {
        LogError(e.what());
        return -1;
    }
}

void LogFailure(int result, const char* text)
{
    if (result < 0)
    {
        LogError(text);
    }
}

}

int Module3G::QueryModuleIMEI()
{
    return QueryNumber(AtCommands::MODULE_IMEI, Replies::Imei, m3gIMEI);
}

int Module3G::QuerySimIMSI()
{
    return QueryNumber(AtCommands::SIM_IMSI, Replies::Imsi, m3gSimIMSI);
}

int Module3G::QuerySimICCID()
{
    try
    {
        return Query(AtCommands::SIM_ICCID, Replies::Iccid, m3gSimICCID);
    }
    catch (const std::out_of_range& e)
    {
        std::printf("[3G] %s\n", e.what()); // this one alone goes to standard output, not to the log
        return -1;
    }
}

int Module3G::QueryModuleFwVersion()
{
    return Query(AtCommands::IDENTIFICATION, Replies::FirmwareRevision, m3g_fw_version);
}

int Module3G::StoreModuleIdentityItems()
{
    try
    {
        LogFailure(QueryModuleFwVersion(), "Error while trying to get module FW version");
        LogFailure(QueryModuleIMEI(), "Read SIM IMEI error");
        LogFailure(QuerySimIMSI(), "Read SIM IMSI error");
        LogFailure(QuerySimICCID(), "Read SIM ICCID error");
        SetPowerSaveMode(0);
        return 0;
    }
    catch (const std::exception& e)
    {
        LogError(e.what());
        return -1;
    }
}

bool Module3G::CheckModulePresence(bool force)
{
    if (!force && modulePresent)
    {
        return true;
    }
    modulePresent = false;
    for (int attempt = 0; attempt < PRESENCE_ATTEMPTS; ++attempt)
    {
        std::this_thread::sleep_for(BEFORE_PRESENCE_ATTEMPT);
        const std::string devices = Tavsystem::SysUtil::ExecSystemCmdThroughPipe(LIST_USB_DEVICES);
        if (devices.find(Bus_Module3G) != std::string::npos)
        {
            modulePresent = true;
        }
        if (modulePresent) // by another thread, maybe
        {
            return true;
        }
    }
    return false;
}

int Module3G::GetVoltageLevel()
{
    std::string reply;
    return AtChannel::Ask(AtCommands::VOLTAGE, reply) ? Replies::Voltage(reply).value.value_or(-1) : -1;
}

int Module3G::GetTime()
{
    constexpr std::size_t NOTHING_BUT_A_LINE_END = 2;
    std::string reply;
    return AtChannel::Ask(AtCommands::NETWORK_TIME, reply) && reply.size() > NOTHING_BUT_A_LINE_END ? 0 : -1;
}

// It sets no clock, and is not meant to: the unit's time comes from elsewhere.
void Module3G::SaveDateTime(char* text)
{
    constexpr std::size_t FIELDS = 6; // year, month, day, hour, minute, second
    constexpr std::size_t FIELD_DIGITS = 2;
    constexpr std::size_t FIELD_AND_SEPARATOR = 3;
    constexpr int DECIMAL = 10;
    if (text == nullptr)
    {
        return;
    }
    const std::string fields(text, strnlen(text, FIELDS * FIELD_AND_SEPARATOR));
    for (std::size_t start = 0; start < fields.size(); start += FIELD_AND_SEPARATOR)
    {
        static_cast<void>(std::strtol(fields.substr(start, FIELD_DIGITS).c_str(), nullptr, DECIMAL));
    }
}

int Module3G::CheckSignal(bool alternatePort)
{
    std::string reply;
    if (AtChannel::Exchange(AtCommands::SIGNAL_QUALITY.text, AtCommands::SIGNAL_QUALITY.cycles,
                            alternatePort ? AtCommands::ALTERNATE_PORT : AtCommands::MAIN_PORT, reply) != 0)
    {
        return -1;
    }
    try
    {
        const Replies::Reading<int> reading = Replies::SignalQuality(reply);
        return reading.value ? SetSignalStatus(*reading.value, &signal_status) : -1;
    }
    catch (const std::out_of_range& e)
    {
        LogError(e.what());
        return -1;
    }
}

int Module3G::CheckSignal()
{
    return CheckSignal(false);
}

int Module3G::SetSignalStatus(int rssi, Module3GSignalStatus* status)
{
    if (rssi == SIGNAL_NOT_KNOWN)
    {
        Describe(*status, "Not known");
        return 0;
    }
    const auto grade = std::ranges::find_if(GRADES, [rssi](const Grade& g) { return rssi <= g.upTo; });
    if (rssi < 0 || grade == std::end(GRADES))
    {
        return -1;
    }
    status->rssi = rssi;
    status->dBm = 2 * rssi - 113; // 3GPP TS 27.007, +CSQ
    Describe(*status, grade->description);
    return 0;
}

}

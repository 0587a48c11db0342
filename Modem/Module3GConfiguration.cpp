// Module3G: configuration, disconnection, power-down.

#include "Modem/AtChannel.h"
#include "Modem/AtCommands.h"
#include "Modem/Module3G.h"
#include "base/Tavbase/Tavlog/Logger.h"

#include <chrono>
#include <thread>

namespace Tavdevice::Modem
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogModule;
using Tavbase::Tavlog::LogType;

constexpr int HIGHEST_SEARCH_MODE = 2;
constexpr int HIGHEST_BAND = 512;

constexpr std::chrono::seconds AFTER_DISCONNECTION{2};
constexpr std::chrono::seconds POWER_DOWN_TIME{10};

bool IsWithin(int value, int lowest, int highest)
{
    return value >= lowest && value <= highest;
}

}

int Module3G::SetPowerSaveMode(int mode)
{
    return IsWithin(mode, 0, 1) && AtChannel::Send(AtCommands::POWER_SAVE, mode) ? 0 : -1;
}

int Module3G::SetNetworkSearchMode(int mode)
{
    return IsWithin(mode, 0, HIGHEST_SEARCH_MODE) && AtChannel::Send(AtCommands::SEARCH_MODE, mode) ? 0 : -1;
}

int Module3G::SetBand(int band)
{
    return IsWithin(band, 1, HIGHEST_BAND) && AtChannel::Send(AtCommands::BAND, band) ? 0 : -1;
}

int Module3G::SetLowVoltageLimit(int limit, bool enable)
{
    return AtChannel::Send(AtCommands::LOW_VOLTAGE_LIMIT, limit, enable ? 1 : 0) ? 0 : -1;
}

int Module3G::SetSleepMode(int mode)
{
    // The mode is not sent, deliberately: this only sees whether the module answers.
    return IsWithin(mode, 0, 1) && AtChannel::Send(AtCommands::SLEEP_SETTING) ? 0 : -1;
}

int Module3G::SendDisconnectCommands()
{
    if (!AtChannel::Send(AtCommands::HANG_UP) || !AtChannel::Send(AtCommands::DEACTIVATE_CONTEXT) ||
        !AtChannel::Send(AtCommands::DETACH))
    {
        return 0;
    }
    std::this_thread::sleep_for(AFTER_DISCONNECTION);
    return 1;
}

void Module3G::SendPowerDownCommand()
{
    if (!AtChannel::Send(AtCommands::POWER_DOWN))
    {
        return;
    }
    std::this_thread::sleep_for(POWER_DOWN_TIME);
    // The module is off by now, so this normally fails, and the error line is the usual end.
    if (SetPowerSaveMode(0) < 0)
    {
        Logger::GetInstance() << LogType::Error << LogModule::CELL << "Set power save mode error"
                              << std::endl;
    }
    else
    {
        Logger::GetInstance() << LogType::Info << LogModule::CELL << "Module power save mode turned off"
                              << std::endl;
    }
}

}

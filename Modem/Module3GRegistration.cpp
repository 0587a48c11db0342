// Module3G: registration, and the choice of an operator.

#include "Modem/AtChannel.h"
#include "Modem/AtCommands.h"
#include "Modem/Module3G.h"
#include "Modem/Replies.h"
#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Tavdevice::Modem
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogModule;
using Tavbase::Tavlog::LogType;

constexpr int REGISTERED_HOME = 1;
constexpr int REGISTERED_ROAMING = 5;

// By registration state (3GPP TS 27.007, +CREG). Only the first has a full stop.
constexpr const char* STATE_DESCRIPTIONS[] = {"Not registered, ME is NOT currently searching.",
                                              "Registered, home network",
                                              "Not registered, but ME is currently searching",
                                              "Registration denied",
                                              "Unknown",
                                              "Registered, roaming"};

constexpr int OPERATOR_AVAILABLE = 1;
constexpr int OPERATOR_CURRENT = 2;

bool IsOffered(const Operator& candidate, const PreferredOperator& wanted)
{
    constexpr int DECIMAL = 10;
    return std::strtol(candidate.numeric.c_str(), nullptr, DECIMAL) == wanted.code &&
           (candidate.status == OPERATOR_AVAILABLE || candidate.status == OPERATOR_CURRENT);
}

/// Takes one of the tries that are left. @return false when there is none
bool TakeTry()
{
    if (NR_OF_TRIES > std::numeric_limits<int>::min())
    {
        --NR_OF_TRIES;
    }
    return NR_OF_TRIES > 0;
}

std::list<PreferredOperator>::iterator FindSelected(std::list<PreferredOperator>& list)
{
    return std::ranges::find_if(list, &PreferredOperator::selected);
}

}

int Module3G::GetRegistrationStatus()
{
    std::string reply;
    if (!AtChannel::Ask(AtCommands::REGISTRATION, reply))
    {
        return -1;
    }
    const Replies::Reading<int> state = Replies::RegistrationState(reply);
    if (!state.value)
    {
        return -1;
    }
    if (*state.value != registration_status)
    {
        Logger::GetInstance() << LogType::Info << LogModule::CELL
                              << "Registration status: " << GetRegistrationStatusDescription(*state.value)
                              << std::endl;
    }
    registration_status = *state.value;
    return registration_status;
}

std::string Module3G::GetRegistrationStatusDescription(int status)
{
    return status >= 0 && static_cast<std::size_t>(status) < std::size(STATE_DESCRIPTIONS)
               ? STATE_DESCRIPTIONS[status]
               : "Invalid status";
}

bool Module3G::IsRegistered()
{
    const int status = GetRegistrationStatus();
    return status == REGISTERED_HOME || status == REGISTERED_ROAMING;
}

int Module3G::EnableNetworkRegistration()
{
    return AtChannel::Send(AtCommands::REPORT_REGISTRATION) &&
                   AtChannel::Send(AtCommands::REPORT_GPRS_REGISTRATION)
               ? 0
               : 1;
}

int Module3G::GetCarriersList(std::list<Operator>* list)
{
    std::string reply;
    if (!AtChannel::Ask(AtCommands::LIST_OPERATORS, reply) || !Replies::Operators(reply, *list).value)
    {
        return -1;
    }
    list->sort(CB_CompareOperator);
    return 0;
}

// By value: the stated interface. NOLINTNEXTLINE(performance-unnecessary-value-param)
int Module3G::CB_CompareOperator(Operator a, Operator b)
{
    return a.accessTechnology > b.accessTechnology ? 1 : 0;
}

void Module3G::PrintCarriersList(std::list<Operator>* list)
{
    for (const Operator& item : *list)
    {
        Logger::GetInstance() << LogType::Info << "Operator: [" << item.longName << ", " << item.shortName
                              << ", " << item.numeric << ", " << item.accessTechnology << ", " << item.status
                              << "]" << std::endl;
    }
}

bool Module3G::FindPrefferedOperator(PreferredOperator& found)
{
    if (PreferredOperatorList.empty())
    {
        return false;
    }
    const auto selected = FindSelected(PreferredOperatorList);
    found = selected == PreferredOperatorList.end() ? PreferredOperatorList.back() : *selected;
    return found.selected;
}

bool Module3G::RemovePrefferedOperator()
{
    if (PreferredOperatorList.empty())
    {
        return true;
    }
    const auto selected = FindSelected(PreferredOperatorList);
    if (selected == PreferredOperatorList.end())
    {
        return false;
    }
    selected->selected = false;
    return true;
}

int Module3G::SelectNetwork()
{
    if (PreferredOperatorList.empty())
    {
        autoCarrierSelection = true;
        return 1;
    }
    if (autoCarrierSelection)
    {
        SetOperator(0);
        Logger::GetInstance() << LogType::Info << LogModule::CELL << "Done set auto operator" << std::endl;
        return 1;
    }
    PreferredOperator chosen;
    if (FindPrefferedOperator(chosen))
    {
        SetOperator(chosen.code);
        return 1;
    }

    std::list<Operator> offered;
    if (GetCarriersList(&offered) < 0)
    {
        return 0;
    }
    PrintCarriersList(&offered);
    if (offered.empty())
    {
        return 0;
    }
    for (PreferredOperator& wanted : PreferredOperatorList)
    {
        if (std::ranges::any_of(offered, [&](const Operator& item) { return IsOffered(item, wanted); }))
        {
            wanted.selected = true;
            SetOperator(wanted.code);
            return 1;
        }
    }
    return 1;
}

int Module3G::SetOperator(int code)
{
    // The tries are never given back, deliberately: a process selects an operator once.
    while (TakeTry())
    {
        if (code > 0 ? AtChannel::Send(AtCommands::SELECT_OPERATOR, code)
                     : AtChannel::Send(AtCommands::SELECT_AUTOMATICALLY))
        {
            break;
        }
    }
    return 0;
}

int Module3G::SwitchToAutoCarrierSelectionMode()
{
    autoCarrierSelection = true;
    failedRegistrations = 0;
    return 0;
}

void Module3G::SwitchToManualCarrierSelectionMode()
{
    if (!PreferredOperatorList.empty())
    {
        autoCarrierSelection = false;
        failedRegistrations = 0;
    }
}

bool Module3G::GetCarrierName(std::string& name)
{
    std::string reply;
    if (!AtChannel::Ask(AtCommands::CURRENT_OPERATOR, reply))
    {
        return false;
    }
    Replies::Reading<std::string> reading = Replies::CarrierName(reply);
    if (!reading.value)
    {
        return false;
    }
    name = std::move(*reading.value);
    return true;
}

}

#include "examples/common/ModemAnswers.h"

#include "Modem/Module3G.h"

namespace Examples::ModemAnswers
{

using Tavdevice::Modem::Module3G;

bool IsThere()
{
    constexpr int CYCLES = 4;
    constexpr int ANSWERED_ERROR = -1;
    char attention[] = "AT\r\n"; // commands are taken as char*: from a buffer of one's own
    return Module3G::SendATCommand(attention, CYCLES) >= ANSWERED_ERROR;
}

std::string Iccid()
{
    return Module3G::m3gSimICCID.substr(0, Module3G::m3gSimICCID.find('\r'));
}

std::string Operator()
{
    std::string carrier;
    Module3G::GetCarrierName(carrier);
    return carrier.substr(0, carrier.rfind(',')); // the library leaves a comma and a digit behind it
}

std::optional<std::list<Tavdevice::Modem::Operator>> Operators()
{
    std::list<Tavdevice::Modem::Operator> operators;
    if (Module3G::GetCarriersList(&operators) != 0)
    {
        return std::nullopt;
    }
    // The lists of modes and formats behind the operators have no number.
    operators.remove_if([](const Tavdevice::Modem::Operator& item) { return item.numeric.empty(); });
    return operators;
}

}

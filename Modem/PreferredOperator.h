#ifndef MODEM_PREFERREDOPERATOR_H
#define MODEM_PREFERREDOPERATOR_H

#include <cstdint>
#include <string>

namespace Tavdevice::Modem
{

/// One row of the application's list of preferred operators.
struct PreferredOperator
{
    std::string name;       ///< for the application's use
    std::int32_t code = 0;  ///< MCC and MNC as one decimal number, for example 26201
    std::int32_t spare = 0; ///< for the application's use
    bool selected = false;  ///< the operator that manual selection chose
};

}

#endif

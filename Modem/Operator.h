#ifndef MODEM_OPERATOR_H
#define MODEM_OPERATOR_H

#include <cstdint>
#include <string>

namespace Tavdevice::Modem
{

/// One operator that the module sees (3GPP TS 27.007, +COPS=?).
struct Operator
{
    std::int32_t status = 0;           ///< 0 unknown, 1 available, 2 current, 3 forbidden
    std::string longName;              ///< as the module tells it; may be empty
    std::string shortName;             ///< likewise
    std::string numeric;               ///< MCC and MNC, five or six digits
    std::int32_t accessTechnology = 0; ///< 0 GSM, 2 UTRAN, 3 GSM with EGPRS, 4 to 6 UTRAN with HSPA
};

}

#endif

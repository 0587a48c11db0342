#ifndef MODEM_MODULE3GSIGNALSTATUS_H
#define MODEM_MODULE3GSIGNALSTATUS_H

#include <cstdint>

namespace Tavdevice::Modem
{

/// Strength of the received signal (3GPP TS 27.007, +CSQ).
struct Module3GSignalStatus
{
    std::int32_t rssi;    ///< as the module reports it: 0 to 31
    std::int32_t dBm;     ///< 2 * rssi - 113: -113 to -51
    char description[20]; ///< "Marginal", "OK", "Good", "Excellent" or "Not known"; zero-terminated
};

}

#endif

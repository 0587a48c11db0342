#ifndef MODEM_REPLIES_H
#define MODEM_REPLIES_H

#include "Modem/Operator.h"
#include "base/Export.h"

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <string_view>

/**
 * What the module's replies say. Each function takes the text of a whole reply, with its echo and its line
 * ends, as Module3G::SendATCommand() leaves it. Any thread.
 *
 * A number with no digits throws std::invalid_argument, one too large for an int std::out_of_range, where
 * that is told; a text that ends in the middle of a field std::out_of_range.
 */
namespace Tavdevice::Modem::Replies
{

/// A value, or the reason why there is none.
template <class Value>
struct Reading
{
    std::optional<Value> value; ///< none where there is a reason
    std::string_view reason;    ///< for people; empty with a value
};

/// AT+CGSN: the IMEI, 15 characters behind the echo. @throws std::out_of_range
TAVDEVICE_API Reading<std::string> Imei(const std::string& reply);

/// AT+CIMI: the IMSI, 15 characters behind the echo. @throws std::out_of_range
TAVDEVICE_API Reading<std::string> Imsi(const std::string& reply);

/// AT+QCCID: the ICCID, 7 to 20 characters behind ": ". One of 19 digits is followed by its line end's
/// carriage return. @throws std::out_of_range
TAVDEVICE_API Reading<std::string> Iccid(const std::string& reply);

/// ATI: what stands behind "Revision: ". @throws std::out_of_range
TAVDEVICE_API Reading<std::string> FirmwareRevision(const std::string& reply);

/// AT+CBC: the third number, in millivolts. @throws std::out_of_range
TAVDEVICE_API Reading<int> Voltage(const std::string& reply);

/// AT+CSQ: the first number, 0 to 31 or 99 from a sane module.
/// @throws std::invalid_argument, std::out_of_range
TAVDEVICE_API Reading<int> SignalQuality(const std::string& reply);

/// AT+CREG?: the registration state, the digit behind the first comma. @throws std::invalid_argument
TAVDEVICE_API Reading<int> RegistrationState(const std::string& reply);

/// AT+COPS?: the operator's name with the comma and the one character behind it: "Operator,2".
TAVDEVICE_API Reading<std::string> CarrierName(const std::string& reply);

/**
 * AT+COPS=?: the operators, in the module's order. A group in parentheses with fewer than four commas ends
 * the list; the groups behind the operators (supported modes and formats) are operators too where they
 * have enough. A name that is shorter than its two quotes is empty.
 * @param list what is found is appended, also what was found before an exception
 * @return how many were appended
 * @throws std::invalid_argument, std::out_of_range for a status or an access technology
 */
TAVDEVICE_API Reading<std::size_t> Operators(const std::string& reply, std::list<Operator>& list);

}

#endif

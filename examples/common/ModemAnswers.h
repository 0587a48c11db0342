#ifndef EXAMPLES_COMMON_MODEMANSWERS_H
#define EXAMPLES_COMMON_MODEMANSWERS_H

#include "Modem/Operator.h"

#include <list>
#include <optional>
#include <string>

/// What the cellular module tells, without what the library leaves around it.
namespace Examples::ModemAnswers
{

/// True when the module gives any answer at all, be it an error. @throws as Module3G::SendATCommand()
bool IsThere();

std::string Iccid();    ///< the one that Module3G has queried last
std::string Operator(); ///< asks for the current operator's name, for up to three minutes; empty without one

/// Scans for operators, for up to three minutes. @return nothing when the scan failed
/// @throws as Module3G::GetCarriersList()
std::optional<std::list<Tavdevice::Modem::Operator>> Operators();

}

#endif

#ifndef MODEM_ATCHANNEL_H
#define MODEM_ATCHANNEL_H

#include "Modem/AtCommands.h"

#include <array>
#include <cstdio>
#include <string>

/// The exchanges of Module3G, with texts that stay constant.
namespace Tavdevice::Modem::AtChannel
{

/// As Module3G::OpenPort().
int Open(const char* path);

/// As Module3G::SendATCommand(). @param reply receives the reply after "OK", taken before another thread's
/// exchange can begin; untouched otherwise
int Exchange(const char* command, int tries, const char* port, std::string& reply);

/// One exchange on the main interface. @return true when the module answered "OK"
inline bool Ask(const AtCommands::Command& command, std::string& reply)
{
    return Exchange(command.text, command.cycles, AtCommands::MAIN_PORT, reply) == 0;
}

/// The same for a command whose answer is not looked at.
inline bool Send(const AtCommands::Command& command)
{
    std::string reply;
    return Ask(command, reply);
}

/// The same for a command whose text is a format for `values`.
template <class... Values>
bool Send(const AtCommands::Command& command, Values... values)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), command.text, values...);
    return Send({text.data(), command.cycles});
}

}

#endif

#ifndef VIRTUAL_UNIT_COMMON_DESCRIPTORSOFOTHERS_H
#define VIRTUAL_UNIT_COMMON_DESCRIPTORSOFOTHERS_H

#include <functional>
#include <string>

namespace VirtualUnit
{

/// Whether one of the descriptors that other processes have open, as far as this one may see them, is the one
/// that is looked for. Those behind it are not looked at any more.
/// @param is gets the descriptor's path below "/proc", a link to what it stands for; it may be gone meanwhile
bool IsAmongDescriptorsOfOthers(const std::function<bool(const std::string& path)>& is);

}

#endif

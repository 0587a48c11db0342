#ifndef VIRTUAL_UNIT_COMMON_PARENTOF_H
#define VIRTUAL_UNIT_COMMON_PARENTOF_H

#include <charconv>
#include <cstddef>
#include <fstream>
#include <string>
#include <sys/types.h>

namespace VirtualUnit
{

/// @return the process whose child a process is, as "/proc/PID/stat" tells; -1 when it is gone
inline pid_t ParentOf(pid_t process)
{
    // "PID (NAME) STATE PARENT ...", where NAME may hold anything
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text, '\0');
    const std::size_t nameEnd = text.rfind(')');
    pid_t parent = -1;
    if (nameEnd != std::string::npos && nameEnd + 4 < text.size())
    {
        std::from_chars(text.data() + nameEnd + 4, text.data() + text.size(), parent);
    }
    return parent;
}

}

#endif

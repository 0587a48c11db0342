#include "tests/kit/ThreadNames.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Kit
{

namespace
{

/// @param stat of proc(5), without what stands before the state
bool IsEnding(const std::string& stat)
{
    constexpr unsigned int EXITING = 0x4; // PF_EXITING of the kernel
    std::istringstream fields(stat);
    std::string skipped; // state, parent, group, session, terminal, its foreground group
    unsigned int flags = 0;
    fields >> skipped >> skipped >> skipped >> skipped >> skipped >> skipped >> flags;
    return !fields || (flags & EXITING) != 0;
}

}

std::vector<std::string> ThreadNames()
{
    std::vector<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::string line; // "number (name) state ..."
        std::getline(std::ifstream(task.path() / "stat"), line);
        const std::size_t begin = line.find('(');
        const std::size_t end = line.rfind(')');
        if (end != std::string::npos && !IsEnding(line.substr(end + 1)))
        {
            names.push_back(line.substr(begin + 1, end - begin - 1));
        }
    }
    return names;
}

}

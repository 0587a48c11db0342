#include "virtual-unit/common/DescriptorsOfOthers.h"

#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

bool IsAmongDescriptorsOfOthers(const std::function<bool(const std::string& path)>& is)
{
    namespace fs = std::filesystem;
    std::error_code error;
    for (fs::directory_iterator process("/proc", error), end; !error && process != end;
         process.increment(error))
    {
        const std::string name = process->path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos || name == std::to_string(getpid()))
        {
            continue;
        }
        std::error_code gone;
        for (fs::directory_iterator open(process->path() / "fd", gone); !gone && open != end;
             open.increment(gone))
        {
            if (is(open->path()))
            {
                return true;
            }
        }
    }
    return false;
}

}

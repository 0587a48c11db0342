#include "tests/kit/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace Kit
{

namespace
{

class OwnDirectory
{
public:
    OwnDirectory() : owner(getpid())
    {
        path = std::filesystem::temp_directory_path().string() + "/tavkit-XXXXXX";
        if (mkdtemp(path.data()) == nullptr)
        {
            std::abort();
        }
    }

    ~OwnDirectory()
    {
        if (getpid() == owner) // not in a forked child
        {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }

    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;

    std::string path;

private:
    pid_t owner;
};

}

const std::string& TempDir::Path()
{
    static const OwnDirectory directory;
    return directory.path;
}

}

#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavsystem/FileUtils/Tavdir.h"
#include "base/Tavsystem/System/UnmountAll.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"
#include "tests/sweep/Operation.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace
{

using Sweep::Text;

struct Mounts
{
    Mounts()
    {
        std::ofstream(path) << "/dev/root / ext4 rw 0 0\n/dev/mmcblk0p1 /mnt/sdcard vfat rw 0 0\n";
        Kit::System::Redirect("/proc/self/mounts", path);
        Kit::System::AnswerUnmounts();
    }

    ~Mounts() { Kit::System::Unredirect("/proc/self/mounts"); }

    Mounts(const Mounts&) = delete;
    Mounts& operator=(const Mounts&) = delete;

    std::string path = Kit::TempDir::Path() + "/mounts";
};

SWEEP(System, UnmountAll)
{
    const Mounts mounts;
    Sweep::Try([] {
        Tavsystem::System::UnmountAll();
        return std::string("done");
    });
}

}

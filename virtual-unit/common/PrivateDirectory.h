#ifndef VIRTUAL_UNIT_COMMON_PRIVATEDIRECTORY_H
#define VIRTUAL_UNIT_COMMON_PRIVATEDIRECTORY_H

#include "virtual-unit/common/Descriptor.h"

#include <string>
#include <string_view>

namespace VirtualUnit
{

/// A new, empty directory for temporary files (in TMPDIR, or "/tmp"), which only this user can enter. It is
/// removed, with all that it holds, at the end of this object.
class PrivateDirectory
{
public:
    static constexpr std::string_view NAME = "virtual-unit-"; ///< how the directories' names begin

    static std::string Parent(); ///< where they are

    /// Removes those of this user whose run was killed, and that none of its processes uses any more.
    static void RemoveLeftOver();

    PrivateDirectory(); ///< @throws std::system_error
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;
    ~PrivateDirectory();

    const std::string& Path() const { return path; }

private:
    std::string path;
    Descriptor lock; ///< on the directory: it ends with this process, however that ends
};

}

#endif

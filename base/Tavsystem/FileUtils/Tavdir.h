#ifndef BASE_TAVSYSTEM_FILEUTILS_TAVDIR_H
#define BASE_TAVSYSTEM_FILEUTILS_TAVDIR_H

#include "base/Export.h"

#include <string>

namespace Tavsystem::FileUtils
{

/**
 * A directory, named by its path. The object is only the name: neither its construction nor its
 * destruction touches the file system.
 *
 * Threads: any; two threads or processes may create the same directory at the same time.
 */
class TAVSYSTEM_API Tavdir
{
public:
    /// @param name its path: absolute, or relative to the working directory at the time of Create()
    explicit Tavdir(const std::string& name);
    Tavdir(const Tavdir&) = default;            ///< names the same directory
    Tavdir& operator=(const Tavdir&) = default; ///< likewise
    ~Tavdir();

    /**
     * Makes the directory, and before it the parents that are missing, with the permissions 0755 less the
     * process's umask. Parents that were made stay when a later step fails.
     * @return true when the directory exists now, false otherwise: a file is in the way, no permission,
     *         no space, a read-only or missing volume, an empty path
     */
    bool Create();

private:
    std::string path;
};

}

#endif

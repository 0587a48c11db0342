#ifndef VIRTUAL_UNIT_CALLS_STORAGECARD_H
#define VIRTUAL_UNIT_CALLS_STORAGECARD_H

#include "virtual-unit/common/Descriptor.h"

#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>

namespace VirtualUnit
{

/**
 * The unit's storage card: a volume whose content lives in a directory of this machine.
 *
 * It has files and directories only, as a FAT volume does. Symbolic links and device nodes that stand in the
 * directory nevertheless can be listed, renamed and removed, but neither opened nor passed through; so
 * nothing leads out of the directory.
 *
 * Paths are relative to the card, without "." and ".."; "" is the card's root. A slash at the end demands a
 * directory. Where nothing else is said an operation returns 0 or an errno, as the system call of that name.
 */
class StorageCard
{
public:
    /// The directory cannot hold a card; what() names it and says why.
    class Unusable : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    /// @param directory is created when it is missing, its parent is not; stays afterwards @throws Unusable
    explicit StorageCard(const std::string& directory);

    /// @param path of this machine, absolute, without symbolic links
    /// @return where it lies on the card; nothing when it does not
    std::optional<std::string> Find(const std::string& path) const;

    const std::string& Directory() const { return root; } ///< that holds the content; without links

    /**
     * @param flags and mode as for open(); the mode is subject to this process' umask
     * @param opened takes the descriptor, which is closed on exec
     */
    int Open(const std::string& path, int flags, mode_t mode, Descriptor& opened) const;
    int Status(const std::string& path, struct stat& status) const;
    int StatusX(const std::string& path, unsigned int mask, struct statx& status) const;
    int VolumeStatus(const std::string& path, struct statfs& status) const;
    int Access(const std::string& path, int mode) const;
    int MakeDirectory(const std::string& path, mode_t mode) const; ///< subject to this process' umask
    int RemoveDirectory(const std::string& path) const;
    int RemoveFile(const std::string& path) const;
    int Rename(const std::string& from, const std::string& to, unsigned int flags) const;
    int Truncate(const std::string& path, off_t size) const;
    int ChangeMode(const std::string& path, mode_t mode) const;
    int ChangeOwner(const std::string& path, uid_t user, gid_t group) const; ///< EPERM unless it is the same
    int ChangeTimes(const std::string& path, const timespec* times) const;   ///< two, or null for the present

private:
    struct Place;

    Place Locate(const std::string& path) const;

    template <class Operation>
    int At(const std::string& path, Operation&& operation) const;

    std::string root;
    Descriptor rootDescriptor;
};

}

#endif

#ifndef VIRTUAL_UNIT_CALLS_UNSYNCEDFILES_H
#define VIRTUAL_UNIT_CALLS_UNSYNCEDFILES_H

#include "virtual-unit/common/PrivateDirectory.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>
#include <utility>

namespace VirtualUnit
{

/**
 * What of the storage card's files would be lost with the power: of each file that was made or opened to be
 * changed it keeps what was synced last.
 *
 * A file counts by what it is, whatever its name is by then: names, and directories, are on the card at once.
 * It is told before a file changes for the first time, and so need not see how that is done. Where a file is
 * asked for it is a path of this machine, which may be a link of "/proc/PID/fd"; what is no regular file is
 * passed over.
 */
class UnsyncedFiles
{
public:
    /// @param cardRoot the directory that holds the card's content @throws std::system_error
    explicit UnsyncedFiles(std::string cardRoot) : root(std::move(cardRoot)) {}

    void Made(const std::string& file); ///< it is new, and was never synced
    /// From now on; what it holds is synced, unless it changes already.
    void Changes(const std::string& file);
    void Synced(const std::string& file); ///< what it holds now
    void SyncedAll();                     ///< all that are on the card

    /// From now on all that is written to it is synced at once.
    void SyncsItself(const std::string& file);

    /// Takes from the card what was not synced. Nobody writes to it any more.
    /// @param tell is told of each file that has lost something, in the order of their paths, which are
    /// relative to the card, and how many bytes it has left: -1 when it is gone
    void Drop(const std::function<void(const std::string& file, std::ptrdiff_t left)>& tell);

private:
    std::filesystem::path CopyOf(ino_t file) const;
    void Keep(const std::string& file, ino_t number);

    template <class Function>
    void ForEachOnCard(Function&& function);

    std::string root;
    PrivateDirectory copies;
    std::map<ino_t, bool> synced; ///< whether there is a copy; an inode is told anew when it is a new file's
};

}

#endif

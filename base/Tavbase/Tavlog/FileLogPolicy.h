#ifndef BASE_TAVBASE_TAVLOG_FILELOGPOLICY_H
#define BASE_TAVBASE_TAVLOG_FILELOGPOLICY_H

#include "base/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tavbase::Tavlog
{

/**
 * Appends lines to a file of limited size. When a line would take the file over its limit, the file is
 * renamed to PATH.1 (PATH.1 to PATH.2 and so on, the oldest is replaced) and a new one begun.
 *
 * A line that cannot be written (full disk, path not writable, card not mounted) is lost; the next line
 * tries again and opens the file anew. A line cut short by a full disk is taken back out of the file.
 *
 * Used by its LoggerBase, under the lock of the line. One file belongs to one process and its forked
 * children: what each of them appends counts for the limit.
 */
class TAVBASE_API FileLogPolicy
{
public:
    static constexpr const char* WRITER_NAME = "log-file"; ///< name of the sink's thread

    FileLogPolicy() = default;
    FileLogPolicy(const FileLogPolicy&) = delete;
    FileLogPolicy& operator=(const FileLogPolicy&) = delete;
    ~FileLogPolicy();

    /**
     * Takes another file; the former one is closed.
     * @param file     where to write; its directory must exist; an empty path: nowhere
     * @param maxBytes size at which a new file is begun; 0: no limit
     * @param oldFiles how many full files are kept beside the present one; with 0 the file is emptied
     * @return false when the file could not be opened now
     */
    bool Use(const std::string& file, std::uint64_t maxBytes, unsigned int oldFiles);

    void Write(std::string_view line); ///< appends one finished line

private:
    bool Open();
    void Close();
    void Rotate();
    std::uint64_t Size() const;       ///< of the open file
    void TakeBack(std::size_t bytes); ///< removes what the last write has appended

    std::string path;
    std::uint64_t limit = 0;
    unsigned int kept = 0;
    int descriptor = -1;
};

}

#endif

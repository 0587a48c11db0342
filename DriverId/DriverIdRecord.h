#ifndef DRIVERID_DRIVERIDRECORD_H
#define DRIVERID_DRIVERIDRECORD_H

#include "base/Export.h"

#include <string>

namespace TavDevice
{

/**
 * The file that keeps the last driver ID: one JSON object with the string member "driver-id", 12 characters
 * long. Twelve zeros mean "no driver" and are never stored.
 *
 * Only a regular file is read or written. What else has its name (a FIFO, a terminal, a device, a directory)
 * is neither opened nor changed: nothing is loaded from it and nothing saved.
 *
 * Failures are silent but for the results, and nothing is thrown for them. The file is rewritten in place:
 * it belongs to one thread of one process at a time. Each operation takes as long as the card needs
 * (docs/limits.md).
 */
class TAVDEVICE_API DriverIdRecord
{
public:
    /// Names the file; does not touch it. From a path of less than 6 characters nothing is loaded, and
    /// nothing is removed.
    explicit DriverIdRecord(std::string path);

    /**
     * @param id receives the stored ID; untouched when there is none
     * @return true when an ID was loaded. False when the file is missing, cannot be read, is longer than
     *         any record (1 MiB), or is not a JSON object whose "driver-id" is a string of 12 characters;
     *         other members, and line ends anywhere in the text, do no harm.
     */
    bool Load(std::string& id) const;

    /// Stores an ID, which is not checked for being hexadecimal, and waits until it is on the card: the line
    /// in the log that it was saved is the only sign of it. One that cannot be stored (not 12 bytes long,
    /// twelve zeros, or not UTF-8) removes the file instead.
    void Save(const std::string& id) const;

    void Remove() const; ///< deletes the file; nothing when there is none

private:
    bool NamesFile() const;

    std::string path;
};

}

#endif

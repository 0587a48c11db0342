#ifndef BASE_TAVBASE_TAVLOG_CONSOLELOGPOLICY_H
#define BASE_TAVBASE_TAVLOG_CONSOLELOGPOLICY_H

#include "base/Export.h"
#include "base/Tavbase/Tavlog/LogType.h"

#include <string_view>

namespace Tavbase::Tavlog
{

/**
 * Writes lines to standard output. On a terminal warnings are yellow and errors red, unless the
 * environment sets NO_COLOR or says TERM=dumb.
 *
 * Used by its LoggerBase, under the lock of the line.
 */
class TAVBASE_API ConsoleLogPolicy
{
public:
    static constexpr const char* WRITER_NAME = "log-console"; ///< name of the sink's thread

    ConsoleLogPolicy();

    void WriteHeader(LogType type); ///< begins a line: chooses its colour

    /// Writes one finished line; a line that standard output does not take is lost.
    void Write(std::string_view line);

private:
    bool colourAllowed;
    LogType lineType = LogType::Info;
};

}

#endif

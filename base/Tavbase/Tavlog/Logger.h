#ifndef BASE_TAVBASE_TAVLOG_LOGGER_H
#define BASE_TAVBASE_TAVLOG_LOGGER_H

#include "base/Export.h"
#include "base/Tavbase/Tavlog/LogModule.h"
#include "base/Tavbase/Tavlog/LogType.h"
#include "base/Tavbase/Tavlog/LoggerBase.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace Tavbase::Tavlog
{

/**
 * The log of the process: each line goes to a file and to the console.
 *
 *     Logger::GetInstance() << LogType::Error << "[SERIAL] Unable to open serial port" << std::endl;
 *
 * writes "[2026-03-01 08:15:00][41C][ERROR][SERIAL] Unable to open serial port" (the temperature only where
 * the board reports one). A line to one sink alone is written through File() or Console() in the same way.
 * Begin a line with its type and end it with std::endl; LoggerBase tells what happens otherwise.
 *
 * The console is on from the start; the file is off until OpenFile(). Each sink has a writer thread of its
 * own, started with the first line and running until the process ends. Lines completed before exit() are
 * output; logging works in static constructors and destructors, in the application's own fork handlers
 * (pthread_atfork()), and in a forked child, whose lines are output by the thread that logs.
 *
 * A standard output that takes nothing, such as a full pipe, holds every thread that logs, to the file alone
 * too, until it takes something: EnableConsole(false) where nobody reads it (docs/limits.md).
 *
 * Threads: every operation may be called from any thread.
 */
class TAVBASE_API Logger
{
public:
    /// For OpenFile().
    static constexpr std::uint64_t DEFAULT_MAX_BYTES = std::uint64_t{1024} * 1024;
    static constexpr unsigned int DEFAULT_OLD_FILES = 3; ///< likewise

    static Logger& GetInstance(); ///< the only one; it lives as long as the process

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Begins a line.
    Logger& operator<<(LogType type)
    {
        file->WriteHeader(type);
        console->WriteHeader(type);
        return *this;
    }

    /// Adds the tag of the module: "[#name]".
    Logger& operator<<(LogModule module)
    {
        *file << module;
        *console << module;
        return *this;
    }

    // Beside the template, which would be compiled anew for each length of a literal.
    Logger& operator<<(const char* text) { return Add(text); } ///< adds text; null loses the rest of the line

    Logger& operator<<(const std::string& text) { return Add(text); } ///< adds text

    /// Adds whatever an output stream takes.
    template <class Piece>
    Logger& operator<<(const Piece& piece)
    {
        return Add(piece);
    }

    /// std::endl completes the line.
    Logger& operator<<(std::ostream& (*manipulator)(std::ostream&))
    {
        *file << manipulator;
        *console << manipulator;
        return *this;
    }

    LoggerBase<FileLogPolicy>& File() { return *file; } ///< the sink alone

    LoggerBase<ConsoleLogPolicy>& Console() { return *console; } ///< likewise

    /**
     * Switches the file on.
     * @param path     the file, appended to; its directory must exist
     * @param maxBytes size at which it is renamed to PATH.1 and a new one begun; 0: no limit
     * @param oldFiles how many such files are kept
     * @return false when it cannot be opened now; the sink is on all the same and tries with each line
     */
    bool OpenFile(const std::string& path, std::uint64_t maxBytes = DEFAULT_MAX_BYTES,
                  unsigned int oldFiles = DEFAULT_OLD_FILES);

    void CloseFile(); ///< outputs what is complete, then switches the file off and closes it

    void EnableConsole(bool on) { console->Enable(on); } ///< it is on at first

    /// Waits until every line completed so far is out, for example before the power goes. It waits for a
    /// line that another thread has open.
    void Flush();

private:
    template <class Policy>
    friend class LoggerBase;

    Logger();

    template <class Piece>
    Logger& Add(const Piece& piece)
    {
        *file << piece;
        *console << piece;
        return *this;
    }

    /// As the library is loaded: a fork may be under way when the log is used for the first time.
    [[gnu::constructor]] static void RegisterForkHandlers();
    static void BeforeFork();
    static void CompleteLinesAtThreadEnd(); ///< for the calling thread, which opens a line
    /// At the end of the process, after the destructors of all static objects that use this library.
    [[gnu::destructor]] static void OutputWaitingLines();

    LoggerBase<FileLogPolicy>* file;       // both live as long as the process, so that a static
    LoggerBase<ConsoleLogPolicy>* console; // destructor can still log
};

}

#endif

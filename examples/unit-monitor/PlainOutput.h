#ifndef EXAMPLES_UNIT_MONITOR_PLAINOUTPUT_H
#define EXAMPLES_UNIT_MONITOR_PLAINOUTPUT_H

#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace UnitMonitor
{

/**
 * The plain lines, "TAG: text": on standard output, in a file, and the latest for the panel.
 *
 * Each line goes out by one write. Threads: any.
 */
class PlainOutput
{
public:
    PlainOutput(); ///< on standard output

    /// Writes the lines to a file as well, which is emptied first. @return false when it cannot be opened
    bool OpenFile(const std::string& path);

    void ShowOnStandardOutput(bool on);

    void Tell(const std::string& tag, const std::string& text);

    void Close(); ///< closes the file; what is told from now on is dropped

    std::deque<std::string> Latest() const; ///< at most LATEST_LINES, latest last

    static constexpr std::size_t LATEST_LINES = 8;

private:
    struct Closer
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    using Stream = std::unique_ptr<std::FILE, Closer>;

    mutable std::mutex access;
    Stream standardOutput; ///< with a buffer of its own, so that nothing stands before a line; may be null
    Stream file;           ///< may be null
    bool onStandardOutput = true;
    bool closed = false;
    std::deque<std::string> latest;
};

}

#endif

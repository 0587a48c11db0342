#include "examples/unit-monitor/PlainOutput.h"

#include <fcntl.h>
#include <unistd.h>

namespace UnitMonitor
{

namespace
{

void Write(std::FILE* stream, const std::string& line)
{
    if (stream != nullptr)
    {
        std::fputs(line.c_str(), stream);
        std::fflush(stream);
    }
}

}

PlainOutput::PlainOutput()
{
    const int descriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (descriptor >= 0)
    {
        standardOutput.reset(fdopen(descriptor, "w"));
    }
}

bool PlainOutput::OpenFile(const std::string& path)
{
    const std::scoped_lock lock(access);
    file.reset(std::fopen(path.c_str(), "we"));
    return file != nullptr;
}

void PlainOutput::ShowOnStandardOutput(bool on)
{
    const std::scoped_lock lock(access);
    onStandardOutput = on;
}

void PlainOutput::Tell(const std::string& tag, const std::string& text)
{
    const std::scoped_lock lock(access);
    if (closed)
    {
        return;
    }
    const std::string line = tag + ": " + text;
    latest.push_back(line);
    if (latest.size() > LATEST_LINES)
    {
        latest.pop_front();
    }
    if (onStandardOutput)
    {
        Write(standardOutput.get(), line + "\n");
    }
    Write(file.get(), line + "\n");
}

void PlainOutput::Close()
{
    const std::scoped_lock lock(access);
    closed = true;
    file.reset();
}

std::deque<std::string> PlainOutput::Latest() const
{
    const std::scoped_lock lock(access);
    return latest;
}

}

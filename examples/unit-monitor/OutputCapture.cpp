#include "examples/unit-monitor/OutputCapture.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <system_error>
#include <unistd.h>

namespace UnitMonitor
{

namespace
{

int Duplicate(int descriptor)
{
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (copy < 0)
    {
        throw std::system_error(errno, std::generic_category(), "the terminal cannot be kept");
    }
    return copy;
}

}

OutputCapture::OutputCapture()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "no pipe for the output");
    }
    source = ends[0];
    fcntl(source, F_SETFL, O_NONBLOCK);
    terminal = Duplicate(STDOUT_FILENO);
    if (isatty(STDERR_FILENO) == 1)
    {
        formerError = Duplicate(STDERR_FILENO);
    }
    Redirect(ends[1], ends[1]);
    close(ends[1]);
}

OutputCapture::~OutputCapture()
{
    Redirect(terminal, formerError);
    for (const int descriptor : {terminal, formerError, source})
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
}

void OutputCapture::Redirect(int to, int toError)
{
    std::cout.flush();
    std::fflush(stdout);
    dup2(to, STDOUT_FILENO);
    if (formerError >= 0)
    {
        dup2(toError, STDERR_FILENO);
    }
}

std::vector<std::string> OutputCapture::TakeLines()
{
    std::vector<std::string> lines;
    std::array<char, 4096> bytes{};
    for (ssize_t count = read(source, bytes.data(), bytes.size()); count > 0;
         count = read(source, bytes.data(), bytes.size()))
    {
        begun.append(bytes.data(), static_cast<std::size_t>(count));
        for (std::size_t end = begun.find('\n'); end != std::string::npos; end = begun.find('\n'))
        {
            lines.push_back(begun.substr(0, end));
            begun.erase(0, end + 1);
        }
    }
    return lines;
}

}

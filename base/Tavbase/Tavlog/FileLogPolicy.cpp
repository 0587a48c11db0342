#include "base/Tavbase/Tavlog/FileLogPolicy.h"

#include "base/DatesBeyond2038.h"
#include "base/Tavbase/Tavlog/WriteAll.h"
#include "base/Tavbase/Util/StandardStreams.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tavbase::Tavlog
{

FileLogPolicy::~FileLogPolicy()
{
    Close();
}

bool FileLogPolicy::Use(const std::string& file, std::uint64_t maxBytes, unsigned int oldFiles)
{
    Close();
    path = file;
    limit = maxBytes;
    kept = oldFiles;
    return Open();
}

void FileLogPolicy::Write(std::string_view line)
{
    if (descriptor >= 0 && limit != 0)
    {
        const std::uint64_t size = Size();
        if (size != 0 && size + line.size() > limit)
        {
            Rotate();
        }
    }
    if (descriptor < 0 && !Open())
    {
        return;
    }
    const std::size_t written = WriteAll(descriptor, line);
    if (written < line.size())
    {
        TakeBack(written);
        Close(); // the card may be gone for good, and another one be there for the next line
    }
}

bool FileLogPolicy::Open()
{
    if (path.empty())
    {
        return false;
    }
    const Util::StandardStreamsHeld streams(STDIN_FILENO);
    descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    return descriptor >= 0;
}

void FileLogPolicy::Close()
{
    if (descriptor >= 0)
    {
        close(descriptor);
        descriptor = -1;
    }
}

void FileLogPolicy::Rotate()
{
    if (kept == 0)
    {
        if (ftruncate(descriptor, 0) != 0)
        {
            Close();
        }
        return;
    }
    Close();
    for (unsigned int number = kept; number > 1; --number)
    {
        std::rename((path + '.' + std::to_string(number - 1)).c_str(),
                    (path + '.' + std::to_string(number)).c_str());
    }
    std::rename(path.c_str(), (path + ".1").c_str());
}

std::uint64_t FileLogPolicy::Size() const
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

void FileLogPolicy::TakeBack(std::size_t bytes)
{
    // An appending write leaves the descriptor behind its last byte; what a forked child has appended
    // after that must stay.
    const off_t end = lseek(descriptor, 0, SEEK_CUR);
    if (bytes != 0 && end >= 0 && static_cast<std::uint64_t>(end) == Size())
    {
        // Where even this fails the line stays in the file, cut short.
        [[maybe_unused]] const int result = ftruncate(descriptor, end - static_cast<off_t>(bytes));
    }
}

}

#include "base/Tavbase/Tavlog/WriteAll.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace Tavbase::Tavlog
{

namespace
{

constexpr int WAIT_MILLISECONDS = 100;
constexpr int WAITS = 10;

}

std::size_t WriteAll(int descriptor, std::string_view text)
{
    std::size_t done = 0;
    int waits = 0;
    while (done < text.size())
    {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written > 0)
        {
            done += static_cast<std::size_t>(written);
            waits = 0;
        }
        else if (written < 0 && errno == EAGAIN && waits < WAITS)
        {
            ++waits;
            pollfd writable = {descriptor, POLLOUT, 0};
            poll(&writable, 1, WAIT_MILLISECONDS);
        }
        else if (written == 0 || errno != EINTR)
        {
            break;
        }
    }
    return done;
}

}

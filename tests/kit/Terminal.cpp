#include "tests/kit/Terminal.h"

#include "tests/kit/Clock.h"
#include "tests/kit/HighDescriptor.h"
#include "tests/kit/System.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace Kit
{

Terminal::Terminal(const std::string& device) : path(device)
{
    master = MoveUp(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::array<char, 64> name{};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name.data(), name.size()) != 0)
    {
        std::perror("kit: no pseudo terminal");
        std::abort();
    }
    slave = MoveUp(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    // As a UART wakes up: nothing echoed back to the peripheral.
    struct termios settings = {};
    tcgetattr(slave, &settings);
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(slave, TCSANOW, &settings);
    Clock::AddTerminal(master);
    Clock::AddTerminal(slave);
    System::Redirect(path, name.data());
}

Terminal::~Terminal()
{
    System::Unredirect(path);
    HangUp();
    Clock::RemoveTerminal(slave);
    close(slave);
}

void Terminal::Send(std::string_view bytes)
{
    while (!bytes.empty())
    {
        const ssize_t written = write(master, bytes.data(), bytes.size());
        if (written < 0)
        {
            std::perror("kit: terminal");
            std::abort();
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    pollfd delivered = {slave, POLLIN, 0};
    poll(&delivered, 1, 0);
}

std::string Terminal::Received()
{
    std::string all;
    std::array<char, 4096> part{};
    pollfd input = {master, POLLIN, 0};
    while (poll(&input, 1, 0) > 0 && (input.revents & POLLIN) != 0)
    {
        const ssize_t count = read(master, part.data(), part.size());
        if (count <= 0)
        {
            break;
        }
        all.append(part.data(), static_cast<std::size_t>(count));
    }
    return all;
}

void Terminal::HangUp()
{
    if (master >= 0)
    {
        Clock::RemoveTerminal(master);
        close(master);
        master = -1;
    }
}

}

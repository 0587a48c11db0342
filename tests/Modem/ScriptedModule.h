#ifndef TESTS_MODEM_SCRIPTEDMODULE_H
#define TESTS_MODEM_SCRIPTEDMODULE_H

#include "tests/kit/Clock.h"
#include "tests/kit/Terminal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace ModemTests
{

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

/// A piece of an answer, and when it arrives after the command.
struct Piece
{
    std::chrono::milliseconds at;
    std::string text;
};

using Answer = std::vector<Piece>;

/// What a module with its echo on replies: the command, a line (unless empty), a final "OK".
inline std::string Reply(std::string_view command, std::string_view line = {})
{
    std::string text(command);
    if (!line.empty())
    {
        text.append("\r\n").append(line).append("\r\n");
    }
    return text + "\r\nOK\r\n";
}

inline std::string ErrorReply(std::string_view command)
{
    return std::string(command) + "\r\nERROR\r\n";
}

/**
 * The module at the other end of an interface: a thread that takes commands and answers each by a table.
 * What the table does not hold is taken in silence.
 */
class ScriptedModule
{
public:
    explicit ScriptedModule(const char* path)
        : line(path), wake(eventfd(0, EFD_CLOEXEC)), nearEnd(OpenNearEnd()), thread([this] { Run(); })
    {
    }

    ~ScriptedModule()
    {
        ended = true;
        Wake();
        thread.join();
        close(nearEnd);
        close(wake);
    }

    ScriptedModule(const ScriptedModule&) = delete;
    ScriptedModule& operator=(const ScriptedModule&) = delete;

    /// Each time the command comes the next answer is given, the last one ever after.
    void On(const std::string& command, std::deque<Answer> answers)
    {
        const std::scoped_lock lock(access);
        table[command] = std::move(answers);
    }

    void On(const std::string& command, Answer answer) { On(command, std::deque<Answer>{std::move(answer)}); }

    /// As it is, at once.
    void On(const std::string& command, const std::string& text) { On(command, Answer{{0ms, text}}); }

    /// With its echo, the line and a final "OK".
    void Accept(const std::string& command, std::string_view answeredLine = {})
    {
        On(command, Reply(command, answeredLine));
    }

    void Refuse(const std::string& command) { On(command, ErrorReply(command)); }

    /// Every byte that came.
    std::string Received() const
    {
        const std::scoped_lock lock(access);
        return received;
    }

    void ForgetReceived()
    {
        const std::scoped_lock lock(access);
        received.clear();
    }

    /// When each command had come, in virtual time.
    std::vector<std::chrono::nanoseconds> Times() const
    {
        const std::scoped_lock lock(access);
        return times;
    }

    /// Drops what has been sent and was not read.
    void DropUnread() const { tcflush(nearEnd, TCIFLUSH); }

    int Descriptor() const { return line.Descriptor(); }

private:
    using Due = std::pair<std::chrono::nanoseconds, std::string>;

    int OpenNearEnd() const
    {
        const int fd = ioctl(line.Descriptor(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (fd < 0 || wake < 0)
        {
            std::abort();
        }
        return fd;
    }

    void Wake() const
    {
        const std::uint64_t one = 1;
        if (write(wake, &one, sizeof one) != sizeof one)
        {
            std::abort();
        }
    }

    int UntilNextDue() const
    {
        if (due.empty())
        {
            return -1;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(due.front().first - Kit::Clock::Elapsed());
        return static_cast<int>(std::max(left, 0ms).count());
    }

    void Run()
    {
        while (!ended)
        {
            std::array<pollfd, 2> fds = {pollfd{line.Descriptor(), POLLIN, 0}, pollfd{wake, POLLIN, 0}};
            poll(fds.data(), fds.size(), UntilNextDue());
            if ((fds[0].revents & POLLIN) != 0)
            {
                Take();
            }
            while (!due.empty() && due.front().first <= Kit::Clock::Elapsed())
            {
                const std::string text = std::move(due.front().second);
                due.pop_front();
                Deliver(text);
            }
        }
    }

    void Take()
    {
        std::array<char, 512> bytes{};
        const ssize_t count = read(line.Descriptor(), bytes.data(), bytes.size());
        if (count <= 0)
        {
            return;
        }
        const std::string_view text(bytes.data(), static_cast<std::size_t>(count));
        const std::scoped_lock lock(access);
        received += text;
        begun += text;
        for (std::size_t end = 0; (end = begun.find("\r\n")) != std::string::npos;)
        {
            const std::string command = begun.substr(0, end + 2);
            begun.erase(0, end + 2);
            times.push_back(Kit::Clock::Elapsed());
            AnswerTo(command);
        }
    }

    void AnswerTo(const std::string& command)
    {
        const auto found = table.find(command);
        if (found == table.end() || found->second.empty())
        {
            return;
        }
        for (const Piece& piece : found->second.front())
        {
            due.emplace_back(Kit::Clock::Elapsed() + piece.at, piece.text);
        }
        if (found->second.size() > 1)
        {
            found->second.pop_front();
        }
        std::ranges::stable_sort(due, {}, &Due::first);
    }

    int Unread() const
    {
        int bytes = 0;
        ioctl(nearEnd, FIONREAD, &bytes);
        return bytes;
    }

    /// A text passes the kernel in pieces: waits until all of it is there, as far as a terminal has room.
    void Deliver(const std::string& text)
    {
        constexpr int ROOM = 4000;
        const int expected = std::min(Unread() + static_cast<int>(text.size()), ROOM);
        line.Send(text);
        Kit::Clock::AwaitKernel([&] { return Unread() >= expected || ended; });
    }

    Kit::Terminal line;
    int wake;
    int nearEnd;
    mutable std::mutex access;
    std::map<std::string, std::deque<Answer>> table;
    std::string received;
    std::string begun; ///< of a command
    std::vector<std::chrono::nanoseconds> times;
    std::deque<Due> due; ///< of the thread
    std::atomic<bool> ended{false};
    std::thread thread; ///< last: it uses the others
};

}

#endif

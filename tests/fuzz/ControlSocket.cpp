// What is written to a run's control socket: a step, or anything else. However it is split, the answer is the
// same, and that of the step itself.

#include "virtual-unit/run/ControlSocket.h"

#include "tests/fuzz/Target.h"
#include "tests/kit/TempDir.h"
#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/script/Step.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace
{

std::string AnsweredStep(const std::string& line)
{
    return VirtualUnit::Step::Parse(line).Words();
}

/// As the socket gives it: '+' and an answer, or '-' and the reason.
std::string ExpectedAnswer(const std::string& line)
{
    try
    {
        return '+' + AnsweredStep(line);
    }
    catch (const std::exception& failure)
    {
        return '-' + std::string(failure.what());
    }
}

/// Sends a line piece by piece. @return all that is answered
std::string AskInPieces(const std::string& path, std::string_view line, std::size_t piece)
{
    const VirtualUnit::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    FUZZ_REQUIRE(connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
    for (std::size_t at = 0; at < line.size(); at += piece)
    {
        const std::string_view part = line.substr(at, piece);
        FUZZ_REQUIRE(send(fd.Get(), part.data(), part.size(), MSG_NOSIGNAL) ==
                     static_cast<ssize_t>(part.size()));
    }
    shutdown(fd.Get(), SHUT_WR);
    std::string answer;
    std::array<char, 512> bytes{};
    for (ssize_t count = 0; (count = recv(fd.Get(), bytes.data(), bytes.size(), 0)) > 0;)
    {
        answer.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return answer;
}

}

FUZZ_TARGET(ControlSocket)
{
    constexpr std::size_t LONGEST = 4000; // bytes: longer ones may be cut, and not wait for the rest
    Fuzz::Input rest(input);
    const std::size_t piece = rest.Byte() + 1U;
    const std::string line(rest.Bytes(LONGEST));
    const std::string path = Kit::TempDir::Path() + "/control";
    VirtualUnit::ControlSocket control(path);
    control.Start(AnsweredStep);
    FUZZ_REQUIRE(AskInPieces(path, line, piece) == ExpectedAnswer(line));
    FUZZ_REQUIRE(AskInPieces(path, line, LONGEST) == ExpectedAnswer(line));
}

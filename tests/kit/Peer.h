#ifndef TESTS_KIT_PEER_H
#define TESTS_KIT_PEER_H

#include "tests/kit/Clock.h"
#include "tests/kit/Terminal.h"

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Kit
{

/// The device at the other end of a terminal: sends each text at its (virtual) time, counted from the
/// construction. The destructor waits for the last one.
class Peer
{
public:
    using Script = std::vector<std::pair<std::chrono::milliseconds, std::string>>;

    Peer(Terminal& line, Script script)
        : thread([&line, texts = std::move(script), begin = Clock::Elapsed()] {
              for (const auto& [at, text] : texts)
              {
                  std::this_thread::sleep_for(begin + at - Clock::Elapsed());
                  line.Send(text);
              }
          })
    {
    }

    ~Peer() { thread.join(); }

    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

private:
    std::thread thread;
};

}

#endif

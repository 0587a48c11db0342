#ifndef TESTS_BASE_TAVBASE_TAVLOG_LOGTEST_H
#define TESTS_BASE_TAVBASE_TAVLOG_LOGTEST_H

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/DeviceTest.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

namespace Tests
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogModule;
using Tavbase::Tavlog::LogType;

inline Logger& Log()
{
    return Logger::GetInstance();
}

/// The bytes of a file; empty where there is none.
inline std::string Contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// In virtual time a sleep returns when every other thread waits: what they could do they have done.
inline void LetOthersRun()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// Something that is done on a thread of its own, and may have to wait there.
class Elsewhere
{
public:
    explicit Elsewhere(std::function<void()> work)
        : thread([this, todo = std::move(work)] {
              todo();
              done = true;
          })
    {
    }

    ~Elsewhere() { thread.join(); }

    Elsewhere(const Elsewhere&) = delete;
    Elsewhere& operator=(const Elsewhere&) = delete;

    /// False when it still waits for something after all other threads have done what they could.
    bool IsDone() const
    {
        return Kit::Clock::WaitUntil([this] { return done.load(); }, std::chrono::milliseconds(100));
    }

private:
    std::atomic<bool> done{false};
    std::thread thread;
};

}

#endif

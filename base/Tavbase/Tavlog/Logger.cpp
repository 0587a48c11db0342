#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <pthread.h>
#include <thread>

namespace Tavbase::Tavlog
{

namespace
{

/// How long exit() waits for the sinks: a console that takes nothing must not keep the unit from ending.
constexpr std::chrono::seconds EXIT_PATIENCE{2};
constexpr std::chrono::microseconds FIRST_EXIT_INTERVAL{50};
constexpr std::chrono::microseconds LONGEST_EXIT_INTERVAL{10'000};

std::atomic<Logger*> instance{nullptr}; ///< null until the first use

void OnEachSink(auto action)
{
    Logger* const logger = instance.load();
    if (logger != nullptr)
    {
        action(logger->File());
        action(logger->Console());
    }
}

}

void Logger::OutputWaitingLines()
{
    OnEachSink([](auto& sink) {
        auto interval = FIRST_EXIT_INTERVAL;
        for (auto waited = interval.zero(); sink.mutex.HandedOver() && waited < EXIT_PATIENCE;
             waited += interval)
        {
            interval = std::min(2 * interval, LONGEST_EXIT_INTERVAL);
            std::this_thread::sleep_for(interval);
        }
        sink.EndWriter(); // a thread that were left would show in a leak check of the application
    });
}

void Logger::CompleteLinesAtThreadEnd()
{
    static const std::optional<pthread_key_t> key = []() -> std::optional<pthread_key_t> {
        pthread_key_t created = {};
        const auto atEnd = [](void*) { OnEachSink([](auto& sink) { sink.CompleteOpenLine(); }); };
        return pthread_key_create(&created, atEnd) == 0 ? std::optional(created) : std::nullopt;
    }();
    if (key) // an application may have taken all of them
    {
        pthread_setspecific(*key, instance.load());
    }
}

Logger& Logger::GetInstance()
{
    static Logger& singleton = *new Logger();
    return singleton;
}

Logger::Logger() : file(new LoggerBase<FileLogPolicy>(false)), console(new LoggerBase<ConsoleLogPolicy>(true))
{
    instance = this;
}

void Logger::RegisterForkHandlers()
{
    pthread_atfork(
        BeforeFork, [] { OnEachSink([](auto& sink) { sink.AfterForkInParent(); }); },
        [] { OnEachSink([](auto& sink) { sink.AfterForkInChild(); }); });
}

void Logger::BeforeFork()
{
    LoggerBase<FileLogPolicy>::MarkFork();
    LoggerBase<ConsoleLogPolicy>::MarkFork();
    Logger* const logger = instance.load();
    // Without the file's lock the console's is not taken either: who holds the file's may be waiting for it,
    // and a fork handler of the application that logs would wait for the file.
    if (logger != nullptr && logger->file->TakeForFork())
    {
        logger->console->TakeForFork();
    }
}

bool Logger::OpenFile(const std::string& path, std::uint64_t maxBytes, unsigned int oldFiles)
{
    const bool opened =
        file->WithPolicy([&](FileLogPolicy& policy) { return policy.Use(path, maxBytes, oldFiles); });
    file->Enable(true);
    return opened;
}

void Logger::CloseFile()
{
    file->WithPolicy([](FileLogPolicy& policy) { return policy.Use({}, 0, 0); });
    file->Enable(false);
}

void Logger::Flush()
{
    file->Flush();
    console->Flush();
}

}

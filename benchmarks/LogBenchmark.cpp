// One line to both sinks, the file in memory and the console on /dev/null: this log, a plain hand-over to
// two writer threads by mutex and condition, and spdlog's asynchronous logger with a flush for each line.
//
//   Steady   line after line, as fast as they are taken (what is still on its way at the end, at most the
//            8192 lines of spdlog's queue, is waited for outside of the measurement)
//   Burst    64 lines, then the wait until they are out
//   Threads  four threads, line after line
//
// The time is the real time for each line, the CPU time that of the whole process.

#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/Util/NewDate.h"
#include "base/Tavbase/Util/TemperatureMonitor.h"
#include "benchmarks/Allocations.h"
#include "benchmarks/Run.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <spdlog/async_logger.h>
#include <spdlog/details/file_helper.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/sinks/base_sink.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr int BURST = 64;
constexpr int THREADS = 4;
constexpr const char* TEXT = "[GPIO] ===> Trigger received, pin state ";

std::string FilePath()
{
    static const std::string path = [] {
        struct stat status = {};
        const bool shared = stat("/dev/shm", &status) == 0 && S_ISDIR(status.st_mode);
        const char* const given = std::getenv("TMPDIR");
        const std::string directory = shared ? "/dev/shm" : (given != nullptr ? given : "/tmp");
        return directory + "/log_benchmark." + std::to_string(getpid());
    }();
    return path;
}

/// This library's log.
class Ours
{
public:
    Ours() { Tavbase::Tavlog::Logger::GetInstance().OpenFile(FilePath(), 0); }

    ~Ours() { Tavbase::Tavlog::Logger::GetInstance().CloseFile(); }

    static void Line(std::int64_t number)
    {
        Tavbase::Tavlog::Logger::GetInstance()
            << Tavbase::Tavlog::LogType::Info << TEXT << number << std::endl;
    }

    static void Wait() { Tavbase::Tavlog::Logger::GetInstance().Flush(); }
};

/// One sink with a writer thread that sleeps on a condition; the line is the sink's until it is out.
class PlainSink
{
public:
    explicit PlainSink(const char* path)
        : descriptor(open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)), writer([this] { Write(); })
    {
    }

    ~PlainSink()
    {
        {
            std::unique_lock lock(access);
            free.wait(lock, [this] { return state == State::Free; });
            state = State::Ended;
        }
        handed.notify_one();
        writer.join();
        close(descriptor);
    }

    PlainSink(const PlainSink&) = delete;
    PlainSink& operator=(const PlainSink&) = delete;

    std::ostream& Begin()
    {
        {
            std::unique_lock lock(access);
            free.wait(lock, [this] { return state == State::Free; });
            state = State::Open;
        }
        stream << '[' << Tavbase::Util::NewDate("%Y-%m-%d %H:%M:%S") << ']';
        const auto& temperature = Tavbase::Util::TemperatureMonitor::GetInstance();
        if (temperature.IsAvailable())
        {
            stream << '[' << temperature.GetTemperature() << "C]";
        }
        return stream;
    }

    void HandOver()
    {
        {
            const std::scoped_lock lock(access);
            state = State::Handed;
        }
        handed.notify_one();
    }

    void Wait()
    {
        std::unique_lock lock(access);
        free.wait(lock, [this] { return state == State::Free; });
    }

private:
    enum class State
    {
        Free,
        Open,
        Handed,
        Ended
    };

    void Write()
    {
        std::unique_lock lock(access);
        while (true)
        {
            handed.wait(lock, [this] { return state == State::Handed || state == State::Ended; });
            if (state == State::Ended)
            {
                return;
            }
            lock.unlock();
            const std::string line = stream.str();
            if (write(descriptor, line.data(), line.size()) < 0)
            {
                std::perror("write");
            }
            stream.str({});
            lock.lock();
            state = State::Free;
            free.notify_all();
        }
    }

    int descriptor;
    std::mutex access;
    std::condition_variable free;
    std::condition_variable handed;
    State state = State::Free;
    std::ostringstream stream;
    std::thread writer;
};

class Plain
{
public:
    void Line(std::int64_t number)
    {
        std::ostream& toFile = file.Begin();
        std::ostream& toConsole = console.Begin();
        toFile << TEXT;
        toConsole << TEXT;
        toFile << number;
        toConsole << number;
        toFile << std::endl;
        file.HandOver();
        toConsole << std::endl;
        console.HandOver();
    }

    void Wait()
    {
        file.Wait();
        console.Wait();
    }

private:
    PlainSink file{FilePath().c_str()};
    PlainSink console{"/dev/null"};
};

/// spdlog's basic_file_sink, which also counts, so that the end of a burst can be waited for.
class CountingSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    explicit CountingSink(const std::string& path) { helper.open(path); }

    std::atomic<std::int64_t> written{0};

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        helper.write(text);
    }

    void flush_() override
    {
        helper.flush();
        written.fetch_add(1, std::memory_order_release);
    }

private:
    spdlog::details::file_helper helper;
};

class Spdlog
{
public:
    Spdlog()
    {
        logger->set_pattern("[%Y-%m-%d %H:%M:%S]%v");
        logger->flush_on(spdlog::level::trace);
    }

    void Line(std::int64_t number)
    {
        logger->info("{}{}", TEXT, number);
        handed.fetch_add(1, std::memory_order_relaxed);
    }

    void Wait()
    {
        while (console->written.load(std::memory_order_acquire) < handed.load(std::memory_order_relaxed))
        {
            std::this_thread::yield();
        }
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> pool =
        std::make_shared<spdlog::details::thread_pool>(8192, 1);
    std::shared_ptr<CountingSink> file = std::make_shared<CountingSink>(FilePath());
    std::shared_ptr<CountingSink> console = std::make_shared<CountingSink>("/dev/null");
    std::shared_ptr<spdlog::async_logger> logger = std::make_shared<spdlog::async_logger>(
        "benchmark", spdlog::sinks_init_list{file, console}, pool, spdlog::async_overflow_policy::block);
    std::atomic<std::int64_t> handed{0};
};

template <class Log>
std::unique_ptr<Log> present; // the log under measurement, shared by the threads of one measurement

template <class Log>
void Open(const benchmark::State&)
{
    present<Log> = std::make_unique<Log>();
    present<Log>->Line(0); // what is made once is made now
    present<Log>->Wait();
}

template <class Log>
void Close(const benchmark::State&)
{
    present<Log>.reset();
    unlink(FilePath().c_str());
}

/// Allocations for each line, of the whole process; the first thread counts for all of them.
template <class Lines>
void CountAllocations(benchmark::State& state, Lines lines)
{
    const std::uint64_t before = Benchmarks::Allocations();
    lines();
    if (state.thread_index() == 0)
    {
        state.counters["allocations"] =
            static_cast<double>(Benchmarks::Allocations() - before) /
            (static_cast<double>(state.iterations()) * static_cast<double>(state.threads()));
    }
}

template <class Log>
void LineAfterLine(benchmark::State& state)
{
    CountAllocations(state, [&] {
        std::int64_t number = 0;
        for ([[maybe_unused]] const auto& turn : state)
        {
            present<Log>->Line(++number);
        }
        present<Log>->Wait();
    });
}

template <class Log>
void Burst(benchmark::State& state)
{
    CountAllocations(state, [&] {
        while (state.KeepRunningBatch(BURST))
        {
            for (int number = 0; number < BURST; ++number)
            {
                present<Log>->Line(number);
            }
            present<Log>->Wait();
        }
    });
}

template <class Log>
void Register(const std::string& name)
{
    const auto common = [](benchmark::internal::Benchmark* measurement) {
        measurement->Setup(Open<Log>)->Teardown(Close<Log>)->UseRealTime()->MeasureProcessCPUTime();
    };
    common(benchmark::RegisterBenchmark(("Steady/" + name).c_str(), LineAfterLine<Log>));
    common(benchmark::RegisterBenchmark(("Burst/" + name).c_str(), Burst<Log>));
    common(benchmark::RegisterBenchmark(("Threads/" + name).c_str(), LineAfterLine<Log>)->Threads(THREADS));
}

}

int main(int argc, char** argv)
{
    Register<Ours>("Tavlog");
    Register<Plain>("PlainHandOver");
    Register<Spdlog>("Spdlog");
    return Benchmarks::Run(argc, argv);
}

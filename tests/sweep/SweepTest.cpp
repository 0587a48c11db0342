// Each operation with each of its calls failing, in each way, once and from there on for ever; with memory
// refused, and threads. The calls are not told: they are those that the operation makes. What comes of each
// failure is compared with the folder "expected"; SWEEP_WRITE=1 in the environment writes it anew, to be read
// before it is kept.

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Leaks.h"
#include "tests/sweep/Operation.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <typeinfo>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

struct Error
{
    const char* name;
    int number;
};

#define ERROR_NAMED(name)                                                                                    \
    Error                                                                                                    \
    {                                                                                                        \
#name, name                                                                                          \
    }
constexpr std::array ERRORS = {ERROR_NAMED(EINTR),     ERROR_NAMED(EIO),      ERROR_NAMED(ENODEV),
                               ERROR_NAMED(ENXIO),     ERROR_NAMED(EAGAIN),   ERROR_NAMED(EBUSY),
                               ERROR_NAMED(ENOSPC),    ERROR_NAMED(EACCES),   ERROR_NAMED(EMFILE),
                               ERROR_NAMED(ETIMEDOUT), ERROR_NAMED(EOVERFLOW)};

constexpr int FOR_EVER = 1'000'000'000;
constexpr int MOST_SIGNALS = 50; ///< a call that is interrupted is made again, and not for ever interrupted

/// SWEEP_WHOLE in the environment: also what is left out otherwise, for it repeats. It has to be survived;
/// what is told for it is not looked at.
const bool whole = std::getenv("SWEEP_WHOLE") != nullptr;

const int mostCalls = whole ? 60 : 3; ///< of one function that are failed in turn

/// The first two calls of a function fail with every error, those behind them, and all at once, with some.
/// The queries of the module are one exchange with one text or another: its calls fail with every error for
/// one of them.
bool IsTried(const std::string& operation, int error, int nth, int times)
{
    if (operation.starts_with("Module3G.") && operation != "Module3G.SendATCommand" && !whole)
    {
        return times == 1 && error == EIO;
    }
    return whole || (times == 1 && nth <= 2) || error == EIO || error == (times == 1 ? EINTR : ENODEV);
}

/// One failure.
struct Cell
{
    enum class Kind
    {
        None,
        Fails,        ///< a call, with an error
        GivesNothing, ///< a call returns 0
        IsShort,      ///< a call concerns one byte
        NoMemory,
        NoThread
    };

    Kind kind = Kind::None;
    std::string function = {};
    int nth = 1;
    int times = 1;
    int error = 0;
};

/// What came of it.
struct Outcome
{
    std::string result;
    std::vector<std::string> functions; ///< of the calls, in order
    std::int64_t failures = 0;
    std::int64_t allocations = 0;
};

Cell present;
Outcome outcome;
std::function<void()> forgetLog; ///< of the surroundings
int cells = 0;                   ///< so far

class Sum : public testing::Environment
{
    void TearDown() override
    {
        std::printf("%d cells\n", cells);
        testing::Test::RecordProperty("cells", cells); // of the whole report
    }
};

[[maybe_unused]] const testing::Environment* const sum = testing::AddGlobalTestEnvironment(new Sum);

void Arm(const Cell& cell)
{
    using Kit::System;
    switch (cell.kind)
    {
    case Cell::Kind::None:
    case Cell::Kind::NoMemory:
        break;
    case Cell::Kind::Fails:
        // A close that fails has closed all the same.
        if (cell.function == "close")
        {
            System::FailWhenDone("close", cell.error, cell.nth, cell.times);
        }
        else
        {
            System::Fail(cell.function.c_str(), cell.error, cell.nth, cell.times);
        }
        break;
    case Cell::Kind::GivesNothing:
        System::Fail(cell.function.c_str(), 0, cell.nth, cell.times, 0);
        break;
    case Cell::Kind::IsShort:
        System::Shorten(cell.function.c_str(), cell.nth, cell.times);
        break;
    case Cell::Kind::NoThread:
        System::RefuseThreads(cell.nth, cell.times);
        break;
    }
}

std::string NameOf(const std::exception& exception)
{
    int status = 0;
    char* const name = abi::__cxa_demangle(typeid(exception).name(), nullptr, nullptr, &status);
    std::string text = name == nullptr ? typeid(exception).name() : name;
    std::free(name);
    return "throws " + text;
}

}

namespace Sweep
{

Operations& All()
{
    static Operations operations;
    return operations;
}

void Try(const std::function<std::string()>& operation)
{
    using Kit::Leaks;
    using Kit::System;
    forgetLog();
    System::ForgetCalls();
    const int failuresBefore = System::FailuresDone();
    Arm(present);
    const std::int64_t madeBefore = Leaks::AllocationsMade();
    if (present.kind == Cell::Kind::NoMemory)
    {
        Leaks::RefuseAllocations(present.nth, present.times);
    }
    std::string result;
    const char* thrown = nullptr;
    try
    {
        result = operation();
    }
    catch (const std::bad_alloc&)
    {
        thrown = "throws std::bad_alloc";
    }
    catch (const std::exception& exception)
    {
        const std::int64_t refused = Leaks::RefusalsDone();
        result = NameOf(exception);
        outcome.failures += refused;
    }
    outcome.failures += Leaks::RefusalsDone();
    outcome.allocations = Leaks::AllocationsMade() - madeBefore;
    outcome.failures += System::FailuresDone() - failuresBefore;
    System::ForgetOrders();
    outcome.result = thrown != nullptr ? thrown : result;
    for (const System::Call& call : System::Calls())
    {
        if (std::strstr(call.function, "sleep") == nullptr) // it cannot fail, and is another thread's as well
        {
            outcome.functions.emplace_back(call.function);
        }
    }
}

}

namespace
{

std::string Joined(const std::vector<std::string>& texts, const char* between)
{
    std::string all;
    for (const std::string& text : texts)
    {
        all += (all.empty() ? "" : between) + text;
    }
    return all;
}

class SweepTest : public Kit::DeviceTest, public testing::WithParamInterface<std::string>
{
protected:
    /// Runs the cell and looks at what it left behind. @return its result, its lines in the log and what it
    /// left open
    std::string Run(const Cell& cell)
    {
        const std::map<int, std::string> before = OpenFiles();
        const int threadsBefore = Kit::Leaks::Present().threads;
        present = cell;
        {
            Outcome none;
            std::swap(outcome, none);
        }
        Sweep::All().at(GetParam())();
        present = {};
        std::string text = outcome.result;
        // A lock that was left held would hold this for ever.
        Tavbase::Tavlog::Logger::GetInstance()
            << Tavbase::Tavlog::LogType::Info << "still there" << std::endl;
        std::string raw = log.RawFile(logSeen);
        logSeen += raw.size();
        std::vector<std::string> lines = Kit::LogLines(raw);
        EXPECT_FALSE(lines.empty()) << Name(cell);
        if (!lines.empty())
        {
            EXPECT_NE(lines.back().find("still there"), std::string::npos)
                << Name(cell) << ": " << lines.back();
            lines.pop_back();
        }
        if (!lines.empty())
        {
            text += " | " + Joined(lines, " / ");
        }
        std::ranges::replace(text, '\n', ' ');
        std::map<int, std::string> left = OpenFiles();
        std::erase_if(left, [&](const auto& file) { return before.contains(file.first); });
        for (const auto& [fd, path] : left)
        {
            text += " (leaves a descriptor open)";
            close(fd);
        }
        ++cells;
        const int threads = Kit::Leaks::PresentWithThreads(threadsBefore).threads;
        EXPECT_LE(threads, threadsBefore) << Name(cell) << ": threads left behind";
        return text;
    }

    /// What the process has open, but for what the kit looks into to tell whether all threads wait.
    static std::map<int, std::string> OpenFiles()
    {
        std::map<int, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        {
            std::error_code gone;
            const std::string path = std::filesystem::read_symlink(entry.path(), gone);
            if (!gone && !path.starts_with("/proc/"))
            {
                files.emplace(std::stoi(entry.path().filename()), path);
            }
        }
        return files;
    }

    static std::string Name(const Cell& cell)
    {
        const auto* const error =
            std::ranges::find_if(ERRORS, [&](const Error& each) { return each.number == cell.error; });
        return cell.function + "#" + std::to_string(cell.nth) + (cell.times == 1 ? " once" : " for ever") +
               (error == ERRORS.end() ? "" : std::string(" ") + error->name);
    }

    /// All ways in which the function's nth call can fail, as lines of what came of it. @return whether one
    /// failed
    bool FailNth(const std::string& function, int nth, int times, const std::string& clean,
                 std::vector<std::string>& told)
    {
        std::vector<std::pair<std::string, std::string>> byOutcome; // outcome, errors
        bool failed = false;
        const auto run = [&](Cell cell, const std::string& name) {
            cell.function = function;
            cell.nth = nth;
            cell.times = cell.error == EINTR ? std::min(times, MOST_SIGNALS) : times;
            const std::string came = Run(cell);
            if (outcome.failures == 0)
            {
                return;
            }
            failed = true;
            const auto known =
                std::ranges::find_if(byOutcome, [&](const auto& each) { return each.first == came; });
            if (known == byOutcome.end())
            {
                byOutcome.emplace_back(came, name);
            }
            else
            {
                known->second += "," + name;
            }
        };
        if (function == "read" || function == "write")
        {
            run({.kind = Cell::Kind::GivesNothing}, "0");
            run({.kind = Cell::Kind::IsShort}, "short");
        }
        for (const Error& error : ERRORS)
        {
            if (!IsTried(GetParam(), error.number, nth, times))
            {
                continue;
            }
            run({.kind = Cell::Kind::Fails, .error = error.number}, error.name);
        }
        for (const auto& [came, errors] : byOutcome)
        {
            told.push_back(function + "#" + std::to_string(nth) + (times == 1 ? " once " : " for ever ") +
                           (errors.size() > 60 ? "any error" : errors) + ": " +
                           (came == clean ? "as ever" : came));
        }
        return failed;
    }

    SweepTest()
    {
        forgetLog = [this] { logSeen += log.RawFile(logSeen).size(); };
    }

    ~SweepTest() override
    {
        forgetLog = nullptr;
        Outcome none;
        std::swap(outcome, none); // whose memory is nobody's leak
    }

    std::size_t logSeen = 0;
};

TEST_P(SweepTest, EachFailureIsSurvivedAndHasItsResult)
{
    const std::string& name = GetParam();
    Run({}); // what is made once is made
    const std::string clean = Run({});
    std::vector<std::string> functions = outcome.functions;
    std::vector<std::string> told = {"calls: " + Joined(functions, " "), "result: " + clean};

    std::ranges::sort(functions);
    functions.erase(std::unique(functions.begin(), functions.end()), functions.end());
    for (const std::string& function : functions)
    {
        for (const int times : {1, FOR_EVER})
        {
            for (int nth = 1; nth <= mostCalls && FailNth(function, nth, times, clean, told); ++nth)
            {
            }
        }
    }
    for (const int times : {1, FOR_EVER})
    {
        for (int nth = 1; nth <= mostCalls; ++nth)
        {
            const std::string came =
                Run({.kind = Cell::Kind::NoThread, .function = "thread", .nth = nth, .times = times});
            if (outcome.failures == 0)
            {
                break;
            }
            told.push_back("thread#" + std::to_string(nth) + (times == 1 ? " once: " : " for ever: ") +
                           (came == clean ? "as ever" : came));
        }
    }

    const std::string path = std::string(SWEEP_EXPECTED) + "/" + name + ".txt";
    if (std::getenv("SWEEP_WRITE") != nullptr)
    {
        std::ofstream(path) << Joined(told, "\n") << "\n";
    }
    std::ifstream file(path);
    const std::string expected{std::istreambuf_iterator<char>(file), {}};
    if (!whole)
    {
        EXPECT_EQ(Joined(told, "\n") + "\n", expected) << name;
    }
}

// A sanitizer has the memory itself.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/// Memory: which allocation is which depends on the C++ library. All the more must hold for each.
TEST_P(SweepTest, EachRefusalOfMemoryIsSurvived)
{
    const std::int64_t mostAllocations = whole ? 1000 : 40;
    Run({});
    const std::string clean = Run({});
    for (const int times : {1, FOR_EVER})
    {
        for (std::int64_t nth = 1; nth <= mostAllocations; ++nth)
        {
            const std::string came = Run({.kind = Cell::Kind::NoMemory,
                                          .function = "memory",
                                          .nth = static_cast<int>(nth),
                                          .times = times});
            if (outcome.failures == 0)
            {
                EXPECT_EQ(came, clean);
                break;
            }
            if (came.find("(leaves") != std::string::npos)
            {
                ADD_FAILURE() << nth << (times == 1 ? " once: " : " for ever: ") << came;
            }
        }
    }
    EXPECT_EQ(Run({}), clean) << "as before";
}

#endif

std::vector<std::string> Names()
{
    std::vector<std::string> names;
    for (const auto& [name, operation] : Sweep::All())
    {
        names.push_back(name);
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Each, SweepTest, testing::ValuesIn(Names()), [](const auto& operation) {
    std::string name = operation.param;
    std::ranges::replace(name, '.', '_');
    return name;
});

}

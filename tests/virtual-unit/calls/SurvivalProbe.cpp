// What SurvivalTest runs on the virtual unit: a program that mistreats the supervisor and counts what the
// supervisor holds before and after. Arguments: the name of the trial, then the paths of the served devices.

#include "virtual-unit/calls/InterceptedCalls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <linux/capability.h>
#include <linux/hidraw.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/openat2.h>
#include <map>
#include <new>
#include <random>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using VirtualUnit::InterceptedCall;
using VirtualUnit::InterceptedCalls;
using Kind = InterceptedCall::Kind;
using Arguments = std::array<long, 6>;
using Paths = std::vector<std::string>;

constexpr const char* EVENT_DRIVER = "/dev/tav_event";
constexpr const char* I2C_ADAPTER = "/dev/i2c-1";
constexpr const char* HID_BRIDGE = "/dev/hidraw0";
constexpr const char* CARD_DIRECTORY = "/mnt/sdcard/directory";
constexpr const char* UNSERVED = "/dev/i2c-7";
constexpr const char* CARD_FILE = "/mnt/sdcard/file";
constexpr const char* NOWHERE = "/no-such-directory/file";
constexpr unsigned long PIN = 103;

constexpr unsigned int SEED = 20;

std::string program; // this one's path

long Address(const void* pointer)
{
    return reinterpret_cast<long>(pointer);
}

std::string Outcome(long result)
{
    return result < 0 ? strerrorname_np(errno) : "ok";
}

[[noreturn]] void Finish(int status)
{
    std::fflush(stdout);
    _exit(status);
}

/// Gives up what root may do beyond others, so that a call that reaches the kernel changes nothing here.
void GiveUpRights()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const std::array<__user_cap_data_struct, 2> none = {};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || syscall(SYS_capset, &header, none.data()) != 0)
    {
        std::perror("capset");
        _exit(1);
    }
}

/// Runs `work` in a child of few rights. @return its exit status, or 128 and the number of its signal
int InChild(const std::function<int()>& work)
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0)
    {
        GiveUpRights();
        Finish(work());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

long CountEntries(const std::string& directory)
{
    std::error_code error;
    const std::filesystem::directory_iterator entries(directory, error);
    return std::distance(begin(entries), end(entries));
}

/// What the supervisor holds.
struct Holdings
{
    explicit Holdings(pid_t supervisor)
    {
        const std::string process = "/proc/" + std::to_string(supervisor);
        descriptors = CountEntries(process + "/fd");
        threads = CountEntries(process + "/task");
        const std::string parent = "PPid:\t" + std::to_string(supervisor);
        for (const auto& entry : std::filesystem::directory_iterator("/proc"))
        {
            std::ifstream status(entry.path() / "status");
            for (std::string line; std::getline(status, line);)
            {
                children += line == parent ? 1 : 0;
            }
        }
    }

    bool operator==(const Holdings&) const = default;

    long descriptors;
    long threads;
    long children = 0;
};

/// The same, when nothing that the supervisor holds for a moment is among it.
Holdings SettledHoldings(pid_t supervisor)
{
    constexpr int LOOKS = 20; // a busy machine may stop the supervisor in the midst of it
    Holdings holdings(supervisor);
    for (int same = 0; same < LOOKS;)
    {
        usleep(10000);
        const Holdings later(supervisor);
        same = later == holdings ? same + 1 : 0;
        holdings = later;
    }
    return holdings;
}

/// Opens the device and lets it answer. @return false when it does not
bool UseDevice(const std::string& path)
{
    struct stat status = {};
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    const bool isDevice = fd >= 0 && stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode);
    const bool driven = ioctl(fd, PIN, 1) == 0; // no device but the event driver has pins
    close(fd);
    return isDevice && driven == (path == EVENT_DRIVER);
}

bool UseAll(const Paths& devices)
{
    return !devices.empty() && std::ranges::all_of(devices, UseDevice) && mkdir(CARD_DIRECTORY, 0700) == 0 &&
           rmdir(CARD_DIRECTORY) == 0;
}

/// The system calls that are held up, with arguments that are good.
class Calls
{
public:
    using Call = InterceptedCalls::Numbered;

    Calls()
    {
        address.sun_family = AF_UNIX;
        how.flags = OPEN_FLAGS;
        how.mode = FILE_MODE;
    }

    const std::vector<Call>& All() const { return intercepted.All(); }

    /// Of a call on a path. An ioctl is on the event driver, whatever the path.
    Arguments Good(const InterceptedCall& call, const char* path)
    {
        Arguments arguments = {};
        const bool onCard = std::string_view(path).starts_with("/mnt/");
        Name(arguments, call, call.path, path);
        Name(arguments, call, call.otherPath, onCard ? "/mnt/sdcard/other" : NOWHERE);
        const auto own = [&arguments, &call](int offset) -> long& {
            return arguments.at(static_cast<std::size_t>(call.argument + offset));
        };
        switch (call.kind)
        {
        case Kind::Open:
            own(0) = OPEN_FLAGS;
            own(1) = FILE_MODE;
            break;
        case Kind::OpenHow:
            own(0) = Address(&how);
            own(1) = sizeof(how);
            break;
        case Kind::Status:
            own(0) = Address(&status);
            break;
        case Kind::StatusX:
            own(1) = Address(&statusX);
            break;
        case Kind::VolumeStatus:
            own(0) = Address(&volume);
            break;
        case Kind::Create:
        case Kind::MakeDirectory:
        case Kind::ChangeMode:
            own(0) = FILE_MODE;
            break;
        case Kind::ChangeOwner:
            own(0) = -1;
            own(1) = -1;
            break;
        case Kind::Ioctl:
            own(0) = eventDriver;
            own(1) = PIN;
            own(2) = 1;
            break;
        default:
            break;
        }
        return arguments;
    }

    /// Which argument points at something else than the first path; NONE when none does.
    static int SecondPointerOf(const InterceptedCall& call)
    {
        switch (call.kind)
        {
        case Kind::OpenHow:
        case Kind::Status:
        case Kind::VolumeStatus:
        case Kind::ChangeTimes:
            return call.argument;
        case Kind::StatusX:
            return call.argument + 1;
        case Kind::Rename:
            return call.otherPath.index;
        default:
            return InterceptedCall::NONE;
        }
    }

    /// @return "ok" or the name of the errno. What was opened is closed.
    static std::string Make(const Call& call, const Arguments& arguments)
    {
        const long result = syscall(call.number, arguments[0], arguments[1], arguments[2], arguments[3],
                                    arguments[4], arguments[5]);
        const bool opens = call.call->kind == Kind::Open || call.call->kind == Kind::OpenHow ||
                           call.call->kind == Kind::Create;
        std::string outcome = Outcome(result);
        if (opens && result >= 0)
        {
            close(static_cast<int>(result));
        }
        return outcome;
    }

private:
    static constexpr int OPEN_FLAGS = O_RDWR | O_CREAT | O_NOCTTY | O_NONBLOCK;
    static constexpr int FILE_MODE = 0700;

    void Name(Arguments& arguments, const InterceptedCall& call, const InterceptedCall::NamedPath& where,
              const char* path)
    {
        if (where.index == InterceptedCall::NONE)
        {
            return;
        }
        const auto index = static_cast<std::size_t>(where.index);
        arguments.at(index) = Address(path);
        if (where.directory != InterceptedCall::NONE)
        {
            arguments.at(static_cast<std::size_t>(where.directory)) = AT_FDCWD;
        }
        if (call.kind == Kind::Socket)
        {
            std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
            arguments = {socketFd, Address(&address), sizeof(address)};
        }
    }

    const InterceptedCalls intercepted;
    const int eventDriver = open(EVENT_DRIVER, O_RDWR);
    const int socketFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    open_how how = {};
    struct stat status = {};
    struct statx statusX = {};
    struct statfs volume = {};
};

/// Addresses at which there is no path and no structure.
std::map<std::string, long> BadPointers()
{
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char* pages = static_cast<char*>(
        mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    munmap(pages + pageSize, pageSize);
    pages[pageSize - 1] = 'x';
    return {{"null", 0},
            {"one", 1},
            {"unmapped", Address(pages + pageSize)},
            {"last byte", Address(pages + pageSize - 1)},
            {"kernel", -static_cast<long>(pageSize)}};
}

// --- the trials; each prints what it saw

/// Generations of programs, each of which uses a device, starts the next one and ends at once.
int Orphans(const Paths& devices)
{
    constexpr int FAMILIES = 8;
    constexpr int GENERATIONS = 6;
    std::array<int, 2> ends = {};
    if (pipe(ends.data()) != 0)
    {
        return 1;
    }
    for (int family = 0; family < FAMILIES; ++family)
    {
        if (fork() == 0)
        {
            const std::string generations = std::to_string(GENERATIONS);
            const std::string reports = std::to_string(ends[1]);
            execl(program.c_str(), program.c_str(), "generation", generations.c_str(), reports.c_str(),
                  devices[static_cast<std::size_t>(family) % devices.size()].c_str(), nullptr);
            _exit(1);
        }
    }
    close(ends[1]);
    std::string reports;
    char report = 0;
    while (read(ends[0], &report, 1) == 1) // until the last of them has ended
    {
        reports += report;
    }
    close(ends[0]);
    while (wait(nullptr) > 0)
    {
    }
    std::printf("generations that used a device: %d of %d\n",
                static_cast<int>(std::ranges::count(reports, '+')), FAMILIES * GENERATIONS);
    return 0;
}

/// Arguments: how many generations are to be, the descriptor that takes the reports, the device.
int Generation(const Paths& arguments)
{
    const int left = std::stoi(arguments.at(0)) - 1;
    const std::string& reports = arguments.at(1);
    const std::string& device = arguments.at(2);
    const char report = UseDevice(device) ? '+' : '-';
    const bool told = write(std::stoi(reports), &report, 1) == 1;
    if (left > 0 && fork() == 0)
    {
        execl(program.c_str(), program.c_str(), "generation", std::to_string(left).c_str(), reports.c_str(),
              device.c_str(), nullptr);
    }
    _exit(told ? 0 : 1);
}

int Use(const Paths& devices)
{
    return UseAll(devices) ? 0 : 1;
}

int Closed(const Paths& devices)
{
    const auto closeAll = [] { return syscall(SYS_close_range, 0U, ~0U, 0U) == 0; };
    std::printf("in the program: %d\n", InChild([&] { return closeAll() ? Use(devices) : 1; }));
    std::printf("in the next: %d\n", InChild([&] {
                    std::vector<char*> arguments = {program.data(), const_cast<char*>("use")};
                    for (const std::string& device : devices)
                    {
                        arguments.push_back(const_cast<char*>(device.c_str()));
                    }
                    arguments.push_back(nullptr);
                    return closeAll() ? execv(program.c_str(), arguments.data()) : 1;
                }));
    return 0;
}

int Threads(const Paths& devices)
{
    constexpr int THREADS = 20;
    constexpr int TIMES = 25;
    std::atomic<int> used = 0;
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    const long before = CountEntries("/proc/self/fd");
    for (int thread = 0; thread < THREADS; ++thread)
    {
        threads.emplace_back([&] {
            for (int time = 0; time < TIMES; ++time)
            {
                used += static_cast<int>(std::ranges::count_if(devices, UseDevice));
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    std::printf("missed %ld, descriptors left %ld\n",
                THREADS * TIMES * static_cast<long>(devices.size()) - used,
                CountEntries("/proc/self/fd") - before);
    return 0;
}

/// How often a child has begun a call and come back from it.
struct Progress
{
    std::atomic<unsigned int> begun = 0;
    std::atomic<unsigned int> done = 0;
};

/// Makes the call over and over, until it is killed.
[[noreturn]] void MakeForEver(const Calls::Call& call, Calls& calls, Progress& progress)
{
    GiveUpRights();
    for (;;)
    {
        for (const char* path : {EVENT_DRIVER, CARD_FILE, UNSERVED, NOWHERE})
        {
            const Arguments arguments = calls.Good(*call.call, path);
            ++progress.begun;
            Calls::Make(call, arguments);
            ++progress.done;
        }
    }
}

Progress& SharedProgress()
{
    return *new (mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
        Progress();
}

void AwaitBegun(const Progress& progress)
{
    while (progress.begun == 0)
    {
        usleep(10);
    }
}

int Killed(const Paths& devices)
{
    constexpr int TIMES = 10;
    constexpr int MOST_TIMES =
        1000; // a machine that is busy elsewhere may stop the child between its calls each time
    constexpr useconds_t LONGEST_LIFE = 200;
    constexpr useconds_t LONGEST_LIFE_OF_THREADS = 5000;
    Calls calls;
    Progress& progress = SharedProgress();
    std::mt19937 random(SEED);
    int never = 0;
    for (const Calls::Call& call : calls.All())
    {
        int inTheMidst = 0;
        for (int time = 0; time < TIMES || (inTheMidst == 0 && time < MOST_TIMES); ++time)
        {
            progress.begun = 0;
            progress.done = 0;
            const pid_t child = fork();
            if (child == 0)
            {
                MakeForEver(call, calls, progress);
            }
            AwaitBegun(progress);
            usleep(static_cast<useconds_t>(random() % LONGEST_LIFE));
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            inTheMidst += progress.begun != progress.done ? 1 : 0;
        }
        if (inTheMidst == 0)
        {
            std::printf("never killed in the midst of %s\n", call.call->name);
            ++never;
        }
    }
    for (int time = 0; time < TIMES; ++time)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            _exit(Threads(devices));
        }
        usleep(static_cast<useconds_t>(random() % LONGEST_LIFE_OF_THREADS));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    std::printf("calls %zu, never killed in the midst of %d\n", calls.All().size(), never);
    return 0;
}

/// Ends by SIGKILL while its children make calls.
int Abandoned(const Paths&)
{
    Calls calls;
    for (std::size_t i = 0; i < calls.All().size(); i += 8)
    {
        Progress& progress = SharedProgress();
        if (fork() == 0)
        {
            MakeForEver(calls.All()[i], calls, progress);
        }
        AwaitBegun(progress);
    }
    return raise(SIGKILL);
}

std::atomic<int> signals = 0;

int MakeInterrupted()
{
    constexpr int TIMES = 30;
    constexpr itimerval INTERVAL = {{0, 20}, {0, 20}};
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signals; }; // without SA_RESTART: interrupted calls end with EINTR
    sigaction(SIGALRM, &action, nullptr);

    Calls calls;
    const long before = CountEntries("/proc/self/fd");
    int interrupted = 0;
    for (const Calls::Call& call : calls.All())
    {
        const Arguments arguments = calls.Good(*call.call, EVENT_DRIVER);
        const std::string undisturbed = Calls::Make(call, arguments);
        std::map<std::string, int> outcomes;
        setitimer(ITIMER_REAL, &INTERVAL, nullptr);
        for (int time = 0; time < TIMES; ++time)
        {
            ++outcomes[Calls::Make(call, arguments)];
        }
        const itimerval none = {};
        setitimer(ITIMER_REAL, &none, nullptr);
        interrupted += outcomes["EINTR"];
        outcomes.erase("EINTR");
        outcomes.erase(undisturbed);
        for (const auto& [outcome, times] : outcomes)
        {
            std::printf("%s: %s instead of %s\n", call.call->name, outcome.c_str(), undisturbed.c_str());
        }
    }
    std::printf("signals %s, interrupted %s, descriptors left %ld\n", signals > 0 ? "some" : "none",
                interrupted > 0 ? "some" : "none", CountEntries("/proc/self/fd") - before);
    return 0;
}

int Interrupted(const Paths&)
{
    return InChild(MakeInterrupted);
}

/// Each path of each call at each bad address. Without the virtual unit: what the kernel says to them.
int BadPaths(const Paths&)
{
    return InChild([] {
        Calls calls;
        for (const Calls::Call& call : calls.All())
        {
            for (const InterceptedCall::NamedPath& where : {call.call->path, call.call->otherPath})
            {
                for (const auto& [what, address] : BadPointers())
                {
                    if (where.index != InterceptedCall::NONE)
                    {
                        Arguments arguments = calls.Good(*call.call, NOWHERE);
                        arguments.at(static_cast<std::size_t>(where.index)) = address;
                        std::printf("%s, argument %d %s: %s\n", call.call->name, where.index, what.c_str(),
                                    Calls::Make(call, arguments).c_str());
                    }
                }
            }
        }
        return 0;
    });
}

/// Each structure of each call at each bad address: of a file on the card, which the supervisor answers, and
/// of an ordinary one, which the kernel does.
void PrintBadStructures()
{
    Calls calls;
    const std::string ordinary = std::filesystem::temp_directory_path() / "ordinary";
    std::ofstream(ordinary) << "";
    std::ofstream(CARD_FILE) << "";
    int tried = 0;
    for (const Calls::Call& call : calls.All())
    {
        const int place = Calls::SecondPointerOf(*call.call);
        for (const auto& [what, address] : BadPointers())
        {
            if (place == InterceptedCall::NONE)
            {
                break;
            }
            const auto make = [&](const char* path) {
                Arguments arguments = calls.Good(*call.call, path);
                arguments.at(static_cast<std::size_t>(place)) = address;
                return Calls::Make(call, arguments);
            };
            const std::string byKernel = make(ordinary.c_str());
            const std::string onCard = make(CARD_FILE);
            const std::string ofDevice = make(EVENT_DRIVER);
            ++tried;
            if (onCard != byKernel || (ofDevice != byKernel && ofDevice != "EPERM"))
            {
                std::printf("%s, structure %s: %s, %s on the card, %s of a device\n", call.call->name,
                            what.c_str(), byKernel.c_str(), onCard.c_str(), ofDevice.c_str());
            }
        }
    }
    std::filesystem::remove(ordinary);
    std::printf("structures %s\n", tried > 0 ? "tried" : "none");
}

void PrintBadTransfers()
{
    const int adapter = open(I2C_ADAPTER, O_RDWR);
    const int bridge = open(HID_BRIDGE, O_RDWR);
    ioctl(adapter, I2C_SLAVE, 0x1C);
    for (const auto& [what, address] : BadPointers())
    {
        auto* const data = reinterpret_cast<i2c_smbus_data*>(address);
        i2c_smbus_ioctl_data transfer = {I2C_SMBUS_READ, 0x0D, I2C_SMBUS_I2C_BLOCK_DATA, data};
        std::printf("%s: transfer %s, its data %s, info %s, name %s\n", what.c_str(),
                    Outcome(ioctl(adapter, I2C_SMBUS, address)).c_str(),
                    Outcome(ioctl(adapter, I2C_SMBUS, &transfer)).c_str(),
                    Outcome(ioctl(bridge, HIDIOCGRAWINFO, address)).c_str(),
                    Outcome(ioctl(bridge, HIDIOCGRAWNAME(256), address)).c_str());
    }
}

int BadStructures(const Paths&)
{
    return InChild([] {
        PrintBadStructures();
        PrintBadTransfers();
        return 0;
    });
}

}

int main(int argc, char** argv)
{
    const std::map<std::string, std::function<int(const Paths&)>> parts = {
        {"use", Use}, {"generation", Generation}, {"bad-paths", BadPaths}};
    const std::map<std::string, std::function<int(const Paths&)>> trials = {
        {"orphans", Orphans},     {"closed", Closed},
        {"threads", Threads},     {"killed", Killed},
        {"abandoned", Abandoned}, {"interrupted", Interrupted},
        {"bad-paths", BadPaths},  {"bad-structures", BadStructures}};
    const Paths arguments(argv + 1, argv + argc);
    program = argv[0];
    const bool counted = arguments.at(0) == "counted";
    const std::string& name = arguments.at(counted ? 1 : 0);
    const Paths devices(arguments.begin() + (counted ? 2 : 1), arguments.end());
    if (!counted)
    {
        return parts.at(name)(devices);
    }

    const pid_t supervisor = getppid();
    const bool served = UseAll(devices);
    const Holdings before = SettledHoldings(supervisor);
    if (before.descriptors == 0 || before.children == 0)
    {
        std::printf("the supervisor cannot be looked into\n");
        return 1;
    }
    const int status = trials.at(name)(devices);
    const bool stillServed = UseAll(devices);
    Holdings after(supervisor);
    constexpr int MOST_WAITS = 12'000; // a minute
    for (int wait = 0; wait < MOST_WAITS && after != before;
         ++wait) // it takes orphans away when it comes to it
    {
        usleep(5000);
        after = Holdings(supervisor);
    }
    std::printf("served %d, then %d\n", served, stillServed);
    std::printf("left: descriptors %ld, threads %ld, children %ld\n", after.descriptors - before.descriptors,
                after.threads - before.threads, after.children - before.children);
    return status;
}

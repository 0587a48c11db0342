// What PreloadTest runs on the unit, by either way: functions of the C library that make several system calls
// by themselves, programs that execute others, threads, and signals. It tells what each of them gave.
// Argument: the name of the trial.

#include "tests/virtual-unit/run/OtherNames.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ftw.h>
#include <glob.h>
#include <mntent.h>
#include <new>
#include <spawn.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr const char* DIRECTORY = "/mnt/sdcard/db";
constexpr const char* FILE_PATH = "/mnt/sdcard/db/file";
constexpr const char* GPS = "/dev/ttymxc0";
constexpr const char* EVENT_DRIVER = "/dev/tav_event";
constexpr unsigned long PIN = 103;

const char* program;

void Tell(const char* what, bool succeeded)
{
    std::printf("%s: %s\n", what, succeeded ? "ok" : strerrorname_np(errno));
}

void Tell(const char* what, const std::string& result)
{
    std::printf("%s: %s\n", what, result.c_str());
}

std::string Content(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

int Visit(const char* path, const struct stat*, int type, FTW* place)
{
    std::printf("visited %s, %d, %s, level %d\n", path, type, path + place->base, place->level);
    return 0;
}

int Library()
{
    Tell("mkdir", mkdir(DIRECTORY, 0755) == 0);
    std::FILE* const written = std::fopen(FILE_PATH, "we");
    Tell("fopen", written != nullptr && std::fputs("text\n", written) >= 0 && std::fclose(written) == 0);
    Tell("fopen of what is there", std::fopen(FILE_PATH, "wx") != nullptr);
    Tell("fopen of nothing", std::fopen("/mnt/sdcard/db/none", "r") != nullptr);
    std::ofstream(FILE_PATH, std::ios::app) << "more\n";
    Tell("fstream", Content(FILE_PATH) == "text\nmore\n");

    DIR* const directory = opendir("/mnt/sdcard");
    const dirent* entry = nullptr;
    while (directory != nullptr && (entry = readdir(directory)) != nullptr)
    {
        std::printf("%s",
                    entry->d_name[0] == '.' ? "" : (std::string("entry ") + entry->d_name + "\n").c_str());
    }
    Tell("opendir", directory != nullptr && closedir(directory) == 0);
    dirent** names = nullptr;
    const int count = scandir(DIRECTORY, &names, nullptr, alphasort);
    std::printf("scandir: %d\n", count);
    for (int i = 0; i < count; ++i)
    {
        std::free(names[i]);
    }
    std::free(names);
    glob_t found = {};
    Tell("glob",
         glob("/mnt/sdcard/d*/f*", 0, nullptr, &found) == 0 ? std::string(found.gl_pathv[0]) : "nothing");
    globfree(&found);
    std::printf("nftw: %d\n", nftw("/mnt/sdcard/db/", Visit, 8, FTW_PHYS | FTW_DEPTH));

    std::array<char, 4096> path = {};
    Tell("realpath",
         std::string(realpath("/mnt/sdcard/./db/../db/file", path.data()) != nullptr ? path.data() : "none"));
    Tell("realpath of a port",
         std::string(realpath("/dev/../dev/ttymxc0", path.data()) != nullptr ? path.data() : "none"));
    Tell("realpath of nothing", realpath("/mnt/sdcard/none", path.data()) != nullptr);
    Tell("canonical", std::filesystem::canonical("/mnt/sdcard/db").string());
    Tell("exists", std::filesystem::exists(FILE_PATH) && !std::filesystem::exists("/mnt/sdcard/none"));

    char name[] = "/mnt/sdcard/db/XXXXXX";
    const int temporary = mkstemp(name);
    Tell("mkstemp", temporary >= 0 && write(temporary, "1", 1) == 1 && Content(name) == "1");
    char directoryName[] = "/mnt/sdcard/XXXXXX";
    Tell("mkdtemp", mkdtemp(directoryName) != nullptr && remove(directoryName) == 0);
    Tell("remove", remove(name) == 0);
    struct statvfs volume = {};
    Tell("statvfs", statvfs("/mnt/sdcard", &volume) == 0 && volume.f_blocks > 0);
    std::FILE* const mounts = setmntent("/proc/mounts", "r");
    while (const mntent* const mount = mounts != nullptr ? getmntent(mounts) : nullptr)
    {
        std::printf("mounted %s\n", mount->mnt_dir);
    }
    Tell("freopen", freopen(FILE_PATH, "r", stdin) != nullptr && std::getchar() == 't');
    const timeval times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    struct stat status = {};
    Tell("utimes",
         utimes(FILE_PATH, times) == 0 && stat(FILE_PATH, &status) == 0 && status.st_mtime == 1'000'000'000);
    Tell("rename", rename(FILE_PATH, "/mnt/sdcard/other") == 0);
    Tell("rename out", rename("/mnt/sdcard/other", "/tmp/other") == 0);
    Tell("access", access("/mnt/sdcard/other", R_OK) == 0);
    Tell("chdir", chdir(DIRECTORY) == 0);
    Tell("unlink", unlink("/mnt/sdcard/other") == 0 && rmdir(DIRECTORY) == 0);
    return 0;
}

int Drivers()
{
    const int low = open("/dev/null", O_RDONLY);
    close(low);
    const int events = open(EVENT_DRIVER, O_RDWR | O_CLOEXEC);
    Tell("the lowest number", events == low);
    Tell("closed on exec", (fcntl(events, F_GETFD) & FD_CLOEXEC) != 0);
    std::printf("pin: %d\n", ioctl(events, PIN, 1));
    std::printf("by syscall(): %ld\n", syscall(SYS_ioctl, events, PIN, 0));
    const int bridge = open("/dev/hidraw0", O_RDWR);
    Tell("held writes", bridge >= 960);
    const int gps = open(GPS, O_RDWR | O_NOCTTY);
    Tell("a terminal", isatty(gps) == 1 && tcdrain(gps) == 0);
    Tell("what is not served", open("/dev/ttymxc1", O_RDWR) >= 0);
    Tell("at a bad address", open(reinterpret_cast<const char*>(8), O_RDONLY) >= 0);
    Tell("to a bad address",
         fstatat(AT_FDCWD, GPS, reinterpret_cast<struct stat*>(8), 0) == 0); // NOLINT: that is what is tried
    return 0;
}

/// @return whether the port is there for this process
int See()
{
    struct stat status = {};
    return stat(GPS, &status) == 0 && S_ISCHR(status.st_mode) ? 0 : 1;
}

int Wait(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int Programs()
{
    std::string trial = "see";
    char* const arguments[] = {const_cast<char*>(program), trial.data(), nullptr};
    char* const empty[] = {nullptr};
    pid_t child = fork();
    if (child == 0)
    {
        _exit(See());
    }
    std::printf("fork: %d\n", Wait(child));
    child = fork();
    if (child == 0)
    {
        execve(program, arguments, empty);
        _exit(99);
    }
    std::printf("an empty environment: %d\n", Wait(child));
    child = vfork(); // NOLINT: that is what is tried
    if (child == 0)
    {
        execv(program, arguments);
        _exit(99);
    }
    std::printf("vfork: %d\n", Wait(child));
    child = fork();
    if (child == 0)
    {
        execlp("test", "test", "-c", GPS, nullptr);
        _exit(99);
    }
    std::printf("execlp: %d\n", Wait(child));
    posix_spawn(&child, program, nullptr, nullptr, arguments, empty);
    std::printf("posix_spawn: %d\n", Wait(child));
    std::printf("of the card: %d\n",
                posix_spawn(&child, "/mnt/sdcard", nullptr, nullptr, arguments, empty) != 0);
    std::printf("system: %d\n", std::system((std::string("test -c ") + GPS).c_str()));
    child = fork();
    if (child == 0)
    {
        closefrom(0);
        _exit(See());
    }
    std::printf("closefrom: %d\n", Wait(child));
    errno = 0;
    execlp("no-such-program", "no-such-program", nullptr);
    Tell("what is not there", errno == 0);
    return 0;
}

int Threads()
{
    constexpr int COUNT = 8;
    constexpr int TIMES = 50;
    std::atomic<int> seen = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < COUNT; ++i)
    {
        threads.emplace_back([&seen, i] {
            for (int time = 0; time < TIMES; ++time)
            {
                seen += See() == 0 ? 1 : 0;
                if (i == 0 && time % 10 == 0)
                {
                    const pid_t child = fork();
                    if (child == 0)
                    {
                        _exit(See());
                    }
                    seen -= Wait(child);
                }
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    std::printf("seen %d, descriptors %ld\n", seen.load(), std::distance(begin(descriptors), {}));
    return 0;
}

std::atomic<int> signals = 0;

/// Signals come while calls on a slow card wait: each is handled, and none is made twice.
int Signals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signals; };
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 3000}, {0, 3000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (const char* const path : {"/mnt/sdcard/one", "/mnt/sdcard/two", "/mnt/sdcard/three"})
    {
        Tell(path, mkdir(path, 0700) == 0);
    }
    Tell("handled", signals > 0);
    return 0;
}

}

int main(int argc, char** argv)
{
    program = argv[0];
    const std::string trial = argc > 1 ? argv[1] : "";
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    return trial == "library"    ? Library()
           : trial == "drivers"  ? Drivers()
           : trial == "programs" ? Programs()
           : trial == "threads"  ? Threads()
           : trial == "names"    ? OtherNames()
           : trial == "signals"  ? Signals()
           : trial == "see"      ? See()
                                 : 2;
}

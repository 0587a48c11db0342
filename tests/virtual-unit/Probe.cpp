// What the supervisor's tests run on the virtual unit: small programs, each with its name as the first
// argument, that print what they saw.

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/openat2.h>
#include <map>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr const char* PORT = "/dev/ttymxc0";

using Arguments = std::vector<std::string>;

void Print(const std::string& what, long result)
{
    std::printf("%s %s\n", what.c_str(), result < 0 ? strerrorname_np(errno) : "ok");
}

int OpenRaw()
{
    const int fd = open(PORT, O_RDWR | O_NOCTTY);
    termios settings = {};
    if (fd < 0 || tcgetattr(fd, &settings) != 0)
    {
        std::perror(PORT);
        _exit(1);
    }
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
    return fd;
}

/// @return false when nothing more comes for `milliseconds`
bool ReadByte(int fd, char& c, int milliseconds)
{
    pollfd event = {fd, POLLIN, 0};
    return poll(&event, 1, milliseconds) == 1 && read(fd, &c, 1) == 1;
}

bool ReadLine(int fd, std::string& line, int milliseconds)
{
    line.clear();
    char c = 0;
    while (ReadByte(fd, c, milliseconds))
    {
        if (c == '\n')
        {
            return true;
        }
        line += c;
    }
    return false;
}

/// Each call that names a file, on one path.
int Calls(const Arguments& arguments)
{
    const char* path = arguments.at(0).c_str();
    struct stat status = {};
    struct statx statusX = {};
    open_how how = {O_RDWR | O_NOCTTY, 0, 0};
    std::array<char, 64> text = {};
#ifdef SYS_open
    Print("open", syscall(SYS_open, path, O_RDWR | O_NOCTTY));
    Print("creat", syscall(SYS_creat, path, 0600));
    Print("access", syscall(SYS_access, path, R_OK | W_OK));
    Print("stat", syscall(SYS_stat, path, &status));
    Print("lstat", syscall(SYS_lstat, path, &status));
    Print("readlink", syscall(SYS_readlink, path, text.data(), text.size()));
    Print("unlink", syscall(SYS_unlink, path));
    Print("rename", syscall(SYS_rename, path, "/tmp/no-such-directory/file"));
    Print("chmod", syscall(SYS_chmod, path, 0600));
#endif
    Print("openat", syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_NOCTTY));
    Print("openat2", syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof(how)));
    Print("faccessat", syscall(SYS_faccessat, AT_FDCWD, path, F_OK));
    Print("faccessat2", syscall(SYS_faccessat2, AT_FDCWD, path, R_OK, 0));
    Print("newfstatat", syscall(SYS_newfstatat, AT_FDCWD, path, &status, 0));
    Print("statx", syscall(SYS_statx, AT_FDCWD, path, 0, STATX_BASIC_STATS, &statusX));
    Print("readlinkat", syscall(SYS_readlinkat, AT_FDCWD, path, text.data(), text.size()));
    Print("getxattr", syscall(SYS_getxattr, path, "user.x", text.data(), text.size()));
    Print("unlinkat", syscall(SYS_unlinkat, AT_FDCWD, path, 0));
    Print("renameat2", syscall(SYS_renameat2, AT_FDCWD, path, AT_FDCWD, "/tmp/no-such-directory/file", 0));
    Print("truncate", syscall(SYS_truncate, path, 0));
    Print("fchmodat", syscall(SYS_fchmodat, AT_FDCWD, path, 0600));
    return 0;
}

int Flags(const Arguments&)
{
    Print("O_CREAT|O_EXCL", open(PORT, O_RDWR | O_CREAT | O_EXCL, 0600));
    Print("O_CREAT", open(PORT, O_RDWR | O_CREAT | O_NOCTTY, 0600));
    Print("O_DIRECTORY", open(PORT, O_RDONLY | O_DIRECTORY));
    Print("X_OK", access(PORT, X_OK));
    const int kept = open(PORT, O_RDWR);
    const int closed = open(PORT, O_RDWR | O_CLOEXEC | O_NONBLOCK);
    std::printf("close on exec: %d %d\n", fcntl(kept, F_GETFD) & FD_CLOEXEC,
                fcntl(closed, F_GETFD) & FD_CLOEXEC);
    std::printf("non-blocking: %d %d\n", (fcntl(kept, F_GETFL) & O_NONBLOCK) != 0,
                (fcntl(closed, F_GETFL) & O_NONBLOCK) != 0);
    return 0;
}

int Terminal(const Arguments&)
{
    struct stat byPath = {};
    struct stat byDescriptor = {};
    const int fd = open(PORT, O_RDWR | O_NOCTTY);
    std::printf("terminal: %d\n", isatty(fd));
    std::printf("character device: %d\n", stat(PORT, &byPath) == 0 && S_ISCHR(byPath.st_mode));
    std::printf("same device: %d\n", fstat(fd, &byDescriptor) == 0 && byPath.st_rdev == byDescriptor.st_rdev);

    termios settings = {};
    tcgetattr(fd, &settings);
    std::printf("at first: speed 9600 %d, 8 bits %d, echo %d\n", cfgetospeed(&settings) == B9600,
                (settings.c_cflag & CSIZE) == CS8, (settings.c_lflag & ECHO) != 0);
    settings.c_lflag = ICANON;
    settings.c_iflag = IGNPAR;
    settings.c_oflag = 0;
    cfsetospeed(&settings, B115200);
    tcsetattr(fd, TCSANOW, &settings);
    termios back = {};
    tcgetattr(fd, &back);
    std::printf("kept: %d\n", back.c_lflag == ICANON && back.c_iflag == IGNPAR && back.c_oflag == 0 &&
                                  cfgetospeed(&back) == B115200);
    return 0;
}

int Lines(const Arguments& arguments)
{
    const int fd = OpenRaw();
    std::string line;
    for (int rest = std::stoi(arguments.at(0)); rest > 0 && ReadLine(fd, line, 3000); --rest)
    {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

int Release(const Arguments&)
{
    const int fd = OpenRaw();
    const std::string_view query = "$PMTK605*31\r\n";
    Print("write", write(fd, query.data(), query.size()));
    std::string line;
    std::printf("%s\n", ReadLine(fd, line, 500) ? line.c_str() : "no answer");
    return 0;
}

int Threads(const Arguments&)
{
    std::atomic<int> opened = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 20; ++i)
    {
        threads.emplace_back([&opened] {
            for (int k = 0; k < 10; ++k)
            {
                const int fd = open(PORT, O_RDWR | O_NOCTTY);
                opened += isatty(fd);
                close(fd);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    std::printf("opened %d\n", opened.load());
    return 0;
}

int BadPointers(const Arguments&)
{
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char* pages = static_cast<char*>(
        mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    munmap(pages + pageSize, pageSize);
    const std::size_t length = std::strlen(PORT) + 1;
    char* atTheEnd = pages + pageSize - length;
    std::memcpy(atTheEnd, PORT, length);
    const std::string tooLong(PATH_MAX, 'x');
    const std::intptr_t nowhere = 8;

    Print("null", syscall(SYS_openat, AT_FDCWD, nullptr, O_RDONLY));
    Print("unmapped", syscall(SYS_openat, AT_FDCWD, nowhere, O_RDONLY));
    Print("up to the end of a page", syscall(SYS_openat, AT_FDCWD, atTheEnd, O_RDONLY | O_NOCTTY));
    std::memset(atTheEnd, 'x', length);
    Print("beyond the end of a page", syscall(SYS_openat, AT_FDCWD, atTheEnd, O_RDONLY));
    Print("too long", syscall(SYS_openat, AT_FDCWD, tooLong.c_str(), O_RDONLY));
    Print("empty", syscall(SYS_openat, AT_FDCWD, "", O_RDONLY));
    Print("status to nowhere", syscall(SYS_newfstatat, AT_FDCWD, PORT, nowhere, 0));
    Print("openat2 from nowhere", syscall(SYS_openat2, AT_FDCWD, PORT, nowhere, sizeof(open_how)));
    Print("openat2 with a short structure", syscall(SYS_openat2, AT_FDCWD, PORT, nowhere, 4));
    Print("no such directory", syscall(SYS_openat, 12345, "ttymxc0", O_RDONLY));
    return 0;
}

int Relative(const Arguments&)
{
    Print("dots and slashes", open("/dev/./../dev//ttymxc0", O_RDWR | O_NOCTTY));
    const int directory = open("/dev", O_RDONLY | O_DIRECTORY);
    Print("by descriptor", openat(directory, "ttymxc0", O_RDWR | O_NOCTTY));
    Print("refused by descriptor", openat(directory, "serial/by-id/some-adapter", O_RDWR | O_NOCTTY));
    Print("chdir", chdir("/dev"));
    Print("by working directory", open("ttymxc0", O_RDWR | O_NOCTTY));
    Print("refused by working directory", open("i2c-0", O_RDWR));
    return 0;
}

/// Arguments that the kernel refuses with other errors, should one of them ever reach it.
int Forbidden(const Arguments&)
{
    Print("umount2", syscall(SYS_umount2, "/no-such-mount-point", 0));
    Print("reboot", syscall(SYS_reboot, 0, 0, 0, nullptr));
    Print("io_uring_setup", syscall(SYS_io_uring_setup, 0, nullptr));
    return 0;
}

int Fill(const Arguments&)
{
    std::vector<int> all;
    int fd = 0;
    while ((fd = open("/dev/null", O_RDONLY)) >= 0)
    {
        all.push_back(fd);
    }
    Print("one too many", open(PORT, O_RDWR));
    close(all.back());
    Print("one less", open(PORT, O_RDWR));
    for (const int each : all)
    {
        close(each); // a sanitizer needs some at the end
    }
    return 0;
}

void End(int)
{
    constexpr std::string_view TEXT = "ended by a signal\n";
    _exit(write(STDOUT_FILENO, TEXT.data(), TEXT.size()) > 0 ? 9 : 1);
}

/// Waits for a signal; ends with 9 on those that were named.
int Wait(const Arguments& arguments)
{
    for (const std::string& number : arguments)
    {
        std::signal(std::stoi(number), End);
    }
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;)
    {
        pause();
    }
}

/// Waits, deaf to the signals that were named.
int Ignore(const Arguments& arguments)
{
    for (const std::string& number : arguments)
    {
        std::signal(std::stoi(number), SIG_IGN);
    }
    return Wait({});
}

int Crash(const Arguments&)
{
    std::signal(SIGSEGV, SIG_DFL); // a sanitizer has its own
    return raise(SIGSEGV);
}

}

int main(int argc, char** argv)
{
    const std::map<std::string, std::function<int(const Arguments&)>> probes = {{"calls", Calls},
                                                                                {"flags", Flags},
                                                                                {"terminal", Terminal},
                                                                                {"lines", Lines},
                                                                                {"release", Release},
                                                                                {"threads", Threads},
                                                                                {"bad-pointers", BadPointers},
                                                                                {"relative", Relative},
                                                                                {"forbidden", Forbidden},
                                                                                {"fill", Fill},
                                                                                {"wait", Wait},
                                                                                {"ignore", Ignore},
                                                                                {"crash", Crash}};
    const Arguments arguments(argv + 1, argv + argc);
    return probes.at(arguments.at(0))(Arguments(arguments.begin() + 1, arguments.end()));
}

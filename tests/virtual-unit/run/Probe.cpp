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
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr const char* PORT = "/dev/ttymxc0";
constexpr int PATIENCE_MILLISECONDS = 100'000; // against hanging

using Arguments = std::vector<std::string>;

void Print(const std::string& what, long result)
{
    std::printf("%s %s\n", what.c_str(), result < 0 ? strerrorname_np(errno) : "ok");
}

int OpenRaw(const char* path = PORT)
{
    const int fd = open(path, O_RDWR | O_NOCTTY);
    termios settings = {};
    if (fd < 0 || tcgetattr(fd, &settings) != 0)
    {
        std::perror(path);
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
    for (int rest = std::stoi(arguments.at(0)); rest > 0 && ReadLine(fd, line, PATIENCE_MILLISECONDS); --rest)
    {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

/// The answer to the query of the release, behind the sentences that may come before it. The argument, if
/// there is one, is for how many milliseconds nothing comes when there is no answer.
int Release(const Arguments& arguments)
{
    const int patience = arguments.empty() ? PATIENCE_MILLISECONDS : std::stoi(arguments.front());
    const int fd = OpenRaw();
    const std::string_view query = "$PMTK605*31\r\n";
    Print("write", write(fd, query.data(), query.size()));
    std::string line;
    bool heard = false;
    do
    {
        heard = ReadLine(fd, line, patience);
    } while (heard && !line.starts_with("$PMTK"));
    std::printf("%s\n", heard ? line.c_str() : "no answer");
    return 0;
}

/// One command frame to a path, in hexadecimal digits, and the frame that comes back.
int Ask(const Arguments& arguments)
{
    const std::string& digits = arguments.at(1);
    std::string command;
    for (std::size_t at = 0; at < digits.size(); at += 2)
    {
        command += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    }
    const int fd = OpenRaw(arguments.at(0).c_str());
    std::string reply;
    char c = 0;
    if (write(fd, command.data(), command.size()) > 0)
    {
        while (!reply.ends_with("\xEF\x0D") && ReadByte(fd, c, PATIENCE_MILLISECONDS))
        {
            reply += c;
        }
    }
    for (const char byte : reply)
    {
        std::printf("%02X", static_cast<unsigned char>(byte));
    }
    std::printf("\n");
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

constexpr const char* CARD = "/mnt/sdcard";

/// Calls on the storage card, which is empty at first, by whole paths.
int Card(const Arguments&)
{
    constexpr const char* DIRECTORY = "/mnt/sdcard/db";
    constexpr const char* FILE = "/mnt/sdcard/db/file";
    constexpr const char* OTHER = "/mnt/sdcard/db/other";
    constexpr const char* OUTSIDE = "/tmp/no-such-directory/file";
    constexpr long FCHMODAT2 = 452;
    constexpr long SETXATTRAT = 463;
    const std::intptr_t nowhere = 8;
    struct stat status = {};
    struct statx statusX = {};
    struct statfs volume = {};
    open_how how = {O_RDWR, 0, 0};
    open_how bounded = {O_RDWR, 0, RESOLVE_BENEATH};
    std::array<char, 64> text = {};
    const std::array<timespec, 2> times = {{{1'000'000'000, 0}, {1'000'000'000, 0}}};

    Print("mkdirat", syscall(SYS_mkdirat, AT_FDCWD, DIRECTORY, 0755));
    Print("mkdirat again", syscall(SYS_mkdirat, AT_FDCWD, DIRECTORY, 0755));
    Print("mkdirat of the root", syscall(SYS_mkdirat, AT_FDCWD, CARD, 0755));
    Print("mkdirat without parent", syscall(SYS_mkdirat, AT_FDCWD, "/mnt/sdcard/no/db", 0755));
    Print("openat that creates", syscall(SYS_openat, AT_FDCWD, FILE, O_RDWR | O_CREAT | O_EXCL, 0644));
    Print("openat that creates again", syscall(SYS_openat, AT_FDCWD, FILE, O_RDWR | O_CREAT | O_EXCL, 0644));
    Print("openat of a file as a directory", syscall(SYS_openat, AT_FDCWD, FILE, O_RDONLY | O_DIRECTORY));
    Print("openat of a directory to write", syscall(SYS_openat, AT_FDCWD, DIRECTORY, O_RDWR));
    Print("openat without a name", syscall(SYS_openat, AT_FDCWD, DIRECTORY, O_RDWR | O_TMPFILE, 0600));
    Print("openat for reference", syscall(SYS_openat, AT_FDCWD, FILE, O_PATH));
    Print("openat of what is not there", syscall(SYS_openat, AT_FDCWD, OTHER, O_RDONLY));
    Print("openat2", syscall(SYS_openat2, AT_FDCWD, FILE, &how, sizeof(how)));
    Print("openat2 bounded", syscall(SYS_openat2, AT_FDCWD, FILE, &bounded, sizeof(bounded)));
    Print("faccessat", syscall(SYS_faccessat, AT_FDCWD, FILE, R_OK | W_OK));
    Print("faccessat2", syscall(SYS_faccessat2, AT_FDCWD, OTHER, F_OK, 0));
    Print("newfstatat", syscall(SYS_newfstatat, AT_FDCWD, DIRECTORY, &status, 0));
    Print("newfstatat to nowhere", syscall(SYS_newfstatat, AT_FDCWD, DIRECTORY, nowhere, 0));
    Print("newfstatat of a file as a directory",
          syscall(SYS_newfstatat, AT_FDCWD, "/mnt/sdcard/db/file/", &status, 0));
    Print("statx", syscall(SYS_statx, AT_FDCWD, FILE, 0, STATX_BASIC_STATS, &statusX));
    Print("statfs", syscall(SYS_statfs, FILE, &volume));
    Print("readlinkat", syscall(SYS_readlinkat, AT_FDCWD, FILE, text.data(), text.size()));
    Print("readlinkat of nothing", syscall(SYS_readlinkat, AT_FDCWD, OTHER, text.data(), text.size()));
    Print("getxattr", syscall(SYS_getxattr, FILE, "user.x", text.data(), text.size()));
    Print("setxattr", syscall(SYS_setxattr, FILE, "user.x", "1", 1, 0));
    Print("setxattrat", syscall(SETXATTRAT, AT_FDCWD, FILE, 0, "user.x", nullptr, 0));
    Print("truncate", syscall(SYS_truncate, FILE, 5));
    Print("truncate to less than nothing", syscall(SYS_truncate, FILE, -1L));
    Print("fchmodat", syscall(SYS_fchmodat, AT_FDCWD, FILE, 0600));
    Print("fchmodat2", syscall(FCHMODAT2, AT_FDCWD, FILE, 0640, 0));
    Print("fchownat to the same", syscall(SYS_fchownat, AT_FDCWD, FILE, getuid(), -1, 0));
    Print("fchownat to another", syscall(SYS_fchownat, AT_FDCWD, FILE, getuid() + 1, -1, 0));
    Print("utimensat", syscall(SYS_utimensat, AT_FDCWD, FILE, times.data(), 0));
    Print("stat", stat(FILE, &status));
    std::printf("size %ld, mode %o, modified %ld\n", static_cast<long>(status.st_size),
                status.st_mode & ~static_cast<unsigned int>(S_IFMT), static_cast<long>(status.st_mtime));
    Print("utimensat to the present", syscall(SYS_utimensat, AT_FDCWD, FILE, nullptr, 0));
    Print("renameat2", syscall(SYS_renameat2, AT_FDCWD, FILE, AT_FDCWD, OTHER, 0));
    Print("creat", creat(FILE, 0644));
    Print("renameat2 that replaces not", syscall(SYS_renameat2, AT_FDCWD, FILE, AT_FDCWD, OTHER, 1));
    Print("renameat2 that exchanges", syscall(SYS_renameat2, AT_FDCWD, FILE, AT_FDCWD, OTHER, 2));
    Print("renameat2 with a whiteout", syscall(SYS_renameat2, AT_FDCWD, FILE, AT_FDCWD, OTHER, 4));
    Print("renameat2 of a file to a directory's name",
          syscall(SYS_renameat2, AT_FDCWD, FILE, AT_FDCWD, "/mnt/sdcard/db/third/", 0));
    Print("renameat2 out", syscall(SYS_renameat2, AT_FDCWD, FILE, AT_FDCWD, OUTSIDE, 0));
    Print("renameat2 in", syscall(SYS_renameat2, AT_FDCWD, OUTSIDE, AT_FDCWD, OTHER, 0));
    Print("linkat", syscall(SYS_linkat, AT_FDCWD, FILE, AT_FDCWD, "/mnt/sdcard/link", 0));
    Print("linkat in", syscall(SYS_linkat, AT_FDCWD, OUTSIDE, AT_FDCWD, "/mnt/sdcard/link", 0));
    Print("symlinkat", syscall(SYS_symlinkat, "file", AT_FDCWD, "/mnt/sdcard/link"));
    Print("mknodat", syscall(SYS_mknodat, AT_FDCWD, "/mnt/sdcard/fifo", S_IFIFO | 0600, 0));
    Print("unlinkat", syscall(SYS_unlinkat, AT_FDCWD, FILE, 0));
    Print("unlinkat of a directory", syscall(SYS_unlinkat, AT_FDCWD, DIRECTORY, 0));
    Print("unlinkat of a full directory", syscall(SYS_unlinkat, AT_FDCWD, DIRECTORY, AT_REMOVEDIR));
    Print("unlink", unlink(OTHER));
    Print("rmdir", rmdir(DIRECTORY));
    Print("rmdir of the root", rmdir(CARD));
    Print("rmdir of the root with a slash", rmdir("/mnt/sdcard/"));
    Print("unlink of the root", unlink(CARD));
    Print("rename of the root", rename(CARD, "/mnt/sdcard/x"));
    return 0;
}

/// Calls that the storage card does not carry out, each with its errno.
int CardRefusals(const Arguments&)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/mnt/sdcard/socket");
    const auto* socketAddress = reinterpret_cast<const sockaddr*>(&address);
    const int socketFd = socket(AF_UNIX, SOCK_STREAM, 0);
    Print("chdir", chdir(CARD));
    Print("chdir to nothing", chdir("/mnt/sdcard/nothing"));
    Print("execve", execl("/mnt/sdcard/program", "program", nullptr));
    Print("bind", bind(socketFd, socketAddress, sizeof(address)));
    Print("connect", connect(socketFd, socketAddress, sizeof(address)));
    Print("inotify_add_watch", inotify_add_watch(inotify_init1(0), CARD, IN_CREATE));
    Print("chroot", chroot(CARD));
    return 0;
}

/// The mount table, and the end of the card's mount.
int CardUnmount(const Arguments&)
{
    const std::intptr_t nowhere = 8;
    const auto printTable = [] {
        std::array<char, 256> text = {};
        const int table = open("/proc/self/mounts", O_RDONLY | O_CLOEXEC);
        std::printf("%zd bytes, close on exec %d\n%s", read(table, text.data(), text.size() - 1),
                    fcntl(table, F_GETFD) & FD_CLOEXEC, text.data());
        close(table);
    };
    open_how how = {O_RDONLY, 0, 0};
    const int file = open("/mnt/sdcard/file", O_RDWR | O_CREAT, 0644);
    const int other = dup(file);
    printTable();
    Print("openat2 of the table", syscall(SYS_openat2, AT_FDCWD, "/proc/mounts", &how, sizeof(how)));
    Print("open of the table to write", open("/proc/self/mounts", O_RDWR));
    Print("umount2 of the root", syscall(SYS_umount2, "/", 0));
    Print("umount2 below the card", syscall(SYS_umount2, "/mnt/sdcard/file", 0));
    Print("umount2 of nowhere", syscall(SYS_umount2, nowhere, 0));
    Print("umount2 with an open file", syscall(SYS_umount2, CARD, 0));
    close(file);
    unlink("/mnt/sdcard/file");
    Print("umount2 with a removed file that is open", syscall(SYS_umount2, CARD, 0));
    close(other);
    printTable();
    Print("umount2", syscall(SYS_umount2, "/mnt/./sdcard/", 0));
    printTable();
    Print("umount2 again", syscall(SYS_umount2, CARD, 0));
    return 0;
}

int CardDetach(const Arguments&)
{
    open("/mnt/sdcard/file", O_RDWR | O_CREAT, 0644);
    Print("umount2", syscall(SYS_umount2, CARD, MNT_DETACH));
    return 0;
}

/// Calls relative to a directory of the card.
int CardRelative(const Arguments&)
{
    mkdir("/mnt/sdcard/db", 0755);
    const int directory = open("/mnt/sdcard/db", O_RDONLY | O_DIRECTORY);
    Print("openat", openat(directory, "file", O_RDWR | O_CREAT, 0644));
    Print("mkdirat", mkdirat(directory, "sub", 0755));
    Print("renameat", renameat(directory, "file", directory, "sub/file"));
    Print("symlinkat", symlinkat("file", directory, "link"));
    Print("back and forth", faccessat(directory, "../db/sub/file", F_OK, 0));
    Print("out", openat(directory, "../../../etc/passwd", O_RDONLY));
    Print("fchdir", fchdir(directory));
    Print("chdir", chdir("sub"));
    Print("open", open("file", O_RDWR));
    Print("symlink", symlink("file", "link"));
    Print("unlink", unlink("file"));
    Print("unlinkat", unlinkat(directory, "sub", AT_REMOVEDIR));
    return 0;
}

/// Calls that must not be carried out twice, while signals arrive all the time.
int CardInterrupted(const Arguments&)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval interval = {{0, 20}, {0, 20}};
    setitimer(ITIMER_REAL, &interval, nullptr);
    int failed = 0;
    for (int i = 0; i < 1000; ++i)
    {
        failed += mkdir("/mnt/sdcard/db", 0755) != 0;
        failed += rmdir("/mnt/sdcard/db") != 0;
    }
    std::printf("failed %d\n", failed);
    return 0;
}

void End(int)
{
    constexpr std::string_view TEXT = "ended by a signal\n";
    _exit(write(STDOUT_FILENO, TEXT.data(), TEXT.size()) > 0 ? 9 : 1);
}

/// Waits for a signal; ends with 9 on those that were named. They are held back until it waits: the thread
/// sanitizer loses one that comes just before.
int Wait(const Arguments& arguments)
{
    sigset_t named;
    sigemptyset(&named);
    for (const std::string& number : arguments)
    {
        std::signal(std::stoi(number), End);
        sigaddset(&named, std::stoi(number));
    }
    sigset_t former;
    pthread_sigmask(SIG_BLOCK, &named, &former);
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;)
    {
        sigsuspend(&former);
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
    const std::map<std::string, std::function<int(const Arguments&)>> probes = {
        {"calls", Calls},
        {"flags", Flags},
        {"terminal", Terminal},
        {"lines", Lines},
        {"release", Release},
        {"ask", Ask},
        {"threads", Threads},
        {"bad-pointers", BadPointers},
        {"relative", Relative},
        {"forbidden", Forbidden},
        {"fill", Fill},
        {"wait", Wait},
        {"ignore", Ignore},
        {"crash", Crash},
        {"card", Card},
        {"card-refusals", CardRefusals},
        {"card-relative", CardRelative},
        {"card-unmount", CardUnmount},
        {"card-detach", CardDetach},
        {"card-interrupted", CardInterrupted}};
    const Arguments arguments(argv + 1, argv + argc);
    return probes.at(arguments.at(0))(Arguments(arguments.begin() + 1, arguments.end()));
}

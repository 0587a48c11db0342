// What DriverPortsTest runs on the virtual unit: talks to the devices that are driven by ioctls and messages,
// and prints what they answered.

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/hidraw.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <map>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

namespace
{

constexpr int PATIENCE_MILLISECONDS = 100'000;

int OpenOrEnd(const char* path, int flags = O_RDWR)
{
    const int fd = open(path, flags);
    if (fd < 0)
    {
        std::perror(path);
        _exit(1);
    }
    return fd;
}

void Print(const char* what, long result)
{
    if (result < 0)
    {
        std::printf("%s %s\n", what, strerrorname_np(errno));
    }
    else
    {
        std::printf("%s %ld\n", what, result);
    }
}

int ReadRegister(int fd, unsigned char reg)
{
    i2c_smbus_data data = {};
    i2c_smbus_ioctl_data transfer = {I2C_SMBUS_READ, reg, I2C_SMBUS_BYTE_DATA, &data};
    return ioctl(fd, I2C_SMBUS, &transfer) < 0 ? -1 : data.byte;
}

int Pins()
{
    const int fd = OpenOrEnd("/dev/tav_event");
    Print("pin", ioctl(fd, 103, 1));
    Print("another value", ioctl(fd, 103, 7));
    Print("no pin", ioctl(fd, 99, 1));
    Print("a file's ioctl", ioctl(OpenOrEnd("/dev/null"), 103, 1));
    return 0;
}

int Trigger()
{
    pollfd device = {OpenOrEnd("/dev/tav_event"), POLLIN, 0};
    Print("poll", poll(&device, 1, PATIENCE_MILLISECONDS));
    std::array<unsigned char, 16> message{};
    Print("read", read(device.fd, message.data(), message.size()));
    std::printf("trigger %d\n", message[0]);
    return 0;
}

int Chip()
{
    const int fd = OpenOrEnd("/dev/i2c-1", O_RDWR | O_NONBLOCK);
    Print("select", ioctl(fd, I2C_SLAVE, 0x1C));
    Print("who am i", ReadRegister(fd, 0x0D));
    Print("nothing there", ioctl(fd, I2C_SLAVE, 0x1D));
    Print("read", ReadRegister(fd, 0x0D));
    Print("bad address", ioctl(fd, I2C_SMBUS, nullptr));
    Print("another adapter", open("/dev/i2c-0", O_RDWR));
    return 0;
}

/// What the chip feels, in thousandths of g, each half second for so long.
int Felt(int halfSeconds)
{
    const int fd = OpenOrEnd("/dev/i2c-1");
    ioctl(fd, I2C_SLAVE, 0x1C);
    i2c_smbus_data active = {};
    active.byte = 0x19; // 100 samples a second
    i2c_smbus_ioctl_data transfer = {I2C_SMBUS_WRITE, 0x2A, I2C_SMBUS_BYTE_DATA, &active};
    ioctl(fd, I2C_SMBUS, &transfer);
    for (int i = 0; i < halfSeconds; ++i)
    {
        usleep(500'000);
        for (const unsigned char reg : std::array<unsigned char, 3>{0x01, 0x03, 0x05})
        {
            const int bits =
                ReadRegister(fd, reg) << 8 | ReadRegister(fd, static_cast<unsigned char>(reg + 1));
            std::printf("%ld ", std::lround(static_cast<std::int16_t>(bits) / 4 * 1000.0 / 4096));
        }
        std::printf("\n");
    }
    return 0;
}

int Bridge()
{
    const int fd = OpenOrEnd("/dev/hidraw0", O_RDWR | O_NONBLOCK);
    std::array<char, 256> name{};
    Print("name", ioctl(fd, HIDIOCGRAWNAME(256), name.data()));
    hidraw_devinfo info = {};
    Print("info", ioctl(fd, HIDIOCGRAWINFO, &info));
    std::printf("%s %d %04hx %04hx\n", name.data(), static_cast<int>(info.bustype),
                static_cast<unsigned short>(info.vendor), static_cast<unsigned short>(info.product));
    Print("nothing to read", read(fd, name.data(), name.size()));
    const std::array<unsigned char, 6> sound = {0xD0, 0x5A, 0x06, 2, 0x01, 0x3F};
    Print("write", write(fd, sound.data(), sound.size()));
    return 0;
}

/// The bridge is pulled out and put back while it is open. @param unit the program virtual-unit
int Gone(const std::string& unit)
{
    constexpr std::array<unsigned char, 6> SOUND = {0xD0, 0x5A, 0x06, 2, 0x01, 0x3F};
    const auto step = [&unit](const std::string& what) {
        return std::system(("'" + unit + "' do sounder " + what).c_str());
    };
    const int old = OpenOrEnd("/dev/hidraw0", O_RDWR | O_NONBLOCK);
    const auto writeTo = [&SOUND](int fd) { return write(fd, SOUND.data(), SOUND.size()); };
    Print("write", writeTo(old));
    step("unplug");
    Print("write", writeTo(old));
    Print("write", writeTo(old));
    step("plug");
    Print("/dev/hidraw1 write", writeTo(OpenOrEnd("/dev/hidraw1")));
    Print("old one", writeTo(old));
    return 0;
}

int Stuck(const char* port)
{
    const auto milliseconds = [] {
        timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
    };
    const int fd = OpenOrEnd(port);
    termios settings = {};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
    const auto waiting = [fd](const char* when) {
        int count = -1;
        ioctl(fd, TIOCOUTQ, &count);
        Print(when, count);
    };
    waiting("at first");
    const auto begin = milliseconds();
    Print("write", write(fd, "AT\r\n", 4));
    waiting("waiting");
    const bool drained = tcdrain(fd) == 0;
    std::printf(drained ? "drained after %ld s\n" : "not drained after %ld s\n",
                (milliseconds() - begin) / 1000);
    waiting("waiting");
    pollfd event = {fd, POLLIN, 0};
    std::printf("%s\n", poll(&event, 1, PATIENCE_MILLISECONDS) == 1 ? "it answers" : "it is silent");
    return 0;
}

int Hub()
{
    constexpr const char* BUZZER = "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0";
    const std::map<std::string, const char*> devices = {
        {"modem", "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0"},
        {"buzzer", BUZZER},
        {"sounder", "/dev/hidraw0"}};
    const auto list = [&devices](const char* when) {
        std::printf("%s:", when);
        for (const char* const name : {"modem", "buzzer", "sounder"})
        {
            std::printf(access(devices.at(name), F_OK) == 0 ? " %s" : "", name);
        }
        std::printf("\n");
    };
    const int events = OpenOrEnd("/dev/tav_event");
    list("at first");
    pollfd board = {OpenOrEnd(BUZZER), 0, 0};
    ioctl(events, 106, 0);
    list("held");
    std::printf(poll(&board, 1, PATIENCE_MILLISECONDS) == 1 && (board.revents & POLLHUP) != 0
                    ? "hung up\n"
                    : "still there\n");
    close(board.fd);
    ioctl(events, 106, 1);
    list("released");
    return 0;
}

/// The power line at 0, for so long; for good unless a time is given.
int Power(const char* milliseconds)
{
    const int events = OpenOrEnd("/dev/tav_event");
    ioctl(events, 105, 0);
    if (milliseconds != nullptr)
    {
        usleep(static_cast<useconds_t>(std::atoi(milliseconds)) * 1000);
        ioctl(events, 105, 1);
    }
    std::printf("still here\n");
    return 0;
}

/// A file that is written through memory, in part synced.
int Mapped(const char* path)
{
    constexpr std::size_t SIZE = 4096;
    const int fd = open(path, O_RDWR | O_CREAT, 0600);
    Print("ftruncate", ftruncate(fd, SIZE));
    char* const bytes = static_cast<char*>(mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
    std::memcpy(bytes, "synced", 6);
    Print("msync", msync(bytes, SIZE, MS_SYNC));
    std::memcpy(bytes + 6, " and not", 8);
    Print("msync that does not wait", msync(bytes, SIZE, MS_ASYNC));
    return 0;
}

/// Each call that makes a file grow, on one of four bytes.
int Grow(const char* path)
{
    const int fd = open(path, O_RDWR);
    const int other = OpenOrEnd("/etc/passwd", O_RDONLY);
    std::array<iovec, 2> pieces = {{{const_cast<char*>("ab"), 2}, {const_cast<char*>("cde"), 3}}};
    Print("write over", write(fd, "1234", 4));
    Print("write", write(fd, "5", 1));
    Print("pwrite over", pwrite(fd, "34", 2, 2));
    Print("pwrite", pwrite(fd, "45", 2, 3));
    Print("writev", writev(fd, pieces.data(), pieces.size()));
    Print("pwritev over", pwritev(fd, pieces.data(), 1, 2));
    Print("pwritev", pwritev(fd, pieces.data(), 2, 0));
    Print("pwritev2", pwritev2(fd, pieces.data(), 1, -1, 0));
    Print("ftruncate", ftruncate(fd, 5));
    Print("fallocate", fallocate(fd, 0, 0, 8));
    Print("sendfile", sendfile(fd, other, nullptr, 8));
    Print("copy_file_range", copy_file_range(other, nullptr, fd, nullptr, 8, 0));
    Print("ftruncate to less", ftruncate(fd, 3));
    Print("write of one for reading", write(open(path, O_RDONLY), "5", 1));
    Print("appended", write(open(path, O_WRONLY | O_APPEND), "5", 1));
    Print("elsewhere", write(fcntl(OpenOrEnd("/dev/null"), F_DUPFD, 1000), "5", 1));
    return 0;
}

/// Four seconds, with a byte at the end of each.
int Appends(const char* path)
{
    const int fd = open(path, O_WRONLY | O_APPEND);
    for (const char* second : {"after 1 s", "after 2 s", "after 3 s", "after 4 s"})
    {
        sleep(1);
        Print(second, write(fd, "x", 1));
    }
    return 0;
}

int Kinds()
{
    for (const char* path : {"/dev/tav_event", "/dev/i2c-1", "/dev/hidraw0"})
    {
        struct stat status = {};
        std::printf("%s %s\n", path,
                    stat(path, &status) == 0 && S_ISCHR(status.st_mode) ? "device" : "other");
    }
    return 0;
}

}

int main(int argc, char** argv)
{
    const std::map<std::string, std::function<int()>> probes = {
        {"pins", Pins},
        {"trigger", Trigger},
        {"chip", Chip},
        {"bridge", Bridge},
        {"kinds", Kinds},
        {"umount",
         [] {
             Print("umount", umount2("/mnt/sdcard", 0));
             return 0;
         }},
        {"hub", Hub},
        {"power", [=] { return Power(argv[2]); }},
        {"mapped", [=] { return Mapped(argv[2]); }},
        {"appends", [=] { return Appends(argv[2]); }},
        {"grow", [=] { return Grow(argv[2]); }},
        {"stuck", [=] { return Stuck(argv[2]); }},
        {"gone", [=] { return Gone(argv[2]); }},
        {"felt", [=] { return Felt(argc > 2 ? std::atoi(argv[2]) : 0); }}};
    return probes.at(argv[1])();
}

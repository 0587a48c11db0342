// A trial of PreloadProbe.cpp: what the C library has under several names, or what few programs call, each
// once.

#include "tests/virtual-unit/run/OtherNames.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <glob.h>
#include <string>
#include <sys/fanotify.h>
#include <sys/mount.h>
#include <sys/quota.h>
#include <sys/reboot.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/swap.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <termios.h>
#include <unistd.h>
#include <utime.h>
#include <vector>

extern "C" {
int __open_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
ssize_t __readlink_chk(const char* path, char* text, size_t size, size_t room);
ssize_t __readlinkat_chk(int directory, const char* path, char* text, size_t size, size_t room);
char* __realpath_chk(const char* path, char* resolved, size_t room);

// Programs that were built with an older C library call these. With the sanitizers' own stand-ins beside them
// the linker makes a program that does not start.
#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define HAS_OLD_NAMES 1
#define OLD(name, version) __asm__(".symver old" #name ", " #name "@GLIBC_" version)
OLD(__xstat, "2.2.5");
OLD(__lxstat, "2.2.5");
OLD(__fxstatat, "2.4");
OLD(__xstat64, "2.2.5");
OLD(__lxstat64, "2.2.5");
OLD(__fxstatat64, "2.4");
OLD(__xmknod, "2.2.5");
OLD(__xmknodat, "2.4");
int old__xstat(int version, const char* path, struct stat* status);
int old__lxstat(int version, const char* path, struct stat* status);
int old__fxstatat(int version, int directory, const char* path, struct stat* status, int flags);
int old__xstat64(int version, const char* path, struct stat64* status);
int old__lxstat64(int version, const char* path, struct stat64* status);
int old__fxstatat64(int version, int directory, const char* path, struct stat64* status, int flags);
int old__xmknod(int version, const char* path, mode_t mode, dev_t* device);
int old__xmknodat(int version, int directory, const char* path, mode_t mode, dev_t* device);
#endif
}

namespace
{

constexpr const char* DIRECTORY = "/mnt/sdcard/names";
constexpr const char* FILE_PATH = "/mnt/sdcard/names/file";
constexpr const char* NOTHING = "/mnt/sdcard/names/nothing";
constexpr const char* GPS = "/dev/ttymxc0";

/// The result, or the error, of a call that gives -1 for one.
void Tell(const char* what, long result)
{
    std::printf("%s: %s\n", what, result == -1 ? strerrorname_np(errno) : std::to_string(result).c_str());
}

void Tell(const char* what, const std::string& result)
{
    std::printf("%s: %s\n", what, result.c_str());
}

void TellOpened(const char* what, int fd)
{
    Tell(what, std::string(fd >= 0 ? "opened" : strerrorname_np(errno)));
    if (fd >= 0)
    {
        close(fd);
    }
}

void Opening()
{
    TellOpened("open64", open64(FILE_PATH, O_RDONLY));
    TellOpened("openat64", openat64(AT_FDCWD, FILE_PATH, O_RDONLY));
    TellOpened("openat64 of nothing", openat64(AT_FDCWD, NOTHING, O_RDONLY));
    TellOpened("openat64 of a port", openat64(AT_FDCWD, GPS, O_RDWR | O_NOCTTY));
    TellOpened("__open_2", __open_2(FILE_PATH, O_RDONLY));
    TellOpened("__openat_2", __openat_2(AT_FDCWD, FILE_PATH, O_RDONLY));
    TellOpened("__openat64_2", __openat64_2(AT_FDCWD, FILE_PATH, O_RDONLY));
    TellOpened("creat64", creat64("/mnt/sdcard/names/created", 0600));
    file_handle handle = {};
    int mount = 0;
    Tell("name_to_handle_at", name_to_handle_at(AT_FDCWD, NOTHING, &handle, &mount, 0));
    Tell("freopen of nothing",
         std::string(freopen(NOTHING, "r", stdin) != nullptr ? "opened" : strerrorname_np(errno)));
    stdin = fopen(FILE_PATH, "r");
    Tell("freopen64",
         std::string(freopen64(FILE_PATH, "r", stdin) != nullptr ? "opened" : strerrorname_np(errno)));
    for (const auto make : {+[](char* name) { return mkostemp(name, O_APPEND); },
                            +[](char* name) { return mkostemp64(name, O_APPEND); },
                            +[](char* name) { return mkstemp64(name); }})
    {
        char name[] = "/mnt/sdcard/names/XXXXXX";
        TellOpened("a temporary file", make(name));
        Tell("removed", unlink(name));
    }
    for (const auto make :
         {+[](char* name) { return mkstemps(name, 4); }, +[](char* name) { return mkstemps64(name, 4); },
          +[](char* name) { return mkostemps(name, 4, O_APPEND); },
          +[](char* name) { return mkostemps64(name, 4, O_APPEND); }})
    {
        char name[] = "/mnt/sdcard/names/XXXXXX.txt";
        TellOpened("a temporary file with an end", make(name));
        Tell("removed", unlink(name));
    }
    char wrong[] = "/mnt/sdcard/names/XXXX";
    TellOpened("a temporary file with a wrong name", mkstemps(wrong, 0));
}

void Looking()
{
    [[maybe_unused]] struct stat status = {};
    struct stat64 status64 = {};
    Tell("lstat64", lstat64(FILE_PATH, &status64));
    Tell("lstat64 of nothing", lstat64(NOTHING, &status64));
    for (const char* const path : {FILE_PATH, NOTHING, GPS})
    {
#ifdef HAS_OLD_NAMES
        Tell("__xstat", old__xstat(1, path, &status));
        Tell("__lxstat", old__lxstat(1, path, &status));
        Tell("__fxstatat", old__fxstatat(1, AT_FDCWD, path, &status, 0));
        Tell("__xstat64", old__xstat64(1, path, &status64));
        Tell("__lxstat64", old__lxstat64(1, path, &status64));
        Tell("__fxstatat64", old__fxstatat64(1, AT_FDCWD, path, &status64, 0));
#endif
        Tell("euidaccess", euidaccess(path, R_OK));
        Tell("eaccess", eaccess(path, R_OK));
    }
    Tell("pathconf", pathconf(FILE_PATH, _PC_NAME_MAX) == -1 ? -1 : 0);
    Tell("pathconf of nothing", pathconf(NOTHING, _PC_NAME_MAX));
    std::array<char, 4096> text = {};
    Tell("readlinkat", readlinkat(AT_FDCWD, FILE_PATH, text.data(), text.size()));
    Tell("__readlink_chk", __readlink_chk(NOTHING, text.data(), text.size(), text.size()));
    Tell("__readlinkat_chk", __readlinkat_chk(AT_FDCWD, NOTHING, text.data(), text.size(), text.size()));
    const char* const resolved = __realpath_chk("/mnt/sdcard/names/../names/file", text.data(), text.size());
    Tell("__realpath_chk", std::string(resolved != nullptr ? resolved : strerrorname_np(errno)));
    struct statvfs64 volume = {};
    Tell("statvfs64", statvfs64("/mnt/sdcard", &volume));
    Tell("statvfs64 of nothing", statvfs64(NOTHING, &volume));
    Tell("fanotify_mark", fanotify_mark(-1, FAN_MARK_ADD, FAN_OPEN, AT_FDCWD, FILE_PATH));
}

void Walking()
{
    const auto all = [](const dirent64* entry) { return entry->d_name[0] != '.' ? 1 : 0; };
    for (const auto scan : {+[](dirent64***names, int (*choose)(const dirent64*)) {
                                return scandir64(DIRECTORY, names, choose, alphasort64);
                            },
                            +[](dirent64***names, int (*choose)(const dirent64*)) {
                                return scandirat64(AT_FDCWD, DIRECTORY, names, choose, alphasort64);
                            }})
    {
        dirent64** names = nullptr;
        const int count = scan(&names, all);
        Tell("scandir64", count);
        for (int i = 0; i < count; ++i)
        {
            std::free(names[i]);
        }
        std::free(names);
    }
    dirent64** names = nullptr;
    Tell("scandir64 of nothing", scandir64(NOTHING, &names, nullptr, nullptr));
    glob64_t found = {};
    Tell("glob64", glob64("/mnt/sdcard/n*/f*", 0, nullptr, &found));
    Tell("glob64", std::string(found.gl_pathc > 0 ? found.gl_pathv[0] : "nothing"));
    globfree64(&found);
    const auto told = [](const char* path, int type) {
        std::printf("visited %s, %d\n", path, type);
        return 0;
    };
    static constexpr auto TOLD = told;
    Tell("ftw",
         ftw(
             FILE_PATH, [](const char* path, const struct stat*, int type) { return TOLD(path, type); }, 4));
    Tell("ftw64", ftw64(
                      FILE_PATH,
                      [](const char* path, const struct stat64*, int type) { return TOLD(path, type); }, 4));
    Tell("nftw64",
         nftw64(
             FILE_PATH,
             [](const char* path, const struct stat64*, int type, FTW*) { return TOLD(path, type); }, 4, 0));
    Tell("nftw64 of nothing",
         nftw64(
             NOTHING, [](const char* path, const struct stat64*, int type, FTW*) { return TOLD(path, type); },
             4, 0));
}

void Changing()
{
    Tell("truncate", truncate(FILE_PATH, 3));
    Tell("truncate64", truncate64(FILE_PATH, 2));
    Tell("truncate64 of nothing", truncate64(NOTHING, 2));
    Tell("lchmod", lchmod(NOTHING, 0600));
    const timeval times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    struct stat status = {};
    Tell("lutimes", lutimes(FILE_PATH, times));
    Tell("the time", stat(FILE_PATH, &status) == 0 ? status.st_mtime : -1);
    Tell("futimesat", futimesat(AT_FDCWD, FILE_PATH, times));
    const utimbuf both = {900'000'000, 900'000'000};
    Tell("utime", utime(FILE_PATH, &both));
    Tell("the time", stat(FILE_PATH, &status) == 0 ? status.st_mtime : -1);
    Tell("utime now", utime(FILE_PATH, nullptr));
    Tell("chown", chown(FILE_PATH, getuid(), getgid()));
    Tell("lchown", lchown(NOTHING, getuid(), getgid()));
    Tell("link", link(FILE_PATH, "/mnt/sdcard/names/link"));
    Tell("mknod", mknod("/mnt/sdcard/names/node", S_IFREG | 0600, 0));
#ifdef HAS_OLD_NAMES
    dev_t none = 0;
    Tell("__xmknod", old__xmknod(0, NOTHING, S_IFBLK | 0600, &none));
    Tell("__xmknodat", old__xmknodat(0, AT_FDCWD, NOTHING, S_IFBLK | 0600, &none));
#endif
    std::array<char, 64> names = {};
    Tell("listxattr", listxattr(NOTHING, names.data(), names.size()));
    Tell("lsetxattr", lsetxattr(NOTHING, "user.name", "value", 5, 0));
    Tell("removexattr", removexattr(NOTHING, "user.name"));
    Tell("lremovexattr", lremovexattr(NOTHING, "user.name"));
}

void Writing()
{
    const int fd = open("/mnt/sdcard/names/written", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    char text[] = "text";
    const iovec piece = {text, 4};
    Tell("pwrite64", pwrite64(fd, text, 4, 0));
    Tell("pwritev64", pwritev64(fd, &piece, 1, 4));
    Tell("pwritev64v2", pwritev64v2(fd, &piece, 1, 8, 0));
    Tell("ftruncate64", ftruncate64(fd, 6));
    Tell("fallocate64", fallocate64(fd, 0, 0, 100));
    Tell("posix_fallocate", posix_fallocate(fd, 0, 200));
    Tell("posix_fallocate64", posix_fallocate64(fd, 0, 300));
    const int from = open(FILE_PATH, O_RDONLY | O_CLOEXEC);
    off64_t at = 0;
    Tell("sendfile64", sendfile64(fd, from, &at, 2));
    Tell("the size", lseek(fd, 0, SEEK_END));
    close(from);
    close(fd);
}

/// What reaches the machine: nowhere. Each of these would fail there, too.
void Refused()
{
    Tell("swapon", swapon(NOTHING, 0));
    Tell("swapoff", swapoff(NOTHING));
    Tell("acct", acct(NOTHING));
    Tell("mount", mount("none", NOTHING, "tmpfs", 0, nullptr));
    Tell("umount", umount(NOTHING));
    Tell("quotactl", quotactl(-1, NOTHING, 0, nullptr));
    const int port = open(GPS, O_RDWR | O_NOCTTY | O_CLOEXEC);
    Tell("tcsendbreak", tcsendbreak(port, 0));
    close(port);
}

}

int OtherNames()
{
    Tell("mkdir", mkdir(DIRECTORY, 0755));
    std::FILE* const written = std::fopen(FILE_PATH, "we");
    if (written == nullptr || std::fputs("text\n", written) < 0 || std::fclose(written) != 0)
    {
        return 1;
    }
    Opening();
    Looking();
    Walking();
    Changing();
    Writing();
    Refused();
    return 0;
}

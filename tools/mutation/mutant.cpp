// Which mutant a process has, and which ones it came by; compiled into libTavbase by tools/mutate alone. The
// calls go to the kernel directly: a test program stands in for the C library's, and counts them.

#include "tools/mutation/mutant.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr int NOT_YET_READ = -1;
constexpr int RECORDS = -2;

/// A byte for each mutant, shared with the file, so that also a process that dies, forks or is replaced
/// tells.
char* record = nullptr;
long records = 0;

void MapRecord(const char* path)
{
    const long fd = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    records = syscall(SYS_lseek, fd, 0L, SEEK_END);
    const long address = syscall(SYS_mmap, nullptr, records, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0L);
    syscall(SYS_close, fd);
    if (address == -1)
    {
        std::abort();
    }
    record = reinterpret_cast<char*>(address);
}

}

int tav_mutant_chosen = NOT_YET_READ;

bool tav_mutant_asked(int id) noexcept
{
    if (__atomic_load_n(&tav_mutant_chosen, __ATOMIC_ACQUIRE) == NOT_YET_READ)
    {
        const char* const path = std::getenv("TAV_MUTANT_RECORD");
        const char* const number = std::getenv("TAV_MUTANT");
        if (path != nullptr)
        {
            MapRecord(path);
        }
        const int chosen = path != nullptr ? RECORDS : number != nullptr ? std::atoi(number) : 0;
        __atomic_store_n(&tav_mutant_chosen, chosen, __ATOMIC_RELEASE);
        return chosen < 0 ? tav_mutant_asked(id) : chosen == id;
    }
    if (id < records)
    {
        record[id] = 1;
    }
    return false;
}

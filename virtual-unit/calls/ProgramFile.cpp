#include "virtual-unit/calls/ProgramFile.h"

#include "virtual-unit/common/Descriptor.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

constexpr bool IS_64_BIT = sizeof(void*) == 8;

/// What a file that is executed begins with.
std::vector<char> BeginningOf(const std::string& path)
{
    constexpr std::size_t ENOUGH = 4096;
    std::vector<char> bytes(ENOUGH);
    struct stat status = {};
    const bool regular = stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    const Descriptor file(regular ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : -1);
    const ssize_t count = file.Get() >= 0 ? pread(file.Get(), bytes.data(), bytes.size(), 0) : 0;
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
}

/// The program that a script names in its first line.
std::string InterpreterOf(const std::vector<char>& script)
{
    const std::string_view text(script.data() + 2, script.size() - 2);
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::size_t begin = line.find_first_not_of(" \t");
    const std::size_t end = line.find_first_of(" \t\r", begin);
    return begin == std::string_view::npos ? std::string() : std::string(line.substr(begin, end - begin));
}

template <class Header, class Segment>
bool HasInterpreter(const std::vector<char>& file)
{
    Header header = {};
    if (file.size() < sizeof(header))
    {
        return true; // nobody knows
    }
    std::memcpy(&header, file.data(), sizeof(header));
    for (std::size_t i = 0; i < header.e_phnum; ++i)
    {
        Segment segment = {};
        const std::uint64_t at = std::uint64_t{header.e_phoff} + i * sizeof(segment);
        if (header.e_phoff > file.size() || at + sizeof(segment) > file.size())
        {
            return true;
        }
        std::memcpy(&segment, file.data() + at, sizeof(segment));
        if (segment.p_type == PT_INTERP)
        {
            return true;
        }
    }
    return false;
}

/// Class, byte order and machine, as ELF numbers them.
struct Architecture
{
    unsigned char wordClass = ELFCLASSNONE;
    unsigned char order = ELFDATANONE;
    unsigned int machine = EM_NONE;

    bool operator==(const Architecture&) const = default;
};

/// @return of no class where a file is no program
Architecture ArchitectureOf(const std::vector<char>& file)
{
    constexpr std::size_t MACHINE = offsetof(Elf32_Ehdr, e_machine); // the same in both classes
    if (file.size() < MACHINE + sizeof(std::uint16_t) || std::memcmp(file.data(), ELFMAG, SELFMAG) != 0)
    {
        return {};
    }
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(file[index]); };
    const unsigned char order = byte(EI_DATA);
    const unsigned int low = byte(order == ELFDATA2MSB ? MACHINE + 1 : MACHINE);
    const unsigned int high = byte(order == ELFDATA2MSB ? MACHINE : MACHINE + 1);
    return {byte(EI_CLASS), order, low | high << 8};
}

std::string NameOf(const Architecture& architecture)
{
    const std::string bits = architecture.wordClass == ELFCLASS64 ? "64-bit " : "32-bit ";
    switch (architecture.machine)
    {
    case EM_386:
    case EM_X86_64:
        return bits + "x86";
    case EM_ARM:
    case EM_AARCH64:
        return bits + "ARM";
    default:
        return bits + "machines of ELF's number " + std::to_string(architecture.machine);
    }
}

}

ProgramFile::ProgramFile(const std::string& path) : name(path), beginning(BeginningOf(path))
{
    if (beginning.size() > 2 && std::string_view(beginning.data(), 2) == "#!")
    {
        name = InterpreterOf(beginning);
        isInterpreter = true;
        beginning = BeginningOf(name);
    }
    if (ArchitectureOf(beginning) == Architecture())
    {
        beginning.clear();
    }
}

std::optional<std::string> ProgramFile::WhyForeign() const
{
    static const Architecture OWN = ArchitectureOf(BeginningOf("/proc/self/exe"));
    const Architecture its = ArchitectureOf(beginning);
    if (beginning.empty() || OWN == Architecture() || its == OWN)
    {
        return std::nullopt;
    }
    return (isInterpreter ? "its interpreter " + name : "it") + " is a program for " + NameOf(its) +
           ", not for " + NameOf(OWN) + " as this virtual unit";
}

bool ProgramFile::IsStatic() const
{
    constexpr unsigned char OWN_CLASS = IS_64_BIT ? ELFCLASS64 : ELFCLASS32;
    if (beginning.empty() || static_cast<unsigned char>(beginning[EI_CLASS]) != OWN_CLASS)
    {
        return false;
    }
    return IS_64_BIT ? !HasInterpreter<Elf64_Ehdr, Elf64_Phdr>(beginning)
                     : !HasInterpreter<Elf32_Ehdr, Elf32_Phdr>(beginning);
}

}

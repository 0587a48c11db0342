// Programs that are built for another architecture than the virtual unit.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <cstddef>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace
{

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A file that anybody may execute.
std::string Executable(const std::string& name, const std::string& content)
{
    const std::string path = Kit::TempDir::Path() + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    return path;
}

/// A program of any architecture, as far as its header goes.
std::string Header(unsigned char wordClass, unsigned char order, unsigned char machine)
{
    std::string header(sizeof(Elf64_Ehdr), '\0');
    std::memcpy(header.data(), ELFMAG, SELFMAG);
    header[EI_CLASS] = static_cast<char>(wordClass);
    header[EI_DATA] = static_cast<char>(order);
    header[EI_VERSION] = EV_CURRENT;
    header[offsetof(Elf32_Ehdr, e_type) + (order == ELFDATA2MSB ? 1 : 0)] = ET_EXEC;
    header[offsetof(Elf32_Ehdr, e_machine) + (order == ELFDATA2MSB ? 1 : 0)] = static_cast<char>(machine);
    return header;
}

/// Of a machine that this one is not, nor can be.
std::string ForeignHeader()
{
    return Header(ELFCLASS32, ELFDATA2MSB, EM_PPC);
}

class ForeignProgramTest : public VirtualUnitTest, public testing::WithParamInterface<const char*>
{
protected:
    static Outcome Run(const std::string& program) { return RunProgram(program, {}, {"--by", GetParam()}); }
};

TEST_P(ForeignProgramTest, IsRefusedWithWhatItIsAndWhatIsNeeded)
{
    const std::string program = Executable("foreign", ForeignHeader());
    const Outcome outcome = Run(program);
    EXPECT_THAT(
        outcome.errors,
        AllOf(StartsWith("virtual-unit: " + program +
                         " is not run: it is a program for 32-bit machines of ELF's number 20, not for "),
              HasSubstr(" as this virtual unit; both need to be built for the same\n")));
    EXPECT_EQ(outcome.status, NOT_EXECUTABLE);
}

TEST_P(ForeignProgramTest, OfTheOtherWordSizeIsRefusedByItsName)
{
    constexpr bool IS_64_BIT = sizeof(void*) == 8;
    for (const auto& [machine, name] :
         {std::pair<unsigned char, const char*>{EM_386, "x86"}, {EM_ARM, "ARM"}})
    {
        const std::string bits = IS_64_BIT ? "32-bit " : "64-bit ";
        const Outcome outcome =
            Run(Executable("other", Header(IS_64_BIT ? ELFCLASS32 : ELFCLASS64, ELFDATA2LSB, machine)));
        EXPECT_THAT(outcome.errors, HasSubstr("it is a program for " + bits + name + ", not for "));
        EXPECT_EQ(outcome.status, NOT_EXECUTABLE);
    }
}

TEST_P(ForeignProgramTest, ThatIsTheInterpreterOfAScriptIsRefused)
{
    const std::string interpreter = Executable("foreign-shell", ForeignHeader());
    const std::string script = Executable("script", "#! " + interpreter + " -e\n");
    const Outcome outcome = Run(script);
    EXPECT_THAT(outcome.errors, HasSubstr(script + " is not run: its interpreter " + interpreter +
                                          " is a program for 32-bit machines of ELF's number 20, not for "));
    EXPECT_EQ(outcome.status, NOT_EXECUTABLE);
}

TEST_P(ForeignProgramTest, IsFoundInThePathBeforeItIsRefused)
{
    Executable("foreign-in-path", ForeignHeader());
    const Outcome outcome =
        RunUnit({"run", "--by", GetParam(), "--", "foreign-in-path"},
                {.launcher = {"/usr/bin/env", "PATH=" + Kit::TempDir::Path() + ":/usr/bin:/bin"}});
    EXPECT_THAT(outcome.errors, HasSubstr("foreign-in-path is not run: it is a program for "));
    EXPECT_EQ(outcome.status, NOT_EXECUTABLE);
}

TEST_P(ForeignProgramTest, WhatIsNoProgramIsTheKernelsToRefuse)
{
    for (const std::string& content :
         {std::string("\x7f"
                      "ELF"),
          std::string("#!"), std::string("#! /nowhere\n"), std::string("#! \n"), std::string(4096, 'x')})
    {
        const Outcome outcome = Run(Executable("no-program", content));
        EXPECT_THAT(outcome.errors, Not(HasSubstr("is a program for")));
        EXPECT_NE(outcome.status, -1);
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, ForeignProgramTest, testing::Values("kernel", "preload"),
                         [](const auto& tested) { return std::string(tested.param); });

}

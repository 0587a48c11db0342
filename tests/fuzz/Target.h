#ifndef TESTS_FUZZ_TARGET_H
#define TESTS_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// What the sources of this folder are written with: each is a function that takes any bytes. clang makes a
/// program of it that looks for bytes which break it; the plain suite calls it with those of its corpus.
namespace Fuzz
{

/// Something that does not hold for these bytes. No std::exception, so that no target takes it for a refusal.
struct Broken
{
    std::string what; ///< source, line and what was to hold
};

using Function = void (*)(std::string_view input); ///< @throws Broken

using Targets = std::map<std::string, Function>;

Targets& All(); ///< of this program, by name

/// Takes one input apart: what a target wants besides a text stands in its first bytes. At its end all is 0.
class Input
{
public:
    explicit Input(std::string_view all) : rest(all) {}

    bool AtEnd() const { return rest.empty(); }

    unsigned char Byte()
    {
        const unsigned char byte = rest.empty() ? 0 : static_cast<unsigned char>(rest.front());
        rest.remove_prefix(rest.empty() ? 0 : 1);
        return byte;
    }

    std::string_view Bytes(std::size_t count) ///< fewer at the end
    {
        const std::string_view bytes = rest.substr(0, count);
        rest.remove_prefix(bytes.size());
        return bytes;
    }

    std::string_view Line() ///< without its line feed
    {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : line.size());
        return line;
    }

    std::string_view Rest() const { return rest; }

private:
    std::string_view rest;
};

}

#define FUZZ_TEXT(what) #what
#define FUZZ_LINE(line) FUZZ_TEXT(line)

/// What must hold, in every build.
#define FUZZ_REQUIRE(condition)                                                                              \
    ((condition) ? void() : throw Fuzz::Broken{__FILE__ ":" FUZZ_LINE(__LINE__) ": " #condition})

/// Begins the function of a target; the body follows, and sees the bytes as `input`.
#ifdef TAV_FUZZER
#define FUZZ_TARGET(name)                                                                                    \
    static void Fuzz##name(std::string_view input);                                                          \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)                        \
    {                                                                                                        \
        Fuzz##name({reinterpret_cast<const char*>(data), size});                                             \
        return 0;                                                                                            \
    }                                                                                                        \
    static void Fuzz##name([[maybe_unused]] std::string_view input)
#else
#define FUZZ_TARGET(name)                                                                                    \
    static void Fuzz##name(std::string_view input);                                                          \
    [[maybe_unused]] static const bool is##name##There = Fuzz::All().emplace(#name, Fuzz##name).second;      \
    static void Fuzz##name([[maybe_unused]] std::string_view input)
#endif

#endif

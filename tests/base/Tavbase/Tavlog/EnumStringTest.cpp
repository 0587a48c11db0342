#include "base/Tavbase/Tavlog/EnumString.h"

#include "tests/kit/Leaks.h"
#include "tests/kit/Program.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using Tavbase::Tavlog::EnumString;
using Tavbase::Tavlog::EnumStringBase;
using testing::Each;

namespace
{

// Each test has an enumeration of its own: the first access to a map comes once in a process.
template <int TEST>
struct Tag
{
    enum class Value : int
    {
        One = 1,
        Two = 2,
        Three = 3
    };

    static inline std::atomic<int> registrations{0};
};

using LookedUp = Tag<1>;
using Added = Tag<2>;
using Several = Tag<3>;
using Again = Tag<4>;
using Concurrent = Tag<5>;
using InDestructor = Tag<6>;

}

namespace Tavbase::Tavlog
{

#define NAMES_OF(TAG)                                                                                        \
    template <>                                                                                              \
    class EnumString<TAG::Value> : public EnumStringBase<EnumString<TAG::Value>, TAG::Value>                 \
    {                                                                                                        \
    public:                                                                                                  \
        static void RegisterEnumerators()                                                                    \
        {                                                                                                    \
            ++TAG::registrations;                                                                            \
            RegisterEnumerator(TAG::Value::One, "one");                                                      \
            RegisterEnumerator(TAG::Value::Two, "two");                                                      \
        }                                                                                                    \
    }

NAMES_OF(LookedUp);
NAMES_OF(Added);
NAMES_OF(Several);
NAMES_OF(Again);
NAMES_OF(Concurrent);
NAMES_OF(InDestructor);

}

namespace
{

/// A map lives until the process ends: what the test has put into it is no leak.
class Kept
{
public:
    ~Kept() { Kit::Leaks::Allow({0, 0, Kit::Leaks::Present().allocations - before}); }

    Kept() = default;
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;

private:
    std::int64_t before = Kit::Leaks::Present().allocations;
};

class EnumStringTest : public testing::Test
{
protected:
    Kept kept;
};

TEST_F(EnumStringTest, TheFirstLookUpFillsTheMapOnce)
{
    using Names = EnumString<LookedUp::Value>;
    EXPECT_EQ(LookedUp::registrations, 0);
    EXPECT_EQ(Names::From(LookedUp::Value::Two), "two");
    EXPECT_EQ(Names::From(LookedUp::Value::One), "one");
    EXPECT_EQ(LookedUp::registrations, 1);
}

TEST_F(EnumStringTest, AFirstAccessByAnAdditionFillsTheMapToo)
{
    using Names = EnumString<Added::Value>;
    Names::RegisterEnumerator(Added::Value::Three, "three");
    EXPECT_EQ(Added::registrations, 1);
    EXPECT_EQ(Names::From(Added::Value::One), "one");
    EXPECT_EQ(Names::From(Added::Value::Three), "three");
    EXPECT_EQ(Added::registrations, 1);
}

TEST_F(EnumStringTest, AValueThatWasNeverRegisteredHasAnEmptyName)
{
    using Names = EnumString<LookedUp::Value>;
    const std::string& none = Names::From(LookedUp::Value::Three);
    EXPECT_EQ(none, "");
    EXPECT_EQ(&Names::From(static_cast<LookedUp::Value>(-1)), &none) << "always the same empty text";
    EXPECT_EQ(none, "");
}

TEST_F(EnumStringTest, OfSeveralNamesTheFirstInTheirOrderIsGiven)
{
    using Names = EnumString<Several::Value>;
    Names::RegisterEnumerator(Several::Value::One, "uno");
    EXPECT_EQ(Names::From(Several::Value::One), "one");
    Names::RegisterEnumerator(Several::Value::One, "eins");
    EXPECT_EQ(Names::From(Several::Value::One), "eins");
}

TEST_F(EnumStringTest, ANameThatIsRegisteredAgainHasItsNewValue)
{
    using Names = EnumString<Again::Value>;
    EXPECT_EQ(Names::From(Again::Value::Two), "two");
    Names::RegisterEnumerator(Again::Value::Three, "two");
    EXPECT_EQ(Names::From(Again::Value::Three), "two");
    EXPECT_EQ(Names::From(Again::Value::Two), "");
}

TEST_F(EnumStringTest, ManyThreadsMayMakeTheFirstAccessAtOnce)
{
    using Names = EnumString<Concurrent::Value>;
    constexpr std::size_t THREADS = 8;
    std::array<std::string, THREADS> names;
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::string& name : names)
    {
        threads.emplace_back([&name, &ready] {
            ++ready;
            while (ready < THREADS)
            {
                std::this_thread::yield();
            }
            name = Names::From(Concurrent::Value::One) + Names::From(Concurrent::Value::Two);
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_THAT(names, Each("onetwo"));
    EXPECT_EQ(Concurrent::registrations, 1);
}

struct LooksUpAtTheEnd
{
    ~LooksUpAtTheEnd()
    {
        std::fprintf(stderr, "still %s\n",
                     EnumString<InDestructor::Value>::From(InDestructor::Value::One).c_str());
    }
};

KIT_PROGRAM(NamesInAStaticDestructor)
{
    static const LooksUpAtTheEnd early; // destroyed after what the look-up below makes
    return EnumString<InDestructor::Value>::From(InDestructor::Value::Two) == "two" ? 0 : 1;
}

TEST_F(EnumStringTest, NamesCanBeLookedUpInStaticDestructors)
{
    const Kit::ChildResult result = Kit::RunProgram("NamesInAStaticDestructor");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "still one\n");
}

}

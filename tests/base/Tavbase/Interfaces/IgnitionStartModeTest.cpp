#include "base/Tavbase/Interfaces/IgnitionStartMode.h"

#include <gtest/gtest.h>
#include <memory>

using Tavbase::Interfaces::IgnitionStartMode;

namespace
{

class Starter : public IgnitionStartMode
{
public:
    Starter(int& startCount, int& endCount) : starts(startCount), ends(endCount) {}

    Starter(const Starter&) = delete;
    Starter& operator=(const Starter&) = delete;

    ~Starter() override { ++ends; }

    void RunIgnitionStart() override { ++starts; }

private:
    int& starts;
    int& ends;
};

TEST(IgnitionStartModeTest, ADerivedObjectIsStartedAndDestroyedThroughTheInterface)
{
    int starts = 0;
    int ends = 0;
    {
        const std::unique_ptr<IgnitionStartMode> mode = std::make_unique<Starter>(starts, ends);
        mode->RunIgnitionStart();
        EXPECT_EQ(starts, 1);
        EXPECT_EQ(ends, 0);
    }
    EXPECT_EQ(ends, 1);
}

}

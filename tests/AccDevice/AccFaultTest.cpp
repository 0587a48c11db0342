// Every call that the accelerometer makes fails in turn.

#include "tests/AccDevice/AccTest.h"

#include <set>
#include <string_view>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace AccTests
{

namespace
{

/// What went wrong in one session that prepares, fetches two batches and ends.
Texts Session(Chip& chip, AccDevice& device, Receiver& receiver)
{
    Texts failed;
    chip.Fill(2 - chip.Waiting());
    const std::size_t before = receiver.Count();
    AccDevice::IThreadDelegate* delegate = &receiver;
    if (!device.Prepare(delegate))
    {
        failed.push_back(device.GetErrorMessage());
    }
    testing::internal::CaptureStdout();
    const bool begun = device.RunBefore() != 0;
    if (const std::string printed = testing::internal::GetCapturedStdout(); !printed.empty())
    {
        failed.push_back(printed);
    }
    if (begun)
    {
        device.Run();
        device.Run();
        device.Run();
    }
    device.RunAfter();
    if (receiver.Count() - before != 2)
    {
        failed.push_back(std::to_string(receiver.Count() - before) + " batches");
    }
    return failed;
}

class AccSweep : public Kit::DeviceTest, public testing::WithParamInterface<int>
{
protected:
    /// A session in which the nth call of the function fails.
    Texts Fault(const char* function, int nth)
    {
        Kit::System::Reset();
        Chip chip;
        chip.Set(WHO_AM_I, 0x1A);
        Receiver receiver;
        AccDevice device(1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
        Kit::System::Fail(function, GetParam(), nth);
        Texts failed = Session(chip, device, receiver);
        struck = Kit::System::FailuresDone() == 1;
        for (const int fd : LeftOpen())
        {
            close(fd);
            ++leftOpen;
        }
        for (const Batch& batch : receiver.All())
        {
            EXPECT_EQ(batch.bytes.size(), 30u);
        }
        return failed;
    }

    /// By the record of calls: the numbers that others have by now look open, too.
    static std::set<int> LeftOpen()
    {
        std::set<int> open;
        for (const auto& call : Kit::System::Calls())
        {
            if (std::string_view(call.function) == "open" && call.result >= 0)
            {
                open.insert(static_cast<int>(call.result));
            }
            else if (std::string_view(call.function) == "close" && call.result == 0)
            {
                open.erase(call.fd);
            }
        }
        return open;
    }

    static std::string Reason(const char* text) { return std::string(text) + std::strerror(GetParam()); }

    bool struck = false;
    int leftOpen = 0;
};

TEST_P(AccSweep, AnOpenThatFailsIsThatOfPrepareOrOfTheThread)
{
    EXPECT_THAT(Fault("open", 1), ElementsAre(Reason("Unable to open bus: ")))
        << "the thread opens the adapter by itself";
    EXPECT_THAT(Fault("open", 2), ElementsAre(Reason("ERROR: Unable to open bus: ") + "\n", "0 batches"));
    EXPECT_EQ(leftOpen, 0);
    EXPECT_THAT(Fault("open", 3), IsEmpty());
    EXPECT_FALSE(struck) << "a call more than expected";
}

TEST_P(AccSweep, ACloseThatFailsIsPassedOver)
{
    EXPECT_THAT(Fault("close", 1), IsEmpty());
    EXPECT_EQ(Kit::System::CallsOf("open").size(), 1u) << "the thread takes the descriptor that is left";
    EXPECT_EQ(leftOpen, 0);
    EXPECT_THAT(Fault("close", 2), IsEmpty());
    EXPECT_EQ(leftOpen, 1);
    EXPECT_THAT(Fault("close", 3), IsEmpty());
    EXPECT_FALSE(struck) << "a call more than expected";
}

TEST_P(AccSweep, ATransferThatFailsHasItsStatedResult)
{
    constexpr int CALLS = 32;
    constexpr int THREAD_BEGINS = 22; // behind slave, identity and nineteen transfers of the program
    constexpr int LAST_POLL = CALLS;
    for (int nth = 1; nth <= CALLS; ++nth)
    {
        Texts expected;
        switch (nth)
        {
        case 1:
            expected = {Reason("ioctl error: ")};
            break;
        case 2:
            expected = {"Accelerometer not found"};
            break;
        case THREAD_BEGINS:
            expected = {Reason("ERROR: ioctl error: ") + "\n", "0 batches"};
            break;
        case LAST_POLL: // not known to be without a batch
            expected = {"3 batches"};
            break;
        default: // a batch that was not fetched is fetched by the next step
            break;
        }
        EXPECT_THAT(Fault("ioctl", nth), ElementsAreArray(expected)) << nth;
        EXPECT_TRUE(struck) << nth;
    }
    EXPECT_THAT(Fault("ioctl", CALLS + 1), IsEmpty());
    EXPECT_FALSE(struck) << "a call more than expected";
    EXPECT_EQ(leftOpen, 0);
}

TEST_P(AccSweep, ADeadSystemIsSurvived)
{
    Chip chip;
    Receiver receiver;
    AccDevice device(1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    Kit::System::Fail("*", GetParam(), 1, 100'000);
    EXPECT_THAT(Session(chip, device, receiver),
                ElementsAre(Reason("Unable to open bus: "), Reason("ERROR: Unable to open bus: ") + "\n",
                            "0 batches"));
}

INSTANTIATE_TEST_SUITE_P(Errno, AccSweep, testing::ValuesIn(BUS_ERRORS));

}

}

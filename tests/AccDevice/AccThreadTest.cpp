// The thread: start, batches, stop, restart, destruction.

#include "tests/AccDevice/AccTest.h"

#include <atomic>
#include <memory>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

namespace AccTests
{

namespace
{

class AccThreadTest : public AccTest
{
protected:
    void Start()
    {
        ASSERT_TRUE(Prepare());
        ForgetAll();
        ASSERT_TRUE(accelerometer.Start());
    }

    static void Pass(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

    bool Batches(std::size_t count)
    {
        return Clock::WaitUntil([&] { return receiver.Count() >= count; });
    }

    std::size_t Polls() const
    {
        const Texts transfers = chip.Transfers();
        return static_cast<std::size_t>(std::count(transfers.begin(), transfers.end(), "read 0C"));
    }
};

TEST_F(AccThreadTest, PollsEveryTwentyMilliseconds)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(1010ms);
    EXPECT_EQ(Polls(), 51u);
    accelerometer.Stop();
    EXPECT_EQ(receiver.Count(), 0u);
    Texts transfers = chip.Transfers();
    std::erase(transfers, "read 0C");
    EXPECT_THAT(transfers, ElementsAre("slave 1C", "write 09=00", "write 09=40", "read 00"));
}

TEST_F(AccThreadTest, ABatchIsDeliveredAtTheNextPollOnItsOwnThread)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(105ms);
    chip.Fill();
    ASSERT_TRUE(Batches(1));
    accelerometer.Stop();
    const auto batches = receiver.All();
    EXPECT_EQ(batches[0].at, 120ms);
    EXPECT_THAT(batches[0].bytes, SizeIs(30));
    EXPECT_NE(batches[0].thread, std::this_thread::get_id());
    EXPECT_EQ(receiver.Count(), 1u);
}

TEST_F(AccThreadTest, BatchesThatWaitAreFetchedWithoutAPauseAndInOrder)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(105ms);
    chip.Fill(5);
    ASSERT_TRUE(Batches(5));
    Pass(100ms);
    accelerometer.Stop();
    const auto batches = receiver.All();
    ASSERT_THAT(batches, SizeIs(5));
    for (std::size_t i = 0; i < batches.size(); ++i)
    {
        EXPECT_EQ(batches[i].bytes.at(0), i);
        EXPECT_EQ(batches[i].at, 120ms);
    }
}

TEST_F(AccThreadTest, ItsThreadHasItsName)
{
    EXPECT_EQ(accelerometer.GetName(), "ACC-DEVICE");
}

TEST_F(AccThreadTest, StopEndsItWithinOnePollAndFreesEverything)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_TRUE(accelerometer.IsRunning());
    EXPECT_FALSE(accelerometer.Start()) << "it runs already";
    chip.Fill();
    ASSERT_TRUE(Batches(1));
    Pass(45ms);
    const auto before = Clock::Elapsed();
    accelerometer.Stop();
    EXPECT_LE(Clock::Elapsed() - before, 20ms);
    EXPECT_FALSE(accelerometer.IsRunning());
    EXPECT_EQ(receiver.Buffer()->data, nullptr);
    EXPECT_EQ(Count("close"), 1u);
    chip.Forget();
    chip.Fill();
    Pass(1s);
    EXPECT_THAT(chip.Transfers(), IsEmpty());
    EXPECT_EQ(receiver.Count(), 1u);
}

TEST_F(AccThreadTest, StartedAgainAfterAnotherPrepareItCallsTheReceiverTwiceForEachBatch)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    accelerometer.Stop();
    ASSERT_NO_FATAL_FAILURE(Start());
    chip.Fill();
    ASSERT_TRUE(Batches(2));
    Pass(100ms);
    accelerometer.Stop();
    const auto batches = receiver.All();
    ASSERT_THAT(batches, SizeIs(2));
    EXPECT_EQ(batches[0].bytes, batches[1].bytes);
}

TEST_F(AccThreadTest, StartedAgainWithoutAnotherPrepareItDeliversOn)
{
    chip.Delay(1ms); // a thread that could not fetch its batch would try without a pause
    ASSERT_NO_FATAL_FAILURE(Start());
    chip.Fill();
    ASSERT_TRUE(Batches(1));
    accelerometer.Stop();
    ForgetAll();
    ASSERT_TRUE(accelerometer.Start());
    chip.Fill();
    ASSERT_TRUE(Batches(2));
    accelerometer.Stop();
    EXPECT_THAT(receiver.All().back().bytes, SizeIs(30));
    const Texts transfers = chip.Transfers();
    EXPECT_THAT(Texts(transfers.begin(), transfers.begin() + 4),
                ElementsAre("slave 1C", "write 09=00", "write 09=40", "read 00"));
    EXPECT_EQ(Count("open"), 1u);
    EXPECT_EQ(Count("close"), 1u);
}

TEST_F(AccThreadTest, TwoReceiversAreCalledInTurn)
{
    Receiver second;
    AccDevice::IThreadDelegate* delegate = &second;
    ASSERT_TRUE(accelerometer.Prepare(delegate));
    ASSERT_NO_FATAL_FAILURE(Start());
    receiver.BeSlow(5ms);
    chip.Fill();
    ASSERT_TRUE(Batches(1));
    accelerometer.Stop();
    EXPECT_EQ(second.Count(), 1u);
    EXPECT_EQ(second.Buffer(), receiver.Buffer()) << "the same buffer";
}

TEST_F(AccThreadTest, ASlowReceiverDelaysTheNextPoll)
{
    receiver.BeSlow(500ms);
    ASSERT_NO_FATAL_FAILURE(Start());
    chip.Fill(3);
    ASSERT_TRUE(Batches(3));
    accelerometer.Stop();
    const auto batches = receiver.All();
    ASSERT_THAT(batches, SizeIs(3));
    EXPECT_EQ(batches[1].at - batches[0].at, 500ms);
    EXPECT_EQ(batches[2].at - batches[1].at, 500ms);
}

TEST_F(AccThreadTest, StopWaitsForAReceiverThatIsCalled)
{
    receiver.BeSlow(500ms);
    ASSERT_NO_FATAL_FAILURE(Start());
    chip.Fill(2);
    Pass(100ms);
    accelerometer.Stop();
    EXPECT_GE(Clock::Elapsed(), 500ms);
    EXPECT_EQ(receiver.Count(), 1u) << "the present step is the last one";
}

TEST_F(AccThreadTest, AReceiverMayStopTheThread)
{
    class Stopper : public AccDevice::IThreadDelegate
    {
    public:
        explicit Stopper(AccDevice& stopped) : device(stopped) {}

        void ThreadCallback(void*) override
        {
            ++calls;
            device.Stop();
        }

        std::atomic<int> calls{0};

    private:
        AccDevice& device;
    };

    Stopper stopper(accelerometer);
    AccDevice::IThreadDelegate* delegate = &stopper;
    ASSERT_TRUE(accelerometer.Prepare(delegate));
    chip.Fill(2);
    ASSERT_TRUE(accelerometer.Start());
    EXPECT_TRUE(Clock::WaitUntil([&] { return !accelerometer.IsRunning(); }));
    accelerometer.Stop();
    EXPECT_EQ(stopper.calls, 1);
}

TEST_F(AccThreadTest, AnAdapterThatIsGoneEndsTheThreadWithAMessage)
{
    ASSERT_TRUE(Prepare());
    ForgetAll();
    chip.Fill();
    for (const char* function : {"open", "ioctl"})
    {
        Kit::System::Fail(function, ENODEV);
        testing::internal::CaptureStdout();
        EXPECT_TRUE(accelerometer.Start());
        EXPECT_TRUE(Clock::WaitUntil([&] { return !accelerometer.IsRunning(); }));
        accelerometer.Stop();
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  std::string("ERROR: ") + (*function == 'o' ? "Unable to open bus" : "ioctl error") +
                      ": No such device\n");
    }
    EXPECT_THAT(chip.Transfers(), IsEmpty());
    EXPECT_EQ(Count("close"), 1u) << "the one that was opened";
    EXPECT_EQ(receiver.Count(), 0u);
    EXPECT_FALSE(accelerometer.HasError());

    ASSERT_TRUE(accelerometer.Start()) << "it can be tried again";
    EXPECT_TRUE(Batches(1));
    accelerometer.Stop();
}

TEST_F(AccThreadTest, WithoutPrepareTheThreadEndsWithAMessage)
{
    testing::internal::CaptureStdout();
    ASSERT_TRUE(accelerometer.Start());
    EXPECT_TRUE(Clock::WaitUntil([&] { return !accelerometer.IsRunning(); }));
    accelerometer.Stop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ERROR: Invalid device length\n");
    EXPECT_THAT(Kit::System::CallsOf("open"), IsEmpty());
}

TEST_F(AccThreadTest, ABusThatFailsForAWhileIsSurvived)
{
    chip.Delay(1ms);
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(100ms);
    for (const int error : BUS_ERRORS)
    {
        Kit::System::Fail("ioctl", error, 1, 7);
    }
    Pass(300ms); // three of them in each step of 20 ms
    EXPECT_EQ(Kit::System::FailuresDone(), 35);
    const std::size_t before = receiver.Count();
    chip.Fill();
    EXPECT_TRUE(Batches(before + 1));
    EXPECT_TRUE(accelerometer.IsRunning());
    accelerometer.Stop();
    EXPECT_THAT(receiver.All().back().bytes, SizeIs(30));
}

// Destruction --------------------------------------------------------------------------------------------

class AccDestroyedAt : public AccThreadTest, public testing::WithParamInterface<int>
{
};

TEST_P(AccDestroyedAt, EndsTheThreadAndClosesTheAdapter)
{
    auto own = std::make_unique<AccDevice>(1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    ASSERT_TRUE(Prepare(*own));
    chip.Delay(1ms);
    chip.Fill(10);
    ForgetAll();
    ASSERT_TRUE(own->Start());
    Pass(std::chrono::milliseconds(GetParam()));
    const auto before = Clock::Elapsed();
    own.reset();
    EXPECT_LE(Clock::Elapsed() - before, 25ms);
    EXPECT_EQ(Count("open"), Count("close"));
    chip.Forget();
    const std::size_t count = receiver.Count();
    Pass(1s);
    EXPECT_THAT(chip.Transfers(), IsEmpty());
    EXPECT_EQ(receiver.Count(), count);
}

INSTANTIATE_TEST_SUITE_P(Milliseconds, AccDestroyedAt,
                         testing::Values(0, 1, 2, 3, 4, 5, 6, 7, 10, 34, 40, 500));

TEST_F(AccThreadTest, DestroyedThroughTheErrorRecordItEndsTheThread)
{
    auto own = std::make_unique<AccDevice>(1, ADDRESS, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
    ASSERT_TRUE(Prepare(*own));
    ForgetAll();
    ASSERT_TRUE(own->Start());
    Pass(50ms);
    const std::unique_ptr<Tavbase::Interfaces::IError> record = std::move(own);
    EXPECT_FALSE(record->HasError());
}

}

}

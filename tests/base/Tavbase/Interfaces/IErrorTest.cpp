#include "base/Tavbase/Interfaces/IError.h"

#include "base/Tavbase/IException.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

using Tavbase::Interfaces::IError;

namespace
{

static_assert(std::has_virtual_destructor_v<IError>);

class Device : public IError
{
public:
    Device() { SetErrorSource("Tavdevice", "GpsDevice"); }

    using IError::SetErrorNumber;
};

void ExpectNoError(const IError& object)
{
    EXPECT_FALSE(object.HasError());
    EXPECT_EQ(object.GetErrorMessage(), "");
    EXPECT_EQ(object.GetErrorPlace(), "");
    EXPECT_EQ(object.GetErrorNumber(), 0);
}

TEST(IErrorTest, StartsWithoutAnError)
{
    const IError object;
    ExpectNoError(object);
    EXPECT_EQ(object.GetNamespaceName(), "");
    EXPECT_EQ(object.GetClassName(), "");
}

TEST(IErrorTest, CarriesTheNamesThatTheDerivedConstructorSets)
{
    const Device device;
    ExpectNoError(device);
    EXPECT_EQ(device.GetNamespaceName(), "Tavdevice");
    EXPECT_EQ(device.GetClassName(), "GpsDevice");
}

TEST(IErrorTest, RecordsMessageAndPlace)
{
    Device device;
    device.SetError("Unable to open", "Prepare", true, true);
    EXPECT_TRUE(device.HasError());
    EXPECT_EQ(device.GetErrorMessage(), "Unable to open");
    EXPECT_EQ(device.GetErrorPlace(), "Prepare");
}

TEST(IErrorTest, RecordsTheTextOfAnException)
{
    Device device;
    device.SetError(std::runtime_error("out of range"), "Run", true, true);
    EXPECT_EQ(device.GetErrorMessage(), "out of range");
    EXPECT_EQ(device.GetErrorPlace(), "Run");
    device.SetError(Tavbase::IException("refused", -1), "RunBefore", true, true);
    EXPECT_EQ(device.GetErrorMessage(), "refused");
    EXPECT_EQ(device.GetErrorPlace(), "RunBefore");
}

TEST(IErrorTest, ALaterErrorReplacesTheRecordedOne)
{
    Device device;
    device.SetError("first", "Open", true, true);
    device.SetError("second", "Read", true, true);
    EXPECT_EQ(device.GetErrorMessage(), "second");
    EXPECT_EQ(device.GetErrorPlace(), "Read");
}

TEST(IErrorTest, AnErrorThatDoesNotReplaceIsRecordedOnlyWhereNoneIs)
{
    Device device;
    device.SetError("first", "Open", false, true);
    EXPECT_EQ(device.GetErrorMessage(), "first");
    device.SetError("second", "Read", false, true);
    device.SetError(std::runtime_error("third"), "Close", false, true);
    EXPECT_EQ(device.GetErrorMessage(), "first");
    EXPECT_EQ(device.GetErrorPlace(), "Open");
}

TEST(IErrorTest, ThePlaceIsLeftEmptyWhereItIsNotWanted)
{
    Device device;
    device.SetError("first", "Open", true, true);
    device.SetError("second", "Read", true, false);
    EXPECT_EQ(device.GetErrorMessage(), "second");
    EXPECT_EQ(device.GetErrorPlace(), "");
    device.SetError(std::runtime_error("third"), "Close", true, false);
    EXPECT_EQ(device.GetErrorPlace(), "");
}

TEST(IErrorTest, AnEmptyMessageIsAnErrorToo)
{
    Device device;
    device.SetError("", "Open", true, true);
    EXPECT_TRUE(device.HasError());
    EXPECT_EQ(device.GetErrorPlace(), "Open");
}

TEST(IErrorTest, TheNumberStandsBesideTheMessage)
{
    Device device;
    device.SetErrorNumber(EREMOTEIO);
    device.SetError("No answer", "ReadByte", true, true);
    EXPECT_EQ(device.GetErrorNumber(), EREMOTEIO);
    const IError::Record record = device.GetError();
    EXPECT_EQ(record.message, "No answer");
    EXPECT_EQ(record.where, "ReadByte");
    EXPECT_EQ(record.errorNumber, EREMOTEIO);
    EXPECT_EQ(record.nameSpace, "Tavdevice");
    EXPECT_EQ(record.className, "GpsDevice");
}

TEST(IErrorTest, ANumberAloneIsNotAnError)
{
    Device device;
    device.SetErrorNumber(EIO);
    EXPECT_FALSE(device.HasError());
}

TEST(IErrorTest, ResetForgetsTheErrorAndKeepsTheNames)
{
    Device device;
    device.SetErrorNumber(EIO);
    device.SetError("broken", "Read", true, true);
    device.ResetError();
    ExpectNoError(device);
    EXPECT_EQ(device.GetNamespaceName(), "Tavdevice");
    EXPECT_EQ(device.GetClassName(), "GpsDevice");
    device.SetError("again", "Open", false, true);
    EXPECT_EQ(device.GetErrorMessage(), "again") << "after a reset nothing is there to be kept";
}

TEST(IErrorTest, ACopyHasTheRecordAndIsIndependentOfTheOriginal)
{
    Device original;
    original.SetErrorNumber(EIO);
    original.SetError("broken", "Read", true, true);
    const Device copy = original;
    Device assigned;
    assigned = original;
    original.ResetError();
    for (const Device* device : {&copy, static_cast<const Device*>(&assigned)})
    {
        EXPECT_TRUE(device->HasError());
        EXPECT_EQ(device->GetErrorMessage(), "broken");
        EXPECT_EQ(device->GetErrorPlace(), "Read");
        EXPECT_EQ(device->GetErrorNumber(), EIO);
        EXPECT_EQ(device->GetClassName(), "GpsDevice");
    }
    const Device& same = assigned;
    assigned = same;
    EXPECT_EQ(assigned.GetErrorMessage(), "broken");
}

TEST(IErrorTest, AnotherThreadReadsWholeErrorsWhileTheyAreWritten)
{
    // Long enough not to be held inside the string, so that a torn read would be memory freed under it.
    const std::string first(64, 'a');
    const std::string second(200, 'b');
    Device device;
    device.SetError(first, first, true, true);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 10000; ++i)
        {
            const std::string& text = i % 2 == 0 ? second : first;
            device.SetError(text, text, true, true);
            device.SetErrorNumber(i);
        }
        done = true;
    });
    int reads = 0;
    while (!done || reads == 0)
    {
        const IError::Record record = device.GetError();
        ASSERT_EQ(record.message, record.where);
        ASSERT_TRUE(record.message == first || record.message == second);
        const Device copy = device;
        ASSERT_TRUE(copy.GetErrorMessage() == first || copy.GetErrorMessage() == second);
        ASSERT_TRUE(device.HasError());
        ++reads;
    }
    writer.join();
    EXPECT_EQ(device.GetErrorMessage(), first);
    EXPECT_EQ(device.GetErrorNumber(), 9999);
}

TEST(IErrorTest, TwoObjectsCopiedIntoEachOtherDoNotLockEachOtherOut)
{
    Device one;
    Device other;
    one.SetError("one", "one", true, true);
    other.SetError("other", "other", true, true);
    std::thread thread([&] {
        for (int i = 0; i < 10000; ++i)
        {
            one = other;
        }
    });
    for (int i = 0; i < 10000; ++i)
    {
        other = one;
    }
    thread.join();
    EXPECT_EQ(one.GetErrorMessage(), one.GetErrorPlace());
    EXPECT_EQ(other.GetErrorMessage(), other.GetErrorPlace());
}

}

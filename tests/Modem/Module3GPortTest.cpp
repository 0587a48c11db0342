// Opening an interface, its settings, and exchanges that cannot begin.

#include "tests/Modem/ModemTest.h"
#include "tests/kit/ClosedStreams.h"
#include "tests/kit/Program.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <list>
#include <ostream>
#include <termios.h>
#include <type_traits>
#include <unistd.h>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace ModemTests
{

namespace
{

constexpr const char* QUESTION = "AT+CSQ\r\n";
constexpr const char* REFUSED = "[Module3G] Error, Input/output error\n";

int OpenPort(std::string path)
{
    return Module3G::OpenPort(path.data());
}

// Settings -----------------------------------------------------------------------------------------------

constexpr tcflag_t INPUT_CLEARED = IXON | IXOFF | IXANY | ICRNL | INLCR | IGNCR;
constexpr tcflag_t INPUT_KEPT = IGNBRK | BRKINT | IGNPAR | PARMRK | INPCK | ISTRIP | IMAXBEL | IUTF8;
constexpr tcflag_t OUTPUT_KEPT = ONLCR | OCRNL | ONOCR | ONLRET;
constexpr tcflag_t CONTROL_CLEARED = PARENB | CSTOPB | CRTSCTS;
constexpr tcflag_t CONTROL_SET = CREAD | CLOCAL;
constexpr tcflag_t CONTROL_KEPT = PARODD | HUPCL;
constexpr tcflag_t LOCAL_CLEARED = ICANON | ECHO | ECHOE | ISIG;
constexpr tcflag_t LOCAL_KEPT = ECHOK | ECHONL | ECHOCTL | ECHOKE | IEXTEN | NOFLSH | TOSTOP;

/// A line on which everything that is to be set is not set, and everything that is to be cleared is.
struct termios Opposite()
{
    struct termios settings = {};
    settings.c_iflag = INPUT_CLEARED | INPUT_KEPT;
    settings.c_oflag = OPOST | OUTPUT_KEPT;
    settings.c_cflag = CS6 | CONTROL_CLEARED | CONTROL_KEPT;
    settings.c_lflag = LOCAL_CLEARED | LOCAL_KEPT;
    settings.c_cc[VTIME] = 77;
    settings.c_cc[VMIN] = 88;
    settings.c_cc[VEOF] = 3;
    cfsetospeed(&settings, B38400);
    cfsetispeed(&settings, B0); // "as the output", which the C library marks in c_iflag
    return settings;
}

class PortTest : public ModemTest
{
protected:
    /// Opens the main interface and closes it. @return the settings asked for
    static struct termios Asked()
    {
        const int fd = OpenPort(MAIN_PORT);
        EXPECT_GT(fd, 0);
        close(fd);
        return Kit::System::LastSettings();
    }
};

TEST_F(PortTest, EverySettingIsAskedForWhateverItWas)
{
    Kit::System::ReportSettings(Opposite());
    const struct termios asked = Asked();
    EXPECT_EQ(asked.c_iflag, INPUT_KEPT);
    EXPECT_EQ(asked.c_oflag, OUTPUT_KEPT);
    EXPECT_EQ(asked.c_lflag, LOCAL_KEPT);
    EXPECT_EQ(asked.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(asked.c_cflag & CONTROL_CLEARED, 0u);
    EXPECT_EQ(asked.c_cflag & CONTROL_SET, CONTROL_SET);
    EXPECT_EQ(asked.c_cflag & CONTROL_KEPT, CONTROL_KEPT);
    EXPECT_EQ(cfgetispeed(&asked), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&asked), static_cast<speed_t>(B115200));
    EXPECT_EQ(asked.c_cc[VTIME], 77) << "as read";
    EXPECT_EQ(asked.c_cc[VMIN], 88) << "as read";
    EXPECT_EQ(asked.c_cc[VEOF], 3);
}

TEST_F(PortTest, NothingIsSetThatWasNotAndNeedNotBe)
{
    struct termios none = {};
    cfsetspeed(&none, B9600);
    Kit::System::ReportSettings(none);
    const struct termios asked = Asked();
    EXPECT_EQ(asked.c_iflag, 0u);
    EXPECT_EQ(asked.c_oflag, 0u);
    EXPECT_EQ(asked.c_lflag, 0u);
    EXPECT_EQ(asked.c_cflag & ~static_cast<tcflag_t>(CBAUD), static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
    EXPECT_EQ(asked.c_cc[VTIME], 0);
    EXPECT_EQ(asked.c_cc[VMIN], 0);
}

TEST_F(PortTest, TheRealTerminalGetsTheSettings)
{
    const struct termios opposite = Opposite();
    ASSERT_EQ(tcsetattr(module.Descriptor(), TCSANOW, &opposite), 0);
    Asked();
    struct termios after = {};
    ASSERT_EQ(tcgetattr(module.Descriptor(), &after), 0);
    EXPECT_EQ(after.c_iflag & INPUT_CLEARED, 0u);
    EXPECT_EQ(after.c_oflag & OPOST, 0u);
    EXPECT_EQ(after.c_lflag & LOCAL_CLEARED, 0u);
    EXPECT_EQ(after.c_cflag & (CSIZE | CSTOPB | CRTSCTS | CREAD | CLOCAL),
              static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B115200));
    EXPECT_EQ(after.c_cc[VTIME], 77);
    EXPECT_EQ(after.c_cc[VMIN], 88);
}

/// One flag of one of the four words.
struct FlagRow
{
    const char* name;
    tcflag_t termios::*word;
    tcflag_t flag;
};

void PrintTo(const FlagRow& row, std::ostream* out)
{
    *out << row.name;
}

class ClearedFlag : public PortTest, public testing::WithParamInterface<FlagRow>
{
};

TEST_P(ClearedFlag, IsClearedOnItsOwn)
{
    struct termios settings = {};
    settings.*GetParam().word = GetParam().flag;
    Kit::System::ReportSettings(settings);
    const struct termios asked = Asked();
    const tcflag_t wanted = GetParam().word == &termios::c_cflag ? CS8 | CREAD | CLOCAL | B115200 : 0;
    const tcflag_t looked = GetParam().word == &termios::c_cflag ? ~tcflag_t{CIBAUD} : ~tcflag_t{0};
    EXPECT_EQ(asked.*GetParam().word & looked, wanted);
}

#define FLAG(word, flag)                                                                                     \
    FlagRow                                                                                                  \
    {                                                                                                        \
#flag, &termios::word, flag                                                                          \
    }

INSTANTIATE_TEST_SUITE_P(All, ClearedFlag,
                         testing::Values(FLAG(c_cflag, CRTSCTS), FLAG(c_cflag, PARENB), FLAG(c_cflag, CSTOPB),
                                         FLAG(c_cflag, CS6), FLAG(c_cflag, CS7), FLAG(c_iflag, IXON),
                                         FLAG(c_iflag, IXOFF), FLAG(c_iflag, IXANY), FLAG(c_iflag, ICRNL),
                                         FLAG(c_iflag, INLCR), FLAG(c_iflag, IGNCR), FLAG(c_oflag, OPOST),
                                         FLAG(c_lflag, ICANON), FLAG(c_lflag, ECHO), FLAG(c_lflag, ECHOE),
                                         FLAG(c_lflag, ISIG)),
                         [](const testing::TestParamInfo<FlagRow>& row) { return row.param.name; });

TEST_F(PortTest, AnInterfaceIsOpenedWithoutWaitingAndNotAsATerminalOfTheProcess)
{
    const int fd = OpenPort(MAIN_PORT);
    ASSERT_GT(fd, 0);
    const auto opens = Kit::System::CallsOf("open");
    ASSERT_THAT(opens, SizeIs(1));
    EXPECT_EQ(opens[0].path, MAIN_PORT);
    EXPECT_EQ(opens[0].argument, O_RDWR | O_NOCTTY | O_NONBLOCK);
    EXPECT_EQ(opens[0].result, fd);
    EXPECT_EQ(Kit::System::LastStatusFlags(), O_NONBLOCK);
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
    const auto sets = Kit::System::CallsOf("tcsetattr");
    ASSERT_THAT(sets, SizeIs(1));
    EXPECT_EQ(sets[0].argument, TCSANOW);
    EXPECT_EQ(Count("close"), 0u) << "the caller's to close";
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), -1) << "a read returns at once";
    EXPECT_EQ(errno, EAGAIN);
    close(fd);
}

// No device ----------------------------------------------------------------------------------------------

TEST_F(ModemStateTest, AnInterfaceThatIsMissingIsNotOpenedAndNothingIsPrinted)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(OpenPort(MAIN_PORT), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemStateTest, AMissingModuleIsFourFailedWrites)
{
    std::memset(Module3G::bufferAtCommands, 'x', 10);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Exchange(QUESTION, SHORT_CYCLES), -3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Clock::Elapsed(), 400ms);
    EXPECT_THAT(Kit::System::Sleeps(), ElementsAre(100ms, 100ms, 100ms, 100ms));
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_EQ(Gathered(), std::string(10, 'x')) << "the reply before stays";
    EXPECT_TRUE(LockIsFree());
}

class OpenError : public ModemTest, public testing::WithParamInterface<int>
{
};

TEST_P(OpenError, IsAFailedWriteAndTheNextExchangeWorks)
{
    module.Accept(QUESTION);
    Kit::System::Fail("open", GetParam());
    EXPECT_EQ(Exchange(QUESTION, SHORT_CYCLES), -3);
    EXPECT_EQ(Clock::Elapsed(), 400ms);
    EXPECT_EQ(Count("tcsetattr") + Count("close"), 0u);
    EXPECT_EQ(Exchange(QUESTION, SHORT_CYCLES), 0);
}

INSTANTIATE_TEST_SUITE_P(Errors, OpenError, testing::Values(ENOENT, EACCES, EBUSY, EMFILE, ENODEV));

// Writes that fail ---------------------------------------------------------------------------------------

struct WriteRow
{
    const char* name;
    int error;
    long result;
};

void PrintTo(const WriteRow& row, std::ostream* out)
{
    *out << row.name;
}

class FailedWrite : public ModemTest, public testing::WithParamInterface<WriteRow>
{
};

TEST_P(FailedWrite, IsTriedFourTimesWithTheWholeCommand)
{
    module.Accept(QUESTION);
    for (int failed = 1; failed <= 4; ++failed)
    {
        Kit::System::ForgetCalls();
        module.ForgetReceived();
        const auto before = Clock::Elapsed();
        Kit::System::Fail("write", GetParam().error, 1, failed, GetParam().result);
        EXPECT_EQ(Exchange(QUESTION, SHORT_CYCLES), failed < 4 ? 0 : -3) << failed;
        EXPECT_EQ(Clock::Elapsed() - before, failed * 100ms + (failed < 4 ? 100ms : 0ms)) << failed;
        EXPECT_EQ(Count("write"), static_cast<std::size_t>(failed < 4 ? failed + 1 : 4)) << failed;
        for (const Kit::System::Call& call : Kit::System::CallsOf("write"))
        {
            EXPECT_EQ(call.argument, 8);
        }
        EXPECT_EQ(module.Received(), failed < 4 ? QUESTION : "") << failed;
        EXPECT_EQ(Count("read"), failed < 4 ? 1u : 0u);
        EXPECT_EQ(Count("close"), 1u);
        EXPECT_TRUE(LockIsFree());
    }
    EXPECT_EQ(Gathered(), Reply(QUESTION)) << "an exchange that was not written leaves the reply before";
    EXPECT_EQ(Exchange(QUESTION, SHORT_CYCLES), 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, FailedWrite,
                         testing::Values(WriteRow{"EAGAIN", EAGAIN, -1}, WriteRow{"EIO", EIO, -1},
                                         WriteRow{"EINTR", EINTR, -1}, WriteRow{"Nothing", 0, 0},
                                         WriteRow{"AllButOne", 0, 7}),
                         [](const testing::TestParamInfo<WriteRow>& row) { return row.param.name; });

// Settings refused ---------------------------------------------------------------------------------------

TEST_F(PortTest, RefusedSettingsArePrintedAndThrownAndTheDescriptorStaysOpen)
{
    Kit::System::Fail("tcsetattr", EIO);
    testing::internal::CaptureStdout();
    std::string text;
    int code = -1;
    try
    {
        OpenPort(MAIN_PORT);
    }
    catch (const IException& e)
    {
        text = e.what();
        code = e.Code();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(REFUSED) + '\n');
    EXPECT_EQ(text, REFUSED);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(Count("close"), 0u);
    AllowDescriptors(1);
}

TEST_F(PortTest, TheSystemsReasonIsToldWhicheverItIs)
{
    for (const int error : {EINVAL, EINTR, ENOTTY, ENXIO})
    {
        Kit::System::Fail("tcsetattr", error);
        testing::internal::CaptureStdout();
        std::string text;
        try
        {
            OpenPort(MAIN_PORT);
        }
        catch (const IException& e)
        {
            text = e.what();
        }
        const std::string expected = "[Module3G] Error, " + std::string(std::strerror(error)) + '\n';
        EXPECT_EQ(testing::internal::GetCapturedStdout(), expected + '\n');
        EXPECT_EQ(text, expected);
    }
    AllowDescriptors(4);
}

TEST_F(PortTest, AnExchangeWithRefusedSettingsThrowsAnewAndLeavesTheLock)
{
    module.Accept(QUESTION);
    Kit::System::Fail("tcsetattr", EIO);
    testing::internal::CaptureStdout();
    std::string text;
    int code = 0;
    try
    {
        Exchange(QUESTION, SHORT_CYCLES);
    }
    catch (const IException& e)
    {
        text = e.what();
        code = e.Code();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(REFUSED) + '\n');
    EXPECT_EQ(text, REFUSED);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(Clock::Elapsed(), 0ms);
    EXPECT_EQ(Count("write") + Count("close"), 0u);
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
    EXPECT_EQ(Exchange(QUESTION, SHORT_CYCLES), 0);
    EXPECT_EQ(module.Received(), QUESTION) << "of the second exchange";
    AllowDescriptors(1);
}

// The begin of a process ---------------------------------------------------------------------------------

static_assert(sizeof(Module3G::start) == 8 && sizeof(Module3G::end) == 8);
static_assert(std::is_same_v<decltype(Module3G::bufferAtCommands), char*>);
static_assert(std::is_same_v<decltype(Module3G::mutexATCommands), std::mutex>);
static_assert(std::is_same_v<decltype(Module3G::cFds), pollfd>);
static_assert(std::is_same_v<decltype(Tavdevice::Modem::NR_OF_TRIES), int>);
static_assert(std::is_same_v<decltype(Tavdevice::Modem::Bus_Module3G), std::string>);
static_assert(std::is_same_v<decltype(Module3G::registration_status), int>);
static_assert(std::is_same_v<decltype(Module3G::PreferredOperatorList), std::list<PreferredOperator>>);
static_assert(std::is_same_v<decltype(Module3G::m3gSimICCID), std::string>);
static_assert(std::is_same_v<decltype(Module3G::m3gSimIMSI), std::string>);
static_assert(std::is_same_v<decltype(Module3G::m3gIMEI), std::string>);
static_assert(std::is_same_v<decltype(Module3G::m3g_fw_version), std::string>);
static_assert(std::is_same_v<decltype(Module3G::failedRegistrations), int>);
static_assert(std::is_same_v<decltype(Module3G::autoCarrierSelection), bool>);
static_assert(std::is_same_v<decltype(Module3G::lastTransmitionTime), std::int64_t>);
static_assert(sizeof(long) != sizeof(std::int64_t) ||
              std::is_same_v<decltype(Module3G::lastTransmitionTime), std::time_t>); // as it was, on 64 bits
static_assert(std::is_same_v<decltype(Module3G::label), std::string>);
static_assert(std::is_same_v<decltype(Module3G::counter), int>);
static_assert(std::is_same_v<decltype(Operator::status), std::int32_t>);
static_assert(std::is_same_v<decltype(Operator::accessTechnology), std::int32_t>);
static_assert(std::is_same_v<decltype(PreferredOperator::code), std::int32_t>);
static_assert(std::is_same_v<decltype(PreferredOperator::spare), std::int32_t>);
static_assert(std::is_same_v<decltype(&Module3G::OpenPort), int (*)(char*)>);
static_assert(std::is_same_v<decltype(&Module3G::SetLastTransmissionTime), void (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::CheckModulePresence), bool (Module3G::*)(bool)>);
static_assert(std::is_same_v<decltype(&Module3G::SaveDateTime), void (*)(char*)>);
static_assert(std::is_same_v<decltype(&Module3G::IsRegistered), bool (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::GetRegistrationStatusDescription), std::string (*)(int)>);
static_assert(std::is_same_v<decltype(&Module3G::GetCarriersList), int (*)(std::list<Operator>*)>);
static_assert(std::is_same_v<decltype(&Module3G::CB_CompareOperator), int (*)(Operator, Operator)>);
static_assert(std::is_same_v<decltype(&Module3G::PrintCarriersList), void (*)(std::list<Operator>*)>);
static_assert(std::is_same_v<decltype(&Module3G::FindPrefferedOperator), bool (*)(PreferredOperator&)>);
static_assert(std::is_same_v<decltype(&Module3G::RemovePrefferedOperator), bool (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::SelectNetwork), int (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::SetOperator), int (*)(int)>);
static_assert(std::is_same_v<decltype(&Module3G::SwitchToAutoCarrierSelectionMode), int (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::SwitchToManualCarrierSelectionMode), void (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::GetCarrierName), bool (*)(std::string&)>);
static_assert(std::is_same_v<decltype(&Module3G::SetLowVoltageLimit), int (*)(int, bool)>);
static_assert(std::is_same_v<decltype(&Module3G::SendDisconnectCommands), int (*)()>);
static_assert(std::is_same_v<decltype(&Module3G::SendPowerDownCommand), void (*)()>);
static_assert(offsetof(Tavdevice::Modem::Module3GSignalStatus, rssi) == 0);
static_assert(offsetof(Tavdevice::Modem::Module3GSignalStatus, dBm) == 4);
static_assert(offsetof(Tavdevice::Modem::Module3GSignalStatus, description) == 8);
static_assert(sizeof(Tavdevice::Modem::Module3GSignalStatus::description) == 20);

KIT_PROGRAM(BeginsWithTheStatedValues)
{
    const auto check = [](bool holds, const char* what) {
        if (!holds)
        {
            std::printf("%s\n", what);
        }
    };
    check(Tavdevice::Modem::NR_OF_TRIES == 2, "NR_OF_TRIES");
    check(Tavdevice::Modem::Bus_Module3G == "05c6:9", "Bus_Module3G");
    check(Module3G::registration_status == -1, "registration_status");
    check(Module3G::start.time_since_epoch().count() == 0, "start");
    check(Module3G::end.time_since_epoch().count() == 0, "end");
    check(Module3G::PreferredOperatorList.empty(), "PreferredOperatorList");
    check(
        (Module3G::m3gSimICCID + Module3G::m3gSimIMSI + Module3G::m3gIMEI + Module3G::m3g_fw_version).empty(),
        "identity");
    check(Module3G::mutexATCommands.try_lock(), "mutexATCommands");
    check(Module3G::failedRegistrations == 0, "failedRegistrations");
    check(!Module3G::autoCarrierSelection, "autoCarrierSelection");
    check(Module3G::lastTransmitionTime == 0, "lastTransmitionTime");
    check(Module3G::cFds.fd == 0 && Module3G::cFds.events == 0 && Module3G::cFds.revents == 0, "cFds");
    check(Module3G::signal_status.rssi == 0 && Module3G::signal_status.dBm == 0, "signal_status");
    check(Module3G::signal_status.description[0] == '\0', "description");
    check(Module3G::bufferAtCommands != nullptr, "bufferAtCommands");
    Module3G::bufferAtCommands[REPLY_BYTES - 1] = 'x'; // it has this many, as a sanitizer sees
    return 0;
}

TEST(Module3GProcess, BeginsWithTheStatedValues)
{
    const Kit::ChildResult result = Kit::RunProgram("BeginsWithTheStatedValues");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
}

TEST(Module3GRecords, HaveTheirFieldsInOrder)
{
    const Operator seen{1, "long", "short", "26201", 2};
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.longName, "long");
    EXPECT_EQ(seen.shortName, "short");
    EXPECT_EQ(seen.numeric, "26201");
    EXPECT_EQ(seen.accessTechnology, 2);
    const PreferredOperator wanted{"name", 26201, 7, true};
    EXPECT_EQ(wanted.name, "name");
    EXPECT_EQ(wanted.code, 26201);
    EXPECT_EQ(wanted.spare, 7);
    EXPECT_TRUE(wanted.selected);
}

TEST(Module3GRecords, BeginWithZeros)
{
    const Operator seen;
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.accessTechnology, 0);
    const PreferredOperator wanted;
    EXPECT_EQ(wanted.code, 0);
    EXPECT_EQ(wanted.spare, 0);
    EXPECT_FALSE(wanted.selected);
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(ModemWithoutStreams)
{
    Kit::Terminal line(MAIN_PORT);
    const Kit::ClosedStreams closed;
    const int fd = OpenPort(MAIN_PORT);
    KIT_REQUIRE(fd > STDERR_FILENO);
    KIT_REQUIRE((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0);
    Kit::ClosedStreams::Print();
    KIT_REQUIRE(line.Received().empty());
    KIT_REQUIRE(write(fd, QUESTION, 8) == 8);
    KIT_REQUIRE(line.Received() == QUESTION);
    close(fd);
    KIT_REQUIRE(Kit::ClosedStreams::WereKept());
    return 0;
}

TEST(PortDescriptorTest, NothingThatIsPrintedGoesOutOnTheLineWhenAStandardStreamIsClosed)
{
    Kit::ClosedStreams::Run("ModemWithoutStreams");
}

}

}

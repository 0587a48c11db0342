// What opening a port makes of the settings of the line.

#include "tests/Serial/SerialTest.h"
#include "tests/kit/Emulator.h"

#include <climits>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

namespace SerialTests
{

namespace
{

constexpr tcflag_t INPUT_CLEARED = IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | IXON;
constexpr tcflag_t INPUT_KEPT = IXOFF | IXANY | INPCK | IMAXBEL | IUTF8;
constexpr tcflag_t CONTROL_CLEARED = PARENB | CSTOPB | CRTSCTS;
constexpr tcflag_t CONTROL_SET = CREAD | CLOCAL;
constexpr tcflag_t CONTROL_KEPT = PARODD | HUPCL;

/// A line on which everything that a port sets is not set, and everything that it clears is.
struct termios Opposite()
{
    struct termios settings = {};
    settings.c_iflag = INPUT_CLEARED | ICRNL | INPUT_KEPT;
    settings.c_oflag = OPOST | ONLCR | OCRNL | ONOCR | ONLRET;
    settings.c_cflag = CS7 | CONTROL_CLEARED | CONTROL_KEPT;
    settings.c_lflag =
        ECHO | ECHOE | ECHOK | ECHONL | ECHOCTL | ECHOKE | ISIG | ICANON | IEXTEN | NOFLSH | TOSTOP;
    settings.c_cc[VTIME] = 77;
    settings.c_cc[VMIN] = 88;
    settings.c_cc[VEOF] = 3;
    settings.c_cc[VINTR] = 9;
    cfsetospeed(&settings, B38400);
    cfsetispeed(&settings, B0); // "as the output", which the C library marks in c_iflag
    return settings;
}

tcflag_t SizeOf(const struct termios& settings)
{
    return settings.c_cflag & CSIZE;
}

TEST_F(SerialTest, EverySettingIsAskedForWhateverItWas)
{
    Kit::System::ReportSettings(Opposite());
    ASSERT_TRUE(OpenIn(1));
    const struct termios asked = Kit::System::LastSettings();
    EXPECT_EQ(asked.c_iflag, IGNPAR | INPUT_KEPT);
    EXPECT_EQ(asked.c_oflag, 0u);
    EXPECT_EQ(asked.c_lflag, 0u);
    EXPECT_EQ(SizeOf(asked), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(asked.c_cflag & CONTROL_CLEARED, 0u);
    EXPECT_EQ(asked.c_cflag & CONTROL_SET, CONTROL_SET);
    EXPECT_EQ(asked.c_cflag & CONTROL_KEPT, CONTROL_KEPT);
    EXPECT_EQ(cfgetospeed(&asked), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetispeed(&asked), static_cast<speed_t>(B9600));
    EXPECT_EQ(asked.c_cc[VTIME], 0);
    EXPECT_EQ(asked.c_cc[VMIN], 0);
    EXPECT_EQ(asked.c_cc[VEOF], 3) << "the other control characters stay";
    EXPECT_EQ(asked.c_cc[VINTR], 9);
}

TEST_F(SerialTest, EverySettingIsFoundOnTheRealTerminal)
{
    const struct termios opposite = Opposite();
    ASSERT_EQ(tcsetattr(line.Descriptor(), TCSANOW, &opposite), 0);
    const struct termios before = Settings();
    ASSERT_EQ(before.c_iflag & INPUT_CLEARED, INPUT_CLEARED) << "the terminal does not keep the opposite";
    ASSERT_EQ(before.c_cflag & (CSTOPB | CRTSCTS | CLOCAL), static_cast<tcflag_t>(CSTOPB | CRTSCTS));
    ASSERT_NE(before.c_lflag & (ECHO | ISIG | IEXTEN), 0u);

    ASSERT_TRUE(OpenIn(1, 7));
    const struct termios after = Settings();
    EXPECT_EQ(after.c_iflag, IGNPAR | INPUT_KEPT);
    EXPECT_EQ(after.c_oflag, 0u);
    EXPECT_EQ(after.c_lflag, 0u);
    EXPECT_EQ(SizeOf(after), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(after.c_cflag & CONTROL_CLEARED, 0u);
    EXPECT_EQ(after.c_cflag & CONTROL_SET, CONTROL_SET);
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetispeed(&after), static_cast<speed_t>(B9600));
    EXPECT_EQ(after.c_cc[VTIME], 70);
    EXPECT_EQ(after.c_cc[VMIN], 0);
}

class ControlFlag : public SerialTest, public testing::WithParamInterface<tcflag_t>
{
};

TEST_P(ControlFlag, IsClearedOnItsOwnAndDisturbsNoOther)
{
    struct termios settings = Settings();
    settings.c_cflag = (settings.c_cflag & ~static_cast<tcflag_t>(CSIZE | CLOCAL | CREAD)) | GetParam();
    Kit::System::ReportSettings(settings);
    ASSERT_TRUE(port.Open());
    const tcflag_t asked = Kit::System::LastSettings().c_cflag;
    EXPECT_EQ(asked & (CSIZE | PARENB | CSTOPB | CRTSCTS | CLOCAL | CREAD),
              static_cast<tcflag_t>(CS8 | CLOCAL | CREAD));
}

INSTANTIATE_TEST_SUITE_P(All, ControlFlag, testing::Values(CS5, CS6, CS7, CS8, PARENB, CSTOPB, CRTSCTS));

class InputFlag : public SerialTest, public testing::WithParamInterface<tcflag_t>
{
};

TEST_P(InputFlag, IsClearedInEveryMode)
{
    for (const int mode : {0, 1, 2, 3})
    {
        struct termios settings = Settings();
        settings.c_iflag = GetParam();
        Kit::System::ReportSettings(settings);
        ASSERT_TRUE(OpenIn(mode));
        EXPECT_EQ(Kit::System::LastSettings().c_iflag, mode == 2 ? IGNPAR | ICRNL : IGNPAR)
            << "mode " << mode;
        ASSERT_TRUE(port.Close());
    }
}

INSTANTIATE_TEST_SUITE_P(All, InputFlag,
                         testing::Values(IGNBRK, BRKINT, PARMRK, ISTRIP, INLCR, IGNCR, ICRNL, IXON, 0));

// Mode and time-out --------------------------------------------------------------------------------------

struct ModeRow
{
    int mode;
    tcflag_t local;
    tcflag_t input;
    cc_t least; ///< VMIN
};

void PrintTo(const ModeRow& row, std::ostream* out)
{
    *out << "mode " << row.mode;
}

struct TimeRow
{
    int seconds;
    cc_t tenths; ///< VTIME, eight bits
};

void PrintTo(const TimeRow& row, std::ostream* out)
{
    *out << row.seconds << " s";
}

class ReadingMode : public SerialTest, public testing::WithParamInterface<std::tuple<ModeRow, TimeRow>>
{
};

TEST_P(ReadingMode, GivesItsSettings)
{
    const auto& [mode, time] = GetParam();
    ASSERT_TRUE(OpenIn(mode.mode, time.seconds));
    const struct termios asked = Kit::System::LastSettings();
    const struct termios real = Settings();
    for (const struct termios& settings : {asked, real})
    {
        EXPECT_EQ(settings.c_lflag, mode.local) << "echo is off in every mode";
        EXPECT_EQ(settings.c_iflag & (IGNPAR | ICRNL), IGNPAR | mode.input);
        EXPECT_EQ(settings.c_oflag, 0u);
        EXPECT_EQ(settings.c_cc[VMIN], mode.least);
        EXPECT_EQ(settings.c_cc[VTIME], time.tenths);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ReadingMode,
    testing::Combine(testing::Values(ModeRow{0, ICANON, 0, 1}, ModeRow{1, 0, 0, 0},
                                     ModeRow{2, ICANON, ICRNL, 1}, ModeRow{3, ICANON, 0, 0},
                                     ModeRow{4, ICANON, 0, 1}, ModeRow{-1, ICANON, 0, 1},
                                     ModeRow{INT_MAX, ICANON, 0, 1}, ModeRow{INT_MIN, ICANON, 0, 1}),
                     testing::Values(TimeRow{0, 0}, TimeRow{1, 10}, TimeRow{25, 250}, TimeRow{26, 4},
                                     TimeRow{30, 44}, TimeRow{-1, 0}, TimeRow{INT_MIN, 0},
                                     TimeRow{INT_MAX, 246})),
    [](const testing::TestParamInfo<ReadingMode::ParamType>& row) {
        const auto number = [](int value) {
            return value < 0 ? "Minus" + std::to_string(-static_cast<std::int64_t>(value))
                             : std::to_string(value);
        };
        return "Mode" + number(std::get<0>(row.param).mode) + "Timeout" +
               number(std::get<1>(row.param).seconds);
    });

// Speed --------------------------------------------------------------------------------------------------

class SpeedCode : public SerialTest, public testing::WithParamInterface<speed_t>
{
};

TEST_P(SpeedCode, IsHandedOverAsItIs)
{
    Serial other(DEVICE, GetParam());
    ASSERT_TRUE(other.Open());
    const struct termios asked = Kit::System::LastSettings();
    const struct termios real = Settings();
    EXPECT_EQ(cfgetospeed(&asked), GetParam());
    EXPECT_EQ(cfgetispeed(&asked), GetParam());
    if (GetParam() == B921600 || GetParam() == B4000000)
    {
        KIT_SKIP_EMULATED("it tells the terminal no speed above 460800 baud");
    }
    EXPECT_EQ(cfgetospeed(&real), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Codes, SpeedCode,
                         testing::Values(B1200, B4800, B9600, B38400, B115200, B921600, B4000000));

TEST_F(SerialTest, ANumberOfBaudInPlaceOfACodeLeavesTheSpeedAsItWas)
{
    struct termios settings = Settings();
    cfsetospeed(&settings, B19200);
    cfsetispeed(&settings, B19200);
    ASSERT_EQ(tcsetattr(line.Descriptor(), TCSANOW, &settings), 0);
    Serial other(DEVICE, 9600);
    ASSERT_TRUE(other.Open());
    const struct termios real = Settings();
    EXPECT_EQ(cfgetospeed(&real), static_cast<speed_t>(B19200));
}

}

}

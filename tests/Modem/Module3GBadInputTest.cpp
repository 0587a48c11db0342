// Replies that no module should give: random ones, made of pieces that the parsers look for.

#include "tests/Modem/ModemTest.h"

#include "Modem/Replies.h"

#include <functional>
#include <ostream>
#include <random>
#include <set>
#include <stdexcept>

using testing::IsEmpty;

namespace ModemTests
{

namespace
{

namespace Replies = Tavdevice::Modem::Replies;

constexpr unsigned int SEED = 20260301;

const Texts FRAGMENTS = {"+CSQ:",
                         "+CREG:",
                         "+COPS:",
                         "+CBC:",
                         "+QCCID:",
                         "Revision:",
                         "AT+CGSN",
                         "AT+CIMI",
                         " ",
                         ",",
                         ",",
                         ",",
                         "\"",
                         "\"",
                         "(",
                         ")",
                         "(",
                         ")",
                         "\r",
                         "\n",
                         "\r\n",
                         "OK",
                         ":",
                         "-",
                         "0",
                         "1",
                         "17",
                         "99",
                         "26201",
                         "123456789012345",
                         "12345678901",
                         "(1,\"a\",\"b\",\"26201\",2)",
                         std::string(1, '\0')};

/// Random text, the same for the same seed.
class Noise
{
public:
    explicit Noise(unsigned int seed) : random(seed) {}

    /// @param own a fragment that comes often
    std::string Text(const std::string& own, std::size_t mostPieces)
    {
        std::string text;
        for (std::size_t pieces = random() % mostPieces; pieces > 0; --pieces)
        {
            switch (random() % 8)
            {
            case 0:
                text += static_cast<char>(random());
                break;
            case 1:
                text += own;
                break;
            case 2:
                text += static_cast<char>('0' + random() % 10);
                break;
            default:
                text += FRAGMENTS[random() % FRAGMENTS.size()];
            }
        }
        return text;
    }

    unsigned int Number(unsigned int below) { return static_cast<unsigned int>(random() % below); }

private:
    std::mt19937 random;
};

enum Exceptions : unsigned int
{
    NONE = 0,
    INVALID_ARGUMENT = 1,
    OUT_OF_RANGE = 2
};

/// Which exception `work` throws; any other one passes.
template <class Work>
Exceptions Thrown(Work work)
{
    try
    {
        work();
        return NONE;
    }
    catch (const std::invalid_argument&)
    {
        return INVALID_ARGUMENT;
    }
    catch (const std::out_of_range&)
    {
        return OUT_OF_RANGE;
    }
}

// The parsers --------------------------------------------------------------------------------------------

template <class Value>
void ExpectValueOrReason(const Replies::Reading<Value>& reading)
{
    EXPECT_NE(reading.value.has_value(), !reading.reason.empty());
}

struct ParserRow
{
    const char* name;
    std::string own;
    std::function<bool(const std::string&)> parse; ///< true with a value
    unsigned int allowed;                          ///< exceptions
};

void PrintTo(const ParserRow& row, std::ostream* out)
{
    *out << row.name;
}

/// A parser whose values all hold `check`.
template <class Value>
std::function<bool(const std::string&)> Checked(Replies::Reading<Value> (*parser)(const std::string&),
                                                std::function<bool(const Value&)> check)
{
    return [parser, check](const std::string& reply) {
        const Replies::Reading<Value> reading = parser(reply);
        ExpectValueOrReason(reading);
        if (reading.value)
        {
            EXPECT_TRUE(check(*reading.value));
        }
        return reading.value.has_value();
    };
}

bool Fifteen(const std::string& text)
{
    return text.size() == 15 && text.find_first_of("\r\n") == std::string::npos;
}

class NoisyParser : public testing::TestWithParam<ParserRow>
{
};

TEST_P(NoisyParser, GivesAValueOrAReasonAndOnlyItsOwnExceptions)
{
    constexpr int CASES = 20'000;
    std::set<Exceptions> seen;
    int values = 0;
    for (unsigned int number = 0; number < CASES; ++number)
    {
        const std::string seed = "seed " + std::to_string(SEED + number);
        Noise noise(SEED + number);
        const std::string reply = noise.Text(GetParam().own, 24);
        bool value = false;
        const Exceptions thrown = Thrown([&] { value = GetParam().parse(reply); });
        ASSERT_EQ(thrown & ~GetParam().allowed, 0u) << seed << ' ' << testing::PrintToString(reply);
        seen.insert(thrown);
        values += value ? 1 : 0;
        ASSERT_FALSE(HasFailure()) << seed << ' ' << testing::PrintToString(reply);
    }
    EXPECT_GT(values, CASES / 100) << "the noise hardly ever made sense";
    unsigned int met = 0;
    for (const Exceptions thrown : seen)
    {
        met |= thrown;
    }
    EXPECT_EQ(met, GetParam().allowed) << "an exception was never met";
}

INSTANTIATE_TEST_SUITE_P(
    All, NoisyParser,
    testing::Values(
        ParserRow{"Imei", "AT+CGSN", Checked<std::string>(Replies::Imei, Fifteen), OUT_OF_RANGE},
        ParserRow{"Imsi", "AT+CIMI", Checked<std::string>(Replies::Imsi, Fifteen), OUT_OF_RANGE},
        ParserRow{"Iccid", "+QCCID: ",
                  Checked<std::string>(Replies::Iccid,
                                       [](const std::string& text) {
                                           return text.size() >= 7 && text.size() <= 20;
                                       }),
                  OUT_OF_RANGE},
        ParserRow{"FirmwareRevision", "Revision:",
                  Checked<std::string>(Replies::FirmwareRevision,
                                       [](const std::string& text) {
                                           return text.find('\r') == std::string::npos;
                                       }),
                  OUT_OF_RANGE},
        ParserRow{"Voltage", "+CBC:", Checked<int>(Replies::Voltage, [](int) { return true; }), OUT_OF_RANGE},
        ParserRow{"SignalQuality", "+CSQ:", Checked<int>(Replies::SignalQuality, [](int) { return true; }),
                  INVALID_ARGUMENT | OUT_OF_RANGE},
        ParserRow{
            "RegistrationState", "+CREG:",
            Checked<int>(Replies::RegistrationState, [](int state) { return state >= 0 && state <= 9; }),
            INVALID_ARGUMENT},
        ParserRow{
            "CarrierName", "+COPS: 0,0,\"",
            Checked<std::string>(Replies::CarrierName,
                                 [](const std::string& text) { return text.find('"') == std::string::npos; }),
            NONE},
        ParserRow{"Operators", "+COPS: (1,\"",
                  [](const std::string& reply) {
                      std::list<Operator> list{{}};
                      const auto reading = Replies::Operators(reply, list);
                      ExpectValueOrReason(reading);
                      EXPECT_EQ(list.size(), reading.value.value_or(0) + 1);
                      return reading.value.has_value();
                  },
                  INVALID_ARGUMENT | OUT_OF_RANGE}),
    [](const testing::TestParamInfo<ParserRow>& row) { return row.param.name; });

// The operations -----------------------------------------------------------------------------------------

struct QueryRow
{
    const char* name;
    std::string command;
    std::string own;
    std::function<void()> run; ///< checks the result
    unsigned int allowed;      ///< exceptions
};

void PrintTo(const QueryRow& row, std::ostream* out)
{
    *out << row.name;
}

/// A query that changes `text`, and only on success.
std::function<void()> IntoText(int (*query)(), std::string& text)
{
    return [query, &text] {
        text = "before";
        int result = -1;
        try
        {
            result = query();
        }
        catch (...)
        {
            EXPECT_EQ(text, "before");
            throw;
        }
        EXPECT_TRUE(result == 0 || (result == -1 && text == "before")) << result << ' ' << text;
    };
}

std::function<void()> ZeroOrFailure(std::function<int()> query)
{
    return [query] {
        const int result = query();
        EXPECT_TRUE(result == 0 || result == -1) << result;
    };
}

std::vector<QueryRow> Queries()
{
    return {{"QueryModuleIMEI", "AT+CGSN\r\n", "AT+CGSN",
             IntoText(Module3G::QueryModuleIMEI, Module3G::m3gIMEI), NONE},
            {"QuerySimIMSI", "AT+CIMI\r\n", "AT+CIMI", IntoText(Module3G::QuerySimIMSI, Module3G::m3gSimIMSI),
             NONE},
            {"QuerySimICCID", "AT+QCCID\r\n",
             "+QCCID: ", IntoText(Module3G::QuerySimICCID, Module3G::m3gSimICCID), NONE},
            {"QueryModuleFwVersion", "ATI\r\n",
             "Revision:", IntoText(Module3G::QueryModuleFwVersion, Module3G::m3g_fw_version), OUT_OF_RANGE},
            {"GetVoltageLevel", "AT+CBC\r\n", "+CBC:", [] { Module3G::GetVoltageLevel(); }, OUT_OF_RANGE},
            {"GetTime", "AT+QLTS\r\n", "+QLTS:", ZeroOrFailure(Module3G::GetTime), NONE},
            {"CheckSignal", "AT+CSQ\r\n", "+CSQ:", ZeroOrFailure([] {
                 const int result = Module3G::CheckSignal();
                 const auto& status = Module3G::signal_status;
                 EXPECT_GE(status.rssi, 0);
                 EXPECT_LE(status.rssi, 31);
                 EXPECT_LT(strnlen(status.description, sizeof status.description), sizeof status.description);
                 return result;
             }),
             INVALID_ARGUMENT},
            {"GetRegistrationStatus", "AT+CREG?\r\n", "+CREG:",
             [] {
                 const int before = Module3G::registration_status;
                 const int state = Module3G::GetRegistrationStatus();
                 EXPECT_TRUE(state >= -1 && state <= 9) << state;
                 EXPECT_EQ(Module3G::registration_status, state < 0 ? before : state);
             },
             INVALID_ARGUMENT},
            {"IsRegistered", "AT+CREG?\r\n", "+CREG:",
             [] {
                 const bool registered = Module3G::IsRegistered();
                 const int state = Module3G::registration_status;
                 EXPECT_TRUE(!registered || state == 1 || state == 5) << state;
             },
             INVALID_ARGUMENT},
            {"GetCarriersList", "AT+COPS=?\r\n", "+COPS: (1,\"", ZeroOrFailure([] {
                 std::list<Operator> list;
                 const int result = Module3G::GetCarriersList(&list);
                 EXPECT_TRUE(std::ranges::is_sorted(list, std::greater(), &Operator::accessTechnology));
                 return result;
             }),
             INVALID_ARGUMENT | OUT_OF_RANGE},
            {"GetCarrierName", "AT+COPS?\r\n", "+COPS: 0,0,\"",
             [] {
                 std::string name = "\"";
                 const bool read = Module3G::GetCarrierName(name);
                 EXPECT_EQ(read, name.find('"') == std::string::npos);
             },
             NONE},
            {"SetPowerSaveMode", "AT+QCFG=\"pwrsavedtr\",0\r\n",
             "+QCFG:", ZeroOrFailure([] { return Module3G::SetPowerSaveMode(0); }), NONE}};
}

class NoisyModule : public ModemTest, public testing::WithParamInterface<QueryRow>
{
};

TEST_P(NoisyModule, GivesOnlyTheStatedResultsAndExceptions)
{
    constexpr int CASES = 100;
    const QueryRow& row = GetParam();
    testing::internal::CaptureStdout(); // the ICCID's messages
    for (unsigned int number = 0; number < CASES; ++number)
    {
        const std::string seed = "seed " + std::to_string(SEED + number);
        Noise noise(SEED + number);
        std::string reply = noise.Text(row.own, 16);
        switch (noise.Number(4))
        {
        case 0:
            break; // whatever it is
        case 1:
            reply = row.command + "OK" + reply; // the reply ends anywhere
            break;
        default:
            reply = row.command + row.own + reply + "\r\nOK\r\n";
        }
        if (number % 8 != 0)
        {
            std::ranges::replace(reply, '\0', 'x'); // what it hides makes the exchange wait
        }
        // What is still unread when the time is over would be read by the next one.
        module.On(row.command, Answer{{0ms, reply}, {150ms, row.command + "ERROR"}});
        const Exceptions thrown = Thrown(row.run);
        ASSERT_EQ(thrown & ~row.allowed, 0u) << seed << ' ' << testing::PrintToString(reply);
        ASSERT_EQ(Module3G::bufferAtCommands[REPLY_BYTES], '\0');
        ASSERT_FALSE(HasFailure()) << seed << ' ' << testing::PrintToString(reply);
        std::this_thread::sleep_for(200ms);
        module.DropUnread();
    }
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(LockIsFree());
}

TEST_P(NoisyModule, FloodsDoNotLeaveTheBuffer)
{
    constexpr int CASES = 5;
    const QueryRow& row = GetParam();
    testing::internal::CaptureStdout();
    for (unsigned int number = 0; number < CASES; ++number)
    {
        const std::string seed = "seed " + std::to_string(SEED + number);
        Noise noise(SEED + number);
        std::string flood = row.command;
        while (flood.size() < 3990)
        {
            flood += noise.Text(row.own, 16);
        }
        flood.resize(3990);
        std::ranges::replace(flood, 'K', 'x'); // no end to it
        module.On(row.command, flood);
        ASSERT_EQ(Thrown(row.run), NONE) << seed;
        module.DropUnread();
        ASSERT_EQ(Exchange(row.command, 100), -2) << seed;
        ASSERT_EQ(Module3G::bufferAtCommands[REPLY_BYTES], '\0');
        module.DropUnread();
    }
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(LockIsFree());
}

INSTANTIATE_TEST_SUITE_P(All, NoisyModule, testing::ValuesIn(Queries()),
                         [](const testing::TestParamInfo<QueryRow>& row) { return row.param.name; });

}

}

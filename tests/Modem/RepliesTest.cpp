// What the functions of Replies make of texts, without a module.

#include "Modem/Replies.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace ModemTests
{

namespace
{

using Tavdevice::Modem::Operator;
namespace Replies = Tavdevice::Modem::Replies;

constexpr const char* OUT_OF_RANGE = "!out_of_range";
constexpr const char* INVALID_ARGUMENT = "!invalid_argument";

std::string Text(const std::string& value)
{
    return value;
}

std::string Text(int value)
{
    return std::to_string(value);
}

/// The value as text, "?" with the reason where there is none, "!" with the exception.
template <class Parser>
std::string Read(Parser parser, const std::string& reply)
{
    try
    {
        const auto reading = parser(reply);
        EXPECT_EQ(reading.value.has_value(), reading.reason.empty());
        return reading.value ? Text(*reading.value) : '?' + std::string(reading.reason);
    }
    catch (const std::out_of_range&)
    {
        return OUT_OF_RANGE;
    }
    catch (const std::invalid_argument&)
    {
        return INVALID_ARGUMENT;
    }
}

struct Row
{
    const char* name;
    std::string reply;
    std::string outcome;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

std::string NameOf(const testing::TestParamInfo<Row>& row)
{
    return row.param.name;
}

class ImeiReply : public testing::TestWithParam<Row>
{
};

TEST_P(ImeiReply, IsRead)
{
    EXPECT_EQ(Read(Replies::Imei, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ImeiReply,
    testing::Values(
        Row{"Whole", "AT+CGSN\r\n\r\n861075021234567\r\n\r\nOK\r\n", "861075021234567"},
        Row{"DoubleCarriageReturn", "AT+CGSN\r\r\n861075021234567\r\n\r\nOK\r\n", "861075021234567"},
        Row{"LongerIsCut", "AT+CGSN\r\n861075021234567890\r\nOK\r\n", "861075021234567"},
        Row{"ShorterTakesTheOk", "AT+CGSN\r\n8610750212345\r\nOK\r\n", "8610750212345OK"},
        Row{"Short", "AT+CGSN\r\n86107502\r\nOK\r\n", "?number too short"},
        Row{"LineEndsInTheNumber", "AT+CGSN\r\n8610750\r\n21234567\r\nOK", "861075021234567"},
        Row{"FifteenCharactersInAll", "AT+CGSN12345678", "?reply too short"},
        Row{"SixteenCharactersInAll", "AT+CGSN123456789", "?number too short"},
        Row{"Empty", "", "?reply too short"}, Row{"NoEcho", "861075021234567\r\n\r\nOK\r\n", "?no echo"},
        Row{"EchoCut", "AT+CGS\r\n861075021234567\r\nOK\r\n", "?no echo"},
        Row{"ALineEndBeforeTheEchoCosts", "\r\nAT+CGSN\r\n861075021234567\r\n\r\nOK\r\n", "1075021234567OK"},
        Row{"TextBeforeTheEcho", "RDYAT+CGSN861075021234567", "861075021234567"},
        Row{"TheFirstEcho", "AT+CGSNAT+CGSN861075021234567", "AT+CGSN86107502"},
        Row{"EchoLast", "0123456789AT+CGSN", "?number too short"},
        Row{"BehindTheEnd", std::string(9, '\n') + "AT+CGSN", OUT_OF_RANGE},
        Row{"AtTheEnd", "\r\nAT+CGSN012345OK", "?number too short"}),
    NameOf);

class ImsiReply : public testing::TestWithParam<Row>
{
};

TEST_P(ImsiReply, IsRead)
{
    EXPECT_EQ(Read(Replies::Imsi, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ImsiReply,
    testing::Values(Row{"Whole", "AT+CIMI\r\n\r\n262011234567890\r\n\r\nOK\r\n", "262011234567890"},
                    Row{"LongerIsCut", "AT+CIMI\r\n262011234567890123\r\nOK\r\n", "262011234567890"},
                    Row{"Short", "AT+CIMI\r\n26201123\r\nOK\r\n", "?number too short"},
                    Row{"Empty", "", "?no echo"}, Row{"NoEcho", "262011234567890\r\nOK\r\n", "?no echo"},
                    Row{"EchoOfAnother", "AT+CGSN\r\n262011234567890\r\nOK\r\n", "?no echo"},
                    Row{"TheEchoAlone", "AT+CIMI", "?number too short"},
                    Row{"BehindTheEnd", "\r\nAT+CIMI", OUT_OF_RANGE},
                    Row{"AtTheEnd", "\nAT+CIMI1", "?number too short"}),
    NameOf);

class IccidReply : public testing::TestWithParam<Row>
{
};

TEST_P(IccidReply, IsRead)
{
    EXPECT_EQ(Read(Replies::Iccid, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, IccidReply,
    testing::Values(Row{"Twenty", "AT+QCCID\r\n\r\n+QCCID: 89490200001234567890\r\n\r\nOK\r\n",
                        "89490200001234567890"},
                    Row{"NineteenWithTheCarriageReturn",
                        "AT+QCCID\r\n\r\n+QCCID: 8949020000123456789\r\n\r\nOK\r\n", "8949020000123456789\r"},
                    Row{"TwentyOneIsCut", "+QCCID: 894902000012345678901\r\n", "89490200001234567890"},
                    Row{"SevenCharacters", "+QCCID: 8949020", "8949020"},
                    Row{"SixCharacters", "+QCCID: 894902", "?ICCID too short"},
                    Row{"ShortWithWhatFollows", "+QCCID: 1\r\n\r\nOK\r\n", "1\r\n\r\nOK\r\n"},
                    Row{"Nothing", "+QCCID: ", "?ICCID too short"}, Row{"NoBlank", "+QCCID:", OUT_OF_RANGE},
                    Row{"NoColon", "AT+QCCID\r\nOK\r\n", "?no colon"}, Row{"Empty", "", "?no colon"},
                    Row{"TheFirstColon", "+CME: 1234567890: 89490200001234567890", "1234567890: 89490200"},
                    Row{"NoBlankCostsADigit", "+QCCID:89490200001234567890\r\n", "9490200001234567890\r"}),
    NameOf);

class FirmwareReply : public testing::TestWithParam<Row>
{
};

TEST_P(FirmwareReply, IsRead)
{
    EXPECT_EQ(Read(Replies::FirmwareRevision, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FirmwareReply,
    testing::Values(Row{"Whole", "ATI\r\n\r\nQuectel\r\nUC20\r\nRevision: UC20GQBR03A12E1G\r\n\r\nOK\r\n",
                        "UC20GQBR03A12E1G"},
                    Row{"Blanks", "Revision:  A B \r", " A B "},
                    Row{"NoBlankCostsALetter", "Revision:ABC\r", "BC"}, Row{"EmptyText", "Revision: \r", ""},
                    Row{"LineFeedOnly", "Revision: A\n", "?no end of line"},
                    Row{"LineFeedFirst", "Revision: A\nB\r", "A\nB"},
                    Row{"NoTag", "ATI\r\nOK\r\n", "?no revision"},
                    Row{"OtherCase", "revision: A\r", "?no revision"}, Row{"Empty", "", "?no revision"},
                    Row{"TheFirstTag", "Revision: A Revision: B\r", "A Revision: B"},
                    Row{"EndsBehindTheTag", "ATI\r\nOK Revision:", OUT_OF_RANGE},
                    Row{"EndsBehindTheBlank", "Revision: ", "?no end of line"},
                    Row{"TheLineEndInPlaceOfTheBlank", "Revision:\r\n", "?no end of line"},
                    Row{"TheLineEndOfTheNextLine", "Revision:\r\nOK\r\n", "\nOK"}),
    NameOf);

class VoltageReply : public testing::TestWithParam<Row>
{
};

TEST_P(VoltageReply, IsRead)
{
    EXPECT_EQ(Read(Replies::Voltage, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, VoltageReply,
    testing::Values(
        Row{"Whole", "AT+CBC\r\n\r\n+CBC: 0,77,3914\r\n\r\nOK\r\n", "3914"},
        Row{"TwoNumbers", "AT+CBC\r\n\r\n+CBC: 0,77\r\n\r\nOK\r\n", "?fewer than three fields"},
        Row{"OneNumber", "+CBC: 0\r\n", "?fewer than three fields"},
        Row{"FourNumbers", "+CBC: 0,77,3914,5\r\n", "3914"}, Row{"NoNumber", "+CBC: 0,77,\r\n", "0"},
        Row{"Letters", "+CBC: 0,77,x39\r\n", "0"}, Row{"BlankBefore", "+CBC: 0,77, 3914\r\n", "3914"},
        Row{"Negative", "+CBC: 0,77,-5\r\n", "-5"}, Row{"LeadingZeros", "+CBC: 0,77,0010\r\n", "10"},
        Row{"NoLineEnd", "+CBC: 0,77,3914", "?no end of line"},
        Row{"LineFeedOnly", "+CBC: 0,77,3914\n", "?no end of line"},
        Row{"EmptyFields", "+CBC: ,,3914\r", "3914"},
        Row{"NoBlankCostsACharacter", "+CBC:,77,3914\r\n", "?fewer than three fields"},
        Row{"CommasBeforeTheTag", "1,2,3\r\n+CBC: 0,77,3914\r\n", "3914"},
        Row{"NoTag", "AT+CBC\r\nOK\r\n", "?no battery line"}, Row{"Empty", "", "?no battery line"},
        Row{"EndsBehindTheTag", "AT+CBC\r\nOK\r\n+CBC:", OUT_OF_RANGE},
        Row{"EndsBehindTheBlank", "+CBC: ", "?fewer than three fields"}),
    NameOf);

class SignalReply : public testing::TestWithParam<Row>
{
};

TEST_P(SignalReply, IsRead)
{
    EXPECT_EQ(Read(Replies::SignalQuality, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SignalReply,
    testing::Values(Row{"Whole", "AT+CSQ\r\n\r\n+CSQ: 17,0\r\n\r\nOK\r\n", "17"},
                    Row{"NotKnown", "+CSQ: 99,99\r\n", "99"}, Row{"NoBlank", "+CSQ:5,0", "5"},
                    Row{"Negative", "+CSQ: -1,0", "-1"}, Row{"Plus", "+CSQ: +7,0", "7"},
                    Row{"LettersBehind", "+CSQ: 17x,0", "17"}, Row{"Nothing", "+CSQ:,0", INVALID_ARGUMENT},
                    Row{"Blank", "+CSQ: ,0", INVALID_ARGUMENT}, Row{"Letters", "+CSQ: x,0", INVALID_ARGUMENT},
                    Row{"Highest", "+CSQ: 2147483647,0", "2147483647"},
                    Row{"AboveTheHighest", "+CSQ: 2147483648,0", OUT_OF_RANGE},
                    Row{"ElevenDigits", "+CSQ: 12345678901,0", OUT_OF_RANGE},
                    Row{"ManyDigits", "+CSQ: 99999999999999999999999999,0", OUT_OF_RANGE},
                    Row{"NoComma", "+CSQ: 17\r\nOK\r\n", "?no comma"},
                    Row{"CommaBeforeTheTagOnly", "1,2 +CSQ: 17", "?no comma"},
                    Row{"CommaOfALaterLine", "+CSQ: 17\r\nOK,", "17"},
                    Row{"NoTag", "AT+CSQ\r\nOK\r\n", "?no signal line"}, Row{"Empty", "", "?no signal line"},
                    Row{"TagAlone", "+CSQ:", "?no comma"},
                    Row{"TheFirstTag", "+CSQ: 1,0\r\n+CSQ: 2,0\r\n", "1"}),
    NameOf);

class RegistrationReply : public testing::TestWithParam<Row>
{
};

TEST_P(RegistrationReply, IsRead)
{
    EXPECT_EQ(Read(Replies::RegistrationState, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RegistrationReply,
    testing::Values(
        Row{"Whole", "AT+CREG?\r\n\r\n+CREG: 2,1,\"01F4\",\"0A2B\",2\r\n\r\nOK\r\n", "1"},
        Row{"WithoutLocation", "+CREG: 0,5\r\nOK\r\n", "5"}, Row{"TheFirstCharacterOnly", "+CREG: 2,19", "1"},
        Row{"Nine", "+CREG: 2,9", "9"}, Row{"BlankBehindTheComma", "+CREG: 2, 1", INVALID_ARGUMENT},
        Row{"Minus", "+CREG: 2,-1", INVALID_ARGUMENT}, Row{"Letter", "+CREG: 2,x", INVALID_ARGUMENT},
        Row{"NothingBehindTheComma", "+CREG: 2,", INVALID_ARGUMENT},
        Row{"LineEndBehindTheComma", "+CREG: 2,\r\nOK\r\n", INVALID_ARGUMENT},
        Row{"NoComma", "+CREG: 1\r\nOK\r\n", "?no comma"},
        Row{"NoTag", "AT+CREG?\r\n0,1\r\nOK\r\n", "?no registration line"},
        Row{"Empty", "", "?no registration line"}, Row{"CommaBeforeTheTagToo", "1,7\r\n+CREG: 2,3\r\n", "3"}),
    NameOf);

class CarrierReply : public testing::TestWithParam<Row>
{
};

TEST_P(CarrierReply, IsRead)
{
    EXPECT_EQ(Read(Replies::CarrierName, GetParam().reply), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CarrierReply,
    testing::Values(Row{"KeepsTheCommaAndOneCharacter",
                        "AT+COPS?\r\n\r\n+COPS: 0,0,\"Operator\",2\r\n\r\nOK\r\n", "Operator,2"},
                    Row{"Blanks", "+COPS: 0,0,\"My Operator\",0\r\n", "My Operator,0"},
                    Row{"CommaInTheName", "+COPS: 0,0,\"Operator, Inc\",2\r\n", "Operator, "},
                    Row{"OneCharacterOfTwo", "+COPS: 0,0,\"Operator\",12\r\n", "Operator,1"},
                    Row{"EndsBehindTheComma", "+COPS: 0,0,\"Operator\",", "Operator,"},
                    Row{"QuoteBehindTheComma", "+COPS: 0,0,\"Operator\",\"2\"", "Operator,"},
                    Row{"NoCommaBehind", "+COPS: 0,0,\"Operator\"\r\n\r\nOK\r\n", "O"},
                    Row{"NoCommaBehindAnEmptyName", "+COPS: 0,0,\"\"\r\nOK\r\n", ""},
                    Row{"QuoteAlone", "+COPS: 0,0,\"", ""}, Row{"EmptyName", "+COPS: 0,0,\"\",2", ",2"},
                    Row{"NoClosingQuote", "+COPS: 0,0,\"Operator,2", "Operator,2"},
                    Row{"NotRegistered", "AT+COPS?\r\n\r\n+COPS: 0\r\n\r\nOK\r\n", "?no quote"},
                    Row{"QuoteBeforeTheTagOnly", "\"x\",1 +COPS: 0,0,Operator,2", "?no quote"},
                    Row{"NoTag", "AT+COPS?\r\n\"Operator\",2\r\nOK\r\n", "?no operator line"},
                    Row{"Empty", "", "?no operator line"}),
    NameOf);

// Operators ----------------------------------------------------------------------------------------------

/// The operators of a reply, "?" with the reason or "!" with the exception behind them.
std::vector<std::string> Listed(const std::string& reply)
{
    std::list<Operator> list;
    std::string end;
    try
    {
        const auto reading = Replies::Operators(reply, list);
        EXPECT_EQ(reading.value.has_value(), reading.reason.empty());
        if (reading.value)
        {
            EXPECT_EQ(*reading.value, list.size());
        }
        else
        {
            end = '?' + std::string(reading.reason);
        }
    }
    catch (const std::out_of_range&)
    {
        end = OUT_OF_RANGE;
    }
    catch (const std::invalid_argument&)
    {
        end = INVALID_ARGUMENT;
    }
    std::vector<std::string> lines;
    for (const Operator& seen : list)
    {
        lines.push_back(std::to_string(seen.status) + '/' + seen.longName + '/' + seen.shortName + '/' +
                        seen.numeric + '/' + std::to_string(seen.accessTechnology));
    }
    if (!end.empty())
    {
        lines.push_back(end);
    }
    return lines;
}

struct ListRow
{
    const char* name;
    std::string reply;
    std::vector<std::string> lines;
};

void PrintTo(const ListRow& row, std::ostream* out)
{
    *out << row.name;
}

class OperatorsReply : public testing::TestWithParam<ListRow>
{
};

TEST_P(OperatorsReply, IsRead)
{
    EXPECT_EQ(Listed(GetParam().reply), GetParam().lines);
}

const std::string ONE = "(1,\"One Net\",\"One\",\"26201\",0)";
const std::string TWO = "(2,\"Two Net\",\"Two\",\"26202\",2)";
const std::string ONE_READ = "1/One Net/One/26201/0";
const std::string TWO_READ = "2/Two Net/Two/26202/2";

INSTANTIATE_TEST_SUITE_P(
    Rows, OperatorsReply,
    testing::Values(
        ListRow{"Whole",
                "AT+COPS=?\r\n\r\n+COPS: " + ONE + "," + TWO + ",,(0,1,2,3,4),(0,1,2)\r\n\r\nOK\r\n",
                {ONE_READ, TWO_READ, "0////4"}},
        ListRow{"ModesAsARange", "+COPS: " + ONE + ",,(0-4),(0-2)\r\n", {ONE_READ}},
        ListRow{"ModesOfSeveralDigits",
                "+COPS: " + ONE + ",,(0,11,222,3333,4),(0,1,2)\r\n",
                {ONE_READ, "0//2/33/4"}},
        ListRow{"OrderOfTheModule", "+COPS: " + TWO + "," + ONE, {TWO_READ, ONE_READ}},
        ListRow{"None", "+COPS: \r\n\r\nOK\r\n", {}}, ListRow{"OnlyBeforeTheTag", ONE + " +COPS: ", {}},
        ListRow{"NoTag", "AT+COPS=?\r\n" + ONE, {"?no operator line"}},
        ListRow{"Empty", "", {"?no operator line"}},
        ListRow{
            "ThreeCommasEndTheList", "+COPS: " + ONE + ",(1,\"Three\",\"T\",\"26203\")," + TWO, {ONE_READ}},
        ListRow{"TwoCommas", "+COPS: " + ONE + ",(1,\"Three\",\"T\")," + TWO, {ONE_READ}},
        ListRow{"OneComma", "+COPS: " + ONE + ",(1,\"Three\")," + TWO, {ONE_READ}},
        ListRow{"NoComma", "+COPS: " + ONE + ",(1)," + TWO, {ONE_READ}},
        ListRow{"EmptyGroup", "+COPS: " + ONE + ",()," + TWO, {ONE_READ}},
        ListRow{"FirstGroupShort", "+COPS: (1)," + TWO, {}},
        ListRow{"NoClosingParenthesis", "+COPS: " + ONE + ",(2,\"Two Net\",\"Two\",\"26202\",2", {ONE_READ}},
        ListRow{"MoreFields", "+COPS: (1,\"One Net\",\"One\",\"26201\",0,7)", {ONE_READ}},
        ListRow{"ShortFieldsAreEmpty", "+COPS: (1,,\"\",x,0)", {"1////0"}},
        ListRow{"OneCharacterInQuotes", "+COPS: (1,\"a\",\"b\",\"3\",0)", {"1/a/b/3/0"}},
        ListRow{"NoQuotesCostTwoCharacters", "+COPS: (1,abcd,abc,ab,0)", {"1/bc/b//0"}},
        ListRow{"ClosingParenthesisInAName", "+COPS: (1,\"One (D)\",\"One\",\"26201\",0)," + TWO, {}},
        ListRow{"OpeningParenthesisInAName",
                "+COPS: (1,\"One (D\",\"One\",\"26201\",0)," + TWO,
                {"1/One (D/One/26201/0", TWO_READ}},
        ListRow{"CommaInAName", "+COPS: (1,\"One, Net\",\"One\",\"26201\",0)", {INVALID_ARGUMENT}},
        ListRow{"Blanks", "+COPS: ( 1,\"One Net\",\"One\",\"26201\", 0)", {ONE_READ}},
        ListRow{"NoStatus",
                "+COPS: " + ONE + ",(,\"Two Net\",\"Two\",\"26202\",2)",
                {ONE_READ, INVALID_ARGUMENT}},
        ListRow{"LetterAsStatus",
                "+COPS: " + ONE + ",(x,\"Two Net\",\"Two\",\"26202\",2)",
                {ONE_READ, INVALID_ARGUMENT}},
        ListRow{"StatusTooLarge",
                "+COPS: " + ONE + ",(2147483648,\"Two Net\",\"Two\",\"26202\",2)",
                {ONE_READ, OUT_OF_RANGE}},
        ListRow{"NoTechnology",
                "+COPS: " + ONE + ",(2,\"Two Net\",\"Two\",\"26202\",)",
                {ONE_READ, INVALID_ARGUMENT}},
        ListRow{"TechnologyTooLarge",
                "+COPS: " + ONE + ",(2,\"Two Net\",\"Two\",\"26202\",99999999999)",
                {ONE_READ, OUT_OF_RANGE}},
        ListRow{
            "NegativeNumbers", "+COPS: (-1,\"One Net\",\"One\",\"26201\",-2)", {"-1/One Net/One/26201/-2"}},
        ListRow{"LineEndsBetween", "+COPS: " + ONE + "\r\n" + TWO, {ONE_READ, TWO_READ}}),
    [](const testing::TestParamInfo<ListRow>& row) { return row.param.name; });

TEST(OperatorsReplyList, IsAppendedTo)
{
    std::list<Operator> list{{7, "before", "b", "1", 9}};
    EXPECT_EQ(Replies::Operators("+COPS: " + ONE + "," + TWO, list).value, std::optional<std::size_t>(2));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list.front().longName, "before");
    EXPECT_EQ(list.back().longName, "Two Net");
}

}

}

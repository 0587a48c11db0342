// Registration, and the list of operators.

#include "tests/Modem/ModemTest.h"

#include <climits>
#include <ostream>
#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;

namespace ModemTests
{

namespace
{

constexpr const char* STATUS = "AT+CREG?\r\n";
constexpr const char* SCAN = "AT+COPS=?\r\n";
constexpr const char* CURRENT = "AT+COPS?\r\n";

// State --------------------------------------------------------------------------------------------------

struct StateRow
{
    int state;
    const char* description;
    bool registered;
};

void PrintTo(const StateRow& row, std::ostream* out)
{
    *out << row.state;
}

class RegistrationState : public ModemTest, public testing::WithParamInterface<StateRow>
{
};

TEST_P(RegistrationState, IsReadStoredAndDescribed)
{
    module.Accept(STATUS, "+CREG: 2," + std::to_string(GetParam().state) + ",\"01F4\",\"0A2B\",2");
    EXPECT_EQ(Module3G::GetRegistrationStatus(), GetParam().state);
    EXPECT_EQ(Module3G::registration_status, GetParam().state);
    EXPECT_THAT(Logged(), ElementsAre(std::string("[#CELL]Registration status: ") + GetParam().description));
    EXPECT_EQ(Module3G::GetRegistrationStatusDescription(GetParam().state), GetParam().description);
}

TEST_P(RegistrationState, IsLoggedOnceUntilItChanges)
{
    const std::string line = "+CREG: 2," + std::to_string(GetParam().state);
    const std::string other = GetParam().state == 4 ? "+CREG: 2,3" : "+CREG: 2,4";
    module.On(STATUS, {{{0ms, Reply(STATUS, line)}},
                       {{0ms, Reply(STATUS, line)}},
                       {{0ms, Reply(STATUS, other)}},
                       {{0ms, Reply(STATUS, line)}}});
    EXPECT_EQ(Module3G::GetRegistrationStatus(), GetParam().state);
    EXPECT_EQ(Module3G::GetRegistrationStatus(), GetParam().state);
    EXPECT_EQ(Logged().size(), 1u);
    Module3G::GetRegistrationStatus();
    EXPECT_EQ(Logged().size(), 2u);
    EXPECT_EQ(Module3G::GetRegistrationStatus(), GetParam().state);
    EXPECT_EQ(Logged().size(), 3u);
}

TEST_P(RegistrationState, TellsWhetherItIsRegistered)
{
    module.Accept(STATUS, "+CREG: 2," + std::to_string(GetParam().state));
    EXPECT_EQ(Module3G::IsRegistered(), GetParam().registered);
    EXPECT_EQ(Module3G::registration_status, GetParam().state);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RegistrationState,
    testing::Values(StateRow{0, "Not registered, ME is NOT currently searching.", false},
                    StateRow{1, "Registered, home network", true},
                    StateRow{2, "Not registered, but ME is currently searching", false},
                    StateRow{3, "Registration denied", false}, StateRow{4, "Unknown", false},
                    StateRow{5, "Registered, roaming", true}, StateRow{6, "Invalid status", false},
                    StateRow{7, "Invalid status", false}, StateRow{9, "Invalid status", false}));

TEST(RegistrationDescription, OfAnyOtherValueIsInvalid)
{
    for (const int value : {-1, 6, 10, 99, INT_MAX, INT_MIN})
    {
        EXPECT_EQ(Module3G::GetRegistrationStatusDescription(value), "Invalid status") << value;
    }
}

TEST_F(ModemTest, ARegistrationReplyWithoutAStateLeavesTheLastOne)
{
    Module3G::registration_status = 5;
    for (const char* line : {"", "+CREG: 1", "+CGREG: 2,1"})
    {
        module.Accept(STATUS, line);
        EXPECT_EQ(Module3G::GetRegistrationStatus(), -1) << line;
        EXPECT_FALSE(Module3G::IsRegistered()) << line;
    }
    module.Refuse(STATUS);
    EXPECT_EQ(Module3G::GetRegistrationStatus(), -1);
    EXPECT_EQ(Module3G::registration_status, 5);
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, AStateThatIsNoDigitThrows)
{
    Module3G::registration_status = 5;
    for (const char* line : {"+CREG: 2,x", "+CREG: 2, 1", "+CREG: 2,-1", "+CREG: 2,"})
    {
        module.Accept(STATUS, line);
        EXPECT_THROW(Module3G::GetRegistrationStatus(), std::invalid_argument) << line;
        EXPECT_THROW(Module3G::IsRegistered(), std::invalid_argument) << line;
    }
    EXPECT_EQ(Module3G::registration_status, 5);
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, RegistrationReportsAreSwitchedOnForBothServices)
{
    module.Accept("AT+CREG=2\r\n");
    module.Accept("AT+CGREG=2\r\n");
    EXPECT_EQ(Module3G::EnableNetworkRegistration(), 0);
    EXPECT_EQ(module.Received(), "AT+CREG=2\r\nAT+CGREG=2\r\n");
    module.Refuse("AT+CGREG=2\r\n");
    EXPECT_EQ(Module3G::EnableNetworkRegistration(), 1);
    module.On("AT+CGREG=2\r\n", Answer{});
    const auto before = Clock::Elapsed();
    EXPECT_EQ(Module3G::EnableNetworkRegistration(), 1);
    EXPECT_EQ(Clock::Elapsed() - before, CYCLE + SHORT_CYCLES * CYCLE);
    EXPECT_THAT(Logged(), IsEmpty());
}

// Operators ----------------------------------------------------------------------------------------------

Texts Names(const std::list<Operator>& list)
{
    Texts names;
    for (const Operator& seen : list)
    {
        names.push_back(seen.longName);
    }
    return names;
}

std::string Group(const std::string& name, int technology)
{
    return "(1,\"" + name + "\",\"s\",\"26201\"," + std::to_string(technology) + ")";
}

TEST_F(ModemTest, OperatorsAreListedByAccessTechnologyThenAsTheModuleDid)
{
    module.Accept(SCAN, "+COPS: " + Group("a", 0) + ',' + Group("b", 2) + ',' + Group("c", 0) + ',' +
                            Group("d", 6) + ',' + Group("e", 2) + ',' + Group("f", -1) + ',' + Group("g", 0));
    std::list<Operator> list;
    EXPECT_EQ(Module3G::GetCarriersList(&list), 0);
    EXPECT_THAT(Names(list), ElementsAre("d", "b", "e", "a", "c", "g", "f"));
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(ModemTest, ASupportedModesGroupOfFourCommasIsListedToo)
{
    module.Accept(SCAN, "+COPS: " + Group("a", 0) + ',' + Group("b", 2) + ",,(0,1,2,3,4),(0,1,2)");
    std::list<Operator> list;
    EXPECT_EQ(Module3G::GetCarriersList(&list), 0);
    EXPECT_THAT(Names(list), ElementsAre("", "b", "a"));
    EXPECT_EQ(list.front().accessTechnology, 4);
    EXPECT_EQ(list.front().status, 0);
}

TEST_F(ModemTest, AShortGroupEndsTheListAndTheRestIsSorted)
{
    module.Accept(SCAN, "+COPS: " + Group("a", 0) + ',' + Group("b", 2) + ",(1,\"c\",\"c\",\"26203\")," +
                            Group("d", 6));
    std::list<Operator> list;
    EXPECT_EQ(Module3G::GetCarriersList(&list), 0);
    EXPECT_THAT(Names(list), ElementsAre("b", "a"));
}

TEST_F(ModemTest, TheListIsAppendedToAndSortedAsAWhole)
{
    module.Accept(SCAN, "+COPS: " + Group("a", 0) + ',' + Group("b", 2));
    std::list<Operator> list{{1, "before0", "", "1", 0}, {1, "before2", "", "1", 2}};
    EXPECT_EQ(Module3G::GetCarriersList(&list), 0);
    EXPECT_THAT(Names(list), ElementsAre("before2", "b", "before0", "a"));
}

TEST_F(ModemTest, AListThatFillsTheBufferIsReadWhole)
{
    constexpr int OPERATORS = 100;
    std::string line = "+COPS: ";
    for (int number = 0; number < OPERATORS; ++number)
    {
        line += Group("Operator " + std::to_string(1000 + number), 2) + ',';
    }
    ASSERT_LT(Reply(SCAN, line).size(), 3841u);
    module.Accept(SCAN, line);
    std::list<Operator> list;
    EXPECT_EQ(Module3G::GetCarriersList(&list), 0);
    ASSERT_EQ(list.size(), std::size_t{OPERATORS});
    EXPECT_EQ(list.front().longName, "Operator 1000");
    EXPECT_EQ(list.back().longName, "Operator 1099");
}

TEST_F(ModemTest, AScanThatFindsNothingSucceeds)
{
    module.Accept(SCAN, "+COPS: ");
    std::list<Operator> list;
    EXPECT_EQ(Module3G::GetCarriersList(&list), 0);
    EXPECT_THAT(list, IsEmpty());
}

TEST_F(ModemTest, AFailedScanLeavesTheListAsItWas)
{
    std::list<Operator> list{{1, "before0", "", "1", 0}, {1, "before2", "", "1", 2}};
    module.Refuse(SCAN);
    EXPECT_EQ(Module3G::GetCarriersList(&list), -1);
    module.Accept(SCAN, Group("a", 0));
    EXPECT_EQ(Module3G::GetCarriersList(&list), -1) << "no +COPS:";
    EXPECT_THAT(Names(list), ElementsAre("before0", "before2")) << "not even sorted";
}

TEST_F(ModemTest, ANumberThatIsNoneThrowsAndLeavesWhatPrecedesItUnsorted)
{
    const std::string begin = "+COPS: " + Group("a", 0) + ',' + Group("b", 2) + ',';
    std::list<Operator> list;
    module.Accept(SCAN, begin + "(,\"c\",\"c\",\"1\",0)");
    EXPECT_THROW(Module3G::GetCarriersList(&list), std::invalid_argument);
    EXPECT_THAT(Names(list), ElementsAre("a", "b"));
    list.clear();
    module.Accept(SCAN, begin + "(1,\"c\",\"c\",\"1\",x)");
    EXPECT_THROW(Module3G::GetCarriersList(&list), std::invalid_argument);
    EXPECT_THAT(Names(list), ElementsAre("a", "b"));
    list.clear();
    module.Accept(SCAN, begin + "(1,\"c\",\"c\",\"1\",99999999999)");
    EXPECT_THROW(Module3G::GetCarriersList(&list), std::out_of_range);
    EXPECT_THAT(Names(list), ElementsAre("a", "b"));
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
}

TEST(OperatorOrder, IsThatOfTheAccessTechnologyAlone)
{
    const Operator low{2, "z", "z", "9", 0};
    const Operator high{0, "a", "a", "1", 2};
    EXPECT_EQ(Module3G::CB_CompareOperator(high, low), 1);
    EXPECT_EQ(Module3G::CB_CompareOperator(low, high), 0);
    EXPECT_EQ(Module3G::CB_CompareOperator(low, low), 0);
    EXPECT_EQ(Module3G::CB_CompareOperator(high, Operator{5, "b", "b", "2", 2}), 0);
    EXPECT_EQ(Module3G::CB_CompareOperator(low, Operator{2, "z", "z", "9", -1}), 1);
}

TEST_F(ModemStateTest, OperatorsArePrintedOneLineEach)
{
    std::list<Operator> list;
    Module3G::PrintCarriersList(&list);
    EXPECT_THAT(Logged(), IsEmpty());
    list = {{1, "One Net", "One", "26201", 0}, {-2, "", "", "", 2}};
    Module3G::PrintCarriersList(&list);
    EXPECT_THAT(Logged(), ElementsAre("Operator: [One Net, One, 26201, 0, 1]", "Operator: [, , , 2, -2]"));
    EXPECT_EQ(list.size(), 2u);
}

// The current operator -----------------------------------------------------------------------------------

TEST_F(ModemTest, TheCarriersNameKeepsItsCommaAndOneCharacter)
{
    module.Accept(CURRENT, "+COPS: 0,0,\"Operator\",2");
    std::string name = "before";
    EXPECT_TRUE(Module3G::GetCarrierName(name));
    EXPECT_EQ(name, "Operator,2");
}

TEST_F(ModemTest, WithoutACarrierTheNameStays)
{
    std::string name = "before";
    for (const char* line : {"+COPS: 0", "", "\"Operator\",2"})
    {
        module.Accept(CURRENT, line);
        EXPECT_FALSE(Module3G::GetCarrierName(name)) << line;
    }
    EXPECT_EQ(name, "before");
    module.Accept(CURRENT, "+COPS: 0,0,\"\"");
    EXPECT_TRUE(Module3G::GetCarrierName(name));
    EXPECT_EQ(name, "") << "an empty name is one";
    EXPECT_THAT(Logged(), IsEmpty());
}

}

}

// The choice of an operator: the application's list, the one command, and who decides.

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

using Tavdevice::Modem::NR_OF_TRIES;

constexpr const char* SCAN_OPERATORS = "AT+COPS=?\r\n";
constexpr const char* AUTOMATIC = "AT+COPS=0\r\n";
constexpr const char* SELECT_ONE = "AT+COPS=1,2,\"26201\",2\r\n";
constexpr const char* SELECT_TWO = "AT+COPS=1,2,\"26202\",2\r\n";

class SelectionTest : public ModemTest
{
protected:
    static std::list<PreferredOperator>& Preferred() { return Module3G::PreferredOperatorList; }

    static std::vector<bool> Marks()
    {
        std::vector<bool> marks;
        for (const PreferredOperator& row : Preferred())
        {
            marks.push_back(row.selected);
        }
        return marks;
    }
};

// The one command ----------------------------------------------------------------------------------------

TEST_F(SelectionTest, OneCommandIsSentInTheLifeOfTheProcess)
{
    module.Accept(SELECT_ONE);
    EXPECT_EQ(Module3G::SetOperator(26201), 0);
    EXPECT_EQ(NR_OF_TRIES, 1);
    EXPECT_EQ(module.Received(), SELECT_ONE);
    EXPECT_EQ(Module3G::SetOperator(26201), 0);
    EXPECT_EQ(Module3G::SetOperator(0), 0);
    EXPECT_EQ(module.Received(), SELECT_ONE) << "nothing more";
    EXPECT_EQ(Clock::Elapsed(), CYCLE);
    EXPECT_EQ(NR_OF_TRIES, -1) << "it only decreases";
}

TEST_F(SelectionTest, ARefusedCommandIsNotRepeated)
{
    module.Refuse(SELECT_ONE);
    EXPECT_EQ(Module3G::SetOperator(26201), 0);
    EXPECT_EQ(module.Received(), SELECT_ONE);
    EXPECT_EQ(NR_OF_TRIES, 0) << "the failure took the other try";
    EXPECT_EQ(Module3G::SetOperator(26201), 0);
    EXPECT_EQ(module.Received(), SELECT_ONE);
}

TEST_F(SelectionTest, RaisedTriesAreUsedUpByFailuresAtOnce)
{
    NR_OF_TRIES = 4;
    module.Refuse(AUTOMATIC);
    EXPECT_EQ(Module3G::SetOperator(0), 0);
    EXPECT_EQ(module.Received(), std::string(AUTOMATIC) + AUTOMATIC + AUTOMATIC);
    EXPECT_EQ(Clock::Elapsed(), 3 * CYCLE) << "without a pause";
    EXPECT_EQ(NR_OF_TRIES, 0);
}

TEST_F(SelectionTest, RaisedTriesEndWithASuccess)
{
    NR_OF_TRIES = 10;
    module.On(AUTOMATIC, {{{0ms, ErrorReply(AUTOMATIC)}}, {{0ms, Reply(AUTOMATIC)}}});
    EXPECT_EQ(Module3G::SetOperator(0), 0);
    EXPECT_EQ(module.Received(), std::string(AUTOMATIC) + AUTOMATIC);
    EXPECT_EQ(NR_OF_TRIES, 8);
    NR_OF_TRIES = 2;
    EXPECT_EQ(Module3G::SetOperator(0), 0);
    EXPECT_EQ(module.Received(), std::string(AUTOMATIC) + AUTOMATIC + AUTOMATIC) << "raised, it sends again";
}

TEST_F(SelectionTest, SilenceAndAMissingModuleTakeATryEach)
{
    NR_OF_TRIES = 3;
    Kit::System::Fail("open", ENOENT);
    EXPECT_EQ(Module3G::SetOperator(26201), 0);
    EXPECT_EQ(Clock::Elapsed(), 400ms + 180s);
    EXPECT_EQ(NR_OF_TRIES, 0);
}

TEST_F(SelectionTest, AnExceptionTakesATryToo)
{
    Kit::System::Fail("tcsetattr", EIO);
    testing::internal::CaptureStdout();
    EXPECT_THROW(Module3G::SetOperator(0), IException);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(NR_OF_TRIES, 1);
    AllowDescriptors(1);
}

class NoTries : public SelectionTest, public testing::WithParamInterface<int>
{
};

TEST_P(NoTries, NothingIsSentHoweverOften)
{
    NR_OF_TRIES = GetParam();
    for (int call = 0; call < 1000; ++call)
    {
        ASSERT_EQ(Module3G::SetOperator(26201), 0);
        ASSERT_LE(NR_OF_TRIES, GetParam()) << "it only decreases";
    }
    EXPECT_EQ(module.Received(), "");
    EXPECT_EQ(Clock::Elapsed(), 0ms);
    EXPECT_THAT(Kit::System::Calls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Values, NoTries, testing::Values(1, 0, -1, INT_MIN + 500, INT_MIN + 1, INT_MIN));

// The application's list ---------------------------------------------------------------------------------

TEST_F(SelectionTest, TheSelectedRowIsFoundWithAllItsFields)
{
    Preferred() = {{"one", 26201, 1, false}, {"two", 26202, 2, true}, {"three", 26203, 3, true}};
    PreferredOperator found;
    EXPECT_TRUE(Module3G::FindPrefferedOperator(found));
    EXPECT_EQ(found.name, "two");
    EXPECT_EQ(found.code, 26202);
    EXPECT_EQ(found.spare, 2);
    EXPECT_TRUE(found.selected);
}

TEST_F(SelectionTest, WithoutASelectedRowTheLastOneIsGivenAndNotFound)
{
    Preferred() = {{"one", 26201, 1, false}, {"two", 26202, 2, false}};
    PreferredOperator found{"before", 7, 7, true};
    EXPECT_FALSE(Module3G::FindPrefferedOperator(found));
    EXPECT_EQ(found.name, "two");
    EXPECT_EQ(found.code, 26202);
    EXPECT_EQ(found.spare, 2);
    EXPECT_FALSE(found.selected);
}

TEST_F(SelectionTest, AnEmptyListGivesNothing)
{
    PreferredOperator found{"before", 7, 8, true};
    EXPECT_FALSE(Module3G::FindPrefferedOperator(found));
    EXPECT_EQ(found.name, "before");
    EXPECT_EQ(found.code, 7);
    EXPECT_EQ(found.spare, 8);
    EXPECT_TRUE(found.selected);
    EXPECT_TRUE(Module3G::RemovePrefferedOperator());
}

TEST_F(SelectionTest, TheFirstMarkIsRemoved)
{
    Preferred() = {{"one", 26201, 0, false}, {"two", 26202, 0, true}, {"three", 26203, 0, true}};
    EXPECT_TRUE(Module3G::RemovePrefferedOperator());
    EXPECT_THAT(Marks(), ElementsAre(false, false, true));
    EXPECT_TRUE(Module3G::RemovePrefferedOperator());
    EXPECT_THAT(Marks(), ElementsAre(false, false, false));
    EXPECT_FALSE(Module3G::RemovePrefferedOperator());
    EXPECT_EQ(Preferred().size(), 3u);
}

TEST_F(SelectionTest, TheAutomaticModeMayAlwaysBeEntered)
{
    Module3G::failedRegistrations = 7;
    EXPECT_EQ(Module3G::SwitchToAutoCarrierSelectionMode(), 0);
    EXPECT_TRUE(Module3G::autoCarrierSelection);
    EXPECT_EQ(Module3G::failedRegistrations, 0);
    EXPECT_EQ(module.Received(), "");
}

TEST_F(SelectionTest, TheManualModeNeedsAList)
{
    Module3G::autoCarrierSelection = true;
    Module3G::failedRegistrations = 7;
    Module3G::SwitchToManualCarrierSelectionMode();
    EXPECT_TRUE(Module3G::autoCarrierSelection);
    EXPECT_EQ(Module3G::failedRegistrations, 7);
    Preferred() = {{"one", 26201, 0, false}};
    Module3G::SwitchToManualCarrierSelectionMode();
    EXPECT_FALSE(Module3G::autoCarrierSelection);
    EXPECT_EQ(Module3G::failedRegistrations, 0);
    EXPECT_EQ(module.Received(), "");
}

// Selection ----------------------------------------------------------------------------------------------

TEST_F(SelectionTest, WithoutAListTheModuleIsToChooseAndNothingIsSent)
{
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_TRUE(Module3G::autoCarrierSelection);
    EXPECT_EQ(module.Received(), "");
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_EQ(NR_OF_TRIES, 2);
}

TEST_F(SelectionTest, InAutomaticModeTheModuleChooses)
{
    Preferred() = {{"one", 26201, 0, true}};
    Module3G::autoCarrierSelection = true;
    module.Accept(AUTOMATIC);
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), AUTOMATIC);
    EXPECT_THAT(Logged(), ElementsAre("[#CELL]Done set auto operator"));
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), AUTOMATIC) << "once";
    EXPECT_EQ(Logged().size(), 2u) << "logged all the same";
}

TEST_F(SelectionTest, InAutomaticModeARefusalIsASuccessToo)
{
    Preferred() = {{"one", 26201, 0, false}};
    Module3G::autoCarrierSelection = true;
    module.Refuse(AUTOMATIC);
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_THAT(Logged(), ElementsAre("[#CELL]Done set auto operator"));
}

TEST_F(SelectionTest, ASelectedRowIsUsedAgainWithoutAScan)
{
    Preferred() = {{"one", 26201, 0, false}, {"two", 26202, 0, true}};
    module.Refuse(SELECT_TWO);
    EXPECT_EQ(Module3G::SelectNetwork(), 1) << "also when it is refused";
    EXPECT_EQ(module.Received(), SELECT_TWO);
    EXPECT_THAT(Marks(), ElementsAre(false, true));
    EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(SelectionTest, TheFirstPreferredOperatorOnOfferIsSelected)
{
    Preferred() = {{"none", 26203, 0, false}, {"one", 26201, 0, false}, {"two", 26202, 0, false}};
    module.Accept(SCAN_OPERATORS, "+COPS: (1,\"Two\",\"T\",\"26202\",2),(1,\"One\",\"O\",\"26201\",0)");
    module.Accept(SELECT_ONE);
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), std::string(SCAN_OPERATORS) + SELECT_ONE) << "the application's order wins";
    EXPECT_THAT(Marks(), ElementsAre(false, true, false));
    EXPECT_THAT(Logged(), ElementsAre("Operator: [Two, T, 26202, 2, 1]", "Operator: [One, O, 26201, 0, 1]"));
    EXPECT_FALSE(Module3G::autoCarrierSelection);

    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), std::string(SCAN_OPERATORS) + SELECT_ONE) << "neither a scan nor a command";
}

struct OfferRow
{
    const char* name;
    std::string status;
    std::string numeric;
    bool offered;
};

void PrintTo(const OfferRow& row, std::ostream* out)
{
    *out << row.name;
}

class Offer : public SelectionTest, public testing::WithParamInterface<OfferRow>
{
};

TEST_P(Offer, IsJudgedByNumberAndStatus)
{
    Preferred() = {{"one", 26201, 0, false}};
    module.Accept(SCAN_OPERATORS,
                  "+COPS: (" + GetParam().status + ",\"One\",\"O\",\"" + GetParam().numeric + "\",2)");
    module.Accept(SELECT_ONE);
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), std::string(SCAN_OPERATORS) + (GetParam().offered ? SELECT_ONE : ""));
    EXPECT_THAT(Marks(), ElementsAre(GetParam().offered));
    EXPECT_EQ(NR_OF_TRIES, GetParam().offered ? 1 : 2);
    EXPECT_FALSE(Module3G::autoCarrierSelection);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Offer,
    testing::Values(OfferRow{"Available", "1", "26201", true}, OfferRow{"Current", "2", "26201", true},
                    OfferRow{"Unknown", "0", "26201", false}, OfferRow{"Forbidden", "3", "26201", false},
                    OfferRow{"Negative", "-1", "26201", false}, OfferRow{"OtherNumber", "1", "26202", false},
                    OfferRow{"NumberWithMore", "1", "262011", false},
                    OfferRow{"NumberThenLetters", "1", "26201x", true},
                    OfferRow{"LeadingZero", "1", "026201", true}, OfferRow{"NoNumber", "1", "", false},
                    OfferRow{"BeyondAnInt", "1", "4294993497", false}),
    [](const testing::TestParamInfo<OfferRow>& row) { return row.param.name; });

TEST_F(SelectionTest, AnOperatorOfferedSeveralTimesIsTakenWhereItIsAvailable)
{
    Preferred() = {{"one", 26201, 0, false}};
    module.Accept(SCAN_OPERATORS, "+COPS: (3,\"One\",\"O\",\"26201\",2),(1,\"One\",\"O\",\"26201\",0)");
    module.Accept(SELECT_ONE);
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), std::string(SCAN_OPERATORS) + SELECT_ONE);
}

TEST_F(SelectionTest, OnlyTheFirstOfEqualRowsIsMarked)
{
    Preferred() = {{"one", 26201, 0, false}, {"one again", 26201, 0, false}};
    module.Accept(SCAN_OPERATORS, "+COPS: (1,\"One\",\"O\",\"26201\",2)");
    module.Refuse(SELECT_ONE);
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_THAT(Marks(), ElementsAre(true, false)) << "marked whether the command succeeds or not";
}

TEST_F(SelectionTest, AScanThatFailsOrFindsNothingIsZero)
{
    Preferred() = {{"one", 26201, 0, false}};
    module.Refuse(SCAN_OPERATORS);
    EXPECT_EQ(Module3G::SelectNetwork(), 0);
    module.Accept(SCAN_OPERATORS);
    EXPECT_EQ(Module3G::SelectNetwork(), 0) << "no +COPS:";
    module.Accept(SCAN_OPERATORS, "+COPS: ");
    EXPECT_EQ(Module3G::SelectNetwork(), 0) << "no operator";
    EXPECT_THAT(Marks(), ElementsAre(false));
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_EQ(NR_OF_TRIES, 2);
}

TEST_F(SelectionTest, WithoutAnyTriesTheRowIsMarkedAllTheSame)
{
    NR_OF_TRIES = 0;
    Preferred() = {{"one", 26201, 0, false}};
    module.Accept(SCAN_OPERATORS, "+COPS: (1,\"One\",\"O\",\"26201\",2)");
    EXPECT_EQ(Module3G::SelectNetwork(), 1);
    EXPECT_EQ(module.Received(), SCAN_OPERATORS);
    EXPECT_THAT(Marks(), ElementsAre(true));
}

TEST_F(SelectionTest, ExceptionsOfTheScanPass)
{
    Preferred() = {{"one", 26201, 0, false}};
    module.Accept(SCAN_OPERATORS, "+COPS: (x,\"One\",\"O\",\"26201\",2)");
    EXPECT_THROW(Module3G::SelectNetwork(), std::invalid_argument);
    module.Accept(SCAN_OPERATORS, "+COPS: (99999999999,\"One\",\"O\",\"26201\",2)");
    EXPECT_THROW(Module3G::SelectNetwork(), std::out_of_range);
    Kit::System::Fail("tcsetattr", EIO);
    testing::internal::CaptureStdout();
    EXPECT_THROW(Module3G::SelectNetwork(), IException);
    testing::internal::GetCapturedStdout();
    EXPECT_THAT(Marks(), ElementsAre(false));
    EXPECT_THAT(Logged(), IsEmpty());
    EXPECT_TRUE(LockIsFree());
    AllowDescriptors(1);
}

}

}

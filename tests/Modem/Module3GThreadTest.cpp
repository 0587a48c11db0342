// Exchanges of several threads at once.

#include "tests/Modem/ModemTest.h"

#include <atomic>
#include <memory>

using testing::IsEmpty;

namespace ModemTests
{

namespace
{

TEST_F(ModemTest, AThousandExchangesOfTwoThreadsNeverInterleave)
{
    constexpr int EXCHANGES = 500; // of each thread
    module.On("AT+CGSN\r\n", Answer{{20ms, "AT+CGSN\r\n\r\n8610750"}, {40ms, "21234567\r\n\r\nOK\r\n"}});
    module.On("AT+CIMI\r\n", Answer{{20ms, "AT+CIMI\r\n\r\n2620112"}, {40ms, "34567890\r\n\r\nOK\r\n"}});
    std::atomic<int> wrong{0};
    const auto ask = [&wrong](int (*query)(), const std::string& text, const char* expected) {
        for (int exchange = 0; exchange < EXCHANGES; ++exchange)
        {
            wrong += query() == 0 && text == expected ? 0 : 1;
        }
    };
    std::thread imei(ask, Module3G::QueryModuleIMEI, std::cref(Module3G::m3gIMEI), "861075021234567");
    ask(Module3G::QuerySimIMSI, Module3G::m3gSimIMSI, "262011234567890");
    imei.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Clock::Elapsed(), 2 * EXCHANGES * CYCLE) << "one after the other";

    std::string sent = module.Received();
    EXPECT_EQ(sent.size(), 2u * EXCHANGES * 9);
    int commands = 0;
    for (; sent.starts_with("AT+CGSN\r\n") || sent.starts_with("AT+CIMI\r\n"); ++commands)
    {
        sent.erase(0, 9);
    }
    EXPECT_EQ(commands, 2 * EXCHANGES) << "whole commands only";
    EXPECT_EQ(sent, "");
}

TEST_F(ModemTest, TheInterfaceIsClosedBeforeAnotherThreadOpensIt)
{
    module.Accept("AT+CGSN\r\n", "861075021234567");
    module.Accept("AT+CIMI\r\n", "262011234567890");
    std::thread other([] {
        for (int exchange = 0; exchange < 50; ++exchange)
        {
            Module3G::QueryModuleIMEI();
        }
    });
    for (int exchange = 0; exchange < 50; ++exchange)
    {
        Module3G::QuerySimIMSI();
    }
    other.join();
    int open = 0;
    int opened = 0;
    for (const Kit::System::Call& call : Kit::System::Calls())
    {
        const std::string_view function = call.function;
        open += function == "open" ? 1 : 0;
        opened += function == "open" ? 1 : 0;
        open -= function == "close" ? 1 : 0;
        ASSERT_GE(open, 0);
        ASSERT_LE(open, 1);
    }
    EXPECT_EQ(opened, 100);
}

TEST_F(ModemTest, TheLockIsHeldForTheWholeOfAnExchange)
{
    module.On("AT+CSQ\r\n", Answer{{950ms, Reply("AT+CSQ\r\n")}});
    std::thread other([] { EXPECT_EQ(Exchange("AT+CSQ\r\n", 100), 0); });
    std::this_thread::sleep_for(50ms);
    for (int look = 0; look < 9; ++look)
    {
        EXPECT_FALSE(LockIsFree());
        std::this_thread::sleep_for(100ms);
    }
    other.join();
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemStateTest, TheLockIsHeldWhileWritingFails)
{
    std::thread other([] { EXPECT_EQ(Exchange("AT+CSQ\r\n", 4), -3); });
    std::this_thread::sleep_for(350ms);
    EXPECT_FALSE(LockIsFree());
    other.join();
    EXPECT_TRUE(LockIsFree());
}

TEST_F(ModemTest, BothInterfacesShareTheLock)
{
    ScriptedModule alternate(ALTERNATE_PORT);
    module.On("AT+CGSN\r\n", Answer{{950ms, Reply("AT+CGSN\r\n", "861075021234567")}});
    alternate.Accept("AT+CSQ\r\n", "+CSQ: 17,0");
    std::thread other([] { EXPECT_EQ(Exchange("AT+CGSN\r\n", 100), 0); });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(Module3G::CheckSignal(true), 0);
    other.join();
    ASSERT_EQ(alternate.Times().size(), 1u);
    EXPECT_EQ(alternate.Times()[0], 1000ms) << "after the first one's end";
}

TEST_F(ModemTest, OperationsOfManyThreadsEachGetTheirOwnReply)
{
    constexpr int ROUNDS = 20;
    module.Accept("AT+CGSN\r\n", "861075021234567");
    module.Accept("AT+CIMI\r\n", "262011234567890");
    module.Accept("AT+QCCID\r\n", "+QCCID: 89490200001234567890");
    module.Accept("ATI\r\n", "Revision: UC20");
    module.Accept("AT+CBC\r\n", "+CBC: 0,77,3914");
    module.Accept("AT+CSQ\r\n", "+CSQ: 17,0");
    module.Accept("AT+CREG?\r\n", "+CREG: 2,5");
    module.Accept("AT+COPS?\r\n", "+COPS: 0,0,\"Operator\",2");
    module.Accept("AT+COPS=?\r\n", "+COPS: (1,\"One\",\"O\",\"26201\",2)");
    std::atomic<int> wrong{0};
    const auto repeat = [&wrong](auto operation) {
        return std::thread([operation, &wrong] {
            for (int round = 0; round < ROUNDS; ++round)
            {
                wrong += operation() ? 0 : 1;
            }
        });
    };
    std::vector<std::thread> threads;
    threads.push_back(
        repeat([] { return Module3G::QueryModuleIMEI() == 0 && Module3G::m3gIMEI == "861075021234567"; }));
    threads.push_back(
        repeat([] { return Module3G::QuerySimIMSI() == 0 && Module3G::m3gSimIMSI == "262011234567890"; }));
    threads.push_back(repeat(
        [] { return Module3G::QuerySimICCID() == 0 && Module3G::m3gSimICCID == "89490200001234567890"; }));
    threads.push_back(
        repeat([] { return Module3G::QueryModuleFwVersion() == 0 && Module3G::m3g_fw_version == "UC20"; }));
    threads.push_back(repeat([] { return Module3G::GetVoltageLevel() == 3914; }));
    threads.push_back(
        repeat([] { return Module3G::CheckSignal() == 0 && Module3G::signal_status.rssi == 17; }));
    threads.push_back(repeat([] { return Module3G::GetRegistrationStatus() == 5; }));
    threads.push_back(repeat([] {
        std::string name;
        return Module3G::GetCarrierName(name) && name == "Operator,2";
    }));
    threads.push_back(repeat([] {
        std::list<Operator> list;
        return Module3G::GetCarriersList(&list) == 0 && list.size() == 1 && list.front().longName == "One";
    }));
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Clock::Elapsed(), 9 * ROUNDS * CYCLE);
}

TEST_F(ModemTest, AnExchangeThatThrowsLetsAnotherThreadOn)
{
    module.Accept("AT+CSQ\r\n", "+CSQ: 17,0");
    Kit::System::Fail("tcsetattr", EIO, 2, 3); // of whichever threads come then
    testing::internal::CaptureStdout();
    std::atomic<int> thrown{0};
    std::atomic<int> answered{0};
    const auto ask = [&] {
        for (int exchange = 0; exchange < 5; ++exchange)
        {
            try
            {
                answered += Exchange("AT+CSQ\r\n", 4) == 0 ? 1 : 0;
            }
            catch (const IException&)
            {
                ++thrown;
            }
        }
    };
    std::thread other(ask);
    ask();
    other.join();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(thrown, 3);
    EXPECT_EQ(answered, 7);
    AllowDescriptors(3);
}

TEST_F(ModemTest, AnObjectMadeDuringAnExchangeDoesNotDamageIt)
{
    module.On("AT+CSQ\r\n", Answer{{0ms, "AT+CSQ\r\n\r\n+CSQ: 1"}, {250ms, "7,0\r\n\r\nOK\r\n"}});
    int signal = -1;
    std::thread other([&signal] { signal = Module3G::CheckSignal(); });
    std::this_thread::sleep_for(150ms);
    {
        const Module3G during;
        EXPECT_EQ(Clock::Elapsed(), 150ms) << "nor does it wait";
    }
    other.join();
    EXPECT_EQ(signal, 0);
    EXPECT_EQ(Module3G::signal_status.rssi, 17);
    EXPECT_EQ(Gathered(), Reply("AT+CSQ\r\n", "+CSQ: 17,0"));
}

TEST_F(ModemTest, ObjectsMadeAllTheTimeDoNotDamageExchanges)
{
    module.On("AT+CGSN\r\n", Answer{{20ms, "AT+CGSN\r\n\r\n8610750"}, {150ms, "21234567\r\n\r\nOK\r\n"}});
    std::atomic<bool> ended{false};
    std::thread maker([&ended] {
        while (!ended)
        {
            const Module3G object;
            std::this_thread::sleep_for(7ms);
        }
    });
    for (int exchange = 0; exchange < 50; ++exchange)
    {
        EXPECT_EQ(Module3G::QueryModuleIMEI(), 0);
    }
    ended = true;
    maker.join();
    EXPECT_EQ(Module3G::m3gIMEI, "861075021234567");
}

}

}

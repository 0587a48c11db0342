// From end to end: the device with an emulated receiver at the other end of its line.

#include "tests/GpsDevice/GpsTest.h"

#include "tests/virtual-unit/ports/EmulatedLine.h"
#include "virtual-unit/peripherals/GpsReceiver.h"

#include <algorithm>
#include <memory>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace GpsTests
{

namespace
{

using Kit::Clock;
using Model = VirtualUnit::GpsReceiver::Model;
using Options = VirtualUnit::GpsReceiver::Options;

class EmulatedReceiver : public GpsLogTest
{
protected:
    ~EmulatedReceiver() override
    {
        gps.Stop();
        if (line != nullptr)
        {
            line->Stop();
            Kit::System::Unredirect(DEVICE);
        }
    }

    /// Switches the receiver on and starts the device.
    void Start(const Options& options)
    {
        module = std::make_unique<VirtualUnit::GpsReceiver>(options);
        line = std::make_unique<EmulatedLine>(*module);
        Kit::System::Redirect(DEVICE, line->Path());
        line->Start();
        GpsDevice::IThreadDelegate* delegate = &receiver;
        gps.Prepare(delegate);
        ASSERT_FALSE(gps.HasError()) << gps.GetErrorMessage();
        ForgetLog();
        ASSERT_TRUE(gps.Start());
    }

    static void Pass(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

    bool Blocks(std::size_t count)
    {
        return Clock::WaitUntil([&] { return receiver.Blocks().size() >= count; }, 300s);
    }

    std::unique_ptr<VirtualUnit::GpsReceiver> module;
    std::unique_ptr<EmulatedLine> line;
    Receiver receiver;
    GpsDevice gps;
};

Texts Sentences(const std::string& block)
{
    Texts lines;
    for (std::size_t at = 0; at < block.size();)
    {
        const std::size_t end = std::min(block.find('\n', at), block.size() - 1) + 1;
        lines.push_back(block.substr(at, end - at));
        at = end;
    }
    return lines;
}

/// The check sum of a sentence is right.
bool IsSound(const std::string& sentence)
{
    return !VirtualUnit::Nmea::Body(sentence).empty();
}

Options Of(Model model)
{
    Options options;
    options.model = model;
    return options;
}

TEST_F(EmulatedReceiver, AnL26IsFoundConfiguredAndRead)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::L26)));
    ASSERT_TRUE(Blocks(6));
    gps.Stop();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_FALSE(module->GlonassOn());
    EXPECT_EQ(line->ReceivedText(), std::string(QUERY) + std::string(SELECTION));
    const Texts lines = FileLines();
    EXPECT_THAT(lines.at(1), StartsWith("L26 module version: $PMTK705,"));
    EXPECT_THAT(lines.at(1), HasSubstr("Quectel-L26"));
    EXPECT_EQ(lines.at(2), "Found L26 GPS module");
    EXPECT_THAT(ConsoleOnlyLines(),
                Contains(StartsWith("[WARNING]GLONASS has been deactivated; $PMTK001,353,3")));

    const Texts blocks = receiver.Blocks();
    for (std::size_t i = 1; i < blocks.size(); ++i)
    {
        EXPECT_THAT(blocks[i], StartsWith("$GPRMC,"));
        EXPECT_THAT(blocks[i], HasSubstr("$GPGGA,"));
        EXPECT_THAT(blocks[i], HasSubstr("$GPGSA,"));
        EXPECT_THAT(blocks[i], HasSubstr("$GPGSV,"));
        const Texts sentences = Sentences(blocks[i]);
        EXPECT_TRUE(std::all_of(sentences.begin(), sentences.end(), IsSound)) << blocks[i];
        EXPECT_EQ(blocks[i].substr(7, 6), sentences[2].substr(7, 6)) << "RMC and GGA of the same second";
    }
}

TEST_F(EmulatedReceiver, AnSkm53IsFoundAndRead)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::SKM53)));
    ASSERT_TRUE(Blocks(6));
    gps.Stop();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    EXPECT_EQ(line->ReceivedText(), std::string(QUERY) + std::string(SELECTION));
    EXPECT_THAT(FileLines(), Contains("Found SKM53 GPS module"));
    for (const std::string& block : receiver.Blocks())
    {
        const Texts sentences = Sentences(block);
        EXPECT_THAT(sentences.back(), StartsWith("$GPRMC,"));
        EXPECT_TRUE(std::all_of(sentences.begin(), sentences.end(), IsSound)) << block;
    }
}

TEST_F(EmulatedReceiver, ABlockComesEachSecond)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::SKM53)));
    ASSERT_TRUE(Blocks(1));
    const std::size_t before = receiver.Blocks().size();
    Pass(60s);
    const std::size_t blocks = receiver.Blocks().size() - before;
    EXPECT_GE(blocks, 59u);
    EXPECT_LE(blocks, 61u);
    EXPECT_THAT(receiver.All(), Not(Contains(""))) << "no second without input";
}

TEST_F(EmulatedReceiver, AnL26ThatAnswersNothingIsKnownByItsTextSentences)
{
    module.reset();
    Options options = Of(Model::L26);
    ASSERT_NO_FATAL_FAILURE(Start(options));
    line->Locked([this] { module->faults.noReleaseReply = module->faults.noAcknowledgement = true; });
    ASSERT_TRUE(Blocks(2));
    gps.Stop();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_THAT(FileLines(), Contains("Found L26 GPS module"));
    EXPECT_THAT(ConsoleOnlyLines(), Not(Contains(HasSubstr("GLONASS"))));
    EXPECT_FALSE(module->GlonassOn()) << "obeyed, though not acknowledged";
}

TEST_F(EmulatedReceiver, WithGlonassOnItsBlocksEndWithTheOtherTalker)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::L26)));
    ASSERT_TRUE(Blocks(2));
    line->Locked([this] { module->Restart(std::chrono::steady_clock::now()); });
    receiver.Forget();
    ASSERT_TRUE(Blocks(4));
    gps.Stop();
    EXPECT_TRUE(module->GlonassOn()) << "a reset is reported, not answered";
    EXPECT_THAT(receiver.Blocks().back(), StartsWith("$GNRMC,"));
}

TEST_F(EmulatedReceiver, AResetShowsInTheLogAndInTheStream)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::L26)));
    ASSERT_TRUE(Blocks(2));
    line->Locked([this] { module->Restart(std::chrono::steady_clock::now()); });
    const std::size_t before = receiver.Blocks().size();
    ASSERT_TRUE(Blocks(before + 2));
    gps.Stop();
    // The number is that of all resets of the process.
    EXPECT_THAT(FileLines(), Contains(testing::MatchesRegex("\\[ERROR\\]GPS had been reset \\([0-9]+\\) "
                                                            "\\$PMTK011,MTKGPS\\*08\r\n")));
    EXPECT_THAT(FileLines(), Contains(testing::MatchesRegex("\\[ERROR\\]GPS had been reset \\([0-9]+\\) "
                                                            "\\$PMTK010,001\\*2E\r\n")));
    EXPECT_THAT(receiver.Blocks(), Contains(HasSubstr("$PMTK011,MTKGPS*08\r\n$PMTK010,001*2E\r\n")));
}

TEST_F(EmulatedReceiver, SilenceIsToldEachSecondUntilItEnds)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::L26)));
    ASSERT_TRUE(Blocks(2));
    line->Locked([this] { module->faults.silent = true; });
    Pass(2s);
    receiver.Forget();
    Pass(30s);
    EXPECT_THAT(receiver.All(), Each(""));
    EXPECT_GE(receiver.Count(), 29u);
    EXPECT_LE(receiver.Count(), 31u);
    EXPECT_THAT(ConsoleOnlyLines(), Contains("[GPS-AQ] serial read error"));
    line->Locked([this] { module->faults.silent = false; });
    EXPECT_TRUE(Blocks(3));
}

TEST_F(EmulatedReceiver, NoiseBetweenTheSentencesLosesNone)
{
    Options options = Of(Model::L26);
    ASSERT_NO_FATAL_FAILURE(Start(options));
    ASSERT_TRUE(Blocks(2));
    line->Locked([this] { module->faults.noiseBytes = 40; });
    Pass(100s);
    line->Locked([this] { module->faults.noiseBytes = 0; });
    receiver.Forget();
    EXPECT_TRUE(Blocks(3)) << "the thread goes on";
    const Texts blocks = receiver.Blocks();
    EXPECT_THAT(blocks.back(), StartsWith("$GPRMC,"));
    const Texts sentences = Sentences(blocks.back());
    EXPECT_TRUE(std::all_of(sentences.begin(), sentences.end(), IsSound)) << blocks.back();
}

TEST_F(EmulatedReceiver, SentencesInPiecesArriveWhole)
{
    Options options = Of(Model::SKM53);
    options.line.pieceBytes = 7;
    options.line.pieceGap = 3ms;
    ASSERT_NO_FATAL_FAILURE(Start(options));
    ASSERT_TRUE(Blocks(5));
    gps.Stop();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    for (const std::string& block : receiver.Blocks())
    {
        const Texts sentences = Sentences(block);
        EXPECT_THAT(sentences.back(), StartsWith("$GPRMC,"));
        EXPECT_TRUE(std::all_of(sentences.begin(), sentences.end(), IsSound)) << block;
    }
}

TEST_F(EmulatedReceiver, AtTheLinesOwnSpeedNothingIsLost)
{
    Options options = Of(Model::L26);
    options.line.bytesPerSecond = 960;
    ASSERT_NO_FATAL_FAILURE(Start(options));
    ASSERT_TRUE(Blocks(10));
    gps.Stop();
    EXPECT_EQ(line->LostBytes(), 0u);
    const Texts blocks = receiver.Blocks();
    for (std::size_t i = 1; i < blocks.size(); ++i)
    {
        EXPECT_THAT(blocks[i], StartsWith("$GPRMC,"));
        const Texts sentences = Sentences(blocks[i]);
        EXPECT_TRUE(std::all_of(sentences.begin(), sentences.end(), IsSound)) << blocks[i];
    }
}

TEST_F(EmulatedReceiver, ThatIsUnpluggedIsToldEachSecond)
{
    ASSERT_NO_FATAL_FAILURE(Start(Of(Model::L26)));
    ASSERT_TRUE(Blocks(2));
    line->HangUp();
    Pass(1500ms);
    receiver.Forget();
    Pass(60s);
    EXPECT_THAT(receiver.All(), Each(""));
    EXPECT_GE(receiver.Count(), 59u);
    EXPECT_LE(receiver.Count(), 61u);
}

}

}

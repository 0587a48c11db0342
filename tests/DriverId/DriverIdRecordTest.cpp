// The file that keeps the last driver ID.

#include "DriverId/DriverIdRecord.h"

#include "tests/DriverId/DriverIdTest.h"
#include "tests/kit/ClosedStreams.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <ostream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;

namespace DriverIdTests
{

namespace
{

using TavDevice::DriverIdRecord;

const std::string ID = "00A1B2C3D4E5";
const std::string CONTENT = R"({"driver-id":"00A1B2C3D4E5"})";
const std::string SAVED = "Driver Id 00A1B2C3D4E5 saved to /mnt/sdcard/db/driver-id.json";
const std::string REMOVED = "Driver id file /mnt/sdcard/db/driver-id.jsonhave been removed";

/// A reader with a card; there is no line.
class DriverIdFileTest : public DriverIdLogTest
{
protected:
    std::string Load()
    {
        std::string id = UNTOUCHED;
        const bool loaded = reader.LoadFromFile(id);
        EXPECT_EQ(loaded, id != UNTOUCHED);
        return id;
    }

    void Save(std::string id)
    {
        const std::string before = id;
        reader.SaveToFile(id);
        EXPECT_EQ(id, before);
    }

    Card card;
    DriverId reader;
};

// Saving -----------------------------------------------------------------------------------------------

TEST_F(DriverIdFileTest, AnIdIsSavedAsOneObjectWithoutALineEnd)
{
    Save(ID);
    EXPECT_EQ(card.Content(), CONTENT);
    ExpectLines({SAVED});
    EXPECT_EQ(Load(), ID);
    ExpectLines({SAVED});
}

TEST_F(DriverIdFileTest, AnIdIsSavedInPlaceOfTheOneBefore)
{
    const auto inode = [this] {
        struct stat status = {};
        EXPECT_EQ(stat(card.Record().c_str(), &status), 0);
        return status.st_ino;
    };
    card.Write(R"({"driver-id": "FFFFFFFFFFFF", "more": "than what is written now"})");
    const ino_t before = inode();
    Save(ID);
    EXPECT_EQ(inode(), before) << "no other file has taken its place";
    EXPECT_EQ(card.Content(), CONTENT);
    Save("0123456789AB");
    EXPECT_EQ(inode(), before);
    EXPECT_EQ(card.Content(), R"({"driver-id":"0123456789AB"})");
    EXPECT_EQ(Load(), "0123456789AB");
}

TEST_F(DriverIdFileTest, AnIdIsSavedWithoutAnyOtherFile)
{
    Save(ID);
    Save(ID);
    const std::filesystem::directory_iterator entries(card.Directory());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
    EXPECT_THAT(System::CallsOf("open"), Each(Field(&System::Call::path, RECORD)));
    EXPECT_THAT(System::CallsOf("rename"), IsEmpty());
}

TEST_F(DriverIdFileTest, AnyTwelveBytesOfTextAreKept)
{
    for (const std::string& id : {"abcdefabcdef"s, "no hex at al"s, "\"quote\\slash"s, "12345678901\n"s,
                                  "\0\0\0\0\0\0\0\0\0\0\0\0"s, "00000000000O"s, "000000000001"s,
                                  "            "s, "\xC3\xA4\xC3\xB6\xC3\xBC\xE2\x82\xAC\xC3\x9F!"s})
    {
        ASSERT_EQ(id.size(), 12u);
        Save(id);
        EXPECT_EQ(Load(), id);
    }
}

TEST_F(DriverIdFileTest, ADirectoryThatIsGoneIsSilent)
{
    std::filesystem::remove_all(card.Directory());
    Save(ID);
    EXPECT_FALSE(std::filesystem::exists(card.Directory()));
    ExpectLines({});
}

TEST_F(DriverIdFileTest, AFileThatCannotBeOpenedForWritingIsLeftAsItIs)
{
    card.Write("kept");
    System::Fail("open", EROFS);
    System::Fail("open", EROFS);
    Save(ID);
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_EQ(card.Content(), "kept");
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ACardWithoutSpaceIsSilent)
{
    System::Fail("write", ENOSPC);
    Save(ID);
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_EQ(card.Content(), "");
    ExpectLines({});
}

TEST_F(DriverIdFileTest, AnIdIsOnTheCardBeforeItIsSaidToBeSaved)
{
    Save(ID);
    Texts names;
    for (const System::Call& call : System::Calls())
    {
        if (call.path == RECORD)
        {
            names.emplace_back(call.function);
        }
    }
    EXPECT_THAT(names, ElementsAre("stat", "open", "fstat", "write", "fdatasync", "close"));
    ExpectLines({SAVED});
}

TEST_F(DriverIdFileTest, AnIdThatDoesNotReachTheCardIsNotSaidToBeSaved)
{
    System::Fail("fdatasync", EIO);
    Save(ID);
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_EQ(System::CallsOf("close").size(), 1U);
    ExpectLines({});
    Save(ID);
    ExpectLines({SAVED});
}

// IDs that are not stored --------------------------------------------------------------------------------

class NotStored : public DriverIdFileTest, public testing::WithParamInterface<std::string>
{
};

TEST_P(NotStored, RemovesTheRecord)
{
    card.Write(CONTENT);
    Save(GetParam());
    EXPECT_EQ(card.Content(), "none");
    EXPECT_TRUE(std::filesystem::is_directory(card.Directory()));
    ExpectLines({REMOVED});
    EXPECT_EQ(Load(), UNTOUCHED);

    ForgetLog();
    Save(GetParam());
    ExpectLines({});
}

INSTANTIATE_TEST_SUITE_P(Ids, NotStored,
                         testing::Values("000000000000", "", "00A1B2C3D4E", "00A1B2C3D4E56", "0", "\0"s,
                                         "0000000000000", "00000000000", std::string(1000, 'A'),
                                         "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
                                         "00A1B2C3D4E\xC3",
                                         "\xED\xA0\x80\x41\x42\x43\x44\x45\x46\x47\x48\x49"));

// Removing ---------------------------------------------------------------------------------------------

TEST_F(DriverIdFileTest, TheRecordIsRemovedWithOneLine)
{
    card.Write("whatever it is");
    reader.RemoveFile();
    EXPECT_EQ(card.Content(), "none");
    ExpectLines({REMOVED});
    reader.RemoveFile();
    ExpectLines({REMOVED});
}

TEST_F(DriverIdFileTest, AMissingRecordIsRemovedInSilence)
{
    reader.RemoveFile();
    ExpectLines({});
    std::filesystem::remove_all(card.Directory());
    reader.RemoveFile();
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ARecordThatCannotBeRemovedStaysInSilence)
{
    card.Write(CONTENT);
    System::Fail("unlink", EROFS);
    reader.RemoveFile();
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_EQ(card.Content(), CONTENT);
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ADirectoryOfTheRecordsNameIsNotRemoved)
{
    std::filesystem::create_directory(card.Record());
    reader.RemoveFile();
    Save("");
    Save(ID);
    EXPECT_TRUE(std::filesystem::is_directory(card.Record()));
    EXPECT_EQ(Load(), UNTOUCHED);
    ExpectLines({});
}

// Loading ----------------------------------------------------------------------------------------------

struct TextRow
{
    const char* name;
    std::string text;
    /// Characters that are put in front or behind when the test runs: each of these tests is a process,
    /// which would make the long texts of all of them at its begin.
    std::size_t lineEndsInFront = 0;
    std::size_t blanksBehind = 0;

    std::string Whole() const
    {
        return std::string(lineEndsInFront, '\n') + text + std::string(blanksBehind, ' ');
    }
};

void PrintTo(const TextRow& row, std::ostream* out)
{
    *out << row.name;
}

const auto NAME_OF = [](const testing::TestParamInfo<TextRow>& row) { return std::string(row.param.name); };

class NoRecord : public DriverIdFileTest, public testing::WithParamInterface<TextRow>
{
};

TEST_P(NoRecord, LoadsNothingInSilence)
{
    card.Write(GetParam().Whole());
    EXPECT_EQ(Load(), UNTOUCHED);
    EXPECT_EQ(card.Content(), GetParam().Whole());
    ExpectLines({});
}

std::string Repeated(const std::string& text, std::size_t count)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
    {
        all += text;
    }
    return all;
}

/// A record, filled up with blanks.
TextRow Padded(const char* name, std::size_t bytes)
{
    return {name, CONTENT, 0, bytes - CONTENT.size()};
}

constexpr std::size_t LONGEST = 1024 * 1024;

INSTANTIATE_TEST_SUITE_P(
    Texts, NoRecord,
    testing::Values(
        TextRow{"Empty", ""}, TextRow{"Blank", " \n\n"}, TextRow{"Words", "no record at all"},
        TextRow{"PlainId", "00A1B2C3D4E5"}, TextRow{"Null", "null"}, TextRow{"Number", "12"},
        TextRow{"True", "true"}, TextRow{"String", R"("00A1B2C3D4E5")"}, TextRow{"Array", "[]"},
        TextRow{"ArrayOfTheObject", R"([{"driver-id":"00A1B2C3D4E5"}])"},
        TextRow{"ArrayOfTheTexts", R"(["driver-id","00A1B2C3D4E5"])"}, TextRow{"EmptyObject", "{}"},
        TextRow{"OtherKey", R"({"driverid":"00A1B2C3D4E5"})"},
        TextRow{"KeyInOtherCase", R"({"Driver-Id":"00A1B2C3D4E5"})"},
        TextRow{"KeyFurtherInside", R"({"a":{"driver-id":"00A1B2C3D4E5"}})"},
        TextRow{"NullMember", R"({"driver-id":null})"}, TextRow{"BoolMember", R"({"driver-id":true})"},
        TextRow{"NumberMember", R"({"driver-id":123456789012})"},
        TextRow{"FractionMember", R"({"driver-id":1234567890.5})"},
        TextRow{"ArrayMember", R"({"driver-id":["00A1B2C3D4E5"]})"},
        TextRow{"ObjectMember", R"({"driver-id":{"driver-id":"00A1B2C3D4E5"}})"},
        TextRow{"NoCharacters", R"({"driver-id":""})"}, TextRow{"ThreeCharacters", R"({"driver-id":"00A"})"},
        TextRow{"ElevenCharacters", R"({"driver-id":"00A1B2C3D4E"})"},
        TextRow{"ThirteenCharacters", R"({"driver-id":"00A1B2C3D4E56"})"},
        TextRow{"Truncated", R"({"driver-id":"00A1B2C3D4E5")"},
        TextRow{"TruncatedInTheId", R"({"driver-id":"00A1B2)"}, TextRow{"TruncatedToTheBrace", "{"},
        TextRow{"TwoObjects", CONTENT + CONTENT}, TextRow{"MoreBehind", CONTENT + "x"},
        TextRow{"SingleQuotes", "{'driver-id':'00A1B2C3D4E5'}"},
        TextRow{"Binary", "\x7F"
                          "ELF\x01\x02\xFF\xFE\x80\x00\x0D\xEF"s},
        TextRow{"Nuls", std::string(100, '\0')}, TextRow{"NulBehind", CONTENT + '\0'},
        TextRow{"NulInTheId", "{\"driver-id\":\"00A1B2\0C3D4E\"}"s},
        TextRow{"InvalidUtf8", "{\"driver-id\":\"00A1B2C3D4\xFF\xFE\"}"},
        TextRow{"CarriageReturnInTheId", "{\"driver-id\":\"00A1B2\r\nC3D4E5\"}"},
        TextRow{"NestedArrays", Repeated("[", 20000) + Repeated("]", 20000)},
        TextRow{"NestedObjects", Repeated("{\"driver-id\":", 5000)},
        TextRow{"NestedBesideTheId",
                R"({"driver-id":"00A1B2C3D4E5","a":)" + Repeated("[", 200) + Repeated("]", 200) + "}"},
        Padded("OneByteTooLong", LONGEST + 1), Padded("MuchTooLong", 10'000'000),
        TextRow{"LineEndsWithoutEnd", CONTENT, LONGEST}),
    NAME_OF);

class IsRecord : public DriverIdFileTest, public testing::WithParamInterface<TextRow>
{
};

TEST_P(IsRecord, LoadsTheId)
{
    card.Write(GetParam().Whole());
    EXPECT_EQ(Load(), ID);
    EXPECT_EQ(card.Content(), GetParam().Whole());
    ExpectLines({});
}

INSTANTIATE_TEST_SUITE_P(
    Texts, IsRecord,
    testing::Values(TextRow{"Itself", CONTENT}, TextRow{"WithALineEnd", CONTENT + "\n"},
                    TextRow{"WithBlanks", "  { \"driver-id\" :\t\"00A1B2C3D4E5\" }  "},
                    TextRow{"OverLines", "{\n  \"driver-id\":\n    \"00A1B2C3D4E5\"\n}\n"},
                    TextRow{"OverLinesWithReturns", "{\r\n\"driver-id\":\r\n\"00A1B2C3D4E5\"\r\n}\r\n"},
                    TextRow{"EmptyLines", "\n\n{\n\n\"driver-id\":\n\n\"00A1B2C3D4E5\"}\n\n"},
                    TextRow{"LineEndInTheId", "{\"driver-id\":\"00A1B2\nC3D4E5\"}"},
                    TextRow{"LineEndInTheKey", "{\"driver\n-id\":\"00A1B2C3D4E5\"}"},
                    TextRow{"LineEndBehindEachByte",
                            [] {
                                std::string text;
                                for (const char c : CONTENT)
                                {
                                    text += {c, '\n'};
                                }
                                return text;
                            }()},
                    TextRow{"OtherKeysBefore", R"({"a":1,"b":[{}],"driver-id":"00A1B2C3D4E5"})"},
                    TextRow{"OtherKeysBehind",
                            R"({"driver-id":"00A1B2C3D4E5","driver":"000000000000","z":null})"},
                    TextRow{"Escapes", R"({"driver\u002did":"\u0030\u0030A1B2C3D4E5"})"},
                    Padded("AsLongAsAllowed", LONGEST)),
    NAME_OF);

TEST_F(DriverIdFileTest, AnyTwelveCharactersAreLoaded)
{
    card.Write(R"({"driver-id":"000000000000"})");
    EXPECT_EQ(Load(), "000000000000") << "never written, but read";
    card.Write(R"({"driver-id":"not an ID..."})");
    EXPECT_EQ(Load(), "not an ID...");
}

TEST_F(DriverIdFileTest, AMissingRecordLoadsNothing)
{
    EXPECT_EQ(Load(), UNTOUCHED);
    EXPECT_THAT(System::CallsOf("open"), IsEmpty()) << "it is looked for first";
    std::filesystem::remove_all(card.Directory());
    EXPECT_EQ(Load(), UNTOUCHED);
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ARecordThatCannotBeLookedForLoadsNothing)
{
    card.Write(CONTENT);
    System::Fail("access", EIO);
    EXPECT_EQ(Load(), UNTOUCHED);
    EXPECT_EQ(System::FailuresDone(), 1);
    ASSERT_FALSE(System::CallsOf("access").empty());
    EXPECT_EQ(System::CallsOf("access").at(0).argument, F_OK);
    EXPECT_EQ(Load(), ID);
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ARecordThatCannotBeOpenedLoadsNothing)
{
    card.Write(CONTENT);
    System::Fail("open", EACCES);
    EXPECT_EQ(Load(), UNTOUCHED);
    EXPECT_EQ(System::FailuresDone(), 1);
    EXPECT_EQ(Load(), ID);
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ARecordThatCannotBeReadLoadsNothing)
{
    std::filesystem::create_symlink("/proc/self/mem", card.Record()); // opens; the read fails with EIO
    EXPECT_EQ(Load(), UNTOUCHED);
    EXPECT_THAT(System::CallsOf("open"), Contains(Field(&System::Call::path, RECORD)));
    ExpectLines({});
}

TEST_F(DriverIdFileTest, ARecordOutlivesTheReader)
{
    Save(ID);
    DriverId another;
    std::string id;
    EXPECT_TRUE(another.LoadFromFile(id));
    EXPECT_EQ(id, ID);
}

// What is no file ----------------------------------------------------------------------------------------

/// A FIFO, terminal, device or socket in the record's place, with the test at its other end where it has one.
class Node
{
public:
    Node(const std::string& kind, const std::string& path)
    {
        if (kind == "Fifo" || kind == "FifoWithAnotherEnd")
        {
            EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
            other = kind == "Fifo" ? -1 : open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        }
        else if (kind == "Terminal")
        {
            other = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
            std::array<char, 64> name{};
            EXPECT_EQ(grantpt(other) + unlockpt(other) + ptsname_r(other, name.data(), name.size()), 0);
            std::filesystem::create_symlink(name.data(), path);
        }
        else if (kind == "Socket")
        {
            sockaddr_un address = {AF_UNIX, {}};
            path.copy(std::begin(address.sun_path), sizeof(address.sun_path) - 1);
            other = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            EXPECT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        }
        else if (kind == "Directory")
        {
            std::filesystem::create_directory(path);
        }
        else
        {
            std::filesystem::create_symlink("/dev/" + kind, path);
        }
    }

    ~Node() { close(other); }

    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    bool GotSomething() const
    {
        char byte = 0;
        return other >= 0 && read(other, &byte, 1) > 0;
    }

private:
    int other = -1;
};

class NoFile : public DriverIdFileTest, public testing::WithParamInterface<const char*>
{
protected:
    void ExpectLeftAlone(const Node& node) const
    {
        struct stat status = {};
        EXPECT_EQ(lstat(card.Record().c_str(), &status), 0);
        EXPECT_FALSE(S_ISREG(status.st_mode));
        EXPECT_FALSE(node.GotSomething());
        ExpectLines({});
    }
};

TEST_P(NoFile, IsNeitherOpenedNorRead)
{
    const Node node(GetParam(), card.Record());
    System::ForgetCalls();
    EXPECT_EQ(Load(), UNTOUCHED);
    EXPECT_THAT(System::CallsOf("open"), IsEmpty());
    ExpectLeftAlone(node);
}

TEST_P(NoFile, IsNeitherOpenedNorWritten)
{
    const Node node(GetParam(), card.Record());
    System::ForgetCalls();
    Save(ID);
    EXPECT_THAT(System::CallsOf("open"), IsEmpty());
    ExpectLeftAlone(node);
}

TEST_P(NoFile, ThatTakesTheNameAtTheLastMomentNeitherHoldsTheCallerNorIsUsed)
{
    const Node node(GetParam(), card.Record());
    System::Fail("stat", ENOENT, 1, 2);
    EXPECT_EQ(Load(), UNTOUCHED);
    Save(ID);
    EXPECT_EQ(System::FailuresDone(), 2);
    EXPECT_THAT(System::CallsOf("read"), IsEmpty());
    EXPECT_THAT(System::CallsOf("write"), IsEmpty());
    for (const System::Call& call : System::CallsOf("open"))
    {
        EXPECT_EQ(call.argument & (O_NONBLOCK | O_NOCTTY), O_NONBLOCK | O_NOCTTY);
    }
    ExpectLeftAlone(node);
}

INSTANTIATE_TEST_SUITE_P(Kinds, NoFile,
                         testing::Values("Fifo", "FifoWithAnotherEnd", "Terminal", "Socket", "Directory",
                                         "null", "zero", "full"),
                         [](const testing::TestParamInfo<const char*>& row) {
                             return std::string(row.param);
                         });

// Without the directory ----------------------------------------------------------------------------------

TEST_F(DriverIdLogTest, WithoutItsDirectoryNoRecordIsKept)
{
    DriverId reader;
    const Card card; // comes too late
    std::filesystem::create_directory(card.Directory());
    ForgetLog();
    System::ForgetCalls();
    std::string id = ID;
    reader.SaveToFile(id);
    EXPECT_EQ(card.Content(), "none");
    card.Write(CONTENT);
    id = UNTOUCHED;
    EXPECT_FALSE(reader.LoadFromFile(id));
    EXPECT_EQ(id, UNTOUCHED);
    for (const char* const notStored : {"", "000000000000"})
    {
        id = notStored;
        reader.SaveToFile(id);
    }
    EXPECT_EQ(card.Content(), CONTENT);
    EXPECT_THAT(System::Calls(), IsEmpty());
    ExpectLines({});
}

TEST_F(DriverIdLogTest, WithoutItsDirectoryARecordCanStillBeRemoved)
{
    DriverId reader;
    const Card card;
    std::filesystem::create_directory(card.Directory());
    card.Write(CONTENT);
    ForgetLog();
    reader.RemoveFile();
    EXPECT_EQ(card.Content(), "none");
    ExpectLines({REMOVED});
}

TEST_F(DriverIdLogTest, AFileInTheDirectorysPlaceIsLeftAlone)
{
    const Card card;
    std::ofstream(card.Directory()) << "in the way";
    DriverId reader;
    ForgetLog();
    std::string id = ID;
    reader.SaveToFile(id);
    EXPECT_FALSE(reader.LoadFromFile(id));
    reader.RemoveFile();
    ExpectLines({});
    EXPECT_TRUE(std::filesystem::is_regular_file(card.Directory()));
}

// The record by itself -----------------------------------------------------------------------------------

TEST_F(DriverIdLogTest, APathOfLessThanSixCharactersNamesNoFile)
{
    const std::string file = Kit::TempDir::Path() + "/short";
    for (const std::string& path : {""s, "abc"s, "abcde"s})
    {
        std::ofstream(file) << CONTENT;
        System::Redirect(path.empty() ? "unused" : path, file);
        const DriverIdRecord record(path);
        std::string id = UNTOUCHED;
        EXPECT_FALSE(record.Load(id));
        record.Remove();
        record.Save("");
        EXPECT_EQ(id, UNTOUCHED);
        EXPECT_TRUE(std::filesystem::exists(file)) << path;
    }
    EXPECT_THAT(System::CallsOf("unlink"), IsEmpty());
    EXPECT_THAT(System::CallsOf("access"), IsEmpty());
    ExpectLines({});
}

TEST_F(DriverIdLogTest, APathOfSixCharactersNamesAFile)
{
    const std::string file = Kit::TempDir::Path() + "/six";
    System::Redirect("abcdef", file);
    const DriverIdRecord record("abcdef");
    std::string id;
    record.Save(ID);
    EXPECT_TRUE(record.Load(id));
    EXPECT_EQ(id, ID);
    record.Remove();
    EXPECT_FALSE(std::filesystem::exists(file));
    ExpectLines({"Driver Id 00A1B2C3D4E5 saved to abcdef", "Driver id file abcdefhave been removed"});
}

TEST_F(DriverIdLogTest, ARecordThatIsOnlyNamedTouchesNothing)
{
    {
        const DriverIdRecord record(RECORD);
    }
    EXPECT_FALSE(System::Reached());
}

// Standard streams that are closed -----------------------------------------------------------------------

KIT_PROGRAM(RecordWithoutStreams)
{
    System::Redirect(RECORD, Kit::TempDir::Path() + "/record");
    const Kit::ClosedStreams closed;
    const DriverIdRecord record(RECORD);
    record.Save(ID);
    std::string id;
    KIT_REQUIRE(record.Load(id) && id == ID);
    int looked = 0;
    for (const System::Call& call : System::Calls())
    {
        if (call.path == RECORD && (call.function == "read"s || call.function == "write"s))
        {
            KIT_REQUIRE(call.fd > STDERR_FILENO);
            ++looked;
        }
    }
    KIT_REQUIRE(looked >= 2);
    KIT_REQUIRE(Kit::ClosedStreams::WereKept());
    return 0;
}

TEST(RecordDescriptorTest, TheRecordIsNoStandardStreamWhenOneIsClosed)
{
    Kit::ClosedStreams::Run("RecordWithoutStreams");
}

}

}

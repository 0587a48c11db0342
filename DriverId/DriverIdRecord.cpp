#include "DriverId/DriverIdRecord.h"

#include "base/Tavbase/Json/Json.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/Util/StandardStreams.h"

#include <array>
#include <cstddef>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

namespace TavDevice
{

namespace
{

using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;
namespace Json = Tavbase::Json;

constexpr const char* KEY = "driver-id";
constexpr const char* NO_DRIVER = "000000000000";
constexpr std::size_t ID_CHARACTERS = 12;
constexpr std::size_t SHORTEST_PATH = 6;
constexpr std::size_t READ_BYTES = 4096;
constexpr std::size_t LONGEST_RECORD = std::size_t{1024} * 1024; // what is on the card may be anything

/// A regular file that is open, until the end of the scope. Whatever else has its name is left alone: a FIFO
/// would hold the caller, and a terminal or device do with the bytes what it does.
class OpenedFile
{
public:
    OpenedFile(const std::string& path, int flags) : fd(OpenRegular(path.c_str(), flags)) {}

    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;

    ~OpenedFile() { Close(); }

    bool IsOpen() const { return fd >= 0; }

    int Descriptor() const { return fd; }

    /// @return false when what was written may be lost
    bool Close() { return fd < 0 || close(std::exchange(fd, -1)) == 0; }

private:
    static constexpr mode_t MODE = 0666;

    static int OpenRegular(const char* path, int flags)
    {
        struct stat status = {};
        if (stat(path, &status) == 0 && !S_ISREG(status.st_mode))
        {
            return -1;
        }
        const int opened =
            Tavbase::Util::OpenNoStandardStream(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, MODE);
        if (opened >= 0 && (fstat(opened, &status) != 0 || !S_ISREG(status.st_mode)))
        {
            close(opened); // another one has taken the name since
            return -1;
        }
        return opened;
    }

    int fd;
};

/// The lines of the file without their ends; nothing when it cannot be read or is too long.
std::optional<std::string> ReadJoined(const std::string& path)
{
    const OpenedFile file(path, O_RDONLY);
    if (!file.IsOpen())
    {
        return std::nullopt;
    }
    std::string text;
    std::array<char, READ_BYTES> part;
    ssize_t count = 0;
    while ((count = read(file.Descriptor(), part.data(), part.size())) > 0)
    {
        text.append(part.data(), static_cast<std::size_t>(count));
        if (text.size() > LONGEST_RECORD)
        {
            return std::nullopt;
        }
    }
    std::erase(text, '\n');
    return count < 0 ? std::nullopt : std::optional(text);
}

/// The text of the record; nothing for an ID that cannot be stored.
std::optional<std::string> RecordText(const std::string& id)
{
    if (id.size() != ID_CHARACTERS || id == NO_DRIVER)
    {
        return std::nullopt;
    }
    Json::Object record;
    record[KEY] = Json::Value(id);
    try
    {
        return Json::Serialize(Json::Value(std::move(record)));
    }
    catch (const Json::JsonException&)
    {
        return std::nullopt; // not UTF-8
    }
}

}

DriverIdRecord::DriverIdRecord(std::string thePath) : path(std::move(thePath))
{
}

bool DriverIdRecord::Load(std::string& id) const
{
    if (!NamesFile() || access(path.c_str(), F_OK) != 0)
    {
        return false;
    }
    const std::optional<std::string> text = ReadJoined(path);
    if (!text)
    {
        return false;
    }
    try
    {
        const Json::Value value = Json::Deserialize(*text);
        if (value.GetType() != Json::Value::Type::Object || !value.ToObject().HasKey(KEY))
        {
            return false;
        }
        const std::string& stored = value.ToObject()[KEY].ToString();
        if (stored.size() != ID_CHARACTERS)
        {
            return false;
        }
        id = stored;
        return true;
    }
    catch (const Json::JsonException&)
    {
        return false; // no JSON, or the member is no string
    }
}

void DriverIdRecord::Save(const std::string& id) const
{
    const std::optional<std::string> text = RecordText(id);
    if (!text)
    {
        Remove();
        return;
    }
    OpenedFile file(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.IsOpen())
    {
        return;
    }
    const ssize_t written = write(file.Descriptor(), text->data(), text->size());
    const bool onCard = written == static_cast<ssize_t>(text->size()) && fdatasync(file.Descriptor()) == 0;
    if (file.Close() && onCard)
    {
        Logger::GetInstance() << LogType::Info << "Driver Id " << id << " saved to " << path << std::endl;
    }
}

void DriverIdRecord::Remove() const
{
    if (NamesFile() && unlink(path.c_str()) == 0)
    {
        // Without a blank behind the path: whoever searches the logs knows the line as it is.
        Logger::GetInstance() << LogType::Info << "Driver id file " << path << "have been removed"
                              << std::endl;
    }
}

bool DriverIdRecord::NamesFile() const
{
    return path.size() >= SHORTEST_PATH;
}

}

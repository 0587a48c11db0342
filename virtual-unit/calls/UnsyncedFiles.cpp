#include "virtual-unit/calls/UnsyncedFiles.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace VirtualUnit
{

namespace fs = std::filesystem;

namespace
{

std::optional<ino_t> NumberOf(const std::string& file)
{
    struct stat status = {};
    return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? std::optional(status.st_ino)
                                                                       : std::nullopt;
}

bool AreAlike(const fs::path& one, const fs::path& other)
{
    std::ifstream first(one, std::ios::binary);
    std::ifstream second(other, std::ios::binary);
    return std::equal(std::istreambuf_iterator<char>(first), {}, std::istreambuf_iterator<char>(second), {});
}

}

fs::path UnsyncedFiles::CopyOf(ino_t file) const
{
    return fs::path(copies.Path()) / std::to_string(file);
}

void UnsyncedFiles::Keep(const std::string& file, ino_t number)
{
    std::error_code error;
    fs::copy_file(file, CopyOf(number), fs::copy_options::overwrite_existing, error);
    if (error) // what cannot be read, or finds no room, is left alone rather than destroyed
    {
        synced.erase(number);
        return;
    }
    synced[number] = true;
}

/// Runs `function(path, inode)` for each file that is on the card and of which something may be lost.
template <class Function>
void UnsyncedFiles::ForEachOnCard(Function&& function)
{
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied, error),
         end;
         !error && entry != end; entry.increment(error))
    {
        if (entry->symlink_status().type() == fs::file_type::regular)
        {
            files.push_back(entry->path());
        }
    }
    std::ranges::sort(files);
    for (const std::string& file : files)
    {
        if (const std::optional<ino_t> number = NumberOf(file); number && synced.contains(*number))
        {
            function(file, *number);
        }
    }
}

void UnsyncedFiles::Made(const std::string& file)
{
    if (const std::optional<ino_t> number = NumberOf(file))
    {
        synced[*number] = false;
    }
}

void UnsyncedFiles::Changes(const std::string& file)
{
    if (const std::optional<ino_t> number = NumberOf(file); number && !synced.contains(*number))
    {
        Keep(file, *number);
    }
}

void UnsyncedFiles::Synced(const std::string& file)
{
    if (const std::optional<ino_t> number = NumberOf(file); number && synced.contains(*number))
    {
        Keep(file, *number);
    }
}

void UnsyncedFiles::SyncedAll()
{
    ForEachOnCard([this](const std::string& file, ino_t number) { Keep(file, number); });
}

void UnsyncedFiles::SyncsItself(const std::string& file)
{
    if (const std::optional<ino_t> number = NumberOf(file))
    {
        synced.erase(*number);
    }
}

void UnsyncedFiles::Drop(const std::function<void(const std::string& file, std::ptrdiff_t left)>& tell)
{
    ForEachOnCard([&](const std::string& file, ino_t number) {
        const std::string name = file.substr(root.size() + 1);
        std::error_code error;
        if (!synced.at(number))
        {
            fs::remove(file, error);
            tell(name, -1);
        }
        else if (const fs::path copy = CopyOf(number); !AreAlike(file, copy))
        {
            fs::remove(file, error); // in its place: its mode may forbid to write to it
            fs::copy_file(copy, file, error);
            tell(name, static_cast<std::ptrdiff_t>(fs::file_size(copy, error)));
        }
    });
}

}

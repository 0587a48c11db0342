#include "virtual-unit/script/Script.h"

#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace VirtualUnit
{

namespace
{

constexpr std::string_view BLANKS = " \t\r";

std::string Trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(BLANKS);
    return begin == std::string::npos ? std::string()
                                      : text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin);
}

std::string WithoutComment(const std::string& line)
{
    for (std::size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1))
    {
        if (at == 0 || BLANKS.find(line[at - 1]) != std::string_view::npos)
        {
            return line.substr(0, at);
        }
    }
    return line;
}

/// Takes the first word off a text.
std::string TakeWord(std::string& text)
{
    const std::size_t end = std::min(text.find_first_of(BLANKS), text.size());
    std::string word = text.substr(0, end);
    text = Trimmed(text.substr(end));
    return word;
}

/// The text with its escapes replaced.
std::string Bytes(const std::string& text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '\\')
        {
            bytes += text[i];
            continue;
        }
        constexpr std::string_view LETTERS = "rnt\\";
        constexpr std::string_view MEANINGS = "\r\n\t\\";
        const char letter = i + 1 < text.size() ? text[i + 1] : '\0';
        const std::size_t known = LETTERS.find(letter);
        unsigned char value = 0;
        const char* const digits = text.data() + std::min(i + 2, text.size());
        if (known != std::string_view::npos)
        {
            bytes += MEANINGS[known];
            i += 1;
        }
        else if (letter == 'x' && text.size() - i >= 4 &&
                 std::from_chars(digits, digits + 2, value, 16).ptr == digits + 2)
        {
            bytes += static_cast<char>(value);
            i += 3;
        }
        else
        {
            Values::Refuse(text, "no text: \\r, \\n, \\t, \\\\ and \\xHH are the escapes");
        }
    }
    return bytes;
}

/// "103 = 1"
Script::Sign ParsePin(std::string text)
{
    Script::Sign sign;
    sign.port = "events";
    sign.kind = Script::Sign::Kind::Pin;
    sign.pin = Values::Number(TakeWord(text), EventDriver::FIRST_PIN, EventDriver::LAST_PIN, "a pin");
    const std::string equals = TakeWord(text);
    if (equals != "=")
    {
        Values::Refuse(equals, "not \"=\"");
    }
    sign.value = Values::Number(text, 0, 1);
    return sign;
}

/// "prints TEXT"
Script::Sign ParsePrints(std::string text)
{
    Script::Sign sign;
    sign.port = Script::Sign::PROGRAM;
    sign.kind = Script::Sign::Kind::Prints;
    const std::string verb = TakeWord(text);
    if (verb != "prints")
    {
        Values::Refuse(verb, "not prints, which is all that a program does");
    }
    sign.text = Bytes(text);
    if (sign.text.empty())
    {
        throw Values::Wrong("the text is missing");
    }
    return sign;
}

Script::Sign ParseSign(std::string text, const UnitOptions& options)
{
    Script::Sign sign;
    sign.port = TakeWord(text);
    if (sign.port == "pin")
    {
        return ParsePin(text);
    }
    if (sign.port == Script::Sign::PROGRAM)
    {
        return ParsePrints(text);
    }
    const std::vector<Unit::Port> ports = Unit::Ports(options);
    if (std::ranges::find(ports, sign.port, &Unit::Port::name) == ports.end())
    {
        std::string names;
        for (const Unit::Port& port : ports)
        {
            names += (names.empty() ? "" : ", ") + port.name;
        }
        Values::Refuse(sign.port, "not a port: " + names);
    }
    const std::string verb = TakeWord(text);
    if (verb != "hears" && verb != "says" && verb != "opened")
    {
        Values::Refuse(verb, "neither hears nor says nor opened");
    }
    sign.kind = verb == "hears"  ? Script::Sign::Kind::Hears
                : verb == "says" ? Script::Sign::Kind::Says
                                 : Script::Sign::Kind::Opened;
    sign.text = Bytes(text);
    if (sign.text.empty() != (sign.kind == Script::Sign::Kind::Opened))
    {
        throw Values::Wrong(sign.text.empty() ? "the text is missing" : "\"" + text + "\" is too much");
    }
    return sign;
}

void TakeOption(std::string text, const std::filesystem::path& directory, UnitOptions& options)
{
    const std::string name = TakeWord(text);
    // Where the script names a file, it means one beside itself.
    const std::string value = UnitOptions::NamesFile(name) ? (directory / text).string() : text;
    try
    {
        if (text.empty() && (name.empty() || UnitOptions::Has(name)))
        {
            throw Values::Wrong("the value is missing");
        }
        options.Take(name, value);
    }
    catch (const Values::Wrong& wrong)
    {
        throw Values::Wrong(name + ": " + wrong.what());
    }
}

/// Takes "within SECONDS" off the end of a text, where it has that.
std::optional<std::chrono::milliseconds> TakeWithin(std::string& text)
{
    constexpr std::string_view WITHIN = " within ";
    const std::size_t at = (" " + text).rfind(WITHIN);
    const std::string rest = at == std::string::npos ? "" : Trimmed(text.substr(at + WITHIN.size() - 1));
    if (at == std::string::npos || rest.find_first_of(BLANKS) != std::string::npos)
    {
        return std::nullopt;
    }
    text = Trimmed(text.substr(0, at == 0 ? 0 : at - 1));
    return Values::Seconds(rest);
}

Script::Cue ParseExpectation(std::string text, const UnitOptions& options)
{
    Script::Cue cue;
    Script::Expectation expectation;
    std::string rest = text;
    expectation.absent = TakeWord(rest) == "no";
    text = expectation.absent ? rest : text;
    expectation.within = TakeWithin(text);
    cue.sign = ParseSign(text, options);
    cue.expectation = expectation;
    return cue;
}

Script::Cue ParseCue(std::string text, const UnitOptions& options)
{
    Script::Cue cue;
    const std::string first = TakeWord(text);
    if (first == "when")
    {
        cue.sign = ParseSign(text, options);
        return cue;
    }
    if (first == "expect")
    {
        return ParseExpectation(text, options);
    }
    cue.fromLineBefore = first.starts_with('+');
    cue.time = Values::Seconds(cue.fromLineBefore ? first.substr(1) : first);
    cue.step = Step::Parse(text);
    return cue;
}

}

Script Script::Read(const std::string& path, UnitOptions& options)
{
    std::ifstream file(path);
    Script script;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number)
    {
        std::string text = Trimmed(WithoutComment(line));
        if (text.empty())
        {
            continue;
        }
        try
        {
            std::string rest = text;
            if (TakeWord(rest) == "unit")
            {
                TakeOption(rest, std::filesystem::path(path).parent_path(), options);
                continue;
            }
            script.cues.push_back(ParseCue(text, options));
            script.cues.back().line = number;
            script.cues.back().words = text;
        }
        catch (const Values::Wrong& wrong)
        {
            throw Wrong(path + ":" + std::to_string(number) + ": " + wrong.what());
        }
    }
    if (!file.eof()) // a directory opens, and cannot be read
    {
        throw Wrong(path + " cannot be read: " + std::generic_category().message(errno));
    }
    return script;
}

}

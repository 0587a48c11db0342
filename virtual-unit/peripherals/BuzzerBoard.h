#ifndef VIRTUAL_UNIT_PERIPHERALS_BUZZERBOARD_H
#define VIRTUAL_UNIT_PERIPHERALS_BUZZERBOARD_H

#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/peripherals/Transmitter.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated buzzer board: a shell for typed lines, with one routine.
 *
 * It echoes what is typed, ends a line at a carriage return or a line feed (a line feed right behind a
 * carriage return is passed over), obeys it and prints its prompt ">>> ". A line that is neither empty nor a
 * call of the routine gets the line "ERROR".
 *
 *     buzzer.processCMD("ICMDS:command:ICMDE")
 *
 * prints one line, "OMSGS:output:OMSGE":
 *
 * | Command | Output |
 * |---|---|
 * | 0 | "READY" |
 * | 1:count:duration | "OK"; the buzzer sounds so many times for so many milliseconds, with pauses as long |
 * | any other | "ERROR" |
 *
 * The shell does not wait for the buzzer. Control bytes are obeyed at once, wherever they come, and not
 * echoed: STX (0x02) and ETX (0x03) give up the line that is being typed and bring a new prompt; EOT (0x04)
 * restarts the board, which silences the buzzer and prints a banner.
 */
class BuzzerBoard : public SerialPeripheral
{
public:
    struct Options
    {
        bool echo = true;
        Transmitter::Options line; ///< how output reaches the application: pieces, speed
    };

    /// What goes wrong; each may be switched on and off at any time.
    struct Faults
    {
        bool stuck = false;                 ///< it takes nothing from the line
        bool silent = false;                ///< nothing is sent, what is under way is lost; lines are obeyed
        std::optional<std::string> rubbish; ///< sent in place of each line of output
        std::chrono::milliseconds delay{0}; ///< between a call of the routine and its output
    };

    struct Buzz
    {
        TimePoint at;
        unsigned int count = 0;
        std::chrono::milliseconds duration{0}; ///< of each sound
        TimePoint end; ///< of the last sound, or when another call or a restart has cut it short

        bool operator==(const Buzz&) const = default;
    };

    BuzzerBoard() = default;
    explicit BuzzerBoard(const Options& theOptions);

    Faults faults;

    std::vector<Buzz> Buzzes() const { return buzzes; } ///< since the board was made, oldest first

    void Unplug(); ///< what is under way is lost, and the host is hung up
    void PlugIn(); ///< starts the board anew; it needs a new host

    void Receive(std::string_view bytes, TimePoint now) override;
    std::optional<TimePoint> NextDeadline() const override;
    void Advance(TimePoint now) override;
    std::vector<std::string> TakeOutput() override;

    bool IsConnected() const override { return connected; }

    bool IsPlugged() const override { return plugged; }

    bool TakesOutput() const override { return !faults.stuck; }

    void Attach(const std::function<void()>& wakeHost) override;

private:
    void Take(char byte, TimePoint now);
    void EndLine(TimePoint now);
    std::string Obey(std::string_view command, TimePoint now);
    bool Sound(std::string_view arguments, TimePoint now);
    void CutShort(TimePoint now);
    void NewPrompt(std::string_view before, TimePoint now);

    Options options;
    Transmitter transmitter;
    std::vector<std::string> output;
    std::string line; ///< as far as it is typed
    bool afterReturn = false;
    bool plugged = true;
    bool connected = true; ///< and has been since there is this host
    std::vector<Buzz> buzzes;
    std::function<void()> wake;
};

}

#endif

#ifndef EXAMPLES_UNIT_MONITOR_FRAME_H
#define EXAMPLES_UNIT_MONITOR_FRAME_H

#include "examples/unit-monitor/Style.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace UnitMonitor
{

/// One picture for a terminal, drawn from its upper left corner over the one before, line by line. What does
/// not fit is cut off.
class Frame
{
public:
    enum class Colour
    {
        Default,
        Bright,
        Dim,
        Red,
        Green,
        Yellow
    };

    Frame(std::size_t columns, std::size_t rows, const Style& style);

    /// Goes on with the present line. @param text UTF-8; control characters are shown as spaces, and without
    /// UTF-8 others by something that resembles them
    Frame& Text(std::string_view text, Colour colour = Colour::Default);

    /// Fills the present line with spaces, one at least, up to a column, counted from 0.
    Frame& To(std::size_t column);

    void EndLine();
    void Rule(); ///< a line of its own across the frame

    const Style& Look() const { return style; }

    std::size_t Columns() const { return columns; }

    std::size_t RowsLeft() const { return rows - row; } ///< the present line is one of them

    std::string Finish(); ///< what the terminal is sent; once

private:
    std::string_view Shown(std::string_view character) const;

    Style style;
    std::size_t columns;
    std::size_t rows;
    std::size_t column = 0;
    std::size_t row = 0;
    std::string bytes;
};

}

#endif

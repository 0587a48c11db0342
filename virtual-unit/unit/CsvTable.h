#ifndef VIRTUAL_UNIT_UNIT_CSVTABLE_H
#define VIRTUAL_UNIT_UNIT_CSVTABLE_H

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// Values separated by commas, one row a line, under a first line that names the columns. Blank lines, and
/// those that begin with '#', are left out; blanks around a value and quotation marks around it are no part
/// of it.
class CsvTable
{
public:
    struct Row
    {
        int line;                        ///< of the text, from 1 on
        std::vector<std::string> values; ///< one for each column that was asked for, in that order
    };

    /// @param needed   columns that must be there, in any order
    /// @param optional columns that may be missing, and are "" then; all others are passed over
    /// @throws Values::Wrong
    CsvTable(std::istream& text, const std::vector<std::string>& needed,
             const std::vector<std::string>& optional = {});

    const std::vector<Row>& Rows() const { return rows; }

private:
    std::vector<Row> rows;
};

}

#endif

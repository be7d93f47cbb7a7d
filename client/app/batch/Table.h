#pragma once

#include <string>
#include <vector>

#include "Command.h"

namespace talven
{

/// A line of a table of tomograms.
struct TableLine
{
    int iLine = 0;  ///< in the file, from 1
    Json aOptions;  ///< by the names in the first line; an empty field is not given
};

/// Reads a CSV file whose first line has names of options of `talven reconstruct`. Fields may be in
/// double quotes; those of files count from the table's folder.
/// \return false: rError begins with the file and the line
[[nodiscard]] bool ReadTable(const std::string& strPath, std::vector<TableLine>& rLines,
                             std::string& rError);

}  // namespace talven

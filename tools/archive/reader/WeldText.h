#pragma once

#include "archive/samples/Sample.h"
#include "archive/welds/WeldColumns.h"

#include <string>

namespace TelvaneArchive
{

// Welds and samples as lines of text, for files that other programs read. Numbers keep all their digits.

/// How CSV holds texts.
enum class CsvTexts
{
    Exact,      ///< as they are, for programs
    NoFormulas, ///< with an apostrophe before those that a spreadsheet takes for formulas
};

/// \return a text as a field of CSV, in quotes
std::string csvQuoted(const std::string& text, CsvTexts texts);
/// \return the names of all columns, separated by commas
std::string csvHeading();
/// \return all columns of a weld; empty fields for those that are not known
std::string csvLine(const Weld& weld, CsvTexts texts);
/// \return the weld as a JSON object on one line, with null for columns that are not known
std::string jsonLine(const Weld& weld);

/// \return "time_s,number,amps,..."
std::string sampleCsvHeading();
/// \param sample  its `time` is ns since the start of the weld
std::string sampleCsvLine(const Sample& sample);
/// \return the sample as a JSON object on one line
std::string sampleJsonLine(const Sample& sample);

/// \return an indented line for each finding, for people: numbers have six digits
std::string printFindings(const std::vector<Finding>& findings);

} // namespace TelvaneArchive

// How the tool shows records: values as text for people, as JSON for programs, and
// aligned tables.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <tessel/foundation/AnyRegular.h>

namespace Tessel::Tool {

// A value as people read it: strings with undecodable bytes as U+FFFD, yes/no, sizes in
// bytes with thousands separators, dates in local time, lists joined with ", ".
std::string ValueToText(const any_regular_t& value);
// A value as JSON: strings, booleans, numbers (a byte size as its count), arrays for
// lists, objects for dictionaries, dates as ISO 8601 text, null when empty.
nlohmann::ordered_json ValueToJson(const any_regular_t& value);

// Columns padded to the widest cell (in terminal columns), separated by two spaces; the
// last column is not padded, and the columns in RIGHT_ALIGNED are padded on the left.
// Cells holding control characters are quoted first.
std::string FormatTable(std::vector<std::vector<std::string>> rows,
                        const std::set<std::size_t>& rightAligned = {});
// The same table written to OUT without holding it: ROW(I, CELLS) fills the cells of row I
// (0 to ROWS - 1) and is asked twice for each row, once to measure and once to write.
void WriteTable(std::ostream& out, std::size_t rows,
                const std::function<void(std::size_t, std::vector<std::string>&)>& row,
                const std::set<std::size_t>& rightAligned = {});

// A byte count as `ls -h` shows it: "999", "1.0K", "15K", "2.3M" (powers of 1024, rounded
// up, one decimal below 10).
std::string HumanSize(std::uint64_t bytes);

// Orders two values of one field: numbers, sizes and dates by magnitude, texts by their
// characters (the date texts of providers are "YYYY-MM-DD HH:MM:SS..." and so sort as
// dates), an empty value before any other. Negative, zero or positive, as strcmp.
int CompareValues(const any_regular_t& a, const any_regular_t& b);

// Terminal columns UTF-8 text takes: combining marks take none, East Asian wide characters
// two.
std::size_t DisplayWidth(const std::string& utf8);

// TEXT unchanged when it holds no control character; otherwise quoted as a shell reads it
// back ('a'$'\n''b'), so that no escape sequence of a file name reaches the terminal.
std::string QuoteControlCharacters(const std::string& utf8);

}  // namespace Tessel::Tool

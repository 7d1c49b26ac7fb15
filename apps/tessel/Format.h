// How the tool shows records: values as text for people, as JSON for programs, and
// aligned tables.
#pragma once

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
// last column is not padded. Cells holding control characters are quoted first.
std::string FormatTable(std::vector<std::vector<std::string>> rows);

// Terminal columns UTF-8 text takes: combining marks take none, East Asian wide characters
// two.
std::size_t DisplayWidth(const std::string& utf8);

// TEXT unchanged when it holds no control character; otherwise quoted as a shell reads it
// back ('a'$'\n''b'), so that no escape sequence of a file name reaches the terminal.
std::string QuoteControlCharacters(const std::string& utf8);

}  // namespace Tessel::Tool

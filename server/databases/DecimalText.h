// Exact decimal numbers as text. Number fields keep the text the module sent; these
// functions check that such a text is a number and order two of them by value without
// passing through binary floating point, so 38-digit values compare and sort exactly.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv::db
{

// true for [+-] digits [. digits] [e [+-] digits] (or a leading ".5"), at most 400 bytes.
bool isDecimalText(std::string_view text);

// <0, 0, >0 as a is less than, equal to or greater than b by value ("1.50" equals "1.5").
// A text that is not a number sorts after every number, bytewise among its kind, so the
// order stays total for the collation that uses it.
int compareDecimalText(std::string_view a, std::string_view b);

// The nearest double, for the readers that the module interface gives a double.
double decimalTextToDouble(std::string_view text);

// Shortest text that reads back as the same double ("0.1", "1e+300").
std::string formatDouble(double value);

} // namespace kiv::db

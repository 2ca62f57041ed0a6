#ifndef VEXA_TOOLS_VALUES_H
#define VEXA_TOOLS_VALUES_H

#include <string>
#include <vector>

#include "vexa/core/data.h"

namespace vexa_cli {

// One NAME=VALUE argument: a scalar, a row vector [1,2,3] or a matrix
// [[1,2],[3,4]].
struct Assignment {
    std::wstring name;
    VEXA_Data value;
    std::string source;  // the argument as typed, for messages
};

// Parses one assignment; on failure returns false and writes a message that
// shows the argument with a caret under the offending character.
bool ParseAssignment(const std::string& arg, Assignment& out, std::string& error);

// Parses only the VALUE part; `column` in the message counts from the start of
// `text` plus `offset`.
bool ParseValue(const std::string& text, VEXA_Data& out, std::string& error, std::size_t& errorColumn);

// Every element at full precision: 1.5, [1, 2, 3], [[1, 2], [3, 4]], null.
std::string FormatValue(const VEXA_Data& v);

// "scalar", "1 x 3 vector", "2 x 2 matrix", "null".
std::string DescribeShape(const VEXA_Data& v);

// Elements of a value in row-major order (none for null).
std::vector<double> Elements(const VEXA_Data& v);

}  // namespace vexa_cli

#endif

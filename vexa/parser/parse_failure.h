#ifndef VEXA_PARSER_PARSE_FAILURE_H
#define VEXA_PARSER_PARSE_FAILURE_H

#include <memory>
#include <string>
#include <vector>

#include "vexa/parser/parse_diagnosis.h"

// What the parser writes down as it fails, for vexa::DiagnoseLastParse.
// Nothing is recorded while a parse goes well, so parsing pays only for a few
// integer stores; the record is made where a code is thrown and completed on
// the way out of each nesting level. Internal to the parser.
namespace vexa_parser {

// A stretch of text: a start and a length.
struct Piece {
    int position = -1;
    int length = 0;
};

struct CallFrame {
    std::wstring function;
    int argument = 0;  // 0-based
    Piece call;
};

struct FailureRecord {
    vexa::ParseProblem problem = vexa::ParseProblem::kOther;
    int code = 0;
    bool list = false;  // a rejected name list rather than a syntax error
    Piece at;           // the offending piece
    Piece other;        // for two operands in a row: the first of them
    std::wstring detail;  // the character, name or function concerned
    int count = -1;       // arguments of a refused call
    bool missingRight = false;  // which operand an operator lacks
    // Innermost first: each level adds its call on the way out.
    std::vector<CallFrame> calls;
    // True while the pieces count in the pre-processed text of the level
    // being left, false once they count in that level's text as given.
    bool preprocessed = true;
    std::wstring text;  // the host's text (or list), for the message
};

using FailureSlot = std::unique_ptr<FailureRecord>;

// Starts a fresh record of a failure at a piece of the current level's
// pre-processed text; the caller throws.
FailureRecord& Record(FailureSlot& slot, int code, vexa::ParseProblem problem, int position, int length,
                      std::wstring detail = std::wstring());

// Records a failure as Record does and throws code.
[[noreturn]] void Fail(FailureSlot& slot, int code, vexa::ParseProblem problem, int position, int length,
                       std::wstring detail = std::wstring());

// The record for a code thrown without one (by a function during the test
// evaluation of a call, say): the piece is the token being parsed.
FailureRecord& RecordOrDefault(FailureSlot& slot, int position);

// Moves every piece from the pre-processed text of one level into the text
// that level was given, using the same pre-processing that made it.
void MapToGivenText(FailureRecord& record, const wchar_t* given);

// Moves every piece by offset (into the enclosing level's pre-processed text).
void ShiftPieces(FailureRecord& record, int offset);

}  // namespace vexa_parser

#endif

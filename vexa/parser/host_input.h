#ifndef VEXA_PARSER_HOST_INPUT_H
#define VEXA_PARSER_HOST_INPUT_H

#include <string>

#include "vexa/core/export.h"
#include "vexa/parser/parse_diagnosis.h"

// What the library's own interfaces (C, and through it Python; the command)
// make of a host's text and parameter list before the parser sees them. The
// parser keeps its own reading; these are for hosts that want their inputs
// checked instead of silently reinterpreted.
namespace vexa {

// Tab, carriage return, line feed and the no-break space (U+00A0) become
// spaces, and so does a byte-order mark (U+FEFF) at the start: texts copied
// from files and editors then read as they look. One character for one, so
// positions in the text stay those of the text as typed.
VEXA_API void BlankWhiteSpace(std::wstring& text);

// TryParse with a checked list, after BlankWhiteSpace of text and list.
//
// The list is refused (kListRejected, the position counting in the list) for
// an empty name (",x", "x,,y", "x,"), a space inside a name ("x y"), a name
// given twice (without regard to case, as names are matched), a name no text
// can contain, a function name or a named constant. Every name a text can
// contain is accepted, digits and braces included (T0, X1, {DIST}), and the
// final order is the host's list followed by the further names of the text in
// order of first appearance, whether or not the parser itself can list a
// name. A null or empty list (or one of nothing but white space) is no names.
VEXA_API ParseResult ParseChecked(const wchar_t* text, const wchar_t* paramNames);

}  // namespace vexa

#endif

#ifndef VEXA_PARSER_TEXT_ATOMS_H
#define VEXA_PARSER_TEXT_ATOMS_H

#include <vector>

// Where the pieces of a text that become leaves and calls of its tree stand
// in the text as typed. Internal to the library.
namespace vexa_parser {

struct Atom {
    int position;
    int length;  // a call: its name to its closing parenthesis
    bool sign;   // a unary sign: the parser puts a constant 0 before its operand
};

// In the order a walk of the parsed tree meets its leaves and calls (each
// before its arguments): the order of the text, a sign standing for its 0.
// Empty past what the parser would refuse.
std::vector<Atom> LocateAtoms(const wchar_t* text);

}  // namespace vexa_parser

#endif

#ifndef VEXA_PARSER_PARSE_LIMITS_H
#define VEXA_PARSER_PARSE_LIMITS_H

// The sizes a parse is held to; VexaParser carries each as a constant of its
// own (VexaParser::kWorkLength and so on), for hosts.
//
// - An expression text must be shorter than 4096 characters (kWorkLength);
//   longer texts, empty ones and a null text throw 0.
// - One token (a number, a name, a braced name or the whole text of one
//   function call with its arguments) holds at most 2047 characters
//   (kTokenLength - 1); a longer one throws the position where it starts.
// - A name in the host's parameter list holds at most 255 characters
//   (kListNameLength - 1); a longer one makes parse return false.
// - Function calls nest at most kMaxCallDepth (100) levels deep; a call that
//   would open level 101 throws its position in the working text of the
//   argument it stands in.
// - The tree of an expression is at most kMaxTreeDepth (2100) nodes deep,
//   counted from the root to the deepest leaf across operators and calls; a
//   text whose tree would be deeper throws 0. The longest binary chains the
//   length limit allows (such as 1+1+...+1 or 2^2^...^2 of 4095 characters,
//   2049 nodes deep) stay within it; only texts crowded with unary signs
//   (such as 2100 minus signs before a name) reach it.
//
// Why: calls nest by recursion while parsing, and every tree operation
// (evaluation, copy, differentiation, destruction) recurses once per level of
// the tree. With both bounds a tree can be parsed, evaluated, copied,
// differentiated and released within a 1 MiB thread stack (a common default
// for threads on Windows) in an optimised build. Measured on x86-64: an
// operator level costs these operations at most about 320 bytes (2100 levels:
// about 670 KiB), a call level at most about 800 bytes, and a parse level
// about 1 KiB since its working buffers live on the heap. Operator chains and
// parentheses are reduced on heap stacks and do not recurse while parsing.
namespace vexa_parser {

constexpr int kWorkLength = 4096;
constexpr int kTokenLength = 2048;
constexpr int kListNameLength = 256;
constexpr int kMaxCallDepth = 100;
constexpr int kMaxTreeDepth = 2100;

}  // namespace vexa_parser

#endif

#ifndef VEXA_PARSER_VEXA_PARSER_H
#define VEXA_PARSER_VEXA_PARSER_H

#include <deque>
#include <memory>
#include <stack>
#include <vector>

#include "vexa/core/export.h"
#include "vexa/core/wstring.h"

class ICalculator;
class INode;

namespace vexa_parser {
struct FailureRecord;
class Level;
struct OperatorAt;
class NameIndex;
struct ParserAccess;
}  // namespace vexa_parser

// Turns an expression text and a comma-separated parameter-name list into an
// Expression. Malformed text is reported by throwing an int error code; why
// it was thrown, and where in the text, is vexa::DiagnoseLastParse's answer
// (vexa/parser/parse_diagnosis.h).
//
// Limits:
// - An expression text must be shorter than 4096 characters (kWorkLength);
//   longer texts, empty ones and a null text throw 0.
// - One token (a number, a name, a braced name or the whole text of one
//   function call with its arguments) holds at most 2047 characters
//   (kTokenLength - 1); a longer one throws the position where it starts.
// - A name in the host's parameter list holds at most 255 characters; a longer
//   one makes parse return false.
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
//
// A call of a registered function continues into that function's tree, in
// the test evaluation and in every evaluation after it, so these per-text
// bounds do not bound a composition. parse therefore also measures how deep
// the finished tree's evaluation goes, registered functions included, and
// throws vexa::kCallsTooDeep (-1002) past the limit of vexa/calc/callee.h,
// which every text within the bounds above meets.
class VEXA_API VexaParser {
public:
    static constexpr int kWorkLength = 4096;
    static constexpr int kTokenLength = 2048;
    static constexpr int kListNameLength = 256;
    static constexpr int kMaxCallDepth = 100;
    static constexpr int kMaxTreeDepth = 2100;

    VexaParser();
    VexaParser(const VexaParser& other);
    VexaParser& operator=(const VexaParser& other);
    virtual ~VexaParser();

    bool parse(const wchar_t* expression, wchar_t* paramNames, ICalculator** out);
    bool canPlot();
    int getParamsNum();
    const VEXA_WString& getParam(int index);

private:
    // vexa::DiagnoseLastParse reads m_failure through this.
    friend struct vexa_parser::ParserAccess;

    // Operators with their positions, which a failure's diagnosis needs; one
    // stack holds both so that the positions cost no allocation of their own.
    // The back is the top.
    typedef std::deque<vexa_parser::OperatorAt> OperatorStack;
    typedef std::stack<INode*, std::deque<INode*> > OperandStack;

    // Expression parsing (vexa_parser.cpp).
    INode* parseExpression(ICalculator* owner, const wchar_t* text);
    INode* parseLevel(ICalculator* owner, vexa_parser::Level& level);
    void Operate(OperatorStack& operators, OperandStack& operands);
    INode* Operate(INode* left, wchar_t op, INode* right);
    int Precede(wchar_t top, wchar_t incoming);
    int getIndexOfSym(wchar_t op);
    double parseConstant(const wchar_t* token);
    // The diagnosis of failures only the expression parsing sees.
    [[noreturn]] void FailOperands(vexa_parser::Level& level, std::size_t count);
    [[noreturn]] void FailMissingOperand(vexa_parser::Level& level, wchar_t op, int at, bool right);
    [[noreturn]] void FailUnknownFunction(vexa_parser::Level& level, int code);

    // Parameter list and variables (vexa_parser.cpp, over vexa/parser/name_list.h).
    bool InitVariableList(wchar_t* list, std::vector<VEXA_WString>& names);
    int getIndexOfVariable(const VEXA_WString& name);
    INode* parseVariable(ICalculator* owner, const wchar_t* name);

    // Function calls (function_call.cpp).
    INode* parseFunction(ICalculator* owner, wchar_t* call);
    void parseParams(ICalculator* owner, const wchar_t* arguments, std::vector<INode*>& args);

    std::vector<VEXA_WString> m_variable_list;
    bool m_can_plot;
    // Number of function calls enclosing the argument being parsed.
    int m_call_depth;
    // The running parseExpression's state beside its stacks.
    vexa_parser::Level* m_level;
    // Tree depth of the node the last parseExpression, parseFunction or
    // parseParams (deepest argument) produced.
    int m_result_depth;
    // Look-up index of m_variable_list, made only for long lists.
    std::unique_ptr<vexa_parser::NameIndex> m_name_index;
    // Why the last parse failed; null after a parse that went well.
    std::unique_ptr<vexa_parser::FailureRecord> m_failure;
};

#endif

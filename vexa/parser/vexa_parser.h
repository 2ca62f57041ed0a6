#ifndef VEXA_PARSER_VEXA_PARSER_H
#define VEXA_PARSER_VEXA_PARSER_H

#include <cstdint>
#include <deque>
#include <stack>
#include <vector>

#include "vexa/core/export.h"
#include "vexa/core/wstring.h"

class ICalculator;
class INode;

// Turns an expression text and a comma-separated parameter-name list into an
// Expression. Malformed text is reported by throwing an int error code.
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
    // White-box tests of the tokenizer reach the private steps through this.
    friend class VexaParserTestAccess;

    typedef std::stack<wchar_t, std::deque<wchar_t> > OperatorStack;
    typedef std::stack<INode*, std::deque<INode*> > OperandStack;

    // Expression parsing.
    INode* parseExpression(ICalculator* owner, const wchar_t* text);
    void Operate(OperatorStack& operators, OperandStack& operands);
    INode* Operate(INode* left, wchar_t op, INode* right);
    int Precede(wchar_t top, wchar_t incoming);
    int PopDepth();
    int getIndexOfSym(wchar_t op);
    double parseConstant(const wchar_t* token);

    // Pre-processing and tokenizer.
    void PreParse(const wchar_t* text, wchar_t* out);
    std::uint64_t lengthAfterTrimmingTailWhite(wchar_t* text, bool cut);
    void SkipSpace(int& position, const wchar_t* text);
    int getNextToken(int& position, wchar_t* text, wchar_t* token);
    void getNextDigit(int& position, wchar_t* text, wchar_t* token);
    wchar_t* convertToUpper(const wchar_t* text, int& length);
    void pre_parseFunction_IF(wchar_t* text);
    bool IsChar(wchar_t c);
    bool IsDigit(wchar_t c);
    bool IsOp(wchar_t c);
    bool IsFunction(const wchar_t* name);
    void getWholeFunction(int& position, wchar_t* text, int nameLength, wchar_t* token);

    // Parameter list and variables.
    bool InitVariableList(wchar_t* list, std::vector<VEXA_WString>& names);
    int getIndexOfVariable(const VEXA_WString& name);
    INode* parseVariable(ICalculator* owner, const wchar_t* name);

    // Function calls.
    INode* parseFunction(ICalculator* owner, wchar_t* call);
    void parseParams(ICalculator* owner, const wchar_t* arguments, std::vector<INode*>& args);

    std::vector<VEXA_WString> m_variable_list;
    bool m_can_plot;
    // Number of function calls enclosing the argument being parsed.
    int m_call_depth;
    // Tree depths of the nodes on the operand stack of the running
    // parseExpression, kept in step with that stack.
    std::vector<int>* m_depths;
    // Tree depth of the node the last parseExpression, parseFunction or
    // parseParams (deepest argument) produced.
    int m_result_depth;
};

#endif

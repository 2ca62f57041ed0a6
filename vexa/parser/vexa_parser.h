#ifndef VEXA_PARSER_VEXA_PARSER_H
#define VEXA_PARSER_VEXA_PARSER_H

#include <deque>
#include <memory>
#include <stack>
#include <vector>

#include "vexa/core/export.h"
#include "vexa/core/wstring.h"
#include "vexa/parser/parse_limits.h"

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
// Limits: the sizes of vexa/parser/parse_limits.h, which says what each one
// bounds and why.
//
// A call of a registered function continues into that function's tree, in
// the test evaluation and in every evaluation after it, so these per-text
// bounds do not bound a composition. parse therefore also measures how deep
// the finished tree's evaluation goes, registered functions included, and
// throws vexa::kCallsTooDeep (-1002) past the limit of vexa/calc/callee.h,
// which every text within those sizes meets.
class VEXA_API VexaParser {
public:
    static constexpr int kWorkLength = vexa_parser::kWorkLength;
    static constexpr int kTokenLength = vexa_parser::kTokenLength;
    static constexpr int kListNameLength = vexa_parser::kListNameLength;
    static constexpr int kMaxCallDepth = vexa_parser::kMaxCallDepth;
    static constexpr int kMaxTreeDepth = vexa_parser::kMaxTreeDepth;

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

    // Function calls, built by vexa/parser/function_call.h.
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

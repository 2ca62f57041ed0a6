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
class VEXA_API VexaParser {
public:
    VexaParser();
    VexaParser(const VexaParser& other);
    VexaParser& operator=(const VexaParser& other);
    virtual ~VexaParser();

    bool parse(const wchar_t* expression, wchar_t* paramNames, ICalculator** out);
    bool canPlot();
    int getParamsNum();
    const VEXA_WString& getParam(int index);

private:
    typedef std::stack<wchar_t, std::deque<wchar_t> > OperatorStack;
    typedef std::stack<INode*, std::deque<INode*> > OperandStack;

    // Expression parsing.
    INode* parseExpression(ICalculator* owner, const wchar_t* text);
    void Operate(OperatorStack& operators, OperandStack& operands);
    INode* Operate(INode* left, wchar_t op, INode* right);
    int Precede(wchar_t top, wchar_t incoming);
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
};

#endif

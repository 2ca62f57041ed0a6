#include "vexa/tree/function_node.h"

#include <new>

#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/node_build.h"
#include "vexa/tree/node_util.h"

namespace {

// Evaluation is the hot path and almost every call has few arguments, so
// their values live on the stack up to this count; only longer calls (POLY
// and the like) touch the heap. Each value is constructed straight from its
// argument's result rather than made null first and then assigned; the
// function sees the same values either way.
constexpr int kInlineArgs = 8;

class ArgValues {
public:
    explicit ArgValues(int count)
        : m_values(count <= kInlineArgs
                       ? reinterpret_cast<VEXA_Data*>(m_inline)
                       : static_cast<VEXA_Data*>(::operator new(sizeof(VEXA_Data) * count))),
          m_built(0)
    {
    }

    ~ArgValues()
    {
        while (m_built > 0)
            m_values[--m_built].~VEXA_Data();
        if (m_values != reinterpret_cast<VEXA_Data*>(m_inline))
            ::operator delete(m_values);
    }

    ArgValues(const ArgValues&) = delete;
    ArgValues& operator=(const ArgValues&) = delete;

    // A missing argument (only in hand-built nodes) passes a null value.
    void Append(INode* arg)
    {
        if (arg)
            new (m_values + m_built) VEXA_Data(arg->Calculate());
        else
            new (m_values + m_built) VEXA_Data();
        ++m_built;
    }

    VEXA_Data* data() { return m_values; }

private:
    alignas(VEXA_Data) unsigned char m_inline[kInlineArgs * sizeof(VEXA_Data)];
    VEXA_Data* m_values;
    int m_built;
};

}  // namespace

FunctionNode::FunctionNode(ICalculator* function, INode** args, int count)
    : m_function(function), m_args(args), m_arg_count(count)
{
}

FunctionNode::~FunctionNode()
{
    if (m_args) {
        for (int i = 0; i < m_arg_count; ++i) {
            if (m_args[i]) {
                delete m_args[i];
                m_args[i] = nullptr;
            }
        }
        delete[] m_args;
        m_args = nullptr;
    }
    if (m_function) {
        m_function->Release();
        m_function = nullptr;
    }
}

VEXA_Data FunctionNode::Calculate()
{
    if (!m_function)
        throw -1000;
    VEXA_Data result;
    if (m_arg_count < 1 || !m_args)
        return result;
    ArgValues values(m_arg_count);
    for (int i = 0; i < m_arg_count; ++i)
        values.Append(m_args[i]);
    // A refused call leaves result null, which is how refusal surfaces.
    vexa_calc::CallFunction(m_function, m_arg_count, values.data(), result);
    return result;
}

INode* FunctionNode::Copy(ICalculator* owner)
{
    vexa_tree::ChargeNode();
    const int count = m_args ? m_arg_count : 0;
    vexa_tree::ArgArray args(count);
    for (int i = 0; i < count; ++i)
        args.set(i, vexa_tree::CopyOf(m_args[i], owner));
    // The copy's reference is taken after the arguments are copied and is
    // held by fn until the node exists, so no throw leaves the count raised.
    if (m_function)
        m_function->AddRef();
    vexa::CalcRef fn(m_function);
    return vexa_tree::MakeCall(fn, args).release();
}

bool FunctionNode::HasParam(int index)
{
    // A node without a function can never be evaluated, so it is treated as
    // depending on nothing; its derivative is then a plain zero.
    if (!m_function || !m_args)
        return false;
    for (int i = 0; i < m_arg_count; ++i) {
        if (m_args[i] && m_args[i]->HasParam(index))
            return true;
    }
    return false;
}

void FunctionNode::Print(int) {}

void FunctionNode::Dump(std::vector<std::wstring>& lines, int level)
{
    if (m_args) {
        for (int i = 0; i < m_arg_count; ++i) {
            if (m_args[i])
                m_args[i]->Dump(lines, level + 1);
        }
    }
    std::wstring line = vexa_tree::DumpIndent(level);
    if (m_function) {
        // Read the name directly instead of through the string's shared
        // conversion buffer, which another conversion may be using; an
        // unnamed calculator reads "NULL" as that conversion would give.
        const wchar_t* name = m_function->getName().getWChar_t();
        line += name ? name : L"NULL";
    }
    lines.push_back(std::move(line));
}

INode* FunctionNode::Simplify()
{
    if (m_arg_count < 1 || !m_args)
        return this;
    bool allConstant = true;
    for (int i = 0; i < m_arg_count; ++i) {
        if (m_args[i])
            m_args[i] = m_args[i]->Simplify();
        if (!vexa_tree::IsConstant(m_args[i]))
            allConstant = false;
    }
    if (!allConstant)
        return this;
    INode* folded = new ConstantParam(Calculate());
    delete this;
    return folded;
}

int FunctionNode::getNodeType()
{
    return 1;
}

void FunctionNode::getVariableParams(std::vector<VariableParam*>& out)
{
    if (!m_args)
        return;
    for (int i = 0; i < m_arg_count; ++i) {
        if (m_args[i])
            m_args[i]->getVariableParams(out);
    }
}

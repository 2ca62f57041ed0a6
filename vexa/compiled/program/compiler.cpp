#include "vexa/compiled/program/compiler.h"

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstring>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "vexa/calc/calculator_access.h"
#include "vexa/calc/operation_math.h"
#include "vexa/compiled/program/builtin_ops.h"
#include "vexa/compiled/program/post_order.h"
#include "vexa/core/data_access.h"
#include "vexa/core/platform.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/operater_node.h"
#include "vexa/tree/owning_step_calculator.h"
#include "vexa/tree/variable_param.h"
#include "vexa/core/bits.h"

namespace vexa_compiled {

using vexa_calc::CalculatorAccess;
using vexa_core::DataAccess;

namespace {

// Chains of central differences deeper than this are called through their
// calculators (2^64 evaluations would never finish either way).
constexpr int kMaxDiffLevels = 64;

using vexa_core::Bits;

// Whether compute, run once under each rounding mode of the default
// environment, raises no flag but inexact and gives the same bits each time,
// neither a zero nor a subnormal: then it gives them under every setting a
// host may choose (no operand was subnormal, nothing rounded to a tiny
// value that flushing would change, no zero sum took the rounding's sign).
template <typename Compute>
bool SameEverywhere(Compute&& compute)
{
    static const int kModes[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
    std::uint64_t first = 0;
    for (int i = 0; i < 4; ++i) {
        double r = 0.0;
        const bool clean = vexa_platform::RaisesNoFlag([&] {
            std::fesetround(kModes[i]);
            r = compute();
            std::feclearexcept(FE_INEXACT);
        });
        const bool tiny = r == 0.0 || std::fpclassify(r) == FP_SUBNORMAL;
        if (!clean || tiny || (i > 0 && Bits(r) != first))
            return false;
        first = Bits(r);
    }
    return true;
}

template <Op op>
VEXA_Data FoldOf(const VEXA_Data& a, const VEXA_Data& b)
{
    if constexpr (kRows[op].kind == vexa_ops::Kind::kOperator)
        return vexa_ops::Math<op>::Fold(a, b);
    else
        return VEXA_Data();
}

// The operator op over two values, by the value arithmetic.
VEXA_Data FoldOperator(Op op, const VEXA_Data& a, const VEXA_Data& b)
{
    switch (op) {
#define VEXA_FOLD_CASE(Name, ...) \
    case k##Name: return FoldOf<k##Name>(a, b);
        VEXA_OPERATIONS(VEXA_FOLD_CASE)
#undef VEXA_FOLD_CASE
    default: return VEXA_Data();
    }
}

bool IsStepCalculator(const ICalculator& c)
{
    const std::type_info& t = typeid(c);
    return t == typeid(ComplexStepCalculator) || t == typeid(vexa_tree::OwningStepCalculator);
}

}  // namespace

class Compiler {
public:
    explicit Compiler(ICalculator* owner) : m_owner(owner) {}

    std::unique_ptr<Program> Build(INode* root);
    std::unique_ptr<Program> BuildAll(const std::vector<ProgramRoot>& roots);

private:
    enum class Kind : std::uint8_t { kConst, kParam, kInstr };

    struct Value {
        Kind kind;
        double constant;
        int param;
        std::uint32_t reg;
    };

    struct Pending {
        Op op;
        std::uint32_t value;
        std::uint32_t first;  // operands: m_operands[first, first + count)
        std::uint32_t count;
        std::uint32_t aux;
        bool live;
    };

    bool Finish(INode* node, const std::uint32_t* args, int count, std::uint32_t& out);
    bool Operator(OperaterNode& node, std::uint32_t a, std::uint32_t b, std::uint32_t& out);
    bool Function(FunctionNode& node, const std::uint32_t* args, int count, std::uint32_t& out);
    bool Difference(const std::uint32_t* args, int count, DiffChain chain, std::uint32_t& out);

    std::uint32_t Const(double v);
    std::uint32_t Param(int index);
    std::uint32_t Emit(Op op, const std::uint32_t* operands, int count, std::uint32_t aux, bool merge);
    std::uint32_t Stop();
    bool AllConstant(const std::uint32_t* args, int count) const;
    std::unique_ptr<Program> Generate(const std::vector<std::uint32_t>& roots);

    ICalculator* m_owner;
    // Where the current tree's parameter indices lie among the program's
    // (null: where they are).
    const std::vector<int>* m_reads = nullptr;
    std::vector<Value> m_values;
    std::vector<Pending> m_pending;
    std::vector<std::uint32_t> m_operands;
    std::unordered_map<std::uint64_t, std::uint32_t> m_consts;
    std::unordered_map<int, std::uint32_t> m_params;
    std::unordered_multimap<std::uint64_t, std::uint32_t> m_merge;
    std::vector<DiffChain> m_chains;
    std::vector<ICalculator*> m_calls;
    int m_call_arity = 0;
    bool m_stops = false;
};

std::unique_ptr<Program> Compile(INode* root, ICalculator* owner)
{
    if (!root)
        return nullptr;
    Compiler compiler(owner);
    return compiler.Build(root);
}

std::unique_ptr<Program> CompileAll(const std::vector<ProgramRoot>& roots)
{
    Compiler compiler(nullptr);
    return compiler.BuildAll(roots);
}

std::unique_ptr<Program> Compiler::Build(INode* root)
{
    std::vector<std::uint32_t> values;
    if (!PostOrder(root, values, [this](INode* node, const std::uint32_t* args, int count, std::uint32_t& out) {
            return Finish(node, args, count, out);
        }))
        return nullptr;
    // The program runs straight through: a step that always hands over to
    // the tree makes every run hand over.
    if (m_stops)
        return nullptr;
    return Generate({values.back()});
}

std::unique_ptr<Program> Compiler::BuildAll(const std::vector<ProgramRoot>& roots)
{
    std::vector<std::uint32_t> results;
    for (const ProgramRoot& r : roots) {
        m_owner = r.owner;
        m_reads = &r.reads;
        std::vector<std::uint32_t> values;
        if (!r.root || !PostOrder(r.root, values, [this](INode* node, const std::uint32_t* args, int count,
                                                         std::uint32_t& out) { return Finish(node, args, count, out); }))
            return nullptr;
        results.push_back(values.back());
    }
    if (m_stops || results.empty())
        return nullptr;
    return Generate(results);
}

bool Compiler::Finish(INode* node, const std::uint32_t* args, int count, std::uint32_t& out)
{
    const std::type_info& type = typeid(*node);
    if (type == typeid(ConstantParam)) {
        const VEXA_Data v = node->Calculate();
        if (!DataAccess::IsScalar(v))
            return false;
        out = Const(DataAccess::Scalar(v));
        return true;
    }
    if (type == typeid(VariableParam)) {
        VariableParam* leaf = static_cast<VariableParam*>(node);
        if (leaf->m_calculator != m_owner || leaf->m_index < 0)
            return false;
        if (!m_reads) {
            out = Param(leaf->m_index);
            return true;
        }
        if (static_cast<std::size_t>(leaf->m_index) >= m_reads->size())
            return false;
        out = Param((*m_reads)[static_cast<std::size_t>(leaf->m_index)]);
        return true;
    }
    if (type == typeid(OperaterNode))
        return Operator(*static_cast<OperaterNode*>(node), args[0], args[1], out);
    if (type == typeid(FunctionNode))
        return Function(*static_cast<FunctionNode*>(node), args, count, out);
    return false;
}

bool Compiler::Operator(OperaterNode& node, std::uint32_t a, std::uint32_t b, std::uint32_t& out)
{
    Op op;
    switch (node.m_kind) {
    case vexa::kAdd: op = kAdd; break;
    case vexa::kSub: op = kSub; break;
    case vexa::kMul: op = kMul; break;
    case vexa::kDiv: op = kDiv; break;
    case vexa::kPow: op = kPow; break;
    case vexa::kCross:
        // Scalars have no cross product: the tree throws here.
        out = Stop();
        return true;
    default:
        return false;
    }
    const Value& x = m_values[a];
    const Value& y = m_values[b];
    // A fold is kept only where it comes out the same under every setting
    // a host may choose (SameEverywhere: 5 ^ 6 does, 1 / 3 does not, nor
    // 1 - 1, which is -0 when rounding downward). Otherwise the program runs the operation
    // under the host's settings, as the tree does. (What the tree folded
    // itself when it was built, a derivative's simplification, are constant
    // leaves read as they are.) No identity is applied either: x - 0 is -0
    // for x = +0 when rounding downward, x * 1 and x / 1 flush a subnormal x
    // or quiet a signalling NaN; texts seldom hold them.
    if (x.kind == Kind::kConst && y.kind == Kind::kConst) {
        const double l = x.constant;
        const double r = y.constant;
        bool scalar = false;
        double folded = 0.0;
        const bool exact = SameEverywhere([&] {
            try {
                const VEXA_Data lv(l);
                const VEXA_Data rv(r);
                VEXA_Data v;
                v = FoldOperator(op, lv, rv);
                scalar = DataAccess::IsScalar(v);
                folded = scalar ? DataAccess::Scalar(v) : 1.0;
            } catch (int) {
                // A division by zero: left in the program, where it hands
                // over to the tree at the moment the tree throws.
                scalar = false;
                folded = 1.0;
            }
            return folded;
        });
        if (exact && scalar) {
            out = Const(folded);
            return true;
        }
    }
    const std::uint32_t operands[2] = {a, b};
    out = Emit(op, operands, 2, 0, true);
    return true;
}

bool Compiler::Function(FunctionNode& node, const std::uint32_t* args, int count, std::uint32_t& out)
{
    ICalculator* calc = node.m_function;
    if (!calc || count < 1) {
        // The tree throws for a missing function and gives null for a call
        // without arguments.
        out = Stop();
        return true;
    }
    if (typeid(*calc) == typeid(BuidInFunction)) {
        const BuildInFunctionPtr function = CalculatorAccess::Function(static_cast<BuidInFunction&>(*calc));
        const BuiltinInfo info = DescribeBuiltin(function);
        if (!AcceptsCount(info, count)) {
            out = Stop();
            return true;
        }
        if (info.kind == BuiltinKind::kPlaceholder) {
            // The arguments are evaluated, but only the count matters.
            out = Const(12.0);
            return true;
        }
        if (AllConstant(args, count)) {
            std::vector<VEXA_Data> values;
            values.reserve(static_cast<std::size_t>(count));
            for (int i = 0; i < count; ++i)
                values.emplace_back(m_values[args[i]].constant);
            VEXA_Data v;
            bool done = false;
            // A refusal is folded too, where its test is the same in every
            // environment (a subnormal compares as zero under
            // denormals-are-zero, and raises the denormal flag here). The
            // same NaN-free result stands for either answer in the test.
            const bool exact = SameEverywhere([&] {
                try {
                    done = function(count, values.data(), v) && DataAccess::IsScalar(v);
                } catch (...) {
                    done = false;
                }
                return done ? DataAccess::Scalar(v) : 1.0;
            });
            if (exact) {
                out = done ? Const(DataAccess::Scalar(v)) : Stop();
                return true;
            }
        }
        out = Emit(info.op, args, count, 0, true);
        return true;
    }
    if (IsStepCalculator(*calc)) {
        DiffChain chain;
        ICalculator* inner = calc;
        while (inner && IsStepCalculator(*inner) && chain.shifted.size() < kMaxDiffLevels) {
            const ComplexStepCalculator& step = static_cast<ComplexStepCalculator&>(*inner);
            chain.shifted.push_back(CalculatorAccess::Index(step));
            inner = CalculatorAccess::Inner(step);
        }
        if (!inner) {
            // A step calculator without a calculator refuses every call.
            out = Stop();
            return true;
        }
        if (typeid(*inner) == typeid(BuidInFunction)) {
            const BuiltinInfo info =
                DescribeBuiltin(CalculatorAccess::Function(static_cast<BuidInFunction&>(*inner)));
            if (info.kind == BuiltinKind::kComputed && AcceptsCount(info, count)) {
                chain.base = info.op;
                return Difference(args, count, std::move(chain), out);
            }
        }
    }
    // Any other calculator is called through its Evaluate, as the tree
    // does: its held parameters are the host's to read.
    m_calls.push_back(calc);
    if (count > m_call_arity)
        m_call_arity = count;
    out = Emit(kCall, args, count, static_cast<std::uint32_t>(m_calls.size() - 1), false);
    return true;
}

bool Compiler::Difference(const std::uint32_t* args, int count, DiffChain chain, std::uint32_t& out)
{
    if (AllConstant(args, count)) {
        std::vector<double> values(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            values[static_cast<std::size_t>(i)] = m_values[args[i]].constant;
        double v = 0.0;
        bool done = false;
        if (SameEverywhere([&] {
                done = CentralDifference(chain, values.data(), count, v);
                return done ? v : 1.0;
            })) {
            out = done ? Const(v) : Stop();
            return true;
        }
    }
    std::uint32_t index = 0;
    while (index < m_chains.size() &&
           !(m_chains[index].base == chain.base && m_chains[index].shifted == chain.shifted))
        ++index;
    if (index == m_chains.size())
        m_chains.push_back(std::move(chain));
    out = Emit(kNumDiff, args, count, index, true);
    return true;
}

std::uint32_t Compiler::Const(double v)
{
    const auto found = m_consts.find(Bits(v));
    if (found != m_consts.end())
        return found->second;
    const std::uint32_t id = static_cast<std::uint32_t>(m_values.size());
    m_values.push_back({Kind::kConst, v, -1, 0});
    m_consts.emplace(Bits(v), id);
    return id;
}

std::uint32_t Compiler::Param(int index)
{
    const auto found = m_params.find(index);
    if (found != m_params.end())
        return found->second;
    const std::uint32_t id = static_cast<std::uint32_t>(m_values.size());
    m_values.push_back({Kind::kParam, 0.0, index, 0});
    m_params.emplace(index, id);
    return id;
}

std::uint32_t Compiler::Emit(Op op, const std::uint32_t* operands, int count, std::uint32_t aux, bool merge)
{
    std::uint64_t key = (static_cast<std::uint64_t>(op) << 32) ^ aux;
    for (int i = 0; i < count; ++i)
        key = key * 0x9E3779B97F4A7C15ULL + operands[i] + 1;
    if (merge) {
        const auto range = m_merge.equal_range(key);
        for (auto it = range.first; it != range.second; ++it) {
            const Pending& p = m_pending[it->second];
            if (p.op == op && p.aux == aux && p.count == static_cast<std::uint32_t>(count) &&
                std::equal(operands, operands + count, m_operands.begin() + p.first))
                return p.value;
        }
    }
    const std::uint32_t value = static_cast<std::uint32_t>(m_values.size());
    m_values.push_back({Kind::kInstr, 0.0, -1, 0});
    const std::uint32_t first = static_cast<std::uint32_t>(m_operands.size());
    m_operands.insert(m_operands.end(), operands, operands + count);
    if (merge)
        m_merge.emplace(key, static_cast<std::uint32_t>(m_pending.size()));
    m_pending.push_back({op, value, first, static_cast<std::uint32_t>(count), aux, false});
    return value;
}

std::uint32_t Compiler::Stop()
{
    m_stops = true;
    return Const(0.0);
}

bool Compiler::AllConstant(const std::uint32_t* args, int count) const
{
    for (int i = 0; i < count; ++i) {
        if (m_values[args[i]].kind != Kind::kConst)
            return false;
    }
    return true;
}

std::unique_ptr<Program> Compiler::Generate(const std::vector<std::uint32_t>& roots)
{
    // Instructions whose value nobody reads and that can neither stop a run
    // nor reach the host are left out (the arguments of a placeholder, say).
    std::vector<std::int64_t> producer(m_values.size(), -1);
    for (std::size_t i = 0; i < m_pending.size(); ++i)
        producer[m_pending[i].value] = static_cast<std::int64_t>(i);
    for (const std::uint32_t root : roots) {
        if (producer[root] >= 0)
            m_pending[static_cast<std::size_t>(producer[root])].live = true;
    }
    for (std::size_t i = m_pending.size(); i-- > 0;) {
        Pending& p = m_pending[i];
        if (HasEffect(p.op))
            p.live = true;
        if (!p.live)
            continue;
        for (std::uint32_t k = 0; k < p.count; ++k) {
            const std::int64_t from = producer[m_operands[p.first + k]];
            if (from >= 0)
                m_pending[static_cast<std::size_t>(from)].live = true;
        }
    }

    std::unique_ptr<Program> program(new Program());
    std::vector<bool> used(m_values.size(), false);
    for (const std::uint32_t root : roots)
        used[root] = true;
    // Every parameter the tree reads is loaded, read or not: the tree fails
    // on a missing or non-scalar one even where only a placeholder sees it,
    // and a run starts only when all of them are scalars.
    for (const auto& param : m_params)
        used[param.second] = true;
    for (const Pending& p : m_pending) {
        if (!p.live)
            continue;
        used[p.value] = true;
        for (std::uint32_t k = 0; k < p.count; ++k)
            used[m_operands[p.first + k]] = true;
    }
    std::uint32_t next = 0;
    for (std::size_t v = 0; v < m_values.size(); ++v) {
        if (!used[v])
            continue;
        Value& value = m_values[v];
        value.reg = next++;
        if (value.kind == Kind::kParam) {
            program->m_loads.emplace_back(value.param, value.reg);
            if (value.param + 1 > program->m_needed_params)
                program->m_needed_params = value.param + 1;
        }
    }
    program->m_init.assign(next, 0.0);
    for (std::size_t v = 0; v < m_values.size(); ++v) {
        if (used[v] && m_values[v].kind == Kind::kConst)
            program->m_init[m_values[v].reg] = m_values[v].constant;
    }

    for (const Pending& p : m_pending) {
        if (!p.live)
            continue;
        Instr in{p.op, m_values[p.value].reg, 0, 0, p.aux};
        const std::uint32_t* ops = m_operands.data() + p.first;
        const Operands shape = OperandsOf(p.op);
        if (shape == Operands::kOne) {
            in.a = m_values[ops[0]].reg;
        } else if (shape == Operands::kTwo) {
            in.a = m_values[ops[0]].reg;
            in.b = m_values[ops[1]].reg;
        } else {
            in.a = static_cast<std::uint32_t>(program->m_arg_regs.size());
            in.b = p.count;
            for (std::uint32_t k = 0; k < p.count; ++k)
                program->m_arg_regs.push_back(m_values[ops[k]].reg);
        }
        program->m_code.push_back(in);
    }
    program->m_code.push_back({kReturn, 0, 0, 0, 0});
    for (const std::uint32_t root : roots)
        program->m_results.push_back(m_values[root].reg);
    program->m_result = program->m_results.front();
    program->m_chains = std::move(m_chains);
    program->m_calls = std::move(m_calls);
    program->m_call_arity = m_call_arity;
    return program;
}

}  // namespace vexa_compiled

#include "vexa/compiled/program/shaped_program.h"

#include <cstring>
#include <map>
#include <typeinfo>
#include <unordered_map>

#include "vexa/calc/calculator_access.h"
#include "vexa/compiled/program/builtin_ops.h"
#include "vexa/compiled/program/post_order.h"
#include "vexa/core/data_access.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/operater_node.h"
#include "vexa/tree/variable_param.h"

namespace vexa_compiled {

using vexa_calc::CalculatorAccess;
using vexa_core::DataAccess;

namespace {

// Bounds on what a program may hold, so that slot offsets and counts stay
// far inside 32 bits and a run's memory stays modest: larger values are the
// tree's.
constexpr std::int64_t kMostElements = 4096;
constexpr std::int64_t kMostSlots = std::int64_t(1) << 20;
constexpr std::size_t kMostInstructions = std::size_t(1) << 18;

// The elements a value holds in its own buffer; a parameter of at most as
// many is copied and loaded as the whole buffer at once, into slots with
// room for it.
constexpr int kInlineElements = 9;

// Signatures that may replace one another before the expression is left to
// the tree for good.
constexpr int kMostCompiles = 5;

bool HasKind(int rows, int cols)
{
    return (rows == 1 && cols >= 1) || (rows >= 2 && cols >= 2);
}

}  // namespace

Shape SignatureShape(const VEXA_Data& v)
{
    const int rows = DataAccess::Rows(v);
    const int cols = DataAccess::Cols(v);
    if (!DataAccess::Elements(v) || !HasKind(rows, cols))
        return Shape{0, 0};
    return Shape{rows, cols};
}

class ShapedCompiler {
public:
    ShapedCompiler(ICalculator* owner, const VEXA_Data* held, int count)
        : m_owner(owner), m_held(held), m_count(count), m_program(new ShapedProgram())
    {
    }

    std::unique_ptr<ShapedProgram> Build(INode* root);

private:
    struct Value {
        std::uint32_t slot;
        Shape shape;
        bool IsScalar() const { return shape.rows == 1 && shape.cols == 1; }
        std::int64_t Elements() const { return std::int64_t(shape.rows) * shape.cols; }
    };

    bool Finish(INode* node, const Value* args, int count, Value& out);
    bool Leaf(const VEXA_Data& v, Value& out);
    bool Param(int index, Value& out);
    bool Operator(int kind, const Value& x, const Value& y, Value& out);
    bool Function(FunctionNode& node, const Value* args, int count, Value& out);
    bool Emit(std::uint8_t op, Shape shape, std::uint32_t a, std::uint32_t b, std::uint32_t n,
              std::uint32_t inner, std::uint32_t cols, Value& out);
    bool Allocate(Shape shape, std::uint32_t& slot, std::int64_t room = 0);

    ICalculator* m_owner;
    const VEXA_Data* m_held;
    int m_count;
    std::unique_ptr<ShapedProgram> m_program;
    std::int64_t m_slots = 0;
    std::unordered_map<std::uint64_t, std::uint32_t> m_scalars;
    std::unordered_map<int, Value> m_params;
    // Equal operations over equal operands are computed once: a program
    // calls nothing, so the second evaluation could only repeat the first.
    std::map<std::vector<std::uint32_t>, Value> m_merge;
};

std::unique_ptr<ShapedProgram> ShapedProgram::Compile(INode* root, ICalculator* owner, const VEXA_Data* held,
                                                      int count)
{
    if (!root || count < 0 || (count > 0 && !held))
        return nullptr;
    ShapedCompiler compiler(owner, held, count);
    return compiler.Build(root);
}

std::unique_ptr<ShapedProgram> ShapedCompiler::Build(INode* root)
{
    std::vector<Value> values;
    if (!PostOrder(root, values, [this](INode* node, const Value* args, int count, Value& out) {
            return Finish(node, args, count, out);
        }))
        return nullptr;
    ShapedProgram& p = *m_program;
    p.m_code.push_back({kReturn, 0, 0, 0, 0, 0, 0});
    p.m_result = values.back().slot;
    p.m_result_shape = values.back().shape;
    p.m_init.resize(static_cast<std::size_t>(m_slots), 0.0);
    return std::move(m_program);
}

bool ShapedCompiler::Finish(INode* node, const Value* args, int count, Value& out)
{
    const std::type_info& type = typeid(*node);
    if (type == typeid(ConstantParam))
        return Leaf(node->Calculate(), out);
    if (type == typeid(VariableParam)) {
        VariableParam* leaf = static_cast<VariableParam*>(node);
        if (leaf->m_calculator != m_owner)
            return false;
        return Param(leaf->m_index, out);
    }
    if (type == typeid(OperaterNode))
        return Operator(static_cast<OperaterNode*>(node)->m_kind, args[0], args[1], out);
    // A call without function or arguments is the tree's.
    if (type == typeid(FunctionNode))
        return count > 0 && Function(*static_cast<FunctionNode*>(node), args, count, out);
    return false;
}

// At least room slots are reserved, so that a whole inline buffer may be
// written there.
bool ShapedCompiler::Allocate(Shape shape, std::uint32_t& slot, std::int64_t room)
{
    const std::int64_t n = std::int64_t(shape.rows) * shape.cols;
    const std::int64_t taken = n > room ? n : room;
    if (n < 1 || n > kMostElements || m_slots + taken > kMostSlots)
        return false;
    slot = static_cast<std::uint32_t>(m_slots);
    m_slots += taken;
    return true;
}

// A constant: scalars of equal bits share a slot.
bool ShapedCompiler::Leaf(const VEXA_Data& v, Value& out)
{
    const Shape shape = SignatureShape(v);
    if (shape.rows == 0)
        return false;
    const double* elements = DataAccess::Elements(v);
    std::uint64_t bits = 0;
    const bool scalar = shape.rows == 1 && shape.cols == 1;
    if (scalar) {
        std::memcpy(&bits, elements, sizeof bits);
        const auto found = m_scalars.find(bits);
        if (found != m_scalars.end()) {
            out = Value{found->second, shape};
            return true;
        }
    }
    if (!Allocate(shape, out.slot))
        return false;
    out.shape = shape;
    const std::int64_t n = out.Elements();
    m_program->m_init.resize(static_cast<std::size_t>(m_slots), 0.0);
    for (std::int64_t e = 0; e < n; ++e)
        m_program->m_init[out.slot + static_cast<std::size_t>(e)] = elements[e];
    if (scalar)
        m_scalars.emplace(bits, out.slot);
    return true;
}

// A held parameter the tree would read as null (missing, or of no kind) is
// the tree's: it decides what the null leads to.
bool ShapedCompiler::Param(int index, Value& out)
{
    const auto found = m_params.find(index);
    if (found != m_params.end()) {
        out = found->second;
        return true;
    }
    if (index < 0 || index >= m_count)
        return false;
    const Shape shape = SignatureShape(m_held[index]);
    if (shape.rows == 0 || !Allocate(shape, out.slot, kInlineElements))
        return false;
    out.shape = shape;
    m_program->m_loads.push_back(
        {index, out.slot, static_cast<std::uint32_t>(std::int64_t(shape.rows) * shape.cols)});
    m_params.emplace(index, out);
    return true;
}

bool ShapedCompiler::Emit(std::uint8_t op, Shape shape, std::uint32_t a, std::uint32_t b, std::uint32_t n,
                          std::uint32_t inner, std::uint32_t cols, Value& out)
{
    std::vector<std::uint32_t> key{op, a, b, n, inner, cols};
    const auto found = m_merge.find(key);
    if (found != m_merge.end()) {
        out = found->second;
        return true;
    }
    if (m_program->m_code.size() >= kMostInstructions || !Allocate(shape, out.slot))
        return false;
    out.shape = shape;
    m_program->m_code.push_back({op, out.slot, a, b, n, inner, cols});
    m_merge.emplace(std::move(key), out);
    return true;
}

// The operators by the shapes they meet, as the value arithmetic combines
// them; any pairing it throws for is refused.
bool ShapedCompiler::Operator(int kind, const Value& x, const Value& y, Value& out)
{
    const Shape one{1, 1};
    const bool scalars = x.IsScalar() && y.IsScalar();
    const std::uint32_t n = static_cast<std::uint32_t>(x.Elements());
    switch (kind) {
    case vexa::kAdd:
        if (scalars)
            return Emit(kAdd, one, x.slot, y.slot, 1, 0, 0, out);
        return x.shape == y.shape && Emit(kSumEach, x.shape, x.slot, y.slot, n, 0, 0, out);
    case vexa::kSub:
        if (scalars)
            return Emit(kSub, one, x.slot, y.slot, 1, 0, 0, out);
        return x.shape == y.shape && Emit(kDifferenceEach, x.shape, x.slot, y.slot, n, 0, 0, out);
    case vexa::kMul:
        if (scalars)
            return Emit(kMul, one, x.slot, y.slot, 1, 0, 0, out);
        // A scalar on either side scales the other operand's elements,
        // each element first.
        if (x.IsScalar())
            return Emit(kScaleEach, y.shape, y.slot, x.slot, static_cast<std::uint32_t>(y.Elements()), 0, 0, out);
        if (y.IsScalar())
            return Emit(kScaleEach, x.shape, x.slot, y.slot, n, 0, 0, out);
        if (x.shape.cols != y.shape.rows)
            return false;
        return Emit(kMatrixProduct, Shape{x.shape.rows, y.shape.cols}, x.slot, y.slot,
                    static_cast<std::uint32_t>(x.shape.rows), static_cast<std::uint32_t>(x.shape.cols),
                    static_cast<std::uint32_t>(y.shape.cols), out);
    case vexa::kDiv:
        if (!y.IsScalar())
            return false;
        if (x.IsScalar())
            return Emit(kDiv, one, x.slot, y.slot, 1, 0, 0, out);
        return Emit(kQuotientEach, x.shape, x.slot, y.slot, n, 0, 0, out);
    case vexa::kCross: {
        const Shape row{1, 3};
        return x.shape == row && y.shape == row && Emit(kCrossProduct, row, x.slot, y.slot, 3, 0, 0, out);
    }
    case vexa::kPow:
        return scalars && Emit(kPow, one, x.slot, y.slot, 1, 0, 0, out);
    default:
        return false;
    }
}

// Built-ins of scalar arguments only; every other calculator is refused.
bool ShapedCompiler::Function(FunctionNode& node, const Value* args, int count, Value& out)
{
    ICalculator* calc = node.m_function;
    if (typeid(*calc) != typeid(BuidInFunction))
        return false;
    for (int i = 0; i < count; ++i) {
        if (!args[i].IsScalar())
            return false;
    }
    const BuiltinInfo info = DescribeBuiltin(CalculatorAccess::Function(static_cast<BuidInFunction&>(*calc)));
    if (!AcceptsCount(info, count))
        return false;
    if (info.kind == BuiltinKind::kPlaceholder)
        return Leaf(VEXA_Data(12.0), out);
    if (info.kind != BuiltinKind::kComputed)
        return false;
    const Operands operands = OperandsOf(info.op);
    if (operands == Operands::kOne)
        return Emit(info.op, Shape{1, 1}, args[0].slot, 0, 1, 0, 0, out);
    if (operands == Operands::kTwo)
        return Emit(info.op, Shape{1, 1}, args[0].slot, args[1].slot, 1, 0, 0, out);
    if (operands != Operands::kList)
        return false;
    // Lists: a indexes the argument slots, b counts them; the key holds the
    // slots themselves so that only equal calls merge.
    std::vector<std::uint32_t> key{info.op, 0xFFFFFFFFu, static_cast<std::uint32_t>(count)};
    for (int i = 0; i < count; ++i)
        key.push_back(args[i].slot);
    const auto found = m_merge.find(key);
    if (found != m_merge.end()) {
        out = found->second;
        return true;
    }
    if (m_program->m_code.size() >= kMostInstructions || !Allocate(Shape{1, 1}, out.slot))
        return false;
    out.shape = Shape{1, 1};
    const std::uint32_t first = static_cast<std::uint32_t>(m_program->m_arg_slots.size());
    for (int i = 0; i < count; ++i)
        m_program->m_arg_slots.push_back(args[i].slot);
    m_program->m_code.push_back({info.op, out.slot, first, static_cast<std::uint32_t>(count), 1, 0, 0});
    m_merge.emplace(std::move(key), out);
    return true;
}

namespace {

// Runs the program over the held values, whose shapes are its signature.
bool RunOver(ShapedCache& cache, const ShapedProgram& program, const VEXA_Data* held, VEXA_Data& result)
{
    double* r = cache.slots.data();
    for (const ShapedProgram::Load& load : program.loads()) {
        const VEXA_Data& from = held[load.param];
        if (load.count <= kInlineElements && DataAccess::IsInline(from)) {
            DataAccess::CopyBuffer(r + load.slot, from);
        } else {
            const double* elements = DataAccess::Elements(from);
            for (std::uint32_t e = 0; e < load.count; ++e)
                r[load.slot + e] = elements[e];
        }
    }
    if (program.Run(r) != RunResult::kDone)
        return false;
    const Shape shape = program.resultShape();
    const double* v = r + program.resultSlot();
    if (!DataAccess::AssignInline(result, shape.rows, shape.cols, v)) {
        VEXA_Data made(shape.rows, shape.cols);
        double* to = made.getValue();
        const std::int64_t n = std::int64_t(shape.rows) * shape.cols;
        for (std::int64_t e = 0; e < n; ++e)
            to[e] = v[e];
        result = made;
    }
    return true;
}

// Of shape s, in the inline buffer (s has at most nine elements).
bool HasShape(const VEXA_Data& v, Shape s)
{
    return DataAccess::IsInline(v) && DataAccess::Rows(v) == s.rows && DataAccess::Cols(v) == s.cols;
}

}  // namespace

ShapedEntry EvaluateShapedInPlace(ShapedCache& cache, int count, const VEXA_Data* params, VEXA_Data* held,
                                  int heldCount, VEXA_Data& result)
{
    const ShapedProgram* program = cache.program.get();
    if (!program || count != heldCount || !held || cache.signature.size() != static_cast<std::size_t>(count))
        return ShapedEntry::kNotTaken;
    for (int i = 0; i < count; ++i) {
        const Shape s = cache.signature[static_cast<std::size_t>(i)];
        if (s.rows * s.cols > kInlineElements || !HasShape(params[i], s) || !HasShape(held[i], s))
            return ShapedEntry::kNotTaken;
    }
    // Both in their inline buffers: the whole buffer, as the assignment
    // copies it.
    for (int i = 0; i < count; ++i)
        DataAccess::CopyInlineValue(held[i], params[i]);
    return RunOver(cache, *program, held, result) ? ShapedEntry::kDone : ShapedEntry::kUseTree;
}

bool EvaluateShaped(ShapedCache& cache, INode* root, ICalculator* owner, const VEXA_Data* held, int count,
                    VEXA_Data& result)
{
    std::vector<Shape>& signature = cache.signature;
    bool same = signature.size() == static_cast<std::size_t>(count) && cache.compiles > 0;
    for (int i = 0; same && i < count; ++i)
        same = SignatureShape(held[i]) == signature[static_cast<std::size_t>(i)];
    if (!same) {
        if (cache.compiles >= kMostCompiles) {
            cache.program.reset();
            return false;
        }
        ++cache.compiles;
        cache.program.reset();
        signature.clear();
        // Exhausted memory passes to the caller, as it does when the scalar
        // program is made; the cache is then empty and the next evaluation
        // tries again (within the bound).
        std::unique_ptr<ShapedProgram> made = ShapedProgram::Compile(root, owner, held, count);
        std::vector<double> slots = made ? made->initialSlots() : std::vector<double>();
        std::vector<Shape> shapes;
        shapes.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            shapes.push_back(SignatureShape(held[i]));
        signature.swap(shapes);
        cache.slots.swap(slots);
        cache.program = std::move(made);
    }
    const ShapedProgram* program = cache.program.get();
    return program && RunOver(cache, *program, held, result);
}

}  // namespace vexa_compiled

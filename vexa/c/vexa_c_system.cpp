// The C interface's systems: several texts as one compiled model.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <limits>

#include "vexa/compiled/compiled_system.h"
#include "vexa/compiled/point_bounds.h"
#include "vexa/vexa_c.h"
#include "vexa/c/vexa_c_internal.h"

using vexa_c::Fail;
using vexa_c::Status;

struct vexa_system {
    // One handle per text: its tree explains a failed output.
    std::vector<std::unique_ptr<vexa_expr> > outputs;
    std::vector<std::string> names;
    std::unique_ptr<vexa::CompiledSystem> model;
    std::unique_ptr<vexa::SystemWorkspace> workspace;
    std::atomic<bool> workspace_taken{false};
};

namespace {

struct HandleFree {
    void operator()(vexa_expr* e) const { vexa_free(e); }
};

// Names match as texts match them: without regard to case.
std::string Key(const std::string& name)
{
    std::string k = name;
    for (char& c : k)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return k;
}

vexa_system& Checked(vexa_system* s)
{
    if (!s)
        Fail(VEXA_E_ARGUMENT, "no system (a null handle)");
    return *s;
}

// The shared workspace for whichever call finds it free, else one of its own.
class WorkspaceUse {
public:
    explicit WorkspaceUse(vexa_system& s) : m_s(s), m_shared(!s.workspace_taken.exchange(true))
    {
        try {
            if (!m_shared)
                m_own.reset(new vexa::SystemWorkspace(*s.model));
            else if (!s.workspace)
                s.workspace.reset(new vexa::SystemWorkspace(*s.model));
        } catch (...) {
            Release();
            throw;
        }
    }
    ~WorkspaceUse() { Release(); }
    vexa::SystemWorkspace& get() { return m_shared ? *m_s.workspace : *m_own; }

private:
    void Release()
    {
        if (m_shared)
            m_s.workspace_taken.store(false, std::memory_order_release);
    }
    vexa_system& m_s;
    bool m_shared;
    std::unique_ptr<vexa::SystemWorkspace> m_own;
};

// Output i's failure at the system's point, explained by its text.
vexa_c::Failure OutputFailure(const vexa_system& s, std::size_t i, const double* point, const vexa::PointFailure& p)
{
    vexa_c::Failure f = vexa_c::OutcomeFailure({0.0, p.failure, p.code});
    const vexa_expr& x = *s.outputs[i];
    if (point && (p.failure == vexa::Failure::kThrown || p.failure == vexa::Failure::kNull ||
                  p.failure == vexa::Failure::kRefused)) {
        const std::vector<int>& reads = s.model->reads(static_cast<int>(i));
        std::vector<double> own(reads.size());
        for (std::size_t k = 0; k < reads.size(); ++k)
            own[k] = point[reads[k]];
        vexa_c::Explain(x, own.data(), f, false);
    }
    f.message = "output " + std::to_string(i) + " (" + x.typed + "): " + f.message;
    return f;
}

void TellPoint(const vexa_system& s, const vexa::Report& r, const double* point)
{
    if (r.ok())
        return;
    const vexa::PointFailure& p = r.first.front();
    vexa_c::Failure f = OutputFailure(s, p.index, point, p);
    f.position = static_cast<int>(p.index);
    throw f;
}

std::vector<vexa::Column> ColumnsOf(const vexa_system& s, size_t n, const double* const* columns,
                                    const ptrdiff_t* strides, std::size_t per_point)
{
    const std::size_t count = s.names.size();
    if (count > 0 && !columns)
        Fail(VEXA_E_ARGUMENT, "no parameter columns");
    std::vector<vexa::Column> out(count);
    for (std::size_t k = 0; k < count; ++k) {
        if (!columns[k] && n > 0)
            Fail(VEXA_E_ARGUMENT, "no values for parameter " + std::to_string(k) + " (" + s.names[k] + ")");
        out[k] = {columns[k], strides ? strides[k] : 1};
    }
    const std::string why = vexa_compiled::PointsBeyondReach(n, static_cast<int>(count), out.data(), per_point);
    if (!why.empty())
        Fail(VEXA_E_ARGUMENT, why);
    return out;
}

void TellMany(const vexa_system& s, const vexa::Report& r, std::size_t n, const std::vector<vexa::Column>& cols,
              vexa_report* out)
{
    if (out) {
        out->failed = r.failed;
        out->thrown = r.by_kind[static_cast<int>(vexa::Failure::kThrown)];
    }
    if (r.ok())
        return;
    const std::size_t m = s.outputs.size();
    const vexa::PointFailure& p = r.first.front();
    const std::size_t point = p.index / m;
    std::vector<double> values(cols.size());
    for (std::size_t k = 0; k < cols.size(); ++k)
        values[k] = cols[k].data[static_cast<std::ptrdiff_t>(point) * cols[k].stride];
    vexa_c::Failure f = OutputFailure(s, p.index % m, values.data(), p);
    f.message = std::to_string(r.failed) + " of " + std::to_string(n * m) + " values have no value; point " +
                std::to_string(point) + ", " + f.message;
    f.status = VEXA_E_POINTS;
    f.position = point > static_cast<std::size_t>(std::numeric_limits<int>::max()) ? std::numeric_limits<int>::max()
                                                                                   : static_cast<int>(point);
    throw f;
}

vexa::Options OptionsOf(const vexa_options* o)
{
    vexa::Options options;
    if (o) {
        options.strict = o->strict != 0;
        options.threads = o->threads;
    }
    return options;
}

}  // namespace

extern "C" {

vexa_system* vexa_system_make(const char* const* texts, int count, const char* names, vexa_error* err)
{
    vexa_system* made = nullptr;
    Status(err, [&] {
        if (count < 1 || !texts)
            Fail(VEXA_E_ARGUMENT, count < 1 ? "a system needs at least one output" : "no texts");
        std::unique_ptr<vexa_system> s(new vexa_system);
        std::vector<std::string> keys;
        std::vector<std::vector<int> > reads;
        std::vector<ICalculator*> calcs;
        for (int i = 0; i < count; ++i) {
            vexa_error parsed;
            std::unique_ptr<vexa_expr, HandleFree> e(vexa_parse(texts[i], names, &parsed));
            if (!e) {
                const int status = parsed.code < -20000 ? parsed.code : VEXA_E_CODE;
                throw vexa_c::Failure{status, parsed.code, parsed.position,
                                      "output " + std::to_string(i) + ": " + parsed.message};
            }
            std::vector<int> r;
            for (const std::string& name : e->names) {
                const std::string key = Key(name);
                const auto at = std::find(keys.begin(), keys.end(), key);
                r.push_back(static_cast<int>(at - keys.begin()));
                if (at == keys.end()) {
                    keys.push_back(key);
                    s->names.push_back(name);
                }
            }
            reads.push_back(std::move(r));
            calcs.push_back(e->calc.get());
            s->outputs.emplace_back(e.release());
        }
        std::string why;
        s->model = vexa::CompiledSystem::Make(calcs, reads, static_cast<int>(s->names.size()), &why);
        if (!s->model)
            Fail(VEXA_E_INTERNAL, why);
        made = s.release();
    });
    return made;
}

void vexa_system_free(vexa_system* s)
{
    delete s;
}

int vexa_system_size(const vexa_system* s, int* outputs, int* params)
{
    if (!s)
        return VEXA_E_ARGUMENT;
    if (outputs)
        *outputs = static_cast<int>(s->outputs.size());
    if (params)
        *params = static_cast<int>(s->names.size());
    return VEXA_OK;
}

const char* vexa_system_param(const vexa_system* s, int index)
{
    if (!s || index < 0 || static_cast<std::size_t>(index) >= s->names.size())
        return nullptr;
    return s->names[static_cast<std::size_t>(index)].c_str();
}

int vexa_system_sparsity(const vexa_system* s, int* rows, int* cols, int capacity)
{
    if (!s || capacity < 0 || (capacity > 0 && (!rows || !cols)))
        return VEXA_E_ARGUMENT;
    const std::vector<std::pair<int, int> >& entries = s->model->Sparsity();
    const std::size_t shown = std::min(entries.size(), static_cast<std::size_t>(capacity));
    for (std::size_t j = 0; j < shown; ++j) {
        rows[j] = entries[j].first;
        cols[j] = entries[j].second;
    }
    return static_cast<int>(std::min<std::size_t>(entries.size(), std::numeric_limits<int>::max()));
}

int vexa_system_eval(vexa_system* s, const double* params, double* outputs, vexa_error* err)
{
    return Status(err, [&] {
        vexa_system& x = Checked(s);
        if (!outputs)
            Fail(VEXA_E_ARGUMENT, "no result buffer");
        if (!params && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no parameter values");
        WorkspaceUse ws(x);
        TellPoint(x, x.model->Evaluate(params, outputs, ws.get()), params);
    });
}

int vexa_system_jacobian(vexa_system* s, const double* params, double* outputs, double* jacobian, vexa_error* err)
{
    return Status(err, [&] {
        vexa_system& x = Checked(s);
        if (!jacobian && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no Jacobian buffer");
        if (!params && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no parameter values");
        WorkspaceUse ws(x);
        TellPoint(x, x.model->Jacobian(params, outputs, jacobian, ws.get()), params);
    });
}

int vexa_system_eval_many(vexa_system* s, size_t n, const double* const* columns, const ptrdiff_t* strides,
                          double* outputs, const vexa_options* options, vexa_report* report, vexa_error* err)
{
    if (report)
        *report = {0, 0};
    return Status(err, [&] {
        vexa_system& x = Checked(s);
        if (n > 0 && !outputs)
            Fail(VEXA_E_ARGUMENT, "no result buffer");
        const std::vector<vexa::Column> cols = ColumnsOf(x, n, columns, strides, x.outputs.size());
        TellMany(x, x.model->EvaluateMany(n, cols.data(), outputs, OptionsOf(options)), n, cols, report);
    });
}

int vexa_system_jacobian_many(vexa_system* s, size_t n, const double* const* columns, const ptrdiff_t* strides,
                              double* outputs, double* jacobians, const vexa_options* options, vexa_report* report,
                              vexa_error* err)
{
    if (report)
        *report = {0, 0};
    return Status(err, [&] {
        vexa_system& x = Checked(s);
        const std::size_t width = x.outputs.size() * std::max<std::size_t>(x.names.size(), 1);
        if (n > 0 && !jacobians && !x.names.empty())
            Fail(VEXA_E_ARGUMENT, "no Jacobian buffer");
        const std::vector<vexa::Column> cols = ColumnsOf(x, n, columns, strides, width);
        TellMany(x, x.model->JacobianMany(n, cols.data(), outputs, jacobians, OptionsOf(options)), n, cols, report);
    });
}

}  // extern "C"

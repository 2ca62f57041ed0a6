// The extension behind the Python package vexa: a thin layer over the C
// interface. The package (vexa/__init__.py) gives it its Python shape;
// everything here checks what Python hands in before the C interface sees
// it, so that no argument can make the library read what is not there.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "vexa/calc/call_forms.h"
#include "vexa/core/utf8.h"
#include "vexa/vexa_c.h"

namespace py = pybind11;

namespace {

using Array = py::array_t<double, py::array::c_style | py::array::forcecast>;

// Characters before a byte offset of valid UTF-8: Python counts positions in
// characters, the C interface in bytes.
int CharIndex(const std::string& utf8, int byte)
{
    if (byte < 0)
        return byte;
    int chars = 0;
    for (std::size_t i = 0; i < utf8.size() && i < static_cast<std::size_t>(byte); ++i)
        chars += (static_cast<unsigned char>(utf8[i]) & 0xC0) != 0x80;
    return chars;
}

[[noreturn]] void Throw(const py::object& error)
{
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

// Raises the package's exception for a failed call. typed: the text of a
// one-point call, whose err.position is a byte offset in it.
[[noreturn]] void Raise(int status, const vexa_error& err, const std::string* typed = nullptr)
{
    const std::string message = err.message;
    if (status == VEXA_E_MEMORY)
        throw std::bad_alloc();
    if (status == VEXA_E_ARGUMENT)
        throw py::value_error(message);
    py::module_ package = py::module_::import("vexa");
    py::object error;
    const int position = typed && !typed->empty() && err.position >= 0 ? CharIndex(*typed, err.position) : -1;
    switch (status) {
    case VEXA_E_CODE:
    case VEXA_E_POINTS:
        error = package.attr("EvaluationError")(err.code, message, position);
        break;
    case VEXA_E_NULL:
    case VEXA_E_NOT_SCALAR:
    case VEXA_E_REFUSED:
    case VEXA_E_NO_GRADIENT:
    case VEXA_E_SHAPE:
        error = package.attr("EvaluationError")(py::none(), message, position);
        break;
    default:
        error = package.attr("VexaError")(message);
    }
    Throw(error);
}

void Check(int status, const vexa_error& err, const std::string* typed = nullptr)
{
    if (status != VEXA_OK)
        Raise(status, err, typed);
}

// A C string of a Python one; the C interface would stop at a NUL.
std::string NoNul(const std::string& s, const char* what)
{
    if (s.find('\0') != std::string::npos)
        throw py::value_error(std::string(what) + " contains a NUL character");
    return s;
}

std::vector<std::string> Lines(char* text)
{
    std::vector<std::string> lines;
    std::unique_ptr<char, void (*)(char*)> own(text, vexa_free_text);
    const char* at = text;
    while (*at) {
        const char* end = std::strchr(at, '\n');
        if (!end)
            end = at + std::strlen(at);
        lines.emplace_back(at, end);
        at = *end ? end + 1 : end;
    }
    return lines;
}

class Handle {
public:
    // typed: the text e was parsed from, empty for a derivative (which has none).
    Handle(vexa_expr* e, std::string typed) : m_e(e), m_typed(std::move(typed)) {}
    ~Handle() { vexa_free(m_e); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    vexa_expr* get() const { return m_e; }
    std::size_t count() const { return static_cast<std::size_t>(vexa_param_count(m_e)); }

    std::vector<std::string> names() const
    {
        std::vector<std::string> out;
        for (std::size_t i = 0; i < count(); ++i)
            out.emplace_back(vexa_param_name(m_e, static_cast<int>(i)));
        return out;
    }

    void needCount(std::size_t n) const
    {
        if (n != count())
            throw py::value_error("the expression takes " + std::to_string(count()) + " values, not " +
                                  std::to_string(n));
    }

    double eval(const std::vector<double>& values, bool strict) const
    {
        needCount(values.size());
        vexa_options options = {strict ? 1 : 0, 0};
        double result = 0.0;
        vexa_error err;
        Check(vexa_eval_ex(m_e, values.data(), &result, &options, &err), err, &m_typed);
        return result;
    }

    py::object evalValue(const std::vector<Array>& values) const
    {
        needCount(values.size());
        std::vector<vexa_value> in;
        for (const Array& a : values) {
            if (a.ndim() > 2 || a.size() == 0 || a.size() > 0x7FFFFFFF)
                throw py::value_error("a value is a number, a vector of shape (n,) or a matrix of shape (m, n)");
            const int rows = a.ndim() == 2 ? static_cast<int>(a.shape(0)) : 1;
            const int cols = a.ndim() == 0 ? 1 : static_cast<int>(a.shape(a.ndim() - 1));
            in.push_back({rows, cols, const_cast<double*>(a.data())});
        }
        std::vector<double> buffer(9);
        vexa_value out = {0, 0, buffer.data()};
        vexa_error err;
        int status = vexa_eval_value(m_e, in.data(), &out, buffer.size(), &err);
        if (status == VEXA_E_TOO_SMALL) {
            buffer.resize(static_cast<std::size_t>(out.rows) * static_cast<std::size_t>(out.cols));
            out.data = buffer.data();
            status = vexa_eval_value(m_e, in.data(), &out, buffer.size(), &err);
        }
        Check(status, err, &m_typed);
        if (out.rows == 1 && out.cols == 1)
            return py::float_(buffer[0]);
        std::vector<py::ssize_t> shape;
        if (out.rows > 1)
            shape.push_back(out.rows);
        shape.push_back(out.cols);
        Array result(shape);
        std::memcpy(result.mutable_data(), buffer.data(), sizeof(double) * static_cast<std::size_t>(result.size()));
        return std::move(result);
    }

    // Columns are 1-D arrays of n values or numbers held for every point.
    // Returns what went wrong (None when every point has a value).
    py::object evalMany(const py::list& columns, const py::array& out, bool strict, int threads) const
    {
        double* results = Out(out);
        Bulk bulk(*this, columns, out.size());
        const vexa_options options = {strict ? 1 : 0, threads};
        return Chunked(bulk, [&](std::size_t n, const double* const* cols, std::size_t at, vexa_report* report,
                                    vexa_error* err) {
            return vexa_eval_many_ex(m_e, n, cols, bulk.strides.data(), results + at, &options, report, err);
        }, [&](std::size_t i, vexa_error* err) {
            double value = 0.0;
            return vexa_eval_ex(m_e, PointOf(bulk, i).data(), &value, &options, err);
        }, [&](std::size_t i) { return std::isnan(results[i]); });
    }

    Array gradient(const std::vector<double>& values) const
    {
        needCount(values.size());
        Array grad(std::vector<py::ssize_t>{static_cast<py::ssize_t>(count())});
        vexa_error err;
        Check(vexa_gradient(m_e, values.data(), grad.mutable_data(), &err), err, &m_typed);
        return grad;
    }

    Array hessian(const std::vector<double>& values) const
    {
        needCount(values.size());
        const py::ssize_t n = static_cast<py::ssize_t>(count());
        Array H(std::vector<py::ssize_t>{n, n});
        vexa_error err;
        Check(vexa_hessian(m_e, values.data(), H.mutable_data(), &err), err, &m_typed);
        return H;
    }

    py::object gradientMany(const py::list& columns, const py::array& grads, int threads) const
    {
        double* out = Out(grads);
        const std::size_t per = count();
        const std::size_t n = per ? static_cast<std::size_t>(grads.size()) / per : 0;
        if (grads.size() != static_cast<py::ssize_t>(n * per))
            throw py::value_error("the gradients' size is no multiple of the number of parameters");
        Bulk bulk(*this, columns, static_cast<py::ssize_t>(n));
        const vexa_options options = {1, threads};
        return Chunked(bulk, [&](std::size_t k, const double* const* cols, std::size_t at, vexa_report* report,
                                      vexa_error* err) {
            return vexa_gradient_many(m_e, k, cols, bulk.strides.data(), nullptr, out + at * per, &options, report,
                                      err);
        }, [&](std::size_t i, vexa_error* err) {
            std::vector<double> g(per);
            return vexa_gradient(m_e, PointOf(bulk, i).data(), g.data(), err);
        }, [&](std::size_t i) { return per > 0 && std::isnan(out[i * per]); });
    }

    // Columns of values of any shape: flat arrays, each held for every
    // point (held[k]: its one value) or holding the points' values side by
    // side; out holds each point's result_rows x result_cols elements.
    py::object evalManyShaped(const py::list& columns, const std::vector<bool>& held, const std::vector<int>& rows,
                              const std::vector<int>& cols, int result_rows, int result_cols, const py::array& out,
                              bool strict, int threads) const
    {
        double* results = Out(out);
        if (result_rows < 1 || result_cols < 1)
            throw py::value_error("the result's shape has a side below 1");
        const std::size_t per = static_cast<std::size_t>(result_rows) * static_cast<std::size_t>(result_cols);
        const std::size_t n = static_cast<std::size_t>(out.size()) / per;
        if (static_cast<std::size_t>(out.size()) != n * per)
            throw py::value_error("the output's size is no multiple of the result's elements");
        Bulk bulk(*this, columns, held, rows, cols, n);
        const vexa_options options = {strict ? 1 : 0, threads};
        return Chunked(bulk, [&](std::size_t k, const double* const* at_cols, std::size_t at, vexa_report* report,
                                    vexa_error* err) {
            return vexa_eval_many_shaped(m_e, k, at_cols, bulk.strides.data(), bulk.rows.data(), bulk.cols.data(),
                                         result_rows, result_cols, results + at * per, &options, report, err);
        }, [&](std::size_t i, vexa_error* err) {
            // The tree's own word on the point, which names where it failed.
            std::vector<vexa_value> in;
            for (std::size_t c = 0; c < bulk.data.size(); ++c)
                in.push_back({bulk.rows[c], bulk.cols[c],
                              const_cast<double*>(bulk.data[c] + static_cast<std::ptrdiff_t>(i) * bulk.strides[c])});
            std::vector<double> value(per);
            vexa_value result = {0, 0, value.data()};
            const int status = vexa_eval_value(m_e, in.data(), &result, value.size(), err);
            // Another shape (or a buffer too small for it) is a failure the bulk call tells.
            return status == VEXA_OK && (result.rows != result_rows || result.cols != result_cols) ? VEXA_E_SHAPE
                   : status == VEXA_E_TOO_SMALL                                                   ? VEXA_E_SHAPE
                                                                                                  : status;
        }, [&](std::size_t i) { return std::isnan(results[i * per]); });
    }

    std::unique_ptr<Handle> derivative(int index, bool exact) const
    {
        vexa_error err;
        vexa_expr* d = exact ? vexa_exact_derivative(m_e, index, &err) : vexa_derivative(m_e, index, &err);
        if (!d)
            Raise(err.code < -20000 ? err.code : VEXA_E_CODE, err);
        return std::unique_ptr<Handle>(new Handle(d, std::string()));
    }

    std::vector<std::string> text(char* (*of)(const vexa_expr*, vexa_error*)) const
    {
        vexa_error err;
        char* t = of(m_e, &err);
        if (!t)
            Raise(err.code < -20000 ? err.code : VEXA_E_CODE, err);
        return Lines(t);
    }

private:
    // The C interface's view of Python's columns, alive as long as this.
    struct Bulk {
        Bulk(const Handle& h, const py::list& columns, py::ssize_t points)
        {
            h.needCount(columns.size());
            n = static_cast<std::size_t>(points);
            held.resize(columns.size());
            for (std::size_t k = 0; k < columns.size(); ++k) {
                py::handle c = columns[k];
                if (py::isinstance<py::array>(c)) {
                    arrays.push_back(c.cast<Array>());
                    const Array& a = arrays.back();
                    if (a.ndim() != 1 || a.size() != points)
                        throw py::value_error("a column holds one value for each of the points");
                    data.push_back(a.data());
                    strides.push_back(1);
                } else {
                    held[k] = c.cast<double>();
                    data.push_back(&held[k]);
                    strides.push_back(0);
                }
            }
        }
        // Flat columns of rows[k] x cols[k] values: one held, or n side by side.
        Bulk(const Handle& h, const py::list& columns, const std::vector<bool>& isHeld, const std::vector<int>& r,
             const std::vector<int>& c, std::size_t points)
            : n(points), rows(r), cols(c)
        {
            h.needCount(columns.size());
            if (isHeld.size() != columns.size() || rows.size() != columns.size() || cols.size() != columns.size())
                throw py::value_error("a shape and a holding for each column");
            for (std::size_t k = 0; k < columns.size(); ++k) {
                if (rows[k] < 1 || cols[k] < 1)
                    throw py::value_error("a column's shape has a side below 1");
                arrays.push_back(columns[k].cast<Array>());
                const Array& a = arrays.back();
                const std::size_t each = static_cast<std::size_t>(rows[k]) * static_cast<std::size_t>(cols[k]);
                const std::size_t want = isHeld[k] ? each : each * n;
                if (a.ndim() != 1 || static_cast<std::size_t>(a.size()) != want || (!isHeld[k] && want / each != n))
                    throw py::value_error("a shaped column holds one value, or one for each of the points");
                data.push_back(a.data());
                strides.push_back(isHeld[k] ? 0 : static_cast<ptrdiff_t>(each));
            }
        }
        std::size_t n = 0;
        std::vector<Array> arrays;
        std::vector<double> held;
        std::vector<const double*> data;
        std::vector<ptrdiff_t> strides;
        std::vector<int> rows, cols;  // shaped columns only
    };

    // Many points in chunks, each with the interpreter lock released, so that
    // a signal (Ctrl-C) is answered between two of them: each chunk is sized
    // from the last one's pace to take about 20 ms, growing at most 16-fold a
    // step (a call that starts threads pays that once a chunk). run(k,
    // columns, first, report, err) evaluates k points from point first;
    // one(point, err) evaluates a single point; nan(i) whether point i holds
    // NaN. The summary names the first point without a value, which the
    // library's report need not be (it prefers one that threw), and the
    // reason the single call gives there.
    template <typename Run, typename One, typename IsNan>
    py::object Chunked(const Bulk& bulk, Run run, One one, IsNan nan) const
    {
        using Clock = std::chrono::steady_clock;
        const std::size_t n = bulk.n;
        constexpr std::size_t kFewest = 256;
        constexpr std::size_t kMost = std::size_t(1) << 22;
        constexpr double kAimMs = 20.0;
        std::size_t chunk = 16384;
        std::size_t failed = 0;
        std::size_t first = n;
        int firstStatus = VEXA_OK;
        vexa_error firstErr{};
        std::vector<const double*> cols(bulk.data.size());
        for (std::size_t at = 0; at < n;) {
            const std::size_t k = std::min(chunk, n - at);
            for (std::size_t c = 0; c < cols.size(); ++c)
                cols[c] = bulk.data[c] + static_cast<std::ptrdiff_t>(at) * bulk.strides[c];
            vexa_report report = {0, 0};
            vexa_error err{};
            int status;
            const Clock::time_point start = Clock::now();
            {
                py::gil_scoped_release free;
                status = run(k, cols.data(), at, &report, &err);
            }
            const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
            if (status != VEXA_OK && status != VEXA_E_POINTS)
                Raise(status, err);
            if (status == VEXA_E_POINTS) {
                failed += report.failed;
                if (first == n) {
                    // never a point outside the chunk, whatever is reported
                    const std::size_t told =
                        err.position > 0 && static_cast<std::size_t>(err.position) < k ? err.position : 0;
                    first = at + FirstFailed(at, told, one, nan);
                    firstStatus = one(first, &firstErr);
                    // the bulk call's own word, then (the tree may be busy on another thread)
                    if (firstStatus == VEXA_OK || firstStatus == VEXA_E_SHAPE || firstStatus == VEXA_E_BUSY) {
                        firstErr = err;
                        firstErr.position = -1;  // a point's index there, not a place in the text
                    }
                }
            }
            at += k;
            if (at < n && PyErr_CheckSignals() != 0)
                throw py::error_already_set();
            const double paced = ms > 0 ? static_cast<double>(k) * kAimMs / ms : static_cast<double>(kMost);
            chunk = static_cast<std::size_t>(
                std::clamp(paced, static_cast<double>(kFewest), static_cast<double>(std::min(kMost, chunk * 16))));
        }
        if (failed == 0)
            return py::none();
        const bool threw = firstStatus == VEXA_E_CODE;
        const int position = !m_typed.empty() && firstErr.position >= 0 ? CharIndex(m_typed, firstErr.position) : -1;
        return py::make_tuple(failed, first, threw ? py::object(py::int_(firstErr.code)) : py::object(py::none()),
                              std::string(firstErr.message), position);
    }

    // The first point before the one the library told of (reported, inside
    // the chunk from at) that has no value: a NaN that a single call refuses.
    // A NaN there may also be a value; at most 32 are tried.
    template <typename One, typename IsNan>
    static std::size_t FirstFailed(std::size_t at, std::size_t reported, One one, IsNan nan)
    {
        int tried = 0;
        for (std::size_t i = 0; i < reported && tried < 32; ++i) {
            if (!nan(at + i))
                continue;
            ++tried;
            vexa_error err;
            if (one(at + i, &err) != VEXA_OK)
                return i;
        }
        return reported;
    }

    static std::vector<double> PointOf(const Bulk& bulk, std::size_t i)
    {
        std::vector<double> point(bulk.data.size());
        for (std::size_t c = 0; c < point.size(); ++c)
            point[c] = bulk.data[c][bulk.strides[c] ? i : 0];
        return point;
    }

    // Where results go: written in place, so never a converted copy.
    static double* Out(py::array out)
    {
        if (!py::isinstance<py::array_t<double>>(out) || !(out.flags() & py::array::c_style) || !out.writeable())
            throw py::value_error("the output is a writable C-contiguous float64 array");
        return static_cast<double*>(out.mutable_data());
    }

    vexa_expr* m_e;
    std::string m_typed;
};

std::unique_ptr<Handle> Parse(const std::string& text, const py::object& params)
{
    const std::string t = NoNul(text, "the text");
    const bool list = !params.is_none();
    const std::string p = list ? NoNul(params.cast<std::string>(), "the parameter list") : std::string();
    vexa_error err;
    vexa_expr* e = vexa_parse(t.c_str(), list ? p.c_str() : nullptr, &err);
    if (e)
        return std::unique_ptr<Handle>(new Handle(e, t));
    if (err.code < -20000 && err.code != VEXA_E_LIST)
        Raise(err.code, err);
    const bool inList = err.code == VEXA_E_LIST;
    Throw(py::module_::import("vexa").attr("ParseError")(err.code, CharIndex(inList ? p : t, err.position),
                                                         std::string(err.message), inList));
}

// A system of texts, for vexa.System: columns as Handle's bulk calls take
// them (1-D arrays of n values, or numbers held for every point).
class SystemHandle {
public:
    explicit SystemHandle(vexa_system* s) : m_s(s) {}
    ~SystemHandle() { vexa_system_free(m_s); }
    SystemHandle(const SystemHandle&) = delete;
    SystemHandle& operator=(const SystemHandle&) = delete;

    std::vector<std::string> names() const
    {
        int params = 0;
        vexa_system_size(m_s, nullptr, &params);
        std::vector<std::string> out;
        for (int i = 0; i < params; ++i)
            out.emplace_back(vexa_system_param(m_s, i));
        return out;
    }

    // Returns (values failed, first point failed, code or None, message) or None.
    py::object evalMany(const py::list& columns, std::size_t n, const py::array& out, bool strict, int threads)
    {
        Columns c(columns, n);
        double* results = Writable(out, n * outputs());
        const vexa_options options = {strict ? 1 : 0, threads};
        vexa_report report = {0, 0};
        vexa_error err{};
        int status;
        {
            py::gil_scoped_release free;
            status = vexa_system_eval_many(m_s, n, c.data.data(), c.strides.data(), results, &options, &report, &err);
        }
        return Summary(status, report, err);
    }

    py::object jacobianMany(const py::list& columns, std::size_t n, const py::array& values, const py::array& jac,
                            int threads)
    {
        Columns c(columns, n);
        double* v = Writable(values, n * outputs());
        double* j = Writable(jac, n * outputs() * names().size());
        const vexa_options options = {1, threads};
        vexa_report report = {0, 0};
        vexa_error err{};
        int status;
        {
            py::gil_scoped_release free;
            status =
                vexa_system_jacobian_many(m_s, n, c.data.data(), c.strides.data(), v, j, &options, &report, &err);
        }
        return Summary(status, report, err);
    }

    py::tuple sparsity() const
    {
        const int count = vexa_system_sparsity(m_s, nullptr, nullptr, 0);
        py::array_t<int> rows(count), cols(count);
        vexa_system_sparsity(m_s, rows.mutable_data(), cols.mutable_data(), count);
        return py::make_tuple(rows, cols);
    }

    std::size_t outputs() const
    {
        int m = 0;
        vexa_system_size(m_s, &m, nullptr);
        return static_cast<std::size_t>(m);
    }

private:
    struct Columns {
        Columns(const py::list& columns, std::size_t n)
        {
            held.resize(columns.size());
            for (std::size_t k = 0; k < columns.size(); ++k) {
                py::handle c = columns[k];
                if (py::isinstance<py::array>(c)) {
                    arrays.push_back(c.cast<Array>());
                    if (arrays.back().ndim() != 1 || static_cast<std::size_t>(arrays.back().size()) != n)
                        throw py::value_error("a column holds one value for each of the points");
                    data.push_back(arrays.back().data());
                    strides.push_back(1);
                } else {
                    held[k] = c.cast<double>();
                    data.push_back(&held[k]);
                    strides.push_back(0);
                }
            }
        }
        std::vector<Array> arrays;
        std::vector<double> held;
        std::vector<const double*> data;
        std::vector<ptrdiff_t> strides;
    };

    static double* Writable(py::array out, std::size_t size)
    {
        if (!py::isinstance<py::array_t<double>>(out) || !(out.flags() & py::array::c_style) || !out.writeable() ||
            static_cast<std::size_t>(out.size()) != size)
            throw py::value_error("the output is a writable C-contiguous float64 array of the results' size");
        return static_cast<double*>(out.mutable_data());
    }

    static py::object Summary(int status, const vexa_report& report, const vexa_error& err)
    {
        if (status == VEXA_OK)
            return py::none();
        if (status != VEXA_E_POINTS)
            Raise(status, err);
        const bool threw = report.thrown > 0 && err.code > -20000;  // statuses lie below
        return py::make_tuple(report.failed, err.position, threw ? py::object(py::int_(err.code)) : py::object(py::none()),
                              std::string(err.message));
    }

    vexa_system* m_s;
};

std::unique_ptr<SystemHandle> MakeSystem(const std::vector<std::string>& texts, const py::object& params)
{
    std::vector<std::string> own;
    for (const std::string& t : texts)
        own.push_back(NoNul(t, "a text"));
    std::vector<const char*> ptrs;
    for (const std::string& t : own)
        ptrs.push_back(t.c_str());
    const bool list = !params.is_none();
    const std::string p = list ? NoNul(params.cast<std::string>(), "the parameter list") : std::string();
    vexa_error err;
    vexa_system* s = vexa_system_make(ptrs.data(), static_cast<int>(ptrs.size()), list ? p.c_str() : nullptr, &err);
    if (!s) {
        if (err.code < -20000 && err.code != VEXA_E_LIST)
            Raise(err.code, err);
        Throw(py::module_::import("vexa").attr("ParseError")(err.code, err.position, std::string(err.message),
                                                             err.code == VEXA_E_LIST));
    }
    return std::unique_ptr<SystemHandle>(new SystemHandle(s));
}

}  // namespace

PYBIND11_MODULE(_vexa, m)
{
    m.doc() = "The C interface of vexa for the Python package; use the package vexa itself.";
    py::class_<Handle>(m, "Handle")
        .def_property_readonly("names", &Handle::names)
        .def_property_readonly("can_plot", [](const Handle& h) { return vexa_can_plot(h.get()) != 0; })
        .def("eval", &Handle::eval)
        .def("eval_value", &Handle::evalValue)
        .def("eval_many", &Handle::evalMany)
        .def("eval_many_shaped", &Handle::evalManyShaped)
        .def("gradient", &Handle::gradient)
        .def("gradient_many", &Handle::gradientMany)
        .def("derivative", &Handle::derivative)
        .def("hessian", &Handle::hessian)
        .def("dump", [](const Handle& h) { return h.text(vexa_dump); })
        .def("tree_text", [](const Handle& h) {
            const std::vector<std::string> lines = h.text(vexa_tree_text);
            return lines.empty() ? std::string() : lines.front();
        })
        .def("registered_calls", [](const Handle& h) { return h.text(vexa_registered_calls); });
    m.def("parse", &Parse);
    py::class_<SystemHandle>(m, "SystemHandle")
        .def_property_readonly("names", &SystemHandle::names)
        .def("eval_many", &SystemHandle::evalMany)
        .def("jacobian_many", &SystemHandle::jacobianMany)
        .def("sparsity", &SystemHandle::sparsity);
    m.def("make_system", &MakeSystem);
    m.def("register", [](const std::string& name, const Handle& h) {
        vexa_error err;
        Check(vexa_register(NoNul(name, "the name").c_str(), h.get(), &err), err);
    });
    m.def("unregister", [](const std::string& name) {
        vexa_error err;
        Check(vexa_unregister(NoNul(name, "the name").c_str(), &err), err);
    });
    m.def("function_names", [](int which) {
        vexa_error err;
        char* t = vexa_functions(which, &err);
        if (!t)
            Raise(err.code, err);
        return Lines(t);
    });
    m.def("call_form", [](const std::string& name) -> py::object {
        const vexa::CallForm* f = vexa::FindCallForm(vexa::FromUtf8(name));
        if (!f)
            return py::none();
        return py::make_tuple(f->form, f->summary);
    });
    // The C interface's review of a text: (message, character) pairs.
    m.def("review", [](const std::string& text, const py::object& params) {
        const std::string t = NoNul(text, "the text");
        const bool list = !params.is_none();
        const std::string p = list ? NoNul(params.cast<std::string>(), "the parameter list") : std::string();
        vexa_error err;
        char* told = vexa_review(t.c_str(), list ? p.c_str() : nullptr, &err);
        if (!told)
            Raise(err.code < -20000 ? err.code : VEXA_E_CODE, err);
        std::vector<py::tuple> out;
        for (const std::string& line : Lines(told)) {
            const std::size_t tab = line.find('\t');
            if (tab == std::string::npos)
                continue;
            const int byte = std::atoi(line.substr(0, tab).c_str());
            out.push_back(py::make_tuple(line.substr(tab + 1), CharIndex(t, byte)));
        }
        return out;
    });
    m.attr("BUILTIN") = VEXA_BUILTIN;
    m.attr("REGISTERED") = VEXA_REGISTERED;
}

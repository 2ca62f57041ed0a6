// The C interface: statuses and codes instead of exceptions, positions in the
// bytes of the host's UTF-8, bulk results equal to single ones bit for bit,
// shaped values, the registry, and one handle used from several threads.
// scripts/tsan.sh runs this file under ThreadSanitizer.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "test_util.h"
#include "vexa/vexa_c.h"

namespace {

struct Expr {
    explicit Expr(const char* text, const char* params = nullptr) : e(vexa_parse(text, params, &err)) {}
    ~Expr() { vexa_free(e); }
    vexa_expr* e;
    vexa_error err;
};

std::string Text(char* t)
{
    std::string s = t ? t : "(null)";
    vexa_free_text(t);
    return s;
}

bool SameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The failures work(k) counts on each of four threads k at once.
template <class Work>
std::vector<int> OnFourThreads(Work work)
{
    std::vector<int> counts(4, 0);
    testutil::OnThreads(4, [&](int k) { counts[static_cast<std::size_t>(k)] = work(k); });
    return counts;
}

// A status or code by name, else the number.
int Code(const std::string& s)
{
    return s == "ok" ? VEXA_OK : s == "code" ? VEXA_E_CODE : s == "null" ? VEXA_E_NULL : s == "refused" ? VEXA_E_REFUSED
         : s == "list" ? VEXA_E_LIST : std::stoi(s);
}

const char* Or(const std::string& s)
{
    return s == "-" ? nullptr : s.c_str();
}

TEST(CApi, OnePointStatusesAndCodes)
{
    const auto cases = testutil::Section("c_api.txt", "point");
    ASSERT_FALSE(cases.empty());
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        Expr x(c[0].c_str(), Or(c[1]));
        ASSERT_TRUE(x.e) << x.err.message;
        const std::vector<double> values = testutil::Numbers(c[2]);
        const vexa_options options = {std::stoi(c[3]), 0};
        const int status = Code(c[4]);
        const double want = std::stod(c[6]);
        double result = -1;
        vexa_error err;
        EXPECT_EQ(vexa_eval_ex(x.e, values.empty() ? nullptr : values.data(), &result, &options, &err), status);
        EXPECT_EQ(err.code, Code(c[5]));
        EXPECT_EQ(err.message[0] == '\0', status == VEXA_OK);
        EXPECT_TRUE(SameBits(result, want) || (std::isnan(want) && std::isnan(result)));
        EXPECT_EQ(vexa_eval_ex(x.e, values.data(), &result, &options, nullptr), status);  // err may be NULL
    }
}

TEST(CApi, ParseFailuresTellCodeAndByteOffset)
{
    auto cases = testutil::Section("c_api.txt", "parse");
    ASSERT_FALSE(cases.empty());
    // Ill-formed UTF-8 never decodes to a character the tokenizer acts on.
    cases.push_back({"x+\xff", "x", "2", "2", "U+FFFD"});
    cases.push_back({"x\xc0\xab" "1", "x", "1", "1", "U+FFFD"});
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        Expr x(Or(c[0]), Or(c[1]));
        EXPECT_EQ(x.e, nullptr);
        EXPECT_EQ(x.err.code, Code(c[2]));
        EXPECT_EQ(x.err.position, std::stoi(c[3]));
        EXPECT_NE(std::strstr(x.err.message, c[4].c_str()), nullptr) << x.err.message;
        EXPECT_EQ(vexa_parse(Or(c[0]), Or(c[1]), nullptr), nullptr);
    }
}

TEST(CApi, NullHandlesAndPointersAreRefused)
{
    double v = 0;
    vexa_error err;
    EXPECT_EQ(vexa_eval(nullptr, &v, &v, &err), VEXA_E_ARGUMENT);
    EXPECT_EQ(vexa_gradient(nullptr, &v, &v, &err), VEXA_E_ARGUMENT);
    EXPECT_EQ(vexa_derivative(nullptr, 0, &err), nullptr);
    EXPECT_EQ(vexa_dump(nullptr, &err), nullptr);
    EXPECT_EQ(vexa_param_count(nullptr), -1);
    EXPECT_EQ(vexa_param_name(nullptr, 0), nullptr);
    Expr x("x*y", "x,y");
    EXPECT_EQ(vexa_eval(x.e, nullptr, &v, &err), VEXA_E_ARGUMENT);
    EXPECT_EQ(vexa_eval_many(x.e, 3, nullptr, &v, &err), VEXA_E_ARGUMENT);
    EXPECT_EQ(vexa_param_name(x.e, 2), nullptr);
    EXPECT_EQ(vexa_derivative(x.e, 2, &err), nullptr);
    EXPECT_EQ(err.code, VEXA_E_ARGUMENT);
    EXPECT_EQ(vexa_functions(4, &err), nullptr);
    vexa_free(nullptr);
    vexa_free_text(nullptr);
}

TEST(CApi, ShapedValues)
{
    double v[] = {1, 2, 3}, w[] = {0, 0, 1}, m[] = {1, 2, 3, 4}, out[9];
    struct Case {
        const char* text;
        const char* params;
        std::vector<vexa_value> in;
        int status;
        int rows, cols;
        std::vector<double> want;
    } cases[] = {
        {"V*2", "V", {{1, 3, v}}, VEXA_OK, 1, 3, {2, 4, 6}},
        {"V%W", "V,W", {{1, 3, v}, {1, 3, w}}, VEXA_OK, 1, 3, {2, -1, 0}},
        {"M*M", "M", {{2, 2, m}}, VEXA_OK, 2, 2, {7, 10, 15, 22}},
        // A parameter without a value is null, and null + 1 is 1.
        {"x+1", "x", {{0, 0, nullptr}}, VEXA_OK, 1, 1, {1}},
        {"x+V", "x,V", {{1, 1, v}, {1, 3, v}}, VEXA_E_CODE, 0, 0, {}},
        {"SQRT(x)", "x", {{1, 1, m}}, VEXA_OK, 1, 1, {1}},
        {"V", "V", {{3, 1, v}}, VEXA_E_ARGUMENT, 0, 0, {}},  // no column vectors
        {"V", "V", {{1, 3, nullptr}}, VEXA_E_ARGUMENT, 0, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        Expr x(c.text, c.params);
        ASSERT_TRUE(x.e);
        vexa_value result = {-1, -1, out};
        vexa_error err;
        EXPECT_EQ(vexa_eval_value(x.e, c.in.data(), &result, 9, &err), c.status) << err.message;
        EXPECT_EQ(result.rows, c.rows);
        EXPECT_EQ(result.cols, c.cols);
        EXPECT_EQ(std::vector<double>(out, out + c.want.size()), c.want);
    }
    // Too small a buffer reports the shape, so the host can size it.
    Expr x("V*M", "V,M");
    const vexa_value in[] = {{1, 2, v}, {2, 2, m}};
    vexa_value result = {0, 0, out};
    EXPECT_EQ(vexa_eval_value(x.e, in, &result, 1, nullptr), VEXA_E_TOO_SMALL);
    EXPECT_EQ(result.rows * 10 + result.cols, 12);
}

TEST(CApi, ManyPointsEqualOnePointBitForBit)
{
    // Point 1 has no value (SQRT(y) is null), point 2 throws (1 + null),
    // point 3 has none either.
    Expr x("SQRT(y)*(1+SQRT(x))*2", "x,y");
    const std::vector<double> xs = {1, 1, -1, 1, 4}, ys = {1, -1, 1, -1, 9};
    const double* columns[] = {xs.data(), ys.data()};
    std::vector<double> results(xs.size());
    vexa_report report;
    vexa_error err;
    EXPECT_EQ(vexa_eval_many_ex(x.e, xs.size(), columns, nullptr, results.data(), nullptr, &report, &err),
              VEXA_E_POINTS);
    EXPECT_EQ(report.failed, 3u);
    EXPECT_EQ(report.thrown, 1u);
    EXPECT_EQ(err.code, -10001);  // the first point that threw, before the first that failed
    EXPECT_EQ(err.position, 2);
    for (std::size_t i = 0; i < xs.size(); ++i) {
        const double point[] = {xs[i], ys[i]};
        double one;
        vexa_eval(x.e, point, &one, nullptr);
        EXPECT_TRUE(SameBits(one, results[i])) << i;
    }

    // Strides: x varies, y is held; a thread per core (0) gives the same.
    const double held = 9;
    const double* stridden[] = {xs.data(), &held};
    const ptrdiff_t strides[] = {1, 0};
    const vexa_options two = {0, 0};
    std::vector<double> again(xs.size());
    vexa_eval_many_ex(x.e, xs.size(), stridden, strides, again.data(), &two, &report, nullptr);
    EXPECT_EQ(report.failed, 1u);
    EXPECT_EQ(again[4], 3 * 3 * 2);
}

// Every element of every point as vexa_eval_value gives it, NaN throughout
// where that has no value of the shape asked for; the first failure told as
// the scalar bulk call tells it.
TEST(CApi, ManyShapedPointsEqualOnePointValues)
{
    const size_t n = 130;  // more than two blocks, for two threads
    std::vector<double> vs(3 * n), ks(n), f = {0.5, -1, 2};
    for (size_t i = 0; i < vs.size(); ++i)
        vs[i] = std::sin(static_cast<double>(i)) * 3;
    for (size_t i = 0; i < n; ++i)
        ks[i] = i % 40 == 7 ? 0.0 : 1.0 + static_cast<double>(i) / 8;
    struct Case {
        const char* text;
        const char* params;
        std::vector<const double*> columns;
        std::vector<ptrdiff_t> strides;  // empty: NULL
        std::vector<int> rows, cols;
        int result_rows, result_cols;
        int status, code;
        size_t failed, thrown;
        int position;
    } cases[] = {
        // 1/k throws at k = 0: points 7, 47, 87, 127.
        {"V*(1/k)+V", "V,k", {vs.data(), ks.data()}, {}, {1, 1}, {3, 1}, 1, 3, VEXA_E_POINTS, -10001, 4, 4, 7},
        {"R%F", "R,F", {vs.data(), f.data()}, {3, 0}, {1, 1}, {3, 3}, 1, 3, VEXA_OK, 0, 0, 0, -1},
        {"R%F", "R,F", {vs.data(), f.data()}, {3, 0}, {1, 1}, {3, 3}, 3, 3, VEXA_E_POINTS, VEXA_E_SHAPE, n, 0, 0},
        {"(u%v)*w", "u,v,w", {vs.data(), f.data(), f.data()}, {3, 0, 0}, {1, 1, 1}, {3, 3, 3}, 1, 3, VEXA_E_POINTS,
         -10001, n, n, 0},
        {"k*2", "k", {ks.data()}, {}, {}, {}, 1, 1, VEXA_OK, 0, 0, 0, -1},
    };
    for (int threads : {1, 2}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.text) + " threads " + std::to_string(threads));
            Expr x(c.text, c.params);
            ASSERT_TRUE(x.e);
            const size_t per = static_cast<size_t>(c.result_rows) * static_cast<size_t>(c.result_cols);
            std::vector<double> results(n * per, -7);
            const vexa_options options = {0, threads};
            vexa_report report;
            vexa_error err;
            EXPECT_EQ(vexa_eval_many_shaped(x.e, n, c.columns.data(), c.strides.empty() ? nullptr : c.strides.data(),
                                            c.rows.empty() ? nullptr : c.rows.data(),
                                            c.cols.empty() ? nullptr : c.cols.data(), c.result_rows, c.result_cols,
                                            results.data(), &options, &report, &err),
                      c.status)
                << err.message;
            EXPECT_EQ(err.code, c.code) << err.message;
            EXPECT_EQ(err.position, c.position);
            EXPECT_EQ(report.failed, c.failed);
            EXPECT_EQ(report.thrown, c.thrown);
            for (size_t i = 0; i < n; ++i) {
                std::vector<vexa_value> in;
                for (size_t k = 0; k < c.columns.size(); ++k) {
                    const int r = c.rows.empty() ? 1 : c.rows[k], l = c.cols.empty() ? 1 : c.cols[k];
                    const ptrdiff_t stride = c.strides.empty() ? r * l : c.strides[k];
                    in.push_back({r, l, const_cast<double*>(c.columns[k] + static_cast<ptrdiff_t>(i) * stride)});
                }
                double one[9];
                vexa_value result = {0, 0, one};
                const bool has = vexa_eval_value(x.e, in.data(), &result, 9, nullptr) == VEXA_OK &&
                                 result.rows == c.result_rows && result.cols == c.result_cols;
                for (size_t e = 0; e < per; ++e) {
                    const double got = results[i * per + e];
                    EXPECT_TRUE(has ? SameBits(got, one[e]) : std::isnan(got)) << i << " " << e;
                }
            }
        }
    }
}

TEST(CApi, ExactGradientAndDerivative)
{
    Expr x("x*x*y+STEP(x,0,0,1,y)", "x,y");
    const double point[] = {0.5, 2};
    double grad[2];
    ASSERT_EQ(vexa_gradient(x.e, point, grad, nullptr), VEXA_OK);
    EXPECT_DOUBLE_EQ(grad[1], 0.25 + 0.5);  // through STEP's height as well
    vexa_error err;
    vexa_expr* d = vexa_derivative(x.e, 1, nullptr);
    ASSERT_TRUE(d);
    EXPECT_EQ(vexa_param_count(d), 2);
    double slope;
    EXPECT_EQ(vexa_eval(d, point, &slope, nullptr), VEXA_OK);
    EXPECT_DOUBLE_EQ(slope, 0.25);  // the tree's derivative: STEP through its first argument only
    vexa_free(d);
    // The exact one follows STEP's other arguments, nests, and refuses what the other does.
    d = vexa_exact_derivative(x.e, 1, nullptr);
    vexa_expr* d2 = vexa_exact_derivative(d, 0, nullptr);
    ASSERT_TRUE(d && d2);
    EXPECT_EQ(vexa_eval(d, point, &slope, nullptr), VEXA_OK);
    EXPECT_EQ(slope, grad[1]);
    double H[4];
    ASSERT_EQ(vexa_hessian(x.e, point, H, nullptr), VEXA_OK);
    EXPECT_EQ(vexa_eval(d2, point, &slope, nullptr), VEXA_OK);
    EXPECT_EQ(slope, H[2]);
    EXPECT_EQ(vexa_exact_derivative(x.e, -1, &err), nullptr);
    EXPECT_EQ(err.code, VEXA_E_ARGUMENT);
    vexa_free(d2);
    vexa_free(d);

    // Nested MAX doubles the derivative tree per level: past the node budget.
    std::string deep = "x";
    for (int i = 0; i < 24; ++i)
        deep = "MAX(" + deep + ",x*" + std::to_string(i) + ")";
    Expr big(deep.c_str(), "x");
    EXPECT_EQ(vexa_derivative(big.e, 0, &err), nullptr);
    EXPECT_EQ(err.code, VEXA_E_NO_DERIVATIVE);
    d = vexa_exact_derivative(big.e, 0, nullptr);
    const double at = 0.5;
    EXPECT_EQ(vexa_eval(d, &at, &slope, nullptr), VEXA_OK);
    EXPECT_EQ(slope, 23.0);
    vexa_free(d);
}

TEST(CApi, TextsOfATree)
{
    Expr x("2*x+{d}", "x");
    EXPECT_EQ(Text(vexa_tree_text(x.e, nullptr)), "(2*x)+{d}");
    const std::string dump = Text(vexa_dump(x.e, nullptr));
    EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 5);
    EXPECT_EQ(std::string(vexa_param_name(x.e, 1)), "{d}");
    EXPECT_TRUE(vexa_can_plot(x.e));
    Expr contact("IMPACT({x},{v},0,1,1,1,1)");
    EXPECT_FALSE(vexa_can_plot(contact.e));
    const std::string builtIn = Text(vexa_functions(VEXA_BUILTIN, nullptr));
    // Only what a text can call: the registry's internal add, cos and sin are not.
    EXPECT_EQ(std::count(builtIn.begin(), builtIn.end(), '\n'), 97);
    EXPECT_EQ(builtIn.compare(0, 4, "ABS\n"), 0);
    for (const char* internal : {"\nadd\n", "\ncos\n", "\nsin\n"})
        EXPECT_EQ(builtIn.find(internal), std::string::npos) << internal;
    EXPECT_NE(builtIn.find("\nSIN\n"), std::string::npos);
}

TEST(CApi, RegisteringAndUnregistering)
{
    Expr twice("2*a", "a");
    vexa_error err;
    EXPECT_EQ(vexa_register("SIN", twice.e, &err), VEXA_E_NOT_REGISTERED);
    ASSERT_EQ(vexa_register("CTWICE", twice.e, &err), VEXA_OK) << err.message;
    EXPECT_EQ(vexa_register("CTWICE", twice.e, &err), VEXA_E_NOT_REGISTERED);
    EXPECT_NE(Text(vexa_functions(VEXA_REGISTERED, nullptr)).find("CTWICE\n"), std::string::npos);

    Expr caller("CTWICE(x)+POLY(x,0,1)", "x");
    ASSERT_TRUE(caller.e) << caller.err.message;
    EXPECT_EQ(Text(vexa_registered_calls(caller.e, nullptr)), "CTWICE\n");
    vexa_expr* d = vexa_derivative(caller.e, 0, nullptr);
    EXPECT_EQ(Text(vexa_registered_calls(d, nullptr)), "CTWICE\n");  // through its numeric derivative
    vexa_free(d);

    EXPECT_EQ(vexa_unregister("CTWICE", &err), VEXA_OK);
    EXPECT_EQ(vexa_unregister("CTWICE", &err), VEXA_E_NOT_REGISTERED);
    EXPECT_EQ(vexa_unregister("SIN", &err), VEXA_E_NOT_REGISTERED);
    // What was parsed before keeps its function.
    const double three = 3;
    double v;
    EXPECT_EQ(vexa_eval(caller.e, &three, &v, nullptr), VEXA_OK);
    EXPECT_EQ(v, 7);
    Expr later("CTWICE(x)", "x");
    EXPECT_EQ(later.e, nullptr);
}

TEST(CApi, OneHandleManyThreads)
{
    Expr x("STEP(t,0,0,1,a)*SIN(3*t)+LOG(t)", "t,a");
    const int kPoints = 400;
    std::vector<double> t(kPoints), a(kPoints, 2.0), serial(kPoints), grads(2 * kPoints);
    for (int i = 0; i < kPoints; ++i)
        t[static_cast<std::size_t>(i)] = -0.5 + 0.005 * i;
    const double* columns[] = {t.data(), a.data()};
    vexa_eval_many(x.e, kPoints, columns, serial.data(), nullptr);
    vexa_gradient_many(x.e, kPoints, columns, nullptr, nullptr, grads.data(), nullptr, nullptr, nullptr);

    const std::vector<int> mismatches = OnFourThreads([&](int k) {
        int bad = 0;
        for (int i = k; i < kPoints; i += 2) {
            const std::size_t p = static_cast<std::size_t>(i);
            const double point[] = {t[p], a[p]};
            double v, g[2], many;
            vexa_eval(x.e, point, &v, nullptr);
            vexa_gradient(x.e, point, g, nullptr);
            const double* one[] = {&t[p], &a[p]};
            vexa_eval_many(x.e, 1, one, &many, nullptr);
            bad += !SameBits(v, serial[p]) || !SameBits(many, serial[p]) || !SameBits(g[1], grads[2 * p + 1]);
        }
        return bad;
    });
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

// Counts and strides no buffer can match, as a negative count turned
// unsigned gives them, shapes the language has not and missing data: every
// bulk entry refuses them before writing (which reaches are refused is
// tested in C++; here that each entry asks, with the gradient's partials
// and the shaped values' elements counted).
TEST(CApi, CountsBeyondAnyBufferAreRefused)
{
    const size_t kMax = static_cast<size_t>(-1);
    const size_t kMostDoubles = static_cast<size_t>(PTRDIFF_MAX) / sizeof(double);
    enum Entry { kMany, kManyEx, kGradientMany, kShaped };
    struct Case {
        Entry entry;
        size_t n;
        ptrdiff_t stride;
        int rows, cols, result_cols;  // of the shaped entry's first value and result
        bool data;
    } cases[] = {
        {kMany, kMax, 1, 1, 1, 1, true}, {kManyEx, 3, PTRDIFF_MIN, 1, 1, 1, true},
        {kGradientMany, kMostDoubles / 2 + 1, 1, 1, 1, 1, true}, {kGradientMany, 3, -(PTRDIFF_MAX / 8), 1, 1, 1, true},
        {kShaped, 2, 3, 3, 1, 3, true}, {kShaped, 2, 3, 1, 3, 0, true}, {kShaped, 2, 3, 1, 3, 3, false},
        {kShaped, kMax, 3, 1, 3, 3, true},
    };
    Expr compiled("x*y+1", "x,y"), shaped("R*k", "R,k");
    ASSERT_TRUE(compiled.e && shaped.e);
    const double r[] = {1, 2, 3}, k = 2;
    double x = 2, y = 3;
    const double* columns[] = {&x, &y};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.entry) + " n " + std::to_string(c.n) + " stride " + std::to_string(c.stride));
        const ptrdiff_t strides[] = {c.stride, c.entry == kShaped ? 0 : c.stride};
        const double* values[] = {c.data ? r : nullptr, &k};
        const int rows[] = {c.rows, 1}, cols[] = {c.cols, 1};
        double out[3] = {-7, -7, -7}, grads[4] = {-7, -7, -7, -7};
        vexa_report report = {5, 5};
        vexa_error err;
        const int status =
            c.entry == kMany ? vexa_eval_many(compiled.e, c.n, columns, out, &err)
            : c.entry == kManyEx ? vexa_eval_many_ex(compiled.e, c.n, columns, strides, out, nullptr, &report, &err)
            : c.entry == kGradientMany
                ? vexa_gradient_many(compiled.e, c.n, columns, strides, out, grads, nullptr, &report, &err)
                : vexa_eval_many_shaped(shaped.e, c.n, values, strides, rows, cols, 1, c.result_cols, out, nullptr,
                                        &report, &err);
        EXPECT_EQ(status, VEXA_E_ARGUMENT) << err.message;
        EXPECT_EQ(err.code, VEXA_E_ARGUMENT);
        EXPECT_EQ(out[0], -7);
        EXPECT_EQ(grads[0], -7);
        EXPECT_EQ(report.failed, c.entry == kMany ? 5u : 0u);
    }
    // The largest strides that still reach: one point reads no stride at all.
    const ptrdiff_t far[] = {PTRDIFF_MAX, PTRDIFF_MIN};
    double out = 0;
    EXPECT_EQ(vexa_eval_many_ex(compiled.e, 1, columns, far, &out, nullptr, nullptr, nullptr), VEXA_OK);
    EXPECT_EQ(out, 7);
}

// Registered functions nested deeper than a form can copy leave a handle
// without one; its evaluations take turns on the tree, none refused.
TEST(CApi, HandleWithoutFormServesManyThreads)
{
    const int kLevels = 70;
    std::vector<std::string> names;
    for (int i = 0; i < kLevels; ++i)
        names.push_back(std::string("NESTED") + char('A' + i / 26) + char('A' + i % 26));
    for (int i = 0; i < kLevels; ++i) {
        const std::string text = i == 0 ? "u+1" : names[static_cast<std::size_t>(i - 1)] + "(u)+1";
        Expr f(text.c_str(), "u");
        ASSERT_TRUE(f.e) << text << ": " << f.err.message;
        vexa_error err;
        ASSERT_EQ(vexa_register(names[static_cast<std::size_t>(i)].c_str(), f.e, &err), VEXA_OK) << err.message;
    }
    const std::string top = names.back() + "(x)*2";
    Expr x(top.c_str(), "x");
    ASSERT_TRUE(x.e) << x.err.message;
    double g = 0, v = 0;
    const double half = 0.5;
    vexa_error err;
    ASSERT_EQ(vexa_gradient(x.e, &half, &g, &err), VEXA_E_NO_GRADIENT) << "the handle has a form";
    ASSERT_EQ(vexa_eval(x.e, &half, &v, &err), VEXA_OK) << err.message;
    EXPECT_EQ(v, 2 * (0.5 + kLevels));

    const std::vector<int> failures = OnFourThreads([&](int k) {
        int bad = 0;
        for (int i = 0; i < 50; ++i) {
            const double p = k + i * 0.25;
            const double* column[] = {&p};
            double one = 0, many[3] = {0, 0, 0};
            const ptrdiff_t held[] = {0};
            const int a = vexa_eval(x.e, &p, &one, nullptr);
            const int b = vexa_eval_many_ex(x.e, 3, column, held, many, nullptr, nullptr, nullptr);
            const double want = 2 * (p + kLevels);
            bad += a != VEXA_OK || b != VEXA_OK || one != want || many[0] != want || many[2] != want;
        }
        return bad;
    });
    EXPECT_EQ(failures, std::vector<int>(4, 0));

    // Vectors through the tree alone, point by point, failures told alike.
    const std::string scaled = names.back() + "(k)*V";
    Expr s(scaled.c_str(), "k,V");
    ASSERT_TRUE(s.e) << s.err.message;
    const double ks[] = {0, 1}, vee[] = {1, 2, 3};
    const double* shaped[] = {ks, vee};
    const ptrdiff_t strides[] = {1, 0};
    const int rows[] = {1, 1}, cols[] = {1, 3};
    double out[18];
    EXPECT_EQ(vexa_eval_many_shaped(s.e, 2, shaped, strides, rows, cols, 1, 3, out, nullptr, nullptr, &err), VEXA_OK)
        << err.message;
    EXPECT_EQ(out[5], 3 * (1.0 + kLevels));
    vexa_report report;
    EXPECT_EQ(vexa_eval_many_shaped(s.e, 2, shaped, strides, rows, cols, 3, 3, out, nullptr, &report, &err),
              VEXA_E_POINTS);
    EXPECT_EQ(err.code, VEXA_E_SHAPE);
    EXPECT_EQ(report.failed, 2u);
    EXPECT_TRUE(std::isnan(out[17]));
    for (auto it = names.rbegin(); it != names.rend(); ++it)
        vexa_unregister(it->c_str(), nullptr);
}

}  // namespace

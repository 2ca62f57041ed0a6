// What the C interface checks before the parser sees a host's input: the
// parameter list (every name a text can contain, in the host's order; empty,
// spaced and repeated names refused) and white space other than the space
// (cases in data/c_api_inputs.txt).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "test_util.h"
#include "vexa/parser/parse_diagnosis.h"
#include "vexa/vexa_c.h"

namespace {

std::vector<std::string> Names(const vexa_expr* e)
{
    std::vector<std::string> names;
    for (int i = 0; i < vexa_param_count(e); ++i)
        names.push_back(vexa_param_name(e, i));
    return names;
}

std::vector<std::vector<std::string>> Cases(const char* test)
{
    const auto cases = testutil::Section("c_api_inputs.txt", test);
    EXPECT_FALSE(cases.empty()) << test;
    return cases;
}

int Status(const std::string& name)
{
    return name == "code" ? VEXA_E_CODE : name == "refused" ? VEXA_E_REFUSED : name == "null" ? VEXA_E_NULL : VEXA_OK;
}

TEST(CApiInputs, ListedNamesKeepTheHostsOrder)
{
    for (const auto& c : Cases("order")) {
        SCOPED_TRACE(c[0] + " | " + c[1]);
        const std::vector<double> values = testutil::Numbers(c[3]);
        const double value = std::stod(c[4]);
        vexa_error err;
        vexa_expr* e = vexa_parse(c[0].c_str(), c[1].c_str(), &err);
        ASSERT_TRUE(e) << err.message;
        std::string names;
        for (const std::string& name : Names(e))
            names += (names.empty() ? "" : " ") + name;
        EXPECT_EQ(names, c[2]);
        double v = 0;
        EXPECT_EQ(vexa_eval(e, values.data(), &v, &err), VEXA_OK) << err.message;
        EXPECT_EQ(v, value);
        // The bulk path and the tree read the same order.
        std::vector<const double*> columns;
        std::vector<vexa_value> shaped;
        for (const double& x : values) {
            columns.push_back(&x);
            shaped.push_back({1, 1, const_cast<double*>(&x)});
        }
        double many = 0;
        EXPECT_EQ(vexa_eval_many(e, 1, columns.data(), &many, &err), VEXA_OK) << err.message;
        EXPECT_EQ(many, value);
        double out = 0;
        vexa_value result = {0, 0, &out};
        EXPECT_EQ(vexa_eval_value(e, shaped.data(), &result, 1, &err), VEXA_OK) << err.message;
        EXPECT_EQ(out, value);
        // Gradients and derivatives too: each partial where its name stands,
        // as a difference of values in the host's order tells.
        std::vector<double> grad(values.size()), at = values;
        if (!values.empty()) {
            ASSERT_EQ(vexa_gradient(e, values.data(), grad.data(), &err), VEXA_OK) << err.message;
        }
        for (std::size_t k = 0; k < values.size(); ++k) {
            double up = 0, down = 0;
            at[k] = values[k] + 1e-3;
            vexa_eval(e, at.data(), &up, nullptr);
            at[k] = values[k] - 1e-3;
            vexa_eval(e, at.data(), &down, nullptr);
            at[k] = values[k];
            EXPECT_NEAR(grad[k], (up - down) / 2e-3, 1e-6) << k;
            vexa_expr* d = vexa_derivative(e, static_cast<int>(k), &err);
            ASSERT_TRUE(d) << err.message;
            EXPECT_EQ(vexa_eval(d, values.data(), &v, &err), VEXA_OK);
            EXPECT_EQ(v, grad[k]) << k;
            vexa_free(d);
        }
        vexa_free(e);
    }
}

TEST(CApiInputs, MalformedListsAreRefused)
{
    for (const auto& c : Cases("list")) {
        SCOPED_TRACE(c[0]);
        vexa_error err;
        EXPECT_EQ(vexa_parse("x+1", c[0].c_str(), &err), nullptr);
        EXPECT_EQ(err.code, VEXA_E_LIST);
        EXPECT_EQ(err.position, std::stoi(c[1]));
        EXPECT_NE(std::strstr(err.message, c[2].c_str()), nullptr) << err.message;
        EXPECT_NE(std::strstr(err.message, "parameter-name list is rejected"), nullptr) << err.message;
    }
}

TEST(CApiInputs, OtherWhiteSpaceReadsAsSpaces)
{
    for (const auto& c : Cases("space")) {
        SCOPED_TRACE(c[0]);
        const double x = std::stod(c[1]);
        vexa_error err;
        vexa_expr* e = vexa_parse(c[0].c_str(), "x", &err);
        if (c[2] == "fails") {
            EXPECT_EQ(e, nullptr);
            EXPECT_EQ(err.position, std::stoi(c[3])) << err.message;
            continue;
        }
        ASSERT_TRUE(e) << err.message;
        double v = 0;
        EXPECT_EQ(vexa_eval(e, &x, &v, &err), VEXA_OK) << err.message;
        EXPECT_EQ(v, std::stod(c[2]));
        vexa_free(e);
    }
}

TEST(CApiInputs, RegisterRefusesNamesNoTextCanCall)
{
    vexa_error err;
    vexa_expr* e = vexa_parse("B+A", "A,B", &err);
    ASSERT_TRUE(e) << err.message;
    std::vector<std::vector<std::string>> refused = Cases("register");
    refused.push_back({"\xff\xfe", "begins with a letter"});
    for (const auto& c : refused) {
        SCOPED_TRACE(c[0]);
        EXPECT_EQ(vexa_register(c[0].c_str(), e, &err), VEXA_E_NOT_REGISTERED);
        EXPECT_NE(std::strstr(err.message, c[1].c_str()), nullptr) << err.message;
    }
    ASSERT_EQ(vexa_register("OFFS2", e, &err), VEXA_OK) << err.message;
    EXPECT_EQ(vexa_register("OFFS2", e, &err), VEXA_E_NOT_REGISTERED);
    EXPECT_NE(std::strstr(err.message, "registered already"), nullptr) << err.message;

    // The parser lets the function decide; a call that fails says what it takes.
    vexa_expr* few = vexa_parse("2*OFFS2(x)+1", "x", &err);
    ASSERT_TRUE(few) << err.message;
    const double at = 5;
    double got = 0;
    const vexa_options strict = {1, 1};
    EXPECT_EQ(vexa_eval_ex(few, &at, &got, &strict, &err), VEXA_E_REFUSED);
    EXPECT_EQ(err.position, 2);
    EXPECT_NE(std::strstr(err.message, "'OFFS2(x)' calls OFFS2 with 1 argument: OFFS2 takes 2 arguments"), nullptr)
        << err.message;
    vexa_free(few);

    EXPECT_EQ(vexa_unregister("OFFS2", &err), VEXA_OK);
    EXPECT_TRUE(vexa::ReviewText(L"OFFS2(x)").empty());  // unknown again: no count to compare
    vexa_free(e);
}

TEST(CApiInputs, FailedEvaluationsNameTheirCause)
{
    for (const auto& row : Cases("cause")) {
        SCOPED_TRACE(row[0]);
        const struct {
            const char* text;
            double x;
            int strict, status, position;
            const char* says;
        } c = {row[0].c_str(), std::stod(row[1]), std::stoi(row[2]), Status(row[3]), std::stoi(row[4]), row[5].c_str()};
        vexa_error err;
        vexa_expr* e = vexa_parse(c.text, "x", &err);
        ASSERT_TRUE(e) << err.message;
        const int count = vexa_param_count(e);
        std::vector<double> point(static_cast<std::size_t>(count), 0.0);
        point[0] = c.x;  // x is listed: the first
        const vexa_options options = {c.strict, 1};
        double v = 0;
        // Every entry tells the same cause at the same place.
        const auto told = [&](int status, int want, int position) {
            EXPECT_EQ(status, want);
            EXPECT_EQ(err.position, position) << err.message;
            EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
        };
        told(vexa_eval_ex(e, point.data(), &v, &options, &err), c.status, c.position);
        // The thrown code is the one it always was.
        if (c.status == VEXA_E_CODE) {
            EXPECT_EQ(err.code, -10001);
        }
        std::vector<vexa_value> shaped;
        for (double& v : point)
            shaped.push_back({1, 1, &v});
        double out1 = 0;
        vexa_value result = {0, 0, &out1};
        if (!c.strict)
            told(vexa_eval_value(e, shaped.data(), &result, 1, &err), c.status, c.position);
        // No gradient where there is no value.
        std::vector<double> grad(static_cast<std::size_t>(count));
        told(vexa_gradient(e, point.data(), grad.data(), &err) == VEXA_OK ? VEXA_OK : -1, -1, c.position);
        // Over many points: the point told of is the second.
        std::vector<std::vector<double>> values(static_cast<std::size_t>(count), std::vector<double>(2, 0.0));
        values[0] = {2.5, c.x};
        std::vector<const double*> columns;
        for (const std::vector<double>& column : values)
            columns.push_back(column.data());
        double out[2];
        told(vexa_eval_many_ex(e, 2, columns.data(), nullptr, out, &options, nullptr, &err), VEXA_E_POINTS, 1);
        std::vector<double> grads(2 * static_cast<std::size_t>(count));
        told(vexa_gradient_many(e, 2, columns.data(), nullptr, nullptr, grads.data(), &options, nullptr, &err),
             VEXA_E_POINTS, 1);
        vexa_free(e);
    }
}

std::string Reviewed(const char* text, const char* params, vexa_error* err)
{
    char* lines = vexa_review(text, params, err);
    if (!lines)
        return "(null)";
    std::string out = lines;
    vexa_free_text(lines);
    return out;
}

TEST(CApiInputs, ReviewOfTexts)
{
    vexa_error err;
    vexa_expr* offs = vexa_parse("B+A", "A,B", &err);
    ASSERT_EQ(vexa_register("ROFFS", offs, &err), VEXA_OK) << err.message;
    for (const auto& c : Cases("review")) {
        SCOPED_TRACE(c[0]);
        const std::string told = Reviewed(c[0].c_str(), c[1] == "-" ? nullptr : c[1].c_str(), &err);
        if (c[2].empty()) {
            EXPECT_EQ(told, "");
        } else {
            EXPECT_EQ(told.compare(0, c[2].size(), c[2]), 0) << told;
            EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
        }
    }
    // What vexa_parse refuses, this refuses alike.
    EXPECT_EQ(Reviewed("x+", "x", &err), "(null)");
    EXPECT_NE(std::strstr(err.message, "operand"), nullptr) << err.message;
    EXPECT_EQ(Reviewed("x", "x,", &err), "(null)");
    EXPECT_EQ(err.code, VEXA_E_LIST);
    EXPECT_EQ(Reviewed(nullptr, nullptr, nullptr), "(null)");
    EXPECT_EQ(vexa_unregister("ROFFS", &err), VEXA_OK);
    vexa_free(offs);
}

TEST(CApiInputs, VersionAndMachineCode)
{
    int major = -1, minor = -1, patch = -1;
    char rest = 0;
    EXPECT_EQ(std::sscanf(vexa_version(), "%d.%d.%d%c", &major, &minor, &patch, &rest), 3) << vexa_version();
    const std::string code = vexa_machine_code();
#if defined(__x86_64__) && defined(__linux__)
    EXPECT_EQ(code, "x86-64 (System V)");
#elif defined(__aarch64__) && defined(__linux__)
    EXPECT_EQ(code, "AArch64");
#elif defined(__x86_64__) && defined(_WIN32)
    EXPECT_EQ(code, "x86-64 (Windows)");
#elif defined(_WIN32)
    EXPECT_EQ(code, "none");  // the interpreter runs there for now
#else
    EXPECT_TRUE(code == "x86-64 (System V)" || code == "none") << code;
#endif
}

}  // namespace

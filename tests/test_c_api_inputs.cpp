// What the C interface checks before the parser sees a host's input: the
// parameter list (every name a text can contain, in the host's order; empty,
// spaced and repeated names refused) and white space other than the space.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

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

struct OrderCase {
    const char* text;
    const char* params;
    std::vector<std::string> names;
    std::vector<double> values;  // in the order of names
    double value;
};

TEST(CApiInputs, ListedNamesKeepTheHostsOrder)
{
    const OrderCase cases[] = {
        {"K2*X2+K1*X1", "K1,X1,K2,X2", {"K1", "X1", "K2", "X2"}, {1, 2, 3, 4}, 14},
        {"TIME*T0+H", "TIME,T0,H", {"TIME", "T0", "H"}, {2, 3, 1}, 7},
        {"{DIST}*2+x", "x,{DIST}", {"x", "{DIST}"}, {1, 5}, 11},
        {"x-y", "y", {"y", "x"}, {1, 5}, 4},
        // Matched without regard to case, as the parser matches.
        {"a*B1-c", "b1,A", {"b1", "A", "c"}, {2, 3, 1}, 5},
        // A listed name the text does not use keeps its place.
        {"x*10", "Q1,x,{V}", {"Q1", "x", "{V}"}, {7, 2, 9}, 20},
        {"x/y", " x ,\ty ", {"x", "y"}, {6, 3}, 2},
        {"A1+B", "B", {"B", "A1"}, {1, 2}, 3},
        {"3", " \t", {}, {}, 3},
    };
    for (const OrderCase& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " | " + c.params);
        vexa_error err;
        vexa_expr* e = vexa_parse(c.text, c.params, &err);
        ASSERT_TRUE(e) << err.message;
        EXPECT_EQ(Names(e), c.names);
        double v = 0;
        EXPECT_EQ(vexa_eval(e, c.values.data(), &v, &err), VEXA_OK) << err.message;
        EXPECT_EQ(v, c.value);
        // The bulk path and the tree read the same order.
        std::vector<const double*> columns;
        for (const double& x : c.values)
            columns.push_back(&x);
        double many = 0;
        EXPECT_EQ(vexa_eval_many(e, 1, columns.data(), &many, &err), VEXA_OK) << err.message;
        EXPECT_EQ(many, c.value);
        std::vector<vexa_value> shaped;
        for (const double& x : c.values)
            shaped.push_back({1, 1, const_cast<double*>(&x)});
        double out = 0;
        vexa_value result = {0, 0, &out};
        EXPECT_EQ(vexa_eval_value(e, shaped.data(), &result, 1, &err), VEXA_OK) << err.message;
        EXPECT_EQ(out, c.value);
        vexa_free(e);
    }
}

TEST(CApiInputs, GradientsAndDerivativesFollowTheHostsOrder)
{
    vexa_error err;
    vexa_expr* e = vexa_parse("K2*X2+K1*X1", "K1,X1,K2,X2", &err);
    ASSERT_TRUE(e) << err.message;
    const double at[] = {1, 2, 3, 4};
    double grad[4];
    ASSERT_EQ(vexa_gradient(e, at, grad, &err), VEXA_OK) << err.message;
    const double expected[] = {2, 1, 4, 3};
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(grad[k], expected[k]) << k;
        vexa_expr* d = vexa_derivative(e, k, &err);
        ASSERT_TRUE(d) << err.message;
        double v = 0;
        EXPECT_EQ(vexa_eval(d, at, &v, &err), VEXA_OK);
        EXPECT_EQ(v, expected[k]) << k;
        vexa_free(d);
    }
    vexa_free(e);
}

struct RefusedCase {
    const char* params;
    int position;  // bytes into the list
    const char* says;
};

TEST(CApiInputs, MalformedListsAreRefused)
{
    const RefusedCase cases[] = {
        {"x,", 2, "list ends with a comma"},
        {"x,,y", 2, "two commas"},
        {",x", 0, "starts with a comma"},
        {"x y", 1, "holds a space"},
        {"TIME AMP", 4, "holds a space"},
        {"x,y,X", 4, "given twice"},
        {"1X", 0, "begins with a letter"},
        {"x_1", 1, "'_' cannot stand there"},
        {"a}b", 1, "'}' cannot stand there"},
        {"{A}B", 3, "cannot stand there"},
        {"y,PI", 2, "named constant"},
        {"SIN,y", 0, "name of a function"},
        {"y,atan2", 2, "name of a function"},
        {"\xc2\xa0x,x\xc3\xa4", 5, "U+00E4"},
    };
    for (const RefusedCase& c : cases) {
        SCOPED_TRACE(c.params);
        vexa_error err;
        EXPECT_EQ(vexa_parse("x+1", c.params, &err), nullptr);
        EXPECT_EQ(err.code, VEXA_E_LIST);
        EXPECT_EQ(err.position, c.position);
        EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
        EXPECT_NE(std::strstr(err.message, "parameter-name list is rejected"), nullptr) << err.message;
    }
}

struct SpaceCase {
    const char* text;
    double x;
    int status;
    double value;
    int position;
};

TEST(CApiInputs, OtherWhiteSpaceReadsAsSpaces)
{
    const SpaceCase cases[] = {
        {"2*x\t+\r\n1", 3, VEXA_OK, 7, -1},
        {"\xef\xbb\xbf" "x+1", 1, VEXA_OK, 2, -1},
        {"x\xc2\xa0*\xc2\xa0" "4\n", 2, VEXA_OK, 8, -1},
        {"IF(x\t:1,\n2,3)", 0, VEXA_OK, 2, -1},
        // Positions still count bytes of the text as passed.
        {"x\t+\xc2\xa0#", 1, VEXA_E_CODE, 0, 5},
        // Only a mark at the start is white space.
        {"x+\xef\xbb\xbf" "1", 1, VEXA_E_CODE, 0, 2},
    };
    for (const SpaceCase& c : cases) {
        SCOPED_TRACE(c.text);
        vexa_error err;
        vexa_expr* e = vexa_parse(c.text, "x", &err);
        if (c.status != VEXA_OK) {
            EXPECT_EQ(e, nullptr);
            EXPECT_EQ(err.position, c.position) << err.message;
            continue;
        }
        ASSERT_TRUE(e) << err.message;
        double v = 0;
        EXPECT_EQ(vexa_eval(e, &c.x, &v, &err), VEXA_OK) << err.message;
        EXPECT_EQ(v, c.value);
        vexa_free(e);
    }
}

TEST(CApiInputs, RegisterRefusesNamesNoTextCanCall)
{
    vexa_error err;
    vexa_expr* e = vexa_parse("B+A", "A,B", &err);
    ASSERT_TRUE(e) << err.message;
    const struct {
        const char* name;
        const char* says;
    } refused[] = {
        {"TIME", "keyword"},         {"CycleAngle", "upper-case"}, {"A B", "only the letters"},
        {"\xff\xfe", "begins with a letter"}, {"offs", "upper-case"}, {"PI", "named constant"},
        {"SIN", "built-in"},         {"ATAN2", "built-in"},         {"2X", "begins with a letter"},
        {"X_1", "only the letters"}, {"{F}", "begins with a letter"},
    };
    for (const auto& c : refused) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(vexa_register(c.name, e, &err), VEXA_E_NOT_REGISTERED);
        EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
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

    // The parser lets the function decide; the review of a text tells.
    const auto warnings = vexa::ReviewText(L"x + OFFS2(x) + OFFS2(x, 1)");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].kind, vexa::TextWarningKind::kArgumentCount);
    EXPECT_EQ(warnings[0].position, 4);
    EXPECT_EQ(warnings[0].message, "OFFS2 is called with 1 argument, but OFFS2 takes 2 arguments");
    vexa_expr* right = vexa_parse("OFFS2(x,1)", "x", &err);
    ASSERT_TRUE(right) << err.message;
    const double x = 5;
    double v = 0;
    EXPECT_EQ(vexa_eval(right, &x, &v, &err), VEXA_OK);
    EXPECT_EQ(v, 6);
    vexa_free(right);
    EXPECT_EQ(vexa_unregister("OFFS2", &err), VEXA_OK);
    EXPECT_TRUE(vexa::ReviewText(L"OFFS2(x)").empty());  // unknown again: no count to compare
    vexa_free(e);
}

struct CauseCase {
    const char* text;
    double x;
    int strict;
    int status;
    int position;  // bytes into the text
    const char* says;
};

TEST(CApiInputs, FailedEvaluationsNameTheirCause)
{
    const CauseCase cases[] = {
        {"2*x/(x-1)", 1, 0, VEXA_E_CODE, 3, "division by zero in '2*x/(x-1)': the divisor 'x-1' is 0"},
        // Bytes: the braced name before holds a two-byte character.
        {"{\xc3\xa4}*0 + 1/x", 0, 0, VEXA_E_CODE, 10, "division by zero in '1/x'"},
        {"1 + SQRT(x)", -1, 0, VEXA_E_CODE, 4, "SQRT refuses (-1), which leaves the operator '+' without"},
        {"LOG(x) + 5", -1, 1, VEXA_E_REFUSED, 0, "strict evaluation: 'LOG(x)' has no value: LOG refuses (-1)"},
        {"SQRT(x)", -1, 0, VEXA_E_NULL, 0, "SQRT refuses (-1)"},
    };
    for (const CauseCase& c : cases) {
        SCOPED_TRACE(c.text);
        vexa_error err;
        vexa_expr* e = vexa_parse(c.text, "x", &err);
        ASSERT_TRUE(e) << err.message;
        const int count = vexa_param_count(e);
        std::vector<double> point(static_cast<std::size_t>(count), 0.0);
        point[0] = c.x;  // x is listed: the first
        const vexa_options options = {c.strict, 1};
        double v = 0;
        EXPECT_EQ(vexa_eval_ex(e, point.data(), &v, &options, &err), c.status);
        EXPECT_EQ(err.position, c.position) << err.message;
        EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
        // The thrown code is the one it always was.
        if (c.status == VEXA_E_CODE) {
            EXPECT_EQ(err.code, -10001);
        }
        // Values of any shape: the same cause and place.
        std::vector<vexa_value> shaped;
        for (double& v : point)
            shaped.push_back({1, 1, &v});
        double out1 = 0;
        vexa_value result = {0, 0, &out1};
        if (!c.strict) {
            EXPECT_EQ(vexa_eval_value(e, shaped.data(), &result, 1, &err), c.status);
            EXPECT_EQ(err.position, c.position) << err.message;
            EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
        }
        // No gradient where there is no value, for the same cause at the same place.
        std::vector<double> grad(static_cast<std::size_t>(count));
        EXPECT_NE(vexa_gradient(e, point.data(), grad.data(), &err), VEXA_OK);
        EXPECT_EQ(err.position, c.position) << err.message;
        EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
        // Over many points: the same cause for the point told of.
        std::vector<std::vector<double>> values(static_cast<std::size_t>(count), std::vector<double>(2, 0.0));
        values[0] = {2.5, c.x};
        std::vector<const double*> columns;
        for (const std::vector<double>& column : values)
            columns.push_back(column.data());
        double out[2];
        EXPECT_EQ(vexa_eval_many_ex(e, 2, columns.data(), nullptr, out, &options, nullptr, &err), VEXA_E_POINTS);
        EXPECT_EQ(err.position, 1);
        EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
        std::vector<double> grads(2 * static_cast<std::size_t>(count));
        EXPECT_EQ(vexa_gradient_many(e, 2, columns.data(), nullptr, nullptr, grads.data(), &options, nullptr, &err),
                  VEXA_E_POINTS);
        EXPECT_EQ(err.position, 1);
        EXPECT_NE(std::strstr(err.message, c.says), nullptr) << err.message;
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
    const struct {
        const char* text;
        const char* params;
        const char* lines;  // as told: byte offset, tab, message
    } cases[] = {
        {"2*x+1)/2", "x", "5\tthis ')' closes no '('"},
        {"m*g + M*a", nullptr, "6\t'M' and 'm' are one parameter"},
        // bytes: the braced name before holds a two-byte character
        {"{\xc3\xa4}+ROFFS(5,1,2)", nullptr, "5\tROFFS is called with 3 arguments, but ROFFS takes 2 arguments\n"},
        {"x\t+\t1 5", nullptr, "4\t'1 5' is read as the one number 15"},
        {"b + T0*{V 1}", "{V 1},T0", ""},
        {"2*x + 1", "x", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string told = Reviewed(c.text, c.params, &err);
        if (*c.lines == '\0') {
            EXPECT_EQ(told, "");
        } else {
            EXPECT_EQ(told.compare(0, std::strlen(c.lines), c.lines), 0) << told;
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

TEST(CApiInputs, ThreadsMeanWhatTheyMeanInCpp)
{
    vexa_error err;
    vexa_expr* e = vexa_parse("SIN(x)*x", "x", &err);
    ASSERT_TRUE(e) << err.message;
    std::vector<double> x(5000);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = 0.001 * static_cast<double>(i);
    const double* columns[] = {x.data()};
    std::vector<double> one(x.size()), all(x.size());
    const vexa_options single = {0, 1};
    const vexa_options perCore = {0, 0};
    ASSERT_EQ(vexa_eval_many_ex(e, x.size(), columns, nullptr, one.data(), &single, nullptr, &err), VEXA_OK);
    ASSERT_EQ(vexa_eval_many_ex(e, x.size(), columns, nullptr, all.data(), &perCore, nullptr, &err), VEXA_OK);
    EXPECT_EQ(std::memcmp(one.data(), all.data(), one.size() * sizeof(double)), 0);
    vexa_free(e);
}

}  // namespace

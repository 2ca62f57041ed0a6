// The vexa command-line program: evaluates, sweeps, plots, dumps and checks
// expressions of the function language through the vexa library.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/errors.h"
#include "vexa/core/utf8.h"
#include "vexa/vexa_c.h"

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <shellapi.h>
#undef near  // old segment qualifiers, in the way of ordinary names
#undef far
#endif

using namespace vexa_cli;

namespace {

const char* kExitCodes =
    "Exit status: 0 success; 1 'check' or 'demo' found errors; 2 bad command line, value or missing value;\n"
    "3 the expression does not parse; 4 the parameter-name list is rejected; 5 the expression has no value\n"
    "for the given values; 6 a file cannot be read or written.\n"
    "An expression that begins with '-' goes after '--':  vexa eval -- \"-x^2\" x=3";

void AddExprOptions(CLI::App* sub, ExprArgs& a, bool withValues) {
    sub->add_option("expression", a.expression, "the expression, e.g. \"STEP(TIME, 0, 0, 1, 2)\"")->required();
    if (withValues)
        sub->add_option("values", a.assignments,
                        "parameter values: NAME=1.5, NAME=[1,2,3] (row vector), NAME=[[1,2],[3,4]] (matrix)");
}

CLI::Option* AddListOption(CLI::App* sub, std::string& list) {
    return sub->add_option("-p,--params", list,
                           "the host's comma-separated parameter-name list (ASCII letters and '{'); these names come "
                           "first in the parameter order, the expression's other names follow");
}

// A mistyped command: the nearest known one, or empty when none is near
// (edit distance over 2).
std::string NearestCommand(const std::string& word) {
    const char* commands[] = {"eval", "sweep", "tree", "check", "functions", "demo"};
    std::string best;
    std::size_t bestDistance = 3;
    for (const char* c : commands) {
        const std::string cmd = c;
        std::vector<std::size_t> row(cmd.size() + 1);
        for (std::size_t j = 0; j <= cmd.size(); ++j) row[j] = j;
        for (std::size_t i = 1; i <= word.size(); ++i) {
            std::size_t diagonal = row[0];
            row[0] = i;
            for (std::size_t j = 1; j <= cmd.size(); ++j) {
                const std::size_t up = row[j];
                row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (word[i - 1] == cmd[j - 1] ? 0 : 1)});
                diagonal = up;
            }
        }
        if (row[cmd.size()] < bestDistance) {
            bestDistance = row[cmd.size()];
            best = cmd;
        }
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
#if defined(_WIN32)
    // Windows gives the narrow arguments in the ANSI code page, which loses
    // what it cannot spell; the wide ones are the text as typed, read as
    // UTF-8 like everywhere else.
    std::vector<std::string> utf8Args;
    std::vector<char*> utf8Argv;
    int wideCount = 0;
    if (LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &wideCount)) {
        for (int i = 0; i < wideCount; ++i) utf8Args.push_back(vexa::ToUtf8(wide[i]));
        LocalFree(wide);
        for (std::string& a : utf8Args) utf8Argv.push_back(&a[0]);
        utf8Argv.push_back(nullptr);
        argc = wideCount;
        argv = utf8Argv.data();
    }
#endif
    CLI::App app{"vexa: parse, evaluate, differentiate and plot expressions of the solver function language"};
    // "/name" is a path, never an option, on every system.
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("vexa ") + vexa_version() + "\nmachine code: " + vexa_machine_code());
    app.footer(std::string("Run 'vexa COMMAND --help' for a command's options and examples.\n") + kExitCodes);
    app.get_formatter()->column_width(34);

    ExprArgs evalArgs;
    std::string evalList;
    std::vector<std::string> evalDerivs;
    CLI::App* eval = app.add_subcommand("eval", "evaluate an expression for given parameter values");
    AddExprOptions(eval, evalArgs, true);
    CLI::Option* evalListOpt = AddListOption(eval, evalList);
    eval->add_option("-d,--derivative", evalDerivs,
                     "also the derivative with respect to NAME, or with NAME:K the K-th (repeatable)");
    eval->add_flag("--strict", evalArgs.strict,
                   "a term dropped because a function refused its arguments, or a NaN, is an error");
    eval->footer(
        "Examples:\n"
        "  vexa eval \"2*x + y^2\" x=1.5 y=3\n"
        "  vexa eval \"STEP(TIME, 0, 0, 1, 2)\" TIME=0.25 -d TIME\n"
        "  vexa eval \"v*2\" \"v=[1,2,3]\"\n"
        "  vexa eval \"m*m\" \"m=[[1,2],[3,4]]\"\n"
        "  vexa eval \"IMPACT({DIST}, {VEL}, 0, 1E5, 1.5, 100, 0.001)\" {DIST}=-0.001 {VEL}=-0.2\n"
        "  vexa eval -p \"b,a\" \"a - b\" a=5 b=2      (order: b, a)\n"
        "  vexa eval \"STEP(TIME, T0, 0, 1, H)\" TIME=0.5 T0=0 H=2 -d H -d TIME:2\n"
        "Prints the final parameter order, each value and the result with every element at full precision.\n"
        "Values are numbers or constants as expressions write them: 1.5, -2, 3E-4, 90D, PI/2.\n"
        "A first derivative is shown exactly (the library's exact gradient), with what the library's\n"
        "derivative calculator gives a host beside it, marked '*' where it comes from a central difference\n"
        "or does not follow an argument. Orders that would nest more than 3 central differences are refused.");

    SweepArgs sweepArgs;
    std::string sweepList;
    CLI::App* sweep = app.add_subcommand("sweep", "sweep one parameter over a range; table, CSV and SVG plot");
    AddExprOptions(sweep, sweepArgs.expr, true);
    CLI::Option* sweepListOpt = AddListOption(sweep, sweepList);
    sweep->add_option("-x,--over", sweepArgs.over, "the parameter to sweep (may be left out if there is only one)");
    sweep->add_option("--from", sweepArgs.from, "first value of the swept parameter")->required();
    sweep->add_option("--to", sweepArgs.to, "last value of the swept parameter")->required();
    sweep->add_option("-n,--points", sweepArgs.points, "number of points, both ends included (default 101)");
    sweep->add_flag("-d,--derivative", sweepArgs.derivative, "also the derivative with respect to the swept parameter");
    sweep->add_option("--wrt", sweepArgs.wrt, "also the derivative with respect to NAME, or NAME:K (repeatable)");
    sweep->add_flag("--strict", sweepArgs.expr.strict,
                    "points where a function refused its arguments get no value, even if a sum dropped the term");
    sweep->add_option("--csv", sweepArgs.csv, "write CSV to FILE ('-' for standard output, then no table)");
    sweep->add_option("--svg", sweepArgs.svg, "write an SVG plot to FILE");
    sweep->add_option("--title", sweepArgs.title, "title of the plot (default: the expression)");
    sweep->add_flag("--no-table", sweepArgs.no_table, "do not print the table");
    sweep->add_option("--ylabel", sweepArgs.ylabel, "what the value is, for the plot's axis (default 'value')");
    sweep->add_option("--yunit", sweepArgs.yunit, "unit of the plotted value, e.g. mm");
    sweep->add_option("--yscale", sweepArgs.yscale, "plot the value times this, e.g. 1E3 (m to mm) or RTOD");
    sweep->add_option("--xunit", sweepArgs.xunit, "unit of the swept parameter, e.g. s");
    sweep->add_flag("--log-x", sweepArgs.xlog,
                    "points evenly spaced in log10 between --from and --to (one sign), on a logarithmic axis");
    sweep->add_flag("--log-y", sweepArgs.ylog, "a logarithmic axis for the value (values <= 0 leave gaps)");
    sweep->footer(
        "Examples:\n"
        "  vexa sweep \"HAVSIN(TIME, 0, 0, 0.8, 2)\" --from 0 --to 1 -n 11 -d\n"
        "  vexa sweep \"AMP*SIN(2*PI*F*TIME)\" AMP=2 F=0.5 -x TIME --from 0 --to 4 --wrt AMP --csv out.csv\n"
        "  vexa sweep \"STEP5(TIME, 0.5, 0, 1.5, 90D)\" --from 0 --to 2 -n 201 -d --svg step5.svg \\\n"
        "        --ylabel angle --yunit deg --yscale RTOD --xunit s\n"
        "  vexa sweep \"1/SQRT((1-F^2)^2 + (0.1*F)^2)\" -x F --from 0.01 --to 100 -n 401 --log-x --log-y --svg bode.svg\n"
        "  vexa sweep \"IMPACT({DIST}, {VEL}, 0, 2E5, 1.5, 80, 1E-3)\" {VEL}=0 -x {DIST} --from -1E-3 --to 5E-4 -d\n"
        "The other parameters are held at the values given as NAME=VALUE. Points where the expression has no\n"
        "value show '-' in the table, NaN in the CSV and leave a gap in the plot. Derivatives come in two\n"
        "columns: exact, and what the library's derivative calculator gives a host ('calc', marked '*' where\n"
        "it comes from a central difference or does not follow an argument).");

    ExprArgs treeArgs;
    std::string treeList, dotPath;
    std::vector<std::string> treeDerivs;
    bool treeDump = false, treeForce = false;
    CLI::App* tree = app.add_subcommand("tree", "show the expression tree and optionally Graphviz DOT");
    AddExprOptions(tree, treeArgs, false);
    CLI::Option* treeListOpt = AddListOption(tree, treeList);
    tree->add_option("-d,--derivative", treeDerivs,
                     "also the tree of the derivative with respect to NAME, or NAME:K (repeatable)");
    tree->add_flag("--force", treeForce, "write an outline larger than 64 MiB all the same");
    tree->add_option("--dot", dotPath, "write the trees as Graphviz DOT to FILE ('-' for standard output)");
    tree->add_flag("--dump", treeDump, "print the library's own dump lines (Expression::Dump) instead of the outline");
    tree->footer(
        "Examples:\n"
        "  vexa tree \"x + y*z\"\n"
        "  vexa tree \"SIN(x)*x\" -d x\n"
        "  vexa tree \"STEP(TIME, 0, 0, 1, 2)*AMP\" -d TIME --dot tree.dot && dot -Tsvg tree.dot -o tree.svg\n"
        "The outline lists each node above its operands or arguments, two blanks deeper; constants at full\n"
        "precision, calls marked built-in, registered or numeric derivative. --dump lists the library's dump\n"
        "lines instead: a node's left operand above it and its right operand below it, a call's arguments above\n"
        "its name, each one level (ten blanks) deeper; v:N is parameter N, constants show their whole part.");

    std::vector<std::string> checkFiles;
    std::string checkList;
    bool checkVerbose = false;
    CLI::App* check = app.add_subcommand("check", "check a file of expressions, one per line");
    check->add_option("files", checkFiles, "files to check ('-' for standard input)")->required();
    CLI::Option* checkListOpt = AddListOption(check, checkList);
    check->add_flag("-v,--verbose", checkVerbose, "also list the lines that parse, with their parameters");
    check->footer(
        "Examples:\n"
        "  vexa check examples/expressions.txt\n"
        "  printf 'SIN(x)\\nSTEP(x, 1)\\n' | vexa check -\n"
        "Blank lines and lines starting with '#' are skipped. Every error is reported as FILE:LINE with what\n"
        "is wrong; the exit status is 1 if any line has an error.");

    std::vector<std::string> fnNames;
    bool fnNamesOnly = false;
    CLI::App* functions = app.add_subcommand("functions", "list the functions the language knows, with call forms");
    functions->add_option("names", fnNames, "only these functions (case does not matter)");
    functions->add_flag("--names-only", fnNamesOnly, "print the names alone, one per line");
    functions->footer(
        "Examples:\n"
        "  vexa functions\n"
        "  vexa functions step impact poly\n"
        "  vexa functions --names-only");

    std::string demoFile, demoOut = "plots";
    int demoPoints = 201, demoRows = 6;
    CLI::App* demo = app.add_subcommand("demo", "run over a file of example expressions: parameters, tables, SVG plots");
    demo->add_option("file", demoFile, "the expression file, e.g. examples/expressions.txt")->required();
    demo->add_option("-o,--out", demoOut, "folder for the SVG plots (created if needed; default 'plots')");
    demo->add_option("-n,--points", demoPoints, "points per plot unless the file says otherwise (default 201)");
    demo->add_option("--rows", demoRows, "rows of the short table per expression (default 6)");
    demo->footer(
        "Examples:\n"
        "  vexa demo examples/expressions.txt --out plots/\n"
        "File format: one expression per line, '#' comments, and above an expression these directives:\n"
        "  #@title TEXT              heading and plot title\n"
        "  #@range NAME LO HI [N]    sweep NAME from LO to HI, plot value and derivative\n"
        "  #@set NAME=VALUE ...      values of the other parameters\n"
        "  #@at NAME=VALUE ...       one table row at chosen values, with derivatives by every parameter\n"
        "  #@params LIST             the host's parameter-name list\n"
        "  #@ylabel TEXT             what the value is, for the plot's axis\n"
        "  #@yunit UNIT [FACTOR]     the value's unit in the plot, drawn times FACTOR (e.g. mm 1E3, deg RTOD)\n"
        "  #@xunit UNIT              the unit of the swept parameter\n"
        "Numbers and values are written as in expressions (1E-3, 90D, PI/2). Each derivative is shown exact\n"
        "and as the library's derivative calculator gives it to a host, marked '*' where that one comes from a\n"
        "central difference or does not follow an argument.");

    auto isCommand = [&app](const char* word) {
        try {
            return app.get_subcommand(word) != nullptr;
        } catch (const CLI::OptionNotFound&) {
            return false;
        }
    };
    if (argc > 1 && argv[1][0] != '-' && !isCommand(argv[1])) {
        const std::string near = NearestCommand(argv[1]);
        std::cerr << "vexa: error: unknown command '" << argv[1] << "'"
                  << (near.empty() ? std::string() : "; did you mean '" + near + "'?")
                  << " (commands: eval, sweep, tree, check, functions, demo; see vexa --help)\n";
        return kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        if (dynamic_cast<const CLI::ExtrasError*>(&e))
            std::cerr << "(an expression that begins with '-' goes after '--', e.g. vexa eval -- \"-x^2\" x=3)\n";
        return rc == 0 ? kExitOk : kExitUsage;
    }

    auto listOf = [](CLI::Option* opt, const std::string& v) {
        return opt->count() ? std::optional<std::string>(v) : std::nullopt;
    };
    try {
        if (*eval) {
            evalArgs.list = listOf(evalListOpt, evalList);
            return RunEval(evalArgs, evalDerivs);
        }
        if (*sweep) {
            sweepArgs.expr.list = listOf(sweepListOpt, sweepList);
            return RunSweep(sweepArgs);
        }
        if (*tree) {
            treeArgs.list = listOf(treeListOpt, treeList);
            return RunTree(treeArgs, treeDerivs, dotPath, treeDump, treeForce);
        }
        if (*check) return RunCheck(checkFiles, listOf(checkListOpt, checkList), checkVerbose);
        if (*functions) return RunFunctions(fnNames, fnNamesOnly);
        if (*demo) return RunDemo(demoFile, demoOut, demoPoints, demoRows);
    } catch (int code) {
        std::cerr << "vexa: error: " << DescribeThrownCode(code) << '\n';
        return kExitEval;
    } catch (const std::exception& e) {
        std::cerr << "vexa: error: " << e.what() << '\n';
        return kExitEval;
    }
    return kExitUsage;
}

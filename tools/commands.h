#ifndef VEXA_TOOLS_COMMANDS_H
#define VEXA_TOOLS_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

namespace vexa_cli {

// Options shared by the commands that take one expression.
struct ExprArgs {
    std::string expression;
    std::vector<std::string> assignments;  // NAME=VALUE
    std::optional<std::string> list;       // the host's parameter-name list
    bool strict = false;                   // a refused call or a NaN is an error, not a warning
};

struct SweepArgs {
    ExprArgs expr;
    std::string over;
    std::string from, to;
    int points = 101;
    bool derivative = false;
    std::vector<std::string> wrt;  // NAME or NAME:K
    std::string csv, svg, title;
    bool no_table = false;
    std::string ylabel, yunit, yscale, xunit;  // for the plot
    bool xlog = false, ylog = false;  // logarithmic axes (xlog: a logarithmic grid too)
};

// Each returns the program's exit status. Derivatives are asked for as NAME
// or NAME:K (the K-th).
int RunEval(const ExprArgs& a, const std::vector<std::string>& derivatives);
int RunSweep(const SweepArgs& a);
// The outline from the library's tree walk, or with dump the lines of
// Expression::Dump; trees too large to show are refused unless forced.
int RunTree(const ExprArgs& a, const std::vector<std::string>& derivatives, const std::string& dotPath, bool dump,
            bool force);
int RunCheck(const std::vector<std::string>& files, const std::optional<std::string>& list, bool verbose);
int RunFunctions(const std::vector<std::string>& names, bool namesOnly);
int RunDemo(const std::string& file, const std::string& outDir, int points, int rows);

// Writes `text` to `path` ("-" is standard output); false with a message on failure.
bool WriteFileText(const std::string& path, const std::string& text, std::string& error);

}  // namespace vexa_cli

#endif

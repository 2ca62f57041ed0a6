#include "tools/check.h"

#include <istream>
#include <ostream>

#include "tools/errors.h"
#include "tools/session.h"
#include "tools/wide.h"

namespace vexa_cli {

std::string StripCr(std::string line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

bool IsExpressionLine(const std::string& line) {
    const std::size_t p = line.find_first_not_of(" \t");
    return p != std::string::npos && line[p] != '#';
}

CheckStats CheckStream(std::istream& in, const std::string& source, const std::optional<std::wstring>& list,
                       bool verbose, std::ostream& out, std::ostream& err) {
    CheckStats stats;
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        line = StripCr(line);
        if (!IsExpressionLine(line)) continue;
        ++stats.checked;
        const std::wstring text = ToWide(line);
        Parsed p = ParseText(text, list);
        const std::string where = source + ":" + std::to_string(number) + ": ";
        if (p.status == ParseStatus::Ok) {
            const std::vector<vexa::TextWarning> warnings =
                Review(p);
            for (const vexa::TextWarning& w : warnings) err << where << "warning: " << DescribeWarning(w, p.text, p.list);
            stats.warned += warnings.empty() ? 0 : 1;
            if (verbose)
                out << where << "ok; parameters: " << JoinNames(p.params)
                    << (p.can_plot ? "" : " (canPlot is false: calls IMPACT or BISTOP)") << '\n';
            continue;
        }
        ++stats.failed;
        err << where << "error: " << DescribeParseFailure(p);
    }
    return stats;
}

}  // namespace vexa_cli

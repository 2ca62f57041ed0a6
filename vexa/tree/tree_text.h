#ifndef VEXA_TREE_TREE_TEXT_H
#define VEXA_TREE_TREE_TEXT_H

#include <string>
#include <vector>

#include "vexa/core/data.h"
#include "vexa/core/export.h"

class ICalculator;
class INode;

namespace vexa {

// A value with every element at full precision, in numbers the expression
// language reads back: 0.1, 1E-05, [1, 2, 3], [[1, 2], [3, 4]]; null.
VEXA_API std::wstring ValueText(const VEXA_Data& value);

// A tree on one line: an operation inside another in parentheses, calls as
// NAME(a, b), constants as ValueText writes them, parameters by name (or v:N
// without names). Unary signs show as the trees hold them: -x is 0-x. Empty
// without a tree.
VEXA_API std::wstring TreeText(ICalculator* calc, const std::vector<std::wstring>* names = nullptr);
VEXA_API std::wstring TreeText(INode* root, const std::vector<std::wstring>* names = nullptr);

}  // namespace vexa

#endif

#include "vexa/parser/parse_guard_internal.h"

#include "vexa/tree/inode.h"

namespace vexa_parser {

OperandGuard::~OperandGuard()
{
    while (!m_operands.empty()) {
        delete m_operands.top();
        m_operands.pop();
    }
}

ArgumentsGuard::~ArgumentsGuard()
{
    for (INode* node : m_args)
        delete node;
    m_args.clear();
}

}  // namespace vexa_parser

#ifndef VEXA_COMPILED_COMPILED_FORM_H
#define VEXA_COMPILED_COMPILED_FORM_H

// The name hosts have included vexa::CompiledExpression by so far.
#include "vexa/compiled/compiled_expression.h"

#endif

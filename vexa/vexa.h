#ifndef VEXA_VEXA_H
#define VEXA_VEXA_H

// Everything a host uses: values, strings, the timing aid, the parser and the
// diagnosis of its failures, calculators and their handle, the function
// registry, the expression-tree nodes and the read-only walk over them.
//
// This list is the library's public headers: a header included here is
// installed (cmake/VexaPublicHeaders.cmake), and one that is not stays
// inside the library. One include a line.
#include "vexa/core/export.h"
#include "vexa/core/data.h"
#include "vexa/core/wstring.h"
#include "vexa/core/time_counter.h"
#include "vexa/core/utf8.h"
#include "vexa/tree/inode.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/variable_param.h"
#include "vexa/tree/operater_node.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/tree_walk.h"
#include "vexa/tree/tree_text.h"
#include "vexa/calc/call_errors.h"
#include "vexa/calc/call_forms.h"
#include "vexa/calc/callable_names.h"
#include "vexa/calc/icalculator.h"
#include "vexa/calc/calc_ref.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/complex_step_calculator.h"
#include "vexa/calc/buidin_function.h"
#include "vexa/calc/function_factory.h"
#include "vexa/compiled/compiled_expression.h"
#include "vexa/compiled/compiled_system.h"
#include "vexa/compiled/exact/exact_derivative.h"
#include "vexa/parser/parse_limits.h"
#include "vexa/parser/vexa_parser.h"
#include "vexa/parser/parse_diagnosis.h"
#include "vexa/parser/host_input.h"
#include "vexa/parser/output_texts.h"
#include "vexa/parser/evaluation_diagnosis.h"

#endif

#pragma once

#include <functional>
#include <string>

#include "opl/source.hpp"
#include "opl/syntax.hpp"

namespace kolva::opl {

// Reads an included file named in `include "f.mod";`, relative to the
// including file; returns the file it added to the source set.
using IncludeReader = std::function<const SourceFile&(const Place& at, const std::string& path)>;

// Deepest nesting of expressions (brackets, operands, unary operators) the
// parser accepts; deeper input is an error at its place, never a crash.
inline constexpr int kMaxExprDepth = 1000;

// Parses a whole model. The first error stops the read.
Model parse_model_source(const SourceFile& file, const IncludeReader& read_include);

}  // namespace kolva::opl

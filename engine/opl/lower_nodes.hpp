#pragma once

#include <initializer_list>
#include <string>
#include <utility>

#include "model/value.hpp"
#include "opl/syntax.hpp"

// Small builders of the generator's tree records.
namespace kolva::opl {

Value node(std::initializer_list<std::pair<const char*, Value>> entries);
Value number_node(Value v);
Value name_node(const std::string& name);
// A copy of a tree whose maps and lists are all new, so that no node is
// shared between two places of the model.
Value deep_copy(const Value& v);
ExprPtr clone_expr(const Expr& e);
// A value as the generator reads it in a subscript: a string of digits
// ("7") is the integer it spells; every other value stays as it is.
Value generator_subscript(const Value& v);

}  // namespace kolva::opl

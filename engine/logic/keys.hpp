#pragma once

#include "generator/generator.hpp"
#include "model/value.hpp"

// Structural keys: nested tuples that stand for a comparison or a Boolean
// tree, so that equal expressions under different node objects share one
// binary variable.
namespace kolva::logic {

// The key of one operand of a comparison.
Value bound_key(Generator& gen, const Value& node, const Env& env);
// ("cmp", op, left, right); the sides of == and != are put in order.
Value comparison_key(Generator& gen, const Value& node, const Env& env);
// The key of a Boolean tree; and/or are commutative under it. With `known`,
// the keys of subtrees already keyed under the same bindings are reused, so
// keying every level of a deep tree stays linear.
Value bool_struct_key(Generator& gen, const Value& node, const Env& env, Map* known = nullptr);
// (identity of the node, the Env's entries): a node seen again under the
// same bindings.
Value memo_key(Generator& gen, const Value& node, const Env& env);

// A total order over keys. Like values order as Python orders them; unlike
// ones, which Python refuses to compare, order by kind: None, then numbers
// (bools among them), then strings, then tuples and lists, then the rest.
bool key_less(const Value& a, const Value& b);

}  // namespace kolva::logic

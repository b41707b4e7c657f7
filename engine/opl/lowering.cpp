#include "opl/lowering.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "data/index_text.hpp"
#include "generator/script_names.hpp"
#include "model/map.hpp"
#include "opl/lower_nodes.hpp"

namespace kolva::opl {

namespace {

bool is_comparison(const std::string& op) {
  return op == "==" || op == "!=" || op == "<=" || op == ">=" || op == "<" || op == ">";
}

std::string var_type_word(const Decl& d) {
  const std::string& t = d.type.name;
  if (t == "boolean") return "boolean";
  return t + (d.type.plus ? "+" : "");
}

class Lowerer {
 public:
  Lowerer(const Model& model, const SymbolTable& symbols) : model_(model), symbols_(symbols) {}

  LoweredModel run() {
    ValueVec decls;
    ValueVec constraints;
    for (const Decl& d : model_.decls) lower_decl(d, decls, constraints);
    for (const Place& p : model_.skipped_blocks) {
      out_.warnings.push_back(Diagnostic{p,
                                         "execute block skipped: scripting is not run (it only prints or "
                                         "post-processes in the models this tool reads)"});
    }
    MapPtr root = make_map();
    root->set("declarations", Value::list(std::move(decls)));
    if (model_.objective) {
      const Objective& o = *model_.objective;
      in_objective_ = true;
      Value expr = lower_expr(*o.expr);
      in_objective_ = false;
      Value objective =
          node({{"type", Value::str(o.maximize ? "maximize" : "minimize")}, {"expression", expr}});
      annotate(objective, o.place, "");
      root->set("objective", objective);
    }
    const std::size_t scalar_bound_rows = constraints.size();
    for (const Stmt& s : model_.constraints) lower_stmt(s, constraints);
    if (uses_logic_) {
      constraints.insert(constraints.begin() + static_cast<std::ptrdiff_t>(scalar_bound_rows),
                         domain_rows_.begin(), domain_rows_.end());
      out_.domain_rows_end = scalar_bound_rows + domain_rows_.size();
      for (const Decl& d : model_.decls) {
        if (d.kind == DeclKind::kDvar && (d.lower || d.upper)) out_.ground_domains.push_back(&d);
      }
    } else {
      out_.domain_rows_end = scalar_bound_rows;
    }
    root->set("constraints", Value::list(std::move(constraints)));
    // Hidden sets are declared after everything they were lifted from; the
    // generator finds declarations by name, so their position does not matter.
    ValueVec& all = root->find("declarations")->list_items();
    for (Value& d : hidden_decls_) all.push_back(std::move(d));
    for (Value& d : hidden_dvars_) all.push_back(std::move(d));
    out_.tree = Value::map(root);
    return std::move(out_);
  }

 private:
  // ------------------------------------------------------------ declarations

  void lower_decl(const Decl& d, ValueVec& decls, ValueVec& bound_rows) {
    const Symbol& sym = *symbols_.find(d.name);
    switch (d.kind) {
      case DeclKind::kTupleType: {
        ValueVec fields;
        for (const TupleField& f : sym.tuple_type->fields)
          fields.push_back(node({{"name", Value::str(f.name)}}));
        decls.push_back(node({{"type", Value::str("tuple_type")},
                              {"name", Value::str(d.name)},
                              {"fields", Value::list(std::move(fields))}}));
        return;
      }
      case DeclKind::kRange:
        decls.push_back(node({{"type", Value::str("range_declaration_inline")},
                              {"name", Value::str(data_name(d.name))},
                              {"start", range_bound_node(d, 0)},
                              {"end", range_bound_node(d, 1)}}));
        return;
      case DeclKind::kData:
        return lower_data_decl(d, sym, decls);
      case DeclKind::kDvar:
        return lower_dvar(d, decls, bound_rows);
      case DeclKind::kDexpr:
        return;  // expanded where used
    }
  }

  // A range's bound: its literal, or the hidden scalar that the load fills in.
  static Value range_bound_node(const Decl& d, int which) {
    if (range_bound_is_hidden(d, which)) return name_node(range_bound_name(d.name, which));
    return number_node(Value::integer(d.value->args[which]->int_value));
  }

  void lower_data_decl(const Decl& d, const Symbol& sym, ValueVec& decls) {
    if (sym.kind == SymKind::kSet) {
      if (sym.elem.base == ElemType::Base::kTuple) {
        decls.push_back(node({{"type", Value::str("set_of_tuples_external")},
                              {"name", Value::str(data_name(d.name))},
                              {"tuple_type", Value::str(sym.elem.tuple->name)}}));
      } else {
        decls.push_back(
            node({{"type", Value::str("set_declaration")}, {"name", Value::str(data_name(d.name))}}));
      }
      return;
    }
    // Arrays of sets and of tuples are read from the data directly; declaring
    // them would put them through the numeric array checks.
    if (sym.array_of_sets || (!d.dims.empty() && sym.elem.base == ElemType::Base::kTuple)) return;
    if (d.dims.empty()) {
      decls.push_back(
          node({{"type", Value::str("parameter_external")}, {"name", Value::str(data_name(d.name))}}));
      return;
    }
    decls.push_back(node({{"type", Value::str("parameter_external_indexed")},
                          {"name", Value::str(data_name(d.name))},
                          {"dimensions", lower_dims(d)}}));
  }

  Value lower_dims(const Decl& d) {
    ValueVec dims;
    for (const DimSpec& dim : d.dims) dims.push_back(lower_dim(dim));
    return Value::list(std::move(dims));
  }

  Value lower_dim(const DimSpec& dim) {
    const Expr& e = *dim.domain;
    if (e.kind == ExprKind::kName) {
      const Symbol* s = symbols_.find(e.text);
      if (s != nullptr && s->kind == SymKind::kRange) {
        return node({{"type", Value::str("named_range_dimension")}, {"name", Value::str(data_name(e.text))}});
      }
      if (s != nullptr && s->kind == SymKind::kSet) {
        return node({{"type", Value::str("named_set_dimension")}, {"name", Value::str(data_name(e.text))}});
      }
      fail_at(e.place, s == nullptr
                           ? "unknown index set '" + e.text + "'"
                           : "'" + e.text + "' is a " + kind_word(s->kind) + ", not a range or a set");
    }
    if (e.kind == ExprKind::kRange) {
      return node({{"type", Value::str("range_index")},
                   {"start", bound_node(*e.args[0])},
                   {"end", bound_node(*e.args[1])}});
    }
    // Any other set expression becomes a hidden set of its own.
    const std::string name = lift_domain(e);
    return node({{"type", Value::str("named_set_dimension")}, {"name", Value::str(name)}});
  }

  // A bound of a declared index range: a literal, a scalar parameter, or a
  // hidden scalar computed from data.
  static std::optional<std::int64_t> int_literal(const Expr& e) {
    if (e.kind == ExprKind::kInt) return e.int_value;
    if (e.kind == ExprKind::kUnary && e.text == "-" && e.args[0]->kind == ExprKind::kInt &&
        e.args[0]->int_value != INT64_MIN) {
      return -e.args[0]->int_value;
    }
    return std::nullopt;
  }

  Value bound_node(const Expr& e) {
    if (auto literal = int_literal(e)) return number_node(Value::integer(*literal));
    if (e.kind == ExprKind::kName) {
      const Symbol* s = symbols_.find(e.text);
      if (s != nullptr && s->kind == SymKind::kParam && s->dims.empty() && !s->array_of_sets)
        return name_node(data_name(e.text));
    }
    check_data_only(e, "an index bound");
    return lift_value(e);
  }

  void lower_dvar(const Decl& d, ValueVec& decls, ValueVec& bound_rows) {
    const Value type = Value::str(var_type_word(d));
    if (d.dims.empty()) {
      decls.push_back(node({{"type", Value::str("dvar")}, {"name", Value::str(d.name)}, {"var_type", type}}));
      // A scalar variable's domain travels as bound rows ahead of all other
      // constraints, where the big-M estimates of logical forms find them.
      if (d.lower) add_bound_row(d, *d.lower, ">=", bound_rows);
      if (d.upper) add_bound_row(d, *d.upper, "<=", bound_rows);
      return;
    }
    MapPtr decl = make_map();
    decl->set("type", Value::str("dvar_indexed"));
    decl->set("name", Value::str(d.name));
    decl->set("var_type", type);
    decl->set("dimensions", lower_dims(d));
    if (d.lower || d.upper) indexed_bound_rows(d);
    if (d.lower || d.upper) {
      // Bound expressions may name the dimensions' iterators.
      ValueVec its;
      const std::size_t mark = frames_.size();
      for (std::size_t k = 0; k < d.dims.size(); ++k) {
        const DimSpec& dim = d.dims[k];
        if (dim.iterator.empty()) continue;
        out_.owned_bindings.push_back(std::make_unique<Binding>());
        Binding& b = *out_.owned_bindings.back();
        b.place = dim.place;
        b.names = {dim.iterator};
        b.domain = clone_expr(*dim.domain);
        Frame f;
        f.binding = &b;
        f.tree_name = dim.iterator;
        frames_.push_back(f);
        its.push_back(node({{"iterator", Value::str(dim.iterator)}}));
      }
      decl->set("iterators", Value::list(std::move(its)));
      if (d.lower && !is_infinite(*d.lower))
        decl->set("lower_bound", lower_data_expr(*d.lower, "a variable bound"));
      if (d.upper && !is_infinite(*d.upper))
        decl->set("upper_bound", lower_data_expr(*d.upper, "a variable bound"));
      frames_.resize(mark);
    }
    decls.push_back(Value::map(decl));
  }

  // The domain of an indexed variable as bound rows over its index sets. The
  // declaration already bounds the columns; the rows are added only when the
  // model has logical constraints, whose big-M values are read from them.
  void indexed_bound_rows(const Decl& d) {
    const std::size_t mark = frames_.size();
    ValueVec iterators;
    ValueVec subscripts;
    for (const DimSpec& dim : d.dims) {
      out_.owned_bindings.push_back(std::make_unique<Binding>());
      Binding& b = *out_.owned_bindings.back();
      b.place = dim.place;
      b.names = {dim.iterator.empty() ? fresh_name() : dim.iterator};
      b.domain = clone_expr(*dim.domain);
      Value range = lower_static_domain(*b.domain);
      Frame f;
      f.binding = &b;
      f.tree_name = b.names[0];
      frames_.push_back(f);
      iterators.push_back(node({{"iterator", Value::str(f.tree_name)}, {"range", range}}));
      subscripts.push_back(
          node({{"type", Value::str("name_reference_index")}, {"name", Value::str(f.tree_name)}}));
    }
    ValueVec rows;
    const Value var = node({{"type", Value::str("indexed_name")},
                            {"name", Value::str(d.name)},
                            {"dimensions", Value::list(std::move(subscripts))}});
    if (d.lower && !is_infinite(*d.lower)) {
      rows.push_back(node({{"type", Value::str("constraint")},
                           {"op", Value::str(">=")},
                           {"left", deep_copy(var)},
                           {"right", lower_data_expr(*d.lower, "a variable bound")}}));
    }
    if (d.upper && !is_infinite(*d.upper)) {
      rows.push_back(node({{"type", Value::str("constraint")},
                           {"op", Value::str("<=")},
                           {"left", deep_copy(var)},
                           {"right", lower_data_expr(*d.upper, "a variable bound")}}));
    }
    pop_frames(mark);
    if (rows.empty()) return;
    Value forall = node({{"type", Value::str("forall_constraint")},
                         {"iterators", Value::list(std::move(iterators))},
                         {"constraints", Value::list(std::move(rows))}});
    annotate(forall, d.place, "");
    domain_rows_.push_back(forall);
  }

  static bool is_infinite(const Expr& e) {
    return e.kind == ExprKind::kInfinity ||
           (e.kind == ExprKind::kUnary && e.text == "-" && e.args[0]->kind == ExprKind::kInfinity);
  }

  void add_bound_row(const Decl& d, const Expr& bound, const char* op, ValueVec& rows) {
    if (is_infinite(bound)) return;
    Value row = node({{"type", Value::str("constraint")},
                      {"op", Value::str(op)},
                      {"left", name_node(d.name)},
                      {"right", lower_data_expr(bound, "a variable bound")}});
    annotate(row, d.place, "");
    rows.push_back(row);
  }

  // ------------------------------------------------------------ scope

  struct Visible {
    std::size_t frame;
    int component;  // position in a tuple pattern, or -1 for the whole binding
  };

  std::optional<Visible> find_visible(const std::string& name) const {
    for (std::size_t i = frames_.size(); i-- > 0;) {
      const Frame& f = frames_[i];
      if (f.kind == Frame::Kind::kBarrier) return std::nullopt;
      if (f.kind == Frame::Kind::kAlias) {
        if (f.alias == name) return Visible{i, -1};
        continue;
      }
      const auto& names = f.binding->names;
      for (std::size_t k = 0; k < names.size(); ++k) {
        if (names[k] == name) return Visible{i, f.binding->pattern ? static_cast<int>(k) : -1};
      }
    }
    return std::nullopt;
  }

  // Names that an expression binds for itself (aggregates, comprehensions)
  // shadow the scope while its inside is walked.
  template <typename F>
  void walk_with_shadow(const Expr& e, std::vector<std::string>& shadow, const F& visit) const {
    visit(e, shadow);
    std::size_t pushed = 0;
    if (e.iteration) {
      for (const Binding& b : e.iteration->bindings) {
        walk_with_shadow(*b.domain, shadow, visit);
        for (const std::string& n : b.names) shadow.push_back(n);
        pushed += b.names.size();
      }
      if (e.iteration->filter) walk_with_shadow(*e.iteration->filter, shadow, visit);
    }
    for (const ExprPtr& a : e.args) {
      if (a) walk_with_shadow(*a, shadow, visit);
    }
    shadow.resize(shadow.size() - pushed);
  }

  static bool shadowed(const std::vector<std::string>& shadow, const std::string& n) {
    return std::find(shadow.begin(), shadow.end(), n) != shadow.end();
  }

  // Frames an expression reads, in frame order.
  std::vector<std::size_t> deps_of(const Expr& e) const {
    std::set<std::size_t> found;
    std::vector<std::string> shadow;
    walk_with_shadow(e, shadow, [&](const Expr& x, const std::vector<std::string>& sh) {
      if (x.kind != ExprKind::kName || shadowed(sh, x.text)) return;
      if (auto v = find_visible(x.text)) found.insert(v->frame);
    });
    return {found.begin(), found.end()};
  }

  // Whether an expression reads decision variables or decision expressions.
  bool uses_decisions(const Expr& e) const {
    bool any = false;
    std::vector<std::string> shadow;
    walk_with_shadow(e, shadow, [&](const Expr& x, const std::vector<std::string>& sh) {
      if (any || x.kind != ExprKind::kName || shadowed(sh, x.text)) return;
      if (find_visible(x.text)) return;
      const Symbol* s = symbols_.find(x.text);
      if (s != nullptr && (s->kind == SymKind::kDvar || s->kind == SymKind::kDexpr)) any = true;
    });
    return any;
  }

  void check_data_only(const Expr& e, const std::string& what) const {
    if (uses_decisions(e)) fail_at(e.place, what + " must not depend on decision variables");
  }

  // Data expressions the generator evaluates as they are; all others are lifted.
  bool generator_evaluable(const Expr& e) const {
    switch (e.kind) {
      case ExprKind::kInt:
      case ExprKind::kFloat:
      case ExprKind::kString:
      case ExprKind::kBool:
        return true;
      case ExprKind::kName: {
        if (find_visible(e.text)) return true;
        const Symbol* s = symbols_.find(e.text);
        return s != nullptr && s->kind == SymKind::kParam && s->decl->dims.empty();
      }
      case ExprKind::kIndex: {
        const Expr& base = *e.args[0];
        if (base.kind != ExprKind::kName || find_visible(base.text)) return false;
        const Symbol* s = symbols_.find(base.text);
        if (s == nullptr || s->kind != SymKind::kParam || s->array_of_sets || s->decl->dims.empty())
          return false;
        if (s->elem.base == ElemType::Base::kTuple) return false;
        if (subscript_count(e) != s->decl->dims.size()) return false;
        for (std::size_t i = 1; i < e.args.size(); ++i) {
          if (!index_evaluable(*e.args[i])) return false;
        }
        return true;
      }
      case ExprKind::kUnary:
        return e.text != "!" && generator_evaluable(*e.args[0]);
      case ExprKind::kBinary:
        if (e.text == "+" || e.text == "-" || e.text == "*" || e.text == "/" || is_comparison(e.text)) {
          return generator_evaluable(*e.args[0]) && generator_evaluable(*e.args[1]);
        }
        return false;
      case ExprKind::kField: {
        const Expr& base = *e.args[0];
        if (base.kind != ExprKind::kName) return false;
        auto v = find_visible(base.text);
        return v && v->component < 0 && frames_[v->frame].kind == Frame::Kind::kBinding &&
               tuple_of_frame(v->frame) != nullptr;
      }
      default:
        return false;
    }
  }

  bool index_evaluable(const Expr& e) const {
    if (e.kind == ExprKind::kTuple) {
      return std::all_of(e.args.begin(), e.args.end(), [&](const ExprPtr& a) { return index_evaluable(*a); });
    }
    return generator_evaluable(e);
  }

  static std::size_t subscript_count(const Expr& e) { return e.args.size() - 1; }

  const TupleInfo* tuple_of_domain(const Expr& domain) const {
    if (domain.kind == ExprKind::kName) {
      if (const Symbol* s = symbols_.find(domain.text)) {
        return s->elem.base == ElemType::Base::kTuple ? s->elem.tuple : nullptr;
      }
      return nullptr;
    }
    if (domain.kind == ExprKind::kBinary) return tuple_of_domain(*domain.args[0]);
    if (domain.kind == ExprKind::kIndex) return tuple_of_domain(*domain.args[0]);
    if (domain.kind == ExprKind::kComprehension) {
      const Expr& body = *domain.args[0];
      if (body.kind == ExprKind::kName) {
        for (const Binding& b : domain.iteration->bindings) {
          if (!b.pattern && b.names[0] == body.text) return tuple_of_domain(*b.domain);
        }
      }
    }
    return nullptr;
  }

  const TupleInfo* tuple_of_frame(std::size_t i) const {
    const Frame& f = frames_[i];
    return f.binding != nullptr ? tuple_of_domain(*f.binding->domain) : nullptr;
  }

  // ------------------------------------------------------------ lifting

  std::string fresh_name() { return "__opl" + std::to_string(++counter_); }

  // The index node that gives a frame's value inside the tree.
  Value dep_index_node(std::size_t frame) {
    const Frame& f = frames_[frame];
    if (f.kind == Frame::Kind::kAlias) return alias_index_nodes_.at(frame);
    return node({{"type", Value::str("name_reference_index")}, {"name", Value::str(f.tree_name)}});
  }

  Value lift_value(const Expr& e) {
    Lifted l;
    l.kind = Lifted::Kind::kValue;
    l.name = fresh_name();
    l.expr = &e;
    l.frames = frames_;
    l.deps = deps_of(e);
    ValueVec dims;
    for (std::size_t f : l.deps) dims.push_back(dep_index_node(f));
    const std::string name = l.name;
    const bool keyed = !l.deps.empty();
    out_.lifted.push_back(std::move(l));
    if (!keyed) return name_node(name);
    return node({{"type", Value::str("indexed_name")},
                 {"name", Value::str(name)},
                 {"dimensions", Value::list(std::move(dims))}});
  }

  // A hidden plain set holding every member the domain takes in this scope.
  std::string lift_domain(const Expr& domain) {
    Lifted l;
    l.kind = Lifted::Kind::kDomain;
    l.name = fresh_name();
    l.expr = &domain;
    l.frames = frames_;
    l.deps = deps_of(domain);
    const std::string name = l.name;
    out_.lifted.push_back(std::move(l));
    const TupleInfo* tuple = tuple_of_domain(domain);
    if (tuple != nullptr) {
      hidden_decls_.push_back(node({{"type", Value::str("set_of_tuples_external")},
                                    {"name", Value::str(name)},
                                    {"tuple_type", Value::str(tuple->name)}}));
    } else {
      hidden_decls_.push_back(node({{"type", Value::str("set_declaration")}, {"name", Value::str(name)}}));
    }
    return name;
  }

  // ------------------------------------------------------------ iterations

  // Pushes one frame per binding and returns the tree's iterator list. Each
  // domain the generator can enumerate on its own stays as written; a domain
  // that depends on other iterators runs over a hidden superset, and a filter
  // keeps the combinations that the model admits.
  Value lower_iteration(const Iteration& it, Value& index_constraint) {
    const std::size_t first = frames_.size();
    ValueVec iterators;
    std::vector<std::string> static_names;
    bool needs_filter_item = false;
    for (std::size_t k = 0; k < it.bindings.size(); ++k) {
      const Binding& b = it.bindings[k];
      Value range;
      std::string hidden;
      if (!deps_of(*b.domain).empty()) {
        check_data_only(*b.domain, "an iterator's domain");
        hidden = lift_domain(*b.domain);
        range = node({{"type", Value::str("named_set")}, {"name", Value::str(hidden)}});
        needs_filter_item = true;
      } else {
        range = lower_static_domain(*b.domain);
      }
      static_names.push_back(hidden);
      Frame f;
      f.binding = &b;
      f.tree_name = b.pattern ? fresh_name() : tree_name_for(b.names[0]);
      if (k + 1 == it.bindings.size()) f.filter = it.filter.get();
      frames_.push_back(f);
      iterators.push_back(node({{"iterator", Value::str(frames_.back().tree_name)}, {"range", range}}));
    }
    if (it.filter) {
      check_data_only(*it.filter, "a filter");
      if (!needs_filter_item && generator_evaluable(*it.filter)) {
        index_constraint = lower_expr(*it.filter);
      } else {
        needs_filter_item = true;
      }
    }
    if (needs_filter_item) index_constraint = lift_filter(it, first, std::move(static_names));
    Value list = Value::list(std::move(iterators));
    iterations_.push_back(LoweredIteration{first, frames_.size(), list, index_constraint});
    return list;
  }

  // The iterator lists made so far, so that rows tied to the inside of a sum
  // can run over the same combinations.
  struct LoweredIteration {
    std::size_t first_frame;
    std::size_t end_frame;
    Value iterators;
    Value filter;
  };

  void pop_frames(std::size_t mark) {
    frames_.resize(mark);
    while (!iterations_.empty() && iterations_.back().end_frame > mark) iterations_.pop_back();
  }

  Value lift_filter(const Iteration& it, std::size_t first, std::vector<std::string> static_names) {
    Lifted l;
    l.kind = Lifted::Kind::kFilter;
    l.name = fresh_name();
    l.expr = it.filter.get();
    l.frames = frames_;
    l.first = first;
    l.static_domains = std::move(static_names);
    std::set<std::size_t> deps;
    for (std::size_t f = first; f < frames_.size(); ++f) deps.insert(f);
    for (const Binding& b : it.bindings) {
      for (std::size_t f : deps_of(*b.domain)) deps.insert(f);
    }
    if (it.filter) {
      for (std::size_t f : deps_of(*it.filter)) deps.insert(f);
    }
    l.deps.assign(deps.begin(), deps.end());
    ValueVec dims;
    for (std::size_t f : l.deps) dims.push_back(dep_index_node(f));
    const std::string name = l.name;
    out_.lifted.push_back(std::move(l));
    return node({{"type", Value::str("indexed_name")},
                 {"name", Value::str(name)},
                 {"dimensions", Value::list(std::move(dims))}});
  }

  Value lower_static_domain(const Expr& d) {
    if (d.kind == ExprKind::kName) {
      const Symbol* s = symbols_.find(d.text);
      if (s != nullptr && s->kind == SymKind::kRange) {
        return node({{"type", Value::str("named_range")}, {"name", Value::str(data_name(d.text))}});
      }
      if (s != nullptr && s->kind == SymKind::kSet) {
        return node({{"type", Value::str("named_set")}, {"name", Value::str(data_name(d.text))}});
      }
      if (s == nullptr) fail_at(d.place, "unknown set or range '" + d.text + "'");
      if (!s->array_of_sets)
        fail_at(d.place, "'" + d.text + "' is a " + kind_word(s->kind) + ", not a set or a range");
    }
    if (d.kind == ExprKind::kRange && simple_bound(*d.args[0]) && simple_bound(*d.args[1])) {
      return node({{"type", Value::str("range_specifier")},
                   {"start", bound_node(*d.args[0])},
                   {"end", bound_node(*d.args[1])}});
    }
    check_data_only(d, "an iterator's domain");
    return node({{"type", Value::str("named_set")}, {"name", Value::str(lift_domain(d))}});
  }

  bool simple_bound(const Expr& e) const {
    if (int_literal(e)) return true;
    if (e.kind != ExprKind::kName) return false;
    const Symbol* s = symbols_.find(e.text);
    return s != nullptr && s->kind == SymKind::kParam && s->decl->dims.empty() &&
           s->elem.base == ElemType::Base::kInt;
  }

  // Iterator names stay as written unless an outer iterator already has the name.
  std::string tree_name_for(const std::string& name) {
    for (const Frame& f : frames_) {
      if (f.tree_name == name) return name + "__" + std::to_string(++counter_);
    }
    return name;
  }

  // ------------------------------------------------------------ expressions

  Value lower_data_expr(const Expr& e, const std::string& what) {
    check_data_only(e, what);
    return lower_expr(e);
  }

  Value lower_expr(const Expr& e) {
    const bool decisions = uses_decisions(e);
    if (!decisions) {
      if (generator_evaluable(e)) return lower_evaluable(e);
      return lift_value(e);
    }
    switch (e.kind) {
      case ExprKind::kName:
        return lower_decision_name(e);
      case ExprKind::kIndex:
        return lower_decision_index(e);
      case ExprKind::kUnary:
        if (e.text == "-") return node({{"type", Value::str("uminus")}, {"value", lower_expr(*e.args[0])}});
        if (e.text == "+") return lower_expr(*e.args[0]);
        return node({{"type", Value::str("not")}, {"value", lower_expr(*e.args[0])}});
      case ExprKind::kBinary:
        return lower_decision_binary(e);
      case ExprKind::kConditional:
        return node({{"type", Value::str("conditional")},
                     {"condition", lower_data_expr(*e.args[0], "a condition")},
                     {"then", lower_expr(*e.args[1])},
                     {"else", lower_expr(*e.args[2])}});
      case ExprKind::kAggregate:
        if (e.text != "sum") {
          fail_at(e.place,
                  "'" + e.text + "' over decision variables is not linear; only 'sum' can aggregate them");
        }
        return lower_sum(e);
      case ExprKind::kCall:
        fail_at(e.place, "'" + e.text + "' of decision variables is not linear and cannot be compiled");
      default:
        fail_at(e.place, "this expression cannot hold decision variables");
    }
  }

  Value lower_sum(const Expr& e) {
    const std::size_t mark = frames_.size();
    Value filter;
    Value iterators = lower_iteration(*e.iteration, filter);
    Value body = lower_expr(*e.args[0]);
    pop_frames(mark);
    MapPtr m = make_map();
    m->set("type", Value::str("sum"));
    m->set("iterators", iterators);
    m->set("expression", body);
    if (!filter.is_none()) m->set("index_constraint", filter);
    return Value::map(m);
  }

  Value lower_decision_binary(const Expr& e) {
    const std::string& op = e.text;
    if (is_comparison(op)) return truth_value(e);
    if (op == "+" || op == "-" || op == "*" || op == "/") {
      return node({{"type", Value::str("binop")},
                   {"op", Value::str(op)},
                   {"left", lower_expr(*e.args[0])},
                   {"right", lower_expr(*e.args[1])}});
    }
    if (op == "&&" || op == "||") {
      return node({{"type", Value::str(op == "&&" ? "and" : "or")},
                   {"left", lower_expr(*e.args[0])},
                   {"right", lower_expr(*e.args[1])}});
    }
    if (op == "=>") {
      return node({{"type", Value::str("implies")},
                   {"left", lower_expr(*e.args[0])},
                   {"right", lower_expr(*e.args[1])}});
    }
    fail_at(e.place, "'" + op + "' cannot be applied to decision variables");
  }

  Value lower_evaluable(const Expr& e) {
    switch (e.kind) {
      case ExprKind::kInt:
        return number_node(Value::integer(e.int_value));
      case ExprKind::kFloat:
        return number_node(Value::real(e.float_value));
      case ExprKind::kString:
        return node({{"type", Value::str("string_literal")}, {"value", Value::str(e.text)}});
      case ExprKind::kBool:
        return node({{"type", Value::str("boolean_literal")}, {"value", Value::boolean(e.int_value != 0)}});
      case ExprKind::kName:
        return lower_visible_or_param(e);
      case ExprKind::kIndex: {
        ValueVec dims;
        for (std::size_t i = 1; i < e.args.size(); ++i) dims.push_back(lower_index_arg(*e.args[i]));
        return node({{"type", Value::str("indexed_name")},
                     {"name", Value::str(data_name(e.args[0]->text))},
                     {"dimensions", Value::list(std::move(dims))}});
      }
      case ExprKind::kUnary: {
        if (e.text == "+") return lower_evaluable(*e.args[0]);
        // A negative literal is one number, as the bound readers expect it.
        const Expr& operand = *e.args[0];
        if (operand.kind == ExprKind::kInt && operand.int_value != INT64_MIN) {
          return number_node(Value::integer(-operand.int_value));
        }
        if (operand.kind == ExprKind::kFloat) return number_node(Value::real(-operand.float_value));
        return node({{"type", Value::str("uminus")}, {"value", lower_evaluable(operand)}});
      }
      case ExprKind::kBinary:
        return node({{"type", Value::str("binop")},
                     {"op", Value::str(e.text)},
                     {"left", lower_evaluable(*e.args[0])},
                     {"right", lower_evaluable(*e.args[1])}});
      case ExprKind::kField: {
        const auto v = find_visible(e.args[0]->text);
        Value base = lower_visible(*v);
        const TupleInfo* t = tuple_of_frame(v->frame);
        check_field(*t, e);
        base.as_map()->set("sem_type", Value::str(t->name));
        return node({{"type", Value::str("field_access")}, {"base", base}, {"field", Value::str(e.text)}});
      }
      default:
        return lift_value(e);
    }
  }

  static void check_field(const TupleInfo& t, const Expr& e) {
    if (t.field_index(e.text) < 0)
      fail_at(e.place, "tuple type '" + t.name + "' has no field '" + e.text + "'");
  }

  Value lower_visible_or_param(const Expr& e) {
    if (auto v = find_visible(e.text)) return lower_visible(*v);
    return name_node(data_name(e.text));
  }

  // An iterator, a component of a tuple pattern, or a dexpr index.
  Value lower_visible(const Visible& v) {
    const Frame& f = frames_[v.frame];
    if (f.kind == Frame::Kind::kAlias) return deep_copy(alias_value_nodes_.at(v.frame));
    Value base = name_node(f.tree_name);
    const TupleInfo* t = tuple_of_frame(v.frame);
    if (v.component < 0) {
      if (t != nullptr) base.as_map()->set("sem_type", Value::str(t->name));
      return base;
    }
    if (t == nullptr || static_cast<std::size_t>(v.component) >= t->fields.size()) {
      fail_at(f.binding->place, "this tuple pattern needs a set of tuples with at least " +
                                    std::to_string(f.binding->names.size()) + " fields");
    }
    base.as_map()->set("sem_type", Value::str(t->name));
    return node({{"type", Value::str("field_access")},
                 {"base", base},
                 {"field", Value::str(t->fields[static_cast<std::size_t>(v.component)].name)}});
  }

  Value lower_index_arg(const Expr& e) {
    if (uses_decisions(e)) fail_at(e.place, "a subscript must not depend on decision variables");
    switch (e.kind) {
      case ExprKind::kInt:
        return node({{"type", Value::str("number_literal_index")}, {"value", Value::integer(e.int_value)}});
      case ExprKind::kString:
        return node({{"type", Value::str("string_literal")}, {"value", Value::str(e.text)}});
      case ExprKind::kName: {
        if (auto v = find_visible(e.text)) {
          const Frame& f = frames_[v->frame];
          if (f.kind == Frame::Kind::kAlias) return deep_copy(alias_index_nodes_.at(v->frame));
          if (v->component < 0)
            return node({{"type", Value::str("name_reference_index")}, {"name", Value::str(f.tree_name)}});
          Value field = lower_visible(*v);
          field.as_map()->set("type", Value::str("field_access_index"));
          return field;
        }
        const Symbol* s = symbols_.find(e.text);
        if (s != nullptr && s->kind == SymKind::kParam && s->decl->dims.empty()) {
          return node(
              {{"type", Value::str("name_reference_index")}, {"name", Value::str(data_name(e.text))}});
        }
        return lift_value(e);
      }
      case ExprKind::kTuple: {
        // <i, j, c> naming a whole pattern `<i, j, c> in S` is the member
        // itself: subscript with it, as its parts would be rebuilt with
        // integral floats turned to ints and no longer match the column.
        if (auto whole = whole_pattern(e)) {
          return node({{"type", Value::str("name_reference_index")}, {"name", Value::str(*whole)}});
        }
        ValueVec elems;
        for (const ExprPtr& a : e.args) elems.push_back(lower_index_arg(*a));
        return node({{"type", Value::str("tuple_literal")}, {"elements", Value::list(std::move(elems))}});
      }
      case ExprKind::kField: {
        if (generator_evaluable(e)) {
          Value f = lower_evaluable(e);
          f.as_map()->set("type", Value::str("field_access_index"));
          return f;
        }
        return lift_value(e);
      }
      default:
        return generator_evaluable(e) ? lower_evaluable(e) : lift_value(e);
    }
  }

  std::optional<std::string> whole_pattern(const Expr& tuple) const {
    std::optional<std::size_t> frame;
    for (std::size_t k = 0; k < tuple.args.size(); ++k) {
      const Expr& a = *tuple.args[k];
      if (a.kind != ExprKind::kName) return std::nullopt;
      auto v = find_visible(a.text);
      if (!v || v->component != static_cast<int>(k) || (frame && *frame != v->frame)) return std::nullopt;
      frame = v->frame;
    }
    if (!frame || frames_[*frame].binding->names.size() != tuple.args.size()) return std::nullopt;
    return frames_[*frame].tree_name;
  }

  Value lower_decision_name(const Expr& e) {
    const Symbol* s = symbols_.find(e.text);
    if (s->kind == SymKind::kDexpr) return expand_dexpr(*s, e, {});
    if (!s->decl->dims.empty()) fail_at(e.place, "'" + e.text + "' is an array; give its indices");
    Value n = name_node(e.text);
    n.as_map()->set("sem_type", Value::str(var_type_word(*s->decl)));
    return n;
  }

  std::vector<const Expr*> subscripts(const Expr& e) const {
    std::vector<const Expr*> out;
    for (std::size_t i = 1; i < e.args.size(); ++i) out.push_back(e.args[i].get());
    return out;
  }

  Value lower_decision_index(const Expr& e) {
    const Expr& base = *e.args[0];
    if (base.kind != ExprKind::kName) fail_at(e.place, "only declared arrays can be subscripted");
    const Symbol* s = symbols_.find(base.text);
    if (s->kind == SymKind::kDexpr) return expand_dexpr(*s, e, subscripts(e));
    const std::size_t given = subscript_count(e);
    if (given != s->decl->dims.size() && !(given > 1 && s->decl->dims.size() == 1)) {
      fail_at(e.place, "'" + base.text + "' has " + std::to_string(s->decl->dims.size()) + " indices, but " +
                           std::to_string(given) + " are given");
    }
    ValueVec dims;
    if (given > 1 && s->decl->dims.size() == 1) {
      // x[a, b] over a set of tuples addresses x[<a, b>].
      ValueVec elems;
      for (const Expr* a : subscripts(e)) elems.push_back(lower_index_arg(*a));
      dims.push_back(
          node({{"type", Value::str("tuple_literal")}, {"elements", Value::list(std::move(elems))}}));
    } else {
      for (const Expr* a : subscripts(e)) dims.push_back(lower_index_arg(*a));
    }
    Value n = node({{"type", Value::str("indexed_name")},
                    {"name", Value::str(base.text)},
                    {"dimensions", Value::list(std::move(dims))}});
    n.as_map()->set("sem_type", Value::str(var_type_word(*s->decl)));
    return n;
  }

  Value expand_dexpr(const Symbol& s, const Expr& use, const std::vector<const Expr*>& args) {
    const Decl& d = *s.decl;
    if (args.size() != d.dims.size()) {
      fail_at(use.place, "decision expression '" + d.name + "' has " + std::to_string(d.dims.size()) +
                             " indices, but " + std::to_string(args.size()) + " are given");
    }
    if (std::find(expanding_.begin(), expanding_.end(), &d) != expanding_.end()) {
      fail_at(use.place, "decision expression '" + d.name + "' refers to itself");
    }
    if (expanding_.size() > 64) fail_at(use.place, "decision expressions are nested more than 64 deep");
    // The arguments are lowered where they are written, before the dexpr's
    // own scope hides the iterators around the use.
    std::vector<std::pair<Value, Value>> lowered;
    for (const Expr* a : args) lowered.emplace_back(lower_index_arg(*a), lower_expr(*a));
    const std::size_t mark = frames_.size();
    Frame barrier;
    barrier.kind = Frame::Kind::kBarrier;
    frames_.push_back(barrier);
    for (std::size_t k = 0; k < args.size(); ++k) {
      if (d.dims[k].iterator.empty()) {
        fail_at(d.dims[k].place,
                "an indexed decision expression names its indices: write [i in " + std::string("...") + "]");
      }
      Frame alias;
      alias.kind = Frame::Kind::kAlias;
      alias.alias = d.dims[k].iterator;
      alias.arg = args[k];
      frames_.push_back(alias);
      alias_index_nodes_[frames_.size() - 1] = lowered[k].first;
      alias_value_nodes_[frames_.size() - 1] = lowered[k].second;
    }
    expanding_.push_back(&d);
    Value body = lower_expr(*d.value);
    expanding_.pop_back();
    for (std::size_t i = mark; i < frames_.size(); ++i) {
      alias_index_nodes_.erase(i);
      alias_value_nodes_.erase(i);
    }
    frames_.resize(mark);
    return body;
  }

  // ------------------------------------------------------------ constraints

  void lower_stmt(const Stmt& s, ValueVec& out) {
    switch (s.kind) {
      case StmtKind::kBlock:
        for (const Stmt& inner : s.body) lower_stmt(inner, out);
        return;
      case StmtKind::kForall: {
        const std::size_t mark = frames_.size();
        Value filter;
        Value iterators = lower_iteration(*s.iteration, filter);
        ValueVec body;
        for (const Stmt& inner : s.body) lower_stmt(inner, body);
        pop_frames(mark);
        MapPtr m = make_map();
        m->set("type", Value::str("forall_constraint"));
        m->set("iterators", iterators);
        m->set("constraints", Value::list(std::move(body)));
        if (!filter.is_none()) m->set("index_constraint", filter);
        Value v = Value::map(m);
        annotate(v, s.place, "");
        out.push_back(v);
        return;
      }
      case StmtKind::kConstraint:
        return lower_constraint(s, out);
    }
  }

  void lower_constraint(const Stmt& s, ValueVec& out) {
    const Expr& e = *s.expr;
    if (!uses_decisions(e)) {
      fail_at(e.place,
              "this constraint involves no decision variable; a condition on data belongs in a filter");
    }
    constraint_mark_ = frames_.size();
    std::vector<Value> rows = lower_logic(e, s);
    for (Value& link : links_) {
      annotate(link, s.place, s.label);
      out.push_back(std::move(link));
    }
    links_.clear();
    for (Value& c : rows) {
      annotate(c, s.place, s.label);
      out.push_back(std::move(c));
    }
  }

  // ------------------------------------------------------------ logic
  //
  // A logical constraint is brought to negation normal form over comparisons,
  // its top-level conjuncts are posted one by one, and each conjunct that is
  // a real disjunction goes to the generator as an `or` of `and` groups of
  // non-strict comparisons asserted `== true`: the one logical form whose rows
  // are exact (one binary per group, big-M from earlier bound rows). Strict
  // comparisons become non-strict: exactly for integer expressions (by 1),
  // with the generator's own margin otherwise (and a warning).

  struct Leaf {
    const Expr* left;
    const Expr* right;
    std::string op;   // <=, >=, ==
    double shift;     // added to the right side
    Value left_node;  // when set, the left side as already lowered
  };
  struct Formula {
    enum class Kind : std::uint8_t { kLeaf, kAnd, kOr, kTrue, kFalse };
    Kind kind = Kind::kTrue;
    Leaf leaf{};
    std::vector<Formula> kids;
  };
  static constexpr double kStrictMargin = 1e-06;
  static constexpr std::size_t kMaxGroups = 256;

  static Formula junction(Formula::Kind kind, Formula a, Formula b) {
    Formula f;
    f.kind = kind;
    f.kids.push_back(std::move(a));
    f.kids.push_back(std::move(b));
    return f;
  }

  static std::string negated(const std::string& op) {
    if (op == "<=") return ">";
    if (op == ">=") return "<";
    if (op == "<") return ">=";
    if (op == ">") return "<=";
    if (op == "==") return "!=";
    return "==";
  }

  Formula nnf(const Expr& e, bool negate) {
    if (e.kind == ExprKind::kBinary && (e.text == "&&" || e.text == "||")) {
      const bool is_and = (e.text == "&&") != negate;
      return junction(is_and ? Formula::Kind::kAnd : Formula::Kind::kOr, nnf(*e.args[0], negate),
                      nnf(*e.args[1], negate));
    }
    if (e.kind == ExprKind::kBinary && e.text == "=>") {
      // a => b is !a || b.
      return junction(negate ? Formula::Kind::kAnd : Formula::Kind::kOr, nnf(*e.args[0], !negate),
                      nnf(*e.args[1], negate));
    }
    if (e.kind == ExprKind::kUnary && e.text == "!") return nnf(*e.args[0], !negate);
    if (e.kind == ExprKind::kBool) {
      Formula f;
      f.kind = ((e.int_value != 0) != negate) ? Formula::Kind::kTrue : Formula::Kind::kFalse;
      return f;
    }
    if (e.kind == ExprKind::kBinary && (e.text == "==" || e.text == "!=") &&
        (is_formula(*e.args[0]) || is_formula(*e.args[1]))) {
      return formula_relation(e, negate);
    }
    if (e.kind == ExprKind::kBinary && is_comparison(e.text)) {
      if (!uses_decisions(e)) return data_condition(e, negate);
      return comparison_formula(e, negate ? negated(e.text) : e.text);
    }
    if (is_boolean_variable(e)) {
      // A Boolean variable used as a condition means `b == 1`.
      bool_literals_.push_back(std::make_unique<Expr>(ExprKind::kInt, e.place));
      bool_literals_.back()->int_value = negate ? 0 : 1;
      Formula f;
      f.kind = Formula::Kind::kLeaf;
      f.leaf = Leaf{&e, bool_literals_.back().get(), "==", 0.0, Value()};
      return f;
    }
    fail_at(e.place, "expected a comparison or a logical formula of comparisons here");
  }

  // A truth-valued expression: a comparison or a logical connective.
  static bool is_formula(const Expr& e) {
    if (e.kind == ExprKind::kUnary) return e.text == "!";
    if (e.kind != ExprKind::kBinary) return false;
    return e.text == "&&" || e.text == "||" || e.text == "=>" || is_comparison(e.text);
  }

  static std::optional<bool> truth_literal(const Expr& e) {
    if (e.kind == ExprKind::kBool) return e.int_value != 0;
    if (e.kind == ExprKind::kInt && (e.int_value == 0 || e.int_value == 1)) return e.int_value == 1;
    return std::nullopt;
  }

  // `A == true`, `A != false`, `A == B` between formulas: equivalence.
  Formula formula_relation(const Expr& e, bool negate) {
    const bool differ = (e.text == "!=") != negate;
    const Expr& a = *e.args[0];
    const Expr& b = *e.args[1];
    if (auto lit = truth_literal(b)) return nnf(a, *lit == differ);
    if (auto lit = truth_literal(a)) return nnf(b, *lit == differ);
    if (!is_formula(a) || !is_formula(b)) {
      fail_at(e.place, "a logical formula can only be compared with another formula or with true/false");
    }
    // a == b is (a && b) || (!a && !b); a != b is (a && !b) || (!a && b).
    return junction(Formula::Kind::kOr, junction(Formula::Kind::kAnd, nnf(a, false), nnf(b, differ)),
                    junction(Formula::Kind::kAnd, nnf(a, true), nnf(b, !differ)));
  }

  // A condition on data alone inside a logical constraint is decided by the
  // data, which the tree does not know yet; such conditions belong in filters.
  [[noreturn]] static Formula data_condition(const Expr& e, bool /*negate*/) {
    fail_at(e.place, "this comparison involves no decision variable; move it into the filter of a forall");
  }

  Formula comparison_formula(const Expr& e, const std::string& op) {
    const Expr& l = *e.args[0];
    const Expr& r = *e.args[1];
    const bool integral = is_integer_expr(l) && is_integer_expr(r);
    auto leaf = [&](const std::string& o, double shift) {
      Formula f;
      f.kind = Formula::Kind::kLeaf;
      f.leaf = Leaf{&l, &r, o, shift, Value()};
      return f;
    };
    if (op == "<=" || op == ">=" || op == "==") return leaf(op, 0.0);
    if (op == "!=") {
      if (!integral) {
        fail_at(e.place,
                "'!=' between expressions that are not integer-valued cannot be expressed exactly; "
                "use '<=' or '>=' with a margin");
      }
      return junction(Formula::Kind::kOr, leaf("<=", -1.0), leaf(">=", 1.0));
    }
    const bool less = op == "<";
    if (!integral) {
      out_.warnings.push_back(
          Diagnostic{e.place, "strict comparison '" + op +
                                  "' between continuous expressions "
                                  "in a logical constraint is taken with a margin of 1e-06"});
    }
    const double step = integral ? 1.0 : kStrictMargin;
    return leaf(less ? "<=" : ">=", less ? -step : step);
  }

  bool is_boolean_variable(const Expr& e) const {
    const Expr& base = e.kind == ExprKind::kIndex ? *e.args[0] : e;
    if (base.kind != ExprKind::kName || find_visible(base.text)) return false;
    const Symbol* s = symbols_.find(base.text);
    return s != nullptr && s->kind == SymKind::kDvar && s->elem.base == ElemType::Base::kBool;
  }

  // Integer-valued for every value of its variables: integer variables,
  // integer literals and int parameters, under + - * and sums.
  bool is_integer_expr(const Expr& e) const {
    switch (e.kind) {
      case ExprKind::kInt:
      case ExprKind::kBool:
        return true;
      case ExprKind::kFloat:
        return false;
      case ExprKind::kName:
      case ExprKind::kIndex: {
        const Expr& base = e.kind == ExprKind::kIndex ? *e.args[0] : e;
        if (auto v = find_visible(base.text)) {
          const Frame& f = frames_[v->frame];
          if (f.kind == Frame::Kind::kAlias) return is_integer_expr(*f.arg);
          return e.kind == ExprKind::kName && tuple_of_frame(v->frame) == nullptr && v->component < 0;
        }
        const Symbol* s = symbols_.find(base.text);
        if (s == nullptr) return false;
        if (s->kind == SymKind::kDexpr) return is_integer_expr(*s->decl->value);
        return s->elem.base == ElemType::Base::kInt || s->elem.base == ElemType::Base::kBool;
      }
      case ExprKind::kUnary:
        return e.text != "!" && is_integer_expr(*e.args[0]);
      case ExprKind::kBinary:
        return (e.text == "+" || e.text == "-" || e.text == "*") && is_integer_expr(*e.args[0]) &&
               is_integer_expr(*e.args[1]);
      case ExprKind::kAggregate:
        return e.text == "sum" && is_integer_expr(*e.args[0]);
      default:
        return false;
    }
  }

  using Groups = std::vector<std::vector<Leaf>>;

  Groups dnf(const Formula& f, const Place& at) {
    switch (f.kind) {
      case Formula::Kind::kTrue:
        return Groups{{}};
      case Formula::Kind::kFalse:
        return Groups{};
      case Formula::Kind::kLeaf:
        return Groups{{f.leaf}};
      case Formula::Kind::kOr: {
        Groups out = dnf(f.kids[0], at);
        for (auto& g : dnf(f.kids[1], at)) out.push_back(std::move(g));
        if (out.size() > kMaxGroups) too_many_groups(at);
        return out;
      }
      case Formula::Kind::kAnd: {
        const Groups a = dnf(f.kids[0], at);
        const Groups b = dnf(f.kids[1], at);
        if (a.size() * b.size() > kMaxGroups) too_many_groups(at);
        Groups out;
        for (const auto& x : a) {
          for (const auto& y : b) {
            std::vector<Leaf> g = x;
            g.insert(g.end(), y.begin(), y.end());
            out.push_back(std::move(g));
          }
        }
        return out;
      }
    }
    return Groups{};
  }

  [[noreturn]] static void too_many_groups(const Place& at) {
    fail_at(at, "this logical constraint expands to more than " + std::to_string(kMaxGroups) +
                    " alternatives; split it into smaller constraints");
  }

  static void conjuncts(Formula f, std::vector<Formula>& out) {
    if (f.kind == Formula::Kind::kAnd) {
      for (Formula& k : f.kids) conjuncts(std::move(k), out);
      return;
    }
    out.push_back(std::move(f));
  }

  std::vector<Value> lower_logic(const Expr& e, const Stmt& /*s*/) {
    // A plain comparison stays a plain row, strict or not.
    if (e.kind == ExprKind::kBinary && is_comparison(e.text) && e.text != "!=" && !is_formula(*e.args[0]) &&
        !is_formula(*e.args[1])) {
      return {comparison_constraint(e)};
    }
    std::vector<Formula> parts;
    conjuncts(nnf(e, false), parts);
    std::vector<Value> out;
    for (const Formula& part : parts) {
      Groups groups = dnf(part, e.place);
      if (groups.empty()) fail_at(e.place, "this constraint can never hold");
      if (std::any_of(groups.begin(), groups.end(), [](const auto& g) { return g.empty(); })) continue;
      if (groups.size() == 1) {
        for (const Leaf& leaf : groups[0]) {
          out.push_back(node({{"type", Value::str("constraint")},
                              {"op", Value::str(leaf.op)},
                              {"left", lower_expr(*leaf.left)},
                              {"right", leaf_right(leaf)}}));
        }
        continue;
      }
      out.push_back(disjunction(groups));
    }
    return out;
  }

  // `g1 || g2 || ...` asserted true, each group a conjunction of leaves.
  Value disjunction(const Groups& groups) {
    uses_logic_ = true;
    Value tree;
    for (const auto& g : groups) {
      Value conj;
      for (const Leaf& leaf : g) {
        Value cmp = leaf_node(leaf);
        conj = conj.is_none() ? cmp : node({{"type", Value::str("and")}, {"left", conj}, {"right", cmp}});
      }
      tree = tree.is_none() ? conj : node({{"type", Value::str("or")}, {"left", tree}, {"right", conj}});
    }
    return node(
        {{"type", Value::str("constraint")},
         {"op", Value::str("==")},
         {"left", tree},
         {"right", node({{"type", Value::str("boolean_literal")}, {"value", Value::boolean(true)}})}});
  }

  Value leaf_right(const Leaf& leaf) {
    Value right = lower_expr(*leaf.right);
    if (leaf.shift == 0.0) return right;
    return node({{"type", Value::str("binop")},
                 {"op", Value::str("+")},
                 {"left", right},
                 {"right", number_node(Value::real(leaf.shift))}});
  }

  // Big-M values assume a box of [-1000, 1000] for a variable without bound
  // rows; a logical row over an unbounded variable is exact only inside it.
  void warn_unbounded(const Expr& e) {
    std::vector<std::string> shadow;
    walk_with_shadow(e, shadow, [&](const Expr& x, const std::vector<std::string>& sh) {
      if (x.kind != ExprKind::kName || shadowed(sh, x.text) || find_visible(x.text)) return;
      const Symbol* s = symbols_.find(x.text);
      if (s == nullptr || s->kind != SymKind::kDvar || s->elem.base == ElemType::Base::kBool) return;
      const Decl& d = *s->decl;
      if ((d.lower && !is_infinite(*d.lower)) && (d.upper && !is_infinite(*d.upper))) return;
      if (!warned_unbounded_.insert(d.name).second) return;
      out_.warnings.push_back(
          Diagnostic{x.place, "'" + d.name +
                                  "' has no finite domain but appears in a logical "
                                  "constraint, whose big-M then assumes values within [-1000, 1000]; "
                                  "declare its domain ('in lo..hi') to make the encoding exact"});
    });
  }

  Value leaf_node(const Leaf& leaf) {
    if (leaf.left != nullptr) warn_unbounded(*leaf.left);
    if (leaf.right != nullptr) warn_unbounded(*leaf.right);
    Value left = leaf.left_node.is_none() ? lower_expr(*leaf.left) : deep_copy(leaf.left_node);
    return node({{"type", Value::str("binop")},
                 {"op", Value::str(leaf.op)},
                 {"left", left},
                 {"right", leaf_right(leaf)},
                 {"sem_type", Value::str("boolean")}});
  }

  // A comparison used as a 0/1 value (a count, a weight): a hidden Boolean
  // variable b tied to it both ways by the exact disjunction form,
  // `b <= 0 || cmp` and `b >= 1 || !cmp`, over the same iterators as the
  // comparison. The value is b itself, so counts become plain sums.
  Value truth_value(const Expr& e) {
    for (std::size_t i = constraint_mark_; i < frames_.size(); ++i) {
      if (frames_[i].kind != Frame::Kind::kBinding) {
        fail_at(e.place,
                "a comparison used as a value inside an indexed decision expression is not supported; "
                "write it in the constraint itself");
      }
    }
    if (in_objective_) fail_at(e.place, "comparisons used as values are supported in constraints only");
    const std::string name = fresh_name();
    ValueVec dims;
    ValueVec subscripts;
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      const Frame& f = frames_[i];
      if (f.kind != Frame::Kind::kBinding) continue;
      dims.push_back(dimension_of_frame(i));
      subscripts.push_back(
          node({{"type", Value::str("name_reference_index")}, {"name", Value::str(f.tree_name)}}));
    }
    Value ref;
    if (dims.empty()) {
      hidden_dvars_.push_back(node(
          {{"type", Value::str("dvar")}, {"name", Value::str(name)}, {"var_type", Value::str("boolean")}}));
      ref = name_node(name);
    } else {
      hidden_dvars_.push_back(node({{"type", Value::str("dvar_indexed")},
                                    {"name", Value::str(name)},
                                    {"var_type", Value::str("boolean")},
                                    {"dimensions", Value::list(std::move(dims))}}));
      ref = node({{"type", Value::str("indexed_name")},
                  {"name", Value::str(name)},
                  {"dimensions", Value::list(std::move(subscripts))}});
    }
    auto flag_leaf = [&](const char* op, std::int64_t bound) {
      bool_literals_.push_back(std::make_unique<Expr>(ExprKind::kInt, e.place));
      bool_literals_.back()->int_value = bound;
      return Leaf{nullptr, bool_literals_.back().get(), op, 0.0, ref};
    };
    Groups holds = dnf(comparison_formula(e, e.text), e.place);
    holds.insert(holds.begin(), std::vector<Leaf>{flag_leaf("<=", 0)});
    Groups fails = dnf(comparison_formula(e, negated(e.text)), e.place);
    fails.insert(fails.begin(), std::vector<Leaf>{flag_leaf(">=", 1)});
    add_link(disjunction(holds));
    add_link(disjunction(fails));
    return ref;
  }

  // A row that must hold for every combination of the iterators opened
  // inside the current constraint (the sums around the comparison).
  void add_link(Value row) {
    std::vector<const LoweredIteration*> inner;
    for (const LoweredIteration& it : iterations_) {
      if (it.first_frame >= constraint_mark_) inner.push_back(&it);
    }
    for (auto it = inner.rbegin(); it != inner.rend(); ++it) {
      MapPtr m = make_map();
      m->set("type", Value::str("forall_constraint"));
      m->set("iterators", deep_copy((*it)->iterators));
      m->set("constraints", Value::list(ValueVec{row}));
      if (!(*it)->filter.is_none()) m->set("index_constraint", deep_copy((*it)->filter));
      row = Value::map(m);
    }
    links_.push_back(row);
  }

  // The index set a frame runs over, as a dimension of a declared array.
  Value dimension_of_frame(std::size_t i) const {
    for (const LoweredIteration& it : iterations_) {
      if (i < it.first_frame || i >= it.end_frame) continue;
      const Value& range = it.iterators.items()[i - it.first_frame].as_map()->at("range");
      const std::string_view kind = node_type(range);
      if (kind == "named_range")
        return node({{"type", Value::str("named_range_dimension")}, {"name", range.as_map()->at("name")}});
      if (kind == "named_set")
        return node({{"type", Value::str("named_set_dimension")}, {"name", range.as_map()->at("name")}});
      return node({{"type", Value::str("range_index")},
                   {"start", deep_copy(range.as_map()->at("start"))},
                   {"end", deep_copy(range.as_map()->at("end"))}});
    }
    fail_at(frames_[i].binding->place, "a comparison used as a value cannot be indexed by this iterator");
  }

  Value comparison_constraint(const Expr& e) {
    return node({{"type", Value::str("constraint")},
                 {"op", Value::str(e.text)},
                 {"left", lower_expr(*e.args[0])},
                 {"right", lower_expr(*e.args[1])}});
  }

  // Source place and label ride on the constraint node; the generator reads
  // neither, so rows and names do not change, but errors can name them.
  static void annotate(Value& c, const Place& at, const std::string& label) {
    c.as_map()->set("opl_source", Value::str(at.text()));
    if (!label.empty()) c.as_map()->set("opl_label", Value::str(label));
  }

  std::string data_name(const std::string& name) const { return script_data_name(name, symbols_); }

  const Model& model_;
  const SymbolTable& symbols_;
  LoweredModel out_;
  std::vector<Frame> frames_;
  std::unordered_map<std::size_t, Value> alias_index_nodes_;
  std::unordered_map<std::size_t, Value> alias_value_nodes_;
  std::vector<const Decl*> expanding_;
  std::vector<ExprPtr> bool_literals_;
  std::vector<LoweredIteration> iterations_;
  std::size_t constraint_mark_ = 0;
  ValueVec links_;
  ValueVec hidden_dvars_;
  bool in_objective_ = false;
  bool uses_logic_ = false;
  std::set<std::string> warned_unbounded_;
  ValueVec domain_rows_;
  ValueVec hidden_decls_;
  int counter_ = 0;
};

}  // namespace

LoweredModel lower_model(const Model& model, const SymbolTable& symbols) {
  return Lowerer(model, symbols).run();
}

bool range_bound_is_hidden(const Decl& range, int which) {
  return range.external || range.value->args[static_cast<std::size_t>(which)]->kind != ExprKind::kInt;
}

std::string range_bound_name(const std::string& range, int which) {
  return "__opl_" + range + (which == 0 ? "_start" : "_end");
}

std::string script_data_name(const std::string& name, const SymbolTable& symbols) {
  // Besides Python's keywords and the names the generator refuses for data
  // (script_reads_name): more builtins a script may call, and every name
  // the emitted script assigns.
  static const std::set<std::string> kTaken = {"abs",
                                               "all",
                                               "any",
                                               "bool",
                                               "dict",
                                               "enumerate",
                                               "float",
                                               "getattr",
                                               "int",
                                               "isinstance",
                                               "len",
                                               "list",
                                               "map",
                                               "max",
                                               "min",
                                               "print",
                                               "range",
                                               "round",
                                               "set",
                                               "sorted",
                                               "str",
                                               "sum",
                                               "tuple",
                                               "type",
                                               "zip",
                                               "globals",
                                               "locals",
                                               "np",
                                               "numpy",
                                               "scipy",
                                               "time",
                                               "linprog",
                                               "csr_matrix",
                                               "sense",
                                               "c",
                                               "bounds",
                                               "integrality",
                                               "var_names",
                                               "objective_offset",
                                               "A_eq",
                                               "A_ub",
                                               "b_eq",
                                               "b_ub",
                                               "A_eq_rows",
                                               "A_eq_cols",
                                               "A_eq_data",
                                               "A_ub_rows",
                                               "A_ub_cols",
                                               "A_ub_data",
                                               "res",
                                               "results",
                                               "results_container",
                                               "status_map",
                                               "status_str",
                                               "start_time",
                                               "end_time",
                                               "objective_value",
                                               "solution",
                                               "stats"};
  const auto taken = [&](const std::string& n) {
    return kTaken.count(n) > 0 || script_reads_name(n) || is_python_keyword(n);
  };
  std::string out = name;
  while (taken(out) || (out != name && symbols.find(out) != nullptr)) out += "_";
  return out;
}

}  // namespace kolva::opl

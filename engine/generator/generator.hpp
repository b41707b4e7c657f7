#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "constraints/sparse_rows.hpp"
#include "data/lookup_result.hpp"
#include "data/var_name_index.hpp"
#include "evaluator/eval_result.hpp"
#include "generator/log.hpp"
#include "generator/problem.hpp"
#include "model/error.hpp"
#include "model/map.hpp"
#include "model/value.hpp"
#include "variables/var_names.hpp"

namespace kolva {

class ExpressionEvaluator;

// Iterator name -> current value.
using Env = Map;

inline constexpr double kBigMDefault = 1000000.0;
inline constexpr double kBoolEps = 1e-06;

// One column's [lower, upper]; None is unbounded on that side.
struct BoundPair {
  Value lower;
  Value upper;
};

// The code generator. Its state is a flat set of attributes through which the
// phases communicate; each subsystem folder implements its own group of
// methods. Method names that form the Python surface keep their Python
// spelling, leading underscore included.
class Generator {
 public:
  Generator(MapPtr ast, const MapPtr& data_dict, std::shared_ptr<LogSink> sink);
  ~Generator();
  Generator(const Generator&) = delete;
  Generator& operator=(const Generator&) = delete;

  // Re-reads the logger's levels; called once at the start of each public call.
  void refresh_log_levels() { log_.refresh(); }
  const Log& log() const { return log_; }

  // --- code buffer and driver (generator/) ---
  std::string _indent() const;
  void _add_code_line(std::string_view line);
  std::string generate_code();
  LinearProblem build_problem();
  void _apply_top_level_binary_assignments();
  void _reconcile_problem_metadata();
  void _refresh_problem_metadata_code_lines();
  LinearProblem _snapshot_linear_problem() const;

  // --- phases filled in as the engine grows ---
  void _generate_data_declarations(const MapPtr& data_dict);
  void _build_variables();
  void _build_objective();
  void _build_constraints();

  // --- evaluation entries ---
  EvalResult _eval_expr(const Value& expr, const Env* env);
  EvalResult _eval_index_expr(const Value& dim_expr, const Env& env);
  ExpressionEvaluator& evaluator();
  bool has_evaluator() const { return expr_evaluator_ != nullptr; }

  // --- error builders: they return the error; the caller raises it ---
  static Error _not_found_error(std::string_view what, std::string_view name);
  static Error _unsupported_type_error(std::string_view what, std::string_view detail);
  static Error _unsupported_operator_error(std::string_view context, std::string_view op);

  // --- declarations ---
  MapPtr _find_decl(std::string_view name, const std::string* decl_type = nullptr);
  std::vector<MapPtr> _find_decls(std::string_view name, const std::string* decl_type = nullptr);

  // --- name and parameter resolution (data/) ---
  LookupResult _lookup_var_or_param(const std::string& name, const ValueVec* indices, const Env* env,
                                    bool default_zero_if_missing = false);
  std::optional<LookupResult> _resolve_variable(const std::string& name, const ValueVec* indices);
  LookupResult _resolve_parameter(const std::string& name, const ValueVec* indices, const Env& env,
                                  bool default_zero_if_missing);
  LookupResult _resolve_ast_parameter(const std::string& name, const ValueVec* indices);
  Value _eval_index(const Value& idx, const Env& env);
  std::optional<MapPtr> _convert_flat_kv_to_dict(const Value& param_data) const;
  Value _eval_bound(const Value& expr);
  // A field of a tuple (or map) by its tuple type; None when unknown.
  Value _resolve_tuple_field(const Value& tuple_type, const Value& field, const Value& tuple_val);

  // --- variable names (variables/) ---
  std::string _format_varname(const std::string& base, const ValueVec& indices, bool is_tuple_indexed);
  std::string _multi_indexed_var_name(const Value& expr, const Env& env,
                                      const IndexEvaluator* eval_index_expr);

  // --- variables ---
  std::pair<std::string, std::int64_t> _add_variable(const std::string& base_name, const Value& lower,
                                                     const Value& upper);
  std::string _ensure_aux_binary(const std::string& base_name);
  std::int64_t add_column(const std::string& name);

  // --- attributes (the contract between phases) ---
  MapPtr ast;
  MapPtr data_dict;
  std::vector<std::string> scipy_code_lines;
  std::int64_t indent_level = 0;
  std::vector<std::string> var_names;
  std::unordered_map<std::string, std::int64_t> var_indices;
  // Keys of var_indices in first-insertion order (a dict's iteration order).
  std::vector<std::string> var_indices_order;
  std::vector<BoundPair> bounds;
  // Absent until _build_variables runs, as the attribute is on a new object.
  std::optional<std::vector<Value>> integrality;
  std::vector<double> c;
  Value obj_const_offset = Value::real(0.0);
  SparseRows A_eq;
  SparseRows A_ub;
  std::vector<double> b_eq;
  std::vector<double> b_ub;
  std::string results_varname = "results";
  MapPtr comparison_truth_cache = make_map();
  MapPtr bool_subtree_cache = make_map();
  MapPtr tuple_types;  // null until _build_variables runs
  std::optional<std::vector<std::string>> aux_created;
  MapPtr collected_lbs = make_map();
  MapPtr collected_ubs = make_map();
  std::vector<Value> lower_bounds;
  std::vector<Value> upper_bounds;
  bool allow_symbolic_bool = false;

 private:
  void emit_script_header();
  void emit_short_circuit(const LinearProblem& problem);
  void emit_solve_section();
  double constant_objective_value();
  void record_column(const std::string& name, std::int64_t column);
  const std::vector<MapPtr>& declarations_named(std::string_view name);
  bool domain_check_fails(const std::string& name, const ValueVec& norm_indices, std::string& details);
  Value resolve_scalar_data(const std::string& name, const ValueVec* indices, const Env& env,
                            const Value& val);
  std::int64_t list_start_offset(const std::string& name, std::size_t position);

  Log log_;
  std::unique_ptr<ExpressionEvaluator> expr_evaluator_;
  VarNameIndex bracket_free_names_;
  // Declarations by name, in model order; built on first use.
  std::unordered_map<std::string, std::vector<MapPtr>> decls_by_name_;
  bool decls_indexed_ = false;
};

}  // namespace kolva

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "constraints/build_state.hpp"
#include "constraints/sparse_rows.hpp"
#include "data/lookup_result.hpp"
#include "data/set_members.hpp"
#include "data/var_name_index.hpp"
#include "evaluator/eval_result.hpp"
#include "expansion/keyed_coefs.hpp"
#include "generator/bound_value.hpp"
#include "generator/code_lines.hpp"
#include "generator/log.hpp"
#include "generator/problem.hpp"
#include "generator/scoped_flag.hpp"
#include "model/error.hpp"
#include "model/map.hpp"
#include "model/value.hpp"
#include "variables/name_table.hpp"
#include "variables/var_names.hpp"

namespace kolva {

class ExpressionEvaluator;

// Iterator name -> current value.
using Env = Map;

inline constexpr double kBigMDefault = 1000000.0;
inline constexpr double kBoolEps = 1e-06;

// One column's [lower, upper]; None is unbounded on that side.
struct BoundPair {
  BoundValue lower;
  BoundValue upper;
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
  void _add_code_line(std::string&& line);
  void _add_code_line(const char* line) { _add_code_line(std::string_view(line)); }
  void _add_code_line(const std::string& line) { _add_code_line(std::string_view(line)); }
  std::string generate_code();
  LinearProblem build_problem();
  // The phases of build_problem without the final snapshot, for callers
  // that read the result from the generator's own state.
  void run_build_phases();
  // "minimize" or "maximize" as the snapshot reads the objective's type.
  std::string snapshot_sense() const;
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
  LookupResult lookup_parameter(const std::string& name, const ValueVec* indices, const Env& scope,
                                bool default_zero_if_missing);
  // Whether some variable's name starts with `name` followed by "_".
  bool may_prefix_a_variable(std::string_view name) const { return underscore_prefixes_.contains(name); }
  LookupResult _resolve_parameter(const std::string& name, const ValueVec* indices, const Env& env,
                                  bool default_zero_if_missing);
  LookupResult _resolve_ast_parameter(const std::string& name, const ValueVec* indices);
  Value _eval_index(const Value& idx, const Env& env);
  std::optional<MapPtr> _convert_flat_kv_to_dict(const Value& param_data) const;
  Value _eval_bound(const Value& expr);
  // A field of a tuple (or map) by its tuple type; None when unknown.
  Value _resolve_tuple_field(const Value& tuple_type, const Value& field, const Value& tuple_val);

  // --- data declarations (data/) ---
  std::vector<std::pair<std::string, MapPtr>> _get_param_decl_map();

  // --- tuple types and sets (data/) ---
  void _handle_tuple_type_declaration(const Map& decl);
  ValueVec _get_tuple_set_names(const ValueVec& iterators);
  std::int64_t _resolve_tuple_index_varname(const std::string& vname) const;
  // The members of a tuple set, read once per build and reread only when
  // its data entry is replaced.
  const IndexedMembers& tuple_set_members(const std::string& set_name);
  // Positions of the members of a plain set's data, cached the same way.
  const IndexedMembers& set_positions(const std::string& set_name, const Value& set_data);

  // --- iterators (expansion/) ---
  // Whether an index filter keeps a combination: no filter, a true value,
  // or a filter that cannot be evaluated (which keeps it, by rule).
  bool index_filter_keeps(const Value& index_constraint, const Env& env);
  using Combination = std::function<void(const Env& env, const ValueVec& idx_tuple)>;
  std::pair<ValueVec, std::vector<ValueVec>> _unroll_iterators(const ValueVec& iterators, const Env* env);
  // Streams the combinations of iterators whose domains may depend on
  // earlier iterators, in nested-loop order, the last iterator fastest.
  void iterate_iterators_dynamic(const ValueVec& iterators, const Env& outer_env, const Combination& visit);
  std::int64_t _eval_bound_dynamic(const Value& expr, const Env& env);
  std::pair<Env, bool> _should_include_sum_term(const ValueVec& loop_vars, const ValueVec& idx_tuple,
                                                const ValueVec& tuple_set_names, const Env* env,
                                                const Value& index_constraint);

  // --- the per-column metadata lines of the script (generator/) ---
  enum class MetaLine : std::uint8_t { kVarNames = 0, kBounds = 1, kIntegrality = 2, kC = 3 };
  static std::string_view metadata_prefix(MetaLine kind);
  // A line that prints the list as it stands now (its first n entries).
  std::unique_ptr<const CodeLines::Block> metadata_block(MetaLine kind, bool tuple_bounds,
                                                         std::string prefix) const;
  void add_metadata_line(MetaLine kind);
  // Line `index` becomes the current text of `kind`; the bounds optionally
  // with each pair in round brackets.
  void rewrite_metadata_line(std::size_t index, MetaLine kind, bool tuple_bounds);

  // --- constraint rows (constraints/) ---
  void _finalize_constraint_state(const ConstraintBuildState& state);
  void publish_rows(RowSystem eq, RowSystem ub);
  double _big_m_for_comparison(const Value& comp, const Env* env);
  static std::pair<std::string, double> _strict_adjusted_rhs(const std::string& op, double rhs_value);
  static bool _is_linear_comparison(const Value& node);
  static ValueVec _flatten_bool(const Value& node, const std::string& target_type);
  std::pair<Value, Value> _var_bounds_safe(const Value& node);
  std::pair<Value, Value> _linear_bounds_safe(const Value& node);
  // Collected bounds only ever tighten: a lower bound rises, an upper falls.
  void _tighten_lower_bound(const std::string& name, double val);
  void _tighten_upper_bound(const std::string& name, double val);
  void _tighten_bounds(const std::string& name, double val);
  // Appends a binary column as truth flags and auxiliaries are added (no
  // entry in aux_created); returns its column.
  std::int64_t add_binary_flag(const std::string& name);
  // Keeps a node alive for as long as the generator, because its identity
  // went into a key that may outlive the model tree's own references.
  void keep_node_alive(const MapPtr& node);

  // --- objective and sum accumulation (expansion/) ---
  void _update_vector_from_coef_dict(const CoefDict& coef_dict, std::vector<double>& vector,
                                     std::string_view op) const;
  void _accumulate_objective(const Value& expr, std::vector<double>& vec);
  void _accumulate_objective_sum(const Value& expr, std::vector<double>& vec, double sign);
  void _accumulate_objective_binop(const Value& expr, std::vector<double>& vec);
  std::pair<KeyedCoefs, double> _accumulate_sum_to_dict(const Value& expr, const Env& env, double sign);
  void _accumulate_sum_expr(const Value& expr, const Env& env, KeyedCoefs& coefs, double sign,
                            double& constant);
  void _accumulate_binop_with_sum(const Value& expr, const Env& env, KeyedCoefs& coefs, double sign,
                                  double& constant);
  // The column of a term's variable: its name, or its tuple subscript brought
  // to the registered spelling; none when it is not a column.
  std::optional<std::int64_t> column_of_term(const std::string& name) const;

  // --- expression text (expansion/) ---
  std::string _emit_python_expr(const Value& expr, const Env& env);
  std::string _emit_symbolic_expr(const Value& expr);
  std::string _traverse_expression(const Value& expr);

  // --- variable names (variables/) ---
  std::string _format_varname(const std::string& base, const ValueVec& indices, bool is_tuple_indexed);
  std::string _multi_indexed_var_name(const Value& expr, const Env& env,
                                      const IndexEvaluator* eval_index_expr);
  bool _is_tuple_indexed(const MapPtr& decl);
  Value _extract_field_access_index(const Value& dim, const Env& env);
  Value _extract_tuple_index(const Value& dim, const Env& env);
  Value _extract_normal_index(const Value& dim, const Env& env);

  // --- variables ---
  std::pair<std::string, std::int64_t> _add_variable(const std::string& base_name, const Value& lower,
                                                     const Value& upper);
  std::string _ensure_aux_binary(const std::string& base_name);
  std::int64_t add_column(const std::string& name);
  std::pair<Value, Value> _infer_var_bounds(const std::string& vname);
  void _tighten_bounds_from_constraints(std::vector<BoundPair>& bounds, const Value& constraints);

  // Where the columns of an array over integer ranges lie: its first column
  // and each dimension's start and size, in product order.
  struct ArrayLayout {
    std::int64_t first_column = 0;
    std::vector<std::int64_t> starts;
    std::vector<std::int64_t> sizes;
  };
  // The column an array's subscripts point at, when the array's columns
  // are known to lie in product order and the column still carries `name`;
  // none otherwise (the caller then looks the name up).
  std::optional<std::int64_t> array_column(const Map& decl, const ValueVec& indices,
                                           std::string_view name) const;

  // --- attributes (the contract between phases) ---
  MapPtr ast;
  MapPtr data_dict;
  CodeLines scipy_code_lines;
  std::int64_t indent_level = 0;
  std::vector<std::string> var_names;
  NameTable var_indices;
  std::vector<BoundPair> bounds;
  // Absent until _build_variables runs, as the attribute is on a new object.
  // 1 for an integer column, 0 for a continuous one.
  std::optional<std::vector<std::uint8_t>> integrality;
  std::vector<double> c;
  Value obj_const_offset = Value::real(0.0);
  SparseRows A_eq;
  SparseRows A_ub;
  std::vector<double> b_eq;
  std::vector<double> b_ub;
  // One name per row of A_eq / A_ub, in row order.
  std::vector<std::string> row_names_eq;
  std::vector<std::string> row_names_ub;
  std::string results_varname = "results";
  MapPtr comparison_truth_cache = make_map();
  MapPtr bool_subtree_cache = make_map();
  MapPtr tuple_types;  // null until _build_variables runs
  std::optional<std::vector<std::string>> aux_created;
  MapPtr collected_lbs = make_map();
  MapPtr collected_ubs = make_map();
  // Counts implication flags across builds; absent until the first one.
  std::optional<std::int64_t> impl_counter;
  std::vector<Value> lower_bounds;
  std::vector<Value> upper_bounds;
  bool allow_symbolic_bool = false;

 private:
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };

  void emit_script_header();
  // The "# Alias" comment of each column whose name has that form.
  void emit_alias_lines();
  void emit_short_circuit();
  void emit_solve_section();
  double constant_objective_value();
  void record_column(const std::string& name, std::int64_t column);
  void record_block_prefixes(const std::string& base, const std::vector<ValueVec>& elements);
  const std::vector<MapPtr>& declarations_named(std::string_view name);
  std::optional<LookupResult> resolve_variable_domain(const std::string& name, const ValueVec& indices,
                                                      const ValueVec& norm_indices, const std::string& vname);
  bool domain_check_fails(const std::string& name, const ValueVec& norm_indices, std::string& details);
  Value resolve_scalar_data(const std::string& name, const ValueVec* indices, const Env& env,
                            const Value& val);
  std::int64_t list_start_offset(const std::string& name, std::size_t position,
                                 std::optional<MapPtr>& decl_of_name);

  ValueVec domain_for_iterator(const Map& it, const Env& env);
  Value range_bound_value(const Value& expr);
  std::pair<std::int64_t, std::int64_t> get_range_bounds(const std::string& range_name);
  std::int64_t declared_set_size(const std::string& set_name);
  void check_shape(const Value& param_data, const ValueVec& dims, const std::string& param_name);
  ValueVec dimension_keys(const Value& dim);
  void normalise_two_dimensional(const std::string& name, const ValueVec& dims);
  void normalise_tuple_array(const Map& decl);
  void normalise_inline_tuple_parameter(const Map& decl);
  ValueVec named_range_members(const Map& range_decl);
  ValueVec indexed_set_members(const Map& rng, const Env& env);
  void handle_scalar_variable_declaration(const Map& decl, std::vector<std::string>& names,
                                          std::vector<BoundPair>& new_bounds,
                                          std::vector<std::uint8_t>& new_integrality);
  void handle_indexed_variable_declaration(const Map& decl, std::vector<std::string>& names,
                                           std::vector<BoundPair>& new_bounds,
                                           std::vector<std::uint8_t>& new_integrality);

  void add_to_offset(const Value& v, double factor);

  // While set, every lookup reads a missing parameter as zero.
  bool default_zero_override_ = false;

 public:
  // Reads missing parameters as zero until the returned scope ends.
  [[nodiscard]] ScopedFlag zero_missing_parameters() { return {default_zero_override_, true}; }

 private:
  Log log_;
  std::unique_ptr<ExpressionEvaluator> expr_evaluator_;
  std::unordered_map<std::string, IndexedMembers> tuple_set_cache_;
  std::unordered_map<std::string, IndexedMembers> set_position_cache_;
  VarNameIndex bracket_free_names_;
  // Every text that stands before an underscore in some variable name: a
  // variable can start with `name_` only if `name` is here.
  std::unordered_set<std::string, TextHash, std::equal_to<>> underscore_prefixes_;
  std::string last_recorded_name_;
  std::string key_buffer_;  // reused for the "<name>__map" probe
  std::unordered_map<const Map*, ArrayLayout> array_layouts_;
  std::unordered_map<const Map*, MapPtr> identity_nodes_;
  // The last counter _ensure_aux_binary used per base name.
  std::unordered_map<std::string, std::int64_t> aux_counters_;
  // Set once any name is recorded for a second column: layouts are then not
  // trusted, since the name may point to a later column.
  bool names_reassigned_ = false;
  // Declarations by name, in model order; built on first use.
  std::unordered_map<std::string, std::vector<MapPtr>, TextHash, std::equal_to<>> decls_by_name_;
  // Start index of a list parameter's dimension, by declaration and position.
  std::unordered_map<const Map*, std::vector<std::optional<std::int64_t>>> list_starts_;
  bool decls_indexed_ = false;
};

}  // namespace kolva

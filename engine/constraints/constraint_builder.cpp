// The constraint driver: walks the model's constraints, then publishes the
// rows as generator attributes and as the script's triplet lines.
#include "constraints/constraint_builder.hpp"

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "generator/list_text.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

// `stem` followed by the digits of `n`.
std::string numbered(std::string stem, std::size_t n) {
  stem += std::to_string(n);
  return stem;
}

// Triplets of one system as compressed rows: a later triplet of the same
// cell replaces an earlier one.
RowSystem rows_from_triplets(const std::vector<std::int64_t>& rows, const std::vector<std::int64_t>& cols,
                             const std::vector<double>& data, const std::vector<double>& rhs) {
  std::vector<std::vector<std::pair<std::int64_t, double>>> per_row(rhs.size());
  for (std::size_t k = 0; k < rows.size(); ++k)
    per_row[static_cast<std::size_t>(rows[k])].emplace_back(cols[k], data[k]);
  RowSystem out;
  for (auto& entries : per_row) {
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::pair<std::int64_t, double>> unique;
    for (const auto& entry : entries) {
      if (!unique.empty() && unique.back().first == entry.first) {
        unique.back().second = entry.second;
      } else {
        unique.push_back(entry);
      }
    }
    out.rows.append(0, unique);
  }
  out.rhs = rhs;
  for (std::size_t r = 0; r < rhs.size(); ++r) out.names.push_back(numbered("r", r + 1));
  return out;
}

enum class TripletPart : unsigned char { kRows, kCols, kData };

// One of the script's triplet lists of a row system: the row of each
// entry, its column, or its value, over the rows stored when it was made
// (rows appended later, such as the snapshot's, are not part of it).
class TripletLine : public CodeLines::Block {
 public:
  TripletLine(std::string prefix, const SparseRows& rows, std::size_t n_rows, TripletPart part)
      : prefix_(std::move(prefix)), rows_(rows), n_rows_(n_rows), part_(part) {}
  CodeLines::Source source() const override { return CodeLines::Source::kRows; }
  std::size_t size() const override { return 1; }
  std::string_view head(std::size_t /*k*/) const override { return prefix_; }
  bool same_head() const override { return true; }
  void render(std::size_t /*k*/, std::string& out) const override {
    out += prefix_;
    out += '[';
    const std::vector<std::size_t>& starts = rows_.row_starts();
    bool first = true;
    const auto separate = [&] {
      if (!first) out += ", ";
      first = false;
    };
    for (std::size_t r = 0; r < n_rows_; ++r) {
      for (std::size_t k = starts[r]; k < starts[r + 1]; ++k) {
        separate();
        switch (part_) {
          case TripletPart::kRows:
            out += std::to_string(r);
            break;
          case TripletPart::kCols:
            out += std::to_string(rows_.cols()[k]);
            break;
          case TripletPart::kData:
            out += py_repr_float(rows_.vals()[k]);
            break;
        }
      }
    }
    out += ']';
  }

 private:
  std::string prefix_;
  const SparseRows& rows_;
  std::size_t n_rows_;
  TripletPart part_;
};

// An iterator value as a row name shows it: text without quotes, numbers
// as Python prints them, a tuple as <a,b>.
void append_index_text(const Value& v, std::string& out) {
  if (v.is_tuple() || v.is_list()) {
    out += '<';
    bool first = true;
    for (const Value& item : v.items()) {
      if (!first) out += ',';
      first = false;
      append_index_text(item, out);
    }
    out += '>';
    return;
  }
  out += py_str(v);
}

}  // namespace

std::size_t ConstraintBuilder::push_iteration(const ValueVec& values) {
  const std::size_t mark = iteration_suffix_.size();
  for (const Value& v : values) {
    iteration_suffix_ += '[';
    append_index_text(v, iteration_suffix_);
    iteration_suffix_ += ']';
  }
  return mark;
}

std::string ConstraintBuilder::row_name() const {
  std::string name = label_ != nullptr ? *label_ : numbered("c", top_position_);
  name += iteration_suffix_;
  if (!role_.empty()) {
    name += '#';
    name += role_;
  }
  return name;
}

std::vector<std::string> ConstraintBuilder::unique_names(std::vector<std::string> names) const {
  std::unordered_map<std::string, std::size_t> seen;
  seen.reserve(names.size());
  for (std::string& name : names) {
    std::size_t& count = seen[name];
    if (++count == 1) continue;
    std::string candidate = numbered(name + "#", count);
    while (seen.contains(candidate)) candidate = numbered(name + "#", ++count);
    seen[candidate] = 1;
    name = std::move(candidate);
  }
  return names;
}

ConstraintBuilder::ConstraintBuilder(Generator& generator) : gen(generator) {
  ctx.comparison_truth_cache = gen.comparison_truth_cache;
  ctx.subtree_var_cache = gen.bool_subtree_cache;
}

void ConstraintBuilder::append_eq_row(double rhs) { store(eq, row_.sorted_entries(), rhs); }

void ConstraintBuilder::append_ub_row(double rhs) { store(ub, row_.sorted_entries(), rhs); }

void ConstraintBuilder::store(RowSystem& system, const std::vector<std::pair<std::int64_t, double>>& entries,
                              double rhs) {
  if (!entries.empty() && std::cmp_greater_equal(entries.back().first, gen.var_names.size())) {
    raise(ErrorKind::kIndex, "list assignment index out of range");
  }
  system.append(entries, rhs);
  system.names.push_back(row_name());
}

void Generator::_build_constraints() {
  _add_code_line("# Constraints (sparse)");
  log_.debug([] { return std::string("[SciPyCSCCodeGenerator] Entering _build_constraints"); });
  ConstraintBuilder builder(*this);
  aux_created.emplace();
  {
    // Non-ground Boolean results are allowed only while constraints are built.
    const ScopedFlag allow(allow_symbolic_bool, true);
    const Value& constraints = ast->at("constraints");
    std::size_t position = 0;
    for (const Value& entry : constraints.items()) {
      builder.begin_top_level(++position);
      if (!entry.is_map()) {
        raise(ErrorKind::kType, std::string("a constraint must be a dict, not '") + type_name(entry) + "'");
      }
      const Env env;
      builder.handle_constraint(entry.as_map(), env);
    }
  }
  builder.lossy.report(log_);
  builder.eq.names = builder.unique_names(std::move(builder.eq.names));
  builder.ub.names = builder.unique_names(std::move(builder.ub.names));
  publish_rows(std::move(builder.eq), std::move(builder.ub));
  // Constraints may have added columns: the metadata lines are rewritten.
  // No line starts with two of the prefixes, so each kind is found alone.
  for (const std::size_t i : scipy_code_lines.find_prefixed(metadata_prefix(MetaLine::kVarNames))) {
    rewrite_metadata_line(i, MetaLine::kVarNames, false);
  }
  for (const std::size_t i : scipy_code_lines.find_prefixed(metadata_prefix(MetaLine::kBounds))) {
    rewrite_metadata_line(i, MetaLine::kBounds, true);
  }
  for (const std::size_t i : scipy_code_lines.find_prefixed(metadata_prefix(MetaLine::kIntegrality))) {
    rewrite_metadata_line(i, MetaLine::kIntegrality, false);
  }
  const std::vector<std::size_t> c_lines = scipy_code_lines.find_prefixed(metadata_prefix(MetaLine::kC));
  if (!c_lines.empty()) {
    if (c.size() > var_names.size()) scipy_code_lines.materialize(CodeLines::Source::kColumnLists);
    c.resize(var_names.size(), 0.0);
  }
  for (const std::size_t i : c_lines) rewrite_metadata_line(i, MetaLine::kC, false);
}

void Generator::_finalize_constraint_state(const ConstraintBuildState& state) {
  publish_rows(rows_from_triplets(state.A_eq_rows, state.A_eq_cols, state.A_eq_data, state.b_eq),
               rows_from_triplets(state.A_ub_rows, state.A_ub_cols, state.A_ub_data, state.b_ub));
}

// The rows become the generator's A_eq/A_ub (every row as wide as the
// variables are many now) and the script's triplet lines, which print from
// those rows when they are read.
void Generator::publish_rows(RowSystem eq, RowSystem ub) {
  scipy_code_lines.materialize(CodeLines::Source::kRows);
  const std::size_t n_vars = var_names.size();
  const std::size_t n_eq = eq.size();
  const std::size_t n_ub = ub.size();
  eq.rows.set_all_widths(n_vars);
  ub.rows.set_all_widths(n_vars);
  A_eq = std::move(eq.rows);
  b_eq = std::move(eq.rhs);
  A_ub = std::move(ub.rows);
  b_ub = std::move(ub.rhs);
  row_names_eq = std::move(eq.names);
  row_names_ub = std::move(ub.names);
  const auto triplet_line = [&](const char* name, const SparseRows& rows, std::size_t n_rows,
                                TripletPart part) {
    scipy_code_lines.push_block(std::make_unique<TripletLine>(_indent() + name, rows, n_rows, part));
  };
  _add_code_line("from scipy.sparse import csr_matrix");
  triplet_line("A_eq_rows = ", A_eq, n_eq, TripletPart::kRows);
  triplet_line("A_eq_cols = ", A_eq, n_eq, TripletPart::kCols);
  triplet_line("A_eq_data = ", A_eq, n_eq, TripletPart::kData);
  _add_code_line("b_eq = " + floats_text(b_eq));
  triplet_line("A_ub_rows = ", A_ub, n_ub, TripletPart::kRows);
  triplet_line("A_ub_cols = ", A_ub, n_ub, TripletPart::kCols);
  triplet_line("A_ub_data = ", A_ub, n_ub, TripletPart::kData);
  _add_code_line("b_ub = " + floats_text(b_ub));
  _add_code_line("A_eq = csr_matrix((A_eq_data, (A_eq_rows, A_eq_cols)), shape=(" + std::to_string(n_eq) +
                 ", " + std::to_string(n_vars) + ")) if len(b_eq) > 0 else None");
  _add_code_line("A_ub = csr_matrix((A_ub_data, (A_ub_rows, A_ub_cols)), shape=(" + std::to_string(n_ub) +
                 ", " + std::to_string(n_vars) + ")) if len(b_ub) > 0 else None");
}

}  // namespace kolva

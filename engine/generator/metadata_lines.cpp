// The four per-column lines of the script (var_names, bounds, integrality,
// c) are written by the variables and objective phases and rewritten twice
// later. Each rewrite first asks whether the list is as it was when the line
// was last written in that form; if so the text is already right and the
// half-million-entry list is not printed again.
#include <cstring>
#include <string>

#include "generator/generator.hpp"
#include "generator/list_text.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

constexpr std::array<std::string_view, 4> kPrefixes = {"var_names = ", "bounds = ", "integrality = ", "c = "};

std::uint64_t mix_in(std::uint64_t h, std::uint64_t x) {
  h ^= x + 0x9e3779b97f4a7c15ULL + (h << 6U) + (h >> 2U);
  return h;
}

std::uint64_t hash_value(const Value& v) {
  // Only what the printed form depends on: the kind and the payload.
  std::uint64_t bits = 0;
  switch (v.kind()) {
    case Value::Kind::kBool:
      bits = v.as_bool() ? 1 : 0;
      break;
    case Value::Kind::kInt:
      bits = static_cast<std::uint64_t>(v.as_int());
      break;
    case Value::Kind::kFloat: {
      const double d = v.as_float();
      std::memcpy(&bits, &d, sizeof bits);
      break;
    }
    case Value::Kind::kNone:
      break;
    default:
      return mix_in(static_cast<std::uint64_t>(v.kind()), std::hash<std::string>{}(py_repr(v)));
  }
  return mix_in(static_cast<std::uint64_t>(v.kind()), bits);
}

}  // namespace

std::uint64_t Generator::metadata_hash(MetaLine kind) const {
  auto h = static_cast<std::uint64_t>(kind);
  switch (kind) {
    case MetaLine::kVarNames:
      for (const std::string& name : var_names) h = mix_in(h, std::hash<std::string>{}(name));
      return mix_in(h, var_names.size());
    case MetaLine::kBounds:
      for (const BoundPair& pair : bounds)
        h = mix_in(mix_in(h, hash_value(pair.lower)), hash_value(pair.upper));
      return mix_in(h, bounds.size());
    case MetaLine::kIntegrality:
      if (!integrality) return mix_in(h, 0xdeadULL);
      for (const std::uint8_t v : *integrality) h = mix_in(h, hash_value(Value::integer(v)));
      return mix_in(h, integrality->size());
    case MetaLine::kC:
      for (const double d : c) h = mix_in(h, hash_value(Value::real(d)));
      return mix_in(h, c.size());
  }
  return h;
}

std::string Generator::metadata_text(MetaLine kind, bool tuple_bounds) const {
  std::string line(kPrefixes[static_cast<std::size_t>(kind)]);
  switch (kind) {
    case MetaLine::kVarNames:
      return line + names_text(var_names);
    case MetaLine::kBounds:
      return line + (tuple_bounds ? tuple_bounds_text(bounds) : bounds_text(bounds));
    case MetaLine::kIntegrality:
      return line + flags_text(integrality.value_or(std::vector<std::uint8_t>{}));
    case MetaLine::kC:
      return line + floats_text(c);
  }
  return line;
}

void Generator::add_metadata_line(MetaLine kind) {
  _add_code_line(metadata_text(kind, false));
  stamps_[static_cast<std::size_t>(kind)] = {scipy_code_lines.size() - 1, metadata_hash(kind), false, true};
}

std::string_view Generator::metadata_prefix(MetaLine kind) {
  return kPrefixes[static_cast<std::size_t>(kind)];
}

void Generator::rewrite_metadata_line(std::size_t index, MetaLine kind, bool tuple_bounds,
                                      MetaRender& render) {
  LineStamp& stamp = stamps_[static_cast<std::size_t>(kind)];
  std::string& line = scipy_code_lines.plain(index);
  if (!render.hash) render.hash = metadata_hash(kind);
  if (stamp.valid && stamp.line == index && stamp.hash == *render.hash && stamp.tuple_bounds == tuple_bounds)
    return;
  const bool restore = kind == MetaLine::kBounds && !tuple_bounds && stashed_bounds_.valid &&
                       stashed_bounds_.line == index && stashed_bounds_.hash == *render.hash;
  if (restore) {
    line = std::move(stashed_bounds_text_);
    stashed_bounds_.valid = false;
  } else {
    if (!render.text) render.text = metadata_text(kind, tuple_bounds);
    // The list-form bounds line is kept aside when the tuple form replaces
    // it, for the rewrite back to list form.
    if (kind == MetaLine::kBounds && tuple_bounds && stamp.valid && stamp.line == index &&
        !stamp.tuple_bounds && stamp.hash == *render.hash) {
      stashed_bounds_text_ = std::move(line);
      stashed_bounds_ = stamp;
    }
    line = *render.text;
  }
  stamp = {index, *render.hash, tuple_bounds, true};
}

}  // namespace kolva

// The four per-column lines of the script (var_names, bounds, integrality,
// c). The variables and objective phases write them and later phases
// rewrite them as columns are added. Each is a one-line block that prints
// the first n entries of its list when read: the lists only grow while the
// line stands, so the text is what it was when the line was written, and a
// rewrite costs nothing until the script is printed.
#include <memory>
#include <string>

#include "generator/generator.hpp"
#include "generator/list_text.hpp"

namespace kolva {
namespace {

constexpr std::array<std::string_view, 4> kPrefixes = {"var_names = ", "bounds = ", "integrality = ", "c = "};

class MetadataLine : public CodeLines::Block {
 public:
  MetadataLine(const Generator& gen, Generator::MetaLine kind, bool tuple_bounds, std::size_t length,
               std::string prefix)
      : gen_(gen), kind_(kind), tuple_bounds_(tuple_bounds), length_(length), prefix_(std::move(prefix)) {}

  CodeLines::Source source() const override { return CodeLines::Source::kColumnLists; }
  std::size_t size() const override { return 1; }
  std::string_view head(std::size_t /*k*/) const override { return prefix_; }
  bool same_head() const override { return true; }
  void render(std::size_t /*k*/, std::string& out) const override {
    out += prefix_;
    switch (kind_) {
      case Generator::MetaLine::kVarNames:
        out += names_text(std::span(gen_.var_names).first(length_));
        break;
      case Generator::MetaLine::kBounds: {
        const auto bounds = std::span(gen_.bounds).first(length_);
        out += tuple_bounds_ ? tuple_bounds_text(bounds) : bounds_text(bounds);
        break;
      }
      case Generator::MetaLine::kIntegrality:
        out += gen_.integrality ? flags_text(std::span(*gen_.integrality).first(length_)) : "[]";
        break;
      case Generator::MetaLine::kC:
        out += floats_text(std::span(gen_.c).first(length_));
        break;
    }
  }

 private:
  const Generator& gen_;
  Generator::MetaLine kind_;
  bool tuple_bounds_;
  std::size_t length_;
  std::string prefix_;
};

}  // namespace

std::string_view Generator::metadata_prefix(MetaLine kind) {
  return kPrefixes[static_cast<std::size_t>(kind)];
}

std::unique_ptr<const CodeLines::Block> Generator::metadata_block(MetaLine kind, bool tuple_bounds,
                                                                  std::string prefix) const {
  std::size_t length = 0;
  switch (kind) {
    case MetaLine::kVarNames:
      length = var_names.size();
      break;
    case MetaLine::kBounds:
      length = bounds.size();
      break;
    case MetaLine::kIntegrality:
      length = integrality ? integrality->size() : 0;
      break;
    case MetaLine::kC:
      length = c.size();
      break;
  }
  return std::make_unique<MetadataLine>(*this, kind, tuple_bounds, length, std::move(prefix));
}

void Generator::add_metadata_line(MetaLine kind) {
  scipy_code_lines.push_block(metadata_block(kind, false, _indent() + std::string(metadata_prefix(kind))));
}

void Generator::rewrite_metadata_line(std::size_t index, MetaLine kind, bool tuple_bounds) {
  scipy_code_lines.set_block(index, metadata_block(kind, tuple_bounds, std::string(metadata_prefix(kind))));
}

}  // namespace kolva

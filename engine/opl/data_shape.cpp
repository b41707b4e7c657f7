#include "opl/data_shape.hpp"

#include <limits>

namespace kolva::opl {

std::string ElemType::spelling() const {
  switch (base) {
    case Base::kInt:
      return "int";
    case Base::kFloat:
      return "float";
    case Base::kString:
      return "string";
    case Base::kBool:
      return "boolean";
    case Base::kTuple:
      return tuple != nullptr ? tuple->name : std::string("tuple");
  }
  return "?";
}

int TupleInfo::field_index(const std::string& field) const {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].name == field) return static_cast<int>(i);
  }
  return -1;
}

std::int64_t DimInfo::size() const {
  if (!is_range) return members.is_sequence() ? static_cast<std::int64_t>(members.items().size()) : 0;
  if (end < start) return 0;
  // end - start + 1 overflows for ranges spanning most of the 64-bit line;
  // such a range is larger than anything that can be stored anyway.
  const auto span = static_cast<std::uint64_t>(end) - static_cast<std::uint64_t>(start);
  constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return span >= kMax ? std::numeric_limits<std::int64_t>::max() : static_cast<std::int64_t>(span + 1);
}

}  // namespace kolva::opl

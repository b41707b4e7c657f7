#include "variables/name_table.hpp"

#include <algorithm>
#include <charconv>

#include "model/growth.hpp"

namespace kolva {
namespace {

constexpr std::uint64_t kEmpty = 0;
constexpr std::uint64_t kLowMask = 0xFFFFFFFFULL;

// The canonical decimal text of an int: what str(int) prints.
bool parse_canonical_int(std::string_view text, std::int64_t& out) {
  if (text.empty()) return false;
  const std::size_t digits_at = text[0] == '-' ? 1 : 0;
  if (digits_at == text.size()) return false;
  if (text[digits_at] == '0' && text.size() > digits_at + 1) return false;  // no leading zeros
  if (text == "-0") return false;
  const auto res = std::from_chars(text.data(), text.data() + text.size(), out);
  return res.ec == std::errc() && res.ptr == text.data() + text.size();
}

}  // namespace

std::uint64_t NameTable::hash(std::string_view name) {
  // FNV-1a, then a final mix so that similar names spread over the slots.
  std::uint64_t h = 1469598103934665603ULL;
  for (const unsigned char ch : name) {
    h ^= ch;
    h *= 1099511628211ULL;
  }
  h ^= h >> 29U;
  h *= 0xbf58476d1ce4e5b9ULL;
  return h ^ (h >> 32U);
}

// The slot holding `name`, or the empty slot where it would go.
std::size_t NameTable::probe(std::string_view name, std::uint64_t h) const {
  const std::size_t mask = slots_.size() - 1;
  const std::uint64_t tag = h >> 32U;
  for (std::size_t s = h & mask;; s = (s + 1) & mask) {
    const std::uint64_t slot = slots_[s];
    if (slot == kEmpty) return s;
    if ((slot >> 32U) == tag && keys_[(slot & kLowMask) - 1] == name) return s;
  }
}

std::optional<std::pair<std::size_t, std::int64_t>> NameTable::block_entry(std::string_view name) const {
  if (blocks_.empty()) return std::nullopt;
  for (std::size_t cut = name.find('_'); cut != std::string_view::npos; cut = name.find('_', cut + 1)) {
    const auto it = block_by_base_.find(std::string(name.substr(0, cut)));
    if (it == block_by_base_.end()) continue;
    const Block& block = blocks_[it->second];
    std::string_view rest = name.substr(cut + 1);
    std::int64_t offset = 0;
    bool ok = true;
    for (std::size_t k = 0; k < block.sizes.size() && ok; ++k) {
      // Subscripts are ints: a minus may start one, but only an underscore
      // separates them.
      std::string_view token = rest;
      if (k + 1 < block.sizes.size()) {
        const std::size_t end = rest.find('_');
        if (end == std::string_view::npos) {
          ok = false;
          break;
        }
        token = rest.substr(0, end);
        rest = rest.substr(end + 1);
      }
      std::int64_t value = 0;
      ok = parse_canonical_int(token, value);
      const std::int64_t pos = value - block.starts[k];
      ok = ok && pos >= 0 && pos < block.sizes[k];
      offset = offset * block.sizes[k] + pos;
    }
    if (ok) return std::make_pair(it->second, offset);
  }
  return std::nullopt;
}

std::string NameTable::block_name(const Block& block, std::int64_t offset) const {
  std::vector<std::int64_t> subs(block.sizes.size());
  for (std::size_t k = block.sizes.size(); k > 0; --k) {
    subs[k - 1] = block.starts[k - 1] + offset % block.sizes[k - 1];
    offset /= block.sizes[k - 1];
  }
  std::string name = block.base;
  for (const std::int64_t s : subs) {
    name += '_';
    name += std::to_string(s);
  }
  return name;
}

std::optional<std::int64_t> NameTable::find(std::string_view name) const {
  if (!slots_.empty()) {
    const std::uint64_t slot = slots_[probe(name, hash(name))];
    if (slot != kEmpty) return values_[(slot & kLowMask) - 1];
  }
  if (const auto entry = block_entry(name)) return blocks_[entry->first].first_column + entry->second;
  return std::nullopt;
}

std::optional<std::size_t> NameTable::position(std::string_view name) const {
  if (const auto entry = block_entry(name)) {
    return blocks_[entry->first].first_position + static_cast<std::size_t>(entry->second);
  }
  if (slots_.empty()) return std::nullopt;
  const std::uint64_t slot = slots_[probe(name, hash(name))];
  if (slot == kEmpty) return std::nullopt;
  return positions_[(slot & kLowMask) - 1];
}

bool NameTable::insert_or_assign(std::string_view name, std::int64_t column) {
  if ((keys_.size() + 1) * 2 > slots_.size()) grow(0);
  const std::uint64_t h = hash(name);
  const std::size_t s = probe(name, h);
  if (slots_[s] != kEmpty) {
    values_[(slots_[s] & kLowMask) - 1] = column;
    return false;
  }
  const auto entry = block_entry(name);
  keys_.emplace_back(name);
  values_.push_back(column);
  shadows_.push_back(entry.has_value());
  slots_[s] = ((h >> 32U) << 32U) | static_cast<std::uint64_t>(keys_.size());
  if (entry) {
    // A block's name given a newer column: it keeps the block's place.
    positions_.push_back(blocks_[entry->first].first_position + static_cast<std::size_t>(entry->second));
    return false;
  }
  positions_.push_back(size_);
  order_.push_back({false, keys_.size() - 1});
  ++size_;
  return true;
}

bool NameTable::insert_block(const std::string& base, std::vector<std::int64_t> starts,
                             std::vector<std::int64_t> sizes, std::int64_t first_column) {
  if (block_by_base_.contains(base) || sizes.empty()) return false;
  std::size_t count = 1;
  for (const std::int64_t n : sizes) count *= static_cast<std::size_t>(std::max<std::int64_t>(n, 0));
  if (count == 0) return true;
  blocks_.push_back({base, std::move(starts), std::move(sizes), first_column, size_, count});
  block_by_base_.emplace(base, blocks_.size() - 1);
  order_.push_back({true, blocks_.size() - 1});
  size_ += count;
  return true;
}

void NameTable::reserve(std::size_t extra) {
  const std::size_t wanted = keys_.size() + extra;
  reserve_more(keys_, extra);
  reserve_more(values_, extra);
  reserve_more(positions_, extra);
  if (wanted * 2 > slots_.size()) grow(wanted);
}

void NameTable::grow(std::size_t at_least) {
  std::size_t capacity = slots_.empty() ? 16 : slots_.size() * 2;
  while (capacity < (std::max(keys_.size(), at_least) + 1) * 2) capacity *= 2;
  slots_.assign(capacity, kEmpty);
  const std::size_t mask = capacity - 1;
  for (std::size_t i = 0; i < keys_.size(); ++i) {
    const std::uint64_t h = hash(keys_[i]);
    std::size_t s = h & mask;
    while (slots_[s] != kEmpty) s = (s + 1) & mask;
    slots_[s] = ((h >> 32U) << 32U) | static_cast<std::uint64_t>(i + 1);
  }
}

void NameTable::for_each(
    const std::function<void(const std::string& name, std::int64_t column)>& visit) const {
  for (const Segment& segment : order_) {
    if (!segment.block) {
      visit(keys_[segment.index], values_[segment.index]);
      continue;
    }
    const Block& block = blocks_[segment.index];
    for (std::size_t offset = 0; offset < block.count; ++offset) {
      const std::string name = block_name(block, static_cast<std::int64_t>(offset));
      if (const std::optional<std::int64_t> column = find(name)) visit(name, *column);  // a newer column wins
    }
  }
}

}  // namespace kolva

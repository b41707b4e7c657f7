#include "generator/code_lines.hpp"

#include <algorithm>
#include <utility>

#include "model/error.hpp"

namespace kolva {

void CodeLines::push_back(std::string line) {
  plain_.push_back(std::move(line));
  ++size_;
}

void CodeLines::push_block(std::unique_ptr<const Block> block) {
  const std::size_t count = block->size();
  if (count == 0) return;
  blocks_.push_back({plain_.size(), size_, std::move(block)});
  plain_.emplace_back();
  size_ += count;
}

std::pair<std::size_t, std::size_t> CodeLines::locate(std::size_t i) const {
  if (i >= size_) raise(ErrorKind::kIndex, "list index out of range");
  // The last block starting at or before line i.
  const auto after = std::upper_bound(blocks_.begin(), blocks_.end(), i,
                                      [](std::size_t line, const Placed& p) { return line < p.first_line; });
  if (after == blocks_.begin()) return {i, std::string::npos};
  const Placed& placed = *(after - 1);
  const std::size_t offset = i - placed.first_line;
  if (offset < placed.block->size()) return {placed.slot, offset};
  // Past that block: each block before takes one slot for all its lines.
  return {placed.slot + 1 + (offset - placed.block->size()), std::string::npos};
}

bool CodeLines::in_block(std::size_t i) const { return locate(i).second != std::string::npos; }

std::string& CodeLines::plain(std::size_t i) {
  const auto [slot, position] = locate(i);
  if (position != std::string::npos) {
    materialize();
    return plain_[i];
  }
  return plain_[slot];
}

std::string CodeLines::line(std::size_t i) const {
  const auto [slot, position] = locate(i);
  if (position == std::string::npos) return plain_[slot];
  std::string out;
  blocks_[static_cast<std::size_t>(std::find_if(blocks_.begin(), blocks_.end(),
                                                [slot](const Placed& p) { return p.slot == slot; }) -
                                   blocks_.begin())]
      .block->render(position, out);
  return out;
}

bool CodeLines::starts_with(std::size_t i, std::string_view prefix) const {
  const auto [slot, position] = locate(i);
  if (position == std::string::npos) return plain_[slot].starts_with(prefix);
  return line(i).starts_with(prefix);
}

std::string CodeLines::join() const {
  // Plain lines are measured up front; blocks are printed only once.
  std::size_t total = 0;
  for (const std::string& text : plain_) total += text.size() + 1;
  std::string out;
  out.reserve(total);
  for_each([&out](std::size_t index, std::string_view text) {
    if (index > 0) out.push_back('\n');
    out += text;
  });
  return out;
}

std::vector<std::string> CodeLines::to_vector() const {
  std::vector<std::string> out;
  out.reserve(size_);
  for_each([&out](std::size_t, std::string_view text) { out.emplace_back(text); });
  return out;
}

void CodeLines::materialize() {
  if (blocks_.empty()) return;
  std::vector<std::string> lines = to_vector();
  blocks_.clear();
  plain_ = std::move(lines);
}

void CodeLines::materialize(Source source) {
  if (std::none_of(blocks_.begin(), blocks_.end(),
                   [source](const Placed& p) { return p.block->source() == source; })) {
    return;
  }
  // Rebuild slot by slot, keeping the other blocks as they are.
  std::vector<std::string> plain;
  std::vector<Placed> kept;
  std::size_t slot = 0;
  for (Placed& placed : blocks_) {
    for (; slot < placed.slot; ++slot) plain.push_back(std::move(plain_[slot]));
    ++slot;
    if (placed.block->source() == source) {
      for (std::size_t k = 0; k < placed.block->size(); ++k) {
        std::string text;
        placed.block->render(k, text);
        plain.push_back(std::move(text));
      }
    } else {
      kept.push_back({plain.size(), placed.first_line, std::move(placed.block)});
      plain.emplace_back();
    }
  }
  for (; slot < plain_.size(); ++slot) plain.push_back(std::move(plain_[slot]));
  plain_ = std::move(plain);
  blocks_ = std::move(kept);
}

}  // namespace kolva

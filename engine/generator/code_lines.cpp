#include "generator/code_lines.hpp"

#include <algorithm>
#include <utility>

#include "generator/comment_text.hpp"
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

namespace {

// What a line's known head says about `prefix`: yes, no, or "print it".
enum class HeadSays : unsigned char { kYes, kNo, kPrint };

HeadSays head_says(std::string_view head, std::string_view prefix) {
  const std::size_t n = std::min(head.size(), prefix.size());
  if (head.substr(0, n) != prefix.substr(0, n)) return HeadSays::kNo;
  return prefix.size() <= head.size() ? HeadSays::kYes : HeadSays::kPrint;
}

bool block_line_starts_with(const CodeLines::Block& block, std::size_t k, std::string_view prefix) {
  switch (head_says(block.head(k), prefix)) {
    case HeadSays::kYes:
      return true;
    case HeadSays::kNo:
      return false;
    case HeadSays::kPrint:
      break;
  }
  std::string text;
  block.render(k, text);
  return text.starts_with(prefix);
}

}  // namespace

std::vector<std::size_t> CodeLines::find_prefixed(std::string_view prefix) const {
  std::vector<std::size_t> out;
  std::size_t slot = 0;
  std::size_t index = 0;
  const auto plain_until = [&](std::size_t end) {
    for (; slot < end; ++slot, ++index) {
      if (plain_[slot].starts_with(prefix)) out.push_back(index);
    }
  };
  for (const Placed& placed : blocks_) {
    plain_until(placed.slot);
    const Block& block = *placed.block;
    const HeadSays uniform = block.same_head() ? head_says(block.head(0), prefix) : HeadSays::kPrint;
    for (std::size_t k = 0; k < block.size(); ++k, ++index) {
      if (uniform == HeadSays::kNo) {
        index += block.size() - k;
        break;
      }
      if (uniform == HeadSays::kYes || block_line_starts_with(block, k, prefix)) out.push_back(index);
    }
    ++slot;
  }
  plain_until(plain_.size());
  return out;
}

namespace {

template <typename Blocks>
auto block_in_slot(Blocks& blocks, std::size_t slot) {
  return std::lower_bound(blocks.begin(), blocks.end(), slot,
                          [](const auto& p, std::size_t s) { return p.slot < s; });
}

}  // namespace

void CodeLines::set_block(std::size_t i, std::unique_ptr<const Block> block) {
  if (block->size() != 1) raise(ErrorKind::kValue, "a line can only become a one-line block");
  const auto [slot, position] = locate(i);
  if (position == std::string::npos) {
    std::string().swap(plain_[slot]);
    blocks_.insert(block_in_slot(blocks_, slot), Placed{slot, i, std::move(block)});
    return;
  }
  Placed& placed = *block_in_slot(blocks_, slot);
  if (placed.block->size() != 1) {
    materialize(placed.block->source());
    set_block(i, std::move(block));
    return;
  }
  placed.block = std::move(block);
}

std::string CodeLines::join() const {
  // Plain lines are measured up front; blocks are printed only once.
  std::size_t total = 0;
  for (const std::string& text : plain_) total += text.size() + 1;
  std::string out;
  out.reserve(total);
  std::string scratch;
  for_each([&](std::size_t index, std::string_view text) {
    if (index > 0) out.push_back('\n');
    out += safe_comment_line(text, scratch);
  });
  return out;
}

std::vector<std::string> CodeLines::to_vector() const {
  std::vector<std::string> out;
  out.reserve(size_);
  std::string scratch;
  for_each([&](std::size_t, std::string_view text) { out.emplace_back(safe_comment_line(text, scratch)); });
  return out;
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

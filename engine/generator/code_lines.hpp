#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kolva {

// The lines of the script. Most lines are plain strings. A block stands for
// lines that can be printed at any time from state the generator keeps
// anyway (the alias comment of each column, the triplet lists of the rows):
// it holds no text until a caller reads it, so a large model does not keep
// its script twice. A block reads only state that grows by appending; the
// generator turns every block into plain lines before it replaces that
// state.
class CodeLines {
 public:
  // The generator state a block prints from.
  enum class Source : unsigned char { kVarNames, kRows, kColumnLists };

  class Block {
   public:
    Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    virtual ~Block() = default;
    virtual Source source() const = 0;
    virtual std::size_t size() const = 0;
    // Appends line k of the block to `out`.
    virtual void render(std::size_t k, std::string& out) const = 0;
    // Text that line k is known to start with, so a prefix test need not
    // print the line.
    virtual std::string_view head(std::size_t /*k*/) const { return {}; }
    // Whether every line has the head of line 0.
    virtual bool same_head() const { return false; }
  };

  std::size_t size() const { return size_; }
  void push_back(std::string line);
  void push_block(std::unique_ptr<const Block> block);
  // Line i becomes the one line of `block`.
  void set_block(std::size_t i, std::unique_ptr<const Block> block);

  // Indices of the lines that start with `prefix`, in order.
  std::vector<std::size_t> find_prefixed(std::string_view prefix) const;

  // Calls visit(index, text) for every line in order.
  template <typename Visit>
  void for_each(Visit&& visit) const {
    std::string scratch;
    std::size_t slot = 0;
    std::size_t index = 0;
    for (const Placed& placed : blocks_) {
      for (; slot < placed.slot; ++slot) visit(index++, std::string_view(plain_[slot]));
      for (std::size_t k = 0; k < placed.block->size(); ++k) {
        scratch.clear();
        placed.block->render(k, scratch);
        visit(index++, std::string_view(scratch));
      }
      ++slot;  // the block's own empty slot
    }
    for (; slot < plain_.size(); ++slot) visit(index++, std::string_view(plain_[slot]));
  }

  // The lines joined by newlines.
  std::string join() const;
  std::vector<std::string> to_vector() const;
  // Prints the blocks that read `source` into plain lines.
  void materialize(Source source);

 private:
  struct Placed {
    std::size_t slot;        // its empty slot in plain_
    std::size_t first_line;  // index of its first line
    std::unique_ptr<const Block> block;
  };
  // (slot, position in the block) of line i; position is npos for a plain line.
  std::pair<std::size_t, std::size_t> locate(std::size_t i) const;

  std::vector<std::string> plain_;
  std::vector<Placed> blocks_;
  std::size_t size_ = 0;
};

}  // namespace kolva

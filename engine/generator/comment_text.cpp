#include "generator/comment_text.hpp"

#include <cstdio>

namespace kolva {
namespace {

bool is_comment(std::string_view line) {
  const std::size_t first = line.find_first_not_of(' ');
  return first != std::string_view::npos && line[first] == '#';
}

// The length of the unsafe character at line[i] (0 when it is safe), and its
// escape.
std::size_t unsafe_at(std::string_view line, std::size_t i, std::string& escape) {
  const auto c = static_cast<unsigned char>(line[i]);
  const auto next = [&](std::size_t k) {
    return i + k < line.size() ? static_cast<unsigned char>(line[i + k]) : 0U;
  };
  char buf[8];
  if (c == '\n') {
    escape = "\\n";
    return 1;
  }
  if (c == '\r') {
    escape = "\\r";
    return 1;
  }
  if (c == 0 || c == 0x0b || c == 0x0c || (c >= 0x1c && c <= 0x1e)) {
    std::snprintf(buf, sizeof buf, "\\x%02x", static_cast<unsigned>(c));
    escape = buf;
    return 1;
  }
  if (c == 0xc2 && next(1) == 0x85) {
    escape = "\\x85";
    return 2;
  }
  if (c == 0xe2 && next(1) == 0x80 && (next(2) == 0xa8 || next(2) == 0xa9)) {
    escape = next(2) == 0xa8 ? "\\u2028" : "\\u2029";
    return 3;
  }
  return 0;
}

}  // namespace

std::string_view safe_comment_line(std::string_view line, std::string& scratch) {
  if (!is_comment(line)) return line;
  std::string escape;
  std::size_t i = 0;
  while (i < line.size() && unsafe_at(line, i, escape) == 0) ++i;
  if (i == line.size()) return line;
  scratch.assign(line.substr(0, i));
  while (i < line.size()) {
    const std::size_t n = unsafe_at(line, i, escape);
    if (n == 0) {
      scratch.push_back(line[i]);
      ++i;
    } else {
      scratch += escape;
      i += n;
    }
  }
  return scratch;
}

}  // namespace kolva

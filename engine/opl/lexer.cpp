#include "opl/lexer.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "model/interrupt.hpp"

namespace kolva::opl {

namespace {

bool is_ident_start(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_ident_char(char c) { return is_ident_start(c) || is_digit(c); }

// Longest match first: two-character punctuators before their first character.
constexpr std::array<std::string_view, 11> kTwoCharPunct = {"..", "<=", ">=", "==", "!=", "=>",
                                                            "&&", "||", "#[", "]#", "#<"};
constexpr std::string_view kOneCharPunct = "+-*/%<>=!()[]{},;:.?|#&";

// A table rather than a search of kOneCharPunct: it is asked for every comma.
constexpr std::array<bool, 256> kIsOneCharPunct = [] {
  std::array<bool, 256> table{};
  for (char c : kOneCharPunct) table[static_cast<unsigned char>(c)] = true;
  return table;
}();
bool is_one_char_punct(char c) { return kIsOneCharPunct[static_cast<unsigned char>(c)]; }

// The place just after `before`, which starts at `start` and may span lines
// (a string continued with a backslash).
Place place_within(Place start, std::string_view before) {
  const std::size_t last_break = before.rfind('\n');
  if (last_break == std::string_view::npos) {
    start.col += static_cast<std::uint32_t>(before.size());
  } else {
    start.line += static_cast<std::uint32_t>(std::count(before.begin(), before.end(), '\n'));
    start.col = static_cast<std::uint32_t>(before.size() - last_break);
  }
  return start;
}

}  // namespace

Lexer::Lexer(const SourceFile& file) : file_(file), text_(file.text()) {
  // A UTF-8 byte-order mark is not part of the text.
  if (text_.substr(0, 3) == "\xEF\xBB\xBF") pos_ = line_start_ = 3;
}

Lexer::Lexer(const SourceFile& file, std::size_t begin, const Place& start)
    : file_(file), text_(file.text()), pos_(std::min(begin, file.text().size())), line_(start.line) {
  const std::size_t col = start.col > 0 ? start.col - 1 : 0;
  line_start_ = col <= pos_ ? pos_ - col : 0;
}

Place Lexer::here() const { return Place{&file_, line_, static_cast<std::uint32_t>(pos_ - line_start_ + 1)}; }

void Lexer::advance(std::size_t n) {
  for (std::size_t end = pos_ + n; pos_ < end; ++pos_) {
    if (text_[pos_] == '\n') {
      ++line_;
      line_start_ = pos_ + 1;
    }
  }
}

void Lexer::fail(const Place& place, const std::string& message) const { fail_at(place, message); }

void Lexer::skip_space_and_comments() {
  while (pos_ < text_.size()) {
    const char c = text_[pos_];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v') {
      advance(1);
    } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '/') {
      const std::size_t eol = text_.find('\n', pos_);
      pos_ = eol == std::string_view::npos ? text_.size() : eol;
    } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '*') {
      const Place start = here();
      const std::size_t close = text_.find("*/", pos_ + 2);
      if (close == std::string_view::npos) fail(start, "unterminated comment: '/*' has no closing '*/'");
      advance(close + 2 - pos_);
    } else {
      return;
    }
  }
}

Token Lexer::next() {
  poll_interrupt();  // every token: reading a large file may take a while
  skip_space_and_comments();
  Token tok;
  tok.place = here();
  if (pos_ >= text_.size()) {
    tok.kind = Tok::kEnd;
    return tok;
  }
  const char c = text_[pos_];
  if (is_ident_start(c)) {
    std::size_t end = pos_ + 1;
    while (end < text_.size() && is_ident_char(text_[end])) ++end;
    tok.kind = Tok::kIdent;
    tok.text = text_.substr(pos_, end - pos_);
    pos_ = end;
    return tok;
  }
  if (is_digit(c) || (c == '.' && pos_ + 1 < text_.size() && is_digit(text_[pos_ + 1]))) {
    return number(std::move(tok));
  }
  if (c == '"') return string_literal(std::move(tok));
  // Compared by characters: this runs for every punctuation token, and data
  // files are mostly numbers and commas.
  const char c2 = pos_ + 1 < text_.size() ? text_[pos_ + 1] : '\0';
  for (std::string_view p : kTwoCharPunct) {
    if (p[0] == c && p[1] == c2) {
      tok.kind = Tok::kPunct;
      tok.text = text_.substr(pos_, 2);
      pos_ += 2;
      return tok;
    }
  }
  // `>#` closes a named tuple in data; in a model `>` never meets `#`.
  if (c == '>' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '#') {
    tok.kind = Tok::kPunct;
    tok.text = text_.substr(pos_, 2);
    pos_ += 2;
    return tok;
  }
  if (is_one_char_punct(c)) {
    tok.kind = Tok::kPunct;
    tok.text = text_.substr(pos_, 1);
    pos_ += 1;
    return tok;
  }
  const auto byte = static_cast<unsigned char>(c);
  if (byte >= 0x80) fail(tok.place, "unexpected non-ASCII character outside a string");
  if (byte < 0x20 || byte == 0x7F) {
    fail(tok.place, "unexpected control character (code " + std::to_string(byte) + ")");
  }
  fail(tok.place, std::string("unexpected character '") + c + "'");
}

Token Lexer::number(Token tok) {
  std::size_t end = pos_;
  bool is_float = false;
  while (end < text_.size() && is_digit(text_[end])) ++end;
  // A dot starts a fraction unless it begins `..` (as in 1..10).
  if (end < text_.size() && text_[end] == '.' && !(end + 1 < text_.size() && text_[end + 1] == '.')) {
    is_float = true;
    ++end;
    while (end < text_.size() && is_digit(text_[end])) ++end;
  }
  if (end < text_.size() && (text_[end] == 'e' || text_[end] == 'E')) {
    std::size_t exp = end + 1;
    if (exp < text_.size() && (text_[exp] == '+' || text_[exp] == '-')) ++exp;
    if (exp < text_.size() && is_digit(text_[exp])) {
      is_float = true;
      end = exp;
      while (end < text_.size() && is_digit(text_[end])) ++end;
    }
  }
  if (end < text_.size() && is_ident_start(text_[end])) {
    fail(tok.place, "malformed number '" + std::string(text_.substr(pos_, end + 1 - pos_)) + "'");
  }
  tok.text = text_.substr(pos_, end - pos_);
  const char* first = tok.text.data();
  const char* last = first + tok.text.size();
  if (is_float) {
    tok.kind = Tok::kFloat;
    auto [ptr, ec] = std::from_chars(first, last, tok.float_value);
    if (ec == std::errc::result_out_of_range) {
      // from_chars refuses overflow and underflow alike; strtod tells them apart.
      tok.float_value = std::strtod(std::string(tok.text).c_str(), nullptr);
      if (std::isinf(tok.float_value)) fail(tok.place, "number '" + std::string(tok.text) + "' is too large");
    } else if (ec != std::errc() || ptr != last) {
      fail(tok.place, "malformed number '" + std::string(tok.text) + "'");
    }
  } else {
    tok.kind = Tok::kInt;
    auto [ptr, ec] = std::from_chars(first, last, tok.int_value);
    if (ec == std::errc::result_out_of_range) {
      fail(tok.place, "integer '" + std::string(tok.text) + "' does not fit in 64 bits");
    }
    if (ec != std::errc() || ptr != last) fail(tok.place, "malformed number '" + std::string(tok.text) + "'");
  }
  pos_ = end;
  return tok;
}

Token Lexer::string_literal(Token tok) {
  std::size_t i = pos_ + 1;
  std::string out;
  while (true) {
    if (i >= text_.size() || text_[i] == '\n') fail(tok.place, "unterminated string literal");
    const char c = text_[i];
    if (c == '"') break;
    if (c != '\\') {
      out += c;
      ++i;
      continue;
    }
    if (i + 1 >= text_.size()) fail(tok.place, "unterminated string literal");
    const char e = text_[i + 1];
    switch (e) {
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case 'r':
        out += '\r';
        break;
      case 'b':
        out += '\b';
        break;
      case 'f':
        out += '\f';
        break;
      case '"':
        out += '"';
        break;
      case '\'':
        out += '\'';
        break;
      case '\\':
        out += '\\';
        break;
      case '\n':
        break;  // a backslash at the end of a line continues the string
      case '\r':
        if (i + 2 < text_.size() && text_[i + 2] == '\n') {
          ++i;  // the same at the end of a CRLF line
          break;
        }
        [[fallthrough]];
      default:
        fail(place_within(tok.place, text_.substr(pos_, i - pos_)),
             std::string("unknown escape sequence '\\") + e + "' in string");
    }
    i += 2;
  }
  tok.kind = Tok::kString;
  tok.text = text_.substr(pos_, i + 1 - pos_);
  tok.str_value = std::move(out);
  advance(i + 1 - pos_);
  return tok;
}

std::string describe(const Token& tok) {
  // Appended rather than `"..." + std::string(...)`, which trips GCC 12's
  // -Wrestrict false positive at -O3.
  std::string out;
  switch (tok.kind) {
    case Tok::kEnd:
      return "end of file";
    case Tok::kString:
      out = "string ";
      out += tok.text;
      return out;
    case Tok::kInt:
    case Tok::kFloat:
      out = "number ";
      out += tok.text;
      return out;
    default:
      out = "'";
      out += tok.text;
      out += '\'';
      return out;
  }
}

}  // namespace kolva::opl

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "opl/source.hpp"

namespace kolva::opl {

enum class Tok : std::uint8_t {
  kEnd,
  kIdent,   // names and keywords alike; the parsers tell keywords by their text
  kInt,     // integer literal, value in `int_value`
  kFloat,   // decimal or exponent literal, value in `float_value`
  kString,  // string literal, decoded text in `str_value`
  kPunct,   // operator or punctuation, spelled in `text`
};

struct Token {
  Tok kind = Tok::kEnd;
  std::string_view text;  // the token as written (points into the source)
  Place place;
  std::int64_t int_value = 0;
  double float_value = 0.0;
  std::string str_value;

  bool is(std::string_view punct) const { return kind == Tok::kPunct && text == punct; }
  bool is_word(std::string_view word) const { return kind == Tok::kIdent && text == word; }
};

// The tokens of OPL models and data files. Both share one lexical grammar:
// C-style comments, identifiers, numbers, double-quoted strings, and the
// punctuation of expressions plus `..`, `#[`, `]#`, `#<` and `>#`.
class Lexer {
 public:
  explicit Lexer(const SourceFile& file);
  // Lexes from byte offset `begin`, which lies at `start` (its line and
  // column): rereads one stretch of a file, e.g. a data item's value.
  Lexer(const SourceFile& file, std::size_t begin, const Place& start);

  Token next();

 private:
  void skip_space_and_comments();
  Token number(Token tok);
  Token string_literal(Token tok);
  Place here() const;
  void advance(std::size_t n);
  [[noreturn]] void fail(const Place& place, const std::string& message) const;

  const SourceFile& file_;
  std::string_view text_;
  std::size_t pos_ = 0;
  std::uint32_t line_ = 1;
  std::size_t line_start_ = 0;
};

// How a token reads in a message: `'x'`, "end of file", "string \"a\"".
std::string describe(const Token& tok);

}  // namespace kolva::opl

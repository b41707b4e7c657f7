#include "data/index_text.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "model/error.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

enum class Tok { kNumber, kString, kName, kOp, kEnd };

struct Token {
  Tok kind;
  std::string text;
  Value value;  // numbers and strings
};

// A failed parse or evaluation; always caught inside this file.
struct Reject : std::exception {};

bool is_name_start(unsigned char c) { return std::isalpha(c) != 0 || c == '_' || c >= 0x80; }
bool is_name_char(unsigned char c) { return is_name_start(c) || std::isdigit(c) != 0; }

class Lexer {
 public:
  explicit Lexer(std::string_view s) : s_(s) {}

  std::vector<Token> run() {
    std::vector<Token> out;
    while (true) {
      skip_space();
      if (i_ >= s_.size()) break;
      out.push_back(next());
    }
    out.push_back({Tok::kEnd, "", Value()});
    return out;
  }

 private:
  void skip_space() {
    while (i_ < s_.size() &&
           (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\n' || s_[i_] == '\r' || s_[i_] == '\f')) {
      ++i_;
    }
  }

  Token next() {
    const auto c = static_cast<unsigned char>(s_[i_]);
    if (std::isdigit(c) != 0 ||
        (c == '.' && i_ + 1 < s_.size() && std::isdigit(static_cast<unsigned char>(s_[i_ + 1])) != 0)) {
      return number();
    }
    if (c == '\'' || c == '"') return string_literal();
    if (is_name_start(c)) {
      const std::size_t start = i_;
      while (i_ < s_.size() && is_name_char(static_cast<unsigned char>(s_[i_]))) ++i_;
      return {Tok::kName, std::string(s_.substr(start, i_ - start)), Value()};
    }
    if (s_.substr(i_, 2) == "//" || s_.substr(i_, 2) == "**") {
      i_ += 2;
      return {Tok::kOp, std::string(s_.substr(i_ - 2, 2)), Value()};
    }
    static constexpr std::string_view kSingle = "+-*/%()[],~@";
    if (kSingle.find(static_cast<char>(c)) != std::string_view::npos) {
      ++i_;
      return {Tok::kOp, std::string(1, static_cast<char>(c)), Value()};
    }
    throw Reject{};
  }

  Token number() {
    const std::size_t start = i_;
    bool is_float = false;
    while (i_ < s_.size()) {
      const auto c = static_cast<unsigned char>(s_[i_]);
      if (std::isdigit(c) != 0 || c == '_') {
        ++i_;
      } else if (c == '.') {
        is_float = true;
        ++i_;
      } else if ((c == 'e' || c == 'E') && i_ + 1 < s_.size()) {
        is_float = true;
        ++i_;
        if (s_[i_] == '+' || s_[i_] == '-') ++i_;
      } else {
        break;
      }
    }
    if (i_ < s_.size() && is_name_char(static_cast<unsigned char>(s_[i_]))) throw Reject{};
    std::string text;
    for (char ch : s_.substr(start, i_ - start)) {
      if (ch != '_') text.push_back(ch);
    }
    if (!is_float) {
      if (text.size() > 1 && text[0] == '0' && text.find_first_not_of('0') != std::string::npos) {
        throw Reject{};  // leading zeros are a syntax error in Python
      }
      std::int64_t v = 0;
      const auto res = std::from_chars(text.data(), text.data() + text.size(), v);
      if (res.ec != std::errc() || res.ptr != text.data() + text.size()) throw Reject{};
      return {Tok::kNumber, text, Value::integer(v)};
    }
    double d = 0.0;
    const auto res = std::from_chars(text.data(), text.data() + text.size(), d);
    if (res.ptr != text.data() + text.size()) throw Reject{};
    if (res.ec == std::errc::result_out_of_range) {
      d = std::strtod(text.c_str(), nullptr);  // overflow to inf, as Python does
    } else if (res.ec != std::errc()) {
      throw Reject{};
    }
    return {Tok::kNumber, text, Value::real(d)};
  }

  static void append_utf8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0U | (cp >> 6U)));
      out.push_back(static_cast<char>(0x80U | (cp & 0x3FU)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0U | (cp >> 12U)));
      out.push_back(static_cast<char>(0x80U | ((cp >> 6U) & 0x3FU)));
      out.push_back(static_cast<char>(0x80U | (cp & 0x3FU)));
    } else {
      out.push_back(static_cast<char>(0xF0U | (cp >> 18U)));
      out.push_back(static_cast<char>(0x80U | ((cp >> 12U) & 0x3FU)));
      out.push_back(static_cast<char>(0x80U | ((cp >> 6U) & 0x3FU)));
      out.push_back(static_cast<char>(0x80U | (cp & 0x3FU)));
    }
  }

  std::uint32_t hex_digits(std::size_t count) {
    if (i_ + count > s_.size()) throw Reject{};
    std::uint32_t v = 0;
    const auto res = std::from_chars(s_.data() + i_, s_.data() + i_ + count, v, 16);
    if (res.ptr != s_.data() + i_ + count) throw Reject{};
    i_ += count;
    return v;
  }

  Token string_literal() {
    const char quote = s_[i_++];
    std::string out;
    while (true) {
      if (i_ >= s_.size() || s_[i_] == '\n') throw Reject{};
      const char ch = s_[i_++];
      if (ch == quote) break;
      if (ch != '\\') {
        out.push_back(ch);
        continue;
      }
      if (i_ >= s_.size()) throw Reject{};
      const char esc = s_[i_++];
      switch (esc) {
        case 'n':
          out.push_back('\n');
          break;
        case 't':
          out.push_back('\t');
          break;
        case 'r':
          out.push_back('\r');
          break;
        case '0':
          out.push_back('\0');
          break;
        case '\\':
          out.push_back('\\');
          break;
        case '\'':
          out.push_back('\'');
          break;
        case '"':
          out.push_back('"');
          break;
        case 'x':
          append_utf8(out, hex_digits(2));
          break;
        case 'u':
          append_utf8(out, hex_digits(4));
          break;
        case 'U': {
          const std::uint32_t cp = hex_digits(8);
          if (cp > 0x10FFFF) throw Reject{};
          append_utf8(out, cp);
          break;
        }
        default:
          out.push_back('\\');
          out.push_back(esc);
      }
    }
    return {Tok::kString, out, Value::str(out)};
  }

  std::string_view s_;
  std::size_t i_ = 0;
};

struct Expr;
using ExprPtr = std::unique_ptr<Expr>;
struct Expr {
  enum class Kind { kConst, kName, kTuple, kList, kUnary, kBinary } kind;
  Value value;
  std::string text;  // a name or an operator
  std::vector<ExprPtr> kids;
};

ExprPtr make(Expr::Kind kind) {
  auto e = std::make_unique<Expr>();
  e->kind = kind;
  return e;
}

class Parser {
 public:
  explicit Parser(std::vector<Token> toks) : toks_(std::move(toks)) {}

  ExprPtr parse_all() {
    ExprPtr e = expr_list();
    if (peek().kind != Tok::kEnd) throw Reject{};
    return e;
  }

 private:
  static constexpr int kMaxDepth = 200;

  const Token& peek() const { return toks_[pos_]; }
  bool is_op(std::string_view op) const { return peek().kind == Tok::kOp && peek().text == op; }
  void expect(std::string_view op) {
    if (!is_op(op)) throw Reject{};
    ++pos_;
  }
  bool starts_expr() const {
    const Token& t = peek();
    return t.kind == Tok::kNumber || t.kind == Tok::kString || t.kind == Tok::kName ||
           (t.kind == Tok::kOp &&
            (t.text == "(" || t.text == "[" || t.text == "-" || t.text == "+" || t.text == "~"));
  }

  // a, b, c  -> tuple when a comma is present
  ExprPtr expr_list() {
    ExprPtr first = expr();
    if (!is_op(",")) return first;
    ExprPtr tuple = make(Expr::Kind::kTuple);
    tuple->kids.push_back(std::move(first));
    while (is_op(",")) {
      ++pos_;
      if (!starts_expr()) break;
      tuple->kids.push_back(expr());
    }
    return tuple;
  }

  ExprPtr binary(ExprPtr left, std::string op, ExprPtr right) {
    ExprPtr e = make(Expr::Kind::kBinary);
    e->text = std::move(op);
    e->kids.push_back(std::move(left));
    e->kids.push_back(std::move(right));
    return e;
  }

  ExprPtr expr() {
    ExprPtr left = term();
    while (is_op("+") || is_op("-")) {
      std::string op = toks_[pos_++].text;
      left = binary(std::move(left), op, term());
    }
    return left;
  }

  ExprPtr term() {
    ExprPtr left = factor();
    while (is_op("*") || is_op("/") || is_op("//") || is_op("%") || is_op("@")) {
      std::string op = toks_[pos_++].text;
      left = binary(std::move(left), op, factor());
    }
    return left;
  }

  ExprPtr factor() {
    if (++depth_ > kMaxDepth) throw Reject{};
    ExprPtr out;
    if (is_op("-") || is_op("+") || is_op("~")) {
      out = make(Expr::Kind::kUnary);
      out->text = toks_[pos_++].text;
      out->kids.push_back(factor());
    } else {
      out = power();
    }
    --depth_;
    return out;
  }

  ExprPtr power() {
    ExprPtr base = atom();
    if (is_op("**")) {
      ++pos_;
      return binary(std::move(base), "**", factor());
    }
    return base;
  }

  ExprPtr atom() {
    const Token& t = peek();
    if (t.kind == Tok::kNumber) {
      ExprPtr e = make(Expr::Kind::kConst);
      e->value = toks_[pos_++].value;
      return e;
    }
    if (t.kind == Tok::kString) {
      std::string joined;
      while (peek().kind == Tok::kString) joined += toks_[pos_++].text;  // 'a' 'b' is 'ab'
      ExprPtr e = make(Expr::Kind::kConst);
      e->value = Value::str(joined);
      return e;
    }
    if (t.kind == Tok::kName) {
      const std::string name = toks_[pos_++].text;
      ExprPtr e = make(Expr::Kind::kConst);
      if (name == "None") return e;
      if (name == "True" || name == "False") {
        e->value = Value::boolean(name == "True");
        return e;
      }
      e->kind = Expr::Kind::kName;
      e->text = name;
      return e;
    }
    if (is_op("(")) return bracketed("(", ")", Expr::Kind::kTuple);
    if (is_op("[")) return bracketed("[", "]", Expr::Kind::kList);
    throw Reject{};
  }

  ExprPtr bracketed(std::string_view open, std::string_view close, Expr::Kind kind) {
    if (++depth_ > kMaxDepth) throw Reject{};
    expect(open);
    ExprPtr out;
    if (is_op(close)) {
      out = make(kind);
    } else if (kind == Expr::Kind::kTuple) {
      out = expr_list();  // (a) is a, (a,) is a tuple
    } else {
      out = make(kind);
      out->kids.push_back(expr());
      while (is_op(",")) {
        ++pos_;
        if (is_op(close)) break;
        out->kids.push_back(expr());
      }
    }
    expect(close);
    --depth_;
    return out;
  }

  std::vector<Token> toks_;
  std::size_t pos_ = 0;
  int depth_ = 0;
};

ExprPtr parse(std::string_view text) { return Parser(Lexer(text).run()).parse_all(); }

bool is_plain_number(const Value& v) { return v.is_int() || v.is_float(); }

Value literal_of(const Expr& e) {
  switch (e.kind) {
    case Expr::Kind::kConst:
      return e.value;
    case Expr::Kind::kTuple:
    case Expr::Kind::kList: {
      ValueVec items;
      for (const ExprPtr& kid : e.kids) items.push_back(literal_of(*kid));
      return e.kind == Expr::Kind::kTuple ? Value::tuple(std::move(items)) : Value::list(std::move(items));
    }
    case Expr::Kind::kUnary: {
      // Only a sign directly on a number literal (not on a bool) is a literal.
      const Expr& operand = *e.kids[0];
      if (operand.kind != Expr::Kind::kConst || !is_plain_number(operand.value)) throw Reject{};
      if (e.text == "+") return operand.value;
      if (e.text == "-") return py_neg(operand.value);
      throw Reject{};
    }
    default:
      throw Reject{};
  }
}

Value as_index_number(const Value& v) {
  if (v.is_bool()) return Value::integer(v.as_bool() ? 1 : 0);
  if (v.is_float()) return normalize_integral(v);
  return v;
}

Value arithmetic_of(const Expr& e, const NameLookup& lookup) {
  switch (e.kind) {
    case Expr::Kind::kConst:
      if (!e.value.is_number()) throw Reject{};
      return as_index_number(e.value);
    case Expr::Kind::kName: {
      // A keyword is no name to Python's parser: the text is not arithmetic.
      if (is_python_keyword(e.text)) throw Reject{};
      const Value v = lookup(e.text);
      if (!v.is_number()) throw Reject{};
      return as_index_number(v);
    }
    case Expr::Kind::kTuple: {
      ValueVec items;
      for (const ExprPtr& kid : e.kids) items.push_back(arithmetic_of(*kid, lookup));
      return Value::tuple(std::move(items));
    }
    case Expr::Kind::kUnary: {
      if (e.text != "-") throw Reject{};
      const Value v = arithmetic_of(*e.kids[0], lookup);
      if (!v.is_number()) throw Reject{};
      return py_neg(v);
    }
    case Expr::Kind::kBinary: {
      const Value l = arithmetic_of(*e.kids[0], lookup);
      const Value r = arithmetic_of(*e.kids[1], lookup);
      if (!l.is_number() || !r.is_number()) throw Reject{};
      if (e.text == "+") return py_add(l, r);
      if (e.text == "-") return py_sub(l, r);
      if (e.text == "*") return py_mul(l, r);
      if (e.text == "//") {
        if (l.is_int_like() && r.is_int_like()) return Value::integer(floor_div(py_int(l), py_int(r)));
        const double d = py_float(r);
        if (d == 0.0) throw Reject{};
        return Value::real(std::floor(py_float(l) / d));
      }
      throw Reject{};
    }
    default:
      throw Reject{};
  }
}

}  // namespace

bool is_python_keyword(std::string_view word) {
  static constexpr std::array<std::string_view, 35> kKeywords = {
      "False", "None",     "True",  "and",    "as",   "assert", "async",  "await",    "break",
      "class", "continue", "def",   "del",    "elif", "else",   "except", "finally",  "for",
      "from",  "global",   "if",    "import", "in",   "is",     "lambda", "nonlocal", "not",
      "or",    "pass",     "raise", "return", "try",  "while",  "with",   "yield"};
  return std::find(kKeywords.begin(), kKeywords.end(), word) != kKeywords.end();
}

std::optional<Value> parse_index_literal(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  try {
    return literal_of(*parse(text));
  } catch (const Reject&) {
    return std::nullopt;
  } catch (const Error&) {
    return std::nullopt;
  }
}

std::optional<Value> eval_index_arithmetic(std::string_view text, const NameLookup& lookup) {
  // Python's expression parser refuses leading blanks as an indent.
  if (!text.empty() && (text.front() == ' ' || text.front() == '\t')) return std::nullopt;
  try {
    return arithmetic_of(*parse(text), lookup);
  } catch (const Reject&) {
    return std::nullopt;
  } catch (const Error&) {
    return std::nullopt;
  }
}

}  // namespace kolva

#include "opl/dat_reader.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "model/map.hpp"
#include "model/repr.hpp"
#include "opl/lexer.hpp"

namespace kolva::opl {

namespace {

// Deeper nesting than this is no real data; refusing it keeps the reader's
// recursion (one frame group per bracket) far from the end of the stack.
constexpr std::size_t kMaxDepth = 1000;
// `{int} S = 1..n` enumerates its members: the same bound as for sets
// enumerated in the model, far beyond any real data but short of exhausting memory.
constexpr std::int64_t kMaxSetRange = 100'000'000;
// Positional arrays reserve their declared size, but not beyond this: a
// wrong, huge size must not allocate before the count check can refuse it.
constexpr std::int64_t kMaxReserve = 1 << 20;

// OPL's ways of reading and writing data through spreadsheets and databases,
// and its scripting blocks. Only textual data is read here.
constexpr std::array<std::string_view, 10> kConnections = {
    "SheetConnection", "DBConnection", "SheetRead", "DBRead",  "SheetWrite",
    "DBWrite",         "DBExecute",    "DBUpdate",  "prepare", "invoke"};

void refuse_connection(const Token& tok) {
  if (tok.kind != Tok::kIdent) return;
  for (std::string_view c : kConnections) {
    if (tok.text == c) {
      fail_at(tok.place, std::string(c) +
                             " is not supported: spreadsheet and database connections cannot be read; give "
                             "the data as text in the .dat file");
    }
  }
}

// Token::is by characters: it runs several times per value of a large array,
// where comparing views costs a library call each.
template <std::size_t N>
bool punct_is(const Token& tok, const char (&punct)[N]) {
  if (tok.kind != Tok::kPunct || tok.text.size() != N - 1) return false;
  for (std::size_t i = 0; i + 1 < N; ++i) {
    if (tok.text[i] != punct[i]) return false;
  }
  return true;
}

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

std::string counted(std::int64_t n, std::string_view word) {
  return std::to_string(n) + " " + std::string(word) + (n == 1 ? "" : "s");
}

std::size_t offset_of(const SourceFile& file, const Token& tok) {
  if (tok.text.data() == nullptr) return file.text().size();  // the end token
  return static_cast<std::size_t>(tok.text.data() - file.text().data());
}

// The place just after a token: where a missing ';' belongs.
Place place_after(const Token& tok) {
  Place p = tok.place;
  if (tok.text.find('\n') == std::string_view::npos) p.col += static_cast<std::uint32_t>(tok.text.size());
  return p;
}

// How a value that begins with `tok` reads in a message.
std::string got_text(const Token& tok) {
  if (punct_is(tok, "{")) return "a set";
  if (punct_is(tok, "[")) return "an array";
  if (punct_is(tok, "#[")) return "an indexed array";
  if (punct_is(tok, "<")) return "a tuple";
  if (punct_is(tok, "#<")) return "a named tuple";
  return describe(tok);
}

std::string expected_text(const ElemType& t) {
  if (t.base == ElemType::Base::kTuple) return "a tuple " + quoted(t.spelling());
  if (t.base == ElemType::Base::kInt) return "an int";
  return "a " + t.spelling();
}

// A value as data would write it, for messages naming a member or a key.
std::string data_text(const Value& v, bool nested = false) {
  if (v.is_str()) return nested ? "\"" + v.as_str() + "\"" : v.as_str();
  if (v.is_bool()) return v.as_bool() ? "true" : "false";
  if (v.is_tuple()) {
    std::string out = "<";
    for (const Value& item : v.items()) out += (out.size() > 1 ? ", " : "") + data_text(item, true);
    return out + ">";
  }
  return py_repr(v);
}

Value range_map(std::int64_t start, std::int64_t end) {
  MapPtr m = make_map();
  m->set("type", Value::str("range_data"));
  m->set("start", Value::integer(start));
  m->set("end", Value::integer(end));
  return Value::map(m);
}

// ---------------------------------------------------------------- scanning

// Finds the items of a file and the extent of each value, checking only that
// brackets balance: what a value means depends on a declaration read later.
class Scanner {
 public:
  explicit Scanner(const SourceFile& file) : file_(file), lex_(file) {}

  std::vector<DatItem> run() {
    std::vector<DatItem> items;
    std::unordered_map<std::string_view, Place> seen;
    for (Token tok = lex_.next(); tok.kind != Tok::kEnd; tok = lex_.next()) {
      if (punct_is(tok, ";")) continue;  // an empty item, as after a doubled ';'
      refuse_connection(tok);
      if (tok.kind != Tok::kIdent) {
        fail_at(tok.place, "expected the name of a data item, got " + describe(tok));
      }
      auto [it, fresh] = seen.emplace(tok.text, tok.place);
      if (!fresh) fail_at(tok.place, quoted(tok.text) + " is already given at " + it->second.text());
      DatItem item{std::string(tok.text), tok.place, Place{}, 0, 0};
      expect_equals(item);
      scan_value(item);
      items.push_back(std::move(item));
    }
    return items;
  }

 private:
  struct Open {
    std::string_view text;
    std::string_view closer;
    Place place;
  };

  void expect_equals(const DatItem& item) {
    const Token tok = lex_.next();
    if (punct_is(tok, "=")) return;
    refuse_connection(tok);
    // `x from SheetRead(...)` and `x to SheetWrite(...)`: name the construct.
    if (tok.is_word("from") || tok.is_word("to")) refuse_connection(lex_.next());
    fail_at(tok.place, "expected '=' after " + quoted(item.name) + ", got " + describe(tok));
  }

  void scan_value(DatItem& item) {
    Token tok = lex_.next();
    if (punct_is(tok, ";") || tok.kind == Tok::kEnd) {
      fail_at(tok.place, "expected a value for " + quoted(item.name) + ", got " + describe(tok));
    }
    item.value_place = tok.place;
    item.value_begin = offset_of(file_, tok);
    stack_.clear();
    count_ = 0;
    while (!(punct_is(tok, ";") && stack_.empty())) {
      if (tok.kind == Tok::kEnd) at_end(item);
      if (punct_is(tok, ";")) {
        fail_at(stack_.back().place, "unbalanced brackets: " + quoted(stack_.back().text) +
                                         " is not closed before the ';' at " + tok.place.text());
      }
      value_token(item, tok);
      before_last_ = last_;
      last_ = place_after(tok);
      last_is_name_ = tok.kind == Tok::kIdent;
      ++count_;
      item.value_end = offset_of(file_, tok) + tok.text.size();
      tok = lex_.next();
    }
  }

  [[noreturn]] void at_end(const DatItem& item) {
    if (!stack_.empty()) {
      fail_at(stack_.back().place, "unbalanced brackets: " + quoted(stack_.back().text) + " is never closed");
    }
    fail_at(last_, "missing ';' after the value of " + quoted(item.name));
  }

  void value_token(const DatItem& item, const Token& tok) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kBrackets = {
        {{"[", "]"}, {"{", "}"}, {"<", ">"}, {"#[", "]#"}, {"#<", ">#"}}};
    switch (tok.kind) {
      case Tok::kInt:
      case Tok::kFloat:
      case Tok::kString:
        return;
      case Tok::kIdent:
        return refuse_connection(tok);
      default:
        break;
    }
    if (punct_is(tok, ",") || punct_is(tok, ":") || punct_is(tok, "..") || punct_is(tok, "-") ||
        punct_is(tok, "+")) {
      return;
    }
    const std::string_view t = tok.text;
    for (const auto& [open, close] : kBrackets) {
      if (t[0] == open[0] && t == open) return push(tok, close);
      if (t[0] == close[0] && t == close) return pop(tok, open);
    }
    if (punct_is(tok, "=") && last_is_name_ && count_ >= 2) {
      // `a = 1  b = 2;`: the name before this '=' starts the next item.
      if (!stack_.empty()) {
        fail_at(stack_.back().place,
                "unbalanced brackets: " + quoted(stack_.back().text) + " is never closed");
      }
      fail_at(before_last_, "missing ';' after the value of " + quoted(item.name));
    }
    fail_at(tok.place, "unexpected " + describe(tok) + " in the value of " + quoted(item.name));
  }

  void push(const Token& tok, std::string_view closer) {
    if (stack_.size() >= kMaxDepth) {
      fail_at(tok.place,
              "values nested deeper than " + std::to_string(kMaxDepth) + " levels are not supported");
    }
    stack_.push_back(Open{tok.text, closer, tok.place});
  }

  void pop(const Token& tok, std::string_view opener) {
    if (stack_.empty()) {
      fail_at(tok.place, "unbalanced brackets: " + quoted(tok.text) + " has no matching " + quoted(opener));
    }
    const Open& top = stack_.back();
    if (top.closer != tok.text) {
      fail_at(tok.place, "unbalanced brackets: expected " + quoted(top.closer) + " to close the " +
                             quoted(top.text) + " at " + top.place.text() + ", got " + quoted(tok.text));
    }
    stack_.pop_back();
  }

  const SourceFile& file_;
  Lexer lex_;
  std::vector<Open> stack_;
  Place last_;         // just after the value's last token so far
  Place before_last_;  // the same one token earlier
  bool last_is_name_ = false;
  std::size_t count_ = 0;  // tokens of the value so far
};

// ---------------------------------------------------------------- reading

// Where each position of an index set was given in an indexed array: a plain
// table while the set is no larger than the text (every member must be given,
// each with some text, so a larger set fails anyway and only needs the
// positions seen, kept in a hash table).
class Slots {
 public:
  Slots(std::int64_t size, std::size_t text_size) {
    if (size <= static_cast<std::int64_t>(text_size)) dense_.assign(static_cast<std::size_t>(size), 0);
    sparse_ = size > static_cast<std::int64_t>(text_size);
  }
  std::optional<std::size_t> find(std::int64_t pos) const {
    if (!sparse_) {
      const std::size_t slot = dense_[static_cast<std::size_t>(pos)];
      return slot == 0 ? std::nullopt : std::optional<std::size_t>(slot - 1);
    }
    auto it = map_.find(pos);
    return it == map_.end() ? std::nullopt : std::optional<std::size_t>(it->second);
  }
  void put(std::int64_t pos, std::size_t entry) {
    if (!sparse_) {
      dense_[static_cast<std::size_t>(pos)] = entry + 1;
    } else {
      map_.emplace(pos, entry);
    }
  }

 private:
  bool sparse_ = false;
  std::vector<std::size_t> dense_;  // entry + 1; 0 while not given
  std::unordered_map<std::int64_t, std::size_t> map_;
};

// Reads one item's value, typed by a declaration or untyped. It rereads the
// text that the scanner found, so brackets are known to balance; every other
// check is made here, where the expected type gives the message its meaning.
class Reader {
 public:
  Reader(const SourceFile& file, const DatItem& item)
      : file_(file), item_(item), lex_(file, item.value_begin, item.value_place) {
    tok_ = lex_.next();
  }

  Value untyped() {
    Value v = any_value();
    finish();
    return v;
  }

  Value typed(const DataShape& shape) {
    shape_ = &shape;
    index_.assign(shape.dims.size(), nullptr);
    Value v;
    switch (shape.kind) {
      case DataShape::Kind::kScalar:
        v = elem(shape.elem, nullptr);
        break;
      case DataShape::Kind::kSet:
        v = set_value(shape.elem);
        break;
      case DataShape::Kind::kRange:
        v = range_value();
        break;
      case DataShape::Kind::kArray:
        v = level(0);
        break;
    }
    finish();
    return v;
  }

 private:
  struct Number {
    bool is_int = true;
    std::int64_t i = 0;
    double d = 0.0;
    Value value() const { return is_int ? Value::integer(i) : Value::real(d); }
  };
  struct Key {
    Value value;
    Place place;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::int64_t pos = 0;
  };
  struct Entry {
    Value value;
    Place place;
  };

  // Counts bracket levels on the way down; the scanner refuses deeper text,
  // this guards items built by other means.
  class Nest {
   public:
    Nest(Reader& r, const Place& at) : r_(r) {
      if (++r_.depth_ > kMaxDepth) {
        fail_at(at, "values nested deeper than " + std::to_string(kMaxDepth) + " levels are not supported");
      }
    }
    ~Nest() { --r_.depth_; }
    Nest(const Nest&) = delete;
    Nest& operator=(const Nest&) = delete;

   private:
    Reader& r_;
  };

  // ------------------------------------------------------------ tokens

  void advance() {
    last_end_ = offset_of(file_, tok_) + tok_.text.size();
    tok_ = lex_.next();
  }
  void skip_comma() {
    if (punct_is(tok_, ",")) advance();
  }
  void expect(std::string_view punct, const std::string& after) {
    if (!tok_.is(punct)) {
      fail_at(tok_.place, "expected " + quoted(punct) + " after " + after + ", got " + describe(tok_));
    }
    advance();
  }
  void finish() {
    if (!punct_is(tok_, ";")) {
      fail_at(tok_.place, "unexpected " + describe(tok_) + " after the value of " + quoted(item_.name));
    }
  }
  std::string_view slice(std::size_t begin, std::size_t end) const {
    return file_.text().substr(begin, end - begin);
  }

  [[noreturn]] void mismatch(const std::string& expected, const TupleField* field, const Place& at,
                             const std::string& got) const {
    std::string what = quoted(item_.name);
    if (field != nullptr) what = "field " + quoted(field->name) + " of " + what;
    fail_at(at, what + " expects " + expected + " here, got " + got);
  }

  // A number with its optional sign, or maxint or infinity. False, with
  // nothing consumed, when the value does not start like a number.
  bool number(Number* out) {
    const bool negative = punct_is(tok_, "-");
    const bool is_signed = negative || punct_is(tok_, "+");
    if (is_signed) advance();
    if (tok_.kind == Tok::kInt) {
      out->i = negative ? -tok_.int_value : tok_.int_value;
    } else if (tok_.kind == Tok::kFloat) {
      out->is_int = false;
      out->d = negative ? -tok_.float_value : tok_.float_value;
    } else if (tok_.is_word("maxint")) {
      out->i = std::numeric_limits<std::int64_t>::max() * (negative ? -1 : 1);
    } else if (tok_.is_word("infinity")) {
      out->is_int = false;
      out->d = std::numeric_limits<double>::infinity() * (negative ? -1 : 1);
    } else {
      if (is_signed) {
        fail_at(tok_.place,
                "expected a number after '" + std::string(negative ? "-" : "+") + "', got " + describe(tok_));
      }
      return false;
    }
    advance();
    return true;
  }

  // ------------------------------------------------------------ typed scalars

  Value elem(const ElemType& t, const TupleField* field) {
    switch (t.base) {
      case ElemType::Base::kInt:
      case ElemType::Base::kFloat:
        return numeric(t, field);
      case ElemType::Base::kBool:
        return boolean(t, field);
      case ElemType::Base::kString:
        if (tok_.kind == Tok::kString) {
          Value v = Value::str(std::move(tok_.str_value));
          advance();
          return v;
        }
        break;
      case ElemType::Base::kTuple:
        if (t.tuple != nullptr) return tuple_value(*t.tuple, field);
        break;
    }
    mismatch(expected_text(t), field, tok_.place, got_text(tok_));
  }

  Value numeric(const ElemType& t, const TupleField* field) {
    const Place at = tok_.place;
    const std::size_t begin = offset_of(file_, tok_);
    Number n;
    if (!number(&n)) mismatch(expected_text(t), field, at, got_text(tok_));
    if (t.base == ElemType::Base::kFloat) return Value::real(n.is_int ? static_cast<double>(n.i) : n.d);
    // OPL reads no float as an int, not even 2.0.
    if (!n.is_int) mismatch(expected_text(t), field, at, "number " + std::string(slice(begin, last_end_)));
    return Value::integer(n.i);
  }

  Value boolean(const ElemType& t, const TupleField* field) {
    const bool word = tok_.is_word("true") || tok_.is_word("false");
    const bool digit = tok_.kind == Tok::kInt && (tok_.int_value == 0 || tok_.int_value == 1);
    if (!word && !digit) mismatch(expected_text(t), field, tok_.place, got_text(tok_));
    const Value v = Value::boolean(word ? tok_.is_word("true") : tok_.int_value == 1);
    advance();
    return v;
  }

  // ------------------------------------------------------------ tuples

  Value tuple_value(const TupleInfo& t, const TupleField* field) {
    if (punct_is(tok_, "<")) return positional_tuple(t);
    if (punct_is(tok_, "#<")) return named_tuple(t);
    mismatch("a tuple " + quoted(t.name), field, tok_.place, got_text(tok_));
  }

  Value positional_tuple(const TupleInfo& t) {
    const Place open = tok_.place;
    const Nest nest(*this, open);
    advance();
    const std::size_t n = t.fields.size();
    ValueVec out;
    out.reserve(n);
    while (!punct_is(tok_, ">")) {
      if (out.size() == n) too_many_fields(t, open);
      out.push_back(elem(t.fields[out.size()].type, &t.fields[out.size()]));
      skip_comma();
    }
    if (out.size() < n) field_count_error(t, open, out.size());
    advance();
    return Value::tuple(std::move(out));
  }

  [[noreturn]] void too_many_fields(const TupleInfo& t, const Place& open) {
    std::size_t count = t.fields.size();
    for (; !punct_is(tok_, ">"); ++count) {
      any_value();
      skip_comma();
    }
    field_count_error(t, open, count);
  }

  [[noreturn]] void field_count_error(const TupleInfo& t, const Place& open, std::size_t given) const {
    fail_at(open, quoted(item_.name) + " gives " + counted(static_cast<std::int64_t>(given), "value") +
                      " for tuple " + quoted(t.name) + ", which has " +
                      counted(static_cast<std::int64_t>(t.fields.size()), "field"));
  }

  Value named_tuple(const TupleInfo& t) {
    const Place open = tok_.place;
    const Nest nest(*this, open);
    advance();
    ValueVec out(t.fields.size());
    std::vector<Place> given(t.fields.size());
    while (!punct_is(tok_, ">#")) {
      const Place at = tok_.place;
      const std::size_t i = field_named(t);
      if (given[i].known()) {
        fail_at(at, "field " + quoted(t.fields[i].name) + " is given twice in the value of " +
                        quoted(item_.name) + " (first at " + given[i].text() + ")");
      }
      given[i] = at;
      advance();
      expect(":", "field " + quoted(t.fields[i].name));
      out[i] = elem(t.fields[i].type, &t.fields[i]);
      skip_comma();
    }
    for (std::size_t i = 0; i < given.size(); ++i) {
      if (!given[i].known()) {
        fail_at(open, quoted(item_.name) + " gives no value for field " + quoted(t.fields[i].name) +
                          " of tuple " + quoted(t.name));
      }
    }
    advance();
    return Value::tuple(std::move(out));
  }

  std::size_t field_named(const TupleInfo& t) const {
    if (tok_.kind != Tok::kIdent) {
      fail_at(tok_.place, "expected a field name of tuple " + quoted(t.name) + ", got " + describe(tok_));
    }
    for (std::size_t i = 0; i < t.fields.size(); ++i) {
      if (t.fields[i].name == tok_.text) return i;
    }
    fail_at(tok_.place, "tuple " + quoted(t.name) + " has no field " + quoted(tok_.text));
  }

  // ------------------------------------------------------------ sets and ranges

  Value set_value(const ElemType& t) {
    const std::string expected =
        "a set of " + (t.base == ElemType::Base::kTuple ? "tuples " + quoted(t.spelling()) : t.spelling());
    if (punct_is(tok_, "{")) return set_members(t);
    if (t.base == ElemType::Base::kInt) {
      std::int64_t lo = 0;
      std::int64_t hi = 0;
      if (range_bounds(&lo, &hi, expected)) return enumerate(lo, hi);
    }
    mismatch(expected, nullptr, tok_.place, got_text(tok_));
  }

  Value set_members(const ElemType& t) {
    const Nest nest(*this, tok_.place);
    advance();
    ValueVec out;
    Map seen;
    while (!punct_is(tok_, "}")) {
      const Place at = tok_.place;
      Value v = elem(t, nullptr);
      if (seen.contains(v)) {
        fail_at(at, "member " + quoted(data_text(v)) + " appears twice in " + quoted(item_.name));
      }
      seen.set(v, Value());
      out.push_back(std::move(v));
      skip_comma();
    }
    advance();
    return Value::list(std::move(out));
  }

  Value enumerate(std::int64_t lo, std::int64_t hi) const {
    DimInfo range;
    range.is_range = true;
    range.start = lo;
    range.end = hi;
    if (range.size() > kMaxSetRange) {
      fail_at(item_.value_place, quoted(item_.name) + " is given the range " + std::to_string(lo) + ".." +
                                     std::to_string(hi) + ", more than " + std::to_string(kMaxSetRange) +
                                     " members; declare it as a range");
    }
    ValueVec out;
    out.reserve(static_cast<std::size_t>(range.size()));
    for (std::int64_t i = 0; i < range.size(); ++i) out.push_back(Value::integer(lo + i));
    return Value::list(std::move(out));
  }

  Value range_value() {
    std::int64_t lo = 0;
    std::int64_t hi = 0;
    const std::string expected = "a range such as 1..10";
    if (!range_bounds(&lo, &hi, expected)) mismatch(expected, nullptr, tok_.place, got_text(tok_));
    return range_map(lo, hi);
  }

  // `a..b`; false, with nothing consumed, when the value is no number.
  bool range_bounds(std::int64_t* lo, std::int64_t* hi, const std::string& expected) {
    const Place at = tok_.place;
    const std::size_t begin = offset_of(file_, tok_);
    Number a;
    if (!number(&a)) return false;
    if (!punct_is(tok_, "..")) {
      mismatch(expected, nullptr, at, "number " + std::string(slice(begin, last_end_)));
    }
    const auto [start, end] = range_rest(a, at, begin);
    *lo = start;
    *hi = end;
    return true;
  }

  // The rest of `a..b` once `a` is read, with `..` next.
  std::pair<std::int64_t, std::int64_t> range_rest(const Number& a, const Place& at, std::size_t begin) {
    const std::size_t a_end = last_end_;
    advance();
    const Place b_at = tok_.place;
    const std::size_t b_begin = offset_of(file_, tok_);
    Number b;
    if (!number(&b)) fail_at(tok_.place, "expected the end of the range after '..', got " + describe(tok_));
    if (!a.is_int) {
      fail_at(at, "a range needs integer bounds, got number " + std::string(slice(begin, a_end)));
    }
    if (!b.is_int) {
      fail_at(b_at, "a range needs integer bounds, got number " + std::string(slice(b_begin, last_end_)));
    }
    return {a.i, b.i};
  }

  // ------------------------------------------------------------ arrays

  Value level(std::size_t k) {
    const DataShape& s = *shape_;
    if (k == s.dims.size()) return s.array_of_sets ? set_value(s.elem) : elem(s.elem, nullptr);
    if (punct_is(tok_, "[")) return positional(k);
    if (punct_is(tok_, "#[")) return keyed(k);
    fail_at(tok_.place, quoted(item_.name) + " expects an array over " + quoted(s.dims[k].name) +
                            " here, got " + got_text(tok_));
  }

  Value positional(std::size_t k) {
    const DimInfo& dim = shape_->dims[k];
    const Place open = tok_.place;
    const Nest nest(*this, open);
    advance();
    const std::int64_t size = dim.size();
    ValueVec values;
    values.reserve(static_cast<std::size_t>(std::min(size, kMaxReserve)));
    while (!punct_is(tok_, "]")) {
      values.push_back(level(k + 1));
      skip_comma();
    }
    advance();
    const auto given = static_cast<std::int64_t>(values.size());
    if (given != size) {
      fail_at(open, quoted(item_.name) + " has " + counted(given, "value") + " but its index set " +
                        quoted(dim.name) + " has " + counted(size, "member"));
    }
    return assemble(k, std::move(values));
  }

  // Values in the index set's order, in the form the generator reads: a
  // list from the start of a range, a map from member to value over a set.
  Value assemble(std::size_t k, ValueVec values) {
    const DimInfo& dim = shape_->dims[k];
    if (dim.is_range) return Value::list(std::move(values));
    if (values.empty()) return Value::map(make_map());  // an empty set may come without a member list
    // Every map of this level has the set's members as keys, in order: copy
    // one keyed map and fill in the values, instead of hashing each key again.
    if (templates_.size() <= k) templates_.resize(k + 1);
    if (templates_[k] == nullptr) {
      templates_[k] = make_map();
      for (const Value& member : dim.members.items()) templates_[k]->set(member, Value());
    }
    MapPtr m = std::make_shared<Map>(*templates_[k]);
    for (std::size_t i = 0; i < values.size(); ++i) m->set_value_at(i, std::move(values[i]));
    return Value::map(m);
  }

  Value keyed(std::size_t k) {
    const DimInfo& dim = shape_->dims[k];
    const Place open = tok_.place;
    const Nest nest(*this, open);
    advance();
    const std::int64_t size = dim.size();
    Slots slots(size, file_.text().size());
    std::vector<Entry> entries;
    while (!punct_is(tok_, "]#")) {
      const Key key = key_of(k);
      if (auto first = slots.find(key.pos)) {
        fail_at(key.place, "key " + key_text(key) + " of " + quoted(item_.name) +
                               " is given twice (first at " + entries[*first].place.text() + ")");
      }
      expect(":", "the key " + key_text(key));
      slots.put(key.pos, entries.size());
      entries.push_back(Entry{level(k + 1), key.place});
      skip_comma();
    }
    advance();
    if (static_cast<std::int64_t>(entries.size()) != size) missing_key(k, slots, open);
    ValueVec values;
    values.reserve(entries.size());
    for (std::int64_t pos = 0; pos < size; ++pos)
      values.push_back(std::move(entries[*slots.find(pos)].value));
    return assemble(k, std::move(values));
  }

  // Every key given is a distinct member, so fewer entries than members
  // means that one is missing: the first one is found within entries + 1 steps.
  [[noreturn]] void missing_key(std::size_t k, const Slots& slots, const Place& open) const {
    const DimInfo& dim = shape_->dims[k];
    std::int64_t pos = 0;
    while (slots.find(pos)) ++pos;
    const Value member =
        dim.is_range ? Value::integer(dim.start + pos) : dim.members.items()[static_cast<std::size_t>(pos)];
    fail_at(open, quoted(item_.name) + " gives no value for " + quoted(data_text(member)) + " of " +
                      quoted(dim.name));
  }

  Key key_of(std::size_t k) {
    const DimInfo& dim = shape_->dims[k];
    Key key;
    key.place = tok_.place;
    key.begin = offset_of(file_, tok_);
    key.value = key_value();
    key.end = last_end_;
    if (dim.is_range) {
      if (key.value.is_int() && key.value.as_int() >= dim.start && key.value.as_int() <= dim.end) {
        key.pos = key.value.as_int() - dim.start;
        return key;
      }
    } else if (const Value* pos = member_index(k).find(key.value)) {
      key.pos = pos->as_int();
      return key;
    }
    fail_at(key.place,
            "key " + key_text(key) + " of " + quoted(item_.name) + " is not a member of " + quoted(dim.name));
  }

  std::string key_text(const Key& key) const {
    return quoted(key.value.is_str() ? std::string_view(key.value.as_str()) : slice(key.begin, key.end));
  }

  // Member -> position in the set, built once per dimension of the item.
  const Map& member_index(std::size_t k) {
    if (!index_[k]) {
      index_[k] = make_map();
      const DimInfo& dim = shape_->dims[k];
      if (!dim.members.is_sequence()) return *index_[k];
      const ValueVec& members = dim.members.items();
      for (std::size_t i = 0; i < members.size(); ++i)
        index_[k]->set(members[i], Value::integer(static_cast<std::int64_t>(i)));
    }
    return *index_[k];
  }

  // A key of an indexed array: a number, a string, a Boolean or a tuple of
  // keys, so that every key can be hashed.
  Value key_value() {
    Number n;
    if (number(&n)) return n.value();
    if (tok_.kind == Tok::kString || tok_.is_word("true") || tok_.is_word("false")) return scalar_word();
    if (!punct_is(tok_, "<")) {
      fail_at(tok_.place, "expected a key (a number, a string or a tuple), got " + got_text(tok_));
    }
    const Nest nest(*this, tok_.place);
    advance();
    ValueVec items;
    while (!punct_is(tok_, ">")) {
      items.push_back(key_value());
      skip_comma();
    }
    advance();
    return Value::tuple(std::move(items));
  }

  // A string literal, `true` or `false` (the caller has checked which).
  Value scalar_word() {
    Value v = tok_.kind == Tok::kString ? Value::str(std::move(tok_.str_value))
                                        : Value::boolean(tok_.is_word("true"));
    advance();
    return v;
  }

  // ------------------------------------------------------------ untyped

  Value any_value() {
    const Place at = tok_.place;
    const std::size_t begin = offset_of(file_, tok_);
    Number n;
    if (number(&n)) {
      if (!punct_is(tok_, "..")) return n.value();
      const auto [start, end] = range_rest(n, at, begin);
      return range_map(start, end);
    }
    if (tok_.kind == Tok::kString || tok_.is_word("true") || tok_.is_word("false")) return scalar_word();
    if (punct_is(tok_, "{")) return Value::list(any_items("}"));
    if (punct_is(tok_, "[")) return Value::list(any_items("]"));
    if (punct_is(tok_, "<")) return Value::tuple(any_items(">"));
    if (punct_is(tok_, "#[")) return any_keyed();
    if (punct_is(tok_, "#<")) return any_named();
    fail_at(tok_.place, "unexpected " + describe(tok_) + " in the value of " + quoted(item_.name));
  }

  ValueVec any_items(std::string_view closer) {
    const Nest nest(*this, tok_.place);
    advance();
    ValueVec out;
    while (!tok_.is(closer)) {
      out.push_back(any_value());
      skip_comma();
    }
    advance();
    return out;
  }

  Value any_keyed() {
    const Nest nest(*this, tok_.place);
    advance();
    MapPtr m = make_map();
    while (!punct_is(tok_, "]#")) {
      Key key;
      key.place = tok_.place;
      key.begin = offset_of(file_, tok_);
      key.value = key_value();
      key.end = last_end_;
      if (m->contains(key.value)) {
        fail_at(key.place, "key " + key_text(key) + " of " + quoted(item_.name) + " is given twice");
      }
      expect(":", "the key " + key_text(key));
      m->set(key.value, any_value());
      skip_comma();
    }
    advance();
    return Value::map(m);
  }

  Value any_named() {
    const Nest nest(*this, tok_.place);
    advance();
    MapPtr m = make_map();
    while (!punct_is(tok_, ">#")) {
      if (tok_.kind != Tok::kIdent) fail_at(tok_.place, "expected a field name, got " + describe(tok_));
      const std::string field(tok_.text);
      if (m->contains(field)) {
        fail_at(tok_.place,
                "field " + quoted(field) + " is given twice in the value of " + quoted(item_.name));
      }
      advance();
      expect(":", "field " + quoted(field));
      m->set(field, any_value());
      skip_comma();
    }
    advance();
    return Value::map(m);
  }

  const SourceFile& file_;
  const DatItem& item_;
  Lexer lex_;
  Token tok_;
  std::size_t last_end_ = 0;  // byte offset just after the last token consumed
  std::size_t depth_ = 0;
  const DataShape* shape_ = nullptr;
  std::vector<MapPtr> index_;      // per dimension, see member_index
  std::vector<MapPtr> templates_;  // per dimension, see assemble
};

}  // namespace

std::vector<DatItem> scan_dat(const SourceFile& file) { return Scanner(file).run(); }

Value shape_item(const SourceFile& file, const DatItem& item, const DataShape& shape) {
  return Reader(file, item).typed(shape);
}

Value read_untyped(const SourceFile& file, const DatItem& item) { return Reader(file, item).untyped(); }

}  // namespace kolva::opl

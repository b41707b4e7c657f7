#include "model/semantics.hpp"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "model/error.hpp"
#include "model/map.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

constexpr double kTwoPow63 = 9223372036854775808.0;

std::uint64_t mix(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30U)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27U)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31U);
}

std::int64_t int_of(const Value& v) {
  return v.is_bool() ? static_cast<std::int64_t>(v.as_bool()) : v.as_int();
}

// Exact comparison of an int with a float, as Python does it.
int compare_int_float(std::int64_t i, double f) {
  if (f >= kTwoPow63) return -1;
  if (f < -kTwoPow63) return 1;
  const double fl = std::floor(f);
  const auto whole = static_cast<std::int64_t>(fl);
  if (i < whole) return -1;
  if (i > whole) return 1;
  return fl == f ? 0 : -1;
}

[[noreturn]] void unorderable(const Value& a, const Value& b) {
  raise(ErrorKind::kType, std::string("'<' not supported between instances of '") + type_name(a) + "' and '" +
                              type_name(b) + "'");
}

bool sequences_lt(const ValueVec& a, const ValueVec& b) {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (!py_eq(a[i], b[i])) return py_lt(a[i], b[i]);
  }
  return a.size() < b.size();
}

bool maps_equal(const Map& a, const Map& b) {
  if (&a == &b) return true;
  if (a.size() != b.size()) return false;
  for (const Map::Item& item : a.items()) {
    const Value* other = b.find(item.first);
    if (other == nullptr || !py_eq(item.second, *other)) return false;
  }
  return true;
}

bool sequences_equal(const ValueVec& a, const ValueVec& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!py_eq(a[i], b[i])) return false;
  }
  return true;
}

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && is_space(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_space(s.back())) s.remove_suffix(1);
  return s;
}

// Python allows single underscores between digits in numeric literals.
bool strip_underscores(std::string_view s, std::string& out) {
  out.clear();
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '_') {
      const bool ok = i > 0 && i + 1 < s.size() && std::isdigit(static_cast<unsigned char>(s[i - 1])) != 0 &&
                      std::isdigit(static_cast<unsigned char>(s[i + 1])) != 0;
      if (!ok) return false;
      continue;
    }
    out.push_back(s[i]);
  }
  return true;
}

bool parse_float_text(std::string_view text, double& out) {
  std::string digits;
  const std::string_view t = trim(text);
  if (t.empty() || !strip_underscores(t, digits)) return false;
  for (char ch : digits) {
    if (ch == 'x' || ch == 'X' || ch == 'p' || ch == 'P') return false;
  }
  const char* begin = digits.c_str();
  char* end = nullptr;
  errno = 0;
  out = std::strtod(begin, &end);
  if (end != begin + digits.size()) return false;
  // Python spells out only inf, infinity and nan, with an optional sign.
  std::string lower;
  for (char ch : digits) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(ch))));
  const std::string_view body =
      (lower[0] == '+' || lower[0] == '-') ? std::string_view(lower).substr(1) : std::string_view(lower);
  if (!body.empty() && std::isalpha(static_cast<unsigned char>(body[0])) != 0) {
    return body == "inf" || body == "infinity" || body == "nan";
  }
  return true;
}

bool parse_int_text(std::string_view text, std::int64_t& out) {
  std::string digits;
  std::string_view t = trim(text);
  bool negative = false;
  if (!t.empty() && (t.front() == '+' || t.front() == '-')) {
    negative = t.front() == '-';
    t.remove_prefix(1);
  }
  if (t.empty() || !strip_underscores(t, digits) || digits.empty()) return false;
  std::uint64_t magnitude = 0;
  for (char ch : digits) {
    if (ch < '0' || ch > '9') return false;
    const auto d = static_cast<std::uint64_t>(ch - '0');
    if (magnitude > (std::numeric_limits<std::uint64_t>::max() - d) / 10) {
      raise(ErrorKind::kOverflow, "integer literal does not fit in 64 bits: " + std::string(text));
    }
    magnitude = magnitude * 10 + d;
  }
  const std::uint64_t limit = negative ? (1ULL << 63U) : (1ULL << 63U) - 1;
  if (magnitude > limit) {
    raise(ErrorKind::kOverflow, "integer literal does not fit in 64 bits: " + std::string(text));
  }
  out = negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
  return true;
}

}  // namespace

std::optional<std::int64_t> int_from_text(std::string_view text) {
  std::int64_t out = 0;
  if (parse_int_text(text, out)) return out;
  return std::nullopt;
}

std::optional<std::int64_t> integral_value(double d) {
  if (!std::isfinite(d) || d != std::floor(d) || d >= kTwoPow63 || d < -kTwoPow63) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(d);
}

Value normalize_integral(const Value& v) {
  if (v.is_bool()) return Value::integer(v.as_bool() ? 1 : 0);
  if (v.is_float()) {
    if (auto whole = integral_value(v.as_float())) return Value::integer(*whole);
  }
  return v;
}

bool py_eq(const Value& a, const Value& b) {
  using K = Value::Kind;
  if (a.is_number() && b.is_number()) {
    if (a.is_float() && b.is_float()) return a.as_float() == b.as_float();
    if (a.is_float()) return !std::isnan(a.as_float()) && compare_int_float(int_of(b), a.as_float()) == 0;
    if (b.is_float()) return !std::isnan(b.as_float()) && compare_int_float(int_of(a), b.as_float()) == 0;
    return int_of(a) == int_of(b);
  }
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case K::kNone:
      return true;
    case K::kStr:
      return a.as_str() == b.as_str();
    case K::kTuple:
    case K::kList:
      return a.identity() == b.identity() || sequences_equal(a.items(), b.items());
    case K::kMap:
      return maps_equal(*a.as_map(), *b.as_map());
    default:
      return false;
  }
}

std::uint64_t py_hash_str(std::string_view s) {
  std::uint64_t h = 1469598103934665603ULL;
  for (unsigned char ch : s) {
    h ^= ch;
    h *= 1099511628211ULL;
  }
  return mix(h);
}

std::uint64_t py_hash(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kNone:
      return 0x5bd1e995ULL;
    case Value::Kind::kBool:
    case Value::Kind::kInt:
      return mix(static_cast<std::uint64_t>(int_of(v)));
    case Value::Kind::kFloat: {
      const double d = v.as_float();
      if (auto whole = integral_value(d)) return mix(static_cast<std::uint64_t>(*whole));
      if (std::isnan(d)) return 0x7ff8ULL;
      std::uint64_t bits = 0;
      std::memcpy(&bits, &d, sizeof bits);
      return mix(bits ^ 0xabcdefULL);
    }
    case Value::Kind::kStr:
      return py_hash_str(v.as_str());
    case Value::Kind::kTuple: {
      std::uint64_t h = 0x345678ULL;
      for (const Value& item : v.items()) h = mix(h ^ py_hash(item)) * 1000003ULL;
      return h;
    }
    case Value::Kind::kList:
    case Value::Kind::kMap:
      break;
  }
  raise(ErrorKind::kType, std::string("unhashable type: '") + type_name(v) + "'");
}

bool py_lt(const Value& a, const Value& b) {
  if (a.is_number() && b.is_number()) {
    if (a.is_float() && b.is_float()) return a.as_float() < b.as_float();
    if (a.is_float()) {
      return !std::isnan(a.as_float()) && compare_int_float(int_of(b), a.as_float()) > 0;
    }
    if (b.is_float()) {
      return !std::isnan(b.as_float()) && compare_int_float(int_of(a), b.as_float()) < 0;
    }
    return int_of(a) < int_of(b);
  }
  if (a.is_str() && b.is_str()) return a.as_str() < b.as_str();
  if ((a.is_tuple() && b.is_tuple()) || (a.is_list() && b.is_list())) {
    return sequences_lt(a.items(), b.items());
  }
  unorderable(a, b);
}

bool py_truth(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kNone:
      return false;
    case Value::Kind::kBool:
      return v.as_bool();
    case Value::Kind::kInt:
      return v.as_int() != 0;
    case Value::Kind::kFloat:
      return v.as_float() != 0.0;
    case Value::Kind::kStr:
      return !v.as_str().empty();
    case Value::Kind::kTuple:
    case Value::Kind::kList:
      return !v.items().empty();
    case Value::Kind::kMap:
      return !v.as_map()->empty();
  }
  return false;
}

double py_float(const Value& v) {
  if (v.is_float()) return v.as_float();
  if (v.is_int_like()) return static_cast<double>(int_of(v));
  if (v.is_str()) {
    double out = 0.0;
    if (parse_float_text(v.as_str(), out)) return out;
    raise(ErrorKind::kValue, "could not convert string to float: " + py_repr(v));
  }
  raise(ErrorKind::kType,
        std::string("float() argument must be a string or a real number, not '") + type_name(v) + "'");
}

std::int64_t py_int(const Value& v) {
  if (v.is_int_like()) return int_of(v);
  if (v.is_float()) {
    const double d = v.as_float();
    if (std::isnan(d)) raise(ErrorKind::kValue, "cannot convert float NaN to integer");
    if (std::isinf(d)) raise(ErrorKind::kOverflow, "cannot convert float infinity to integer");
    const double t = std::trunc(d);
    if (t >= kTwoPow63 || t < -kTwoPow63) {
      raise(ErrorKind::kOverflow, "integer " + py_repr(v) + " does not fit in 64 bits");
    }
    return static_cast<std::int64_t>(t);
  }
  if (v.is_str()) {
    std::int64_t out = 0;
    if (parse_int_text(v.as_str(), out)) return out;
    raise(ErrorKind::kValue, "invalid literal for int() with base 10: " + py_repr(v));
  }
  raise(ErrorKind::kType,
        std::string("int() argument must be a string, a bytes-like object or a real number, not '") +
            type_name(v) + "'");
}

std::int64_t checked_add(std::int64_t a, std::int64_t b) {
  std::int64_t r = 0;
  if (__builtin_add_overflow(a, b, &r)) raise(ErrorKind::kOverflow, "integer result does not fit in 64 bits");
  return r;
}

std::int64_t checked_sub(std::int64_t a, std::int64_t b) {
  std::int64_t r = 0;
  if (__builtin_sub_overflow(a, b, &r)) raise(ErrorKind::kOverflow, "integer result does not fit in 64 bits");
  return r;
}

std::int64_t checked_mul(std::int64_t a, std::int64_t b) {
  std::int64_t r = 0;
  if (__builtin_mul_overflow(a, b, &r)) raise(ErrorKind::kOverflow, "integer result does not fit in 64 bits");
  return r;
}

std::int64_t checked_neg(std::int64_t a) { return checked_sub(0, a); }

std::int64_t floor_div(std::int64_t a, std::int64_t b) {
  if (b == 0) raise(ErrorKind::kValue, "integer division or modulo by zero");
  if (a == std::numeric_limits<std::int64_t>::min() && b == -1) {
    raise(ErrorKind::kOverflow, "integer result does not fit in 64 bits");
  }
  std::int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

namespace {

template <typename IntOp, typename FloatOp>
Value numeric_binary(const Value& a, const Value& b, IntOp int_op, FloatOp float_op) {
  if (a.is_int_like() && b.is_int_like()) return Value::integer(int_op(int_of(a), int_of(b)));
  return Value::real(float_op(py_float(a), py_float(b)));
}

}  // namespace

Value py_add(const Value& a, const Value& b) {
  return numeric_binary(a, b, checked_add, [](double x, double y) { return x + y; });
}

Value py_sub(const Value& a, const Value& b) {
  return numeric_binary(a, b, checked_sub, [](double x, double y) { return x - y; });
}

Value py_mul(const Value& a, const Value& b) {
  return numeric_binary(a, b, checked_mul, [](double x, double y) { return x * y; });
}

Value py_neg(const Value& a) {
  if (a.is_int_like()) return Value::integer(checked_neg(int_of(a)));
  return Value::real(-py_float(a));
}

}  // namespace kolva

namespace kolva {

std::vector<std::string> utf8_characters(const std::string& s) {
  std::vector<std::string> out;
  for (std::size_t i = 0; i < s.size();) {
    const auto lead = static_cast<unsigned char>(s[i]);
    std::size_t len = 1;
    if (lead >= 0xF0) {
      len = 4;
    } else if (lead >= 0xE0) {
      len = 3;
    } else if (lead >= 0xC0) {
      len = 2;
    }
    len = std::min(len, s.size() - i);
    out.push_back(s.substr(i, len));
    i += len;
  }
  return out;
}

namespace {

std::size_t checked_position(const Value& key, std::size_t size, const char* what) {
  if (!key.is_int_like()) {
    raise(ErrorKind::kType, std::string(what) + " indices must be integers or slices, not " + type_name(key));
  }
  std::int64_t pos = key.is_bool() ? static_cast<std::int64_t>(key.as_bool()) : key.as_int();
  const auto n = static_cast<std::int64_t>(size);
  if (pos < 0) pos += n;
  if (pos < 0 || pos >= n) raise(ErrorKind::kIndex, std::string(what) + " index out of range");
  return static_cast<std::size_t>(pos);
}

}  // namespace

Value py_getitem(const Value& container, const Value& key) {
  switch (container.kind()) {
    case Value::Kind::kMap:
      return container.as_map()->at(key);
    case Value::Kind::kList:
      return container.items()[checked_position(key, container.items().size(), "list")];
    case Value::Kind::kTuple:
      return container.items()[checked_position(key, container.items().size(), "tuple")];
    case Value::Kind::kStr: {
      const std::vector<std::string> chars = utf8_characters(container.as_str());
      return Value::str(chars[checked_position(key, chars.size(), "string")]);
    }
    default:
      raise(ErrorKind::kType, std::string("'") + type_name(container) + "' object is not subscriptable");
  }
}

bool py_contains(const Value& container, const Value& item) {
  switch (container.kind()) {
    case Value::Kind::kMap:
      return container.as_map()->contains(item);
    case Value::Kind::kList:
    case Value::Kind::kTuple:
      for (const Value& member : container.items()) {
        if (py_eq(member, item)) return true;
      }
      return false;
    case Value::Kind::kStr:
      if (!item.is_str()) {
        raise(ErrorKind::kType,
              std::string("'in <string>' requires string as left operand, not ") + type_name(item));
      }
      return container.as_str().find(item.as_str()) != std::string::npos;
    default:
      raise(ErrorKind::kType, std::string("argument of type '") + type_name(container) + "' is not iterable");
  }
}

std::string repr_list(const ValueVec& items) {
  std::string out = "[";
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += ", ";
    append_repr(out, items[i]);
  }
  out += ']';
  return out;
}

}  // namespace kolva

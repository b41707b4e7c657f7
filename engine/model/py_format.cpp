#include "py_format.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <system_error>

namespace kolva {

namespace {

// ---------------------------------------------------------------- floats

// CPython's float_repr_style 'short' switches to exponent form outside this window.
constexpr int kMinFixedExponent = -4;
constexpr int kMaxFixedExponent = 16;  // exclusive

struct ShortestDigits {
  std::string digits;  // significant digits, no dot, no sign
  int exponent = 0;    // value = d.ddd x 10^exponent
};

// Shortest round-trip digits of a finite, non-negative double.
ShortestDigits shortest_digits(double magnitude) {
  std::array<char, 64> buffer{};
  const auto result =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), magnitude, std::chars_format::scientific);
  const std::string_view text(buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data()));
  const std::size_t e_pos = text.find('e');

  ShortestDigits out;
  for (const char c : text.substr(0, e_pos)) {
    if (c != '.') out.digits.push_back(c);
  }
  const std::string_view exp_text = text.substr(e_pos + 1);
  const char* exp_first = exp_text.data() + (exp_text.front() == '+' ? 1 : 0);
  std::from_chars(exp_first, exp_text.data() + exp_text.size(), out.exponent);
  return out;
}

std::string layout_scientific(const ShortestDigits& d) {
  std::string out(1, d.digits.front());
  if (d.digits.size() > 1) {
    out += '.';
    out.append(d.digits, 1);
  }
  out += d.exponent < 0 ? "e-" : "e+";
  const int abs_exp = d.exponent < 0 ? -d.exponent : d.exponent;
  if (abs_exp < 10) out += '0';
  out += std::to_string(abs_exp);
  return out;
}

std::string layout_fixed(const ShortestDigits& d) {
  const auto count = static_cast<int>(d.digits.size());
  if (d.exponent < 0) {
    return "0." + std::string(static_cast<std::size_t>(-d.exponent - 1), '0') + d.digits;
  }
  const int int_len = d.exponent + 1;
  if (count <= int_len) {
    return d.digits + std::string(static_cast<std::size_t>(int_len - count), '0') + ".0";
  }
  return d.digits.substr(0, static_cast<std::size_t>(int_len)) + '.' +
         d.digits.substr(static_cast<std::size_t>(int_len));
}

// ---------------------------------------------------------------- unicode

struct CodePointRange {
  char32_t first;
  char32_t last;  // inclusive
};

constexpr auto kNonPrintable = std::to_array<CodePointRange>({
#include "unicode_printable_table.inc"
});

constexpr auto kAlnum = std::to_array<CodePointRange>({
#include "unicode_alnum_table.inc"
});

constexpr char32_t kMaxCodePoint = 0x10FFFF;
constexpr char32_t kSurrogateEscapeBase = 0xDC00;

template <std::size_t N>
constexpr bool table_is_sorted(const std::array<CodePointRange, N>& table) {
  for (std::size_t i = 0; i < N; ++i) {
    if (table[i].first > table[i].last) return false;
    if (i > 0 && table[i - 1].last >= table[i].first) return false;
  }
  return true;
}
static_assert(table_is_sorted(kNonPrintable), "unicode_printable_table.inc must be sorted and disjoint");
static_assert(table_is_sorted(kAlnum), "unicode_alnum_table.inc must be sorted and disjoint");

template <std::size_t N>
bool in_ranges(const std::array<CodePointRange, N>& table, char32_t code_point) {
  // First range starting after code_point; the one before it may contain it.
  const auto* after =
      std::upper_bound(table.begin(), table.end(), code_point,
                       [](char32_t cp, const CodePointRange& range) { return cp < range.first; });
  return after != table.begin() && code_point <= std::prev(after)->last;
}

struct Decoded {
  char32_t code_point;
  std::size_t length;  // bytes consumed, >= 1
  bool valid;
};

bool is_continuation(unsigned char byte) { return (byte & 0xC0U) == 0x80U; }

// Strict decoding of one well-formed UTF-8 sequence (no overlongs, no surrogates,
// nothing above U+10FFFF). On failure only the first byte is consumed; the bytes
// after it are continuation bytes at most, so they fail on their own too and the
// result matches Python's per-byte surrogateescape.
Decoded decode_one(std::string_view text, std::size_t pos) {
  const auto lead = static_cast<unsigned char>(text[pos]);
  const Decoded invalid{kSurrogateEscapeBase + lead, 1, false};
  if (lead < 0x80) return {lead, 1, true};

  std::size_t length = 0;
  char32_t cp = 0;
  unsigned char second_min = 0x80;
  unsigned char second_max = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    cp = lead & 0x1FU;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    cp = lead & 0x0FU;
    if (lead == 0xE0) second_min = 0xA0;  // overlong
    if (lead == 0xED) second_max = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    cp = lead & 0x07U;
    if (lead == 0xF0) second_min = 0x90;  // overlong
    if (lead == 0xF4) second_max = 0x8F;  // above U+10FFFF
  } else {
    return invalid;
  }
  if (text.size() - pos < length) return invalid;

  const auto second = static_cast<unsigned char>(text[pos + 1]);
  if (second < second_min || second > second_max) return invalid;
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[pos + i]);
    if (!is_continuation(byte)) return invalid;
    cp = (cp << 6U) | (byte & 0x3FU);
  }
  return {cp, length, true};
}

char choose_quote(std::string_view text) {
  const bool has_single = text.find('\'') != std::string_view::npos;
  const bool has_double = text.find('"') != std::string_view::npos;
  return has_single && !has_double ? '"' : '\'';
}

void append_hex(std::string& out, char prefix, char32_t cp, int width) {
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  out += '\\';
  out += prefix;
  for (int shift = 4 * (width - 1); shift >= 0; shift -= 4) {
    out += kHexDigits[(cp >> static_cast<unsigned>(shift)) & 0xFU];
  }
}

void append_ascii(std::string& out, char c, char quote) {
  switch (c) {
    case '\t':
      out += "\\t";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      break;
  }
  if (c == quote || c == '\\') {
    out += '\\';
    out += c;
  } else if (c < 0x20 || c == 0x7F) {
    append_hex(out, 'x', static_cast<char32_t>(c), 2);
  } else {
    out += c;
  }
}

void append_escaped_non_ascii(std::string& out, char32_t cp) {
  if (cp <= 0xFF) {
    append_hex(out, 'x', cp, 2);
  } else if (cp <= 0xFFFF) {
    append_hex(out, 'u', cp, 4);
  } else {
    append_hex(out, 'U', cp, 8);
  }
}

}  // namespace

std::string py_repr_float(double value) {
  if (std::isnan(value)) return "nan";  // Python drops the sign of nan
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";

  const std::string sign = std::signbit(value) ? "-" : "";
  if (value == 0.0) return sign + "0.0";

  // Whole numbers below 1e16 print as their integer digits and ".0"; they
  // are most of what a model holds, and need no shortest-digit search.
  constexpr double kFixedLimit = 1e16;
  if (std::fabs(value) < kFixedLimit && value == std::trunc(value)) {
    std::array<char, 24> buffer{};
    const auto res =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), static_cast<std::int64_t>(value));
    std::string out(buffer.data(), res.ptr);
    out += ".0";
    return out;
  }

  const ShortestDigits digits = shortest_digits(std::fabs(value));
  const bool fixed = digits.exponent >= kMinFixedExponent && digits.exponent < kMaxFixedExponent;
  return sign + (fixed ? layout_fixed(digits) : layout_scientific(digits));
}

bool py_is_printable(char32_t code_point) {
  if (code_point > kMaxCodePoint) return false;
  return !in_ranges(kNonPrintable, code_point);
}

bool py_str_isalnum(std::string_view utf8) {
  if (utf8.empty()) return false;
  for (std::size_t pos = 0; pos < utf8.size();) {
    const Decoded d = decode_one(utf8, pos);
    if (!d.valid || !in_ranges(kAlnum, d.code_point)) return false;
    pos += d.length;
  }
  return true;
}

namespace {

// Printable ASCII other than the backslash and the quotes stands for itself.
bool plain_ascii(std::string_view text) {
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u >= 0x7f || c == '\\' || c == '\'' || c == '"') return false;
  }
  return true;
}

}  // namespace

std::string py_repr_str(std::string_view utf8) {
  if (plain_ascii(utf8)) {
    std::string out;
    out.reserve(utf8.size() + 2);
    out += '\'';
    out += utf8;
    out += '\'';
    return out;
  }
  const char quote = choose_quote(utf8);
  std::string out(1, quote);
  out.reserve(utf8.size() + 2);
  std::size_t pos = 0;
  while (pos < utf8.size()) {
    const Decoded d = decode_one(utf8, pos);
    if (d.code_point < 0x80) {
      append_ascii(out, static_cast<char>(d.code_point), quote);
    } else if (d.valid && py_is_printable(d.code_point)) {
      out.append(utf8, pos, d.length);
    } else {
      append_escaped_non_ascii(out, d.code_point);
    }
    pos += d.length;
  }
  out += quote;
  return out;
}

}  // namespace kolva

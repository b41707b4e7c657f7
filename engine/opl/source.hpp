#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kolva::opl {

// One source text (a .mod, an included file or a .dat) with its name, kept
// alive for as long as anything may still point into it for a message.
class SourceFile {
 public:
  SourceFile(std::string name, std::string text);

  const std::string& name() const { return name_; }
  std::string_view text() const { return text_; }
  // The text of a 1-based line, without its line break.
  std::string_view line_text(std::uint32_t line) const;

 private:
  std::string name_;
  std::string text_;
  mutable std::vector<std::uint32_t> line_starts_;  // built on first use
};

// A point in a source: 1-based line and column (the column counts bytes).
struct Place {
  const SourceFile* file = nullptr;
  std::uint32_t line = 0;
  std::uint32_t col = 0;

  bool known() const { return file != nullptr && line > 0; }
  // "FILE:LINE:COL", or "FILE" when no line is known.
  std::string text() const;
};

// A front-end error: where it is and what is wrong. what() is the whole
// compiler-style report: "FILE:LINE:COL: error: MESSAGE", the source line and
// a caret under the column.
class OplError : public std::runtime_error {
 public:
  OplError(const Place& place, const std::string& message);

  const std::string& filename() const { return filename_; }
  std::uint32_t line() const { return line_; }
  std::uint32_t column() const { return column_; }
  const std::string& message() const { return message_; }
  const std::string& source_line() const { return source_line_; }

 private:
  std::string filename_;
  std::uint32_t line_;
  std::uint32_t column_;
  std::string message_;
  std::string source_line_;
};

[[noreturn]] void fail_at(const Place& place, const std::string& message);

// A warning with its place, handed to the caller's logger by the binding.
struct Diagnostic {
  Place place;
  std::string message;
  // "FILE:LINE:COL: warning: MESSAGE"
  std::string text() const;
};

// Every source text read during one load, owned in one place so that places
// stay valid until the load's result has been handed over.
class SourceSet {
 public:
  const SourceFile& add(std::string name, std::string text);

 private:
  std::vector<std::unique_ptr<SourceFile>> files_;
};

}  // namespace kolva::opl

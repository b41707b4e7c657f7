#include "opl/source.hpp"

#include <algorithm>

namespace kolva::opl {

SourceFile::SourceFile(std::string name, std::string text) : name_(std::move(name)), text_(std::move(text)) {}

std::string_view SourceFile::line_text(std::uint32_t line) const {
  if (line_starts_.empty()) {
    line_starts_.push_back(0);
    for (std::size_t i = 0; i < text_.size(); ++i) {
      if (text_[i] == '\n') line_starts_.push_back(static_cast<std::uint32_t>(i + 1));
    }
  }
  if (line == 0 || line > line_starts_.size()) return {};
  const std::size_t start = line_starts_[line - 1];
  std::size_t end = line < line_starts_.size() ? line_starts_[line] - 1 : text_.size();
  if (end > start && text_[end - 1] == '\r') --end;
  return std::string_view(text_).substr(start, end - start);
}

std::string Place::text() const {
  std::string name = file != nullptr ? file->name() : std::string("<unknown>");
  if (line == 0) return name;
  return name + ":" + std::to_string(line) + ":" + std::to_string(col);
}

namespace {

// The caret line keeps tabs as tabs so that it lines up under the source line.
std::string caret_line(std::string_view source, std::uint32_t col) {
  std::string out;
  const std::size_t upto = col > 0 ? std::min<std::size_t>(col - 1, source.size()) : 0;
  for (std::size_t i = 0; i < upto; ++i) {
    const auto c = static_cast<unsigned char>(source[i]);
    if (c == '\t') {
      out += '\t';
    } else if ((c & 0xC0U) != 0x80U) {
      out += ' ';  // one space per character, not per UTF-8 byte
    }
  }
  return out + '^';
}

std::string report(const Place& place, const std::string& kind, const std::string& message) {
  std::string out = place.text() + ": " + kind + ": " + message;
  if (place.known()) {
    std::string_view source = place.file->line_text(place.line);
    if (!source.empty()) {
      out += "\n";
      out += source;
      out += "\n";
      out += caret_line(source, place.col);
    }
  }
  return out;
}

}  // namespace

OplError::OplError(const Place& place, const std::string& message)
    : std::runtime_error(report(place, "error", message)),
      filename_(place.file != nullptr ? place.file->name() : std::string("<unknown>")),
      line_(place.line),
      column_(place.col),
      message_(message),
      source_line_(place.known() ? std::string(place.file->line_text(place.line)) : std::string()) {}

void fail_at(const Place& place, const std::string& message) { throw OplError(place, message); }

std::string Diagnostic::text() const { return place.text() + ": warning: " + message; }

const SourceFile& SourceSet::add(std::string name, std::string text) {
  files_.push_back(std::make_unique<SourceFile>(std::move(name), std::move(text)));
  return *files_.back();
}

}  // namespace kolva::opl

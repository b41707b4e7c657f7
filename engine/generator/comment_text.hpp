#pragma once

#include <string>
#include <string_view>

namespace kolva {

// A script line that is a comment ("# ..." after its indent) with every
// character that would end it or stop the script compiling written as a
// Python escape: line breaks of any kind (those Python's tokenizer takes and
// those str.splitlines takes) and NUL. Comments carry names from the model,
// and a name must never end its comment and run as code. Lines that are not
// comments, and comments without such characters, are returned unchanged.
std::string_view safe_comment_line(std::string_view line, std::string& scratch);

}  // namespace kolva

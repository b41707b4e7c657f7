#pragma once

#include <string>
#include <vector>

#include "model/value.hpp"
#include "opl/source.hpp"

// The OPL front end's entry points: OPL text in, the generator's model tree
// and data dictionary out. Errors are OplError with the place at fault.
namespace kolva::opl {

struct SourceInput {
  std::string name;  // file name as given (used in messages and for includes)
  std::string text;
};

struct ModelResult {
  Value tree;
  std::vector<Diagnostic> warnings;
};

struct LoadResult {
  Value tree;
  Value data;
  std::vector<Diagnostic> warnings;
};

// The model tree of one model text, without data.
ModelResult parse_model(SourceSet& sources, const SourceInput& model);

// The data dictionary of one .dat text. With a model, each item is checked
// and shaped by its declaration (and items the model does not declare are
// errors); without one, items are read as they are written.
Value parse_data(SourceSet& sources, const SourceInput& data, const SourceInput* model);

// Model and data together: the data of all files, checked against the model,
// and the model's derived declarations evaluated into the data dictionary.
LoadResult load(SourceSet& sources, const SourceInput& model, const std::vector<SourceInput>& data);

}  // namespace kolva::opl

// The Python face of the OPL front end: texts in, trees and data out; front-end
// errors become kolva.opl_error.OplError with their place.
#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bindings/convert.hpp"
#include "bindings/deep_stack.hpp"
#include "bindings/opl.hpp"
#include "model/map.hpp"
#include "opl/dat_reader.hpp"
#include "opl/frontend.hpp"
#include "opl/source.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace kolva::bindings {
namespace {

// Messages quote the source, and a quote may end inside a multi-byte
// character: such bytes are shown as replacement characters, never refused.
nb::str text(const std::string& utf8) {
  return nb::steal<nb::str>(
      PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "replace"));
}

void translate_opl_error(const std::exception_ptr& p, void* /*payload*/) {
  try {
    std::rethrow_exception(p);
  } catch (const opl::OplError& e) {
    nb::object cls = nb::module_::import_("kolva.opl_error").attr("OplError");
    nb::object err = cls(text(e.message()), text(e.filename()), e.line(), e.column(), text(e.source_line()),
                         text(e.what()));
    PyErr_SetObject(cls.ptr(), err.ptr());
  }
}

nb::list warning_texts(const std::vector<opl::Diagnostic>& warnings) {
  nb::list out;
  for (const opl::Diagnostic& w : warnings) out.append(nb::str(w.text().c_str()));
  return out;
}

// The test hooks' declarations, written as dicts: an element type is "int",
// "float", "string", "boolean" or {"tuple": NAME, "fields": [[NAME, TYPE], ...]};
// a shape is {"kind": "scalar"|"set"|"range"|"array", "elem": TYPE,
// "dims": [{"name": N, "range": [A, B]} or {"name": N, "members": [...]}],
// "array_of_sets": bool}. Tuple types live in `tuples` for the call.
opl::ElemType test_elem(nb::handle desc, std::deque<opl::TupleInfo>& tuples) {
  using Base = opl::ElemType::Base;
  opl::ElemType t;
  if (nb::isinstance<nb::str>(desc)) {
    const std::string name = nb::cast<std::string>(desc);
    if (name == "int")
      t.base = Base::kInt;
    else if (name == "float")
      t.base = Base::kFloat;
    else if (name == "string")
      t.base = Base::kString;
    else if (name == "boolean")
      t.base = Base::kBool;
    else
      throw nb::value_error(("unknown element type " + name).c_str());
    return t;
  }
  opl::TupleInfo info;
  info.name = nb::cast<std::string>(desc["tuple"]);
  for (nb::handle f : nb::iter(desc["fields"])) {
    info.fields.push_back(opl::TupleField{nb::cast<std::string>(f[0]), test_elem(f[1], tuples)});
  }
  tuples.push_back(std::move(info));
  t.base = Base::kTuple;
  t.tuple = &tuples.back();
  return t;
}

opl::DataShape test_shape(const nb::dict& desc, const std::string& name, std::deque<opl::TupleInfo>& tuples) {
  using Kind = opl::DataShape::Kind;
  opl::DataShape s;
  s.name = name;
  const std::string kind = nb::cast<std::string>(desc["kind"]);
  s.kind = kind == "set"     ? Kind::kSet
           : kind == "range" ? Kind::kRange
           : kind == "array" ? Kind::kArray
                             : Kind::kScalar;
  if (desc.contains("elem")) s.elem = test_elem(desc["elem"], tuples);
  s.array_of_sets = desc.contains("array_of_sets") && nb::cast<bool>(desc["array_of_sets"]);
  if (!desc.contains("dims")) return s;
  for (nb::handle d : nb::iter(desc["dims"])) {
    opl::DimInfo dim;
    dim.name = nb::cast<std::string>(d["name"]);
    if (nb::cast<nb::dict>(d).contains("range")) {
      dim.is_range = true;
      dim.start = nb::cast<std::int64_t>(d["range"][0]);
      dim.end = nb::cast<std::int64_t>(d["range"][1]);
    } else {
      dim.members = ToValue()(d["members"]);
    }
    s.dims.push_back(std::move(dim));
  }
  return s;
}

}  // namespace

void bind_opl(nb::module_& m) {
  nb::register_exception_translator(translate_opl_error);
  m.def("_opl_parse_model", deep([](const std::string& text, const std::string& filename) {
          opl::SourceSet sources;
          opl::ModelResult r = opl::parse_model(sources, opl::SourceInput{filename, text});
          return nb::make_tuple(ToPython()(r.tree), warning_texts(r.warnings));
        }),
        "text"_a, "filename"_a);
  m.def("_opl_parse_data",
        deep([](const std::string& text, const std::string& filename,
                const std::optional<std::string>& model_text, const std::string& model_filename) {
          opl::SourceSet sources;
          std::optional<opl::SourceInput> model;
          if (model_text) model = opl::SourceInput{model_filename, *model_text};
          Value data = opl::parse_data(sources, opl::SourceInput{filename, text}, model ? &*model : nullptr);
          return ToPython()(data);
        }),
        "text"_a, "filename"_a, "model_text"_a.none(), "model_filename"_a);
  m.def("_opl_load",
        deep([](const std::string& model_name, const std::string& model_text,
                const std::vector<std::pair<std::string, std::string>>& data_files) {
          opl::SourceSet sources;
          std::vector<opl::SourceInput> data;
          data.reserve(data_files.size());
          for (const auto& [name, text] : data_files) data.push_back(opl::SourceInput{name, text});
          opl::LoadResult r = opl::load(sources, opl::SourceInput{model_name, model_text}, data);
          ToPython to_python;
          return nb::make_tuple(to_python(r.tree), to_python(r.data), warning_texts(r.warnings));
        }),
        "model_name"_a, "model_text"_a, "data_files"_a);
  m.def(
      "_opl_shape_for_test",
      [](const std::string& text, const std::string& filename, const std::string& item_name,
         const nb::dict& shape) {
        opl::SourceSet sources;
        const opl::SourceFile& file = sources.add(filename, text);
        std::deque<opl::TupleInfo> tuples;
        const opl::DataShape s = test_shape(shape, item_name, tuples);
        for (const opl::DatItem& item : opl::scan_dat(file)) {
          if (item.name == item_name) return ToPython()(opl::shape_item(file, item, s));
        }
        throw nb::key_error(item_name.c_str());
      },
      "text"_a, "filename"_a, "item_name"_a, "shape"_a);
  m.def(
      "_opl_read_untyped_for_test",
      [](const std::string& text, const std::string& filename) {
        opl::SourceSet sources;
        const opl::SourceFile& file = sources.add(filename, text);
        MapPtr out = make_map();
        for (const opl::DatItem& item : opl::scan_dat(file))
          out->set(item.name, opl::read_untyped(file, item));
        return ToPython()(Value::map(out));
      },
      "text"_a, "filename"_a);
}

}  // namespace kolva::bindings

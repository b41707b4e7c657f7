#include "bindings/convert.hpp"

#include <algorithm>
#include <string>

#include "model/error.hpp"
#include "model/map.hpp"
#include "model/repr.hpp"

namespace kolva::bindings {
namespace {

std::string python_type_name(PyObject* obj) { return Py_TYPE(obj)->tp_name; }

// Written-out sizes stop growing here instead of overflowing.
constexpr std::uint64_t kSaturated = std::uint64_t{1} << 62;

Value convert_int(PyObject* obj) {
  int overflow = 0;
  const long long v = PyLong_AsLongLongAndOverflow(obj, &overflow);
  if (overflow != 0) {
    nb::str text = nb::str(nb::handle(obj));
    raise(ErrorKind::kOverflow, "integer " + std::string(text.c_str()) + " does not fit in 64 bits");
  }
  if (v == -1 && PyErr_Occurred() != nullptr) throw nb::python_error();
  return Value::integer(v);
}

}  // namespace

Value ToValue::operator()(nb::handle obj) {
  Value out = convert(obj.ptr(), 0);
  if (written_out_ > kMaxWrittenOut && written_out_ / kMaxSharingFactor > distinct_) {
    raise(ErrorKind::kValue, "the model or data shares parts so often that written out it has " +
                                 std::to_string(written_out_) + " nodes, from " + std::to_string(distinct_) +
                                 " distinct ones; give each use its own copy, or use a sum over an iterator");
  }
  return out;
}

Value ToValue::convert(PyObject* obj, int depth) {
  written_out_ = 1;
  ++distinct_;
  if (obj == Py_None) return Value::none();
  if (PyBool_Check(obj)) return Value::boolean(obj == Py_True);
  if (PyLong_Check(obj)) return convert_int(obj);
  if (PyFloat_Check(obj)) return Value::real(PyFloat_AS_DOUBLE(obj));
  if (PyUnicode_Check(obj)) {
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(obj, &size);
    if (text == nullptr) throw nb::python_error();
    return Value::str(std::string(text, static_cast<std::size_t>(size)));
  }
  if (PyTuple_Check(obj) || PyList_Check(obj) || PyDict_Check(obj)) return convert_container(obj, depth);
  // Numeric types of other libraries (NumPy scalars) that say how to be one.
  if (PyIndex_Check(obj)) {
    nb::object as_int = nb::steal(PyNumber_Index(obj));
    if (!as_int.is_valid()) throw nb::python_error();
    return convert_int(as_int.ptr());
  }
  if (Py_TYPE(obj)->tp_as_number != nullptr && Py_TYPE(obj)->tp_as_number->nb_float != nullptr) {
    const double d = PyFloat_AsDouble(obj);
    if (d == -1.0 && PyErr_Occurred() != nullptr) throw nb::python_error();
    return Value::real(d);
  }
  raise(ErrorKind::kType,
        "unsupported value of type '" + python_type_name(obj) +
            "' in the model or data (expected None, bool, int, float, str, tuple, list or dict)");
}

// "the model or data is nested deeper than N levels, at
// ['objective']['expression']['left']...['left'] (10000 steps)": the first
// and last steps of the path to the place, with their number.
void ToValue::refuse_nesting() const {
  constexpr std::size_t kHead = 6;
  constexpr std::size_t kTail = 3;
  std::string where;
  for (std::size_t i = 0; i < path_.size(); ++i) {
    if (i == kHead && path_.size() > kHead + kTail + 1) {
      where += "...";
      i = path_.size() - kTail;
    }
    where += "[";
    where += nb::repr(nb::handle(path_[i])).c_str();
    where += "]";
  }
  std::string message = "the model or data is nested deeper than ";
  message += std::to_string(kMaxNesting);
  message += " levels, at " + where + " (" + std::to_string(path_.size()) + " steps)";
  raise(ErrorKind::kRecursion, message);
}

Value ToValue::convert_container(PyObject* obj, int depth) {
  if (depth >= kMaxNesting) refuse_nesting();
  if (const auto it = done_.find(obj); it != done_.end()) {
    --distinct_;  // counted by convert(), but seen before
    written_out_ = it->second.written_out;
    return it->second.value;
  }
  if (!open_.insert(obj).second) raise(ErrorKind::kRecursion, "the model or data contains a reference cycle");
  Value out;
  // Converting a member may run Python code (__index__, __float__) that
  // changes or frees the container, so its members are first held by
  // reference of our own, and the container too, so that its address is
  // not reused for another object while this converter remembers it.
  keep_.push_back(nb::borrow(obj));
  std::uint64_t size = 1;
  const auto add_member_size = [&] { size = std::min(size + written_out_, kSaturated); };
  if (PyDict_Check(obj)) {
    std::vector<nb::object> entries;
    entries.reserve(2 * static_cast<std::size_t>(PyDict_GET_SIZE(obj)));
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    Py_ssize_t pos = 0;
    while (PyDict_Next(obj, &pos, &key, &value)) {
      entries.push_back(nb::borrow(key));
      entries.push_back(nb::borrow(value));
    }
    MapPtr map = make_map();
    for (std::size_t i = 0; i < entries.size(); i += 2) {
      Value key = convert(entries[i].ptr(), depth + 1);
      path_.push_back(entries[i].ptr());
      Value value = convert(entries[i + 1].ptr(), depth + 1);
      add_member_size();
      path_.pop_back();
      map->set(std::move(key), std::move(value));
    }
    out = Value::map(std::move(map));
  } else {
    const Py_ssize_t n = PySequence_Fast_GET_SIZE(obj);
    PyObject** items = PySequence_Fast_ITEMS(obj);
    std::vector<nb::object> members;
    members.reserve(static_cast<std::size_t>(n));
    for (Py_ssize_t i = 0; i < n; ++i) members.push_back(nb::borrow(items[i]));
    ValueVec values;
    values.reserve(members.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
      const nb::int_ position(i);
      path_.push_back(position.ptr());
      values.push_back(convert(members[i].ptr(), depth + 1));
      add_member_size();
      path_.pop_back();
    }
    out = PyTuple_Check(obj) ? Value::tuple(std::move(values)) : Value::list(std::move(values));
  }
  open_.erase(obj);
  done_.emplace(obj, Converted{out, size});
  written_out_ = size;
  return out;
}

nb::object ToPython::operator()(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kNone:
      return nb::none();
    case Value::Kind::kBool:
      return nb::bool_(v.as_bool());
    case Value::Kind::kInt:
      return nb::steal(PyLong_FromLongLong(v.as_int()));
    case Value::Kind::kFloat:
      return nb::steal(PyFloat_FromDouble(v.as_float()));
    case Value::Kind::kStr: {
      const std::string& s = v.as_str();
      PyObject* text = PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "surrogatepass");
      if (text == nullptr) throw nb::python_error();
      return nb::steal(text);
    }
    default:
      break;
  }
  if (const auto it = done_.find(v.identity()); it != done_.end()) return it->second.second;
  nb::object out;
  if (v.is_map()) {
    nb::dict d;
    for (const Map::Item& item : v.as_map()->items()) d[(*this)(item.first)] = (*this)(item.second);
    out = d;
  } else if (v.is_list()) {
    nb::list l;
    for (const Value& item : v.items()) l.append((*this)(item));
    out = l;
  } else {
    const ValueVec& items = v.items();
    PyObject* t = PyTuple_New(static_cast<Py_ssize_t>(items.size()));
    if (t == nullptr) throw nb::python_error();
    out = nb::steal(t);
    for (std::size_t i = 0; i < items.size(); ++i) {
      PyTuple_SET_ITEM(t, static_cast<Py_ssize_t>(i), (*this)(items[i]).release().ptr());
    }
  }
  done_.emplace(v.identity(), std::make_pair(v, out));
  return out;
}

nb::object ToPython::coef(const CoefDict& coef) {
  nb::dict d;
  for (const CoefDict::Item& item : coef.items())
    d[nb::str(item.first.c_str(), item.first.size())] = item.second;
  return d;
}

nb::object ToPython::result(const EvalResult& r) {
  nb::object first = r.marker != nullptr ? (*this)(Value::map(r.marker)) : coef(r.coef);
  return nb::make_tuple(first, (*this)(r.val));
}

MapPtr to_map_or_empty(nb::handle obj, const char* what) {
  if (obj.is_none()) return make_map();
  if (!PyDict_Check(obj.ptr())) {
    raise(ErrorKind::kType,
          std::string(what) + " must be a dict or None, not '" + python_type_name(obj.ptr()) + "'");
  }
  return ToValue()(obj).as_map();
}

ValueVec to_value_list(nb::handle obj, const char* what) {
  const Value v = ToValue()(obj);
  if (!v.is_sequence()) {
    raise(ErrorKind::kType, std::string(what) + " must be a list, not '" + type_name(v) + "'");
  }
  return v.items();
}

}  // namespace kolva::bindings

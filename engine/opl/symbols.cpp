#include "opl/symbols.hpp"

#include <utility>

#include "opl/source.hpp"

namespace kolva::opl {

const Symbol* SymbolTable::find(const std::string& name) const {
  auto it = by_name_.find(name);
  return it == by_name_.end() ? nullptr : it->second;
}

Symbol* SymbolTable::find(const std::string& name) {
  auto it = by_name_.find(name);
  return it == by_name_.end() ? nullptr : it->second;
}

Symbol& SymbolTable::declare(const Decl& decl, SymKind kind) {
  if (const Symbol* old = find(decl.name)) {
    fail_at(decl.place, "'" + decl.name + "' is already declared at " + old->decl->place.text());
  }
  if (decl.name.rfind("__opl", 0) == 0) {
    fail_at(decl.place, "names beginning with '__opl' are reserved for the front end's own data");
  }
  Symbol& s = symbols_.emplace_back();
  s.kind = kind;
  s.decl = &decl;
  s.name = decl.name;
  by_name_.emplace(decl.name, &s);
  order_.push_back(&s);
  return s;
}

const TupleInfo& SymbolTable::add_tuple(TupleInfo info) { return tuples_.emplace_back(std::move(info)); }

std::string kind_word(SymKind kind) {
  switch (kind) {
    case SymKind::kTupleType:
      return "tuple type";
    case SymKind::kRange:
      return "range";
    case SymKind::kSet:
      return "set";
    case SymKind::kParam:
      return "parameter";
    case SymKind::kDvar:
      return "decision variable";
    case SymKind::kDexpr:
      return "decision expression";
  }
  return "name";
}

namespace {

ElemType elem_type_of(const SymbolTable& table, const TypeRef& t) {
  ElemType e;
  if (t.name == "int") {
    e.base = ElemType::Base::kInt;
  } else if (t.name == "float") {
    e.base = ElemType::Base::kFloat;
  } else if (t.name == "string") {
    e.base = ElemType::Base::kString;
  } else if (t.name == "boolean") {
    e.base = ElemType::Base::kBool;
  } else {
    const Symbol* s = table.find(t.name);
    if (s == nullptr || s->kind != SymKind::kTupleType) {
      fail_at(t.place, s == nullptr ? "unknown type '" + t.name + "'"
                                    : "'" + t.name + "' is a " + kind_word(s->kind) + ", not a type");
    }
    e.base = ElemType::Base::kTuple;
    e.tuple = s->tuple_type;
  }
  return e;
}

void declare_tuple_type(SymbolTable& table, const Decl& d) {
  TupleInfo info;
  info.name = d.name;
  info.place = d.place;
  for (const FieldSpec& f : d.fields) {
    if (f.type.set_depth > 0) fail_at(f.place, "set-valued tuple fields are not supported");
    if (info.field_index(f.name) >= 0)
      fail_at(f.place, "field '" + f.name + "' appears twice in '" + d.name + "'");
    info.fields.push_back(TupleField{f.name, elem_type_of(table, f.type)});
  }
  Symbol& s = table.declare(d, SymKind::kTupleType);
  s.tuple_type = &table.add_tuple(std::move(info));
}

void declare_data(SymbolTable& table, const Decl& d) {
  const ElemType elem = elem_type_of(table, d.type);
  if (d.type.set_depth > 1) fail_at(d.type.place, "sets of sets are not supported");
  const bool is_set = d.type.set_depth == 1;
  Symbol& s = table.declare(d, is_set && d.dims.empty() ? SymKind::kSet : SymKind::kParam);
  s.elem = elem;
  s.array_of_sets = is_set && !d.dims.empty();
  if (s.array_of_sets && elem.base == ElemType::Base::kTuple) {
    fail_at(d.type.place, "arrays of tuple sets are not supported");
  }
}

}  // namespace

SymbolTable resolve(const Model& model) {
  SymbolTable table;
  for (const Decl& d : model.decls) {
    switch (d.kind) {
      case DeclKind::kTupleType:
        declare_tuple_type(table, d);
        break;
      case DeclKind::kRange:
        table.declare(d, SymKind::kRange).elem.base = ElemType::Base::kInt;
        break;
      case DeclKind::kData:
        declare_data(table, d);
        break;
      case DeclKind::kDvar: {
        Symbol& s = table.declare(d, SymKind::kDvar);
        s.elem = elem_type_of(table, d.type);
        if (s.elem.base == ElemType::Base::kString || s.elem.base == ElemType::Base::kTuple) {
          fail_at(d.type.place, "decision variables are int, float or boolean, not " + s.elem.spelling());
        }
        break;
      }
      case DeclKind::kDexpr: {
        Symbol& s = table.declare(d, SymKind::kDexpr);
        s.elem = elem_type_of(table, d.type);
        break;
      }
    }
  }
  return table;
}

}  // namespace kolva::opl

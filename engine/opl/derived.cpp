#include "opl/derived.hpp"

#include <functional>

#include "model/map.hpp"
#include "model/semantics.hpp"
#include "opl/lower_nodes.hpp"

namespace kolva::opl {

namespace {

class LiftedRun {
 public:
  LiftedRun(const Lifted& item, DataEval& eval, const std::unordered_map<std::string, Value>& hidden)
      : item_(item), eval_(eval), hidden_(hidden), current_(item.frames.size()) {}

  Value run() {
    out_ = make_map();
    const std::size_t stop = item_.kind == Lifted::Kind::kFilter ? item_.first : item_.frames.size();
    walk(0, stop);
    if (item_.kind == Lifted::Kind::kDomain) {
      ValueVec members;
      for (const auto& [member, unused] : out_->items()) members.push_back(member);
      return Value::list(std::move(members));
    }
    if (item_.deps.empty()) {
      const Value* v = out_->find(Value::none());
      return v != nullptr ? *v : Value::integer(0);
    }
    return Value::map(out_);
  }

 private:
  // Enumerates frames [i, stop) as the model iterates them; then the item's own part.
  void walk(std::size_t i, std::size_t stop) {
    if (i == stop) return leaf();
    const Frame& f = item_.frames[i];
    if (f.kind == Frame::Kind::kBarrier) return walk(i + 1, stop);
    if (f.kind == Frame::Kind::kAlias) {
      current_[i] = eval_.eval(*f.arg);
      eval_.bind(f.alias, current_[i], eval_.tuple_type_of(*f.arg));
      walk(i + 1, stop);
      eval_.unbind(1);
      return;
    }
    const Expr& domain = *f.binding->domain;
    for (const Value& member : eval_.members(eval_.eval(domain), domain.place)) {
      current_[i] = member;
      const std::size_t n = eval_.bind_member(*f.binding, member);
      if (f.filter == nullptr || eval_.truth(*f.filter)) walk(i + 1, stop);
      eval_.unbind(n);
    }
  }

  // The key the generator will look up: the iterators' values as its
  // subscript reader gives them (a string of digits reads as the integer).
  Value key() const {
    if (item_.deps.empty()) return Value::none();
    if (item_.deps.size() == 1) return generator_subscript(current_[item_.deps[0]]);
    ValueVec parts;
    for (std::size_t d : item_.deps) parts.push_back(generator_subscript(current_[d]));
    return Value::tuple(std::move(parts));
  }

  void leaf() {
    switch (item_.kind) {
      case Lifted::Kind::kValue: {
        const Value k = key();
        if (!out_->contains(k)) out_->set(k, eval_.eval(*item_.expr));
        return;
      }
      case Lifted::Kind::kDomain:
        for (const Value& m : eval_.members(eval_.eval(*item_.expr), item_.expr->place)) {
          if (!out_->contains(m)) out_->set(m, Value::none());
        }
        return;
      case Lifted::Kind::kFilter:
        return filter_walk(item_.first, true);
    }
  }

  // The filtered iteration over the domains the tree gives it: records for
  // every combination whether the model's own domains and filter admit it.
  void filter_walk(std::size_t i, bool admitted) {
    if (i == item_.frames.size()) {
      const Frame& last = item_.frames.back();
      if (admitted && last.filter != nullptr) admitted = eval_.truth(*last.filter);
      const Value k = key();
      if (!out_->contains(k)) out_->set(k, Value::boolean(admitted));
      return;
    }
    const Frame& f = item_.frames[i];
    const std::string& hidden = item_.static_domains[i - item_.first];
    const Expr& domain = *f.binding->domain;
    std::vector<Value> own;
    bool own_known = false;
    if (!hidden.empty() && admitted) {
      own = eval_.members(eval_.eval(domain), domain.place);
      own_known = true;
    }
    const std::vector<Value> walk_over =
        hidden.empty() ? eval_.members(eval_.eval(domain), domain.place) : hidden_.at(hidden).items();
    for (const Value& member : walk_over) {
      bool ok = admitted;
      if (ok && own_known) {
        ok = false;
        for (const Value& m : own) {
          if (py_eq(m, member)) {
            ok = true;
            break;
          }
        }
      }
      current_[i] = member;
      const std::size_t n = eval_.bind_member(*f.binding, member);
      filter_walk(i + 1, ok);
      eval_.unbind(n);
    }
  }

  const Lifted& item_;
  DataEval& eval_;
  const std::unordered_map<std::string, Value>& hidden_;
  std::vector<Value> current_;
  MapPtr out_;
};

}  // namespace

Value compute_lifted(const Lifted& item, DataEval& eval,
                     const std::unordered_map<std::string, Value>& hidden) {
  return LiftedRun(item, eval, hidden).run();
}

}  // namespace kolva::opl

#include "opl/parser.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "opl/lexer.hpp"
#include "opl/lower_nodes.hpp"

namespace kolva::opl {

namespace {

bool is_aggregate_word(std::string_view w) {
  return w == "sum" || w == "min" || w == "max" || w == "prod" || w == "and" || w == "or";
}

// Words that begin something other than an expression statement.
bool is_reserved(std::string_view w) {
  static constexpr std::array<std::string_view, 20> kWords = {
      "dvar",     "dexpr",    "range",   "tuple", "forall",  "subject", "constraints",
      "minimize", "maximize", "execute", "main",  "using",   "include", "setof",
      "in",       "union",    "inter",   "diff",  "symdiff", "div"};
  return std::find(kWords.begin(), kWords.end(), w) != kWords.end() || w == "mod";
}

class Parser {
 public:
  Parser(const SourceFile& file, const IncludeReader& read_include) : read_include_(read_include) {
    lex_file(file, tokens_);
  }

  Model parse() {
    Model model;
    while (!at_end()) parse_item(model);
    return model;
  }

 private:
  // ------------------------------------------------------------ tokens

  void lex_file(const SourceFile& file, std::vector<Token>& out) {
    Lexer lexer(file);
    while (true) {
      Token t = lexer.next();
      if (t.kind == Tok::kEnd) {
        end_place_ = t.place;
        return;
      }
      out.push_back(std::move(t));
    }
  }

  const Token& peek(std::size_t ahead = 0) const {
    static const Token kEnd;
    const std::size_t i = pos_ + ahead;
    if (i >= tokens_.size()) {
      end_token_ = kEnd;
      end_token_.place = end_place_;
      return end_token_;
    }
    return tokens_[i];
  }
  bool at_end() const { return pos_ >= tokens_.size(); }
  Token take() {
    Token t = peek();
    if (!at_end()) ++pos_;
    return t;
  }
  bool accept(std::string_view punct) {
    if (!peek().is(punct)) return false;
    ++pos_;
    return true;
  }
  bool accept_word(std::string_view word) {
    if (!peek().is_word(word)) return false;
    ++pos_;
    return true;
  }
  Token expect(std::string_view punct, std::string_view context) {
    if (!peek().is(punct)) {
      fail_at(peek().place, "expected '" + std::string(punct) + "' " + std::string(context) + ", found " +
                                describe(peek()));
    }
    return take();
  }
  Token expect_ident(std::string_view what) {
    if (peek().kind != Tok::kIdent)
      fail_at(peek().place, "expected " + std::string(what) + ", found " + describe(peek()));
    return take();
  }

  // ------------------------------------------------------------ items

  void parse_item(Model& model) {
    const Token& t = peek();
    if (t.is(";")) {
      take();
      return;
    }
    if (t.kind != Tok::kIdent && !t.is("{")) {
      fail_at(t.place, "expected a declaration, an objective or a constraint block, found " + describe(t));
    }
    const std::string_view w = t.text;
    if (w == "using") return parse_using();
    if (w == "include") return parse_include();
    if (w == "tuple") return model.decls.push_back(parse_tuple_type());
    if (w == "range") return model.decls.push_back(parse_range());
    if (w == "dvar") return model.decls.push_back(parse_dvar());
    if (w == "dexpr") return model.decls.push_back(parse_dexpr());
    if (w == "minimize" || w == "maximize") return parse_objective(model);
    if (w == "subject" || w == "constraints") return parse_constraint_block(model);
    if (w == "execute") return skip_execute(model);
    if (w == "main") {
      fail_at(t.place,
              "'main' blocks are not supported: flow control scripts cannot be run; solve the model "
              "with 'kolva solve' instead");
    }
    if (w == "constraint") {
      fail_at(t.place,
              "constraint declarations ('constraint c;') are not supported; label the constraint "
              "where it is written instead (c: ...;)");
    }
    model.decls.push_back(parse_data_decl());
  }

  void parse_using() {
    const Token kw = take();
    const Token what = expect_ident("a solver name after 'using'");
    if (what.text == "CP") {
      fail_at(what.place,
              "constraint programming models ('using CP;') are not supported; only linear and "
              "mixed-integer models can be solved");
    }
    if (what.text != "CPLEX")
      fail_at(what.place, "unknown engine '" + std::string(what.text) + "' after 'using'");
    expect(";", "after 'using CPLEX'");
    (void)kw;
  }

  void parse_include() {
    const Token kw = take();
    if (peek().kind != Tok::kString) fail_at(peek().place, "expected a file name in quotes after 'include'");
    const Token path = take();
    expect(";", "after the included file's name");
    if (++include_depth_ > 16)
      fail_at(kw.place, "includes are nested more than 16 deep (a file including itself?)");
    const SourceFile& file = read_include_(path.place, path.str_value);
    std::vector<Token> included;
    lex_file(file, included);
    tokens_.insert(tokens_.begin() + static_cast<std::ptrdiff_t>(pos_),
                   std::make_move_iterator(included.begin()), std::make_move_iterator(included.end()));
  }

  Decl parse_tuple_type() {
    const Token kw = take();
    Decl d{DeclKind::kTupleType, kw.place};
    d.name = std::string(expect_ident("a tuple type name").text);
    expect("{", "to open the tuple type's fields");
    while (!accept("}")) {
      FieldSpec f;
      f.place = peek().place;
      f.key = accept_word("key");
      f.type = parse_type();
      f.name = std::string(expect_ident("a field name").text);
      if (peek().is("[")) fail_at(peek().place, "array fields in tuples are not supported");
      expect(";", "after the field '" + f.name + "'");
      d.fields.push_back(std::move(f));
    }
    accept(";");
    return d;
  }

  Decl parse_range() {
    const Token kw = take();
    Decl d{DeclKind::kRange, kw.place};
    if (peek().is_word("float")) fail_at(peek().place, "float ranges are not supported");
    d.name = std::string(expect_ident("a range name").text);
    expect("=", "after the range's name");
    if (accept_ellipsis()) {
      d.external = true;
    } else {
      d.value = parse_expr();
      if (d.value->kind != ExprKind::kRange) fail_at(d.value->place, "a range needs bounds written 'a..b'");
    }
    expect(";", "after the range declaration");
    return d;
  }

  Decl parse_dvar() {
    const Token kw = take();
    Decl d{DeclKind::kDvar, kw.place};
    d.type = parse_type();
    if (d.type.set_depth > 0) fail_at(d.type.place, "decision variables cannot be sets");
    d.name = std::string(expect_ident("a variable name").text);
    d.dims = parse_dims();
    if (accept_word("in")) {
      ExprPtr domain = parse_expr();
      if (domain->kind != ExprKind::kRange)
        fail_at(domain->place, "a variable's domain is written 'in lo..hi'");
      d.lower = std::move(domain->args[0]);
      d.upper = std::move(domain->args[1]);
    }
    expect(";", "after the declaration of '" + d.name + "'");
    return d;
  }

  Decl parse_dexpr() {
    const Token kw = take();
    Decl d{DeclKind::kDexpr, kw.place};
    d.type = parse_type();
    d.name = std::string(expect_ident("a decision expression name").text);
    d.dims = parse_dims();
    expect("=", "after the name of the decision expression '" + d.name + "'");
    d.value = parse_expr();
    expect(";", "after the decision expression '" + d.name + "'");
    return d;
  }

  Decl parse_data_decl() {
    const Place at = peek().place;
    Decl d{DeclKind::kData, at};
    d.type = parse_type();
    d.name = std::string(expect_ident("a name to declare").text);
    if (is_reserved(d.name)) fail_at(at, "'" + d.name + "' is a keyword and cannot be declared");
    d.dims = parse_dims();
    if (accept("=")) {
      if (accept_ellipsis()) {
        d.external = true;
      } else {
        d.value = parse_expr();
      }
    } else {
      d.external = true;  // `int n;` reads its value from data, like `= ...`
    }
    expect(";", "after the declaration of '" + d.name + "'");
    return d;
  }

  bool accept_ellipsis() {
    // `...` lexes as `..` followed by `.`.
    if (peek().is("..") && peek(1).is(".")) {
      pos_ += 2;
      return true;
    }
    return false;
  }

  TypeRef parse_type() {
    TypeRef t;
    t.place = peek().place;
    if (accept("{")) {
      TypeRef inner = parse_type();
      expect("}", "to close the set type");
      inner.place = t.place;
      ++inner.set_depth;
      return inner;
    }
    if (accept_word("setof")) {
      expect("(", "after 'setof'");
      TypeRef inner = parse_type();
      expect(")", "to close 'setof('");
      inner.place = t.place;
      ++inner.set_depth;
      return inner;
    }
    const Token name = expect_ident("a type");
    t.name = std::string(name.text);
    if ((t.name == "int" || t.name == "float") && peek().is("+")) {
      take();
      t.plus = true;
    }
    return t;
  }

  std::vector<DimSpec> parse_dims() {
    std::vector<DimSpec> dims;
    while (peek().is("[")) {
      take();
      do {
        DimSpec dim;
        dim.place = peek().place;
        if (peek().kind == Tok::kIdent && peek(1).is_word("in")) {
          dim.iterator = std::string(take().text);
          take();
        }
        dim.domain = parse_domain();
        dims.push_back(std::move(dim));
      } while (accept(","));
      expect("]", "to close the index list");
    }
    return dims;
  }

  void parse_objective(Model& model) {
    const Token kw = take();
    if (model.objective) fail_at(kw.place, "a model has one objective; another was given before");
    auto obj = std::make_unique<Objective>();
    obj->place = kw.place;
    obj->maximize = kw.text == "maximize";
    obj->expr = parse_expr();
    expect(";", "after the objective");
    model.objective = std::move(obj);
  }

  void parse_constraint_block(Model& model) {
    const Token kw = take();
    if (kw.text == "subject" && !accept_word("to")) fail_at(peek().place, "expected 'to' after 'subject'");
    if (model.constraints_place.known())
      fail_at(kw.place, "a second constraint block; put all constraints in one");
    model.constraints_place = kw.place;
    expect("{", "to open the constraint block");
    while (!accept("}")) {
      if (at_end())
        fail_at(peek().place, "the constraint block opened at " + kw.place.text() + " is not closed");
      model.constraints.push_back(parse_stmt());
    }
    accept(";");
  }

  void skip_execute(Model& model) {
    const Token kw = take();
    if (peek().kind == Tok::kIdent) take();
    const Token open = expect("{", "to open the execute block");
    int depth = 1;
    while (depth > 0) {
      if (at_end()) fail_at(open.place, "the execute block is not closed");
      const Token t = take();
      if (t.is("{")) ++depth;
      if (t.is("}")) --depth;
    }
    accept(";");
    model.skipped_blocks.push_back(kw.place);
  }

  // ------------------------------------------------------------ constraints

  Stmt parse_stmt() {
    const Token& t = peek();
    if (t.is_word("forall")) return parse_forall();
    if (t.is("{")) {
      Stmt block{StmtKind::kBlock, t.place};
      take();
      while (!accept("}")) {
        if (at_end()) fail_at(block.place, "this '{' is not closed");
        block.body.push_back(parse_stmt());
      }
      accept(";");
      return block;
    }
    Stmt s{StmtKind::kConstraint, t.place};
    if (t.kind == Tok::kIdent && peek(1).is(":")) {
      s.label = std::string(take().text);
      take();
      if (peek().is_word("forall"))
        fail_at(peek().place, "a label names one constraint; put it inside the forall");
    }
    s.expr = parse_expr();
    expect(";", "after the constraint");
    return s;
  }

  Stmt parse_forall() {
    const Token kw = take();
    Stmt s{StmtKind::kForall, kw.place};
    expect("(", "after 'forall'");
    s.iteration = parse_iteration(")");
    expect(")", "to close the forall's iterators");
    if (peek().is("{")) {
      const Token open = take();
      while (!accept("}")) {
        if (at_end()) fail_at(open.place, "the forall's '{' is not closed");
        s.body.push_back(parse_stmt());
      }
      accept(";");
    } else {
      s.body.push_back(parse_stmt());
    }
    return s;
  }

  // ------------------------------------------------------------ iterations

  std::unique_ptr<Iteration> parse_iteration(std::string_view closer) {
    auto it = std::make_unique<Iteration>();
    do {
      parse_bindings(*it);
    } while (accept(","));
    if (accept(":")) it->filter = parse_expr();
    if (!peek().is(closer)) {
      fail_at(peek().place, "expected ',' , ':' or '" + std::string(closer) + "' in the iterators, found " +
                                describe(peek()));
    }
    return it;
  }

  // `i in D`, `i, j in D`, `<i, j> in D`.
  void parse_bindings(Iteration& it) {
    const Place at = peek().place;
    if (accept("<")) {
      Binding b;
      b.place = at;
      b.pattern = true;
      do {
        b.names.emplace_back(expect_ident("a name in the tuple pattern").text);
      } while (accept(","));
      expect(">", "to close the tuple pattern");
      if (!accept_word("in")) fail_at(peek().place, "expected 'in' after the tuple pattern");
      b.domain = parse_domain();
      it.bindings.push_back(std::move(b));
      return;
    }
    std::vector<std::pair<std::string, Place>> names;
    names.emplace_back(std::string(expect_ident("an iterator name").text), at);
    while (peek().is(",") && peek(1).kind == Tok::kIdent && (peek(2).is(",") || peek(2).is_word("in"))) {
      take();
      const Token n = take();
      names.emplace_back(std::string(n.text), n.place);
    }
    if (!accept_word("in"))
      fail_at(peek().place, "expected 'in' after the iterator '" + names.back().first + "'");
    ExprPtr domain = parse_domain();
    for (std::size_t k = 0; k < names.size(); ++k) {
      Binding b;
      b.place = names[k].second;
      b.names.push_back(names[k].first);
      b.domain = k + 1 == names.size() ? std::move(domain) : clone_expr(*domain);
      it.bindings.push_back(std::move(b));
    }
  }

  // A domain: a set expression, or `a..b`.
  ExprPtr parse_domain() { return range_after(parse_level(kSetLevel)); }

  // `lo..hi` binds looser than arithmetic and set operators, tighter than `in`.
  ExprPtr range_after(ExprPtr lo) {
    if (!peek().is("..") || peek(1).is(".")) return lo;
    const Token dots = take();
    ExprPtr hi = parse_level(kSetLevel);
    return make_node(ExprKind::kRange, dots.place, std::move(lo), std::move(hi));
  }

  // ------------------------------------------------------------ expressions

  // Binding strength, loosest first.
  enum Level : int {
    kCondLevel = 0,
    kImpliesLevel,
    kOrLevel,
    kAndLevel,
    kEqualityLevel,
    kRelationLevel,
    kInLevel,
    kSetLevel,
    kAddLevel,
    kMulLevel,
    kUnaryLevel,
  };

  ExprPtr parse_expr() { return parse_level(kCondLevel); }

  // The binary operator at `level` that the next tokens spell, if any; two
  // tokens for `not in`.
  std::string binary_op_at(int level) const {
    const Token& t = peek();
    switch (level) {
      case kImpliesLevel:
        return t.is("=>") ? "=>" : "";
      case kOrLevel:
        return t.is("||") ? "||" : "";
      case kAndLevel:
        return t.is("&&") ? "&&" : "";
      case kEqualityLevel:
        return t.is("==") || t.is("!=") ? std::string(t.text) : "";
      case kRelationLevel:
        return t.is("<") || t.is("<=") || t.is(">") || t.is(">=") ? std::string(t.text) : "";
      case kInLevel:
        if (t.is_word("in")) return "in";
        if (t.is_word("not") && peek(1).is_word("in")) return "not in";
        return "";
      case kSetLevel:
        if (t.is_word("union") || t.is_word("inter") || t.is_word("diff") || t.is_word("symdiff")) {
          return std::string(t.text);
        }
        return "";
      case kAddLevel:
        return t.is("+") || t.is("-") ? std::string(t.text) : "";
      case kMulLevel:
        if (t.is("*") || t.is("/") || t.is("%")) return std::string(t.text);
        if (t.is_word("div") || t.is_word("mod")) return std::string(t.text);
        return "";
      default:
        return "";
    }
  }

  ExprPtr parse_level(int level) {
    if (level == kCondLevel) return parse_conditional();
    if (level == kUnaryLevel) return parse_unary();
    ExprPtr left = parse_level(level + 1);
    while (true) {
      std::string op = binary_op_at(level);
      if (op.empty()) {
        if (level == kSetLevel) return range_after(std::move(left));
        return left;
      }
      const Token tok = take();
      if (op == "not in") take();
      ExprPtr right = parse_level(level + 1);
      left = make_binary(std::move(op), tok.place, std::move(left), std::move(right));
    }
  }

  ExprPtr parse_conditional() {
    ExprPtr cond = parse_level(kImpliesLevel);
    if (!peek().is("?")) return cond;
    const Token q = take();
    Guard guard(*this, q.place);
    ExprPtr then = parse_conditional();
    expect(":", "between the two branches of '?'");
    ExprPtr otherwise = parse_conditional();
    auto e = make_node(ExprKind::kConditional, q.place, std::move(cond), std::move(then));
    add_arg(*e, std::move(otherwise));
    return e;
  }

  ExprPtr parse_unary() {
    const Token& t = peek();
    if (t.is("-") || t.is("!") || t.is("+")) {
      const Token op = take();
      Guard guard(*this, op.place);
      ExprPtr operand = parse_unary();
      auto e = make_node(ExprKind::kUnary, op.place, std::move(operand));
      e->text = std::string(op.text);
      return e;
    }
    return parse_postfix(parse_primary());
  }

  ExprPtr parse_postfix(ExprPtr base) {
    while (true) {
      if (peek().is("[")) {
        const Token open = take();
        ExprPtr e;
        if (base->kind == ExprKind::kIndex) {
          e = std::move(base);
        } else {
          const Place at = base->place;
          e = make_node(ExprKind::kIndex, at, std::move(base));
        }
        std::uint32_t count = 0;
        do {
          Guard guard(*this, open.place);
          add_arg(*e, parse_expr());
          ++count;
        } while (accept(","));
        expect("]", "to close the subscript");
        e->brackets.push_back(count);
        base = std::move(e);
      } else if (peek().is(".") && peek(1).kind == Tok::kIdent) {
        const Token dot = take();
        auto e = make_node(ExprKind::kField, dot.place, std::move(base));
        e->text = std::string(take().text);
        base = std::move(e);
      } else {
        return base;
      }
    }
  }

  ExprPtr parse_primary() {
    const Token t = peek();
    switch (t.kind) {
      case Tok::kInt: {
        take();
        auto e = std::make_unique<Expr>(ExprKind::kInt, t.place);
        e->int_value = t.int_value;
        return e;
      }
      case Tok::kFloat: {
        take();
        auto e = std::make_unique<Expr>(ExprKind::kFloat, t.place);
        e->float_value = t.float_value;
        return e;
      }
      case Tok::kString: {
        take();
        auto e = std::make_unique<Expr>(ExprKind::kString, t.place);
        e->text = t.str_value;
        return e;
      }
      case Tok::kIdent:
        return parse_word();
      case Tok::kEnd:
        fail_at(t.place, "expected an expression, found end of file");
      case Tok::kPunct:
        break;
    }
    if (t.is("(")) {
      take();
      Guard guard(*this, t.place);
      ExprPtr inner = parse_expr();
      expect(")", "to close the '(' at " + t.place.text());
      return inner;
    }
    if (t.is("{")) return parse_set_literal();
    if (t.is("<")) return parse_tuple_literal();
    if (t.is("[")) return parse_array_literal();
    fail_at(t.place, "expected an expression, found " + describe(t));
  }

  ExprPtr parse_word() {
    const Token t = take();
    const std::string_view w = t.text;
    if (w == "true" || w == "false") {
      auto e = std::make_unique<Expr>(ExprKind::kBool, t.place);
      e->int_value = w == "true" ? 1 : 0;
      return e;
    }
    if (w == "infinity") return std::make_unique<Expr>(ExprKind::kInfinity, t.place);
    if (w == "maxint") {
      auto e = std::make_unique<Expr>(ExprKind::kInt, t.place);
      e->int_value = INT64_MAX;
      return e;
    }
    if (is_aggregate_word(w) && peek().is("(") && opens_iteration()) return parse_aggregate(t);
    if (peek().is("(")) return parse_call(t);
    if (is_reserved(w) || w == "forall") {
      fail_at(t.place, "'" + std::string(w) + "' cannot stand here in an expression");
    }
    auto e = std::make_unique<Expr>(ExprKind::kName, t.place);
    e->text = std::string(w);
    return e;
  }

  // Whether the parenthesis at the current token holds iterators (an `in` at
  // its own level) rather than call arguments.
  bool opens_iteration() const {
    int depth = 0;
    for (std::size_t i = pos_; i < tokens_.size(); ++i) {
      const Token& t = tokens_[i];
      if (t.is("(") || t.is("[") || t.is("{")) ++depth;
      if (t.is(")") || t.is("]") || t.is("}")) {
        if (--depth == 0) return false;
      }
      if (depth == 1 && t.is_word("in")) return true;
    }
    return false;
  }

  ExprPtr parse_aggregate(const Token& word) {
    take();  // (
    Guard guard(*this, word.place);
    auto e = std::make_unique<Expr>(ExprKind::kAggregate, word.place);
    e->text = std::string(word.text);
    e->iteration = parse_iteration(")");
    expect(")", "to close the iterators of '" + e->text + "'");
    ExprPtr body = parse_level(kMulLevel);
    add_arg(*e, std::move(body));
    for (const Binding& b : e->iteration->bindings) e->depth = std::max(e->depth, b.domain->depth + 1);
    return e;
  }

  ExprPtr parse_call(const Token& word) {
    const Token open = take();
    Guard guard(*this, open.place);
    auto e = std::make_unique<Expr>(ExprKind::kCall, word.place);
    e->text = std::string(word.text);
    if (!accept(")")) {
      do {
        add_arg(*e, parse_expr());
      } while (accept(","));
      expect(")", "to close the arguments of '" + e->text + "'");
    }
    return e;
  }

  ExprPtr parse_set_literal() {
    const Token open = take();
    Guard guard(*this, open.place);
    auto e = std::make_unique<Expr>(ExprKind::kSetLiteral, open.place);
    if (accept("}")) return e;
    ExprPtr first = parse_expr();
    if (accept("|")) {
      e->kind = ExprKind::kComprehension;
      add_arg(*e, std::move(first));
      e->iteration = parse_iteration("}");
      expect("}", "to close the set");
      return e;
    }
    add_arg(*e, std::move(first));
    while (accept(",")) add_arg(*e, parse_expr());
    expect("}", "to close the set opened at " + open.place.text());
    return e;
  }

  ExprPtr parse_tuple_literal() {
    const Token open = take();
    Guard guard(*this, open.place);
    auto e = std::make_unique<Expr>(ExprKind::kTuple, open.place);
    // Members stop short of comparisons, so that `>` closes the tuple.
    do {
      add_arg(*e, parse_level(kSetLevel));
    } while (accept(","));
    expect(">", "to close the tuple");
    return e;
  }

  ExprPtr parse_array_literal() {
    const Token open = take();
    Guard guard(*this, open.place);
    auto e = std::make_unique<Expr>(ExprKind::kArray, open.place);
    if (accept("]")) return e;
    do {
      add_arg(*e, parse_expr());
    } while (accept(","));
    expect("]", "to close the array");
    return e;
  }

  // ------------------------------------------------------------ nodes

  void add_arg(Expr& e, ExprPtr arg) {
    e.depth = std::max(e.depth, arg->depth + 1);
    if (e.depth > kMaxExprDepth) too_deep(arg->place);
    e.args.push_back(std::move(arg));
  }

  ExprPtr make_node(ExprKind kind, const Place& at, ExprPtr a, ExprPtr b = nullptr) {
    auto e = std::make_unique<Expr>(kind, at);
    add_arg(*e, std::move(a));
    if (b) add_arg(*e, std::move(b));
    return e;
  }

  ExprPtr make_binary(std::string op, const Place& at, ExprPtr a, ExprPtr b) {
    auto e = make_node(ExprKind::kBinary, at, std::move(a), std::move(b));
    e->text = std::move(op);
    return e;
  }

  [[noreturn]] static void too_deep(const Place& at) {
    fail_at(at, "expression nested too deeply (more than " + std::to_string(kMaxExprDepth) +
                    " levels); split it with a decision expression (dexpr)");
  }

  // Counts recursion into nested brackets and operators; the parser's own
  // stack stays bounded whatever the input.
  struct Guard {
    Guard(Parser& p, const Place& at) : parser(p) {
      if (++parser.nesting_ > kMaxExprDepth) too_deep(at);
    }
    ~Guard() { --parser.nesting_; }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    Parser& parser;
  };

  const IncludeReader& read_include_;
  std::vector<Token> tokens_;
  std::size_t pos_ = 0;
  Place end_place_;
  mutable Token end_token_;
  int nesting_ = 0;
  int include_depth_ = 0;
};

}  // namespace

Model parse_model_source(const SourceFile& file, const IncludeReader& read_include) {
  return Parser(file, read_include).parse();
}

}  // namespace kolva::opl

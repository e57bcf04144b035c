// Evaluating expressions: values, operators, anonymous functions and handles, and chains of names, calls,
// indexing and fields.

#include "platform/host/lang/detail/Evaluation.hpp"
#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Maps.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <algorithm>
#include <cmath>

namespace qlang::detail {

namespace {

class EndScope {
public:
    EndScope(qxArray const* array, std::size_t position, std::size_t count) {
        threadState.ends.push_back({array, position, count});
    }
    ~EndScope() { threadState.ends.pop_back(); }
    EndScope(EndScope const&) = delete;
    EndScope& operator=(EndScope const&) = delete;
};

}  // namespace

Value& Evaluator::slot(int depth, int index) {
    Frame* frame = &frame_;
    for (int d = 0; d < depth; ++d) {
        frame = frame->parent.get();
    }
    return frame->slots[static_cast<std::size_t>(index)];
}

// ----- expressions

void Evaluator::arguments(std::vector<Expr const*> const& args, Values& out, qxArray const* indexed) {
    out.reserve(out.size() + args.size());
    for (std::size_t k = 0; k < args.size(); ++k) {
        auto const& arg = *args[k];
        if (arg.kind == ExprKind::Colon) {
            out.push_back(colonMarker());
            continue;
        }
        if (indexed != nullptr) {
            EndScope scope(indexed, k, args.size());
            if (arg.kind == ExprKind::Chain) {
                values(arg, 1, out);
            } else {
                out.push_back(value(arg));
            }
        } else if (arg.kind == ExprKind::Chain) {
            values(arg, 1, out);
        } else {
            out.push_back(value(arg));
        }
    }
}

Value Evaluator::value(Expr const& expr) {
    switch (expr.kind) {
    case ExprKind::Constant:
        return expr.constant;
    case ExprKind::Variable:
        if (auto const& v = frame_.slots[static_cast<std::size_t>(expr.slot)]) {
            return v;
        }
        break;
    case ExprKind::Outer:
        if (auto const& v = slot(expr.depth, expr.slot)) {
            return v;
        }
        undefinedName(expr.name);
    case ExprKind::Nargin:
        return makeDouble(frame_.nargin);
    case ExprKind::Nargout:
        return makeDouble(frame_.nargout);
    case ExprKind::Colon:
        return makeChars(u":");
    case ExprKind::End: {
        if (threadState.ends.empty() || threadState.ends.back().array == nullptr) {
            raise("qlang:end:outsideIndex", "'end' is only valid inside an index of an array.");
        }
        auto const& context = threadState.ends.back();
        return makeDouble(static_cast<double>(endOf(*context.array, context.position, context.count)));
    }
    case ExprKind::Unary:
    case ExprKind::Binary:
    case ExprKind::Compare:
    case ExprKind::Postfix:
        // Deeply nested expressions recurse too: the stack is checked at every level.
        checkStack();
        return operation(expr);
    case ExprKind::AndAnd:
    case ExprKind::OrOr: {
        auto const logicalScalar = [](Value const& operand) {
            if (!operand->isScalar() || !isNumeric(*operand)) {
                raise("qlang:operator:shortCircuit",
                      fmt::format("Operands of && and || must be logical scalars, got a {} {}.",
                                  dimsText(operand->getDimensions()), operand->getClassName()));
            }
            return truthOf(*operand);
        };
        bool const left = logicalScalar(value(*expr.args[0]));
        if (expr.kind == ExprKind::AndAnd ? !left : left) {
            return makeLogical(left);
        }
        return makeLogical(logicalScalar(value(*expr.args[1])));
    }
    case ExprKind::Range: {
        auto const start = value(*expr.args[0]);
        auto const step = expr.args[1] != nullptr ? value(*expr.args[1]) : Value();
        auto const stop = value(*expr.args[2]);
        return range(*start, step.get(), *stop);
    }
    case ExprKind::Matrix:
    case ExprKind::Cell: {
        checkStack();
        std::vector<Values> rows;
        rows.reserve(expr.rows.size());
        for (auto const& row : expr.rows) {
            Values elements;
            arguments(row, elements, nullptr);
            rows.push_back(std::move(elements));
        }
        if (expr.kind == ExprKind::Cell) {
            return cellOf(rows);
        }
        // Operands that are objects may define horzcat/vertcat; otherwise the built-in rules apply.
        return concatenate(rows);
    }
    case ExprKind::AnonFunction:
        return anonymous(expr);
    case ExprKind::Handle:
        return handle(expr);
    case ExprKind::Name:
    case ExprKind::Chain:
    case ExprKind::SuperCall:
        break;
    }
    Values out;
    values(expr, 1, out);
    bool const list = expr.kind == ExprKind::Chain && expr.accessors.back().kind != AccessorKind::Paren;
    if (out.empty()) {
        if (list) {
            raise("qlang:index:emptyList", "The expression gives an empty list of values where one value is needed.");
        }
        std::string const what = expr.kind == ExprKind::Chain ? expr.base->name : expr.name;
        raise("qlang:call:noValue", fmt::format("'{}' did not return a value.", what.empty() ? "The call" : what));
    }
    if (out.size() > 1 && list) {
        // c{:} and s.f of several elements are lists of values, not one value.
        raise("qlang:index:braceList",
              fmt::format("The expression gives a list of {} values where one value is needed.", out.size()));
    }
    return std::move(out.front());
}

void Evaluator::values(Expr const& expr, int nargout, Values& out) {
    switch (expr.kind) {
    case ExprKind::Chain:
        chain(expr, nargout, out);
        return;
    case ExprKind::Variable:
        if (auto const& v = frame_.slots[static_cast<std::size_t>(expr.slot)]) {
            out.push_back(v);
            return;
        }
        [[fallthrough]];
    case ExprKind::Name:
        nameBase(expr, {}, nargout, out);
        return;
    case ExprKind::SuperCall:
        superCall(expr, nargout, out);
        return;
    default:
        out.push_back(value(expr));
    }
}

Value Evaluator::operation(Expr const& expr) {
    if (expr.kind == ExprKind::Unary || expr.kind == ExprKind::Postfix) {
        auto const operand = value(*expr.args[0]);
        if (operand->classID() == qxClassID::Object && expr.kind == ExprKind::Unary) {
            auto const* method = operatorMethodName(expr.op);
            if (classHasMethod(objectClassOf(*operand), method)) {
                auto out = callMethodByName(operand, method, std::vector<Value>{operand}, 1);
                if (!out.empty()) {
                    return out.front();
                }
            }
        }
        if (expr.kind == ExprKind::Postfix) {
            return transpose(*operand);
        }
        return unaryOperation(expr.op, *operand);
    }
    auto const left = value(*expr.args[0]);
    auto const right = value(*expr.args[1]);
    if (left->classID() == qxClassID::Object || right->classID() == qxClassID::Object) {
        auto const* method = operatorMethodName(expr.op);
        auto const& object = left->classID() == qxClassID::Object ? left : right;
        if (*method != '\0' && classHasMethod(objectClassOf(*object), method)) {
            std::vector<Value> args{left, right};
            auto out = callMethodByName(object, method, args, 1);
            if (!out.empty()) {
                return out.front();
            }
            raise("qlang:call:noValue", fmt::format("The method '{}' did not return a value.", method));
        }
    }
    if (expr.kind == ExprKind::Compare) {
        return comparison(expr.op, *left, *right);
    }
    return binaryOperation(expr.op, *left, *right);
}

Value Evaluator::anonymous(Expr const& expr) {
    std::vector<std::pair<int, Value>> captured;
    captured.reserve(expr.captures.size());
    for (auto const& capture : expr.captures) {
        if (auto const& v = slot(capture.depth, capture.slot)) {
            captured.emplace_back(capture.ownSlot, v);
        }
    }
    auto handle = std::make_shared<CompiledHandle>(frame_.function->file->shared_from_this(), *expr.function, nullptr,
                                                   std::move(captured));
    return share(qxArray::createFunctionHandle(std::move(handle)));
}

Value Evaluator::handle(Expr const& expr) {
    if (expr.function != nullptr) {
        auto parent = lexicalParentFor(*expr.function, &frame_, self_);
        auto handle = std::make_shared<CompiledHandle>(expr.function->file->shared_from_this(), *expr.function,
                                                       std::move(parent), std::vector<std::pair<int, Value>>{});
        return share(qxArray::createFunctionHandle(std::move(handle)));
    }
    return makeNamedHandle(expr.name);
}

// ----- names, members and calls

Resolution const* resolveAt(Expr const& site, std::string const& name) {
    auto& runtime = CodeRuntime::get();
    auto const* cached = site.resolved.load(std::memory_order_acquire);
    if (cached != nullptr && cached->generation == runtime.generation()) {
        return cached;
    }
    auto const* resolution = runtime.resolve(name);
    if (resolution != nullptr) {
        site.resolved.store(resolution, std::memory_order_release);
    }
    return resolution;
}

std::vector<std::string> splitDotted(std::string const& name) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        auto const dot = name.find('.', start);
        parts.push_back(name.substr(start, dot - start));
        if (dot == std::string::npos) {
            return parts;
        }
        start = dot + 1;
    }
}
void Evaluator::callNamed(std::string const& name, Function const* local, Values const& args, int nargout,
                          Values& out) {
    Values results;
    if (local != nullptr) {
        results = callFunction(*local, lexicalParentFor(*local, &frame_, self_), args, nargout);
    } else {
        // A method of the class of an object argument comes before functions of the same name.
        for (auto const& arg : args) {
            if (arg->classID() == qxClassID::Object) {
                auto const& className = objectClassOf(*arg);
                auto const& member = findMember(className, name);
                if (member.kind == Member::Kind::Method) {
                    if (member.method != nullptr) {
                        if (!mayAccess(member.method->access, member.definingClass, &frame_)) {
                            raise("qlang:method:access", fmt::format("The method '{}' of class '{}' cannot be called "
                                                                     "here.",
                                                                     name, className));
                        }
                        results = callFunction(*member.method, nullptr, args, nargout);
                    } else {
                        results = callBound(className, name, args, nargout, member.isStatic, nullptr);
                    }
                    out.insert(out.end(), results.begin(), results.end());
                    return;
                }
                break;
            }
        }
        results = callByName(name, args, nargout);
    }
    out.insert(out.end(), results.begin(), results.end());
}

std::size_t Evaluator::nameBase(Expr const& base, std::span<Accessor const> accessors, int nargout, Values& out) {
    auto const argumentsFromFirst = [&](Values& args) -> std::size_t {
        if (!accessors.empty() && accessors.front().kind == AccessorKind::Paren) {
            arguments(accessors.front().args, args, nullptr);
            return 1;
        }
        return 0;
    };
    if (base.name.find('.') == std::string::npos) {
        Values args;
        auto const consumed = argumentsFromFirst(args);
        int const wanted = consumed == accessors.size() ? nargout : 1;
        if (base.function == nullptr) {
            auto const* resolution = resolveAt(base, base.name);
            if (resolution == nullptr) {
                bool anyObject = std::any_of(args.begin(), args.end(),
                                             [](Value const& arg) { return arg->classID() == qxClassID::Object; });
                if (!anyObject) {
                    undefinedName(base.name);
                }
            }
        }
        callNamed(base.name, base.function, args, wanted, out);
        return consumed;
    }
    // A dotted name: package functions and classes, their static members and constants.
    auto const* resolution = resolveAt(base, base.name);
    if (resolution == nullptr) {
        raise("qlang:undefined", fmt::format("Unable to resolve the name '{}'.", base.name));
    }
    std::span<std::string const> const rest =
        std::span<std::string const>(base.parts).subspan(std::min(resolution->consumed, base.parts.size()));
    Values results;
    std::size_t consumed = 0;
    switch (resolution->kind) {
    case Resolution::Kind::Class:
        if (rest.empty()) {
            Values args;
            consumed = argumentsFromFirst(args);
            results = constructByName(resolution->className, args, consumed == accessors.size() ? nargout : 1);
        } else {
            consumed = classMember(resolution->className, rest.front(),
                                   rest.size() == 1 ? accessors : std::span<Accessor const>(),
                                   rest.size() == 1 ? nargout : 1, results);
        }
        break;
    case Resolution::Kind::PathFunction: {
        Values args;
        if (rest.empty()) {
            consumed = argumentsFromFirst(args);
        }
        int const wanted = rest.empty() && consumed == accessors.size() ? nargout : 1;
        results = callFunction(*resolution->function, nullptr, args, wanted);
        break;
    }
    default:
        raise("qlang:undefined", fmt::format("Unable to resolve the name '{}'.", base.name));
    }
    // Names after the member are fields or properties of its value.
    std::size_t const fieldsFrom = resolution->kind == Resolution::Kind::Class && !rest.empty() ? 1 : 0;
    if (fieldsFrom >= rest.size()) {
        out.insert(out.end(), results.begin(), results.end());
        return consumed;
    }
    if (results.empty()) {
        raise("qlang:call:noValue", fmt::format("'{}' did not return a value.", base.name));
    }
    std::vector<Accessor> remaining;
    for (std::size_t i = fieldsFrom; i < rest.size(); ++i) {
        Accessor field;
        field.kind = AccessorKind::Field;
        field.position = base.position;
        field.name = rest[i];
        remaining.push_back(std::move(field));
    }
    for (auto i = consumed; i < accessors.size(); ++i) {
        remaining.push_back(accessors[i]);
    }
    Expr synthetic;
    synthetic.kind = ExprKind::Chain;
    synthetic.position = base.position;
    Expr constant;
    constant.kind = ExprKind::Constant;
    constant.constant = results.front();
    synthetic.base = &constant;
    synthetic.accessors = std::move(remaining);
    chain(synthetic, nargout, out);
    return accessors.size();
}

void Evaluator::chain(Expr const& expr, int nargout, Values& out) {
    checkStack();
    std::span<Accessor const> accessors = expr.accessors;
    auto const& base = *expr.base;
    Value current;
    std::size_t next = 0;
    if ((base.kind == ExprKind::Variable && !frame_.slots[static_cast<std::size_t>(base.slot)]) ||
        base.kind == ExprKind::Name) {
        Values results;
        next = nameBase(base, accessors, nargout, results);
        if (next == accessors.size()) {
            out.insert(out.end(), results.begin(), results.end());
            return;
        }
        if (results.empty()) {
            raise("qlang:call:noValue", fmt::format("'{}' did not return a value.", base.name));
        }
        current = std::move(results.front());
    } else {
        current = value(base);
    }
    while (next < accessors.size()) {
        auto const& accessor = accessors[next];
        bool const last = next + 1 == accessors.size();
        switch (accessor.kind) {
        case AccessorKind::Paren: {
            if (current->classID() == qxClassID::FunctionHandle) {
                Values args;
                arguments(accessor.args, args, nullptr);
                auto results = callCallable(current, args, last ? nargout : 1);
                if (last) {
                    out.insert(out.end(), results.begin(), results.end());
                    return;
                }
                if (results.empty()) {
                    raise("qlang:call:noValue", "The function handle did not return a value.");
                }
                current = std::move(results.front());
                ++next;
                continue;
            }
            Values subscripts;
            if (isMap(*current)) {
                arguments(accessor.args, subscripts, nullptr);
                current = mapLookup(*current, subscripts);
                ++next;
                continue;
            }
            arguments(accessor.args, subscripts, current.get());
            current = indexParen(*current, subscripts);
            ++next;
            continue;
        }
        case AccessorKind::Brace: {
            Values subscripts;
            arguments(accessor.args, subscripts, current.get());
            Values found;
            indexBrace(*current, subscripts, found);
            if (last) {
                out.insert(out.end(), found.begin(), found.end());
                return;
            }
            if (found.size() != 1) {
                raise("qlang:index:braceList",
                      fmt::format("A {{}} index inside an expression must select one element; it selects {}.",
                                  found.size()));
            }
            current = std::move(found.front());
            ++next;
            continue;
        }
        case AccessorKind::Field:
        case AccessorKind::DynamicField: {
            std::string const name = accessor.kind == AccessorKind::Field
                                         ? accessor.name
                                         : utf8(textOf(*value(*accessor.nameExpr), "A dynamic field name"));
            if (current->classID() == qxClassID::Struct) {
                int const field = current->fieldIndex(name);
                if (field < 0) {
                    raise("qlang:field:undefined", fmt::format("Reference to a non-existent field '{}'.", name));
                }
                auto const count = current->getNumberOfElements();
                if (last) {
                    for (std::size_t i = 0; i < count; ++i) {
                        out.push_back(current->getField(i, static_cast<std::size_t>(field)));
                    }
                    return;
                }
                if (count != 1) {
                    raise("qlang:field:structArray",
                          fmt::format("A field of a {} struct array is a list of {} values; index one element.",
                                      dimsText(current->getDimensions()), count));
                }
                current = current->getField(0, static_cast<std::size_t>(field));
                ++next;
                continue;
            }
            if (current->classID() == qxClassID::Object) {
                Values results;
                auto const consumed = objectMember(current, name, accessors.subspan(next + 1), nargout, results);
                next += 1 + consumed;
                if (next == accessors.size()) {
                    out.insert(out.end(), results.begin(), results.end());
                    return;
                }
                if (results.size() != 1) {
                    raise("qlang:member:list",
                          fmt::format("'{}' gives {} values where one is needed.", name, results.size()));
                }
                current = std::move(results.front());
                continue;
            }
            raise("qlang:field:notStruct",
                  fmt::format("Dot indexing is not supported for a value of class '{}'.", current->getClassName()));
        }
        }
    }
    out.push_back(std::move(current));
}
}  // namespace qlang::detail

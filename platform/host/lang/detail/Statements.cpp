// Running statements: blocks, control flow, try/catch and assignment into variables, elements, fields and
// properties.

#include "platform/host/lang/detail/Evaluation.hpp"
#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Maps.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>

namespace qlang::detail {

// ----- statements

Flow Evaluator::block(std::span<Stmt const* const> statements) {
    for (auto const* stmt : statements) {
        auto const flow = statement(*stmt);
        if (flow != Flow::Normal) {
            return flow;
        }
    }
    return Flow::Normal;
}

Flow Evaluator::statement(Stmt const& stmt) {
    frame_.statement = &stmt;
    switch (stmt.kind) {
    case StmtKind::Expression: {
        Values out;
        auto const& expr = *stmt.expr;
        if (expr.kind == ExprKind::Chain || expr.kind == ExprKind::Name || expr.kind == ExprKind::SuperCall ||
            (expr.kind == ExprKind::Variable)) {
            values(expr, 0, out);
        } else {
            out.push_back(value(expr));
        }
        if (!out.empty() && stmt.ansSlot >= 0) {
            slot(stmt.ansDepth, stmt.ansSlot) = std::move(out.front());
        }
        return Flow::Normal;
    }
    case StmtKind::Command: {
        Values args;
        for (auto const& word : stmt.words) {
            args.push_back(makeChars(word));
        }
        Values out;
        callNamed(stmt.command, nullptr, args, 0, out);
        if (!out.empty() && stmt.ansSlot >= 0) {
            slot(stmt.ansDepth, stmt.ansSlot) = std::move(out.front());
        }
        return Flow::Normal;
    }
    case StmtKind::Assign: {
        auto const& target = stmt.targets.front();
        bool const deletion = stmt.expr->kind == ExprKind::Matrix && stmt.expr->literalEmpty &&
                              !target.accessors.empty() && target.accessors.back().kind == AccessorKind::Paren;
        assign(target, deletion ? Value() : value(*stmt.expr), deletion);
        return Flow::Normal;
    }
    case StmtKind::MultiAssign: {
        // A target s.f on a struct array s of n elements takes n outputs, one per element.
        std::vector<std::size_t> counts(stmt.targets.size(), 1);
        std::vector<bool> spread(stmt.targets.size(), false);
        std::vector<Values> subscripts(stmt.targets.size());
        std::size_t wanted = 0;
        for (std::size_t i = 0; i < stmt.targets.size(); ++i) {
            if (auto const elements = structArrayTarget(stmt.targets[i], subscripts[i])) {
                counts[i] = *elements;
                spread[i] = true;
            }
            wanted += counts[i];
        }
        Values out;
        values(*stmt.expr, static_cast<int>(wanted), out);
        if (out.size() < wanted) {
            // Outputs the caller ignores with ~ at the end need not exist.
            std::size_t needed = wanted;
            for (std::size_t i = stmt.targets.size(); i > 0 && stmt.targets[i - 1].ignored; --i) {
                needed -= counts[i - 1];
            }
            if (out.size() < needed) {
                raise("qlang:call:tooManyOutputs",
                      fmt::format("Too many output arguments: {} requested, {} given.", needed, out.size()));
            }
        }
        std::size_t next = 0;
        for (std::size_t i = 0; i < stmt.targets.size() && next < out.size(); ++i) {
            auto const& target = stmt.targets[i];
            if (target.ignored) {
                next += counts[i];
            } else if (spread[i]) {
                assignFieldOfEach(target, subscripts[i], std::span<Value const>(out).subspan(next, counts[i]));
                next += counts[i];
            } else {
                assign(target, std::move(out[next++]), false);
            }
        }
        return Flow::Normal;
    }
    case StmtKind::If:
        for (auto const& clause : stmt.clauses) {
            if (clause.condition == nullptr || truthOf(*value(*clause.condition))) {
                return block(clause.body);
            }
        }
        return Flow::Normal;
    case StmtKind::While:
        for (;;) {
            checkInterrupt();
            frame_.statement = &stmt;
            if (!truthOf(*value(*stmt.expr))) {
                return Flow::Normal;
            }
            auto const flow = block(stmt.body);
            if (flow == Flow::Break) {
                return Flow::Normal;
            }
            if (flow == Flow::Return) {
                return flow;
            }
        }
    case StmtKind::For:
        return forLoop(stmt);
    case StmtKind::Switch: {
        auto const subject = value(*stmt.expr);
        if (!(isText(*subject) || (isNumeric(*subject) && subject->isScalar()) ||
              (subject->classID() == qxClassID::Object && subject->isScalar()))) {
            raise("qlang:switch:subject", "A switch expression must be a scalar or text.");
        }
        for (auto const& clause : stmt.clauses) {
            if (clause.condition == nullptr) {
                return block(clause.body);
            }
            auto const candidate = value(*clause.condition);
            bool matched = false;
            if (candidate->classID() == qxClassID::Cell) {
                for (auto const& element : candidate->cells()) {
                    matched = matched || switchMatches(*subject, *element);
                }
            } else {
                matched = switchMatches(*subject, *candidate);
            }
            if (matched) {
                return block(clause.body);
            }
        }
        return Flow::Normal;
    }
    case StmtKind::Try:
        return tryStatement(stmt);
    case StmtKind::Persistent: {
        // The kept value (at first [], so that `if isempty(x)` can set it up);
        // the call stores the variables back when it ends.
        auto const& function = *frame_.function;
        auto& kept = *function.persistent;
        std::lock_guard const lock(kept.mutex);
        for (auto const& target : stmt.targets) {
            auto& variable = slot(0, target.slot);
            if (variable) {
                continue;
            }
            auto const index = static_cast<std::size_t>(
                std::find(function.persistentSlots.begin(), function.persistentSlots.end(), target.slot) -
                function.persistentSlots.begin());
            if (!kept.values[index]) {
                kept.values[index] = makeEmpty();
            }
            variable = kept.values[index];
        }
        return Flow::Normal;
    }
    case StmtKind::Break:
        return Flow::Break;
    case StmtKind::Continue:
        return Flow::Continue;
    case StmtKind::Return:
        return Flow::Return;
    }
    return Flow::Normal;
}

bool Evaluator::switchMatches(qxArray const& subject, qxArray const& candidate) {
    if (isText(subject) || subject.classID() == qxClassID::String) {
        return isText(candidate) && textOf(subject, "switch") == textOf(candidate, "case");
    }
    if (isNumeric(subject) && isNumeric(candidate) && candidate.isScalar() && !isText(candidate)) {
        return numberAt(subject, 0) == numberAt(candidate, 0);
    }
    if (subject.classID() == qxClassID::Object && candidate.classID() == qxClassID::Object && candidate.isScalar()) {
        return truthOf(*comparison(Operator::Equal, subject, candidate));
    }
    return false;
}

Flow Evaluator::forLoop(Stmt const& stmt) {
    auto const& variable = stmt.targets.front();
    auto const body = [&]() -> Flow {
        auto const flow = block(stmt.body);
        return flow == Flow::Continue ? Flow::Normal : flow;
    };
    auto const& range = *stmt.expr;
    Value over;
    if (range.kind == ExprKind::Range) {
        auto const start = value(*range.args[0]);
        auto const step = range.args[1] != nullptr ? value(*range.args[1]) : Value();
        auto const stop = value(*range.args[2]);
        // A range of numbers is looped over without making the row, however long it is.
        if (start->classID() != qxClassID::Char || stop->classID() != qxClassID::Char) {
            auto const steps = rangeSpec(*start, step.get(), *stop);
            if (steps.count == 0) {
                slot(variable.depth, variable.slot) = share(qxArray::createDouble({1, 0}));
            }
            for (std::size_t i = 0; i < steps.count; ++i) {
                checkInterrupt();
                slot(variable.depth, variable.slot) = makeDouble(steps.at(i));
                auto const flow = body();
                if (flow == Flow::Break) {
                    break;
                }
                if (flow == Flow::Return) {
                    return flow;
                }
            }
            return Flow::Normal;
        }
        over = detail::range(*start, step.get(), *stop);
    } else {
        over = value(range);
    }
    auto const columns = columnCountOf(*over);
    if (columns == 0) {
        slot(variable.depth, variable.slot) = makeEmpty();
    }
    for (std::size_t column = 0; column < columns; ++column) {
        checkInterrupt();
        slot(variable.depth, variable.slot) = columnOf(*over, column);
        auto const flow = body();
        if (flow == Flow::Break) {
            break;
        }
        if (flow == Flow::Return) {
            return flow;
        }
    }
    return Flow::Normal;
}

Flow Evaluator::tryStatement(Stmt const& stmt) {
    std::optional<qcos::HostError> caught;
    try {
        return block(stmt.body);
    } catch (qcos::HostError const& error) {
        if (error.identifier() == "qlang:interrupted") {
            throw;
        }
        caught = error;
    } catch (std::exception const& error) {
        caught = asHostError(error);
    }
    // The caught error says where it happened in this function too.
    addFrame(*caught, frame_);
    if (stmt.catchSlot >= 0) {
        slot(stmt.catchDepth, stmt.catchSlot) = makeErrorObject(*caught);
    }
    return block(stmt.handler);
}

// ----- assignment

namespace {

// True when evaluating the expression runs no code of the program: numbers,
// `end`, `:` and variables that hold numbers, combined by operators.
bool runsNoCode(Frame const& frame, Expr const& expr) {
    switch (expr.kind) {
    case ExprKind::Constant:
    case ExprKind::Colon:
    case ExprKind::End:
    case ExprKind::Nargin:
    case ExprKind::Nargout:
        return true;
    case ExprKind::Variable: {
        auto const& variable = frame.slots[static_cast<std::size_t>(expr.slot)];
        return variable && isNumeric(*variable);
    }
    case ExprKind::Unary:
    case ExprKind::Binary:
    case ExprKind::Compare:
    case ExprKind::AndAnd:
    case ExprKind::OrOr:
    case ExprKind::Postfix:
    case ExprKind::Range:
        return std::all_of(expr.args.begin(), expr.args.end(),
                           [&](Expr const* arg) { return arg == nullptr || runsNoCode(frame, *arg); });
    default:
        return false;
    }
}

bool runsNoCode(Frame const& frame, std::span<Accessor const> path) {
    return std::all_of(path.begin(), path.end(), [&](Accessor const& accessor) {
        return accessor.kind != AccessorKind::DynamicField &&
               std::all_of(accessor.args.begin(), accessor.args.end(),
                           [&](Expr const* arg) { return runsNoCode(frame, *arg); });
    });
}

}  // namespace

std::optional<std::size_t> Evaluator::structArrayTarget(LValue const& target, Values& subscripts) {
    auto const& accessors = target.accessors;
    bool const whole = accessors.size() == 1 && accessors[0].kind == AccessorKind::Field;
    bool const indexed =
        accessors.size() == 2 && accessors[0].kind == AccessorKind::Paren && accessors[1].kind == AccessorKind::Field;
    if (target.ignored || (!whole && !indexed)) {
        return std::nullopt;
    }
    auto const& root = slot(target.depth, target.slot);
    if (!root || root->classID() != qxClassID::Struct) {
        return std::nullopt;
    }
    std::size_t count = root->getNumberOfElements();
    if (indexed) {
        arguments(accessors[0].args, subscripts, root.get());
        count = indexParen(*root, subscripts)->getNumberOfElements();
    }
    if (count == 1) {
        return std::nullopt;  // one element: an ordinary assignment
    }
    return count;
}

void Evaluator::assignFieldOfEach(LValue const& target, Values const& subscripts, std::span<Value const> values) {
    auto& root = slot(target.depth, target.slot);
    auto const& name = target.accessors.back().name;
    if (root->fieldIndex(name) < 0) {
        mutate(root).addField(name);
    }
    auto const field = static_cast<std::size_t>(root->fieldIndex(name));
    bool const whole = target.accessors.size() == 1;
    Value selected = whole ? std::move(root) : indexParen(*root, subscripts);
    auto& records = mutate(selected);
    for (std::size_t k = 0; k < values.size() && k < records.getNumberOfElements(); ++k) {
        records.setField(k, field, values[k]);
    }
    if (whole) {
        root = std::move(selected);
    } else {
        assignParen(root, subscripts, selected);
    }
}

void Evaluator::assign(LValue const& target, Value value, bool deletion) {
    auto& root = slot(target.depth, target.slot);
    if (target.accessors.empty()) {
        root = std::move(value);
        return;
    }
    assignPath(root, target.accessors, value, deletion);
}

void Evaluator::assignPath(Value& container, std::span<Accessor const> path, Value const& value, bool deletion) {
    auto const& accessor = path.front();
    bool const last = path.size() == 1;
    switch (accessor.kind) {
    case AccessorKind::Paren: {
        Values subscripts;
        if (container && isMap(*container)) {
            // m(key) = v changes the one map every copy of the handle refers to.
            arguments(accessor.args, subscripts, nullptr);
            if (last) {
                // m(key) = [] keeps [] as the value: entries are removed with remove(m, key).
                mapStore(*container, subscripts, deletion ? makeEmpty() : value);
                return;
            }
            Value element = mapLookup(*container, subscripts);
            assignPath(element, path.subspan(1), value, deletion);
            mapStore(*container, subscripts, element);
            return;
        }
        arguments(accessor.args, subscripts, container ? container.get() : nullptr);
        if (last) {
            if (deletion) {
                deleteParen(container, subscripts);
            } else {
                assignParen(container, subscripts, value);
            }
            return;
        }
        if (path[1].kind == AccessorKind::Paren) {
            raise("qlang:index:chainedParentheses", "()-indexing must appear last in an index expression.");
        }
        // s(k).f = v: work on the element, then store it back.
        Value element;
        bool exists = false;
        if (container) {
            try {
                element = indexParen(*container, subscripts);
                exists = element->isScalar();
            } catch (qcos::HostError const& error) {
                if (error.identifier() != "qlang:index:outOfBounds") {
                    throw;
                }
            }
        }
        if (!exists) {
            if (container && container->classID() == qxClassID::Struct) {
                element = share(qxArray::createStruct({1, 1}, container->getFieldNames()));
            } else if (path[1].kind == AccessorKind::Brace) {
                element = share(qxArray::createCell({0, 0}));
            } else {
                element = Value();
            }
        }
        assignPath(element, path.subspan(1), value, deletion);
        // s(k).newField = v gives every element of s the new field.
        if (container && container->classID() == qxClassID::Struct && element &&
            element->classID() == qxClassID::Struct) {
            for (auto const& field : element->getFieldNames()) {
                if (container->fieldIndex(field) < 0) {
                    mutate(container).addField(field);
                }
            }
        }
        assignParen(container, subscripts, element);
        return;
    }
    case AccessorKind::Brace: {
        Values subscripts;
        arguments(accessor.args, subscripts, container ? container.get() : nullptr);
        if (last) {
            if (deletion) {
                raise("qlang:index:braceDeletion", "Elements of a cell array are deleted with (), not {}.");
            }
            assignBrace(container, subscripts, value);
            return;
        }
        Value element;
        if (container && container->classID() == qxClassID::Cell) {
            Values found;
            try {
                indexBrace(*container, subscripts, found);
            } catch (qcos::HostError const& error) {
                if (error.identifier() != "qlang:index:outOfBounds") {
                    throw;
                }
            }
            if (found.size() == 1) {
                element = std::move(found.front());
                // Let go of the cell's reference first, so that the element can change in place.
                auto empty = qxArray::createCell({1, 1});
                assignParen(container, subscripts, share(std::move(empty)));
            }
        }
        assignPath(element, path.subspan(1), value, deletion);
        assignBrace(container, subscripts, element);
        return;
    }
    case AccessorKind::Field:
    case AccessorKind::DynamicField: {
        std::string const name = accessor.kind == AccessorKind::Field
                                     ? accessor.name
                                     : utf8(textOf(*this->value(*accessor.nameExpr), "A dynamic field name"));
        if (container && container->classID() == qxClassID::Object) {
            if (!container->isScalar()) {
                raise("qlang:property:objectArray",
                      "Setting a property of an object array needs an index: objects(k).Name = value.");
            }
            auto const& className = objectClassOf(*container);
            auto const& member = findMember(className, name);
            if (member.kind != Member::Kind::Property) {
                raise("qcos:property:undefined", fmt::format("No property '{}' for class '{}'.", name, className));
            }
            if (member.property != nullptr) {
                if (member.property->constant) {
                    raise("qcos:property:readOnly",
                          fmt::format("The constant property '{}' of class '{}' cannot be set.", name, className));
                }
                if (!mayAccess(member.property->setAccess, member.definingClass, &frame_)) {
                    raise("qlang:property:access",
                          fmt::format("The property '{}' of class '{}' cannot be set here.", name, className));
                }
            }
            Value newValue = value;
            if (!last) {
                auto& object = *container->getObject(0);
                Value current = qcos::omGetPropertyShared(object, name);
                if (member.property != nullptr && isHandleClass(className) && runsNoCode(frame_, path.subspan(1))) {
                    // The object lets go of the value while it changes, so that obj.list(end+1) = v changes it
                    // in place; nothing else can read the property meanwhile, since the subscripts run no code.
                    // The value goes back whether or not the change succeeds.
                    qcos::omSetPropertyShared(object, name, makeEmpty());
                    try {
                        assignPath(current, path.subspan(1), value, deletion);
                    } catch (...) {
                        qcos::omSetPropertyShared(object, name, current ? current : makeEmpty());
                        throw;
                    }
                } else {
                    assignPath(current, path.subspan(1), value, deletion);
                }
                newValue = std::move(current);
            }
            // Objects of value classes are copied before they change.
            if (!isHandleClass(className)) {
                auto& array = mutate(container);
                if (array.getObject(0)->referenceCount() > 1) {
                    array.setObject(0, qcos::omCopyObject(*array.getObject(0)));
                }
            }
            qcos::omSetPropertyShared(*container->getObject(0), name, std::move(newValue));
            return;
        }
        if (!container || (container->classID() == qxClassID::Double && container->isEmpty())) {
            container = share(qxArray::createStruct({1, 1}, {}));
        }
        if (container->classID() != qxClassID::Struct) {
            raise("qlang:field:notStruct",
                  fmt::format("A field cannot be set on a value of class '{}'.", container->getClassName()));
        }
        if (!container->isScalar()) {
            raise("qlang:field:structArray", "Setting a field of a struct array needs an index: s(k).name = value.");
        }
        auto& record = mutate(container);
        int field = record.fieldIndex(name);
        if (field < 0) {
            field = static_cast<int>(record.addField(name));
        }
        auto const index = static_cast<std::size_t>(field);
        if (last) {
            record.setField(0, index, value);
            return;
        }
        // Take the field's value out, so that it can change in place.
        Value current = record.getField(0, index);
        record.setField(0, index, nullptr);
        if (current->classID() == qxClassID::Double && current->isEmpty()) {
            current = Value();
        }
        assignPath(current, path.subspan(1), value, deletion);
        record.setField(0, index, std::move(current));
        return;
    }
    }
}
}  // namespace qlang::detail

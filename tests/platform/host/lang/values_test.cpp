// Values, operators and indexing.

#include "LangTest.hpp"

#include "platform/codeanalysis/CodeAnalysis.hpp"

namespace {

using qlang::testing::expectErrors;
using qlang::testing::expectValues;

TEST(LangValues, LiteralsAndConcatenation) {
    expectValues({
        {"x = {[1 2; 3 4], [1, -2], [1 - 2], [[1 2] 3], [[1; 2], [3; 4]], [], ''};", "x",
         "{[1 2;3 4],[1 -2],-1,[1 2 3],[1 3;2 4],[],''}"},
        {"x = {'it''s', \"say \"\"hi\"\"\", ['ab', 'cd'], ['ab'; 'cd']};", "x",
         "{'it''s',\"say \"\"hi\"\"\",'abcd',['ab';'cd']}"},
        // Numbers joined to text become characters; empty parts are left out.
        {"x = {['a', 66, []], [true, 2], [true, false], [\"a\", 'b', 1]};", "x",
         "{'aB',[1 2],[true false],[\"a\" \"b\" \"1\"]}"},
        {"c = {1, 2}; x = {{1, 'a'; [], {2}}, {}, [c, {3}]};", "x", "{{1,'a';[],{2}},{},{1,2,3}}"},
        {"x = {1:4, 5:-2:0, 0:0.1:0.3, 3:1, 'a':'d', 0x1F + 0b101};", "x",
         "{[1 2 3 4],[5 3 1],[0 0.1 0.2 0.3],zeros(1,0),'abcd',36}"},
    });
    expectErrors({
        {"x = [1 2; 3];", "qlang:concatenate:dimensionMismatch", "not consistent", "1:1"},
        {"x = [1, {2}];", "qlang:concatenate:mixedClasses", "cannot be concatenated", ""},
        {"f = @sin; x = [f, f];", "qlang:concatenate:functionHandles", "cell array", ""},
        {"x = 0x1Fu8;", "qlang:unsupported", "integer-typed literal", "1:5"},
    });
}

TEST(LangValues, OperatorsExpandSingletonsAndShortCircuit) {
    expectValues({
        {"x = {[1 2 3] + 1, [1; 2] + [10 20], [1 2; 3 4] * [1; 1], [1 2; 3 4] .* [1 2; 3 4], [1 2]'};", "x",
         "{[2 3 4],[11 21;12 22],[3;7],[1 4;9 16],[1;2]}"},
        {"x = {[2 ^ 3 ^ 2, -2 ^ 2, 7 / 2, 2 \\ 8, 'a' + 1, 1 / 0], \"ab\" + 'c' + 1};", "x",
         "{[64 -4 3.5 4 98 Inf],\"abc1\"}"},
        {"x = {[1 2 3] == [1 5 3], 'abc' == 'abc', \"abc\" == 'abc', \"b\" > \"a\", ~[1 0 2]};", "x",
         "{[true false true],[true true true],true,true,[false true false]}"},
        // && does not evaluate its right side when the left decides.
        {"x = {false && undefinedThing(1), true || undefinedThing(1), [] | 1, [1 0 1] & [1 1 0], [1 0] | [0 0]};", "x",
         "{false,true,false(0,0),[true false false],[true false]}"},
    });
    expectErrors({
        {"x = [1 2] + [1 2 3];", "qlang:operator:sizeMismatch", "not compatible", "1:1"},
        {"x = [1 2; 3 4] * [1 2 3];", "qlang:operator:sizeMismatch", "inner dimensions", ""},
        {"x = [1 2; 3 4] / [1 2; 3 4];", "qlang:unsupported", "matrix division", ""},
        {"x = {1} + 1;", "qlang:operator:undefined", "'cell'", ""},
        {"s.a = 1; x = -s;", "qlang:operator:undefined", "'struct'", ""},
        // & and | evaluate both sides, and && needs scalars.
        {"x = false & undefinedThing(1);", "qlang:undefined", "undefinedThing", "1:1"},
        {"x = [1 1] && true;", "qlang:operator:shortCircuit", "logical scalars", ""},
        {"x = NaN & true;", "qlang:type:nanCondition", "NaN", ""},
    });
}

TEST(LangValues, IndexingIsColumnMajorAndEndIsTheInnermostArray) {
    expectValues({
        {"a = [1 2 3; 4 5 6]; x = {a(2), a(:)', a([1 2; 3 4]), a(2, :), a(:, [3 1])};", "x",
         "{4,[1 4 2 5 3 6],[1 4;2 5],[4 5 6],[3 1;6 4]}"},
        // A vector index into a vector keeps the source's orientation.
        {"a = [10; 20; 30]; b = [10 20 30]; c = [1 2; 3 4]; x = {a([1 3]), b([1; 3]), c([1 4])};", "x",
         "{[10;30],[10 30],[1 4]}"},
        // Fewer subscripts than dimensions: the last one spans the rest.
        {"a = [1 2 3; 4 5 6]; b = 'hello'; x = {[a(2, 3) a(1, end) a(end)], b([1 end])};", "x", "{[6 3 6],'ho'}"},
        {"a = [5 6 7 8]; b = [1 2; 3 4]; x = {a(a > 6), b(b > 1), a(false(1, 4))};", "x", "{[7 8],[3;2;4],zeros(1,0)}"},
        {"a = [1 2 3]; a(logical([1 0 1])) = 0; c = {'a', 'b', 'c'}; x = {a, c([true false true])};", "x",
         "{[0 2 0],{'a','c'}}"},
        {"a = [1 2 3 4]; b = [10 20]; c = [1 2]; x = [a(b(end) / 10) a(end - c(end))];", "x", "[2 2]"},
        // In the arguments of a function call, end belongs to the array around the call.
        {"a = [5 6 7]; b = [1 2 3; 4 5 6]; x = [a(max(1, end - 1)) b(end, end) b(end - 1, end - 1)];", "x", "[6 6 2]"},
        {"c = {[1 2 3], [4 5]}; s.v = [1 2 3]; a = []; a(end + 1) = 7; a(end + 1) = 8; x = {c{end}(end), s.v(end), a};",
         "x", "{5,3,[7 8]}"},
    });
    expectErrors({
        {"a = [1 2 3]; x = a(4);", "qlang:index:outOfBounds", "Index 4 exceeds", "1:14"},
        {"a = [1 2; 3 4]; x = a(3, 1);", "qlang:index:outOfBounds", "position 1", ""},
        {"a = [1 2 3]; x = a(0);", "qlang:index:badSubscript", "positive whole numbers", ""},
        {"a = [1 2 3]; x = a(1.5);", "qlang:index:badSubscript", "1.5", ""},
        {"x = max(1, end);", "qlang:end:outsideIndex", "only valid inside an index", "1:1"},
    });
}

TEST(LangValues, AssignmentGrowsAndEmptyBracketsDelete) {
    expectValues({
        {"a(3) = 1; b = [1; 2]; b(4) = 4; c = [1 2]; c(2, 3) = 5; x = {a, b, c};", "x",
         "{[0 0 1],[1;2;0;4],[1 2 0;0 0 5]}"},
        {"a = zeros(2); a(:, 1) = [7; 8]; b = 1:3; b(:) = 0; c = [1 2 3]; c([1 3]) = [9 8]; x = {a, b, c};", "x",
         "{[7 0;8 0],[0 0 0],[9 2 8]}"},
        {"a = 'abc'; a(2) = 'X'; b = 'abc'; b(2) = 66; c = true(1, 2); c(1) = 5; x = {a, b, c};", "x",
         "{'aXc','aBc',[5 1]}"},
        {"c = {}; c{3} = 'x'; d = {1}; d(2) = {'y'}; x = {c, d};", "x", "{{[],[],'x'},{1,'y'}}"},
        {"s = struct('a', {1, 2}); s(3).a = 3; t(2).name = 'b'; x = {[s.a], size(t)};", "x", "{[1 2 3],[1 2]}"},
        {"x.a.b.c = 5; x.list{2} = 'b'; y = {x.a.b.c, x.list};", "y", "{5,{[],'b'}}"},
        {"c = {struct('v', 1)}; c{1}.v = 2; s = struct(); f = 'dyn'; s.(f) = 3; x = [c{1}.v s.dyn];", "x", "[2 3]"},
        {"a = [1 2 3 4]; a([2 4]) = []; b = [1; 2; 3]; b(2) = []; c = 'hello'; c(c == 'l') = []; x = {a, b, c};", "x",
         "{[1 3],[1;3],'heo'}"},
        {"a = [1 2; 3 4]; b = a; c = a; a(:, 1) = []; b(1, :) = []; c(2) = []; x = {a, b, c};", "x",
         "{[2;4],[3 4],[1 2 4]}"},
        // Braces set an element to [] instead of deleting it.
        {"c = {1, 2, 3}; d = c; c(2) = []; d{2} = []; x = {c, d};", "x", "{{1,3},{1,[],3}}"},
    });
    expectErrors({
        {"a = [1 2; 3 4]; a(7) = 1;", "qlang:index:growMatrix", "linear index", "1:17"},
        {"a = [1 2 3]; a([1 2]) = [1 2 3];", "qlang:index:sizeMismatch", "Cannot assign 3 elements", ""},
        {"c = {1}; c(2) = 5;", "qlang:index:classMismatch", "cannot be stored", ""},
        {"s = struct('a', {1, 2}); s.a = 3;", "qlang:field:structArray", "needs an index", ""},
        {"x = 5; x.f = 1;", "qlang:field:notStruct", "'double'", ""},
        {"a = [1 2; 3 4]; a(1, 1) = [];", "qlang:index:deletion", "':' in every subscript but one", ""},
        {"a = [1 2 3]; a() = [];", "qlang:index:noSubscripts", "at least one subscript", "1:14"},
    });
}

TEST(LangValues, CopiesAndAppendsInALoopKeepValuesApart) {
    // Appends change the array in place only when no other variable holds it.
    expectValues({
        {"x = []; for k = 1:500, x(end+1) = k; end; y = [numel(x) x(1) x(250) x(end) size(x, 1)];", "y",
         "[500 1 250 500 1]"},
        {"x = [1; 2]; for k = 3:5, x(end+1) = k; end;", "x", "[1;2;3;4;5]"},
        {"x = [1 2]; y = x; x(end+1) = 3; y(end+1) = 9; z = {x, y};", "z", "{[1 2 3],[1 2 9]}"},
        {"c = {}; s = ''; for k = 1:3, c{end+1} = k * 2; s(end+1) = char(96 + k); end; d = c; t = s; c{end+1} = 'x';"
         " s(end+1) = 'd'; z = {c, d, s, t};",
         "z", "{{2,4,6,'x'},{2,4,6},'abcd','abc'}"},
        {"s = \"\"; s(3) = \"c\"; t = s; s(end+1) = \"d\"; z = {numel(s), numel(t), s(4)};", "z", "{4,3,\"d\"}"},
        {"r = struct('a', {}); for k = 1:3, r(end+1).a = k; end; q = r; r(end+1).a = 4; z = {[r.a], [q.a]};", "z",
         "{[1 2 3 4],[1 2 3]}"},
        {"b = true; b(end+1) = false; b(end+1) = 3; z = {b, class(b)};", "z", "{[1 0 3],'double'}"},
        {"a = [1 2; 3 4]; a(:, :, 2) = [5 6; 7 8]; z = [a(:)' size(a)];", "z", "[1 3 2 4 5 7 6 8 2 2 2]"},
        {"f = @(v) numel(v); x = 1; for k = 1:3, n = f(x); x(end+1) = k; end; z = [n numel(x)];", "z", "[3 4]"},
        // Arrays, cells and structs are values: changing a copy leaves the original.
        {"a = [1 2]; b = a; b(1) = 9; c = {1, {2}}; d = c; d{2}{1} = 9; s.a = 1; t = s; t.a = 2; x = {a, c{2}{1}, "
         "s.a};",
         "x", "{[1 2],2,1}"},
        {"s.inner.v = 1; t = s; t.inner.v = 2; x = [s.inner.v t.inner.v];", "x", "[1 2]"},
        // A function receives a copy of what it is given.
        {"f = @(v) numel(v); a = [1 2 3]; n = f(a); a(4) = 4; x = n;", "x", "3"},
    });
}

TEST(LangValues, ArraysOfMoreThanTwoDimensions) {
    expectValues({
        {"a = zeros(2, 3, 2); s = size(a); a(:, :, 2) = [1 2 3; 4 5 6]; x = {s, [a(2, 3, 2) a(end) a(1, end, end)]};",
         "x", "{[2 3 2],[6 6 3]}"},
        // Two subscripts into three dimensions: the second spans the last two.
        {"b = reshape(1:12, 2, 3, 2); c(2, 2, 2) = 1; x = {[b(2, 5) b(1, end)], b(:, end), [size(c) nnz(c)]};", "x",
         "{[10 11],[11;12],[2 2 2 1]}"},
        {"a = ones(2, 2, 3); s = size(sum(a, 3)); a(:, :, 2) = []; x = {s, size(a), ndims(ones(2, 3, 1, 1))};", "x",
         "{[2 2],[2 2 2],2}"},
    });
    expectErrors({{"x = [ones(2, 2, 2), ones(2, 2, 2)];", "qlang:unsupported", "more than two dimensions", ""}});
}

TEST(LangValues, StructArraysCellsAndCommaSeparatedLists) {
    expectValues({
        // A field set through one element is added to every element.
        {"s = struct('a', {1, 2, 3}); s(2).b.c = 5; x = {s(2).b.c, isempty(s(1).b), fieldnames(s)'};", "x",
         "{5,true,{'a','b'}}"},
        {"s = struct('a', {1, 2}); t = s; t(1).a = 9; x = {numel(s(2:end)), [s([true false]).a], [s.a t.a]};", "x",
         "{1,1,[1 2 9 2]}"},
        {"s.list = {}; s.list{end + 1} = 'a'; s.list{end + 1} = 'b'; x = s.list;", "x", "{'a','b'}"},
        {"s = struct('a', 1, 'b', 2); t = struct('b', 2, 'a', 1); x = isequal(s, t);", "x", "true"},
        {"c = {}; c{2}.name = 'x'; x = {class(c{1}), c{2}.name};", "x", "{'double','x'}"},
        {"c = {1, 2, 3}; d = {1, 'a'}; e = {'a', 'bb'}; x = {[c{:}], d(2), numel({e{:}, 'ccc'})};", "x",
         "{[1 2 3],{'a'},3}"},
        {"s = struct('n', {1, 2, 3}); t = struct('n', {'a', 'b'}); x = {[s.n], {t.n}};", "x", "{[1 2 3],{'a','b'}}"},
        {"c = {1, 2}; [a, b] = c{:}; x = {[b a], struct('a', {}), struct('a', {{1, 2}})};", "x",
         "{[2 1],<0x0 struct a>,struct(a={1,2})}"},
    });
    expectErrors({
        {"s = struct('a', {1, 2}); s(3) = struct('b', 1);", "qlang:index:fieldMismatch", "other fields", ""},
        {"c = {1, 2}; x = c{:} + 1;", "qlang:index:braceList", "", ""},
        {"x = 5; y = x{1};", "qlang:index:braceOnNonCell", "cell array", ""},
        {"s.a = 1; y = s.b;", "qlang:field:undefined", "'b'", "1:10"},
        {"s = struct('a', {}); y = s.a;", "qlang:index:emptyList", "empty list", ""},
    });
}

}  // namespace

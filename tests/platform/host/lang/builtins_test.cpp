// The built-in functions.

#include "LangTest.hpp"

#include "platform/host/Vm.hpp"

#include <streambuf>

namespace {

using qlang::testing::CodeFolder;
using qlang::testing::expectErrors;
using qlang::testing::expectValues;

TEST(LangBuiltins, SizesAndMakingArrays) {
    expectValues({
        {"x = size(zeros(2, 3));", "x", "[2 3]"},
        {"[m, n] = size(zeros(2, 3, 4)); x = [m n];", "x", "[2 12]"},
        {"x = size(ones(2, 3), 2);", "x", "3"},
        {"x = [numel('abc') length(zeros(3, 7)) length([]) ndims(1)];", "x", "[3 7 0 2]"},
        {"x = [isempty([]) isempty('') isempty({}) isempty(0) isempty(struct())];", "x",
         "[true true true false false]"},
        {"x = zeros(2);", "x", "[0 0;0 0]"},
        {"x = ones([1 3]);", "x", "[1 1 1]"},
        {"x = true(1, 2);", "x", "[true true]"},
        {"x = false(2, 1);", "x", "[false;false]"},
        {"x = cell(1, 2);", "x", "{[],[]}"},
        {"x = repmat([1 2], 2, 2);", "x", "[1 2 1 2;1 2 1 2]"},
        {"x = reshape(1:6, [3 2]);", "x", "[1 4;2 5;3 6]"},
        {"x = num2cell([1 2]);", "x", "{1,2}"},
        {"[a, b] = deal(7); x = [a b];", "x", "[7 7]"},
        {"x = [isscalar(5) isvector([1 2]) isrow([1;2]) iscolumn([1;2])];", "x", "[true true false true]"},
    });
    expectErrors({{"z = zeros(1e308);", "qlang:type:notCount", "non-negative whole number", ""},
                  {"z = zeros([1e308 1]);", "qx:array:tooLarge", "too many elements", ""},
                  {"z = ones([2 -1]);", "qlang:ones:badArgument", "non-negative whole numbers", ""}});
}

TEST(LangBuiltins, ClassesAndConversions) {
    expectValues({
        {"x = {class(1), class('a'), class(true), class({}), class(struct()), class(\"s\"), class(@sin)};", "x",
         "{'double','char','logical','cell','struct','string','function_handle'}"},
        {"x = [isa(1, 'numeric') isa(1, 'double') isa('a', 'numeric') isa(1, 'float')];", "x",
         "[true true false true]"},
        {"x = [ischar('a') isstring(\"a\") iscell({}) isstruct(struct()) islogical(true) isnumeric(1)];", "x",
         "[true true true true true true]"},
        {"x = [isnumeric(true) ischar(\"a\") isobject(1) iscellstr({'a', 1}) iscellstr({'a'})];", "x",
         "[false false false false true]"},
        {"x = double('AB');", "x", "[65 66]"},
        {"x = double(\"2.5\");", "x", "2.5"},
        {"x = logical([2 0]);", "x", "[true false]"},
        {"x = char([72 105]);", "x", "'Hi'"},
        {"x = char({'a', 'bcd'});", "x", "['a  ';'bcd']"},
        {"x = char(\"str\");", "x", "'str'"},
        // A number's character: its code rounded and held to 0..65535, NaN
        // code 0, wherever a number becomes a character.
        {"x = double(char([65.6 -3 1e308 NaN]));", "x", "[66 0 65535 0]"},
        {"x = double([1e308 'a' -Inf]);", "x", "[65535 97 0]"},
        {"s = 'ab'; s(2) = 1e308; x = double(s);", "x", "[97 65535]"},
        {"x = string('abc');", "x", "\"abc\""},
        {"x = string(42);", "x", "\"42\""},
        {"x = string({'a', 'b'});", "x", "[\"a\" \"b\"]"},
        {"x = isequal([1 2], [1 2], [1 2]);", "x", "true"},
        {"x = [isequal('a', 97) isequal({1, 'a'}, {1, 'a'}) isequal(struct('a', 1), struct('a', 2))];", "x",
         "[true true false]"},
    });
}

TEST(LangBuiltins, StructsAndFields) {
    expectValues({
        {"s = struct('a', 1, 'b', 'two'); x = fieldnames(s);", "x", "{'a';'b'}"},
        {"s = struct('a', {1, 2}); x = size(s);", "x", "[1 2]"},
        {"s = struct('a', 1); x = [isfield(s, 'a') isfield(s, 'z') isfield(5, 'a')];", "x", "[true false false]"},
        {"s = struct('a', 1, 'b', 2); x = isfield(s, {'b', 'q'});", "x", "[true false]"},
        {"s = rmfield(struct('a', 1, 'b', 2), 'a'); x = fieldnames(s);", "x", "{'b'}"},
    });
    expectErrors({{"s = struct('a');", "qlang:struct:badArgument", "name, value pairs", "1:1"}});
}

TEST(LangBuiltins, DealAndStructArrayFields) {
    expectValues({
        {"[a, b] = deal(1, 2); x = [a b];", "x", "[1 2]"},
        {"[a, b] = deal(7); x = [a b];", "x", "[7 7]"},
        {"s = struct('f', {1, 2, 3}); [s.f] = deal(0); x = [s.f];", "x", "[0 0 0]"},
        {"s = struct('f', {1, 2}); [s.f] = deal('a', 'b'); x = {s.f};", "x", "{'a','b'}"},
        // A new field is added to every element; other targets take the outputs after.
        {"s = struct('f', {1, 2}); [s.g, t] = deal(5, 6, 7); x = {[s.g], t, fieldnames(s)'};", "x",
         "{[5 6],7,{'f','g'}}"},
        {"s = struct('f', {1, 2}); c = {8, 9}; [s.f] = c{:}; x = [s.f];", "x", "[8 9]"},
        // Some of the elements, by index; the others keep their values.
        {"s = struct('f', {1, 2, 3}); [s(2:3).f] = deal(7, 8); x = [s.f];", "x", "[1 7 8]"},
        {"s = struct('f', {1, 2, 3}); [s([true false true]).g] = deal('a', 'c'); x = {s.g};", "x", "{'a',[],'c'}"},
        {"s = struct('f', {1, 2, 3}); [s(end).f, y] = deal(5, 6); x = [s.f y];", "x", "[1 2 5 6]"},
        // A scalar struct takes one output, as any variable does.
        {"s.f = 1; [s.f] = deal(4); x = s.f;", "x", "4"},
    });
    expectErrors({
        {"[a, b] = deal(1, 2, 3);", "qlang:deal:badArgument", "as many as outputs", ""},
        {"s = struct('f', {1, 2, 3}); [s.f] = deal(1, 2);", "qlang:deal:badArgument", "as many as outputs", ""},
    });
}

TEST(LangBuiltins, ContainersMapIsAHandleFromKeysToValues) {
    expectValues({
        {"m = containers.Map(); m('b') = 2; m('a') = 'one'; x = {m('a'), m('b'), m.Count, length(m), keys(m)};", "x",
         "{'one',2,2,2,{'a','b'}}"},
        {"m = containers.Map('KeyType', 'char', 'ValueType', 'any'); m(\"k\") = {1}; x = {m('k'), m.KeyType};", "x",
         "{{1},'char'}"},
        {"m = containers.Map({'z', 'y'}, {1, [2 3]}); x = {keys(m), values(m), values(m, {'z'})};", "x",
         "{{'y','z'},{[2 3],1},{1}}"},
        // Numeric keys, sorted as numbers.
        {"m = containers.Map('KeyType', 'double', 'ValueType', 'any'); m(10) = 'ten'; m(9) = 'nine'; m(10.5) = 'x';"
         " x = {keys(m), m(9)};",
         "x", "{{9,10,10.5},'nine'}"},
        {"m = containers.Map([3 1], {'c', 'a'}); x = {keys(m), m(1)};", "x", "{{1,3},'a'}"},
        {"m = containers.Map({'a', 'b'}, {1, 2}); x = {isKey(m, 'a'), isKey(m, 'q'), isKey(m, {'b', 'q'; 'a', 'a'}),"
         " isKey(m, 5)};",
         "x", "{true,false,[true false;true true],false}"},
        {"m = containers.Map({'a', 'b', 'c'}, {1, 2, 3}); remove(m, 'b'); remove(m, {'c'}); x = {keys(m), m.Count};",
         "x", "{{'a'},1}"},
        // A handle: every copy and every function it is handed to change the same map.
        {"m = containers.Map(); n = m; n('k') = 1; s.map = m; s.map('j') = 2; x = {keys(m), m == n};", "x",
         "{{'j','k'},true}"},
        {"m = containers.Map(); f = @(map) map.Count; m('a') = 1; x = f(m);", "x", "1"},
        {"m = containers.Map(); m('s') = struct('n', 1); m('s').n = 5; x = m('s').n;", "x", "5"},
        {"m = containers.Map(); m('list') = {}; v = m('list'); v{end+1} = 'x'; m('list') = v; x = m('list');", "x",
         "{'x'}"},
        {"m = containers.Map(); a = isempty(m); m('k') = 1; x = {a, isempty(m)};", "x", "{true,false}"},
        // [] is a value like any other.
        {"m = containers.Map(); m('a') = []; x = {m.Count, m('a')};", "x", "{1,[]}"},
    });
    expectErrors({
        {"m = containers.Map(); m('a') = 1;\nx = m('nope');", "qlang:map:noKey", "The key 'nope' is not in the map.",
         "2:1"},
        {"m = containers.Map('KeyType', 'double', 'ValueType', 'any'); x = m(4);", "qlang:map:noKey",
         "The key 4 is not", ""},
        {"m = containers.Map(); m(1) = 2;", "qlang:map:badKey", "keys of this map are text", ""},
        {"m = containers.Map('KeyType', 'double', 'ValueType', 'any'); m('a') = 2;", "qlang:map:badKey",
         "keys of this map are numbers", ""},
        {"m = containers.Map({'a'}, {1}); remove(m, 'b');", "qlang:map:noKey", "'b'", ""},
        {"m = containers.Map({'a'}, {1}); x = values(m, {'a', 'c'});", "qlang:map:noKey", "'c'", ""},
        {"m = containers.Map({'a', 'b'}, {1});", "qlang:containers.Map:badArgument", "as many values", ""},
        {"m = containers.Map('KeyType', 'cell');", "qlang:containers.Map:badArgument", "KeyType", ""},
    });
}

TEST(LangBuiltins, BracesOnStringArraysGiveText) {
    expectValues({
        {"s = [\"ab\", \"cd\"]; x = s{2};", "x", "'cd'"},
        {"s = [\"ab\", \"cd\"]; x = [s{:}];", "x", "'abcd'"},
        {"s = [\"ab\", \"cd\"]; x = class(s{1});", "x", "'char'"},
        {"s = [\"ab\", \"cd\"]; s{1} = 'zz'; s{3} = \"e\"; x = s;", "x", "[\"zz\" \"cd\" \"e\"]"},
    });
    expectErrors({
        {"s = [\"ab\", \"cd\"]; x = s{3};", "qlang:index:outOfBounds", "Index 3", "1:19"},
        {"s = [\"ab\", \"cd\"]; s{1} = 5;", "qlang:index:classMismatch", "'double'", ""},
    });
}

TEST(LangBuiltins, NumbersAndReductions) {
    expectValues({
        {"x = [abs(-2) floor(2.7) ceil(2.1) round(2.5) fix(-2.5) sqrt(16)];", "x", "[2 2 3 3 -2 4]"},
        {"x = [mod(7, 3) mod(-1, 3) rem(-1, 3) mod(5, 0)];", "x", "[1 2 -1 5]"},
        {"x = sum([1 2; 3 4]);", "x", "[4 6]"},
        {"x = sum([1 2; 3 4], 2);", "x", "[3;7]"},
        {"x = [sum([]) prod([2 3]) mean([1 2 3]) sum([1 2; 3 4], 'all')];", "x", "[0 6 2 10]"},
        {"x = max([3 9 2]);", "x", "9"},
        {"[m, i] = max([3 9 2]); x = [m i];", "x", "[9 2]"},
        {"[m, i] = min([4 1 1]); x = [m i];", "x", "[1 2]"},
        {"x = max([1 5; 7 2]);", "x", "[7 5]"},
        {"x = max([1 5 3], 4);", "x", "[4 5 4]"},
        {"x = max([NaN 2]);", "x", "2"},
        {"x = max([]);", "x", "[]"},
        {"x = [any([0 0 1]) all([1 1 0]) any([]) all([])];", "x", "[true false false true]"},
        {"x = any([0 1; 0 0]);", "x", "[false true]"},
        {"x = find([0 3 0 5]);", "x", "[2 4]"},
        {"x = find([0; 3; 5], 1);", "x", "2"},
        {"[r, c] = find([0 1; 1 0]); x = [r c];", "x", "[2 1;1 2]"},
        {"x = [isnan([1 NaN]) isinf([Inf 1])];", "x", "[false true true false]"},
        {"x = cumsum([1 2 3]);", "x", "[1 3 6]"},
        {"x = nnz([1 0 2]);", "x", "2"},
        {"x = max([1 5; 7 2], [], 2);", "x", "[5;7]"},
        {"x = [mod(-7, 3) rem(-7, 3) mod(7, -3) mod(5.5, 2)];", "x", "[2 -1 -2 1.5]"},
        {"x = all([1 1; 0 1]);", "x", "[false true]"},
        {"x = mean([1 2; 3 4], 2);", "x", "[1.5;3.5]"},
    });
}

TEST(LangBuiltins, TextComparisonAndSearch) {
    expectValues({
        {"x = [strcmp('a', 'a') strcmp('a', 'A') strcmp('a', 1) strcmpi('a', 'A')];", "x", "[true false false true]"},
        {"x = strcmp({'a', 'b'}, 'b');", "x", "[false true]"},
        {"x = strcmp({'a', 'b'}, {'a', 'c'});", "x", "[true false]"},
        {"x = strcmp(\"a\", 'a');", "x", "true"},
        {"x = [strncmp('abc', 'abd', 2) strncmp('abc', 'abd', 3) strncmp('a', 'ab', 2)];", "x", "[true false false]"},
        {"x = [startsWith('prefix_x', 'prefix') endsWith('file.qx', '.qx') contains('abc', 'bc')];", "x",
         "[true true true]"},
        {"x = startsWith({'ab', 'cd'}, {'c', 'x'});", "x", "[false true]"},
        {"x = contains('ABC', 'b', 'IgnoreCase', true);", "x", "true"},
        {"x = strfind('abcabc', 'bc');", "x", "[2 5]"},
        {"x = strfind('abc', 'z');", "x", "zeros(1,0)"},
    });
}

TEST(LangBuiltins, TextTransformation) {
    expectValues({
        {"x = strrep('a-b-c', '-', '+');", "x", "'a+b+c'"},
        {"x = strrep({'aa', 'ba'}, 'a', 'x');", "x", "{'xx','bx'}"},
        {"x = strsplit('a b  c');", "x", "{'a','b','c'}"},
        {"x = strsplit('a,b,,c', ',', 'CollapseDelimiters', false);", "x", "{'a','b','','c'}"},
        {"x = strsplit('a1b22c', {'1', '22'});", "x", "{'a','b','c'}"},
        {"x = strjoin({'a', 'b', 'c'}, ', ');", "x", "'a, b, c'"},
        {"x = strjoin({'a', 'b'});", "x", "'a b'"},
        {"x = strtrim(sprintf('  a b \\t\\n'));", "x", "'a b'"},
        {"x = strtrim({' a', 'b '});", "x", "{'a','b'}"},
        {"x = {lower('MiXed'), upper(\"é\")};", "x", "{'mixed',\"É\"}"},
        {"x = [str2double('3.5') str2double(' -2e3 ') str2double('1,000')];", "x", "[3.5 -2000 1000]"},
        {"x = isnan(str2double({'x', '1'}));", "x", "[true false]"},
        {"x = strlength({'ab', ''});", "x", "[2 0]"},
    });
}

TEST(LangBuiltins, ElementaryMathAndOperatorsAsFunctions) {
    expectValues({
        {"x = [sin(0) cos(0) tan(0) asin(1) * 2 / pi acos(1) atan(1) * 4 / pi atan2(1, 1) * 4 / pi];", "x",
         "[0 1 0 1 0 1 1]"},
        {"x = [sqrt(16) exp(0) log(1) log2(8) log10(1000) hypot(3, 4)];", "x", "[4 1 0 3 3 5]"},
        {"x = [round(2.5) round(-2.5) fix(-2.7) fix(2.7) sign(-3) sign(0) sign(2)];", "x", "[3 -3 -2 2 -1 0 1]"},
        {"x = [power(2, 10) power([1 2 3], 2)];", "x", "[1024 1 4 9]"},
        {"x = [isinf(inf) isnan(nan) isinf(-Inf) isnan(NaN) isnan(1)];", "x", "[true true true true false]"},
        {"x = inf(1, 2);", "x", "[Inf Inf]"},
        {"x = size(nan(2, 3));", "x", "[2 3]"},
        {"x = [eq(1, 1) ne(1, 1) lt(1, 2) le(2, 2) gt(1, 2) ge(3, 2)];", "x", "[true false true true false true]"},
        {"x = [plus(1, 2) minus(5, 3) times(2, 3) mtimes(2, 4) rdivide(6, 3) ldivide(2, 6) uminus(4)];", "x",
         "[3 2 6 8 2 3 -4]"},
        {"x = [and(true, false) or(true, false) not(false)];", "x", "[false true true]"},
        {"x = eq('abc', 'abc');", "x", "[true true true]"},
    });
    expectErrors({
        {"x = hypot({1}, 2);", "qlang:hypot:badArgument", "hypot", "1:1"},
        {"x = eq(1);", "qlang:call:notEnoughInputs", "", "1:1"},
    });
}

TEST(LangBuiltins, TextAsTheLanguageWritesIt) {
    expectValues({
        {"x = \"r=\" + 1/3;", "x", "\"r=0.33333\""},
        {"x = string(pi);", "x", "\"3.1416\""},
        {"x = [string(2) string(-0.5) string(1e10) string(true)];", "x", "[\"2\" \"-0.5\" \"10000000000\" \"true\"]"},
        {"s = \"a\"; s(2) = 2/3; x = s;", "x", "[\"a\" \"0.66667\"]"},
        {"x = [isequal('abc', \"abc\") isequal(\"abc\", 'abc') isequal('ab', \"abc\") isequal('', \"\")];", "x",
         "[true true false true]"},
        {"x = isequal({'abc'}, {\"abc\"});", "x", "true"},
        {"x = zeros(0, 1); x(end + 2) = 5;", "x", "[0;5]"},
        {"x = cell(0, 1); x{end + 2} = 'a';", "x", "{[];'a'}"},
        {"x = zeros(0, 1); x(3) = 1;", "x", "[0;0;1]"},
        {"x = []; x(end + 1) = 5; x(end + 1) = 6;", "x", "[5 6]"},
    });
}

TEST(LangBuiltins, TextAndCellTools) {
    expectValues({
        {"x = strcat('a ', 'b', ' c');", "x", "'ab c'"},
        {"x = strcat(\"a \", 'b');", "x", "\"a b\""},
        {"x = strcat({'a', 'b'}, '_x');", "x", "{'a_x','b_x'}"},
        {"[t, r] = strtok('  one two'); x = {t, r};", "x", "{'one',' two'}"},
        {"[t, r] = strtok('a,b', ','); x = {t, r};", "x", "{'a',',b'}"},
        {"x = join({'a', 'b', 'c'});", "x", "'a b c'"},
        {"x = join([\"a\" \"b\"], '-');", "x", "\"a-b\""},
        {"x = split('a b  c');", "x", "{'a';'b';'c'}"},
        {"x = split(\"a,b\", ',');", "x", "[\"a\";\"b\"]"},
        {"x = {extractBefore('key=value', '='), extractAfter('key=value', '='), extractBefore('abc', 3), "
         "extractAfter('abc', 1), extractAfter(\"abc\", 'z')};",
         "x", "{'key','value','ab','bc',\"\"}"},
        {"x = {pad('ab', 4), pad('ab', 4, 'left'), pad('ab', 5, 'both', '*'), pad({'a', 'abc'})};", "x",
         "{'ab  ','  ab','*ab**',{'a  ','abc'}}"},
        {"x = [strlength(\"abc\") strlength('')];", "x", "[3 0]"},
        {"x = {mat2str([1 2; 3 4]), mat2str(0.5), mat2str([true false]), mat2str('it''s'), mat2str(zeros(0, 3)), "
         "mat2str(pi, 4), mat2str([-Inf NaN])};",
         "x", "{'[1 2;3 4]','0.5','[true false]','''it''''s''','zeros(0,3)','3.142','[-Inf NaN]'}"},
        {"x = cell2mat({[1 2], 3; [4 5], 6});", "x", "[1 2 3;4 5 6]"},
        {"x = cell2mat({'ab', 'c'});", "x", "'abc'"},
        {"x = cell2mat(num2cell([1 2; 3 4]));", "x", "[1 2;3 4]"},
    });
    expectErrors({
        {"x = extractBefore('abc', 9);", "qlang:extractBefore:badArgument", "outside the text", "1:1"},
        {"x = pad('a', 3, 'middle');", "qlang:pad:badArgument", "side", "1:1"},
        {"x = cell2mat({{1}});", "qlang:cell2mat:badArgument", "cells must hold", "1:1"},
        {"x = join({1, 2});", "qlang:join:badArgument", "cell array of texts", "1:1"},
        {"x = strcat('a', 1);", "qlang:strcat:badArgument", "must be text", "1:1"},
    });
}

TEST(LangBuiltins, Formatting) {
    expectValues({
        {"x = sprintf('%d items', 3);", "x", "'3 items'"},
        {"x = sprintf('%5.2f|%-4d|%s', pi, 7, 'ok');", "x", "' 3.14|7   |ok'"},
        {"x = sprintf('%d,', [1 2 3]);", "x", "'1,2,3,'"},
        {"x = sprintf('%s=%d;', 'a', 1, 'b', 2);", "x", "'a=1;b=2;'"},
        {"x = sprintf('%d', 1.5);", "x", "'1.500000e+00'"},
        {"x = sprintf('%x %o %e', 255, 8, 1234.5);", "x", "'ff 10 1.234500e+03'"},
        {"x = sprintf('100%% %c', 65);", "x", "'100% A'"},
        {"x = sprintf('a\\tb\\n');", "x", "'a\tb\n'"},
        {"x = sprintf(\"%s\", 'str');", "x", "\"str\""},
        {"x = sprintf('%d and %d', 1);", "x", "'1 and '"},
        // Widths and precisions are held to a million characters, written or given by '*'.
        {"x = [numel(sprintf('%99999999999d', 1)) numel(sprintf('%*d', 1e300, 1))];", "x", "[1000000 1000000]"},
        {"x = num2str(42);", "x", "'42'"},
        {"x = num2str(pi);", "x", "'3.1416'"},
        {"x = num2str(123.456);", "x", "'123.456'"},
        {"x = num2str([1 2 3]);", "x", "'1  2  3'"},
        {"x = num2str(pi, 8);", "x", "'3.1415927'"},
        {"x = num2str(7, '%03d');", "x", "'007'"},
        {"x = int2str(2.6);", "x", "'3'"},
        {"x = sprintf('%+d|%05.1f|%*d|%-5s|', 3, 2.5, 4, 7, 'ab');", "x", "'+3|002.5|   7|ab   |'"},
        {"x = sprintf('%g %g %g', 0.5, 1e10, 123456789);", "x", "'0.5 1e+10 1.23457e+08'"},
        {"x = sprintf('%s', [72 105]);", "x", "'Hi'"},
        {"x = sprintf('%s', 65);", "x", "'A'"},
        {"x = sprintf('%s|%c', 2.5, 66);", "x", "'2.500000e+00|B'"},
        {"x = sprintf('%d %s', 'A', 'B');", "x", "'65 B'"},
        {"x = num2str([1.5 2; 3 4]);", "x", "['1.5  2';'  3  4']"},
        {"x = num2str(true);", "x", "'1'"},
        {"x = num2str(-0.000123);", "x", "'-0.000123'"},
    });
}

TEST(LangBuiltins, RegularExpressions) {
    expectValues({
        {"x = regexp('ab12cd345', '\\d+', 'match');", "x", "{'12','345'}"},
        {"x = regexp('ab12cd345', '\\d+');", "x", "[3 7]"},
        {"[s, e] = regexp('ab12', '\\d+'); x = [s e];", "x", "[3 4]"},
        {"x = regexp('ab12cd', '\\d+', 'match', 'once');", "x", "'12'"},
        {"x = regexp('abc', '\\d+', 'match', 'once');", "x", "''"},
        {"x = regexp('k=v;a=b', '(\\w)=(\\w)', 'tokens');", "x", "{{'k','v'},{'a','b'}}"},
        {"x = regexp('k=v', '(\\w)=(\\w)', 'tokens', 'once');", "x", "{'k','v'}"},
        {"x = regexp('name: Ann', 'name: (?<who>\\w+)', 'names');", "x", "struct(who='Ann')"},
        {"n = regexp('x1 y2', '(?<letter>[a-z])(?<digit>\\d)', 'names'); x = {n.letter};", "x", "{'x','y'}"},
        {"x = regexp('a,b;c', '[,;]', 'split');", "x", "{'a','b','c'}"},
        {"x = regexp({'a1', 'b'}, '\\d', 'match');", "x", "{{'1'},cell(1,0)}"},
        {"x = regexpi('ABC', 'b', 'match');", "x", "{'B'}"},
        // ^ and $ anchor at the ends of the text, . takes line breaks too, unless told otherwise.
        {"t = sprintf('a\\nb'); x = {regexp(t, '^b', 'match'), regexp(t, '^b', 'match', 'lineanchors')};", "x",
         "{cell(1,0),{'b'}}"},
        {"t = sprintf('a\\nb'); x = [numel(regexp(t, 'a.b')) numel(regexp(t, 'a.b', 'dotexceptnewline'))];", "x",
         "[1 0]"},
        {"x = regexp('ABC', 'b', 'match', 'ignorecase');", "x", "{'B'}"},
        {"x = regexprep('a1b2', '\\d', '#');", "x", "'a#b#'"},
        {"x = regexprep('john smith', '(\\w+) (\\w+)', '$2 $1');", "x", "'smith john'"},
        {"x = regexprep('aaa', 'a', 'b', 'once');", "x", "'baa'"},
    });
    expectErrors({{"x = regexp('a', '(');", "qlang:regexp:badArgument", "is not valid", "1:1"}});
}

TEST(LangBuiltins, CellfunArrayfunAndSets) {
    expectValues({
        {"x = cellfun(@numel, {'ab', 'c', ''});", "x", "[2 1 0]"},
        {"x = cellfun('isempty', {[], 1});", "x", "[true false]"},
        {"x = cellfun(@(s) [s '!'], {'a', 'b'}, 'UniformOutput', false);", "x", "{'a!','b!'}"},
        {"[a, b] = cellfun(@(v) deal(v, -v), {1, 2}); x = [a; b];", "x", "[1 2;-1 -2]"},
        {"x = arrayfun(@(v) v * 2, [1 2; 3 4]);", "x", "[2 4;6 8]"},
        {"s = struct('n', {1, 2}); x = arrayfun(@(e) e.n + 1, s);", "x", "[2 3]"},
        {"x = cellfun(@numel, {});", "x", "[]"},
        {"x = unique([3 1 2 3 1]);", "x", "[1 2 3]"},
        {"x = unique({'b', 'a', 'b'});", "x", "{'a','b'}"},
        {"x = unique([3 1 3], 'stable');", "x", "[3 1]"},
        {"[u, i, j] = unique([5 4 5]); x = {u, i', j'};", "x", "{[4 5],[2 1],[2 1 2]}"},
        {"x = sort([3 1 2], 'descend');", "x", "[3 2 1]"},
        {"[s, i] = sort({'b', 'c', 'a'}); x = {s, i};", "x", "{{'a','b','c'},[3 1 2]}"},
        {"x = sort([2 NaN 1]);", "x", "[1 2 NaN]"},
        {"x = ismember([1 5 2], [2 1]);", "x", "[true false true]"},
        {"[tf, loc] = ismember('b', {'a', 'b'}); x = [tf loc];", "x", "[1 2]"},
        {"x = ismember({'a', 'z'}, {'a', 'b'});", "x", "[true false]"},
        {"x = setdiff({'a', 'b', 'c'}, {'b'});", "x", "{'a','c'}"},
        {"x = intersect([3 1 2], [2 3 9]);", "x", "[2 3]"},
        {"x = union([3 1], [2 1]);", "x", "[1 2 3]"},
        {"x = cellfun(@(a, b) a + b, {1, 2}, {10, 20});", "x", "[11 22]"},
        {"x = cellfun(@isempty, {{}, '', 0});", "x", "[true true false]"},
        {"x = unique('hello');", "x", "'ehlo'"},
        {"x = sort([3 1; 2 4]);", "x", "[2 1;3 4]"},
        {"x = setdiff([5 1 3], [1], 'stable');", "x", "[5 3]"},
    });
    expectErrors({
        {"x = cellfun(@(v) [v v], {1, 2});", "qlang:cellfun:badArgument", "UniformOutput', false", "1:1"},
        {"x = cellfun(@(v) v, {1, 'a'});", "qlang:cellfun:badArgument", "of one class", ""},
    });
}

TEST(LangBuiltins, FileNames) {
    CodeFolder folder;
    folder.write("present.qx", "function present()\nend\n");
    std::string const base = folder.path().string();
    expectValues({
        {"x = fullfile('a', 'b', 'c.qx');", "x", "'a/b/c.qx'"},
        {"x = fullfile('a/', '/b');", "x", "'a/b'"},
        {"[d, n, e] = fileparts('/p/q/name.ext'); x = {d, n, e};", "x", "{'/p/q','name','.ext'}"},
        {"[d, n, e] = fileparts('plain'); x = {d, n, e};", "x", "{'','plain',''}"},
        {"[d, n, e] = fileparts('/a/b.c.d'); x = {d, n, e};", "x", "{'/a','b.c','.d'}"},
        {"[d, n, e] = fileparts(\"/a/b.c\"); x = {d, n, e};", "x", "{\"/a\",\"b\",\".c\"}"},
    });
    auto const code = "x = [isfile('" + base + "/present.qx') isfile('" + base + "') isfolder('" + base +
                      "') isfolder('" + base + "/nothing')];";
    EXPECT_EQ(qlang::testing::valueOf(code, "x"), "[true false true false]");
    // fileread reads regular files only: a folder or a device is an error, not
    // an endless read.
    expectErrors({
        {"x = fileread('/dev/zero');", "qlang:fileread:cannotRead", "/dev/zero", "1:1"},
        {"x = fileread('/');", "qlang:fileread:cannotRead", "cannot read", "1:1"},
    });
}

// Collects what host code prints.
class Collector : public std::basic_streambuf<char16_t> {
public:
    std::u16string text;

protected:
    std::streamsize xsputn(char16_t const* s, std::streamsize n) override {
        text.append(s, static_cast<std::size_t>(n));
        return n;
    }
};

TEST(LangBuiltins, OutputGoesToTheRequestsSinks) {
    auto const vm = qvm::QVM::create();
    auto output = std::make_shared<Collector>();
    auto errors = std::make_shared<Collector>();
    cmddistributor::RunOptions const options(output, errors, {true, true}, {true, true});
    auto request = std::make_shared<cmddistributor::PackagedTaskIIP<int>>(
        [] {
            (void)qlang::runScript(
                "disp('shown'); disp([1 2.5]); fprintf('%d|', [1 2]); fprintf(2, 'to error\\n');"
                "warning('my:warning', 'careful %d', 1); warning('off', 'my:warning');"
                "warning('my:warning', 'silenced'); warning('on', 'my:warning');"
                "s.a = 1; disp(s); disp({1, 'a'}); disp([1 2; 3 4]); disp(['ab'; 'cd']);"
                "disp([true false]); disp([]); disp(\"str\"); disp(pi);");
            return 0;
        },
        "test");
    auto future = vm->getCmdDistributor()->enqueueWithFuture(
        std::make_shared<cmddistributor::Request<int>>(qvm::detail::createID(), request), options);
    EXPECT_EQ(future.get(), 0);
    EXPECT_EQ(qlang::testing::narrow(output->text),
              "shown\n1  2.5\n1|2|struct(a=1)\n{1,'a'}\n1  2\n3  4\nab\ncd\n1  0\nstr\n3.1416\n");
    EXPECT_EQ(qlang::testing::narrow(errors->text), "to error\ncareful 1");
}

}  // namespace

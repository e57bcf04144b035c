// The built-in functions.

#include "LangTest.hpp"

#include "platform/host/Vm.hpp"

#include <streambuf>

namespace {

using qlang::testing::CodeFolder;
using qlang::testing::expectErrors;
using qlang::testing::expectValues;

TEST(LangBuiltins, SizesClassesAndConversions) {
    expectValues({
        {"[m, n] = size(zeros(2, 3, 4)); x = {size(zeros(2, 3)), [m n], size(ones(2, 3), 2)};", "x",
         "{[2 3],[2 12],3}"},
        {"x = [numel('abc') length(zeros(3, 7)) length([]) ndims(1)];", "x", "[3 7 0 2]"},
        {"x = [isempty([]) isempty('') isempty({}) isempty(0) isempty(struct())];", "x",
         "[true true true false false]"},
        {"x = {zeros(2), ones([1 3]), true(1, 2), false(2, 1), cell(1, 2)};", "x",
         "{[0 0;0 0],[1 1 1],[true true],[false;false],{[],[]}}"},
        {"x = {repmat([1 2], 2, 2), reshape(1:6, [3 2]), num2cell([1 2])};", "x",
         "{[1 2 1 2;1 2 1 2],[1 4;2 5;3 6],{1,2}}"},
        {"x = [isscalar(5) isvector([1 2]) isrow([1;2]) iscolumn([1;2])];", "x", "[true true false true]"},
        {"x = {class(1), class('a'), class(true), class({}), class(struct()), class(\"s\"), class(@sin)};", "x",
         "{'double','char','logical','cell','struct','string','function_handle'}"},
        {"x = [isa(1, 'numeric') isa(1, 'double') isa('a', 'numeric') isa(1, 'float') ischar('a') isstring(\"a\")"
         " iscell({}) isstruct(struct()) islogical(true) isnumeric(1)];",
         "x", "[true true false true true true true true true true]"},
        {"x = [isnumeric(true) ischar(\"a\") isobject(1) iscellstr({'a', 1}) iscellstr({'a'})];", "x",
         "[false false false false true]"},
        {"x = {double('AB'), double(\"2.5\"), logical([2 0]), char([72 105]), char({'a', 'bcd'}), char(\"str\")};", "x",
         "{[65 66],2.5,[true false],'Hi',['a  ';'bcd'],'str'}"},
        // A number's character: its code rounded and held to 0..65535, NaN
        // code 0, wherever a number becomes a character.
        {"s = 'ab'; s(2) = 1e308; x = {double(char([65.6 -3 1e308 NaN])), double([1e308 'a' -Inf]), double(s)};", "x",
         "{[66 0 65535 0],[65535 97 0],[97 65535]}"},
        {"x = {string('abc'), string(42), string({'a', 'b'})};", "x", "{\"abc\",\"42\",[\"a\" \"b\"]}"},
        {"x = [isequal([1 2], [1 2], [1 2]) isequal('a', 97) isequal({1, 'a'}, {1, 'a'})"
         " isequal(struct('a', 1), struct('a', 2))];",
         "x", "[true true true false]"},
    });
    expectErrors({{"z = zeros(1e308);", "qlang:type:notCount", "non-negative whole number", ""},
                  {"z = zeros([1e308 1]);", "qx:array:tooLarge", "too many elements", ""},
                  {"z = ones([2 -1]);", "qlang:ones:badArgument", "non-negative whole numbers", ""}});
}

TEST(LangBuiltins, StructFieldsAndDeal) {
    expectValues({
        {"s = struct('a', 1, 'b', 'two'); t = struct('a', {1, 2}); x = {fieldnames(s), size(t)};", "x",
         "{{'a';'b'},[1 2]}"},
        {"s = struct('a', 1, 'b', 2); x = {[isfield(s, 'a') isfield(s, 'z') isfield(5, 'a')], isfield(s, {'b', 'q'}),"
         " fieldnames(rmfield(s, 'a'))};",
         "x", "{[true false false],[true false],{'b'}}"},
        {"[a, b] = deal(1, 2); [c, d] = deal(7); x = [a b c d];", "x", "[1 2 7 7]"},
        {"s = struct('f', {1, 2, 3}); [s.f] = deal(0); t = struct('f', {1, 2}); [t.f] = deal('a', 'b');"
         " x = {[s.f], {t.f}};",
         "x", "{[0 0 0],{'a','b'}}"},
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
        {"s = struct('a');", "qlang:struct:badArgument", "name, value pairs", "1:1"},
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
         " n = containers.Map([3 1], {'c', 'a'}); x = {keys(m), m(9), keys(n), n(1)};",
         "x", "{{9,10,10.5},'nine',{1,3},'a'}"},
        {"m = containers.Map({'a', 'b'}, {1, 2}); x = {isKey(m, 'a'), isKey(m, 'q'), isKey(m, {'b', 'q'; 'a', 'a'}),"
         " isKey(m, 5)};",
         "x", "{true,false,[true false;true true],false}"},
        {"m = containers.Map({'a', 'b', 'c'}, {1, 2, 3}); remove(m, 'b'); remove(m, {'c'}); x = {keys(m), m.Count};",
         "x", "{{'a'},1}"},
        // A handle: every copy and every function it is handed to change the same map.
        {"m = containers.Map(); n = m; n('k') = 1; s.map = m; s.map('j') = 2; x = {keys(m), m == n};", "x",
         "{{'j','k'},true}"},
        {"m = containers.Map(); f = @(map) map.Count; m('a') = 1; n = containers.Map(); n('s') = struct('n', 1);"
         " n('s').n = 5; x = {f(m), n('s').n};",
         "x", "{1,5}"},
        {"m = containers.Map(); m('list') = {}; v = m('list'); v{end+1} = 'x'; m('list') = v; x = m('list');", "x",
         "{'x'}"},
        // [] is a value like any other.
        {"m = containers.Map(); a = isempty(m); m('k') = 1; n = containers.Map(); n('a') = [];"
         " x = {a, isempty(m), n.Count, n('a')};",
         "x", "{true,false,1,[]}"},
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

TEST(LangBuiltins, NumbersMathAndReductions) {
    expectValues({
        {"x = [abs(-2) floor(2.7) ceil(2.1) round(2.5) fix(-2.5) sqrt(16)];", "x", "[2 2 3 3 -2 4]"},
        {"x = [mod(7, 3) mod(-1, 3) rem(-1, 3) mod(5, 0) mod(-7, 3) rem(-7, 3) mod(7, -3) mod(5.5, 2)];", "x",
         "[1 2 -1 5 2 -1 -2 1.5]"},
        {"x = {sum([1 2; 3 4]), sum([1 2; 3 4], 2), cumsum([1 2 3]), mean([1 2; 3 4], 2)};", "x",
         "{[4 6],[3;7],[1 3 6],[1.5;3.5]}"},
        {"x = [sum([]) prod([2 3]) mean([1 2 3]) sum([1 2; 3 4], 'all') nnz([1 0 2])];", "x", "[0 6 2 10 2]"},
        {"[m, i] = max([3 9 2]); [n, j] = min([4 1 1]); x = [max([3 9 2]) m i n j];", "x", "[9 9 2 1 2]"},
        {"x = {max([1 5; 7 2]), max([1 5 3], 4), max([NaN 2]), max([]), max([1 5; 7 2], [], 2)};", "x",
         "{[7 5],[4 5 4],2,[],[5;7]}"},
        {"x = {[any([0 0 1]) all([1 1 0]) any([]) all([])], any([0 1; 0 0]), all([1 1; 0 1])};", "x",
         "{[true false false true],[false true],[false true]}"},
        {"[r, c] = find([0 1; 1 0]); x = {find([0 3 0 5]), find([0; 3; 5], 1), [r c]};", "x", "{[2 4],2,[2 1;1 2]}"},
        {"x = [isnan([1 NaN]) isinf([Inf 1]) isinf(inf) isnan(nan) isinf(-Inf) isnan(NaN) isnan(1)];", "x",
         "[false true true false true true true true false]"},
        {"x = [sin(0) cos(0) tan(0) asin(1) * 2 / pi acos(1) atan(1) * 4 / pi atan2(1, 1) * 4 / pi];", "x",
         "[0 1 0 1 0 1 1]"},
        {"x = [exp(0) log(1) log2(8) log10(1000) hypot(3, 4) power(2, 10) power([1 2 3], 2)];", "x",
         "[1 0 3 3 5 1024 1 4 9]"},
        {"x = [round(-2.5) fix(-2.7) fix(2.7) sign(-3) sign(0) sign(2)];", "x", "[-3 -2 2 -1 0 1]"},
        {"x = {inf(1, 2), size(nan(2, 3))};", "x", "{[Inf Inf],[2 3]}"},
        {"x = [plus(1, 2) minus(5, 3) times(2, 3) mtimes(2, 4) rdivide(6, 3) ldivide(2, 6) uminus(4)];", "x",
         "[3 2 6 8 2 3 -4]"},
        {"x = {[eq(1, 1) ne(1, 1) lt(1, 2) le(2, 2) gt(1, 2) ge(3, 2) and(true, false) or(true, false) not(false)],"
         " eq('abc', 'abc')};",
         "x", "{[true false true true false true false true true],[true true true]}"},
    });
    expectErrors({
        {"x = hypot({1}, 2);", "qlang:hypot:badArgument", "hypot", "1:1"},
        {"x = eq(1);", "qlang:call:notEnoughInputs", "", "1:1"},
    });
}

TEST(LangBuiltins, TextComparisonSearchAndTransformation) {
    expectValues({
        {"x = [strcmp('a', 'a') strcmp('a', 'A') strcmp('a', 1) strcmpi('a', 'A')];", "x", "[true false false true]"},
        {"x = {strcmp({'a', 'b'}, 'b'), strcmp({'a', 'b'}, {'a', 'c'}), strcmp(\"a\", 'a')};", "x",
         "{[false true],[true false],true}"},
        {"x = [strncmp('abc', 'abd', 2) strncmp('abc', 'abd', 3) strncmp('a', 'ab', 2)];", "x", "[true false false]"},
        {"x = [startsWith('prefix_x', 'prefix') endsWith('file.qx', '.qx') contains('abc', 'bc')];", "x",
         "[true true true]"},
        {"x = {startsWith({'ab', 'cd'}, {'c', 'x'}), contains('ABC', 'b', 'IgnoreCase', true)};", "x",
         "{[false true],true}"},
        {"x = {strfind('abcabc', 'bc'), strfind('abc', 'z')};", "x", "{[2 5],zeros(1,0)}"},
        {"x = {strrep('a-b-c', '-', '+'), strrep({'aa', 'ba'}, 'a', 'x')};", "x", "{'a+b+c',{'xx','bx'}}"},
        {"x = {strsplit('a b  c'), strsplit('a,b,,c', ',', 'CollapseDelimiters', false),"
         " strsplit('a1b22c', {'1', '22'})};",
         "x", "{{'a','b','c'},{'a','b','','c'},{'a','b','c'}}"},
        {"x = {strjoin({'a', 'b', 'c'}, ', '), strjoin({'a', 'b'}), strtrim(sprintf('  a b \\t\\n')),"
         " strtrim({' a', 'b '})};",
         "x", "{'a, b, c','a b','a b',{'a','b'}}"},
        {"x = {lower('MiXed'), upper(\"é\")};", "x", "{'mixed',\"É\"}"},
        {"x = [str2double('3.5') str2double(' -2e3 ') str2double('1,000')];", "x", "[3.5 -2000 1000]"},
        {"x = {isnan(str2double({'x', '1'})), strlength({'ab', ''}), [strlength(\"abc\") strlength('')]};", "x",
         "{[true false],[2 0],[3 0]}"},
    });
}

TEST(LangBuiltins, FormattingAndTextAsTheLanguageWritesIt) {
    expectValues({
        {"x = {sprintf('%d items', 3), sprintf('%5.2f|%-4d|%s', pi, 7, 'ok'), sprintf('%d,', [1 2 3])};", "x",
         "{'3 items',' 3.14|7   |ok','1,2,3,'}"},
        {"x = {sprintf('%s=%d;', 'a', 1, 'b', 2), sprintf('%d', 1.5), sprintf('%x %o %e', 255, 8, 1234.5)};", "x",
         "{'a=1;b=2;','1.500000e+00','ff 10 1.234500e+03'}"},
        {"x = {sprintf('100%% %c', 65), sprintf('a\\tb\\n'), sprintf(\"%s\", 'str'), sprintf('%d and %d', 1)};", "x",
         "{'100% A','a\tb\n',\"str\",'1 and '}"},
        // Widths and precisions are held to a million characters, written or given by '*'.
        {"x = [numel(sprintf('%99999999999d', 1)) numel(sprintf('%*d', 1e300, 1))];", "x", "[1000000 1000000]"},
        {"x = {num2str(42), num2str(pi), num2str(123.456), num2str([1 2 3]), num2str(pi, 8), num2str(7, '%03d')};", "x",
         "{'42','3.1416','123.456','1  2  3','3.1415927','007'}"},
        {"x = {int2str(2.6), num2str([1.5 2; 3 4]), num2str(true), num2str(-0.000123)};", "x",
         "{'3',['1.5  2';'  3  4'],'1','-0.000123'}"},
        {"x = {sprintf('%+d|%05.1f|%*d|%-5s|', 3, 2.5, 4, 7, 'ab'), sprintf('%g %g %g', 0.5, 1e10, 123456789)};", "x",
         "{'+3|002.5|   7|ab   |','0.5 1e+10 1.23457e+08'}"},
        {"x = {sprintf('%s', [72 105]), sprintf('%s', 65), sprintf('%s|%c', 2.5, 66), sprintf('%d %s', 'A', 'B')};",
         "x", "{'Hi','A','2.500000e+00|B','65 B'}"},
        {"x = [string(2) string(-0.5) string(1e10) string(true)];", "x", "[\"2\" \"-0.5\" \"10000000000\" \"true\"]"},
        {"s = \"a\"; s(2) = 2/3; x = {[\"r=\" + 1/3, string(pi)], s};", "x",
         "{[\"r=0.33333\" \"3.1416\"],[\"a\" \"0.66667\"]}"},
        {"x = [isequal('abc', \"abc\") isequal(\"abc\", 'abc') isequal('ab', \"abc\") isequal('', \"\")"
         " isequal({'abc'}, {\"abc\"})];",
         "x", "[true true false true true]"},
        {"x = zeros(0, 1); x(end + 2) = 5; y = cell(0, 1); y{end + 2} = 'a'; z = zeros(0, 1); z(3) = 1; x = {x, y, z};",
         "x", "{[0;5],{[];'a'},[0;0;1]}"},
        {"x = []; x(end + 1) = 5; x(end + 1) = 6;", "x", "[5 6]"},
        // Braces on a string array give its elements as text.
        {"s = [\"ab\", \"cd\"]; x = {s{2}, [s{:}], class(s{1})};", "x", "{'cd','abcd','char'}"},
        {"s = [\"ab\", \"cd\"]; s{1} = 'zz'; s{3} = \"e\"; x = s;", "x", "[\"zz\" \"cd\" \"e\"]"},
    });
    expectErrors({
        {"s = [\"ab\", \"cd\"]; x = s{3};", "qlang:index:outOfBounds", "Index 3", "1:19"},
        {"s = [\"ab\", \"cd\"]; s{1} = 5;", "qlang:index:classMismatch", "'double'", ""},
    });
}

TEST(LangBuiltins, TextAndCellTools) {
    expectValues({
        {"x = {strcat('a ', 'b', ' c'), strcat(\"a \", 'b'), strcat({'a', 'b'}, '_x')};", "x",
         "{'ab c',\"a b\",{'a_x','b_x'}}"},
        {"[t, r] = strtok('  one two'); [u, s] = strtok('a,b', ','); x = {t, r, u, s};", "x",
         "{'one',' two','a',',b'}"},
        {"x = {join({'a', 'b', 'c'}), join([\"a\" \"b\"], '-'), split('a b  c'), split(\"a,b\", ',')};", "x",
         "{'a b c',\"a-b\",{'a';'b';'c'},[\"a\";\"b\"]}"},
        {"x = {extractBefore('key=value', '='), extractAfter('key=value', '='), extractBefore('abc', 3), "
         "extractAfter('abc', 1), extractAfter(\"abc\", 'z')};",
         "x", "{'key','value','ab','bc',\"\"}"},
        {"x = {pad('ab', 4), pad('ab', 4, 'left'), pad('ab', 5, 'both', '*'), pad({'a', 'abc'})};", "x",
         "{'ab  ','  ab','*ab**',{'a  ','abc'}}"},
        {"x = {mat2str([1 2; 3 4]), mat2str(0.5), mat2str([true false]), mat2str('it''s'), mat2str(zeros(0, 3)), "
         "mat2str(pi, 4), mat2str([-Inf NaN])};",
         "x", "{'[1 2;3 4]','0.5','[true false]','''it''''s''','zeros(0,3)','3.142','[-Inf NaN]'}"},
        {"x = {cell2mat({[1 2], 3; [4 5], 6}), cell2mat({'ab', 'c'}), cell2mat(num2cell([1 2; 3 4]))};", "x",
         "{[1 2 3;4 5 6],'abc',[1 2;3 4]}"},
    });
    expectErrors({
        {"x = extractBefore('abc', 9);", "qlang:extractBefore:badArgument", "outside the text", "1:1"},
        {"x = pad('a', 3, 'middle');", "qlang:pad:badArgument", "side", "1:1"},
        {"x = cell2mat({{1}});", "qlang:cell2mat:badArgument", "cells must hold", "1:1"},
        {"x = join({1, 2});", "qlang:join:badArgument", "cell array of texts", "1:1"},
        {"x = strcat('a', 1);", "qlang:strcat:badArgument", "must be text", "1:1"},
    });
}

TEST(LangBuiltins, RegularExpressions) {
    expectValues({
        {"[s, e] = regexp('ab12', '\\d+'); x = {regexp('ab12cd345', '\\d+', 'match'), regexp('ab12cd345', '\\d+'),"
         " [s e]};",
         "x", "{{'12','345'},[3 7],[3 4]}"},
        {"x = {regexp('ab12cd', '\\d+', 'match', 'once'), regexp('abc', '\\d+', 'match', 'once')};", "x", "{'12',''}"},
        {"x = {regexp('k=v;a=b', '(\\w)=(\\w)', 'tokens'), regexp('k=v', '(\\w)=(\\w)', 'tokens', 'once')};", "x",
         "{{{'k','v'},{'a','b'}},{'k','v'}}"},
        {"x = regexp('name: Ann', 'name: (?<who>\\w+)', 'names');", "x", "struct(who='Ann')"},
        {"n = regexp('x1 y2', '(?<letter>[a-z])(?<digit>\\d)', 'names'); x = {n.letter};", "x", "{'x','y'}"},
        {"x = {regexp('a,b;c', '[,;]', 'split'), regexp({'a1', 'b'}, '\\d', 'match')};", "x",
         "{{'a','b','c'},{{'1'},cell(1,0)}}"},
        {"x = {regexpi('ABC', 'b', 'match'), regexp('ABC', 'b', 'match', 'ignorecase')};", "x", "{{'B'},{'B'}}"},
        // ^ and $ anchor at the ends of the text, . takes line breaks too, unless told otherwise.
        {"t = sprintf('a\\nb'); x = {regexp(t, '^b', 'match'), regexp(t, '^b', 'match', 'lineanchors')};", "x",
         "{cell(1,0),{'b'}}"},
        {"t = sprintf('a\\nb'); x = [numel(regexp(t, 'a.b')) numel(regexp(t, 'a.b', 'dotexceptnewline'))];", "x",
         "[1 0]"},
        {"x = {regexprep('a1b2', '\\d', '#'), regexprep('john smith', '(\\w+) (\\w+)', '$2 $1'),"
         " regexprep('aaa', 'a', 'b', 'once')};",
         "x", "{'a#b#','smith john','baa'}"},
    });
    expectErrors({{"x = regexp('a', '(');", "qlang:regexp:badArgument", "is not valid", "1:1"}});
}

TEST(LangBuiltins, CellfunArrayfunAndSets) {
    expectValues({
        {"x = {cellfun(@numel, {'ab', 'c', ''}), cellfun('isempty', {[], 1}), cellfun(@numel, {})};", "x",
         "{[2 1 0],[true false],[]}"},
        {"[a, b] = cellfun(@(v) deal(v, -v), {1, 2}); x = {cellfun(@(s) [s '!'], {'a', 'b'}, 'UniformOutput', false),"
         " [a; b]};",
         "x", "{{'a!','b!'},[1 2;-1 -2]}"},
        {"x = {cellfun(@(a, b) a + b, {1, 2}, {10, 20}), cellfun(@isempty, {{}, '', 0})};", "x",
         "{[11 22],[true true false]}"},
        {"s = struct('n', {1, 2}); x = {arrayfun(@(v) v * 2, [1 2; 3 4]), arrayfun(@(e) e.n + 1, s)};", "x",
         "{[2 4;6 8],[2 3]}"},
        {"x = {unique([3 1 2 3 1]), unique({'b', 'a', 'b'}), unique([3 1 3], 'stable'), unique('hello')};", "x",
         "{[1 2 3],{'a','b'},[3 1],'ehlo'}"},
        {"[u, i, j] = unique([5 4 5]); x = {u, i', j'};", "x", "{[4 5],[2 1],[2 1 2]}"},
        {"[s, i] = sort({'b', 'c', 'a'}); x = {sort([3 1 2], 'descend'), s, i, sort([2 NaN 1]), sort([3 1; 2 4])};",
         "x", "{[3 2 1],{'a','b','c'},[3 1 2],[1 2 NaN],[2 1;3 4]}"},
        {"[tf, loc] = ismember('b', {'a', 'b'}); x = {ismember([1 5 2], [2 1]), [tf loc],"
         " ismember({'a', 'z'}, {'a', 'b'})};",
         "x", "{[true false true],[1 2],[true false]}"},
        {"x = {setdiff({'a', 'b', 'c'}, {'b'}), intersect([3 1 2], [2 3 9]), union([3 1], [2 1]),"
         " setdiff([5 1 3], [1], 'stable')};",
         "x", "{{'a','c'},[2 3],[1 2 3],[5 3]}"},
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
        {"x = {fullfile('a', 'b', 'c.qx'), fullfile('a/', '/b')};", "x", "{'a/b/c.qx','a/b'}"},
        {"[a, b, c] = fileparts('/p/q/name.ext'); [d, e, f] = fileparts('plain'); x = {a, b, c, d, e, f};", "x",
         "{'/p/q','name','.ext','','plain',''}"},
        {"[a, b, c] = fileparts('/a/b.c.d'); [d, e, f] = fileparts(\"/a/b.c\"); x = {a, b, c, d, e, f};", "x",
         "{'/a','b.c','.d',\"/a\",\"b\",\".c\"}"},
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
struct Collector : std::basic_streambuf<char16_t> {
    std::u16string text;
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

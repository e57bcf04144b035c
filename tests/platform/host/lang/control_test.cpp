// Statements: conditions, loops, switch, try/catch, break, continue, return.

#include "LangTest.hpp"

namespace {

using qlang::testing::expectErrors;
using qlang::testing::expectValues;

TEST(LangControl, ConditionsAreTrueWhenEveryElementIs) {
    expectValues({
        {"if [1 1 1], x = 1; else, x = 2; end", "x", "1"},
        {"if [1 0 1], x = 1; else, x = 2; end", "x", "2"},
        {"if [], x = 1; else, x = 2; end", "x", "2"},
        {"if 'a', x = 1; end", "x", "1"},
        {"v = 3; if v < 2, x = 'a'; elseif v < 4, x = 'b'; else, x = 'c'; end", "x", "'b'"},
        {"x = 0; while x < 5, x = x + 2; end", "x", "6"},
        {"x = 0; while true, x = x + 1; if x == 3, break; end, end", "x", "3"},
    });
    expectErrors({
        {"if NaN, x = 1; end", "qlang:type:nanCondition", "NaN", "1:1"},
        {"if {1}, x = 1; end", "qlang:type:notLogical", "'cell'", ""},
    });
}

TEST(LangControl, ForLoopsVisitColumns) {
    expectValues({
        {"x = 0; for k = 1:4, x = x + k; end", "x", "10"},
        {"x = []; for k = 10:-5:0, x(end + 1) = k; end", "x", "[10 5 0]"},
        // A matrix gives its columns, a cell its 1-by-1 cells.
        {"x = {}; for col = [1 2; 3 4], x{end + 1} = col; end", "x", "{[1;3],[2;4]}"},
        {"x = {}; for c = {'a', 7}, x{end + 1} = class(c); end", "x", "{'cell','cell'}"},
        {"x = ''; for ch = 'abc', x = [ch x]; end", "x", "'cba'"},
        {"s = struct('v', {1, 2}); x = 0; for e = s, x = x + e.v; end", "x", "3"},
        // The loop variable keeps the last value; an empty range leaves it [].
        {"for k = 1:3, end, x = k;", "x", "3"},
        {"for k = [], end, x = k;", "x", "[]"},
        {"for k = 3:1, end, x = k;", "x", "zeros(1,0)"},
        // A range is evaluated once, and not made into a row: a very long one ends at break at once.
        {"n = 0; for k = 1:1e12, n = n + 1; if n == 3, break; end, end, x = [n k];", "x", "[3 3]"},
        {"x = []; for k = 0:0.1:0.3, x(end + 1) = k; end, x = x(end) == 0.3;", "x", "true"},
        // Changing the loop variable does not change the iteration.
        {"x = 0; for k = 1:3, k = 10; x = x + 1; end", "x", "3"},
        {"x = 0; for k = 1:5, if mod(k, 2), continue; end, x = x + k; end", "x", "6"},
        {"x = 0; for i = 1:3, for j = 1:3, if j > i, break; end, x = x + 1; end, end", "x", "6"},
    });
}

TEST(LangControl, SwitchMatchesNumbersTextsAndCells) {
    expectValues({
        {"v = 2; switch v, case 1, x = 'one'; case 2, x = 'two'; otherwise, x = 'many'; end", "x", "'two'"},
        {"v = 'b'; switch v, case {'a', 'b'}, x = 1; otherwise, x = 2; end", "x", "1"},
        {"v = \"b\"; switch v, case 'b', x = 1; otherwise, x = 2; end", "x", "1"},
        {"v = 'B'; switch v, case 'b', x = 1; otherwise, x = 2; end", "x", "2"},
        // A number never matches a text.
        {"v = 1; switch v, case '1', x = 1; otherwise, x = 2; end", "x", "2"},
        {"v = 5; x = 0; switch v, case {1, 2}, x = 1; end", "x", "0"},
    });
    expectErrors({{"switch [1 2], case 1, end", "qlang:switch:subject", "scalar or text", "1:1"}});
}

TEST(LangControl, TryCatchGivesTheErrorObject) {
    expectValues({
        {"try, error('a:b', 'n=%d', 4); catch e, x = {e.identifier, e.message}; end", "x", "{'a:b','n=4'}"},
        {"try, error('plain message'); catch e, x = {e.identifier, e.message}; end", "x", "{'','plain message'}"},
        {"try, x = 1; catch, x = 2; end", "x", "1"},
        {"try, undefinedFunction42(); catch e, x = e.identifier; end", "x", "'qlang:undefined'"},
        {"try, a = [1 2]; a(3); catch e, x = e.stack(1).line; end", "x", "1"},
        {"try, error('x:y', 'z'); catch e, x = class(e); end", "x", "'qorvex.Exception'"},
        // rethrow sends the same error on.
        {"try, try, error('in:ner', 'm'); catch e, rethrow(e); end, catch f, x = f.identifier; end", "x", "'in:ner'"},
        {"try, error(struct('identifier', 's:t', 'message', 'from struct')); catch e, x = e.message; end", "x",
         "'from struct'"},
        // An empty message raises nothing.
        {"error(''); x = 1;", "x", "1"},
    });
}

TEST(LangControl, ReturnEndsTheScriptOrFunction) {
    expectValues({
        {"x = 1; return; x = 2;", "x", "1"},
        {"x = 1; if true, return; end, x = 2;", "x", "1"},
    });
    expectErrors({{"break", "qlang:invalidCode", "only allowed inside a loop", "1:1"}});
}

}  // namespace

// Name resolution: one row per rule, each a small tree and the call edges it must give.

#include "ScanTestSupport.hpp"
#include "support/Scratch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace {

using depattr::scan::scanProject;
using depattr::scan::ScanSettings;
using depattr_test::ScratchFolder;
using scan_test::edges;
using scan_test::sorted;

struct Row {
    std::string rule;
    std::map<std::string, std::string> files;
    std::vector<std::string> calls;  // every call and inheritance edge, any order
};

TEST(ScanResolutionTest, EachRuleResolvesAsTheLanguageDoes) {
    std::vector<Row> const rows = {
        {"a name assigned anywhere in the function is a variable",
         {{"main.qx", "function main\nx = helper;\nhelper = 2;\ndisp(helper(1))\nend\n"},
          {"helper.qx", "function helper\nend\n"}},
         {}},
        {"inputs, outputs, loop variables, global, persistent and caught errors are variables",
         {{"main.qx",
           "function y = main(a)\nfor k = 1:3\n  y = a(k) + k;\nend\nglobal g\npersistent p\n"
           "try\n  q = 1;\ncatch err\n  disp(err)\nend\ng(1); p(2); y(3); q;\nend\n"},
          {"a.qx", "function a\nend\n"},
          {"k.qx", "function k\nend\n"},
          {"g.qx", "function g\nend\n"},
          {"p.qx", "function p\nend\n"},
          {"err.qx", "function err\nend\n"},
          {"y.qx", "function y\nend\n"},
          {"q.qx", "function q\nend\n"}},
         {}},
        {"a name used before the function assigns it is still a variable, and a name used alone is a call",
         {{"main.qx", "function main\ndisp(v)\nv = 1;\nw\nend\n"},
          {"v.qx", "function v\nend\n"},
          {"w.qx", "function w\nend\n"}},
         {"main.qx -call-> w.qx>w"}},
        {"nested functions share their parent's variables both ways",
         {{"main.qx", "function main\nv = 1;\ninner();\nw(2)\n  function inner\n    v(1)\n    w = 3;\n  end\nend\n"},
          {"v.qx", "function v\nend\n"},
          {"w.qx", "function w\nend\n"}},
         {"main.qx -call-> main.qx>inner"}},
        {"a function's own local and nested functions come before the path",
         {{"main.qx", "function main\nhelper(1)\nend\nfunction helper(x)\nend\n"},
          {"helper.qx", "function helper(x)\nend\n"}},
         {"main.qx -call-> main.qx>helper"}},
        {"private/ beside the file comes before the path, and private files see each other",
         {{"main.qx", "function main\nutil(1)\nend\n"},
          {"private/util.qx", "function util(x)\nmore(x)\nend\n"},
          {"private/more.qx", "function more(x)\nend\n"},
          {"lib/util.qx", "function util(x)\nend\n"}},
         {"main.qx -call-> private/util.qx>util", "private/util.qx -call-> private/more.qx>more"}},
        {"the file's folder comes before the path",
         {{"c/main.qx", "function main\nf()\nend\n"}, {"a/f.qx", "function f\nend\n"}, {"c/f.qx", "function f\nend\n"}},
         {"c/main.qx -call-> c/f.qx>f"}},
        {"path folders in order: the scanned folder, then the folders below it by name",
         {{"main.qx", "function main\nf()\ng()\nend\n"},
          {"b/f.qx", "function f\nend\n"},
          {"a/f.qx", "function f\nend\n"},
          {"g.qx", "function g\nend\n"},
          {"a/g.qx", "function g\nend\n"}},
         {"main.qx -call-> a/f.qx>f", "main.qx -call-> g.qx>g"}},
        {"package functions: by qualified name only, nested packages, never through the package's folder",
         {{"main.qx", "function main\npkg.f(1)\npkg.sub.g\nend\n"},
          {"+pkg/f.qx", "function f(x)\nh()\npkg.h()\nend\n"},
          {"+pkg/h.qx", "function h\nend\n"},
          {"h.qx", "function h\nend\n"},
          {"+pkg/+sub/g.qx", "function g\nend\n"}},
         {"main.qx -call-> +pkg/f.qx>pkg/f", "main.qx -call-> +pkg/+sub/g.qx>pkg.sub/g", "+pkg/f.qx -call-> h.qx>h",
          "+pkg/f.qx -call-> +pkg/h.qx>pkg/h"}},
        {"imports: a whole package and one function",
         {{"main.qx", "function main\nimport pkg.*\nimport other.g\nf(1)\ng(2)\nend\n"},
          {"+pkg/f.qx", "function f(x)\nend\n"},
          {"+other/g.qx", "function g(x)\nend\n"}},
         {"main.qx -call-> +pkg/f.qx>pkg/f", "main.qx -call-> +other/g.qx>other/g"}},
        {"class folders: the constructor, and a method called with an object",
         {{"main.qx", "function main\nc = Cls(1);\nm(c)\nc.other(2)\nend\n"},
          {"@Cls/Cls.qx", "function obj = Cls(x)\nobj.x = x;\nend\n"},
          {"@Cls/m.qx", "function m(obj)\nhelp2(obj)\nend\n"},
          {"@Cls/help2.qx", "function help2(obj)\nend\n"}},
         {"main.qx -call-> @Cls/Cls.qx>Cls", "main.qx -call-> @Cls/m.qx>m", "@Cls/m.qx -call-> @Cls/help2.qx>help2"}},
        {"classdef: constructor, static methods by class name, own methods inside, superclasses",
         {{"main.qx", "function main\ns = Shape(1);\nShape.unit()\ns.area()\nend\n"},
          {"Shape.qx",
           "classdef Shape < Base\nmethods\nfunction a = area(obj)\na = scale(obj);\nend\n"
           "function s = scale(obj)\ns = 1;\nend\nend\nmethods (Static)\nfunction u = unit()\n"
           "u = Shape(1);\nend\nend\nend\n"},
          {"Base.qx", "classdef Base < handle\nend\n"}},
         {"main.qx -call-> Shape.qx>Shape", "main.qx -call-> Shape.qx>Shape.unit",
          "Shape.qx -inheritance-> Base.qx>Base", "Shape.qx -call-> Shape.qx>scale",
          "Shape.qx -call-> Shape.qx>Shape"}},
        {"package classes and their static methods",
         {{"main.qx", "function main\nx = geo.Point(1);\ngeo.Point.origin()\nend\n"},
          {"+geo/Point.qx", "classdef Point\nmethods (Static)\nfunction p = origin()\np = 0;\nend\nend\nend\n"}},
         {"main.qx -call-> +geo/Point.qx>geo/Point", "main.qx -call-> +geo/Point.qx>geo/Point.origin"}},
        {"command form, handles, feval and str2func with literal names are calls",
         {{"main.qx",
           "function main\nsetup on\nh = @later;\nfeval('viaFeval', 1);\nf = str2func('viaText');\n"
           "x = @(y) lambda(y);\nend\n"},
          {"setup.qx", "function setup(x)\nend\n"},
          {"later.qx", "function later\nend\n"},
          {"viaFeval.qx", "function viaFeval(x)\nend\n"},
          {"viaText.qx", "function viaText\nend\n"},
          {"lambda.qx", "function lambda(y)\nend\n"}},
         {"main.qx -call-> setup.qx>setup", "main.qx -call-> later.qx>later", "main.qx -call-> viaFeval.qx>viaFeval",
          "main.qx -call-> viaText.qx>viaText", "main.qx -call-> lambda.qx>lambda"}},
        {"calls through objects are neither resolved nor reported; anonymous parameters are variables",
         {{"main.qx", "function main(obj)\nobj.run(1)\nobj.data.save()\nf = @(q) q(2);\nend\n"},
          {"run.qx", "function run(x)\nend\n"},
          {"q.qx", "function q\nend\n"}},
         {}},
        {"built-ins make no node; a name found nowhere is one unresolved node with an edge from each caller",
         {{"main.qx", "function main\ndisp(1)\nnowhere(1)\nnowhere(2)\nend\n"},
          {"other.qx", "function other\nnowhere\nend\n"}},
         {"main.qx -call-> unresolved:nowhere", "other.qx -call-> unresolved:nowhere"}},
        {"Name=value arguments name no function and no variable",
         {{"main.qx", "function main\nplot(1, Color=shade(2))\nColor(1)\nend\n"},
          {"shade.qx", "function c = shade(x)\nc = x;\nend\n"},
          {"Color.qx", "function Color(x)\nend\n"}},
         {"main.qx -call-> shade.qx>shade", "main.qx -call-> Color.qx>Color"}},
        {"a script may use its caller's variables: names found nowhere are not reported there",
         {{"script.qx", "x = helper(1);\ndisp(y)\n"}, {"helper.qx", "function r = helper(x)\nr = x;\nend\n"}},
         {"script.qx -call-> helper.qx>helper"}},
        {"a function that loads or evaluates variables reports no unknown name",
         {{"main.qx", "function main\nload('state.mat')\nr = count + 1;\nhelper(r)\nend\n"},
          {"helper.qx", "function helper(x)\nend\n"}},
         {"main.qx -call-> helper.qx>helper"}},
        {"a function's result may be indexed by field",
         {{"main.qx", "function main\nv = config.size;\nend\n"}, {"config.qx", "function c = config\nc = 1;\nend\n"}},
         {"main.qx -call-> config.qx>config"}},
    };
    for (auto const& row : rows) {
        ScratchFolder scratch("depattr-scan");
        for (auto const& [file, content] : row.files) {
            scratch.write(file, content);
        }
        ScanSettings settings;
        settings.folder = scratch.path();
        auto const result = scanProject(settings);
        auto calls = edges(*result.graph, "call");
        auto const inheritance = edges(*result.graph, "inheritance");
        calls.insert(calls.end(), inheritance.begin(), inheritance.end());
        EXPECT_EQ(sorted(calls), sorted(row.calls)) << row.rule;
    }
}

}  // namespace

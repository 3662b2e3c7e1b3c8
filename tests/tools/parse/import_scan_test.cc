// The import statements of languages of which ctags does not tell them.
#include "veldra-index/parse/import_scan.h"

#include <gtest/gtest.h>

#include <tuple>

namespace veldra::tool {
namespace {

/// "line:module" or "line:module name" of each, with commas between.
std::string imports_of(std::string_view path, std::string_view text) {
  std::vector<Import> imports;
  EXPECT_TRUE(scan_imports(path, text, imports));
  std::string all;
  for (const Import& import : imports) {
    all += (all.empty() ? "" : ", ") + std::to_string(import.line) + ":" + import.module;
    if (!import.name.empty()) all += " " + import.name;
  }
  return all;
}

TEST(ImportScanTest, FindsStatementsAndNothingInTextsAndComments) {
  const std::tuple<std::string_view, std::string_view, std::string_view> cases[] = {
      {"a.py", "import a.b as c, d\nif x: import e; from . import f\n", "1:a.b, 1:d, 2:e, 2:. f"},
      {"a.py", "from ..p.q import (a as b,  # why\n  c,\n)\nfrom x import *\n",
       "1:..p.q a, 1:..p.q c, 4:x"},
      {"a.py",
       "'''\nimport no\n'''\n# import no\nx = \"import no\"\nf(\nimport_no)\nimport y\\\n.z\n",
       "8:y.z"},
      {"a.py", "r'\\'\nimport a\nraise X from y\nyield\nfrom_ = 1\nimport", "2:a, 6:"},
      {"a.ts", "import x, {y} from './a'\nexport * from \"b\";\nimport 'c'; import type T from 'd'",
       "1:./a, 2:b, 3:c, 3:d"},
      {"a.js",
       "const a = require('a'), b = await import(\"b\") // from 'no'\n/* import 'no' */ `\n"
       "from 'no'` + /['\"/]from 'no'/.test(x) / 2\nimport z = require('z')",
       "1:a, 1:b, 4:z"},
      {"a.go",
       "package p\n\nimport \"a/b\"\nimport (\n\t_ \"c\"\n\t// \"no\"\n\tx `d`\n)\n"
       "func f() { g(\"no\") }\n",
       "3:a/b, 5:c, 7:d"},
      {"a.rs",
       "use a::{self, b::C as D, e::*};\npub use super::f;\nmod g;\nmod h { use super::*; use "
       "crate::i; }\n/* use /* no */ no; */ let s = r#\"use no;\"#; let c = '\"'; f::<'a,'b>(&'a "
       "x, '\\'');\nuse j;",
       "1:a::self, 1:a::b::C, 1:a::e, 2:super::f, 3:self::g mod, 4:crate::i, 6:j"},
      {"a.rs", "use {{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{", ""},
      {"A.java",
       "package p;\nimport a.b.C;\nimport static a.D.m;\nimport a.*;\nclass A { import x; }",
       "2:a.b.C, 3:a.D.m, 4:a.*"}};
  for (const auto& [path, text, expected] : cases)
    EXPECT_EQ(imports_of(path, text), expected) << text;
  std::vector<Import> none;
  EXPECT_FALSE(scan_imports("a.c", "import x", none));
}

}  // namespace
}  // namespace veldra::tool

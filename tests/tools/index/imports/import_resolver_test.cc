// Which files of the repository an import means.
#include "veldra-index/index/imports/import_resolver.h"

#include <gtest/gtest.h>

#include <tuple>

namespace veldra::tool {
namespace {

/// The files that `importer` means, with blanks between; `import` is "module", "module name", or
/// "<x.h>".
std::string meant(const ImportResolver& resolver, const std::vector<std::string_view>& paths,
                  std::string_view importer, std::string_view import) {
  const bool system = import.starts_with('<');
  if (system) import = import.substr(1, import.size() - 2);
  const std::size_t blank = std::min(import.find(' '), import.size());
  const std::string name(import.substr(std::min(blank + 1, import.size())));
  std::string found;
  for (const std::size_t at :
       resolver.resolve(importer, {std::string(import.substr(0, blank)), name, 1, system}))
    found += (found.empty() ? "" : " ") + std::string(paths[at]);
  return found;
}

TEST(ImportResolverTest, GoesByTheRulesOfTheLanguage) {
  const std::vector<std::string_view> paths = {"src/a/x.h",
                                               "src/b/x.h",
                                               "src/b/deep/x.h",
                                               "lib/include/y.h",
                                               "lib/other/z.h",
                                               "lib/only/w.h",
                                               "lib/include/stdio.h",
                                               "pkg/__init__.py",
                                               "pkg/mod.py",
                                               "pkg/time.py",
                                               "pkg/sub/__init__.py",
                                               "pkg/sub/deep.py",
                                               "pkg/both.py",
                                               "pkg/both/__init__.py",
                                               "src/lay/__init__.py",
                                               "tools/helper.py",
                                               "lib/A/B.pm",
                                               "web/a.ts",
                                               "web/b/index.js",
                                               "web/c.d.ts",
                                               "packages/shared/src/index.ts",
                                               "packages/shared/src/util.ts",
                                               "go/util/a.go",
                                               "go/util/b.go",
                                               "go/util/a_test.go",
                                               "crates/core/src/lib.rs",
                                               "crates/core/src/deep/mod.rs",
                                               "crates/core/src/deep/er.rs",
                                               "crates/core/src/flat.rs",
                                               "j/src/org/x/Outer.java",
                                               "one/Dup.java",
                                               "two/Dup.java"};
  Manifests manifests;
  manifests.add("packages/shared/package.json", R"({"name": "@vue/shared", "private": true})");
  manifests.add("packages/bad/package.json", "{");
  manifests.add("go/go.mod", "// comment\nmodule example.com/fzf // why\n\ngo 1.20\n");
  manifests.add("crates/core/Cargo.toml", "[lib]\nname = \"no\"\n[package]\nname = \"my-core\"\n");
  const ImportResolver resolver(paths, manifests);
  const std::tuple<std::string_view, std::string_view, std::string_view> cases[] = {
      {"src/b/m.c", "x.h", "src/b/x.h"},              // beside
      {"src/a/m.c", "../b/x.h", "src/b/x.h"},         // relative
      {"src/b/m.c", "./none/x.h", ""},                // relative, and nothing else
      {"src/b/deep/y/m.c", "x.h", "src/b/deep/x.h"},  // shares most folders
      {"z/m.c", "x.h", ""},                           // three that share none
      {"src/a/x.h", "x.h", ""},                       // never itself, and two as near
      {"z/m.c", "b/x.h", "src/b/x.h"},                // the end of one path
      {"z/m.c", "<src/a/x.h>", "src/a/x.h"},          // from the root
      {"z/m.c", "<y.h>", "lib/include/y.h"},          // from a folder called include
      {"z/m.c", "<z.h>", ""},                         // from no other
      {"z/m.c", "<only/w.h>", "lib/only/w.h"},
      {"z/m.c", "<stdio.h>", ""},  // the system's, whatever the tree holds
      {"lib/m.c", "<mod>", ""},    // no extension is added
      {"z/m.c", "/x.h", ""},
      {"t.py", "pkg.mod", "pkg/mod.py"},
      {"t.py", "pkg mod", "pkg/mod.py"},  // from pkg import mod
      {"t.py", "pkg NAME", "pkg/__init__.py"},
      {"t.py", "pkg.both", "pkg/both/__init__.py"},  // a package before a module
      {"t.py", "lay", "src/lay/__init__.py"},
      {"pkg/sub/deep.py", "time", ""},  // absolute: never beside
      {"pkg/sub/deep.py", ".", "pkg/sub/__init__.py"},
      {"pkg/sub/deep.py", "..mod", "pkg/mod.py"},
      {"pkg/sub/deep.py", ".. time", "pkg/time.py"},
      {"pkg/sub/deep.py", "....mod", ""},
      {"tools/run.py", "helper", "tools/helper.py"},  // a script's own folder
      {"bin/r.pm", "A::B", "lib/A/B.pm"},
      {"bin/r.pl", "A::B", ""},
      {"web/m.ts", "./a", "web/a.ts"},
      {"web/m.ts", "./a.js", "web/a.ts"},  // what it is compiled to
      {"web/m.tsx", "./b", "web/b/index.js"},
      {"web/b/m.js", "../c", "web/c.d.ts"},
      {"web/m.ts", "a", ""},
      {"web/m.ts", "@vue/shared", "packages/shared/src/index.ts"},
      {"web/m.ts", "@vue/shared/util", "packages/shared/src/util.ts"},
      {"web/m.ts", "@vue/other", ""},
      {"m.go", "example.com/fzf/util", "go/util/a.go go/util/b.go"},
      {"m.go", "example.com/other/util", ""},
      {"crates/core/src/flat.rs", "crate::deep::er::Name", "crates/core/src/deep/er.rs"},
      {"crates/core/src/flat.rs", "crate::Name", "crates/core/src/lib.rs"},
      {"crates/core/src/deep/er.rs", "super::Name", "crates/core/src/deep/mod.rs"},
      {"crates/core/src/deep/mod.rs", "self::er mod", "crates/core/src/deep/er.rs"},
      {"crates/core/src/lib.rs", "self::flat mod", "crates/core/src/flat.rs"},
      {"crates/app/src/main.rs", "my_core::flat", "crates/core/src/flat.rs"},
      {"crates/app/src/main.rs", "std::fmt", ""},
      {"j/M.java", "org.x.Outer", "j/src/org/x/Outer.java"},
      {"j/M.java", "org.x.Outer.Inner.field", "j/src/org/x/Outer.java"},
      {"j/M.java", "org.x.*", ""},
      {"j/M.java", "Dup", ""}};
  for (const auto& [importer, import, expected] : cases)
    EXPECT_EQ(meant(resolver, paths, importer, import), expected) << importer << ": " << import;
}

/// With comments, last commas, a base that another one is extended by, a project in the same
/// folder, and circles.
TEST(ImportResolverTest, GoesByTheNearestTsConfig) {
  const std::vector<std::string_view> paths = {
      "app/src/main.ts",        "app/src/views/a.vue",  "app/src/exact.ts",  "app/gen/views/b.ts",
      "libs/core/src/index.ts", "libs/ui/src/index.ts", "libs/ui/button.ts", "vite/src/x.ts",
      "other/src/main.ts",      "plain/lib/y.js"};
  Manifests manifests;
  manifests.add("tsconfig.base.json", R"({"compilerOptions": { // "paths": {}
    "baseUrl": ".", /* ,} */ "paths": {"@core": ["libs/core/src/index.ts",], "@ui/*": ["libs/ui/*"]},
  }, })");
  manifests.add("libs/tsconfig.json", R"({"extends": ["./none.json", "../tsconfig.base"]})");
  manifests.add("app/tsconfig.json", R"({"extends": "./tsconfig", "compilerOptions": {"paths": {
    "@/*": ["./src/*"], "@/views/*": ["./gen/views/*", "./src/views/*"], "@/exact": [1, "gone"]}}})");
  manifests.add(
      "vite/tsconfig.json",
      R"({"references": [{"path": "../libs/tsconfig.json"}, {"path": "./tsconfig.app"}]})");
  manifests.add("vite/tsconfig.app.json", R"({"compilerOptions": {"paths": {"~*": ["./src/*"]}}})");
  manifests.add("plain/jsconfig.json",
                R"({"compilerOptions": {"baseUrl": "lib", "paths": "none"}})");
  manifests.add("other/tsconfig.json", "{\"compilerOptions\": 1, \"references\": {}}");
  manifests.add("other/deep/tsconfig.json", "[");
  manifests.add("tsconfig.json", R"({"extends": "tsconfig.base"})");  // an installed package
  const ImportResolver resolver(paths, manifests);
  const std::tuple<std::string_view, std::string_view, std::string_view> cases[] = {
      {"libs/ui/a.ts", "@core", "libs/core/src/index.ts"},
      {"libs/ui/a.ts", "@ui/button", "libs/ui/button.ts"},
      {"libs/ui/a.ts", "libs/ui/src", "libs/ui/src/index.ts"},  // from the base
      {"app/src/a.ts", "@/main", "app/src/main.ts"},
      {"app/src/a.ts", "@/views/a.vue", "app/src/views/a.vue"},  // the second of two
      {"app/src/a.ts", "@/views/b", "app/gen/views/b.ts"},       // where most of it is the same
      {"app/src/a.ts", "@/exact", ""},                           // and nothing but this
      {"app/src/a.ts", "@core", ""},
      {"vite/a.ts", "~x", "vite/src/x.ts"},
      {"vite/a.ts", "@core", ""},  // another folder's project
      {"plain/a/b.js", "y", "plain/lib/y.js"},
      {"other/deep/a.ts", "src/main", ""},
      {"a.ts", "@core", ""}};
  for (const auto& [importer, import, expected] : cases)
    EXPECT_EQ(meant(resolver, paths, importer, import), expected) << importer << ": " << import;
}

/// So that an update parses who imports a file that is new.
TEST(ManifestsTest, NameWhatAFileIsImportedBy) {
  Manifests manifests;
  manifests.add("web/package.json", R"({"name": "@x/web"})");
  manifests.add("core/Cargo.toml", "[package]\nname = \"my-core\"\n");
  manifests.add("tsconfig.json", R"({"compilerOptions": {"paths": {
    "@a": ["./lib/a"], "@b": ["./lib/b.ts"], "@c": ["./lib/c"]}}})");
  const std::pair<std::string_view, std::vector<std::string>> cases[] = {
      {"web/index.ts", {"@x/web"}},
      {"web/src/index.ts", {"@x/web"}},
      {"web/src/main.ts", {}},
      {"web/lib/index.ts", {}},
      {"core/src/lib.rs", {"my_core"}},
      {"core/src/flat.rs", {}},
      {"core/main.rs", {"my_core"}},
      {"lib/a.ts", {"@a"}},
      {"lib/b.ts", {"@b"}},
      {"lib/c/index.ts", {"@c"}},
      {"lib/d.ts", {}}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(manifests.names_of(path), expected) << path;
}

}  // namespace
}  // namespace veldra::tool

// Which file of the repository an import means.
#include "veldra-index/index/import_resolver.h"

#include <gtest/gtest.h>

#include <tuple>

namespace veldra::tool {
namespace {

TEST(ImportResolverTest, FindsTheFileThatAnImportMeans) {
  const std::vector<std::string_view> paths = {"src/a/x.h",           "src/b/x.h",
                                               "src/b/deep/x.h",      "pkg/mod.py",
                                               "pkg/sub/__init__.py", "lib/A/B.pm"};
  const ImportResolver resolver(paths);
  const std::tuple<std::string_view, std::string_view, bool, std::string_view> cases[] = {
      {"src/b/m.c", "x.h", false, "src/b/x.h"},             // beside
      {"src/a/m.c", "../b/x.h", false, "src/b/x.h"},        // relative
      {"src/b/m.c", "./none/x.h", false, ""},               // relative, and nothing else
      {"src/b/deep/y/m.c", "x.h", true, "src/b/deep/x.h"},  // shares most folders
      {"src/b/m.c", "x.h", true, "src/b/x.h"},              // of equally near ones the shortest
      {"z/m.c", "x.h", false, "src/a/x.h"},                 // then the first
      {"src/a/x.h", "x.h", false, "src/b/x.h"},             // never itself
      {"z/m.c", "b/x.h", false, "src/b/x.h"},               // the end of a path
      {"z/m.c", "src/a/x.h", true, "src/a/x.h"},            // from the root
      {"z/m.c", "/x.h", false, ""},
      {"z/m.c", "none.h", false, ""},
      {"t.py", "pkg.mod", false, "pkg/mod.py"},
      {"pkg/t.py", "mod", false, "pkg/mod.py"},
      {"pkg/t.py", ".mod", false, "pkg/mod.py"},
      {"pkg/sub/t.py", "..mod", false, "pkg/mod.py"},
      {"t.py", "pkg.sub", false, "pkg/sub/__init__.py"},  // a package
      {"bin/r.pm", "A::B", false, "lib/A/B.pm"},
      {"bin/r.pl", "A::B", false, ""}};
  for (const auto& [importer, module, system, expected] : cases) {
    const auto at = resolver.resolve(importer, module, system);
    EXPECT_EQ(at ? paths[*at] : "", expected) << importer << " imports " << module;
  }
}

}  // namespace
}  // namespace veldra::tool

// Which file an import means.
#include "veldra-index/import_resolver.h"

#include <gtest/gtest.h>

namespace veldra::tool {
namespace {

TEST(ImportResolverTest, FindsTheFileThatIsMeant) {
  const std::vector<std::string_view> paths = {
      "lib/a.h",       "src/a.h",         "src/deep/b.h", "string.h",       "src/string.h",
      "pkg/mod.py",    "pkg/__init__.py", "pkg/sub/x.py", "lib/Foo/Bar.pm", "src/p/q/R.java",
      "include/v/s.h", "other/inc/v/s.h", "rel/x.rb"};
  struct Case {
    std::string_view importer, module, found;
    bool system = false;
  };
  static constexpr Case cases[] = {
      {"src/m.cc", "a.h", "src/a.h"},
      {"m.cc", "deep/b.h", "src/deep/b.h"},
      {"src/deep/m.cc", "../a.h", "src/a.h"},
      {"src/m.cc", "../../a.h", ""},
      {"other/m.cc", "v/s.h", "other/inc/v/s.h"},
      {"src/m.cc", "string.h", "string.h", true},
      {"string.h", "string.h", "src/string.h", true},
      {"m.cc", "ring.h", ""},
      {"main.py", "pkg", "pkg/__init__.py"},
      {"pkg/sub/y.py", ".x", "pkg/sub/x.py"},
      {"pkg/sub/y.py", "..mod", "pkg/mod.py"},
      {"t/a.pm", "Foo::Bar", "lib/Foo/Bar.pm"},
      {"src/p/q/S.java", "p.q.R", "src/p/q/R.java"},
      {"rel/y.rb", "x", "rel/x.rb"},
      {"m.cc", "../", ""},
  };
  const ImportResolver resolver(paths);
  for (const auto& [importer, module, found, system] : cases) {
    const auto position = resolver.resolve(importer, module, system);
    EXPECT_EQ(position ? paths[*position] : "", found) << importer << " imports " << module;
  }
}

}  // namespace
}  // namespace veldra::tool

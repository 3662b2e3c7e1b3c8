// libFuzzer: the import statements of any text, in each language that is scanned, and what they
// mean where any manifest says the same text.
#include <string>

#include "veldra-index/index/imports/import_resolver.h"
#include "veldra-index/parse/import_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using veldra::tool::Import;
  static const std::vector<std::string_view> paths = {
      "a/b.py", "a/__init__.py", "a/b.ts", "src/lib.rs", "src/a/mod.rs", "a/B.java", "a/b.go"};
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  veldra::tool::Manifests manifests;
  for (const char* manifest : {"tsconfig.json", "a/tsconfig.json", "package.json", "go.mod"})
    manifests.add(manifest, text);
  for (const std::string_view path : paths) manifests.names_of(path);
  const veldra::tool::ImportResolver resolver(paths, manifests);
  for (const char* importer : {"a/x.py", "a/x.ts", "src/a/x.rs", "a/X.java", "a/x.go", "a/x.h"}) {
    std::vector<Import> imports;
    if (!veldra::tool::scan_imports(importer, text, imports))
      imports.push_back({std::string(text), {}, 1, size % 2 == 1});
    for (const Import& import : imports)
      for (const std::size_t found : resolver.resolve(importer, import)) (void)paths.at(found);
  }
  return 0;
}

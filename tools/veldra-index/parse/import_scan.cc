// Import statements, as the languages write them.
#include "veldra-index/parse/import_scan.h"

#include <string>
#include <utility>

#include "veldra-index/parse/source_tokens.h"
#include "veldra-index/tree/path_text.h"

namespace veldra::tool {
namespace {

using Imports = std::vector<Import>;
using Kind = Token::Kind;

/// Words with dots between, and before them; the token behind is the current one afterwards.
std::string dotted(SourceTokens& tokens, Token& token) {
  std::string name;
  for (; token.kind == Kind::Word || token.is('.'); token = tokens.next()) {
    if (token.kind == Kind::Word && !name.empty() && name.back() != '.') break;
    name += token.text;
  }
  return name;
}

// Python -----------------------------------------------------------------------------------------

/// "import a.b as c, d".
void python_import(SourceTokens& tokens, Token& token, Imports& imports) {
  const int line = token.line;
  do {
    token = tokens.next();
    imports.push_back({dotted(tokens, token), {}, line, false});
    while (token.kind == Kind::Word) token = tokens.next();  // as c
  } while (token.is(','));
}

/// "from ..a import b as c, d", the names in brackets or not.
void python_from(SourceTokens& tokens, Token& token, Imports& imports) {
  const int line = token.line;
  token = tokens.next();
  const std::string module = [&] {
    std::string name;
    for (; token.is('.') || (token.kind == Kind::Word && !token.is("import"));
         token = tokens.next())
      name += token.text;
    return name;
  }();
  if (!token.is("import") || module.empty()) return;
  do {
    token = tokens.next();
    if (token.is('(')) token = tokens.next();
    if (token.is(')')) break;
    imports.push_back(
        {module, token.kind == Kind::Word ? std::string(token.text) : "", line, false});
    token = tokens.next();
    while (token.kind == Kind::Word) token = tokens.next();  // as c
  } while (token.is(','));
}

void scan_python(std::string_view text, Imports& imports) {
  static constexpr TokenRules RULES{.line_comment = "#",
                                    .quotes = "'\"",
                                    .triple_quotes = true,
                                    .escapes_in_raw = true,
                                    .lines_matter = true};
  SourceTokens tokens(text, RULES);
  bool at_begin = true;
  for (Token token = tokens.next(); token.kind != Kind::End;) {
    if (at_begin && token.is("import"))
      python_import(tokens, token, imports);
    else if (at_begin && token.is("from"))
      python_from(tokens, token, imports);
    at_begin = token.kind == Kind::LineEnd || token.is(';') || token.is(':');
    token = tokens.next();
  }
}

// JavaScript and TypeScript ----------------------------------------------------------------------

/// A text behind "from" or "import", or in the brackets of import() or require().
void scan_javascript(std::string_view text, Imports& imports) {
  static constexpr TokenRules RULES{.line_comment = "//",
                                    .block_comments = true,
                                    .quotes = "'\"",
                                    .raw_quote = '`',
                                    .escapes_in_raw = true,
                                    .regexes = true};
  SourceTokens tokens(text, RULES);
  Token before, last;
  for (Token token = tokens.next(); token.kind != Kind::End; token = tokens.next()) {
    const bool is_call = last.is('(') && (before.is("require") || before.is("import"));
    if (token.kind == Kind::Text && (is_call || last.is("from") || last.is("import")))
      imports.push_back({std::string(token.text), {}, token.line, false});
    before = std::exchange(last, token);
  }
}

// Go ---------------------------------------------------------------------------------------------

/// `import "a/b"`, `import name "a/b"`, and several in brackets; nothing else comes before them.
void scan_go(std::string_view text, Imports& imports) {
  static constexpr TokenRules RULES{
      .line_comment = "//", .block_comments = true, .quotes = "\"'", .raw_quote = '`'};
  SourceTokens tokens(text, RULES);
  bool importing = false;
  for (Token token = tokens.next(); token.kind != Kind::End; token = tokens.next())
    if (token.is("import"))
      importing = true;
    else if (token.is("func") || token.is("type") || token.is("var") || token.is("const"))
      return;
    else if (importing && token.kind == Kind::Text)
      imports.push_back({std::string(token.text), {}, token.line, false});
}

// Rust -------------------------------------------------------------------------------------------

/// Deeper ones are no Rust that anybody writes.
constexpr int DEEPEST_TREE = 32;

/// The paths of a use tree: `a::{b, c::d as e}` is a::b and a::c::d. Ends behind the tree.
void rust_tree(SourceTokens& tokens, Token& token, const std::string& prefix, int line, int depth,
               Imports& imports) {
  std::string path = prefix;
  while (token.kind == Kind::Word || token.is(':') || token.is('*')) {
    if (token.is("as"))
      (void)tokens.next();  // the name
    else if (token.kind == Kind::Word)
      path += (path.empty() ? "" : "::") + std::string(token.text);
    token = tokens.next();
  }
  if (!token.is('{') || depth == DEEPEST_TREE) {
    if (!path.empty()) imports.push_back({path, {}, line, false});
    return;
  }
  do {
    token = tokens.next();
    rust_tree(tokens, token, path, line, depth + 1, imports);
  } while (token.is(','));
  if (token.is('}')) token = tokens.next();
}

/// In a module that is written inside of a file, `self` and `super` are not the file's: what it
/// takes from there is left out.
void scan_rust(std::string_view text, Imports& imports) {
  static constexpr TokenRules RULES{.line_comment = "//",
                                    .block_comments = true,
                                    .nested_comments = true,
                                    .quotes = "\"'",
                                    .lifetimes = true};
  SourceTokens tokens(text, RULES);
  int depth = 0;
  int inner_module = 0;  // the depth of the outermost one, if in any
  for (Token token = tokens.next(); token.kind != Kind::End;) {
    const int line = token.line;
    if (token.is("use")) {
      Imports used;
      token = tokens.next();
      rust_tree(tokens, token, "", line, 0, used);
      for (Import& import : used) {
        const bool is_near =
            import.module.starts_with("self") || import.module.starts_with("super");
        if (inner_module == 0 || !is_near) imports.push_back(std::move(import));
      }
      continue;
    }
    if (token.is("mod")) {
      const Token name = tokens.next();
      token = tokens.next();
      if (name.kind == Kind::Word && token.is(';') && inner_module == 0)
        imports.push_back({"self::" + std::string(name.text), "mod", line, false});
      if (token.is('{') && inner_module == 0) inner_module = depth + 1;
    }
    if (token.is('{')) ++depth;
    if (token.is('}') && depth-- == inner_module) inner_module = 0;
    token = tokens.next();
  }
}

// Java -------------------------------------------------------------------------------------------

void scan_java(std::string_view text, Imports& imports) {
  static constexpr TokenRules RULES{
      .line_comment = "//", .block_comments = true, .quotes = "\"'", .triple_quotes = true};
  SourceTokens tokens(text, RULES);
  for (Token token = tokens.next(); token.kind != Kind::End && !token.is('{');) {
    const int line = token.line;
    if (!token.is("import")) {
      token = tokens.next();
      continue;
    }
    token = tokens.next();
    if (token.is("static")) token = tokens.next();
    std::string name = dotted(tokens, token);
    if (token.is('*')) name += '*';
    if (!name.empty()) imports.push_back({std::move(name), {}, line, false});
  }
}

}  // namespace

bool scan_imports(std::string_view path, std::string_view text, std::vector<Import>& imports) {
  using Scan = void (*)(std::string_view, Imports&);
  static constexpr std::pair<std::string_view, Scan> SCANS[] = {
      {".py", scan_python},      {".pyi", scan_python},     {".js", scan_javascript},
      {".jsx", scan_javascript}, {".mjs", scan_javascript}, {".cjs", scan_javascript},
      {".ts", scan_javascript},  {".tsx", scan_javascript}, {".mts", scan_javascript},
      {".cts", scan_javascript}, {".go", scan_go},          {".rs", scan_rust},
      {".java", scan_java}};
  const std::string_view extension = extension_of(path);
  for (const auto& [name, scan] : SCANS) {
    if (name != extension) continue;
    scan(text, imports);
    return true;
  }
  return false;
}

}  // namespace veldra::tool

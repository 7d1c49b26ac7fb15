// The tool's manual page and shell completions, generated from its command-line definition
// so that they always name the commands and options the tool really has
// (`tessel --generate man|bash-completion|zsh-completion`; make install puts them in place).
#pragma once

#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace Tessel::Tool {

// tessel(1) in roff (man -l tessel.1 shows it).
std::string ManPage(const CLI::App& app, std::string_view version);
// A bash completion script: `source` it, or install it as bash-completion/completions/tessel.
std::string BashCompletion(const CLI::App& app);
// A zsh completion function: install it as _tessel in a folder of $fpath.
std::string ZshCompletion(const CLI::App& app);

}  // namespace Tessel::Tool

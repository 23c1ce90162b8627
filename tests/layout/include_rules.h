#ifndef TAV_TESTS_LAYOUT_INCLUDE_RULES_H
#define TAV_TESTS_LAYOUT_INCLUDE_RULES_H

#include <set>
#include <string>
#include <vector>

/// The rule of what may include what, held against sources as text.
namespace layout {

struct File {
    /// From the root of the tree, such as "src/log/vinta_log.cpp".
    std::string path;
    std::string text;
};

/// One line for each include that breaks a rule: "src/log/vinta_log.cpp:7: log may not include model".
std::vector<std::string> brokenRules(std::vector<File> const & files);

/// The headers of include/tav/vinta that an include of `header` does not bring, by the names they are
/// included by.
std::set<std::string> unreachedFrom(std::string const & header, std::vector<File> const & files);

/// The C and C++ files of the tree at `root` that the rules speak of, and all else that lies among the
/// library's.
std::vector<File> readTree(std::string const & root);

} // namespace layout

#endif

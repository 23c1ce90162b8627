#ifndef TAV_TESTS_DOCS_SAID_TEXTS_H
#define TAV_TESTS_DOCS_SAID_TEXTS_H

#include <string>
#include <vector>

/// The texts by which the library tells of trouble, as its sources have them.
namespace said {

/// A piece of text between what is put in at run time.
struct Text {
    std::string file; ///< From the project's folder.
    int line;
    std::string text; ///< Without blanks around it.
};

/// The texts in one source: of log calls at WARN and ERROR, of what is thrown or raised, of what goes to the
/// standard output, and all of a file that does nothing else than name failures.  A piece of fewer than four
/// letters says nothing and is left out.
std::vector<Text> textsIn(std::string const & file, std::string const & source);

/// The texts in one source of the Python package: of what is raised, warned of or logged, and of the answers
/// that it makes itself.
std::vector<Text> textsInPython(std::string const & file, std::string const & source);

/// The same of all sources, bindings and public headers under `project`.
std::vector<Text> textsOf(std::string const & project);

/// The module that a file belongs to: its folder below src/, "bindings/c", "bindings/python", or "kit"; empty
/// for other headers.
std::string moduleOf(std::string const & file);

} // namespace said

#endif

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

/// Which log lines count: those at WARN and ERROR, or every one.
enum class Levels { bad, all };

/// The texts in one source: of log calls at `levels`, of what is thrown or raised, of what goes to the
/// standard output, and all of a file that does nothing else than name failures.  A piece of fewer than four
/// letters says nothing and is left out.
std::vector<Text> textsIn(std::string const & file, std::string const & source, Levels levels = Levels::bad);

/// The texts in one source of the Python package: of what is raised, warned of or logged, and of the answers
/// that it makes itself.
std::vector<Text> textsInPython(std::string const & file, std::string const & source);

/// All texts of a source of C++, pieces that stand behind each other put together, to look for one in.
std::string literalsIn(std::string const & source);

/// What the first two give of all sources, bindings and public headers under `project`.
std::vector<Text> textsOf(std::string const & project, Levels levels = Levels::bad);

/// The same of some of the project's folders.
std::vector<Text> textsUnder(std::string const & project, std::vector<std::string> const & folders,
                             Levels levels);

/// The module that a file belongs to: its folder below src/, "bindings/c", "bindings/python", or "kit"; empty
/// for other headers.
std::string moduleOf(std::string const & file);

} // namespace said

#endif

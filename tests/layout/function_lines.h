#ifndef TAV_TESTS_LAYOUT_FUNCTION_LINES_H
#define TAV_TESTS_LAYOUT_FUNCTION_LINES_H

#include <string>
#include <vector>

/// How long the functions of a source are, as text.
namespace layout {

struct Function {
    /// Of the brace that opens its body.
    unsigned line;
    /// Between the lines of its braces.
    unsigned length;
};

/// The functions of a C or C++ source, in their order; a function within another counts as a part of it.
std::vector<Function> functionsOf(std::string const & source);

} // namespace layout

#endif

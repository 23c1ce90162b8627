#ifndef TAV_TESTS_SUPPORT_PRINTED_H
#define TAV_TESTS_SUPPORT_PRINTED_H

#include <sstream>
#include <string>

namespace tav_test {

/// What `v` prints.
template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

} // namespace tav_test

#endif

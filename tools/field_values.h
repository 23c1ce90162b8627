#ifndef TAV_TOOLS_FIELD_VALUES_H
#define TAV_TOOLS_FIELD_VALUES_H

#include "tools/templates.h"

#include <string>

namespace tav {
namespace tool {

/// A simple value of a field or of the elements of one: its kind, and the field that says which are
/// permitted.
struct ValueType {
    Kind kind = pml::field_type::unknown_;
    pml::MetaField const * field = nullptr;
    pml::MetaEnum const * names = nullptr;
};

/// Whether every value that `writer` takes is read by `reader` as the same, and permitted there.  It is found
/// out by writing and reading values from the ends of what the types hold; `why` gets one that fails.
bool isCarried(ValueType const & writer, ValueType const & reader, std::string & why);

} // namespace tool
} // namespace tav

#endif

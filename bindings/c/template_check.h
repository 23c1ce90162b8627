#ifndef TAV_BINDINGS_C_TEMPLATE_CHECK_H
#define TAV_BINDINGS_C_TEMPLATE_CHECK_H

#include "tav/vinta/vinta_pml_meta.h"

#include <string>
#include <string_view>

/// Templates of which a part would do nothing, or something else than it says.
namespace tav {
namespace json_client {

/// The class that a name means within another one; null if there is none.
pml::MetaClass const * classNamed(tavString const & name, pml::MetaClass const & within,
                                  pml::MetaFactory const & factory);

/// Throws Failure "bad_template" with `member` as its field, whose text names the class and the field.  The
/// library reads such a template in silence, and drops or loses what is wrong with it.  `first` is the unit
/// that the factory was read from.
void checkTemplate(pml::MetaFactory const & factory, pml::Unit const & first, std::string_view text,
                   std::string const & member);

} // namespace json_client
} // namespace tav

#endif

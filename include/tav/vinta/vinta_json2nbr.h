#ifndef TAV_VINTA_JSON2NBR_H
#define TAV_VINTA_JSON2NBR_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_pml_meta.h"

/// JSON text to NBR bytes and back, for messages that have no compiled class: a meta factory says which
/// member is which tag and of which kind.
///
/// All functions are reentrant and share nothing but the factory, which they only read.  None keeps a view of
/// its arguments.  Nesting costs heap memory and no stack, however deep the input goes.
///
/// A member that the class does not have is told at INFO under the tag "JSON2NBR" and dropped, on writing
/// without a word if its name begins with two underscores.  All failures throw std::invalid_argument, after a
/// line "<EXCEPTION> ..." at ERROR, and leave the output argument as it was.
namespace tav {
namespace json2nbr {

/// Writes the object `json` as an NBR document into `out`, whose old bytes are dropped.
///
/// The class is that of the message code, if one is given, else that of the name.  `code` carries the
/// caller's code in (0xFFFF: none) and the message's code out.  A member "__code__" (number or text, "0x..."
/// for hexadecimal) takes the place of `code`, a member "__class__" that of `className`, which may be empty;
/// with neither code the class's own one is given out.
///
/// Members go to the wire in the order of their names.  Every necessary field of the class must be there, a
/// null counts as there.  An empty `json` changes nothing.  Fails on text that is not JSON, on an unknown
/// class or code, on a value that its field does not take, and on missing fields; `code` may have changed by
/// then.
TAV_API void write(tav_istr json, tavBytes & out, unsigned short & code,
                   tav::pml::MetaFactory const & factory, tav_istr className);

/// Reads the NBR document `nbr`, an object of the class `className`, into `json` as one line of text.
///
/// An unknown class gives the text "null".  With `dump` the text is one for logs and not JSON: names carry
/// their tags, protected texts and bytes are masked, the class name stands ahead of the object behind an '@',
/// and missing fields are no failure.  An empty `nbr` changes nothing.  Fails on bytes that are not NBR and,
/// without `dump`, on missing necessary fields.
TAV_API void read(tavString & json, tav_istr nbr, tavString className, tav::pml::MetaFactory const & factory,
                  bool dump);

/// The same for the class that the factory has under a message code.
TAV_API void read(tavString & json, tav_istr nbr, unsigned short code, tav::pml::MetaFactory const & factory,
                  bool dump);

} // namespace json2nbr
} // namespace tav

#endif

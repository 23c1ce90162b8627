#ifndef TAV_FORMATS_NBR_NBR_ELEMENTS_H
#define TAV_FORMATS_NBR_NBR_ELEMENTS_H

#include "tav/vinta/vinta_basetypes_codec.h"

class tavNbrInStream;

/// The elements of lists, read past the virtual operations.  Internal.
namespace tav {
namespace nbr {
namespace detail {

/// The elements of one list and the one stream through which they are read.
struct Elements {
    /// Null if they have to be asked for by getInputChildren.
    tavNbrInStream * stream;
    /// The place of the first one.
    unsigned first;
    unsigned count;
};

/// Opens the list that `list` stands on, if that is a tavNbrInStream itself, and not of a class derived from
/// it, and has its values in a document.
Elements openElements(tavCodecStream & list);

/// Sets the stream on the element at this place, and gives the place of the one behind it.
unsigned nextElement(tavNbrInStream & stream, unsigned place);

/// Of several open lists of one document the last one is closed first.
void closeElements(tavNbrInStream & stream) noexcept;

} // namespace detail
} // namespace nbr
} // namespace tav

#endif

#ifndef TAV_MODEL_JSON2NBR_STAGE_H
#define TAV_MODEL_JSON2NBR_STAGE_H

#include "tav/vinta/vinta_json2nbr.h"

#include <string>

/// The transcoder as the library's own code calls it.  Internal.
namespace tav {
namespace json2nbr {

/// What a write is about.  A failure belongs to the stage that was reached.
enum class WriteStage {
    text,          ///< Reading the JSON.
    message_class, ///< Finding the class.
    members,       ///< Writing the values of its fields.
    necessary      ///< Looking for fields that are missing.
};

/// As `write`, and tells its stage in `stage`, also when it throws.
void write(tav_istr json, tavBytes & out, unsigned short & code, tav::pml::MetaFactory const & factory,
           tav_istr className, WriteStage & stage);

/// As `read`, without a copy of the text.
void read(std::string & json, tav_istr nbr, unsigned short code, tav::pml::MetaFactory const & factory,
          bool dump);

/// Tells the log what a `read` for it tells of these bytes, and throws what that throws, but makes no text.
/// False if no class has the code.
bool check(tav_istr nbr, unsigned short code, tav::pml::MetaFactory const & factory);

} // namespace json2nbr
} // namespace tav

#endif

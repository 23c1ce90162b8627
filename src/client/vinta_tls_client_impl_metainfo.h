#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_METAINFO_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_METAINFO_H

#include "foundation/build_stamp.h"
#include "model/json2nbr_stage.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_pml_meta.h"
#include "tav/vinta/vinta_pml_tree.h"

#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What a client knows of message classes at run time: the model that its meta template describes.
/// Thread safety: all operations; the model is only read once it stands.
class metainfo : public tavCodecInterface {
public:
    /// Reads a template; an empty one describes nothing.  Throws std::invalid_argument on text that is no
    /// PML.
    explicit metainfo(std::string text);
    metainfo(metainfo const &) = delete;
    metainfo & operator=(metainfo const &) = delete;

    /// Describes the model; an input stream changes nothing.
    void io(tavCodecStream & s) override;

    /// True if a class has the code.
    bool describes(unsigned short msgcode) const;
    /// Empty if no class has the code.
    tavString find_class_by_code(unsigned short msgcode) const;
    /// 0xffff if there is no such class, or it has no code.
    unsigned short find_code_by_class(tav_istr name) const;

    /// The NBR document `body` of the message `msgcode` as JSON, or as text for the log, with protected
    /// values masked.  "null" if the code is not known, an empty text for an empty body.  Throws
    /// std::invalid_argument on bytes that are not NBR, and, if it is not for the log, on a body that lacks a
    /// necessary field.
    std::string message_to_json(tav_istr body, unsigned short msgcode, bool for_log) const;
    /// Tells the log what making its text tells of the body, and throws what that throws, without a text.
    /// False if the code is not known.
    bool check_message(tav_istr body, unsigned short msgcode) const;
    /// The JSON object as an NBR document.  `msgcode` is the code to use, 0xffff for that of the class, and
    /// becomes the message's code.  Throws std::invalid_argument, and then leaves `body` as it was; an empty
    /// text leaves both.
    void json_to_message(tav_istr json, tavBytes & body, unsigned short & msgcode, tav_istr class_name) const;
    /// The same, and tells how far it came, also when it throws.
    void json_to_message(tav_istr json, tavBytes & body, unsigned short & msgcode, tav_istr class_name,
                         json2nbr::WriteStage & stage) const;

private:
    /// What the stream views.
    std::string text_;
    pml::PmlInputStream stream_;
    pml::MetaFactory factory_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif

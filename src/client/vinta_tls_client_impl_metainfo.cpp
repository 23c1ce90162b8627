#include "client/vinta_tls_client_impl_metainfo.h"

#include "client/no_message.h"
#include "foundation/number_text.h"
#include "tav/vinta/vinta_json2nbr.h"
#include "tav/vinta/vinta_object.h"

#include <string_view>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

metainfo::metainfo(std::string text) : text_(std::move(text)), stream_(tav_istr(text_)), factory_(stream_) {}

void metainfo::io(tavCodecStream & s) {
    s.enter("metainfo", tav_istr());
    // A copy, since a stream that reads would change the model under those who use it.
    pml::MetaFactory copy(factory_);
    ioField(s, 1, "factory", copy);
    s.leave();
}

bool metainfo::describes(unsigned short msgcode) const {
    return factory_.findClass(msgcode) != nullptr;
}

tavString metainfo::find_class_by_code(unsigned short msgcode) const {
    return factory_.findClassName(msgcode);
}

unsigned short metainfo::find_code_by_class(tav_istr name) const {
    pml::MetaClass const * const found = factory_.findClass(name);
    if (!found || found->code.empty()) {
        return no_code;
    }
    tav_istr const code(found->code);
    return detail::readHexCode(std::string_view(code.data(), code.size()));
}

std::string metainfo::message_to_json(tav_istr body, unsigned short msgcode, bool for_log) const {
    std::string json;
    json2nbr::read(json, body, msgcode, factory_, for_log);
    return json;
}

bool metainfo::check_message(tav_istr body, unsigned short msgcode) const {
    return json2nbr::check(body, msgcode, factory_);
}

void metainfo::json_to_message(tav_istr json, tavBytes & body, unsigned short & msgcode,
                               tav_istr class_name) const {
    json2nbr::WriteStage stage;
    json_to_message(json, body, msgcode, class_name, stage);
}

void metainfo::json_to_message(tav_istr json, tavBytes & body, unsigned short & msgcode, tav_istr class_name,
                               json2nbr::WriteStage & stage) const {
    json2nbr::write(json, body, msgcode, factory_, class_name, stage);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav

#include "tools/json_messages.h"

#include "tools/integers.h"
#include "tools/json_judge.h"
#include "tools/json_stream.h"

#include <tav/vinta/vinta_json2nbr.h>

#include <stdexcept>

namespace tav {
namespace tool {

using pml::MetaClass;

unsigned short codeOf(MetaClass const & cls) {
    unsigned short code = 0;
    return readCode(viewOf(tav_istr(cls.code)), code) ? code : Message::noCode;
}

JsonMessages::JsonMessages(Template const & model)
    : model_(model), writing_(writingFactory(*model.factory)) {}

void JsonMessages::write(JsonText const & json, JsonNode const & object, MetaClass const * cls,
                         Message & message) const {
    std::string const name = cls != nullptr ? stringOf(cls->className) : std::string();
    message.cls = classOf(json, object, cls, message.code);
    std::string_view const body = json.text().substr(object.begin, object.end - object.begin);
    JudgedJson judged;
    judged.text = std::string(body);
    if (message.cls != nullptr) {
        judged = judgeJson(json, object, *message.cls, *model_.factory);
    }
    message.notes = std::move(judged.notes);
    bool const coded = message.code != Message::noCode || json.member(object, "__code__") != nullptr;
    try {
        json2nbr::write(istrOf(judged.text), message.nbr, message.code, writing_, istrOf(name));
    } catch (std::invalid_argument const & e) {
        std::string const reason = reasonOf(e);
        throw PlacedFault(object.begin + placeOfFailure(body, reason), reason);
    }
    message.code = coded ? message.code : codeOf(*message.cls);
}

MetaClass const * JsonMessages::classOf(JsonText const & json, JsonNode const & object, MetaClass const * cls,
                                        unsigned short code) const {
    JsonNode const * const givenCode = json.member(object, "__code__");
    if (givenCode != nullptr &&
        (givenCode->kind == JsonNode::Kind::number || givenCode->kind == JsonNode::Kind::string)) {
        Integer number;
        std::string const text(json.content(*givenCode));
        if (!readInteger(text, number) || number.negative || number.magnitude > Message::noCode) {
            throw PlacedFault(givenCode->begin, "there is no code " + text);
        }
        code = static_cast<unsigned short>(number.magnitude);
    }
    if (code != Message::noCode) {
        return model_.factory->findClass(code);
    }
    JsonNode const * const givenName = json.member(object, "__class__");
    if (givenName != nullptr && givenName->kind == JsonNode::Kind::string) {
        return model_.factory->findClass(istrOf(unescaped(json.content(*givenName))));
    }
    return cls;
}

} // namespace tool
} // namespace tav

#include "tools/json_judge.h"

#include "tools/integers.h"

#include <algorithm>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;

namespace kinds = pml::field_type;

namespace {

typedef JsonNode::Kind NodeKind;

char const * nameOf(NodeKind kind) {
    static char const * const names[] = {"null", "boolean", "number", "string", "array", "object"};
    return names[static_cast<std::size_t>(kind)];
}

bool isFloating(Kind kind) {
    return kind == kinds::float_ || kind == kinds::double_;
}

void keysWithoutSign(MetaClass & outermost) {
    std::vector<MetaClass *> open = {&outermost};
    while (!open.empty()) {
        MetaClass & cls = *open.back();
        open.pop_back();
        for (MetaField & field : cls.fields) {
            for (tavEnum<Kind> * const kind : {&field.classType.type, &field.classType.elementType}) {
                if (*kind == kinds::time_) {
                    *kind = kinds::int64_;
                }
            }
            if (field.classType.keyType == kinds::int64_) {
                field.classType.keyType = kinds::uint64_;
            }
        }
        for (MetaClass & nested : cls.classes) {
            open.push_back(&nested);
        }
    }
}

class Judge {
public:
    Judge(JsonText const & json, MetaFactory const & factory) : json_(json), factory_(factory) {}

    JudgedJson judge(JsonNode const & object, MetaClass const & cls) {
        copied_ = object.begin;
        openMembers(object, cls);
        while (!open_.empty()) {
            step();
        }
        result_.text += json_.text().substr(copied_, object.end - copied_);
        return std::move(result_);
    }

private:
    struct Open {
        std::size_t next;
        MetaClass const * cls;
        /// Of a list or map; null of an object.
        MetaField const * field;
    };

    void step();
    void openMembers(JsonNode const & object, MetaClass const & cls);
    void tellTwice(JsonNode const & object);
    void member(JsonNode const & node, MetaClass const & cls);
    void value(JsonNode const & node, MetaClass const & cls, MetaField const & field, Kind kind);
    void openObject(JsonNode const & node, MetaClass const & cls, MetaField const & field);
    void simple(JsonNode const & node, MetaField const & field, Kind kind);
    void boolean(JsonNode const & node, Kind kind);
    void number(JsonNode const & node, Kind kind);
    void string(JsonNode const & node, MetaField const & field, Kind kind);
    void integer(JsonNode const & node, std::string const & text, Kind kind);
    void key(JsonNode const & node, MetaField const & field);
    std::string nameOfMember(JsonNode const & node) const;
    /// Where a name begins, behind its quote.
    std::size_t contentOfName(JsonNode const & node) const {
        char const first = json_.text()[node.nameAt];
        return node.nameAt + (first == '"' || first == '\'' ? 1 : 0);
    }

    [[noreturn]] void fail(JsonNode const & node, std::string const & what) const {
        throw PlacedFault(node.begin, where_ + what);
    }
    [[noreturn]] void wrongKind(JsonNode const & node, Kind kind) const {
        fail(node, std::string("should not be json ") + nameOf(node.kind) + " type, expected type " +
                       kindName(kind));
    }
    void note(std::size_t offset, std::string const & text) { result_.notes.push_back(Note{offset, text}); }
    /// Puts `by` in the place of a piece of the text.
    void replace(std::size_t begin, std::size_t end, std::string const & by) {
        result_.text += json_.text().substr(copied_, begin - copied_);
        result_.text += by;
        copied_ = end;
    }
    /// Texts that have such an escape are written with the characters themselves.
    void replaceEscapes(std::size_t begin, std::size_t end);

    JsonText const & json_;
    MetaFactory const & factory_;
    std::vector<Open> open_;
    JudgedJson result_;
    std::size_t copied_ = 0;
    std::string where_;
};

std::string unescapedAt(std::string_view text, std::size_t begin, std::size_t end) {
    try {
        return unescaped(text.substr(begin, end - begin));
    } catch (PlacedFault const & fault) {
        throw PlacedFault(begin + fault.offset(), fault.what());
    }
}

void Judge::replaceEscapes(std::size_t begin, std::size_t end) {
    if (json_.text().substr(begin, end - begin).find('\\') == std::string_view::npos) {
        return;
    }
    std::string by;
    for (char const c : unescapedAt(json_.text(), begin, end)) {
        by += c == '"' || c == '\'' || c == '\\' ? "\\" : "";
        by += c;
    }
    replace(begin, end, by);
}

void Judge::openMembers(JsonNode const & object, MetaClass const & cls) {
    tellTwice(object);
    open_.push_back(Open{object.firstChild, &cls, nullptr});
}

/// Of members of one name the last one stands.
void Judge::tellTwice(JsonNode const & object) {
    std::vector<JsonNode const *> members;
    for (JsonNode const * at = json_.node(object.firstChild); at != nullptr; at = json_.node(at->next)) {
        members.push_back(at);
    }
    std::stable_sort(members.begin(), members.end(),
                     [](JsonNode const * a, JsonNode const * b) { return a->name < b->name; });
    for (std::size_t i = 1; i < members.size(); ++i) {
        if (members[i - 1]->name == members[i]->name) {
            note(members[i - 1]->nameAt, "the member " + std::string(members[i]->name) +
                                             " is given again, and the last one stands: it is dropped");
        }
    }
}

void Judge::step() {
    Open & at = open_.back();
    JsonNode const * const node = json_.node(at.next);
    if (node == nullptr) {
        open_.pop_back();
        return;
    }
    at.next = node->next;
    if (at.field == nullptr) {
        member(*node, *at.cls);
        return;
    }
    bool const isMap = at.field->classType.type == kinds::map_;
    if (isMap) {
        key(*node, *at.field);
    } else if (node->kind == NodeKind::null) {
        note(node->begin, "a null in the list " + stringOf(at.field->idName.name) + ": it is dropped");
    }
    value(*node, *at.cls, *at.field, at.field->classType.elementType);
}

std::string Judge::nameOfMember(JsonNode const & node) const {
    std::size_t const begin = contentOfName(node);
    return unescapedAt(json_.text(), begin, begin + node.name.size());
}

void Judge::member(JsonNode const & node, MetaClass const & cls) {
    std::string const name = nameOfMember(node);
    replaceEscapes(contentOfName(node), contentOfName(node) + node.name.size());
    MetaField const * const field = findField(istrOf(name), cls, factory_);
    if (field != nullptr) {
        value(node, cls, *field, field->classType.type);
    } else if (name.compare(0, 2, "__") != 0) {
        note(node.nameAt, "not found field name [" + std::string(node.name) + "] in class " +
                              stringOf(cls.className) + ": it is dropped");
    }
}

void Judge::key(JsonNode const & node, MetaField const & field) {
    std::size_t const begin = contentOfName(node);
    Kind const kind = field.classType.keyType;
    where_ = "field " + stringOf(field.idName.name) + " ";
    if (kind != kinds::int64_ && kind != kinds::uint64_) {
        replaceEscapes(begin, begin + node.name.size());
        return;
    }
    std::string const name = nameOfMember(node);
    Integer number;
    if (!readInteger(name, number) || !holds(kind, number)) {
        throw PlacedFault(node.nameAt, where_ + "has the key " + name + ", which is no " + kindName(kind));
    }
    replace(begin, begin + node.name.size(), std::to_string(number.bits()));
}

void Judge::value(JsonNode const & node, MetaClass const & cls, MetaField const & field, Kind kind) {
    where_ = "field " + stringOf(field.idName.name) + " in class " + stringOf(cls.className) + " ";
    if (node.kind == NodeKind::null) {
        return;
    }
    if (kind == kinds::list_ || kind == kinds::map_) {
        if (node.kind != (kind == kinds::list_ ? NodeKind::array : NodeKind::object)) {
            wrongKind(node, kind);
        }
        if (kind == kinds::map_) {
            tellTwice(node);
        }
        open_.push_back(Open{node.firstChild, &cls, &field});
    } else if (kind == kinds::object_ || kind == kinds::ref_) {
        openObject(node, cls, field);
    } else {
        simple(node, field, kind);
    }
}

void Judge::openObject(JsonNode const & node, MetaClass const & cls, MetaField const & field) {
    if (node.kind != NodeKind::object) {
        wrongKind(node, kinds::object_);
    }
    MetaClass const * const of = findClass(field.classType.name, &cls, factory_);
    if (of == nullptr) {
        fail(node, "is of the class " + stringOf(field.classType.name) + ", which is not there");
    }
    openMembers(node, *of);
}

void Judge::simple(JsonNode const & node, MetaField const & field, Kind kind) {
    if (!kinds::isSimple(kind) && kind != kinds::enum_) {
        fail(node, "is a " + kindName(kind) + ", which can't be converted");
    }
    switch (node.kind) {
    case NodeKind::boolean: boolean(node, kind); break;
    case NodeKind::number: number(node, kind); break;
    case NodeKind::string: string(node, field, kind); break;
    default: wrongKind(node, kind);
    }
}

void Judge::boolean(JsonNode const & node, Kind kind) {
    if (kind > kinds::double_ || isFloating(kind)) {
        wrongKind(node, kind);
    }
}

void Judge::number(JsonNode const & node, Kind kind) {
    std::string const text(json_.content(node));
    if (isFloating(kind)) {
        if (!isFloatingText(text, kind)) {
            fail(node, "has the number " + text + ", which no " + kindName(kind) + " holds");
        }
    } else if (kind <= kinds::uint64_ || kind == kinds::time_ || kind == kinds::enum_) {
        integer(node, text, kind);
        if (kind == kinds::bool_) {
            // The transcoder takes any number for false.
            Integer number;
            readInteger(text, number);
            replace(node.begin, node.end, number.magnitude == 0 ? "false" : "true");
        }
    } else {
        wrongKind(node, kind);
    }
}

void Judge::integer(JsonNode const & node, std::string const & text, Kind kind) {
    Integer number;
    if (!readInteger(text, number)) {
        fail(node, "has the value " + text + ", which is no integer");
    }
    if (!holds(kind, number)) {
        fail(node, "has the value " + text + ", which no " + kindName(kind) + " holds");
    }
}

void Judge::string(JsonNode const & node, MetaField const &, Kind kind) {
    bool const isText = kind == kinds::string_ || kind == kinds::wstring_ || kind == kinds::u8string_;
    std::size_t const quote = node.quoted ? 1 : 0;
    if (isText) {
        replaceEscapes(node.begin + quote, node.end - quote);
        return;
    }
    std::string const text = unescapedAt(json_.text(), node.begin + quote, node.end - quote);
    if (kind == kinds::bytes_) {
        if (!isBase64(text)) {
            fail(node, "has a text that is no base64");
        }
        replaceEscapes(node.begin + quote, node.end - quote);
    } else if (kind == kinds::int64_ || kind == kinds::uint64_ || kind == kinds::time_) {
        bool const sign = !text.empty() && text.front() == '-';
        if (text.empty() || text.find_first_not_of("0123456789", sign ? 1 : 0) != std::string::npos) {
            fail(node, "not all digits for large integer " + text);
        }
        integer(node, text, kind);
        replace(node.begin, node.end, text);
    } else {
        wrongKind(node, kind);
    }
}

} // namespace

MetaFactory writingFactory(MetaFactory factory) {
    for (auto & entry : factory.classes) {
        keysWithoutSign(entry.second);
    }
    return factory;
}

JudgedJson judgeJson(JsonText const & json, JsonNode const & object, MetaClass const & cls,
                     MetaFactory const & factory) {
    return Judge(json, factory).judge(object, cls);
}

} // namespace tool
} // namespace tav

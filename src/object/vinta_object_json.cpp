#include "tav/vinta/vinta_object.h"

#include "foundation/number_text.h"
#include "foundation/report.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_json_parser.h"
#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_pml_field_types.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <typeinfo>

namespace {

namespace field_type = tav::pml::field_type;

using tav::detail::bytesOf;
using tav::detail::NumberText;
using tav::json::JsonUnit;

constexpr char const * checkName = "tavObject::checkFields";

bool isNumberOrBool(int type) {
    return type >= field_type::bool_ && type <= field_type::double_;
}

bool isText(int type) {
    return type >= field_type::string_ && type <= field_type::bytes_;
}

bool mayBeMissing(tavCodecMeta const & meta) {
    return meta.isOptional() || meta.type == field_type::optional_ || meta.type == field_type::list_ ||
           meta.type == field_type::ref_list_ || meta.type == field_type::map_;
}

/// Checks the JSON values of one object against the declarations of its fields.
class FieldCheck {
public:
    FieldCheck(tavObject const & object, tavFieldMeta const & field, JsonUnit const & unit)
        : object_(object), field_(field), unit_(unit) {}

    void run() const {
        int const type = field_.meta.type;
        if (unit_.booleanValue() != nullptr) {
            if (!isNumberOrBool(type)) {
                failType("boolean");
            }
        } else if (unit_.numberValue() != nullptr) {
            if (type == field_type::enum_) {
                checkEnum();
            } else if (isNumberOrBool(type) || type == field_type::time_) {
                checkNumber();
            } else {
                failType("number");
            }
        } else if (unit_.stringValue() != nullptr) {
            if (type == field_type::int64_ || type == field_type::uint64_) {
                checkDigits();
            } else if (!isText(type)) {
                failType("string");
            }
        }
    }

private:
    /// In 64 bits, so that a number does not pass for the value that its low bits are.
    void checkEnum() const {
        long long value = 0;
        unit_ >> value;
        bool const fits =
            value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
        if (!fits || field_.values.count(static_cast<int>(value)) == 0) {
            failValue("enum", NumberText(value).view());
        }
    }

    void checkNumber() const {
        if (field_.meta.rangeIsEmpty()) {
            return;
        }
        switch (field_.meta.type) {
        case field_type::float_:
        case field_type::double_: {
            double value = 0;
            unit_ >> value;
            checkRange(truncated(value), NumberText(value).view());
            break;
        }
        case field_type::uint64_: {
            unsigned long long value = 0;
            unit_ >> value;
            long long const low = static_cast<long long>(value);
            bool const negative = unit_.numberValue()->getValue().charAt(0) == '-';
            checkRange(low, (negative ? NumberText(low) : NumberText(value)).view());
            break;
        }
        default: {
            long long value = 0;
            unit_ >> value;
            checkRange(value, NumberText(value).view());
            break;
        }
        }
    }

    /// A large integer that came as a string: digits, and one sign ahead of them if the type has one.
    void checkDigits() const {
        std::string_view const text = bytesOf(unit_.stringValue()->getValue());
        bool const sign = field_.meta.type == field_type::int64_ && !text.empty() &&
                          (text.front() == '-' || text.front() == '+');
        std::string_view const digits = text.substr(sign ? 1 : 0);
        if (digits.empty() ||
            !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
            fail(" not all digits for large integer");
        }
        if (!field_.meta.rangeIsEmpty()) {
            // A number beyond 64 bits counts with its low ones.
            checkRange(static_cast<long long>(tav::detail::numberOfKey(tav::detail::viewOf(text))), text);
        }
    }

    void checkRange(long long value, std::string_view shown) const {
        if (!field_.meta.checkRange(value)) {
            failValue("number", shown);
        }
    }

    static long long truncated(double v) {
        constexpr double limit = 9223372036854775808.0;
        if (v >= limit) {
            return std::numeric_limits<long long>::max();
        }
        return v < -limit ? std::numeric_limits<long long>::min() : static_cast<long long>(v);
    }

    [[noreturn]] void failType(std::string_view json) const {
        field_type::Initializer const names;
        int const type = field_.meta.type;
        tav_istr const name = tav::detail::EnumRegistry::of(typeid(field_type::values)).name(type);
        std::string text(" should not be json ");
        text.append(json).append(" type, expected type ");
        if (name.data() != nullptr) {
            text.append(bytesOf(name));
        } else {
            tav::detail::appendNumber(text, type);
        }
        fail(text);
    }

    [[noreturn]] void failValue(std::string_view kind, std::string_view value) const {
        std::string text(" has invalid ");
        text.append(kind).append(" value ").append(value);
        text.append(", valid values ").append(bytesOf(field_.meta.spec));
        fail(text);
    }

    [[noreturn]] void fail(std::string_view what) const {
        std::string text("field ");
        text.append(bytesOf(field_.name)).append(" in class ").append(bytesOf(object_.className()));
        text.append(what);
        tav::detail::raise(tav::detail::here(checkName), text);
    }

    tavObject const & object_;
    tavFieldMeta const & field_;
    JsonUnit const & unit_;
};

} // namespace

tavString tavObject::encodeJson(bool skipNull) const {
    tavJsonOutStream s;
    const_cast<tavObject &>(*this).io(s);
    return s.str(false, skipNull);
}

void tavObject::decodeJson(tav_istr text) {
    tavJsonInStream s(text);
    io(s);
}

void tavObject::checkFields(tavCodecStream const & s) const {
    // The usual streams are told apart without a cast through the class tree.
    if (typeid(s) == typeid(tavNbrInStream) || s.isOutputStream()) {
        return;
    }
    auto const * const json = dynamic_cast<tavJsonInStream const *>(&s);
    if (json == nullptr) {
        return;
    }
    tavCollectMetaStream collected;
    const_cast<tavObject &>(*this).io(collected);
    std::string missing;
    for (tavFieldMeta const & field : collected.fields()) {
        JsonUnit const & unit = json->field(field.name);
        if (!unit.isNull()) {
            FieldCheck(*this, field, unit).run();
        } else if (!mayBeMissing(field.meta)) {
            missing.append(1, ' ').append(bytesOf(field.name));
        }
    }
    if (!missing.empty()) {
        std::string text("missing necessary field name(s) {");
        text.append(missing).append(" } in class ").append(bytesOf(className()));
        tav::detail::raise(tav::detail::here(checkName), text);
    }
}

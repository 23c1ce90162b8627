#include "tools/template_hints.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <mutex>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// The number of single changes that make one name of the other.
std::size_t distance(std::string const & a, std::string const & b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            std::size_t const changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

template <class T>
IntegerEnds endsOfType() {
    return IntegerEnds{std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
}

} // namespace

std::string nearestName(std::string const & name, std::vector<std::string> const & candidates,
                        std::size_t most) {
    constexpr std::size_t longest = 200;
    std::string nearest;
    std::size_t best = most + 1;
    for (std::string const & other : candidates) {
        std::size_t const d = other.size() > longest || name.size() > longest ? best : distance(name, other);
        if (d < best) {
            best = d;
            nearest = other;
        }
    }
    return nearest;
}

std::string didYouMean(std::string const & nearest) {
    return nearest.empty() ? std::string() : "; did you mean " + nearest + "?";
}

std::vector<std::string> typeNames() {
    kinds::Initializer const registered;
    std::vector<std::string> names;
    for (auto const & kind : tavEnum<Kind>::numbers()) {
        names.emplace_back(viewOf(kind.first));
    }
    std::lock_guard<tavMutex> const guard(kinds::mtx());
    for (auto const & alias : kinds::aliases()) {
        names.push_back(stringOf(alias.first));
    }
    return names;
}

std::string lacksElement(std::string_view type) {
    if (type.size() > 2 && type.substr(type.size() - 2) == "{}") {
        type.remove_suffix(2);
    }
    return type == "list"       ? "a list names its elements: list{string}"
           : type == "map"      ? "a map names its keys and values: map{string,int32}"
           : type == "optional" ? "what is optional names its type: optional{int32}, or int32?"
           : type == "enum"     ? "an enum of a field has a name: enum{Name}"
           : type == "object"   ? "an object has its fields here, or the name of its class as type"
                                : "";
}

std::string withoutTag(std::string const & name) {
    std::string bare;
    std::copy_if(name.begin(), name.end(), std::back_inserter(bare), [](char c) { return c != '_'; });
    static std::vector<std::string> const directives = {"class", "code", "super", "import", "default"};
    bool const underscored = !name.empty() && (name.front() == '_' || name.back() == '_');
    std::string const meant = underscored ? nearestName(bare, directives, 1) : std::string();
    if (!meant.empty()) {
        return "the field " + name + " has no tag; did you mean __" + meant + "__?";
    }
    auto const first = static_cast<unsigned char>(name.empty() ? ' ' : name.front());
    bool const isName = std::isalpha(first) != 0 || first == '_' || first >= 0x80;
    if (!isName || name.find('[') != std::string::npos) {
        return "\"" + name +
               "\" is no name of a field: what stands between fields is a part of the next name, " +
               "and comments are (* these *)";
    }
    return "the field " + name + " has no tag: [1]" + name;
}

bool isNoMask(std::string_view value) {
    if (value.substr(0, 1) == "{" && value.find('*') != std::string_view::npos &&
        value.find_first_not_of("{}*. ") == std::string_view::npos) {
        return true;
    }
    // Behind a default {***} is a comment.
    for (std::size_t open = 0; (open = value.find('{', open)) != std::string_view::npos; ++open) {
        std::size_t const close = std::min(value.find('}', open), value.size());
        std::string_view const within = value.substr(open + 1, close - open - 1);
        if (within.find('*') != std::string_view::npos &&
            within.find_first_not_of("*.") == std::string_view::npos) {
            return true;
        }
    }
    return false;
}

std::optional<IntegerEnds> endsOf(Kind kind) {
    switch (kind) {
    case kinds::int8_: return endsOfType<signed char>();
    case kinds::int16_: return endsOfType<short>();
    case kinds::int32_: return endsOfType<int>();
    case kinds::uint8_: return endsOfType<unsigned char>();
    case kinds::uint16_: return endsOfType<unsigned short>();
    case kinds::uint32_: return endsOfType<unsigned>();
    default: return std::nullopt;
    }
}

bool isBeyondRanges(std::string_view number) {
    std::string const text(number);
    char * end = nullptr;
    errno = 0;
    std::strtoll(text.c_str(), &end, 10);
    return errno == ERANGE && end == text.c_str() + text.size();
}

} // namespace tool
} // namespace tav

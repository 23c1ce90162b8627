#include "tools/xml_check.h"

#include "tools/failure.h"
#include "tools/utf8.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tav {
namespace tool {

namespace {

constexpr std::string_view blanks = " \t\r\n";

class XmlCheck {
public:
    explicit XmlCheck(std::string_view text) : text_(text) {}

    void check() {
        checkCharacters();
        while (at_ < text_.size()) {
            if (text_[at_] == '<') {
                tag();
            } else if (text_[at_] == '&') {
                entity();
            } else {
                ++at_;
            }
        }
        if (!open_.empty()) {
            throw PlacedFault(open_.back().at,
                              "the element " + std::string(open_.back().name) + " does not end");
        }
    }

private:
    struct Element {
        std::string_view name;
        std::size_t at;
    };

    void checkCharacters() const {
        std::size_t at = 0;
        while (at < text_.size()) {
            auto const c = static_cast<unsigned char>(text_[at]);
            std::size_t const size = utf8Character(text_.substr(at));
            if (size == 0 || (c < 32 && blanks.find(text_[at]) == std::string_view::npos)) {
                throw PlacedFault(at,
                                  size == 0 ? "what stands here is no UTF-8" : "XML has no such character");
            }
            at += size;
        }
    }

    /// What begins with `front` and goes up to `end`, if it is here; it is passed over.
    bool passes(std::string_view front, std::string_view end) {
        if (text_.substr(at_, front.size()) != front) {
            return false;
        }
        std::size_t const found = text_.find(end, at_ + front.size());
        if (found == std::string_view::npos) {
            throw PlacedFault(at_, "what begins here does not end: " + std::string(end) + " is missing");
        }
        at_ = found + end.size();
        return true;
    }

    void tag() {
        if (passes("<!--", "-->") || passes("<![CDATA[", "]]>") || passes("<?", "?>") || passes("<!", ">")) {
            return;
        }
        std::size_t const begin = at_;
        bool const closes = text_.substr(at_ + 1, 1) == "/";
        std::size_t const nameAt = begin + (closes ? 2 : 1);
        std::size_t const nameEnd = std::min(text_.find_first_of(" \t\r\n/<>", nameAt), text_.size());
        std::string_view const name = text_.substr(nameAt, nameEnd - nameAt);
        std::size_t const end = endOfTag(nameEnd, begin);
        if (name.empty()) {
            throw PlacedFault(begin, "the XML breaks off here");
        }
        if (closes) {
            close(name, begin);
        } else if (text_[end - 1] != '/') {
            open_.push_back(Element{name, begin});
        }
        at_ = end + 1;
    }

    std::size_t endOfTag(std::size_t at, std::size_t begin) const {
        char quote = '\0';
        for (; at < text_.size(); ++at) {
            char const c = text_[at];
            if (quote != '\0') {
                quote = c == quote ? '\0' : quote;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                return at;
            } else if (c == '<') {
                break;
            }
        }
        throw PlacedFault(at < text_.size() ? at : begin, "the XML breaks off here");
    }

    void close(std::string_view name, std::size_t at) {
        if (open_.empty() || open_.back().name != name) {
            throw PlacedFault(at, open_.empty() ? "no element is open that " + std::string(name) + " ends"
                                                : "the element " + std::string(open_.back().name) +
                                                      " is open, and " + std::string(name) + " ends");
        }
        open_.pop_back();
    }

    void entity() {
        static std::string_view const known[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
        for (std::string_view const one : known) {
            if (text_.substr(at_, one.size()) == one) {
                at_ += one.size();
                return;
            }
        }
        std::size_t const end = text_.find(';', at_);
        bool const number = text_.substr(at_, 2) == "&#" && end != std::string_view::npos && end - at_ < 12;
        if (!number) {
            throw PlacedFault(at_, "there is no such entity");
        }
        at_ = end + 1;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<Element> open_;
};

} // namespace

void checkXml(std::string_view text) {
    XmlCheck(text).check();
}

} // namespace tool
} // namespace tav

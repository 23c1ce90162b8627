#include "formats/json/json_tape.h"

#include "formats/json/json_scanner.h"
#include "foundation/views.h"

#include <algorithm>

namespace tav {
namespace detail {

namespace {

/// Room for the nodes of most texts of this size.
std::size_t usualNodes(std::size_t size) {
    return std::min<std::size_t>(size / 12 + 4, 0x10000);
}

} // namespace

class JsonTape::Builder {
public:
    Builder(JsonTape & tape, std::size_t size)
        : tape_(tape), nodes_(tape.nodes_), trusted_(size / 12 + 4096) {
        nodes_.reserve(usualNodes(size));
    }

    void open(bool object, JsonScanner::Piece const & name) {
        unsigned const around = open_;
        open_ = static_cast<unsigned>(nodes_.size());
        append(object ? JsonFieldObject : JsonFieldArray, name, std::string_view());
        nodes_[open_].next = around;
    }

    void string(JsonScanner::Piece const & name, JsonScanner::Piece const & text) {
        append(JsonFieldString, name, plain(text));
    }

    /// Of a null nothing is kept in an array.
    void token(JsonScanner::Piece const & name, std::string_view text) {
        if (text.empty() || text == "null") {
            if (nodes_[open_].type == JsonFieldObject) {
                append(JsonFieldNull, name, std::string_view());
            }
            return;
        }
        char const digit = text[0] == '-' && text.size() >= 2 ? text[1] : text[0];
        if (digit >= '0' && digit <= '9') {
            append(JsonFieldNumber, name, text);
        } else if (text == "true" || text == "false") {
            append(JsonFieldBoolean, name, text);
            nodes_.back().truth = text == "true";
        } else {
            append(JsonFieldString, name, text);
        }
    }

    bool close(bool & object) {
        Node & closed = nodes_[open_];
        open_ = closed.next;
        closed.next = static_cast<unsigned>(nodes_.size());
        if (open_ == none) {
            return false;
        }
        object = nodes_[open_].type == JsonFieldObject;
        return true;
    }

    bool outgrows() const { return nodes_.size() > trusted_; }
    void trust() { trusted_ = ~std::size_t(0); }

private:
    static constexpr unsigned none = 0xFFFFFFFFu;

    void append(JsonFieldType type, JsonScanner::Piece const & name, std::string_view text) {
        nodes_.push_back(Node{type, false, static_cast<unsigned>(nodes_.size()) + 1, plain(name), text});
    }

    std::string_view plain(JsonScanner::Piece const & piece) {
        if (!piece.raw || piece.text.size() < 2) {
            return piece.text;
        }
        tape_.unescaped_.emplace_front();
        appendUnescaped(tape_.unescaped_.front(), piece.text);
        return tape_.unescaped_.front();
    }

    JsonTape & tape_;
    std::vector<Node> & nodes_;
    /// The innermost container that is being read.
    unsigned open_ = none;
    /// As long as there are no more nodes than these, they may be those of a text that fails.
    std::size_t trusted_;
};

JsonTape::JsonTape(tav_istr json) {
    std::string_view const text = bytesOf(json);
    Builder builder(*this, text.size());
    if (JsonFault const fault = readJson(text, builder)) {
        std::vector<Node>().swap(nodes_);
        unescaped_.clear();
        raiseJsonFault(fault);
    }
}

} // namespace detail
} // namespace tav

#include "tools/tree_output.h"

#include "tools/terminal_text.h"

#include <algorithm>
#include <cstdio>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t bytesInLine = 8;
/// Deeper levels are not indented further, or a deep tree would need the square of its size.
constexpr std::size_t deepestIndent = 40;

std::string textOf(TreeLine const & line, Output const & output) {
    std::string text = output.in('b', forTerminal(line.name));
    if (!line.type.empty()) {
        text += (text.empty() ? "" : ": ") + output.in('c', forTerminal(line.type));
    }
    if (!line.value.empty()) {
        text += (line.type.empty() && !text.empty() ? ": "
                 : text.empty()                     ? ""
                                                    : " ") +
                forTerminal(line.value);
    }
    return line.note.empty() ? text : text + "  " + output.in('y', "(" + forTerminal(line.note) + ")");
}

} // namespace

std::string TextTree::place(std::size_t offset) {
    char text[32];
    std::snprintf(text, sizeof(text), "%04llx", base() + offset);
    return output().in('d', text) + "  ";
}

std::string TextTree::indent() const {
    return std::string(2 * std::min(depth_, deepestIndent), ' ');
}

void TextTree::putPiece(Piece const & piece, std::string const & text) {
    std::size_t const end = std::min(bytes().size(), piece.offset + piece.size);
    std::size_t at = std::min(piece.offset, end);
    bool first = true;
    do {
        std::size_t const n = std::min(bytesInLine, end - at);
        std::string hex = piece.hidden ? std::string() : hexText(bytes().substr(at, n));
        for (std::size_t i = 0; piece.hidden && i < n; ++i) {
            hex += i == 0 ? "**" : " **";
        }
        std::string line = place(at) + hex;
        if (first) {
            line += std::string(3 * bytesInLine + 1 - hex.size(), ' ') + indent() + text;
        }
        output().line(line);
        first = false;
        at += n;
    } while (at < end);
}

void TextTree::put(TreeLine const & line) {
    if (!annotated_ || line.pieces.empty()) {
        std::string const gap = annotated_ ? std::string(3 * bytesInLine + 1, ' ') : std::string();
        output().line(place(line.offset) + gap + indent() + textOf(line, output()));
        return;
    }
    for (std::size_t i = 0; i < line.pieces.size(); ++i) {
        bool const last = i + 1 == line.pieces.size();
        std::string text = forTerminal(line.pieces[i].text);
        if (last && !line.note.empty()) {
            text += "  " + output().in('y', "(" + forTerminal(line.note) + ")");
        }
        putPiece(line.pieces[i], text);
    }
}

void TextTree::leaf(TreeLine const & line) {
    put(line);
}

void TextTree::open(TreeLine const & line) {
    put(line);
    ++depth_;
}

void TextTree::close(Piece const & piece) {
    depth_ -= depth_ == 0 ? 0 : 1;
    if (annotated_ && piece.size != 0) {
        putPiece(piece, forTerminal(piece.text));
    }
}

void TextTree::fault(std::size_t offset, std::string const & text) {
    std::string const gap = annotated_ ? std::string(3 * bytesInLine + 1, ' ') : std::string();
    output().line(place(offset) + gap + indent() + output().in('r', "broken here: " + forTerminal(text)));
    depth_ = 0;
}

void JsonTree::put(TreeLine const & line) {
    std::string text;
    if (!filled_.empty()) {
        text = filled_.back() ? "," : "";
        filled_.back() = true;
    }
    text += "{\"offset\":" + std::to_string(base() + line.offset);
    for (auto const & part : {std::make_pair("name", &line.name), std::make_pair("type", &line.type),
                              std::make_pair("value", &line.value), std::make_pair("note", &line.note)}) {
        if (!part.second->empty()) {
            text += std::string(",\"") + part.first + "\":" + jsonText(*part.second);
        }
    }
    output().write(text);
}

void JsonTree::leaf(TreeLine const & line) {
    put(line);
    output().write(filled_.empty() ? "}\n" : "}");
}

void JsonTree::open(TreeLine const & line) {
    put(line);
    output().write(",\"children\":[");
    filled_.push_back(false);
}

void JsonTree::close(Piece const &) {
    if (filled_.empty()) {
        return;
    }
    filled_.pop_back();
    output().write(filled_.empty() ? "]}\n" : "]}");
}

void JsonTree::fault(std::size_t offset, std::string const & text) {
    std::string const told =
        "{\"offset\":" + std::to_string(base() + offset) + ",\"fault\":" + jsonText(text) + "}";
    if (filled_.empty()) {
        output().line(told);
        return;
    }
    output().write((filled_.back() ? "," : "") + told);
    while (!filled_.empty()) {
        close(Piece());
    }
}

} // namespace tool
} // namespace tav

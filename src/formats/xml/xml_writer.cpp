#include "tav/vinta/vinta_xml_tree.h"

#include "formats/xml/xml_modes.h"
#include "formats/xml/xml_output.h"
#include "formats/xml/xml_text.h"
#include "foundation/views.h"

#include <algorithm>

namespace tav {
namespace xml {

using tav::detail::bytesOf;
using tav::xml::detail::cdataBegin;
using tav::xml::detail::cdataEnd;
using tav::xml::detail::entityOf;
using tav::xml::detail::findEntityByte;
using tav::xml::detail::hasSpecialBytes;
using tav::xml::detail::logMode;
using tav::xml::detail::metadataMode;
using tav::xml::detail::noId;
using tav::xml::detail::Output;
using tav::xml::detail::sampleMode;
using tav::xml::detail::upToNul;

namespace {

/// A repeated element in a sample.
constexpr std::string_view ellipsis = "...";

} // namespace

/// Writes trees to one text.
class NodeWriter {
public:
    NodeWriter(std::string & out, bool pretty, bool skipEmpty, int level)
        : out_(out), pretty_(pretty), skipEmpty_(skipEmpty), level_(level) {}

    void write(Node const & root) {
        begin(root, root.dumping_);
        while (!open_.empty()) {
            Open & top = open_.back();
            if (top.child == top.node->nodes_.size()) {
                end();
                continue;
            }
            Node const & child = *top.node->nodes_[top.child];
            int const mode = child.dumping_ != 0 ? child.dumping_ : top.mode;
            if (mode == sampleMode && child.multiple() && !top.again) {
                top.again = true;
            } else {
                bool const repeated = top.again;
                top.again = false;
                ++top.child;
                if (repeated) {
                    repeat(child);
                    continue;
                }
            }
            if (top.mode != metadataMode || child.tag_ != "__key__") {
                begin(child, mode);
            }
        }
    }

private:
    struct Open {
        Node const * node;
        int mode;
        std::size_t child;
        /// The child is written and stands for several: its repetition is to come.
        bool again;
    };

    int level() const { return level_ + static_cast<int>(open_.size()); }

    void lineTo(int level) {
        if (pretty_) {
            out_.put('\n');
            out_.fill(static_cast<std::size_t>(std::max(level, 0)) * 4, ' ');
        }
    }

    /// Writes a node's beginning, and all of it if it has no children.
    void begin(Node const & node, int mode) {
        if (mode == metadataMode) {
            describe(node);
            return;
        }
        if (skipEmpty_ && node.contentIsEmpty() && node.attrs_.empty() && node.nodes_.empty()) {
            return;
        }
        lineTo(level());
        out_.put("<", node.tag_, "");
        writeAttrs(node, mode);
        if (!node.nodes_.empty()) {
            out_.put('>');
            open_.push_back({&node, mode, 0, false});
            return;
        }
        bool const has_text =
            !node.contentIsEmpty() || (mode == sampleMode && textInfo(node).meta_ != nullptr);
        if (!has_text && mode == 0) {
            out_.put("/>");
            return;
        }
        out_.put('>');
        if (has_text) {
            writeText(node, mode, level());
            if (!node.attrs_.empty()) {
                lineTo(level());
            }
        }
        writeEnd(node.tag_);
    }

    void end() {
        Open const top = open_.back();
        open_.pop_back();
        if (top.mode == metadataMode) {
            lineTo(level());
            writeEnd("element");
            return;
        }
        if (!top.node->contentIsEmpty()) {
            writeText(*top.node, top.mode, level());
        }
        lineTo(level());
        writeEnd(top.node->tag_);
    }

    void repeat(Node const & child) {
        lineTo(level());
        out_.put("<", child.tag_, ">");
        out_.put(ellipsis);
        writeEnd(child.tag_);
    }

    void writeEnd(std::string_view tag) { out_.put("</", tag, ">"); }

    void writeAttrs(Node const & node, int mode) {
        bool const described =
            mode == sampleMode && node.varid() != noId && !(node.attrs_.empty() && node.nodes_.empty());
        if (node.attrs_.empty() && !described) {
            return;
        }
        for (tavSharedPtr<Attr> const & attr : node.attrs_) {
            if (!skipEmpty_ || !attr->Attr::value().empty()) {
                lineTo(level() + 1);
                writeAttr(*attr, mode);
            }
        }
        if (described) {
            std::string meta;
            node.dumpMiniMeta(meta);
            lineTo(level() + 1);
            writePair("__meta__", meta);
        }
    }

    void writeAttr(Attr const & attr, int mode) {
        if (mode != sampleMode && mode != logMode) {
            writePair(attr.Attr::name(), attr.Attr::value());
            return;
        }
        std::string shown;
        attr.dumpSampleValue(shown, tav_istr(attr.Attr::value()), mode);
        writePair(attr.Attr::name(), shown);
    }

    /// As Attr::write.
    void writePair(std::string_view name, std::string_view value) {
        out_.put(" ", name, "=\"");
        writeEscaped(value.substr(0, value.find('\0')));
        out_.put('"');
    }

    void writeEscaped(std::string_view text) {
        char const * at = text.data();
        char const * const end = at + text.size();
        for (;;) {
            char const * const found = findEntityByte(at, end);
            out_.put(std::string_view(at, static_cast<std::size_t>(found - at)));
            if (found == end) {
                return;
            }
            out_.put(entityOf(*found));
            at = found + 1;
        }
    }

    /// What describes a node's text: the text's own description, else the node's.
    static VarInfo const & textInfo(Node const & node) {
        Content const * const content = node.content_.get();
        bool const own = content != nullptr && content->meta_ != nullptr;
        // What either protects is a secret.
        return own && (content->protectedValue() || !node.protectedValue())
                   ? static_cast<VarInfo const &>(*content)
                   : node;
    }

    void writeText(Node const & node, int mode, int level) {
        if (!node.attrs_.empty()) {
            lineTo(level + 1);
        }
        std::string const & text = node.content();
        if (mode != sampleMode && mode != logMode) {
            writeCdata(text);
            return;
        }
        std::string shown;
        textInfo(node).dumpSampleValue(shown, tav_istr(text), mode);
        writeCdata(shown);
    }

    /// As encode_cdata.
    void writeCdata(std::string const & text) {
        if (!hasSpecialBytes(text)) {
            out_.put(text);
        } else if (text.find(cdataEnd) != std::string::npos) {
            writeEscaped(upToNul(text.c_str()));
        } else {
            out_.put(cdataBegin, text, cdataEnd);
        }
    }

    void describe(Node const & node) {
        lineTo(level());
        out_.put("<element");
        writeMeta(node, tav_istr(node.tag_));
        // Read through a const view: the writing accessors would give the text a description.
        Content const * const content = node.content_.get();
        bool const text = content != nullptr && content->varid() != noId;
        if (node.attrs_.empty() && node.nodes_.empty() && !text) {
            out_.put("/>");
            return;
        }
        out_.put('>');
        for (tavSharedPtr<Attr> const & attr : node.attrs_) {
            lineTo(level() + 1);
            out_.put("<attrib");
            writeMeta(*attr, tav_istr(attr->name()));
            out_.put("/>");
        }
        if (text) {
            lineTo(level() + 1);
            out_.put("<content");
            writeMeta(*content, tav_istr());
            out_.put("/>");
        }
        open_.push_back({&node, metadataMode, 0, false});
    }

    void writeMeta(VarInfo const & info, tav_istr name) {
        if (!name.empty()) {
            writePair("name", bytesOf(name));
        }
        if (info.meta_ != nullptr) {
            std::string meta;
            info.meta_->dump(meta);
            info.meta_->dumpId(meta);
            out_.put(meta);
        }
    }

    Output out_;
    bool pretty_;
    bool skipEmpty_;
    int level_;
    std::vector<Open> open_;
};

std::string const & Node::encode(bool pretty, bool skipEmpty, int level, bool withNext) const {
    // Written apart: an attribute of the application's may have its node written while it tells its name.
    std::string text;
    text.swap(output_);
    text.clear();
    if (!skipEmpty || dumping_ == metadataMode || !contentIsEmpty() || !attrs_.empty() || !nodes_.empty()) {
        NodeWriter writer(text, pretty, skipEmpty, level);
        writer.write(*this);
        for (Node const * root = withNext ? next_.get() : nullptr; root != nullptr;
             root = root->next_.get()) {
            writer.write(*root);
        }
    }
    output_.swap(text);
    return output_;
}

} // namespace xml
} // namespace tav

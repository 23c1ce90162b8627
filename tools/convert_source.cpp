#include "tools/convert_parts.h"
#include "tools/envelope.h"
#include "tools/failure.h"
#include "tools/json_messages.h"
#include "tools/json_stream.h"
#include "tools/message_copy.h"
#include "tools/message_tree.h"
#include "tools/nbr_reader.h"
#include "tools/value_text.h"
#include "tools/xml_check.h"

#include <tav/vinta/vinta_nbr_unit.h>
#include <tav/vinta/vinta_pml_streams.h>
#include <tav/vinta/vinta_xml_streams.h>

#include <algorithm>
#include <stdexcept>

namespace tav {
namespace tool {

using pml::MetaClass;

namespace {

/// The most that one message, or a document that is read whole, may have.
constexpr std::size_t largestMessage = 256 * 1024 * 1024;
constexpr std::size_t largestFrame = 0xFFFFFF;
constexpr std::size_t frameHead = 4;

/// Is told nothing: for whoever only wants to know whether a document is whole.
class NoVisitor : public NbrVisitor {
public:
    void simple(NbrValue const &) override {}
    void open(NbrValue const &) override {}
    void close(std::size_t) override {}
};

/// Notes where the values at the top end.
class TopValues : public NbrVisitor {
public:
    void simple(NbrValue const & value) override {
        if (depth_ == 0) {
            ends.push_back(value.data + value.size);
        }
    }
    void open(NbrValue const &) override { ++depth_; }
    void close(std::size_t at) override {
        if (--depth_ == 0) {
            ends.push_back(at + 3);
        }
    }

    std::vector<std::size_t> ends;

private:
    std::size_t depth_ = 0;
};

class JsonSource : public Source {
public:
    JsonSource(ConvertOptions const & options, Template const & model)
        : model_(model),
          messages_(model),
          cls_(chosenClass(model, options.className, options.code)),
          envelope_(options.envelope),
          file_(options.text.empty() ? InputFile(options.file) : InputFile("JSON", options.text)),
          stream_(file_, largestMessage) {}

    bool next(Message & message) override {
        if (!stream_.next(text_)) {
            return false;
        }
        message = Message();
        body_ = text_;
        shift_ = 0;
        try {
            JsonText const json(text_);
            if (json.root().kind != JsonNode::Kind::object) {
                throw PlacedFault(0, "a message is a JSON object, and not a list of some");
            }
            if (envelope_) {
                readEnveloped(json, message);
            } else {
                write(json, json.root(), message);
            }
        } catch (PlacedFault const & e) {
            throw Failure(exitFound, toldAt(e.offset(), "error", e.what()));
        } catch (std::invalid_argument const & e) {
            throw Failure(exitFound, told("error", reasonOf(e)));
        }
        return true;
    }
    std::string told(std::string const & kind, std::string const & what) const override {
        return stream_.told(shift_ + placeOfFailure(body_, what), kind, what);
    }
    std::string toldAt(std::size_t at, std::string const & kind, std::string const & what) const override {
        return stream_.told(at, kind, what);
    }
    unsigned long long consumed() const override { return stream_.offset(); }
    unsigned long long size() const override { return file_.size(); }

private:
    void write(JsonText const & json, JsonNode const & object, Message & message) {
        shift_ = object.begin;
        body_ = json.text().substr(object.begin, object.end - object.begin);
        messages_.write(json, object, cls_, message);
    }

    void readEnveloped(JsonText const & json, Message & message) {
        readEnvelope(json, message);
        JsonNode const * const body = json.member(json.root(), "body");
        if (body == nullptr || message.heartbeat) {
            message.cls = model_.factory->findClass(message.code);
            return;
        }
        if (body->kind != JsonNode::Kind::object) {
            throw PlacedFault(body->begin, "a message is a JSON object");
        }
        unsigned short const code = message.code;
        write(json, *body, message);
        message.code = code;
        JsonNode const * const order = json.member(json.root(), "order");
        if (order != nullptr) {
            if (json.content(*order) != "class") {
                throw PlacedFault(order->begin, "the order of a body is that of its class: \"class\"");
            }
            std::string const sorted =
                inClassOrder(viewOf(tav_istr(message.nbr)), *message.cls, *model_.factory);
            message.nbr = istrOf(sorted);
        }
    }

    Template const & model_;
    JsonMessages messages_;
    MetaClass const * cls_;
    bool envelope_;
    InputFile file_;
    JsonStream stream_;
    std::string_view text_;
    std::string_view body_;
    std::size_t shift_ = 0;
};

/// What is read as bytes.
class BytesSource : public Source {
public:
    BytesSource(ConvertOptions const & options, Template const & model)
        : model_(model),
          chosen_(chosenClass(model, options.className, options.code)),
          in_(options.file, options.form) {}

    std::string told(std::string const & kind, std::string const & what) const override {
        return toldInBytes(in_.name(), bytes_, base_, at_, kind, what);
    }
    std::string toldAt(std::size_t at, std::string const & kind, std::string const & what) const override {
        return toldInBytes(in_.name(), bytes_, base_, body_ + at, kind, what);
    }
    unsigned long long consumed() const override { return in_.consumed(); }
    unsigned long long size() const override { return in_.size(); }

protected:
    [[noreturn]] void fail(std::size_t at, std::string const & what) {
        at_ = at;
        throw Failure(exitFound, told("error", what));
    }
    /// Holds the body to the form of NBR.
    void demandNbr(std::size_t begin, std::size_t size) {
        at_ = body_ = begin;
        NoVisitor none;
        NbrFault fault;
        if (!readNbr(std::string_view(bytes_).substr(begin, size), none, fault, base_ + begin)) {
            fail(begin + fault.offset, fault.text);
        }
    }

    Template const & model_;
    MetaClass const * chosen_;
    ByteReader in_;
    std::string bytes_;
    unsigned long long base_ = 0;
    /// The place of what is told of the message, and where its NBR begins.
    std::size_t at_ = 0;
    std::size_t body_ = 0;
};

class NbrSource : public BytesSource {
public:
    NbrSource(ConvertOptions const & options, Template const & model) : BytesSource(options, model) {
        if (chosen_ == nullptr) {
            throw Failure(exitUse, "NBR does not tell its class: --class or --code is needed");
        }
    }

    /// Each value at the top is a message.
    bool next(Message & message) override {
        if (!read_) {
            all_ = readRest(in_, largestMessage);
            if (all_.empty()) {
                throw Failure(exitFound, in_.name() + ": is empty");
            }
            read_ = true;
            broken_ = !readNbr(all_, values_, fault_);
            if (broken_ && !values_.ends.empty() && values_.ends.back() == all_.size()) {
                values_.ends.pop_back();
            }
        }
        base_ += bytes_.size();
        auto const begin = static_cast<std::size_t>(base_);
        if (next_ == values_.ends.size()) {
            bytes_ = all_.substr(begin);
            if (broken_) {
                broken_ = false;
                fail(fault_.offset - begin, fault_.text);
            }
            return false;
        }
        bytes_ = all_.substr(begin, values_.ends[next_++] - begin);
        at_ = 0;
        message = Message();
        message.readAsNbr = true;
        message.cls = chosen_;
        message.code = codeOf(*chosen_);
        message.nbr = istrOf(bytes_);
        return true;
    }

private:
    bool read_ = false;
    bool broken_ = false;
    std::string all_;
    TopValues values_;
    NbrFault fault_;
    std::size_t next_ = 0;
};

class FrameSource : public BytesSource {
public:
    using BytesSource::BytesSource;

    bool next(Message & message) override {
        base_ += bytes_.size();
        bytes_.clear();
        if (!readFrame()) {
            return false;
        }
        message = Message();
        message.enveloped = true;
        message.heartbeat = bytes_.size() == frameHead;
        message.readAsNbr = true;
        message.frame = bytes_;
        if (!message.heartbeat) {
            takePacket(message);
        }
        return true;
    }
    bool lost() const override { return lost_; }

private:
    bool readFrame() {
        char head[frameHead];
        std::size_t const got = in_.read(head, frameHead);
        bytes_.assign(head, got);
        if (got == 0) {
            return false;
        }
        lost_ = true;
        if (got < frameHead) {
            fail(got, "the length of a frame has 4 bytes, and " + std::to_string(got) +
                          (got == 1 ? " is" : " are") + " there");
        }
        std::size_t length = 0;
        for (char const c : head) {
            length = length << 8 | static_cast<unsigned char>(c);
        }
        if (length > largestFrame) {
            fail(0, "a frame has at most 16777215 bytes, and not " + std::to_string(length));
        }
        bytes_.resize(frameHead + length);
        bytes_.resize(frameHead + in_.read(&bytes_[0] + frameHead, length));
        if (bytes_.size() < frameHead + length) {
            fail(bytes_.size(),
                 "the frame has " + byteCount(length) + ", and " + thereAre(bytes_.size() - frameHead));
        }
        lost_ = false;
        return true;
    }

    void takePacket(Message & message) {
        try {
            body_ = frameHead + readPacket(std::string_view(bytes_).substr(frameHead), message);
        } catch (PlacedFault const & e) {
            fail(frameHead + e.offset(), e.what());
        } catch (std::invalid_argument const & e) {
            fail(frameHead, reasonOf(e));
        }
        message.cls = chosen_ != nullptr ? chosen_ : model_.factory->findClass(message.code);
        at_ = body_;
        if (message.cls != nullptr && !message.nbr.empty()) {
            demandNbr(body_, message.nbr.size());
        }
    }

    bool lost_ = false;
};

/// What is read as a whole text of messages.
class TextSource : public Source {
public:
    TextSource(ConvertOptions const & options, Template const & model)
        : model_(model),
          chosen_(chosenClass(model, options.className, options.code)),
          text_(readWhole(options.file, name_, largestMessage)) {}

    std::string told(std::string const & kind, std::string const & what) const override {
        return toldInText(name_, text_, at_, kind, what);
    }
    std::string toldAt(std::size_t at, std::string const & kind, std::string const & what) const override {
        return toldInText(name_, text_, at, kind, what);
    }
    unsigned long long consumed() const override { return at_; }
    unsigned long long size() const override { return text_.size(); }

protected:
    [[noreturn]] void fail(std::size_t at, std::string const & what) {
        at_ = at;
        throw Failure(exitFound, told("error", what));
    }

    /// Takes the message from a stream; `named` is what the text says of its class.
    void take(tavCodecStream & in, std::string const & named, Message & message) {
        MetaClass const * const cls = chosen_ != nullptr ? chosen_ : model_.factory->findClass(istrOf(named));
        if (cls == nullptr) {
            fail(at_, named.empty() ? "the message does not name its class: --class or --code is needed"
                                    : "there is no class " + named);
        }
        message = Message();
        message.cls = cls;
        message.code = codeOf(*cls);
        tavNbrOutStream out(false);
        Copied copied;
        try {
            copied = copyMessage(
                in, out, *cls, *model_.factory, [](std::string_view) { return true; }, Texts::in);
        } catch (std::invalid_argument const & e) {
            fail(at_, reasonOf(e));
        }
        if (!copied.missing.empty()) {
            fail(at_, missingFields(copied.missing, *cls));
        }
        for (std::string const & text : copied.dropped) {
            message.notes.push_back(Note{at_, text});
        }
        message.nbr = out.str();
    }

    Template const & model_;
    MetaClass const * chosen_;
    std::string name_;
    std::string text_;
    std::size_t at_ = 0;
};

class PmlSource : public TextSource {
public:
    PmlSource(ConvertOptions const & options, Template const & model) : TextSource(options, model) {
        try {
            units_ = std::make_unique<PmlText>(text_);
        } catch (PmlFault const & fault) {
            fail(fault.offset(), fault.words());
        }
        if (units_->end() < text_.size()) {
            fail(units_->end(), "what follows is not read");
        }
        next_ = text_.empty() ? tavSharedPtr<pml::Unit>() : units_->first();
    }

    bool next(Message & message) override {
        if (!next_) {
            return false;
        }
        tavSharedPtr<pml::Unit> const unit = next_;
        next_ = unit->next();
        at_ = units_->place(*unit).name;
        tavPmlInStreamImpl impl(unit);
        tavPmlInStream in(&impl, false);
        take(in, unit->type().empty() ? unit->name() : unit->type(), message);
        return true;
    }

private:
    std::unique_ptr<PmlText> units_;
    tavSharedPtr<pml::Unit> next_;
};

class XmlSource : public TextSource {
public:
    XmlSource(ConvertOptions const & options, Template const & model) : TextSource(options, model) {
        if (text_.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            text_.erase(0, 3);
        }
        try {
            checkXml(text_);
        } catch (PlacedFault const & e) {
            fail(e.offset(), e.what());
        }
        std::string rest;
        root_.decode(istrOf(text_), &rest);
        std::size_t const blanks = std::min(rest.find_first_not_of(" \t\r\n"), rest.size());
        if (blanks != rest.size() || root_.tag().empty()) {
            fail(text_.size() - rest.size() + blanks, "the XML breaks off here");
        }
        next_ = &root_;
    }

    bool next(Message & message) override {
        if (next_ == nullptr) {
            return false;
        }
        xml::Node const & node = *next_;
        next_ = node.next();
        // Roots have no places: the first one stands at the begin, and further ones are found by their tags.
        std::size_t const found = text_.find("<" + std::string(node.tag()), at_ + (first_ ? 0 : 1));
        at_ = std::min(found == std::string::npos ? at_ : found, text_.size());
        first_ = false;
        tavXmlInStreamImpl impl(node);
        tavXmlInStream in(&impl, false);
        take(in, node.tag(), message);
        return true;
    }

private:
    xml::Node root_;
    xml::Node const * next_ = nullptr;
    bool first_ = true;
};

} // namespace

std::unique_ptr<Source> makeSource(ConvertOptions const & options, Template const & model) {
    switch (options.from) {
    case Encoding::nbr: return std::make_unique<NbrSource>(options, model);
    case Encoding::pml: return std::make_unique<PmlSource>(options, model);
    case Encoding::xml: return std::make_unique<XmlSource>(options, model);
    case Encoding::frames: return std::make_unique<FrameSource>(options, model);
    default: return std::make_unique<JsonSource>(options, model);
    }
}

} // namespace tool
} // namespace tav
